#include "MTextForm.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace quorvel {

namespace {
bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

std::string printfFloat(const char* fmt, double v) {
  char buf[64];
  std::snprintf(buf, sizeof buf, fmt, v);
  return buf;
}
}  // namespace

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  return text;
}

std::string formatFloat9(float v) { return printfFloat("%.9g", static_cast<double>(v)); }

std::string formatFloat6(float v) { return printfFloat("%g", static_cast<double>(v)); }

std::string formatScriptFloat(double v) {
  if (std::isnan(v)) return "nan";
  if (std::isinf(v)) return v > 0 ? "inf" : "-inf";
  // Shortest digits that read back, then the interpreter's layout: plain
  // digits for exponents from -4 to 15, scientific otherwise.
  char buf[64];
  auto res = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::scientific);
  std::string sci(buf, res.ptr);
  const size_t e = sci.find('e');
  std::string mantissa = sci.substr(0, e);
  const int exponent = std::atoi(sci.c_str() + e + 1);
  bool negative = false;
  if (!mantissa.empty() && mantissa[0] == '-') {
    negative = true;
    mantissa.erase(0, 1);
  }
  std::string digits;
  for (char c : mantissa)
    if (c != '.') digits += c;
  std::string out;
  if (exponent >= -4 && exponent < 16) {
    if (exponent >= 0) {
      if (digits.size() <= static_cast<size_t>(exponent) + 1) {
        out = digits + std::string(static_cast<size_t>(exponent) + 1 - digits.size(), '0') + ".0";
      } else {
        out = digits.substr(0, static_cast<size_t>(exponent) + 1) + "." + digits.substr(static_cast<size_t>(exponent) + 1);
      }
    } else {
      out = "0." + std::string(static_cast<size_t>(-exponent - 1), '0') + digits;
    }
  } else {
    out = digits.substr(0, 1);
    if (digits.size() > 1) out += "." + digits.substr(1);
    char exp[16];
    std::snprintf(exp, sizeof exp, "e%c%02d", exponent < 0 ? '-' : '+', std::abs(exponent));
    out += exp;
  }
  return negative ? "-" + out : out;
}

int32_t parseInt32(std::string_view text) {
  std::string_view t = text;
  if (!t.empty() && t[0] == '+') t.remove_prefix(1);
  if (t.empty() || t[0] == '+') throw TBadLexicalCast();
  int32_t v = 0;
  auto res = std::from_chars(t.data(), t.data() + t.size(), v);
  if (res.ec != std::errc() || res.ptr != t.data() + t.size()) throw TBadLexicalCast();
  return v;
}

float parseFloat(std::string_view text) {
  if (text.empty() || isSpace(text[0])) throw TBadLexicalCast();
  const std::string s(text);
  // Hexadecimal texts are no decimal numbers.
  if (s.find_first_of("xX") != std::string::npos) throw TBadLexicalCast();
  char* end = nullptr;
  errno = 0;
  const float v = std::strtof(s.c_str(), &end);
  if (end != s.c_str() + s.size()) throw TBadLexicalCast();
  if (errno == ERANGE && std::isinf(v)) throw TBadLexicalCast();
  return v;
}

bool parseBool(std::string_view text) {
  if (text == "0") return false;
  if (text == "1") return true;
  throw TBadLexicalCast();
}

void TTextReader::skipSpace() {
  while (m_Pos < m_Text.size() && isSpace(m_Text[m_Pos])) ++m_Pos;
}

bool TTextReader::atEnd() {
  skipSpace();
  return m_Pos >= m_Text.size();
}

template <class Int>
bool TTextReader::readInteger(Int& out) {
  skipSpace();
  const char* b = m_Text.data() + m_Pos;
  const char* e = m_Text.data() + m_Text.size();
  if (b < e && *b == '+') ++b;
  auto res = std::from_chars(b, e, out);
  if (res.ec != std::errc()) return false;
  m_Pos = static_cast<size_t>(res.ptr - m_Text.data());
  return true;
}

bool TTextReader::readUInt32(uint32_t& out) { return readInteger(out); }

bool TTextReader::readInt32(int32_t& out) { return readInteger(out); }

bool TTextReader::readFloat(float& out) {
  skipSpace();
  size_t end = m_Pos;
  while (end < m_Text.size() && !isSpace(m_Text[end])) ++end;
  if (end == m_Pos) return false;
  const std::string token(m_Text.substr(m_Pos, end - m_Pos));
  char* stop = nullptr;
  const float v = std::strtof(token.c_str(), &stop);
  if (stop == token.c_str()) return false;
  out = v;
  m_Pos += static_cast<size_t>(stop - token.c_str());
  return true;
}

bool TTextReader::readBytes(size_t n, std::string& out) {
  if (m_Pos + n > m_Text.size()) return false;
  out.assign(m_Text.substr(m_Pos, n));
  m_Pos += n;
  return true;
}

bool TTextReader::readWord(std::string& out) {
  skipSpace();
  size_t end = m_Pos;
  while (end < m_Text.size() && !isSpace(m_Text[end])) ++end;
  if (end == m_Pos) return false;
  out.assign(m_Text.substr(m_Pos, end - m_Pos));
  m_Pos = end;
  return true;
}

}  // namespace quorvel
