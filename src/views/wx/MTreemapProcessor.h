// The treemap in a window: the processor's hooks, the renderer and the
// canvas that draws the tiles and picks them.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "views/wx/MNodeEdgeInteractor.h"
#include "views/core/MTreemapCore.h"

namespace quorvel {

class TTreemapProcessorImplementation : public TTreemapProcessorImplementationCpp {
 public:
  class TCanvas : public TNodeEdgeInteractorCanvas {
   public:
    TCanvas(wxWindow* parent, std::shared_ptr<TCommonRenderer> renderer, TTreemapProcessorImplementation* impl);
    TTreemapProcessorImplementation* impl;
    void OnSize(wxSizeEvent* event) override;
    void OnSetMatrices() override;
    void OnDraw() override;

   private:
    TGlDrawSink m_Sink;
  };

  TTreemapProcessorImplementation(TTreemapProcessorCpp* processor, wxWindow* parent);
  ~TTreemapProcessorImplementation() override;

  std::shared_ptr<TCommonRenderer> renderer;
  wxWeakRef<TCanvas> canvas;
  std::optional<std::string> tooltiptext;

  std::string listPrefix() const;
  void clearLists();
};

class TTreemapProcessor : public TTreemapProcessorCpp {
 public:
  QV_CLASS_NAME(TTreemapProcessor)
  unsigned hookMask() override { return kHookProcess | kHookDestroy; }
  void process_python() override;
  void destroy_python() override;
  TTreemapProcessorImplementation* implementation() const {
    return static_cast<TTreemapProcessorImplementation*>(m_Implementation.get());
  }
};

void registerTreemapView();

}  // namespace quorvel
