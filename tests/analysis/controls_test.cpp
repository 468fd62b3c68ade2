#include <gtest/gtest.h>
#include <pybind11/embed.h>

#include <cmath>

#include "analysis/MControlCores.h"
#include "shell/core/MShellCores.h"
#include "support/TestData.h"
#include "support/TestProcessors.h"

namespace py = pybind11;
using namespace quorvel;
using namespace quorvel::test;

namespace {

std::shared_ptr<TPythonData> pyValue(const char* literal) {
  return std::make_shared<TPythonData>(TPyRef::steal(py::eval(literal).release().ptr()));
}

float floatOn(const TPinPtr& pin) { return dataAs<TFloatData>(pin)->getValue(); }

template <class T>
std::shared_ptr<T> control(Net& net, const TBoxPtr& box, const char* settings) {
  auto c = net.add<T>(box);
  c->getInputPinByName("settings")->setData(pyValue(settings));
  return c;
}

}  // namespace

TEST(Controls, NumbersStartAtTheirDefaultAndArePulledIntoTheirBounds) {
  Net net;
  auto f = control<TFloatControl>(net, net.fm, "{'default': 'max'}");
  f->m_Min->setData(std::make_shared<TFloatData>(1.0f));
  f->m_Max->setData(std::make_shared<TFloatData>(4.0f));
  net.settle();
  EXPECT_EQ(floatOn(f->m_In), 4.0f) << "'max' starts at the maximum";
  auto held = dataAs<TFloatData>(f->m_In);
  held->setValue(9.0f);
  f->m_In->touch();
  net.settle();
  EXPECT_EQ(floatOn(f->m_In), 4.0f) << "pulled to the nearest bound";
  EXPECT_EQ(dataAs<TFloatData>(f->m_In), held) << "in place: the value object stays";
  f->m_In->setData(std::make_shared<TFloatData>(-3.0f));
  net.settle();
  EXPECT_EQ(floatOn(f->m_In), 1.0f);

  // Equal bounds clamp nothing; bounds that are no numbers neither.
  f->m_Max->setData(std::make_shared<TFloatData>(1.0f));
  f->m_In->setData(std::make_shared<TFloatData>(7.0f));
  net.settle();
  EXPECT_EQ(floatOn(f->m_In), 7.0f);
  f->m_Max->setData(std::make_shared<TFloatData>(std::nanf("")));
  net.settle();
  EXPECT_EQ(floatOn(f->m_In), 7.0f);

  auto i = control<TIntegerControl>(net, net.fm, "'no dictionary'");
  i->m_Min->setData(std::make_shared<TIntegerData>(2));
  i->m_Max->setData(std::make_shared<TIntegerData>(5));
  net.settle();
  EXPECT_EQ(dataAs<TIntegerData>(i->m_In)->getValue(), 2) << "any other default starts at the minimum";
  i->setInPlace(1e12);
  EXPECT_EQ(dataAs<TIntegerData>(i->m_In)->getValue(), INT32_MAX) << "a huge number saturates";
  net.settle();
  EXPECT_EQ(dataAs<TIntegerData>(i->m_In)->getValue(), 5);
}

TEST(Controls, RangeClicksButtonsAndCheckBoxes) {
  Net net;
  auto range = control<TFloatRangeControl>(net, net.fm, "{}");
  range->m_Min->setData(std::make_shared<TFloatData>(0.0f));
  range->m_Max->setData(std::make_shared<TFloatData>(10.0f));
  range->m_In->setData(std::make_shared<TFloatPairData>(2.0f, 6.0f));
  net.settle();
  range->m_In->setData(std::make_shared<TFloatPairData>(2.0f, 6.0f));
  net.settle();
  range->setLower(8.0f);
  net.settle();
  EXPECT_EQ(dataAs<TFloatPairData>(range->m_Normalized)->getValue(), std::make_pair(6.0f, 6.0f))
      << "a lower bound right of the upper one stops at it";
  range->setUpper(1.0f);
  net.settle();
  EXPECT_EQ(dataAs<TFloatPairData>(range->m_In)->getValue(), std::make_pair(6.0f, 6.0f));
  range->m_Min->setData(std::make_shared<TFloatData>(-1.0f));
  net.settle();
  EXPECT_EQ(dataAs<TFloatPairData>(range->m_Normalized)->getValue(), std::make_pair(-1.0f, 10.0f))
      << "a new bound resets the range to the whole span";
  EXPECT_EQ(TFloatRangeControl::xOf(10.0f, 100, 0.0f, 10.0f), 100);
  EXPECT_EQ(TFloatRangeControl::valueAt(99, 100, 0.0f, 10.0f), 10.0f);
  EXPECT_EQ(TFloatRangeControl::xOf(3.0f, 100, 2.0f, 2.0f), 0) << "an empty span draws at the left edge";

  auto button = control<TInvokeControl>(net, net.fm, "{'name': 'Go'}");
  button->invoke();
  const TDataPtr first = button->m_Out->getData();
  button->invoke();
  EXPECT_TRUE(first && button->m_Out->getData() != first) << "each press is a new value";

  auto box = control<TBooleanControl>(net, net.fm, "{}");
  box->m_In->setData(std::make_shared<TBooleanData>(true));
  net.settle();
  EXPECT_EQ(box->m_Out->getData(), box->m_In->getData()) << "the same object passes";
}

TEST(Controls, TheGathererFindsTheControlsOfItsBoxTreeAndThePaneGroupsThem) {
  Net net;
  auto top = net.box(net.fm);
  auto gatherer = net.add<TControlGatherer>(top);
  auto ring = control<TFloatControl>(net, top, "{'name': 'Ring', 'group': 'Visual layout', 'order': 2}");
  auto gap = control<TFloatControl>(net, top, "{'name': 'Gap', 'group': 'Visual layout', 'order': 1}");
  auto color = control<TArrayPicker>(net, top, "{'name': 'Color', 'group': 'Node colors'}");
  auto hidden = control<TArrayPicker>(net, top, "{'group': None}");
  auto filter = control<TSelector1>(net, net.box(top), "{'name': 'Filter', 'group': 'Misc filters'}");
  auto other = control<TBooleanControl>(net, top, "{'group': 'Extra.Options'}");
  net.add<TRelay>(top);
  net.settle();

  auto found = dataAs<TProcessorDataArray>(gatherer->m_Out);
  ASSERT_TRUE(found);
  std::vector<std::string> names;
  for (const auto& item : found->m_Items) names.push_back(item->getKeyName());
  EXPECT_EQ(names, (std::vector<std::string>{"Ring", "Gap", "Color", "<noname>", "<noname>", "Filter"}))
      << "breadth first: the box's own controls before those of the box below";

  std::vector<TProcessorPtr> controls;
  for (const auto& item : found->m_Items) controls.push_back(std::dynamic_pointer_cast<TProcessorData>(item)->getValue());
  const auto tabs = layoutControls(controls);
  ASSERT_EQ(tabs.size(), 2u);
  EXPECT_EQ(tabs[0].name, "Extra");
  ASSERT_EQ(tabs[0].groups.size(), 1u);
  EXPECT_EQ(tabs[0].groups[0].name, "Options");
  EXPECT_EQ(tabs[0].groups[0].controls.front(), other);
  const TControlTab& tools = tabs[1];
  EXPECT_EQ(tools.name, "Tools");
  ASSERT_EQ(tools.groups.size(), 3u) << "a control of group None stands in no group";
  EXPECT_EQ(tools.groups[0].name, "Node colors");
  EXPECT_EQ(tools.groups[1].name, "Visual layout");
  EXPECT_EQ(tools.groups[2].name, "Misc filters");
  EXPECT_EQ(tools.groups[1].controls, (std::vector<TProcessorPtr>{gap, ring})) << "by order";
  EXPECT_EQ(groupSortKey(std::string("Nodes")), "ANodes");
  EXPECT_FALSE(groupSortKey(std::string("Labels"))) << "other names stand first";
  EXPECT_TRUE(captionsItself(*filter));
  EXPECT_FALSE(captionsItself(*color));
  (void)hidden;
}

TEST(Controls, TheFilterDialogWorksOnACopy) {
  py::dict given = py::eval("{'attributes': {'kind': {'checked': False, 'values': {'x': True}}}}").cast<py::dict>();
  auto attributes = std::make_shared<TAttributeDataArray>();
  attributes->add(column<TStringAttributeData, std::string>("kind", {{1, "x"}, {2, "y"}}));
  attributes->add(column<TIntegerAttributeData, int32_t>("size", {{1, 10}, {2, 20}}));
  attributes->add(column<TFloatAttributeData, float>("weight", {{1, 1.0f}}));
  attributes->add(column<TStringAttributeData, std::string>("_internal", {{1, "z"}}));
  TNominalFilterModel model(attributes.get(), given);
  EXPECT_EQ(model.keys, (std::vector<std::string>{"kind", "size"})) << "no floats, no internal keys";
  EXPECT_EQ(model.pass(), 0) << "no pass: the first position";
  model.setPass(2);
  model.setAttributeChecked("kind", true);
  const auto values = model.values("kind");
  ASSERT_EQ(values.size(), 2u);
  EXPECT_TRUE(model.valueChecked("kind", values[0]));
  model.setValueChecked("kind", values[0], false);
  model.setValueChecked("size", py::int_(20), true);
  EXPECT_TRUE(model.valueChecked("size", py::int_(20))) << "values of an unchecked attribute are kept";
  EXPECT_FALSE(model.attributeChecked("size"));
  EXPECT_EQ(py::repr(given).cast<std::string>(),
            "{'attributes': {'kind': {'checked': False, 'values': {'x': True}}}}")
      << "the given dictionary is untouched";

  TNominalFilterModel empty(attributes.get(), py::str("no dictionary"));
  EXPECT_EQ(py::str(empty.filter["key_op"]).cast<std::string>(), "and");
}

TEST(Controls, ASizeIsTheDefaultAreaWhereTheDatasetHasOneAndNumbersLeadTheColumns) {
  auto attributes = [](std::initializer_list<TDataPtr> items) {
    auto a = std::make_shared<TAttributeDataArray>();
    for (const auto& i : items) a->add(i);
    return a;
  };
  auto name = std::make_shared<TStringAttributeData>("name");
  auto bytes = std::make_shared<TIntegerAttributeData>("bytes");
  auto lines = std::make_shared<TFloatAttributeData>("lines");
  auto kind = std::make_shared<TStringAttributeData>("kind");
  auto area = [&](const std::shared_ptr<TAttributeDataArray>& array) {
    Net net;
    auto picker = control<TArrayPicker>(net, net.fm, "{'allownone': True, 'defaultkey': ['lines', 'bytes']}");
    picker->m_Array->setData(array);
    net.settle();
    return picker->m_Out->getData();
  };
  EXPECT_EQ(area(attributes({name, bytes, lines})), lines) << "lines before bytes";
  EXPECT_EQ(area(attributes({name, bytes})), bytes);
  EXPECT_EQ(area(attributes({name, kind})), nullptr) << "no size: every leaf of area 1";

  Net net;
  auto columns = control<TSubArrayPicker>(net, net.fm, "{'defaultkeys': 'all', 'numericfirst': True}");
  auto hidden = std::make_shared<TIntegerAttributeData>("_nid");
  columns->m_Array->setData(attributes({name, bytes, kind, hidden, lines}));
  net.settle();
  EXPECT_EQ(dataAs<TStringListData>(columns->m_Keys)->m_List, (std::vector<std::string>{"bytes", "lines", "name", "kind"}));
}
