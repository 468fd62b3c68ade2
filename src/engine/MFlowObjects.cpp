#include "MFlowObjects.h"

#include <pybind11/pybind11.h>

#include <algorithm>
#include <atomic>
#include <deque>

#include "MFlowManager.h"

namespace py = pybind11;

namespace quorvel {

// ---------------------------------------------------------------------------
// TAbstractData

uint32_t TAbstractData::nextDataId() {
  // Values are also made on helper threads, a dataset's while it loads.
  static std::atomic<uint32_t> counter{0};
  return ++counter;
}

TAbstractData::TAbstractData() : m_DataId(nextDataId()) {}

std::string TAbstractData::toString() const {
  return "<TAbstractData::toString(): needs implementation in derived class>";
}

std::string TAbstractData::stringify() const { throw TFlowError("stringify() not implemented"); }

void TAbstractData::unstringify(const std::string&) { throw TFlowError("unstringify() not implemented"); }

// ---------------------------------------------------------------------------
// TFlowObject

std::shared_ptr<TCppFlowManager> TFlowObject::getFlowManager() {
  throw TFlowError("Cannot get flow manager for this object");
}

void TFlowObject::destroy() { flowobject_destroy(); }

void TFlowObject::flowobject_destroy() {
  auto keep = shared_from_this();
  m_Destroyed = true;
  TFlowEpoch::advance();
  if (m_RegisteredIn && m_Id != 0) m_RegisteredIn->unregisterObject(m_Id);
  m_RegisteredIn = nullptr;
}

std::string TFlowObject::toString() {
  return "<TFlowObject::toString(): needs implementation in derived class>";
}

std::string TFlowObject::getKeyText() { return "<no keyname, id: " + std::to_string(m_Id) + ">"; }

// ---------------------------------------------------------------------------
// TAbstractPin

std::shared_ptr<TCppFlowManager> TAbstractPin::getFlowManager() {
  if (!m_Processor) return TFlowObject::getFlowManager();
  return m_Processor->getFlowManager();
}

void TAbstractPin::destroy() {
  auto keep = shared_from_this();
  flowobject_destroy();
  const auto connectors = m_Connectors;
  for (const auto& c : connectors) c->destroy();
  m_Self.reset();
  m_Processor.reset();
  m_Data.reset();
  m_Connectors.clear();
  m_PySelf.reset();
}

void TAbstractPin::setData(TDataPtr data) {
  m_Data = std::move(data);
  markReplaced();
  m_DataSetHere = true;
}

void TAbstractPin::touch() {
  markReplaced();
  m_DataSetHere = true;
}

void TAbstractPin::setDataFromSource(TDataPtr data) {
  m_Data = std::move(data);
  markReplaced();
  m_DataSetHere = false;
}

std::vector<TPinPtr> TAbstractPin::getConnectedTo() {
  std::vector<TPinPtr> result;
  result.reserve(m_Connectors.size());
  for (const auto& c : m_Connectors) {
    TAbstractPin* other = c->getOtherPin(this);
    result.push_back(other ? other->m_Self : nullptr);
  }
  return result;
}

// ---------------------------------------------------------------------------
// TAbstractConnector

std::shared_ptr<TCppFlowManager> TAbstractConnector::getFlowManager() {
  if (!m_OutputPin) return TFlowObject::getFlowManager();
  return m_OutputPin->getFlowManager();
}

void TAbstractConnector::destroy() {
  auto keep = shared_from_this();
  flowobject_destroy();
  auto removeFrom = [this](TAbstractPin* pin) {
    if (!pin) return;
    auto& list = pin->m_Connectors;
    list.erase(std::remove_if(list.begin(), list.end(),
                              [this](const TConnectorPtr& c) { return c.get() == this; }),
               list.end());
  };
  removeFrom(m_OutputPin);
  removeFrom(m_InputPin);
  m_PySelf.reset();
}

TPinPtr TAbstractConnector::getInputPin() const {
  if (!m_InputPin || !m_InputPin->m_Self) throw TFlowError("!m_InputPin->m_Self");
  return m_InputPin->m_Self;
}

TPinPtr TAbstractConnector::getOutputPin() const {
  if (!m_OutputPin || !m_OutputPin->m_Self) throw TFlowError("!m_OutputPin->m_Self");
  return m_OutputPin->m_Self;
}

// ---------------------------------------------------------------------------
// TAbstractProcessor

std::shared_ptr<TCppFlowManager> TAbstractProcessor::getFlowManager() {
  if (!m_Box) return TFlowObject::getFlowManager();
  return m_Box->getFlowManager();
}

void TAbstractProcessor::process() { throw TFlowError("process() not implemented"); }

void TAbstractProcessor::flowobject_destroy() {
  auto keep = shared_from_this();
  if (m_RegisteredIn && m_RegisteredIn->m_IsProgram && hasHook(kHookDestroy)) destroy_python();
  TFlowObject::flowobject_destroy();
}

void TAbstractProcessor::destroy() {
  auto keep = shared_from_this();
  flowobject_destroy();
  for (const auto& pin : std::vector<TPinPtr>(m_InputPins)) pin->destroy();
  for (const auto& pin : std::vector<TPinPtr>(m_OutputPins)) pin->destroy();
  if (m_Box) {
    auto& list = m_Box->m_Processors;
    list.erase(std::remove_if(list.begin(), list.end(),
                              [this](const TProcessorPtr& p) { return p.get() == this; }),
               list.end());
  }
  m_InputPins.clear();
  m_OutputPins.clear();
  m_InputPinsByName.clear();
  m_PinsToReset.clear();
  m_Box.reset();
  m_PySelf.reset();
}

TPinPtr TAbstractProcessor::addTypedPin(TPinPtr pin, const std::string& acceptedtype,
                                        const std::string& name) {
  pin->m_Name = name;
  pin->m_AcceptedType = acceptedtype;
  pin->m_Processor = selfPtr();
  pin->m_Self = pin;
  TFlowEpoch::advance();
  if (pin->isInputPin()) {
    m_InputPins.push_back(pin);
    m_InputPinsByName.emplace(name, pin);
  } else {
    m_OutputPins.push_back(pin);
  }
  return pin;
}

TPinPtr TAbstractProcessor::addInputPin(const std::string& acceptedtype, const std::string& name) {
  return addTypedPin(std::make_shared<TAbstractInputPin>(), acceptedtype, name);
}

TPinPtr TAbstractProcessor::addOutputPin(const std::string& acceptedtype, const std::string& name) {
  return addTypedPin(std::make_shared<TAbstractOutputPin>(), acceptedtype, name);
}

TPinPtr TAbstractProcessor::getOnlyInputPin() {
  if (m_InputPins.size() != 1) throw TFlowError("Not only one input pin");
  return m_InputPins[0];
}

TPinPtr TAbstractProcessor::getOnlyOutputPin() {
  if (m_OutputPins.size() != 1) throw TFlowError("Not only one output pin");
  return m_OutputPins[0];
}

TPinPtr TAbstractProcessor::getInputPinByName(const std::string& name) {
  for (const auto& p : m_InputPins)
    if (p->m_Name == name) return p;
  return nullptr;
}

TPinPtr TAbstractProcessor::getOutputPinByName(const std::string& name) {
  for (const auto& p : m_OutputPins)
    if (p->m_Name == name) return p;
  return nullptr;
}

TProcessorPtr TAbstractProcessor::getConnectedProcessor(const std::string& name) {
  TPinPtr pin = getInputPinByName(name);
  if (!pin) throw TFlowError("getConnectedProcessor(): pin with that name not found");
  if (pin->m_Connectors.empty()) throw TFlowError("getConnectedProcessor(): connector no connections");
  if (pin->m_Connectors.size() > 1)
    throw TFlowError("getConnectedProcessor(): connector has more than one connection");
  TAbstractPin* other = pin->m_Connectors[0]->getOtherPin(pin.get());
  return other ? other->m_Processor : nullptr;
}

void TAbstractProcessor::reparent(const TBoxPtr& newbox) {
  auto keep = selfPtr();
  TFlowEpoch::advance();
  newbox->m_Processors.push_back(keep);
  if (m_Box) {
    // The first entry is the old place, also when the box stays the same.
    auto& list = m_Box->m_Processors;
    list.erase(std::find(list.begin(), list.end(), keep));
  }
  m_Box = newbox;
}

bool TAbstractProcessor::getInputChanged() {
  for (const auto& p : m_InputPins)
    if (p->hasChanged()) return true;
  return false;
}

bool TAbstractProcessor::getInputPinChanged(const std::string& name) {
  auto it = m_InputPinsByName.find(name);
  return it != m_InputPinsByName.end() && it->second->hasChanged();
}

template <class F>
bool TAbstractProcessor::forPinsOf(const TPinSpec& spec, F&& f) {
  if (spec.pin()) return f(spec.pin());
  const std::string& name = spec.name();
  if (!name.empty() && name.back() == '.') {
    for (const auto& p : m_InputPins)
      if (p->m_Name.compare(0, name.size(), name) == 0)
        if (f(p)) return true;
    return false;
  }
  for (const auto& p : m_InputPins)
    if (p->m_Name == name) return f(p);
  throw TFlowError("Cannot find pin with name " + name);
}

bool TAbstractProcessor::requireData(const TPinList& list) {
  for (const auto& spec : list) {
    bool missing = forPinsOf(spec, [](const TPinPtr& p) { return !p->m_Data; });
    if (missing) return false;
  }
  return true;
}

bool TAbstractProcessor::requireAllElseReset(const TPinList& list) {
  if (requireData(list)) return true;
  resetPins({});
  return false;
}

bool TAbstractProcessor::haveChanged(const TPinList& list) {
  for (const auto& spec : list) {
    if (forPinsOf(spec, [](const TPinPtr& p) { return p->hasChanged(); })) return true;
  }
  return false;
}

void TAbstractProcessor::resetPins(const TPinList& list) {
  // A list noted outside a processor's turn waits for its next turn, which
  // a quiet pass would not give it.
  TFlowEpoch::advance();
  if (list.empty()) {
    m_PinsToReset.insert(m_PinsToReset.end(), m_InputPins.begin(), m_InputPins.end());
    return;
  }
  for (const auto& spec : list) {
    forPinsOf(spec, [this](const TPinPtr& p) {
      m_PinsToReset.push_back(p);
      return false;
    });
  }
}

void TAbstractProcessor::touchPins() {
  for (const auto& p : m_InputPins) p->markReplaced();
}

void TAbstractProcessor::setError(const std::string& text) {
  m_Error += text;
  m_Error += "\n";
}

// ---------------------------------------------------------------------------
// TAbstractBox

std::shared_ptr<TCppFlowManager> TAbstractBox::getFlowManager() {
  if (m_Parent) return m_Parent->getFlowManager();
  auto manager = std::dynamic_pointer_cast<TCppFlowManager>(shared_from_this());
  if (!manager) return TFlowObject::getFlowManager();
  return manager;
}

void TAbstractBox::postCreate() { m_Self = selfPtr(); }

void TAbstractBox::destroy() {
  auto keep = shared_from_this();
  if (m_Parent) {
    flowobject_destroy();
    m_Self.reset();
  }
  // The lists are taken out first: each object taking itself out of a list
  // that still holds the rest would make a large box quadratic to destroy.
  std::vector<TProcessorPtr> processors;
  processors.swap(m_Processors);
  for (const auto& p : processors) p->destroy();
  std::vector<TBoxPtr> children;
  children.swap(m_Children);
  for (const auto& b : children) b->destroy();
  if (m_Parent) {
    auto& list = m_Parent->m_Children;
    list.erase(std::remove_if(list.begin(), list.end(),
                              [this](const TBoxPtr& b) { return b.get() == this; }),
               list.end());
    m_Parent = nullptr;
    m_PySelf.reset();
  }
  m_Processors.clear();
  m_Children.clear();
}

void TAbstractBox::addProcessor(const TProcessorPtr& proc) {
  if (proc->m_Id != 0) throw TFlowError("Already registered");
  auto manager = getFlowManager();
  proc->m_Box = selfPtr();
  manager->registerObject(proc);
  m_Processors.push_back(proc);
  TFlowEpoch::advance();
  for (const auto& p : proc->m_InputPins) manager->registerObject(p);
  for (const auto& p : proc->m_OutputPins) manager->registerObject(p);
  if (manager->m_DeferSizes)
    manager->m_SizesDue.push_back(this);
  else
    computeSize();
}

void TAbstractBox::addBox(const TBoxPtr& box) {
  if (box.get() == this) throw TFlowError("Cannot add box as child to itself");
  auto manager = getFlowManager();
  m_Children.push_back(box);
  box->m_Parent = this;
  TFlowEpoch::advance();
  manager->registerObject(box);
  if (manager->m_DeferSizes)
    manager->m_SizesDue.push_back(this);
  else
    computeSize();
}

TBoxPtr TAbstractBox::getParent() const {
  if (!m_Parent) return nullptr;
  return m_Parent->selfPtr();
}

TConnectorPtr TAbstractBox::createConnection(const TPinPtr& outputpin, const TPinPtr& inputpin) {
  auto connector = std::make_shared<TAbstractConnector>();
  connector->m_OutputPin = outputpin.get();
  connector->m_InputPin = inputpin.get();
  getFlowManager()->registerObject(connector);
  outputpin->attach(connector);
  inputpin->attach(connector);
  return connector;
}

void TAbstractBox::computeSize() {
  for (const auto& child : m_Children) child->computeSize();
  computeOwnSize();
}

void TAbstractBox::computeOwnSize() {
  bool any = false;
  TBox bounds;
  auto extend = [&](const TBox& a) {
    if (!any) {
      bounds = a;
      any = true;
      return;
    }
    bounds.tl.x = std::min(bounds.tl.x, a.tl.x);
    bounds.tl.y = std::min(bounds.tl.y, a.tl.y);
    bounds.br.x = std::max(bounds.br.x, a.br.x);
    bounds.br.y = std::max(bounds.br.y, a.br.y);
  };
  for (const auto& p : m_Processors) extend(p->m_Area);
  for (const auto& b : m_Children) extend(b->m_Area);
  if (m_Parent && any) {
    bounds.br.x += 10.0f;
    bounds.br.y += 10.0f;
    m_Area = bounds;
  }
}

TBoxPtr TAbstractBox::getBoxByType(const std::string& name) {
  for (const auto& b : m_Children)
    if (b->m_Type == name) return b;
  return nullptr;
}

TProcessorPtr TAbstractBox::getIdentityProcessorByInputName(const std::string& name) {
  for (const auto& p : m_Processors) {
    if (p->isIdentity() && p->m_InputPins.size() == 1 && p->m_InputPins[0]->m_Name == name) return p;
  }
  return nullptr;
}

TProcessorPtr TAbstractBox::findProcessor(const std::function<bool(const TProcessorPtr&)>& pred) {
  std::deque<TAbstractBox*> queue{this};
  while (!queue.empty()) {
    TAbstractBox* box = queue.front();
    queue.pop_front();
    for (const auto& child : box->m_Children) queue.push_back(child.get());
    for (const auto& p : box->m_Processors)
      if (pred(p)) return p;
  }
  return nullptr;
}

void TAbstractBox::forEachProcessor(const std::function<void(const TProcessorPtr&)>& f) {
  findProcessor([&f](const TProcessorPtr& p) {
    f(p);
    return false;
  });
}

TProcessorPtr TAbstractBox::getProcessorByName(const std::string& name) {
  return findProcessor([&name](const TProcessorPtr& p) { return p->m_KeyName == name; });
}

std::vector<TProcessorPtr> TAbstractBox::getProcessorsHavingAttribute(const std::string& name) {
  std::vector<TProcessorPtr> result;
  forEachProcessor([&](const TProcessorPtr& p) {
    if (py::hasattr(py::cast(p), name.c_str())) result.push_back(p);
  });
  return result;
}

TBoxPtr makeBox(const std::string& type) {
  auto box = std::make_shared<TAbstractBox>();
  box->postCreate();
  box->m_Type = type;
  return box;
}

}  // namespace quorvel
