// Action lists: the form in which processors offer commands. A list lives
// in a script object (a TPythonData); this reads it into entries that menus,
// keys and names work from, with no window library involved.
#pragma once

#include <pybind11/pybind11.h>

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace quorvel {

// Key codes as the window library's key events give them; a letter is its
// upper-case character code.
constexpr int kKeyLeft = 314;
constexpr int kKeyRight = 316;
constexpr int kKeyF1 = 340;
constexpr int kKeyF12 = 351;

struct TActionEntry {
  enum class Kind { Separator, Action, Submenu };
  Kind kind = Kind::Separator;
  std::string name;
  pybind11::object func;
  pybind11::tuple args;
  std::string help;
  // True, False, or none: no menu entry, but it runs by name.
  std::optional<bool> enabled = true;
  bool hasKey = false;
  int keycode = 0;
  // True, False, or none for either state.
  std::optional<bool> shift;
  std::optional<bool> ctrl;
  std::vector<std::string> tags;
  // The short tuple form: no tags, passes every filter, knows no F keys.
  bool isShort = false;
  std::vector<TActionEntry> children;

  bool passes(const std::set<std::string>* tags) const;
  // "(Shift-Ctrl-C)" and the like; empty without a key.
  std::string keyText() const;
  // The menu text: the name, and behind a tab the key text.
  std::string menuText() const;
  void run() const;
};

// Reads a list; None or no list gives no entries. An entry of a form that
// is not known raises.
std::vector<TActionEntry> parseActionList(pybind11::handle list);

// Runs every entry of the list on the pin data whose key matches, in list
// order; only enabled entries (absent counts as enabled). Gives how many ran.
int runActionsForKey(pybind11::handle list, int keycode, bool shift, bool ctrl);

// Runs every entry with that name, whatever its enabled state.
int runActionsByName(pybind11::handle list, const std::string& name);

}  // namespace quorvel
