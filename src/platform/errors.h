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
// own number is never lost; the Source is the provider named in the connection string. Beside
// these the ZtError keeps the SQLSTATE, the native code and a category (zt::ErrorCategory):
//
//   08xxx, 57P01-57P03, SQLITE_CANTOPEN        broken connection (08007: in-doubt commit)
//   28xxx                                      login         40xxx (40001, 40P01)  deadlock
//   HYT00, HYT01, 57014, SQLITE_INTERRUPT      time-out      SQLITE_BUSY / LOCKED  busy
//   23xxx                                      integrity     42501                 permission
//   42S02, 42P01                               no table      other 42xxx, 37000    syntax
//   22xxx                                      data          anything else         other
//
// SQLite has no SQLSTATEs; its errors carry the standard state of their kind (SqlStateForSqlite).
#pragma once

#include <cstdint>
#include <string>

#include "zt/error.h"
#include "zt/error_codes.h"
#include "zt/export.h"

namespace zt::platform {

// The numbers themselves are public (zt/error_codes.h): zt::hr and zt::AdoError are found from
// here as they are, and platform::hr stays a name for them.
namespace hr = ::zt::hr;
using ::zt::AdoError;
using ::zt::AdoErrorNumber;

// Throws ZtError(0x800A0000 + e, source, ADO's text for e [+ " " + detail]).
[[noreturn]] ZT_TEST_EXPORT void RaiseAdo(AdoError e, const std::string& source,
                                          const std::string& detail = {});

// The HRESULT for an SQLSTATE (five characters; "" when the driver gave none).
ZT_TEST_EXPORT std::int32_t HResultForSqlState(const std::string& sqlstate,
                                               const std::string& message = {});
// The HRESULT for an SQLite result code (primary or extended).
ZT_TEST_EXPORT std::int32_t HResultForSqlite(int code, const std::string& message = {});

// A driver's message without the line ends and blanks it trails.
ZT_TEST_EXPORT std::string DriverMessage(std::string text);

// The refusal of a write on a read-only data source (0x80040E09, permission denied).
[[noreturn]] ZT_TEST_EXPORT void RaiseReadOnly(const std::string& source,
                                               const std::string& engine);

// The kind of failure an SQLSTATE stands for; `native` and `message` refine it where engines
// share a state for different things.
ZT_TEST_EXPORT ErrorCategory CategoryForSqlState(const std::string& sqlstate,
                                                 std::int64_t native = 0,
                                                 const std::string& message = {});
// The SQLSTATE that the SQL standard gives an SQLite result code's kind of failure ("23000" for
// a constraint, "42000" for a statement error, "HYT00" for an interrupt ...), so that callers
// see states on every engine.
ZT_TEST_EXPORT std::string SqlStateForSqlite(int code, const std::string& message = {});

// The error of an engine's report: the number from the table above, the Description `message` +
// " (" + `code_text` + ")", the SQLSTATE, native code and category kept beside them.
// `category` kNone takes the category of the SQLSTATE; kTimeout also makes the number a time-out
// (for engines whose time-out has a state of its own).
ZT_TEST_EXPORT ZtError EngineError(const std::string& source, const std::string& sqlstate,
                                   std::int64_t native, const std::string& message,
                                   const std::string& code_text,
                                   ErrorCategory category = ErrorCategory::kNone);

// Throws EngineError with the native code as code text.
[[noreturn]] ZT_TEST_EXPORT void RaiseSqlState(const std::string& source,
                                               const std::string& sqlstate, std::int64_t native,
                                               const std::string& message,
                                               ErrorCategory category = ErrorCategory::kNone);
[[noreturn]] ZT_TEST_EXPORT void RaiseSqlite(const std::string& source, int code,
                                             const std::string& message);

// Throws the failure of a COMMIT: when it broke the connection the commit may or may not have
// taken effect, and the error says so by its category (kInDoubtCommit); otherwise as it is.
[[noreturn]] ZT_TEST_EXPORT void RaiseCommitFailure(const ZtError& e);

}  // namespace zt::platform
