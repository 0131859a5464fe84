#include "zt/text/prop_string.h"

#include <vector>

#include "zt/text/compare.h"
#include "zt/text/strings.h"

namespace zt {

namespace {

// "&", ";", "=" and then the caller's extra characters, in that order.
std::vector<std::string> SpecialCharacters(const Variant& extra_characters) {
  std::vector<std::string> list = {"&", ";", "="};
  if (const VariantArray* extra = extra_characters.AsArray())
    for (const Variant& item : extra->items) list.push_back(ZtStrMan_VariantToString(item));
  return list;
}

// Replaces each special character by its escape (encoding) or each escape by its character
// (decoding), one character after the other, so Decode undoes Encode.
std::string Translate(Trap& at, const std::string& text, const Variant& extra_characters,
                      bool encode) {
  at = 10;
  std::string out = text;
  for (const std::string& ch : SpecialCharacters(extra_characters)) {
    at = 20;
    const std::string escaped = ZtStrMan_EncodeURIComponent(ch);
    out = encode ? ReplaceAll(out, ch, escaped, CompareMode::Binary)
                 : ReplaceAll(out, escaped, ch, CompareMode::Binary);
  }
  return out;
}
}  // namespace

std::string CZtPropString::Encode(const std::string& text, const Variant& extra_characters) const {
  Trap at("CZtPropString", "Encode");
  return at.Reraising([&] { return Translate(at, text, extra_characters, true); });
}

std::string CZtPropString::Decode(const std::string& text, const Variant& extra_characters) const {
  Trap at("CZtPropString", "Decode");
  return at.Reraising([&] { return Translate(at, text, extra_characters, false); });
}

}  // namespace zt
