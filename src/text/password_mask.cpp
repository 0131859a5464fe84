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

namespace {

// Values nest connection strings (MSDASQL's "Extended Properties" holds the ODBC string with its
// PWD); deeper nesting than this is not masked further.
constexpr int kMaxNesting = 4;

std::string MaskItems(const std::string& text, const std::vector<std::string>& known, int depth);

// A non-password value with the password items of a string nested in it masked; a quoted value
// is unquoted for that and quoted again the same way. Unchanged when it holds none.
std::string MaskNestedValue(const std::string& value, int depth) {
  if (depth >= kMaxNesting || value.find('=') == std::string::npos) return value;
  if (value.empty() || (value[0] != '"' && value[0] != '\'' && value[0] != '{'))
    return MaskItems(value, {}, depth + 1);
  const char open = value[0];
  const char close = open == '{' ? '}' : open;
  std::string inner;
  std::size_t j = 1;
  bool closed = false;
  for (; j < value.size(); ++j) {
    if (value[j] == close) {
      if (j + 1 < value.size() && value[j + 1] == close) {
        inner += close;
        ++j;
        continue;
      }
      closed = true;
      break;
    }
    inner += value[j];
  }
  const std::string masked = MaskItems(inner, {}, depth + 1);
  if (masked == inner) return value;
  std::string out(1, open);
  for (char c : masked) {
    out += c;
    if (c == close) out += close;
  }
  if (closed) out += value.substr(j);
  return out;
}

std::string MaskItems(const std::string& text, const std::vector<std::string>& known, int depth) {
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
      std::size_t v = eq + 1;
      while (v < end && (text[v] == ' ' || text[v] == '\t')) ++v;
      out.append(text, i, v - i);
      out += MaskNestedValue(text.substr(v, end - v), depth);
    }
    if (end < n) out += ';';
    i = end + 1;
  }
  return out;
}

}  // namespace

std::string MaskPasswordItems(const std::string& text, const std::vector<std::string>& known) {
  return MaskItems(text, known, 0);
}

std::string MaskForDiagnostic(const std::string& property_name, const std::string& value) {
  if (IsPasswordKey(property_name)) return "*";
  return MaskPasswordItems(value);
}

}  // namespace zt::text_detail
