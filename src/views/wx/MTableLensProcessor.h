// The table lens in a window: a panel with the canvas and a vertical
// scroll bar, the fonts, the headers and texts, and the mouse.
#pragma once

#include <wx/scrolbar.h>

#include <array>
#include <memory>
#include <optional>

#include "views/wx/MNodeEdgeInteractor.h"
#include "views/core/MTableLensCore.h"

namespace quorvel {

class TTableLensImplementation : public TTableLensImplementationCpp {
 public:
  class TGlGrid : public wxPanel {
   public:
    class TCanvas : public TNodeEdgeInteractorCanvas {
     public:
      TCanvas(wxWindow* parent, std::shared_ptr<TCommonRenderer> renderer, TTableLensImplementation* impl);
      TTableLensImplementation* impl;
      // The anchor of Shift clicks and the separator being dragged.
      TRowClickSelection rowclicks;
      std::optional<int> dragcolumn;
      int dragx = 0;

      void OnSize(wxSizeEvent* event) override;
      void OnSetMatrices() override;
      void OnDraw() override;
      void OnMouseMotion(wxMouseEvent& evt) override;
      void OnMouseLeftDown(wxMouseEvent& evt) override;
      void OnMouseLeftUp(wxMouseEvent& evt) override;
      void OnLeftMouseDoubleClick(wxMouseEvent& evt) override;
      void OnMouseLeave(wxMouseEvent& evt) override;
      void OnRightDown(wxMouseEvent& evt);
      // The hits with at least one name, sorted by their first: the last
      // is of the highest kind, separator over header over row.
      std::vector<std::vector<unsigned>> pickedNames();

     private:
      TGlDrawSink m_Sink;
      void headerClicked(int column, bool menu);
      void releaseRow(int row, const wxMouseEvent& evt);
    };

    TGlGrid(wxWindow* parent, TTableLensImplementation* impl);
    TCanvas* canvas;
    wxScrollBar* scrollbar;
  };

  TTableLensImplementation(TTableLensProcessorCpp* processor, wxWindow* parent);
  ~TTableLensImplementation() override;

  std::shared_ptr<TCommonRenderer> renderer;
  wxWeakRef<TGlGrid> panel;
  TGlGrid::TCanvas* canvas() const { return panel ? panel->canvas : nullptr; }

  void clearLists() override;
  void refresh() override;
  void setScrollbar() override;
  void canvasSize(int& width, int& height) const override;
  // The wheel's zoom; it is also written to the zoom setting, which
  // every draw applies.
  void changeZoom(float v);

  void ensureFontsExist();
  void renderTexts();
  void renderHeaders();
  void renderHeader(int column, const TGridRect& rect) override;
  bool renderText(int column, int row, const TGridRect& rect) override;

 private:
  // Rows at 14, 12, 11 and 10 pixels, and the headers' font at 16.
  std::array<std::unique_ptr<wxGLBase::GLText>, 4> m_RowFonts;
  std::unique_ptr<wxGLBase::GLText> m_HeaderFont;
  bool m_FontsExist = false;
  wxGLBase::GLText* m_RowFont = nullptr;
};

class TTableLensProcessor : public TTableLensProcessorCpp {
 public:
  QV_CLASS_NAME(TTableLensProcessor)
  unsigned hookMask() override { return kHookProcess | kHookDestroy; }
  void process_python() override { process(); }
  void destroy_python() override { m_Implementation.reset(); }
  void onGuiParent() override;
  TTableLensImplementation* implementation() const {
    return static_cast<TTableLensImplementation*>(m_Implementation.get());
  }
};

void registerTableLensView();

}  // namespace quorvel
