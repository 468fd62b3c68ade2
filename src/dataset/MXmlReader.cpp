#include "MXmlReader.h"

#include <expat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "base/MTextForm.h"
#include "engine/MMediator.h"

namespace quorvel {

namespace {

// Drops the underscores that the interpreter allows between digits; false
// for one anywhere else.
bool dropUnderscores(std::string_view s, std::string& out) {
  out.clear();
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] != '_') {
      out += s[i];
      continue;
    }
    const bool between = i > 0 && i + 1 < s.size() && std::isdigit(static_cast<unsigned char>(s[i - 1])) &&
                         std::isdigit(static_cast<unsigned char>(s[i + 1]));
    if (!between) return false;
  }
  return true;
}

bool equalsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
  return true;
}

// The text as the interpreter's float() reads it.
bool parseScriptFloat(std::string_view text, double& out) {
  std::string s;
  if (!dropUnderscores(trimmed(text), s) || s.empty()) return false;
  std::string_view body = s;
  bool negative = false;
  if (body.front() == '+' || body.front() == '-') {
    negative = body.front() == '-';
    body.remove_prefix(1);
  }
  if (equalsNoCase(body, "inf") || equalsNoCase(body, "infinity")) {
    out = negative ? -HUGE_VAL : HUGE_VAL;
    return true;
  }
  if (equalsNoCase(body, "nan")) {
    out = std::nan("");
    return true;
  }
  // digits [. digits] [e [sign] digits], with at least one digit before the
  // exponent.
  size_t i = 0;
  size_t digits = 0;
  while (i < body.size() && std::isdigit(static_cast<unsigned char>(body[i]))) ++i, ++digits;
  if (i < body.size() && body[i] == '.') {
    ++i;
    while (i < body.size() && std::isdigit(static_cast<unsigned char>(body[i]))) ++i, ++digits;
  }
  if (digits == 0) return false;
  if (i < body.size() && (body[i] == 'e' || body[i] == 'E')) {
    ++i;
    if (i < body.size() && (body[i] == '+' || body[i] == '-')) ++i;
    size_t expDigits = 0;
    while (i < body.size() && std::isdigit(static_cast<unsigned char>(body[i]))) ++i, ++expDigits;
    if (expDigits == 0) return false;
  }
  if (i != body.size()) return false;
  out = std::strtod(s.c_str(), nullptr);
  return true;
}

// The text as the interpreter's int() reads it, within 64 bits.
bool parseScriptInt(std::string_view text, int64_t& out) {
  std::string s;
  if (!dropUnderscores(trimmed(text), s) || s.empty()) return false;
  size_t i = (s[0] == '+' || s[0] == '-') ? 1 : 0;
  if (i == s.size()) return false;
  for (size_t k = i; k < s.size(); ++k)
    if (!std::isdigit(static_cast<unsigned char>(s[k]))) return false;
  errno = 0;
  char* end = nullptr;
  const long long v = std::strtoll(s.c_str(), &end, 10);
  if (errno == ERANGE) return false;
  out = v;
  return true;
}

}  // namespace

// ---------------------------------------------------------------------------

struct TXmlReader::Handler {
  enum Type { Element = 0, Node = 1, Edge = 2, NodeAttributeInfoList = 3, EdgeAttributeInfoList = 4, EdgeSet = 6 };
  struct Entry {
    int type = Element;
    bool hierarchy = false;  // a TXmlHierarchy (type 0 as well)
    int64_t id = 0;          // nid, eid, or the hierarchy id
    bool firstnode = true;
  };

  std::vector<Entry> stack{Entry{}};
  int64_t eid = 10000;
  int edgesetcount = 0;
  std::atomic<bool> stopparsing{false};
  int64_t currenthid = 0;
  int64_t childorder = 0;
  TDatabase* db = nullptr;
  XML_Parser parser = nullptr;
  std::exception_ptr failure;
  std::string systemId;

  [[noreturn]] void fail(const std::string& message) { throw TXmlException(message); }

  static const char* attribute(const XML_Char** atts, const char* name) {
    for (int i = 0; atts[i]; i += 2)
      if (std::strcmp(atts[i], name) == 0) return atts[i + 1];
    return nullptr;
  }

  int64_t integerOf(const char* text) {
    int64_t v = 0;
    if (!parseScriptInt(text, v))
      throw TFlowError(std::string("invalid literal for int() with base 10: ") + pyReprText(text));
    return v;
  }

  static std::string pyReprText(const std::string& text) {
    const bool useDouble = text.find('\'') != std::string::npos && text.find('"') == std::string::npos;
    const char q = useDouble ? '"' : '\'';
    std::string out(1, q);
    for (char c : text) {
      if (c == q || c == '\\') out += '\\';
      out += c;
    }
    return out + q;
  }

  void start(const char* name, const XML_Char** atts) {
    if (stopparsing) fail("Aborted by the user");
    const std::string n(name);
    const Entry& top = stack.back();
    if (n.rfind("attr", 0) == 0) {
      const char* key = attribute(atts, "key");
      if (!key) fail("<attribute>: missing attribute 'key'");
      if (top.type == Node || top.type == Edge) {
        const char* value = attribute(atts, "value");
        if (!value) fail("<attribute>: missing attribute 'value'");
        double number = 0.0;
        const TDbValue v = parseScriptFloat(value, number) ? TDbValue{number} : TDbValue{std::string(value)};
        if (top.type == Node)
          db->execute("INSERT INTO nodeattr (nid,key,value) VALUES (?,?,?)", {top.id, std::string(key), v});
        else
          db->execute("INSERT INTO edgeattr (eid,key,value) VALUES (?,?,?)", {top.id, std::string(key), v});
      }
      stack.push_back(Entry{});
      return;
    }
    if (n == "node") {
      const char* nid = attribute(atts, "nid");
      if (!nid) fail("<node>: missing attribute 'nid'");
      int64_t v = 0;
      if (!parseScriptInt(nid, v)) fail("<node>: attribute 'nid' should be an int");
      if (v == 0) fail("<node>: attribute 'nid' should not be 0");
      stack.push_back(Entry{Node, false, v, true});
      return;
    }
    if (n == "edge") {
      const char* from = attribute(atts, "fromnid");
      if (!from) fail("<edge>: missing attribute 'fromnid'");
      const char* to = attribute(atts, "tonid");
      if (!to) fail("<edge>: missing attribute 'tonid'");
      const int64_t fromnid = integerOf(from);
      const int64_t tonid = integerOf(to);
      Entry& parent = stack.back();
      if (parent.hierarchy) {
        ++childorder;
        const char* insert = "INSERT INTO hierarchy (hid,nid,parentnid,childorder) VALUES (?,?,?,?)";
        db->execute(insert, {currenthid, tonid, fromnid, childorder});
        if (parent.firstnode) {
          db->execute(insert, {currenthid, fromnid, TDbValue{}, childorder});
          parent.firstnode = false;
        }
        stack.push_back(Entry{});
      } else if (parent.type == EdgeSet) {
        int64_t id = 0;
        const char* given = attribute(atts, "eid");
        if (!given || !parseScriptInt(given, id)) id = eid++;
        db->execute("INSERT INTO edges (eid,fromnid,tonid) VALUES (?,?,?)", {id, fromnid, tonid});
        stack.push_back(Entry{Edge, false, id, true});
      } else {
        stack.push_back(Entry{});
      }
      return;
    }
    if (n == "nodeattributes") {
      stack.push_back(Entry{NodeAttributeInfoList});
    } else if (n == "edgeattributes") {
      stack.push_back(Entry{EdgeAttributeInfoList});
    } else if (n == "nodes") {
      stack.push_back(Entry{});
    } else if (n == "hierarchy") {
      ++currenthid;
      stack.push_back(Entry{Element, true, currenthid, true});
    } else if (n == "edgeset" || n == "edges") {
      if (edgesetcount > 0) {
        logWarning("Xml reader: Only one edgeset is currently supported. Ignoring other edgesets.");
        stack.push_back(Entry{});
      } else {
        stack.push_back(Entry{EdgeSet});
      }
      ++edgesetcount;
    } else {
      stack.push_back(Entry{});
    }
  }

  void end() {
    if (stack.empty()) fail("Closing element mismatch");
    stack.pop_back();
  }

  // Callbacks never let an exception through the parser: it is kept and
  // the parser stopped.
  template <class F>
  void guarded(F&& f) {
    if (failure) return;
    try {
      f();
    } catch (const TXmlException& e) {
      failure = std::make_exception_ptr(TFlowError(std::string(e.what()) + " (line " +
                                                   std::to_string(XML_GetCurrentLineNumber(parser)) + ", column " +
                                                   std::to_string(XML_GetCurrentColumnNumber(parser)) + ")"));
      XML_StopParser(parser, XML_FALSE);
    } catch (...) {
      failure = std::current_exception();
      XML_StopParser(parser, XML_FALSE);
    }
  }

  static void onStart(void* data, const XML_Char* name, const XML_Char** atts) {
    auto* h = static_cast<Handler*>(data);
    h->guarded([&] { h->start(name, atts); });
  }
  static void onEnd(void* data, const XML_Char*) {
    auto* h = static_cast<Handler*>(data);
    h->guarded([&] { h->end(); });
  }

  // A chunk of the document; false once the parser failed.
  bool feed(const char* bytes, size_t n, bool final) {
    if (XML_Parse(parser, bytes, static_cast<int>(n), final ? 1 : 0) == XML_STATUS_OK) return true;
    if (failure) std::rethrow_exception(failure);
    throw TFlowError(systemId + ":" + std::to_string(XML_GetCurrentLineNumber(parser)) + ":" +
                     std::to_string(XML_GetCurrentColumnNumber(parser)) + ": " +
                     XML_ErrorString(XML_GetErrorCode(parser)));
  }
};

void TXmlReader::createDatasetTables(TDatabase& db) {
  for (const char* statement :
       {"CREATE TABLE edges (eid INTEGER PRIMARY KEY, fromnid INTEGER, tonid INTEGER)",
        "CREATE TABLE nodeattr (nid INTEGER KEY, key STRING, value STRING, type STRING)",
        "CREATE TABLE edgeattr (eid INTEGER KEY, key STRING, value STRING, type STRING)",
        "CREATE TABLE hierarchy (hid INTEGER, nid INTEGER, parentnid INTEGER, childorder INTEGER)",
        "CREATE TABLE information(key TEXT, value)",
        "INSERT INTO information (key, value) VALUES ('database format version', 2)",
        "INSERT INTO information (key, value) VALUES ('creation date', (SELECT datetime('now')) )"})
    db.execute(statement);
}

std::shared_ptr<TDatabase> TXmlReader::convert(const std::function<bool(Handler&)>& feed) {
  auto db = std::make_shared<TDatabase>(":memory:");
  createDatasetTables(*db);
  Handler handler;
  handler.db = db.get();
  handler.systemId = m_Filename.empty() ? "<unknown>" : m_Filename;
  std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser(XML_ParserCreate(nullptr), XML_ParserFree);
  if (!parser) throw TFlowError("Cannot create the XML parser");
  handler.parser = parser.get();
  XML_SetUserData(parser.get(), &handler);
  XML_SetElementHandler(parser.get(), &Handler::onStart, &Handler::onEnd);
  m_Running = &handler;
  try {
    feed(handler);
  } catch (...) {
    m_Running = nullptr;
    throw;
  }
  m_Running = nullptr;
  return db;
}

std::shared_ptr<TDatabase> TXmlReader::convertToDatabase() {
  std::error_code ec;
  const auto st = std::filesystem::status(m_Filename, ec);
  if (std::filesystem::exists(st) && !std::filesystem::is_regular_file(st))
    throw TFlowError("Cannot open '" + m_Filename + "': not a regular file");
  std::ifstream in(m_Filename, std::ios::binary);
  if (!in) throw TFlowError("Cannot open '" + m_Filename + "'");
  return convert([&in](Handler& h) {
    // The parser keeps a token that a chunk ends inside and reads it again
    // from its start with the next chunk. A long token (a large attribute
    // value) would be read once per chunk; so the next chunk is at least as
    // long as what the parser holds back, which keeps the work linear.
    constexpr size_t kChunk = 1 << 16;
    std::vector<char> buffer(kChunk);
    uint64_t fed = 0;
    while (true) {
      const XML_Index consumed = XML_GetCurrentByteIndex(h.parser);
      const uint64_t heldBack = consumed >= 0 && uint64_t(consumed) <= fed ? fed - uint64_t(consumed) : 0;
      const size_t want = std::max<size_t>(kChunk, size_t(heldBack));
      if (buffer.size() < want) buffer.resize(want);
      in.read(buffer.data(), static_cast<std::streamsize>(want));
      const size_t n = static_cast<size_t>(in.gcount());
      const bool final = n < want;
      h.feed(buffer.data(), n, final);
      fed += n;
      if (final) return true;
    }
  });
}

std::shared_ptr<TDatabase> TXmlReader::convertText(const std::string& text) {
  return convert([&text](Handler& h) { return h.feed(text.data(), text.size(), true); });
}

void TXmlReader::stopParsing() {
  if (Handler* h = m_Running.load()) h->stopparsing = true;
}

}  // namespace quorvel
