// CZtSQLServer: the T-SQL of the SQL Server administration, over the one connection it keeps.
#include "zt/sqlserver/sql_server.h"

#include <algorithm>
#include <cctype>
#include <regex>

#include "platform/sql_text.h"
#include "sqlserver/sql_server_internal.h"
#include "zt/config.h"
#include "zt/datastore.h"
#include "zt/error_codes.h"
#include "zt/error_handling.h"
#include "zt/event_logger.h"
#include "zt/platform.h"
#include "zt/sqlserver/discovery.h"
#include "zt/text/compare.h"

namespace zt {

namespace {

constexpr std::string_view kTypeName = "CZtSQLServer";
constexpr const char* kMaster = "master";
constexpr const char* kRequiredSecurityMode = "Mixed";

void Diagnostic(const std::string& text) {
  ZtLog_LogEvent(text, nullptr, kEventInformation, kLevelDiagnostic);
}

// `text` with every occurrence of `secret` replaced by "*": a driver or server may quote what
// it was given back in its message.
// `text` with `secret` masked where it stands: for messages about a statement that the library
// wrote the secret into (a new login's password), which the server may quote.
std::string WithoutSecret(std::string text, const std::string& secret) {
  if (secret.empty()) return text;
  for (std::size_t at = text.find(secret); at != std::string::npos; at = text.find(secret, at + 1))
    text.replace(at, secret.size(), "*");
  return text;
}

VariantArray Args(std::initializer_list<Variant> items) {
  VariantArray a;
  a.items.assign(items.begin(), items.end());
  return a;
}

// Texts that end up on the server's command line (net share, net send) run through cmd.exe
// there: anything that could end the command or start another one is refused before it is
// sent.
void RequireShellSafe(const std::string& what, const std::string& text) {
  static const std::string kRefused = "&|<>^\"%\r\n";
  if (text.empty() || text.find_first_of(kRefused) != std::string::npos)
    ZtErr_RaiseFormatted(sqlserver::kBadShellText, "ERR_SQLSVR_BAD_NAME", std::string(kTypeName),
                         Args({Variant(what), Variant(text)}));
}

std::string Trimmed(const Variant& v) {
  return v.IsNull() ? std::string{} : TrimSpaces(v.ToText());
}

// Windows-style path join with exactly one "\" between folder and rest.
std::string JoinWindows(std::string folder, std::string rest) {
  while (!folder.empty() && (folder.back() == '\\' || folder.back() == '/')) folder.pop_back();
  while (!rest.empty() && (rest.front() == '\\' || rest.front() == '/')) rest.erase(0, 1);
  return rest.empty() ? folder : folder + "\\" + rest;
}

}  // namespace

namespace sqlserver {

const std::string& TSL_PASSWORD() {
  static const std::string password = "Tq7#vLm2!Rx9-Zt76";
  return password;
}

}  // namespace sqlserver

CZtSQLServer::CZtSQLServer() {
  const std::string configured = LoadConfigResString(10472);
  try {
    login_timeout_ = std::max(0, std::stoi(configured));
  } catch (const std::exception&) {
    Diagnostic("CZtSQLServer: login time-out '" + configured + "' is not a number; 15 is used");
  }
}

CZtSQLServer::~CZtSQLServer() {
  if (connection_) {
    try {
      connection_->Close();
    } catch (...) {  // a connection that is gone already needs no closing
    }
  }
}

Connection& CZtSQLServer::Open() {
  if (!connection_ || connection_->State() != ado::adStateOpen)
    throw ZtError(AdoErrorNumber(AdoError::kObjectClosed), std::string(kTypeName),
                  "Not logged in to a SQL Server: call LogIn first.");
  return *connection_;
}

void CZtSQLServer::LogIn(const std::string& server, const std::string& login,
                         const std::string& password, const std::string& database) {
  Trap at(kTypeName, "LogIn");
  at.Reraising([&] {
    at = 10;
    Diagnostic("Trying to login to: " + server + " with " + login);
    at = 20;
    auto ds = std::make_shared<CZtDataStore>();
    ds->GeneralProviderType(kProviderSqlServer);
    ds->Location(server);
    ds->DataStoreName(database);
    ds->UserName(login);
    ds->Password(password);
    const std::string text = ds->ConnectionString();
    at = 30;
    auto cn = std::make_shared<Connection>();
    cn->SetConnectionTimeout(login_timeout_);
    try {
      cn->Open(text);
    } catch (const ZtError& e) {
      ErrorInfo info = e.Info();
      // Connection::Open has masked what the driver echoed; the server's words stay as they are.
      info.description += " (" + ds->MaskedConnectionString(text) + ")";
      throw ZtError(std::move(info));
    }
    at = 40;
    if (connection_ && connection_ != cn) connection_->Close();
    ds->DataStoreConnection(cn);
    store_ = std::move(ds);
    connection_ = std::move(cn);
  });
}

void CZtSQLServer::LogInSA(const std::string& server, const std::string& password,
                           bool application_login) {
  Trap at(kTypeName, "LogInSA");
  at.Reraising([&] {
    at = 10;
    if (!application_login) {
      LogIn(server, kSaLogin, password, kMaster);
      return;
    }
    at = 20;
    bool prepared = false;
    for (;;) {
      try {
        LogIn(server, kApplicationLogin, sqlserver::TSL_PASSWORD(), kMaster);
        return;
      } catch (const ZtError& e) {
        at = 30;
        // The server has not been prepared (or was prepared for another password): with
        // somebody to ask it is prepared now and the login tried once more.
        if (user_interaction_ && !prepared && InitializeForTessel(server)) {
          prepared = true;
          continue;
        }
        at = 40;
        throw ZtError(e.Number(), e.Source(),
                      ZtErr_GetMessage("ERR_NEED_TO_INIT_SQLSVR", "", Args({Variant(server)})) +
                          "\n" + e.Description());
      }
    }
  });
}

void CZtSQLServer::RunStoredProcedureNoResults(const std::string& sql) {
  Trap at(kTypeName, "RunStoredProcedureNoResults");
  at.Reraising([&] {
    at = 10;
    Diagnostic(std::string(kTypeName) + ".RunStoredProcedureNoResults: Beginning");
    at = 20;
    Open().Execute(sql);
  });
}

Variant CZtSQLServer::RunStoredProcedureOneResult(const std::string& sql) {
  Trap at(kTypeName, "RunStoredProcedureOneResult");
  return at.Reraising([&] {
    at = 10;
    auto rs = Open().Execute(sql);
    at = 20;
    if (!rs || rs->State() != ado::adStateOpen || rs->Eof() || rs->GetFields().Count() == 0)
      return Variant();
    Variant value = rs->Fields(0).Value();
    rs->Close();
    return value;
  });
}

std::int32_t CZtSQLServer::GetVersion() {
  Trap at(kTypeName, "GetVersion");
  return at.Reraising([&] {
    at = 10;
    const Variant banner = RunStoredProcedureOneResult("SELECT @@version");
    at = 20;
    return ParseSqlServerMajorVersion(banner.IsNull() ? std::string{} : banner.ToText());
  });
}

void CZtSQLServer::AddLogin(const std::string& login, const std::string& password) {
  const auto failed = [&](const ZtError& e) {
    ZtErr_Raise(sqlserver::kAddLogin, "tslAddLoginError",
                " " + WithoutSecret(e.Description(), password), std::string(kTypeName));
  };
  {
    Trap at(kTypeName, "AddLogin login", "");
    at.NoStep();
    at.Reraising([&] {
      try {
        RunStoredProcedureNoResults("sp_addlogin " + platform::BracketName(login) + "," +
                                    platform::BracketName(password));
      } catch (const ZtError& e) {
        // An existing login is kept; its password is set below all the same.
        if (e.NativeError() == sqlserver::kLoginExists || e.Number() == sqlserver::kLoginExists)
          return;
        failed(e);
      }
    });
  }
  Trap at(kTypeName, "AddLogin pwd", "");
  at.NoStep();
  at.Reraising([&] {
    try {
      RunStoredProcedureNoResults("sp_password NULL," + platform::BracketName(password) + "," +
                                  platform::BracketName(login));
    } catch (const ZtError& e) {
      failed(e);
    }
  });
}

void CZtSQLServer::DropLogin(const std::string& login) {
  Trap at(kTypeName, "DropLogin");
  at.Reraising([&] {
    at = 10;
    RunStoredProcedureNoResults("sp_droplogin " + platform::BracketName(login));
  });
}

std::string CZtSQLServer::CreateDatabaseSql(const std::string& database,
                                            const std::string& logical_name,
                                            const std::string& file_path, std::int32_t size,
                                            std::int32_t max_size, std::int32_t growth) {
  std::string sql = "CREATE DATABASE " + platform::BracketName(database) +
                    " ON (NAME =" + platform::BracketName(logical_name) +
                    " ,FILENAME =" + platform::SqlLiteral(file_path) + " ";
  if (size > 0) sql += " ,SIZE =" + std::to_string(size);
  if (max_size > 0) sql += " ,MAXSIZE = " + std::to_string(max_size);
  if (growth > 0) sql += " ,FILEGROWTH = " + std::to_string(growth) + "%";
  return sql + ")";
}

void CZtSQLServer::CreateSimpleDatabase(const std::string& database,
                                        const std::string& logical_name,
                                        const std::string& file_path, std::int32_t size,
                                        std::int32_t max_size, std::int32_t growth) {
  Trap at(kTypeName, "CreateSimpleDatabase");
  at.Reraising([&] {
    at = 10;
    std::string local = file_path;
    if (!ValidLocalPath(file_path)) {
      // \\host\share\rest: the server sees the share under its own local folder.
      std::string root;
      std::string rest;
      if (file_path.rfind("\\\\", 0) == 0) {
        const std::size_t share_at = file_path.find('\\', 2);
        if (share_at != std::string::npos && share_at + 1 < file_path.size()) {
          const std::size_t rest_at = file_path.find('\\', share_at + 1);
          const std::string share =
              file_path.substr(share_at + 1, rest_at == std::string::npos ? std::string::npos
                                                                          : rest_at - share_at - 1);
          if (rest_at != std::string::npos) rest = file_path.substr(rest_at + 1);
          at = 20;
          root = MapShareNameToResource(share);
        }
      }
      at = 30;
      if (root.empty())
        ZtErr_RaiseFormatted(
            sqlserver::kFilesNotOnServer, "tslDBFilesNotOnServerError2", std::string(kTypeName),
            Args({Variant(database), Variant(store_ ? store_->Location() : std::string{})}));
      local = JoinWindows(root, rest);
    }
    at = 40;
    const std::string sql =
        CreateDatabaseSql(database, logical_name, local, size, max_size, growth);
    at = 50;
    Diagnostic("Creating database: " + database + " with: " + sql);
    RunStoredProcedureNoResults(sql);
  });
}

void CZtSQLServer::DropDatabase(const std::string& name) {
  Trap at(kTypeName, "DropDatabase");
  at.Reraising([&] {
    at = 10;
    Diagnostic("Deleting database: " + name);
    at = 20;
    RunStoredProcedureNoResults("DROP DATABASE " + platform::BracketName(name));
  });
}

void CZtSQLServer::AddUserToSysAdmins(const std::string& login) {
  Trap at(kTypeName, "AddUserToSysAdmins");
  at.Reraising([&] {
    at = 10;
    RunStoredProcedureNoResults("sp_addsrvrolemember " + platform::BracketName(login) +
                                ", 'sysadmin'");
  });
}

std::string CZtSQLServer::MapShareNameToResource(const std::string& share) {
  Trap at(kTypeName, "MapShareNameToResource", "");
  at.NoStep();
  return at.Reraising([&] {
    RequireShellSafe("The share name", share);
    auto rs = Open().Execute("EXEC master..xp_cmdshell 'net share " + share + "'");
    // "net share NAME" prints "Share name", "Path", "Remark" ... as a name column and a value
    // column; the path is the value that starts with a drive ("D:\SQLData"), which holds for
    // every language the command speaks, where the word "Path" does not.
    std::string path;
    for (; rs && rs->State() == ado::adStateOpen && !rs->Eof(); rs->MoveNext()) {
      const Variant v = rs->Fields(0).Value();
      if (v.IsNull()) continue;
      const std::string line = v.ToText();
      static const std::regex kPathLine(R"(^\S.*?\s{2,}([A-Za-z]:\\.*?)\s*$)");
      std::smatch m;
      if (std::regex_match(line, m, kPathLine)) {
        path = m[1];
        break;
      }
    }
    return path;
  });
}

void CZtSQLServer::DetachDatabase(const std::string& name) {
  Trap at(kTypeName, "DetachDatabase");
  at.Reraising([&] {
    at = 10;
    RunStoredProcedureNoResults("sp_detach_db " + platform::SqlLiteral(name) + ",'true' ");
  });
}

void CZtSQLServer::AttachDatabase(const std::string& name, const std::vector<std::string>& files) {
  Trap at(kTypeName, "AttachDatabase");
  at.Reraising([&] {
    at = 10;
    if (files.empty())
      throw ZtError(rt::kInvalidProcedureCall, std::string(kTypeName),
                    "AttachDatabase needs at least one file of the database " + name + ".");
    std::string sql = "sp_attach_db " + platform::SqlLiteral(name);
    for (const auto& f : files) sql += "," + platform::SqlLiteral(f);
    at = 20;
    RunStoredProcedureNoResults(sql);
  });
}

std::vector<std::string> CZtSQLServer::GetOSFiles(const std::string& name) {
  Trap at(kTypeName, "GetOSFiles", "");
  at.NoStep();
  return at.Reraising([&] {
    std::vector<std::string> files;
    auto rs = Open().Execute("SELECT filename FROM " + platform::BracketName(name) +
                             ".dbo.sysfiles ORDER BY fileid");
    for (; rs && rs->State() == ado::adStateOpen && !rs->Eof(); rs->MoveNext())
      files.push_back(Trimmed(rs->Value("filename")));
    return files;
  });
}

void CZtSQLServer::SendMessage(const std::string& computer, const std::string& text) {
  Trap at(kTypeName, "SendMessage");
  at.Reraising([&] {
    at = 10;
    RequireShellSafe("The computer name", computer);
    RequireShellSafe("The message", text);
    std::string quoted = text;
    for (std::size_t i = quoted.find('\''); i != std::string::npos; i = quoted.find('\'', i + 2))
      quoted.insert(i, 1, '\'');
    at = 20;
    RunStoredProcedureNoResults("EXEC master..xp_cmdshell 'net send " + computer + " " + quoted +
                                "'");
  });
}

std::string CZtSQLServer::GetSecurityMode() {
  Trap at(kTypeName, "GetSecurityMode");
  return at.Reraising([&] {
    at = 10;
    auto rs = Open().Execute("xp_loginconfig 'login mode'");
    at = 20;
    if (!rs || rs->State() != ado::adStateOpen || rs->Eof())
      throw ZtError(hr::kFail, std::string(kTypeName),
                    "xp_loginconfig 'login mode' answered no login mode.");
    return Trimmed(rs->Value("config_value"));
  });
}

std::string CZtSQLServer::GetDBSize(const std::string& name) {
  Trap at(kTypeName, "GetDBSize");
  return at.Reraising([&] {
    at = 10;
    auto rs = Open().Execute("sp_helpdb " + platform::SqlLiteral(name));
    at = 20;
    if (!rs || rs->State() != ado::adStateOpen || rs->Eof()) return std::string{};
    return Trimmed(rs->Value("db_size"));
  });
}

bool CZtSQLServer::ValidLocalPath(const std::string& path) {
  return !path.empty() && path.rfind("\\\\", 0) != 0;
}

void CZtSQLServer::CreateTimestampField(const std::string& table, const std::string& field) {
  Trap at(kTypeName, "CreateTimestampField");
  at.Reraising([&] {
    at = 10;
    RunStoredProcedureNoResults("ALTER TABLE " + platform::BracketName(table) + " ADD " +
                                platform::BracketName(field) + " TIMESTAMP NOT NULL");
  });
}

std::string CZtSQLServer::UserRosterSql(const std::string& database, const std::string& filter) {
  std::string sql =
      std::string(
          "SELECT loginame=rtrim(loginame),hostname=rtrim(hostname),"
          "nt_username=rtrim(nt_username) ") +
      " FROM master.dbo.sysprocesses WHERE db_name(dbid)=" + platform::SqlLiteral(database) +
      " AND spid<>@@spid AND rtrim(hostname)<>''";
  if (!filter.empty()) sql += " AND " + filter;
  return sql;
}

std::vector<RosterEntry> CZtSQLServer::GetUserRoster(const std::string& database,
                                                     const std::string& filter) {
  Trap at(kTypeName, "GetUserRoster");
  return at.Reraising([&] {
    at = 10;
    const std::string sql = UserRosterSql(database, filter);
    Diagnostic(std::string(kTypeName) + ".GetUserRoster, SQL:" + sql);
    at = 20;
    std::vector<RosterEntry> roster;
    auto rs = Open().Execute(sql);
    for (; rs && rs->State() == ado::adStateOpen && !rs->Eof(); rs->MoveNext()) {
      RosterEntry entry{Trimmed(rs->Value("hostname")), Trimmed(rs->Value("nt_username"))};
      if (!entry.computer_name.empty()) roster.push_back(std::move(entry));
    }
    return roster;
  });
}

bool CZtSQLServer::FileExistsOnServer(const std::string& path) {
  Trap at(kTypeName, "FileExistsOnServer");
  return at.Returning(
      [&] {
        at = 10;
        // xp_fileexist answers "File Exists", "File is a Directory", "Parent Directory Exists".
        const Variant v =
            RunStoredProcedureOneResult("EXEC master..xp_fileexist " + platform::SqlLiteral(path));
        return !v.IsNull() && !v.IsEmpty() && v.ToText() != "0";
      },
      false);
}

std::vector<std::string> CZtSQLServer::GetDatabases() {
  Trap at(kTypeName, "GetDatabases");
  return at.Returning(
      [&] {
        at = 10;
        std::vector<std::string> names;
        auto rs = Open().Execute("EXEC master..sp_databases");
        for (; rs && rs->State() == ado::adStateOpen && !rs->Eof(); rs->MoveNext())
          names.push_back(Trimmed(rs->Fields(0).Value()));
        return names;
      },
      std::vector<std::string>{});
}

void CZtSQLServer::Prepare(const std::string& server, const std::string& sa_password) {
  Diagnostic(std::string(kTypeName) + ".InitializeForOrvane: Beginning");
  LogIn(server, kSaLogin, sa_password, kMaster);
  const std::int32_t version = GetVersion();
  if (version < kLowestSupportedVersion)
    ZtErr_RaiseFormatted(sqlserver::kVersionNotSupported, "tslSQLServerVersionNotSupportedError2",
                         std::string(kTypeName), Args({Variant(version), Variant(server)}));
  try {
    AddLogin(kApplicationLogin, sqlserver::TSL_PASSWORD());
    AddUserToSysAdmins(kApplicationLogin);
  } catch (const ZtError& e) {
    ZtErr_Raise(sqlserver::kSetPermissions, "tslSetTesselPermissionsInSQLServerError",
                " " + WithoutSecret(e.Description(), sqlserver::TSL_PASSWORD()),
                std::string(kTypeName));
  }
  const std::string mode = GetSecurityMode();
  if (!TextEquals(mode, kRequiredSecurityMode))
    ZtErr_Raise(sqlserver::kSecurityModeNotSupported, "tslSQLServerSecurityModeNotSupportedError",
                "", std::string(kTypeName));
}

void CZtSQLServer::InitializeForOrvane(const std::string& server, const std::string& sa_password) {
  Trap at(kTypeName, "InitializeForOrvane");
  at.Reraising([&] {
    at = 10;
    Prepare(server, sa_password);
  });
}

bool CZtSQLServer::InitializeForTessel(const std::string& server) {
  Trap at(kTypeName, "InitializeForTesselDlg");
  return at.Returning(
      [&] {
        at = 10;
        if (!user_interaction_) {
          Diagnostic(std::string(kTypeName) + ".InitializeForTessel: " + server +
                     " is not prepared and nobody may be asked");
          return false;
        }
        const std::string title = ZtErr_GetMessage("INIT_SQL_MSG_TITLE", "");
        const std::string provider = ZtErr_GetMessage("PROVIDER_SQL", "");
        at = 20;
        if (!CZtDialog::ZtAskYesNo(ZtErr_GetMessage("tslInitializeSqlServerErr", "") + "\n" +
                                       provider + ": " + server + "\n" +
                                       ZtErr_GetMessage("tslAskSetPropertiesSqlServer", ""),
                                   title))
          return false;
        for (;;) {
          at = 30;
          const auto password =
              CZtDialog::ZtInputBox(ZtErr_GetMessage("MSG_ENTER_SA_PASSWORD", ""), title, {}, true);
          if (!password) return false;
          at = 40;
          std::string why;
          try {
            Prepare(server, *password);
            return true;
          } catch (const ZtError& e) {
            ErrorInfo info = e.Info();
            why = info.description;
            ErrorHandler().LogError(at.LocationText(), &info, kEventWarning, kLevelError);
          }
          at = 50;
          if (!CZtDialog::ZtAskYesNo(why + "\n" + ZtErr_GetMessage("TRY_AGAIN", ""), title))
            return false;
        }
      },
      false);
}

std::string CZtSQLServer::GetSQLServersList(const std::string& domain,
                                            const std::string& separator) {
  Trap at(kTypeName, "IZtSQLSvrAdminHelper_GetSQLServersList");
  return at.Returning(
      [&] {
        at = 10;
        std::string joined;
        for (const auto& name : GetAvailableSQLServersList(domain)) {
          if (!joined.empty()) joined += separator;
          joined += name;
        }
        return joined;
      },
      std::string{});
}

std::string GetComputerNameFromInstance(const std::string& server) {
  const std::size_t slash = server.find('\\');
  return slash == std::string::npos ? server : server.substr(0, slash);
}

std::int32_t ParseSqlServerMajorVersion(const std::string& banner) {
  // Every banner from 6.5 to 2022 carries " - " and the build, "major.minor.build", after the
  // product name and its year ("Microsoft SQL Server 2019 (RTM-CU8) (KB4577194) - 15.0.4073.23
  // (X64)"), and so does Azure SQL ("Microsoft SQL Azure (RTM) - 12.0.2000.8"); the year
  // itself is not the version, and 2008 R2 is 10.50.
  static const std::regex kBuild(R"(-\s*(\d{1,3})\.(\d{1,3})\.(\d{1,6}))");
  std::smatch m;
  if (banner.find("Microsoft SQL") != std::string::npos && std::regex_search(banner, m, kBuild))
    return std::stoi(m[1]);
  std::string first_line = banner.substr(0, banner.find_first_of("\r\n"));
  if (first_line.size() > 200) first_line = first_line.substr(0, 200) + "...";
  ZtErr_RaiseFormatted(sqlserver::kVersionUnreadable, "ERR_SQLSVR_VERSION_UNREADABLE",
                       "CZtSQLServer", Args({Variant("\"" + first_line + "\"")}));
}

}  // namespace zt
