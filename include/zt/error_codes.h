// The error numbers that the old data-access objects raised, by name, for callers that test a
// ZtError's Number(): the OLE DB HRESULTs that engine failures map to, and ADO's own errors.
#pragma once

#include <cstdint>

namespace zt {

// HRESULTs of engine failures (as signed 32-bit values, the way Number() gives them).
namespace hr {
inline constexpr std::int32_t kFail = static_cast<std::int32_t>(0x80004005u);  // E_FAIL
// DB_E_CANTCONVERTVALUE: a value cannot be converted to the column's type.
inline constexpr std::int32_t kCantConvert = static_cast<std::int32_t>(0x80040E07u);
// DB_SEC_E_PERMISSIONDENIED, also a write to a read-only data source.
inline constexpr std::int32_t kPermission = static_cast<std::int32_t>(0x80040E09u);
// DB_E_ERRORSINCOMMAND: the statement cannot be read or run.
inline constexpr std::int32_t kCommand = static_cast<std::int32_t>(0x80040E14u);
// DB_E_ERRORSOCCURRED: "Multiple-step operation generated errors" (a value that does not fit).
inline constexpr std::int32_t kMultipleStep = static_cast<std::int32_t>(0x80040E21u);
// DB_E_INTEGRITYVIOLATION: a constraint refused the change.
inline constexpr std::int32_t kIntegrity = static_cast<std::int32_t>(0x80040E2Fu);
// DB_E_ABORTLIMITREACHED: the command time-out ended the statement.
inline constexpr std::int32_t kTimeout = static_cast<std::int32_t>(0x80040E31u);
// DB_E_NOTABLE: the table or view does not exist.
inline constexpr std::int32_t kNoTable = static_cast<std::int32_t>(0x80040E37u);
// DB_E_CONCURRENCYVIOLATION: an UPDATE or DELETE by key found the row changed or gone.
inline constexpr std::int32_t kRowChanged = static_cast<std::int32_t>(0x80040E38u);
// DB_SEC_E_AUTH_FAILED: the login was refused.
inline constexpr std::int32_t kLogin = static_cast<std::int32_t>(0x80040E4Du);
// DB_E_DATAOVERFLOW: a value is too large for its column.
inline constexpr std::int32_t kDataOverflow = static_cast<std::int32_t>(0x80040E57u);
// The connection string cannot be read (an unclosed quote).
inline constexpr std::int32_t kBadConnectionString = static_cast<std::int32_t>(0x80040E73u);
}  // namespace hr

// ADO's own errors (misuse of an object); Number() is 0x800A0000 + the code.
enum class AdoError : std::int32_t {
  kInvalidArgument = 3001,   // adErrInvalidArgument
  kNoCurrentRecord = 3021,   // adErrNoCurrentRecord
  kIllegalOperation = 3219,  // adErrIllegalOperation
  kNotUpdatable = 3251,      // adErrFeatureNotAvailable
  kItemNotFound = 3265,      // adErrItemNotFound
  kDataConversion = 3421,    // adErrDataConversion
  kObjectClosed = 3704,      // adErrObjectClosed
  kObjectOpen = 3705,        // adErrObjectOpen
  kProviderNotFound = 3706,  // adErrProviderNotFound
};

// The Number() of an ADO error.
constexpr std::int32_t AdoErrorNumber(AdoError e) {
  return static_cast<std::int32_t>(0x800A0000u + static_cast<std::uint32_t>(e));
}

}  // namespace zt
