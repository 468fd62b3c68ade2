// The objects of a flow network: values, pins, connectors, processors and
// boxes.
//
// Every flow object is held by shared pointer and holds itself (pins and
// boxes through m_Self, processors through their pins and the manager's id
// table), so an object lives until destroy() breaks those cycles. Dropping the
// last outside reference does nothing.
#pragma once

#include "base/MErrors.h"
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

#include "MPyRef.h"

namespace quorvel {

// ---------------------------------------------------------------------------
// Shared geometry

struct TVector2 {
  float x = 0.0f;
  float y = 0.0f;
  TVector2() = default;
  TVector2(float px, float py) : x(px), y(py) {}
  float& operator[](int i) { return i == 0 ? x : y; }
  float operator[](int i) const { return i == 0 ? x : y; }
  TVector2 copy() const { return *this; }
  TVector2 operator+(const TVector2& o) const { return {x + o.x, y + o.y}; }
  TVector2 operator-(const TVector2& o) const { return {x - o.x, y - o.y}; }
  bool operator==(const TVector2& o) const = default;
};

struct TVector4 {
  float x = 0.0f;
  float y = 0.0f;
  float z = 0.0f;
  float w = 0.0f;
  TVector4() = default;
  TVector4(float px, float py, float pz, float pw) : x(px), y(py), z(pz), w(pw) {}
  float& operator[](int i) { return i == 0 ? x : i == 1 ? y : i == 2 ? z : w; }
  float operator[](int i) const { return i == 0 ? x : i == 1 ? y : i == 2 ? z : w; }
  bool operator==(const TVector4& o) const = default;
};

struct TBox {
  TVector2 tl;
  TVector2 br;
  TBox() = default;
  TBox(TVector2 ptl, TVector2 pbr) : tl(ptl), br(pbr) {}
  TBox(float x0, float y0, float x1, float y1) : tl(x0, y0), br(x1, y1) {}
  void move(const TVector2& v) {
    tl = tl + v;
    br = br + v;
  }
  // Keeps the size.
  void moveTo(const TVector2& v) {
    const TVector2 size = br - tl;
    tl = v;
    br = v + size;
  }
  float getWidth() const { return br.x - tl.x; }
  float getHeight() const { return br.y - tl.y; }
  bool operator==(const TBox& o) const = default;
};

// ---------------------------------------------------------------------------
// Failures carry the fixed texts that callers and the central handler see.

// Declares the class name of a value or processor class: the name that flow
// files store and that the registries create objects by.
#define QV_CLASS_NAME(NAME)                                   \
  static constexpr const char* kClassName = #NAME;            \
  std::string getClassName() const override { return #NAME; }

// ---------------------------------------------------------------------------
// Values

// Counts, for the whole process, everything that can give a pass work: a
// value changed in place, a pin given a value or touched, consumed pins
// noted, and every change of a network's structure. A network whose last
// pass saw the count where it stands now has nothing new to scan. Values may
// change on other threads, so the count is atomic; a plain load and store is
// enough, since a reader only asks whether it moved.
class TFlowEpoch {
 public:
  static uint64_t now() { return s_Count.load(std::memory_order_relaxed); }
  static void advance() { s_Count.store(s_Count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed); }

 private:
  static inline std::atomic<uint64_t> s_Count{1};
};

// Whether a value changed in place since the last pass; every change also
// advances a generation, which the pass does not reset, so that work done
// for one state of a value can be known to still hold.
class TChangeFlag {
 public:
  TChangeFlag& operator=(bool changed) {
    if (changed) {
      ++m_Generation;
      TFlowEpoch::advance();
    }
    m_Set = changed;
    return *this;
  }
  operator bool() const { return m_Set; }
  uint64_t generation() const { return m_Generation; }

 private:
  uint64_t m_Generation = 0;
  bool m_Set = false;
};

class TAbstractData {
 public:
  static constexpr const char* kClassName = "TAbstractData";

  TAbstractData();
  TAbstractData(const TAbstractData& other) = default;
  TAbstractData& operator=(const TAbstractData& other) = default;
  virtual ~TAbstractData() = default;

  uint32_t m_DataId;
  TChangeFlag m_HasChanged;
  // True for array values; lets a pass skip values with no items cheaply.
  bool m_IsArray = false;
  std::string m_KeyName = "<no keyname>";

  virtual std::string getClassName() const { return kClassName; }
  virtual bool isArray() const { return m_IsArray; }
  virtual std::string getKeyName() const { return m_KeyName; }
  virtual std::string toString() const;
  virtual void rebuildIndex() {}
  virtual std::string stringify() const;
  virtual void unstringify(const std::string& text);

  void setHasChanged() { m_HasChanged = true; }
  unsigned getChangedRowCount() const { return 0; }

  // Items of an array value (m_IsArray set); null for every other value. The
  // scheduler walks these to find items changed in place.
  virtual const std::vector<std::shared_ptr<TAbstractData>>* arrayItems() const { return nullptr; }

  // The process-wide counter behind m_DataId.
  static uint32_t nextDataId();
};

using TDataPtr = std::shared_ptr<TAbstractData>;

// ---------------------------------------------------------------------------
// Flow objects

class TFlowObject;
class TAbstractPin;
class TAbstractConnector;
class TAbstractProcessor;
class TAbstractBox;
class TCppFlowManager;

using TPinPtr = std::shared_ptr<TAbstractPin>;
using TConnectorPtr = std::shared_ptr<TAbstractConnector>;
using TProcessorPtr = std::shared_ptr<TAbstractProcessor>;
using TBoxPtr = std::shared_ptr<TAbstractBox>;

class TFlowObject : public std::enable_shared_from_this<TFlowObject> {
 public:
  TFlowObject() = default;
  TFlowObject(const TFlowObject&) = delete;
  TFlowObject& operator=(const TFlowObject&) = delete;
  virtual ~TFlowObject() = default;

  uint32_t m_Id = 0;

  virtual std::shared_ptr<TCppFlowManager> getFlowManager();
  virtual void destroy();
  virtual void flowobject_destroy();
  virtual std::string toString();
  virtual std::string getKeyText();

  // The script-side object of this flow object, kept until destroy() so that
  // a processor class written in the script language keeps its methods and
  // fields while only the network refers to it.
  TPyRef m_PySelf;
  // Set by the script bindings for objects whose class lives in a script.
  virtual void keepScriptSelf() {}

  // Manager the object was registered with; set by registration.
  TCppFlowManager* m_RegisteredIn = nullptr;
  // Set once destroy() has taken the object out of its network.
  bool m_Destroyed = false;
};

class TAbstractPin : public TFlowObject {
 public:
  // What every pass reads stands together, ahead of the rest.
  TDataPtr m_Data;
  bool m_DataReplaced = false;
  bool m_DataHasChanged = false;
  bool m_DataFullUpdate = false;
  bool m_DataSetHere = false;
  // Bookkeeping of the spreading step of a pass.
  uint64_t m_VisitMark = 0;
  std::vector<TConnectorPtr> m_Connectors;
  std::shared_ptr<std::set<std::string>> m_ArrayKeysChanged;

  std::string m_Name;
  std::string m_AcceptedType;
  TProcessorPtr m_Processor;
  TPinPtr m_Self;

  std::shared_ptr<TCppFlowManager> getFlowManager() override;
  void destroy() override;

  virtual std::string getAcceptedType() { return m_AcceptedType; }
  virtual bool hasConnector() { return !m_Connectors.empty(); }
  virtual bool isInputPin() const = 0;

  const TDataPtr& getData() const { return m_Data; }
  // Raises m_DataReplaced, so that the next pass spreads the value.
  void markReplaced() {
    m_DataReplaced = true;
    TFlowEpoch::advance();
  }
  void setData(TDataPtr data);
  void touch();
  void setDataFromSource(TDataPtr data);
  bool hasChanged() const { return m_DataHasChanged || m_DataFullUpdate; }
  void attach(const TConnectorPtr& connector) {
    m_Connectors.push_back(connector);
    TFlowEpoch::advance();
  }
  std::vector<TPinPtr> getConnectedTo();
};

class TAbstractInputPin : public TAbstractPin {
 public:
  bool isInputPin() const override { return true; }
};

class TAbstractOutputPin : public TAbstractPin {
 public:
  bool isInputPin() const override { return false; }
};

class TAbstractConnector : public TFlowObject {
 public:
  TAbstractPin* m_OutputPin = nullptr;
  TAbstractPin* m_InputPin = nullptr;

  std::shared_ptr<TCppFlowManager> getFlowManager() override;
  void destroy() override;

  TPinPtr getInputPin() const;
  TPinPtr getOutputPin() const;
  TAbstractPin* getOtherPin(const TAbstractPin* pin) const {
    return pin == m_OutputPin ? m_InputPin : m_OutputPin;
  }
};

// One element of the pin lists of requireData, haveChanged and resetPins: a
// pin, a pin name, or a prefix that ends in ".".
class TPinSpec {
 public:
  TPinSpec(const char* name) : m_Name(name) {}
  TPinSpec(std::string name) : m_Name(std::move(name)) {}
  TPinSpec(TPinPtr pin) : m_Pin(std::move(pin)) {}
  const std::string& name() const { return m_Name; }
  const TPinPtr& pin() const { return m_Pin; }

 private:
  std::string m_Name;
  TPinPtr m_Pin;
};
using TPinList = std::vector<TPinSpec>;

class TAbstractProcessor : public TFlowObject {
 public:
  static constexpr const char* kClassName = "TAbstractProcessor";

  TBox m_Area{0.0f, 0.0f, 80.0f, 20.0f};
  std::vector<TPinPtr> m_PinsToReset;
  std::vector<TPinPtr> m_InputPins;
  std::vector<TPinPtr> m_OutputPins;
  std::unordered_map<std::string, TPinPtr> m_InputPinsByName;
  TBoxPtr m_Box;
  std::string m_KeyName = "<no keyname>";
  std::string m_Error;
  std::string m_Warning;

  std::shared_ptr<TCppFlowManager> getFlowManager() override;
  void destroy() override;
  void flowobject_destroy() override;

  // Name of the most derived class; flow files and the registry use it.
  virtual std::string getClassName() const { return kClassName; }
  virtual std::string getKeyName() { return m_KeyName; }
  virtual std::string getTypeName() { return "noname processor"; }
  virtual bool isDataSource() { return false; }
  virtual bool isIdentity() { return false; }
  virtual void createImplementation() {}
  virtual void process();
  virtual void postCreate() {}

  // Optional hooks. A class has a hook when hookMask() has its bit; the
  // scheduler and the manager call only the hooks a class has.
  enum : unsigned {
    kHookBeforeProcess = 1,
    kHookProcess = 2,
    kHookCreateImplementation = 4,
    kHookDestroy = 8,
  };
  virtual unsigned hookMask() { return 0; }
  bool hasHook(unsigned hook) { return (hookMask() & hook) != 0; }
  virtual void beforeprocess_python() {}
  virtual void process_python() {}
  virtual void createImplementation_python() {}
  virtual void destroy_python() {}

  // Pins, in order of declaration.
  TPinPtr addInputPin(const std::string& acceptedtype, const std::string& name);
  TPinPtr addOutputPin(const std::string& acceptedtype, const std::string& name);
  // Pins typed by the value class they take. The type shows only in
  // m_AcceptedType; the scheduler does not look at it.
  template <class T>
  TPinPtr addInputPin(const std::string& name) {
    return addInputPin(T::kClassName, name);
  }
  template <class T>
  TPinPtr addOutputPin(const std::string& name) {
    return addOutputPin(T::kClassName, name);
  }

  TPinPtr getOnlyInputPin();
  TPinPtr getOnlyOutputPin();
  TPinPtr getInputPinByName(const std::string& name);
  TPinPtr getOutputPinByName(const std::string& name);
  TProcessorPtr getConnectedProcessor(const std::string& name);
  void reparent(const TBoxPtr& newbox);

  bool getInputChanged();
  bool getInputPinChanged(const std::string& name);
  bool requireData(const TPinList& list);
  // The form for work that waits for all of `list` and then computes from
  // the values alone: true when all have values. Otherwise the changes of
  // all inputs are let go, since the run that the last value brings reads
  // them all anyway; so a network settles while a value never comes.
  bool requireAllElseReset(const TPinList& list);
  bool haveChanged(const TPinList& list);
  void resetPins(const TPinList& list);
  void touchPins();
  void setError(const std::string& text);
  bool hasError() const { return !m_Error.empty(); }
  const std::string& getError() const { return m_Error; }

  std::shared_ptr<TAbstractProcessor> selfPtr() {
    return std::static_pointer_cast<TAbstractProcessor>(shared_from_this());
  }

 private:
  TPinPtr addTypedPin(TPinPtr pin, const std::string& acceptedtype, const std::string& name);
  // Calls f with each input pin that an element stands for. Throws the
  // texts of the scheduler for names that match nothing.
  template <class F>
  bool forPinsOf(const TPinSpec& spec, F&& f);
};

// Reads the value on a pin as the class a processor expects. An empty pin
// gives null; a value of another class is an error with a clear text, never
// a crash further on.
template <class T>
std::shared_ptr<T> dataAs(const TPinPtr& pin) {
  if (!pin || !pin->m_Data) return nullptr;
  auto typed = std::dynamic_pointer_cast<T>(pin->m_Data);
  if (!typed) {
    throw TFlowError("pin '" + pin->m_Name + "' holds a " + pin->m_Data->getClassName() +
                     ", expected " + T::kClassName);
  }
  return typed;
}

class TAbstractBox : public TFlowObject {
 public:
  TBox m_Area{0.0f, 0.0f, 10.0f, 10.0f};
  std::string m_Type = "noname box";
  std::vector<TProcessorPtr> m_Processors;
  std::vector<TBoxPtr> m_Children;
  TAbstractBox* m_Parent = nullptr;
  TBoxPtr m_Self;

  std::shared_ptr<TCppFlowManager> getFlowManager() override;
  void destroy() override;
  virtual std::string getTypeName() { return m_Type; }

  virtual void postCreate();
  void addProcessor(const TProcessorPtr& proc);
  void addBox(const TBoxPtr& box);
  TBoxPtr getParent() const;
  TConnectorPtr createConnection(const TPinPtr& outputpin, const TPinPtr& inputpin);
  void computeSize();
  // The bounds of what the box holds, with the children's areas as they
  // stand.
  void computeOwnSize();
  TBoxPtr getBoxByType(const std::string& name);
  TProcessorPtr getIdentityProcessorByInputName(const std::string& name);
  TProcessorPtr getProcessorByName(const std::string& name);
  // First processor, breadth-first, for which pred holds.
  TProcessorPtr findProcessor(const std::function<bool(const TProcessorPtr&)>& pred);
  template <class T>
  std::shared_ptr<T> getProcessorByType() {
    return std::dynamic_pointer_cast<T>(
        findProcessor([](const TProcessorPtr& p) { return dynamic_cast<T*>(p.get()) != nullptr; }));
  }
  // Processors, breadth-first, that have a script-visible attribute `name`.
  std::vector<TProcessorPtr> getProcessorsHavingAttribute(const std::string& name);
  // All processors, breadth-first from this box.
  void forEachProcessor(const std::function<void(const TProcessorPtr&)>& f);

  std::shared_ptr<TAbstractBox> selfPtr() {
    return std::static_pointer_cast<TAbstractBox>(shared_from_this());
  }
};

// Creates a box the way the model wants it: constructed, then postCreate.
TBoxPtr makeBox(const std::string& type = "noname box");

}  // namespace quorvel
