// Resolves what source files name (packages, modules, namespaces) to files
// and folders of the imported tree, by each language's own rules: Java and
// Kotlin packages, relative and mapped module paths of JavaScript and
// TypeScript, Go modules, Rust's crate paths and C# namespaces.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string_view>
#include <unordered_map>
#include <string>
#include <vector>

#include "MDependencyScanners.h"

namespace quorvel {

struct TTreeFile {
  std::string path;  // relative to the root, '/' separated
  TSourceLanguage language = TSourceLanguage::Other;
  TSourceFacts facts;
};

struct TDependencyTarget {
  enum Kind { File, Folder, External } kind = File;
  // Into the files, the folders, or the external packages.
  uint32_t index = 0;
};

struct TKindCount {
  uint64_t resolved = 0;
  uint64_t leftOut = 0;
};

class TDependencyResolver {
 public:
  // `root`: the tree on disk, for its tsconfig.json, go.mod and Cargo.toml
  // files. `folders`: the tree's folders ("" the root). With `keepExternal`
  // a bare package name of a script becomes an external target.
  TDependencyResolver(std::string root, const std::vector<std::string>& folders, const std::vector<TTreeFile>& files,
                      bool keepExternal);

  using EdgeSink = std::function<void(uint32_t from, const TDependencyTarget& to, const std::string& kind)>;
  // One call per edge, a file's edges in the order of its references; the
  // same target and kind once per file, none from a file to itself.
  void resolve(const EdgeSink& edge);

  // Per kind, what was resolved and what was left out.
  const std::map<std::string, TKindCount>& counts() const { return m_Counts; }
  // What the resolver could not read, for the status lines.
  const std::vector<std::string>& notes() const { return m_Notes; }
  // The names of the external packages, in the order of their targets.
  const std::vector<std::string>& externals() const { return m_Externals; }

 private:
  struct ScriptConfig {
    std::string baseUrl;  // the folder, relative to the root; empty: none
    bool hasBaseUrl = false;
    std::string pathsBase;
    std::vector<std::pair<std::string, std::vector<std::string>>> paths;
  };
  struct GoModule {
    std::string path;  // empty: no module line
  };

  long fileIndex(const std::string& path) const;
  long folderIndex(const std::string& path) const;
  long scriptFile(const std::string& path) const;
  const ScriptConfig* scriptConfigOf(const std::string& dir);
  const std::pair<const std::string, GoModule>* goModuleOf(const std::string& dir);
  std::string rustSourceFolderOf(const std::string& dir) const;
  long rustModuleFile(const std::string& source, const std::vector<std::string>& path) const;

  bool resolveJava(const TTreeFile& f, const TSourceReference& r, std::vector<TDependencyTarget>& out);
  bool resolveScript(const TTreeFile& f, const TSourceReference& r, std::vector<TDependencyTarget>& out);
  bool resolveGo(const TTreeFile& f, const TSourceReference& r, std::vector<TDependencyTarget>& out);
  bool resolveRust(const TTreeFile& f, const TSourceReference& r, std::vector<TDependencyTarget>& out);
  bool resolveCSharp(const TTreeFile& f, const TSourceReference& r, std::vector<TDependencyTarget>& out);

  struct Hash {
    using is_transparent = void;
    size_t operator()(std::string_view s) const { return std::hash<std::string_view>()(s); }
  };
  template <class V>
  using ByName = std::unordered_map<std::string, V, Hash, std::equal_to<>>;

  std::string m_Root;
  const std::vector<TTreeFile>& m_Files;
  bool m_KeepExternal;
  ByName<uint32_t> m_FileByPath;
  ByName<uint32_t> m_FolderByPath;
  ByName<std::vector<uint32_t>> m_JavaNames;   // "pkg.Name" to files
  ByName<uint32_t> m_JavaPackages;             // package to folder
  ByName<std::vector<uint32_t>> m_Namespaces;  // C#
  std::map<std::string, ScriptConfig> m_ScriptConfigs;                     // by folder
  std::map<std::string, GoModule> m_GoModules;                             // by folder
  std::map<std::string, const ScriptConfig*> m_ConfigOfDir;
  std::map<std::string, uint32_t> m_ExternalIndex;
  std::vector<std::string> m_Externals;
  std::map<std::string, TKindCount> m_Counts;
  std::vector<std::string> m_Notes;
};

// A value of JSON as tsconfig.json holds it: comments and trailing commas
// allowed. Parsing failures throw std::runtime_error with the position.
struct TJsonValue {
  enum Type { Null, Bool, Number, String, Array, Object } type = Null;
  std::string text;  // a string's, or a number's as written
  bool flag = false;
  std::vector<TJsonValue> items;
  std::vector<std::pair<std::string, TJsonValue>> members;
  const TJsonValue* member(const std::string& key) const;
};
TJsonValue parseJsonWithComments(const std::string& text);

}  // namespace quorvel
