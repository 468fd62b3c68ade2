#include <gtest/gtest.h>
#include <pybind11/embed.h>

#include "analysis/MControlCores.h"
#include "analysis/MSelection.h"
#include "support/TestData.h"
#include "support/TestProcessors.h"

namespace py = pybind11;
using namespace quorvel;
using namespace quorvel::test;

namespace {

std::shared_ptr<TPythonData> pyValue(const char* literal) {
  return std::make_shared<TPythonData>(TPyRef::steal(py::eval(literal).release().ptr()));
}

std::vector<uint32_t> members(const TPinPtr& pin) {
  auto s = dataAs<TIntegerSetData>(pin);
  return s ? s->m_Set.ids() : std::vector<uint32_t>{};
}

// Nodes 1 to 4 with a kind (text) and a size (integer); 4 has no kind.
struct Selector {
  Net net;
  std::shared_ptr<TSelector1> selector = net.add<TSelector1>(net.fm);
  Selector() {
    auto attributes = std::make_shared<TAttributeDataArray>();
    attributes->add(column<TStringAttributeData, std::string>("kind", {{1, "x"}, {2, "y"}, {3, "x"}}));
    attributes->add(column<TIntegerAttributeData, int32_t>("size", {{1, 10}, {2, 20}, {3, 30}, {4, 10}}));
    attributes->add(column<TFloatAttributeData, float>("weight", {{1, 1.0f}}));
    selector->m_Selection->setData(ids({1, 2, 3, 4}));
    selector->m_Attributes->setData(attributes);
    selector->m_Settings->setData(pyValue("{}"));
  }
  std::vector<uint32_t> with(const char* filter) {
    selector->m_Filter->setData(pyValue(filter));
    net.settle();
    return members(selector->m_Output);
  }
};

}  // namespace

TEST(Selection, Selector1CompilesFiltersAndGivesVerdicts) {
  Selector s;
  EXPECT_EQ(s.with("{'pass': 0, 'inverse': True}"), (std::vector<uint32_t>{1, 2, 3, 4}));
  EXPECT_EQ(s.with("{'pass': 1}"), (std::vector<uint32_t>{1, 2, 3, 4}));
  EXPECT_TRUE(s.with("{'pass': 2}").empty()) << "nothing checked: nothing passes";
  EXPECT_EQ(s.with("{'pass': 2, 'attributes': {'kind': {'checked': True, 'values': {'x': True, 'y': False}},"
                   " 'size': {'checked': True, 'values': {}}}}"),
            (std::vector<uint32_t>{1, 3}))
      << "a checked attribute with no chosen value narrows nothing";
  EXPECT_EQ(s.with("{'pass': 2, 'attributes': {'kind': {'checked': True, 'values': {'x': True, 'y': True}}}}"),
            (std::vector<uint32_t>{1, 2, 3}))
      << "two values of one attribute are alternatives; 4 has no kind";
  EXPECT_EQ(s.with("{'pass': 2, 'attributes': {'kind': {'checked': True, 'values': {'x': True}},"
                   " 'size': {'checked': True, 'values': {10: True}}}}"),
            (std::vector<uint32_t>{1}));
  EXPECT_EQ(s.with("{'pass': 2, 'key_op': 'or', 'attributes': {'kind': {'checked': True, 'values': {'x': True}},"
                   " 'size': {'checked': True, 'values': {10: True}}}}"),
            (std::vector<uint32_t>{1, 3, 4}));
  EXPECT_EQ(s.with("{'pass': 2, 'inverse': True, 'attributes': {'kind': {'checked': True, 'values': {'x': True}}}}"),
            (std::vector<uint32_t>{2, 4}));
  EXPECT_TRUE(s.with("{'pass': 2, 'attributes': {'kind': {'checked': False, 'values': {'x': True}},"
                     " 'missing': {'checked': True, 'values': {'x': True}},"
                     " 'size': {'checked': True, 'values': {'10': True}},"
                     " 'weight': {'checked': True, 'values': {1.0: True}}}}")
                  .empty())
      << "unchecked, unknown, wrong kinds of values and other column types add nothing";
}

TEST(Selection, Selector1WritesItsDefaults) {
  Selector s;
  s.selector->m_Settings->setData(pyValue("{'filterdefault': 1}"));
  s.net.settle();
  auto filter = dataAs<TPythonData>(s.selector->m_Filter);
  ASSERT_TRUE(filter);
  py::dict d = py::reinterpret_borrow<py::dict>(filter->getValue().get());
  EXPECT_EQ(d["pass"].cast<int>(), 1) << "a missing filter becomes a dictionary with pass from filterdefault";
  EXPECT_EQ(members(s.selector->m_Output), (std::vector<uint32_t>{1, 2, 3, 4}));
  EXPECT_EQ(s.with("[1, 2]"), (std::vector<uint32_t>{1, 2, 3, 4}))
      << "not a dictionary: replaced, with pass from filterdefault";
}

TEST(Selection, RangesBoolFiltersAndNeighbours) {
  Net net;
  auto ranged = net.add<TSelector2>(net.fm);
  ranged->m_Selection->setData(ids({1, 2, 3}));
  net.pass();
  EXPECT_EQ(ranged->m_Output->getData(), ranged->m_Selection->getData()) << "no range: the selection as it is";
  ranged->m_Attribute->setData(column<TFloatAttributeData, float>("f", {{1, 0.5f}, {2, 1.5f}}));
  ranged->m_Range->setData(std::make_shared<TFloatPairData>(0.5f, 0.5f));
  net.pass();
  EXPECT_EQ(members(ranged->m_Output), (std::vector<uint32_t>{1}));

  auto keep = net.add<TFilterProcessor>(net.fm);
  auto drop = net.add<TExclusionFilterProcessor>(net.fm);
  auto flags = column<TBoolAttributeData, bool>("hidden", {{1, true}, {2, false}});
  for (auto& f : {std::static_pointer_cast<TFilterProcessor>(keep), std::static_pointer_cast<TFilterProcessor>(drop)}) {
    f->m_Selection->setData(ids({1, 2, 3}));
    f->m_Filter->setData(flags);
  }
  net.pass();
  EXPECT_EQ(members(keep->m_Output), (std::vector<uint32_t>{1}));
  EXPECT_EQ(members(drop->m_Output), (std::vector<uint32_t>{2})) << "3 has no value: in neither";
  EXPECT_EQ(drop->getTypeName(), "filter");

  // Folded 2 stands for itself and 3 below it; a self-edge counts.
  auto h = tree({{1, 0}, {2, 1}, {3, 2}, {4, 1}});
  auto edges = std::make_shared<TEdgeData>();
  edges->addRow(10, 3, 4);
  edges->addRow(11, 4, 2);
  edges->addRow(12, 2, 2);
  auto secondary = net.add<TSecondarySelectionComputer>(net.fm);
  secondary->m_Primary->setData(ids({2}));
  secondary->m_EdgeSelection->setData(ids({10, 11, 12}));
  secondary->m_EdgeData->setData(edges);
  secondary->m_Direction->setData(std::make_shared<TStringData>("out"));
  secondary->m_FullHierarchy->setData(h);
  secondary->m_BoolAttribute->setData(column<TBoolAttributeData, bool>("c", {{2, true}}));
  net.pass();
  EXPECT_EQ(members(secondary->m_Secondary), (std::vector<uint32_t>{2, 4}));
  EXPECT_EQ(members(secondary->m_IncidentEdges), (std::vector<uint32_t>{10, 12}));
  secondary->m_Direction->setData(std::make_shared<TStringData>("both"));
  net.pass();
  EXPECT_EQ(members(secondary->m_IncidentEdges), (std::vector<uint32_t>{10, 11, 12}));
}

TEST(Selection, SetOperations) {
  Net net;
  auto both = net.add<TSetIntersection>(net.fm);
  auto minus = net.add<TSetSubtract>(net.fm);
  auto either = net.add<TSetOr>(net.fm);
  auto a = ids({1, 2, 3});
  for (auto* p : {static_cast<TSetOperation*>(both.get()), static_cast<TSetOperation*>(minus.get()),
                  static_cast<TSetOperation*>(either.get())}) {
    p->m_In1->setData(a);
    p->m_In2->setData(ids({}));
  }
  net.pass();
  EXPECT_EQ(both->m_Out->getData(), a) << "an empty second operand restricts nothing";
  EXPECT_EQ(either->m_Out->getData(), a);
  auto b = ids({2, 9});
  both->m_In2->setData(b);
  minus->m_In2->setData(b);
  either->m_In1->setData(ids({}));
  either->m_In2->setData(b);
  net.pass();
  EXPECT_EQ(members(both->m_Out), (std::vector<uint32_t>{2}));
  EXPECT_EQ(members(minus->m_Out), (std::vector<uint32_t>{1, 3}));
  EXPECT_EQ(either->m_Out->getData(), b) << "a choice, not a union";
}

TEST(Selection, SmallUtilities) {
  Net net;
  auto plus = net.add<TIntegerPlusOne>(net.fm);
  auto invert = net.add<TInvert>(net.fm);
  plus->m_In->setData(std::make_shared<TIntegerData>(41));
  invert->m_In->setData(std::make_shared<TIntegerData>(-2147483647 - 1));
  net.pass();
  EXPECT_EQ(dataAs<TIntegerData>(plus->m_Out)->getValue(), 42);
  EXPECT_EQ(dataAs<TIntegerData>(invert->m_Out)->getValue(), -2147483647 - 1) << "wraps, never undefined";
  plus->m_In->setData(nullptr);
  net.pass();
  EXPECT_EQ(plus->m_Out->getData(), nullptr);

  auto idOr0 = net.add<TIdentityOrNull>(net.fm);
  auto v = std::make_shared<TIntegerData>(3);
  idOr0->m_In->setData(v);
  idOr0->m_IdOr0->setData(std::make_shared<TBooleanData>(false));
  net.pass();
  EXPECT_EQ(idOr0->m_Count->getData(), nullptr);
  idOr0->m_IdOr0->setData(std::make_shared<TBooleanData>(true));
  net.pass();
  EXPECT_EQ(idOr0->m_Count->getData(), v);

  auto count = net.add<TGetCount>(net.fm);
  count->m_In->setData(std::make_shared<TStringData>("x"));
  net.pass();
  EXPECT_EQ(count->m_Count->getData(), nullptr) << "a text leaves all outputs alone";
  count->m_In->setData(ids({4, 5}));
  net.pass();
  EXPECT_EQ(dataAs<TIntegerData>(count->m_Count)->getValue(), 2);
  count->m_In->setData(column<TFloatAttributeData, float>("f", {{1, -1.0f}, {2, 3.0f}}));
  net.pass();
  EXPECT_EQ(dataAs<TFloatData>(count->m_Max)->getValue(), 3.0f);
  count->m_In->setData(std::make_shared<TFloatAttributeData>("empty"));
  net.pass();
  EXPECT_EQ(count->m_Min->getData(), nullptr);

  auto keys = net.add<TKeyNameSetter>(net.fm);
  auto named = std::make_shared<TIntegerData>(1);
  named->m_KeyName = "same";
  keys->m_Data->setData(named);
  keys->m_KeyName->setData(std::make_shared<TStringData>("same"));
  net.pass();
  EXPECT_FALSE(named->m_HasChanged);
  keys->m_KeyName->setData(std::make_shared<TStringData>("other"));
  net.pass();
  EXPECT_EQ(named->m_KeyName, "other");

  auto arrays = net.add<TArrayCreator>(net.fm);
  auto items = std::make_shared<TDataArray>();
  items->add(std::make_shared<TIntegerData>(1));
  items->add(std::make_shared<TIntegerData>(2));
  arrays->m_InputPins[0]->setData(items);
  arrays->m_InputPins[1]->setData(v);
  net.pass();
  auto made = dataAs<TDataArray>(arrays->m_Out);
  ASSERT_EQ(made->getItemCount(), 3u);
  EXPECT_EQ(made->m_Items[2], v);

  auto assign = net.add<TAssignWhenInput1IsNotNone>(net.fm);
  assign->m_In2->setData(v);
  net.pass();
  EXPECT_EQ(assign->m_In1->getData(), nullptr) << "an empty in1 is never written";
  auto w = std::make_shared<TIntegerData>(7);
  assign->m_In1->setData(w);
  net.settle();
  EXPECT_EQ(assign->m_In2->getData(), w);

  auto unionOf = net.add<TIntegerPairSetUnion>(net.fm);
  auto p1 = std::make_shared<TIntegerPairSetData>();
  p1->addPair(1, 2);
  auto p2 = std::make_shared<TIntegerPairSetData>();
  p2->addPair(2, 1);
  unionOf->m_In1->setData(p1);
  unionOf->m_In2->setData(p2);
  net.pass();
  EXPECT_EQ(dataAs<TIntegerPairSetData>(unionOf->m_Out)->m_Set.size(), 2u);

  auto printer = net.add<TInputPrintProcessor>(net.fm);
  printer->m_In->setData(std::make_shared<TIntegerData>(5));
  ::testing::internal::CaptureStdout();
  net.pass();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "??? Printing data:\n5??? Printing data finished\n");
}

TEST(Selection, StackStoreKeepsTheLastValues) {
  Net net;
  auto source = net.add<TSource>(net.fm, 0);
  auto store = net.add<TStackStore>(net.fm, 10);
  auto reader = net.add<TRelay>(net.fm, 20);
  net.fm->createConnection(source->out, store->m_In);
  net.fm->createConnection(source->out, reader->in);
  store->m_MaxItems->setData(std::make_shared<TIntegerData>(2));
  std::vector<TDataPtr> values;
  for (int i = 0; i < 3; ++i) {
    values.push_back(std::make_shared<TTestValue>(i));
    source->out->setData(values.back());
    net.settle();
  }
  ASSERT_EQ(store->m_Stack.size(), 2u) << "the first is gone";
  EXPECT_EQ(store->m_Stack.front(), values[1]);
  const int runs = reader->runs;
  store->pop();
  net.settle();
  EXPECT_EQ(reader->in->getData(), values[1]) << "the earlier value reaches the net";
  EXPECT_EQ(reader->runs, runs + 1);
  EXPECT_EQ(store->m_Stack.size(), 1u) << "pop does not push again";
  store->pop();
  EXPECT_EQ(store->m_Stack.size(), 1u) << "the first state is never lost";
}

TEST(Selection, PickersFollowTheirKeys) {
  Net net;
  auto picker = net.add<TArrayPicker>(net.fm);
  auto array = std::make_shared<TDataArray>();
  auto first = std::make_shared<TIntegerData>(1);
  first->m_KeyName = "first";
  auto second = std::make_shared<TIntegerData>(2);
  second->m_KeyName = "second";
  array->add(first);
  array->add(second);
  picker->m_Array->setData(array);
  picker->m_Settings->setData(pyValue("{'defaultkey': ['missing', 'second']}"));
  net.settle();
  EXPECT_EQ(picker->m_Out->getData(), second);
  picker->m_Key->setData(std::make_shared<TStringData>("gone"));
  net.settle();
  EXPECT_EQ(picker->m_Out->getData(), first) << "an unknown key falls back to the first item";
  EXPECT_EQ(dataAs<TStringData>(picker->m_Key)->getValue(), "first");

  auto sub = net.add<TSubArrayPicker>(net.fm);
  auto columns = std::make_shared<TDataArray>();
  for (const char* k : {"_hidden", "a", "b", "c"}) columns->add(std::make_shared<TStringAttributeData>(k));
  sub->m_Array->setData(columns);
  sub->m_Settings->setData(pyValue("{'defaultkeys': 2}"));
  net.settle();
  auto picked = dataAs<TDataArray>(sub->m_Out);
  ASSERT_EQ(picked->getItemCount(), 2u);
  EXPECT_EQ(picked->m_Items[0]->getKeyName(), "a") << "internal keys are skipped";
  auto keys = std::make_shared<TStringListData>();
  keys->add("c");
  keys->add("nowhere");
  keys->add("a");
  sub->m_Keys->setData(keys);
  net.settle();
  picked = dataAs<TDataArray>(sub->m_Out);
  ASSERT_EQ(picked->getItemCount(), 2u);
  EXPECT_EQ(picked->m_Items[0]->getKeyName(), "c");
  sub->m_Keys->touch();
  net.settle();
  EXPECT_EQ(sub->m_Out->getData(), picked) << "the same keys wake nobody";

  // The column dialog's lists: the keys as they stand, and every key but
  // the internal ones, sorted; "Ok" sets both the keys and the items.
  TKeyListEditor editor(dataAs<TStringListData>(sub->m_Keys)->m_List, columns.get());
  EXPECT_EQ(editor.available, (std::vector<std::string>{"a", "b", "c"}));
  editor.add({1, 7});
  EXPECT_EQ(editor.selected, (std::vector<std::string>{"c", "nowhere", "a", "b"}));
  EXPECT_EQ(editor.up(3), 2u);
  EXPECT_EQ(editor.up(0), 0u) << "no effect at the top";
  EXPECT_EQ(editor.down(3), 3u) << "no effect at the end";
  editor.remove({0, 1});
  EXPECT_EQ(editor.selected, (std::vector<std::string>{"b", "a"}));
  sub->applyKeys(editor.selected);
  EXPECT_EQ(dataAs<TStringListData>(sub->m_Keys)->m_List, editor.selected);
  ASSERT_EQ(dataAs<TDataArray>(sub->m_Out)->getItemCount(), 2u);
  EXPECT_EQ(dataAs<TDataArray>(sub->m_Out)->m_Items[0]->getKeyName(), "b");
  editor.clear();
  EXPECT_TRUE(editor.selected.empty());

  auto range = net.add<TFloatRangeControl>(net.fm);
  range->m_Min->setData(std::make_shared<TFloatData>(1.0f));
  range->m_Max->setData(std::make_shared<TFloatData>(5.0f));
  net.settle();
  auto normalized = dataAs<TFloatPairData>(range->m_Normalized);
  ASSERT_TRUE(normalized);
  EXPECT_EQ(normalized->getValue(), std::make_pair(1.0f, 5.0f));
  range->m_In->setData(std::make_shared<TFloatPairData>(2.0f, 3.0f));
  net.settle();
  EXPECT_EQ(dataAs<TFloatPairData>(range->m_Normalized)->getSecond(), 3.0f);
  range->m_In->setData(std::make_shared<TFloatPairData>(0.0f, 3.0f));
  net.settle();
  EXPECT_EQ(dataAs<TFloatPairData>(range->m_Normalized)->getFirst(), 1.0f) << "outside: the whole span";
}
