// Commands that clean a table's records: dedupe (duplicates over the listed columns) and
// remove-null-records (records with Null in any listed column). Both offer --dry-run, which
// prints the statements and counts what would go with a query, and report what they deleted.
#include "recordset/record_mgr_internal.h"
#include "tool.h"
#include "zt/recordset/recordset_utils.h"

namespace ztdb {

namespace {

struct RecordsetOptions {
  bool dry_run = false;
  bool yes = false;
  std::string table;
  std::vector<std::string> columns;
};

RecordsetOptions& Opts() {
  static RecordsetOptions options;
  return options;
}

void AddOptions(CLI::App& app) {
  app.add_option("table", Opts().table, "Table name")->required();
  app.add_option("columns", Opts().columns, "Column names")->required();
  app.add_flag("-y,--yes", Opts().yes, "Do not ask before deleting on a server");
  app.add_flag("--dry-run", Opts().dry_run, "Print the statements and the count; change nothing");
}

// The names go into statements; only an existing table, and names without "]", are taken.
zt::Variant CheckedColumns(zt::CZtDataStore& ds) {
  const RecordsetOptions& o = Opts();
  if (!TableExists(ds, o.table))
    throw ToolError("there is no table '" + o.table + "' in " + ds.DataStoreName() +
                    "; nothing was deleted");
  if (o.table.find(']') != std::string::npos)
    throw ToolError("ztdb does not handle table names holding ']': " + o.table);
  std::vector<zt::Variant> names;
  for (const std::string& c : o.columns) {
    if (c.empty() || c.find(']') != std::string::npos)
      throw UsageError("'" + c + "' is not a column name ztdb can use");
    names.emplace_back(c);
  }
  return zt::Variant::Array(std::move(names));
}

std::string ColumnText() {
  std::string out;
  for (const auto& c : Opts().columns) out += (out.empty() ? "" : ", ") + c;
  return out;
}

int Dedupe(Context& cx) {
  const RecordsetOptions& o = Opts();
  zt::CZtDataStore& ds = *cx.store;
  const zt::Variant columns = CheckedColumns(ds);
  auto cn = ds.GetConnection(1);
  zt::CZtRecordMgr mgr;
  if (o.dry_run) {
    for (const auto& sql : mgr.DuplicateRemovalStatements(o.table, cn, columns))
      cx.out.Line("Would run: " + sql);
    cx.out.Line(std::to_string(mgr.CountDuplicateRecords(o.table, cn, columns)) +
                " records would be deleted from " + o.table);
    return kExitOk;
  }
  ConfirmOnServer(ds, o.yes,
                  "Delete the duplicate records of " + o.table + " over " + ColumnText());
  mgr.RemoveDuplicateRecords(o.table, cn, columns);
  cx.out.Line(std::to_string(mgr.LastRecordsDeleted()) + " records deleted from " + o.table);
  return kExitOk;
}

int RemoveNullRecords(Context& cx) {
  const RecordsetOptions& o = Opts();
  zt::CZtDataStore& ds = *cx.store;
  const zt::Variant columns = CheckedColumns(ds);
  auto cn = ds.GetConnection(1);
  if (o.dry_run) {
    cx.out.Line("Would run:" + zt::recordset::NullRecordsStatement(o.table, columns));
    auto rs = cn->Execute("SELECT COUNT(*) FROM [" + o.table + "] WHERE " +
                          zt::recordset::NullRecordsCondition(columns));
    cx.out.Line(std::to_string(rs->Eof() ? 0 : rs->Fields(0).Value().ToInt64()) +
                " records would be deleted from " + o.table);
    return kExitOk;
  }
  ConfirmOnServer(ds, o.yes, "Delete the records of " + o.table + " with Null in " + ColumnText());
  std::int64_t deleted = 0;
  zt::recordset::RemoveNullRecords(o.table, cn, columns, &deleted);
  cx.out.Line(std::to_string(deleted) + " records deleted from " + o.table);
  return kExitOk;
}

}  // namespace

std::vector<Command> RecordsetCommands() {
  return {
      {"dedupe", "Delete duplicate records (equal in all the given columns)", true, false,
       AddOptions, Dedupe},
      {"remove-null-records", "Delete the records with Null in any of the given columns", true,
       false, AddOptions, RemoveNullRecords},
  };
}

}  // namespace ztdb
