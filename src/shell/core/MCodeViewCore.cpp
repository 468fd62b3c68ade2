#include "shell/core/MCodeViewCore.h"

#include <charconv>
#include <filesystem>

#include "base/MErrors.h"
#include "data/MValues.h"
#include "engine/MMediator.h"
#include "engine/MRegistry.h"

namespace quorvel {

namespace fs = std::filesystem;

TSourceLocation parseSourceLocation(std::string_view value) {
  std::vector<std::string_view> fields;
  for (size_t start = 0;;) {
    const size_t bar = value.find('|', start);
    fields.push_back(value.substr(start, bar == std::string_view::npos ? std::string_view::npos : bar - start));
    if (bar == std::string_view::npos) break;
    start = bar + 1;
  }
  const std::string quoted = "'" + std::string(value) + "'";
  if (fields.size() < 5) throw TFlowError("Source location " + quoted + " has fewer than five fields");
  TSourceLocation loc;
  std::string_view file = fields[0];
  if (file.rfind("FILE:", 0) == 0) file.remove_prefix(5);
  loc.file = std::string(file);
  int* numbers[] = {&loc.firstLine, &loc.firstColumn, &loc.lastLine, &loc.lastColumn};
  for (size_t i = 0; i < 4; ++i) {
    const std::string_view f = fields[i + 1];
    const auto [end, ec] = std::from_chars(f.data(), f.data() + f.size(), *numbers[i]);
    if (ec != std::errc() || end != f.data() + f.size() || f.empty())
      throw TFlowError("Source location " + quoted + ": field " + std::to_string(i + 1) + " is no number");
  }
  for (size_t i = 5; i < fields.size(); ++i) loc.extra.emplace_back(fields[i]);
  return loc;
}

TTextRange zeroBased(const TSourceLocation& l) {
  return {l.firstLine - 1, l.firstColumn - 1, l.lastLine - 1, l.lastColumn};
}

std::string resolveSourcePath(const std::string& file, const std::string& base) {
  const fs::path path(file);
  if (path.is_absolute() || base.empty()) return file;
  return (fs::path(base) / path).lexically_normal().string();
}

std::string codeViewStatus(size_t nodes, size_t markers) {
  if (nodes == 1 && markers == 0) return "Could not find the location for this node.";
  return "Found location for " + std::to_string(markers) + " of " + std::to_string(nodes) + " nodes.";
}

void TCodeTextControlCpp::postCreate() {
  m_GuiParent = addInputPin<TPythonData>("gui parent");
  m_NodeSelection = addInputPin<TIntegerSetData>("node selection");
  m_NodeUserSelection = addInputPin<TIntegerSetData>("node user selection");
  m_Attributes = addInputPin<TAttributeDataArray>("attributes");
  m_BasePath = addInputPin<TStringData>("base path");
}

void TCodeTextControlCpp::findLocationAttribute() {
  locationattr.reset();
  if (auto attrs = std::dynamic_pointer_cast<TDataArray>(m_Attributes->getData())) {
    bool found = false;
    locationattr = std::dynamic_pointer_cast<TAttributeData>(attrs->getItemByKey("_srcloc", found));
  }
  if (!locationattr)
    logError(getKeyText() +
             ": Dataset does not contain a source code location attribute (\"_srcloc\"). Cannot show code.");
}

std::optional<std::pair<std::string, TSourceLocation>> TCodeTextControlCpp::getFilenameAndMarker(uint32_t id) const {
  if (!locationattr) return std::nullopt;
  bool found = false;
  const std::string value = locationattr->getTextValueById(id, found);
  if (!found) return std::nullopt;
  TSourceLocation loc = parseSourceLocation(value);
  auto base = std::dynamic_pointer_cast<TStringData>(m_BasePath->getData());
  std::string file = resolveSourcePath(loc.file, base ? base->getValue() : std::string());
  return std::make_pair(std::move(file), std::move(loc));
}

TLocationGroups TCodeTextControlCpp::groupSelection() const {
  TLocationGroups groups;
  auto selection = std::dynamic_pointer_cast<TIntegerSetData>(m_NodeUserSelection->getData());
  if (!selection) return groups;
  for (uint32_t id : selection->m_Set) {
    if (groups.nodes + 1 >= 100) break;
    ++groups.nodes;
    auto marker = getFilenameAndMarker(id);
    if (!marker) continue;
    auto it = std::find_if(groups.files.begin(), groups.files.end(),
                           [&](const auto& f) { return f.first == marker->first; });
    if (it == groups.files.end()) it = groups.files.insert(groups.files.end(), {marker->first, {}});
    it->second.push_back(std::move(marker->second));
  }
  return groups;
}

void registerCodeViewCore() {
  auto& reg = TProcessorRegistry::instance();
  reg.add<TCodeTextControlCpp>();
}

}  // namespace quorvel
