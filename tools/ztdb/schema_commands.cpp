// Commands that read and change one table's schema: columns, indexes, add-field, rename-field,
// alter-field, set-nullable, drop-field, create-index, drop-index, drop-table. They all go
// through the library's schema operations, so the tool changes a table exactly as the
// application would. Every change offers --dry-run (the statements it would send; the reads that
// plan the change still run, nothing is written) and says what it did afterwards.
#include <algorithm>
#include <cctype>
#include <map>

#include "tool.h"
#include "zt/schema/dt_mgr.h"

namespace ztdb {

namespace {

using nlohmann::json;

struct SchemaOptions {
  std::string table, field, new_name, type = "text", index;
  std::vector<std::string> columns;
  std::int32_t size = 0;
  bool not_null = false;
  bool nullable = false;
  bool no_zero_length = false;
  bool unique = false;
  bool primary = false;
  bool dry_run = false;
  bool yes = false;
};

SchemaOptions& Opts() {
  static SchemaOptions options;
  return options;
}

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// The field types by the names administrators know from the old tools, and their DAO codes.
const std::map<std::string, std::int32_t>& TypeCodes() {
  static const std::map<std::string, std::int32_t> codes = {
      {"boolean", 1},   {"bit", 1},      {"byte", 2},    {"integer", 3},     {"short", 3},
      {"long", 4},      {"currency", 5}, {"single", 6},  {"double", 7},      {"date", 8},
      {"datetime", 8},  {"text", 10},    {"binary", 11}, {"longbinary", 11}, {"memo", 12},
      {"longtext", 12}, {"guid", 15}};
  return codes;
}

std::string TypeLabel(std::int32_t dao_type) {
  static const std::map<std::int32_t, std::string> labels = {
      {1, "Boolean"}, {2, "Byte"},   {3, "Integer"},      {4, "Long"},    {5, "Currency"},
      {6, "Single"},  {7, "Double"}, {8, "Date"},         {10, "Text"},   {11, "Long binary"},
      {12, "Memo"},   {15, "GUID"},  {16, "Big integer"}, {20, "Decimal"}};
  const auto it = labels.find(dao_type);
  return it == labels.end() ? "other" : it->second;
}

// A --type value: a name above, a DAO code or one of the application's field types (101-120).
std::int32_t TypeCode(const std::string& text) {
  const auto it = TypeCodes().find(Lower(text));
  if (it != TypeCodes().end()) return it->second;
  if (!text.empty() && text.size() < 4 &&
      std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); })) {
    const int code = std::stoi(text);
    if ((code >= 1 && code <= 15) || (code >= 101 && code <= 120)) return code;
  }
  std::string names;
  for (const auto& [name, code] : TypeCodes()) names += (names.empty() ? "" : ", ") + name;
  throw UsageError("unknown field type '" + text + "'; use one of " + names +
                   ", a DAO type code or an application field type (101-120)");
}

// Names go into statements bracketed; "]" is doubled by the library, but a name the engine
// does not know is best found before anything is sent.
void RequireTable(zt::CZtDataStore& ds, const std::string& table) {
  if (!TableExists(ds, table))
    throw ToolError("there is no table '" + table + "' in " + ds.DataStoreName() +
                    "; nothing was changed");
}

void RequireField(zt::CZtDTMgr& dt, zt::CZtDataStore& ds, const std::string& table,
                  const std::string& field) {
  RequireTable(ds, table);
  if (!dt.FieldExists(ds.GetConnection(1), table, field))
    throw ToolError("table '" + table + "' has no field '" + field + "'; nothing was changed");
}

// Runs a change: in a dry run the statements are printed and nothing is written; otherwise
// the change runs and `done` is reported.
int Change(Context& cx, zt::CZtDTMgr& dt, const std::string& done,
           const std::function<void()>& change) {
  if (Opts().dry_run) {
    std::size_t count = 0;
    dt.SetDryRun([&](const std::string& sql) {
      cx.out.Line("Would run: " + sql);
      ++count;
    });
    change();
    dt.SetDryRun(nullptr);
    cx.out.Line(count == 0 ? "Nothing to change" : std::to_string(count) + " statements");
    return kExitOk;
  }
  change();
  cx.out.Line(done);
  return kExitOk;
}

std::string Nullability(bool nullable) {
  return nullable ? "NULL" : "NOT NULL";
}

// ---- columns, indexes ---------------------------------------------------------------------

int Columns(Context& cx) {
  zt::CZtDataStore& ds = *cx.store;
  RequireTable(ds, Opts().table);
  zt::CZtDTMgr dt;
  const auto fields = dt.GetAllFieldsInfo(ds.GetConnection(1), Opts().table);
  json list = json::array();
  std::vector<std::vector<std::string>> rows = {{"NAME", "TYPE", "SIZE", "NULLABLE"}};
  for (const auto& f : fields) {
    list.push_back({{"name", f.name},
                    {"type", TypeLabel(f.dao_type)},
                    {"dao_type", f.dao_type},
                    {"ado_type", f.ado_type},
                    {"size", f.size},
                    {"nullable", f.nullable}});
    rows.push_back({f.name, TypeLabel(f.dao_type), f.size > 0 ? std::to_string(f.size) : "",
                    f.nullable ? "yes" : "no"});
  }
  cx.out.Table(rows);
  cx.out.Json({{"table", Opts().table}, {"columns", list}});
  return kExitOk;
}

std::string KindLabel(std::int32_t kind) {
  return kind == zt::kIndexKindPrimaryKey ? "primary key"
         : kind == zt::kIndexKindUnique   ? "unique"
                                          : "index";
}

std::string Joined(const std::vector<std::string>& items) {
  std::string out;
  for (const auto& i : items) out += (out.empty() ? "" : ", ") + i;
  return out;
}

int Indexes(Context& cx) {
  zt::CZtDataStore& ds = *cx.store;
  RequireTable(ds, Opts().table);
  zt::CZtDTMgr dt;
  const auto indexes = dt.GetTableIndexes(ds.GetConnection(1), Opts().table);
  json list = json::array();
  std::vector<std::vector<std::string>> rows = {{"NAME", "KIND", "COLUMNS"}};
  for (const auto& i : indexes) {
    list.push_back({{"name", i.name},
                    {"kind", KindLabel(i.kind)},
                    {"unique", i.kind != zt::kIndexKindPlain},
                    {"primary_key", i.kind == zt::kIndexKindPrimaryKey},
                    {"columns", i.columns}});
    rows.push_back({i.name, KindLabel(i.kind), Joined(i.columns)});
  }
  if (indexes.empty())
    cx.out.Line(Opts().table + " has no indexes");
  else
    cx.out.Table(rows);
  cx.out.Json({{"table", Opts().table}, {"indexes", list}});
  return kExitOk;
}

// ---- field changes ------------------------------------------------------------------------

int AddField(Context& cx) {
  const SchemaOptions& o = Opts();
  const std::int32_t type = TypeCode(o.type);
  zt::CZtDataStore& ds = *cx.store;
  RequireTable(ds, o.table);
  zt::CZtDTMgr dt;
  if (dt.FieldExists(ds.GetConnection(1), o.table, o.field))
    throw ToolError("table '" + o.table + "' already has a field '" + o.field +
                    "'; nothing was changed");
  return Change(cx, dt, "Field " + o.field + " added to " + o.table, [&] {
    dt.AddFieldToTable(ds, o.table, o.field, type, o.size, !o.not_null, !o.no_zero_length);
  });
}

int RenameField(Context& cx) {
  const SchemaOptions& o = Opts();
  zt::CZtDataStore& ds = *cx.store;
  zt::CZtDTMgr dt;
  RequireField(dt, ds, o.table, o.field);
  if (Lower(o.new_name) != Lower(o.field) &&
      dt.FieldExists(ds.GetConnection(1), o.table, o.new_name))
    throw ToolError("table '" + o.table + "' already has a field '" + o.new_name +
                    "'; nothing was changed");
  return Change(cx, dt, "Field " + o.field + " renamed to " + o.new_name + " in " + o.table,
                [&] { dt.RenameField(ds, o.table, o.field, o.new_name); });
}

int AlterField(Context& cx) {
  const SchemaOptions& o = Opts();
  const std::int32_t type = TypeCode(o.type);
  zt::CZtDataStore& ds = *cx.store;
  zt::CZtDTMgr dt;
  RequireField(dt, ds, o.table, o.field);
  if (!o.dry_run) ConfirmOnServer(ds, o.yes, "Change the type of " + o.table + "." + o.field);
  return Change(cx, dt,
                "Field " + o.field + " of " + o.table + " is now " + TypeLabel(type) +
                    (type == 10 ? "(" + std::to_string(o.size) + ")" : "") + " " +
                    Nullability(!o.not_null),
                [&] { dt.AlterFieldType(ds, o.table, o.field, type, o.size, !o.not_null); });
}

int SetNullable(Context& cx) {
  const SchemaOptions& o = Opts();
  if (o.nullable == o.not_null) throw UsageError("give exactly one of --null and --not-null");
  zt::CZtDataStore& ds = *cx.store;
  zt::CZtDTMgr dt;
  RequireField(dt, ds, o.table, o.field);
  auto cn = ds.GetConnection(1);
  std::int32_t type = 0;
  for (const auto& f : dt.GetAllFieldsInfo(cn, o.table))
    if (Lower(f.name) == Lower(o.field)) type = f.dao_type;
  return Change(
      cx, dt, "Field " + o.field + " of " + o.table + " is now " + Nullability(o.nullable),
      [&] { dt.SetFieldNullability(o.nullable, ds, o.table, o.field, type, !o.no_zero_length); });
}

int DropField(Context& cx) {
  const SchemaOptions& o = Opts();
  zt::CZtDataStore& ds = *cx.store;
  zt::CZtDTMgr dt;
  RequireField(dt, ds, o.table, o.field);
  if (!o.dry_run) ConfirmOnServer(ds, o.yes, "Drop field " + o.field + " of " + o.table);
  return Change(cx, dt, "Field " + o.field + " dropped from " + o.table,
                [&] { dt.DeleteField(ds, o.table, o.field); });
}

// ---- indexes and tables -------------------------------------------------------------------

int CreateIndex(Context& cx) {
  const SchemaOptions& o = Opts();
  if (o.unique && o.primary) throw UsageError("--unique and --primary exclude each other");
  zt::CZtDataStore& ds = *cx.store;
  zt::CZtDTMgr dt;
  RequireTable(ds, o.table);
  std::vector<zt::Variant> names;
  for (const auto& c : o.columns) {
    if (!dt.FieldExists(ds.GetConnection(1), o.table, c))
      throw ToolError("table '" + o.table + "' has no field '" + c + "'; nothing was changed");
    names.emplace_back(c);
  }
  const std::int32_t kind = o.primary  ? zt::kIndexKindPrimaryKey
                            : o.unique ? zt::kIndexKindUnique
                                       : zt::kIndexKindPlain;
  return Change(
      cx, dt, KindLabel(kind) + " index on " + o.table + " (" + Joined(o.columns) + ") created",
      [&] {
        dt.CreateIndex(ds.GetConnection(1), o.table, zt::Variant::Array(names), o.index, kind);
      });
}

int DropIndex(Context& cx) {
  const SchemaOptions& o = Opts();
  zt::CZtDataStore& ds = *cx.store;
  zt::CZtDTMgr dt;
  RequireTable(ds, o.table);
  auto cn = ds.GetConnection(1);
  const auto indexes = dt.GetTableIndexes(cn, o.table);
  const auto it = std::find_if(indexes.begin(), indexes.end(),
                               [&](const zt::IndexNameInfo& i) { return i.name == o.index; });
  if (it == indexes.end())
    throw ToolError("table '" + o.table + "' has no index '" + o.index + "'; nothing was changed");
  if (!o.dry_run) ConfirmOnServer(ds, o.yes, "Drop index " + o.index + " of " + o.table);
  return Change(cx, dt, "Index " + o.index + " dropped from " + o.table,
                [&] { dt.DeleteIndex(cn, o.table, o.index, it->kind); });
}

int DropTable(Context& cx) {
  const SchemaOptions& o = Opts();
  zt::CZtDataStore& ds = *cx.store;
  RequireTable(ds, o.table);
  zt::CZtDTMgr dt;
  if (!o.dry_run) ConfirmOnServer(ds, o.yes, "Drop table " + o.table + " with all its records");
  return Change(cx, dt, "Table " + o.table + " dropped",
                [&] { dt.DeleteTable(ds.GetConnection(1), o.table); });
}

// ---- options ------------------------------------------------------------------------------

void TableArg(CLI::App& app) {
  app.add_option("table", Opts().table, "Table name")->required();
}
void FieldArg(CLI::App& app) {
  app.add_option("field", Opts().field, "Field name")->required();
}
void DryRunAndYes(CLI::App& app) {
  app.add_flag("--dry-run", Opts().dry_run, "Print the statements; change nothing");
  app.add_flag("-y,--yes", Opts().yes, "Do not ask before the change on a server");
}
void TypeOptions(CLI::App& app) {
  app.add_option("-f,--field-type", Opts().type,
                 "Field type: text, memo, long, integer, byte, boolean, currency, single, "
                 "double, date, guid, binary, or a type code")
      ->required();
  app.add_option("-s,--size", Opts().size, "Length of a text field in characters");
  app.add_flag("--not-null", Opts().not_null, "The field refuses Null");
}

}  // namespace

std::vector<Command> SchemaCommands() {
  return {
      {"columns", "List a table's fields (name, type, size, nullable)", true, true, TableArg,
       Columns},
      {"indexes", "List a table's indexes and keys", true, true, TableArg, Indexes},
      {"add-field", "Add a field to a table", true, false,
       [](CLI::App& app) {
         TableArg(app);
         FieldArg(app);
         TypeOptions(app);
         app.add_flag("--no-zero-length", Opts().no_zero_length,
                      "A text field of an SQLite file refuses empty texts");
         DryRunAndYes(app);
       },
       AddField},
      {"rename-field", "Rename a field", true, false,
       [](CLI::App& app) {
         TableArg(app);
         FieldArg(app);
         app.add_option("new-name", Opts().new_name, "New field name")->required();
         DryRunAndYes(app);
       },
       RenameField},
      {"alter-field", "Change a field's type, size and nullability, keeping values and indexes",
       true, false,
       [](CLI::App& app) {
         TableArg(app);
         FieldArg(app);
         TypeOptions(app);
         DryRunAndYes(app);
       },
       AlterField},
      {"set-nullable", "Let a field accept Null (--null) or refuse it (--not-null)", true, false,
       [](CLI::App& app) {
         TableArg(app);
         FieldArg(app);
         app.add_flag("--null", Opts().nullable, "The field accepts Null");
         app.add_flag("--not-null", Opts().not_null, "The field refuses Null");
         app.add_flag("--no-zero-length", Opts().no_zero_length,
                      "A text field of an SQLite file refuses empty texts");
         DryRunAndYes(app);
       },
       SetNullable},
      {"drop-field", "Drop a field with its indexes", true, false,
       [](CLI::App& app) {
         TableArg(app);
         FieldArg(app);
         DryRunAndYes(app);
       },
       DropField},
      {"create-index", "Create an index, unique index or primary key", true, false,
       [](CLI::App& app) {
         TableArg(app);
         app.add_option("name", Opts().index, "Index name (prefixed IN_/UN_, or PK_ + table)")
             ->required();
         app.add_option("columns", Opts().columns, "Fields of the index, in key order")->required();
         app.add_flag("--unique", Opts().unique, "A unique index");
         app.add_flag("--primary", Opts().primary, "The primary key");
         DryRunAndYes(app);
       },
       CreateIndex},
      {"drop-index", "Drop an index or key", true, false,
       [](CLI::App& app) {
         TableArg(app);
         app.add_option("name", Opts().index, "Index name as 'indexes' lists it")->required();
         DryRunAndYes(app);
       },
       DropIndex},
      {"drop-table", "Drop a table with all its records", true, false,
       [](CLI::App& app) {
         TableArg(app);
         DryRunAndYes(app);
       },
       DropTable},
  };
}

}  // namespace ztdb
