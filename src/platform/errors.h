// Errors of the data-access layer: one table from engine codes to the HRESULTs that callers of
// the old library saw, so that retry lists and error handlers written against those numbers
// keep working on every engine.
//
//   SQLSTATE / SQLite code                         HRESULT
//   ---------------------------------------------  ----------------------------------------
//   08xxx connection failures, HY000, 40001,       0x80004005 E_FAIL (general failure; the
//   SQLITE_BUSY / LOCKED / CANTOPEN / IOERR ...     data store's retry list relies on this)
//   28xxx, SQLITE_AUTH                             0x80040E4D DB_SEC_E_AUTH_FAILED (login)
//   42501, SQLITE_PERM, SQLITE_READONLY            0x80040E09 DB_SEC_E_PERMISSIONDENIED
//   42S02, 42P01, "no such table"                  0x80040E37 DB_E_NOTABLE
//   other 42xxx, 37000, SQLITE_ERROR               0x80040E14 DB_E_ERRORSINCOMMAND
//   23xxx, SQLITE_CONSTRAINT                       0x80040E2F DB_E_INTEGRITYVIOLATION
//   22003, 22001, SQLITE_TOOBIG                    0x80040E57 DB_E_DATAOVERFLOW
//   other 22xxx, SQLITE_MISMATCH                   0x80040E07 DB_E_CANTCONVERTVALUE
//   HYT00, HYT01, 57014, SQLITE_INTERRUPT          0x80040E31 DB_E_ABORTLIMITREACHED (time-out)
//   anything else                                  0x80004005
//
// The Description is the driver's message followed by " (" + native code + ")", so the engine's
// own number is never lost; the Source is the provider named in the connection string.
#pragma once

#include <cstdint>
#include <string>

#include "zt/error.h"

namespace zt::platform {

namespace hr {
inline constexpr std::int32_t kFail = static_cast<std::int32_t>(0x80004005u);
inline constexpr std::int32_t kCantConvert = static_cast<std::int32_t>(0x80040E07u);
inline constexpr std::int32_t kPermission = static_cast<std::int32_t>(0x80040E09u);
inline constexpr std::int32_t kCommand = static_cast<std::int32_t>(0x80040E14u);
inline constexpr std::int32_t kIntegrity = static_cast<std::int32_t>(0x80040E2Fu);
inline constexpr std::int32_t kTimeout = static_cast<std::int32_t>(0x80040E31u);
inline constexpr std::int32_t kNoTable = static_cast<std::int32_t>(0x80040E37u);
inline constexpr std::int32_t kRowChanged = static_cast<std::int32_t>(0x80040E38u);
inline constexpr std::int32_t kLogin = static_cast<std::int32_t>(0x80040E4Du);
inline constexpr std::int32_t kDataOverflow = static_cast<std::int32_t>(0x80040E57u);
inline constexpr std::int32_t kBadConnectionString = static_cast<std::int32_t>(0x80040E73u);
}  // namespace hr

// The layer's own errors, with ADO's numbers (0x800A0000 + code) and texts.
enum class AdoError : std::int32_t {
  kInvalidArgument = 3001,
  kNoCurrentRecord = 3021,
  kIllegalOperation = 3219,
  kNotUpdatable = 3251,
  kItemNotFound = 3265,
  kDataConversion = 3421,
  kObjectClosed = 3704,
  kObjectOpen = 3705,
  kProviderNotFound = 3706,
};

std::int32_t AdoErrorNumber(AdoError e);
// Throws ZtError(0x800A0000 + e, source, ADO's text for e [+ " " + detail]).
[[noreturn]] void RaiseAdo(AdoError e, const std::string& source, const std::string& detail = {});

// The HRESULT for an SQLSTATE (five characters; "" when the driver gave none).
std::int32_t HResultForSqlState(const std::string& sqlstate, const std::string& message = {});
// The HRESULT for an SQLite result code (primary or extended).
std::int32_t HResultForSqlite(int code, const std::string& message = {});

// A driver's message without the line ends and blanks it trails.
std::string DriverMessage(std::string text);

// The refusal of a write on a read-only data source (0x80040E09, permission denied).
[[noreturn]] void RaiseReadOnly(const std::string& source, const std::string& engine);

[[noreturn]] void RaiseSqlState(const std::string& source, const std::string& sqlstate,
                                std::int64_t native, const std::string& message);
[[noreturn]] void RaiseSqlite(const std::string& source, int code, const std::string& message);

}  // namespace zt::platform
