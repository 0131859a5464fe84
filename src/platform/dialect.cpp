// The engine dialects: the portable defaults and one override per engine.
#include "platform/dialect.h"

#include <array>
#include <cctype>
#include <cstdlib>
#include <vector>

#include "platform/driver.h"
#include "platform/errors.h"
#include "platform/sql_text.h"
#include "platform/table_rebuild.h"
#include "zt/platform.h"

namespace zt::platform {

namespace {

constexpr const char* kRebuildSource = "DAO.Database";
constexpr const char* kSchemaSource = "ADODB.Connection";

std::string Sized(const char* type, std::int32_t size) {
  return std::string(type) + "(" + std::to_string(size > 0 ? size : 255) + ")";
}

// The type names of one engine for DAO codes 1 ... 15 (nullptr: not a DAO code). Text (10)
// takes its length as "(n)".
using TypeNames = std::array<const char*, 16>;

std::string FromTable(const TypeNames& names, const Dialect& d, std::int32_t dao_type,
                      std::int32_t size) {
  if (dao_type < 0 || dao_type >= static_cast<std::int32_t>(names.size()) ||
      !names[static_cast<std::size_t>(dao_type)])
    RaiseAdo(AdoError::kInvalidArgument,
             d.Engine().empty() ? std::string("ADODB.Connection") : std::string(d.Engine()),
             "(no column type for DAO type " + std::to_string(dao_type) + ")");
  const char* name = names[static_cast<std::size_t>(dao_type)];
  return dao_type == 10 ? Sized(name, size) : std::string(name);
}

std::string AlterTable(const std::string& table) {
  return "ALTER TABLE " + BracketName(table) + " ";
}

// What the planning needs to know of a column now.
struct ColumnFacts {
  std::string name;  // as the engine spells it
  std::int32_t ado_type = 0;
  bool nullable = true;
};

// The column's facts from the columns rowset; 3265 when the table has no such column.
ColumnFacts RequireColumn(Connection& cn, const std::string& table, const std::string& column) {
  auto rs = cn.OpenSchema(ado::adSchemaColumns,
                          Variant::Array({Variant(), Variant(), Variant(table), Variant(column)}));
  if (rs->Eof()) RaiseAdo(AdoError::kItemNotFound, kSchemaSource, "(" + table + "." + column + ")");
  return {rs->Fields("COLUMN_NAME").Value().ToText(), rs->Fields("DATA_TYPE").Value().ToInt32(),
          rs->Fields("IS_NULLABLE").Value().ToBool()};
}

void RequireTable(Connection& cn, const std::string& table) {
  auto rs =
      cn.OpenSchema(ado::adSchemaTables, Variant::Array({Variant(), Variant(), Variant(table)}));
  if (rs->Eof()) RaiseAdo(AdoError::kItemNotFound, kSchemaSource, "(" + table + ")");
}

std::int64_t Count(Connection& cn, const std::string& table, const std::string& where) {
  return cn.Execute("SELECT COUNT(*) FROM " + BracketName(table) + where)
      ->Fields(0)
      .Value()
      .ToInt64();
}

// A column made NOT NULL over rows that hold Null is refused before anything changes, with
// the integrity error the engines give when a constraint refuses a change.
void RequireNoNulls(Connection& cn, const std::string& table, const std::string& column) {
  if (Count(cn, table, " WHERE " + BracketName(column) + " IS NULL") > 0)
    throw ZtError(hr::kIntegrity, kSchemaSource,
                  "Column '" + column + "' of table '" + table +
                      "' holds Null values and cannot be made NOT NULL.");
}

// A NOT NULL column without a fill can only be added to a table without rows.
void RequireEmpty(Connection& cn, const std::string& table, const std::string& column) {
  if (Count(cn, table, "") > 0)
    throw ZtError(hr::kIntegrity, kSchemaSource,
                  "Column '" + column + "' of table '" + table +
                      "' cannot be added as NOT NULL to rows without a value for it.");
}

// The base name of a type text, lower case ("varchar" for "VARCHAR(50)", "text" for
// "TEXT (50)").
std::string TypeBase(const std::string& type) {
  std::string base = AsciiLower(type.substr(0, type.find('(')));
  while (!base.empty() && base.back() == ' ') base.pop_back();
  return base;
}

// Types whose values are numbers: a text that does not read as one cannot move into them.
bool IsNumericType(const std::string& type) {
  const std::string base = TypeBase(type);
  for (const char* n : {"byte", "short", "long", "int", "integer", "smallint", "tinyint",
                        "tinyint unsigned", "bigint", "mediumint", "single", "double", "real",
                        "float", "double precision", "currency", "money", "decimal", "numeric"})
    if (base == n) return true;
  return false;
}

bool IsTextCode(std::int32_t ado_type) {
  return ado_type == 129 || ado_type == 130 || ado_type == 200 || ado_type == 201 ||
         ado_type == 202 || ado_type == 203;
}

// The length of a "VARCHAR(n)" / "CHAR(n)" / "TEXT(n)" type text, 0 when it has none.
std::int64_t TypeLength(const std::string& type) {
  const std::size_t open = type.find('(');
  if (open == std::string::npos) return 0;
  const std::string base = TypeBase(type);
  if (base != "varchar" && base != "char" && base != "text" && base != "nvarchar") return 0;
  return std::atoll(type.c_str() + open + 1);
}

[[noreturn]] void RaiseCantConvert(const std::string& table, const std::string& column,
                                   const std::string& type) {
  throw ZtError(hr::kCantConvert, kSchemaSource,
                "Values of column '" + column + "' of table '" + table +
                    "' cannot be converted to " + type + ".");
}

// "([a], [b])" for a column list; 3001 when it is empty.
std::string ColumnList(const std::vector<std::string>& columns) {
  if (columns.empty())
    RaiseAdo(AdoError::kInvalidArgument, kSchemaSource, "(an index needs at least one column)");
  std::string out;
  for (const auto& c : columns) out += (out.empty() ? "" : ", ") + BracketName(c);
  return "(" + out + ")";
}

SchemaPlan OneStatement(std::string sql) {
  SchemaPlan p;
  p.statements.push_back(std::move(sql));
  return p;
}

// " ON DELETE x ON UPDATE y", leaving out a rule that is the engines' default.
std::string ForeignKeyRules(const ForeignKeyDef& fk) {
  std::string out;
  if (!fk.delete_rule.empty() && AsciiLower(fk.delete_rule) != "no action")
    out += " ON DELETE " + fk.delete_rule;
  if (!fk.update_rule.empty() && AsciiLower(fk.update_rule) != "no action")
    out += " ON UPDATE " + fk.update_rule;
  return out;
}

std::string ForeignKeyClause(const ForeignKeyDef& fk) {
  return "CONSTRAINT " + BracketName(fk.name) + " FOREIGN KEY " + ColumnList(fk.columns) +
         " REFERENCES " + BracketName(fk.referenced) + " " + ColumnList(fk.referenced_columns) +
         ForeignKeyRules(fk);
}

// Index kinds outside the three the schema operations know are refused.
void RequireIndexKind(std::int32_t kind) {
  if (kind != kIndexPrimaryKey && kind != kIndexUnique && kind != kIndexPlain)
    RaiseAdo(AdoError::kInvalidArgument, kSchemaSource,
             "(index kind " + std::to_string(kind) + ")");
}

// The first column of every row of `sql`.
std::vector<std::string> Names(Connection& cn, const std::string& sql) {
  auto rs = cn.Execute(sql);
  std::vector<std::string> out;
  for (; rs && rs->State() == ado::adStateOpen && !rs->Eof(); rs->MoveNext())
    out.push_back(rs->Fields(0).Value().ToText());
  return out;
}

// SQLite: declared types keep the Jet vocabulary, so that DAO type codes read back as they were
// written. Columns are added, dropped and renamed in place; any other change rebuilds the table.
class SqliteDialect : public Dialect {
 public:
  std::string_view Engine() const override { return "SQLite"; }
  SchemaPlan PlanAddForeignKey(Connection& cn, const ForeignKeyDef& fk) const override {
    RequireTable(cn, fk.referenced);
    auto rs = cn.Execute("SELECT sql FROM sqlite_master WHERE type = 'table' AND name = " +
                         SqlLiteral(fk.table) + " COLLATE NOCASE");
    if (rs->Eof()) RaiseAdo(AdoError::kItemNotFound, kSchemaSource, "(" + fk.table + ")");
    std::string sql = rs->Fields(0).Value().ToText();
    const std::string name = Names(cn,
                                   "SELECT name FROM sqlite_master WHERE type = 'table' AND "
                                   "name = " +
                                       SqlLiteral(fk.table) + " COLLATE NOCASE")
                                 .front();
    // The definition ends with the closing parenthesis of its items, or with table options
    // after it (WITHOUT ROWID, STRICT), which the clause must stay in front of.
    const std::size_t close = sql.rfind(')');
    if (close == std::string::npos)
      RaiseAdo(AdoError::kNotUpdatable, kSchemaSource, "(the definition of " + name + ")");
    sql.insert(close, ", " + ForeignKeyClause(fk));
    const std::int64_t version =
        cn.Execute("PRAGMA schema_version")->Fields(0).Value().ToInt64() + 1;
    SchemaPlan plan;
    plan.statements = {"PRAGMA writable_schema = ON",
                       "UPDATE sqlite_master SET sql = " + SqlLiteral(sql) +
                           " WHERE type = 'table' AND name = " + SqlLiteral(name),
                       "PRAGMA schema_version = " + std::to_string(version),
                       "PRAGMA writable_schema = OFF",
                       // Read back at once: a definition the engine cannot parse fails here,
                       // inside the transaction, instead of on the next open of the file.
                       "SELECT COUNT(*) FROM pragma_foreign_key_list(" + SqlLiteral(name) + ")"};
    return plan;
  }
  SchemaPlan PlanIdentity(Connection& cn, const std::string& table, const std::string& column,
                          std::int64_t) const override {
    // The rowid alias numbers new rows after the highest key by itself.
    const auto alias = Names(cn, "SELECT p.name FROM pragma_table_info(" + SqlLiteral(table) +
                                     ") p WHERE p.pk = 1 AND upper(p.type) = 'INTEGER' AND "
                                     "(SELECT COUNT(*) FROM pragma_table_info(" +
                                     SqlLiteral(table) + ") q WHERE q.pk > 0) = 1");
    if (alias.size() == 1 && AsciiLower(alias.front()) == AsciiLower(column)) return {};
    RaiseAdo(AdoError::kNotUpdatable, kSchemaSource,
             "(SQLite numbers only a table's single INTEGER PRIMARY KEY column)");
  }
  // Jet's names where Jet has the type, so that DAO codes read back; SQLite's own names keep
  // their meaning (type_map.h). A decimal wider than a double is declared with text affinity
  // ("DECIMAL TEXT(38,10)"), so the engine stores its digits instead of a rounded double. An
  // unbounded text is "TEXT", not Jet's "MEMO": SQLite gives MEMO numeric affinity, which stores
  // the text "007" as the number 7; TEXT without a length reads back as a memo all the same.
  const EngineTypes& Types() const override {
    static constexpr EngineTypes kTypes = {"BIT",
                                           "BYTE",
                                           "SHORT",
                                           "SHORT",
                                           "LONG",
                                           "BIGINT",
                                           "SINGLE",
                                           "DOUBLE",
                                           "CURRENCY",
                                           "DECIMAL(%p,%s)",
                                           "DECIMAL TEXT(%p,%s)",
                                           15,
                                           15,
                                           "DATETIME",
                                           "DATETIME",
                                           "DATETIME",
                                           "CHAR(%)",
                                           "TEXT(%)",
                                           INT32_MAX,
                                           "TEXT",
                                           "BINARY(%)",
                                           "VARBINARY(%)",
                                           INT32_MAX,
                                           "LONGBINARY",
                                           "GUID"};
    return kTypes;
  }
  std::string ColumnType(std::int32_t dao_type, std::int32_t size) const override {
    static constexpr TypeNames kNames = {
        nullptr,    "BIT",   "BYTE", "SHORT",      "LONG", "CURRENCY", "SINGLE", "DOUBLE",
        "DATETIME", nullptr, "TEXT", "LONGBINARY", "MEMO", nullptr,    nullptr,  "GUID"};
    return FromTable(kNames, *this, dao_type, size);
  }
  std::string AlterColumn(const std::string&, const std::string&,
                          const std::string&) const override {
    return {};
  }
  bool RebuildsTables() const override { return true; }
  // SQLite opens a file lazily: a locked or damaged file would only show at the first
  // statement, after the opening had reported success.
  std::string OpenProbe() const override { return "SELECT COUNT(*) FROM sqlite_master"; }
  std::string CreateDatabase(const std::string&) const override { return {}; }
  std::string DropDatabase(const std::string&) const override { return {}; }
  std::vector<std::string> TablesChangedByDelete(Connection& cn,
                                                 const std::string& table) const override {
    // Relationships act only while the connection enforces them.
    if (cn.Execute("PRAGMA foreign_keys")->Fields(0).Value().ToInt32() == 0) return {};
    return Names(
        cn,
        "SELECT DISTINCT m.name FROM sqlite_master m JOIN pragma_foreign_key_list(m.name) f "
        "WHERE m.type = 'table' AND f.\"table\" = " +
            SqlLiteral(table) + " COLLATE NOCASE AND m.name <> " + SqlLiteral(table) +
            " COLLATE NOCASE AND f.on_delete IN ('CASCADE', 'SET NULL', 'SET DEFAULT')");
  }

  // A rebuild (platform/table_rebuild.h) run as one plan: nothing changes when a step fails.
  void RebuildTable(Connection& cn, const std::string& table, const std::string& column,
                    const ColumnChange& change) const override {
    if (cn.InTransaction())
      RaiseAdo(AdoError::kIllegalOperation, kRebuildSource,
               "(a table cannot be rebuilt inside a transaction)");
    SqliteTableDef def = SqliteTableDef::Read(cn, table);
    const int at = def.ItemOf(column);
    if (at < 0) RaiseAdo(AdoError::kItemNotFound, kRebuildSource, "(" + column + ")");
    def.items[static_cast<std::size_t>(at)] = change(def.items[static_cast<std::size_t>(at)]);
    RunSchemaPlan(cn, def.Plan());
  }

  SchemaPlan PlanAddColumn(Connection& cn, const std::string& table, const std::string& column,
                           const std::string& type, bool nullable,
                           const std::string& fill) const override {
    SqliteTableDef def = SqliteTableDef::Read(cn, table);
    std::string item = BracketName(column) + " " + type;
    if (nullable) return OneStatement(AlterTable(table) + "ADD COLUMN " + item);
    // SQLite adds a NOT NULL column in place only with a default that would stay; the rebuild
    // fills the rows instead and leaves the column without one.
    if (fill.empty()) RequireEmpty(cn, table, column);
    std::size_t after = 0;
    for (std::size_t i = 0; i < def.items.size(); ++i)
      if (!SqliteItemName(def.items[i]).empty()) after = i + 1;
    def.items.insert(def.items.begin() + static_cast<std::ptrdiff_t>(after), item + " NOT NULL");
    std::vector<std::pair<std::string, std::string>> copy;
    for (const auto& c : def.Columns()) copy.emplace_back(c, BracketName(c));
    if (!fill.empty()) copy.emplace_back(column, fill);
    return def.Plan(copy);
  }

  SchemaPlan PlanAlterColumn(Connection& cn, const std::string& table, const std::string& column,
                             const std::string& type, bool nullable) const override {
    SqliteTableDef def = SqliteTableDef::Read(cn, table);
    const std::size_t at = RequireItem(def, table, column);
    if (!nullable) RequireNoNulls(cn, table, column);
    // SQLite would keep a text that does not read as a number as it is, in a numeric column;
    // such a change is refused instead, as the server engines refuse it.
    if (IsNumericType(type)) {
      auto rs =
          cn.Execute("SELECT DISTINCT " + BracketName(column) + " FROM " + BracketName(table) +
                     " WHERE typeof(" + BracketName(column) + ") = 'text'");
      for (; !rs->Eof(); rs->MoveNext())
        if (!ReadsAsNumber(rs->Fields(0).Value().ToText())) RaiseCantConvert(table, column, type);
    }
    def.items[at] = RetypeColumnItem(def.items[at], type, nullable);
    return def.Plan();
  }

  SchemaPlan PlanSetNullable(Connection& cn, const std::string& table, const std::string& column,
                             const std::string&, bool nullable) const override {
    SqliteTableDef def = SqliteTableDef::Read(cn, table);
    const std::size_t at = RequireItem(def, table, column);
    if (!nullable) RequireNoNulls(cn, table, column);
    // The item keeps its own type text: the Jet name as the table was made with it.
    def.items[at] = RetypeColumnItem(def.items[at], {}, nullable);
    return def.Plan();
  }

  SchemaPlan PlanRenameColumn(Connection& cn, const std::string& table, const std::string& from,
                              const std::string& to) const override {
    // SQLite renames in place and corrects its indexes, triggers and views itself.
    RequireItem(SqliteTableDef::Read(cn, table), table, from);
    return OneStatement(RenameColumn(table, from, to));
  }

  SchemaPlan PlanDropColumn(Connection& cn, const std::string& table,
                            const std::string& column) const override {
    SqliteTableDef def = SqliteTableDef::Read(cn, table);
    const std::size_t at = RequireItem(def, table, column);
    if (def.DropsInPlace(column)) return OneStatement(DropColumn(table, column));
    def.items.erase(def.items.begin() + static_cast<std::ptrdiff_t>(at));
    def.ForgetIndexesOn(column);
    return def.Plan();
  }
  bool DropColumnTakesItsIndexes() const override { return true; }

  SchemaPlan PlanCreateIndex(Connection& cn, const std::string& table,
                             const std::vector<std::string>& columns, const std::string& name,
                             std::int32_t kind) const override {
    RequireIndexKind(kind);
    SqliteTableDef def = SqliteTableDef::Read(cn, table);
    const std::string list = ColumnList(columns);
    if (kind != kIndexPrimaryKey)
      return OneStatement(std::string("CREATE ") + (kind == kIndexUnique ? "UNIQUE " : "") +
                          "INDEX " + BracketName(name) + " ON " + BracketName(table) + " " + list);
    // SQLite adds a primary key only with the table's definition.
    def.items.push_back("CONSTRAINT " + BracketName(name) + " PRIMARY KEY " + list);
    return def.Plan();
  }

  SchemaPlan PlanDropIndex(Connection& cn, const std::string& table, const std::string& name,
                           bool constraint) const override {
    SqliteTableDef def = SqliteTableDef::Read(cn, table);
    // A constraint item of that name.
    for (std::size_t i = 0; i < def.items.size(); ++i) {
      if (!SqliteItemName(def.items[i]).empty()) continue;
      const ConstraintItem c = ReadConstraintItem(def.items[i]);
      if (!c.name.empty() && AsciiLower(c.name) == AsciiLower(name) &&
          (c.kind == "PRIMARY" || c.kind == "UNIQUE")) {
        def.items.erase(def.items.begin() + static_cast<std::ptrdiff_t>(i));
        return def.Plan();
      }
    }
    // Otherwise what SQLite says of the index: made by CREATE INDEX ('c'), or the automatic
    // index of a primary key ('pk') or a unique constraint ('u').
    std::string origin;
    std::vector<std::string> columns;
    {
      auto rs =
          cn.Execute("SELECT l.origin, i.name FROM pragma_index_list(" + SqlLiteral(table) +
                     ") l JOIN pragma_index_info(l.name) i WHERE l.name = " + SqlLiteral(name) +
                     " COLLATE NOCASE ORDER BY i.seqno");
      for (; !rs->Eof(); rs->MoveNext()) {
        origin = rs->Fields(0).Value().ToText();
        columns.push_back(AsciiLower(rs->Fields(1).Value().ToText()));
      }
    }
    if (origin == "c" || (origin.empty() && !constraint))
      return OneStatement("DROP INDEX " + BracketName(name));
    // The indexes rowset names a primary key "PrimaryKey"; the schema operations name it PK_.
    const std::string lower = AsciiLower(name);
    const bool primary =
        origin == "pk" || (origin.empty() && (lower == "primarykey" || lower.rfind("pk_", 0) == 0));
    if (!primary && origin != "u")
      RaiseAdo(AdoError::kItemNotFound, kSchemaSource, "(" + table + "." + name + ")");
    for (std::size_t i = 0; i < def.items.size(); ++i) {
      std::string& item = def.items[i];
      if (SqliteItemName(item).empty()) {
        ConstraintItem c = ReadConstraintItem(item);
        for (auto& col : c.columns) col = AsciiLower(col);
        if (c.kind == (primary ? "PRIMARY" : "UNIQUE") && (primary || c.columns == columns)) {
          def.items.erase(def.items.begin() + static_cast<std::ptrdiff_t>(i));
          return def.Plan();
        }
        continue;
      }
      if (!primary && (columns.size() != 1 || AsciiLower(SqliteItemName(item)) != columns[0]))
        continue;
      if (const std::string stripped = StripKeyClause(item, primary); stripped != item) {
        item = stripped;
        return def.Plan();
      }
    }
    RaiseAdo(AdoError::kItemNotFound, kSchemaSource, "(" + table + "." + name + ")");
  }

 private:
  static std::size_t RequireItem(const SqliteTableDef& def, const std::string& table,
                                 const std::string& column) {
    const int at = def.ItemOf(column);
    if (at < 0) RaiseAdo(AdoError::kItemNotFound, kSchemaSource, "(" + table + "." + column + ")");
    return static_cast<std::size_t>(at);
  }

  // A text that SQLite's numeric affinity turns into a number.
  static bool ReadsAsNumber(const std::string& text) {
    const char* p = text.c_str();
    while (*p == ' ') ++p;
    if (!*p) return false;
    char* end = nullptr;
    std::strtod(p, &end);
    if (end == p) return false;
    while (*end == ' ') ++end;
    return *end == 0;
  }
};

class PostgresDialect : public Dialect {
 public:
  std::string_view Engine() const override { return "PostgreSQL"; }
  SchemaPlan PlanIdentity(Connection& cn, const std::string& table, const std::string& column,
                          std::int64_t next) const override {
    RequireColumn(cn, table, column);
    SchemaPlan plan;
    plan.statements = {AlterTable(table) + "ALTER COLUMN " + BracketName(column) + " SET NOT NULL",
                       AlterTable(table) + "ALTER COLUMN " + BracketName(column) +
                           " ADD GENERATED BY DEFAULT AS IDENTITY (START WITH " +
                           std::to_string(next) + ")"};
    return plan;
  }
  // A name longer than NAMEDATALEN - 1 bytes is cut without a word.
  std::size_t MaxNameBytes() const override { return 63; }
  const EngineTypes& Types() const override {
    static constexpr EngineTypes kTypes = {"BOOLEAN",
                                           "SMALLINT",
                                           "SMALLINT",
                                           "SMALLINT",
                                           "INTEGER",
                                           "BIGINT",
                                           "REAL",
                                           "DOUBLE PRECISION",
                                           "NUMERIC(19,4)",
                                           "NUMERIC(%p,%s)",
                                           "NUMERIC",
                                           1000,
                                           1000,
                                           "TIMESTAMP(6)",
                                           "DATE",
                                           "TIME(6)",
                                           "CHAR(%)",
                                           "VARCHAR(%)",
                                           10485760,
                                           "TEXT",
                                           "BYTEA",
                                           "BYTEA",
                                           0,
                                           "BYTEA",
                                           "CHAR(38)"};
    return kTypes;
  }
  std::string ColumnType(std::int32_t dao_type, std::int32_t size) const override {
    // TEXT takes no length on PostgreSQL; a Text field is VARCHAR(n), a Memo TEXT.
    static constexpr TypeNames kNames = {
        nullptr,     "BOOLEAN",       "SMALLINT", "SMALLINT",
        "INTEGER",   "NUMERIC(19,4)", "REAL",     "DOUBLE PRECISION",
        "TIMESTAMP", nullptr,         "VARCHAR",  "BYTEA",
        "TEXT",      nullptr,         nullptr,    "CHAR(38)"};
    return FromTable(kNames, *this, dao_type, size);
  }
  std::string AlterColumn(const std::string& table, const std::string& column,
                          const std::string& type) const override {
    // USING converts what has no implicit cast (text to a number); a value that does not
    // convert fails the statement, and the plan's transaction undoes the rest. Not for a text
    // type: an explicit cast to VARCHAR(n) cuts a longer value silently, where the assignment
    // the plain TYPE clause makes refuses it ("value too long for type ...").
    const std::string base = TypeBase(type);
    const bool text = base == "varchar" || base == "char" || base == "text" ||
                      base == "character varying" || base == "character";
    return AlterTable(table) + "ALTER COLUMN " + BracketName(column) + " TYPE " + type +
           (text ? "" : " USING CAST(" + BracketName(column) + " AS " + type + ")");
  }
  SchemaPlan PlanDropIndex(Connection& cn, const std::string& table, const std::string& name,
                           bool constraint) const override {
    // A unique index made by CREATE UNIQUE INDEX is no constraint here, however the indexes
    // rowset flags it; an index lives in its table's schema, which DROP INDEX must name.
    auto rs = cn.Execute(
        "SELECT n.nspname, (SELECT COUNT(*) FROM pg_constraint k WHERE k.conrelid = c.oid AND "
        "lower(k.conname) = lower(" +
        SqlLiteral(name) +
        ")) FROM pg_class c JOIN pg_namespace n ON n.oid = c.relnamespace WHERE lower(c.relname) "
        "= lower(" +
        SqlLiteral(table) + ") AND pg_table_is_visible(c.oid)");
    if (rs->Eof()) RaiseAdo(AdoError::kItemNotFound, kSchemaSource, "(" + table + ")");
    if (constraint && rs->Fields(1).Value().ToInt64() > 0)
      return OneStatement(AlterTable(table) + "DROP CONSTRAINT " + BracketName(name));
    return OneStatement("DROP INDEX " + BracketName(rs->Fields(0).Value().ToText()) + "." +
                        BracketName(name));
  }
  std::vector<std::string> TablesChangedByDelete(Connection& cn,
                                                 const std::string& table) const override {
    return Names(
        cn,
        "SELECT DISTINCT k.conrelid::regclass::text FROM pg_constraint k WHERE k.contype = "
        "'f' AND k.confdeltype IN ('c', 'n', 'd') AND k.conrelid <> k.confrelid AND "
        "k.confrelid IN (SELECT c.oid FROM pg_class c WHERE lower(c.relname) = lower(" +
            SqlLiteral(table) + ") AND pg_table_is_visible(c.oid))");
  }
  std::string OrderByBytes(const std::string& column, bool text) const override {
    return text ? column + " COLLATE \"C\"" : column;
  }
  std::string MaintenanceDatabase() const override { return "postgres"; }
  std::string SizeQuery() const override { return "SELECT pg_database_size(current_database())"; }
  std::string RosterQuery() const override {
    return "SELECT COALESCE(client_hostname, host(client_addr), 'local'), usename FROM "
           "pg_stat_activity WHERE datname = current_database() AND pid <> pg_backend_pid() "
           "AND backend_type = 'client backend'";
  }
};

class MariaDbDialect : public Dialect {
 public:
  explicit MariaDbDialect(std::string_view engine) : engine_(engine) {}
  std::string_view Engine() const override { return engine_; }
  SchemaPlan PlanIdentity(Connection& cn, const std::string& table, const std::string& column,
                          std::int64_t next) const override {
    const auto type = Names(cn,
                            "SELECT COLUMN_TYPE FROM information_schema.COLUMNS WHERE TABLE_SCHEMA "
                            "= DATABASE() AND TABLE_NAME = " +
                                SqlLiteral(table) + " AND COLUMN_NAME = " + SqlLiteral(column));
    if (type.empty())
      RaiseAdo(AdoError::kItemNotFound, kSchemaSource, "(" + table + "." + column + ")");
    // AUTO_INCREMENT gives every row that holds 0 a new number as the column takes it.
    if (Count(cn, table, " WHERE " + BracketName(column) + " = 0") > 0)
      throw ZtError(hr::kIntegrity, kSchemaSource,
                    "Column '" + column + "' of table '" + table +
                        "' holds 0, which MariaDB would number anew as AUTO_INCREMENT.");
    SchemaPlan plan;
    plan.statements = {AlterTable(table) + "MODIFY COLUMN " + BracketName(column) + " " +
                           type.front() + " NOT NULL AUTO_INCREMENT",
                       AlterTable(table) + "AUTO_INCREMENT = " + std::to_string(next)};
    return plan;
  }
  bool CombinesAlterClauses() const override { return true; }
  std::size_t MaxNameBytes() const override { return 64; }
  std::string OrderByBytes(const std::string& column, bool text) const override {
    return text ? "BINARY " + column : column;
  }
  std::vector<std::string> TablesChangedByDelete(Connection& cn,
                                                 const std::string& table) const override {
    return Names(cn,
                 "SELECT DISTINCT TABLE_NAME FROM information_schema.REFERENTIAL_CONSTRAINTS WHERE "
                 "CONSTRAINT_SCHEMA = DATABASE() AND REFERENCED_TABLE_NAME = " +
                     SqlLiteral(table) + " AND TABLE_NAME <> " + SqlLiteral(table) +
                     " AND DELETE_RULE IN ('CASCADE', 'SET NULL', 'SET DEFAULT')");
  }
  // A row holds at most 65,535 bytes of its VARCHAR columns (four a character in utf8mb4), so
  // texts past 1,000 characters take the long form, which lives outside the row.
  const EngineTypes& Types() const override {
    static constexpr EngineTypes kTypes = {"TINYINT(1)",
                                           "TINYINT UNSIGNED",
                                           "TINYINT",
                                           "SMALLINT",
                                           "INT",
                                           "BIGINT",
                                           "FLOAT",
                                           "DOUBLE",
                                           "DECIMAL(19,4)",
                                           "DECIMAL(%p,%s)",
                                           "DECIMAL(65,30)",
                                           65,
                                           30,
                                           "DATETIME(6)",
                                           "DATE",
                                           "TIME(6)",
                                           "CHAR(%)",
                                           "VARCHAR(%)",
                                           1000,
                                           "LONGTEXT",
                                           "BINARY(%)",
                                           "VARBINARY(%)",
                                           1000,
                                           "LONGBLOB",
                                           "CHAR(38)"};
    return kTypes;
  }
  std::string ColumnType(std::int32_t dao_type, std::int32_t size) const override {
    // A key column cannot be a BLOB or TEXT here, so Text is VARCHAR(n); Memo and Long binary
    // take the long forms, as a Jet memo held up to a gigabyte.
    static constexpr TypeNames kNames = {
        nullptr,         "TINYINT(1)", "TINYINT UNSIGNED", "SMALLINT", "INT",
        "DECIMAL(19,4)", "FLOAT",      "DOUBLE",           "DATETIME", nullptr,
        "VARCHAR",       "LONGBLOB",   "LONGTEXT",         nullptr,    nullptr,
        "CHAR(38)"};
    return FromTable(kNames, *this, dao_type, size);
  }
  std::string AlterColumn(const std::string& table, const std::string& column,
                          const std::string& type) const override {
    return AlterTable(table) + "MODIFY " + BracketName(column) + " " + type;
  }
  // Each DDL statement commits on its own here, so a plan is checked before it starts: Nulls
  // for a NOT NULL column, texts that do not read as numbers, texts longer than a new length.
  // A single ALTER TABLE is still all or nothing (the engine copies the table); what can be
  // left behind is a plan's later statement failing after an earlier one committed, which
  // only the added NOT NULL column has: its fill default stays when dropping it fails (a lost
  // connection between the two statements).
  bool TransactionalDdl() const override { return false; }

  SchemaPlan PlanAlterColumn(Connection& cn, const std::string& table, const std::string& column,
                             const std::string& type, bool nullable) const override {
    const ColumnFacts facts = RequireColumn(cn, table, column);
    if (!nullable) RequireNoNulls(cn, table, column);
    const std::string c = BracketName(column);
    if (IsNumericType(type) && IsTextCode(facts.ado_type) &&
        Count(cn, table,
              " WHERE " + c + " IS NOT NULL AND TRIM(" + c +
                  ") NOT REGEXP '^[-+]?([0-9]+[.]?[0-9]*|[.][0-9]+)([eE][-+]?[0-9]+)?$'") > 0)
      RaiseCantConvert(table, column, type);
    if (const std::int64_t length = TypeLength(type);
        length > 0 &&
        Count(cn, table, " WHERE CHAR_LENGTH(" + c + ") > " + std::to_string(length)) > 0)
      throw ZtError(hr::kDataOverflow, kSchemaSource,
                    "Values of column '" + column + "' of table '" + table + "' are longer than " +
                        type + " holds.");
    return Modify(table, column, type, nullable);
  }
  SchemaPlan PlanSetNullable(Connection& cn, const std::string& table, const std::string& column,
                             const std::string& type, bool nullable) const override {
    RequireColumn(cn, table, column);
    if (!nullable) RequireNoNulls(cn, table, column);
    return Modify(table, column, type, nullable);
  }
  SchemaPlan PlanDropIndex(Connection& cn, const std::string& table, const std::string& name,
                           bool constraint) const override {
    RequireTable(cn, table);
    // The primary key's index is always called PRIMARY here, whatever name it was given.
    const std::string lower = AsciiLower(name);
    if (constraint && (lower == "primary" || lower == AsciiLower("PK_" + table)))
      return OneStatement(AlterTable(table) + "DROP PRIMARY KEY");
    return OneStatement(AlterTable(table) + "DROP INDEX " + BracketName(name));
  }

 private:
  // MODIFY restates the whole column: its type and its nullability.
  static SchemaPlan Modify(const std::string& table, const std::string& column,
                           const std::string& type, bool nullable) {
    return OneStatement(AlterTable(table) + "MODIFY COLUMN " + BracketName(column) + " " + type +
                        (nullable ? " NULL" : " NOT NULL"));
  }

 public:
  std::string SizeQuery() const override {
    return "SELECT SUM(data_length + index_length) FROM information_schema.tables WHERE "
           "table_schema = DATABASE()";
  }
  std::string RosterQuery() const override {
    return "SELECT SUBSTRING_INDEX(HOST, ':', 1), USER FROM information_schema.PROCESSLIST "
           "WHERE DB = DATABASE() AND ID <> CONNECTION_ID()";
  }

 private:
  std::string_view engine_;
};

class SqlServerDialect : public Dialect {
 public:
  std::string_view Engine() const override { return "SQL Server"; }
  std::size_t MaxNameBytes() const override { return 128; }
  const EngineTypes& Types() const override {
    static constexpr EngineTypes kTypes = {"BIT",
                                           "TINYINT",
                                           "SMALLINT",
                                           "SMALLINT",
                                           "INT",
                                           "BIGINT",
                                           "REAL",
                                           "FLOAT",
                                           "MONEY",
                                           "DECIMAL(%p,%s)",
                                           "DECIMAL(38,10)",
                                           38,
                                           38,
                                           "DATETIME2",
                                           "DATE",
                                           "TIME",
                                           "NCHAR(%)",
                                           "NVARCHAR(%)",
                                           4000,
                                           "NVARCHAR(MAX)",
                                           "BINARY(%)",
                                           "VARBINARY(%)",
                                           8000,
                                           "VARBINARY(MAX)",
                                           "UNIQUEIDENTIFIER"};
    return kTypes;
  }
  std::string ColumnType(std::int32_t dao_type, std::int32_t size) const override {
    static constexpr TypeNames kNames = {
        nullptr,    "bit",   "tinyint",  "smallint", "int",   "money", "real",  "float",
        "datetime", nullptr, "nvarchar", "image",    "ntext", nullptr, nullptr, "uniqueidentifier"};
    return FromTable(kNames, *this, dao_type, size);
  }
  std::string AlterColumn(const std::string& table, const std::string& column,
                          const std::string& type) const override {
    return AlterTable(table) + "ALTER COLUMN " + BracketName(column) + " " + type;
  }
  std::string RenameColumn(const std::string& table, const std::string& from,
                           const std::string& to) const override {
    // The server's own procedure, in the form the schema operations have always sent.
    return "sp_rename '" + table + ".[" + from + "]', '" + to + "', 'COLUMN' ";
  }
  std::string SizeQuery() const override {
    return "SELECT SUM(CAST(size AS BIGINT)) * 8192 FROM sysfiles";
  }
  std::string RosterQuery() const override {
    // As in the server administration's roster: processes without a host name are the
    // server's own workers, and the login is the Windows user name.
    return "SELECT rtrim(hostname), rtrim(nt_username) FROM master.dbo.sysprocesses WHERE "
           "dbid = DB_ID() AND spid<>@@spid AND rtrim(hostname)<>''";
  }
};

class OracleDialect : public Dialect {
 public:
  std::string_view Engine() const override { return "Oracle"; }
  std::size_t MaxNameBytes() const override { return 128; }
  const EngineTypes& Types() const override {
    static constexpr EngineTypes kTypes = {"NUMBER(1)",
                                           "NUMBER(3)",
                                           "NUMBER(3)",
                                           "NUMBER(5)",
                                           "NUMBER(10)",
                                           "NUMBER(19)",
                                           "BINARY_FLOAT",
                                           "BINARY_DOUBLE",
                                           "NUMBER(19,4)",
                                           "NUMBER(%p,%s)",
                                           "NUMBER",
                                           38,
                                           38,
                                           "TIMESTAMP(6)",
                                           "DATE",
                                           "TIMESTAMP(6)",
                                           "CHAR(%)",
                                           "VARCHAR2(%)",
                                           4000,
                                           "CLOB",
                                           "RAW(%)",
                                           "RAW(%)",
                                           2000,
                                           "BLOB",
                                           "CHAR(38)"};
    return kTypes;
  }
  std::string ColumnType(std::int32_t dao_type, std::int32_t size) const override {
    static constexpr TypeNames kNames = {
        nullptr,        "NUMBER(1)",     "NUMBER(3)", "NUMBER(5)", "NUMBER(10)", "NUMBER(19,4)",
        "BINARY_FLOAT", "BINARY_DOUBLE", "DATE",      nullptr,     "VARCHAR2",   "BLOB",
        "CLOB",         nullptr,         nullptr,     "CHAR(38)"};
    return FromTable(kNames, *this, dao_type, size);
  }
  std::string AddColumn(const std::string& table, const std::string& column,
                        const std::string& type) const override {
    return AlterTable(table) + "ADD (" + BracketName(column) + " " + type + ")";
  }
  std::string AlterColumn(const std::string& table, const std::string& column,
                          const std::string& type) const override {
    return AlterTable(table) + "MODIFY (" + BracketName(column) + " " + type + ")";
  }
  // A database (an instance) is made by the DBA's tools, not over a client connection.
  std::string CreateDatabase(const std::string&) const override { return {}; }
  std::string DropDatabase(const std::string&) const override { return {}; }
  std::string SizeQuery() const override { return "SELECT SUM(bytes) FROM user_segments"; }
  std::string RosterQuery() const override {
    return "SELECT machine, username FROM v$session WHERE type = 'USER' AND "
           "audsid <> SYS_CONTEXT('USERENV', 'SESSIONID')";
  }
};

// "%" in a type name replaced by `n`; "%p" and "%s" by a decimal's precision and scale.
std::string Fill(const char* pattern, std::int64_t n, std::int32_t p = 0, std::int32_t s = 0) {
  std::string out;
  for (const char* c = pattern; *c; ++c) {
    if (*c != '%') {
      out += *c;
    } else if (c[1] == 'p') {
      out += std::to_string(p), ++c;
    } else if (c[1] == 's') {
      out += std::to_string(s), ++c;
    } else {
      out += std::to_string(n);
    }
  }
  return out;
}

}  // namespace

std::vector<std::string> Dialect::TablesChangedByDelete(Connection&, const std::string&) const {
  return {};
}

const EngineTypes& Dialect::Types() const {
  static constexpr EngineTypes kTypes = {"BOOLEAN",
                                         "SMALLINT",
                                         "SMALLINT",
                                         "SMALLINT",
                                         "INTEGER",
                                         "BIGINT",
                                         "REAL",
                                         "DOUBLE PRECISION",
                                         "NUMERIC(19,4)",
                                         "NUMERIC(%p,%s)",
                                         "NUMERIC",
                                         38,
                                         38,
                                         "TIMESTAMP",
                                         "DATE",
                                         "TIME",
                                         "CHAR(%)",
                                         "VARCHAR(%)",
                                         4000,
                                         "CLOB",
                                         "BINARY(%)",
                                         "VARBINARY(%)",
                                         4000,
                                         "BLOB",
                                         "CHAR(38)"};
  return kTypes;
}

std::string Dialect::ColumnTypeOf(const ColumnInfo& c) const {
  const EngineTypes& t = Types();
  const std::int64_t n = c.defined_size;
  // A form without "%" takes no length on this engine (PostgreSQL's BYTEA).
  const auto sized = [&](const char* form, std::int64_t max, const char* wider) {
    if (std::string_view(form).find('%') == std::string_view::npos) return std::string(form);
    return n > 0 && n <= max ? Fill(form, n) : std::string(wider);
  };
  switch (c.type) {
    case ado::adBoolean:
      return t.boolean;
    case ado::adUnsignedTinyInt:
      return t.byte;
    case ado::adTinyInt:
      return t.tiny;
    case ado::adSmallInt:
      return t.small;
    case 18:  // unsigned 16-bit
    case ado::adInteger:
      return t.integer;
    case 19:  // unsigned 32-bit
    case ado::adBigInt:
      return t.big;
    case 21:  // unsigned 64-bit
      return 20 <= t.max_precision ? Fill(t.decimal, 0, 20, 0) : t.wide_decimal;
    case ado::adSingle:
      return t.single;
    case ado::adDouble:
      return t.dbl;
    case ado::adCurrency:
      return t.currency;
    case ado::adNumeric:
    case 14:  // adDecimal
    case 139: {
      // Precision 0 or 255: the source keeps any exact number (an unconstrained NUMERIC).
      const std::int32_t p = c.precision, s = c.scale == 255 ? 0 : c.scale;
      const bool any = p <= 0 || p == 255 || s > p;
      if (!any && p <= t.max_precision && s <= t.max_scale) return Fill(t.decimal, 0, p, s);
      // A wide form with "%p" keeps a precision the narrow one cannot hold.
      const std::string wide = t.wide_decimal;
      const std::size_t open = wide.find("(%p");
      if (open == std::string::npos) return wide;
      return any ? wide.substr(0, open) : Fill(t.wide_decimal, 0, p, s);
    }
    case ado::adDate:
    case ado::adDBTimeStamp:
      return t.date_time;
    case ado::adDBDate:
      return t.date;
    case ado::adDBTime:
      return t.time;
    case ado::adChar:
    case ado::adWChar:
      return sized(t.fixed_text, t.max_text, t.long_text);
    case ado::adVarChar:
    case ado::adVarWChar:
      return sized(t.text, t.max_text, t.long_text);
    case ado::adBinary:
      return sized(t.fixed_binary, t.max_binary, t.long_binary);
    case ado::adVarBinary:
      return sized(t.binary, t.max_binary, t.long_binary);
    case ado::adLongVarBinary:
      return t.long_binary;
    case ado::adGUID:
      return t.guid;
    default:
      // Long texts and anything the model has no narrower form for: an unbounded text keeps it.
      return t.long_text;
  }
}

std::string Dialect::ColumnType(std::int32_t dao_type, std::int32_t size) const {
  static constexpr TypeNames kNames = {nullptr,     "BOOLEAN",       "SMALLINT", "SMALLINT",
                                       "INTEGER",   "NUMERIC(19,4)", "REAL",     "DOUBLE PRECISION",
                                       "TIMESTAMP", nullptr,         "VARCHAR",  "BLOB",
                                       "CLOB",      nullptr,         nullptr,    "CHAR(38)"};
  return FromTable(kNames, *this, dao_type, size);
}

std::string Dialect::AddColumn(const std::string& table, const std::string& column,
                               const std::string& type) const {
  return AlterTable(table) + "ADD " + BracketName(column) + " " + type;
}

std::string Dialect::AlterColumn(const std::string& table, const std::string& column,
                                 const std::string& type) const {
  return AlterTable(table) + "ALTER COLUMN " + BracketName(column) + " SET DATA TYPE " + type;
}

std::string Dialect::DropColumn(const std::string& table, const std::string& column) const {
  return AlterTable(table) + "DROP COLUMN " + BracketName(column);
}

std::string Dialect::RenameColumn(const std::string& table, const std::string& from,
                                  const std::string& to) const {
  return AlterTable(table) + "RENAME COLUMN " + BracketName(from) + " TO " + BracketName(to);
}

void Dialect::RebuildTable(Connection&, const std::string& table, const std::string&,
                           const ColumnChange&) const {
  RaiseAdo(AdoError::kNotUpdatable, kRebuildSource,
           "(the engine changes the columns of " + table + " in place)");
}

std::string Dialect::CreateDatabase(const std::string& name) const {
  return "CREATE DATABASE " + BracketName(name);
}

std::string Dialect::DropDatabase(const std::string& name) const {
  return "DROP DATABASE " + BracketName(name);
}

const Dialect& DialectFor(std::string_view engine) {
  static const Dialect kPortable;
  static const SqliteDialect kSqlite;
  static const PostgresDialect kPostgres;
  static const MariaDbDialect kMariaDb("MariaDB"), kMySql("MySQL");
  static const SqlServerDialect kSqlServer;
  static const OracleDialect kOracle;
  static const Dialect* const kAll[] = {&kSqlite, &kPostgres,  &kMariaDb,
                                        &kMySql,  &kSqlServer, &kOracle};
  const std::string wanted = AsciiLower(std::string(engine));
  for (const Dialect* d : kAll)
    if (AsciiLower(std::string(d->Engine())) == wanted) return *d;
  return kPortable;
}

// The portable plans: the SQL standard's ALTER TABLE, one statement per step.

SchemaPlan Dialect::PlanAddColumn(Connection& cn, const std::string& table,
                                  const std::string& column, const std::string& type, bool nullable,
                                  const std::string& fill) const {
  RequireTable(cn, table);
  const std::string add = AlterTable(table) + "ADD COLUMN " + BracketName(column) + " " + type;
  if (nullable) return OneStatement(add);
  if (fill.empty()) {
    RequireEmpty(cn, table, column);
    return OneStatement(add + " NOT NULL");
  }
  // The default only fills the rows there are; the column keeps none.
  SchemaPlan p = OneStatement(add + " NOT NULL DEFAULT " + fill);
  p.statements.push_back(AlterTable(table) + "ALTER COLUMN " + BracketName(column) +
                         " DROP DEFAULT");
  return p;
}

SchemaPlan Dialect::PlanAlterColumn(Connection& cn, const std::string& table,
                                    const std::string& column, const std::string& type,
                                    bool nullable) const {
  RequireColumn(cn, table, column);
  if (!nullable) RequireNoNulls(cn, table, column);
  SchemaPlan p = OneStatement(AlterColumn(table, column, type));
  p.statements.push_back(AlterTable(table) + "ALTER COLUMN " + BracketName(column) +
                         (nullable ? " DROP NOT NULL" : " SET NOT NULL"));
  return p;
}

SchemaPlan Dialect::PlanSetNullable(Connection& cn, const std::string& table,
                                    const std::string& column, const std::string&,
                                    bool nullable) const {
  RequireColumn(cn, table, column);
  if (!nullable) RequireNoNulls(cn, table, column);
  return OneStatement(AlterTable(table) + "ALTER COLUMN " + BracketName(column) +
                      (nullable ? " DROP NOT NULL" : " SET NOT NULL"));
}

SchemaPlan Dialect::PlanRenameColumn(Connection& cn, const std::string& table,
                                     const std::string& from, const std::string& to) const {
  RequireColumn(cn, table, from);
  return OneStatement(RenameColumn(table, from, to));
}

SchemaPlan Dialect::PlanDropColumn(Connection& cn, const std::string& table,
                                   const std::string& column) const {
  RequireColumn(cn, table, column);
  return OneStatement(DropColumn(table, column));
}

SchemaPlan Dialect::PlanCreateIndex(Connection& cn, const std::string& table,
                                    const std::vector<std::string>& columns,
                                    const std::string& name, std::int32_t kind) const {
  RequireIndexKind(kind);
  RequireTable(cn, table);
  const std::string list = ColumnList(columns);
  if (kind == kIndexPlain)
    return OneStatement("CREATE INDEX " + BracketName(name) + " ON " + BracketName(table) + " " +
                        list);
  return OneStatement(AlterTable(table) + "ADD CONSTRAINT " + BracketName(name) +
                      (kind == kIndexPrimaryKey ? " PRIMARY KEY " : " UNIQUE ") + list);
}

SchemaPlan Dialect::PlanAddForeignKey(Connection& cn, const ForeignKeyDef& fk) const {
  RequireTable(cn, fk.table);
  RequireTable(cn, fk.referenced);
  return OneStatement(AlterTable(fk.table) + "ADD " + ForeignKeyClause(fk));
}

SchemaPlan Dialect::PlanIdentity(Connection&, const std::string&, const std::string&,
                                 std::int64_t) const {
  RaiseAdo(AdoError::kNotUpdatable, kSchemaSource, "(the engine's numbering cannot be added here)");
}

SchemaPlan Dialect::PlanDropIndex(Connection& cn, const std::string& table, const std::string& name,
                                  bool constraint) const {
  RequireTable(cn, table);
  if (constraint) return OneStatement(AlterTable(table) + "DROP CONSTRAINT " + BracketName(name));
  return OneStatement("DROP INDEX " + BracketName(name));
}

SchemaPlan CombineAlters(const std::string& table, const std::vector<SchemaPlan>& steps) {
  const std::string prefix = AlterTable(table);
  std::string clauses;
  for (const SchemaPlan& step : steps) {
    if (step.rebuild) return {};
    for (const std::string& sql : step.statements) {
      if (sql.compare(0, prefix.size(), prefix) != 0) return {};
      clauses += (clauses.empty() ? "" : ", ") + sql.substr(prefix.size());
    }
  }
  return clauses.empty() ? SchemaPlan{} : OneStatement(prefix + clauses);
}

void RequireWorkingViews(Connection& cn) {
  if (AsciiLower(cn.Engine()) != "sqlite") return;
  std::vector<std::string> views;
  for (auto v = cn.Execute("SELECT name FROM sqlite_master WHERE type = 'view'"); !v->Eof();
       v->MoveNext())
    views.push_back(v->Fields(0).Value().ToText());
  for (const auto& view : views) {
    try {
      cn.Execute("SELECT * FROM " + BracketName(view) + " LIMIT 0");
    } catch (const ZtError& e) {
      throw ZtError(hr::kIntegrity, kRebuildSource,
                    "The change would break the view '" + view + "': " + e.Description());
    }
  }
}

void WithTableSwap(Connection& cn, const std::function<void()>& work) {
  if (AsciiLower(cn.Engine()) != "sqlite") return work();
  cn.Execute("PRAGMA legacy_alter_table = ON");
  try {
    work();
  } catch (...) {
    try {
      cn.Execute("PRAGMA legacy_alter_table = OFF");
    } catch (const ZtError&) {
      // the work's own error is the one to report
    }
    throw;
  }
  cn.Execute("PRAGMA legacy_alter_table = OFF");
}

void RunSchemaPlan(Connection& cn, const SchemaPlan& plan) {
  if (cn.InTransaction())
    RaiseAdo(AdoError::kIllegalOperation, kSchemaSource,
             "(a schema change cannot run inside a transaction)");
  if (!plan.rebuild && !cn.Dialect().TransactionalDdl()) {
    for (const auto& sql : plan.statements) cn.Execute(sql);
    return;
  }
  // A rebuild drops the table its relationships point at: SQLite's foreign-key enforcement is
  // paused for it (it cannot change inside a transaction) and the relationships are checked
  // as a whole before the commit.
  const bool fk_on =
      plan.rebuild && cn.Execute("PRAGMA foreign_keys")->Fields(0).Value().ToInt32() != 0;
  if (fk_on) cn.Execute("PRAGMA foreign_keys = OFF");
  cn.BeginTrans();
  try {
    const auto run = [&] {
      for (const auto& sql : plan.statements) cn.Execute(sql);
    };
    if (plan.rebuild)
      WithTableSwap(cn, run);
    else
      run();
    if (plan.rebuild) {
      auto bad = cn.Execute("PRAGMA foreign_key_check");
      if (bad->State() == ado::adStateOpen && !bad->Eof())
        throw ZtError(hr::kIntegrity, kRebuildSource,
                      "The change would break a relationship of table '" +
                          bad->Fields(0).Value().ToText() + "'.");
      RequireWorkingViews(cn);
    }
    cn.CommitTrans();
  } catch (...) {
    try {
      cn.RollbackTrans();
    } catch (const ZtError&) {
      // The plan's own error is the one to report.
    }
    if (fk_on) cn.Execute("PRAGMA foreign_keys = ON");
    if (plan.rebuild) {
      // The engine names the rebuild's working table ("NOT NULL constraint failed:
      // zt_rebuild_tblTickets.tTitle"); the user knows only the table itself.
      try {
        throw;
      } catch (const ZtError& e) {
        ErrorInfo info = e.Info();
        static const std::string kWorking = "zt_rebuild_";
        for (auto at = info.description.find(kWorking); at != std::string::npos;
             at = info.description.find(kWorking, at))
          info.description.erase(at, kWorking.size());
        throw ZtError(std::move(info));
      }
    }
    throw;
  }
  if (fk_on) cn.Execute("PRAGMA foreign_keys = ON");
}

}  // namespace zt::platform
