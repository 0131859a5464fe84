// Commands that only read: about, connstr, validate, version, tables.
#include <iostream>
#include <map>

#include "tool.h"

namespace ztdb {

namespace {

using nlohmann::json;

int About(Context&) {
  std::cout << zt::ProductName() << " (ztdbtools " << zt::LibraryVersion() << ")\n"
            << "One object model for the Tessel help-desk databases: data stores and their\n"
            << "connection strings, cached connections with retries, schema changes and table\n"
            << "copies on SQLite, PostgreSQL, MariaDB/MySQL, SQL Server and Oracle.\n"
            << "The embedded default engine is SQLite. Run 'ztdb --help' for the commands.\n";
  return kExitOk;
}

int ShowConnectionString(Context& cx) {
  zt::CZtDataStore& ds = *cx.store;
  json doc = {{"connection_string", ds.MaskedConnectionString()}};
  cx.out.Line("Connection string: " + ds.MaskedConnectionString());
  const std::string dao = ds.DAOConnectionString("", "");
  if (!dao.empty()) {
    doc["dao_connect_string"] = ds.MaskedConnectionString(dao);
    cx.out.Line("DAO connect string: " + ds.MaskedConnectionString(dao));
  }
  if (!IsServer(ds)) {
    doc["file"] = ds.FullPath();
    cx.out.Line("File: " + ds.FullPath());
  }
  cx.out.Json(doc);
  return kExitOk;
}

// The engine's own check of its files, where it has one that a client may run. It returns one
// row "ok" when all is well, otherwise one row per problem found.
std::string IntegrityStatement(const std::string& engine) {
  static const std::map<std::string, std::string> statements = {{"SQLite", "PRAGMA quick_check"}};
  const auto it = statements.find(engine);
  return it == statements.end() ? std::string() : it->second;
}

int Validate(Context& cx) {
  zt::CZtDataStore& ds = *cx.store;
  cx.out.Note("Opening " + ds.MaskedConnectionString() + " ...");
  if (!ds.ValidateDataStore()) {
    const std::string why = LastLibraryError();
    throw ToolError("the data store could not be opened or does not answer" +
                    (why.empty() ? "" : "\n" + why));
  }
  auto c = ds.GetConnection(1);
  json doc = {{"valid", true}, {"engine", c->Engine()}};
  const std::string check = IntegrityStatement(c->Engine());
  if (!check.empty()) {
    std::vector<std::string> problems;
    for (auto rs = c->Execute(check); !rs->Eof(); rs->MoveNext())
      problems.push_back(rs->Fields(0).Value().ToText());
    if (problems.size() != 1 || problems.front() != "ok") {
      std::string text = "the integrity check found the data store damaged:";
      for (const auto& p : problems) text += "\n  " + p;
      throw ToolError(text);
    }
    doc["integrity"] = "ok";
  }
  const std::string version = ds.TesselVersion(0);
  const std::int64_t size = ds.Size();
  doc["version"] = version;
  doc["bytes"] = size;
  cx.out.Line("Valid: " + c->Engine() + " data store" +
              (check.empty() ? "" : ", integrity check passed") +
              (version.empty() ? "" : ", application version " + version) + ", " +
              std::to_string(size) + " bytes");
  cx.out.Json(doc);
  return kExitOk;
}

int ShowVersion(Context& cx) {
  zt::CZtDataStore& ds = *cx.store;
  ds.GetConnection(1);
  const std::string version = ds.TesselVersion(0);
  if (version.empty()) throw ToolError("no application version is stored in this data store");
  cx.out.Line(version);
  cx.out.Json(
      {{"version", version}, {"major", ds.TesselVersion(2)}, {"minor", ds.TesselVersion(3)}});
  return kExitOk;
}

int ListTables(Context& cx) {
  zt::CZtDataStore& ds = *cx.store;
  auto rs = ds.GetConnection(1)->OpenSchema(zt::ado::adSchemaTables);
  json names = json::array();
  cx.out.Line("Tables of " + ds.DataStoreName() + ":");
  for (; !rs->Eof(); rs->MoveNext()) {
    if (rs->Value("TABLE_TYPE").ToText() != "TABLE") continue;
    const std::string name = rs->Value("TABLE_NAME").ToText();
    cx.out.Line("  " + name);
    names.push_back(name);
  }
  cx.out.Line(std::to_string(names.size()) + " tables");
  cx.out.Json({{"tables", names}});
  return kExitOk;
}

}  // namespace

std::vector<Command> InfoCommands() {
  return {
      {"about", "Describe the library and its engines", false, false, nullptr, About},
      {"connstr", "Show the connection strings (password masked)", true, true, nullptr,
       ShowConnectionString},
      {"validate",
       "Open the data store, check that it answers and run the engine's integrity check", true,
       true, nullptr, Validate},
      {"version", "Show the application version stored", true, true, nullptr, ShowVersion},
      {"tables", "List the tables", true, true, nullptr, ListTables},
  };
}

}  // namespace ztdb
