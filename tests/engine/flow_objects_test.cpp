#include <gtest/gtest.h>

#include "support/TestHelpers.h"

#include "support/TestProcessors.h"

using namespace quorvel;
using namespace quorvel::test;

TEST(FlowObjects, IdsRunProcessorInputsOutputsAndAreNeverReused) {
  Net net;
  EXPECT_EQ(net.fm->m_Id, 1u);
  auto box = net.box(net.fm);
  EXPECT_EQ(box->m_Id, 2u);
  auto a = net.add<TRelay>(box);
  EXPECT_EQ(a->m_Id, 3u);
  EXPECT_EQ(a->in->m_Id, 4u);
  EXPECT_EQ(a->out->m_Id, 5u);
  EXPECT_EQ(net.fm->getFlowObject(4), a->in);
  EXPECT_EQ(net.fm->getFlowObject(99), nullptr);

  net.fm->destroy();
  EXPECT_TRUE(net.fm->m_Processors.empty());
  EXPECT_TRUE(net.fm->m_Children.empty());
  EXPECT_EQ(net.fm->getBoxByType("noname box"), nullptr);
  EXPECT_EQ(net.fm->getFlowObject(3), nullptr);
  EXPECT_EQ(net.fm->getFlowObject(1), net.fm) << "the manager stays registered";
  auto b = net.add<TRelay>(net.fm);
  EXPECT_EQ(b->m_Id, 6u);
}

TEST(FlowObjects, RegistrationRulesAndFailureTexts) {
  Net net;
  auto box1 = net.box(net.fm);
  auto box2 = net.box(net.fm);
  auto p = net.add<TRelay>(box1);
  const uint32_t id = p->m_Id;
  EXPECT_EQ(errorOf([&] { box2->addProcessor(p); }), "Already registered");
  EXPECT_EQ(box1->m_Processors.size(), 1u);
  EXPECT_EQ(errorOf([&] { box1->addBox(box1); }), "Cannot add box as child to itself");

  auto q = net.add<TRelay>(box1);
  p->reparent(box2);
  EXPECT_EQ(p->m_Id, id);
  EXPECT_EQ(p->m_Box, box2);
  ASSERT_EQ(box1->m_Processors.size(), 1u);
  EXPECT_EQ(box1->m_Processors[0], q);
  // Reparenting into the same box moves the processor to the end.
  auto r = net.add<TRelay>(box2);
  p->reparent(box2);
  ASSERT_EQ(box2->m_Processors.size(), 2u);
  EXPECT_EQ(box2->m_Processors[0], r);
  EXPECT_EQ(box2->m_Processors[1], p);

  auto loose = makeBox();
  EXPECT_EQ(errorOf([&] { loose->addProcessor(std::make_shared<TRelay>()); }),
            "Cannot get flow manager for this object");
  auto empty = net.add<TSource>(box1);
  EXPECT_EQ(errorOf([&] { empty->getOnlyInputPin(); }), "Not only one input pin");
  EXPECT_EQ(empty->getOnlyOutputPin(), empty->out);
  TAbstractProcessor bare;
  EXPECT_EQ(errorOf([&] { bare.process(); }), "process() not implemented");
  EXPECT_EQ(bare.getTypeName(), "noname processor");
  EXPECT_EQ(p->toString(), "<TFlowObject::toString(): needs implementation in derived class>");
  EXPECT_EQ(p->getKeyText(), "<no keyname, id: " + std::to_string(id) + ">");
}

TEST(FlowObjects, LookupsByTypeNameAndOrder) {
  Net net;
  auto top = net.box(net.fm, "top");
  auto child = net.box(top, "child");
  auto grandchild = net.box(child, "grandchild");
  EXPECT_EQ(net.fm->getBoxByType("top"), top);
  EXPECT_EQ(net.fm->getBoxByType("child"), nullptr) << "one level deep only";
  EXPECT_EQ(top->getBoxByType("child"), child);

  auto deep = net.add<TRelay>(grandchild);
  deep->m_KeyName = "x";
  EXPECT_EQ(net.fm->getProcessorByName("x"), deep);
  // Breadth-first: a processor nearer to the start box wins.
  auto near = net.add<TRelay>(top);
  near->m_KeyName = "x";
  EXPECT_EQ(net.fm->getProcessorByName("x"), near);
  // Among boxes at one depth, the one added first.
  auto other = net.box(net.fm, "other");
  auto later = net.add<TRelay>(other);
  later->m_KeyName = "x";
  auto sibling = net.box(top, "sibling");
  auto inSibling = net.add<TRelay>(sibling);
  inSibling->m_KeyName = "y";
  auto inChild = net.add<TRelay>(child);
  inChild->m_KeyName = "y";
  EXPECT_EQ(net.fm->getProcessorByName("x"), near);
  EXPECT_EQ(net.fm->getProcessorByName("y"), inChild);
  EXPECT_EQ(net.fm->getProcessorByName("nothing"), nullptr);
  EXPECT_EQ(net.fm->getProcessorByType<TSource>(), nullptr);
  EXPECT_EQ(net.fm->getProcessorByType<TRelay>(), near);
}

TEST(FlowObjects, PinNamesConnectionsAndConnectedProcessors) {
  Net net;
  auto a = net.add<TRelay>(net.fm);
  auto b = net.add<TRelay>(net.fm);
  EXPECT_EQ(errorOf([&] { b->getConnectedProcessor("in"); }), "getConnectedProcessor(): connector no connections");
  EXPECT_EQ(errorOf([&] { b->getConnectedProcessor("zz"); }),
            "getConnectedProcessor(): pin with that name not found");
  auto c1 = net.fm->createConnection(a->out, b->in);
  EXPECT_EQ(b->getConnectedProcessor("in"), a);
  auto c2 = net.fm->createConnection(a->out, b->in);
  EXPECT_NE(c1->m_Id, c2->m_Id);
  EXPECT_EQ(b->in->m_Connectors.size(), 2u);
  EXPECT_EQ(errorOf([&] { b->getConnectedProcessor("in"); }),
            "getConnectedProcessor(): connector has more than one connection");
  ASSERT_EQ(a->out->getConnectedTo().size(), 2u);
  EXPECT_EQ(a->out->getConnectedTo()[0], b->in);

  // A renamed pin is found by its new name, but not by getInputPinChanged.
  b->in->m_Name = "renamed";
  EXPECT_EQ(b->getInputPinByName("renamed"), b->in);
  EXPECT_EQ(b->getInputPinByName("in"), nullptr);
  b->in->m_DataFullUpdate = true;
  EXPECT_TRUE(b->getInputPinChanged("in"));
  EXPECT_FALSE(b->getInputPinChanged("renamed"));

  // Destroying a pin's processor takes its connectors with it.
  b->destroy();
  EXPECT_TRUE(a->out->m_Connectors.empty());
  EXPECT_EQ(net.fm->getFlowObject(c1->m_Id), nullptr);
  EXPECT_EQ(errorOf([&] { c1->getInputPin(); }), "!m_InputPin->m_Self");
}

TEST(FlowObjects, ComputeSizeFollowsContent) {
  Net net;
  auto box = net.box(net.fm);
  EXPECT_EQ(box->m_Area, TBox(0, 0, 10, 10));
  auto p = net.fm->constructProcessor<TRelay>();
  p->m_Area = TBox(100, 50, 180, 70);
  box->addProcessor(p);
  EXPECT_EQ(box->m_Area, TBox(100, 50, 190, 80));
  EXPECT_EQ(net.fm->m_Area, TBox(0, 0, 1000, 1000)) << "a manager's area never changes";
  // Child areas count after their own computeSize.
  auto inner = net.box(box);
  auto q = net.fm->constructProcessor<TRelay>();
  q->m_Area = TBox(300, 300, 380, 320);
  inner->addProcessor(q);
  box->computeSize();
  EXPECT_EQ(inner->m_Area, TBox(300, 300, 390, 330));
  EXPECT_EQ(box->m_Area, TBox(100, 50, 400, 340));
}

TEST(FlowObjects, ObjectsLiveUntilDestroy) {
  Net net;
  std::weak_ptr<TRelay> weakProc;
  std::weak_ptr<TAbstractBox> weakBox;
  std::weak_ptr<TAbstractPin> weakPin;
  {
    auto box = net.box(net.fm);
    auto p = net.add<TRelay>(box);
    weakProc = p;
    weakBox = box;
    weakPin = p->in;
  }
  EXPECT_FALSE(weakProc.expired());
  EXPECT_FALSE(weakBox.expired());
  net.fm->destroy();
  EXPECT_TRUE(weakProc.expired());
  EXPECT_TRUE(weakBox.expired());
  EXPECT_TRUE(weakPin.expired());

  // An object never registered also lives until destroy: pins hold it.
  std::weak_ptr<TRelay> unregistered;
  {
    auto p = net.fm->constructProcessor<TRelay>();
    unregistered = p;
  }
  ASSERT_FALSE(unregistered.expired());
  unregistered.lock()->destroy();
  EXPECT_TRUE(unregistered.expired());
}
