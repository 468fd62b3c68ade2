// Paths within an imported tree: relative to its root, '/' separated.
#pragma once

#include <sstream>
#include <string>
#include <vector>

namespace quorvel {

// "a/./b/../c" as "a/c"; empty for a path that climbs above the root.
inline std::string normalizeTreePath(const std::string& path) {
  std::vector<std::string> parts;
  std::stringstream ss(path);
  std::string part;
  while (std::getline(ss, part, '/')) {
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (parts.empty()) return "";
      parts.pop_back();
      continue;
    }
    parts.push_back(part);
  }
  std::string out;
  for (const auto& p : parts) out += (out.empty() ? "" : "/") + p;
  return out;
}

inline std::string parentOfTreePath(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(0, slash);
}

inline std::string joinTreePath(const std::string& dir, const std::string& rest) {
  return dir.empty() ? rest : rest.empty() ? dir : dir + "/" + rest;
}

}  // namespace quorvel
