// CZtDataStore: the live side. The cached connection, its opening with retries, the
// application's version stamp, and the operations on the physical database as a whole.
#include <algorithm>
#include <filesystem>
#include <string>

#include "datastore/provider_types.h"
#include "datastore/sqlite_file.h"
#include "foundation/paths.h"
#include "platform/dialect.h"
#include "platform/driver.h"
#include "platform/sql_text.h"
#include "zt/config.h"
#include "zt/datastore.h"
#include "zt/env.h"
#include "zt/error.h"
#include "zt/error_handling.h"
#include "zt/event_logger.h"
#include "zt/platform.h"
#include "zt/platform/dao.h"
#include "zt/schema/dt_mgr.h"
#include "zt/text/compare.h"
#include "zt/text/strings.h"
#include "zt/trap.h"

namespace fs = std::filesystem;

namespace zt {

namespace {

constexpr std::string_view kTypeName = "CZtDataStore";
constexpr std::string_view kVersionTable = "tblTesselVersion";
constexpr std::int32_t kOpenStep = 20;
// Numbers of the data store's own move errors (vbObjectError + n).
constexpr std::int32_t kSourceSameAsTarget = 9031;
constexpr std::int32_t kFilesNotOnServer = 9032;
constexpr std::int32_t kNotAvailable = 9033;

void Diagnostic(const std::string& text) {
  ZtLog_LogEvent(std::string(kTypeName) + text, nullptr, kEventInformation, kLevelDiagnostic);
}

// A retry warning carries the error's values in its text, in the same shape as the logger's
// error entries, so that it stays a warning (an entry that carries an error object is always
// written as an error).
void RetryWarning(const std::string& location, const ErrorInfo& e) {
  ZtLog_LogEvent(location + "\t" + ErrorEventText(e.number, e.source, e.description), nullptr,
                 kEventWarning, kLevelPropertyDiagnostic);
}

bool IsOpen(const std::shared_ptr<Connection>& c) {
  return c && c->State() == ado::adStateOpen;
}

std::string Bracketed(const std::string& name) {
  return ZtStrMan_AddBrackets(name);
}

}  // namespace

void CZtDataStore::DataStoreConnection(std::shared_ptr<Connection> connection) {
  connection_ = std::move(connection);
}

void CZtDataStore::DataStoreDAOConnection(std::shared_ptr<dao::Database> database) {
  dao_ = std::move(database);
  attributes_ |= kAttrDaoSupplied;
}

const ds::ProviderTypeRow& CZtDataStore::Row() const {
  return ds::RequireProviderType(provider_type_, kTypeName);
}

bool CZtDataStore::IsFileStore() const {
  const ds::ProviderTypeRow* row = ds::FindProviderType(provider_type_);
  return row && row->is_file;
}

std::string CZtDataStore::OpenConnectionString() const {
  return IsOpen(connection_) ? connection_->ConnectionString() : std::string{};
}

std::string CZtDataStore::MaskedConnectionString(const std::string& connection_string) {
  return MaskPasswords(connection_string.empty() ? ConnectionString() : connection_string,
                       password_);
}

std::shared_ptr<Connection> CZtDataStore::GetConnection(std::int32_t mode) {
  Trap at(kTypeName, "GetConnection");
  return at.Reraising([&] {
    at = 10;
    if (mode == 1) {
      if (!IsOpen(connection_)) OpenDataStore();
    } else if (mode == 2) {
      at = 20;
      if (!connection_) {
        OpenDataStore();
      } else {
        at = 30;
        if (connection_->State() != ado::adStateClosed) connection_->Close();
        // An empty string reopens with the connection's own stored string, so a connection
        // the caller handed in keeps its own settings.
        ZtConnOpen(*connection_, "", "", "", -1, -1, -1);
      }
    }
    return connection_;
  });
}

bool CZtDataStore::OpenDataStore(const std::string& user_name, const std::string& password) {
  Trap at(kTypeName, "OpenDataStore");
  return at.Reraising([&] {
    at = 10;
    if (IsOpen(connection_)) connection_->Close();
    if (!connection_) connection_ = std::make_shared<Connection>();
    at = 20;
    const std::string cs = ConnectionString();
    at = 30;
    ZtConnOpen(*connection_, cs, user_name, password, -1, -1, -1);
    at = 40;
    ZtLog_LogEvent("Data Store succesfully open with parameters: " + MaskedConnectionString(cs),
                   nullptr, kEventInformation, kLevelDiagnostic);
    return true;
  });
}

void CZtDataStore::ZtConnOpen(Connection& connection, const std::string& connection_string,
                              const std::string& user, const std::string& password,
                              std::int32_t options, std::int32_t max_retries,
                              std::int32_t retry_interval) {
  if (max_retries == -1) max_retries = max_retries_;
  if (retry_interval == -1) retry_interval = retry_interval_;
  // The engine behind a Jet store would create a missing file as an empty database, where Jet
  // failed; an administrator who points a store at the wrong folder must hear so, and no stray
  // file may appear there. A missing file is no transient state, so it is not retried.
  if (IsFileStore()) {
    const std::string& used =
        connection_string.empty() ? connection.ConnectionString() : connection_string;
    // The path as the connection will read it: a folder holding ";" arrives quoted.
    std::string path;
    try {
      path = platform::FindKey(platform::SplitConnectionString(used), "Data Source").value_or("");
    } catch (const ZtError&) {
      // a string the layer cannot read fails in Open below, with the layer's own error
    }
    if (!path.empty() && !Env::Current().FileExists(path))
      throw ZtError(rt::kFileNotFound, std::string(kTypeName), "File not found: " + path);
  }
  connection.SetProviderTable(ConfiguredProviderTable());
  std::int32_t attempt = 0;
  for (;;) {
    ErrorInfo failure;
    try {
      connection.Open(connection_string, user, password, options);
      // SQLite opens a file lazily: a locked or damaged file would only show at the first
      // statement, outside this loop. Reading the schema once makes the opening itself meet
      // the lock, so it is retried like a busy Jet file was.
      if (const std::string probe = connection.Dialect().OpenProbe(); !probe.empty()) {
        try {
          connection.Execute(probe);
        } catch (...) {
          connection.Close();
          throw;
        }
      }
      return;
    } catch (...) {  // the retry loop handles the failure itself
      failure = ToErrorInfo(std::current_exception());
    }
    Err() = failure;
    RetryWarning(std::string(kTypeName) + ".ZtConnOpen, Retry:" + std::to_string(attempt) +
                     ", Line#" + std::to_string(kOpenStep),
                 failure);
    if (!IsRetryOnError(failure.number)) throw ZtError(failure);
    // Whether a provider type is retried at all is its row's rule (SQL Server: never).
    const ds::ProviderTypeRow* row = ds::FindProviderType(provider_type_);
    if ((row && !row->retried) || attempt >= max_retries) {
      Trap at(kTypeName, "ZtConnOpen", ", Line#");
      at = kOpenStep;
      at.Reraising([&] { throw ZtError(failure); });
    }
    ++attempt;
    // The old wait was Int(Rnd + 1) * RetryInterval, which is always RetryInterval.
    Env::Current().SleepForMilliseconds(retry_interval);
  }
}

bool CZtDataStore::IsRetryOnError(std::int32_t number) {
  ErrorSnapshot saved;
  saved.Capture(Err());
  bool retry = false;
  try {
    if (!retry_errors_read_) {
      retry_errors_ = SplitText(LoadConfigResString(503), ";");
      retry_errors_read_ = true;
    }
    const std::string text = std::to_string(number);
    retry = std::find(retry_errors_.begin(), retry_errors_.end(), text) != retry_errors_.end();
  } catch (...) {
    retry = false;  // an unreadable list retries nothing
  }
  saved.Restore(Err());
  return retry;
}

bool CZtDataStore::ValidateDataStore() {
  Trap at(kTypeName, "ValidateDataStore");
  return at.Returning(
      [&] {
        at = 10;
        // A Jet store must name an existing database file: opening would otherwise create an
        // empty one, and an administrator validating a path does not expect a new file.
        if (IsFileStore()) {
          std::string why;
          if (!ds::IsDatabaseFile(FullPath(), &why))
            throw ZtError(rt::kFileNotFound, std::string(kTypeName), why);
        }
        at = 20;
        auto c = GetConnection(1);
        at = 30;
        return c && c->IsAlive();
      },
      false);
}

std::shared_ptr<dao::Database> CZtDataStore::OpenDAODataStore() {
  Trap at(kTypeName, "OpenDAODataStore");
  return at.Reraising([&]() -> std::shared_ptr<dao::Database> {
    at = 10;
    if (dao_) return dao_;
    if (!Row().is_file) ds::RaiseProviderNotSupported(provider_type_, kTypeName);
    at = 20;
    dao_ = dao::Database::OpenDatabase(FullPath());
    return dao_;
  });
}

// A database is created and dropped from a connection to the server itself: the definition
// without its database name.
std::shared_ptr<Connection> CZtDataStore::OpenServerConnection() {
  const std::string name = name_;
  name_ = platform::DialectFor(Row().engine).MaintenanceDatabase();
  std::string cs;
  try {
    cs = ConnectionString();
  } catch (...) {
    name_ = name;
    throw;
  }
  name_ = name;
  auto server = std::make_shared<Connection>();
  ZtConnOpen(*server, cs, "", "", -1, -1, -1);
  return server;
}

void CZtDataStore::CreatePhysicalDataStore() {
  Trap at(kTypeName, "CreatePhysicalDataStore");
  at.Reraising([&] {
    at = 10;
    const ds::ProviderTypeRow& row = Row();
    if (row.is_file) {
      const std::string path = FullPath();
      Env& env = Env::Current();
      const bool existed = env.PathInUse(path);
      try {
        ds::CreateSqliteFile(path);
      } catch (...) {
        // A create that failed half-way leaves no file behind; one that was there stays.
        if (!existed) {
          env.RemoveFile(path);
          for (const auto& companion : ds::CompanionFiles(path)) env.RemoveFile(companion);
        }
        throw;
      }
      Diagnostic(".CreatePhysicalDataStore, File created: " + path);
      return;
    }
    at = 20;
    const std::string sql = platform::DialectFor(row.engine).CreateDatabase(name_);
    if (sql.empty()) ds::RaiseProviderNotSupported(provider_type_, kTypeName);
    auto server = OpenServerConnection();
    at = 30;
    server->Execute(sql);
    server->Close();
    Diagnostic(".CreatePhysicalDataStore, Database created: " + name_);
  });
}

void CZtDataStore::DeletePhysicalDataStore() {
  Trap at(kTypeName, "DeletePhysicalDataStore");
  at.Reraising([&] {
    at = 10;
    const ds::ProviderTypeRow& row = Row();
    CloseConnections();
    if (row.is_file) {
      at = 20;
      ds::DeleteSqliteFile(FullPath(), [](const std::string& path) {
        ZtLog_LogEvent("File deleted: " + path, nullptr, kEventInformation, kLevelDiagnostic);
      });
      return;
    }
    at = 30;
    const std::string sql = platform::DialectFor(row.engine).DropDatabase(name_);
    if (sql.empty()) ds::RaiseProviderNotSupported(provider_type_, kTypeName);
    auto server = OpenServerConnection();
    at = 40;
    server->Execute(sql);
    server->Close();
    Diagnostic(".DeletePhysicalDataStore, Database deleted: " + name_);
  });
}

bool CZtDataStore::IsReplica() {
  // Jet replication has no counterpart on these engines; no data store is a replica.
  return false;
}

std::int64_t CZtDataStore::DeleteTableRecords(const std::string& table, const std::string& where) {
  Trap at(kTypeName, "DeleteTableRecords");
  return at.Reraising([&] {
    at = 10;
    // The name goes in as one bracketed name ("]" doubled), so that no name can end early and
    // turn its rest into SQL ("x] --" would otherwise comment out the WHERE clause).
    const std::string target = "DELETE FROM " + platform::BracketName(table);
    std::string sql = target + " ";
    if (!where.empty()) sql = target + " WHERE " + where;
    at = 20;
    std::int64_t affected = 0;
    GetConnection(1)->Execute(sql, &affected);
    at = 30;
    ZtLog_LogEvent(std::to_string(affected) + " records deleted from " + table, nullptr,
                   kEventInformation, kLevelDiagnostic);
    return affected;
  });
}

void CZtDataStore::AddFieldToTable(const std::string& table, const std::string& field,
                                   std::int32_t field_type, std::int32_t size) {
  Trap at(kTypeName, "AddFieldToTable");
  at.Reraising([&] {
    at = 10;
    // A field added here is optional and may hold an empty text, as a new field in the
    // application's tables always was; a field that is there already is left alone.
    CZtDTMgr().AddFieldToTable(*this, table, field, field_type, size, true, true);
  });
}

void CZtDataStore::DeleteFieldFromTable(const std::string& table, const std::string& field) {
  Trap at(kTypeName, "DeleteFieldFromTable");
  at.Reraising([&] {
    at = 10;
    ZtLog_LogEvent("DeleteFieldFromTable, Field:" + field, nullptr, kEventInformation,
                   kLevelDiagnostic);
    at = 20;
    CZtDTMgr().DeleteField(*this, table, field);
  });
}

void CZtDataStore::DeleteTable(const std::string& table) {
  Trap at(kTypeName, "DeleteTable");
  at.Reraising([&] {
    at = 10;
    GetConnection(1)->Execute("DROP TABLE " + platform::BracketName(table));
    at = 20;
    ZtLog_LogEvent("Table [" + table + "] deleted.", nullptr, kEventInformation, kLevelDiagnostic);
  });
}

void CZtDataStore::MovePhysicalDataStore(const std::string& new_location) {
  Trap at(kTypeName, "MovePhysicalDataStore");
  at.Reraising([&] {
    at = 10;
    if (!Row().is_file) {
      // A server keeps its database files itself; moving them is the server administrator's
      // work (detach and attach), not something a client can do over a connection.
      VariantArray args;
      args.items = {Variant(name_), Variant(location_)};
      ZtErr_RaiseFormatted(kFilesNotOnServer, "tslDBFilesNotOnServerError2", std::string(kTypeName),
                           args);
    }
    at = 20;
    const fs::path from = fs::path(FullPath());
    const fs::path to = fs::path(JoinPath(new_location, name_));
    // Links and "." or ".." are resolved before the comparison; a path that cannot be resolved
    // is compared as written (two failures must not look like one and the same file).
    auto resolved = [](const fs::path& p) {
      std::error_code failed;
      fs::path r = fs::weakly_canonical(p, failed);
      return failed ? fs::absolute(p, failed).lexically_normal() : r;
    };
    if (resolved(from) == resolved(to)) {
      VariantArray args;
      args.items = {Variant(to.string())};
      ZtErr_RaiseFormatted(kSourceSameAsTarget, "ERR_SOURCE_SAME_AS_TARGET", std::string(kTypeName),
                           args);
    }
    at = 30;
    Env& env = Env::Current();
    if (env.PathInUse(to.string()))
      throw ZtError(58, std::string(kTypeName), "File already exists: " + to.string());
    CloseConnections();
    at = 40;
    if (env.RenameFile(from.string(), to.string())) {
      // Another file system: copy, then remove the original only once the copy is complete.
      // Until the original is gone the store stays where it was; whatever of the copy exists
      // then is removed again (nothing was at `to` before).
      const auto failed = [&](const fs::path& culprit) {
        env.RemoveFile(to.string());
        throw ZtError(rt::kPathFileAccess, std::string(kTypeName),
                      "Path/File access error: " + culprit.string());
      };
      if (env.CopyFile(from.string(), to.string())) failed(to);
      if (env.RemoveFile(from.string())) failed(from);
    }
    at = 50;
    Location(new_location);
    Diagnostic(".MovePhysicalDataStore, File moved: " + from.string() + " -> " + to.string());
  });
}

std::string CZtDataStore::TesselVersion(std::int32_t format) {
  Trap at(kTypeName, "TesselVersion");
  return at.Returning(
      [&] {
        at = 10;
        auto rs = GetConnection(1)->Execute("SELECT * FROM " + std::string(kVersionTable));
        at = 20;
        if (!rs || rs->State() != ado::adStateOpen || rs->Eof()) return std::string{};
        const std::string major = rs->Value("tMajor").ToText();
        const std::string minor = rs->Value("tMinor").ToText();
        rs->Close();
        if (format == 2) return major;
        if (format == 3) return minor;
        return major + "." + minor;
      },
      std::string{});
}

bool CZtDataStore::SetTesselVersion(const std::string& major, const std::string& minor) {
  Trap at(kTypeName, "SetTesselVersion");
  return at.Reraising([&] {
    at = 10;
    auto c = GetConnection(1);
    VariantArray restrictions;
    restrictions.items = {Variant(), Variant(), Variant(std::string(kVersionTable))};
    auto tables = c->OpenSchema(ado::adSchemaTables, Variant(restrictions));
    const bool exists = tables && !tables->Eof();
    if (tables) tables->Close();
    if (!exists) {
      at = 20;
      ZtLog_LogEvent(std::string(kTypeName) + ".SetTesselVersion - " + std::string(kVersionTable) +
                         " is missing in " + name_,
                     nullptr, kEventWarning, kLevelError);
      return false;
    }
    at = 30;
    // No blank before SET: the bracket ends the name, and log readers match this exact text.
    // The values are quoted the SQL way; a version never holds a quote, so the text is the
    // same as it always was.
    c->Execute("UPDATE " + Bracketed(std::string(kVersionTable)) + "SET tMajor='" +
               ZtStrMan_EscapeQuotes(Variant(major)) + "', tMinor='" +
               ZtStrMan_EscapeQuotes(Variant(minor)) + "'");
    return true;
  });
}

std::int64_t CZtDataStore::Size() {
  Trap at(kTypeName, "Size");
  return at.Returning(
      [&]() -> std::int64_t {
        at = 10;
        if (Row().is_file) return ds::SqliteFileSize(FullPath());
        at = 20;
        auto c = GetConnection(1);
        const std::string sql = c->Dialect().SizeQuery();
        if (sql.empty()) return 0;  // the engine does not tell a client
        at = 30;
        auto rs = c->Execute(sql);
        if (!rs || rs->Eof()) return 0;
        Variant v = rs->Fields(0).Value();
        return v.IsNull() ? 0 : v.ToInt64();
      },
      std::int64_t{0});
}

void CZtDataStore::Compact() {
  Trap at(kTypeName, "Compact");
  at.Reraising([&] {
    at = 10;
    if (!Row().is_file) {
      // Server engines reclaim space themselves; there is nothing for a client to compact. A
      // server that cannot be reached is still a failure: the caller must not read "done".
      auto c = GetConnection(1);
      if (!c || !c->IsAlive())
        throw ZtError(ZtErr_ObjectErrorNumber(kNotAvailable), std::string(kTypeName),
                      "The data store " + name_ + " on " + location_ + " cannot be reached.");
      return;
    }
    CloseConnections();
    at = 20;
    const std::string temp = ds::CompactSqliteFile(FullPath());
    Diagnostic(".Compact, compacted through " + temp + ": " + FullPath());
  });
}

void CZtDataStore::CloseConnections() {
  Trap at(kTypeName, "CloseConnections");
  at.Returning([&] {
    at = 10;
    if (connection_ && connection_->State() != ado::adStateClosed) connection_->Close();
    at = 20;
    if (dao_) dao_->Close();
    dao_.reset();
    attributes_ &= ~kAttrDaoSupplied;
  });
}

std::string CZtDataStore::GetLinkedTableName(const std::string& table) {
  Trap at(kTypeName, "GetLinkedTableName");
  return at.Returning(
      [&] {
        at = 10;
        const ds::ProviderTypeRow* row = ds::FindProviderType(provider_type_);
        if (row && row->linked_user_table && TextEquals(table, LoadConfigResString(10403)))
          return LoadConfigResString(10402);
        return table;
      },
      std::string{});
}

void CZtDataStore::Initialize(const std::string& param) {
  Trap at(kTypeName, "Initialize");
  at.Reraising([&] {
    at = 10;
    auto get = [&](const char* name) {
      return ZtStrMan_GetProperty_FromString(param, name, ";", "=");
    };
    Diagnostic(".Initialize, Param:" + MaskPasswords(param, get("Password")));
    at = 20;
    const std::string type_text = get("ProviderType");
    std::int32_t type = provider_type_;
    if (!type_text.empty()) type = Variant(type_text).ToInt32();
    if (!ds::FindProviderType(type)) ds::RaiseProviderNotSupported(type, kTypeName);
    at = 30;
    // Everything is read before anything is changed, so a bad value leaves the definition as
    // it was.
    const std::string store_type = get("Type");
    const std::int32_t store_type_value =
        store_type.empty() ? type_ : Variant(store_type).ToInt32();
    const std::string alt_op = get("AltConnStringOperation");
    const std::int32_t alt_op_value = alt_op.empty() ? alt_op_ : Variant(alt_op).ToInt32();
    provider_type_ = type;
    type_ = store_type_value;
    alt_op_ = alt_op_value;
    auto set = [&](const char* name, std::string& field, bool location = false) {
      std::string v = get(name);
      if (v.empty()) return;
      if (location)
        Location(v);
      else
        field = v;
    };
    set("Location", location_, true);
    set("Name", name_);
    set("User", user_);
    set("Password", password_);
    set("Provider", provider_);
    set("ODBCDriver", odbc_driver_);
    set("SystemDB", system_db_);
    set("AltConnString", alt_conn_);
  });
}

std::vector<RosterEntry> CZtDataStore::RemoveSameEntries(std::vector<RosterEntry> entries) {
  std::vector<RosterEntry> out;
  for (auto& e : entries)
    if (std::find(out.begin(), out.end(), e) == out.end()) out.push_back(std::move(e));
  return out;
}

std::vector<RosterEntry> CZtDataStore::GetUserRoster(const std::vector<RosterEntry>& exclude) {
  Trap at(kTypeName, "GetUserRoster");
  return at.Returning(
      [&] {
        at = 10;
        std::string filter;
        for (const auto& e : exclude) {
          if (!filter.empty()) filter += " AND ";
          filter +=
              " [COMPUTER_NAME]='" + e.computer_name + "' AND [LOGIN_NAME]='" + e.login_name + "' ";
        }
        Diagnostic(".GetUserRoster Exclude:" + filter);
        std::vector<RosterEntry> rows;
        // A file has no server that could tell who has it open.
        if (Row().is_file) return rows;
        at = 20;
        auto c = GetConnection(1);
        // The roster answers "who else is in this database": the engine's list leaves the data
        // store's own session out. An engine without such a list has nobody to show.
        const std::string sql = c->Dialect().RosterQuery();
        if (sql.empty()) return rows;
        at = 30;
        auto rs = c->Execute(sql);
        while (rs && rs->State() == ado::adStateOpen && !rs->Eof()) {
          RosterEntry e{
              TrimSpaces(rs->Fields(0).Value().IsNull() ? "" : rs->Fields(0).Value().ToText()),
              TrimSpaces(rs->Fields(1).Value().IsNull() ? "" : rs->Fields(1).Value().ToText())};
          if (std::find(exclude.begin(), exclude.end(), e) == exclude.end()) rows.push_back(e);
          rs->MoveNext();
        }
        return RemoveSameEntries(std::move(rows));
      },
      std::vector<RosterEntry>{});
}

}  // namespace zt
