// The action processors without a window: which entries their lists hold
// and when they are enabled, what the handlers do to the data on the pins,
// and the merged list that a view's menus and keys work from.
#include <gtest/gtest.h>
#include <pybind11/eval.h>

#include "analysis/MSelection.h"
#include "data/MAttributes.h"
#include "data/MDataSources.h"
#include "shell/core/MActionCores.h"
#include "engine/MActionList.h"
#include "support/TestData.h"
#include "support/TestHelpers.h"
#include "support/TestProcessors.h"

namespace py = pybind11;
using namespace quorvel;
using namespace quorvel::test;

namespace {

std::shared_ptr<TIntegerSetData> keyedIds(std::initializer_list<uint32_t> list, const std::string& key) {
  auto s = ids(list);
  s->m_KeyName = key;
  return s;
}

std::vector<TActionEntry> entriesOf(TActionProcessorCpp& p) { return parseActionList(p.makeActions()); }

const TActionEntry& named(const std::vector<TActionEntry>& entries, const std::string& name) {
  for (const auto& e : entries)
    if (e.name == name) return e;
  throw std::runtime_error("no entry " + name);
}

// Root 0 over a (1) with the leaves 3 and 4, and b (2) with the leaf 5.
std::shared_ptr<THierarchyData> smallTree() {
  auto h = std::make_shared<THierarchyData>("hierarchy 1");
  for (const auto& r : std::vector<THierarchyRow>{{0, 1, 12}, {1, 2, 7}, {3, 3, 4}, {4, 5, 6}, {2, 8, 11}, {5, 9, 10}})
    h->addRow(r.nid, r.lft, r.rgt);
  return h;
}

std::shared_ptr<TBoolAttributeData> collapsedOf(std::initializer_list<std::pair<uint32_t, bool>> values) {
  auto c = std::make_shared<TBoolAttributeData>("collapsed");
  for (const auto& [id, v] : values) c->addRow(id, v);
  return c;
}

bool valueOf(const TBoolAttributeData& c, uint32_t id, bool& found) { return c.getValueById(id, found); }

}  // namespace

TEST(HierarchyActions, TheListGreysWithoutActiveNodesAndEachCommandIsOneNewValue) {
  Net net;
  auto a = net.add<THierarchyActionsCpp>(net.fm);
  EXPECT_TRUE(entriesOf(*a).empty()) << "no active nodes, no list";
  a->m_ActiveNodes->setData(ids({}));
  auto list = entriesOf(*a);
  ASSERT_EQ(list.size(), 11u);
  EXPECT_EQ(list[0].menuText(), "Collapse\t(C)");
  EXPECT_EQ(list[2].menuText(), "Collapse recursively\t(Shift-C)");
  EXPECT_EQ(list[10].menuText(), "Unhide all nodes\t(Ctrl-U)");
  EXPECT_FALSE(named(list, "Collapse toggle").enabled.has_value()) << "no menu entry";
  EXPECT_EQ(named(list, "Collapse").enabled, false);
  EXPECT_EQ(named(list, "Unhide all nodes").enabled, true);
  for (const auto& e : list) EXPECT_EQ(e.tags, std::vector<std::string>{"popup"});

  auto tree = smallTree();
  auto levels = std::make_shared<TIntegerAttributeData>("level");
  for (const auto& [id, l] : std::vector<std::pair<uint32_t, int>>{{0, 0}, {1, 1}, {2, 1}, {3, 2}, {4, 2}, {5, 2}})
    levels->addRow(id, l);
  a->m_FullHierarchy->setData(tree);
  a->m_FilteredHierarchy->setData(tree);
  a->m_LevelAttr->setData(levels);
  auto start = collapsedOf({{0, false}, {1, false}, {2, true}, {3, false}, {4, false}});
  a->m_CollapsedAttr->setData(start);
  a->m_ActiveNodes->setData(ids({1, 5}));
  bool found = false;
  auto now = [&] { return dataAs<TBoolAttributeData>(a->m_CollapsedAttr); };

  // A key runs the enabled entry; the value on the pin is a new object, the
  // old one is untouched.
  list = entriesOf(*a);
  EXPECT_EQ(runActionsForKey(a->makeActions(), 'C', false, false), 1);
  EXPECT_NE(now(), start);
  EXPECT_TRUE(valueOf(*now(), 1, found));
  EXPECT_TRUE(valueOf(*now(), 5, found) && found) << "an id without a value gets one";
  EXPECT_FALSE(valueOf(*start, 1, found));

  // The toggle leaves ids without a value alone.
  a->m_CollapsedAttr->setData(start);
  a->m_ActiveNodes->setData(ids({2, 5}));
  EXPECT_EQ(runActionsByName(a->makeActions(), "Collapse toggle"), 1);
  EXPECT_FALSE(valueOf(*now(), 2, found));
  valueOf(*now(), 5, found);
  EXPECT_FALSE(found);

  // Recursively: the whole subtree in the filtered hierarchy.
  a->m_ActiveNodes->setData(ids({1}));
  runActionsForKey(a->makeActions(), 'C', true, false);
  for (uint32_t id : {1u, 3u, 4u}) EXPECT_TRUE(valueOf(*now(), id, found)) << id;
  EXPECT_FALSE(valueOf(*now(), 0, found));

  // At this level: every node of the active node's level in the attribute.
  a->m_CollapsedAttr->setData(start);
  a->m_ActiveNodes->setData(ids({3}));
  runActionsByName(a->makeActions(), "Collapse all at this level");
  for (uint32_t id : {3u, 4u, 5u}) EXPECT_TRUE(valueOf(*now(), id, found)) << id;
  EXPECT_FALSE(valueOf(*now(), 1, found));

  // Ancestors of the given ids, or of the user selection, unfold.
  a->m_CollapsedAttr->setData(collapsedOf({{0, true}, {1, true}, {2, true}, {3, true}}));
  a->OnEnsureInternalSelectionVisible(std::vector<uint32_t>{3});
  EXPECT_TRUE(valueOf(*now(), 0, found)) << "the synthetic root is no ancestor here";
  EXPECT_FALSE(valueOf(*now(), 1, found));
  EXPECT_TRUE(valueOf(*now(), 3, found)) << "not the id itself";
  EXPECT_TRUE(valueOf(*now(), 2, found));
  a->m_NodeUserSelection->setData(ids({5}));
  runActionsByName(a->makeActions(), "Expand ancestors of node user selection");
  EXPECT_FALSE(valueOf(*now(), 2, found));
}

TEST(HierarchyActions, HidingFillsTheBoxsHiddenSetAndUnhideAllEmptiesIt) {
  Net net;
  auto box = net.box(net.fm, "BHebView");
  auto a = net.add<THierarchyActionsCpp>(box);
  a->m_FullHierarchy->setData(smallTree());
  a->m_ActiveNodes->setData(ids({1}));
  a->OnHideRecursive(true);  // no hidden set in the box: nothing happens
  auto holder = net.add<TSource>(box);
  holder->m_KeyName = "hidden nodes";
  auto hidden = ids({});
  holder->out->setData(hidden);
  runActionsForKey(a->makeActions(), 'H', false, false);
  EXPECT_EQ(std::vector<uint32_t>(hidden->m_Set.begin(), hidden->m_Set.end()), (std::vector<uint32_t>{1, 3, 4}));
  a->m_ActiveNodes->setData(ids({4}));
  runActionsForKey(a->makeActions(), 'U', false, false);
  EXPECT_EQ(hidden->getCount(), 2u);
  a->m_ActiveNodes->setData(ids({}));
  EXPECT_EQ(runActionsForKey(a->makeActions(), 'U', false, false), 0) << "greyed without active nodes";
  EXPECT_EQ(runActionsForKey(a->makeActions(), 'U', false, true), 1);
  EXPECT_EQ(hidden->getCount(), 0u);
}

TEST(NodeEdgeActions, EntriesFollowThePinsAndDSharesItsKey) {
  Net net;
  auto v = net.add<TNodeEdgeActionsForViewCpp>(net.fm);
  auto list = entriesOf(*v);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].menuText(), "Undo collapse/expand\t(Ctrl-Z)");

  auto nodes = ids({});
  auto edges = ids({10, 11});
  auto data = std::make_shared<TEdgeData>();
  data->addRow(10, 1, 2);
  data->addRow(11, 2, 3);
  data->addRow(12, 4, 5);
  v->m_NodeUserSelection->setData(nodes);
  v->m_EdgeUserSelection->setData(edges);
  v->m_EdgeData->setData(data);
  list = entriesOf(*v);
  ASSERT_EQ(list.size(), 4u);
  EXPECT_EQ(list[0].name, "Select end nodes of edge user selection");
  EXPECT_EQ(list[0].enabled, true);
  EXPECT_EQ(list[1].enabled, false) << "no nodes selected";
  runActionsByName(v->makeActions(), "Select end nodes of edge user selection");
  EXPECT_EQ(std::vector<uint32_t>(nodes->m_Set.begin(), nodes->m_Set.end()), (std::vector<uint32_t>{1, 2, 3}));
  EXPECT_EQ(runActionsForKey(v->makeActions(), 'D', false, false), 2);
  EXPECT_EQ(nodes->getCount() + edges->getCount(), 0u);

  // The common list: the two deselect entries, for pins that must be fed.
  auto c = net.add<TCommonNodeEdgeActionsCpp>(net.fm);
  c->m_NodeUserSelection->setData(ids({1}));
  c->m_EdgeUserSelection->setData(ids({}));
  list = entriesOf(*c);
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].menuText(), "Deselect all nodes\t(D)");
  EXPECT_EQ(list[1].enabled, false);
}

TEST(NodeEdgeActions, UndoPopsTheStackBehindThePortsOfBoxes) {
  Net net;
  auto main = net.box(net.fm, "BMain");
  auto view = net.box(net.fm, "BHebView");
  auto source = net.add<TSource>(main);
  auto store = net.add<TStackStore>(main);
  auto reader = net.add<TRelay>(main);
  net.fm->createConnection(source->out, store->m_In);
  net.fm->createConnection(source->out, reader->in);
  auto port = net.add<TAbstractIdentityProcessor>(view);
  auto v = net.add<TNodeEdgeActionsForViewCpp>(view);
  EXPECT_EQ(errorOf([&] { v->OnUndoCollapse(); }), "getConnectedProcessor(): connector no connections");
  net.fm->createConnection(store->m_Dummy, port->m_InputPins.at(0));
  net.fm->createConnection(port->m_OutputPins.at(0), v->m_CollapseStack);
  auto first = std::make_shared<TIntegerData>(1), second = std::make_shared<TIntegerData>(2);
  source->out->setData(first);
  net.settle();
  source->out->setData(second);
  net.settle();
  runActionsForKey(v->makeActions(), 'Z', false, true);
  net.settle();
  EXPECT_EQ(reader->in->getData(), first) << "the collapsed state before the last change";
}

TEST(ListActions, HeaderClicksCycleTheSortAndShiftBuildsSeveralKeys) {
  struct THeader : TListHeaderActionsCpp {
    bool shift = false;
    bool shiftDown() const override { return shift; }
  };
  Net net;
  auto h = net.fm->constructProcessor<THeader>();
  net.fm->addProcessor(h);
  EXPECT_TRUE(h->makeActions().is_none()) << "no column, nothing published";
  auto attributes = std::make_shared<TAttributeDataArray>();
  for (const char* key : {"name", "size", "type"}) attributes->add(std::make_shared<TStringAttributeData>(key));
  auto keys = std::make_shared<TStringListData>();
  for (const char* key : {"name", "size", "type"}) keys->add(key);
  h->m_Attributes->setData(attributes);
  h->m_Keys->setData(keys);
  auto sort = [&] { return py::repr(py::handle(dataAs<TPythonData>(h->m_Sort)->getValue().get())).cast<std::string>(); };
  auto click = [&](int column, bool shift) {
    h->m_ColumnIndex->setData(std::make_shared<TIntegerData>(column));
    h->shift = shift;
    runActionsByName(h->makeActions(), "Toggle sort");
    return sort();
  };
  // The list view's first sort: a pair that matches no column.
  h->m_Sort->setData(std::make_shared<TPythonData>(TPyRef::borrow(py::eval("[(None, True)]").ptr())));
  EXPECT_EQ(click(1, true), "[(None, True), ('size', True)]");
  EXPECT_EQ(click(1, false), "[('size', False)]");
  EXPECT_EQ(click(1, false), "[]");
  EXPECT_EQ(click(1, false), "[('size', True)]");
  EXPECT_EQ(click(2, true), "[('size', True), ('type', True)]");
  EXPECT_EQ(click(1, true), "[('size', False), ('type', True)]");
  EXPECT_EQ(click(1, true), "[('type', True)]");
  EXPECT_EQ(click(0, true), "[('type', True), ('name', True)]");
  EXPECT_EQ(click(0, false), "[('name', False)]") << "a plain click on the second key sorts by it alone";
  EXPECT_EQ(click(7, false), "[('name', False)]") << "beyond the columns nothing changes";

  auto list = parseActionList(h->makeActions());
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[2].name, "Configure Columns");
  h->m_ColumnIndex->setData(std::make_shared<TIntegerData>(1));
  runActionsByName(h->makeActions(), "Remove column");
  EXPECT_EQ(keys->m_List, (std::vector<std::string>{"name", "type"}));
}

TEST(ListActions, InternalSelectionMovesIntoSelectionBByItsName) {
  Net net;
  auto a = net.add<TInternalSelectionActionsCpp>(net.fm);
  a->m_InternalSelection->setData(ids({1, 2}));
  EXPECT_TRUE(entriesOf(*a).empty());
  auto b = keyedIds({2, 9}, "node primary selection");
  a->m_SelectionB->setData(b);
  auto list = entriesOf(*a);
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].name, "Add to node primary selection");
  EXPECT_EQ(list[1].name, "Remove from node primary selection");
  EXPECT_EQ(list[1].enabled, true);
  runActionsByName(a->makeActions(), "Remove from node primary selection");
  EXPECT_EQ(b->getCount(), 1u);
  EXPECT_EQ(entriesOf(*a)[1].enabled, false) << "nothing shared any more";
  a->OnListViewRowAddToSelection(true);
  EXPECT_EQ(std::vector<uint32_t>(b->m_Set.begin(), b->m_Set.end()), (std::vector<uint32_t>{1, 2}));
}

TEST(ActionMerger, ListsFollowEachOtherEachEndingInNone) {
  Net net;
  auto m = net.add<TActionMerger>(net.fm);
  auto list = [](const char* text) {
    return std::make_shared<TPythonData>(TPyRef::borrow(py::eval(text).ptr()));
  };
  m->m_Inputs[0]->setData(list("[('a', None, ()), ('b', None, ())]"));
  m->m_Inputs[1]->setData(list("'not a list'"));
  m->m_Inputs[3]->setData(list("[('c', None, ())]"));
  net.settle();
  auto out = py::handle(dataAs<TPythonData>(m->m_Out)->getValue().get());
  EXPECT_EQ(py::repr(out).cast<std::string>(),
            "[('a', None, ()), ('b', None, ()), None, ('c', None, ()), None]");
}
