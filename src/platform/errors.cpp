#include "platform/errors.h"

#include <sqlite3.h>

#include <cstring>

namespace zt::platform {

namespace {

const char* AdoText(AdoError e) {
  switch (e) {
    case AdoError::kInvalidArgument:
      return "Arguments are of the wrong type, are out of acceptable range, or are in conflict "
             "with one another.";
    case AdoError::kNoCurrentRecord:
      return "Either BOF or EOF is True, or the current record has been deleted. Requested "
             "operation requires a current record.";
    case AdoError::kIllegalOperation:
      return "Operation is not allowed in this context.";
    case AdoError::kNotUpdatable:
      return "Current Recordset does not support updating. This may be a limitation of the "
             "provider, or of the selected locktype.";
    case AdoError::kItemNotFound:
      return "Item cannot be found in the collection corresponding to the requested name or "
             "ordinal.";
    case AdoError::kDataConversion:
      return "Application uses a value of the wrong type for the current operation.";
    case AdoError::kObjectClosed:
      return "Operation is not allowed when the object is closed.";
    case AdoError::kObjectOpen:
      return "Operation is not allowed when the object is open.";
    case AdoError::kProviderNotFound:
      return "Provider cannot be found. It may not be properly installed.";
  }
  return "";
}

bool Contains(const std::string& text, const char* needle) {
  return text.find(needle) != std::string::npos;
}

}  // namespace

void RaiseAdo(AdoError e, const std::string& source, const std::string& detail) {
  std::string text = AdoText(e);
  if (!detail.empty()) text += " " + detail;
  throw ZtError(AdoErrorNumber(e), source, text);
}

std::int32_t HResultForSqlState(const std::string& s, const std::string& message) {
  if (s.size() < 2) return hr::kFail;
  const std::string cls = s.substr(0, 2);
  if (cls == "08") return hr::kFail;
  if (cls == "28") return hr::kLogin;
  if (s == "42501") return hr::kPermission;
  if (s == "42S02" || s == "42P01") return hr::kNoTable;
  if (s == "HYT00" || s == "HYT01" || s == "57014") return hr::kTimeout;
  if (cls == "42" || s == "37000") {
    // MariaDB reports a missing table as 42S02 through ODBC but as 42000 natively.
    if (Contains(message, "doesn't exist")) return hr::kNoTable;
    return hr::kCommand;
  }
  if (cls == "23") return hr::kIntegrity;
  if (s == "22003" || s == "22001") return hr::kDataOverflow;
  if (cls == "22") return hr::kCantConvert;
  return hr::kFail;
}

std::int32_t HResultForSqlite(int code, const std::string& message) {
  switch (code & 0xff) {
    case SQLITE_ERROR:
      return Contains(message, "no such table") ? hr::kNoTable : hr::kCommand;
    case SQLITE_AUTH:
      return hr::kLogin;
    case SQLITE_PERM:
    case SQLITE_READONLY:
      return hr::kPermission;
    case SQLITE_CONSTRAINT:
      return hr::kIntegrity;
    case SQLITE_TOOBIG:
      return hr::kDataOverflow;
    case SQLITE_MISMATCH:
    case SQLITE_RANGE:
      return hr::kCantConvert;
    case SQLITE_INTERRUPT:
      return hr::kTimeout;
    default:  // BUSY, LOCKED, CANTOPEN, IOERR, CORRUPT, FULL, NOTADB ...
      return hr::kFail;
  }
}

ErrorCategory CategoryForSqlState(const std::string& s, std::int64_t native,
                                  const std::string& message) {
  (void)native;
  if (s.size() < 2) return ErrorCategory::kOther;
  const std::string cls = s.substr(0, 2);
  if (s == "08007") return ErrorCategory::kInDoubtCommit;
  if (cls == "08" || s == "57P01" || s == "57P02" || s == "57P03")
    return ErrorCategory::kBrokenConnection;
  if (cls == "28") return ErrorCategory::kLogin;
  if (cls == "40") return ErrorCategory::kDeadlock;
  if (s == "HYT00" || s == "HYT01" || s == "57014") return ErrorCategory::kTimeout;
  if (cls == "23") return ErrorCategory::kIntegrity;
  if (s == "42501") return ErrorCategory::kPermission;
  const std::int32_t number = HResultForSqlState(s, message);
  if (number == hr::kNoTable) return ErrorCategory::kNoTable;
  if (cls == "42" || s == "37000") return ErrorCategory::kSyntax;
  if (cls == "22") return ErrorCategory::kData;
  return ErrorCategory::kOther;
}

std::string SqlStateForSqlite(int code, const std::string& message) {
  switch (code & 0xff) {
    case SQLITE_ERROR:
      return Contains(message, "no such table") ? "42S02" : "42000";
    case SQLITE_AUTH:
      return "28000";
    case SQLITE_PERM:
    case SQLITE_READONLY:
      return "42501";
    case SQLITE_CONSTRAINT:
      return "23000";
    case SQLITE_TOOBIG:
      return "22001";
    case SQLITE_MISMATCH:
    case SQLITE_RANGE:
      return "22018";
    case SQLITE_INTERRUPT:
      return "HYT00";
    case SQLITE_CANTOPEN:
      return "08001";
    default:  // BUSY, LOCKED, IOERR, CORRUPT, FULL, NOTADB ...
      return "HY000";
  }
}

ZtError EngineError(const std::string& source, const std::string& sqlstate, std::int64_t native,
                    const std::string& message, const std::string& code_text,
                    ErrorCategory category) {
  ErrorInfo info;
  info.number =
      category == ErrorCategory::kTimeout ? hr::kTimeout : HResultForSqlState(sqlstate, message);
  info.source = source;
  info.description = message + " (" + code_text + ")";
  info.sql_state = sqlstate;
  info.native_error = native;
  info.category =
      category == ErrorCategory::kNone ? CategoryForSqlState(sqlstate, native, message) : category;
  return ZtError(std::move(info));
}

void RaiseSqlState(const std::string& source, const std::string& sqlstate, std::int64_t native,
                   const std::string& message, ErrorCategory category) {
  throw EngineError(source, sqlstate, native, message, std::to_string(native), category);
}

void RaiseCommitFailure(const ZtError& e) {
  if (e.Category() != ErrorCategory::kBrokenConnection) throw e;
  ErrorInfo info = e.Info();
  info.category = ErrorCategory::kInDoubtCommit;
  throw ZtError(std::move(info));
}

std::string DriverMessage(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' '))
    text.pop_back();
  return text;
}

void RaiseReadOnly(const std::string& source, const std::string& engine) {
  RaiseSqlState(
      source, "42501", 0,
      "The " + engine + " data source is open read-only: only SELECT statements can be run");
}

void RaiseSqlite(const std::string& source, int code, const std::string& message) {
  ErrorInfo info;
  info.number = HResultForSqlite(code, message);
  info.source = source;
  info.description = message + " (" + std::to_string(code) + ")";
  info.sql_state = SqlStateForSqlite(code, message);
  info.native_error = code;
  switch (code & 0xff) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      info.category = ErrorCategory::kBusy;
      break;
    case SQLITE_IOERR:
    case SQLITE_CORRUPT:
    case SQLITE_FULL:
    case SQLITE_NOTADB:
      info.category = ErrorCategory::kOther;
      break;
    default:
      info.category = CategoryForSqlState(info.sql_state, code, message);
  }
  throw ZtError(std::move(info));
}

}  // namespace zt::platform
