// The code view's core: where the selected nodes stand in their source
// files, read from the node attribute "_srcloc", and the folder that
// relative file names are found in.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "data/MAttributes.h"
#include "data/MIdContainers.h"
#include "engine/MFlowObjects.h"

namespace quorvel {

// One value of "_srcloc": "FILE:path|first line|first column|last line|
// last column[|extra|extra]", lines and columns from 1, the last column
// inclusive; the "FILE:" prefix is optional.
struct TSourceLocation {
  std::string file;
  int firstLine = 1, firstColumn = 1, lastLine = 1, lastColumn = 1;
  std::vector<std::string> extra;
};

// Raises TFlowError with the value in its text when a field is missing or
// fields 1 to 4 are no numbers.
TSourceLocation parseSourceLocation(std::string_view value);

// A location in 0-based lines and columns, the end column exclusive: a
// range that ends at column 5 (from 1) covers column 5.
struct TTextRange {
  int firstLine, firstColumn, lastLine, lastColumn;
};
TTextRange zeroBased(const TSourceLocation& location);

// A file name of the dataset as a path: an absolute one as it stands, a
// relative one under `base` when a base is given.
std::string resolveSourcePath(const std::string& file, const std::string& base);

// The locations of the selected nodes grouped by file, the files in the
// order of their first node; `nodes` counts the ids looked at (at most 99),
// with or without a location.
struct TLocationGroups {
  std::vector<std::pair<std::string, std::vector<TSourceLocation>>> files;
  size_t nodes = 0;
};

// The status line after an update.
std::string codeViewStatus(size_t nodes, size_t markers);

class TCodeTextControlCpp : public TAbstractProcessor {
 public:
  QV_CLASS_NAME(TCodeTextControlCpp)
  TPinPtr m_GuiParent, m_NodeSelection, m_NodeUserSelection, m_Attributes, m_BasePath;
  std::shared_ptr<TAttributeData> locationattr;
  void postCreate() override;
  std::string getTypeName() override { return "code text control"; }

  // The file (resolved against `base path`) and the location of a node, or
  // none when the node has no value.
  std::optional<std::pair<std::string, TSourceLocation>> getFilenameAndMarker(uint32_t id) const;
  // Walks the user selection in order and stops when its count reaches
  // 100.
  TLocationGroups groupSelection() const;
  // Looks "_srcloc" up in `attributes`; logs the error when it is absent.
  void findLocationAttribute();
};

void registerCodeViewCore();

}  // namespace quorvel
