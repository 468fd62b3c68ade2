// The radial view in a window: the processor's hooks, the renderer and the
// canvas that draws the rings and picks them.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "views/core/MHebCore.h"
#include "views/wx/MNodeEdgeInteractor.h"

namespace quorvel {

class THebProcessorImplementation : public THebProcessorImplementationCpp {
 public:
  class TCanvas : public TNodeEdgeInteractorCanvas {
   public:
    TCanvas(wxWindow* parent, std::shared_ptr<TCommonRenderer> renderer, THebProcessorImplementation* impl);
    THebProcessorImplementation* impl;
    std::optional<std::string> tooltiptext;
    void OnSize(wxSizeEvent* event) override;
    void OnSetMatrices() override;
    void OnDraw() override;

   private:
    TGlDrawSink m_Sink;
  };

  THebProcessorImplementation(THebProcessorCpp* processor, wxWindow* parent);
  ~THebProcessorImplementation() override;

  std::shared_ptr<TCommonRenderer> renderer;
  wxWeakRef<TCanvas> canvas;

  // Clears every list of the view and repaints.
  void refresh();
  std::string listPrefix() const;
  void clearLists(const std::string& part);
};

class THebProcessor : public THebProcessorCpp {
 public:
  QV_CLASS_NAME(THebProcessor)
  unsigned hookMask() override { return kHookProcess | kHookDestroy; }
  void process_python() override;
  void destroy_python() override;
  void animate(double fraction);
  THebProcessorImplementation* implementation() const {
    return static_cast<THebProcessorImplementation*>(m_Implementation.get());
  }
};

void registerHebView();

}  // namespace quorvel
