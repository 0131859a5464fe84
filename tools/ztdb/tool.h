// What the parts of ztdb share: the data store named on the command line, the output form, the
// table of commands and the tool's own errors.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "store_url.h"
#include "zt/ztdbtools.h"

namespace ztdb {

// Exit codes.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;

// A failure the tool found itself (exit 1), such as a table that does not exist.
struct ToolError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Adds the data-store options to `app` (the tool itself and every command that opens a store,
// so that each command's --help lists them).
void AddStoreOptions(CLI::App& app, StoreOptions& o);

// Provider type for a --type value: a name the library knows (jet, sqlite, sqlserver, mssql,
// oracle, mysql, mariadb, postgresql, postgres) or a number (1, 2, 4, 16, 32). UsageError
// otherwise.
std::int32_t ProviderTypeOf(const std::string& type);

// The data store described by `o`, password from the -W prompt or the environment variable
// `password_variable` ($ZTDB_PASSWORD unless a command names another one).
std::shared_ptr<zt::CZtDataStore> MakeStore(const StoreOptions& o,
                                            const char* password_variable = "ZTDB_PASSWORD");

// Whether the store is a database on a server (as opposed to a file).
bool IsServer(zt::CZtDataStore& ds);

// Where the output goes: text for people, or one JSON document with --json.
class Output {
 public:
  bool json = false;
  // A line of text; left out with --json.
  void Line(const std::string& text) const;
  // The JSON document of a read command; printed only with --json.
  void Json(const nlohmann::json& document) const;
  // Rows of text in aligned columns, the first row the headings; left out with --json.
  void Table(const std::vector<std::vector<std::string>>& rows) const;
  // Progress and notes: stderr with --json so that stdout stays one document.
  void Note(const std::string& text) const;
};

// What a command runs with.
struct Context {
  Output& out;
  std::shared_ptr<zt::CZtDataStore> store;  // made before the command runs when it opens one
};

// One subcommand: its name and help, whether it opens a data store (and so takes the store
// options), whether it only reads (and so takes --json), how it adds its own options and what
// it runs.
struct Command {
  std::string name;
  std::string help;
  bool opens_store = true;
  bool reads_only = false;
  std::function<void(CLI::App&)> options;
  std::function<int(Context&)> run;
};

// The command groups, each in a file of its own.
std::vector<Command> InfoCommands();
std::vector<Command> ChangeCommands();
std::vector<Command> SchemaCommands();
std::vector<Command> CopyCommands();
std::vector<Command> RecordsetCommands();
std::vector<Command> DefinitionCommands();

// The application's definition tables with a small help-desk set (fields of every kind, value
// tables, a table type, a saved query, two data views), for create --sample.
void AddSampleDefinitions(zt::Connection& c);

std::vector<Command> DataViewCommands();
std::vector<Command> SettingsCommands();
// tblSettings and tblCustomAction with a few settings, for create --sample.
void AddSampleSettings(zt::Connection& c);

std::vector<Command> XmlCommands();
std::vector<Command> SqlServerCommands();

// The tool's answer on a terminal (yes/no) before a destructive change on a server. Without a
// terminal there is nobody to ask and the answer is yes; --yes skips the question.
bool Confirm(const std::string& question);
// Server data stores are shared: unless `yes`, a destructive change there is confirmed on a
// terminal first (ToolError "cancelled" when refused). Files are not asked about.
void ConfirmOnServer(zt::CZtDataStore& ds, bool yes, const std::string& what);

// True when the store's schema lists a table named `table` (case aside).
bool TableExists(zt::CZtDataStore& ds, const std::string& table);

// The library's application log goes to syslog as always; the tool also keeps the last error
// entry, to show why a command failed, and with --verbose echoes warnings and errors.
class ToolLog : public zt::ApplicationLog {
 public:
  explicit ToolLog(zt::ApplicationLog& next);
  ~ToolLog() override;
  ToolLog(const ToolLog&) = delete;
  ToolLog& operator=(const ToolLog&) = delete;
  void StartLogging(const std::string& target, std::int32_t mode) override;
  void LogEvent(const std::string& text, std::int32_t event_type) override;
  const std::string& last_error() const { return last_error_; }
  bool verbose = false;

 private:
  zt::ApplicationLog& next_;
  std::string last_error_;
};

class ToolEnv : public zt::EnvWrapper {
 public:
  ToolEnv() : EnvWrapper(zt::Env::Default()), log(zt::Env::Default().AppLog()) {}
  zt::ApplicationLog& AppLog() override { return log; }
  ToolLog log;
};

// The last error entry the library logged in this run ("" when none).
std::string LastLibraryError();

// On SIGINT, SIGTERM and SIGHUP: removes the working copy of a compaction in progress, then
// stops of the same signal. Installed once at start.
void InstallCleanupHandlers();

// Writes a library error to stderr as the old tools showed it: its number in hex (0x80004005),
// its source, then the library's text.
void ReportError(const zt::ZtError& e);

}  // namespace ztdb
