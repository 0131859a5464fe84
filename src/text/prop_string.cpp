#include "text/prop_string.h"

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

}  // namespace

std::string CZtPropString::Encode(const std::string& text, const Variant& extra_characters) const {
  Trap at("CZtPropString", "Encode");
  return at.Reraising([&] {
    at = 10;
    std::vector<std::string> special = SpecialCharacters(extra_characters);
    std::string out = text;
    for (const std::string& ch : special) {
      at = 20;
      out = ReplaceAll(out, ch, ZtStrMan_EncodeURIComponent(ch), CompareMode::Binary);
    }
    return out;
  });
}

std::string CZtPropString::Decode(const std::string& text, const Variant& extra_characters) const {
  Trap at("CZtPropString", "Decode");
  return at.Reraising([&] {
    at = 10;
    std::vector<std::string> special = SpecialCharacters(extra_characters);
    std::string out = text;
    for (const std::string& ch : special) {
      at = 20;
      out = ReplaceAll(out, ZtStrMan_EncodeURIComponent(ch), ch, CompareMode::Binary);
    }
    return out;
  });
}

}  // namespace zt
