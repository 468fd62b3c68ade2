#include "MSourceImporter.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <chrono>
#include <cstring>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
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
  // Both safe from two threads: the reader of ctags' output and the rest.
  uint16_t id(std::string_view word) {
    std::lock_guard lock(m_Mutex);
    auto it = m_Ids.find(word);
    if (it != m_Ids.end()) return it->second;
    const auto id = static_cast<uint16_t>(m_Texts.size());
    m_Texts.emplace_back(word);
    m_Ids.emplace(std::string(word), id);
    return id;
  }
  const std::string& text(uint16_t id) const {
    std::lock_guard lock(m_Mutex);
    return m_Texts[id];
  }

 private:
  struct Hash {
    using is_transparent = void;
    size_t operator()(std::string_view s) const { return std::hash<std::string_view>()(s); }
  };
  std::unordered_map<std::string, uint16_t, Hash, std::equal_to<>> m_Ids;
  std::deque<std::string> m_Texts;  // references stay valid as words are added
  mutable std::mutex m_Mutex;
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

bool skippedKind(std::string_view kind) {
  for (std::string_view k : {"local", "parameter", "label", "header", "unknown", "file"})
    if (k == kind) return true;
  return false;
}

// ---------------------------------------------------------------------------
// Flat JSON objects, as ctags writes one per line.

// The fields of one flat JSON object that the importer reads, as views into
// the line; a string with escapes is decoded into a buffer of its field.
struct TTagFields {
  enum Field { Type, Name, Kind, ScopeKind, Language, Inherits, Line, End, Path, Count };
  std::string_view value[Count];
  std::string decoded[Count];

  static int fieldOf(std::string_view key) {
    static constexpr std::string_view kKeys[Count] = {"_type", "name",     "kind", "scopeKind", "language",
                                                      "inherits", "line", "end",  "path"};
    for (int f = 0; f < Count; ++f)
      if (kKeys[f] == key) return f;
    return -1;
  }

  static void appendUtf8(std::string& s, unsigned code) {
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
  }

  // False when the line is no object.
  bool parse(std::string_view line) {
    for (auto& v : value) v = {};
    size_t i = 0;
    auto skip = [&] {
      while (i < line.size() && std::isspace(static_cast<unsigned char>(line[i]))) ++i;
    };
    // A string at i: its raw text, and whether it holds escapes.
    auto string = [&](std::string_view& raw, bool& escaped) {
      if (i >= line.size() || line[i] != '"') return false;
      const size_t start = ++i;
      escaped = false;
      while (i < line.size() && line[i] != '"') {
        if (line[i] == '\\') {
          escaped = true;
          ++i;
        }
        ++i;
      }
      raw = line.substr(start, std::min(i, line.size()) - start);
      ++i;
      return true;
    };
    skip();
    if (i >= line.size() || line[i] != '{') return false;
    ++i;
    std::string_view key, raw;
    bool escaped = false;
    while (true) {
      skip();
      if (!string(key, escaped)) break;
      skip();
      if (i >= line.size() || line[i] != ':') break;
      ++i;
      skip();
      const int field = fieldOf(key);
      if (i < line.size() && line[i] == '"') {
        string(raw, escaped);
        if (field >= 0) value[field] = escaped ? decode(raw, decoded[field]) : raw;
      } else {
        const size_t start = i;
        while (i < line.size() && line[i] != ',' && line[i] != '}') ++i;
        raw = line.substr(start, i - start);
        while (!raw.empty() && std::isspace(static_cast<unsigned char>(raw.back()))) raw.remove_suffix(1);
        if (field >= 0) value[field] = raw;
      }
      skip();
      if (i < line.size() && line[i] == ',') {
        ++i;
        continue;
      }
      break;
    }
    return true;
  }

  static std::string_view decode(std::string_view raw, std::string& out) {
    out.clear();
    for (size_t i = 0; i < raw.size(); ++i) {
      char c = raw[i];
      if (c == '\\' && i + 1 < raw.size()) {
        const char e = raw[++i];
        switch (e) {
          case 'n': c = '\n'; break;
          case 't': c = '\t'; break;
          case 'r': c = '\r'; break;
          case 'b': c = '\b'; break;
          case 'f': c = '\f'; break;
          case 'u': {
            unsigned code = 0;
            for (size_t k = 1; k <= 4 && i + k < raw.size(); ++k) {
              const char h = raw[i + k];
              code = code * 16 + static_cast<unsigned>(h <= '9' ? h - '0' : (h | 0x20) - 'a' + 10);
            }
            i += 4;
            appendUtf8(out, code);
            continue;
          }
          default: c = e;
        }
      }
      out += c;
    }
    return out;
  }
};

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

// Runs jobs in order on a thread of its own. The first failure ends the
// jobs; finish() waits for the rest and raises it. Left without finish(),
// the jobs not yet begun are dropped.
class TJobThread {
 public:
  TJobThread() : m_Thread([this] { loop(); }) {}
  ~TJobThread() { stop(true); }
  void post(std::function<void()> job) {
    {
      std::lock_guard lock(m_Mutex);
      m_Jobs.push_back(std::move(job));
    }
    m_Wake.notify_one();
  }
  void finish() {
    stop(false);
    if (m_Failure) std::rethrow_exception(m_Failure);
  }

 private:
  void stop(bool abandon) {
    {
      std::lock_guard lock(m_Mutex);
      m_Stopping = true;
      if (abandon) m_Jobs.clear();
    }
    m_Wake.notify_one();
    if (m_Thread.joinable()) m_Thread.join();
  }
  void loop() {
    while (true) {
      std::function<void()> job;
      {
        std::unique_lock lock(m_Mutex);
        m_Wake.wait(lock, [this] { return !m_Jobs.empty() || m_Stopping; });
        if (m_Jobs.empty()) return;
        job = std::move(m_Jobs.front());
        m_Jobs.pop_front();
      }
      if (m_Failure) continue;
      try {
        job();
      } catch (...) {
        m_Failure = std::current_exception();
      }
    }
  }
  std::mutex m_Mutex;
  std::condition_variable m_Wake;
  std::deque<std::function<void()>> m_Jobs;
  bool m_Stopping = false;
  std::exception_ptr m_Failure;
  std::thread m_Thread;  // last: it starts once the rest is made
};

// The tags of one file, as ctags gives them.
struct TTagGroup {
  std::string path;
  std::vector<Tag> tags;
};

// The tags of files as the ctags processes finish them, from any number
// of readers.
class TTagQueue {
 public:
  explicit TTagQueue(size_t producers) : m_Producers(producers) {}
  void put(TTagGroup&& group) {
    if (group.tags.empty()) return;
    {
      std::lock_guard lock(m_Mutex);
      m_Groups.push_back(std::move(group));
    }
    m_Ready.notify_one();
  }
  void producerEnded() {
    {
      std::lock_guard lock(m_Mutex);
      --m_Producers;
    }
    m_Ready.notify_one();
  }
  // The next file's tags; false when every reader has ended.
  bool next(TTagGroup& group) {
    std::unique_lock lock(m_Mutex);
    m_Ready.wait(lock, [this] { return !m_Groups.empty() || m_Producers == 0; });
    if (m_Groups.empty()) return false;
    group = std::move(m_Groups.front());
    m_Groups.pop_front();
    return true;
  }
  void abandon() {
    std::lock_guard lock(m_Mutex);
    m_Abandoned = true;
  }
  bool abandoned() {
    std::lock_guard lock(m_Mutex);
    return m_Abandoned;
  }

 private:
  std::mutex m_Mutex;
  std::condition_variable m_Ready;
  std::deque<TTagGroup> m_Groups;
  size_t m_Producers;
  bool m_Abandoned = false;
};

// Runs one ctags process on a thread of its own and puts its tags in the
// queue file by file.
class TCtagsReader {
 public:
  TCtagsReader(const std::string& command, TWords& words, TTagQueue& queue, std::atomic<size_t>& count,
               std::function<void(const std::string&)> status)
      : m_Words(words), m_Queue(queue), m_Count(count), m_Status(std::move(status)),
        m_Thread([this, command] { run(command); }) {}
  ~TCtagsReader() { m_Thread.join(); }
  bool started() const { return m_Started; }
  bool worked() const { return m_Worked; }

 private:
  void run(const std::string& command) {
    FILE* pipe = ::popen(command.c_str(), "r");
    m_Started = pipe != nullptr;
    if (pipe) {
      char* buffer = nullptr;
      size_t capacity = 0;
      ssize_t n;
      TTagFields fields;
      TTagGroup group;
      size_t tags = 0;
      using F = TTagFields;
      while ((n = ::getline(&buffer, &capacity, pipe)) > 0 && !m_Queue.abandoned()) {
        if (!fields.parse(std::string_view(buffer, static_cast<size_t>(n)))) continue;
        if (fields.value[F::Type] != "tag") continue;
        const std::string_view kind = fields.value[F::Kind];
        if (skippedKind(kind)) continue;
        std::string_view path = fields.value[F::Path];
        if (path.substr(0, 2) == "./") path.remove_prefix(2);
        if (path != group.path) {
          m_Queue.put(std::move(group));
          group = TTagGroup{std::string(path), {}};
        }
        Tag& tag = group.tags.emplace_back();
        tag.name = fields.value[F::Name];
        tag.kind = m_Words.id(kind);
        tag.scopeKind = m_Words.id(fields.value[F::ScopeKind]);
        tag.language = m_Words.id(fields.value[F::Language]);
        const std::string_view inherits = fields.value[F::Inherits];
        if (inherits != "false") tag.inherits = inherits;
        tag.line = static_cast<uint32_t>(std::strtoul(std::string(fields.value[F::Line]).c_str(), nullptr, 10));
        const std::string_view end = fields.value[F::End];
        tag.end = end.empty() ? tag.line : static_cast<uint32_t>(std::strtoul(std::string(end).c_str(), nullptr, 10));
        ++tags;
        if (++m_Count % 100000 == 0) m_Status("Definitions: " + std::to_string(m_Count.load()));
      }
      m_Queue.put(std::move(group));
      std::free(buffer);
      const int rc = ::pclose(pipe);
      m_Worked = rc == 0 || tags > 0;
    }
    m_Queue.producerEnded();
  }

  TWords& m_Words;
  TTagQueue& m_Queue;
  std::atomic<size_t>& m_Count;
  std::function<void(const std::string&)> m_Status;
  bool m_Started = false;
  bool m_Worked = false;
  std::thread m_Thread;  // last: it starts once the rest is made
};

// A list of file names for one ctags process, as a temporary file that
// goes with the object.
class TFileList {
 public:
  explicit TFileList(const std::vector<const std::string*>& paths) {
    char name[] = "/tmp/quorvel-ctags-XXXXXX";
    const int fd = ::mkstemp(name);
    if (fd < 0) return;
    m_Name = name;
    std::string text;
    for (const std::string* p : paths) {
      text += *p;
      text += '\n';
    }
    const bool written = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::close(fd);
    if (!written) {
      ::unlink(m_Name.c_str());
      m_Name.clear();
    }
  }
  ~TFileList() {
    if (!m_Name.empty()) ::unlink(m_Name.c_str());
  }
  TFileList(const TFileList&) = delete;
  TFileList& operator=(const TFileList&) = delete;
  const std::string& name() const { return m_Name; }

 private:
  std::string m_Name;
};

class Importer {
 public:
  Importer(const TImportOptions& options) : m_Options(options) {}

  TImportCounts run(const fs::path& root, const std::string& output);

 private:
  // Lines come from two threads: the reader of ctags' output says how far
  // it is.
  void status(const std::string& text) {
    std::lock_guard lock(m_ReportMutex);
    if (m_Options.report) m_Options.report(protocolLine("***STATUS: ", text));
  }
  void error(const std::string& text) {
    std::lock_guard lock(m_ReportMutex);
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
  std::string ctagsCommand(const fs::path& root, const std::string& list) const;
  void nestFile(TTagGroup& group, TJobThread& writer);
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
  // The rows of the dataset: the tables first, definitions as ctags gives
  // them, folders, files, edges and information last.
  struct Rows;
  void writeStart(const fs::path& root, const std::string& output, TDatabase& db);
  void writeTree();
  std::unique_ptr<Rows> m_Rows;  // used on the writer's thread only

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
  std::mutex m_ReportMutex;
  TWords m_Words;
  std::vector<Definition> m_Definitions;
  std::vector<std::tuple<uint32_t, uint32_t, uint16_t>> m_Edges;  // from node, to node, kind's word
  // The folders by path relative to the root, "" the root, with their nodes.
  std::vector<std::pair<std::string, uint32_t>> m_Folders;
  // Per node, the distinct authors of its history, ascending.
  std::vector<std::vector<uint32_t>> m_Authors;
  int64_t m_NewestCommit = 0;
  std::string m_Root;
  // Of the scan, the time spent reading what files include and import.
  double m_DependencySeconds = 0.0;
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
  const auto scanStart = std::chrono::steady_clock::now();
  if (isCFamily(file.language)) scanIncludes(text, file);
  if (file.language == "Python") scanImports(text, file);
  file.source = sourceLanguageOfPath(rel);
  if (file.source != TSourceLanguage::Other) {
    file.facts = scanSource(file.source, text);
    m_Counts.references += file.facts.references.size();
  }
  m_DependencySeconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - scanStart).count();
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

// ctags on the files of a list. Unsorted: the tags of a file come
// together, in the order of the list, and need no sort of all of them.
std::string Importer::ctagsCommand(const fs::path& root, const std::string& list) const {
  return "cd " + shellQuote(root.string()) + " && " + shellQuote(m_Options.ctags) +
         " --output-format=json --sort=no --fields=+nKleiZ --kinds-C=+p --kinds-C++=+p --languages=" +
         std::string(kCtagsLanguages) + " -L " + shellQuote(list) + " -f - 2>/dev/null";
}

struct Importer::Rows {
  explicit Rows(TDatabase& db)
      : hierarchy(db, "INSERT INTO hierarchy (hid,nid,parentnid,childorder) VALUES (1,?,?,?)"),
        nodeattr(db, "INSERT INTO nodeattr (nid,key,value) VALUES (?,?,?)") {}
  void node(uint32_t nid, uint32_t parent, uint32_t order) {
    hierarchy.bind(1, int64_t(nid)).bind(3, int64_t(order));
    if (parent) hierarchy.bind(2, int64_t(parent));
    hierarchy.run();
  }
  void text(uint32_t nid, std::string_view key, std::string_view v) { nodeattr.bind(1, int64_t(nid)).bind(2, key).bind(3, v).run(); }
  void number(uint32_t nid, std::string_view key, int64_t v) { nodeattr.bind(1, int64_t(nid)).bind(2, key).bind(3, v).run(); }
  void location(uint32_t nid, const std::string& path, uint32_t first, uint32_t last, uint32_t lastColumn) {
    buffer = path;
    buffer += '|';
    buffer += std::to_string(first);
    buffer += "|1|";
    buffer += std::to_string(last);
    buffer += '|';
    buffer += std::to_string(lastColumn);
    text(nid, "_srcloc", buffer);
  }
  TRepeatedStatement hierarchy;
  TRepeatedStatement nodeattr;
  std::string buffer;
};

// A file's definitions nest by their line ranges, in source order. Their
// rows go to the writer at once, made of copies: the node list grows on.
void Importer::nestFile(TTagGroup& group, TJobThread& writer) {
  auto f = m_FileByPath.find(group.path);
  if (f == m_FileByPath.end()) return;
  const File& file = m_Files[f->second];
  auto& tags = group.tags;
  std::stable_sort(tags.begin(), tags.end(), [](const Tag& a, const Tag& b) {
    return a.line != b.line ? a.line < b.line : a.end > b.end;
  });
  const auto first = static_cast<uint32_t>(m_Nodes.size());
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
    const uint32_t lastLength = tag.end >= 1 && tag.end <= file.lineLengths.size() ? file.lineLengths[tag.end - 1] : 1;
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
  const auto end = static_cast<uint32_t>(m_Nodes.size());
  // Each definition counts those nested in it; the file's own count comes
  // with the sums over the tree.
  std::vector<int64_t> nested(end - first, 0);
  for (uint32_t i = end; i-- > first;)
    if (m_Parents[i] >= first && m_Parents[i] != kNoParent) nested[m_Parents[i] - first] += nested[i - first] + 1;
  struct Row {
    uint32_t nid, parent, order;
    std::string name;
    const std::string* type;
    const std::string* language;
    int64_t lines, definitions;
    uint32_t firstLine, lastLine, lastColumn;
  };
  std::vector<Row> rows;
  rows.reserve(end - first);
  for (uint32_t i = first; i < end; ++i) {
    const Node& n = m_Nodes[i];
    rows.push_back({n.nid, n.parent, n.order, n.name, &m_Words.text(n.type),
                    n.language != TWords::kEmpty ? &m_Words.text(n.language) : nullptr, n.lines, nested[i - first],
                    n.firstLine, n.lastLine, n.lastColumn});
  }
  writer.post([this, rows = std::move(rows), path = &file.path] {
    Rows& out = *m_Rows;
    for (const Row& r : rows) {
      out.node(r.nid, r.parent, r.order);
      out.text(r.nid, "name", r.name);
      out.text(r.nid, "type", *r.type);
      if (r.language) out.text(r.nid, "language", *r.language);
      out.number(r.nid, "lines", r.lines);
      out.number(r.nid, "definitions", r.definitions);
      out.location(r.nid, *path, r.firstLine, r.lastLine, r.lastColumn);
    }
  });
}

void Importer::resolveIncludes() {
  // Each file by its path below every include folder above it, with the
  // first such folder in search order: one look-up an include instead of
  // one a folder.
  std::unordered_map<std::string, size_t> folderOrder;
  for (size_t i = 0; i < m_IncludeFolders.size(); ++i) folderOrder.emplace(m_IncludeFolders[i], i);
  std::unordered_map<std::string, std::pair<size_t, uint32_t>> belowIncludeFolder;
  for (uint32_t f = 0; f < m_Files.size(); ++f) {
    const std::string& path = m_Files[f].path;
    for (std::string folder = parentOfTreePath(path);; folder = parentOfTreePath(folder)) {
      if (auto order = folderOrder.find(folder); order != folderOrder.end()) {
        auto [it, added] = belowIncludeFolder.try_emplace(folder.empty() ? path : path.substr(folder.size() + 1),
                                                          order->second, f);
        if (!added && order->second < it->second.first) it->second = {order->second, f};
      }
      if (folder.empty()) break;
    }
  }
  for (const File& file : m_Files) {
    const std::string dir = parentOfTreePath(file.path);
    for (const std::string& inc : file.includes) {
      const bool quoted = inc[0] == '"';
      const std::string text = inc.substr(1);
      std::string found;
      auto exists = [this](const std::string& p) { return !p.empty() && m_FileByPath.count(p) != 0; };
      if (quoted && exists(normalizeTreePath(joinTreePath(dir, text)))) found = normalizeTreePath(joinTreePath(dir, text));
      if (found.empty() && text.find("..") == std::string::npos) {
        auto it = belowIncludeFolder.find(normalizeTreePath(text));
        if (it != belowIncludeFolder.end()) found = m_Files[it->second.second].path;
      }
      // A path that climbs may leave its include folder.
      for (const auto& folder : m_IncludeFolders) {
        if (!found.empty() || text.find("..") == std::string::npos) break;
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
      m_Edges.emplace_back(file.node, m_Files[m_FileByPath[found]].node, m_Words.id("include"));
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
        if (to != file.node && linked.insert(to).second) m_Edges.emplace_back(file.node, to, m_Words.id("import"));
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
      m_Edges.emplace_back(t.node, chosen->node, m_Words.id("inherits"));
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
  std::string lastKind;
  uint16_t kindWord = 0;
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
    if (kind != lastKind) {
      lastKind = kind;
      kindWord = m_Words.id(kind);
    }
    m_Edges.emplace_back(m_Files[from].node, target, kindWord);
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
  if (!readGitLog(root.string(), m_Options.since, !state.prefix.empty(), reader, problem, m_Options.git)) {
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

void Importer::writeStart(const fs::path& root, const std::string& output, TDatabase& db) {
  // A new file under a temporary name: a failed write is thrown away whole,
  // so no journal is needed to undo one.
  db.executescript("PRAGMA journal_mode=OFF; PRAGMA cache_size=-262144;");
  TXmlReader::createDatasetTables(db);
  // Where the sources stand, relative to the database's folder, so that the
  // two can move together.
  std::error_code rec;
  fs::path where = fs::relative(fs::absolute(root), fs::absolute(fs::path(output)).parent_path(), rec);
  if (rec || where.empty()) where = fs::absolute(root);
  db.execute2("INSERT INTO information (key, value) VALUES ('source root', ?)", {where.string()});
  m_Rows = std::make_unique<Rows>(db);
}

// Folders, files and packages: what the sums and the history have filled;
// then the edges. Runs while the rest of the importer waits.
void Importer::writeTree() {
  Rows& out = *m_Rows;
  const bool history = !m_Counts.head.empty();
  constexpr int64_t kDay = 86400;
  for (size_t i = 0; i < m_Nodes.size(); ++i) {
    const Node& n = m_Nodes[i];
    if (n.srcFile != kNone && n.type != TWords::kFile) continue;  // a definition: written already
    out.node(n.nid, n.parent, n.order);
    out.text(n.nid, "name", n.name);
    out.text(n.nid, "type", m_Words.text(n.type));
    if (n.language != TWords::kEmpty) out.text(n.nid, "language", m_Words.text(n.language));
    if (n.lines >= 0) out.number(n.nid, "lines", n.lines);
    // Files and folders with a history; days count back from the newest
    // commit.
    if (history && (n.type == TWords::kFile || n.type == TWords::kFolder)) {
      const int64_t commits = std::max<int64_t>(n.commits, 0);
      out.number(n.nid, "commits", commits);
      out.number(n.nid, "authors", static_cast<int64_t>(m_Authors[i].size()));
      out.number(n.nid, "churn", n.churn);
      if (commits > 0) {
        out.number(n.nid, "last change", (m_NewestCommit - n.newest) / kDay);
        out.number(n.nid, "first change", (m_NewestCommit - n.oldest) / kDay);
      }
    }
    if (n.bytes >= 0) out.number(n.nid, "bytes", n.bytes);
    out.number(n.nid, "definitions", n.definitions);
    if (n.srcFile != kNone) out.location(n.nid, m_Files[n.srcFile].path, n.firstLine, n.lastLine, n.lastColumn);
  }
  TDatabase& db = out.hierarchy.database();
  if (history) {
    db.execute2("INSERT INTO information (key, value) VALUES ('commit', ?)", {m_Counts.head});
    if (!m_Options.since.empty())
      db.execute2("INSERT INTO information (key, value) VALUES ('history since', ?)", {m_Options.since});
  }
  TRepeatedStatement edges(db, "INSERT INTO edges (eid,fromnid,tonid) VALUES (?,?,?)");
  TRepeatedStatement edgeattr(db, "INSERT INTO edgeattr (eid,key,value) VALUES (?,'kind',?)");
  int64_t eid = 0;
  for (const auto& [from, to, kind] : m_Edges) {
    ++eid;
    edges.bind(1, eid).bind(2, int64_t(m_Nodes[from].nid)).bind(3, int64_t(m_Nodes[to].nid)).run();
    edgeattr.bind(1, eid).bind(2, m_Words.text(kind)).run();
  }
  m_Counts.edges = static_cast<uint64_t>(eid);
  m_Rows.reset();
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
  {
    char dependencies[64];
    std::snprintf(dependencies, sizeof dependencies, ", %.2f s of it reading dependencies", m_DependencySeconds);
    status("Scan: " + std::to_string(m_Counts.files) + " files in " + std::to_string(m_Counts.folders) + " folders" +
           took() + dependencies);
  }
  // ctags on every core: the files shared out by size, the largest first,
  // each to the list that holds the fewest bytes yet. A name ctags cannot
  // read from a list (one with a line break) keeps its file out.
  const size_t processes = m_Options.ctags.empty() ? 0 : std::max(1u, std::thread::hardware_concurrency());
  std::vector<std::unique_ptr<TFileList>> lists;
  TTagQueue tags(processes);
  std::atomic<size_t> tagCount{0};
  std::vector<std::unique_ptr<TCtagsReader>> readers;
  if (processes > 0) {
    std::vector<uint32_t> order(m_Files.size());
    for (uint32_t i = 0; i < order.size(); ++i) order[i] = i;
    auto bytes = [this](uint32_t f) { return m_Nodes[m_Files[f].node].bytes; };
    std::stable_sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) { return bytes(a) > bytes(b); });
    std::vector<std::vector<const std::string*>> shares(processes);
    std::vector<int64_t> load(processes, 0);
    for (uint32_t f : order) {
      if (m_Files[f].path.find_first_of("\n\r") != std::string::npos) continue;
      const size_t least = static_cast<size_t>(std::min_element(load.begin(), load.end()) - load.begin());
      shares[least].push_back(&m_Files[f].path);
      load[least] += std::max<int64_t>(bytes(f), 1);
    }
    for (const auto& share : shares) {
      lists.push_back(std::make_unique<TFileList>(share));
      if (lists.back()->name().empty()) {
        tags.producerEnded();
        continue;
      }
      readers.push_back(std::make_unique<TCtagsReader>(ctagsCommand(root, lists.back()->name()), m_Words, tags,
                                                       tagCount, [this](const std::string& text) { status(text); }));
    }
  }
  // Should anything fail below, the readers stop at their next line.
  struct Abandon {
    TTagQueue& queue;
    ~Abandon() { queue.abandon(); }
  } abandon{tags};
  std::string kinds;
  try {
    writeDatabaseReplacing(output, [&](TDatabase& db) {
      // Rows are written on a thread of their own as they are made.
      TJobThread writer;
      writer.post([&] { writeStart(root, output, db); });
      if (processes > 0) {
        status("Definitions: reading with " + std::to_string(processes) + " ctags processes");
        TTagGroup group;
        while (tags.next(group)) nestFile(group, writer);
        const bool started = std::any_of(readers.begin(), readers.end(), [](const auto& r) { return r->started(); });
        const bool worked = std::any_of(readers.begin(), readers.end(), [](const auto& r) { return r->worked(); });
        if (!started) status("ctags could not be started: definitions are left out");
        else if (!worked) status("ctags is not available: definitions are left out");
        m_Counts.ctags = worked;
        status("Definitions: " + std::to_string(m_Counts.definitions) + took());
      }
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
      for (const auto& [kind, k] : m_Counts.kinds)
        kinds += (kinds.empty() ? "" : "; ") + kind + " " + std::to_string(k.resolved) + " resolved, " +
                 std::to_string(k.leftOut) + " left out";
      status("Edges: " + std::to_string(m_Edges.size()) + took());
      readHistory(root);
      if (!m_Counts.head.empty()) status("History: done" + took());
      sumUp();
      status("Write: '" + output + "'");
      writer.post([this] { writeTree(); });
      writer.finish();
    });
  } catch (const fs::filesystem_error& e) {
    throw TImportError("Cannot write '" + output + "': " + e.code().message());
  } catch (const std::exception& e) {
    throw TImportError(std::string("Cannot write '") + output + "': " + e.what());
  }
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
