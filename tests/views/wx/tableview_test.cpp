// The table lens and the tree view in their windows on the sample: bars
// probed in the picture where the grid puts them, rows clicked and double
// clicked at computed points, a header click that sorts, and a key in the
// tree that folds the radial view.
#include <gtest/gtest.h>

#include "engine/MPython.h"
#include "automation/MExecutor.h"
#include "support/GuiTestHelpers.h"
#include "views/wx/MHebProcessor.h"
#include "views/wx/MTableLensProcessor.h"
#include "views/wx/MTreeViewProcessor.h"

using namespace quorvel;
using namespace quorvel::test;

namespace {

const char* const kNodeTable =
    "me.mainwindow.OnInstantiateLibBox('BTableLens', {'assign': [('gui title', 'Node table view')], "
    "'rename': [('attributes', 'node attributes'), ('selections', 'node selections'), "
    "('primary selection', 'node primary selection'), ('brushed', 'brushed nodes')]})";

struct TTableApp : App {
  std::shared_ptr<TTableLensProcessor> table;
  TTableLensImplementation* impl = nullptr;

  TTableApp() {
    run("ensureOpen(" + scriptLiteral(sample("orbit.db")) + ")");
    run("openView('heb')");
    finishAnimations();
    run(kNodeTable);
    settle();
    TBoxPtr box = me.flowlayout->getBoxByType("BTableLens");
    table = box ? box->getProcessorByType<TTableLensProcessor>() : nullptr;
    impl = table ? table->implementation() : nullptr;
    if (impl) pumpUntil([this] { return !impl->canvas()->pendingrefresh; });
    settle();
  }
  TTableLensImplementation::TGlGrid::TCanvas* canvas() const { return impl->canvas(); }
  // The middle of a cell in window pixels.
  wxPoint cellAt(int column, size_t row) const {
    const auto& g = *impl->m_Grid;
    const float x = g.columnLeft(column) + g.columnwidths[static_cast<size_t>(column)] / 2;
    const float y = quorvel::TGlGrid::kHeader + (static_cast<float>(row) + 0.5f) * g.pixelRowHeight() - g.ypos;
    return {static_cast<int>(x), static_cast<int>(y)};
  }
  void mouse(wxEventType type, const wxPoint& at, bool ctrl = false, bool shift = false) {
    wxMouseEvent e(type);
    e.SetPosition(at);
    e.SetControlDown(ctrl);
    e.SetShiftDown(shift);
    auto* c = canvas();
    if (type == wxEVT_LEFT_DOWN) c->OnMouseLeftDown(e);
    if (type == wxEVT_LEFT_UP) c->OnMouseLeftUp(e);
    if (type == wxEVT_LEFT_DCLICK) c->OnLeftMouseDoubleClick(e);
    settle();
  }
  void click(const wxPoint& at, bool ctrl = false, bool shift = false) {
    mouse(wxEVT_LEFT_DOWN, at, ctrl, shift);
    mouse(wxEVT_LEFT_UP, at, ctrl, shift);
  }
  std::shared_ptr<TIntegerSetData> set(const TPinPtr& pin) const { return dataAs<TIntegerSetData>(pin); }
  int column(const std::string& key) const {
    auto attributes = dataAs<TDataArray>(table->m_Attributes);
    for (size_t c = 0; c < attributes->getItemCount(); ++c)
      if (attributes->m_Items[c]->getKeyName() == key) return static_cast<int>(c);
    return -1;
  }
};

}  // namespace

TEST(TableView, BarsClicksAndHeadersAsTheUserSeesThem) {
  TTableApp app;
  ASSERT_TRUE(app.impl);
  EXPECT_EQ(app.frame->viewTitles().back().second, "Node table view");
  app.run(kNodeTable);
  EXPECT_EQ(app.frame->viewTitles().back().second, "Node table view (1)");
  app.frame->viewTitles().back().first->destroy();
  app.settle();

  // A bar as long and as coloured as its value says, at the cell the grid
  // computes; the rest of the cell is background.
  const int lines = app.column("lines");
  ASSERT_GE(lines, 0);
  size_t row = 0;
  float length = 0;
  TVector4 colour;
  float best = 0;
  for (size_t r = 0; r < app.impl->m_Row2Id.size(); ++r) {
    float l = 0;
    TVector4 c;
    if (app.impl->barOf(lines, app.impl->m_Row2Id[r], l, c) && l > best) {
      best = l;
      row = r;
      length = l;
      colour = c;
    }
  }
  ASSERT_GT(length, 0.5f);
  app.run("selectViewByName('Node table view')");
  app.run("makeScreenshot('table.bmp')");
  wxImage shot("table.bmp", wxBITMAP_TYPE_BMP);
  ASSERT_TRUE(shot.IsOk());
  const auto& grid = *app.impl->m_Grid;
  const float left = grid.columnLeft(lines), width = grid.columnwidths[static_cast<size_t>(lines)];
  const wxPoint middle = app.cellAt(lines, row);
  // Three quarters along the bar: the text at its start stays clear.
  const int x = static_cast<int>(left + 0.75f * length * width);
  EXPECT_NEAR(shot.GetRed(x, middle.y) / 255.0, colour.x - 0.025, 0.08);
  EXPECT_NEAR(shot.GetGreen(x, middle.y) / 255.0, colour.y - 0.025, 0.08);
  EXPECT_NEAR(shot.GetBlue(x, middle.y) / 255.0, colour.z - 0.025, 0.08);
  const int beyond = static_cast<int>(left + length * width) + 3;
  if (beyond < left + width - 2) {
    EXPECT_GT(shot.GetRed(beyond, middle.y + 4), 240) << "past the bar";
  }

  // A click marks the row in this view; Ctrl adds one; a double click
  // makes the id the primary selection, which the radial view shows.
  const uint32_t id = app.impl->getNidByRow(row);
  app.click(app.cellAt(0, row));
  EXPECT_EQ(app.set(app.table->m_InternalSelection)->m_Set.ids(), std::vector<uint32_t>{id});
  app.click(app.cellAt(0, 0), true);
  EXPECT_EQ(app.set(app.table->m_InternalSelection)->getCount(), 2u);
  app.mouse(wxEVT_LEFT_DCLICK, app.cellAt(1, row));
  EXPECT_EQ(app.set(app.table->m_SelectionB)->m_Set.ids(), std::vector<uint32_t>{id});
  auto heb = me.flowlayout->getBoxByType("BHebView")->getProcessorByType<THebProcessor>();
  EXPECT_TRUE(dataAs<TIntegerSetData>(heb->getInputPinByName("node primary selection"))->contains(id));

  // A click on a header sorts by its column with the first arrow.
  app.click({static_cast<int>(left + 5), 10});
  ASSERT_EQ(app.impl->m_HeaderIcons.size(), dataAs<TDataArray>(app.table->m_Attributes)->getItemCount());
  EXPECT_GE(app.impl->m_HeaderIcons[static_cast<size_t>(lines)], 0);
  auto values = dataAs<TDataArray>(app.table->m_Attributes)->itemAs<TAttributeData>(static_cast<size_t>(lines));
  float previous = -1e30f;
  for (uint32_t rowId : app.impl->m_Row2Id) {
    bool found = false;
    const float v = values->getFloatValueById(rowId, found);
    if (!found) continue;
    EXPECT_GE(v, previous);
    previous = v;
  }

  // Dragging a separator widens its column.
  const float before = grid.columnwidths[0];
  const wxPoint grip(static_cast<int>(grid.columnwidths[0]), 10);
  app.mouse(wxEVT_LEFT_DOWN, grip);
  app.mouse(wxEVT_LEFT_UP, {grip.x + 40, 10});
  app.settle();
  EXPECT_FLOAT_EQ(app.impl->m_Grid->columnwidths[0], before + 40);
}

TEST(TreeView, LeftFoldsTheMarkedNodeAndTheRadialViewFollows) {
  App app;
  app.run("ensureOpen(" + scriptLiteral(sample("orbit.db")) + ")");
  app.run("openView('heb')");
  app.finishAnimations();
  app.run("me.mainwindow.OnInstantiateLibBox('BTreeView', {'assign': [('gui title', 'Tree view')]})");
  app.settle();
  TBoxPtr box = me.flowlayout->getBoxByType("BTreeView");
  ASSERT_TRUE(box);
  auto view = box->getProcessorByType<TTreeViewProcessor>();
  ASSERT_TRUE(view && view->m_Implementation && view->m_Implementation->listboxpanel);
  auto* panel = view->m_Implementation->listboxpanel.get();
  const size_t count = panel->listbox->GetItemCount();
  ASSERT_GT(count, 10u);

  // The second line: a folder under the root, with children.
  const TTreeLineModel::TLine line = panel->model.line(1);
  ASSERT_TRUE(line.button);
  panel->listbox->Select(1);
  wxCommandEvent selected(wxEVT_LISTBOX, panel->listbox->GetId());
  selected.SetEventObject(panel->listbox);
  panel->listbox->ProcessWindowEvent(selected);
  app.settle();
  auto internal = dataAs<TIntegerSetData>(view->m_InternalSelection);
  EXPECT_EQ(internal->m_Set.ids(), std::vector<uint32_t>{line.nid});

  wxKeyEvent left(wxEVT_KEY_DOWN);
  left.m_keyCode = WXK_LEFT;
  panel->listbox->ProcessWindowEvent(left);
  app.settle();
  auto collapsed = dataAs<TBoolAttributeData>(view->m_Collapsed);
  bool found = false;
  EXPECT_TRUE(collapsed->getValueById(line.nid, found));
  EXPECT_LT(static_cast<size_t>(panel->listbox->GetItemCount()), count) << "its lines folded away";
  EXPECT_FALSE(app.frame->animatelist.empty()) << "the radial view animates the fold";
  EXPECT_TRUE(panel->model.line(1).collapsed);
}
