// The root box of a network: it gives ids, owns the registered objects and
// runs the network in passes.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "MFlowObjects.h"

namespace quorvel {

class TCppFlowManager : public TAbstractBox {
 public:
  bool m_IsProgram = false;
  // While set, addProcessor and addBox only note the boxes whose size is
  // due; loading a file sizes them once at the end.
  bool m_DeferSizes = false;
  std::vector<TAbstractBox*> m_SizesDue;
  // True while doflow runs passes over this network.
  bool m_Flowing = false;
  uint32_t m_NextId = 1;
  std::unordered_map<uint32_t, std::shared_ptr<TFlowObject>> m_Objects;
  std::vector<TAbstractPin*> m_AllPins;
  // Processors in running order: by m_Area.tl.y, ties in walk order. Each
  // stage1 rebuilds it when the walk differs from the last one; stage2 holds
  // it while running, so a nested pass can replace it safely.
  struct TRunEntry {
    float key;
    // The processor has the hook beforeprocess_python.
    bool before = false;
    // An input pin was still up after the processor's last turn.
    bool pending = false;
    TProcessorPtr proc;
  };
  std::shared_ptr<std::vector<TRunEntry>> m_RunQueue;
  TProcessorPtr m_ErroneousProcessor;

  void postCreate() override;
  // Empties the network; the manager stays registered and usable.
  void destroy() override;
  // Empties the network and lets the manager itself go: it no longer holds
  // itself. For the end of the process.
  void release();
  std::shared_ptr<TFlowObject> getFlowObject(uint32_t id) const;
  void registerObject(const std::shared_ptr<TFlowObject>& obj);
  void unregisterObject(uint32_t id);

  void stage1();
  bool stage2();
  bool activateProcessor(const TProcessorPtr& proc) { return activateProcessor(proc.get()); }
  bool activateProcessor(TAbstractProcessor* proc);
  TProcessorPtr getErroneousProcessor() const { return m_ErroneousProcessor; }

  void autoconnect();
  std::vector<TProcessorPtr> findProcessorsInRange(const TVector2& start, const TVector2& end);

  std::shared_ptr<TCppFlowManager> managerPtr() {
    return std::static_pointer_cast<TCppFlowManager>(shared_from_this());
  }

 private:
  // Scratch space of stage1, kept between passes to avoid allocation.
  std::vector<std::pair<float, TAbstractProcessor*>> m_WalkOrder;
  std::vector<std::pair<float, TAbstractProcessor*>> m_LastWalkOrder;
  std::vector<TAbstractBox*> m_BoxQueue;
  std::deque<TAbstractPin*> m_ChangeQueue;
  std::vector<TAbstractPin*> m_ClearingList;
  // The values whose change flags the pass clears at its end; held, since
  // spreading may take a value off the last pin that held it.
  std::vector<TDataPtr> m_ValueList;
  // Pins given array keys in this pass; stage2 drops the keys again.
  std::vector<TPinPtr> m_ArrayKeyPins;
  uint64_t m_PassMark = 0;

  // A quiet pass. When nothing has advanced TFlowEpoch since the last pass
  // ended complete, every pin's flags, every value's change flag and the
  // structure are as that pass left them: stage1 would spread nothing, and
  // stage2 would run only the processors whose inputs stayed up. Such a pass
  // checks the running order's keys and offers its turn to the processors
  // with the before-hook or inputs up, and to no other.
  bool quietStage1();
  // TFlowEpoch as the last stage1 left it; 0 when the next one must scan.
  uint64_t m_SeenEpoch = 0;
  bool m_QuietStage1 = false;
  // Counts stage1 calls, so that stage2 knows a pass ran inside it.
  uint64_t m_Stage1Count = 0;
};

using TProcessorFactory = std::function<TProcessorPtr()>;

class TFlowManager : public TCppFlowManager {
 public:
  explicit TFlowManager(bool isprogram);

  TVector2 freespot{0.0f, 300.0f};
  std::vector<std::string> exceptions;

  // Makes a processor and runs postCreate and, in the running network, its
  // implementation step. It does not add the processor to a box.
  TProcessorPtr constructProcessor(const TProcessorFactory& ctor);
  TProcessorPtr constructProcessor(const std::string& classname);
  template <class T>
  std::shared_ptr<T> constructProcessor() {
    return std::static_pointer_cast<T>(constructProcessor([] { return std::make_shared<T>(); }));
  }
  void destroyObject(const std::shared_ptr<TFlowObject>& obj) { obj->destroy(); }

  // Flow files.
  void store(const std::vector<TBoxPtr>& boxes, const std::string& filename);
  void store(const TBoxPtr& box, const std::string& filename) { store(std::vector<TBoxPtr>{box}, filename); }
  // Gives the new boxes and processors, or nothing when the file does not exist.
  std::optional<std::vector<std::shared_ptr<TFlowObject>>> load(const TBoxPtr& topbox,
                                                                const std::string& filename);
  void copy(const std::shared_ptr<TFlowObject>& obj);
  std::optional<std::vector<std::shared_ptr<TFlowObject>>> paste(const std::shared_ptr<TFlowObject>& obj,
                                                                 std::optional<TVector2> pos = std::nullopt);

  std::shared_ptr<TFlowManager> flowManagerPtr() {
    return std::static_pointer_cast<TFlowManager>(shared_from_this());
  }
};

// Makes a flow manager ready for use (constructed, then postCreate).
std::shared_ptr<TFlowManager> makeFlowManager(bool isprogram);

// Runs passes until one runs no processor, at most 31; exceptions go to the
// central handler. Returns the number of passes run.
int doflow(TCppFlowManager& manager);

// Width of the flow canvas's 8 by 13 bitmap font for a text.
inline float canvasTextWidth(const std::string& text) { return 8.0f * static_cast<float>(text.size()); }

}  // namespace quorvel
