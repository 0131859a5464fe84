// CZtPropString: protects the characters that property strings ("Key=Value;Key=Value&...")
// use as delimiters, for values written into such strings by the library itself.
#pragma once

#include <string>

#include "zt/export.h"
#include "zt/trap.h"
#include "zt/variant.h"

namespace zt {

class ZT_EXPORT CZtPropString {
 public:
  // Replaces, in list order, every "&", ";", "=" and then every element of `extra_characters`
  // (an array of one-character strings; anything else adds nothing) by its URI-component escape:
  // "a=b;c&d" -> "a%3Db%3Bc%26d", an extra "," -> "%2C". "%" itself is never escaped.
  // An element that has no text (an object, an array) is logged as "CZtPropString.Encode,
  // @Line#" + step and the ZtError is thrown on.
  std::string Encode(const std::string& text, const Variant& extra_characters = Variant()) const;
  // The reverse, in the same order, of the upper-case escapes only: "100%3B" -> "100;", while
  // "%3b" stays. Failures as Encode, logged as "CZtPropString.Decode, @Line#".
  std::string Decode(const std::string& text, const Variant& extra_characters = Variant()) const;

 private:
  InstanceTrace trace_{"CZtPropString"};
};

}  // namespace zt
