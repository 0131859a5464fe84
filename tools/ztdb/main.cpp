// ztdb: the administrators' command-line tool over the ZtDBTools library. This file only wires:
// the data-store options, the output form and the command table; the commands live in their
// groups' files.
#include <iostream>

#include "tool.h"

namespace {

int Fail(const zt::ZtError& e) {
  ztdb::ReportError(e);
  return ztdb::kExitFailed;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"ztdb - administration tool of " + zt::ProductName()};
  app.set_version_flag("--version",
                       "ztdb " + zt::LibraryVersion() + " (" + zt::ProductName() + ")");
  app.require_subcommand(0, 1);
  app.fallthrough();  // data-store options may come before the command as well
  app.footer(
      "Without data-store options the data store is the SQLite file helpdesk.db in the current\n"
      "folder. The password is read from $ZTDB_PASSWORD or, with -W, from the terminal without\n"
      "echo. Exit status: 0 done, 1 failed, 2 wrong usage. 'ztdb COMMAND --help' for a command.");

  ztdb::StoreOptions store;
  ztdb::Output out;
  bool verbose = false;
  ztdb::AddStoreOptions(app, store);
  app.add_flag("-v,--verbose", verbose, "Show the library's warnings and errors");

  std::vector<ztdb::Command> commands = ztdb::InfoCommands();
  for (auto& c : ztdb::ChangeCommands()) commands.push_back(std::move(c));
  for (auto& c : ztdb::SchemaCommands()) commands.push_back(std::move(c));
  for (auto& c : ztdb::CopyCommands()) commands.push_back(std::move(c));
  for (auto& c : ztdb::RecordsetCommands()) commands.push_back(std::move(c));
  for (auto& c : ztdb::DefinitionCommands()) commands.push_back(std::move(c));
  for (auto& c : ztdb::DataViewCommands()) commands.push_back(std::move(c));
  for (auto& c : ztdb::SettingsCommands()) commands.push_back(std::move(c));
  for (auto& c : ztdb::XmlCommands()) commands.push_back(std::move(c));
  for (auto& c : ztdb::SqlServerCommands()) commands.push_back(std::move(c));
  std::vector<CLI::App*> subs;
  for (const auto& c : commands) {
    CLI::App* sub = app.add_subcommand(c.name, c.help);
    if (c.opens_store) ztdb::AddStoreOptions(*sub, store);
    if (c.reads_only) sub->add_flag("--json", out.json, "Print one JSON document");
    if (c.options) c.options(*sub);
    subs.push_back(sub);
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int code = app.exit(e);
    return code == 0 ? ztdb::kExitOk : ztdb::kExitUsage;
  }
  std::size_t chosen = 0;
  while (chosen < subs.size() && !subs[chosen]->parsed()) ++chosen;
  if (chosen == subs.size()) {
    std::cerr << app.help();
    return ztdb::kExitUsage;
  }
  const ztdb::Command& command = commands[chosen];

  ztdb::ToolEnv env;
  zt::ScopedEnv scope(env);
  env.log.verbose = verbose;
  ztdb::InstallCleanupHandlers();
  try {
    ztdb::Context cx{out, nullptr};
    if (command.opens_store) cx.store = ztdb::MakeStore(store);
    return command.run(cx);
  } catch (const ztdb::UsageError& e) {
    std::cerr << "ztdb " << command.name << ": " << e.what() << "\n";
    return ztdb::kExitUsage;
  } catch (const ztdb::ToolError& e) {
    std::cerr << "ztdb " << command.name << ": " << e.what() << "\n";
    return ztdb::kExitFailed;
  } catch (const zt::ZtError& e) {
    return Fail(e);
  } catch (const std::exception& e) {
    std::cerr << "ztdb " << command.name << ": " << e.what() << "\n";
    return ztdb::kExitFailed;
  }
}
