// The flow canvas in its window, as one who builds networks uses it: the
// running network's boxes on "Flow layout", pins joined by two clicks, a
// processor with an error drawn red, the scheduler stepped by keys, and a
// rubber band's choice grouped.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "data/MValues.h"
#include "engine/MPython.h"
#include "shell/wx/MFlowCanvas.h"
#include "support/GuiTestHelpers.h"
#include "support/Pictures.h"
#include "views/wx/MHebProcessor.h"

using namespace quorvel;
using namespace quorvel::test;

namespace {

// The window point of a picture point.
wxPoint onScreen(const TFlowCanvas& canvas, float x, float y) {
  return wxPoint(static_cast<int>(x + canvas.camerapos.x), static_cast<int>(y + canvas.camerapos.y));
}

wxPoint centreOf(const TFlowCanvas& canvas, const TBox& area) {
  return onScreen(canvas, (area.tl.x + area.br.x) / 2.0f, (area.tl.y + area.br.y) / 2.0f);
}

wxPoint pinCentre(const TFlowCanvas& canvas, const TPinPtr& pin) {
  const auto [x, y] = canvas.getPinPosition(*pin->m_Processor, *pin, true);
  return onScreen(canvas, x, y);
}

wxMouseEvent mouse(wxEventType type, const wxPoint& at, bool left, bool shift) {
  wxMouseEvent e(type);
  e.SetPosition(at);
  e.m_leftDown = left;
  e.m_shiftDown = shift;
  return e;
}

}  // namespace

TEST(FlowCanvasWindow, TheRunningNetworkIsDrawnAndEditedByMouseAndKeys) {
  App app;
  app.run("ensureOpen(" + scriptLiteral(sample("orbit.db")) + ")");
  app.run("openView('heb')");
  app.finishAnimations();
  openFlowCanvases(app.frame);
  TFlowCanvas* canvas = nullptr;
  for (auto* c : windowsIn<TFlowCanvas>(app.frame))
    if (c->flowmgr() == me.flowlayout) canvas = c;
  ASSERT_TRUE(canvas) << "a canvas of the running network";
  auto* frame = dynamic_cast<TChildFrame*>(canvas->GetParent());
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->GetTitle(), "Flow layout");
  frame->activateWithFocus();
  pumpUntil([&] { return canvas->IsShownOnScreen() && canvas->GetClientSize().x > 100; });

  // The radial view's box is on the canvas: its processors answer a pick.
  TBoxPtr view = me.flowlayout->getBoxByType("BHebView");
  ASSERT_TRUE(view);
  TProcessorPtr heb = view->getProcessorByName("heb vis");
  canvas->camerapos = TVector2(40.0f - heb->m_Area.tl.x, 60.0f - heb->m_Area.tl.y);
  EXPECT_EQ(hoveredObject(canvas->objectsAt(centreOf(*canvas, heb->m_Area))), heb);

  // Rewired on the canvas, the view changes: D and R on the input of its
  // folded edges leave the disk without bundles; two clicks join it again.
  auto* radial = view->getProcessorByType<THebProcessor>()->implementation();
  ASSERT_TRUE(radial);
  TChildFrame* radialFrame = nullptr;
  for (wxWindow* w = radial->canvas.get(); w && !radialFrame; w = w->GetParent()) radialFrame = dynamic_cast<TChildFrame*>(w);
  ASSERT_TRUE(radialFrame);
  auto show = [&](TChildFrame* f, wxWindow* w) {
    f->activateWithFocus();
    pumpUntil([&] { return w->IsShownOnScreen(); });
  };
  // The coloured pixels about the middle of the radial view, as its tab
  // shows it; then back to the canvas.
  auto coloured = [&] {
    app.settle();
    app.finishAnimations();
    show(radialFrame, radial->canvas.get());
    const wxImage p = freshPaint(radial->canvas.get());
    show(frame, canvas);
    const wxSize s = radial->canvas->GetClientSize();
    size_t n = 0;
    for (int y = s.y / 3; y < 2 * s.y / 3; ++y)
      for (int x = s.x / 3; x < 2 * s.x / 3; ++x)
        n += std::max({p.GetRed(x, y), p.GetGreen(x, y), p.GetBlue(x, y)}) -
                 std::min({p.GetRed(x, y), p.GetGreen(x, y), p.GetBlue(x, y)}) > 60;
    return n;
  };
  const size_t bundled = coloured();
  EXPECT_GT(bundled, 50u) << "the bundles cross the middle";
  TPinPtr edgesIn = heb->getInputPinByName("edge collapsed");
  TPinPtr edgesOut = view->getProcessorByName("view edge collapser")->getOutputPinByName("out");
  canvas->keyAt('D', false, pinCentre(*canvas, edgesIn));
  ASSERT_TRUE(edgesIn->m_Connectors.empty());
  canvas->keyAt('R', false, pinCentre(*canvas, edgesIn));  // and its last value goes
  EXPECT_LT(coloured(), bundled / 10) << "no folded edges, no bundles";
  canvas->clickAt(pinCentre(*canvas, edgesOut));
  canvas->clickAt(pinCentre(*canvas, edgesIn));
  ASSERT_EQ(edgesIn->m_Connectors.size(), 1u);
  EXPECT_GT(coloured(), bundled / 2) << "joined again, the bundles are back";
  if (std::getenv("QUORVEL_TEST_PICTURES")) freshPaint(canvas).SaveFile("flowcanvas-view.png", wxBITMAP_TYPE_PNG);

  // Two processors away from the rest, joined by a click on an output pin
  // and one on an input pin: the value arrives on the next pass.
  auto source = addProcessorAt(*me.flowlayout, "TIntDataSource", 5000.0f, 5000.0f);
  auto hook = addProcessorAt(*me.flowlayout, "THookProcessor", 5000.0f, 5100.0f);
  canvas->camerapos = TVector2(-4900.0f, -4900.0f);
  setSourceValue(*source, "7");
  canvas->clickAt(pinCentre(*canvas, source->getOnlyOutputPin()));
  EXPECT_EQ(canvas->m_ActiveFlowObject, source->getOnlyOutputPin());
  canvas->clickAt(pinCentre(*canvas, hook->getInputPinByName("in")));
  EXPECT_FALSE(canvas->m_ActiveFlowObject);
  app.settle();
  auto arrived = std::dynamic_pointer_cast<TIntegerData>(hook->getInputPinByName("in")->getData());
  ASSERT_TRUE(arrived) << "joined by two clicks";
  EXPECT_EQ(arrived->getValue(), 7);

  // Y spreads a new value, U runs what it reached.
  setSourceValue(*source, "9");
  canvas->keyAt('Y', false, wxPoint(1, 1));
  canvas->keyAt('U', false, wxPoint(1, 1));
  EXPECT_EQ(std::dynamic_pointer_cast<TIntegerData>(hook->getInputPinByName("in")->getData())->getValue(), 9);

  // A processor with an error is red where it stands.
  hook->setError("cannot hook");
  const wxImage picture = freshPaint(canvas);
  // Probed in the row above the names.
  auto fill = [&](const TProcessorPtr& p) {
    return onScreen(*canvas, (p->m_Area.tl.x + p->m_Area.br.x) / 2.0f, p->m_Area.tl.y + 3.0f);
  };
  const wxPoint red = fill(hook);
  EXPECT_GT(picture.GetRed(red.x, red.y), 200);
  EXPECT_LT(picture.GetGreen(red.x, red.y), 100);
  const wxPoint grey = fill(source);
  EXPECT_GT(picture.GetGreen(grey.x, grey.y), 150) << "the source is grey";
  if (std::getenv("QUORVEL_TEST_PICTURES")) picture.SaveFile("flowcanvas.png", wxBITMAP_TYPE_PNG);

  // A rubber band around the source only, dragged with Shift.
  const wxPoint from = onScreen(*canvas, 4990.0f, 4990.0f);
  const wxPoint to = onScreen(*canvas, 5000.0f + source->m_Area.getWidth() + 10.0f, 5040.0f);
  auto down = mouse(wxEVT_LEFT_DOWN, from, true, true);
  canvas->OnMouseLeftDown(down);
  canvas->paintNow(false);  // a motion waits for the paint the last one asked for
  auto drag = mouse(wxEVT_MOTION, to, true, true);
  canvas->OnMouseMotion(drag);
  auto up = mouse(wxEVT_LEFT_UP, to, false, true);
  canvas->OnMouseLeftUp(up);
  EXPECT_EQ(canvas->m_SelectedProcessors, (std::set<TProcessorPtr>{source})) << "the hook lies below the band";
  auto group = groupProcessors(*me.flowlayout, canvas->m_SelectedProcessors, 4900.0f, 4900.0f);
  EXPECT_EQ(source->m_Box, group);

  // D on the hook's pin takes the connector and leaves the pin.
  canvas->keyAt('D', false, pinCentre(*canvas, hook->getInputPinByName("in")));
  EXPECT_TRUE(hook->getInputPinByName("in")->m_Connectors.empty());
  EXPECT_EQ(hook->m_InputPins.size(), 1u);

  // Ctrl-V with nothing copied says so and changes nothing; after Ctrl-C on
  // the group's box it pastes a copy of the box where the mouse is.
  std::filesystem::remove("clipboard.db");
  const size_t before = me.flowlayout->m_Children.size();
  canvas->keyAt('V', true, onScreen(*canvas, 5200.0f, 5200.0f));
  EXPECT_EQ(me.flowlayout->m_Children.size(), before);
  EXPECT_NE(me.logger->getLastMessages().find("Cannot paste"), std::string::npos);
  canvas->keyAt('C', true, onScreen(*canvas, group->m_Area.br.x - 3.0f, group->m_Area.br.y - 3.0f));  // its margin
  canvas->keyAt('V', true, onScreen(*canvas, 5200.0f, 5200.0f));
  ASSERT_EQ(me.flowlayout->m_Children.size(), before + 1);
  EXPECT_EQ(me.flowlayout->m_Children.back()->m_Processors.size(), 1u) << "the copy holds the source";

  // An edit of a view's box on the canvas is stored with the perspective
  // and comes back with it.
  auto added = addProcessorAt(*view, "TGetCount", heb->m_Area.tl.x, heb->m_Area.br.y + 200.0f);
  added->m_KeyName = "added on the canvas";
  me.flowlayout->store(me.flowlayout->m_Children, "edited.qvperspective");
  app.run("openPerspective('edited.qvperspective')");
  app.finishAnimations();
  TBoxPtr reopened = me.flowlayout->getBoxByType("BHebView");
  ASSERT_TRUE(reopened);
  EXPECT_TRUE(reopened->getProcessorByName("added on the canvas"));
}
