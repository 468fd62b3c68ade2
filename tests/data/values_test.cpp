#include <gtest/gtest.h>

#include "support/TestHelpers.h"
#include <pybind11/embed.h>

#include "base/MTextForm.h"
#include "data/MValues.h"
#include "engine/MRegistry.h"

namespace py = pybind11;
using namespace quorvel;
using quorvel::test::errorOf;

namespace {

template <class T>
std::shared_ptr<T> roundTrip(const T& value) {
  auto copy = std::make_shared<T>();
  copy->unstringify(value.stringify());
  return copy;
}


const std::string kBadCast = "bad lexical cast: source type value could not be interpreted as target";

}  // namespace

TEST(Values, ScalarTextForms) {
  EXPECT_EQ(TIntegerData(-42).stringify(), "-42");
  EXPECT_EQ(roundTrip(TIntegerData(2147483647))->getValue(), 2147483647);
  EXPECT_EQ(TFloatData(0.1f).stringify(), "0.100000001");
  EXPECT_EQ(roundTrip(TFloatData(0.1f))->getValue(), 0.1f);
  EXPECT_EQ(TFloatData(1e-7f).toString(), "1.00000001e-07");
  EXPECT_EQ(TBooleanData(true).stringify(), "1");
  EXPECT_EQ(roundTrip(TBooleanData(true))->getValue(), true);
  EXPECT_EQ(TFloatPairData(0.1f, -2.5f).stringify(), "0.1 -2.5");
  auto pair = roundTrip(TFloatPairData(0.1f, 3.0f));
  EXPECT_EQ(pair->getFirst(), 0.1f);
  EXPECT_EQ(pair->getSecond(), 3.0f);
  EXPECT_FALSE(pair->m_HasChanged) << "a pair does not flag on reading";
  EXPECT_EQ(roundTrip(TStringData(" a b\nc "))->getValue(), " a b\nc ");
  EXPECT_EQ(TStringData("k").getKeyName(), "k");
}

TEST(Values, MalformedNumbersRaiseAndKeepTheValue) {
  TIntegerData i(7);
  for (const char* bad : {"12x", " 12", "12 ", "", "1.5", "99999999999"}) {
    EXPECT_EQ(errorOf([&] { i.unstringify(bad); }), kBadCast) << bad;
    EXPECT_EQ(i.getValue(), 7);
    EXPECT_FALSE(i.m_HasChanged);
  }
  i.unstringify("+12");
  EXPECT_EQ(i.getValue(), 12);
  EXPECT_TRUE(i.m_HasChanged);
  TFloatData f(1.0f);
  for (const char* bad : {"abc", "1.5x", " 1", "0x10", ""}) EXPECT_EQ(errorOf([&] { f.unstringify(bad); }), kBadCast);
  EXPECT_EQ(f.getValue(), 1.0f);
  TBooleanData b(true);
  for (const char* bad : {"2", "true", "", "01"}) EXPECT_EQ(errorOf([&] { b.unstringify(bad); }), kBadCast);
  EXPECT_TRUE(b.getValue());
}

TEST(Values, StringListReadsItemsByLength) {
  TStringListData list;
  list.add("ab");
  list.add("cde");
  EXPECT_EQ(list.stringify(), " 2 ab 3 cde");
  list.add("with blank");
  list.add("two\nlines");
  list.add("");
  list.add("12");
  auto copy = roundTrip(list);
  EXPECT_EQ(copy->m_List, list.m_List);
  EXPECT_TRUE(copy->m_HasChanged);
  EXPECT_EQ(TStringListData().stringify(), "");

  TStringListData edits;
  for (const char* s : {"a", "b", "a", "c"}) edits.add(s);
  edits.m_HasChanged = false;
  edits.removeByValue("zz");
  EXPECT_TRUE(edits.m_HasChanged) << "set also when nothing was removed";
  edits.removeByValue("a");
  EXPECT_EQ(edits.m_List, (std::vector<std::string>{"b", "c"}));
  edits.m_HasChanged = false;
  edits.moveRelative(0, -1);
  EXPECT_FALSE(edits.m_HasChanged);
  edits.moveRelative(0, 1);
  EXPECT_EQ(edits.m_List, (std::vector<std::string>{"c", "b"}));
  edits.moveRelative(1, 5);
  EXPECT_EQ(edits.m_List, (std::vector<std::string>{"c", "b"}));
}

TEST(Values, IntegerSetChangeRulesAndTextForms) {
  TIntegerSetData s("sel");
  s.add(5);
  EXPECT_TRUE(s.m_HasChanged);
  s.m_HasChanged = false;
  s.add(5);
  s.remove(99);
  EXPECT_FALSE(s.m_HasChanged);
  s.setSingle(5);
  EXPECT_FALSE(s.m_HasChanged) << "already the only member";
  s.add(7);
  s.m_HasChanged = false;
  s.setSingle(5);
  EXPECT_TRUE(s.m_HasChanged);
  s.clear();
  s.m_HasChanged = false;
  s.clear();
  EXPECT_FALSE(s.m_HasChanged) << "clear on an empty set";

  TIntegerSetData big;
  for (uint32_t id = 100; id > 0; --id) big.add(id);
  EXPECT_EQ(big.stringify().substr(0, 6), "1 2 3 ");
  EXPECT_EQ(big.stringify().back(), ' ');
  auto copy = roundTrip(big);
  EXPECT_EQ(copy->m_Set, big.m_Set);
  EXPECT_FALSE(copy->m_HasChanged);
  const std::string text = big.toString();
  EXPECT_EQ(text.rfind("#items: 100\n1,2,", 0), 0u);
  EXPECT_NE(text.find(",51,\n"), std::string::npos) << "51 ids, then the line end";
  EXPECT_EQ(text.find(",52,"), std::string::npos);

  // Empty text leaves the content; a bad token ends the reading.
  TIntegerSetData keep;
  keep.add(3);
  keep.unstringify("");
  EXPECT_EQ(keep.getCount(), 1u);
  TIntegerSetData emptyCopy;
  emptyCopy.unstringify(TIntegerSetData().stringify());
  EXPECT_EQ(emptyCopy.getCount(), 0u);
  keep.unstringify("4 8 x 9");
  EXPECT_EQ(keep.m_Set, (TIdSet{4, 8}));

  TIntegerSetData all;
  all.m_ContainsAll = true;
  EXPECT_TRUE(all.contains(123456));
  EXPECT_EQ(all.getCount(), 0u);
  EXPECT_EQ(all.toString(), "special: contains all\n");
}

TEST(Values, IdSetKeepsOrderWithOutOfOrderInserts) {
  TIdSet s;
  std::set<uint32_t> reference;
  uint32_t x = 12345;
  for (int i = 0; i < 20000; ++i) {
    x = x * 1103515245u + 12345u;
    const uint32_t id = x % 50000;
    EXPECT_EQ(s.insert(id), reference.insert(id).second);
    if (i % 7 == 0) {
      const uint32_t gone = (x >> 8) % 50000;
      EXPECT_EQ(s.erase(gone), reference.erase(gone) == 1);
    }
  }
  EXPECT_EQ(s.size(), reference.size());
  EXPECT_TRUE(std::equal(s.begin(), s.end(), reference.begin(), reference.end()));
  EXPECT_TRUE(s.contains(*reference.begin()));

  // Membership read as bits answers as the set does: dense ids, ids too
  // sparse for bits, "contains all", and the empty set.
  TIntegerSetData dense;
  for (uint32_t id : reference) dense.add(id);
  TIntegerSetData sparse;
  for (uint32_t id : {7u, 4000000000u, 4294967295u}) sparse.add(id);
  TIntegerSetData all;
  all.m_ContainsAll = true;
  const TIntegerSetData none;
  for (const TIntegerSetData* set : std::initializer_list<const TIntegerSetData*>{&dense, &sparse, &all, &none}) {
    const TIdSetBits bits(*set);
    for (uint32_t id : {0u, 7u, 63u, 64u, 49999u, 50000u, 4000000000u, 4294967295u, *reference.begin(), *reference.rbegin()})
      EXPECT_EQ(bits.contains(id), set->contains(id)) << id;
  }
}

TEST(Values, MapAndPairSet) {
  TMapStringToIntegerData map;
  bool found = true;
  EXPECT_EQ(map.get("x", found), 0);
  EXPECT_FALSE(found);
  map.put("x", 0);
  EXPECT_EQ(map.get("x", found), 0);
  EXPECT_TRUE(found);
  EXPECT_FALSE(map.m_HasChanged) << "put does not flag";

  TIntegerPairSetData pairs;
  pairs.addPair(1, 2);
  pairs.addPair(2, 1);
  EXPECT_EQ(pairs.m_Set.size(), 2u) << "(a, b) and (b, a) differ";
  pairs.m_HasChanged = false;
  pairs.addPair(1, 2);
  pairs.remove(5, 5);
  EXPECT_FALSE(pairs.m_HasChanged);
  EXPECT_EQ(pairs.toString(), "#items: 2\n1,2\n2,1\n");
  EXPECT_EQ(errorOf([&] { pairs.stringify(); }), "stringify() not implemented");
  EXPECT_EQ(errorOf([&] { map.unstringify(""); }), "unstringify() not implemented");
}

TEST(Values, ArraysLookupsAndTextForms) {
  TDataArray arr;
  auto first = std::make_shared<TIntegerData>(1);
  first->m_KeyName = "k";
  auto second = std::make_shared<TIntegerData>(2);
  second->m_KeyName = "k";
  arr.add(first);
  arr.add(second);
  EXPECT_TRUE(arr.m_HasChanged);
  EXPECT_EQ(arr.getItemCount(), 2u);
  bool found = false;
  EXPECT_EQ(arr.getItemByKey("k", found), first);
  EXPECT_TRUE(found);
  EXPECT_EQ(arr.getItemByIndex(arr.getItemCount(), found), nullptr);
  EXPECT_FALSE(found);
  EXPECT_EQ(arr.getIndexByKey("k"), 0u);
  EXPECT_EQ(errorOf([&] { arr.getIndexByKey("none"); }), "Key not found");
  EXPECT_EQ(arr.toString(), "Array contains 2 items:\nk,k,\n");
  EXPECT_TRUE(arr.isArray());
  EXPECT_FALSE(first->isArray());
  EXPECT_EQ(TFloatDataArray().getItemTypeName(), "TFloatDataArray");
  EXPECT_EQ(THierarchyDataArray().getItemTypeName(), "THierarchyData");

  TStringDataArray texts;
  for (const char* s : {"node attributes", "b", "c\\d"}) texts.add(std::make_shared<TStringData>(s));
  EXPECT_EQ(texts.stringify(), "node\\attributes b c\\d ");
  auto copy = roundTrip(texts);
  ASSERT_EQ(copy->getItemCount(), 3u);
  EXPECT_TRUE(copy->getItemByKey("node attributes", found));
  EXPECT_EQ(copy->itemAs<TStringData>(2)->getValue(), "c d") << "a backslash comes back as a blank";

  TFloatDataArray floats;
  floats.add(std::make_shared<TFloatData>(0.1f));
  floats.add(std::make_shared<TFloatData>(2.0f));
  EXPECT_EQ(floats.stringify(), "0.1 2 ");
  EXPECT_EQ(roundTrip(floats)->getItemCount(), 2u);
  EXPECT_EQ(errorOf([&] { TIntegerSetDataArray().stringify(); }), "stringify() not implemented");
}

TEST(Values, ScriptObjectsThroughReprAndEval) {
  TPythonData d(TPyRef::steal(py::eval("{'pass': 2, 'values': {'a': True}, 'v': TVector2(1.5, 2)}").release().ptr()));
  const std::string text = d.stringify();
  EXPECT_NE(text.find("'pass': 2"), std::string::npos);
  TPythonData copy;
  copy.unstringify(text);
  EXPECT_FALSE(copy.m_HasChanged);
  py::dict back = py::reinterpret_borrow<py::dict>(copy.getValue().get());
  EXPECT_EQ(back["pass"].cast<int>(), 2);
  EXPECT_EQ(back["v"].attr("x").cast<float>(), 1.5f);
  EXPECT_EQ(TPythonData().toString(), "None");
  EXPECT_EQ(TPythonData().stringify(), "None");
  // A malformed text raises the interpreter's exception and keeps the object.
  EXPECT_THROW(copy.unstringify("{'unclosed"), py::error_already_set);
  EXPECT_TRUE(py::isinstance<py::dict>(py::handle(copy.getValue().get())));
}

TEST(Values, ScalarChangeFlagAndIds) {
  TIntegerData a(3);
  EXPECT_FALSE(a.m_HasChanged);
  a.setValue(3);
  EXPECT_TRUE(a.m_HasChanged) << "also with the same value";
  TIntegerData b;
  EXPECT_GT(b.m_DataId, a.m_DataId);
  EXPECT_EQ(b.getKeyName(), "<no keyname>");
  EXPECT_EQ(TProcessorData(nullptr, "p").toString(),
            "<TAbstractData::toString(): needs implementation in derived class>");
  EXPECT_TRUE(TDataRegistry::instance().isSubclass("TStringDataArray", "TAbstractData"));
  EXPECT_FALSE(TDataRegistry::instance().isSubclass("TAbstractData", "TStringData"));
  auto made = TDataRegistry::instance().create("TIntegerSetData");
  ASSERT_TRUE(made);
  EXPECT_EQ(made->getClassName(), "TIntegerSetData");
}

TEST(TextForms, ScriptFloatsMatchTheInterpreter) {
  for (double v : {0.1, 1.0, 2.5, 1e16, 1e15, 0.0001, 0.00001, -3.25, 123456789.0, 1e-300, 5e-324,
                   static_cast<double>(0.1f), 0.0}) {
    EXPECT_EQ(formatScriptFloat(v), py::str(py::float_(v)).cast<std::string>()) << v;
  }
}
