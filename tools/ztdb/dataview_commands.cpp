// Read commands over the application's data views and saved queries: dataviews (the rows of
// tblDataView) and queries (the saved queries of a query table type, or the expressions of one
// of them). Both read through the library's own definition classes, so the tool shows exactly
// what the application loads.
#include <algorithm>
#include <map>

#include "tool.h"
#include "zt/definitions/dataview.h"
#include "zt/definitions/query.h"
#include "zt/definitions/table_type.h"

namespace ztdb {

namespace {

using nlohmann::json;

struct DataViewOptions {
  std::int32_t table_type = 0;
  std::int32_t query_id = 0;
};

DataViewOptions& Opts() {
  static DataViewOptions options;
  return options;
}

void RequireTable(zt::CZtDataStore& ds, const std::string& table, const std::string& holds) {
  if (!TableExists(ds, table))
    throw ToolError("there is no table '" + table + "' in " + ds.DataStoreName() + "; it holds " +
                    holds);
}

// A value for the text output: Null and Empty as "".
std::string Text(const zt::Variant& v) {
  return v.IsNull() || v.IsEmpty() ? std::string() : v.ToText();
}

// A stored value as JSON: numbers stay numbers, a text that looks like one stays text.
json JsonValue(const zt::Variant& v) {
  switch (v.Type()) {
    case zt::VarType::Empty:
    case zt::VarType::Null:
      return nullptr;
    case zt::VarType::Long:
    case zt::VarType::LongLong:
      return v.ToInt64();
    case zt::VarType::Double:
    case zt::VarType::Currency:
    case zt::VarType::Decimal:
      return v.ToDouble();
    case zt::VarType::Boolean:
      return v.ToBool();
    default:
      return v.ToText();
  }
}

int DataViews(Context& cx) {
  zt::CZtDataStore& ds = *cx.store;
  RequireTable(ds, "tblDataView", "the data views");
  zt::CZtDataViewCol views;
  views.Load(cx.store);
  json list = json::array();
  std::vector<std::vector<std::string>> rows = {{"ID", "NAME", "QUERY", "ORDER", "DESCRIPTION"}};
  for (const auto& v : views.Items()) {
    list.push_back({{"id", v->ID()},
                    {"name", v->Name()},
                    {"description", v->Description()},
                    {"query_id", v->QueryID()},
                    {"order", v->Order()}});
    rows.push_back({std::to_string(v->ID()), v->Name(), std::to_string(v->QueryID()),
                    std::to_string(v->Order()), v->Description()});
  }
  if (views.Count() == 0)
    cx.out.Line("No data views in " + ds.DataStoreName());
  else
    cx.out.Table(rows);
  cx.out.Json({{"dataviews", list}});
  return kExitOk;
}

// The query table type's structure table (and its definition table, "" when none is named).
std::shared_ptr<zt::CZtTableType> QueryTableType(Context& cx) {
  RequireTable(*cx.store, "tblTableTypes", "the table types");
  zt::CZtTableTypeMgr types;
  types.Initialize(cx.store);
  auto type = types.Item(Opts().table_type);
  if (type->StructureTable().empty())
    throw ToolError("table type " + std::to_string(Opts().table_type) +
                    " names no structure table in tblTableTypes");
  RequireTable(*cx.store, type->StructureTable(), "the saved queries' rows");
  return type;
}

// One saved query: its expressions, one row each, in nRow order.
int QueryExpressions(Context& cx) {
  zt::CZtQuery query;
  query.Initialize(Opts().query_id, Opts().table_type);
  query.Load(cx.store);
  std::vector<std::string> columns;
  for (const auto& e : query.Expressions())
    for (const auto& [name, value] : e.Items())
      if (std::find(columns.begin(), columns.end(), name) == columns.end()) columns.push_back(name);
  std::vector<std::vector<std::string>> rows = {{"ROW"}};
  for (const auto& c : columns) rows[0].push_back(c);
  json list = json::array();
  std::int32_t row = 0;
  for (const auto& e : query.Expressions()) {
    json item = {{"row", ++row}};
    rows.push_back({std::to_string(row)});
    for (const auto& c : columns) {
      const zt::Variant v = zt::ExpressionValue(e, c);
      item[c] = JsonValue(v);
      rows.back().push_back(Text(v));
    }
    list.push_back(item);
  }
  if (query.Expressions().empty())
    cx.out.Line("Query " + std::to_string(Opts().query_id) + " has no rows");
  else
    cx.out.Table(rows);
  cx.out.Json(
      {{"table_type", Opts().table_type}, {"query_id", Opts().query_id}, {"expressions", list}});
  return kExitOk;
}

int Queries(Context& cx) {
  const auto type = QueryTableType(cx);
  if (Opts().query_id != 0) return QueryExpressions(cx);
  auto cn = cx.store->GetConnection(1);
  // The queries are those with rows, named by the definition table when it has a row for them.
  struct Entry {
    std::string name, caption;
    std::int64_t rows = 0;
  };
  std::map<std::int32_t, Entry> queries;
  auto counts =
      cn->Execute("SELECT [nID], COUNT(*) FROM [" + type->StructureTable() + "] GROUP BY [nID]");
  for (; !counts->Eof(); counts->MoveNext()) {
    const zt::Variant id = counts->Fields(0).Value();
    if (!id.IsNull()) queries[id.ToInt32()].rows = counts->Fields(1).Value().ToInt64();
  }
  counts->Close();
  const std::string& definitions = type->DefinitionTable();
  if (!definitions.empty() && TableExists(*cx.store, definitions)) {
    auto named = cn->Execute("SELECT * FROM [" + definitions + "]");
    for (; !named->Eof(); named->MoveNext()) {
      const zt::Variant id = named->HasField("nID") ? named->Value("nID") : zt::Variant();
      if (id.IsNull() || id.IsEmpty()) continue;
      Entry& e = queries[id.ToInt32()];
      if (named->HasField("tName")) e.name = Text(named->Value("tName"));
      if (named->HasField("tCaption")) e.caption = Text(named->Value("tCaption"));
    }
    named->Close();
  }
  json list = json::array();
  std::vector<std::vector<std::string>> rows = {{"ID", "NAME", "CAPTION", "ROWS"}};
  for (const auto& [id, e] : queries) {
    list.push_back({{"id", id}, {"name", e.name}, {"caption", e.caption}, {"rows", e.rows}});
    rows.push_back({std::to_string(id), e.name, e.caption, std::to_string(e.rows)});
  }
  if (queries.empty())
    cx.out.Line("No saved queries in " + type->StructureTable());
  else
    cx.out.Table(rows);
  cx.out.Json({{"table_type", Opts().table_type},
               {"structure_table", type->StructureTable()},
               {"definition_table", definitions},
               {"queries", list}});
  return kExitOk;
}

}  // namespace

std::vector<Command> DataViewCommands() {
  return {
      {"dataviews", "List the data views (tblDataView)", true, true, nullptr, DataViews},
      {"queries", "List the saved queries of a query table type, or one query's rows", true, true,
       [](CLI::App& app) {
         app.add_option("table_type", Opts().table_type,
                        "The query table type (nID in tblTableTypes)")
             ->required();
         app.add_option("query_id", Opts().query_id, "Show this query's rows");
       },
       Queries},
  };
}

}  // namespace ztdb
