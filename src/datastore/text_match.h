// Small text helpers of the data-store layer: case-insensitive search and comparison the way
// connection-string keys are matched (ASCII letters fold; other characters compare exactly),
// with positions counted in characters as the old 16-bit strings counted them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zt::ds {

// 1-based character position of the first occurrence of `needle` in `haystack` ignoring the
// case of ASCII letters, or 0 when it does not occur (the run time's InStr with text compare).
std::size_t InStrNoCase(std::string_view haystack, std::string_view needle);
bool ContainsNoCase(std::string_view haystack, std::string_view needle);
bool EqualsNoCase(std::string_view a, std::string_view b);
// `s` without leading and trailing blanks (spaces only, as the run time's Trim).
std::string TrimBlanks(std::string_view s);

}  // namespace zt::ds
