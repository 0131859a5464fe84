// CopyFieldValue's rules as one decision (see copy_rules.h).
#include "schema/copy_rules.h"

#include "zt/platform.h"

namespace zt::schema {

namespace {

bool IsTextType(std::int32_t type) {
  return type == ado::adChar || type == ado::adWChar || type == ado::adVarChar ||
         type == ado::adVarWChar;
}

// 139 is adVarNumeric, which the old providers reported for some decimal columns.
bool IsNumberType(std::int32_t type) {
  return type == ado::adSmallInt || type == ado::adInteger || type == ado::adSingle ||
         type == ado::adDouble || type == ado::adBoolean || type == ado::adNumeric || type == 139;
}

bool IsDateType(std::int32_t type) {
  return type == ado::adDate || type == ado::adDBDate || type == ado::adDBTimeStamp;
}

std::int64_t Characters(const std::string& utf8) {
  std::int64_t n = 0;
  for (unsigned char c : utf8)
    if ((c & 0xC0) != 0x80) ++n;
  return n;
}

}  // namespace

CopyDecision DecideCopyValue(const CopyTarget& target, const Variant& value, bool limited_messages,
                             std::string* message) {
  if (value.IsNull() || value.IsEmpty()) return CopyDecision::kSkip;
  if (target.attributes & ado::adFldRowVersion) return CopyDecision::kSkip;
  if (IsTextType(target.type) && target.defined_size > 0) {
    // Runs once per value of a table copy: a text is judged where it is, and its characters
    // are counted only when its bytes could exceed the size.
    const std::string* text = value.AsString();
    std::string converted;
    if (!text) {
      converted = value.ToText();
      text = &converted;
    }
    if (static_cast<std::int64_t>(text->size()) > target.defined_size &&
        target.defined_size < Characters(*text)) {
      if (message)
        *message = ".CopyFieldValue, Field: " + target.name +
                   (limited_messages ? std::string() : ", Value: " + *text) +
                   "  Source field value too long for target field.";
      return CopyDecision::kRefuseRecord;
    }
  }
  if (IsNumberType(target.type) && !value.IsNumeric()) return CopyDecision::kSkip;
  return CopyDecision::kWrite;
}

Variant CopyValueFor(const CopyTarget& target, Variant value) {
  const bool boolean_value = value.Type() == VarType::Boolean;
  if (boolean_value && target.type != ado::adBoolean)
    return Variant(std::int32_t{value.ToBool() ? -1 : 0});
  if (!boolean_value && target.type == ado::adBoolean) return Variant(value.ToDouble() != 0);
  // A date field takes a number as the day number a Date is (the field's own conversion).
  if (IsDateType(target.type) && value.IsNumeric() && value.Type() != VarType::Date)
    return Variant(Date{value.ToDouble()});
  return value;
}

}  // namespace zt::schema
