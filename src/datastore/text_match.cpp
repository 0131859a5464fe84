#include "datastore/text_match.h"

#include "foundation/utf8.h"

namespace zt::ds {

namespace {
char Fold(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}
}  // namespace

std::size_t InStrNoCase(std::string_view haystack, std::string_view needle) {
  if (needle.size() > haystack.size()) return 0;
  for (std::size_t i = 0; i + needle.size() <= haystack.size(); ++i) {
    std::size_t k = 0;
    while (k < needle.size() && Fold(haystack[i + k]) == Fold(needle[k])) ++k;
    if (k == needle.size()) return utf8::Length(haystack.substr(0, i)) + 1;
  }
  return 0;
}

bool ContainsNoCase(std::string_view haystack, std::string_view needle) {
  return InStrNoCase(haystack, needle) != 0;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (Fold(a[i]) != Fold(b[i])) return false;
  return true;
}

std::string TrimBlanks(std::string_view s) {
  std::size_t b = 0, e = s.size();
  while (b < e && s[b] == ' ') ++b;
  while (e > b && s[e - 1] == ' ') --e;
  return std::string(s.substr(b, e - b));
}

}  // namespace zt::ds
