// The rowset persistence format's vocabulary: namespaces, the column types with their dt:type
// names, and the text of one value of each type, shared by the writer and the reader.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "zt/variant.h"

namespace zt::xmlfmt {

inline constexpr std::string_view kNsSchema = "uuid:BDC6E3F0-6DA3-11d1-A2A3-00AA00C14882";
inline constexpr std::string_view kNsDataType = "uuid:C2F41010-65B3-11d1-A29F-00AA00C14882";
inline constexpr std::string_view kNsRowset = "urn:schemas-microsoft-com:rowset";
inline constexpr std::string_view kNsRow = "#RowsetSchema";

// How a value of a column is written and read.
enum class Kind {
  kInt,
  kBigInt,
  kSingle,
  kDouble,
  kCurrency,
  kDecimal,
  kBool,
  kDateTime,
  kDate,
  kTime,
  kGuid,
  kBinary,
  kText
};

// One ADO type as the format writes it.
struct TypeInfo {
  std::int32_t ado_type;
  std::string_view dt_type;  // dt:type
  std::string_view db_type;  // rs:dbtype, "" when the dt:type says it all
  bool is_long;              // rs:long='true'
  bool fixed;                // rs:fixedlength='true'
  Kind kind;
};

// The row for an ADO type, or nullptr when the format has none.
const TypeInfo* ByAdoType(std::int32_t ado_type);
// The row that a schema's dt:type, rs:dbtype, rs:long and rs:fixedlength name, or nullptr.
const TypeInfo* ByNames(std::string_view dt_type, std::string_view db_type, bool is_long,
                        bool fixed);

// The value as the format's text; nullopt when the value does not fit the kind.
std::optional<std::string> ToText(Kind kind, const Variant& value);
// The text read back as a value of the kind; nullopt when it does not parse.
std::optional<Variant> FromText(Kind kind, std::string_view text);

// Whether `name` can be an XML attribute name as it stands (no prefix).
bool IsXmlName(std::string_view name);
// Appends `text` escaped for an attribute in single quotes; false (with `out` partly written)
// when the text holds a character XML 1.0 cannot carry.
bool AppendEscaped(std::string& out, std::string_view text);

}  // namespace zt::xmlfmt
