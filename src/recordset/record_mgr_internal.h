// The parts of the record manager that only the library (and its own programs) use.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "zt/export.h"
#include "zt/platform.h"
#include "zt/variant.h"

namespace zt::recordset {

// Deletes the records of `table` in which any of `columns` (an array of names) is Null: the
// statement " DELETE FROM [table] WHERE ([a] IS NULL) OR ([b] IS NULL)". True when a statement
// was executed; false (nothing executed) without a connection, with an empty table name or when
// `columns` is not an array or holds no name. `deleted`, when given, receives the rows deleted.
// Failures are logged as "CZtRecordMgr.RemoveNullRecords, @Line#" + step and raised.
ZT_TEST_EXPORT bool RemoveNullRecords(const std::string& table,
                                      const std::shared_ptr<Connection>& cn, const Variant& columns,
                                      std::int64_t* deleted = nullptr);

// "([a] IS NULL) OR ([b] IS NULL)" for the names of `columns`; "" when it holds none.
ZT_TEST_EXPORT std::string NullRecordsCondition(const Variant& columns);

// The statement RemoveNullRecords runs, or "" when it would run none.
ZT_TEST_EXPORT std::string NullRecordsStatement(const std::string& table, const Variant& columns);

// The column names of a RemoveDuplicateRecords call: nullopt when `columns` is not an array or
// its first element is empty, else the non-empty names in array order.
ZT_TEST_EXPORT std::optional<std::vector<std::string>> DuplicateColumns(const Variant& columns);

// The old walk's statement over `names` (at least one), text exactly as the old library sent it.
ZT_TEST_EXPORT std::string DuplicateWalkStatement(const std::string& table,
                                                  const std::vector<std::string>& names);

}  // namespace zt::recordset
