#include <gtest/gtest.h>

#include "support/TestHelpers.h"

#include <cfloat>
#include <map>
#include <random>

#include "data/MAttributes.h"

using namespace quorvel;
using quorvel::test::errorOf;

namespace {


template <class T>
std::shared_ptr<T> roundTrip(const T& column) {
  auto copy = std::make_shared<T>(column.m_KeyName);
  copy->unstringify(column.stringify());
  return copy;
}

}  // namespace

TEST(Attributes, MissingValuesAreReportedNotEncoded) {
  TIntegerAttributeData ints("n");
  bool found = true;
  EXPECT_EQ(ints.getValueById(3, found), 0);
  EXPECT_FALSE(found);
  ints.addRow(3, 0);
  EXPECT_EQ(ints.getValueById(3, found), 0);
  EXPECT_TRUE(found);
  TStringAttributeData texts("s");
  EXPECT_EQ(texts.getValueById(1, found), "");
  EXPECT_FALSE(found);
  EXPECT_EQ(texts.getTextValueById(1, found), "");
  EXPECT_FALSE(found);
  TBoolAttributeData bools("b");
  EXPECT_FALSE(bools.getValueById(1, found));
  EXPECT_FALSE(found);
  EXPECT_FALSE(bools.hasValueById(1));
  EXPECT_EQ(errorOf([&] { bools.getFloatValueById(1, found); }),
            "getFloatValueById() not implemented for this class");
}

TEST(Attributes, SortingPutsMissingFirstAscendingAndLastDescending) {
  TFloatAttributeData f("f");
  f.addRow(1, 5.0f);
  f.addRow(3, 1.0f);
  f.addRow(4, 5.0f);
  std::vector<uint32_t> ids{1, 2, 3, 4};
  f.stable_sort(ids, true);
  EXPECT_EQ(ids, (std::vector<uint32_t>{2, 3, 1, 4}));
  ids = {4, 1, 2, 3};
  f.stable_sort(ids, false);
  EXPECT_EQ(ids, (std::vector<uint32_t>{4, 1, 3, 2})) << "stable: 4 before 1 as given";
  ids = {1, 2, 3, 4};
  f.sort(ids, false);
  EXPECT_EQ(ids.back(), 2u);

  TStringAttributeData s("s");
  s.addRow(1, "b");
  s.addRow(2, "B");
  s.addRow(3, "a");
  ids = {1, 2, 3, 9};
  s.stable_sort(ids, true);
  EXPECT_EQ(ids, (std::vector<uint32_t>{9, 2, 3, 1})) << "bytes: upper case first";

  // NaN stays orderable.
  f.addRow(5, std::numeric_limits<float>::quiet_NaN());
  ids = {5, 1, 3, 2};
  f.stable_sort(ids, true);
  EXPECT_EQ(ids, (std::vector<uint32_t>{2, 3, 1, 5}));
}

TEST(Attributes, VariantColumnsDecideTheirType) {
  auto make = [](std::initializer_list<int> kinds) {
    auto v = std::make_shared<TVariantAttributeData>("k");
    uint32_t id = 1;
    for (int k : kinds) {
      if (k == 0) v->addInt(id, static_cast<int32_t>(id));
      if (k == 1) v->addFloat(id, 2.5f);
      if (k == 2) v->addText(id, "x");
      ++id;
    }
    return v->convertToSpecific();
  };
  EXPECT_EQ(make({0, 1, 2})->getAttributeType(), "string");
  EXPECT_EQ(make({0, 1})->getAttributeType(), "float");
  EXPECT_EQ(make({0, 0})->getAttributeType(), "int");
  EXPECT_EQ(make({}), nullptr);

  TVariantAttributeData mixed("size");
  mixed.addInt(1, 1);
  mixed.addInt(2, 2);
  mixed.addText(3, "n/a");
  mixed.addFloat(4, 0.5f);
  auto column = std::dynamic_pointer_cast<TStringAttributeData>(mixed.convertToSpecific());
  ASSERT_TRUE(column);
  EXPECT_EQ(column->m_KeyName, "size");
  bool found = false;
  EXPECT_EQ(column->getValueById(1, found), "1");
  EXPECT_EQ(column->getValueById(3, found), "n/a");
  EXPECT_EQ(column->getValueById(4, found), "0.5");
  EXPECT_EQ(mixed.getTextCounts().at("n/a"), 1u);
  EXPECT_EQ(mixed.m_Minimum, 0.5f);
  EXPECT_EQ(mixed.m_Maximum, 2.0f);
  EXPECT_TRUE(mixed.hasValueById(4));

  // A column of texts only keeps the loaded texts; a change copies them.
  TVariantAttributeData texts("name");
  texts.addText(7, "beta");
  texts.addText(3, "alpha");
  texts.addText(7, "gamma");
  auto decided = std::dynamic_pointer_cast<TStringAttributeData>(texts.convertToSpecific());
  ASSERT_TRUE(decided);
  EXPECT_EQ(decided->getValueById(7, found), "gamma") << "the last row of an id wins";
  EXPECT_EQ(decided->getMinimumValue(), "alpha");
  EXPECT_EQ(decided->getMaximumValue(), "gamma");
  decided->setValueById(3, "al");
  decided->addRow(9, "delta");
  EXPECT_EQ(decided->getValueById(3, found), "al");
  EXPECT_EQ(texts.getTextValueById(3, found), "alpha") << "the loaded column is untouched";
}

TEST(Attributes, ExtremesFollowAddRowButNotOverwrites) {
  TFloatAttributeData f("f");
  EXPECT_GT(f.getMinimumValue(), f.getMaximumValue()) << "an empty column";
  EXPECT_EQ(f.getMinimumValue(), FLT_MAX);
  TIntegerAttributeData i("i");
  EXPECT_EQ(i.getMinimumValue(), 2147483647);
  EXPECT_EQ(i.getMaximumValue(), -2147483647);
  i.addRow(1, 5);
  i.m_HasChanged = false;
  i.setValueById(1, 100);
  EXPECT_TRUE(i.m_HasChanged);
  EXPECT_EQ(i.getMaximumValue(), 5) << "an overwrite leaves the extremes";
  i.setValueById(2, 100);
  EXPECT_EQ(i.getMaximumValue(), 100) << "a new id moves them";
  // A second row of an id: the index answers with the newer one, counts
  // see both.
  i.addRow(1, 7);
  bool found = false;
  EXPECT_EQ(i.getValueById(1, found), 7);
  EXPECT_EQ(i.getRowCount(), 3u);
  EXPECT_EQ(i.getIdsWhereValueIs(100), (std::vector<uint32_t>{1, 2}));
  EXPECT_EQ(i.getUniqueValues()->at(100), 1u) << "the first row holding the value";
}

TEST(Attributes, CopyRulesBetweenTypes) {
  TStringAttributeData s("s");
  s.addRow(1, "x");
  TFloatAttributeData f("f");
  f.addRow(1, 0.1f);
  f.addRow(2, -2.7f);
  EXPECT_EQ(errorOf([&] { f.copyFrom(s); }), "copyFrom(): cannot convert type");
  EXPECT_EQ(errorOf([&] { f.copyValueFrom(s, 1); }), "copyValueFrom(): cannot convert type");
  EXPECT_EQ(f.getRowCount(), 2u);

  TStringAttributeData target("t");
  target.copyValueFrom(f, 1);
  target.copyValueFrom(f, 99);
  bool found = false;
  EXPECT_EQ(target.getValueById(1, found), "0.100000001");
  EXPECT_EQ(target.getRowCount(), 1u);
  EXPECT_EQ(errorOf([&] { target.copyFrom(f); }), "copyFrom(): cannot convert type");

  TIntegerAttributeData ints("i");
  ints.addRow(5, 9);
  ints.copyFrom(f);
  EXPECT_EQ(ints.getValueById(2, found), -2) << "truncated toward zero";
  EXPECT_EQ(ints.getValueById(5, found), 9) << "rows the source lacks stay";
  TFloatAttributeData back("b");
  back.copyFrom(ints);
  EXPECT_EQ(back.getValueById(5, found), 9.0f);

  TBoolAttributeData bools("b");
  EXPECT_EQ(errorOf([&] { bools.copyFrom(ints); }), "copyFrom() not implemented");
  EXPECT_EQ(errorOf([&] { bools.copyValueFrom(ints, 1); }), "copyValueFrom() not implemented");
}

TEST(Attributes, TextFormsRoundTrip) {
  TStringAttributeData s("s");
  s.addRow(3, "with blank");
  s.addRow(1, "two\nlines ");
  s.addRow(2, "");
  EXPECT_EQ(s.stringify(), " 3 10 with blank  1 10 two\nlines   2 0  ");
  auto sc = roundTrip(s);
  EXPECT_TRUE(sc->sameRows(s));
  EXPECT_FALSE(sc->m_HasChanged);
  EXPECT_EQ(sc->getMinimumValue(), "");
  EXPECT_EQ(sc->getMaximumValue(), "with blank");

  TFloatAttributeData f("f");
  f.addRow(1, 0.1f);
  f.addRow(2, -1.0f);
  EXPECT_EQ(f.stringify(), " 1 0.1 2 -1");
  auto fc = roundTrip(f);
  EXPECT_EQ(fc->getMinimumValue(), -1.0f);
  bool found = false;
  EXPECT_EQ(fc->getValueById(1, found), 0.1f);
  EXPECT_EQ(f.toString(), "#items: 2\n1 0.100000001\n2 -1\n");

  TBoolAttributeData b("b");
  b.addRow(4, true);
  b.addRow(5, false);
  EXPECT_EQ(b.stringify(), " 4 1 5 0");
  EXPECT_TRUE(roundTrip(b)->sameRows(b));

  // A bad token ends the reading and keeps what was read.
  TIntegerAttributeData i("i");
  i.unstringify(" 1 10 2 x 3 30");
  EXPECT_EQ(i.getRowCount(), 1u);
  EXPECT_EQ(i.getValueById(1, found), 10);
}

TEST(Attributes, CloneScriptTextsAndBoolOperations) {
  TBoolAttributeData b("collapsed");
  for (uint32_t id = 0; id < 5; ++id) b.addRow(id, id % 2 == 0);
  EXPECT_EQ(b.countValues(true), 3u);
  auto c = b.clone();
  EXPECT_EQ(c->m_DataId, b.m_DataId);
  EXPECT_EQ(c->m_HasChanged, b.m_HasChanged);
  EXPECT_EQ(c->m_KeyName, "collapsed");
  c->setValueById(1, true);
  bool found = false;
  EXPECT_FALSE(b.getValueById(1, found)) << "the clone is a copy";
  c->setAllValues(false);
  EXPECT_EQ(c->countValues(false), 5u);
  EXPECT_NE(b.createEmptyLike()->m_DataId, b.m_DataId);

  EXPECT_EQ(b.getStringValueById(0, found), "True");
  EXPECT_EQ(b.getTextValueById(0, found), "1");
  TFloatAttributeData f("f");
  f.addRow(1, 0.1f);
  f.addRow(2, 2.5f);
  EXPECT_EQ(f.getStringValueById(1, found), "0.10000000149011612");
  EXPECT_EQ(f.getStringValueById(2, found), "2.5");
  EXPECT_EQ(f.getTextValueById(2, found), "2.5");
}

namespace {

// The rank of each row's text among the column's distinct texts, the slow
// and obvious way.
std::vector<uint32_t> ranksByMap(const TStringAttributeData& c) {
  std::map<std::string, uint32_t> ranks;
  for (size_t r = 0; r < c.getRowCount(); ++r) ranks[std::string(c.viewByRow(r))] = 0;
  uint32_t next = 0;
  for (auto& [text, rank] : ranks) rank = next++;
  std::vector<uint32_t> out;
  for (size_t r = 0; r < c.getRowCount(); ++r) out.push_back(ranks[std::string(c.viewByRow(r))]);
  return out;
}

}  // namespace

// Columns drawn from another column's texts rank them through its order; the
// ranks must be those of their own distinct texts, whatever the order holds
// besides, and also when the order does not hold a text or is out of date.
TEST(Attributes, TextRanksThroughTheOriginsOrder) {
  std::mt19937 rng(7);
  for (int round = 0; round < 20; ++round) {
    auto captions = std::make_shared<TStringAttributeData>("caption");
    const char* words[] = {"", "a", "ab", "b", "ba", "abc", "zz", "a b"};
    // Mostly distinct captions keep the ranks their own ranking made, and
    // the order drawn columns rank through is made from them.
    const bool distinctCaptions = round % 3 == 0;
    for (uint32_t id = 0; id < 200; ++id)
      captions->addRow(id, words[rng() % 8] + std::to_string(distinctCaptions ? id : rng() % 5));
    captions->addRow(200, "");
    uint32_t distinct = 0;
    if (round % 2 == 0) {
      EXPECT_EQ(captions->textRanks(distinct), ranksByMap(*captions));
    }
    auto drawn = std::make_shared<TStringAttributeData>("from node");
    drawn->drawTextsFrom(captions);
    // Fewer rows than the origin's 201 are ranked alone, more through the
    // origin's order.
    const size_t rows = round == 5 ? 0 : 100 + rng() % 300;
    for (size_t i = 0; i < rows; ++i)
      drawn->m_Rows.push_back({static_cast<uint32_t>(i), captions->m_Rows[rng() % 60].value});
    if (round % 4 == 1 && !drawn->m_Rows.empty()) {
      // A row that points into a text: no text of the order.
      auto& s = drawn->m_Rows.back().value;
      if (s.length > 0) ++s.offset, --s.length;
    }
    drawn->finishRows();
    if (round % 4 == 2) captions->setValueById(3, "a changed caption");  // the origin lets the texts go
    EXPECT_EQ(drawn->textRanks(distinct), ranksByMap(*drawn)) << "round " << round;
    const auto expected = ranksByMap(*drawn);
    EXPECT_EQ(distinct, expected.empty() ? 0 : *std::max_element(expected.begin(), expected.end()) + 1);
    EXPECT_EQ(captions->textRanks(distinct), ranksByMap(*captions));
  }
}
