// Commands that change a data store: set-version, delete-records, compact, create. Each offers
// --dry-run (say what would be done, change nothing) and reports what it did.
#include <algorithm>
#include <cctype>
#include <iostream>

#include "tool.h"

namespace ztdb {

namespace {

struct ChangeOptions {
  bool dry_run = false;
  bool yes = false;
  std::string major, minor;  // set-version
  std::string table, where;  // delete-records
  bool all = false;
  bool sample = false;  // create
};

ChangeOptions& Opts() {
  static ChangeOptions options;
  return options;
}

void AddDryRun(CLI::App& app) {
  app.add_flag("--dry-run", Opts().dry_run, "Print what would be done; change nothing");
}

bool IsBlank(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](unsigned char c) { return std::isspace(c) != 0; });
}

// ---- set-version ------------------------------------------------------------------------

constexpr const char* kVersionTable = "tblTesselVersion";

// A version part goes into the statement as a quoted literal, so it is held to what version
// numbers are made of.
void CheckVersionPart(const std::string& what, const std::string& part) {
  if (IsBlank(part)) throw UsageError("the " + what + " version must not be empty");
  const bool plain = std::all_of(part.begin(), part.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '.' || c == '-' || c == '_';
  });
  if (!plain)
    throw UsageError("the " + what + " version '" + part +
                     "' may hold only letters, digits, '.', '-' and '_'");
}

int SetVersion(Context& cx) {
  const ChangeOptions& o = Opts();
  CheckVersionPart("major", o.major);
  CheckVersionPart("minor", o.minor);
  zt::CZtDataStore& ds = *cx.store;
  if (!TableExists(ds, kVersionTable))
    throw ToolError(std::string(kVersionTable) + " is missing in " + ds.DataStoreName());
  const std::string before = ds.TesselVersion(0);
  // An empty table has no row to update: the UPDATE would change nothing and report success.
  if (before.empty())
    throw ToolError(std::string(kVersionTable) + " in " + ds.DataStoreName() +
                    " holds no version row; nothing was changed");
  const std::string wanted = o.major + "." + o.minor;
  if (o.dry_run) {
    cx.out.Line("Would run: UPDATE [" + std::string(kVersionTable) + "]SET tMajor='" + o.major +
                "', tMinor='" + o.minor + "'");
    cx.out.Line("Would set the application version from " + before + " to " + wanted);
    return kExitOk;
  }
  if (!ds.SetTesselVersion(o.major, o.minor))
    throw ToolError(std::string(kVersionTable) + " is missing in " + ds.DataStoreName());
  const std::string after = ds.TesselVersion(0);
  if (after != wanted)
    throw ToolError("the application version reads " + after + " after setting " + wanted);
  cx.out.Line("Application version set to " + after + " (was " + before + ")");
  return kExitOk;
}

// ---- delete-records ---------------------------------------------------------------------

int DeleteRecords(Context& cx) {
  const ChangeOptions& o = Opts();
  const bool blank = IsBlank(o.where);
  if (blank && !o.all)
    throw UsageError("refusing to delete every record of " + o.table +
                     ": give a condition with --where, or --all to empty the table");
  if (!blank && o.all) throw UsageError("--all and --where exclude each other");
  zt::CZtDataStore& ds = *cx.store;
  // The name goes into the statement; only a table that exists under exactly this name is
  // touched, so no name can change what the statement does.
  if (!TableExists(ds, o.table))
    throw ToolError("there is no table '" + o.table + "' in " + ds.DataStoreName() +
                    "; nothing was deleted");
  if (o.table.find(']') != std::string::npos)
    throw ToolError("ztdb does not handle table names holding ']': " + o.table);
  const std::string condition = blank ? "" : " WHERE " + o.where;
  if (o.dry_run) {
    std::int64_t count = 0;
    auto rs = ds.GetConnection(1)->Execute("SELECT COUNT(*) FROM [" + o.table + "]" + condition);
    if (!rs->Eof()) count = rs->Fields(0).Value().ToInt64();
    cx.out.Line("Would run: DELETE FROM [" + o.table + "]" + (blank ? " " : condition));
    cx.out.Line(std::to_string(count) + " records would be deleted from " + o.table);
    return kExitOk;
  }
  ConfirmOnServer(ds, o.yes,
                  "Delete " + std::string(blank ? "all records" : "the records") + " of " +
                      o.table + (blank ? "" : " where " + o.where));
  cx.out.Line("Deleting records from " + o.table + (blank ? "" : " where " + o.where) + " ...");
  const std::int64_t n = ds.DeleteTableRecords(o.table, blank ? "" : o.where);
  cx.out.Line(std::to_string(n) + " records deleted from " + o.table);
  return kExitOk;
}

// ---- compact ----------------------------------------------------------------------------

int Compact(Context& cx) {
  zt::CZtDataStore& ds = *cx.store;
  if (IsServer(ds)) {
    // Reaching the server is still the test of a usable data store.
    ds.GetConnection(1);
    cx.out.Line("A server database manages its own files; nothing to compact.");
    return kExitOk;
  }
  const std::int64_t before = ds.Size();
  if (Opts().dry_run) {
    cx.out.Line("Would compact " + ds.FullPath() + " (" + std::to_string(before) + " bytes)");
    return kExitOk;
  }
  cx.out.Line("Compacting " + ds.FullPath() + " (" + std::to_string(before) + " bytes) ...");
  ds.Compact();
  cx.out.Line("Compacted: " + std::to_string(before) + " -> " + std::to_string(ds.Size()) +
              " bytes");
  return kExitOk;
}

// ---- create -----------------------------------------------------------------------------

// The application's version table and a small ticket table, for trying the other commands.
// Column types come from the engine, so the same sample is made on every engine.
void AddSample(zt::Connection& c) {
  const std::string text10 = c.ColumnType(10, 10);
  c.Execute("CREATE TABLE [tblTesselVersion] ([tMajor] " + text10 + ", [tMinor] " + text10 + ")");
  c.Execute("INSERT INTO [tblTesselVersion] ([tMajor], [tMinor]) VALUES ('7', '6')");
  c.Execute("CREATE TABLE [tblTickets] ([nId] " + c.ColumnType(4) + " NOT NULL PRIMARY KEY, " +
            "[tTitle] " + c.ColumnType(10, 100) + ", [fClosed] " + c.ColumnType(1) + ")");
  // Values go in as parameters: each engine stores a Boolean its own way.
  zt::PreparedStatement insert(c,
                               "INSERT INTO [tblTickets] ([nId], [tTitle], [fClosed]) "
                               "VALUES (?, ?, ?)");
  for (std::int32_t i = 1; i <= 20; ++i) {
    insert.Bind(0, zt::Variant(i));
    insert.Bind(1, zt::Variant("Ticket " + std::to_string(i)));
    insert.Bind(2, zt::Variant(i % 3 == 0));
    insert.Execute();
  }
  AddSampleDefinitions(c);
}

int Create(Context& cx) {
  zt::CZtDataStore& ds = *cx.store;
  const std::string target = IsServer(ds) ? ds.DataStoreName() : ds.FullPath();
  if (Opts().dry_run) {
    cx.out.Line("Would create " + target +
                (Opts().sample ? " with the sample tables tblTesselVersion, tblTickets and the "
                                 "definition tables"
                               : ""));
    return kExitOk;
  }
  cx.out.Line("Creating " + target + " ...");
  ds.CreatePhysicalDataStore();
  if (Opts().sample) {
    try {
      AddSample(*ds.GetConnection(1));
    } catch (...) {
      // Half a sample is worse than none: what this command created goes again.
      try {
        ds.DeletePhysicalDataStore();
      } catch (const zt::ZtError& e) {
        std::cerr << "ztdb: " << target
                  << " was created but could not be removed again: " << e.Description() << "\n";
      }
      throw;
    }
    cx.out.Line("Sample tables tblTesselVersion (7.6) and tblTickets (20 rows) created");
    cx.out.Line(
        "Definition tables tblDtsFields (12 fields), tblPriority, tblStatus, tblCategory, "
        "tblUser, tblTableTypes, tblQueries, tblQueryStructure (1 query), tblDataView (2 "
        "views), tblSettings (4 settings) and tblCustomAction created");
  }
  cx.out.Line("Created");
  return kExitOk;
}

}  // namespace

void ConfirmOnServer(zt::CZtDataStore& ds, bool yes, const std::string& what) {
  if (!IsServer(ds) || yes) return;
  if (!Confirm(what + " in " + ds.DataStoreName() + " on " + ds.Location() + "?"))
    throw ToolError("cancelled; nothing was changed");
}

std::vector<Command> ChangeCommands() {
  return {
      {"set-version", "Set the application version", true, false,
       [](CLI::App& app) {
         app.add_option("major", Opts().major, "Major version")->required();
         app.add_option("minor", Opts().minor, "Minor version")->required();
         AddDryRun(app);
       },
       SetVersion},
      {"delete-records", "Delete a table's records", true, false,
       [](CLI::App& app) {
         app.add_option("table", Opts().table, "Table name")->required();
         app.add_option("-w,--where", Opts().where, "Condition (SQL) of the records to delete");
         app.add_flag("--all", Opts().all, "Delete every record (instead of --where)");
         app.add_flag("-y,--yes", Opts().yes, "Do not ask before deleting on a server");
         AddDryRun(app);
       },
       DeleteRecords},
      {"compact", "Compact an SQLite data store", true, false, AddDryRun, Compact},
      {"create", "Create the data store (file or database)", true, false,
       [](CLI::App& app) {
         app.add_flag("--sample", Opts().sample,
                      "Add a version table, 20 sample tickets and the definition tables");
         AddDryRun(app);
       },
       Create},
  };
}

}  // namespace ztdb
