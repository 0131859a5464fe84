// Value conversions and failures shared by the field and lookup-value classes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "zt/error.h"
#include "zt/variant.h"

namespace zt::defs {

// The null-safe converters the definition rows are read through: Null and Empty read as 0, ""
// or false.
inline std::int32_t NzInt32(const Variant& v) {
  return v.IsNull() || v.IsEmpty() ? 0 : v.ToInt32();
}
inline std::string NzText(const Variant& v) {
  return v.IsNull() || v.IsEmpty() ? std::string{} : v.ToText();
}
inline bool NzBool(const Variant& v) {
  return !(v.IsNull() || v.IsEmpty()) && v.ToBool();
}

// Throws ZtError(number, type name, type name + message): the failures this layer detects
// itself carry the object's type in front of their text.
[[noreturn]] inline void Fail(std::int32_t number, std::string_view type_name,
                              const std::string& message) {
  throw ZtError(number, std::string(type_name), std::string(type_name) + message);
}

}  // namespace zt::defs
