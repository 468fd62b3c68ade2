#include "MDependencyScanners.h"

#include <algorithm>
#include <map>

namespace quorvel {

TSourceLanguage sourceLanguageOfPath(const std::string& path) {
  const size_t dot = path.rfind('.');
  const size_t slash = path.rfind('/');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return TSourceLanguage::Other;
  static const std::map<std::string, TSourceLanguage, std::less<>> byExtension = {
      {"java", TSourceLanguage::Java},       {"kt", TSourceLanguage::Kotlin},      {"kts", TSourceLanguage::Kotlin},
      {"js", TSourceLanguage::JavaScript},   {"jsx", TSourceLanguage::JavaScript}, {"mjs", TSourceLanguage::JavaScript},
      {"cjs", TSourceLanguage::JavaScript},  {"ts", TSourceLanguage::TypeScript},  {"tsx", TSourceLanguage::TypeScript},
      {"mts", TSourceLanguage::TypeScript},  {"cts", TSourceLanguage::TypeScript}, {"go", TSourceLanguage::Go},
      {"rs", TSourceLanguage::Rust},         {"cs", TSourceLanguage::CSharp}};
  auto it = byExtension.find(std::string_view(path).substr(dot + 1));
  return it == byExtension.end() ? TSourceLanguage::Other : it->second;
}

const char* sourceLanguageName(TSourceLanguage language) {
  switch (language) {
    case TSourceLanguage::Java: return "Java";
    case TSourceLanguage::Kotlin: return "Kotlin";
    case TSourceLanguage::JavaScript: return "JavaScript";
    case TSourceLanguage::TypeScript: return "TypeScript";
    case TSourceLanguage::Go: return "Go";
    case TSourceLanguage::Rust: return "Rust";
    case TSourceLanguage::CSharp: return "C#";
    case TSourceLanguage::Other: break;
  }
  return "";
}

namespace {

// ---------------------------------------------------------------------------
// Comments and strings

struct TLexRules {
  bool nestedComments = false;     // Rust
  bool singleQuoteStrings = false;  // JavaScript, TypeScript
  bool charLiterals = false;        // 'x' and '\n' in Java, Kotlin, C#, Go
  bool rustQuotes = false;          // char literals beside lifetimes, raw strings
  bool backticks = false;           // templates, Go's raw strings
  bool tripleQuotes = false;        // Java's text blocks, Kotlin's raw strings
  bool verbatim = false;            // C#'s @"..."
};

TLexRules rulesOf(TSourceLanguage language) {
  TLexRules r;
  switch (language) {
    case TSourceLanguage::Java:
    case TSourceLanguage::Kotlin:
      r.charLiterals = r.tripleQuotes = true;
      break;
    case TSourceLanguage::JavaScript:
    case TSourceLanguage::TypeScript:
      r.singleQuoteStrings = r.backticks = true;
      break;
    case TSourceLanguage::Go:
      r.charLiterals = r.backticks = true;
      break;
    case TSourceLanguage::Rust:
      r.nestedComments = r.rustQuotes = true;
      break;
    case TSourceLanguage::CSharp:
      r.charLiterals = r.verbatim = true;
      break;
    case TSourceLanguage::Other: break;
  }
  return r;
}

bool isIdent(char c) {
  const auto u = static_cast<unsigned char>(c);
  return (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9') || u == '_' || u == '$' ||
         u >= 0x80;
}
bool isQuote(char c) { return c == '"' || c == '\'' || c == '`'; }

// The text twice, as long as the original: `code` without comments, and
// `mask` without comments and without what strings hold, their quotes kept.
// Words are looked for in the mask, the texts of strings read from code.
struct TMasked {
  std::string code;
  std::string mask;
};

TMasked maskSource(std::string_view text, const TLexRules& r) {
  TMasked m{std::string(text), std::string(text)};
  const size_t n = text.size();
  auto blank = [&](size_t from, size_t to, bool inCode) {
    to = std::min(to, n);
    for (size_t k = from; k < to; ++k) {
      if (text[k] == '\n') continue;
      m.mask[k] = ' ';
      if (inCode) m.code[k] = ' ';
    }
  };
  size_t i = 0;
  while (i < n) {
    const char c = text[i];
    const char next = i + 1 < n ? text[i + 1] : '\0';
    if (c == '/' && next == '/') {
      size_t end = text.find('\n', i);
      if (end == std::string_view::npos) end = n;
      blank(i, end, true);
      i = end;
    } else if (c == '/' && next == '*') {
      size_t depth = 1;
      size_t j = i + 2;
      while (j < n && depth > 0) {
        if (text[j] == '*' && j + 1 < n && text[j + 1] == '/') {
          --depth;
          j += 2;
        } else if (r.nestedComments && text[j] == '/' && j + 1 < n && text[j + 1] == '*') {
          ++depth;
          j += 2;
        } else {
          ++j;
        }
      }
      blank(i, j, true);
      i = j;
    } else if (r.tripleQuotes && c == '"' && text.substr(i, 3) == "\"\"\"") {
      size_t end = text.find("\"\"\"", i + 3);
      end = end == std::string_view::npos ? n : end + 3;
      blank(i, end, false);
      i = end;
    } else if (r.verbatim && c == '@' && next == '"') {
      size_t j = i + 2;
      while (j < n && !(text[j] == '"' && (j + 1 >= n || text[j + 1] != '"'))) j += text[j] == '"' ? 2 : 1;
      blank(i + 2, j, false);
      i = j + 1;
    } else if (r.rustQuotes && c == 'r' && (next == '"' || next == '#') && (i == 0 || !isIdent(text[i - 1]))) {
      size_t hashes = 0;
      while (i + 1 + hashes < n && text[i + 1 + hashes] == '#') ++hashes;
      if (i + 1 + hashes >= n || text[i + 1 + hashes] != '"') {
        ++i;
        continue;
      }
      const std::string close = "\"" + std::string(hashes, '#');
      size_t end = text.find(close, i + 2 + hashes);
      end = end == std::string_view::npos ? n : end + close.size();
      blank(i, end, false);
      i = end;
    } else if (c == '"' || (c == '\'' && r.singleQuoteStrings) || (c == '`' && r.backticks)) {
      size_t j = i + 1;
      while (j < n && text[j] != c) {
        if (text[j] == '\\') ++j;
        else if (text[j] == '\n' && c != '`') break;  // not closed on its line
        ++j;
      }
      blank(i + 1, j, false);
      i = j + 1;
    } else if (c == '\'' && (r.charLiterals || r.rustQuotes)) {
      // 'x', '\n', '\u{1F600}'; in Rust also a lifetime 'a, which has no
      // closing quote.
      const size_t close = text.find('\'', i + (next == '\\' ? 3 : 2));
      const bool literal = close != std::string_view::npos &&
                           (next == '\\' ? close - i <= 12 : close - i <= 5) && text.substr(i, close - i).find('\n') ==
                                                                                   std::string_view::npos;
      if (literal) {
        blank(i + 1, close, false);
        i = close + 1;
      } else {
        ++i;
      }
    } else {
      ++i;
    }
  }
  return m;
}

// ---------------------------------------------------------------------------
// Words of the masked text

class TScanner {
 public:
  TScanner(TSourceLanguage language, std::string_view text) : m(maskSource(text, rulesOf(language))) {}
  const std::string& mask() const { return m.mask; }
  size_t size() const { return m.mask.size(); }

  size_t skipSpace(size_t i) const {
    while (i < m.mask.size() && std::isspace(static_cast<unsigned char>(m.mask[i]))) ++i;
    return i;
  }
  // The word at i, if one starts there.
  std::string_view wordAt(size_t i) const {
    size_t j = i;
    while (j < m.mask.size() && isIdent(m.mask[j])) ++j;
    return std::string_view(m.mask).substr(i, j - i);
  }
  // A dotted name at i ("a.b.C", "a.b.*"), spaces around dots allowed.
  std::string dottedAt(size_t& i, char separator = '.') const {
    std::string out;
    while (i < m.mask.size()) {
      const std::string_view w = wordAt(i);
      if (!w.empty()) {
        out += w;
        i += w.size();
      } else if (m.mask[i] == '*') {
        out += '*';
        ++i;
      } else {
        break;
      }
      const size_t j = skipSpace(i);
      if (j < m.mask.size() && m.mask[j] == separator) {
        out += separator;
        i = skipSpace(j + 1);
      } else {
        break;
      }
    }
    return out;
  }
  // The string literal whose opening quote is at i; i moves past it.
  bool literalAt(size_t& i, std::string& out) const {
    if (i >= m.mask.size() || !isQuote(m.mask[i])) return false;
    const char quote = m.mask[i];
    const size_t close = m.mask.find(quote, i + 1);
    if (close == std::string::npos) return false;
    out = m.code.substr(i + 1, close - i - 1);
    i = close + 1;
    return out.find('\n') == std::string::npos;
  }

 private:
  TMasked m;
};

// Calls f(word, position, depth) for each word of the text, depth the
// number of open braces before it.
template <class F>
void eachWord(const TScanner& s, F&& f) {
  const std::string& mask = s.mask();
  int depth = 0;
  size_t i = 0;
  while (i < mask.size()) {
    const char c = mask[i];
    if (c == '{') {
      ++depth;
      ++i;
    } else if (c == '}') {
      depth = std::max(0, depth - 1);
      f(std::string_view("}"), i, depth);
      ++i;
    } else if (isIdent(c) && (i == 0 || !isIdent(mask[i - 1]))) {
      const std::string_view w = s.wordAt(i);
      const bool member = i > 0 && mask[i - 1] == '.';
      const size_t next = member ? i + w.size() : f(w, i, depth);
      i = std::max(next, i + w.size());
    } else {
      ++i;
    }
  }
}

// ---------------------------------------------------------------------------
// Java and Kotlin

void scanJavaLike(const TScanner& s, bool kotlin, TSourceFacts& facts) {
  eachWord(s, [&](std::string_view w, size_t i, int depth) -> size_t {
    if (depth != 0) return 0;
    size_t j = s.skipSpace(i + w.size());
    if (w == "package") {
      facts.package = s.dottedAt(j);
      return j;
    }
    if (w == "import") {
      if (s.wordAt(j) == "static") j = s.skipSpace(j + 6);
      const std::string name = s.dottedAt(j);
      if (!name.empty()) facts.references.push_back({name, "import"});
      return j;
    }
    if (w == "class" || w == "interface" || w == "enum" || w == "record" || (kotlin && w == "object")) {
      const std::string_view name = s.wordAt(j);
      // "enum class", "fun interface": the second word names nothing.
      if (!name.empty() && name != "class" && name != "interface") facts.declared.emplace_back(name);
      return j;
    }
    if (kotlin && (w == "fun" || w == "val" || w == "var" || w == "typealias")) {
      // "fun <T> List<T>.second()": an extension names its receiver first,
      // type arguments aside; the last word of the chain is the name.
      auto skipAngles = [&](size_t k) {
        int angle = 0;
        while (k < s.size() && (s.mask()[k] == '<' || angle > 0)) {
          if (s.mask()[k] == '<') ++angle;
          if (s.mask()[k] == '>') --angle;
          ++k;
        }
        return s.skipSpace(k);
      };
      j = skipAngles(j);
      std::string name;
      while (j < s.size()) {
        const std::string_view part = s.wordAt(j);
        if (part.empty()) break;
        name = part;
        j = skipAngles(s.skipSpace(j + part.size()));
        if (j < s.size() && s.mask()[j] == '?') j = s.skipSpace(j + 1);
        if (j >= s.size() || s.mask()[j] != '.') break;
        j = s.skipSpace(j + 1);
      }
      if (!name.empty()) facts.declared.push_back(name);
      return j;
    }
    return 0;
  });
}

// ---------------------------------------------------------------------------
// JavaScript and TypeScript

// From i, the module of "... from 'x'" within one statement.
bool fromClause(const TScanner& s, size_t& i, std::string& module) {
  const std::string& mask = s.mask();
  const size_t start = i;
  int depth = 0;
  while (i < mask.size() && i - start < 4000) {
    const char c = mask[i];
    if (c == '{') ++depth;
    if (c == '}') --depth;
    if (depth < 0 || (depth == 0 && c == ';')) return false;
    if (isIdent(c) && (i == 0 || !isIdent(mask[i - 1]))) {
      const std::string_view w = s.wordAt(i);
      i += w.size();
      if (depth == 0 && w == "from") {
        size_t j = s.skipSpace(i);
        if (s.literalAt(j, module)) {
          i = j;
          return true;
        }
      }
      if (depth == 0 && (w == "import" || w == "export" || w == "const" || w == "function" || w == "class"))
        return false;
      continue;
    }
    if (isQuote(c)) {
      std::string ignored;
      if (!s.literalAt(i, ignored)) ++i;
      continue;
    }
    ++i;
  }
  return false;
}

void scanScript(const TScanner& s, TSourceFacts& facts) {
  eachWord(s, [&](std::string_view w, size_t i, int) -> size_t {
    size_t j = s.skipSpace(i + w.size());
    std::string module;
    const char next = j < s.size() ? s.mask()[j] : '\0';
    if (w == "import") {
      if (next == '(') {
        size_t k = s.skipSpace(j + 1);
        if (s.literalAt(k, module)) facts.references.push_back({module, "dynamic import"});
        return k;
      }
      if (next == '.') return j;  // import.meta
      if (s.literalAt(j, module)) {
        facts.references.push_back({module, "import"});
        return j;
      }
      if (fromClause(s, j, module)) {
        facts.references.push_back({module, "import"});
        return j;
      }
      return 0;
    }
    if (w == "export") {
      if (s.wordAt(j) == "type") j = s.skipSpace(j + 4);
      if (j < s.size() && (s.mask()[j] == '*' || s.mask()[j] == '{') && fromClause(s, j, module)) {
        facts.references.push_back({module, "export"});
        return j;
      }
      return 0;
    }
    if (w == "require" && next == '(') {
      size_t k = s.skipSpace(j + 1);
      if (s.literalAt(k, module) && s.skipSpace(k) < s.size() && s.mask()[s.skipSpace(k)] == ')')
        facts.references.push_back({module, "require"});
      return k;
    }
    return 0;
  });
}

// ---------------------------------------------------------------------------
// Go

void scanGo(const TScanner& s, TSourceFacts& facts) {
  eachWord(s, [&](std::string_view w, size_t i, int depth) -> size_t {
    if (depth != 0 || w != "import") return 0;
    size_t j = s.skipSpace(i + w.size());
    auto one = [&](size_t& k) {
      // An optional name: a word, "_" or ".".
      if (k < s.size() && (isIdent(s.mask()[k]) || s.mask()[k] == '.')) {
        k += s.mask()[k] == '.' ? 1 : s.wordAt(k).size();
        k = s.skipSpace(k);
      }
      std::string path;
      if (s.literalAt(k, path)) {
        facts.references.push_back({path, "import"});
        return true;
      }
      return false;
    };
    if (j < s.size() && s.mask()[j] == '(') {
      size_t k = s.skipSpace(j + 1);
      while (k < s.size() && s.mask()[k] != ')') {
        if (!one(k)) ++k;
        k = s.skipSpace(k);
        if (k < s.size() && s.mask()[k] == ';') k = s.skipSpace(k + 1);
      }
      return k;
    }
    one(j);
    return j;
  });
}

// ---------------------------------------------------------------------------
// Rust

// The paths of a use tree, "a::{b, c::d as e}" giving a::b and a::c::d;
// a glob names its module.
void expandUseTree(std::string_view t, size_t& i, const std::string& prefix, std::vector<std::string>& out) {
  auto space = [&] {
    while (i < t.size() && t[i] == ' ') ++i;
  };
  std::string path = prefix;
  while (true) {
    space();
    if (i >= t.size()) break;
    if (t[i] == '{') {
      ++i;
      while (true) {
        expandUseTree(t, i, path, out);
        space();
        if (i < t.size() && t[i] == ',') {
          ++i;
          space();
          if (i < t.size() && t[i] == '}') {
            ++i;
            return;
          }
          continue;
        }
        if (i < t.size() && t[i] == '}') ++i;
        return;
      }
    }
    if (t[i] == '*') {
      ++i;
      if (path.size() >= 2) out.push_back(path.substr(0, path.size() - 2));
      return;
    }
    if (t.compare(i, 2, "::") == 0) {  // a path from the crates' root
      i += 2;
      continue;
    }
    size_t j = i;
    while (j < t.size() && isIdent(t[j])) ++j;
    if (j == i) return;
    const std::string_view segment = t.substr(i, j - i);
    i = j;
    space();
    if (t.compare(i, 2, "::") == 0) {
      path += std::string(segment) + "::";
      i += 2;
      continue;
    }
    // "a::{self, b}": self is a itself.
    if (segment == "self" && path.size() >= 2) out.push_back(path.substr(0, path.size() - 2));
    else out.push_back(path + std::string(segment));
    if (t.compare(i, 2, "as") == 0 && (i + 2 >= t.size() || !isIdent(t[i + 2]))) {
      i += 2;
      space();
      while (i < t.size() && isIdent(t[i])) ++i;
    }
    return;
  }
}

void scanRust(const TScanner& s, TSourceFacts& facts) {
  eachWord(s, [&](std::string_view w, size_t i, int depth) -> size_t {
    size_t j = s.skipSpace(i + w.size());
    if (w == "use") {
      const size_t end = s.mask().find(';', j);
      if (end == std::string::npos) return 0;
      std::string tree;
      for (size_t k = j; k < end; ++k) {
        const char c = std::isspace(static_cast<unsigned char>(s.mask()[k])) ? ' ' : s.mask()[k];
        if (c != ' ' || (!tree.empty() && tree.back() != ' ')) tree += c;
      }
      std::vector<std::string> paths;
      size_t at = 0;
      expandUseTree(tree, at, "", paths);
      for (auto& p : paths) facts.references.push_back({std::move(p), "use"});
      return end;
    }
    if (w == "mod" && depth == 0) {
      const std::string_view name = s.wordAt(j);
      const size_t k = s.skipSpace(j + name.size());
      if (!name.empty() && k < s.size() && s.mask()[k] == ';') facts.references.push_back({std::string(name), "mod"});
      return k;
    }
    return 0;
  });
}

// ---------------------------------------------------------------------------
// C#

void scanCSharp(const TScanner& s, TSourceFacts& facts) {
  // The namespaces open at a point, with the depth of braces inside each;
  // a file-scoped namespace holds the whole file at depth 0.
  std::vector<std::pair<std::string, int>> open;
  eachWord(s, [&](std::string_view w, size_t i, int depth) -> size_t {
    if (w == "}") {
      while (!open.empty() && open.back().second > depth) open.pop_back();
      return 0;
    }
    size_t j = s.skipSpace(i + w.size());
    if (w == "namespace") {
      const std::string name = s.dottedAt(j);
      const size_t k = s.skipSpace(j);
      if (name.empty() || k >= s.size() || (s.mask()[k] != '{' && s.mask()[k] != ';')) return j;
      const std::string full = open.empty() ? name : open.back().first + "." + name;
      if (std::find(facts.declared.begin(), facts.declared.end(), full) == facts.declared.end())
        facts.declared.push_back(full);
      open.emplace_back(full, s.mask()[k] == '{' ? depth + 1 : 0);
      return k;
    }
    if (w == "using") {
      // A directive stands outside types: every open brace is a namespace's.
      const auto blocks = std::count_if(open.begin(), open.end(), [](const auto& o) { return o.second > 0; });
      if (depth != blocks || j >= s.size() || s.mask()[j] == '(') return 0;
      const std::string_view first = s.wordAt(j);
      if (first == "var" || first == "await") return 0;
      if (first == "static") j = s.skipSpace(j + first.size());
      std::string name = s.dottedAt(j);
      size_t k = s.skipSpace(j);
      if (k < s.size() && s.mask()[k] == '=') {
        j = s.skipSpace(k + 1);
        name = s.dottedAt(j);
        k = s.skipSpace(j);
        if (k < s.size() && s.mask()[k] == '<') k = s.mask().find(';', k);
      }
      if (!name.empty() && k < s.size() && s.mask()[k] == ';') facts.references.push_back({name, "using"});
      return k;
    }
    return 0;
  });
}

}  // namespace

TSourceFacts scanSource(TSourceLanguage language, std::string_view text) {
  TSourceFacts facts;
  if (language == TSourceLanguage::Other) return facts;
  const TScanner s(language, text);
  switch (language) {
    case TSourceLanguage::Java: scanJavaLike(s, false, facts); break;
    case TSourceLanguage::Kotlin: scanJavaLike(s, true, facts); break;
    case TSourceLanguage::JavaScript:
    case TSourceLanguage::TypeScript: scanScript(s, facts); break;
    case TSourceLanguage::Go: scanGo(s, facts); break;
    case TSourceLanguage::Rust: scanRust(s, facts); break;
    case TSourceLanguage::CSharp: scanCSharp(s, facts); break;
    case TSourceLanguage::Other: break;
  }
  return facts;
}

}  // namespace quorvel
