#include "foundation/utf8.h"

namespace zt::utf8 {

std::size_t SequenceLength(unsigned char lead) {
  if (lead < 0x80) return 1;
  if ((lead & 0xE0) == 0xC0) return 2;
  if ((lead & 0xF0) == 0xE0) return 3;
  if ((lead & 0xF8) == 0xF0) return 4;
  return 1;
}

namespace {
// Length of the well-formed sequence at `pos`, or 1 when it is cut short or malformed.
std::size_t ValidLength(std::string_view s, std::size_t pos) {
  std::size_t n = SequenceLength(static_cast<unsigned char>(s[pos]));
  if (pos + n > s.size()) return 1;
  for (std::size_t i = 1; i < n; ++i)
    if ((static_cast<unsigned char>(s[pos + i]) & 0xC0) != 0x80) return 1;
  return n;
}
}  // namespace

std::size_t Length(std::string_view s) {
  std::size_t n = 0;
  for (std::size_t pos = 0; pos < s.size(); pos += ValidLength(s, pos)) ++n;
  return n;
}

std::size_t ByteOffset(std::string_view s, std::size_t index) {
  std::size_t pos = 0;
  while (index > 0 && pos < s.size()) {
    pos += ValidLength(s, pos);
    --index;
  }
  return pos;
}

std::string Mid(std::string_view s, std::size_t start, std::size_t count) {
  if (start == 0) start = 1;
  std::size_t b = ByteOffset(s, start - 1);
  if (count == std::string::npos) return std::string(s.substr(b));
  std::size_t e = b + ByteOffset(s.substr(b), count);
  return std::string(s.substr(b, e - b));
}

std::string Left(std::string_view s, std::size_t count) {
  return std::string(s.substr(0, ByteOffset(s, count)));
}

char32_t Next(std::string_view s, std::size_t& pos) {
  std::size_t n = ValidLength(s, pos);
  auto b = static_cast<unsigned char>(s[pos]);
  char32_t cp;
  if (n == 1) {
    cp = b < 0x80 ? b : 0xFFFD;
  } else {
    cp = b & (0xFF >> (n + 1));
    for (std::size_t i = 1; i < n; ++i)
      cp = (cp << 6) | (static_cast<unsigned char>(s[pos + i]) & 0x3F);
  }
  pos += n;
  return cp;
}

void Append(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

}  // namespace zt::utf8
