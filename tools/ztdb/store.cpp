// The data store named on the command line: options, password, and the checks made
// before anything in it is changed.
#include <termios.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "tool.h"

namespace ztdb {

namespace fs = std::filesystem;

void AddStoreOptions(CLI::App& app, StoreOptions& o) {
  const std::string group = "Data store";
  app.add_option("-S,--store", o.url,
                 "The data store as one URL: sqlite:///folder/file.db, "
                 "postgresql://user@host:port/db, mysql://user@host:port/db, "
                 "sqlserver://user@host:port/db")
      ->group(group);
  app.add_option("-t,--type", o.type,
                 "Provider type: jet (SQLite file, default), sqlserver, oracle, mysql, "
                 "postgresql (or 1, 2, 4, 16, 32)")
      ->group(group);
  app.add_option("-l,--location", o.location,
                 "Folder of the file, or server (host or host,port); default: current folder")
      ->group(group);
  app.add_option("-n,--name", o.name, "File name (default helpdesk.db) or database name")
      ->group(group);
  app.add_option("-u,--user", o.user, "Login name")->group(group);
  app.add_option("--provider", o.provider, "OLE DB provider name (e.g. PostgreSQL)")->group(group);
  app.add_option("--odbc-driver", o.odbc_driver, "ODBC driver name (e.g. \"MariaDB Unicode\")")
      ->group(group);
  app.add_option("--alt", o.alt, "Alternative connection string text")->group(group);
  app.add_option("--alt-op", o.alt_op,
                 "1 append the alternative text (default), 2 replace, 4 ignore")
      ->check(CLI::IsMember({zt::kAltConnAppend, zt::kAltConnReplace, zt::kAltConnIgnore}))
      ->group(group);
  app.add_flag("-W,--ask-password", o.ask_password,
               "Ask for the password (no echo); otherwise $ZTDB_PASSWORD is used")
      ->group(group);
}

std::int32_t ProviderTypeOf(const std::string& type) {
  // The library owns the names of its provider types; the tool adds none of its own.
  const std::int32_t provider_type = zt::ProviderTypeFromName(type);
  if (provider_type == 0)
    throw UsageError("unknown provider type '" + type +
                     "' (jet, sqlserver, oracle, mysql, postgresql or 1, 2, 4, 16, 32)");
  return provider_type;
}

namespace {

// The working folder, which may have been deleted under the tool's feet.
std::string CurrentFolder() {
  std::error_code ec;
  fs::path here = fs::current_path(ec);
  if (ec)
    throw ToolError("the current folder cannot be read (" + ec.message() +
                    "); give the data store's folder with -l");
  return here.string();
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

}  // namespace

namespace {

// The library's default driver name is the one the old Windows machines had ("MySQL ODBC 5.3
// ANSI Driver"); a Linux machine registers MariaDB's Connector/ODBC under its own name. Without
// --odbc-driver the default stays when it is installed, else the first registered driver whose
// name holds one of `families` (a Unicode one first), so that a mysql:// URL works as written.
std::string InstalledDriverFor(const std::string& preferred,
                               std::initializer_list<const char*> families) {
  const auto installed = zt::CZtProvider::InstalledProviders();
  std::string found;
  for (const auto& d : installed) {
    if (d.name == preferred) return preferred;
    for (const char* f : families)
      if (d.name.find(f) != std::string::npos &&
          (found.empty() || (d.name.find("Unicode") != std::string::npos &&
                             found.find("Unicode") == std::string::npos)))
        found = d.name;
  }
  return found.empty() ? preferred : found;
}

}  // namespace

std::shared_ptr<zt::CZtDataStore> MakeStore(const StoreOptions& given,
                                            const char* password_variable) {
  StoreOptions o = given;
  if (!o.url.empty()) {
    if (given.type != StoreOptions{}.type || !given.location.empty() ||
        given.name != StoreOptions{}.name || !given.user.empty())
      throw UsageError("give the data store either as --store URL or with -t/-l/-n/-u");
    ApplyStoreUrl(o.url, o);
  }
  auto ds = std::make_shared<zt::CZtDataStore>();
  ds->GeneralProviderType(ProviderTypeOf(o.type));
  if (ds->GeneralProviderType() == zt::kProviderJet) {
    const fs::path name(o.name);
    if (name.is_absolute()) {
      // A full path is the file itself, never a name inside the folder.
      if (!o.location.empty() && fs::path(o.location) != name.parent_path())
        throw UsageError("-n " + o.name + " is a full path; leave out -l " + o.location);
      o.location = name.parent_path().string();
      o.name = name.filename().string();
    }
    if (o.name.empty()) throw UsageError("the data store needs a file name (-n)");
    if (o.location.empty()) o.location = CurrentFolder();
  }
  ds->Location(o.location);
  ds->DataStoreName(o.name);
  ds->UserName(o.user);
  if (!o.provider.empty()) ds->Provider(o.provider);
  if (!o.odbc_driver.empty())
    ds->ODBCDriver(o.odbc_driver);
  else if (ds->GeneralProviderType() == zt::kProviderMySql)
    ds->ODBCDriver(InstalledDriverFor(ds->ODBCDriver(), {"MariaDB", "MySQL"}));
  if (!o.alt.empty()) {
    ds->AltConnString(o.alt);
    ds->AltConnStringOperation(o.alt_op);
  }
  // The password comes from the prompt or from the environment, never from the command line,
  // where every user of the machine could read it.
  if (o.ask_password)
    ds->Password(PromptPassword());
  else if (const char* p = std::getenv(password_variable))
    ds->Password(p);
  return ds;
}

bool IsServer(zt::CZtDataStore& ds) {
  return ds.GeneralProviderType() != zt::kProviderJet;
}

bool Confirm(const std::string& question) {
  if (!::isatty(STDIN_FILENO)) return true;
  std::FILE* tty = std::fopen("/dev/tty", "r+");
  if (!tty) return true;
  std::fputs((question + " [y/N] ").c_str(), tty);
  std::fflush(tty);
  std::string answer;
  for (int c = std::fgetc(tty); c != EOF && c != '\n'; c = std::fgetc(tty))
    answer += static_cast<char>(c);
  std::fclose(tty);
  return answer == "y" || answer == "Y" || answer == "yes";
}

bool TableExists(zt::CZtDataStore& ds, const std::string& table) {
  // Engines look names up ignoring case (PostgreSQL folds them), so the name the library is
  // handed finds the table listed here under any case; which one of several it takes is the
  // library's decision.
  const auto lower = [](std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
  };
  const std::string wanted = lower(table);
  auto rs = ds.GetConnection(1)->OpenSchema(zt::ado::adSchemaTables);
  for (; !rs->Eof(); rs->MoveNext())
    if (rs->Value("TABLE_TYPE").ToText() == "TABLE" &&
        lower(rs->Value("TABLE_NAME").ToText()) == wanted)
      return true;
  return false;
}

}  // namespace ztdb
