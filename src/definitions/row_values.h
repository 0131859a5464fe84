// Reading definition-table rows: the null-safe conversions every definition class uses, so that
// a Null column (or one an older table does not have) reads as 0, "" or false the same way
// everywhere, and the failures the definition classes detect themselves.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "zt/datastore.h"
#include "zt/error.h"
#include "zt/error_codes.h"
#include "zt/platform.h"
#include "zt/recordset/recordset_utils.h"
#include "zt/variant.h"

namespace zt::defs {

// Null and Empty read as 0.
inline std::int32_t NzInt32(const Variant& v) {
  return v.IsNull() || v.IsEmpty() ? 0 : v.ToInt32();
}
// Null and Empty read as "".
inline std::string NzText(const Variant& v) {
  return v.IsNull() || v.IsEmpty() ? std::string() : v.ToText();
}
// Null and Empty read as false.
inline bool NzBool(const Variant& v) {
  return !(v.IsNull() || v.IsEmpty()) && v.ToBool();
}
// The column of the current row, 0 / "" when Null or when the recordset has no such column.
inline std::int32_t ColumnInt32(Recordset& rs, const std::string& column) {
  return rs.HasField(column) ? NzInt32(rs.Value(column)) : 0;
}
inline std::string ColumnText(Recordset& rs, const std::string& column) {
  return rs.HasField(column) ? NzText(rs.Value(column)) : std::string();
}

// Opens a read-only recordset over `sql`, runs `fn` on it and closes it (CloseRecordsetADO),
// also when `fn` fails.
template <class F>
void WithRows(const std::shared_ptr<Connection>& cn, const std::string& sql, F&& fn) {
  auto rs = std::make_shared<Recordset>();
  CZTADOUtilities utils;
  try {
    rs->Open(sql, cn, ado::adOpenForwardOnly, ado::adLockReadOnly);
    fn(*rs);
  } catch (...) {
    utils.CloseRecordsetADO(rs);
    throw;
  }
  utils.CloseRecordsetADO(rs);
}

// Throws ZtError(number, type name, type name + message): the failures this layer detects
// itself carry the object's type in front of their text.
[[noreturn]] inline void Fail(std::int32_t number, std::string_view type_name,
                              const std::string& message) {
  throw ZtError(number, std::string(type_name), std::string(type_name) + message);
}

// A collection's text is read back line by line and field by field: both delimiters must be
// set, else nothing could be split. Raises 5 (invalid procedure call) from `type_name`.
inline void RequireDelimiters(std::string_view type_name, const std::string& field_delimiter,
                              const std::string& children_delimiter) {
  if (field_delimiter.empty() || children_delimiter.empty())
    Fail(rt::kInvalidProcedureCall, type_name,
         ".FromString, both delimiters must be set to read a line back");
}

// The data store behind `data_store`, as the definition objects' members take it; anything else
// raises 13 with the old text ("<what was passed>.<member> - objDataStore must be a CZtDataStore
// object"), `type_name` being the raising object's type.
inline std::shared_ptr<CZtDataStore> RequireDataStore(const std::shared_ptr<Object>& data_store,
                                                      std::string_view type_name,
                                                      const char* member) {
  auto ds = std::dynamic_pointer_cast<CZtDataStore>(data_store);
  if (!ds) {
    const std::string passed = data_store ? data_store->TypeName() : std::string("Nothing");
    throw ZtError(rt::kTypeMismatch, std::string(type_name),
                  passed + "." + member + " - objDataStore must be a CZtDataStore object");
  }
  return ds;
}

}  // namespace zt::defs
