// Commands over a data store that holds the application's definition tables: fields, choices,
// upgrade-definitions; and the sample definitions that `create --sample` adds.
#include <algorithm>
#include <iostream>

#include "tool.h"
#include "zt/definitions/field_collection.h"

namespace ztdb {

namespace {

using nlohmann::json;

constexpr const char* kFieldsTable = "tblDtsFields";

struct DefinitionOptions {
  std::string table;           // fields --table
  std::int32_t data_view = 0;  // fields --dataview
  std::int32_t field_id = 0;   // choices
  bool dry_run = false;        // upgrade-definitions
  bool yes = false;
};

DefinitionOptions& Opts() {
  static DefinitionOptions options;
  return options;
}

// Every field definition of the store, in nID order.
zt::CZtFieldCollection LoadFields(zt::CZtDataStore& ds) {
  if (!TableExists(ds, kFieldsTable))
    throw ToolError("the data store holds no field definitions (no table tblDtsFields)");
  auto rs = std::make_shared<zt::Recordset>();
  rs->Open("SELECT * FROM [tblDtsFields] ORDER BY [nID]", ds.GetConnection(1));
  zt::CZtFieldCollection fields;
  fields.Load(rs);
  rs->Close();
  return fields;
}

// ---- fields -------------------------------------------------------------------------------

int Fields(Context& cx) {
  const zt::CZtFieldCollection fields = LoadFields(*cx.store);
  std::vector<std::vector<std::string>> rows = {
      {"ID", "Name", "Caption", "Type", "Table", "Choices", "View"}};
  json doc = json::array();
  for (const auto& f : fields.Items()) {
    if (!Opts().table.empty() && !zt::TextEquals(f->TableName(), Opts().table)) continue;
    if (Opts().data_view != 0 && f->DataViewID() != Opts().data_view) continue;
    rows.push_back({std::to_string(f->FieldID()), f->FieldName(), f->FieldCaption(),
                    std::to_string(f->FieldDataType()), f->TableName(), f->FieldValueTable(),
                    f->DataViewID() ? std::to_string(f->DataViewID()) : ""});
    doc.push_back({{"id", f->FieldID()},
                   {"name", f->FieldName()},
                   {"caption", f->FieldCaption()},
                   {"data_type", f->FieldDataType()},
                   {"size", f->FieldDataSize()},
                   {"table", f->TableName()},
                   {"value_table", f->FieldValueTable()},
                   {"where", f->Where()},
                   {"required", f->Required()},
                   {"data_view", f->DataViewID()}});
  }
  if (rows.size() == 1 && !Opts().table.empty())
    cx.out.Note("No field definitions for table " + Opts().table);
  else if (rows.size() == 1 && Opts().data_view != 0)
    cx.out.Note("No field definitions for data view " + std::to_string(Opts().data_view));
  cx.out.Table(rows);
  cx.out.Json(doc);
  return kExitOk;
}

// ---- choices ------------------------------------------------------------------------------

int Choices(Context& cx) {
  const zt::CZtFieldCollection fields = LoadFields(*cx.store);
  const auto field = fields.Item(Opts().field_id);
  if (!field) throw ToolError("no field definition " + std::to_string(Opts().field_id));
  if (field->FieldValueTable().empty())
    throw ToolError("field " + std::to_string(Opts().field_id) + " (" + field->FieldName() +
                    ") has no choices");
  field->DefinitionsDataStore(cx.store);
  // No caller context here: a stored condition's macros stay as written.
  field->MacroCollection(std::make_shared<zt::Dictionary>());
  const auto choices = field->ChoiceValues();
  std::vector<std::vector<std::string>> rows = {{"ID", "Name"}};
  if (field->ChoiceOrder()) rows[0].push_back("Order");
  json doc = {{"field", field->FieldID()},
              {"value_table", field->FieldValueTable()},
              {"statement", field->SingleChoiceSQL()},
              {"choices", json::array()}};
  if (choices) {
    for (const auto& v : choices->Items()) {
      rows.push_back({std::to_string(v->ID()), v->Name()});
      if (field->ChoiceOrder()) rows.back().push_back(std::to_string(v->ChoiceID()));
      json item = {{"id", v->ID()}, {"name", v->Name()}};
      if (field->ChoiceOrder()) item["order"] = v->ChoiceID();
      doc["choices"].push_back(item);
    }
  }
  cx.out.Line("Choices of field " + std::to_string(field->FieldID()) + " (" + field->FieldName() +
              ") from " + field->FieldValueTable() + ":");
  cx.out.Table(rows);
  cx.out.Json(doc);
  return kExitOk;
}

// ---- upgrade-definitions ------------------------------------------------------------------

int UpgradeDefinitions(Context& cx) {
  zt::CZtDataStore& ds = *cx.store;
  const auto& statements = zt::CZtFieldCollection::UpgradeStatements();
  if (!TableExists(ds, kFieldsTable))
    throw ToolError("the data store holds no field definitions (no table tblDtsFields)");
  if (Opts().dry_run) {
    cx.out.Line("Would run on " + std::string(kFieldsTable) + ":");
    // Quotes mark each statement's ends, so that a trailing blank shows.
    for (std::size_t i = 0; i < statements.size(); ++i)
      cx.out.Line("  " + std::to_string(i + 1) + ". \"" + statements[i] + "\"");
    cx.out.Line("  and in every tWhere read by statement 4: false -> 0, true -> -1 (any case)");
    return kExitOk;
  }
  ConfirmOnServer(ds, Opts().yes, "Upgrade the field definitions");
  zt::CZtFieldCollection fields;
  const std::int32_t changed = fields.Upgrade(ds.GetConnection(1));
  cx.out.Line("Field definitions upgraded; " + std::to_string(changed) +
              " stored condition(s) changed");
  return kExitOk;
}

}  // namespace

// ---- the sample ---------------------------------------------------------------------------

namespace {

void Insert(zt::Connection& c, const std::string& table, const std::string& columns,
            const std::vector<std::vector<zt::Variant>>& rows) {
  std::string marks;
  const std::size_t n = rows.empty() ? 0 : rows.front().size();
  for (std::size_t i = 0; i < n; ++i) marks += i ? ", ?" : "?";
  zt::PreparedStatement insert(
      c, "INSERT INTO [" + table + "] (" + columns + ") VALUES (" + marks + ")");
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) insert.Bind(static_cast<int>(i), row[i]);
    insert.Execute();
  }
}

// One row of tblDtsFields: the values that differ between the sample's fields.
struct SampleField {
  std::int32_t id;
  const char* name;
  const char* caption;
  std::int32_t data_type;
  std::int32_t size;
  const char* table;
  const char* value_table;
  const char* where;
  const char* alias;
  std::int32_t relationship;
  std::int32_t data_view;
  bool required;
  bool choice_order;
  const char* name_column;
};

}  // namespace

void AddSampleDefinitions(zt::Connection& c) {
  const std::string i = c.ColumnType(4), b = c.ColumnType(4), t50 = c.ColumnType(10, 50),
                    t255 = c.ColumnType(10, 255);
  // tblDtsFields in its current layout, the optional columns included. tWhere is a bounded
  // text so that the upgrade can find a row by its value where the table has no key column.
  c.Execute("CREATE TABLE [tblDtsFields] ([nID] " + i + " NOT NULL PRIMARY KEY, " +
            "[tAliasSourceTable] " + t50 + ", [tBoundControlName] " + t50 + ", [fCanQueryBy] " + b +
            ", [fChoiceOrder] " + b + ", [tDestinationTab] " + t50 + ", [nDestinationTabID] " + i +
            ", [fEditable] " + b + ", [tCaption] " + t50 + ", [nDataSize] " + i + ", [nDataType] " +
            i + ", [tFieldValuesTable] " + t50 + ", [nValueTableDSType] " + i +
            ", [fKeepHistory] " + b + ", [tLabelCaption] " + t50 + ", [nRelatedField] " + i +
            ", [fRequired] " + b + ", [fVisible] " + b + ", [tWhere] " + t255 + ", [tName] " + t50 +
            ", [nRelationshipType] " + i + ", [nControlType] " + i + ", [nContainerType] " + i +
            ", [fEnabled] " + b + ", [nTableDSType] " + i + ", [tTableName] " + t50 +
            ", [nDataViewID] " + i + ", [tValueTableIDFld] " + t50 + ", [tValueTableNameFld] " +
            t50 + ", [tOrigCaption] " + t50 + ")");
  // Data types: 1 yes/no, 4 number, 8 date, 10 text, 12 long text, 103/104 choice lists.
  // Two rows carry what older versions wrote (an alias 'Submitter', a condition with True), so
  // that upgrade-definitions has something to do.
  const SampleField fields[] = {
      {1, "nId", "Ticket", 4, 4, "tblTickets", "", "", "", -1, 1, true, false, ""},
      {2, "tTitle", "Title", 10, 100, "tblTickets", "", "", "", -1, 1, true, false, ""},
      {3, "tDescription", "Description", 12, 0, "tblTickets", "", "", "", -1, 1, false, false, ""},
      {4, "nPriority", "Priority", 103, 4, "tblTickets", "tblPriority", "", "", -1, 1, true, true,
       ""},
      {5, "nStatus", "Status", 103, 4, "tblTickets", "tblStatus", "", "", -1, 1, true, false, ""},
      {6, "nCategory", "Category", 104, 4, "tblTickets", "tblCategory", "WHERE fRetired=0", "", -1,
       2, false, false, ""},
      {7, "fClosed", "Closed", 1, 1, "tblTickets", "", "", "", -1, 2, false, false, ""},
      {8, "dOpened", "Opened on", 8, 8, "tblTickets", "", "", "", -1, 2, false, false, ""},
      {9, "nSubmitterID", "Submitter", 4, 4, "tblTickets", "", "fActive=True", "Submitter", -1, 2,
       false, false, ""},
      {10, "nAssigneeID", "Assigned to", 103, 4, "tblTickets", "tblUser", "WHERE fActive=-1", "",
       -1, 2, false, false, "tLogin"},
      {11, "tLogin", "Login", 10, 30, "tblUser", "", "", "", 0, 0, true, false, ""},
      {12, "tEmail", "E-mail", 10, 100, "tblUser", "", "", "", 0, 0, false, false, ""},
  };
  std::vector<std::vector<zt::Variant>> rows;
  for (const SampleField& f : fields)
    rows.push_back({f.id,
                    f.alias,
                    std::string("ctl") + f.name,
                    -1,
                    f.choice_order ? -1 : 0,
                    f.data_view == 2 ? "Details" : "General",
                    f.data_view == 2 ? 2 : 1,
                    -1,
                    f.caption,
                    f.size,
                    f.data_type,
                    f.value_table,
                    f.value_table[0] ? 1 : 0,
                    0,
                    std::string(f.caption) + ":",
                    0,
                    f.required ? -1 : 0,
                    -1,
                    f.where,
                    f.name,
                    f.relationship,
                    f.data_type >= 103 ? 3 : 1,
                    1,
                    -1,
                    1,
                    f.table,
                    f.data_view,
                    "nID",
                    f.name_column[0] ? f.name_column : "tName",
                    f.caption});
  Insert(c, "tblDtsFields",
         "[nID], [tAliasSourceTable], [tBoundControlName], [fCanQueryBy], [fChoiceOrder], "
         "[tDestinationTab], [nDestinationTabID], [fEditable], [tCaption], [nDataSize], "
         "[nDataType], [tFieldValuesTable], [nValueTableDSType], [fKeepHistory], "
         "[tLabelCaption], [nRelatedField], [fRequired], [fVisible], [tWhere], [tName], "
         "[nRelationshipType], [nControlType], [nContainerType], [fEnabled], [nTableDSType], "
         "[tTableName], [nDataViewID], [tValueTableIDFld], [tValueTableNameFld], [tOrigCaption]",
         rows);

  // The value (choice) tables.
  c.Execute("CREATE TABLE [tblPriority] ([nID] " + i + " NOT NULL PRIMARY KEY, [tName] " + t50 +
            ", [nChoiceID] " + i + ")");
  Insert(c, "tblPriority", "[nID], [tName], [nChoiceID]",
         {{1, "Low", 4}, {2, "Normal", 3}, {3, "High", 2}, {4, "Urgent", 1}});
  c.Execute("CREATE TABLE [tblStatus] ([nID] " + i + " NOT NULL PRIMARY KEY, [tName] " + t50 + ")");
  Insert(c, "tblStatus", "[nID], [tName]",
         {{1, "New"}, {2, "In progress"}, {3, "Waiting for customer"}, {4, "Resolved"}});
  c.Execute("CREATE TABLE [tblCategory] ([nID] " + i + " NOT NULL PRIMARY KEY, [tName] " + t50 +
            ", [fRetired] " + b + ")");
  Insert(c, "tblCategory", "[nID], [tName], [fRetired]",
         {{1, "Hardware", 0}, {2, "Software", 0}, {3, "Network", 0}, {4, "Fax machines", -1}});
  c.Execute("CREATE TABLE [tblUser] ([nID] " + i + " NOT NULL PRIMARY KEY, [tLogin] " + t50 +
            ", [tEmail] " + c.ColumnType(10, 100) + ", [fActive] " + b + ")");
  Insert(c, "tblUser", "[nID], [tLogin], [tEmail], [fActive]",
         {{1, "alice", "alice@example.com", -1},
          {2, "bob", "bob@example.com", -1},
          {3, "carol", "carol@example.com", 0}});

  // The table types: saved queries (type 5) keep their rows in tblQueryStructure.
  c.Execute("CREATE TABLE [tblTableTypes] ([nID] " + i + " NOT NULL PRIMARY KEY, [nType] " + i +
            ", [nLocal] " + i + ", [tDataTable] " + t50 + ", [tCustomTable] " + t50 +
            ", [tTempTable] " + t50 + ", [tPrefix] " + t50 + ", [tSecurityTable] " + t50 + ")");
  Insert(c, "tblTableTypes",
         "[nID], [nType], [nLocal], [tDataTable], [tCustomTable], [tTempTable], [tPrefix], "
         "[tSecurityTable]",
         {{5, 3, 0, "tblQueryStructure", "tblQueries", "tblQueryTemp", "qry", "tblQuerySecurity"}});
  c.Execute("CREATE TABLE [tblQueries] ([nID] " + i + " NOT NULL PRIMARY KEY, [tName] " + t50 +
            ", [tCaption] " + t50 + ")");
  Insert(c, "tblQueries", "[nID], [tName], [tCaption]", {{1, "OpenUrgent", "Open urgent tickets"}});
  c.Execute("CREATE TABLE [tblQueryStructure] ([nID] " + i + " NOT NULL, [nRow] " + i +
            " NOT NULL, [nFieldID] " + i + ", [tOperator] " + c.ColumnType(10, 10) + ", [tValue] " +
            t255 + ", [tConjunction] " + c.ColumnType(10, 10) + ", PRIMARY KEY ([nID], [nRow]))");
  Insert(c, "tblQueryStructure", "[nID], [nRow], [nFieldID], [tOperator], [tValue], [tConjunction]",
         {{1, 1, 7, "=", "0", "AND"}, {1, 2, 4, "=", "4", ""}});

  // The data views; view 2 opens with the saved query.
  c.Execute("CREATE TABLE [tblDataView] ([nID] " + i + " NOT NULL PRIMARY KEY, [nDefaultQueryID] " +
            i + ", [nDefaultOrder] " + i + ", [tName] " + t50 + ", [tDescription] " + t255 + ")");
  Insert(c, "tblDataView", "[nID], [nDefaultQueryID], [nDefaultOrder], [tName], [tDescription]",
         {{1, 0, 2, "Tickets", "Every ticket with its title and priority"},
          {2, 1, 8, "Ticket details", "Open urgent tickets with status, category and people"}});
  AddSampleSettings(c);
}

std::vector<Command> DefinitionCommands() {
  return {
      {"fields", "List the field definitions (tblDtsFields)", true, true,
       [](CLI::App& app) {
         app.add_option("--table", Opts().table, "Only the fields of this table");
         app.add_option("--dataview", Opts().data_view,
                        "Only the fields of this data view (its nID in tblDataView)");
       },
       Fields},
      {"choices", "List the choices of a field", true, true,
       [](CLI::App& app) {
         app.add_option("field_id", Opts().field_id, "The field's ID (nID)")->required();
       },
       Choices},
      {"upgrade-definitions", "Bring field definitions of older versions up to date", true, false,
       [](CLI::App& app) {
         app.add_flag("--dry-run", Opts().dry_run, "List the statements; change nothing");
         app.add_flag("-y,--yes", Opts().yes, "Do not ask before changing a server's data");
       },
       UpgradeDefinitions},
  };
}

}  // namespace ztdb
