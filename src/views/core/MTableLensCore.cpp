#include "MTableLensCore.h"

#include <pybind11/pybind11.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "engine/MMediator.h"
#include "engine/MRegistry.h"

namespace py = pybind11;

namespace quorvel {

namespace {

// A rectangle across the canvas over one row, in row space.
void rowRectangle(TDrawSink& gl, float width, long row) {
  const float y0 = 14.0f * static_cast<float>(row), y1 = y0 + 14.0f;
  gl.begin(TDrawSink::Quads);
  gl.vertex(0, y0);
  gl.vertex(width, y0);
  gl.vertex(width, y1);
  gl.vertex(0, y1);
  gl.end();
}

// The image index of an icon name, or -1.
int iconIndex(const std::string& name) {
  if (!me.imagelistmap || me.imagelistmap.isNone()) return -1;
  py::dict icons = py::reinterpret_borrow<py::dict>(me.imagelistmap.get());
  return icons.contains(name) ? icons[name.c_str()].cast<int>() : -1;
}

}  // namespace

void TTableLensProcessorCpp::postCreate() {
  m_GuiParent = addInputPin<TPythonData>("gui parent");
  m_Attributes = addInputPin<TAttributeDataArray>("attributes");
  m_AttributesOrdnorm = addInputPin<TFloatAttributeDataArray>("attributes ordnorm");
  m_Sort = addInputPin<TPythonData>("sort");
  m_Selection = addInputPin<TIntegerSetData>("selection");
  m_Colormap = addInputPin<TColorMapData>("colormap");
  m_Brushed = addInputPin<TIntegerSetData>("brushed");
  m_SelectionB = addInputPin<TIntegerSetData>("selection b");
  m_InternalSelection = addInputPin<TIntegerSetData>("internal selection");
  m_Keys = addInputPin<TStringListData>("keys");
  m_Zoom = addInputPin<TFloatData>("setting.zoom");
  m_Transparency = addInputPin<TFloatData>("setting.transparency");
  m_ColumnWidths = addInputPin<TFloatDataArray>("column widths");
  m_InvokeSetColumnsToWidth = addInputPin<TBooleanData>("invoke set columns to width");
  m_Actions = addInputPin<TPythonData>("actions");
  m_HeaderActions = addInputPin<TPythonData>("header actions");
  m_OnColumnRightClick = addOutputPin<TIntegerData>("on column right click");
}

void TTableLensProcessorCpp::process() {
  if (!m_InternalSelection->getData()) m_InternalSelection->setData(std::make_shared<TIntegerSetData>());
  if (m_GuiParent->hasChanged()) onGuiParent();
  TTableLensImplementationCpp* impl = m_Implementation.get();
  const bool gui = m_GuiParent->getData() != nullptr;
  if (impl) {
    int w = 0, h = 0;
    impl->canvasSize(w, h);
    impl->prepare(w, h);
    impl->refresh();
  }
  const bool selection = m_Selection->hasChanged(), attributes = m_Attributes->hasChanged();
  if (selection)
    if (auto internal = dataAs<TIntegerSetData>(m_InternalSelection)) internal->clear();
  if (impl && selection && m_Selection->getData()) impl->buildRow2Id();
  if (impl && (selection || attributes) && m_Selection->getData() && m_Attributes->getData()) {
    impl->computeMinMax();
    impl->clearLists();
  }
  // A new selection makes the rows anew in id order: the sort goes on them again.
  if (impl && (attributes || selection || m_Sort->hasChanged()) && m_Attributes->getData()) {
    impl->clearLists();
    impl->applySort();
  }
  if (gui && impl && haveChanged({m_SelectionB, m_InternalSelection})) impl->refresh();
  if (gui && impl && (m_Zoom->hasChanged() || selection)) impl->setScrollbar();
  if (gui && impl && m_Transparency->hasChanged()) impl->clearLists();
  if (impl && (m_ColumnWidths->hasChanged() || attributes) && m_ColumnWidths->getData() && m_Attributes->getData())
    impl->setColumnWidths();
  if (impl && m_Colormap->hasChanged()) impl->clearLists();
  if (impl && m_InvokeSetColumnsToWidth->hasChanged()) {
    impl->setColumnsToWidth();
    impl->clearLists();
  }
  resetPins({});
}

// ---------------------------------------------------------------------------

void TGlGrid::setZoom(float v) {
  if (rowcount == 0) return;
  const float fit = (static_cast<float>(height) - kHeader) / (static_cast<float>(rowcount) * 14.0f);
  zoom = std::clamp(std::max(fit, v), 0.0f, 1.0f);
}

std::pair<int, int> TGlGrid::visibleRows() const {
  const float h = pixelRowHeight();
  if (!(h > 0) || rowcount == 0) return {0, -1};
  const int first = std::max(0, static_cast<int>(std::floor(ypos / h)));
  const int last = std::min(first + static_cast<int>(std::ceil(static_cast<float>(height) / h)) + 1, rowcount - 1);
  return {first, last};
}

int TGlGrid::columnAt(float x) const {
  float left = 0;
  for (size_t c = 0; c < columnwidths.size(); ++c) {
    if (x >= left && x < left + columnwidths[c]) return static_cast<int>(c);
    left += columnwidths[c];
  }
  return -1;
}

float TGlGrid::columnLeft(int column) const {
  float left = 0;
  for (int c = 0; c < column && c < static_cast<int>(columnwidths.size()); ++c) left += columnwidths[c];
  return left;
}

int TGlGrid::rowAt(float y) const {
  const float h = pixelRowHeight();
  if (!(h > 0) || y < kHeader) return -1;
  const int row = static_cast<int>(std::floor((y - kHeader + ypos) / h));
  return row >= 0 && row < rowcount ? row : -1;
}

void TGlGrid::forEachCell() const {
  if (!renderer) return;
  for (int row = 0; row < rowcount; ++row) {
    float x = 0;
    for (size_t c = 0; c < columnwidths.size(); ++c) {
      const TGridRect rect{x, rowheight * row, x + columnwidths[c], rowheight * (row + 1)};
      if (renderer->renderCell(static_cast<int>(c), row, rect)) return;
      x += columnwidths[c];
    }
  }
}

void TGlGrid::forEachVisibleText(int column) const {
  if (!renderer || column < 0 || column >= static_cast<int>(columnwidths.size())) return;
  const float x0 = columnLeft(column), x1 = x0 + columnwidths[static_cast<size_t>(column)];
  const auto [first, last] = visibleRows();
  for (int row = first; row <= last; ++row)
    if (renderer->renderText(column, row, TGridRect{x0, rowheight * row, x1, rowheight * (row + 1)})) return;
}

TGlGrid::TText TGlGrid::textStyle(float h) {
  if (h < 8) return TText::None;
  return h < 11 ? TText::Faded : TText::Opaque;
}

float TGlGrid::textAlpha(float h) {
  switch (textStyle(h)) {
    case TText::None:
      return 0;
    case TText::Faded:
      return (h - 8) / 3;
    case TText::Opaque:
      break;
  }
  return 1;
}

int TGlGrid::rowFontHeight(float h) {
  if (h >= 14) return 14;
  if (h >= 12) return 12;
  if (h >= 11) return 11;
  return 10;
}

// ---------------------------------------------------------------------------

TRowClickSelection::TEffect TRowClickSelection::click(int row, bool shift, bool ctrl) {
  TEffect effect;
  if (shift && !anchor) return effect;
  if (!shift) anchor = row;
  effect.clear = !ctrl;
  effect.first = std::min(*anchor, row);
  effect.last = std::max(*anchor, row);
  return effect;
}

// ---------------------------------------------------------------------------

TTableLensImplementationCpp::TTableLensImplementationCpp(TTableLensProcessorCpp* processor)
    : m_Processor(processor), m_Grid(std::make_shared<TGlGrid>()) {
  m_Grid->renderer = this;
}

std::shared_ptr<TDataArray> TTableLensImplementationCpp::attributes() const {
  return dataAs<TDataArray>(m_Processor->m_Attributes);
}

std::shared_ptr<TDataArray> TTableLensImplementationCpp::attributesOrdnorm() const {
  return dataAs<TDataArray>(m_Processor->m_AttributesOrdnorm);
}

void TTableLensImplementationCpp::canvasSize(int& width, int& height) const {
  width = m_Grid->width;
  height = m_Grid->height;
}

std::string TTableLensImplementationCpp::listPrefix() const { return "list" + std::to_string(m_Processor->m_Id); }

void TTableLensImplementationCpp::prepare(int width, int height) {
  m_Grid->width = width;
  m_Grid->height = height;
  auto transparency = dataAs<TFloatData>(m_Processor->m_Transparency);
  m_Transparency = transparency ? transparency->getValue() : 0.0f;
  if (auto zoom = dataAs<TFloatData>(m_Processor->m_Zoom)) setZoom(zoom->getValue());
  if (auto selection = dataAs<TIntegerSetData>(m_Processor->m_Selection))
    m_Grid->rowcount = static_cast<int>(selection->getCount());
  auto widths = dataAs<TDataArray>(m_Processor->m_ColumnWidths);
  if (!widths) {
    widths = std::make_shared<TFloatDataArray>();
    m_Processor->m_ColumnWidths->setData(widths);
  }
  m_Grid->columnwidths.clear();
  for (const auto& item : widths->m_Items) {
    auto w = std::dynamic_pointer_cast<TFloatData>(item);
    m_Grid->columnwidths.push_back(w ? w->getValue() : 100.0f);
  }
}

void TTableLensImplementationCpp::computeMinMax() {
  auto attrs = attributes();
  auto selection = dataAs<TIntegerSetData>(m_Processor->m_Selection);
  if (!attrs || !selection) throw std::runtime_error("!attributes || !selection");
  m_MinMax.clear();
  for (const auto& item : attrs->m_Items) {
    std::pair<float, float> range{std::numeric_limits<float>::max(), -std::numeric_limits<float>::max()};
    auto widen = [&range](float v) {
      range.first = std::min(range.first, v);
      range.second = std::max(range.second, v);
    };
    if (auto f = std::dynamic_pointer_cast<TFloatAttributeData>(item)) {
      for (size_t r = 0; r < f->getRowCount(); ++r) widen(f->valueByRow(r));
    } else if (auto i = std::dynamic_pointer_cast<TIntegerAttributeData>(item)) {
      for (size_t r = 0; r < i->getRowCount(); ++r) widen(static_cast<float>(i->valueByRow(r)));
    }
    m_MinMax.push_back(range);
  }
}

void TTableLensImplementationCpp::buildRow2Id() {
  m_Row2Id.clear();
  m_Id2Row.clear();
  auto selection = dataAs<TIntegerSetData>(m_Processor->m_Selection);
  if (!selection) return;
  const auto& ids = selection->m_Set.ids();
  m_Row2Id.assign(ids.begin(), ids.end());
  std::sort(m_Row2Id.begin(), m_Row2Id.end());
  buildId2Row();
}

void TTableLensImplementationCpp::buildId2Row() {
  m_Id2Row.reserve(m_Row2Id.size());
  for (size_t r = 0; r < m_Row2Id.size(); ++r) m_Id2Row[m_Row2Id[r]] = static_cast<uint32_t>(r);
}

void TTableLensImplementationCpp::applySort() {
  auto attrs = attributes();
  if (!attrs) return;
  m_HeaderIcons.assign(attrs->getItemCount(), -1);
  if (attrs->getItemCount() == 0) return;
  auto sort = dataAs<TPythonData>(m_Processor->m_Sort);
  if (sort && sort->getValue() && !sort->getValue().isNone()) {
    py::handle list(sort->getValue().get());
    if (py::isinstance<py::list>(list) || py::isinstance<py::tuple>(list)) {
      py::sequence pairs = py::reinterpret_borrow<py::sequence>(list);
      for (size_t i = pairs.size(); i-- > 0;) {
        py::object pair = pairs[i];
        if (!py::isinstance<py::sequence>(pair) || py::len(pair) < 2 || pair[py::int_(0)].is_none()) continue;
        const std::string key = py::str(pair[py::int_(0)]).cast<std::string>();
        const bool ascending = py::bool_(pair[py::int_(1)]).cast<bool>();
        auto attribute = attrs->itemByKeyAs<TAttributeData>(key);
        if (!attribute) continue;
        const size_t column = attrs->getIndexByKey(key);
        attribute->stable_sort(m_Row2Id, ascending);
        m_HeaderIcons[column] =
            iconIndex((ascending ? "arrowupgray" : "arrowdowngray") + std::to_string(static_cast<int>(i) + 1));
      }
    }
  }
  buildId2Row();
}

long TTableLensImplementationCpp::getRowByNid(uint32_t id) const {
  auto it = m_Id2Row.find(id);
  return it == m_Id2Row.end() ? -1 : static_cast<long>(it->second);
}

void TTableLensImplementationCpp::setColumnWidths() {
  auto widths = dataAs<TDataArray>(m_Processor->m_ColumnWidths);
  auto attrs = attributes();
  if (!widths || !attrs) return;
  const size_t columns = attrs->getItemCount();
  // A change only when the array was cut or padded: the widths come back
  // to this pin.
  if (widths->m_Items.size() != columns) widths->m_HasChanged = true;
  if (widths->m_Items.size() > columns) widths->m_Items.resize(columns);
  while (widths->m_Items.size() < columns) {
    auto width = std::make_shared<TFloatData>(100.0f);
    width->m_KeyName = "<no keyname>";
    widths->add(width);
  }
  m_Grid->columnwidths.clear();
  for (const auto& item : widths->m_Items) {
    auto width = std::dynamic_pointer_cast<TFloatData>(item);
    m_Grid->columnwidths.push_back(width ? width->getValue() : 100.0f);
  }
}

void TTableLensImplementationCpp::setColumnsToWidth() {
  auto widths = dataAs<TDataArray>(m_Processor->m_ColumnWidths);
  if (!widths || widths->m_Items.empty()) return;
  const float each = static_cast<float>(m_Grid->width) / static_cast<float>(widths->m_Items.size());
  m_Grid->columnwidths.assign(widths->m_Items.size(), each);
  for (const auto& item : widths->m_Items)
    if (auto width = std::dynamic_pointer_cast<TFloatData>(item)) {
      width->setValue(each);
      width->m_HasChanged = true;
    }
}

void TTableLensImplementationCpp::renderSelection() {
  TDrawSink& gl = *m_Sink;
  gl.enable(TDrawSink::Blend, false);
  const float w = static_cast<float>(m_Grid->width);
  auto rows = [&](const TPinPtr& pin) {
    auto set = dataAs<TIntegerSetData>(pin);
    if (!set) return;
    for (uint32_t id : set->m_Set.ids()) {
      const long r = getRowByNid(id);
      if (r >= 0) rowRectangle(gl, w, r);
    }
  };
  gl.color(230 / 255.0f, 230 / 255.0f, 230 / 255.0f, 1);
  rows(m_Processor->m_SelectionB);
  gl.color(49 / 255.0f, 106 / 255.0f, 197 / 255.0f, 1);
  rows(m_Processor->m_InternalSelection);
}

void TTableLensImplementationCpp::renderCells() {
  auto attrs = attributes();
  if (!attrs || attrs->getItemCount() == 0) return;
  TDrawSink& gl = *m_Sink;
  gl.enable(TDrawSink::Blend, true);
  gl.blendFunc(TDrawSink::SrcAlphaOneMinusSrcAlpha);
  const float w = static_cast<float>(m_Grid->width);
  const int rows = std::min<int>(m_Grid->rowcount, static_cast<int>(m_Row2Id.size()));
  // Each list holds what its pass can tell: the pick list an invisible
  // rectangle across each row under the row's name, which also picks right
  // of the last column and covers the row's bars; the paint list the bars
  // alone, with no state changed between them, so that it replays as one
  // run of vertices.
  if (m_Picking) {
    gl.pushName(1);
    gl.pushName(0);
    gl.colorMask(false);
    for (int row = 0; row < rows; ++row) {
      gl.loadName(static_cast<unsigned>(row));
      rowRectangle(gl, w, row);
    }
    gl.colorMask(true);
    gl.popName();
    gl.popName();
    return;
  }
  m_Grid->forEachCell();
}

bool TTableLensImplementationCpp::barOf(int column, uint32_t id, float& length, TVector4& color) const {
  auto ordnorm = attributesOrdnorm();
  if (!ordnorm || column < 0 || static_cast<size_t>(column) >= m_MinMax.size()) return false;
  auto attribute = ordnorm->itemAs<TFloatAttributeData>(static_cast<size_t>(column));
  if (!attribute) return false;
  bool found = false;
  float v = attribute->getValueById(id, found);
  if (!found) return false;
  const auto [lo, hi] = m_MinMax[static_cast<size_t>(column)];
  if (!(lo < hi) || !(v > 0.001f)) return false;
  v = std::clamp((v - lo) / (hi - lo), 0.0f, 1.0f);
  if (std::fabs(hi - lo) < 0.0001f) v = 0;
  auto map = dataAs<TColorMapData>(m_Processor->m_Colormap);
  color = TVector4(0.5f, 0.5f, 0.5f, 1);
  if (map && map->getColorMap()) map->getColorMap()->getColor(v, color);
  color.w = 1 - m_Transparency;
  length = v;
  return true;
}

bool TTableLensImplementationCpp::renderCell(int column, int row, const TGridRect& rect) {
  if (row < 0 || static_cast<size_t>(row) >= m_Row2Id.size()) return false;
  float length = 0;
  TVector4 c;
  if (!barOf(column, m_Row2Id[static_cast<size_t>(row)], length, c)) return false;
  const float x1 = rect.x0 + length * (rect.x1 - rect.x0);
  TDrawSink& gl = *m_Sink;
  gl.begin(TDrawSink::Quads);
  gl.color(c.x - 0.1f, c.y - 0.1f, c.z - 0.1f, c.w);
  gl.vertex(rect.x0, rect.y0);
  gl.color(c.x, c.y, c.z, c.w);
  gl.vertex(x1, rect.y0);
  gl.vertex(x1, rect.y1);
  gl.color(c.x - 0.1f, c.y - 0.1f, c.z - 0.1f, c.w);
  gl.vertex(rect.x0, rect.y1);
  gl.end();
  return false;
}

void TTableLensImplementationCpp::renderRowLines() {
  if (TGlGrid::textStyle(m_Grid->pixelRowHeight()) == TGlGrid::TText::None) return;
  TDrawSink& gl = *m_Sink;
  gl.enable(TDrawSink::Blend, false);
  gl.color(0.8f, 0.8f, 0.8f, 1);
  const float w = static_cast<float>(m_Grid->width);
  // Only the lines in view: the list of all rows is the cell pass's.
  const auto [first, last] = m_Grid->visibleRows();
  gl.begin(TDrawSink::Lines);
  for (int row = first; row <= last + 1 && row <= m_Grid->rowcount; ++row) {
    gl.vertex(0, 14.0f * static_cast<float>(row));
    gl.vertex(w, 14.0f * static_cast<float>(row));
  }
  gl.end();
}

void registerTableLensCore() { TProcessorRegistry::instance().add<TTableLensProcessorCpp>(); }

}  // namespace quorvel
