#include "MLibrary.h"

#include <map>

#include <iostream>

#include "engine/MRegistry.h"
#include "engine/MMediator.h"
#include "engine/MPython.h"
#include "engine/MSources.h"

namespace quorvel {

TLibraryRegistry& TLibraryRegistry::instance() {
  static TLibraryRegistry registry;
  return registry;
}

void TLibraryRegistry::add(const std::string& boxtype, TLibraryBuilder builder) {
  for (auto& entry : m_Builders) {
    if (entry.first == boxtype) {
      entry.second = std::move(builder);
      return;
    }
  }
  m_Builders.emplace_back(boxtype, std::move(builder));
}

void buildLibrary(TFlowManager& lib) {
  for (const auto& [type, builder] : TLibraryRegistry::instance().builders()) builder(lib);
}

bool loadLibrary(TFlowManager& lib, const std::string& filename) {
  try {
    if (!lib.load(lib.selfPtr(), filename)) throw TFlowError("No such file: '" + filename + "'");
    return true;
  } catch (...) {
    const TExceptionText info = describeException(std::current_exception());
    logError("Error while loading '" + filename + "'");
    logDebug(info.traceback);
    lib.destroy();
    return false;
  }
}

void setUpNetworks(const std::string& libraryFile) {
  logDebug("Reading library...");
  me.flowlib = makeFlowManager(false);
  loadLibrary(*me.flowlib, libraryFile);
  me.flowlayout = makeFlowManager(true);
}

TBoxPtr instantiateLibBox(const std::string& name, const TInstantiateOptions& options) {
  me.manualupdate = false;
  if (!me.flowlib || !me.flowlayout) throw TFlowError("The flow networks are not set up");
  TBoxPtr box = me.flowlib->getBoxByType(name);
  if (!box) throw TFlowError("Cannot find box by name '" + name + "'");
  me.flowlib->copy(box);
  auto newobjs = me.flowlayout->paste(me.flowlayout);
  auto made = newobjs ? std::dynamic_pointer_cast<TAbstractBox>(newobjs->front()) : nullptr;
  if (!made) throw TFlowError("Not a box");
  for (const auto& [from, to] : options.rename) {
    if (TProcessorPtr port = made->getIdentityProcessorByInputName(from))
      port->getOnlyInputPin()->m_Name = to;
    else
      std::cout << "rename: could not find pin with name '" << from << "'" << std::endl;
  }
  for (const auto& [port, value] : options.assign) {
    const std::string text = port == "gui title" ? getFreeGuiTitle(value) : value;
    auto holder = std::dynamic_pointer_cast<TAbstractDataSource>(made->getProcessorByName(port + " text"));
    if (TProcessorPtr p = made->getIdentityProcessorByInputName(port); p && holder)
      holder->setData(makeData("TStringData", text));
    else if (p)
      p->getOnlyInputPin()->setData(makeData("TStringData", text));
    else
      std::cout << "assign: could not find pin with name '" << port << "'" << std::endl;
  }
  me.flowlayout->autoconnect();
  return made;
}

std::string guiTitleOf(const TBoxPtr& box) {
  TProcessorPtr port = box ? box->getIdentityProcessorByInputName("gui title") : nullptr;
  if (!port || port->m_OutputPins.empty()) return "";
  // The title stands on the output pin once the port ran, on the input pin
  // right after an assign, and in the source before the first pass.
  TDataPtr value = port->m_OutputPins[0]->getData();
  if (!value) value = port->m_InputPins[0]->getData();
  if (!value)
    if (auto source = std::dynamic_pointer_cast<TAbstractDataSource>(box->getProcessorByName("gui title text")))
      value = source->getData();
  return value ? value->toString() : "";
}

std::string defaultGuiTitle(const std::string& boxtype) {
  static const std::map<std::string, std::string> titles = {{"BHebView", "Radial"},
                                                            {"BTreemapView", "Treemap"},
                                                            {"BTableLens", "Table view"},
                                                            {"BListView", "List view"},
                                                            {"BTreeView", "Tree view"}};
  auto it = titles.find(boxtype);
  return it == titles.end() ? "View" : it->second;
}

std::string getFreeGuiTitle(const std::string& text) {
  std::vector<std::string> titles;
  if (me.flowlayout)
    for (const auto& box : me.flowlayout->m_Children)
      if (box->getIdentityProcessorByInputName("gui title")) titles.push_back(guiTitleOf(box));
  auto taken = [&titles](const std::string& t) { return std::find(titles.begin(), titles.end(), t) != titles.end(); };
  if (!taken(text)) return text;
  for (int i = 1;; ++i) {
    std::string candidate = text + " (" + std::to_string(i) + ")";
    if (!taken(candidate)) return candidate;
  }
}

std::shared_ptr<TAbstractProcessor> addTitlePort(TFlowManager& lib, const TBoxPtr& box, const std::string& title,
                                                 float x, float y) {
  auto port = addInputPort(lib, box, "gui title", x, y);
  // Above the port: sources run first.
  auto text = addSource(lib, box, "TStringDataSource", "gui title text", makeData("TStringData", title), x,
                        y - 40.0f);
  wire(box, text, "out", port, "gui title");
  addSource(lib, box, "TBooleanDataSource", "gui front", makeData("TBooleanData", "0"), x + 100.0f, y - 40.0f);
  return port;
}

void markFrontView(const TBoxPtr& front) {
  if (!me.flowlayout) return;
  for (const auto& box : me.flowlayout->m_Children) {
    auto flag = std::dynamic_pointer_cast<TAbstractDataSource>(box->getProcessorByName("gui front"));
    if (!flag) continue;
    const TDataPtr now = flag->getData();
    const std::string wanted = box == front ? "1" : "0";
    if (!now || now->stringify() != wanted) flag->setData(makeData("TBooleanData", wanted));
  }
}

TBoxPtr settleLoadedViews(const std::vector<TBoxPtr>& boxes) {
  TBoxPtr front;
  for (const auto& box : boxes) {
    TProcessorPtr port = box->getIdentityProcessorByInputName("gui title");
    if (!port) continue;
    if (guiTitleOf(box).empty()) {
      // Stored before views kept their titles.
      const std::string title = getFreeGuiTitle(defaultGuiTitle(box->m_Type));
      if (auto text = std::dynamic_pointer_cast<TAbstractDataSource>(box->getProcessorByName("gui title text")))
        text->setData(makeData("TStringData", title));
      else
        port->getOnlyInputPin()->setData(makeData("TStringData", title));
    }
    if (auto flag = std::dynamic_pointer_cast<TAbstractDataSource>(box->getProcessorByName("gui front"))) {
      const TDataPtr value = flag->getData();
      if (value && value->getClassName() == "TBooleanData" && value->stringify() == "1") front = box;
    }
  }
  return front;
}

std::shared_ptr<TAbstractProcessor> addPort(TFlowManager& lib, const TBoxPtr& box, const std::string& name, float x,
                                            float y) {
  auto port = lib.constructProcessor<TAbstractIdentityProcessor>();
  port->m_InputPin->m_Name = name;
  port->m_OutputPin->m_Name = name;
  port->m_Area = TBox(x, y, x + 80.0f, y + 20.0f);
  box->addProcessor(port);
  return port;
}

std::shared_ptr<TAbstractProcessor> addInputPort(TFlowManager& lib, const TBoxPtr& box, const std::string& name,
                                                 float x, float y) {
  auto port = addPort(lib, box, name, x, y);
  port->getOnlyOutputPin()->m_Name = "out";
  port->m_KeyName = name;
  return port;
}

std::shared_ptr<TAbstractProcessor> addNamed(TFlowManager& lib, const TBoxPtr& box, const std::string& classname,
                                             const std::string& keyname, float x, float y) {
  TProcessorPtr p = lib.constructProcessor(classname);
  p->m_KeyName = keyname;
  p->m_Area = TBox(x, y, x + 80.0f, y + 20.0f);
  box->addProcessor(p);
  return p;
}

std::shared_ptr<TAbstractProcessor> addSource(TFlowManager& lib, const TBoxPtr& box, const std::string& classname,
                                              const std::string& keyname, const TDataPtr& value, float x, float y) {
  auto p = addNamed(lib, box, classname, keyname, x, y);
  if (value) {
    auto source = std::dynamic_pointer_cast<TAbstractDataSource>(p);
    if (!source) throw TFlowError("addSource(): " + classname + " is no data source");
    source->setData(value);
  }
  return p;
}

TDataPtr scriptValue(const char* literal) {
  return makeData("TPythonData", literal);
}

std::shared_ptr<TAbstractProcessor> addPicker(TFlowManager& lib, const TBoxPtr& box, const std::string& keyname,
                                              const TProcessorPtr& array, const std::string& arraypin,
                                              const TProcessorPtr& key, const char* settings, float x, float y) {
  auto pickerSettings =
      addSource(lib, box, "TPythonDataSource", keyname + " settings", scriptValue(settings), x + 100, y - 20);
  auto picker = addNamed(lib, box, "TArrayPicker", keyname, x, y);
  wire(box, array, arraypin, picker, "array");
  if (key) wire(box, key, "out", picker, "key");
  wire(box, pickerSettings, "out", picker, "settings");
  return picker;
}

void wire(const TBoxPtr& box, const TProcessorPtr& from, const std::string& outpin, const TProcessorPtr& to,
          const std::string& inpin) {
  TPinPtr out = from->getOutputPinByName(outpin);
  TPinPtr in = to->getInputPinByName(inpin);
  if (!out) throw TFlowError("wire(): " + from->getClassName() + " has no output pin '" + outpin + "'");
  if (!in) throw TFlowError("wire(): " + to->getClassName() + " has no input pin '" + inpin + "'");
  box->createConnection(out, in);
}

}  // namespace quorvel
