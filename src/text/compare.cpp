#include "zt/text/compare.h"

#include <algorithm>
#include <iterator>

#include "foundation/ansi.h"
#include "foundation/utf8.h"
#include "text/chars.h"
#include "zt/error.h"

namespace zt {

namespace {

// A run of code points that fold the same way:
//   kOffset: every code point in [first, last] folds to cp + delta;
//   kPairs:  upper and lower case alternate, the one with the parity of `first` being upper.
struct FoldRange {
  char32_t first;
  char32_t last;
  enum Kind { kOffset, kPairs } kind;
  std::int32_t delta;
};

// Sorted by `first`. Enough for Latin (Basic, Latin-1, Extended-A/B, Extended Additional),
// Greek, Cyrillic, Armenian, Roman numerals, circled and fullwidth letters: the scripts that
// names and connection strings of the application's customers are written in.
constexpr FoldRange kFolds[] = {
    {0x0041, 0x005A, FoldRange::kOffset, 0x20},
    {0x00B5, 0x00B5, FoldRange::kOffset, 0x3BC - 0xB5},
    {0x00C0, 0x00D6, FoldRange::kOffset, 0x20},
    {0x00D8, 0x00DE, FoldRange::kOffset, 0x20},
    {0x0100, 0x012F, FoldRange::kPairs, 1},
    {0x0130, 0x0130, FoldRange::kOffset, 0x69 - 0x130},
    {0x0132, 0x0137, FoldRange::kPairs, 1},
    {0x0139, 0x0148, FoldRange::kPairs, 1},
    {0x014A, 0x0177, FoldRange::kPairs, 1},
    {0x0178, 0x0178, FoldRange::kOffset, 0xFF - 0x178},
    {0x0179, 0x017E, FoldRange::kPairs, 1},
    {0x017F, 0x017F, FoldRange::kOffset, 0x73 - 0x17F},
    {0x01CD, 0x01DC, FoldRange::kPairs, 1},
    {0x01DE, 0x01EF, FoldRange::kPairs, 1},
    {0x01F8, 0x021F, FoldRange::kPairs, 1},
    {0x0222, 0x0233, FoldRange::kPairs, 1},
    {0x0386, 0x0386, FoldRange::kOffset, 0x26},
    {0x0388, 0x038A, FoldRange::kOffset, 0x25},
    {0x038C, 0x038C, FoldRange::kOffset, 0x40},
    {0x038E, 0x038F, FoldRange::kOffset, 0x3F},
    {0x0391, 0x03A1, FoldRange::kOffset, 0x20},
    {0x03A3, 0x03AB, FoldRange::kOffset, 0x20},
    {0x03C2, 0x03C2, FoldRange::kOffset, 1},
    {0x03D8, 0x03EF, FoldRange::kPairs, 1},
    {0x0400, 0x040F, FoldRange::kOffset, 0x50},
    {0x0410, 0x042F, FoldRange::kOffset, 0x20},
    {0x0460, 0x0481, FoldRange::kPairs, 1},
    {0x048A, 0x04BF, FoldRange::kPairs, 1},
    {0x04C0, 0x04C0, FoldRange::kOffset, 0x0F},
    {0x04C1, 0x04CE, FoldRange::kPairs, 1},
    {0x04D0, 0x052F, FoldRange::kPairs, 1},
    {0x0531, 0x0556, FoldRange::kOffset, 0x30},
    {0x10A0, 0x10C5, FoldRange::kOffset, 0x2D00 - 0x10A0},
    {0x1E00, 0x1E95, FoldRange::kPairs, 1},
    {0x1E9E, 0x1E9E, FoldRange::kOffset, 0xDF - 0x1E9E},
    {0x1EA0, 0x1EFF, FoldRange::kPairs, 1},
    {0x2126, 0x2126, FoldRange::kOffset, 0x3C9 - 0x2126},
    {0x212A, 0x212A, FoldRange::kOffset, 0x6B - 0x212A},
    {0x212B, 0x212B, FoldRange::kOffset, 0xE5 - 0x212B},
    {0x2160, 0x216F, FoldRange::kOffset, 0x10},
    {0x24B6, 0x24CF, FoldRange::kOffset, 0x1A},
    {0x2C00, 0x2C2F, FoldRange::kOffset, 0x30},
    {0xFF21, 0xFF3A, FoldRange::kOffset, 0x20},
};

std::size_t ToIndex(std::int64_t start) {
  return start < 1 ? 0 : static_cast<std::size_t>(start - 1);
}

}  // namespace

char32_t FoldCase(char32_t cp) {
  auto it = std::upper_bound(std::begin(kFolds), std::end(kFolds), cp,
                             [](char32_t c, const FoldRange& r) { return c < r.first; });
  if (it == std::begin(kFolds)) return cp;
  const FoldRange& r = *--it;
  if (cp > r.last) return cp;
  if (r.kind == FoldRange::kOffset)
    return static_cast<char32_t>(static_cast<std::int32_t>(cp) + r.delta);
  return ((cp - r.first) % 2 == 0) ? cp + 1 : cp;
}

unsigned char AnsiCode(char32_t cp) {
  return ansi::FromCodePoint(cp);
}

char32_t AnsiToUnicode(unsigned char byte) {
  return ansi::ToCodePoint(byte);
}

namespace text_detail {

char32_t NextChar(std::string_view text, std::size_t& pos, bool& valid) {
  const std::size_t begin = pos;
  const char32_t cp = utf8::Next(text, pos);
  const std::size_t n = pos - begin;
  valid = !(n == 1 && cp == 0xFFFD) && !(n == 2 && cp < 0x80) && !(n == 3 && cp < 0x800) &&
          !(n == 4 && cp < 0x10000) && !(cp >= 0xD800 && cp <= 0xDFFF) && cp <= 0x10FFFF;
  return cp;
}

Chars Decode(std::string_view text, CompareMode mode) {
  Chars out;
  out.cps.reserve(text.size());
  out.offsets.reserve(text.size() + 1);
  std::size_t pos = 0;
  while (pos < text.size()) {
    std::size_t begin = pos;
    bool valid = true;
    char32_t cp = NextChar(text, pos, valid);
    if (!valid) {
      // Each byte of a malformed sequence stands for itself, so that an overlong pair such as
      // C1 A9 never equals a lone C1: the search then works on exactly the bytes it was given.
      cp = 0xDC00 + static_cast<unsigned char>(text[begin]);
      pos = begin + 1;
    }
    out.offsets.push_back(begin);
    out.cps.push_back(mode == CompareMode::Text ? FoldCase(cp) : cp);
  }
  out.offsets.push_back(text.size());
  return out;
}

std::size_t Find(const Chars& text, const Chars& find, std::size_t from) {
  if (from > text.size() || find.size() > text.size() - from) return std::string::npos;
  auto it = std::search(text.cps.begin() + static_cast<std::ptrdiff_t>(from), text.cps.end(),
                        find.cps.begin(), find.cps.end());
  if (it == text.cps.end() && !find.cps.empty()) return std::string::npos;
  return static_cast<std::size_t>(it - text.cps.begin());
}

}  // namespace text_detail

using text_detail::Chars;
using text_detail::Decode;

bool TextEquals(std::string_view a, std::string_view b, CompareMode mode) {
  if (mode == CompareMode::Binary) return a == b;
  return Decode(a, mode).cps == Decode(b, mode).cps;
}

std::int64_t InStr(std::int64_t start, std::string_view text, std::string_view find,
                   CompareMode mode) {
  if (text.empty()) return 0;
  Chars t = Decode(text, mode);
  std::size_t from = ToIndex(start);
  if (from >= t.size()) return 0;
  if (find.empty()) return static_cast<std::int64_t>(from) + 1;
  std::size_t at = text_detail::Find(t, Decode(find, mode), from);
  return at == std::string::npos ? 0 : static_cast<std::int64_t>(at) + 1;
}

std::string ReplaceAll(std::string_view text, std::string_view find, std::string_view replacement,
                       CompareMode mode) {
  if (find.empty() || text.empty()) return std::string(text);
  Chars t = Decode(text, mode);
  Chars f = Decode(find, mode);
  std::string out;
  std::size_t from = 0;
  for (;;) {
    std::size_t at = text_detail::Find(t, f, from);
    if (at == std::string::npos) break;
    out += t.Slice(text, from, at - from);
    out += replacement;
    from = at + f.size();
  }
  out += t.Slice(text, from, t.size() - from);
  return out;
}

std::vector<std::string> SplitText(std::string_view text, std::string_view delimiter,
                                   std::int32_t limit) {
  if (limit < -1) rt::Raise(rt::kInvalidProcedureCall);
  std::vector<std::string> pieces;
  if (text.empty() || limit == 0) return pieces;
  if (delimiter.empty()) {
    pieces.emplace_back(text);
    return pieces;
  }
  // Byte search is exact for UTF-8: a well-formed delimiter never matches inside a character.
  std::size_t from = 0;
  while (limit == -1 || pieces.size() + 1 < static_cast<std::size_t>(limit)) {
    std::size_t at = text.find(delimiter, from);
    if (at == std::string_view::npos) break;
    pieces.emplace_back(text.substr(from, at - from));
    from = at + delimiter.size();
  }
  pieces.emplace_back(text.substr(from));
  return pieces;
}

std::string TrimSpaces(std::string_view text) {
  std::size_t b = text.find_first_not_of(' ');
  if (b == std::string_view::npos) return {};
  std::size_t e = text.find_last_not_of(' ');
  return std::string(text.substr(b, e - b + 1));
}

}  // namespace zt
