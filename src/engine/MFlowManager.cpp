#include "MFlowManager.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include "MMediator.h"
#include "MRegistry.h"

namespace quorvel {

// ---------------------------------------------------------------------------
// Registration

void TCppFlowManager::postCreate() {
  m_Self = selfPtr();
  m_NextId = 1;
  registerObject(m_Self);
  m_Area = TBox(0.0f, 0.0f, 1000.0f, 1000.0f);
  m_Parent = nullptr;
}

void TCppFlowManager::destroy() {
  TAbstractBox::destroy();
  // The run queue of the last pass holds the processors just destroyed.
  m_RunQueue.reset();
  m_SeenEpoch = 0;
  m_LastWalkOrder.clear();
  m_WalkOrder.clear();
  m_AllPins.clear();
}

void TCppFlowManager::release() {
  destroy();
  m_Objects.clear();
  m_Self.reset();
  m_PySelf.reset();
}

std::shared_ptr<TFlowObject> TCppFlowManager::getFlowObject(uint32_t id) const {
  auto it = m_Objects.find(id);
  return it == m_Objects.end() ? nullptr : it->second;
}

void TCppFlowManager::registerObject(const std::shared_ptr<TFlowObject>& obj) {
  obj->m_Id = m_NextId;
  obj->m_RegisteredIn = this;
  m_Objects[m_NextId] = obj;
  ++m_NextId;
  obj->keepScriptSelf();
}

void TCppFlowManager::unregisterObject(uint32_t id) { m_Objects.erase(id); }

// ---------------------------------------------------------------------------
// One pass: stage1 spreads changes, stage2 offers every processor its turn.

bool TCppFlowManager::quietStage1() {
  if (!m_RunQueue || m_SeenEpoch != TFlowEpoch::now()) return false;
  // Moving a processor on the canvas changes its key and nothing else.
  for (const auto& entry : *m_RunQueue)
    if (entry.proc->m_Area.tl.y != entry.key) return false;
  return true;
}

void TCppFlowManager::stage1() {
  ++m_Stage1Count;
  m_QuietStage1 = quietStage1();
  if (m_QuietStage1) return;

  m_AllPins.clear();
  m_WalkOrder.clear();
  m_ChangeQueue.clear();
  m_ClearingList.clear();
  m_ValueList.clear();

  m_BoxQueue.clear();
  m_BoxQueue.push_back(this);
  for (size_t head = 0; head < m_BoxQueue.size(); ++head) {
    TAbstractBox* box = m_BoxQueue[head];
    for (const auto& child : box->m_Children) m_BoxQueue.push_back(child.get());
    for (const auto& procPtr : box->m_Processors) {
      TAbstractProcessor* proc = procPtr.get();
      m_WalkOrder.emplace_back(proc->m_Area.tl.y, proc);

      for (const auto& pinPtr : proc->m_OutputPins) {
        TAbstractPin* pin = pinPtr.get();
        m_AllPins.push_back(pin);
        TAbstractData* data = pin->m_Data.get();
        if (pin->m_DataReplaced) {
          m_ChangeQueue.push_back(pin);
          m_ClearingList.push_back(pin);
          if (data) m_ValueList.push_back(pin->m_Data);
          pin->m_DataReplaced = false;
          pin->m_DataFullUpdate = true;
        } else if (data && data->m_HasChanged) {
          m_ChangeQueue.push_back(pin);
          m_ClearingList.push_back(pin);
          m_ValueList.push_back(pin->m_Data);
          pin->m_DataHasChanged = true;
        } else if (data && data->m_IsArray) {
          if (const auto* items = data->arrayItems()) {
            for (const auto& item : *items) {
              if (!item || !item->m_HasChanged) continue;
              if (!pin->m_ArrayKeysChanged) {
                pin->m_ArrayKeysChanged = std::make_shared<std::set<std::string>>();
                m_ArrayKeyPins.push_back(pin->m_Self);
              }
              pin->m_ArrayKeysChanged->insert(item->getKeyName());
              m_ChangeQueue.push_back(pin);
              m_ClearingList.push_back(pin);
              m_ValueList.push_back(item);
              pin->m_DataHasChanged = true;
            }
          }
        }
      }

      for (const auto& pinPtr : proc->m_InputPins) {
        TAbstractPin* pin = pinPtr.get();
        m_AllPins.push_back(pin);
        TAbstractData* data = pin->m_Data.get();
        if (pin->m_DataReplaced) {
          m_ChangeQueue.push_back(pin);
          if (!pin->m_DataSetHere) m_ClearingList.push_back(pin);
          if (data) m_ValueList.push_back(pin->m_Data);
          pin->m_DataReplaced = false;
          pin->m_DataFullUpdate = true;
        } else if (data && data->m_HasChanged) {
          m_ChangeQueue.push_back(pin);
          m_ValueList.push_back(pin->m_Data);
          pin->m_DataHasChanged = true;
        }
      }
    }
  }

  // The running order only changes with the structure or the layout, so an
  // unchanged walk keeps the sorted queue of the last pass.
  if (!m_RunQueue || m_WalkOrder != m_LastWalkOrder) {
    auto queue = std::make_shared<std::vector<TRunEntry>>();
    queue->reserve(m_WalkOrder.size());
    for (const auto& [key, proc] : m_WalkOrder) {
      const bool before = (proc->hookMask() & TAbstractProcessor::kHookBeforeProcess) != 0;
      queue->push_back({key, before, false, proc->selfPtr()});
    }
    std::stable_sort(queue->begin(), queue->end(),
                     [](const TRunEntry& a, const TRunEntry& b) { return a.key < b.key; });
    m_RunQueue = std::move(queue);
    m_LastWalkOrder = m_WalkOrder;
  }

  // Spread along connectors, in both directions, first change wins.
  ++m_PassMark;
  while (!m_ChangeQueue.empty()) {
    TAbstractPin* pin = m_ChangeQueue.front();
    m_ChangeQueue.pop_front();
    pin->m_VisitMark = m_PassMark;
    for (const auto& connector : pin->m_Connectors) {
      TAbstractPin* other = connector->getOtherPin(pin);
      if (other == pin) throw TFlowError("otherpin == pin");
      if (!other || other->m_VisitMark == m_PassMark) continue;
      other->m_VisitMark = m_PassMark;
      other->m_Data = pin->m_Data;
      other->m_DataHasChanged = pin->m_DataHasChanged;
      other->m_DataFullUpdate = pin->m_DataFullUpdate;
      other->m_DataReplaced = false;
      if (other->m_ArrayKeysChanged != pin->m_ArrayKeysChanged) {
        other->m_ArrayKeysChanged = pin->m_ArrayKeysChanged;
        if (other->m_ArrayKeysChanged) m_ArrayKeyPins.push_back(other->m_Self);
      }
      m_ChangeQueue.push_back(other);
    }
  }

  for (const TDataPtr& value : m_ValueList) value->m_HasChanged = false;
  m_ValueList.clear();
  for (TAbstractPin* pin : m_ClearingList) {
    pin->m_DataReplaced = false;
    pin->m_DataHasChanged = false;
    pin->m_DataFullUpdate = false;
  }
  m_SeenEpoch = TFlowEpoch::now();
}

bool TCppFlowManager::stage2() {
  // Hold the queue: a processor may run a nested pass that rebuilds it.
  const auto queue = m_RunQueue;
  const bool quiet = m_QuietStage1 && m_SeenEpoch == TFlowEpoch::now();
  const uint64_t stage1Count = m_Stage1Count;
  // Until this pass ends complete, the next one scans: a processor that
  // raises leaves those behind it with their changes.
  const uint64_t seen = m_SeenEpoch;
  m_SeenEpoch = 0;
  bool any = false;
  if (queue) {
    for (auto& entry : *queue) {
      if (quiet && !entry.before && !entry.pending) continue;
      TAbstractProcessor* proc = entry.proc.get();
      if (proc->m_Destroyed) continue;
      if (activateProcessor(proc)) any = true;
      entry.pending = proc->getInputChanged();
    }
  }
  for (const auto& pin : m_ArrayKeyPins)
    if (pin) pin->m_ArrayKeysChanged.reset();
  m_ArrayKeyPins.clear();
  // A pass run from inside this one has left flags that these entries do
  // not know of.
  if (m_Stage1Count == stage1Count) m_SeenEpoch = seen;
  return any;
}

bool TCppFlowManager::activateProcessor(TAbstractProcessor* proc) {
  const unsigned hooks = proc->hookMask();
  if (hooks & TAbstractProcessor::kHookBeforeProcess) proc->beforeprocess_python();
  bool ran = false;
  if (proc->getInputChanged()) {
    proc->m_Error.clear();
    if (hooks & TAbstractProcessor::kHookProcess)
      proc->process_python();
    else
      proc->process();
    ran = true;
  }
  for (const auto& pin : proc->m_PinsToReset) {
    pin->m_DataFullUpdate = false;
    pin->m_DataHasChanged = false;
  }
  proc->m_PinsToReset.clear();
  return ran;
}

// ---------------------------------------------------------------------------
// Joining boxes by the names of their ports

void TCppFlowManager::autoconnect() {
  std::vector<TAbstractBox*> boxes{this};
  for (size_t head = 0; head < boxes.size(); ++head)
    for (const auto& child : boxes[head]->m_Children) boxes.push_back(child.get());

  for (TAbstractBox* box : boxes) {
    if (!box->m_Parent) continue;
    for (const auto& port : std::vector<TProcessorPtr>(box->m_Processors)) {
      if (!port->isIdentity() || port->m_InputPins.empty()) continue;
      const TPinPtr input = port->m_InputPins[0];
      const std::string& name = input->m_Name;
      if (name == "in") continue;
      for (const auto& sibling : std::vector<TBoxPtr>(box->m_Parent->m_Children)) {
        if (sibling.get() == box) continue;
        for (const auto& other : sibling->m_Processors) {
          if (!other->isIdentity() || other->m_OutputPins.empty()) continue;
          const TPinPtr& output = other->m_OutputPins[0];
          if (output->m_Name != name) continue;
          output->markReplaced();
          createConnection(output, input);
        }
      }
    }
  }
}

std::vector<TProcessorPtr> TCppFlowManager::findProcessorsInRange(const TVector2& start, const TVector2& end) {
  std::vector<TProcessorPtr> result;
  forEachProcessor([&](const TProcessorPtr& p) {
    const TBox& a = p->m_Area;
    if (start.x < a.tl.x && start.y < a.tl.y && a.br.x < end.x && a.br.y < end.y) result.push_back(p);
  });
  return result;
}

// ---------------------------------------------------------------------------
// TFlowManager

TFlowManager::TFlowManager(bool isprogram) { m_IsProgram = isprogram; }

std::shared_ptr<TFlowManager> makeFlowManager(bool isprogram) {
  auto manager = std::make_shared<TFlowManager>(isprogram);
  manager->postCreate();
  return manager;
}

TProcessorPtr TFlowManager::constructProcessor(const TProcessorFactory& ctor) {
  TProcessorPtr proc = ctor();
  if (!proc) throw TFlowError("constructProcessor(): the constructor gave no processor");
  proc->keepScriptSelf();
  proc->postCreate();
  if (m_IsProgram) {
    if (proc->hasHook(TAbstractProcessor::kHookCreateImplementation))
      proc->createImplementation_python();
    else
      proc->createImplementation();
  }
  return proc;
}

TProcessorPtr TFlowManager::constructProcessor(const std::string& classname) {
  const TProcessorFactory* factory = TProcessorRegistry::instance().find(classname);
  if (!factory) throw TFlowError("Unknown processor class '" + classname + "'");
  return constructProcessor(*factory);
}

// ---------------------------------------------------------------------------

int doflow(TCppFlowManager& manager) {
  // A processor that runs the network from its own processing would start
  // a pass inside a pass, over the run queue being walked.
  if (manager.m_Flowing) throw TFlowError("doflow(): the network is running already; a processor cannot run it");
  manager.m_Flowing = true;
  struct Done {
    TCppFlowManager& m;
    ~Done() { m.m_Flowing = false; }
  } done{manager};
  int count = 0;
  while (true) {
    ++count;
    try {
      manager.stage1();
      if (!manager.stage2()) return count;
    } catch (...) {
      handleException(std::current_exception());
    }
    if (count > 30) {
      std::fputs("Too many updates, enabling manual update mode\n", stdout);
      std::fflush(stdout);
      me.manualupdate = true;
      return count;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace quorvel
