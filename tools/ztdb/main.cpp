// ztdb: the administrators' command-line tool over the ZtDBTools library.
#include <termios.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

#include "zt/ztdbtools.h"

namespace {

int About() {
  std::cout << zt::ProductName() << " (ztdbtools " << zt::LibraryVersion() << ")\n"
            << "One object model for the Tessel help-desk databases: data stores and their\n"
            << "connection strings, cached connections with retries, schema changes and table\n"
            << "copies on SQLite, PostgreSQL, MariaDB/MySQL, SQL Server and Oracle.\n"
            << "The embedded default engine is SQLite. Run 'ztdb --help' for the commands.\n";
  return 0;
}

// The library's application log goes to syslog as always; the tool also keeps the last error
// entry, to show why a command failed, and with --verbose echoes warnings and errors.
class ToolLog : public zt::ApplicationLog {
 public:
  explicit ToolLog(zt::ApplicationLog& next) : next_(next) {}
  void StartLogging(const std::string& target, std::int32_t mode) override {
    next_.StartLogging(target, mode);
  }
  void LogEvent(const std::string& text, std::int32_t event_type) override {
    next_.LogEvent(text, event_type);
    if (event_type == zt::kEventError) last_error = text;
    if (verbose && event_type != zt::kEventInformation) std::cerr << text << "\n";
  }
  bool verbose = false;
  std::string last_error;

 private:
  zt::ApplicationLog& next_;
};

class ToolEnv : public zt::EnvWrapper {
 public:
  ToolEnv() : EnvWrapper(zt::Env::Default()), log(zt::Env::Default().AppLog()) {}
  zt::ApplicationLog& AppLog() override { return log; }
  ToolLog log;
};

ToolEnv* g_env = nullptr;

// The data store named on the command line. Without options it is the SQLite file
// helpdesk.db in the current folder.
struct StoreOptions {
  std::string type = "jet";
  std::string location;
  std::string name = "helpdesk.db";
  std::string user;
  std::string provider;
  std::string odbc_driver;
  std::string alt;
  int alt_op = 1;
  bool ask_password = false;
};

int ProviderTypeOf(const std::string& type) {
  if (type == "jet" || type == "sqlite" || type == "1") return zt::kProviderJet;
  if (type == "sqlserver" || type == "mssql" || type == "2") return zt::kProviderSqlServer;
  if (type == "oracle" || type == "4") return zt::kProviderOracle;
  if (type == "mysql" || type == "mariadb" || type == "16") return zt::kProviderMySql;
  throw CLI::ValidationError("--type", "unknown provider type '" + type +
                                           "' (jet, sqlserver, oracle, mysql or 1, 2, 4, 16)");
}

// Reads a password from the terminal without echoing it.
std::string PromptPassword() {
  std::FILE* tty = std::fopen("/dev/tty", "r+");
  std::FILE* in = tty ? tty : stdin;
  std::FILE* out = tty ? tty : stderr;
  std::fputs("Password: ", out);
  std::fflush(out);
  termios old{};
  const bool is_tty = tcgetattr(fileno(in), &old) == 0;
  if (is_tty) {
    termios quiet = old;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(fileno(in), TCSAFLUSH, &quiet);
  }
  std::string password;
  for (int c = std::fgetc(in); c != EOF && c != '\n'; c = std::fgetc(in))
    password += static_cast<char>(c);
  if (is_tty) tcsetattr(fileno(in), TCSAFLUSH, &old);
  std::fputs("\n", out);
  if (tty) std::fclose(tty);
  return password;
}

std::shared_ptr<zt::CZtDataStore> MakeStore(const StoreOptions& o) {
  auto ds = std::make_shared<zt::CZtDataStore>();
  ds->GeneralProviderType(ProviderTypeOf(o.type));
  std::string location = o.location;
  if (location.empty() && ds->GeneralProviderType() == zt::kProviderJet)
    location = std::filesystem::current_path().string();
  ds->Location(location);
  ds->DataStoreName(o.name);
  ds->UserName(o.user);
  if (!o.provider.empty()) ds->Provider(o.provider);
  if (!o.odbc_driver.empty()) ds->ODBCDriver(o.odbc_driver);
  if (!o.alt.empty()) {
    ds->AltConnString(o.alt);
    ds->AltConnStringOperation(o.alt_op);
  }
  // The password comes from the prompt or from the environment, never from the command line,
  // where every user of the machine could read it.
  if (o.ask_password)
    ds->Password(PromptPassword());
  else if (const char* p = std::getenv("ZTDB_PASSWORD"))
    ds->Password(p);
  return ds;
}

// Prints the error that a library call raised and gives the exit code.
int Fail(const zt::ZtError& e) {
  std::cerr << "ztdb: error " << e.Number() << " (" << e.Source() << "): " << e.Description()
            << "\n";
  return 1;
}

std::string Masked(zt::CZtDataStore& ds) {
  return ds.MaskedConnectionString();
}

int ShowConnectionString(zt::CZtDataStore& ds) {
  std::cout << "Connection string: " << Masked(ds) << "\n";
  std::string dao = ds.DAOConnectionString("", "");
  if (!dao.empty()) std::cout << "DAO connect string: " << ds.MaskedConnectionString(dao) << "\n";
  if (ds.GeneralProviderType() == zt::kProviderJet) std::cout << "File: " << ds.FullPath() << "\n";
  return 0;
}

int Validate(zt::CZtDataStore& ds) {
  std::cout << "Opening " << Masked(ds) << " ..." << std::endl;
  if (!ds.ValidateDataStore()) {
    std::cerr << "ztdb: the data store could not be opened or does not answer\n";
    if (g_env && !g_env->log.last_error.empty()) std::cerr << g_env->log.last_error << "\n";
    return 1;
  }
  auto c = ds.GetConnection(1);
  std::cout << "Valid: " << c->Engine() << " data store";
  std::string version = ds.TesselVersion(0);
  if (!version.empty()) std::cout << ", application version " << version;
  std::cout << ", " << ds.Size() << " bytes\n";
  return 0;
}

int ShowVersion(zt::CZtDataStore& ds) {
  ds.GetConnection(1);
  std::string version = ds.TesselVersion(0);
  if (version.empty()) {
    std::cerr << "ztdb: no application version is stored in this data store\n";
    return 1;
  }
  std::cout << version << "\n";
  return 0;
}

int SetVersion(zt::CZtDataStore& ds, const std::string& major, const std::string& minor) {
  if (!ds.SetTesselVersion(major, minor)) {
    std::cerr << "ztdb: tblTesselVersion is missing in " << ds.DataStoreName() << "\n";
    return 1;
  }
  std::cout << "Application version set to " << ds.TesselVersion(0) << "\n";
  return 0;
}

int ListTables(zt::CZtDataStore& ds) {
  auto c = ds.GetConnection(1);
  auto rs = c->OpenSchema(zt::ado::adSchemaTables);
  int count = 0;
  std::cout << "Tables of " << ds.DataStoreName() << ":\n";
  for (; !rs->Eof(); rs->MoveNext()) {
    if (rs->Value("TABLE_TYPE").ToText() != "TABLE") continue;
    std::cout << "  " << rs->Value("TABLE_NAME").ToText() << "\n";
    ++count;
  }
  std::cout << count << " tables\n";
  return 0;
}

int DeleteRecords(zt::CZtDataStore& ds, const std::string& table, const std::string& where) {
  std::cout << "Deleting records from " << table << (where.empty() ? "" : " where " + where)
            << " ..." << std::endl;
  std::int64_t n = ds.DeleteTableRecords(table, where);
  std::cout << n << " records deleted from " << table << "\n";
  return 0;
}

int Compact(zt::CZtDataStore& ds) {
  if (ds.GeneralProviderType() != zt::kProviderJet) {
    std::cout << "A server database manages its own files; nothing to compact.\n";
    return 0;
  }
  std::int64_t before = ds.Size();
  std::cout << "Compacting " << ds.FullPath() << " (" << before << " bytes) ..." << std::endl;
  ds.Compact();
  std::cout << "Compacted: " << before << " -> " << ds.Size() << " bytes\n";
  return 0;
}

// An SQLite data store with the application's version table and a small ticket table, for
// trying the other commands.
int Create(zt::CZtDataStore& ds, bool sample) {
  std::cout << "Creating "
            << (ds.GeneralProviderType() == zt::kProviderJet ? ds.FullPath() : ds.DataStoreName())
            << " ..." << std::endl;
  ds.CreatePhysicalDataStore();
  if (sample) {
    auto c = ds.GetConnection(1);
    c->Execute("CREATE TABLE [tblTesselVersion] ([tMajor] TEXT(10), [tMinor] TEXT(10))");
    c->Execute("INSERT INTO [tblTesselVersion] ([tMajor], [tMinor]) VALUES ('7', '6')");
    c->Execute(
        "CREATE TABLE [tblTickets] ([nId] LONG PRIMARY KEY, [tTitle] TEXT(100), [fClosed] BIT)");
    for (int i = 1; i <= 20; ++i)
      c->Execute("INSERT INTO [tblTickets] ([nId], [tTitle], [fClosed]) VALUES (" +
                 std::to_string(i) + ", 'Ticket " + std::to_string(i) + "', " +
                 (i % 3 == 0 ? "-1" : "0") + ")");
    std::cout << "Sample tables tblTesselVersion (7.6) and tblTickets (20 rows) created\n";
  }
  std::cout << "Created\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"ztdb - administration tool of " + zt::ProductName()};
  app.set_version_flag("--version",
                       "ztdb " + zt::LibraryVersion() + " (" + zt::ProductName() + ")");
  app.require_subcommand(0, 1);
  app.fallthrough();  // data-store options may follow the command as well
  app.footer(
      "The data store is given by the options above; without them it is the SQLite file\n"
      "helpdesk.db in the current folder. The password is read from $ZTDB_PASSWORD or, with\n"
      "--ask-password, from the terminal without echo.");

  StoreOptions o;
  app.add_option("-t,--type", o.type, "Provider type: jet (SQLite file), sqlserver, oracle, mysql")
      ->capture_default_str();
  app.add_option("-l,--location", o.location,
                 "Folder of the file, or server (host or host,port); default: current folder");
  app.add_option("-n,--name", o.name, "File name, or database name")->capture_default_str();
  app.add_option("-u,--user", o.user, "Login name");
  app.add_option("--provider", o.provider, "OLE DB provider name (e.g. PostgreSQL)");
  app.add_option("--odbc-driver", o.odbc_driver, "ODBC driver name (e.g. \"MariaDB Unicode\")");
  app.add_option("--alt", o.alt, "Alternative connection string text");
  app.add_option("--alt-op", o.alt_op, "1 append the alternative text, 2 replace, 4 ignore")
      ->capture_default_str();
  app.add_flag("-W,--ask-password", o.ask_password, "Ask for the password (no echo)");
  bool verbose = false;
  app.add_flag("-v,--verbose", verbose, "Show the library's warnings and errors");

  auto* about = app.add_subcommand("about", "Describe the library and its engines");
  auto* connstr = app.add_subcommand("connstr", "Show the connection strings (password masked)");
  auto* validate = app.add_subcommand("validate", "Open the data store and check that it answers");
  auto* version = app.add_subcommand("version", "Show the application version stored");
  auto* set_version = app.add_subcommand("set-version", "Set the application version");
  std::string major, minor;
  set_version->add_option("major", major, "Major version")->required();
  set_version->add_option("minor", minor, "Minor version")->required();
  auto* tables = app.add_subcommand("tables", "List the tables");
  auto* delete_records = app.add_subcommand("delete-records", "Delete a table's records");
  std::string table, where;
  delete_records->add_option("table", table, "Table name")->required();
  delete_records->add_option("-w,--where", where, "Condition (SQL) of the records to delete");
  auto* compact = app.add_subcommand("compact", "Compact an SQLite data store");
  auto* create = app.add_subcommand("create", "Create the data store (file or database)");
  bool sample = false;
  create->add_flag("--sample", sample, "Add a version table and sample tickets (SQLite)");

  CLI11_PARSE(app, argc, argv);
  if (app.get_subcommands().empty() || about->parsed()) return About();

  ToolEnv env;
  zt::ScopedEnv scope(env);
  env.log.verbose = verbose;
  g_env = &env;
  try {
    auto ds = MakeStore(o);
    if (connstr->parsed()) return ShowConnectionString(*ds);
    if (validate->parsed()) return Validate(*ds);
    if (version->parsed()) return ShowVersion(*ds);
    if (set_version->parsed()) return SetVersion(*ds, major, minor);
    if (tables->parsed()) return ListTables(*ds);
    if (delete_records->parsed()) return DeleteRecords(*ds, table, where);
    if (compact->parsed()) return Compact(*ds);
    if (create->parsed()) return Create(*ds, sample);
  } catch (const zt::ZtError& e) {
    return Fail(e);
  } catch (const CLI::Error& e) {
    return app.exit(e);
  }
  return 0;
}
