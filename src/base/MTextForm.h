// Number texts of the stored forms, and a reader for them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/MErrors.h"

namespace quorvel {

// The failure of a conversion that must take the whole text.
class TBadLexicalCast : public TFlowError {
 public:
  TBadLexicalCast() : TFlowError("bad lexical cast: source type value could not be interpreted as target") {}
};

// 9 significant digits in the stream's general format: 0.1 gives 0.100000001.
std::string formatFloat9(float v);
// The stream's default: 6 significant digits, general format.
std::string formatFloat6(float v);
// The interpreter's str() of a float: the shortest text that reads back.
std::string formatScriptFloat(double v);

// The whole text as a number, or TBadLexicalCast.
int32_t parseInt32(std::string_view text);
float parseFloat(std::string_view text);
bool parseBool(std::string_view text);

// The text without the white space at both ends.
std::string_view trimmed(std::string_view text);

// Reads the blank-separated stored forms. Each read skips white space
// first and fails (returns false) at the end or at a token that does not
// parse, leaving the position where it was.
class TTextReader {
 public:
  explicit TTextReader(std::string_view text) : m_Text(text) {}
  void skipSpace();
  bool atEnd();
  bool readUInt32(uint32_t& out);
  bool readInt32(int32_t& out);
  bool readFloat(float& out);
  // Exactly n bytes, where they stand.
  bool readBytes(size_t n, std::string& out);
  // A run of non-blank characters.
  bool readWord(std::string& out);

 private:
  template <class Int>
  bool readInteger(Int& out);
  std::string_view m_Text;
  size_t m_Pos = 0;
};

}  // namespace quorvel
