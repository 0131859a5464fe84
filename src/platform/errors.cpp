#include "platform/errors.h"

#include <sqlite3.h>

#include <cstring>

namespace zt::platform {

std::int32_t AdoErrorNumber(AdoError e) {
  return static_cast<std::int32_t>(0x800A0000u + static_cast<std::uint32_t>(e));
}

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

void RaiseSqlState(const std::string& source, const std::string& sqlstate, std::int64_t native,
                   const std::string& message) {
  throw ZtError(HResultForSqlState(sqlstate, message), source,
                message + " (" + std::to_string(native) + ")");
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
  throw ZtError(HResultForSqlite(code, message), source,
                message + " (" + std::to_string(code) + ")");
}

}  // namespace zt::platform
