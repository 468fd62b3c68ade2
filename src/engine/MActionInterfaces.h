// The handlers of action processors that the command interface calls
// directly.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quorvel {

class TScreenshotTaker {
 public:
  virtual ~TScreenshotTaker() = default;
  // To the file, or to the clipboard without one.
  virtual void OnScreenshot(const std::optional<std::string>& filename, bool large) = 0;
};

class TVisibilityKeeper {
 public:
  virtual ~TVisibilityKeeper() = default;
  // Unfolds the ancestors of the ids, or of the node user selection.
  virtual void OnEnsureInternalSelectionVisible(const std::optional<std::vector<uint32_t>>& nids) = 0;
};

// A processor with a modal dialog of its settings.
class TSettingsFrameOwner {
 public:
  virtual ~TSettingsFrameOwner() = default;
  // Parent null: the main window.
  virtual void constructSettingsFrame(void* parent) = 0;
};

}  // namespace quorvel
