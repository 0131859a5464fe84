// Data stores: the definition of one database of the help-desk application and the connection
// strings built from it.
//
// A data store is a Jet file (on this platform an SQLite file, or an old .mdb or .accdb read
// with MDB Tools' libmdb), a SQL Server database, an Oracle schema or a MySQL/MariaDB database. The caller sets
// its provider type, location, name and credentials; the data store answers the ADO/OLE DB
// connection string (ConnectionString) and the DAO connect string (DAOConnectionString). No
// other part of the library writes connection strings.
//
//   auto ds = std::make_shared<zt::CZtDataStore>();
//   ds->GeneralProviderType(zt::kProviderSqlServer);
//   ds->Location("HDSRV");
//   ds->DataStoreName("HelpDesk");
//   ds->UserName("user1");
//   ds->Password("abc");
//   ds->ConnectionString();  // "Provider=MSOLEDBSQL;Data Source=HDSRV;Database=HelpDesk;..."
//
// The texts are exactly those that administrators have always pasted and compared, odd parts
// included (";;" after an appended alternative string, the empty "dbq=" of the ODBC Jet form,
// a Jet password cut to 14 characters).
//
// Failures: the definition and connection-string members log a failure once through the error
// tail and then return their default ("" or false); CZtProvider raises (error vbObjectError +
// 9020 for a provider type it does not know); the live members of CZtDataStore say for
// themselves (zt/datastore/data_store.h). Objects belong to the thread that created them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zt/export.h"
#include "zt/trap.h"
#include "zt/variant.h"

namespace zt {

// Provider types (GeneralProviderType).
inline constexpr std::int32_t kProviderJet = 1;
inline constexpr std::int32_t kProviderSqlServer = 2;
inline constexpr std::int32_t kProviderOracle = 4;
inline constexpr std::int32_t kProviderMySql = 16;
inline constexpr std::int32_t kProviderPostgreSql = 32;  // ours: the old library had none

// The short name of a provider type ("jet", "sqlserver", "oracle", "mysql", "postgresql"), ""
// for a type the library does not support.
ZT_EXPORT std::string ProviderTypeName(std::int32_t type);
// The provider type of a short name, of its alias ("sqlite", "mssql", "mariadb", "postgres") or
// of its number as text, case ignored; 0 when none matches.
ZT_EXPORT std::int32_t ProviderTypeFromName(const std::string& name);

// Attributes bits of a data store.
inline constexpr std::int32_t kAttrDaoSupplied = 2;  // the DAO database came from the caller
inline constexpr std::int32_t kAttrOdbcForm = 16;    // build the ODBC form of ConnectionString

// AltConnStringOperation values (any other value appends, as 1 does).
inline constexpr std::int32_t kAltConnAppend = 1;
inline constexpr std::int32_t kAltConnReplace = 2;
inline constexpr std::int32_t kAltConnIgnore = 4;

// Maps provider types to OLE DB provider names, prefixes and captions. Names and prefixes are
// configuration texts (see zt/config.h), so an administrator may rename a provider.
class ZT_EXPORT CZtProvider {
 public:
  // An OLE DB provider (or ODBC driver) installed on this machine, with its version text.
  struct Installed {
    std::string name;
    std::string version;
  };

  CZtProvider() = default;

  // The installed provider whose name contains the prefix of `provider_type` (ignoring case)
  // with the greatest version; the first one listed when versions are equal; "" when none is
  // installed. Raises 9020 for an unknown provider type.
  std::string GetLatestOLEDBProvider(std::int32_t provider_type);
  // The configured provider name: 10451 for Jet (10450 when `version` is given and below 4),
  // 10452 SQL Server, 10453 Oracle, 10457 MySQL, 10458 PostgreSQL. Raises vbObjectError + 9020
  // (tslDSProviderNotSupportedErr) for any other type.
  std::string GetOLEDBProvider(std::int32_t provider_type, const std::string& version);
  // The configured prefix: 10454, 10455, 10456, 10457, 10459 (PostgreSQL). Raises 9020 like
  // GetOLEDBProvider.
  std::string GetOLEDBProviderPrefix(std::int32_t provider_type);
  // The caption text (PROVIDER_JET, PROVIDER_SQL, PROVIDER_ORACLE, PROVIDER_MYSQL,
  // PROVIDER_POSTGRESQL). Raises 9020
  // like GetOLEDBProvider.
  std::string GetCaptionName(std::int32_t provider_type);
  // The provider type whose prefix occurs in `provider` (ignoring case), testing 1, 4, 2, 16, 32
  // in that order with the last match winning; 0 when none occurs. "MSDASQL" gives 16.
  std::int32_t GetProviderType(const std::string& provider);

  // The providers installed here: the library's built-in provider names, then the ODBC drivers
  // registered with the driver manager. Never raises; an unreadable driver list gives only the
  // built-in names.
  static std::vector<Installed> InstalledProviders();
  // Compares dotted version texts numerically ("10.2" > "9.11"); <0, 0 or >0.
  static int CompareVersions(const std::string& a, const std::string& b);

 private:
  InstanceTrace trace_{"CZtProvider"};
};

}  // namespace zt

#include "zt/datastore/data_store.h"  // IWYU pragma: export
