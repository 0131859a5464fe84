// The unixODBC driver (internal): MariaDB/MySQL, SQL Server through FreeTDS, Oracle, Access
// files through MDB Tools, and any driver a connection string names with Driver=.
// It registers itself as "odbc"; nothing outside odbc_driver.cpp needs more than this header.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/driver.h"
#include "zt/export.h"

namespace zt::platform::odbc {

// What one ODBC target driver needs done differently. The fields are explained above the family
// table in odbc_driver.cpp.
struct ZT_TEST_EXPORT Family {
  DriverQuirks quirks{};
  std::vector<std::string> match{};
  std::vector<std::pair<std::string, std::string>> added_keys{};
  int login_timeout = 15;
  std::string login_timeout_key{};
  std::vector<std::string> read_timeout_keys{};
  bool catalog_is_db = false;
  bool has_pk_function = true;
  bool jet_vocabulary = false;
  bool wide_catalog_types = false;
  std::string default_schema_sql{};
  std::string last_insert_id_sql{};
  std::string timeout_sql{};
  std::string session_sql{};
  std::vector<std::int32_t> timeout_natives{};
  int bulk_parameters = 0;
  std::string liveness = "SELECT 1";
};

// The family of a Driver= name (case-insensitive words); an unknown driver gets a generic one.
ZT_TEST_EXPORT const Family& FamilyForDriver(std::string_view driver_name);

// The ODBC connection string for `params`: the core's DSN-less string plus the family's keys
// that the caller did not give (a caller's own value always wins).
ZT_TEST_EXPORT std::string ConnectionStringFor(const ConnectParams& params, const Family& family);

struct ZT_TEST_EXPORT DiagRecord {
  std::string sqlstate;  // "" when the driver gave none (MDB Tools)
  std::int32_t native = 0;
  std::string message;
};
// Every diagnostic record of a handle (`handle_type` is SQL_HANDLE_ENV/DBC/STMT).
ZT_TEST_EXPORT std::vector<DiagRecord> CollectDiagnostics(short handle_type, void* handle);
// Throws the ZtError for `records`: the number from the first record that is not a warning
// (a native code the family lists as a time-out counts as one), the messages of all records in
// the description, `source` as source.
[[noreturn]] ZT_TEST_EXPORT void RaiseDiagnostics(const std::string& source, const Family& family,
                                                  const std::vector<DiagRecord>& records);

// ADO DataTypeEnum code of an ODBC SQL type.
ZT_TEST_EXPORT std::int32_t AdoTypeFor(short sql_type);

}  // namespace zt::platform::odbc
