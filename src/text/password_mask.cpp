#include "text/password_mask.h"

#include <algorithm>
#include <cctype>

namespace zt::text_detail {

namespace {

bool IsBlank(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}

// Where the value that starts at `from` ends: the ";" after it, or the end of the text. A quoted
// value ends at its closing character (doubled inside); text between that and the ";" still
// belongs to the item. An unclosed quote runs to the end.
std::size_t ValueEnd(const std::string& text, std::size_t from) {
  const std::size_t n = text.size();
  std::size_t j = from;
  while (j < n && (text[j] == ' ' || text[j] == '\t')) ++j;
  if (j < n && (text[j] == '"' || text[j] == '\'' || text[j] == '{')) {
    const char close = text[j] == '{' ? '}' : text[j];
    for (++j; j < n; ++j) {
      if (text[j] != close) continue;
      if (j + 1 < n && text[j + 1] == close) {
        ++j;
        continue;
      }
      break;
    }
    if (j >= n) return n;
  }
  const std::size_t semi = text.find(';', j);
  return semi == std::string::npos ? n : semi;
}

// The end of a password value that was pasted in raw: the first ";" after the longest known
// password the value starts with (blanks after the "=" may belong to the password or not).
std::size_t KnownValueEnd(const std::string& text, std::size_t from,
                          const std::vector<std::string>& known) {
  std::size_t end = from;
  std::size_t after_blanks = from;
  while (after_blanks < text.size() && (text[after_blanks] == ' ' || text[after_blanks] == '\t'))
    ++after_blanks;
  for (const std::string& password : known) {
    if (password.empty()) continue;
    for (const std::size_t at : {from, after_blanks}) {
      if (text.compare(at, password.size(), password) != 0) continue;
      const std::size_t semi = text.find(';', at + password.size());
      end = std::max(end, semi == std::string::npos ? text.size() : semi);
    }
  }
  return end;
}

}  // namespace

bool IsPasswordKey(const std::string& key) {
  std::string k;
  for (char c : key)
    if (!IsBlank(c)) k += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return k == "password" || k == "pwd" || k == "jetoledb:databasepassword";
}

std::string MaskPasswordItems(const std::string& text, const std::vector<std::string>& known) {
  std::string out;
  out.reserve(text.size());
  const std::size_t n = text.size();
  std::size_t i = 0;
  while (i < n) {
    const std::size_t eq = text.find('=', i);
    const std::size_t semi = text.find(';', i);
    if (eq == std::string::npos || (semi != std::string::npos && semi < eq)) {
      // A part without "=": nothing to mask, copied through its ";".
      const std::size_t end = semi == std::string::npos ? n : semi + 1;
      out.append(text, i, end - i);
      i = end;
      continue;
    }
    std::size_t end = ValueEnd(text, eq + 1);
    if (IsPasswordKey(text.substr(i, eq - i))) {
      end = std::max(end, KnownValueEnd(text, eq + 1, known));
      out.append(text, i, eq + 1 - i);
      out += '*';
    } else {
      out.append(text, i, end - i);
    }
    if (end < n) out += ';';
    i = end + 1;
  }
  return out;
}

std::string MaskForDiagnostic(const std::string& property_name, const std::string& value) {
  if (IsPasswordKey(property_name)) return "*";
  return MaskPasswordItems(value);
}

}  // namespace zt::text_detail
