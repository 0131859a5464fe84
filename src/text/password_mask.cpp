#include "text/password_mask.h"

#include <vector>

#include "zt/text/compare.h"

namespace zt::text_detail {

bool IsPasswordKey(const std::string& key) {
  const std::string k = TrimSpaces(key);
  return TextEquals(k, "Password") || TextEquals(k, "Pwd");
}

namespace {

// Masks every password item of a ";"-separated property string. The documented masking only
// catches items preceded by ";" and only the first of each spelling; a diagnostic must not
// leak the others either.
std::string MaskAllPasswordItems(const std::string& text) {
  std::vector<std::string> items = SplitText(text, ";");
  std::string out;
  bool in_braced_password = false;
  bool first = true;
  for (const std::string& item : items) {
    if (in_braced_password) {
      // The rest of a braced value "{a;b}" that the split cut apart: drop it.
      if (item.find('}') != std::string::npos) in_braced_password = false;
      continue;
    }
    if (!first) out += ';';
    first = false;
    std::size_t eq = item.find('=');
    if (eq == std::string::npos || !IsPasswordKey(item.substr(0, eq))) {
      out += item;
      continue;
    }
    out += item.substr(0, eq + 1) + "*";
    std::string value = TrimSpaces(item.substr(eq + 1));
    in_braced_password = !value.empty() && value[0] == '{' && value.find('}') == std::string::npos;
  }
  return out;
}

}  // namespace

std::string MaskForDiagnostic(const std::string& property_name, const std::string& value) {
  if (IsPasswordKey(property_name)) return "*";
  // Masking every item gives the documented masking's text wherever that one masks, and also
  // masks what it misses. It must see the value before any other masking: a value already cut
  // at the ";" inside "{x;y}" no longer shows where the braced password ends.
  return MaskAllPasswordItems(value);
}

}  // namespace zt::text_detail
