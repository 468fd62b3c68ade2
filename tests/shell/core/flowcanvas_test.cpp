// The flow canvas without a window: where pins stand, what is drawn in
// which colour, the tooltips, the menus and the edits.
#include <gtest/gtest.h>

#include "data/MDataSources.h"
#include "data/MValues.h"
#include "shell/core/MFlowCanvasCore.h"
#include "support/RecordingSink.h"
#include "support/TestHelpers.h"
#include "support/TestProcessors.h"

using namespace quorvel;
using namespace quorvel::test;

namespace {

// A canvas that keeps the texts it would print.
struct Canvas : TFlowCanvasCpp {
  std::vector<std::pair<TVector2, std::string>> texts;
  void drawText(float x, float y, const std::string& text) override { texts.push_back({{x, y}, text}); }
};

// The primitives drawn under the name `id`, of one kind.
std::vector<TRecordingSink::Primitive> drawnAs(const TRecordingSink& sink, uint32_t id, TDrawSink::Primitive kind) {
  std::vector<TRecordingSink::Primitive> out;
  for (const auto& p : sink.prims)
    if (!p.names.empty() && p.names.back() == id && p.kind == kind) out.push_back(p);
  return out;
}

}  // namespace

TEST(FlowCanvas, PinsStandAboveAndBelowAndConnectorsJoinTheirCentres) {
  Net n;
  Canvas canvas;
  auto a = n.add<TRelay>(n.fm, 0.0f);
  auto b = n.add<TRelay>(n.fm, 100.0f);
  a->m_Area = TBox(30.0f, 40.0f, 110.0f, 60.0f);
  EXPECT_EQ(canvas.getPinPosition(*a, *a->in, false), (std::pair{30.0f, 30.0f})) << "an input above the area";
  EXPECT_EQ(canvas.getPinPosition(*a, *a->out, false), (std::pair{30.0f, 60.0f})) << "an output below it";
  EXPECT_EQ(canvas.getPinPosition(*a, *a->out, true), (std::pair{35.0f, 65.0f}));
  EXPECT_EQ(canvas.getPinPosition(*a, *b->in, true), (std::pair{0.0f, 0.0f})) << "a pin of another processor";

  auto connector = n.fm->createConnection(a->out, b->in);
  a->setError("broken");
  b->in->m_DataHasChanged = true;
  a->out->m_DataReplaced = true;
  canvas.m_SelectedProcessors.insert(b);
  TRecordingSink sink;
  sink.pushName(0);
  canvas.drawBox(sink, *n.fm);
  // The processor with an error is red, the other grey with a thick outline.
  EXPECT_EQ(drawnAs(sink, a->m_Id, TDrawSink::Quads).at(0).colors.at(0), TVector4(1.0f, 0.2f, 0.2f, 1.0f));
  EXPECT_EQ(drawnAs(sink, b->m_Id, TDrawSink::Quads).at(0).colors.at(0), TVector4(0.8f, 0.8f, 0.8f, 1.0f));
  // Pin outlines by their flags: replaced red, changed green, else black.
  EXPECT_EQ(drawnAs(sink, a->out->m_Id, TDrawSink::LineLoop).at(0).colors.at(0), TVector4(1, 0, 0, 1));
  EXPECT_EQ(drawnAs(sink, b->in->m_Id, TDrawSink::LineLoop).at(0).colors.at(0), TVector4(0, 1, 0, 1));
  EXPECT_EQ(drawnAs(sink, a->in->m_Id, TDrawSink::LineLoop).at(0).colors.at(0), TVector4(0, 0, 0, 1));
  // The connector runs from the output's centre to the input's, once per end.
  const auto lines = drawnAs(sink, connector->m_Id, TDrawSink::Lines);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].vertices.at(0), TVector2(35.0f, 65.0f));
  EXPECT_EQ(lines[0].vertices.at(1), TVector2(5.0f, 95.0f));
  // Names are printed unless picking; the root box draws no frame.
  EXPECT_EQ(canvas.texts.size(), 2u);
  EXPECT_EQ(canvas.texts[0].second, "relay");
  canvas.texts.clear();
  canvas.m_Picking = true;
  TRecordingSink picking;
  picking.pushName(0);
  canvas.drawBox(picking, *n.fm);
  EXPECT_TRUE(canvas.texts.empty());
  EXPECT_TRUE(drawnAs(picking, n.fm->m_Id, TDrawSink::Quads).empty());
}

TEST(FlowCanvas, TheObjectUnderTheMouseTooltipsAndMenus) {
  Net n;
  auto a = n.add<TRelay>(n.fm);
  auto b = n.add<TRelay>(n.fm, 100.0f);
  auto connector = n.fm->createConnection(a->out, b->in);
  // A pin wins over what lies on top of it; else the topmost.
  EXPECT_EQ(hoveredObject({a, a->out, connector}), a->out);
  EXPECT_EQ(hoveredObject({n.fm, a}), a);
  EXPECT_EQ(hoveredObject({}), nullptr);

  a->setError("no input");
  EXPECT_EQ(flowTooltip(*a), "Name: relay\nTRelay(" + std::to_string(a->m_Id) + ")\nError: " + a->getError());
  EXPECT_EQ(flowTooltip(*connector), "Connector:\nno data");
  EXPECT_EQ(flowTooltip(*b->in), "pin 'in' (in) (" + std::to_string(b->in->m_Id) + "):TAbstractData \nno data");
  auto value = std::make_shared<TTestValue>(7);
  a->out->m_Data = value;
  EXPECT_EQ(flowTooltip(*connector), "Connector:\nout->in\ntype: TTestValue\n#rows changed: 0\ndata: 7\n");
  EXPECT_EQ(flowTooltip(*a->out), "pin 'out' (out) (" + std::to_string(a->out->m_Id) +
                                      "):TAbstractData \ntype: TTestValue (id: " + std::to_string(value->m_DataId) +
                                      ", haschanged: False) \n#rows changed: 0\nkeyname: <no keyname>\ndata: 7");
  EXPECT_EQ(viewPinData(*b->in), "none");
  EXPECT_EQ(getTextLength("relay"), 40);

  EXPECT_EQ(flowContextMenu(n.fm.get(), true), std::vector<std::string>{"Group"});
  EXPECT_EQ(flowContextMenu(nullptr, false).front(), "New box");
  EXPECT_EQ(flowContextMenu(a.get(), false).back(), "Replace by");
  EXPECT_EQ(flowContextMenu(a->in.get(), false), std::vector<std::string>{"View data"});
  // The class menus hold what this build registered, and nothing else.
  for (const auto& menu : flowClassMenus())
    for (const auto& name : menu.classes) EXPECT_TRUE(TProcessorRegistry::instance().find(name)) << name;
}

TEST(FlowCanvas, EditsKeepTheNetworkWhole) {
  registerDataClasses();
  Net n;
  auto src = n.add<TRelay>(n.fm);
  auto mid = n.add<TRelay>(n.fm, 100.0f);
  auto sink = n.add<TRelay>(n.fm, 200.0f);
  n.fm->createConnection(src->out, mid->in);
  n.fm->createConnection(mid->out, sink->in);

  // Replaced by a source, which has "out" but no "in": the connector of
  // its output comes back, the other goes with the old processor.
  auto fresh = replaceProcessor(mid, "TStringDataSource");
  EXPECT_TRUE(mid->m_Destroyed);
  EXPECT_TRUE(src->out->m_Connectors.empty());
  EXPECT_EQ(fresh->getOutputPinByName("out")->getConnectedTo().at(0), sink->in);
  // By one with neither name: nothing is joined any more.
  replaceProcessor(fresh, "TCollapseProcessor");
  EXPECT_TRUE(sink->in->m_Connectors.empty());

  // D on a pin takes its connectors and leaves the pin; the manager stays.
  n.fm->createConnection(src->out, sink->in);
  EXPECT_TRUE(deleteFlowObject(sink->in));
  EXPECT_TRUE(src->out->m_Connectors.empty());
  EXPECT_EQ(sink->m_InputPins.size(), 1u);
  EXPECT_FALSE(deleteFlowObject(n.fm));

  // A value set from text; a text that is no form of the type changes nothing.
  auto source = addProcessorAt(*n.fm, "TStringDataSource", 0.0f, 0.0f);
  setSourceValue(*source, "hello");
  auto value = std::dynamic_pointer_cast<TStringData>(source->getOnlyOutputPin()->getData());
  ASSERT_TRUE(value);
  EXPECT_EQ(value->getValue(), "hello");
  auto number = addProcessorAt(*n.fm, "TIntDataSource", 5.0f, 6.0f);
  EXPECT_EQ(number->m_Area, TBox(5.0f, 6.0f, 5.0f + getTextLength(number->getTypeName()) + 2.0f, 26.0f));
  setSourceValue(*number, "12");
  EXPECT_NE(errorOf([&] { setSourceValue(*number, "twelve"); }), "");
  EXPECT_EQ(viewPinData(*number->getOnlyOutputPin()), "12");

  // Grouped by a rubber band's choice and ungrouped again.
  auto group = groupProcessors(*n.fm, {src, sink}, 300.0f, 300.0f);
  EXPECT_EQ(group->m_Processors.size(), 2u);
  EXPECT_EQ(src->m_Box, group);
  ungroupBox(group);
  EXPECT_EQ(src->m_Box, n.fm);
  EXPECT_TRUE(group->m_Destroyed);
  EXPECT_EQ(errorOf([&] { ungroupBox(n.fm); }), "parentbox == box");
}
