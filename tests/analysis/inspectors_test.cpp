#include <gtest/gtest.h>

#include "analysis/MInspectors.h"
#include "support/TestProcessors.h"

using namespace quorvel;
using namespace quorvel::test;

namespace {

std::shared_ptr<TStringAttributeData> texts(const std::string& key, std::vector<std::pair<uint32_t, std::string>> rows) {
  auto a = std::make_shared<TStringAttributeData>(key);
  for (auto& [id, v] : rows) a->addRow(id, v);
  return a;
}

std::shared_ptr<TFloatAttributeData> floats(const std::string& key, std::vector<std::pair<uint32_t, float>> rows) {
  auto a = std::make_shared<TFloatAttributeData>(key);
  for (auto& [id, v] : rows) a->addRow(id, v);
  return a;
}

TAttributeDataArray arrayOf(std::initializer_list<TDataPtr> items) {
  TAttributeDataArray a;
  for (const auto& i : items) a.m_Items.push_back(i);
  return a;
}

}  // namespace

TEST(Tooltips, OneIdGivesAtMostFiveLinesWithAggregatedAndMissingValues) {
  TAttributeDataArray attrs;
  for (int k = 0; k < 8; ++k) attrs.m_Items.push_back(floats("a" + std::to_string(k), {{1, float(k)}}));
  const std::string eight = makeText("node", TIdSet{1}, attrs, nullptr);
  EXPECT_EQ(std::count(eight.begin(), eight.end(), '\n'), 5);
  EXPECT_EQ(eight.substr(0, 7), "a0: 0\na");

  // A folded node: its own value absent, the aggregated one marked without
  // a space; an attribute with no value at all reads "None".
  auto lines = floats("lines", {{2, 3.0f}});
  auto aggregated = floats("lines", {{1, 42.0f}});
  auto name = texts("name", {{1, "core"}});
  auto empty = texts("owner", {});
  TAttributeDataArray agg = arrayOf({aggregated});
  EXPECT_EQ(makeText("node", TIdSet{1}, arrayOf({name, lines, empty}), &agg),
            "name: core\nlines: 42(aggregated)\nowner: None\n");
  EXPECT_EQ(makeText("node", TIdSet{2}, arrayOf({lines}), &agg), "lines: 3\n")
      << "an aggregated column without the id falls back to the attribute";
  EXPECT_EQ(makeText("node", TIdSet{}, arrayOf({lines}), &agg), "");
}

TEST(Tooltips, ASummaryCountsOnlyIdsWithValuesAndShowsElevenTexts) {
  // Twelve kinds, kind k held by k+1 ids; id 0 has no kind.
  auto kind = std::make_shared<TStringAttributeData>("kind");
  auto size = std::make_shared<TFloatAttributeData>("size");
  TIdSet ids;
  uint32_t id = 1;
  for (int k = 0; k < 12; ++k)
    for (int n = 0; n <= k; ++n, ++id) {
      kind->addRow(id, "k" + std::to_string(k));
      ids.insert(id);
    }
  ids.insert(0);
  size->addRow(3, 1.5f);
  size->addRow(5, -2.25f);
  auto none = texts("owner", {});
  auto flags = std::make_shared<TBoolAttributeData>("flag");
  flags->addRow(1, true);
  flags->addRow(2, false);

  const auto summary = computeAggregation(arrayOf({kind, size, none, flags}), ids);
  ASSERT_EQ(summary.size(), 4u);
  EXPECT_EQ(summary[0].hascount, 78u);
  EXPECT_EQ(summary[0].hasnotcount, 1u);
  EXPECT_EQ(summary[0].strings.size(), 12u);
  EXPECT_EQ(summary[1].hascount, 2u);
  EXPECT_FLOAT_EQ(summary[1].min, -2.25f);
  EXPECT_FLOAT_EQ(summary[1].max, 1.5f);
  EXPECT_EQ(summary[3].hascount, 2u) << "truth values count as numbers";

  const std::string text = makeText("edge", ids, arrayOf({kind, size, none, flags}), nullptr);
  std::string expected = "Brushing 79 edges\nkind (78): ";
  for (int k = 11; k >= 1; --k) expected += "k" + std::to_string(k) + " (" + std::to_string(k + 1) + "), ";
  expected += "\nsize (2): min: -2.25, max: 1.50\nowner (0): <none>\nflag (2): min: 0.00, max: 1.00\n";
  EXPECT_EQ(text, expected) << "k0, the rarest, is the twelfth and left out";
}

TEST(Tooltips, TheGeneratorRunsOnChangesAndTheInspectorListsEveryAttribute) {
  Net net;
  auto gen = net.add<TTooltipTextGenerator>(net.fm);
  auto attrs = std::make_shared<TAttributeDataArray>();
  attrs->m_Items = {texts("name", {{1, "a"}, {2, "b"}}), floats("size", {{2, 4.0f}})};
  gen->m_Attributes->setData(attrs);
  auto brushed = std::make_shared<TIntegerSetData>();
  brushed->m_Set = TIdSet{1, 2};
  gen->m_Selection->setData(brushed);
  net.settle();
  EXPECT_EQ(dataAs<TStringData>(gen->m_TextOut)->getValue(),
            "Brushing 2 nodes\nname (2): a (1), b (1), \nsize (1): min: 4.00, max: 4.00\n");
  EXPECT_EQ(gen->computeAggregation().size(), 2u);

  EXPECT_EQ(inspectorLines(TIdSet{1}, *attrs),
            (std::vector<std::pair<std::string, std::string>>{{"name", "a"}, {"size", "<none>"}}));
  EXPECT_TRUE(inspectorLines(TIdSet{}, *attrs).empty()) << "nothing brushed: the panel keeps its lines";
}

TEST(Legend, TextsUpToFiftyAndTenFractionsOfANumbersSpan) {
  auto map = publishedColorMaps();
  ASSERT_FALSE(map.empty());
  std::shared_ptr<TColorMapData> rainbow;
  for (auto& m : map)
    if (!m->acceptsNominalValues()) rainbow = m;
  ASSERT_TRUE(rainbow);
  auto many = std::make_shared<TStringAttributeData>("kind");
  for (uint32_t i = 0; i < 60; ++i) many->addRow(i, "v" + std::to_string(100 + i));
  auto ord = std::make_shared<TFloatAttributeData>("kind");
  for (uint32_t i = 0; i < 60; ++i) ord->addRow(i, static_cast<float>(i) / 59.0f);
  const auto lines = legendEntries(many.get(), ord.get(), rainbow.get());
  ASSERT_EQ(lines.size(), 50u);
  TVector4 first;
  rainbow->getColor(0.0f, first);
  EXPECT_EQ(lines[0].text, "v100");
  EXPECT_FLOAT_EQ(lines[0].color.x, first.x) << "the colour of the text's numeric form";
  EXPECT_TRUE(legendEntries(many.get(), ord.get(), nullptr).empty());

  auto size = floats("size", {{1, 10.0f}, {2, 30.0f}});
  const auto tenths = legendEntries(size.get(), nullptr, rainbow.get());
  ASSERT_EQ(tenths.size(), 10u);
  EXPECT_EQ(tenths[0].text, "0");
  EXPECT_EQ(tenths[5].text, "10") << "the fraction times the span, the minimum not added";
}

TEST(Tooltips, TextsDrawnFromAnotherColumnAreCountedThroughItsOrder) {
  // End captions of edges share the node captions' texts, as the edge
  // columns of a dataset do.
  auto captions = std::make_shared<TStringAttributeData>("name");
  for (uint32_t nid = 1; nid <= 30; ++nid) captions->addRow(nid, nid % 3 ? "lib" : "app");
  auto from = std::make_shared<TStringAttributeData>("from node");
  from->drawTextsFrom(captions);
  TIdSet eids;
  for (uint32_t eid = 1; eid <= 40; ++eid) {
    from->m_Rows.push_back({eid, *captions->findStored(1 + eid % 30)});
    eids.insert(eid);
  }
  from->finishRows();
  ASSERT_TRUE(from->store().order(from->getRowCount())) << "the case this test is for";
  eids.insert(99);  // an edge without a row
  const auto summary = computeAggregation(arrayOf({from}), eids);
  ASSERT_EQ(summary.size(), 1u);
  EXPECT_EQ(summary[0].hascount, 40u);
  EXPECT_EQ(summary[0].hasnotcount, 1u);
  std::map<std::string, size_t> counts(summary[0].strings.begin(), summary[0].strings.end());
  size_t app = 0;
  for (uint32_t eid = 1; eid <= 40; ++eid) app += (1 + eid % 30) % 3 == 0;
  EXPECT_EQ(counts, (std::map<std::string, size_t>{{"app", app}, {"lib", 40 - app}}));
}
