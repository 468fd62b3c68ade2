#include <gtest/gtest.h>

#include "analysis/MAttributeDerivation.h"
#include "support/TestData.h"
#include "support/TestHelpers.h"
#include "support/TestProcessors.h"

using namespace quorvel;
using namespace quorvel::test;

namespace {

float valueOf(const TAttributeData& c, uint32_t id, bool* present = nullptr) {
  bool found = false;
  const float v = c.getFloatValueById(id, found);
  if (present) *present = found;
  return v;
}

}  // namespace

TEST(Derivation, OrdnormRanksTextsAndKeepsNumbers) {
  auto texts = column<TStringAttributeData, std::string>("kind", {{1, "b"}, {2, "a"}, {3, "b"}, {5, "C"}});
  auto ranks = ordnorm(*texts);
  EXPECT_EQ(ranks->m_KeyName, "kind");
  EXPECT_EQ(valueOf(*ranks, 1), 2.0f);
  EXPECT_EQ(valueOf(*ranks, 2), 1.0f);
  EXPECT_EQ(valueOf(*ranks, 5), 0.0f) << "byte order: upper case first";
  EXPECT_EQ(ranks->getMinimumValue(), 0.0f);
  EXPECT_EQ(ranks->getMaximumValue(), 2.0f);
  EXPECT_EQ(ranks->getIdByRow(0), 1u) << "same row order";
  auto ints = ordnorm(*column<TIntegerAttributeData, int32_t>("n", {{1, -4}, {2, 9}}));
  EXPECT_EQ(valueOf(*ints, 2), 9.0f);
  auto empty = ordnorm(TFloatAttributeData("e"));
  EXPECT_GT(empty->getMinimumValue(), empty->getMaximumValue());
  EXPECT_EQ(errorOf([] { ordnorm(TBoolAttributeData("b")); }), "Unknown type");


  // Enough texts to wrap the table of distinct texts, with repeats and
  // texts that are prefixes of others; ranks follow std::string order.
  TStringAttributeData many("many");
  std::vector<std::string> values;
  for (uint32_t i = 0; i < 5000; ++i) values.push_back(std::string(i % 7, 'x') + std::to_string((i * 7919) % 1301));
  for (uint32_t i = 0; i < values.size(); ++i) many.addRow(i + 1, values[i]);
  std::vector<std::string> sorted = values;
  std::sort(sorted.begin(), sorted.end());
  sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
  auto manyRanks = ordnorm(many);
  for (uint32_t i = 0; i < values.size(); i += 37)
    ASSERT_EQ(valueOf(*manyRanks, i + 1),
              static_cast<float>(std::lower_bound(sorted.begin(), sorted.end(), values[i]) - sorted.begin()));
  EXPECT_EQ(manyRanks->getMaximumValue(), static_cast<float>(sorted.size() - 1));

  // The numeric form shares the column's index until either changes.
  auto source = column<TFloatAttributeData, float>("f", {{1, 0.5f}, {2, 1.5f}});
  auto numeric = ordnorm(*source);
  EXPECT_TRUE(numeric->m_Index.isSharedWith(source->m_Index));
  numeric->addRow(7, 3.0f);
  EXPECT_FALSE(numeric->m_Index.isSharedWith(source->m_Index));
  EXPECT_FALSE(source->hasValueById(7)) << "a change to one column leaves the other's index alone";
  EXPECT_EQ(valueOf(*numeric, 7), 3.0f);
  EXPECT_EQ(valueOf(*numeric, 2), 1.5f);

  Net net;
  auto array = net.add<TAttributeArrayNormalizerProcessor>(net.fm);
  auto in = std::make_shared<TAttributeDataArray>();
  in->add(texts);
  in->add(column<TFloatAttributeData, float>("f", {{1, 0.5f}}));
  array->m_In->setData(in);
  net.pass();
  auto out = dataAs<TFloatAttributeDataArray>(array->m_Out);
  ASSERT_EQ(out->getItemCount(), 2u);
  EXPECT_EQ(out->itemAs<TFloatAttributeData>(1)->m_KeyName, "f");

  // A new array with the same columns: unchanged columns keep their
  // numeric form; one changed in place, or renamed, gets a new one.
  auto again = std::make_shared<TAttributeDataArray>();
  again->add(texts);
  auto f = in->itemAs<TFloatAttributeData>(1);
  again->add(f);
  again->add(column<TIntegerAttributeData, int32_t>("n", {{1, 3}}));
  array->m_In->setData(again);
  net.pass();
  auto out2 = dataAs<TFloatAttributeDataArray>(array->m_Out);
  ASSERT_EQ(out2->getItemCount(), 3u);
  EXPECT_EQ(out2->m_Items[0], out->m_Items[0]);
  EXPECT_EQ(out2->m_Items[1], out->m_Items[1]);
  f->setValueById(1, 9.0f);
  texts->m_KeyName = "kind2";
  array->m_In->setData(again);
  net.pass();
  auto out3 = dataAs<TFloatAttributeDataArray>(array->m_Out);
  EXPECT_NE(out3->m_Items[0], out->m_Items[0]);
  EXPECT_EQ(out3->m_Items[0]->getKeyName(), "kind2");
  EXPECT_EQ(valueOf(*out3->itemAs<TFloatAttributeData>(1), 1), 9.0f);
  EXPECT_EQ(out3->m_Items[2], out2->m_Items[2]);
  texts->m_KeyName = "kind";

  // Columns made on two threads, two of them ranked through one order of
  // the texts they share, are those made one by one.
  auto names = std::make_shared<TStringAttributeData>("name");
  for (uint32_t id = 1; id <= 300; ++id) names->addRow(id, "n" + std::to_string((id * 37) % 301));
  auto parallel = std::make_shared<TAttributeDataArray>();
  for (const char* end : {"from node", "to node"}) {
    auto drawn = std::make_shared<TStringAttributeData>(end);
    drawn->drawTextsFrom(names);
    const uint32_t step = end[0] == 'f' ? 7 : 11;
    for (uint32_t e = 1; e <= 500; ++e) drawn->m_Rows.push_back({e, names->m_Rows[(e * step) % 300].value});
    drawn->finishRows();
    parallel->add(drawn);
  }
  parallel->add(names);
  parallel->add(texts);
  auto twoThreads = net.add<TAttributeArrayNormalizerProcessor>(net.fm);
  twoThreads->m_RowsForTwoThreads = 0;
  twoThreads->m_In->setData(parallel);
  net.pass();
  auto made = dataAs<TFloatAttributeDataArray>(twoThreads->m_Out);
  ASSERT_EQ(made->getItemCount(), 4u);
  for (size_t i = 0; i < 4; ++i) {
    auto alone = ordnorm(*parallel->itemAs<TAttributeData>(i));
    EXPECT_TRUE(made->itemAs<TFloatAttributeData>(i)->sameRows(*alone)) << parallel->m_Items[i]->m_KeyName;
  }

  auto single = net.add<TAttributeNormalizerProcessor>(net.fm);
  single->m_In->setData(texts);
  net.pass();
  EXPECT_EQ(dataAs<TFloatAttributeData>(single->m_Out)->getRowCount(), 4u);
  single->m_In->setData(nullptr);
  net.pass();
  EXPECT_EQ(single->m_Out->getData(), nullptr);
}

TEST(Derivation, AggregatesFillTheNodesWithoutValues) {
  // folder 1 with files 2, 3, 4 (1, 2, 6); folder 5 with file 6 (no value);
  // folder 7 with its own value and a file 8 below.
  auto h = tree({{9, 0}, {1, 9}, {2, 1}, {3, 1}, {4, 1}, {5, 9}, {6, 5}, {7, 9}, {8, 7}});
  auto values = column<TIntegerAttributeData, int32_t>("lines", {{2, 1}, {3, 2}, {4, 6}, {7, 100}, {8, 5}});
  Net net;
  auto aggr = net.add<TAttributeAggregator>(net.fm);
  aggr->m_In->setData(values);
  aggr->m_Hierarchy->setData(h);
  aggr->m_Function->setData(std::make_shared<TStringData>("avg"));
  net.pass();
  auto out = dataAs<TFloatAttributeData>(aggr->m_Out);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->m_KeyName, "lines");
  bool found = false;
  EXPECT_EQ(valueOf(*out, 1, &found), 3.0f);
  EXPECT_FALSE(out->hasValueById(2)) << "the input's own values are not in the result";
  EXPECT_FALSE(out->hasValueById(5)) << "nothing below has a value";
  EXPECT_FALSE(out->hasValueById(7)) << "a node with its own value";
  EXPECT_EQ(valueOf(*out, 9), 22.8f) << "the root aggregates the input, not the aggregates";
  aggr->m_Function->setData(nullptr);
  net.pass();
  EXPECT_EQ(valueOf(*dataAs<TFloatAttributeData>(aggr->m_Out), 9), 1.0f) << "no function: the minimum";

  aggr->m_In->setData(column<TStringAttributeData, std::string>("s", {{2, "x"}}));
  net.pass();
  EXPECT_EQ(aggr->m_Out->getData(), nullptr) << "a text column empties out";
  aggr->m_In->setData(values);
  net.pass();
  auto kept = aggr->m_Out->getData();
  aggr->m_In->setData(column<TBoolAttributeData, bool>("b", {{2, true}}));
  net.pass();
  EXPECT_EQ(aggr->m_Out->getData(), kept) << "a bool column leaves out";
  aggr->m_In->setData(nullptr);
  net.pass();
  EXPECT_EQ(aggr->m_Out->getData(), nullptr);
}

TEST(Derivation, FanIdsCaptionsIconsAndUnion) {
  auto edges = std::make_shared<TEdgeData>();
  edges->addRow(1, 10, 20);
  edges->addRow(2, 10, 20);  // parallel: counts once
  edges->addRow(3, 20, 30);
  edges->addRow(4, 10, 30);  // outside the edge selection
  Net net;
  auto fan = net.add<TFanAttributeProcessor>(net.fm);
  fan->m_NodeSelection->setData(ids({10, 20, 30, 40}));
  fan->m_EdgeSelection->setData(ids({1, 2, 3}));
  fan->m_EdgeData->setData(edges);
  net.pass();
  auto out = dataAs<TIntegerAttributeData>(fan->m_FanOut);
  auto in = dataAs<TIntegerAttributeData>(fan->m_FanIn);
  EXPECT_EQ(out->m_KeyName, "fan out (*)");
  EXPECT_EQ(valueOf(*out, 10), 1.0f);
  EXPECT_EQ(valueOf(*in, 20), 1.0f);
  EXPECT_EQ(valueOf(*in, 30), 1.0f);
  EXPECT_FALSE(out->hasValueById(40)) << "a count of 0 has no row";
  fan->m_EdgeData->touch();
  net.pass();
  EXPECT_EQ(fan->m_FanOut->getData(), out) << "unchanged columns wake nobody";

  auto idAttr = net.add<TIdAttributeProcessor>(net.fm);
  idAttr->m_Selection->setData(ids({5, 7}));
  net.pass();
  auto idColumn = dataAs<TIntegerAttributeData>(idAttr->m_Out);
  EXPECT_EQ(idColumn->m_KeyName, "id (*)");
  EXPECT_EQ(valueOf(*idColumn, 7), 7.0f);

  auto captions = net.add<TFromToAttributeCreator>(net.fm);
  captions->m_Caption->setData(column<TStringAttributeData, std::string>("name", {{10, "a"}, {20, "b"}}));
  captions->m_EdgeData->setData(edges);
  net.pass();
  auto from = dataAs<TStringAttributeData>(captions->m_FromOut);
  auto to = dataAs<TStringAttributeData>(captions->m_ToOut);
  bool found = false;
  EXPECT_EQ(from->getValueById(3, found), "b");
  EXPECT_FALSE(to->hasValueById(3)) << "30 has no caption";
  EXPECT_EQ(to->m_KeyName, "to node");
  // The captions' texts are shared; changing a caption column afterwards
  // leaves the end columns as they were, and the other way round.
  auto names = dataAs<TStringAttributeData>(captions->m_Caption);
  EXPECT_TRUE(from->sharesTextsOf(*names));
  EXPECT_EQ(from->getMinimumValue(), "a");
  EXPECT_EQ(from->getMaximumValue(), "b");
  names->setValueById(20, "z");
  from->setValueById(3, "c");
  EXPECT_EQ(from->getValueById(3, found), "c");
  EXPECT_EQ(names->getValueById(20, found), "z");
  EXPECT_EQ(to->getValueById(1, found), "b") << "the edge 1 ends at 20";

  auto icons = net.add<TIconAttributeCreator>(net.fm);
  auto map = std::make_shared<TMapStringToIntegerData>();
  map->put("file", 4);
  map->put("", 5);
  const std::string longName(70, 'L');
  map->put(longName, 6);
  auto attributes = std::make_shared<TAttributeDataArray>();
  attributes->add(column<TStringAttributeData, std::string>(
      "type", {{1, "file"}, {2, "folder"}, {3, ""}, {4, longName}, {5, longName + "x"}, {6, "fil"}}));
  attributes->add(column<TStringAttributeData, std::string>("name", {{1, "x"}}));
  icons->m_Icons->setData(map);
  icons->m_Attributes->setData(attributes);
  net.pass();
  auto iconArray = dataAs<TIntegerAttributeDataArray>(icons->m_Output);
  ASSERT_EQ(iconArray->getItemCount(), 1u) << "no matching text, no column";
  EXPECT_EQ(iconArray->m_Items[0]->getKeyName(), "icon for 'type'");
  const auto& typeIcons = *iconArray->itemAs<TIntegerAttributeData>(0);
  EXPECT_FALSE(typeIcons.hasValueById(2));
  EXPECT_EQ(typeIcons.getValueById(3, found), 5) << "an empty name is a name";
  EXPECT_EQ(typeIcons.getValueById(4, found), 6) << "a long name";
  EXPECT_FALSE(typeIcons.hasValueById(5));
  EXPECT_FALSE(typeIcons.hasValueById(6));

  auto uni = net.add<TAttributeUnion>(net.fm);
  uni->m_In1->setData(column<TIntegerAttributeData, int32_t>("n", {{1, 1}, {2, 2}}));
  uni->m_In2->setData(column<TFloatAttributeData, float>("f", {{2, 2.5f}}));
  net.pass();
  auto merged = dataAs<TFloatAttributeData>(uni->m_Out);
  ASSERT_TRUE(merged) << "int and float give a float column";
  EXPECT_EQ(merged->m_KeyName, "n");
  EXPECT_EQ(valueOf(*merged, 2), 2.5f) << "in2 wins";
  auto text = column<TStringAttributeData, std::string>("s", {{1, "x"}});
  uni->m_In1->setData(text);
  uni->m_In2->setData(nullptr);
  net.pass();
  EXPECT_EQ(uni->m_Out->getData(), text);
  uni->m_In2->setData(column<TStringAttributeData, std::string>("t", {{1, "y"}}));
  net.fm->stage1();
  EXPECT_EQ(errorOf([&] { net.fm->stage2(); }), " TAttributeUnion::process(): Unsupported types");
  uni->m_In2->setData(column<TIntegerAttributeData, int32_t>("i", {{1, 1}}));
  net.fm->stage1();
  EXPECT_EQ(errorOf([&] { net.fm->stage2(); }), "copyFrom(): cannot convert type");
}
