// The table lens without a window: its pins, the row order, the value
// ranges of the columns, the grid geometry (rows in view at a zoom and
// offset, the column under an x, the row height that text needs), the
// recorded cell pass through a draw sink, and the click selection rules.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "data/MAttributes.h"
#include "data/MColorMap.h"
#include "data/MValues.h"
#include "engine/MFlowObjects.h"
#include "render/core/MDrawSink.h"

namespace quorvel {

class TTableLensImplementationCpp;

class TTableLensProcessorCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TTableLensProcessorCpp)
  TPinPtr m_GuiParent, m_Attributes, m_AttributesOrdnorm, m_Sort, m_Selection, m_Colormap, m_Brushed, m_SelectionB,
      m_InternalSelection, m_Keys, m_Zoom, m_Transparency, m_ColumnWidths, m_InvokeSetColumnsToWidth, m_Actions,
      m_HeaderActions, m_OnColumnRightClick;
  std::shared_ptr<TTableLensImplementationCpp> m_Implementation;

  void postCreate() override;
  std::string getTypeName() override { return "table lens view"; }
  // The processing pass; the window library adds the canvas around it.
  void process() override;
  // Makes the implementation for a new `gui parent`; none without a window.
  virtual void onGuiParent() {}
};

// A rectangle on the grid: x0, y0, x1, y1.
struct TGridRect {
  float x0 = 0, y0 = 0, x1 = 0, y1 = 0;
};

class TGlGridRenderer {
 public:
  virtual ~TGlGridRenderer() = default;
  // True ends the loop they are called from.
  virtual bool renderCell(int column, int row, const TGridRect& rect) = 0;
  virtual void renderHeader(int column, const TGridRect& rect) = 0;
  virtual bool renderText(int column, int row, const TGridRect& rect) = 0;
};

// The geometry of the grid. A row is 14 units high in row space; the zoom
// shrinks it to `14 zoom` pixels below a header of 20 pixels, and `ypos`
// scrolls in pixels.
class TGlGrid {
 public:
  static constexpr float kHeader = 20.0f;
  int height = 0, width = 0;
  float rowheight = 14.0f;
  int rowcount = 0;
  float zoom = 0.0f;
  float ypos = 0.0f;
  std::vector<float> columnwidths;
  TGlGridRenderer* renderer = nullptr;

  // The height of a row in pixels.
  float pixelRowHeight() const { return rowheight * zoom; }
  // No change without rows; else at least the zoom at which all rows fill
  // the page, within 0 to 1.
  void setZoom(float v);
  // The rows whose text is drawn: from the first in view to one past the
  // last, within the rows; first > last when there are none.
  std::pair<int, int> visibleRows() const;
  // The column under a window x, or -1 right of the last.
  int columnAt(float x) const;
  float columnLeft(int column) const;
  // The row under a window y below the header, or -1.
  int rowAt(float y) const;
  // Calls renderCell for every row and column, left to right.
  void forEachCell() const;
  // Calls renderText for the rows in view of one column.
  void forEachVisibleText(int column) const;

  enum class TText { None, Faded, Opaque };
  // Text and row lines by the row height in pixels: none below 8, faded
  // up to 11, opaque from there.
  static TText textStyle(float h);
  static float textAlpha(float h);
  // The height of the row font for a row height: 14, 12, 11 or 10.
  static int rowFontHeight(float h);
};

// The rows marked by clicks, with an anchor that survives between clicks.
class TRowClickSelection {
 public:
  std::optional<int> anchor;
  // What a release on `row` does: whether the marked rows are emptied first
  // and which rows join them. A Shift click before any anchor does nothing;
  // a run from the anchor goes either way.
  struct TEffect {
    bool clear = false;
    int first = 0, last = -1;
  };
  TEffect click(int row, bool shift, bool ctrl);
};

class TTableLensImplementationCpp : public TGlGridRenderer {
 public:
  explicit TTableLensImplementationCpp(TTableLensProcessorCpp* processor);
  ~TTableLensImplementationCpp() override = default;

  TTableLensProcessorCpp* m_Processor;
  std::shared_ptr<TGlGrid> m_Grid;
  bool m_Picking = false;
  std::vector<uint32_t> m_Row2Id;
  std::unordered_map<uint32_t, uint32_t> m_Id2Row;
  std::vector<std::pair<float, float>> m_MinMax;
  std::vector<int> m_HeaderIcons;
  float m_Transparency = 0;
  // Where drawing goes; set by the canvas (or a test) before drawing.
  TDrawSink* m_Sink = nullptr;

  void prepare(int width, int height);
  void computeMinMax();
  void buildRow2Id();
  void buildId2Row();
  // Sorts the rows by the sort list and sets the header arrows; the arrow
  // of a column names its rank. Icons are looked up by name in the
  // application's image list.
  void applySort();
  long getRowByNid(uint32_t id) const;
  uint32_t getNidByRow(size_t row) const { return m_Row2Id[row]; }
  void setColumnWidths();
  void setColumnsToWidth();
  void setYpos(float v) { m_Grid->ypos = v; }
  float getYpos() const { return m_Grid->ypos; }
  void setZoom(float v) { m_Grid->setZoom(v); }
  float getZoom() const { return m_Grid->zoom; }

  // Drawing through the sink, in row space.
  void renderSelection();
  void renderCells();
  void renderRowLines();
  bool renderCell(int column, int row, const TGridRect& rect) override;
  void renderHeader(int, const TGridRect&) override {}
  bool renderText(int, int, const TGridRect&) override { return false; }
  // The bar of a value: its length as a share of the column, 0 to 1, and
  // its colour; false when the cell has no bar.
  bool barOf(int column, uint32_t id, float& length, TVector4& color) const;

  // Window hooks, empty without one.
  virtual void clearLists() {}
  virtual void refresh() {}
  virtual void setScrollbar() {}
  virtual void canvasSize(int& width, int& height) const;
  std::string listPrefix() const;

 protected:
  std::shared_ptr<TDataArray> attributes() const;
  std::shared_ptr<TDataArray> attributesOrdnorm() const;
};

void registerTableLensCore();

}  // namespace quorvel
