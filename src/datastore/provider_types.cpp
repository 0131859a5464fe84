// The provider-type rows and their connection-string forms.
#include "datastore/provider_types.h"

#include <iterator>

#include "foundation/utf8.h"
#include "platform/driver.h"
#include "platform/sql_text.h"
#include "zt/config.h"
#include "zt/datastore.h"
#include "zt/error_handling.h"

namespace zt {
namespace ds {

namespace {

// Jet stored at most 14 characters of a password; a longer one in the connection string would
// not match what the security database holds, so the Jet forms cut it.
constexpr std::size_t kJetPasswordLength = 14;
constexpr std::int32_t kProviderNotSupported = 9020;

// A value as it is handed on: unchanged unless it holds ";", braces, outer blanks or a leading
// quote, which would end it early or add a key; then braced, so a folder, a name or a password
// holding them reaches the engine whole.
std::string Q(const std::string& value) {
  return platform::OdbcQuote(value);
}

std::string JetTail(const DefinitionParts& d, const std::string&) {
  std::string s = ";Data Source=" + Q(d.full_path);
  const std::string password = Q(utf8::Left(d.password, kJetPasswordLength));
  if (d.odbc_form) {
    if (!d.system_db.empty()) s += ";SystemDB=" + Q(d.system_db);
    if (!d.user.empty()) s += ";Uid=" + Q(d.user) + ";Pwd=" + password;
  } else {
    if (!d.system_db.empty()) s += ";Jet OLEDB:System Database=" + Q(d.system_db);
    if (!d.user.empty()) s += ";User ID=" + Q(d.user) + ";Password=" + password;
  }
  return s;
}

std::string SqlServerTail(const DefinitionParts& d, const std::string&) {
  // User and password are written even when empty: the server side reads an empty Uid as "no
  // SQL login" and integrated security may follow.
  std::string s = ";Data Source=" + Q(d.location) + ";Database=" + Q(d.name) + ";Uid=" + Q(d.user) +
                  ";Pwd=" + Q(d.password) + ";";
  if (LoadConfigResString(203) == "1") s += "Integrated Security=SSPI;";
  return s;
}

std::string OracleTail(const DefinitionParts& d, const std::string&) {
  return ";Data Source=" + Q(d.location) + ";User ID=" + Q(d.user) + ";Password=" + Q(d.password) +
         ";";
}

// The driver name is written as configured: its default is braced already.
std::string MySqlTail(const DefinitionParts& d, const std::string& odbc_driver) {
  return ";Driver=" + odbc_driver + ";Server=" + Q(d.location) + ";Database=" + Q(d.name) +
         ";User=" + Q(d.user) + ";Password=" + Q(d.password) + ";Option=3";
}

// A port goes with the server as "host:port" (or "host,port"); the data-access layer splits it.
std::string PostgresTail(const DefinitionParts& d, const std::string&) {
  return ";Data Source=" + Q(d.location) + ";Database=" + Q(d.name) + ";User ID=" + Q(d.user) +
         ";Password=" + Q(d.password) + ";";
}

std::string JetDao(const DefinitionParts& d, const std::string&, bool) {
  return ";Database=" + Q(d.full_path);
}

std::string SqlServerDao(const DefinitionParts& d, const std::string& odbc_driver,
                         bool with_login) {
  std::string s =
      "ODBC;Driver=" + odbc_driver + ";Server=" + Q(d.location) + ";Database=" + Q(d.name);
  if (with_login) s += ";Uid=" + Q(d.user) + ";Pwd=" + Q(d.password);
  return s;
}

// In the order in which GetProviderType tests the prefixes: the last match wins, so "MSDASQL"
// names the MySQL bridge.
constexpr ProviderTypeRow kRows[] = {
    {kProviderJet, "jet", "sqlite", 10451, 10450, 10454, "PROVIDER_JET", "", true, true, false,
     "SQLite", SameBy::kFile, &JetTail, &JetDao},
    {kProviderOracle, "oracle", "", 10453, 0, 10456, "PROVIDER_ORACLE",
     "Microsoft ODBC Driver for Oracle", true, false, false, "Oracle", SameBy::kNever, &OracleTail,
     nullptr},
    // SQL Server's own client library has already waited for the login time-out; a second wait
    // only hides a server that is down, so its openings are never retried.
    {kProviderSqlServer, "sqlserver", "mssql", 10452, 0, 10455, "PROVIDER_SQL", "SQL Server", false,
     false, false, "SQL Server", SameBy::kServer, &SqlServerTail, &SqlServerDao},
    {kProviderMySql, "mysql", "mariadb", 10457, 0, 10457, "PROVIDER_MYSQL",
     "{MySQL ODBC 5.3 ANSI Driver}", true, false, true, "MariaDB", SameBy::kNever, &MySqlTail,
     nullptr},
    {kProviderPostgreSql, "postgresql", "postgres", 10458, 0, 10459, "PROVIDER_POSTGRESQL",
     "PostgreSQL Unicode", true, false, false, "PostgreSQL", SameBy::kNever, &PostgresTail,
     nullptr},
};

}  // namespace

const ProviderTypeRow* FindProviderType(std::int32_t type) {
  for (const ProviderTypeRow& row : kRows)
    if (row.type == type) return &row;
  return nullptr;
}

const ProviderTypeRow& RequireProviderType(std::int32_t type, std::string_view source) {
  if (const ProviderTypeRow* row = FindProviderType(type)) return *row;
  RaiseProviderNotSupported(type, source);
}

void RaiseProviderNotSupported(std::int32_t type, std::string_view source) {
  VariantArray args;
  args.items.emplace_back(type);
  ZtErr_RaiseFormatted(kProviderNotSupported, "tslDSProviderNotSupportedErr", std::string(source),
                       args);
}

const ProviderTypeRow* ProviderTypesBegin() {
  return std::begin(kRows);
}
const ProviderTypeRow* ProviderTypesEnd() {
  return std::end(kRows);
}

}  // namespace ds

std::int32_t ProviderTypeFromName(const std::string& name) {
  const std::string wanted = platform::AsciiLower(name);
  for (const ds::ProviderTypeRow* row = ds::ProviderTypesBegin(); row != ds::ProviderTypesEnd();
       ++row) {
    if (wanted == row->name || (!row->alias.empty() && wanted == row->alias) ||
        wanted == std::to_string(row->type))
      return row->type;
  }
  return 0;
}

std::string ProviderTypeName(std::int32_t type) {
  const ds::ProviderTypeRow* row = ds::FindProviderType(type);
  return row ? std::string(row->name) : std::string();
}

}  // namespace zt
