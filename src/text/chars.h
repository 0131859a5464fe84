// Text decoded into characters with the byte offset of each, so that searches can run on code
// points while results are cut from the original bytes (malformed bytes survive untouched).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "zt/text/compare.h"

namespace zt::text_detail {

struct Chars {
  std::vector<char32_t> cps;         // one per character; folded when decoded for Text mode
  std::vector<std::size_t> offsets;  // byte offset of each character, plus the text's size
  std::size_t size() const { return cps.size(); }
  // Bytes of characters [first, first + count) of `source`.
  std::string_view Slice(std::string_view source, std::size_t first, std::size_t count) const {
    std::size_t b = offsets[first];
    return source.substr(b, offsets[first + count] - b);
  }
};

// Decodes the character at byte `pos` and advances `pos` over it (by the same count as
// utf8::Next, so character counts agree). Sets `valid` to false for a malformed byte, an overlong
// form, a surrogate or a value beyond U+10FFFF: such bytes are not a character of any code page.
char32_t NextChar(std::string_view text, std::size_t& pos, bool& valid);

// Decodes `text`; a malformed sequence with lead byte b becomes the lone surrogate U+DC00 + b,
// which no well-formed character can equal. With CompareMode::Text each character is case-folded.
Chars Decode(std::string_view text, CompareMode mode = CompareMode::Binary);

// 0-based index of the first match of `find` in `text` at or after `from`, or npos.
std::size_t Find(const Chars& text, const Chars& find, std::size_t from);

}  // namespace zt::text_detail
