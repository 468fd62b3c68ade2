// Action lists: the four entry forms, key texts, tag filters, and running
// entries by key and by name.
#include <gtest/gtest.h>
#include <pybind11/embed.h>
#include <pybind11/stl.h>

#include "engine/MActionList.h"

namespace py = pybind11;
using namespace quorvel;

namespace {

// A list built in the script language, with a log of what ran.
struct Fixture {
  py::dict ns;
  explicit Fixture(const char* code) {
    ns["ran"] = py::list();
    py::exec("def f(tag):\n    ran.append(tag)\n", ns);
    py::exec(code, ns);
  }
  py::object list() { return ns["l"]; }
  std::vector<std::string> ran() { return ns["ran"].cast<std::vector<std::string>>(); }
};

}  // namespace

TEST(ActionList, FormsKeysAndTags) {
  Fixture fx(R"(
l = [None,
     {'name': 'Collapse', 'func': f, 'args': ('c',), 'help': 'Collapse all selected nodes.', 'key': (ord('C'), False, None), 'tags': ['popup']},
     {'name': 'Collapse recursively', 'func': f, 'args': ('r',), 'key': (ord('C'), True, None), 'tags': ['popup']},
     {'name': 'Collapse toggle', 'func': f, 'args': ('t',), 'enabled': None, 'tags': ['popup']},
     {'name': 'Undo collapse/expand', 'func': f, 'args': ('z',), 'key': (ord('Z'), False, True), 'tags': ['popup']},
     {'name': 'Make screenshot', 'func': f, 'args': ('s',), 'key': (340 + 10, False, None), 'tags': ['menubar']},
     ('Sub', [('inner', f, ('i',))]),
     ('Short', f, ('x',), 'a short one', False, (ord('Q'), None, None)),
     {'name': 'Untagged', 'func': f, 'args': ('u',)},
     None])");
  auto entries = parseActionList(fx.list());
  ASSERT_EQ(entries.size(), 10u);
  EXPECT_EQ(entries[0].kind, TActionEntry::Kind::Separator);
  EXPECT_EQ(entries[1].menuText(), "Collapse\t(C)");
  EXPECT_EQ(entries[1].help, "Collapse all selected nodes.");
  EXPECT_EQ(entries[2].keyText(), "(Shift-C)");
  EXPECT_FALSE(entries[3].enabled.has_value()) << "enabled None: runs by name only";
  EXPECT_EQ(entries[4].keyText(), "(Ctrl-Z)");
  EXPECT_EQ(entries[5].keyText(), "(F11)");
  EXPECT_EQ(entries[6].kind, TActionEntry::Kind::Submenu);
  EXPECT_EQ(entries[6].children.size(), 1u);
  EXPECT_TRUE(entries[7].isShort);
  EXPECT_EQ(entries[7].enabled, false);

  const std::set<std::string> popup{"popup"};
  EXPECT_TRUE(entries[1].passes(&popup));
  EXPECT_FALSE(entries[5].passes(&popup)) << "menubar only";
  EXPECT_FALSE(entries[8].passes(&popup)) << "a dictionary without tags is left out";
  EXPECT_TRUE(entries[7].passes(&popup)) << "a short action passes every filter";
  EXPECT_TRUE(entries[8].passes(nullptr)) << "no filter shows everything";

  // A dictionary without a name is a programming error.
  py::dict bad;
  bad["func"] = py::none();
  py::list badList;
  badList.append(bad);
  EXPECT_THROW(parseActionList(badList), std::runtime_error);
}

TEST(ActionList, KeysRunEveryEnabledMatchNamesRunWhateverTheState) {
  Fixture fx(R"(
l = [{'name': 'Deselect all nodes', 'func': f, 'args': ('n',), 'key': (ord('D'), None, None)},
     {'name': 'Deselect all edges', 'func': f, 'args': ('e',), 'key': (ord('D'), None, None)},
     {'name': 'Collapse', 'func': f, 'args': ('c',), 'enabled': False, 'key': (ord('C'), False, None)},
     {'name': 'Undo', 'func': f, 'args': ('z',), 'key': (ord('Z'), False, True)},
     {'name': 'Collapse toggle', 'func': f, 'args': ('t',), 'enabled': None}])");
  EXPECT_EQ(runActionsForKey(fx.list(), 'D', true, false), 2) << "one key, two actions, shift either way";
  EXPECT_EQ(runActionsForKey(fx.list(), 'C', false, false), 0) << "a greyed entry's key does nothing";
  EXPECT_EQ(runActionsForKey(fx.list(), 'Z', false, false), 0) << "Ctrl-Z needs Ctrl";
  EXPECT_EQ(runActionsForKey(fx.list(), 'Z', true, true), 0) << "and no Shift";
  EXPECT_EQ(runActionsForKey(fx.list(), 'Z', false, true), 1);
  EXPECT_EQ(runActionsByName(fx.list(), "Collapse"), 1) << "by name also when greyed";
  EXPECT_EQ(runActionsByName(fx.list(), "Collapse toggle"), 1);
  EXPECT_EQ(fx.ran(), (std::vector<std::string>{"n", "e", "z", "c", "t"}));
  EXPECT_EQ(runActionsForKey(py::none(), 'D', false, false), 0) << "no list, nothing to run";
}
