// ztdb sqlserver: preparing and administering a SQL Server for the application. Every
// subcommand can show with --dry-run the T-SQL it would send: the same library code runs
// against a recording stand-in for the server, so what is shown is what would be sent.
#include <cstdlib>
#include <iostream>

#include "sqlserver/sql_server_internal.h"
#include "tool.h"
#include "zt/platform/scripted_driver.h"

namespace ztdb {

namespace {

using nlohmann::json;

struct SqlServerOptions {
  std::string server;
  std::string login = zt::CZtSQLServer::kSaLogin;
  std::string password_variable = "ZTDB_PASSWORD";
  int timeout = -1;  // login time-out in seconds; < 0: the configured one
  bool dry_run = false;
  bool yes = false;
  std::string name;                // LOGIN or DB
  std::vector<std::string> files;  // attach
  std::string file;                // create-db
  std::string logical;
  int size = 0;
  int max_size = 0;
  int growth = 0;
  std::string filter;                // roster
  std::vector<std::string> targets;  // list-servers
  std::int64_t wait_ms = -1;
  std::string chosen;  // the subcommand given
};

SqlServerOptions& Opts() {
  static SqlServerOptions options;
  return options;
}

// What a dry run shows instead of a password.
constexpr const char* kHidden = "********";

std::string Hidden(std::string text, const std::vector<std::string>& secrets) {
  for (const auto& s : secrets) {
    if (s.empty()) continue;
    for (std::size_t at = text.find(s); at != std::string::npos; at = text.find(s, at + 1))
      text.replace(at, s.size(), kHidden);
  }
  return text;
}

// A password from the environment variable, else asked on the terminal without echo; never
// from the command line, where every user of the machine could read it.
std::string Password(const std::string& variable, const std::string& question) {
  if (const char* p = std::getenv(variable.c_str())) return p;
  const auto answer = zt::CZtDialog::ZtInputBox(question, "", {}, true);
  if (!answer)
    throw ToolError("no password: set $" + variable + " or run the command on a terminal");
  return *answer;
}

void ConfirmDestructive(const std::string& what) {
  if (Opts().yes || Opts().dry_run) return;
  if (!Confirm(what + " on " + Opts().server + "?")) throw ToolError("cancelled");
}

// Runs `work` on a logged-in CZtSQLServer: for real, or with --dry-run against a stand-in that
// records the statements (and answers the few questions the preparation asks as a supported
// server would), which are then printed with every password hidden.
int WithServer(Context& cx, bool needs_password, const std::function<void(zt::CZtSQLServer&)>& work,
               const std::vector<std::string>& secrets = {}) {
  zt::CZtSQLServer sql;
  if (Opts().timeout >= 0) sql.LoginTimeout(Opts().timeout);
  if (!Opts().dry_run) {
    const std::string password =
        needs_password ? Password(Opts().password_variable,
                                  "Password of " + Opts().login + " on " + Opts().server + ":")
                       : std::string{};
    sql.LogIn(Opts().server, Opts().login, password, "master");
    work(sql);
    return kExitOk;
  }
  auto script = std::make_shared<zt::platform::DriverScript>();
  script
      ->On("SELECT @@version", zt::platform::ScriptedAnswer::Rows(
                                   {""}, {{"Microsoft SQL Server 2022 (RTM) - 16.0.1000.6 (X64)"}}))
      .On("xp_loginconfig", zt::platform::ScriptedAnswer::Rows({"config_value"}, {{"Mixed"}}));
  zt::platform::ScopedScriptedProvider stand_in(zt::LoadConfigResString(10452), script);
  sql.LogIn(Opts().server, Opts().login, {}, "master");
  std::string failure;
  try {
    work(sql);
  } catch (const zt::ZtError& e) {
    // The rest depends on what the server would answer (the local path of a share ...).
    failure = e.Description();
  }
  std::vector<std::string> all = secrets;
  all.push_back(zt::sqlserver::TSL_PASSWORD());
  for (const auto& statement : script->Statements()) std::cout << Hidden(statement, all) << "\n";
  if (!failure.empty()) cx.out.Note("-- stops here without the server's answer: " + failure);
  return kExitOk;
}

int Check(Context& cx) {
  return WithServer(cx, true, [&](zt::CZtSQLServer& sql) {
    const std::string banner = sql.RunStoredProcedureOneResult("SELECT @@version").ToText();
    const std::int32_t major = zt::ParseSqlServerMajorVersion(banner);
    const std::string mode = sql.GetSecurityMode();
    if (Opts().dry_run) return;
    const bool version_ok = major >= zt::CZtSQLServer::kLowestSupportedVersion;
    const bool mode_ok = zt::TextEquals(mode, "Mixed");
    cx.out.Table({{"Check", "Value", "Supported"},
                  {"Version", std::to_string(major), version_ok ? "yes" : "no"},
                  {"Security mode", mode, mode_ok ? "yes" : "no"}});
    cx.out.Json({{"server", Opts().server},
                 {"version", major},
                 {"banner", banner.substr(0, banner.find('\n'))},
                 {"security_mode", mode},
                 {"supported", version_ok && mode_ok}});
    if (!version_ok || !mode_ok) throw ToolError("the server cannot be used by the application");
  });
}

int Init(Context& cx) {
  if (Opts().dry_run)
    return WithServer(cx, false,
                      [&](zt::CZtSQLServer& sql) { sql.InitializeForOrvane(Opts().server, {}); });
  zt::CZtSQLServer sql;
  if (Opts().timeout >= 0) sql.LoginTimeout(Opts().timeout);
  if (const char* p = std::getenv(Opts().password_variable.c_str())) {
    sql.InitializeForOrvane(Opts().server, p);
  } else {
    // The library's own dialog: it explains, asks for the "sa" password and offers another try.
    sql.UserInteraction(true);
    if (!sql.InitializeForTessel(Opts().server))
      throw ToolError("the server was not prepared" +
                      (LastLibraryError().empty() ? "" : ": " + LastLibraryError()));
  }
  cx.out.Line("The SQL Server " + Opts().server + " is prepared for the application.");
  return kExitOk;
}

int AddLogin(Context& cx) {
  const std::string password =
      Opts().dry_run
          ? std::string(kHidden)
          : Password("ZTDB_LOGIN_PASSWORD", "Password for the login " + Opts().name + ":");
  return WithServer(cx, true,
                    [&](zt::CZtSQLServer& sql) {
                      sql.AddLogin(Opts().name, password);
                      if (!Opts().dry_run) cx.out.Line("Login " + Opts().name + " added.");
                    },
                    {password});
}

// One statement-sending subcommand: `what` is asked about first when `destructive`.
std::function<int(Context&)> Simple(std::function<void(zt::CZtSQLServer&)> work,
                                    std::function<std::string()> done,
                                    std::function<std::string()> destructive = nullptr) {
  return [=](Context& cx) {
    if (destructive) ConfirmDestructive(destructive());
    return WithServer(cx, true, [&](zt::CZtSQLServer& sql) {
      work(sql);
      if (!Opts().dry_run) cx.out.Line(done());
    });
  };
}

int Files(Context& cx) {
  return WithServer(cx, true, [&](zt::CZtSQLServer& sql) {
    const auto files = sql.GetOSFiles(Opts().name);
    if (Opts().dry_run) return;
    for (const auto& f : files) cx.out.Line(f);
    cx.out.Json(files);
  });
}

int Size(Context& cx) {
  return WithServer(cx, true, [&](zt::CZtSQLServer& sql) {
    const std::string size = sql.GetDBSize(Opts().name);
    if (Opts().dry_run) return;
    cx.out.Line(size);
    cx.out.Json({{"database", Opts().name}, {"size", size}});
  });
}

int Roster(Context& cx) {
  return WithServer(cx, true, [&](zt::CZtSQLServer& sql) {
    const auto roster = sql.GetUserRoster(Opts().name, Opts().filter);
    if (Opts().dry_run) return;
    std::vector<std::vector<std::string>> rows = {{"Computer", "Login"}};
    json doc = json::array();
    for (const auto& e : roster) {
      rows.push_back({e.computer_name, e.login_name});
      doc.push_back({{"computer", e.computer_name}, {"login", e.login_name}});
    }
    cx.out.Table(rows);
    cx.out.Json(doc);
  });
}

int ListServers(Context& cx) {
  zt::SqlBrowserQuery query{Opts().targets, Opts().wait_ms};
  if (Opts().dry_run) {
    // No T-SQL: one datagram to UDP port 1434 of each target.
    const std::string targets = query.targets.empty() ? zt::LoadConfigResString(10470) : [&] {
      std::string t;
      for (const auto& x : query.targets) t += (t.empty() ? "" : ",") + x;
      return t;
    }();
    cx.out.Line("-- SQL Server Browser request to " + targets);
    return kExitOk;
  }
  const auto found = zt::DiscoverSqlServers(query);
  std::vector<std::vector<std::string>> rows = {{"Server", "Version", "TCP port", "Address"}};
  json doc = json::array();
  for (const auto& i : found) {
    rows.push_back({i.ConnectName(), i.version, i.tcp_port, i.peer});
    doc.push_back({{"name", i.ConnectName()},
                   {"server", i.server_name},
                   {"instance", i.instance_name},
                   {"version", i.version},
                   {"tcp_port", i.tcp_port},
                   {"clustered", i.clustered},
                   {"address", i.peer}});
  }
  if (found.empty())
    cx.out.Note("No SQL Server answered.");
  else
    cx.out.Table(rows);
  cx.out.Json(doc);
  return kExitOk;
}

struct Sub {
  const char* name;
  const char* help;
  std::function<void(CLI::App&)> options;
  std::function<int(Context&)> run;
};

std::vector<Sub> Subcommands() {
  auto& o = Opts();
  const auto name = [&o](const char* what) {
    return [&o, what](CLI::App& a) { a.add_option(what, o.name, what)->required(); };
  };
  return {
      {"check", "Show the server's version and security mode and whether both are supported",
       nullptr, Check},
      {"init",
       "Prepare the server for the application: application login, its rights, the checks. "
       "The sa password comes from $ZTDB_PASSWORD or is asked on the terminal",
       nullptr, Init},
      {"add-login",
       "Add a login (kept when it exists) and set its password from "
       "$ZTDB_LOGIN_PASSWORD or the terminal",
       name("LOGIN"), AddLogin},
      {"drop-login", "Remove a login", name("LOGIN"),
       Simple([&o](zt::CZtSQLServer& s) { s.DropLogin(o.name); },
              [&o] { return "Login " + o.name + " removed."; },
              [&o] { return "Remove the login " + o.name; })},
      {"create-db", "Create a database with one data file",
       [&o](CLI::App& a) {
         a.add_option("DB", o.name, "Database name")->required();
         a.add_option("--file", o.file,
                      "Data file as the server sees it (D:\\Data\\x.mdf) or a "
                      "share of the server (\\\\server\\share\\x.mdf)")
             ->required();
         a.add_option("--logical", o.logical, "Logical file name (default: DB_dat)");
         a.add_option("--size", o.size, "Size in MB (0: the server's default)");
         a.add_option("--maxsize", o.max_size, "Maximum size in MB (0: no limit)");
         a.add_option("--growth", o.growth, "Growth in % (0: the server's default)");
       },
       Simple(
           [&o](zt::CZtSQLServer& s) {
             s.CreateSimpleDatabase(o.name, o.logical.empty() ? o.name + "_dat" : o.logical, o.file,
                                    o.size, o.max_size, o.growth);
           },
           [&o] { return "Database " + o.name + " created."; })},
      {"drop-db", "Drop a database with its files", name("DB"),
       Simple([&o](zt::CZtSQLServer& s) { s.DropDatabase(o.name); },
              [&o] { return "Database " + o.name + " dropped."; },
              [&o] { return "Drop the database " + o.name + " with all its data"; })},
      {"detach", "Detach a database from the server (its files stay)", name("DB"),
       Simple([&o](zt::CZtSQLServer& s) { s.DetachDatabase(o.name); },
              [&o] { return "Database " + o.name + " detached."; },
              [&o] { return "Detach the database " + o.name; })},
      {"attach", "Attach a database from its files, the primary data file first",
       [&o](CLI::App& a) {
         a.add_option("DB", o.name, "Database name")->required();
         a.add_option("FILES", o.files, "Files as the server sees them")->required();
       },
       Simple([&o](zt::CZtSQLServer& s) { s.AttachDatabase(o.name, o.files); },
              [&o] { return "Database " + o.name + " attached."; })},
      {"files", "List a database's files in file order", name("DB"), Files},
      {"size", "Show a database's size", name("DB"), Size},
      {"roster", "List the users connected to a database",
       [&o](CLI::App& a) {
         a.add_option("DB", o.name, "Database name")->required();
         a.add_option("--filter", o.filter, "A further condition on master.dbo.sysprocesses");
       },
       Roster},
      {"list-servers", "List the SQL Servers that answer on the network",
       [&o](CLI::App& a) {
         a.add_option("--target", o.targets,
                      "Host or host:port to ask (repeatable; default from .zt.config key 10470, "
                      "the local broadcast)");
         a.add_option("--wait", o.wait_ms,
                      "Milliseconds to wait for answers (default from .zt.config key 10471)");
       },
       ListServers},
  };
}

}  // namespace

std::vector<Command> SqlServerCommands() {
  Command c;
  c.name = "sqlserver";
  c.help = "Prepare and administer a SQL Server for the application";
  c.opens_store = false;
  c.reads_only = true;
  c.options = [](CLI::App& app) {
    auto& o = Opts();
    app.require_subcommand(1, 1);
    app.fallthrough();
    app.add_option("-s,--server", o.server, "The server: host, host,port or host\\instance");
    app.add_option("-u,--login", o.login, "Login name (default sa)");
    app.add_option("--password-env", o.password_variable,
                   "Environment variable holding the login's password (default ZTDB_PASSWORD); "
                   "without it the password is asked on the terminal");
    app.add_option("--timeout", o.timeout, "Login time-out in seconds");
    app.add_flag("--dry-run", o.dry_run, "Print the T-SQL instead of sending it");
    app.add_flag("-y,--yes", o.yes, "Do not ask before dropping or detaching");
    // The tool's footer speaks of data stores; a server group takes none.
    static const char* const kFooter =
        "Server options (-s/--server, -u/--login, --password-env, --timeout, --dry-run, --yes):\n"
        "see 'ztdb sqlserver --help'; they may stand before or after the subcommand. Passwords\n"
        "come from the environment or the terminal, never from the command line.\n"
        "Exit status: 0 done, 1 failed, 2 wrong usage.";
    app.footer(kFooter);
    for (auto& s : Subcommands()) {
      CLI::App* sub = app.add_subcommand(s.name, s.help);
      sub->footer(kFooter);
      sub->fallthrough();
      if (s.options) s.options(*sub);
      sub->callback([name = std::string(s.name)] { Opts().chosen = name; });
    }
  };
  c.run = [](Context& cx) {
    for (auto& s : Subcommands())
      if (Opts().chosen == s.name) {
        if (Opts().chosen != "list-servers" && Opts().server.empty())
          throw UsageError("give the server with -s/--server");
        return s.run(cx);
      }
    throw UsageError("give a subcommand: check, init, add-login, ...");
  };
  return {c};
}

}  // namespace ztdb
