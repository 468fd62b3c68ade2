// The code view: a tab for each source file of the selected nodes, the
// node's first line marked with an arrow and its range boxed in red.
#pragma once

#include <wx/aui/auibook.h>
#include <wx/stc/stc.h>
#include <wx/wx.h>

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "shell/core/MCodeViewCore.h"

namespace quorvel {

// Files larger than this are not opened: a text control holding them would
// take seconds and gigabytes.
constexpr uintmax_t kLargestSourceFile = 64u << 20;

class TCodeTextPage : public wxStyledTextCtrl {
 public:
  TCodeTextPage(wxWindow* parent, const std::string& filename);
  std::string filename;
  // The text position of a 0-based line and column, within the text.
  int positionOf(int line, int column);
};

class TCodeTextControl;

class TCodePanel : public wxPanel {
 public:
  TCodePanel(wxWindow* parent, TCodeTextControl* processor);
  wxAuiNotebook* notebook;
  std::map<std::string, TCodeTextPage*> pages;
  wxStaticText* statustext;
  std::optional<std::string> switchtopage;
  TCodeTextControl* processor;
  void update();
  // Opens the file's tab, or gives the reason it cannot: a missing file, a
  // folder or a device, a file too large.
  TCodeTextPage* openPage(const std::string& filename, std::string& problem);

 private:
  void rebuildPages();
};

class TCodeTextControl : public TCodeTextControlCpp {
 public:
  QV_CLASS_NAME(TCodeTextControl)
  unsigned hookMask() override { return kHookProcess | kHookDestroy; }
  void process_python() override;
  void destroy_python() override;
  wxWeakRef<TCodePanel> panel;
};

void registerCodeView();

}  // namespace quorvel
