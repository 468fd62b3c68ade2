// Storing networks in SQLite files and reading them back: the library, saved
// perspectives, the state at closing and the clipboard.
#include <pybind11/pybind11.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <iostream>
#include <set>

#include "base/MDatabase.h"
#include "engine/MFlowManager.h"
#include "engine/MMediator.h"
#include "engine/MPython.h"
#include "engine/MRegistry.h"
#include "engine/MSources.h"

namespace py = pybind11;
namespace fs = std::filesystem;

namespace quorvel {

namespace {

const char* kCreateBoxes =
    "CREATE TABLE boxes (boxid INTEGER PRIMARY KEY, name TEXT, parent INTEGER, tlx FLOAT, tly FLOAT, brx FLOAT, "
    "bry FLOAT)";
const char* kCreateProcessors =
    "CREATE TABLE processors (procid INTEGER PRIMARY KEY, boxid INTEGER, ctor TEXT, idname TEXT, tlx FLOAT, tly "
    "FLOAT, brx FLOAT, bry FLOAT, internalvalue TEXT)";
const char* kCreateConnectors =
    "CREATE TABLE connectors (connid INTEGER PRIMARY KEY, fromproc INTEGER, frompin TEXT, toproc INTEGER, topin "
    "TEXT)";
const char* kInsertBox = "INSERT INTO boxes (boxid,name,parent,tlx,tly,brx,bry) VALUES (?,?,?,?,?,?,?)";
const char* kInsertProcessor =
    "INSERT INTO processors (procid,boxid,ctor,idname,tlx,tly,brx,bry,internalvalue) VALUES (?,?,?,?,?,?,?,?,?)";
const char* kInsertConnector = "INSERT INTO connectors (connid,fromproc,frompin,toproc,topin) VALUES (?,?,?,?,?)";
const char* kSelectBoxes = "SELECT boxid,name,parent,tlx,tly,brx,bry FROM boxes ORDER BY boxid";
const char* kSelectProcessors = "SELECT procid,boxid,ctor,idname,tlx,tly,brx,bry,internalvalue FROM processors";
const char* kSelectConnectors = "SELECT connid,fromproc,frompin,toproc,topin FROM connectors";

TDbValue real(float v) { return static_cast<double>(v); }
TDbValue integer(uint32_t v) { return static_cast<int64_t>(v); }

float asFloat(const TDbValue& v) {
  if (const auto* d = std::get_if<double>(&v)) return static_cast<float>(*d);
  if (const auto* i = std::get_if<int64_t>(&v)) return static_cast<float>(*i);
  return 0.0f;
}

std::optional<int64_t> asId(const TDbValue& v) {
  if (const auto* i = std::get_if<int64_t>(&v)) return *i;
  if (const auto* d = std::get_if<double>(&v)) return static_cast<int64_t>(*d);
  return std::nullopt;
}

// The text a reader's failure classes go by: an exception that means "this
// value cannot be made here" as against a broken stored value.
class TTypeError : public TFlowError {
 public:
  using TFlowError::TFlowError;
};

// A processor class by name. Only registered classes are made: a name
// from a file never reaches anything else of the interpreter.
TProcessorFactory findProcessorClass(const std::string& name) {
  if (const TProcessorFactory* f = TProcessorRegistry::instance().find(name)) return *f;
  throw TFlowError("name '" + name + "' is not defined");
}

// A value of the named, registered class, made with no arguments.
TDataPtr makeValue(const std::string& name) {
  auto& reg = TDataRegistry::instance();
  if (TDataPtr v = reg.create(name)) return v;
  if (reg.isKnown(name)) throw TTypeError(name + "() cannot be made without arguments");
  throw TFlowError("name '" + name + "' is not defined");
}

bool isTypeError(std::exception_ptr e) {
  try {
    std::rethrow_exception(e);
  } catch (const TTypeError&) {
    return true;
  } catch (py::error_already_set& err) {
    return err.matches(PyExc_TypeError);
  } catch (...) {
    return false;
  }
}

std::string internalValueOf(TAbstractProcessor& proc) {
  auto* source = dynamic_cast<TAbstractDataSource*>(&proc);
  if (!source || !proc.isDataSource()) return {};
  TDataPtr value = source->getData();
  if (!value) return {};
  std::string data;
  try {
    data = value->stringify();
  } catch (...) {
    const TExceptionText info = describeException(std::current_exception());
    std::cout << "Exception while writing '" << proc.getTypeName() << "'\n"
              << info.traceback << "internalvalue of " << proc.getKeyName() << " is not stored" << std::endl;
    return {};
  }
  py::dict d;
  d["class"] = value->getClassName();
  d["data"] = data;
  return py::repr(d).cast<std::string>();
}

}  // namespace

void TFlowManager::store(const std::vector<TBoxPtr>& boxes, const std::string& filename) {
  // Failing to write the file is the user's concern; a value failing on
  // its way into it goes on as it is. Either way the earlier file stays.
  try {
    writeDatabaseReplacing(filename, [&](TDatabase& db) {
      for (const char* create : {kCreateBoxes, kCreateProcessors, kCreateConnectors}) db.execute(create);
      std::set<const TAbstractConnector*> stored;
      for (const auto& top : boxes) {
        std::deque<TAbstractBox*> queue{top.get()};
        while (!queue.empty()) {
          TAbstractBox* box = queue.front();
          queue.pop_front();
          if (box->m_Parent) {
            const TBox& a = box->m_Area;
            db.execute(kInsertBox, {integer(box->m_Id), box->m_Type, integer(box->m_Parent->m_Id), real(a.tl.x),
                                    real(a.tl.y), real(a.br.x), real(a.br.y)});
          }
          for (const auto& child : box->m_Children) queue.push_back(child.get());
          for (const auto& proc : box->m_Processors) {
            const std::string value = internalValueOf(*proc);
            const TBox& a = proc->m_Area;
            db.execute(kInsertProcessor, {integer(proc->m_Id), box->m_Parent ? integer(box->m_Id) : TDbValue{},
                                          storedClassName(proc->getClassName()), proc->m_KeyName, real(a.tl.x), real(a.tl.y),
                                          real(a.br.x), real(a.br.y), value.empty() ? TDbValue{} : TDbValue{value}});
            for (const auto* pins : {&proc->m_InputPins, &proc->m_OutputPins}) {
              for (const auto& pin : *pins) {
                for (const auto& c : pin->m_Connectors) {
                  if (!stored.insert(c.get()).second) continue;
                  TAbstractPin* out = c->m_OutputPin;
                  TAbstractPin* in = c->m_InputPin;
                  db.execute(kInsertConnector,
                             {integer(c->m_Id), integer(out->m_Processor ? out->m_Processor->m_Id : 0), out->m_Name,
                              integer(in->m_Processor ? in->m_Processor->m_Id : 0), in->m_Name});
                }
              }
            }
          }
        }
      }
    });
  } catch (const fs::filesystem_error& e) {
    throw TUserException("Error while writing to '" + filename + "'",
                         std::string("rename failed: ") + e.code().message() + "\n");
  } catch (...) {
    // The tables could not be made, or a write failed half way (a full
    // disk): the earlier file stays, and the user is told.
    throw TUserException("Error while writing to '" + filename + "'",
                         describeException(std::current_exception()).traceback);
  }
}

std::optional<std::vector<std::shared_ptr<TFlowObject>>> TFlowManager::load(const TBoxPtr& topbox,
                                                                            const std::string& filename) {
  exceptions.clear();
  std::error_code ec;
  if (!fs::exists(filename, ec)) return std::nullopt;
  TDatabase db(filename);
  // Sizes are worked out once at the end: a box of many processors would
  // otherwise be measured again for each of them.
  auto manager = topbox->getFlowManager();
  struct DeferSizes {
    std::shared_ptr<TCppFlowManager> m;
    explicit DeferSizes(std::shared_ptr<TCppFlowManager> fm) : m(std::move(fm)) {
      m->m_DeferSizes = true;
      m->m_SizesDue.clear();
    }
    ~DeferSizes() {
      m->m_DeferSizes = false;
      // Deepest boxes first, so that a parent sees its children's new sizes.
      auto depth = [](const TAbstractBox* b) {
        int d = 0;
        for (; b->m_Parent; b = b->m_Parent) ++d;
        return d;
      };
      std::vector<std::pair<int, TAbstractBox*>> due;
      std::sort(m->m_SizesDue.begin(), m->m_SizesDue.end());
      m->m_SizesDue.erase(std::unique(m->m_SizesDue.begin(), m->m_SizesDue.end()), m->m_SizesDue.end());
      for (TAbstractBox* b : m->m_SizesDue) due.emplace_back(depth(b), b);
      std::stable_sort(due.begin(), due.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
      for (const auto& [d, b] : due) b->computeOwnSize();
      m->m_SizesDue.clear();
    }
  } deferSizes(manager);
  std::vector<std::shared_ptr<TFlowObject>> newobjs;
  std::unordered_map<int64_t, TBoxPtr> boxes;
  std::unordered_map<int64_t, TProcessorPtr> procs;

  TCursorPtr rows = db.execute(kSelectBoxes);
  while (auto row = rows->fetchone()) {
    auto box = std::make_shared<TAbstractBox>();
    box->postCreate();
    box->m_Type = dbValueText((*row)[1]);
    box->m_Area = TBox(asFloat((*row)[3]), asFloat((*row)[4]), asFloat((*row)[5]), asFloat((*row)[6]));
    newobjs.push_back(box);
    const auto id = asId((*row)[0]);
    const auto parent = asId((*row)[2]);
    auto p = parent ? boxes.find(*parent) : boxes.end();
    (p != boxes.end() ? p->second : topbox)->addBox(box);
    if (id) boxes[*id] = box;
  }

  rows = db.execute(kSelectProcessors);
  while (auto row = rows->fetchone()) {
    const std::string ctor = dbValueText((*row)[2]);
    TProcessorFactory factory;
    try {
      factory = findProcessorClass(ctor);
    } catch (...) {
      exceptions.push_back(describeException(std::current_exception()).lastLine);
      continue;
    }
    TProcessorPtr proc;
    try {
      proc = constructProcessor(factory);
    } catch (...) {
      exceptions.push_back(describeException(std::current_exception()).lastLine);
      continue;
    }
    proc->m_KeyName = dbValueText((*row)[3]);
    newobjs.push_back(proc);
    if (const auto id = asId((*row)[0])) procs[*id] = proc;
    const float tlx = asFloat((*row)[4]);
    proc->m_Area = TBox(tlx, asFloat((*row)[5]), asFloat((*row)[6]), asFloat((*row)[7]));
    proc->m_Area.br.x = tlx + canvasTextWidth(proc->getTypeName()) + 2.0f;

    const std::string internal = dbValueText((*row)[8]);
    if (!internal.empty()) {
      try {
        py::object parsed = py::reinterpret_steal<py::object>(evalStoredLiteral(internal));
        if (!py::isinstance<py::dict>(parsed)) throw TFlowError("stored value is not a dictionary");
        py::dict d = parsed;
        if (!d.contains("class") || !d.contains("data")) throw TFlowError("stored value lacks 'class' or 'data'");
        if (!py::isinstance<py::str>(d["class"]) || !py::isinstance<py::str>(d["data"]))
          throw TFlowError("stored value's 'class' and 'data' are not texts");
        TDataPtr value = makeValue(d["class"].cast<std::string>());
        value->unstringify(d["data"].cast<std::string>());
        auto* source = dynamic_cast<TAbstractDataSource*>(proc.get());
        if (!source) throw TTypeError(ctor + " takes no stored value");
        source->setData(value);
      } catch (...) {
        const std::exception_ptr e = std::current_exception();
        const TExceptionText info = describeException(e);
        if (isTypeError(e)) {
          std::cout << info.traceback << std::flush;
        } else {
          std::cout << "Exception while reading " << internal << "\n" << info.traceback << std::flush;
          me.manualupdate = true;
        }
        logWarning("Stored value of '" + proc->m_KeyName + "' in '" + filename + "' not read: " + info.lastLine);
      }
    }
    const auto boxid = asId((*row)[1]);
    auto b = boxid ? boxes.find(*boxid) : boxes.end();
    (b != boxes.end() ? b->second : topbox)->addProcessor(proc);
  }

  rows = db.execute(kSelectConnectors);
  while (auto row = rows->fetchone()) {
    const auto from = asId((*row)[1]);
    const auto to = asId((*row)[3]);
    if (!from || !to) continue;
    auto f = procs.find(*from);
    auto t = procs.find(*to);
    if (f == procs.end() || t == procs.end()) continue;
    TPinPtr out = f->second->getOutputPinByName(dbValueText((*row)[2]));
    TPinPtr in = t->second->getInputPinByName(dbValueText((*row)[4]));
    if (out && in) f->second->m_Box->createConnection(out, in);
  }
  return newobjs;
}

void TFlowManager::copy(const std::shared_ptr<TFlowObject>& obj) {
  if (auto box = std::dynamic_pointer_cast<TAbstractBox>(obj)) store(box, "clipboard.db");
}

std::optional<std::vector<std::shared_ptr<TFlowObject>>> TFlowManager::paste(const std::shared_ptr<TFlowObject>& obj,
                                                                              std::optional<TVector2> pos) {
  auto box = std::dynamic_pointer_cast<TAbstractBox>(obj);
  if (!box) return std::nullopt;
  const TVector2 at = pos ? *pos : freespot;
  auto newobjs = load(box, "clipboard.db");
  if (!newobjs) throw TFlowError("Cannot paste: 'clipboard.db' does not exist");
  if (newobjs->empty()) throw TFlowError("Cannot paste: 'clipboard.db' holds nothing");
  auto areaOf = [](const std::shared_ptr<TFlowObject>& o) -> TBox& {
    if (auto b = std::dynamic_pointer_cast<TAbstractBox>(o)) return b->m_Area;
    return std::static_pointer_cast<TAbstractProcessor>(o)->m_Area;
  };
  TVector2 corner = areaOf(newobjs->front()).tl;
  for (const auto& o : *newobjs) {
    corner.x = std::min(corner.x, areaOf(o).tl.x);
    corner.y = std::min(corner.y, areaOf(o).tl.y);
  }
  const TVector2 offset = at - corner;
  for (const auto& o : *newobjs) areaOf(o).move(offset);
  freespot.x += areaOf(newobjs->front()).getWidth() + 20.0f;
  return newobjs;
}

}  // namespace quorvel
