#include "dataset/MSourceRoot.h"

#include <filesystem>
#include <fstream>
#include <string_view>

#include "base/MDatabase.h"

namespace quorvel {

namespace fs = std::filesystem;

std::string sourceRootOf(const std::string& datasetFile) {
  if (datasetFile.empty()) return {};
  const fs::path dataset = fs::absolute(fs::path(datasetFile));
  const fs::path folder = dataset.parent_path();
  std::error_code ec;
  if (!fs::is_regular_file(dataset, ec)) return folder.string();
  char magic[16] = {};
  if (std::ifstream in(dataset, std::ios::binary); !in.read(magic, sizeof magic) ||
                                                   std::string_view(magic, 15) != "SQLite format 3")
    return folder.string();
  try {
    TDatabase db(dataset.string());
    auto row = db.execute("SELECT value FROM information WHERE key='source root'")->fetchone();
    if (row && std::holds_alternative<std::string>((*row)[0])) {
      const fs::path root(std::get<std::string>((*row)[0]));
      return (root.is_absolute() ? root : (folder / root).lexically_normal()).string();
    }
  } catch (const std::exception&) {
  }
  return folder.string();
}

void TSourceRootProcessor::postCreate() {
  m_In = addInputPin<TStringData>("in");
  m_Out = addOutputPin<TStringData>("out");
}

void TSourceRootProcessor::process() {
  if (m_In->hasChanged()) {
    auto name = std::dynamic_pointer_cast<TStringData>(m_In->getData());
    m_Out->setData(name ? std::make_shared<TStringData>(sourceRootOf(name->getValue())) : nullptr);
  }
  resetPins({});
}

}  // namespace quorvel
