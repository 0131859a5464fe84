// CopyFieldValue's rules as one decision (see copy_rules.h).
#include "schema/copy_rules.h"

#include <cctype>
#include <string>

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

void Trim(std::string& t) {
  while (!t.empty() && std::isspace(static_cast<unsigned char>(t.back()))) t.pop_back();
  while (!t.empty() && std::isspace(static_cast<unsigned char>(t.front()))) t.erase(0, 1);
}

// A literal default every engine reads alike ("0", "-1.5", "'open'"), or "". `t` comes trimmed
// and without outer parentheses; PostgreSQL's cast ("'open'::character varying") goes.
std::string PortableDefault(std::string t) {
  if (t.empty()) return {};
  if (t.front() == '\'') {
    // The literal's end: the quote that is not doubled.
    std::size_t i = 1;
    for (; i < t.size(); ++i) {
      if (t[i] != '\'') continue;
      if (i + 1 < t.size() && t[i + 1] == '\'') {
        ++i;
        continue;
      }
      break;
    }
    if (i >= t.size()) return {};
    const std::string rest = t.substr(i + 1);
    if (!rest.empty() && rest.rfind("::", 0) != 0) return {};
    return t.substr(0, i + 1);
  }
  if (const std::size_t cast = t.find("::"); cast != std::string::npos) t.erase(cast);
  Trim(t);
  std::size_t i = t[0] == '-' || t[0] == '+' ? 1 : 0;
  bool digits = false, point = false;
  for (; i < t.size(); ++i) {
    if (std::isdigit(static_cast<unsigned char>(t[i])))
      digits = true;
    else if (t[i] == '.' && !point)
      point = true;
    else
      return {};
  }
  return digits ? t : std::string();
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

std::string TranslateDefault(const std::string& text, bool jet_source, std::string* reason) {
  std::string t = text;
  Trim(t);
  while (t.size() >= 2 && t.front() == '(' && t.back() == ')') {
    t = t.substr(1, t.size() - 2);
    Trim(t);
  }
  if (jet_source && !t.empty() && t.front() == '=') {
    t.erase(0, 1);
    Trim(t);
  }
  if (t.empty()) return {};
  if (std::string literal = PortableDefault(t); !literal.empty()) return literal;
  if (jet_source && t.size() >= 2 && t.front() == '"' && t.back() == '"') {
    std::string inner = t.substr(1, t.size() - 2), out = "'";
    for (std::size_t i = 0; i < inner.size(); ++i) {
      if (inner[i] == '"') {
        if (i + 1 < inner.size() && inner[i + 1] == '"') {
          out += '"';
          ++i;
          continue;
        }
        out.clear();  // a lone quote inside: an expression, not one text
        break;
      }
      out += inner[i] == '\'' ? std::string("''") : std::string(1, inner[i]);
    }
    if (!out.empty()) return out + "'";
  }
  std::string word;
  for (char c : t)
    if (!std::isspace(static_cast<unsigned char>(c)))
      word += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  for (const char* w : {"yes", "true", "on"})
    if (word == w) return "-1";
  for (const char* w : {"no", "false", "off"})
    if (word == w) return "0";
  for (const char* w :
       {"now()", "current_timestamp", "current_timestamp()", "getdate()", "localtimestamp",
        "localtimestamp()", "sysdate", "statement_timestamp()", "transaction_timestamp()"})
    if (word == w) return "CURRENT_TIMESTAMP";
  for (const char* w : {"date()", "current_date", "curdate()", "current_date()"})
    if (word == w) return "CURRENT_DATE";
  if (word == "null" || word.rfind("nextval(", 0) == 0) return {};
  if (reason) *reason = "the default " + t + " has no form every engine takes";
  return {};
}

}  // namespace zt::schema
