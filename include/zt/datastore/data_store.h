// CZtDataStore: one data store's definition, its connection strings, and (below) its live side.
// <zt/datastore.h> includes it together with the provider types and CZtProvider.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zt/datastore/definition.h"
#include "zt/export.h"
#include "zt/trap.h"
#include "zt/variant.h"

namespace zt {

class Connection;
class CZtProvider;
namespace ds {
struct DefinitionParts;
struct ProviderTypeRow;
}  // namespace ds
namespace dao {
class Database;
}

// One user connected to a data store (GetUserRoster).
struct ZT_EXPORT RosterEntry {
  std::string computer_name;  // COMPUTER_NAME: the client's host
  std::string login_name;     // LOGIN_NAME: the login it used
  friend bool operator==(const RosterEntry&, const RosterEntry&) = default;
};

class ZT_EXPORT CZtDataStore : public Object, public IZtDSDefinition, public IZtRetry {
 public:
  // Reads the retry settings (configuration values 501 and 502) from the configuration.
  CZtDataStore();
  ~CZtDataStore() override;
  CZtDataStore(const CZtDataStore&) = delete;
  CZtDataStore& operator=(const CZtDataStore&) = delete;

  std::string TypeName() const override { return "CZtDataStore"; }

  // ---- Definition -------------------------------------------------------------------------
  std::int32_t Attributes() const { return attributes_; }
  void Attributes(std::int32_t value) { attributes_ = value; }
  // Jet: the folder of the file; server kinds: the server name. Setting it clears the cached
  // DAO connect string.
  std::string Location() const override { return location_; }
  void Location(const std::string& value) override;
  // Jet: the file name; server kinds: the database name.
  std::string DataStoreName() const { return name_; }
  void DataStoreName(const std::string& value) { name_ = value; }
  // The role of the data store in the host application; stored only.
  std::int32_t DataStoreType() const { return type_; }
  void DataStoreType(std::int32_t value) { type_ = value; }
  std::int32_t GeneralProviderType() const { return provider_type_; }
  void GeneralProviderType(std::int32_t value) { provider_type_ = value; }
  // The OLE DB provider name. When none is set, the configured default of the provider type
  // is stored and returned; "" (logged) for an unsupported type.
  std::string Provider();
  void Provider(const std::string& value) { provider_ = value; }
  std::string SystemDB() const { return system_db_; }
  void SystemDB(const std::string& value) { system_db_ = value; }
  // The ODBC driver name. When none is set, the default of the provider type is stored and
  // returned ("SQL Server", "Microsoft ODBC Driver for Oracle", "{MySQL ODBC 5.3 ANSI
  // Driver}"); Jet and unknown types have none and give "".
  std::string ODBCDriver();
  void ODBCDriver(const std::string& value) { odbc_driver_ = value; }
  std::string UserName() const { return user_; }
  void UserName(const std::string& value) { user_ = value; }
  // The password is kept as given; it never appears in a log line written by this class.
  std::string Password() const { return password_; }
  void Password(const std::string& value) { password_ = value; }
  std::string AltConnString() const override { return alt_conn_; }
  void AltConnString(const std::string& value) override { alt_conn_ = value; }
  std::int32_t AltConnStringOperation() const override { return alt_op_; }
  void AltConnStringOperation(std::int32_t value) override { alt_op_ = value; }

  // Location and DataStoreName joined with one separator ("\" for a Windows-style folder,
  // "/" otherwise).
  std::string FullPath() const;

  // The ADO/OLE DB connection string built from the definition; "" (logged) on failure.
  std::string ConnectionString();

  // The DAO connect string: ";Database=" + FullPath for Jet, "ODBC;Driver=...;Server=...;
  // Database=..." for SQL Server, "" for the others; the text is cached until Location
  // changes. A non-empty `user_name` is stored with `password` first.
  std::string DAOConnectionString(const std::string& user_name, const std::string& password);

  // The value of `key` in `conn_string` (key matched ignoring case, value up to the next ";"),
  // "" when absent. An empty `conn_string` is replaced (and written back) by the connection
  // string of the open cached connection, if any. A match beyond character 32767 is an
  // overflow (logged; "" returned).
  std::string GetValueFromConnectionString(const std::string& key, std::string& conn_string);

  // Whether two DAO-style connect strings name the same database (DATABASE, and SERVER for SQL
  // Server, compared ignoring case); with `conn_string2` empty, compares `conn_string1` with
  // this definition. Always false unless `compare` is true, and for Oracle and MySQL.
  bool SameConnectionString(std::string& conn_string1, std::string& conn_string2, bool compare);

  // ---- Live side ---------------------------------------------------------------------------
  // Connections are opened on first need and cached; the data store owns them until
  // CloseConnections (or its destruction). Members that open, create, change or delete
  // something raise their failure after logging it; members that answer a question log it and
  // return their default (false, "", 0, empty).

  // The cached connection, or nullptr when none was opened.
  std::shared_ptr<Connection> DataStoreConnection() const { return connection_; }
  // Adopts a connection the caller opened; the data store now shares it.
  void DataStoreConnection(std::shared_ptr<Connection> connection);
  std::shared_ptr<dao::Database> DataStoreDAOConnection() const { return dao_; }
  // Adopts a DAO database the caller opened and sets Attributes bit 2.
  void DataStoreDAOConnection(std::shared_ptr<dao::Database> database);

  // Mode 1: opens the connection when there is none or it is not open, then returns it.
  // Mode 2: as mode 1 when there is none; otherwise closes and reopens it with its own stored
  // connection string. Other modes return the cached connection as it is (maybe nullptr).
  // Raises when the opening fails.
  std::shared_ptr<Connection> GetConnection(std::int32_t mode);
  // Closes an open cached connection and opens ConnectionString() with retries (MaxRetries,
  // RetryInterval, the error numbers of configuration value 503; SQL Server stores are never
  // retried). `user_name` and `password` are passed to the opening as given. Logs the masked
  // connection string. Raises the last error when every attempt fails, and error 53 at once
  // when the file of a Jet store does not exist (no empty database is created in its place).
  bool OpenDataStore(const std::string& user_name = {}, const std::string& password = {});
  // True when the data store opens and answers a query; false (logged) otherwise.
  bool ValidateDataStore();
  // The DAO view of a Jet data store's file, opened on first call and cached (the data store
  // and the caller share it). Raises the engine's error when the file cannot be opened, and
  // vbObjectError + 9020 for a server data store, which has no DAO view here.
  std::shared_ptr<dao::Database> OpenDAODataStore();
  // Jet: creates an empty database file at FullPath (an existing file is an error). Servers:
  // CREATE DATABASE for DataStoreName on Location. Raises on failure.
  void CreatePhysicalDataStore();
  // Jet: closes the connections and deletes the file with its lock, journal and WAL files,
  // logging "File deleted: " + path for each. Servers: DROP DATABASE. Raises on failure.
  void DeletePhysicalDataStore();
  // Replicas do not exist on these engines: always false.
  bool IsReplica();
  // Deletes the rows of `table` (all of them when `where` is empty) and returns how many went.
  std::int64_t DeleteTableRecords(const std::string& table, const std::string& where = {});
  // Single-field schema changes through the schema operations (CZtDTMgr): the field is added
  // nullable and may hold empty text; a field that exists already is only logged. Deleting a
  // field that is not there is no error.
  void AddFieldToTable(const std::string& table, const std::string& field, std::int32_t field_type,
                       std::int32_t size);
  void DeleteFieldFromTable(const std::string& table, const std::string& field);
  // Drops `table` and logs "Table [" + table + "] deleted.". Raises on failure.
  void DeleteTable(const std::string& table);
  // Jet: moves the file to `new_location` (a folder) and makes that the Location. Raises
  // ERR_SOURCE_SAME_AS_TARGET when it is the current folder; a server database cannot be moved
  // this way (tslDBFilesNotOnServerError2).
  void MovePhysicalDataStore(const std::string& new_location);
  // The application version in tblTesselVersion: format 2 tMajor, 3 tMinor, otherwise
  // tMajor + "." + tMinor; "" for an empty table or on failure (logged).
  std::string TesselVersion(std::int32_t format = 0);
  // Writes the version into tblTesselVersion. A store without that table is reported
  // (".SetTesselVersion - tblTesselVersion is missing in " + name) and left unchanged; returns
  // false then. Raises when the UPDATE fails.
  bool SetTesselVersion(const std::string& major, const std::string& minor);
  // Bytes the data store occupies (file with its WAL; a server's database size); 0 (logged) on
  // failure.
  std::int64_t Size();
  // Jet: rebuilds the file through a temporary database and swaps it in; needs the file to
  // itself. Servers manage their own files: nothing is done. Raises on failure.
  void Compact();
  // Closes the cached connection (the object stays, closed, for the next opening) and closes and
  // releases the DAO database; Attributes bit 2 is cleared with it.
  void CloseConnections();
  // The name under which `table` exists in this store: on MySQL the user table (configuration
  // value 10403) is kept as 10402; every other name is returned unchanged.
  std::string GetLinkedTableName(const std::string& table);
  // Sets the definition from a property text "ProviderType=2;Location=...;Name=...;
  // User=...;Password=...;Type=...;Provider=...;ODBCDriver=...;AltConnString=...;
  // AltConnStringOperation=...". Missing properties keep their values. An unsupported provider
  // type raises vbObjectError + 9020 and changes nothing.
  void Initialize(const std::string& param);
  // The other users connected to the data store (server process lists; none for a file): the
  // data store's own session is never listed; no duplicates, none of the entries of `exclude`.
  std::vector<RosterEntry> GetUserRoster(const std::vector<RosterEntry>& exclude = {});

  // `connection_string` (ConnectionString() when empty) with every password masked by "*",
  // for log lines and displays.
  std::string MaskedConnectionString(const std::string& connection_string = {});

  // ---- IZtDSDefinition ----------------------------------------------------------------------
  std::string Name() const override { return name_; }
  void Name(const std::string& value) override { name_ = value; }
  std::int32_t Type() const override { return type_; }
  void Type(std::int32_t value) override { type_ = value; }
  std::int32_t ProviderType() const override { return provider_type_; }
  void ProviderType(std::int32_t value) override { provider_type_ = value; }
  std::int32_t Order() const override { return order_; }
  void Order(std::int32_t value) override { order_ = value; }
  std::int32_t SecurityAccess() const override { return security_access_; }
  void SecurityAccess(std::int32_t value) override { security_access_ = value; }
  std::string SecurityDB() const override { return security_db_; }
  void SecurityDB(const std::string& value) override { security_db_ = value; }
  std::string AltLocation() const override { return alt_location_; }
  void AltLocation(const std::string& value) override { alt_location_ = value; }
  std::shared_ptr<IZtDSDefinition> Copy() const override;

  // ---- IZtRetry -----------------------------------------------------------------------------
  std::int32_t MaxRetries() const override { return max_retries_; }
  void MaxRetries(std::int32_t value) override { max_retries_ = value; }
  std::int32_t RetryInterval() const override { return retry_interval_; }
  void RetryInterval(std::int32_t value) override { retry_interval_ = value; }
  bool AddRandomDelay() const override { return add_random_delay_; }
  void AddRandomDelay(bool value) override { add_random_delay_ = value; }

 private:
  CZtProvider& ProviderObject();
  // The definition's values that connection strings are built from.
  ds::DefinitionParts Parts() const;
  // The row of this store's provider type; raises 9020 for a type the library does not support.
  const ds::ProviderTypeRow& Row() const;
  // True for a provider type whose data store is a file (Jet); false for servers and for a type
  // the library does not support.
  bool IsFileStore() const;
  void ZtConnOpen(Connection& connection, const std::string& connection_string,
                  const std::string& user, const std::string& password, std::int32_t options,
                  std::int32_t max_retries, std::int32_t retry_interval);
  bool IsRetryOnError(std::int32_t number);
  // `text` with `password` (also in its Jet-length form) and every password key's value masked.
  static std::string MaskPasswords(const std::string& text, const std::string& password);
  static std::vector<RosterEntry> RemoveSameEntries(std::vector<RosterEntry> entries);

  // A new connection to the server of a server data store, with no database selected.
  std::shared_ptr<Connection> OpenServerConnection();
  // The connection string of the cached connection when it is open, else "".
  std::string OpenConnectionString() const;

  std::int32_t attributes_ = 0;
  std::string location_;
  std::string name_;
  std::int32_t type_ = 0;
  std::int32_t provider_type_ = 0;
  std::string provider_;
  std::string odbc_driver_;
  std::string system_db_;
  std::string dao_conn_cache_;
  std::string user_;
  std::string password_;
  std::string alt_conn_;
  std::int32_t alt_op_ = 0;
  std::int32_t order_ = 0;
  std::int32_t security_access_ = 0;
  std::string security_db_;
  std::string alt_location_;
  std::unique_ptr<CZtProvider> provider_object_;
  std::shared_ptr<Connection> connection_;
  std::shared_ptr<dao::Database> dao_;
  std::vector<std::string> retry_errors_;
  bool retry_errors_read_ = false;

  std::int32_t max_retries_ = 5;
  std::int32_t retry_interval_ = 100;
  bool add_random_delay_ = false;

  InstanceTrace trace_{"CZtDataStore"};
};

}  // namespace zt
