// The driver registry and the portable defaults of ConnectionBackend.
#include "platform/driver.h"

#include <algorithm>
#include <cctype>
#include <map>

#include "platform/dialect.h"
#include "platform/errors.h"
#include "platform/sql_text.h"
#include "platform/type_map.h"

namespace zt::platform {

namespace {

// Every driver of the library, in one list.
const std::map<std::string, DriverFactory>& Registry() {
  static const std::map<std::string, DriverFactory> drivers = {
      {"sqlite", &OpenSqliteDriver},       {"odbc", &OpenOdbcDriver},
      {"postgresql", &OpenPostgresDriver}, {"scripted", &OpenScriptedDriver},
      {"access", &OpenAccessDriver},       {"mariadb", &OpenMariaDbDriver},
  };
  return drivers;
}

// Builds "col = ?" conditions for the restrictions that are present.
struct Where {
  std::string sql;
  std::vector<Variant> params;
  // Set where the engine folds unquoted names: "tblTesselVersion" then names the table stored
  // as "tbltesselversion", so a restriction on a name compares without regard to case.
  bool fold_names = false;
  void Add(const std::string& column, const std::optional<std::string>& value) {
    if (!value) return;
    sql += (sql.empty() ? " WHERE " : " AND ") + column + " = ?";
    params.emplace_back(*value);
  }
  void AddName(const std::string& column, const std::optional<std::string>& value) {
    if (!value) return;
    if (!fold_names) return Add(column, value);
    sql += (sql.empty() ? " WHERE " : " AND ") + ("lower(" + column + ") = lower(?)");
    params.emplace_back(*value);
  }
};

bool IsSystemSchema(const std::string& schema) {
  static const char* const kSystem[] = {"pg_catalog", "information_schema", "mysql",
                                        "sys",        "performance_schema", "INFORMATION_SCHEMA"};
  for (const char* s : kSystem)
    if (schema == s) return true;
  return schema.rfind("pg_", 0) == 0;
}

Variant TextOrNull(const Variant& v) {
  return v.IsNull() || v.IsEmpty() ? Variant::Null() : v;
}

}  // namespace

const DriverFactory* FindDriver(const std::string& name) {
  const auto it = Registry().find(AsciiLower(name));
  return it == Registry().end() ? nullptr : &it->second;
}

RowSet ConnectionBackend::Query(const std::string& sql, const std::vector<Variant>& params) {
  auto st = Prepare(sql);
  for (std::size_t i = 0; i < params.size(); ++i) st->Bind(static_cast<int>(i), params[i]);
  st->Execute();
  RowSet rs;
  rs.columns = st->Columns();
  while (st->Fetch()) {
    std::vector<Variant> row;
    row.reserve(rs.columns.size());
    for (std::size_t c = 0; c < rs.columns.size(); ++c) row.push_back(st->Get(static_cast<int>(c)));
    rs.rows.push_back(std::move(row));
  }
  return rs;
}

bool ConnectionBackend::IsAlive() {
  try {
    auto st = Prepare("SELECT 1");
    st->Execute();
    return st->Fetch();
  } catch (const ZtError&) {
    return false;
  }
}

std::string ConnectionBackend::CurrentCatalog() {
  return {};
}
std::string ConnectionBackend::DefaultSchema() {
  return {};
}

std::vector<std::string> ConnectionBackend::PrimaryKeyColumns(const std::string& table) {
  SchemaRestrictions r;
  r.table = table;
  if (Quirks().has_schemas) r.schema = "";
  const RowSet rs = Schema(SchemaKind::kPrimaryKeys, r);
  std::vector<std::pair<std::int32_t, std::string>> cols;
  for (const auto& row : rs.rows) cols.emplace_back(row[6].ToInt32(), row[3].ToText());
  std::sort(cols.begin(), cols.end());
  std::vector<std::string> out;
  for (auto& c : cols) out.push_back(std::move(c.second));
  return out;
}

// The portable schema rowsets read information_schema, which PostgreSQL, MySQL/MariaDB and SQL
// Server all have. Engines without a schema level (MySQL) keep the database in TABLE_SCHEMA
// there; OLE DB shows it as the catalog.
RowSet ConnectionBackend::Schema(SchemaKind kind, const SchemaRestrictions& in) {
  const DriverQuirks& q = Quirks();
  SchemaRestrictions r = in;
  std::string cat_col = "table_catalog", sch_col = "table_schema";
  if (!q.has_schemas) {
    cat_col = "table_schema";
    sch_col.clear();
    if (!r.catalog || r.catalog->empty()) r.catalog = CurrentCatalog();
    r.schema.reset();
  } else if (r.schema && r.schema->empty()) {
    r.schema = DefaultSchema();
  }
  auto restrict = [&](Where& w, const std::string& prefix) {
    w.Add(prefix + cat_col, r.catalog);
    if (!sch_col.empty()) w.Add(prefix + sch_col, r.schema);
    w.fold_names = q.fold != NameFolding::kNone;
    w.AddName(prefix + "table_name", r.table);
  };
  auto schema_value = [&](const Variant& v) { return q.has_schemas ? v : Variant::Null(); };

  RowSet out;
  switch (kind) {
    case SchemaKind::kTables: {
      out.columns = TablesRowsetColumns();
      Where w;
      restrict(w, "");
      const RowSet rs = Query("SELECT " + cat_col + ", " + (sch_col.empty() ? cat_col : sch_col) +
                                  ", table_name, table_type FROM information_schema.tables" +
                                  w.sql + " ORDER BY 1, 2, 3",
                              w.params);
      for (const auto& row : rs.rows) {
        const std::string schema = row[1].ToText();
        std::string type = row[3].ToText();
        if (type == "BASE TABLE") type = IsSystemSchema(schema) ? "SYSTEM TABLE" : "TABLE";
        if (type == "VIEW" && IsSystemSchema(schema)) type = "SYSTEM VIEW";
        if (in.extra && *in.extra != type) continue;
        out.rows.push_back({row[0], schema_value(row[1]), row[2], Variant(type), Variant::Null(),
                            Variant::Null(), Variant::Null(), Variant::Null(), Variant::Null()});
      }
      break;
    }
    case SchemaKind::kColumns: {
      out.columns = ColumnsRowsetColumns();
      Where w;
      restrict(w, "");
      w.AddName("column_name", r.extra);
      const RowSet rs = Query(
          "SELECT " + cat_col + ", " + (sch_col.empty() ? cat_col : sch_col) +
              ", table_name, column_name, ordinal_position, column_default, is_nullable, "
              "data_type, character_maximum_length, character_octet_length, numeric_precision, "
              "numeric_scale, datetime_precision FROM information_schema.columns" +
              w.sql + " ORDER BY 1, 2, 3, 5",
          w.params);
      for (const auto& row : rs.rows) {
        const TypeMapping t = MapTypeName(row[7].ToText(), row[8].IsNull() ? 0 : row[8].ToInt64(),
                                          row[10].IsNull() ? 0 : row[10].ToInt32(),
                                          row[11].IsNull() ? 0 : row[11].ToInt32());
        const bool nullable = row[6].ToText() == "YES";
        std::int32_t flags = t.attributes | 0x4 | 0x8;
        if (nullable) flags |= 0x20 | 0x40;
        const bool is_text = t.ado_type == 129 || t.ado_type == 130 || t.ado_type >= 200;
        out.rows.push_back({row[0], schema_value(row[1]), row[2], row[3], row[4],
                            Variant(!row[5].IsNull()), TextOrNull(row[5]), Variant(flags),
                            Variant(nullable), Variant(t.ado_type),
                            is_text ? Variant(t.defined_size) : Variant::Null(),
                            is_text ? TextOrNull(row[9]) : Variant::Null(),
                            t.precision == 255 ? Variant::Null() : Variant(t.precision),
                            t.scale == 255 ? Variant::Null() : Variant(t.scale),
                            TextOrNull(row[12]), Variant::Null()});
      }
      break;
    }
    case SchemaKind::kIndexes:
    case SchemaKind::kPrimaryKeys: {
      // Constraint-backed indexes only (primary keys and unique constraints): plain indexes have
      // no information_schema view, so drivers list them in their own override.
      const bool pk_only = kind == SchemaKind::kPrimaryKeys;
      Where w;
      restrict(w, "k.");
      if (!pk_only) w.AddName("k.constraint_name", r.extra);
      const RowSet rs =
          Query("SELECT k." + cat_col + ", k." + (sch_col.empty() ? cat_col : sch_col) +
                    ", k.table_name, k.column_name, k.ordinal_position, k.constraint_name, "
                    "c.constraint_type FROM information_schema.key_column_usage k "
                    "JOIN information_schema.table_constraints c ON c.constraint_name = "
                    "k.constraint_name AND c.table_schema = k.table_schema AND c.table_name = "
                    "k.table_name" +
                    w.sql + (w.sql.empty() ? " WHERE " : " AND ") +
                    (pk_only ? "c.constraint_type = 'PRIMARY KEY'"
                             : "c.constraint_type IN ('PRIMARY KEY', 'UNIQUE')") +
                    " ORDER BY 1, 2, 3, 6, 5",
                w.params);
      if (pk_only) {
        out.columns = PrimaryKeysRowsetColumns();
        for (const auto& row : rs.rows)
          out.rows.push_back({row[0], schema_value(row[1]), row[2], row[3], Variant::Null(),
                              Variant::Null(), row[4], row[5]});
      } else {
        out.columns = IndexRowsetColumns();
        for (const auto& row : rs.rows) {
          const bool pk = row[6].ToText() == "PRIMARY KEY";
          out.rows.push_back(IndexRow(row[0], schema_value(row[1]), row[2].ToText(),
                                      row[5].ToText(), pk, true, false, row[4].ToInt32(),
                                      row[3].ToText()));
        }
      }
      break;
    }
    case SchemaKind::kViews: {
      out.columns = ViewsRowsetColumns();
      Where w;
      w.Add(cat_col, r.catalog);
      if (!sch_col.empty()) w.Add(sch_col, r.schema);
      const RowSet rs = Query("SELECT " + cat_col + ", " + (sch_col.empty() ? cat_col : sch_col) +
                                  ", table_name, view_definition FROM information_schema.views" +
                                  w.sql + " ORDER BY 1, 2, 3",
                              w.params);
      for (const auto& row : rs.rows) {
        if (IsSystemSchema(row[1].ToText())) continue;
        // PostgreSQL ends the text with ";", which CREATE VIEW ... AS would not take.
        std::string text = row[3].ToText();
        while (!text.empty() &&
               (text.back() == ';' || std::isspace(static_cast<unsigned char>(text.back()))))
          text.pop_back();
        while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
          text.erase(0, 1);
        out.rows.push_back(ViewRow(row[0], schema_value(row[1]), row[2].ToText(),
                                   row[3].IsNull() ? Variant::Null() : Variant(text)));
      }
      break;
    }
    case SchemaKind::kForeignKeys: {
      out.columns = ForeignKeysRowsetColumns();
      Where w;
      w.Add("k." + cat_col, r.catalog);
      if (!sch_col.empty()) w.Add("k." + sch_col, r.schema);
      // MySQL and MariaDB name the referenced column beside the key's own; the standard form
      // finds it through the referenced constraint at the same position.
      const std::string referenced =
          q.has_schemas
              ? "p.table_name, p.column_name FROM information_schema.referential_constraints c "
                "JOIN information_schema.key_column_usage k ON k.constraint_schema = "
                "c.constraint_schema AND k.constraint_name = c.constraint_name "
                "JOIN information_schema.key_column_usage p ON p.constraint_schema = "
                "c.unique_constraint_schema AND p.constraint_name = c.unique_constraint_name AND "
                "p.ordinal_position = k.position_in_unique_constraint"
              : "k.referenced_table_name, k.referenced_column_name FROM "
                "information_schema.referential_constraints c JOIN "
                "information_schema.key_column_usage k ON k.constraint_schema = "
                "c.constraint_schema AND k.constraint_name = c.constraint_name AND k.table_name = "
                "c.table_name";
      const RowSet rs =
          Query("SELECT k." + cat_col + ", k." + (sch_col.empty() ? cat_col : sch_col) +
                    ", k.table_name, k.column_name, k.ordinal_position, k.constraint_name, "
                    "c.update_rule, c.delete_rule, " +
                    referenced + w.sql + " ORDER BY 1, 2, 3, 6, 5",
                w.params);
      for (const auto& row : rs.rows) {
        ForeignKeyColumn k;
        k.fk_table = row[2].ToText();
        k.fk_column = row[3].ToText();
        k.ordinal = row[4].ToInt32();
        k.fk_name = row[5].ToText();
        k.update_rule = row[6].ToText();
        k.delete_rule = row[7].ToText();
        // InnoDB's RESTRICT is its NO ACTION (both check at once), the one OLE DB names.
        if (!q.has_schemas) {
          if (k.update_rule == "RESTRICT") k.update_rule = "NO ACTION";
          if (k.delete_rule == "RESTRICT") k.delete_rule = "NO ACTION";
        }
        k.pk_table = row[8].ToText();
        k.pk_column = row[9].ToText();
        out.rows.push_back(ForeignKeyRow(row[0], schema_value(row[1]), k));
      }
      break;
    }
  }
  return out;
}

ScopedTransaction::ScopedTransaction(ConnectionBackend& conn)
    : conn_(conn), joined_(conn.caller_transaction) {
  if (!joined_) conn_.BeginTransaction();
  open_ = true;
}

void ScopedTransaction::RequireOpen() const {
  if (!open_) RaiseAdo(AdoError::kObjectClosed, "ADODB.Connection", "(the bulk load has ended)");
}

void ScopedTransaction::Commit() {
  open_ = false;
  if (joined_) return;
  try {
    conn_.Commit();
  } catch (const ZtError&) {
    open_ = true;
    Abandon();
    throw;
  }
}

void ScopedTransaction::Abandon() {
  if (!open_) return;
  open_ = false;
  if (joined_) return;
  try {
    conn_.Rollback();
  } catch (const ZtError&) {
  }
}

OneRowDelete OneRowDeleteOf(const std::string& engine) {
  const std::string e = AsciiLower(engine);
  if (e == "sql server") return OneRowDelete::kTop;
  if (e == "mariadb" || e == "mysql") return OneRowDelete::kLimit;
  return OneRowDelete::kNone;
}

std::string InsertText(const DriverQuirks& quirks, const std::string& table,
                       const std::vector<std::string>& columns, std::size_t rows) {
  std::string sql = "INSERT INTO " + QuoteIdentifier(table, quirks) + " (";
  std::string marks = "(";
  for (std::size_t i = 0; i < columns.size(); ++i) {
    sql += (i ? ", " : "") + QuoteIdentifier(columns[i], quirks);
    marks += i ? ", ?" : "?";
  }
  marks += ")";
  sql += ") VALUES ";
  for (std::size_t r = 0; r < rows; ++r) sql += (r ? ", " : "") + marks;
  return sql;
}

namespace {

class PreparedInsertBulk : public BulkWriterBackend {
 public:
  PreparedInsertBulk(ConnectionBackend& conn, const std::string& table,
                     const std::vector<std::string>& columns)
      : st_(conn.Prepare(InsertText(conn.Quirks(), table, columns, 1))), tx_(conn) {}
  void AddRow(const std::vector<Variant>& values) override {
    tx_.RequireOpen();
    try {
      for (std::size_t i = 0; i < values.size(); ++i) st_->Bind(static_cast<int>(i), values[i]);
      st_->Execute();
    } catch (const ZtError&) {
      tx_.Abandon();
      throw;
    }
  }
  void Finish() override {
    if (tx_.Open()) tx_.Commit();
  }

 private:
  std::unique_ptr<StatementBackend> st_;
  ScopedTransaction tx_;
};

}  // namespace

const Dialect& ConnectionBackend::EngineDialect() const {
  return DialectFor(Quirks().engine);
}

std::unique_ptr<BulkWriterBackend> ConnectionBackend::BeginBulk(
    const std::string& table, const std::vector<std::string>& columns) {
  return std::make_unique<PreparedInsertBulk>(*this, table, columns);
}

}  // namespace zt::platform
