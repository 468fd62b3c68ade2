#include "MSourceImporter.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <unordered_map>
#include <unordered_set>

#include "MDependencyResolver.h"
#include "MGitHistory.h"
#include "MTreePaths.h"
#include "base/MDatabase.h"
#include "dataset/MXmlReader.h"

namespace fs = std::filesystem;

namespace quorvel {

namespace {

// ---------------------------------------------------------------------------
// What the importer keeps of the tree

constexpr uint32_t kNone = 0xffffffffu;

// Types and languages are few words, kept once: a node holds their index.
class TWords {
 public:
  TWords() {
    for (const char* w : {"", "folder", "file"}) id(w);
  }
  static constexpr uint16_t kEmpty = 0, kFolder = 1, kFile = 2;
  uint16_t id(const std::string& word) {
    auto [it, added] = m_Ids.emplace(word, static_cast<uint16_t>(m_Texts.size()));
    if (added) m_Texts.push_back(word);
    return it->second;
  }
  const std::string& text(uint16_t id) const { return m_Texts[id]; }

 private:
  std::unordered_map<std::string, uint16_t> m_Ids;
  std::deque<std::string> m_Texts;  // references stay valid as words are added
};

struct Node {
  uint32_t nid = 0;
  uint32_t parent = 0;  // 0: the root of the hierarchy
  uint32_t order = 0;
  uint16_t type = TWords::kEmpty;
  uint16_t language = TWords::kEmpty;
  std::string name;
  // "_srcloc" is made when written: the file's path, first line, column 1,
  // last line and last column.
  uint32_t srcFile = kNone;
  uint32_t firstLine = 0;
  uint32_t lastLine = 0;
  uint32_t lastColumn = 0;
  int64_t lines = -1;
  int64_t bytes = -1;
  int64_t definitions = 0;
  // From the history: -1 where it has nothing.
  int64_t commits = -1;
  int64_t churn = 0;
  int64_t newest = 0;  // author times of the last and the first change
  int64_t oldest = 0;
};

struct File {
  uint32_t node;             // index into the node list
  std::string path;          // relative to the root, '/' separated
  std::string language;      // "C", "C++", "Python" or ""
  std::vector<uint32_t> lineLengths;
  std::vector<std::string> includes;  // (quoted ? '"' : '<') + text
  std::vector<std::pair<std::string, std::vector<std::string>>> imports;  // module, names
  TSourceLanguage source = TSourceLanguage::Other;
  TSourceFacts facts;
};

struct Tag {
  std::string name;
  std::string inherits;
  uint16_t kind = TWords::kEmpty;
  uint16_t scopeKind = TWords::kEmpty;
  uint16_t language = TWords::kEmpty;
  uint32_t line = 0;
  uint32_t end = 0;
  uint32_t node = 0;
};

// What inheritance needs of a definition; its name is its node's.
struct Definition {
  uint32_t node;
  uint16_t language;
  bool isClass;
  std::string inherits;
};

std::string languageOfName(const std::string& name) {
  const std::string ext = fs::path(name).extension().string();
  static const std::map<std::string, std::string> byExtension = {
      {".c", "C"},      {".h", "C/C++"},  {".cc", "C++"},  {".cpp", "C++"}, {".cxx", "C++"},  {".c++", "C++"},
      {".hpp", "C++"},  {".hh", "C++"},   {".hxx", "C++"}, {".h++", "C++"}, {".inl", "C++"},  {".ipp", "C++"},
      {".tcc", "C++"},  {".py", "Python"}, {".pyi", "Python"}};
  auto it = byExtension.find(ext);
  if (it != byExtension.end()) return it->second;
  return sourceLanguageName(sourceLanguageOfPath(name));
}

bool isCFamily(const std::string& language) { return language == "C" || language == "C++" || language == "C/C++"; }

// The words of the Types colour map for ctags' kinds.
std::string typeOfTag(const std::string& kind, const std::string& scopeKind, const std::string& language) {
  const bool inType = scopeKind == "class" || scopeKind == "struct" || scopeKind == "union";
  if (language == "Python") {
    if (kind == "member") return "method";
    if (kind == "function") return inType ? "method" : "function";
    if (kind == "module" || kind == "namespace") return "module";
    return kind;
  }
  if (kind == "function" || kind == "prototype") return inType ? "method" : "function";
  if (kind == "member") return "field";
  if (kind == "externvar") return "variable";
  if (kind == "enumerator") return "constant";
  if (kind == "alias") return "typedef";
  return kind;
}

bool skippedKind(const std::string& kind) {
  static const std::unordered_set<std::string> skipped = {"local", "parameter", "label", "header", "unknown", "file"};
  return skipped.count(kind) != 0;
}

// ---------------------------------------------------------------------------
// Flat JSON objects, as ctags writes one per line.

std::unordered_map<std::string, std::string> parseFlatJson(const std::string& line) {
  std::unordered_map<std::string, std::string> out;
  size_t i = 0;
  auto skip = [&] {
    while (i < line.size() && std::isspace(static_cast<unsigned char>(line[i]))) ++i;
  };
  auto string = [&](std::string& s) {
    s.clear();
    if (i >= line.size() || line[i] != '"') return false;
    ++i;
    while (i < line.size() && line[i] != '"') {
      char c = line[i++];
      if (c == '\\' && i < line.size()) {
        const char e = line[i++];
        switch (e) {
          case 'n': c = '\n'; break;
          case 't': c = '\t'; break;
          case 'r': c = '\r'; break;
          case 'b': c = '\b'; break;
          case 'f': c = '\f'; break;
          case 'u': {
            const unsigned code = i + 4 <= line.size() ? std::stoul(line.substr(i, 4), nullptr, 16) : 0;
            i += 4;
            if (code < 0x80) {
              s += static_cast<char>(code);
            } else if (code < 0x800) {
              s += static_cast<char>(0xC0 | (code >> 6));
              s += static_cast<char>(0x80 | (code & 0x3F));
            } else {
              s += static_cast<char>(0xE0 | (code >> 12));
              s += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
              s += static_cast<char>(0x80 | (code & 0x3F));
            }
            continue;
          }
          default: c = e;
        }
      }
      s += c;
    }
    ++i;
    return true;
  };
  skip();
  if (i >= line.size() || line[i] != '{') return out;
  ++i;
  std::string key, value;
  while (true) {
    skip();
    if (!string(key)) break;
    skip();
    if (i >= line.size() || line[i] != ':') break;
    ++i;
    skip();
    if (i < line.size() && line[i] == '"') {
      string(value);
    } else {
      const size_t start = i;
      while (i < line.size() && line[i] != ',' && line[i] != '}') ++i;
      value = line.substr(start, i - start);
      while (!value.empty() && std::isspace(static_cast<unsigned char>(value.back()))) value.pop_back();
    }
    out[key] = value;
    skip();
    if (i < line.size() && line[i] == ',') {
      ++i;
      continue;
    }
    break;
  }
  return out;
}

std::string shellQuote(const std::string& s) {
  std::string out = "'";
  for (char c : s) {
    if (c == '\'') out += "'\\''";
    else out += c;
  }
  return out + "'";
}

// ---------------------------------------------------------------------------
// Includes and imports in the text of a file

void scanIncludes(const std::string& text, File& file) {
  size_t pos = 0;
  while (pos < text.size()) {
    size_t end = text.find('\n', pos);
    if (end == std::string::npos) end = text.size();
    size_t i = pos;
    while (i < end && (text[i] == ' ' || text[i] == '\t')) ++i;
    if (i < end && text[i] == '#') {
      ++i;
      while (i < end && (text[i] == ' ' || text[i] == '\t')) ++i;
      if (text.compare(i, 7, "include") == 0) {
        i += 7;
        while (i < end && (text[i] == ' ' || text[i] == '\t')) ++i;
        if (i < end && (text[i] == '"' || text[i] == '<')) {
          const char close = text[i] == '"' ? '"' : '>';
          const size_t stop = text.find(close, i + 1);
          if (stop != std::string::npos && stop < end)
            file.includes.push_back(std::string(1, text[i]) + text.substr(i + 1, stop - i - 1));
        }
      }
    }
    pos = end + 1;
  }
}

std::string trim(const std::string& s) {
  const size_t b = s.find_first_not_of(" \t\r");
  if (b == std::string::npos) return "";
  return s.substr(b, s.find_last_not_of(" \t\r") - b + 1);
}

// Statements "import a.b [as c], d" and "from x import (a, b)", whole lines
// joined over backslashes and open parentheses; text in triple quotes is
// passed over.
void scanImports(const std::string& text, File& file) {
  std::istringstream in(text);
  std::string line;
  bool inString = false;
  std::string quote;
  while (std::getline(in, line)) {
    for (const char* q : {"\"\"\"", "'''"}) {
      size_t at = 0;
      int count = 0;
      while ((at = line.find(q, at)) != std::string::npos) {
        ++count;
        at += 3;
      }
      if (count % 2 == 1 && (!inString || quote == q)) {
        inString = !inString;
        quote = q;
      }
    }
    if (inString) continue;
    std::string statement = trim(line);
    if (statement.rfind("import ", 0) != 0 && statement.rfind("from ", 0) != 0) continue;
    // Continuation lines.
    while ((!statement.empty() && statement.back() == '\\') ||
           (statement.find('(') != std::string::npos && statement.find(')') == std::string::npos)) {
      if (statement.back() == '\\') statement.pop_back();
      std::string next;
      if (!std::getline(in, next)) break;
      statement += " " + trim(next);
    }
    const size_t hash = statement.find('#');
    if (hash != std::string::npos) statement = statement.substr(0, hash);
    for (char& c : statement)
      if (c == '(' || c == ')' || c == ',') c = c == ',' ? ',' : ' ';
    auto names = [](const std::string& list) {
      std::vector<std::string> out;
      std::stringstream ss(list);
      std::string item;
      while (std::getline(ss, item, ',')) {
        std::stringstream words(item);
        std::string name;
        if (words >> name) out.push_back(name);
      }
      return out;
    };
    if (statement.rfind("import ", 0) == 0) {
      for (const auto& module : names(statement.substr(7))) file.imports.push_back({module, {}});
    } else {
      std::stringstream ss(statement.substr(5));
      std::string module, keyword;
      if (!(ss >> module >> keyword) || keyword != "import") continue;
      std::string rest;
      std::getline(ss, rest);
      file.imports.push_back({module, names(rest)});
    }
  }
}

}  // namespace

std::string protocolLine(const std::string& prefix, const std::string& text) {
  std::string out = prefix;
  out.reserve(prefix.size() + text.size());
  for (const char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (c == '\\') {
      out += "\\\\";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c < 0x20 || c == 0x7f) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\x%02x", c);
      out += buf;
    } else {
      out += ch;
    }
  }
  return out;
}

namespace {

// ---------------------------------------------------------------------------

class Importer {
 public:
  Importer(const TImportOptions& options) : m_Options(options) {}

  TImportCounts run(const fs::path& root, const std::string& output);

 private:
  void status(const std::string& text) {
    if (m_Options.report) m_Options.report(protocolLine("***STATUS: ", text));
  }
  void error(const std::string& text) {
    if (m_Options.report) m_Options.report(protocolLine("***ERROR: ", text));
  }
  uint32_t addNode(uint32_t parentNode, const std::string& name, uint16_t type) {
    Node n;
    n.nid = static_cast<uint32_t>(m_Nodes.size() + 1);
    n.parent = parentNode == kNoParent ? 0 : m_Nodes[parentNode].nid;
    n.order = parentNode == kNoParent ? 0 : ++m_ChildCount[parentNode];
    m_ChildCount.push_back(0);
    n.name = name;
    n.type = type;
    m_Nodes.push_back(std::move(n));
    m_Parents.push_back(parentNode);
    return static_cast<uint32_t>(m_Nodes.size() - 1);
  }
  void walk(const fs::path& root);
  void readFile(const fs::path& full, const std::string& rel, uint32_t folder);
  void runCtags(const fs::path& root);
  void nestTags();
  void resolveIncludes();
  void resolveImports();
  void resolveInheritance();
  void resolveDependencies();
  void readHistory(const fs::path& root);
  void count(const std::string& kind, bool resolved) {
    auto& k = m_Counts.kinds[kind];
    ++(resolved ? k.resolved : k.leftOut);
  }
  void sumUp();
  void write(const fs::path& root, const std::string& output);

  static constexpr uint32_t kNoParent = kNone;
  const TImportOptions& m_Options;
  TImportCounts m_Counts;
  std::vector<Node> m_Nodes;
  std::vector<uint32_t> m_Parents;
  std::vector<uint32_t> m_ChildCount;
  std::vector<File> m_Files;
  std::unordered_map<std::string, uint32_t> m_FileByPath;
  std::unordered_map<std::string, std::vector<uint32_t>> m_FilesByName;
  std::vector<std::string> m_IncludeFolders;
  std::unordered_map<std::string, std::vector<Tag>> m_TagsByPath;
  TWords m_Words;
  std::vector<Definition> m_Definitions;
  std::vector<std::tuple<uint32_t, uint32_t, std::string>> m_Edges;  // from node, to node, kind
  // The folders by path relative to the root, "" the root, with their nodes.
  std::vector<std::pair<std::string, uint32_t>> m_Folders;
  // Per node, the distinct authors of its history, ascending.
  std::vector<std::vector<uint32_t>> m_Authors;
  int64_t m_NewestCommit = 0;
  std::string m_Root;
};

void Importer::walk(const fs::path& root) {
  struct Dir {
    fs::path full;
    std::string rel;
    uint32_t node;
  };
  const std::string rootName = root.filename().empty() ? root.parent_path().filename().string() : root.filename().string();
  std::vector<Dir> stack{{root, "", addNode(kNoParent, rootName.empty() ? "/" : rootName, TWords::kFolder)}};
  ++m_Counts.folders;
  m_IncludeFolders.push_back("");
  m_Folders.emplace_back("", stack.back().node);
  size_t done = 0;
  while (!stack.empty()) {
    const Dir dir = stack.back();
    stack.pop_back();
    std::vector<fs::directory_entry> entries;
    std::error_code ec;
    fs::directory_iterator it(dir.full, ec);
    if (ec) {
      error("Cannot read folder '" + dir.full.string() + "': " + ec.message());
      ++m_Counts.unreadable;
      continue;
    }
    for (; it != fs::directory_iterator(); it.increment(ec)) {
      if (ec) break;
      entries.push_back(*it);
    }
    std::vector<std::pair<std::string, fs::path>> folders, files;
    for (const auto& e : entries) {
      const std::string name = e.path().filename().string();
      std::error_code sec;
      if (e.is_symlink(sec) && e.is_directory(sec)) continue;  // no cycles through links
      if (e.is_directory(sec)) {
        if (name.empty() || name[0] == '.' || name == "__pycache__") continue;
        folders.emplace_back(name, e.path());
      } else {
        files.emplace_back(name, e.path());
      }
    }
    std::sort(folders.begin(), folders.end());
    std::sort(files.begin(), files.end());
    std::vector<Dir> children;
    for (const auto& [name, full] : folders) {
      const std::string rel = joinTreePath(dir.rel, name);
      const uint32_t node = addNode(dir.node, name, TWords::kFolder);
      ++m_Counts.folders;
      if (name == "include") m_IncludeFolders.push_back(rel);
      m_Folders.emplace_back(rel, node);
      children.push_back({full, rel, node});
    }
    for (const auto& [name, full] : files) {
      readFile(full, joinTreePath(dir.rel, name), dir.node);
      if (++done % 1000 == 0) status("Scan: " + std::to_string(done) + " files");
    }
    for (auto it2 = children.rbegin(); it2 != children.rend(); ++it2) stack.push_back(*it2);
  }
}

void Importer::readFile(const fs::path& full, const std::string& rel, uint32_t folder) {
  // Only regular files, also behind links: a pipe would block the import
  // and a device could be read without end.
  struct stat before {};
  if (::stat(full.c_str(), &before) != 0 || !S_ISREG(before.st_mode)) {
    error("Cannot read '" + full.string() + "': not a regular file");
    ++m_Counts.unreadable;
    return;
  }
  std::ifstream in(full, std::ios::binary);
  std::string text;
  if (in) {
    std::ostringstream ss;
    ss << in.rdbuf();
    if (in.bad()) in.setstate(std::ios::failbit);
    text = ss.str();
  }
  struct stat st {};
  if (!in || ::stat(full.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
    error("Cannot read '" + full.string() + "'");
    ++m_Counts.unreadable;
    return;
  }
  File file;
  file.path = rel;
  file.language = languageOfName(rel);
  if (file.language.empty() && fs::path(rel).extension().empty()) {
    const std::string head = text.substr(0, std::min<size_t>(text.size(), 200));
    if (head.find("-*- C++ -*-") != std::string::npos || head.find("-*- c++ -*-") != std::string::npos)
      file.language = "C++";
  }
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    file.lineLengths.push_back(static_cast<uint32_t>(end - start));
    start = end + 1;
  }
  if (isCFamily(file.language)) scanIncludes(text, file);
  if (file.language == "Python") scanImports(text, file);
  file.source = sourceLanguageOfPath(rel);
  if (file.source != TSourceLanguage::Other) {
    file.facts = scanSource(file.source, text);
    m_Counts.references += file.facts.references.size();
  }
  file.node = addNode(folder, fs::path(rel).filename().string(), TWords::kFile);
  Node& n = m_Nodes[file.node];
  n.language = m_Words.id(file.language == "C/C++" ? "C++" : file.language);
  n.lines = static_cast<int64_t>(file.lineLengths.size());
  n.bytes = static_cast<int64_t>(text.size());
  if (!file.lineLengths.empty()) {
    n.srcFile = static_cast<uint32_t>(m_Files.size());
    n.firstLine = 1;
    n.lastLine = static_cast<uint32_t>(file.lineLengths.size());
    n.lastColumn = std::max<uint32_t>(1, file.lineLengths.back());
  }
  m_FileByPath[rel] = static_cast<uint32_t>(m_Files.size());
  m_FilesByName[fs::path(rel).filename().string()].push_back(static_cast<uint32_t>(m_Files.size()));
  m_Files.push_back(std::move(file));
  ++m_Counts.files;
}

// Programming languages only: some of ctags' parsers for markup and
// documentation take minutes on large trees and give no definitions.
constexpr const char* kCtagsLanguages =
    "C,C++,Python,Java,C#,Go,Rust,JavaScript,TypeScript,Ruby,PHP,Perl,Sh,Lua,Tcl,ObjectiveC,Fortran,Ada,Pascal,"
    "Kotlin,Scala,Erlang,OCaml,Vala,D";

void Importer::runCtags(const fs::path& root) {
  if (m_Options.ctags.empty()) return;
  const std::string command = "cd " + shellQuote(root.string()) + " && " + shellQuote(m_Options.ctags) +
                              " --output-format=json --fields=+nKlSeiZ --kinds-C=+p --kinds-C++=+p"
                              " --languages=" + std::string(kCtagsLanguages) +
                              " -R -f - . 2>/dev/null";
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) {
    status("ctags could not be started: definitions are left out");
    return;
  }
  char* buffer = nullptr;
  size_t capacity = 0;
  ssize_t n;
  size_t tags = 0;
  while ((n = ::getline(&buffer, &capacity, pipe)) > 0) {
    auto fields = parseFlatJson(std::string(buffer, static_cast<size_t>(n)));
    if (fields["_type"] != "tag") continue;
    Tag tag;
    tag.name = fields["name"];
    const std::string& kind = fields["kind"];
    if (skippedKind(kind)) continue;
    tag.kind = m_Words.id(kind);
    tag.scopeKind = m_Words.id(fields["scopeKind"]);
    tag.language = m_Words.id(fields["language"]);
    const std::string inherits = fields["inherits"];
    tag.inherits = inherits == "false" ? "" : inherits;
    tag.line = static_cast<uint32_t>(std::strtoul(fields["line"].c_str(), nullptr, 10));
    const std::string end = fields["end"];
    tag.end = end.empty() ? tag.line : static_cast<uint32_t>(std::strtoul(end.c_str(), nullptr, 10));
    std::string path = fields["path"];
    if (path.rfind("./", 0) == 0) path = path.substr(2);
    m_TagsByPath[path].push_back(std::move(tag));
    if (++tags % 100000 == 0) status("Definitions: " + std::to_string(tags));
  }
  std::free(buffer);
  const int rc = ::pclose(pipe);
  if (rc != 0 && tags == 0) {
    status("ctags is not available: definitions are left out");
    return;
  }
  m_Counts.ctags = true;
}

// Definitions nest by their line ranges within their file, in source order.
void Importer::nestTags() {
  for (auto& [path, tags] : m_TagsByPath) {
    auto f = m_FileByPath.find(path);
    if (f == m_FileByPath.end()) continue;
    const File& file = m_Files[f->second];
    std::stable_sort(tags.begin(), tags.end(), [](const Tag& a, const Tag& b) {
      return a.line != b.line ? a.line < b.line : a.end > b.end;
    });
    std::vector<const Tag*> open;
    for (Tag& tag : tags) {
      while (!open.empty() && !(open.back()->line <= tag.line && tag.end <= open.back()->end)) open.pop_back();
      const uint32_t parent = open.empty() ? file.node : open.back()->node;
      const std::string& kind = m_Words.text(tag.kind);
      tag.node = addNode(parent, tag.name,
                         m_Words.id(typeOfTag(kind, m_Words.text(tag.scopeKind), m_Words.text(tag.language))));
      Node& n = m_Nodes[tag.node];
      n.language = tag.language;
      n.lines = tag.end >= tag.line ? tag.end - tag.line + 1 : 1;
      const uint32_t lastLength =
          tag.end >= 1 && tag.end <= file.lineLengths.size() ? file.lineLengths[tag.end - 1] : 1;
      n.srcFile = f->second;
      n.firstLine = tag.line;
      n.lastLine = tag.end;
      n.lastColumn = std::max<uint32_t>(1, lastLength);
      open.push_back(&tag);
      const bool isClass = kind == "class" || kind == "struct" || kind == "interface";
      if (isClass || !tag.inherits.empty())
        m_Definitions.push_back({tag.node, tag.language, isClass, std::move(tag.inherits)});
      ++m_Counts.definitions;
    }
    tags = {};
  }
  m_TagsByPath.clear();
}

void Importer::resolveIncludes() {
  for (const File& file : m_Files) {
    const std::string dir = parentOfTreePath(file.path);
    for (const std::string& inc : file.includes) {
      const bool quoted = inc[0] == '"';
      const std::string text = inc.substr(1);
      std::string found;
      auto exists = [this](const std::string& p) { return !p.empty() && m_FileByPath.count(p) != 0; };
      if (quoted && exists(normalizeTreePath(joinTreePath(dir, text)))) found = normalizeTreePath(joinTreePath(dir, text));
      for (const auto& folder : m_IncludeFolders) {
        if (!found.empty()) break;
        if (exists(normalizeTreePath(joinTreePath(folder, text)))) found = normalizeTreePath(joinTreePath(folder, text));
      }
      if (found.empty()) {
        // Another folder of the tree that holds the path: the nearest one.
        const std::string want = normalizeTreePath(text);
        auto byName = m_FilesByName.find(fs::path(want).filename().string());
        size_t best = 0;
        if (byName != m_FilesByName.end() && !want.empty()) {
          for (uint32_t candidate : byName->second) {
            const std::string& p = m_Files[candidate].path;
            if (p.size() < want.size() || p.compare(p.size() - want.size(), want.size(), want) != 0) continue;
            if (p.size() > want.size() && p[p.size() - want.size() - 1] != '/') continue;
            size_t common = 0;
            while (common < p.size() && common < file.path.size() && p[common] == file.path[common]) ++common;
            if (found.empty() || common > best || (common == best && p.size() < found.size())) {
              found = p;
              best = common;
            }
          }
        }
      }
      if (found.empty()) {
        ++m_Counts.includesUnresolved;
        continue;
      }
      ++m_Counts.includesResolved;
      m_Edges.emplace_back(file.node, m_Files[m_FileByPath[found]].node, "include");
    }
  }
}

void Importer::resolveImports() {
  // A module path a/b/c is a file a/b/c.py or a package a/b/c/__init__.py.
  auto module = [this](const std::string& base) -> long {
    if (base.empty()) return -1;
    for (const std::string& candidate : {base + ".py", base + "/__init__.py", base + ".pyi"}) {
      auto it = m_FileByPath.find(candidate);
      if (it != m_FileByPath.end()) return it->second;
    }
    return -1;
  };
  for (const File& file : m_Files) {
    const std::string dir = parentOfTreePath(file.path);
    std::unordered_set<uint32_t> linked;
    for (const auto& [name, names] : file.imports) {
      // Leading points climb from the file's package.
      size_t dots = 0;
      while (dots < name.size() && name[dots] == '.') ++dots;
      std::string path = name.substr(dots);
      std::replace(path.begin(), path.end(), '.', '/');
      std::vector<std::string> bases;
      if (dots > 0) {
        std::string up = dir;
        for (size_t i = 1; i < dots; ++i) up = parentOfTreePath(up);
        bases.push_back(path.empty() ? up : joinTreePath(up, path));
      } else {
        // The tree's root, the folder above the file's outermost package,
        // and the file's own folder, as a script sees them.
        std::string packageRoot = dir;
        while (!packageRoot.empty() && m_FileByPath.count(joinTreePath(packageRoot, "__init__.py"))) packageRoot = parentOfTreePath(packageRoot);
        bases.push_back(path);
        if (!packageRoot.empty()) bases.push_back(joinTreePath(packageRoot, path));
        bases.push_back(joinTreePath(dir, path));
      }
      auto link = [&](long target) {
        if (target < 0) return false;
        const uint32_t to = m_Files[static_cast<size_t>(target)].node;
        if (to != file.node && linked.insert(to).second) m_Edges.emplace_back(file.node, to, "import");
        return true;
      };
      bool resolved = false;
      for (const auto& base : bases) {
        if (names.empty()) {
          resolved = link(module(base));
        } else {
          // "from m import x": x as a submodule, else the module m itself.
          bool any = false;
          for (const auto& n : names) any = link(module(joinTreePath(base, n))) || any;
          if (!any) any = link(module(base));
          resolved = any;
        }
        if (resolved) break;
      }
      if (resolved)
        ++m_Counts.importsResolved;
      else
        ++m_Counts.importsUnresolved;
    }
  }
}

void Importer::resolveInheritance() {
  std::unordered_map<std::string, std::vector<const Definition*>> classes;
  for (const Definition& d : m_Definitions)
    if (d.isClass) classes[m_Nodes[d.node].name].push_back(&d);
  auto fileOf = [this](uint32_t node) {
    while (node != kNoParent && m_Nodes[node].type != TWords::kFile) node = m_Parents[node];
    return node;
  };
  for (const Definition& t : m_Definitions) {
    if (t.inherits.empty()) continue;
    std::stringstream ss(t.inherits);
    std::string base;
    while (std::getline(ss, base, ',')) {
      // "public ns::Base<T>" names Base.
      std::string name = trim(base);
      for (const char* word : {"public ", "protected ", "private ", "virtual "})
        if (name.rfind(word, 0) == 0) name = trim(name.substr(std::strlen(word)));
      const size_t angle = name.find('<');
      if (angle != std::string::npos) name = name.substr(0, angle);
      for (const char* sep : {"::", "."}) {
        const size_t at = name.rfind(sep);
        if (at != std::string::npos) name = name.substr(at + std::strlen(sep));
      }
      auto it = classes.find(trim(name));
      if (it == classes.end()) {
        ++m_Counts.inheritsUnresolved;
        continue;
      }
      // The same file first, then the same language.
      const Definition* chosen = nullptr;
      const uint32_t file = fileOf(t.node);
      for (const Definition* c : it->second)
        if (c != &t && fileOf(c->node) == file) chosen = c;
      for (const Definition* c : it->second)
        if (!chosen && c != &t && c->language == t.language) chosen = c;
      if (!chosen) {
        ++m_Counts.inheritsUnresolved;
        continue;
      }
      ++m_Counts.inheritsResolved;
      m_Edges.emplace_back(t.node, chosen->node, "inherits");
    }
  }
}

// Edges of the languages that name modules, packages and namespaces; bare
// packages of scripts, when kept, become nodes of a folder "external".
void Importer::resolveDependencies() {
  std::vector<TTreeFile> files(m_Files.size());
  for (size_t i = 0; i < m_Files.size(); ++i) {
    files[i].path = m_Files[i].path;
    files[i].language = m_Files[i].source;
    files[i].facts = std::move(m_Files[i].facts);
  }
  std::vector<std::string> folders;
  folders.reserve(m_Folders.size());
  for (const auto& f : m_Folders) folders.push_back(f.first);
  TDependencyResolver resolver(m_Root, folders, files, m_Options.keepExternal);
  std::vector<uint32_t> externalNodes;
  uint32_t externalFolder = kNone;
  resolver.resolve([&](uint32_t from, const TDependencyTarget& to, const std::string& kind) {
    uint32_t target = 0;
    if (to.kind == TDependencyTarget::File) {
      target = m_Files[to.index].node;
    } else if (to.kind == TDependencyTarget::Folder) {
      target = m_Folders[to.index].second;
    } else {
      if (externalFolder == kNone) externalFolder = addNode(m_Folders[0].second, "external", TWords::kFolder);
      while (externalNodes.size() <= to.index)
        externalNodes.push_back(addNode(externalFolder, resolver.externals()[externalNodes.size()],
                                        m_Words.id("package")));
      target = externalNodes[to.index];
    }
    m_Edges.emplace_back(m_Files[from].node, target, kind);
  });
  for (const auto& note : resolver.notes()) status(note);
  for (const auto& [kind, c] : resolver.counts()) {
    auto& k = m_Counts.kinds[kind];
    k.resolved += c.resolved;
    k.leftOut += c.leftOut;
  }
}

// The history of the files from git's log: per file its commits, distinct
// authors, churn and the times of its last and first change; each folder
// the same of all below it, commits and authors counted once.
void Importer::readHistory(const fs::path& root) {
  if (m_Options.history == TImportOptions::History::Off) return;
  const bool asked = m_Options.history == TImportOptions::History::On;
  bool inTree = asked;
  for (fs::path p = fs::absolute(root); !inTree; p = p.parent_path()) {
    std::error_code ec;
    if (fs::exists(p / ".git", ec)) inTree = true;
    if (p == p.parent_path()) break;
  }
  if (!inTree) return;
  const TGitState state = inspectGitFolder(root.string(), m_Options.git);
  if (!state.gitFound) {
    status("History: git is not available: the history is left out");
    return;
  }
  if (!state.workTree) {
    status(std::string("History: '") + root.string() + "' is not in a git work tree" +
           (state.bare ? " (a bare repository)" : "") + ": the history is left out");
    return;
  }
  if (state.head.empty()) {
    status("History: the work tree has no commits: the history is left out");
    return;
  }
  m_Counts.head = state.head;
  status("History: reading the log" + (m_Options.since.empty() ? std::string() : " since " + m_Options.since));
  m_Authors.assign(m_Nodes.size(), {});
  std::vector<uint32_t> commitStamp(m_Nodes.size(), 0);
  std::unordered_map<std::string, uint32_t> authorIds;
  uint32_t commit = 0;
  int64_t time = 0;
  uint32_t author = 0;
  TGitLogReader reader;
  reader.onCommit = [&](const TGitLogReader::Commit& c) {
    ++commit;
    time = c.time;
    m_NewestCommit = std::max(m_NewestCommit, time);
    std::string key(c.author);
    for (char& ch : key) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    author = authorIds.emplace(std::move(key), static_cast<uint32_t>(authorIds.size())).first->second;
    if (commit % 1000 == 0) status("History: " + std::to_string(commit) + " commits");
  };
  reader.onChange = [&](const std::string& path, uint64_t added, uint64_t removed) {
    auto f = m_FileByPath.find(path);
    if (f == m_FileByPath.end()) return;  // no longer in the tree
    // The file and its folders up to the first that has this commit
    // already: above it, all have.
    for (uint32_t node = m_Files[f->second].node; node != kNoParent; node = m_Parents[node]) {
      Node& n = m_Nodes[node];
      n.churn += static_cast<int64_t>(added + removed);
      if (commitStamp[node] != commit) {
        commitStamp[node] = commit;
        n.commits = std::max<int64_t>(n.commits, 0) + 1;
        n.newest = n.commits == 1 ? time : std::max(n.newest, time);
        n.oldest = n.commits == 1 ? time : std::min(n.oldest, time);
      }
      auto& authors = m_Authors[node];
      auto at = std::lower_bound(authors.begin(), authors.end(), author);
      if (at == authors.end() || *at != author) authors.insert(at, author);
    }
  };
  std::string problem;
  if (!readGitLog(root.string(), m_Options.since, reader, problem, m_Options.git)) {
    status("History: " + problem + ": the history is left out");
    for (Node& n : m_Nodes) n.commits = -1;
    m_Authors.clear();
    m_Counts.head.clear();
    return;
  }
  m_Counts.commits = commit;
  status("History: " + std::to_string(commit) + " commits by " + std::to_string(authorIds.size()) + " authors" +
         (state.shallow ? " (a shallow clone: older commits are missing)" : ""));
}

// Folders sum up lines, bytes and definitions of what lies below them.
void Importer::sumUp() {
  for (size_t i = m_Nodes.size(); i-- > 1;) {
    Node& n = m_Nodes[i];
    const uint32_t parent = m_Parents[i];
    if (parent == kNoParent) continue;
    Node& p = m_Nodes[parent];
    const bool definition = n.type != TWords::kFolder && n.type != TWords::kFile;
    if (definition) ++p.definitions;
    p.definitions += n.definitions;
    if (p.type == TWords::kFolder && !definition) {
      p.lines = std::max<int64_t>(p.lines, 0) + std::max<int64_t>(n.lines, 0);
      p.bytes = std::max<int64_t>(p.bytes, 0) + std::max<int64_t>(n.bytes, 0);
    }
  }
}

void Importer::write(const fs::path& root, const std::string& output) {
  try {
    writeDatabaseReplacing(output, [&](TDatabase& db) {
      TXmlReader::createDatasetTables(db);
      // Where the sources stand, relative to the database's folder, so that
      // the two can move together.
      std::error_code rec;
      fs::path where = fs::relative(fs::absolute(root), fs::absolute(fs::path(output)).parent_path(), rec);
      if (rec || where.empty()) where = fs::absolute(root);
      db.execute2("INSERT INTO information (key, value) VALUES ('source root', ?)", {where.string()});
      if (!m_Counts.head.empty()) {
        db.execute2("INSERT INTO information (key, value) VALUES ('commit', ?)", {m_Counts.head});
        if (!m_Options.since.empty())
          db.execute2("INSERT INTO information (key, value) VALUES ('history since', ?)", {m_Options.since});
      }
      const bool history = !m_Counts.head.empty();
      constexpr int64_t kDay = 86400;
      for (const Node& n : m_Nodes) {
        db.execute2("INSERT INTO hierarchy (hid,nid,parentnid,childorder) VALUES (1,?,?,?)",
                    {int64_t(n.nid), n.parent ? TDbValue{int64_t(n.parent)} : TDbValue{}, int64_t(n.order)});
        auto attr = [&](const char* key, const TDbValue& v) {
          db.execute2("INSERT INTO nodeattr (nid,key,value) VALUES (?,?,?)", {int64_t(n.nid), std::string(key), v});
        };
        attr("name", n.name);
        attr("type", m_Words.text(n.type));
        if (n.language != TWords::kEmpty) attr("language", m_Words.text(n.language));
        if (n.lines >= 0) attr("lines", n.lines);
        // Files and folders with a history; days count back from the
        // newest commit.
        if (history && (n.type == TWords::kFile || n.type == TWords::kFolder)) {
          const int64_t commits = std::max<int64_t>(n.commits, 0);
          attr("commits", commits);
          attr("authors", static_cast<int64_t>(m_Authors[&n - m_Nodes.data()].size()));
          attr("churn", n.churn);
          if (commits > 0) {
            attr("last change", (m_NewestCommit - n.newest) / kDay);
            attr("first change", (m_NewestCommit - n.oldest) / kDay);
          }
        }
        if (n.bytes >= 0) attr("bytes", n.bytes);
        attr("definitions", n.definitions);
        if (n.srcFile != kNone)
          attr("_srcloc", m_Files[n.srcFile].path + "|" + std::to_string(n.firstLine) + "|1|" +
                              std::to_string(n.lastLine) + "|" + std::to_string(n.lastColumn));
      }
      int64_t eid = 0;
      for (const auto& [from, to, kind] : m_Edges) {
        ++eid;
        db.execute2("INSERT INTO edges (eid,fromnid,tonid) VALUES (?,?,?)",
                    {eid, int64_t(m_Nodes[from].nid), int64_t(m_Nodes[to].nid)});
        db.execute2("INSERT INTO edgeattr (eid,key,value) VALUES (?,'kind',?)", {eid, kind});
      }
      m_Counts.edges = static_cast<uint64_t>(eid);
    });
  } catch (const fs::filesystem_error& e) {
    throw TImportError("Cannot write '" + output + "': " + e.code().message());
  } catch (const std::exception& e) {
    throw TImportError(std::string("Cannot write '") + output + "': " + e.what());
  }
}

TImportCounts Importer::run(const fs::path& root, const std::string& output) {
  std::error_code ec;
  if (!fs::is_directory(root, ec)) throw TImportError("Folder does not exist: '" + root.string() + "'");
  m_Root = root.string();
  // Each phase says what it counted and the seconds it took.
  auto clock = std::chrono::steady_clock::now();
  auto took = [&clock] {
    const auto now = std::chrono::steady_clock::now();
    const double seconds = std::chrono::duration<double>(now - clock).count();
    clock = now;
    char text[32];
    std::snprintf(text, sizeof text, " in %.2f s", seconds);
    return std::string(text);
  };
  status("Scan: reading the files of '" + root.string() + "'");
  walk(root);
  status("Scan: " + std::to_string(m_Counts.files) + " files in " + std::to_string(m_Counts.folders) + " folders" +
         took());
  status("Definitions: reading");
  runCtags(root);
  nestTags();
  status("Definitions: " + std::to_string(m_Counts.definitions) + took());
  status("Edges: resolving");
  resolveIncludes();
  resolveImports();
  resolveInheritance();
  resolveDependencies();
  for (const auto& [kind, resolved, unresolved] :
       {std::tuple{"include", m_Counts.includesResolved, m_Counts.includesUnresolved},
        {"import", m_Counts.importsResolved, m_Counts.importsUnresolved},
        {"inherits", m_Counts.inheritsResolved, m_Counts.inheritsUnresolved}}) {
    if (resolved + unresolved == 0) continue;
    auto& k = m_Counts.kinds[kind];
    k.resolved += resolved;
    k.leftOut += unresolved;
  }
  std::string kinds;
  for (const auto& [kind, k] : m_Counts.kinds)
    kinds += (kinds.empty() ? "" : "; ") + kind + " " + std::to_string(k.resolved) + " resolved, " +
             std::to_string(k.leftOut) + " left out";
  status("Edges: " + std::to_string(m_Edges.size()) + took());
  readHistory(root);
  if (!m_Counts.head.empty()) status("History: done" + took());
  sumUp();
  status("Write: '" + output + "'");
  write(root, output);
  status("Write: " + std::to_string(m_Nodes.size()) + " nodes and " + std::to_string(m_Counts.edges) + " edges" +
         took());
  status("Edges by kind: " + (kinds.empty() ? std::string("none") : kinds));
  return m_Counts;
}

}  // namespace

TImportCounts importSourceTree(const std::string& folder, const std::string& output, const TImportOptions& options) {
  Importer importer(options);
  return importer.run(fs::path(folder), output);
}

}  // namespace quorvel
