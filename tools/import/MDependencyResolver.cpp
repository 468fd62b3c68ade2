#include "MDependencyResolver.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <set>
#include <unordered_set>
#include <sstream>
#include <stdexcept>

#include "MTreePaths.h"

namespace quorvel {

// ---------------------------------------------------------------------------
// JSON with comments

const TJsonValue* TJsonValue::member(const std::string& key) const {
  for (const auto& [k, v] : members)
    if (k == key) return &v;
  return nullptr;
}

namespace {

class TJsonParser {
 public:
  explicit TJsonParser(const std::string& text) : t(text) {}
  TJsonValue document() {
    TJsonValue v = value();
    space();
    if (i != t.size()) fail("text after the value");
    return v;
  }

 private:
  [[noreturn]] void fail(const std::string& what) const {
    throw std::runtime_error(what + " at offset " + std::to_string(i));
  }
  void space() {
    while (i < t.size()) {
      if (std::isspace(static_cast<unsigned char>(t[i]))) {
        ++i;
      } else if (t.compare(i, 2, "//") == 0) {
        while (i < t.size() && t[i] != '\n') ++i;
      } else if (t.compare(i, 2, "/*") == 0) {
        const size_t end = t.find("*/", i + 2);
        if (end == std::string::npos) fail("comment not closed");
        i = end + 2;
      } else {
        break;
      }
    }
  }
  std::string string() {
    if (i >= t.size() || t[i] != '"') fail("a string expected");
    std::string out;
    ++i;
    while (i < t.size() && t[i] != '"') {
      if (t[i] == '\\' && i + 1 < t.size()) {
        const char e = t[++i];
        out += e == 'n' ? '\n' : e == 't' ? '\t' : e;
        if (e == 'u') i += 4;  // kept out: module paths are plain
        ++i;
        continue;
      }
      out += t[i++];
    }
    if (i >= t.size()) fail("string not closed");
    ++i;
    return out;
  }
  TJsonValue value() {
    space();
    if (i >= t.size()) fail("a value expected");
    TJsonValue v;
    const char c = t[i];
    if (c == '{') {
      v.type = TJsonValue::Object;
      ++i;
      while (true) {
        space();
        if (i < t.size() && t[i] == '}') break;
        std::string key = string();
        space();
        if (i >= t.size() || t[i] != ':') fail("':' expected");
        ++i;
        v.members.emplace_back(std::move(key), value());
        space();
        if (i < t.size() && t[i] == ',') {
          ++i;
          continue;
        }
        if (i >= t.size() || t[i] != '}') fail("'}' expected");
        break;
      }
      ++i;
    } else if (c == '[') {
      v.type = TJsonValue::Array;
      ++i;
      while (true) {
        space();
        if (i < t.size() && t[i] == ']') break;
        v.items.push_back(value());
        space();
        if (i < t.size() && t[i] == ',') {
          ++i;
          continue;
        }
        if (i >= t.size() || t[i] != ']') fail("']' expected");
        break;
      }
      ++i;
    } else if (c == '"') {
      v.type = TJsonValue::String;
      v.text = string();
    } else if (t.compare(i, 4, "true") == 0 || t.compare(i, 5, "false") == 0) {
      v.type = TJsonValue::Bool;
      v.flag = t[i] == 't';
      i += v.flag ? 4 : 5;
    } else if (t.compare(i, 4, "null") == 0) {
      i += 4;
    } else if (c == '-' || std::isdigit(static_cast<unsigned char>(c))) {
      v.type = TJsonValue::Number;
      const size_t start = i;
      while (i < t.size() && (std::isdigit(static_cast<unsigned char>(t[i])) || std::strchr("+-.eE", t[i]))) ++i;
      v.text = t.substr(start, i - start);
    } else {
      fail(std::string("unexpected '") + c + "'");
    }
    return v;
  }
  const std::string& t;
  size_t i = 0;
};

std::string readSmallFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str().substr(0, 1 << 20);
}

std::string fileName(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string stem(const std::string& path) {
  const std::string name = fileName(path);
  const size_t dot = name.find('.');
  return dot == std::string::npos ? name : name.substr(0, dot);
}

bool startsWith(const std::string& s, const std::string& prefix) { return s.compare(0, prefix.size(), prefix) == 0; }

std::vector<std::string> split(const std::string& s, const std::string& separator) {
  std::vector<std::string> out;
  size_t start = 0;
  while (true) {
    const size_t at = s.find(separator, start);
    out.push_back(s.substr(start, at - start));
    if (at == std::string::npos) return out;
    start = at + separator.size();
  }
}

}  // namespace

TJsonValue parseJsonWithComments(const std::string& text) { return TJsonParser(text).document(); }

// ---------------------------------------------------------------------------

TDependencyResolver::TDependencyResolver(std::string root, const std::vector<std::string>& folders,
                                         const std::vector<TTreeFile>& files, bool keepExternal)
    : m_Root(std::move(root)), m_Files(files), m_KeepExternal(keepExternal) {
  for (uint32_t i = 0; i < folders.size(); ++i) m_FolderByPath.emplace(folders[i], i);
  // Files of a package: the folder most of them stand in.
  std::map<std::string, std::map<std::string, size_t>> packageFolders;
  for (uint32_t i = 0; i < files.size(); ++i) {
    const TTreeFile& f = files[i];
    m_FileByPath.emplace(f.path, i);
    const std::string name = fileName(f.path);
    const std::string dir = parentOfTreePath(f.path);
    if (f.language == TSourceLanguage::Java || f.language == TSourceLanguage::Kotlin) {
      const std::string prefix = f.facts.package.empty() ? "" : f.facts.package + ".";
      std::set<std::string> names(f.facts.declared.begin(), f.facts.declared.end());
      names.insert(stem(f.path));
      for (const auto& n : names) m_JavaNames[prefix + n].push_back(i);
      if (!f.facts.package.empty()) ++packageFolders[f.facts.package][dir];
    } else if (f.language == TSourceLanguage::CSharp) {
      for (const auto& ns : f.facts.declared) m_Namespaces[ns].push_back(i);
    } else if (name == "tsconfig.json" || name == "jsconfig.json") {
      try {
        const TJsonValue config = parseJsonWithComments(readSmallFile(m_Root + "/" + f.path));
        ScriptConfig c;
        const TJsonValue* options = config.member("compilerOptions");
        const TJsonValue* baseUrl = options ? options->member("baseUrl") : nullptr;
        if (baseUrl && baseUrl->type == TJsonValue::String) {
          c.hasBaseUrl = true;
          c.baseUrl = normalizeTreePath(joinTreePath(dir, baseUrl->text));
        }
        c.pathsBase = c.hasBaseUrl ? c.baseUrl : dir;
        if (const TJsonValue* paths = options ? options->member("paths") : nullptr) {
          for (const auto& [pattern, targets] : paths->members) {
            std::vector<std::string> list;
            for (const auto& t : targets.items)
              if (t.type == TJsonValue::String) list.push_back(t.text);
            c.paths.emplace_back(pattern, list);
          }
        }
        // tsconfig.json takes precedence over jsconfig.json in a folder.
        if (name == "tsconfig.json" || !m_ScriptConfigs.count(dir)) m_ScriptConfigs[dir] = std::move(c);
      } catch (const std::exception& e) {
        m_Notes.push_back("'" + f.path + "' is not JSON (" + e.what() + "): its module paths are left out");
      }
    } else if (name == "go.mod") {
      GoModule module;
      std::istringstream in(readSmallFile(m_Root + "/" + f.path));
      std::string line;
      while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string keyword, path;
        if (words >> keyword >> path && keyword == "module") {
          if (path.size() >= 2 && path.front() == '"' && path.back() == '"') path = path.substr(1, path.size() - 2);
          module.path = path;
          break;
        }
      }
      if (module.path.empty())
        m_Notes.push_back("'" + f.path + "' has no module line: the Go imports below it are left out");
      m_GoModules[dir] = module;
    }
  }
  for (const auto& [package, byFolder] : packageFolders) {
    const auto best = std::max_element(byFolder.begin(), byFolder.end(),
                                       [](const auto& a, const auto& b) { return a.second < b.second; });
    const long folder = folderIndex(best->first);
    if (folder >= 0) m_JavaPackages.emplace(package, static_cast<uint32_t>(folder));
  }
}

long TDependencyResolver::fileIndex(const std::string& path) const {
  auto it = m_FileByPath.find(path);
  return it == m_FileByPath.end() ? -1 : static_cast<long>(it->second);
}

long TDependencyResolver::folderIndex(const std::string& path) const {
  auto it = m_FolderByPath.find(path);
  return it == m_FolderByPath.end() ? -1 : static_cast<long>(it->second);
}

void TDependencyResolver::resolve(const EdgeSink& edge) {
  std::vector<TDependencyTarget> targets;
  std::unordered_set<uint64_t> seen;
  std::map<std::string, uint64_t, std::less<>> kindNumbers;
  for (uint32_t i = 0; i < m_Files.size(); ++i) {
    const TTreeFile& f = m_Files[i];
    // A target once per kind: kinds are few, numbered as they come.
    seen.clear();
    for (const TSourceReference& r : f.facts.references) {
      targets.clear();
      bool resolved = false;
      switch (f.language) {
        case TSourceLanguage::Java:
        case TSourceLanguage::Kotlin: resolved = resolveJava(f, r, targets); break;
        case TSourceLanguage::JavaScript:
        case TSourceLanguage::TypeScript: resolved = resolveScript(f, r, targets); break;
        case TSourceLanguage::Go: resolved = resolveGo(f, r, targets); break;
        case TSourceLanguage::Rust: resolved = resolveRust(f, r, targets); break;
        case TSourceLanguage::CSharp: resolved = resolveCSharp(f, r, targets); break;
        case TSourceLanguage::Other: break;
      }
      TKindCount& count = m_Counts[r.kind];
      if (!resolved) {
        ++count.leftOut;
        continue;
      }
      ++count.resolved;
      const uint64_t kind = kindNumbers.emplace(r.kind, kindNumbers.size()).first->second;
      for (const auto& t : targets) {
        if (t.kind == TDependencyTarget::File && t.index == i) continue;
        if (seen.insert(kind << 34 | uint64_t(t.kind) << 32 | t.index).second) edge(i, t, r.kind);
      }
    }
  }
}

// Java and Kotlin: a class by its package and name, a nested or static
// member by the class that holds it, a wildcard by its package's folder.
bool TDependencyResolver::resolveJava(const TTreeFile&, const TSourceReference& r, std::vector<TDependencyTarget>& out) {
  std::string name = r.target;
  if (name.size() > 2 && name.compare(name.size() - 2, 2, ".*") == 0) {
    name.resize(name.size() - 2);
    if (auto p = m_JavaPackages.find(name); p != m_JavaPackages.end()) {
      out.push_back({TDependencyTarget::Folder, p->second});
      return true;
    }
  }
  while (!name.empty()) {
    if (auto it = m_JavaNames.find(name); it != m_JavaNames.end()) {
      out.push_back({TDependencyTarget::File, it->second.front()});
      return true;
    }
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos) break;
    name.resize(dot);
  }
  return false;
}

// ---------------------------------------------------------------------------
// JavaScript and TypeScript

// The file a module path names: the path itself, with one of the usual
// extensions, or the folder's index file. A ".js" written for a TypeScript
// source finds the source.
long TDependencyResolver::scriptFile(const std::string& path) const {
  if (path.empty()) return -1;
  static const char* const kExtensions[] = {".ts", ".tsx", ".d.ts", ".js", ".jsx", ".mjs", ".cjs", ".mts", ".cts"};
  if (long f = fileIndex(path); f >= 0) return f;
  for (const char* ext : kExtensions)
    if (long f = fileIndex(path + ext); f >= 0) return f;
  for (const auto& [js, ts] : {std::pair{".js", ".ts"}, {".js", ".tsx"}, {".mjs", ".mts"}, {".cjs", ".cts"},
                               {".jsx", ".tsx"}}) {
    const std::string j(js);
    if (path.size() > j.size() && path.compare(path.size() - j.size(), j.size(), j) == 0)
      if (long f = fileIndex(path.substr(0, path.size() - j.size()) + ts); f >= 0) return f;
  }
  if (long f = fileIndex(path + ".json"); f >= 0) return f;
  for (const char* ext : kExtensions)
    if (long f = fileIndex(path + "/index" + ext); f >= 0) return f;
  return -1;
}

const TDependencyResolver::ScriptConfig* TDependencyResolver::scriptConfigOf(const std::string& dir) {
  auto memo = m_ConfigOfDir.find(dir);
  if (memo != m_ConfigOfDir.end()) return memo->second;
  const ScriptConfig* found = nullptr;
  if (auto it = m_ScriptConfigs.find(dir); it != m_ScriptConfigs.end()) found = &it->second;
  else if (!dir.empty()) found = scriptConfigOf(parentOfTreePath(dir));
  m_ConfigOfDir[dir] = found;
  return found;
}

bool TDependencyResolver::resolveScript(const TTreeFile& f, const TSourceReference& r,
                                        std::vector<TDependencyTarget>& out) {
  const std::string& spec = r.target;
  const std::string dir = parentOfTreePath(f.path);
  auto found = [&](long file) {
    if (file < 0) return false;
    out.push_back({TDependencyTarget::File, static_cast<uint32_t>(file)});
    return true;
  };
  if (startsWith(spec, "./") || startsWith(spec, "../") || spec == "." || spec == "..")
    return found(scriptFile(normalizeTreePath(joinTreePath(dir, spec))));
  if (const ScriptConfig* c = scriptConfigOf(dir)) {
    for (const auto& [pattern, targets] : c->paths) {
      const size_t star = pattern.find('*');
      std::string middle;
      if (star == std::string::npos) {
        if (spec != pattern) continue;
      } else {
        const std::string before = pattern.substr(0, star);
        const std::string after = pattern.substr(star + 1);
        if (spec.size() < before.size() + after.size() || !startsWith(spec, before) ||
            spec.compare(spec.size() - after.size(), after.size(), after) != 0)
          continue;
        middle = spec.substr(before.size(), spec.size() - before.size() - after.size());
      }
      for (std::string target : targets) {
        if (const size_t s = target.find('*'); s != std::string::npos) target.replace(s, 1, middle);
        if (found(scriptFile(normalizeTreePath(joinTreePath(c->pathsBase, target))))) return true;
      }
    }
    if (c->hasBaseUrl && found(scriptFile(normalizeTreePath(joinTreePath(c->baseUrl, spec))))) return true;
  }
  if (!m_KeepExternal || spec.empty() || spec[0] == '/') return false;
  // A package by its name: "pkg" or "@scope/pkg", without a path within it.
  const auto parts = split(spec, "/");
  std::string package = parts[0];
  if (package[0] == '@' && parts.size() > 1) package += "/" + parts[1];
  if (startsWith(package, "node:")) package = package.substr(5);
  auto [it, added] = m_ExternalIndex.emplace(package, static_cast<uint32_t>(m_Externals.size()));
  if (added) m_Externals.push_back(package);
  out.push_back({TDependencyTarget::External, it->second});
  return true;
}

// ---------------------------------------------------------------------------
// Go

const std::pair<const std::string, TDependencyResolver::GoModule>* TDependencyResolver::goModuleOf(
    const std::string& dir) {
  std::string d = dir;
  while (true) {
    if (auto it = m_GoModules.find(d); it != m_GoModules.end()) return &*it;
    if (d.empty()) return nullptr;
    d = parentOfTreePath(d);
  }
}

bool TDependencyResolver::resolveGo(const TTreeFile& f, const TSourceReference& r, std::vector<TDependencyTarget>& out) {
  const auto* module = goModuleOf(parentOfTreePath(f.path));
  if (!module || module->second.path.empty()) return false;
  const std::string& prefix = module->second.path;
  std::string folder;
  if (r.target == prefix) folder = module->first;
  else if (startsWith(r.target, prefix + "/")) folder = joinTreePath(module->first, r.target.substr(prefix.size() + 1));
  else return false;
  const long index = folderIndex(normalizeTreePath(folder));
  if (index < 0) return false;
  out.push_back({TDependencyTarget::Folder, static_cast<uint32_t>(index)});
  return true;
}

// ---------------------------------------------------------------------------
// Rust

// The folder the crate's modules stand in: "src" beside the nearest
// Cargo.toml, else the nearest folder with lib.rs or main.rs.
std::string TDependencyResolver::rustSourceFolderOf(const std::string& dir) const {
  std::string d = dir;
  while (true) {
    if (fileIndex(joinTreePath(d, "Cargo.toml")) >= 0) return joinTreePath(d, "src");
    if (fileIndex(joinTreePath(d, "lib.rs")) >= 0 || fileIndex(joinTreePath(d, "main.rs")) >= 0) return d;
    if (d.empty()) return "\x01";  // none
    d = parentOfTreePath(d);
  }
}

// The file of the module at `path` below the crate's folder.
long TDependencyResolver::rustModuleFile(const std::string& source, const std::vector<std::string>& path) const {
  if (path.empty()) {
    const long lib = fileIndex(joinTreePath(source, "lib.rs"));
    return lib >= 0 ? lib : fileIndex(joinTreePath(source, "main.rs"));
  }
  std::string p = source;
  for (const auto& s : path) p = joinTreePath(p, s);
  const long file = fileIndex(p + ".rs");
  return file >= 0 ? file : fileIndex(p + "/mod.rs");
}

bool TDependencyResolver::resolveRust(const TTreeFile& f, const TSourceReference& r,
                                      std::vector<TDependencyTarget>& out) {
  const std::string dir = parentOfTreePath(f.path);
  const std::string name = fileName(f.path);
  const bool ownsFolder = name == "mod.rs" || name == "lib.rs" || name == "main.rs";
  if (r.kind == "mod") {
    // The file's child modules stand in its folder, or in a folder of its
    // name beside it.
    const std::string children = ownsFolder ? dir : joinTreePath(dir, stem(f.path));
    long file = fileIndex(joinTreePath(children, r.target + ".rs"));
    if (file < 0) file = fileIndex(joinTreePath(children, r.target + "/mod.rs"));
    if (file < 0) return false;
    out.push_back({TDependencyTarget::File, static_cast<uint32_t>(file)});
    return true;
  }
  const std::string source = rustSourceFolderOf(dir);
  if (source == "\x01") return false;
  // The file's own module path below the crate's folder.
  std::vector<std::string> self;
  if (startsWith(f.path, source.empty() ? "" : source + "/")) {
    std::string rel = source.empty() ? f.path : f.path.substr(source.size() + 1);
    rel = rel.substr(0, rel.size() - 3);  // ".rs"
    if (rel != "lib" && rel != "main") {
      self = split(rel, "/");
      if (self.back() == "mod") self.pop_back();
    }
  } else {
    return false;
  }
  std::vector<std::string> segments = split(r.target, "::");
  std::vector<std::string> base;
  size_t k = 0;
  if (segments[0] == "crate") {
    k = 1;
  } else if (segments[0] == "self") {
    base = self;
    k = 1;
  } else if (segments[0] == "super") {
    base = self;
    while (k < segments.size() && segments[k] == "super") {
      if (base.empty()) return false;
      base.pop_back();
      ++k;
    }
  } else {
    return false;
  }
  // The deepest module of the path that has a file.
  long best = rustModuleFile(source, base);
  for (; k < segments.size(); ++k) {
    base.push_back(segments[k]);
    const long file = rustModuleFile(source, base);
    if (file < 0) break;
    best = file;
  }
  if (best < 0) return false;
  out.push_back({TDependencyTarget::File, static_cast<uint32_t>(best)});
  return true;
}

// ---------------------------------------------------------------------------
// C#: a namespace to every file that declares it; a static class or an
// alias of a type to its namespace.
bool TDependencyResolver::resolveCSharp(const TTreeFile&, const TSourceReference& r,
                                        std::vector<TDependencyTarget>& out) {
  std::string name = r.target;
  while (!name.empty()) {
    if (auto it = m_Namespaces.find(name); it != m_Namespaces.end()) {
      for (uint32_t file : it->second) out.push_back({TDependencyTarget::File, file});
      return true;
    }
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos) break;
    name.resize(dot);
  }
  return false;
}

}  // namespace quorvel
