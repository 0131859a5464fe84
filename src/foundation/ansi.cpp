#include "foundation/ansi.h"

#include <array>

#include "foundation/utf8.h"

namespace zt::ansi {

namespace {

// Windows-1252 bytes 0x80 to 0x9F; 0 marks the five bytes the code page leaves unassigned.
constexpr std::array<char16_t, 32> kAnsiHigh = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

}  // namespace

unsigned char FromCodePoint(char32_t cp) {
  if (cp < 0x80 || (cp >= 0xA0 && cp <= 0xFF)) return static_cast<unsigned char>(cp);
  for (std::size_t i = 0; i < kAnsiHigh.size(); ++i) {
    // An unassigned byte round-trips through the C1 control of the same number.
    char32_t mapped = kAnsiHigh[i] != 0 ? kAnsiHigh[i] : static_cast<char32_t>(0x80 + i);
    if (mapped == cp) return static_cast<unsigned char>(0x80 + i);
  }
  return '?';
}

char32_t ToCodePoint(unsigned char byte) {
  if (byte < 0x80 || byte >= 0xA0) return byte;
  char16_t mapped = kAnsiHigh[byte - 0x80];
  return mapped != 0 ? mapped : byte;
}

std::string Encode(std::string_view utf8_text) {
  std::string out;
  out.reserve(utf8_text.size());
  for (std::size_t pos = 0; pos < utf8_text.size();) {
    // A malformed byte decodes as U+FFFD, which the code page cannot hold either.
    out += static_cast<char>(FromCodePoint(utf8::Next(utf8_text, pos)));
  }
  return out;
}

}  // namespace zt::ansi
