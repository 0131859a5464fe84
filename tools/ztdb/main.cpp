// ztdb: the administrators' command-line tool over the ZtDBTools library.
#include <CLI/CLI.hpp>
#include <iostream>

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

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"ztdb - administration tool of " + zt::ProductName()};
  app.set_version_flag("--version", "ztdb " + zt::LibraryVersion() + " (" + zt::ProductName() + ")");
  app.require_subcommand(0, 1);
  auto* about = app.add_subcommand("about", "Describe the library and its engines");
  about->callback([] { std::exit(About()); });
  CLI11_PARSE(app, argc, argv);
  if (app.get_subcommands().empty()) return About();
  return 0;
}
