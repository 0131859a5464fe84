// CZtDataStore: one data store's definition, its connection strings, and (below) its live side.
// Include <zt/datastore.h> rather than this file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zt/trap.h"
#include "zt/variant.h"

namespace zt {

class CZtDataStore : public Object, public IZtDSDefinition, public IZtRetry {
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

  std::int32_t max_retries_ = 5;
  std::int32_t retry_interval_ = 100;
  bool add_random_delay_ = false;

  InstanceTrace trace_{"CZtDataStore"};
};

}  // namespace zt
