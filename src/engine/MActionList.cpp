#include "MActionList.h"

#include <stdexcept>

namespace py = pybind11;

namespace quorvel {

namespace {

std::optional<bool> triState(py::handle h) {
  if (h.is_none()) return std::nullopt;
  return py::bool_(py::reinterpret_borrow<py::object>(h)).cast<bool>();
}

void readKey(py::handle key, TActionEntry& e) {
  if (key.is_none()) return;
  py::tuple t = py::reinterpret_borrow<py::object>(key).cast<py::tuple>();
  if (t.size() < 1) return;
  e.hasKey = true;
  e.keycode = t[0].cast<int>();
  if (t.size() > 1) e.shift = triState(t[1]);
  if (t.size() > 2) e.ctrl = triState(t[2]);
}

py::tuple asArgs(py::handle h) {
  if (h.is_none()) return py::tuple();
  if (py::isinstance<py::tuple>(h)) return py::reinterpret_borrow<py::tuple>(h);
  if (py::isinstance<py::list>(h)) return py::tuple(py::reinterpret_borrow<py::list>(h));
  return py::make_tuple(py::reinterpret_borrow<py::object>(h));
}

TActionEntry parseEntry(py::handle item) {
  TActionEntry e;
  if (item.is_none()) return e;
  if (py::isinstance<py::dict>(item)) {
    py::dict d = py::reinterpret_borrow<py::dict>(item);
    if (!d.contains("name") || !d.contains("func")) throw std::runtime_error("an action needs 'name' and 'func'");
    e.kind = TActionEntry::Kind::Action;
    e.name = py::str(d["name"]).cast<std::string>();
    e.func = d["func"];
    if (d.contains("args")) e.args = asArgs(d["args"]);
    if (d.contains("help") && !d["help"].is_none()) e.help = py::str(d["help"]).cast<std::string>();
    if (d.contains("enabled")) e.enabled = triState(d["enabled"]);
    if (d.contains("key")) readKey(d["key"], e);
    if (d.contains("tags"))
      for (auto t : d["tags"]) e.tags.push_back(py::str(t).cast<std::string>());
    return e;
  }
  if (py::isinstance<py::tuple>(item) || py::isinstance<py::list>(item)) {
    py::sequence s = py::reinterpret_borrow<py::sequence>(item);
    if (s.size() == 2 && py::isinstance<py::list>(s[1])) {
      e.kind = TActionEntry::Kind::Submenu;
      e.name = py::str(s[0]).cast<std::string>();
      e.children = parseActionList(s[1]);
      return e;
    }
    if (s.size() < 3) throw std::runtime_error("a short action needs a name, a function and arguments");
    e.kind = TActionEntry::Kind::Action;
    e.isShort = true;
    e.name = py::str(s[0]).cast<std::string>();
    e.func = s[1];
    e.args = asArgs(s[2]);
    if (s.size() > 3 && !s[3].is_none()) e.help = py::str(s[3]).cast<std::string>();
    if (s.size() > 4) e.enabled = triState(s[4]);
    if (s.size() > 5) readKey(s[5], e);
    return e;
  }
  throw std::runtime_error("not an action list entry: " + py::repr(item).cast<std::string>());
}

}  // namespace

std::vector<TActionEntry> parseActionList(py::handle list) {
  std::vector<TActionEntry> out;
  if (!list || list.is_none()) return out;
  for (auto item : list) out.push_back(parseEntry(item));
  return out;
}

bool TActionEntry::passes(const std::set<std::string>* filter) const {
  if (!filter || isShort) return true;
  for (const auto& t : tags)
    if (filter->count(t)) return true;
  return false;
}

std::string TActionEntry::keyText() const {
  if (!hasKey) return {};
  std::string out;
  if (shift == true) out += "Shift-";
  if (ctrl == true) out += "Ctrl-";
  if (!isShort && keycode >= kKeyF1 && keycode <= kKeyF12)
    out += "F" + std::to_string(keycode - kKeyF1 + 1);
  else if (keycode > 0 && keycode < 0x110000)
    out += static_cast<char>(keycode < 128 ? keycode : '?');
  return "(" + out + ")";
}

std::string TActionEntry::menuText() const {
  const std::string key = keyText();
  return key.empty() ? name : name + "\t" + key;
}

void TActionEntry::run() const {
  if (!func || func.is_none()) return;
  func(*args);
}

int runActionsForKey(py::handle list, int keycode, bool shift, bool ctrl) {
  int ran = 0;
  // Parsed first and then run: an action may change the list it came from.
  const auto entries = parseActionList(list);
  for (const auto& e : entries) {
    if (e.kind != TActionEntry::Kind::Action || !e.hasKey || e.enabled != true) continue;
    if (e.keycode != keycode) continue;
    if (e.shift && *e.shift != shift) continue;
    if (e.ctrl && *e.ctrl != ctrl) continue;
    e.run();
    ++ran;
  }
  return ran;
}

int runActionsByName(py::handle list, const std::string& name) {
  int ran = 0;
  const auto entries = parseActionList(list);
  for (const auto& e : entries) {
    if (e.kind != TActionEntry::Kind::Action || e.name != name) continue;
    e.run();
    ++ran;
  }
  return ran;
}

}  // namespace quorvel
