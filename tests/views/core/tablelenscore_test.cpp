// The table lens and the tree view without a window: row order and sort
// arrows, zoom, the text thresholds, column widths, the click selection
// rules, the bars of values, and what a tree line shows.
#include <gtest/gtest.h>
#include <pybind11/eval.h>

#include "engine/MFlowManager.h"
#include "engine/MMediator.h"
#include "support/RecordingSink.h"
#include "support/TestData.h"
#include "views/core/MTableLensCore.h"
#include "views/core/MTreeViewCore.h"

using namespace quorvel;
using namespace quorvel::test;
namespace py = pybind11;

namespace {

struct TTable {
  std::shared_ptr<TFlowManager> fm = makeFlowManager(false);
  std::shared_ptr<TTableLensProcessorCpp> proc = fm->constructProcessor<TTableLensProcessorCpp>();
  std::shared_ptr<TTableLensImplementationCpp> impl;
  TRecordingSink sink;

  TTable() {
    impl = std::make_shared<TTableLensImplementationCpp>(proc.get());
    proc->m_Implementation = impl;
    impl->m_Sink = &sink;
    impl->m_Grid->width = 400;
    impl->m_Grid->height = 300;
    // Rows 1..6: a group with ties, a size, a name.
    auto group = column<TIntegerAttributeData, int32_t>("group", {{1, 2}, {2, 1}, {3, 2}, {4, 1}, {5, 2}, {6, 1}});
    auto size = column<TFloatAttributeData, float>("size", {{1, 10}, {2, 30}, {3, 20}, {4, 30}, {5, 0}, {6, 10}});
    auto name = column<TStringAttributeData, std::string>("name", {{1, "a"}, {2, "b"}, {3, "c"}, {4, "d"}});
    auto attributes = std::make_shared<TAttributeDataArray>();
    for (const TDataPtr& c : std::vector<TDataPtr>{group, size, name}) attributes->add(c);
    auto ordnorm = std::make_shared<TFloatAttributeDataArray>();
    auto groupF = column<TFloatAttributeData, float>("group", {{1, 2}, {2, 1}, {3, 2}, {4, 1}, {5, 2}, {6, 1}});
    for (const TDataPtr& c : std::vector<TDataPtr>{groupF, size}) ordnorm->add(c);
    proc->m_Attributes->setData(attributes);
    proc->m_AttributesOrdnorm->setData(ordnorm);
    proc->m_Selection->setData(ids({6, 5, 4, 3, 2, 1}));
    proc->m_Colormap->setData(std::make_shared<TColorMapData>("grey", std::make_shared<TColorMap_Rainbow>()));
  }
  void sortBy(const char* literal) {
    proc->m_Sort->setData(std::make_shared<TPythonData>(TPyRef::steal(py::eval(literal).release().ptr())));
  }
  // A pass as the network runs it.
  void run() {
    for (const auto& pin : proc->m_InputPins)
      if (pin->m_DataReplaced) pin->m_DataHasChanged = true;
    proc->process();
    for (const auto& pin : proc->m_InputPins) pin->m_DataReplaced = pin->m_DataHasChanged = false;
    proc->m_PinsToReset.clear();
  }
};

}  // namespace

TEST(TableLens, SortKeysOrderRowsStablyAndRankTheHeaderArrows) {
  py::dict icons;
  icons["arrowupgray1"] = 7;
  icons["arrowdowngray2"] = 9;
  me.imagelistmap = TPyRef::borrow(icons.ptr());
  TTable t;
  t.run();
  EXPECT_EQ(t.impl->m_Row2Id, (std::vector<uint32_t>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(t.impl->m_HeaderIcons, (std::vector<int>{-1, -1, -1}));

  // One key: equal groups keep the ascending id order.
  t.sortBy("[('group', True)]");
  t.run();
  EXPECT_EQ(t.impl->m_Row2Id, (std::vector<uint32_t>{2, 4, 6, 1, 3, 5}));
  EXPECT_EQ(t.impl->m_HeaderIcons, (std::vector<int>{7, -1, -1}));
  EXPECT_EQ(t.impl->getRowByNid(6), 2);
  EXPECT_EQ(t.impl->getRowByNid(99), -1);

  // Two keys: the second breaks the ties of the first; keys that are no
  // column are skipped.
  t.sortBy("[('group', True), ('size', False), ('nothing', True)]");
  t.run();
  EXPECT_EQ(t.impl->m_Row2Id, (std::vector<uint32_t>{2, 4, 6, 3, 1, 5}));
  EXPECT_EQ(t.impl->m_HeaderIcons, (std::vector<int>{7, 9, -1}));

  // A new selection keeps the order along with the arrows.
  t.proc->m_Selection->setData(ids({5, 4, 3, 2}));
  t.run();
  EXPECT_EQ(t.impl->m_Row2Id, (std::vector<uint32_t>{2, 4, 3, 5}));
  EXPECT_EQ(t.impl->m_HeaderIcons, (std::vector<int>{7, 9, -1}));
  me.imagelistmap = TPyRef();
}

TEST(TableLens, ZoomFitsTheRowsToThePageAndStaysWithinZeroAndOne) {
  TGlGrid g;
  g.height = 300;
  g.setZoom(0.5f);
  EXPECT_EQ(g.zoom, 0.0f) << "without rows the zoom stays";
  g.rowcount = 1000;
  g.setZoom(0.0f);
  EXPECT_FLOAT_EQ(g.zoom, 280.0f / 14000.0f);
  g.setZoom(0.5f);
  EXPECT_FLOAT_EQ(g.zoom, 0.5f);
  g.setZoom(3.0f);
  EXPECT_FLOAT_EQ(g.zoom, 1.0f);
  g.rowcount = 5;
  g.setZoom(0.1f);
  EXPECT_FLOAT_EQ(g.zoom, 1.0f) << "few rows stay 14 pixels high";

  // Rows in view, and what lies under a point.
  g.rowcount = 1000;
  g.zoom = 0.5f;
  g.ypos = 70;
  const auto [first, last] = g.visibleRows();
  EXPECT_EQ(first, 10);
  EXPECT_EQ(last, 10 + 43 + 1);
  EXPECT_EQ(g.rowAt(20 + 7 * 3.5f), 10 + 3);
  EXPECT_EQ(g.rowAt(19), -1);
  g.columnwidths = {50, 30};
  EXPECT_EQ(g.columnAt(49), 0);
  EXPECT_EQ(g.columnAt(50), 1);
  EXPECT_EQ(g.columnAt(80), -1);
}

TEST(TableLens, TextAndRowLinesFollowTheRowHeight) {
  using T = TGlGrid::TText;
  EXPECT_EQ(TGlGrid::textStyle(7.9f), T::None);
  EXPECT_EQ(TGlGrid::textStyle(8.0f), T::Faded);
  EXPECT_FLOAT_EQ(TGlGrid::textAlpha(9.5f), 0.5f);
  EXPECT_EQ(TGlGrid::textStyle(11.0f), T::Opaque);
  EXPECT_FLOAT_EQ(TGlGrid::textAlpha(12.0f), 1.0f);
  EXPECT_EQ(TGlGrid::rowFontHeight(14.0f), 14);
  EXPECT_EQ(TGlGrid::rowFontHeight(13.9f), 12);
  EXPECT_EQ(TGlGrid::rowFontHeight(11.5f), 11);
  EXPECT_EQ(TGlGrid::rowFontHeight(9.0f), 10);

  TTable t;
  t.run();
  t.impl->m_Grid->zoom = 0.5f;
  t.impl->renderRowLines();
  EXPECT_EQ(t.sink.count(TDrawSink::Lines), 0u) << "7 pixel rows have no lines";
  t.impl->m_Grid->zoom = 1.0f;
  t.impl->renderRowLines();
  EXPECT_EQ(t.sink.count(TDrawSink::Lines), 1u);
}

TEST(TableLens, ColumnWidthsAreCutAndPaddedToTheColumns) {
  TTable t;
  auto widths = std::make_shared<TFloatDataArray>();
  for (float w : {40.0f, 60.0f, 80.0f, 90.0f}) widths->add(std::make_shared<TFloatData>(w));
  t.proc->m_ColumnWidths->setData(widths);
  t.run();
  ASSERT_EQ(widths->getItemCount(), 3u);
  EXPECT_EQ(t.impl->m_Grid->columnwidths, (std::vector<float>{40, 60, 80}));

  widths->m_Items.resize(1);
  t.impl->setColumnWidths();
  ASSERT_EQ(widths->getItemCount(), 3u);
  EXPECT_EQ(widths->m_Items[2]->getKeyName(), "<no keyname>");
  EXPECT_EQ(t.impl->m_Grid->columnwidths, (std::vector<float>{40, 100, 100}));

  t.impl->setColumnsToWidth();
  EXPECT_EQ(t.impl->m_Grid->columnwidths, (std::vector<float>(3, 400.0f / 3)));
}

TEST(TableLens, ClicksSelectRowsRunsAndAddWithAnAnchor) {
  TRowClickSelection s;
  auto e = s.click(5, true, false);
  EXPECT_LT(e.last, e.first) << "Shift before any anchor does nothing";
  e = s.click(5, false, false);
  EXPECT_TRUE(e.clear);
  EXPECT_EQ(e.first, 5);
  EXPECT_EQ(e.last, 5);
  e = s.click(8, false, true);
  EXPECT_FALSE(e.clear);
  EXPECT_EQ(*s.anchor, 8);
  e = s.click(3, true, false);
  EXPECT_TRUE(e.clear);
  EXPECT_EQ(e.first, 3);
  EXPECT_EQ(e.last, 8) << "a run above the anchor";
  EXPECT_EQ(*s.anchor, 8);
  e = s.click(10, true, true);
  EXPECT_FALSE(e.clear);
  EXPECT_EQ(e.first, 8);
  EXPECT_EQ(e.last, 10);
}

TEST(TableLens, BarsStandForValuesWithinTheColumnRange) {
  TTable t;
  t.run();
  ASSERT_EQ(t.impl->m_MinMax.size(), 3u);
  EXPECT_GT(t.impl->m_MinMax[2].first, t.impl->m_MinMax[2].second) << "a string column has no range";
  float length = -1;
  TVector4 c;
  // size: 0..30; 20 is two thirds, 0 has no bar.
  ASSERT_TRUE(t.impl->barOf(1, 3, length, c));
  EXPECT_NEAR(length, 2.0f / 3, 1e-6);
  EXPECT_FALSE(t.impl->barOf(1, 5, length, c));
  // group: 1..2; the minimum has a bar of length 0.
  ASSERT_TRUE(t.impl->barOf(0, 2, length, c));
  EXPECT_EQ(length, 0.0f);
  EXPECT_FALSE(t.impl->barOf(2, 1, length, c));
  EXPECT_FALSE(t.impl->barOf(1, 99, length, c));

  // The cell pass: a bar per value above 0.001 (six groups, five sizes),
  // darker at its start; the pick pass a rectangle per row under its name.
  t.impl->m_Grid->columnwidths = {100, 100, 100};
  t.proc->m_Transparency->setData(std::make_shared<TFloatData>(0.25f));
  t.impl->prepare(400, 300);
  t.impl->m_Picking = true;
  t.impl->renderCells();
  ASSERT_EQ(t.sink.count(TDrawSink::Quads), 6u);
  EXPECT_EQ(t.sink.prims[4].names, (std::vector<unsigned>{1, 4}));
  EXPECT_EQ(t.sink.prims[4].vertices[1].x, 400.0f) << "across the whole canvas";
  t.sink.prims.clear();
  t.impl->m_Picking = false;
  t.impl->renderCells();
  EXPECT_EQ(t.sink.count(TDrawSink::Quads), 6u + 5u);
  const auto& bar = *std::find_if(t.sink.prims.begin(), t.sink.prims.end(), [](const auto& p) {
    return p.vertices.size() == 4 && p.vertices[0].x == 100 && p.vertices[0].y == 28;
  });
  EXPECT_NEAR(bar.vertices[1].x, 100 + 200.0f / 3, 1e-3);
  EXPECT_FLOAT_EQ(bar.colors[0].w, 0.75f);
  EXPECT_NEAR(bar.colors[1].x - bar.colors[0].x, 0.1f, 1e-6);

  // All values equal: no bars.
  auto flat = std::make_shared<TFloatAttributeDataArray>();
  flat->add(column<TFloatAttributeData, float>("group", {{1, 3}, {2, 3}}));
  auto same = std::make_shared<TAttributeDataArray>();
  same->add(column<TFloatAttributeData, float>("group", {{1, 3}, {2, 3}}));
  t.proc->m_Attributes->setData(same);
  t.proc->m_AttributesOrdnorm->setData(flat);
  t.run();
  EXPECT_FALSE(t.impl->barOf(0, 1, length, c));
}

TEST(TableLens, ANewSelectionEmptiesTheMarkedRowsAndRebuildsThem) {
  TTable t;
  t.run();
  auto internal = std::dynamic_pointer_cast<TIntegerSetData>(t.proc->m_InternalSelection->getData());
  ASSERT_TRUE(internal);
  internal->add(3);
  t.proc->m_Selection->setData(ids({3, 9}));
  t.run();
  EXPECT_EQ(internal->getCount(), 0u);
  EXPECT_EQ(t.impl->m_Row2Id, (std::vector<uint32_t>{3, 9}));
  EXPECT_EQ(t.impl->m_Grid->rowcount, 2);
}

TEST(TreeView, ALineShowsIndentButtonTextAndBoldSelection) {
  // 2 -> (3 -> 5, 4); nid 1 is the synthetic root.
  auto h = tree({{2, 0}, {3, 2}, {5, 3}, {4, 2}});
  TTreeLineModel m;
  m.collapsedhierarchy = h;
  m.level = column<TIntegerAttributeData, int32_t>("level", {{1, 0}, {2, 1}, {3, 2}, {4, 2}, {5, 3}});
  m.collapsed = column<TBoolAttributeData, bool>("collapsed", {{3, true}});
  m.textattr = column<TStringAttributeData, std::string>("name", {{2, "root"}, {3, "dir"}, {5, "leaf"}});
  ASSERT_EQ(m.lineCount(), 4u);
  auto l = m.line(0);
  EXPECT_EQ(l.nid, 2u);
  EXPECT_EQ(l.indent, 0);
  EXPECT_TRUE(l.button);
  l = m.line(1);
  EXPECT_EQ(l.text, "dir");
  EXPECT_EQ(l.indent, 1);
  EXPECT_TRUE(l.collapsed);
  l = m.line(2);
  EXPECT_FALSE(l.button) << "a leaf has no button";
  EXPECT_EQ(l.indent, 2);
  EXPECT_EQ(TTreeLineModel::textX(l.indent), 2 * 16 + 16 + 20);
  EXPECT_EQ(m.line(3).text, "<none>");

  m.setBoldIds(ids({5, 42}).get());
  EXPECT_TRUE(m.line(2).bold);
  EXPECT_FALSE(m.line(1).bold);
  EXPECT_EQ(m.linesOf(*ids({4, 42})), (std::vector<size_t>{3}));

  TTreeLineModel empty;
  empty.collapsedhierarchy = tree({{2, 0}});
  EXPECT_EQ(empty.lineCount(), 1u);
}
