// CZtSQLServer: administers one SQL Server instance for the application. It logs in as "sa"
// or as the application's own login, checks version and security mode, creates the
// application login, and creates, drops, detaches and attaches databases, all by T-SQL over
// the one connection it opens and keeps.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zt/datastore/data_store.h"
#include "zt/export.h"
#include "zt/trap.h"
#include "zt/user_interaction.h"
#include "zt/variant.h"

namespace zt {

class Connection;

// What the host's administration tools ask of a SQL Server helper.
class ZT_EXPORT IZtSQLSvrAdminHelper {
 public:
  virtual ~IZtSQLSvrAdminHelper() = default;
  // The SQL Servers that answer on the network, joined with `separator` ("" when none).
  // `domain`: the hosts to ask, separated by "," or ";"; blank asks the configured ones.
  virtual std::string GetSQLServersList(const std::string& domain,
                                        const std::string& separator) = 0;
  // Prepares `server` for the sibling product with the "sa" password. Raises on failure.
  virtual void InitializeForOrvane(const std::string& server, const std::string& sa_password) = 0;
};

class ZT_EXPORT CZtSQLServer : public Object,
                               public IZtSQLSvrAdminHelper,
                               public IZtUserInteraction {
 public:
  static constexpr const char* kSaLogin = "sa";
  static constexpr const char* kApplicationLogin = "tesselapplication";
  static constexpr std::int32_t kLowestSupportedVersion = 7;

  // Reads the login time-out (.zt.config key 10472, 15 seconds).
  CZtSQLServer();
  ~CZtSQLServer() override;
  CZtSQLServer(const CZtSQLServer&) = delete;
  CZtSQLServer& operator=(const CZtSQLServer&) = delete;
  std::string TypeName() const override { return "CZtSQLServer"; }

  // Seconds a login may take before it fails (0: no limit).
  std::int32_t LoginTimeout() const { return login_timeout_; }
  void LoginTimeout(std::int32_t seconds) { login_timeout_ = seconds; }

  // The data store describing the server of the last login, and its open connection (both
  // null before the first login).
  std::shared_ptr<CZtDataStore> DataStore() const { return store_; }
  std::shared_ptr<Connection> ServerConnection() const { return connection_; }

  // Opens the connection to `database` on `server`. On failure raises the driver's error with
  // the masked connection text appended; the password never shows.
  void LogIn(const std::string& server, const std::string& login, const std::string& password,
             const std::string& database);
  // Logs in to "master" as "sa", or as the application login when `application_login` is set
  // (then `password` is not used). A failed application login raises ERR_NEED_TO_INIT_SQLSVR
  // unless the user may be asked, in which case the server is prepared and the login retried.
  void LogInSA(const std::string& server, const std::string& password, bool application_login);

  void RunStoredProcedureNoResults(const std::string& sql);
  // The first column of the first row; Empty when there is none.
  Variant RunStoredProcedureOneResult(const std::string& sql);

  // The major version out of "SELECT @@version". An answer that cannot be read raises.
  std::int32_t GetVersion();
  // Creates `login` (an existing one is kept) and sets its password; tslAddLoginError when
  // either statement fails otherwise.
  void AddLogin(const std::string& login, const std::string& password);
  void DropLogin(const std::string& login);
  // CREATE DATABASE with one data file; a UNC `file_path` is first mapped to the server's
  // local path (tslDBFilesNotOnServerError2 when that fails). Size and maximum in MB, growth in
  // %; 0 leaves a part out.
  void CreateSimpleDatabase(const std::string& database, const std::string& logical_name,
                            const std::string& file_path, std::int32_t size, std::int32_t max_size,
                            std::int32_t growth);
  // The statement CreateSimpleDatabase sends for a local `file_path`.
  static std::string CreateDatabaseSql(const std::string& database, const std::string& logical_name,
                                       const std::string& file_path, std::int32_t size,
                                       std::int32_t max_size, std::int32_t growth);
  void DropDatabase(const std::string& name);
  void AddUserToSysAdmins(const std::string& login);
  static std::string Default_Database_File_Extension() { return ".mdf"; }
  // The local path of share `share` on the server, from the "net share" output; "" when the
  // output names none.
  std::string MapShareNameToResource(const std::string& share);
  void DetachDatabase(const std::string& name);
  void AttachDatabase(const std::string& name, const std::vector<std::string>& files);
  // The database's files in file order.
  std::vector<std::string> GetOSFiles(const std::string& name);
  void SendMessage(const std::string& computer, const std::string& text);
  // The login mode ("Mixed", "Windows NT Authentication", ...), trimmed.
  std::string GetSecurityMode();
  // sp_helpdb's db_size ("3.00 MB"), trimmed.
  std::string GetDBSize(const std::string& name);
  // False for a UNC path (beginning with "\\") and an empty one.
  static bool ValidLocalPath(const std::string& path);
  void CreateTimestampField(const std::string& table, const std::string& field);
  // The users connected to `database`: never this object's own connection, never a process
  // without a host name. `filter` is a further condition on sysprocesses.
  std::vector<RosterEntry> GetUserRoster(const std::string& database,
                                         const std::string& filter = {});
  // The statement GetUserRoster sends.
  static std::string UserRosterSql(const std::string& database, const std::string& filter);

  // Prepares `server` for the application, asking for the "sa" password when the user may be
  // asked. True when prepared; false when the user declined or could not be asked (logged).
  bool InitializeForTessel(const std::string& server);

  // ---- IZtSQLSvrAdminHelper ------------------------------------------------------------------
  std::string GetSQLServersList(const std::string& domain, const std::string& separator) override;
  void InitializeForOrvane(const std::string& server, const std::string& sa_password) override;

  // ---- IZtUserInteraction ---------------------------------------------------------------------
  bool UserInteraction() const override { return user_interaction_; }
  void UserInteraction(bool value) override { user_interaction_ = value; }

 private:
  // The connection, or error 3704 (the object is closed) before a login.
  Connection& Open();
  // The preparation of the server as "sa" with `sa_password`.
  void Prepare(const std::string& server, const std::string& sa_password);
  bool FileExistsOnServer(const std::string& path);
  std::vector<std::string> GetDatabases();

  std::shared_ptr<CZtDataStore> store_;
  std::shared_ptr<Connection> connection_;
  std::int32_t login_timeout_ = 15;
  bool user_interaction_ = false;
  InstanceTrace trace_{"CZtSQLServer"};
};

// basSQLServer.GetComputerNameFromInstance: "machine\instance" gives "machine"; a name
// without "\" is returned whole.
ZT_EXPORT std::string GetComputerNameFromInstance(const std::string& server);

// The major version in a "SELECT @@version" text, from SQL Server 6.5 ("6.50.201") to 2022
// ("16.0.1000.6"). Raises a clear error (not 0) for a text that names no version.
ZT_EXPORT std::int32_t ParseSqlServerMajorVersion(const std::string& banner);

}  // namespace zt
