#include <gtest/gtest.h>

#include "data/MDataSources.h"
#include "support/TestProcessors.h"

using namespace quorvel;
using namespace quorvel::test;

TEST(Sources, DefaultsAndEnsureDataExists) {
  Net net;
  auto i = net.add<TIntDataSource>(net.fm);
  EXPECT_EQ(i->getData(), nullptr);
  i->ensureDataExists();
  auto value = std::dynamic_pointer_cast<TIntegerData>(i->getData());
  ASSERT_TRUE(value);
  EXPECT_EQ(value->getValue(), 0);
  i->ensureDataExists();
  EXPECT_EQ(i->getData(), value) << "a second call leaves the value alone";
  EXPECT_TRUE(i->m_OutputPin->m_DataReplaced);

  auto set = net.add<TIntegerSetDataSource>(net.fm);
  auto s = std::dynamic_pointer_cast<TIntegerSetData>(set->getData());
  ASSERT_TRUE(s) << "a set source has a value at once";
  EXPECT_EQ(s->getCount(), 0u);
  EXPECT_EQ(s->m_KeyName, "<noname>");

  for (TProcessorPtr p : {TProcessorPtr(net.add<TBoolAttributeDataSource>(net.fm)), TProcessorPtr(set),
                          TProcessorPtr(net.add<TAbstractIdentityProcessor>(net.fm))}) {
    auto src = std::static_pointer_cast<TAbstractDataSource>(p);
    try {
      src->ensureDataExists();
      FAIL() << p->getClassName();
    } catch (const TFlowError& e) {
      EXPECT_STREQ(e.what(), "ensureDataExists() not implemented for this class");
    }
  }
  EXPECT_EQ(net.add<TAbstractIdentityProcessor>(net.fm)->getTypeName(), "i");
  EXPECT_EQ(i->getTypeName(), "i");
  EXPECT_EQ(net.add<TFloatPairDataSource>(net.fm)->getTypeName(), "f pair");
  EXPECT_TRUE(i->isDataSource());
  EXPECT_FALSE(i->isIdentity());
}

TEST(Sources, IdentityPortsKeepTheirNamesAndPassValues) {
  Net net;
  auto box = net.box(net.fm);
  auto port = net.add<TAbstractIdentityProcessor>(box);
  port->getOnlyInputPin()->m_Name = "x";
  auto names = std::dynamic_pointer_cast<TStringData>(port->getData());
  ASSERT_TRUE(names);
  EXPECT_EQ(names->getValue(), "x|out");
  EXPECT_EQ(box->getIdentityProcessorByInputName("x"), port);

  auto v = std::make_shared<TIntegerData>(5);
  port->m_InputPin->m_Data = v;
  port->setData(std::make_shared<TStringData>("a|b"));
  EXPECT_EQ(port->m_InputPin->m_Name, "a");
  EXPECT_EQ(port->m_OutputPin->m_Name, "b");
  EXPECT_EQ(port->m_InputPin->getData(), v) << "values stay";
  EXPECT_THROW(port->setData(std::make_shared<TStringData>("nobar")), TFlowError);

  // Two ports in a row hold one object on all four pins once quiet; a
  // replaced value costs one pass per port.
  Net chain;
  auto src = chain.add<TIntDataSource>(chain.fm, 0);
  auto p1 = chain.add<TAbstractIdentityProcessor>(chain.fm, 10);
  auto p2 = chain.add<TAbstractIdentityProcessor>(chain.fm, 20);
  chain.fm->createConnection(src->m_OutputPin, p1->m_InputPin);
  chain.fm->createConnection(p1->m_OutputPin, p2->m_InputPin);
  auto w = std::make_shared<TIntegerData>(9);
  src->setData(w);
  EXPECT_EQ(chain.settle(), 2);
  for (auto& pin : {p1->m_InputPin, p1->m_OutputPin, p2->m_InputPin, p2->m_OutputPin}) EXPECT_EQ(pin->getData(), w);

  // An in-place edit needs no run to pass.
  w->setValue(10);
  chain.fm->stage1();
  EXPECT_TRUE(p2->m_InputPin->m_DataHasChanged);
  chain.fm->stage2();

  // An empty value passes as well.
  src->setData(nullptr);
  chain.settle();
  EXPECT_EQ(p2->m_OutputPin->getData(), nullptr);
}
