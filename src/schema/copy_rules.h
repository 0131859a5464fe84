// What CopyFieldValue does with one source value for one target field, as a pure decision, so
// that the record-by-record copy and the streaming copy give exactly the same per-record
// results.
#pragma once

#include <cstdint>
#include <string>

#include "zt/export.h"
#include "zt/variant.h"

namespace zt::schema {

// The target field as the rules see it.
struct ZT_TEST_EXPORT CopyTarget {
  std::string name;
  std::int32_t type = 0;          // ADO DataTypeEnum code
  std::int64_t defined_size = 0;  // characters for text
  std::int32_t attributes = 0;    // ADO FieldAttributeEnum bits
};

enum class CopyDecision {
  kWrite,         // assign the value
  kSkip,          // leave the field alone (Null, a row-version column, a non-number)
  kRefuseRecord,  // the record is not copied; `message` says why
};

// The rules, in order: a Null (or Empty) source value is not written; a row-version target
// (adFldRowVersion) is never written; a text target (129, 130, 200, 202) shorter than the value
// refuses the record with ".CopyFieldValue, Field: " + field + ", Value: " + value + "  Source
// field value too long for target field." (with `limited_messages` the value is left out of
// the text: ".CopyFieldValue, Field: " + field + "  Source field value too long for target
// field."); a numeric or Boolean target (2, 3, 4, 5, 11, 131, 139) takes only numeric values;
// anything else is written. The length is counted in characters (UTF-8 code points).
ZT_TEST_EXPORT CopyDecision DecideCopyValue(const CopyTarget& target, const Variant& value,
                                            bool limited_messages, std::string* message);

// The value as it is written into the target field once DecideCopyValue said kWrite: a Boolean
// into a number column is -1 or 0 (MariaDB's TINYINT(1) Booleans hold True as -1, as Jet did),
// and a number into a Boolean column is True when it is not 0 (a PostgreSQL BOOLEAN takes no
// -1). Anything else goes as it is.
ZT_TEST_EXPORT Variant CopyValueFor(const CopyTarget& target, Variant value);

// A column default of the source in the SQL every target engine here reads alike, or "":
//   * literals: a number, a '...' text (PostgreSQL's "::type" cast dropped), a "..." text of a
//     Jet or SQLite source (Access writes its texts so), Yes/True/On as -1 and No/False/Off as 0;
//   * Access's "=" in front of an expression and outer parentheses (SQL Server's "((0))") go;
//   * the moment of the insert, however the source spells it (Now(), now(),
//     current_timestamp(), GETDATE() ...), is CURRENT_TIMESTAMP, the day (Date(), curdate())
//     CURRENT_DATE;
//   * no default at all (NULL) and an identity's sequence (nextval(...)) give "" without a
//     reason: there is nothing to keep, or the identity keeps it.
// Anything else gives "" and `reason` says that it has no portable form.
ZT_TEST_EXPORT std::string TranslateDefault(const std::string& text, bool jet_source,
                                            std::string* reason);

}  // namespace zt::schema
