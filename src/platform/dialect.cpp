// The engine dialects: the portable defaults and one override per engine.
#include "platform/dialect.h"

#include <array>
#include <cctype>
#include <vector>

#include "platform/errors.h"
#include "platform/sql_text.h"
#include "zt/platform.h"

namespace zt::platform {

namespace {

constexpr const char* kRebuildSource = "DAO.Database";

// `s` as an SQL string literal.
std::string Literal(const std::string& s) {
  std::string out = "'";
  for (char c : s) out += c == '\'' ? std::string("''") : std::string(1, c);
  return out + "'";
}

// End (one past) of a quoted part starting at i, or i when none starts there.
std::size_t SkipQuoted(const std::string& s, std::size_t i) {
  const char c = s[i];
  if (c != '\'' && c != '"' && c != '`' && c != '[') return i;
  const char close = c == '[' ? ']' : c;
  std::size_t j = i + 1;
  while (j < s.size()) {
    if (s[j] == close) {
      if (j + 1 < s.size() && s[j + 1] == close) {
        j += 2;
        continue;
      }
      return j + 1;
    }
    ++j;
  }
  return s.size();
}

// A CREATE TABLE statement cut into its head ("CREATE TABLE x"), its column and constraint items
// and its tail (after the closing parenthesis: WITHOUT ROWID ...).
struct TableSql {
  std::string head, tail;
  std::vector<std::string> items;
};

TableSql SplitCreate(const std::string& sql) {
  TableSql t;
  std::size_t i = 0;
  while (i < sql.size() && sql[i] != '(') {
    const std::size_t e = SkipQuoted(sql, i);
    i = e == i ? i + 1 : e;
  }
  if (i >= sql.size())
    RaiseAdo(AdoError::kInvalidArgument, kRebuildSource, "(unreadable table definition)");
  t.head = sql.substr(0, i);
  int depth = 0;
  std::string item;
  for (++i; i < sql.size(); ++i) {
    const std::size_t e = SkipQuoted(sql, i);
    if (e != i) {
      item.append(sql, i, e - i);
      i = e - 1;
      continue;
    }
    const char c = sql[i];
    if (c == '(') ++depth;
    if (c == ')' && depth-- == 0) break;
    if (c == ',' && depth == 0) {
      t.items.push_back(item);
      item.clear();
      continue;
    }
    item += c;
  }
  t.items.push_back(item);
  t.tail = i < sql.size() ? sql.substr(i + 1) : "";
  return t;
}

// The column name an item defines (unquoted), or "" for a table constraint.
std::string ItemName(const std::string& item) {
  std::size_t i = 0;
  while (i < item.size() && std::isspace(static_cast<unsigned char>(item[i]))) ++i;
  if (i >= item.size()) return {};
  const std::size_t e = SkipQuoted(item, i);
  if (e != i) {
    std::string n = item.substr(i + 1, e - i - 2);
    const char q = item[i] == '[' ? ']' : item[i];
    std::string out;
    for (std::size_t k = 0; k < n.size(); ++k) {
      out += n[k];
      if (n[k] == q && k + 1 < n.size() && n[k + 1] == q) ++k;
    }
    return out;
  }
  std::size_t j = i;
  while (j < item.size() && !std::isspace(static_cast<unsigned char>(item[j]))) ++j;
  const std::string word = item.substr(i, j - i);
  for (const char* kw : {"constraint", "primary", "unique", "check", "foreign"})
    if (AsciiLower(word) == kw) return {};
  return word;
}

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

// SQLite: declared types keep the Jet vocabulary, so that DAO type codes read back as they were
// written. Columns are added, dropped and renamed in place; any other change rebuilds the table.
class SqliteDialect : public Dialect {
 public:
  std::string_view Engine() const override { return "SQLite"; }
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

  // SQLite's documented way to change a column: build the new table beside the old one, copy
  // the rows, drop the old table, rename the new one, then create the indexes, triggers and
  // views again, all in one transaction with foreign-key enforcement paused and checked before
  // commit.
  void RebuildTable(Connection& cn, const std::string& table, const std::string& column,
                    const ColumnChange& change) const override {
    if (cn.InTransaction())
      RaiseAdo(AdoError::kIllegalOperation, kRebuildSource,
               "(a table cannot be rebuilt inside a transaction)");
    auto scalar = [&](const std::string& sql) { return cn.Execute(sql)->Fields(0).Value(); };
    const std::string create =
        scalar("SELECT sql FROM sqlite_master WHERE type = 'table' AND name = " + Literal(table))
            .ToText();
    TableSql parts = SplitCreate(create);
    bool found = false;
    for (std::string& item : parts.items) {
      if (AsciiLower(ItemName(item)) != AsciiLower(column)) continue;
      found = true;
      item = change(item);
    }
    if (!found) RaiseAdo(AdoError::kItemNotFound, kRebuildSource, "(" + column + ")");

    std::vector<std::string> columns;
    {
      auto rs =
          cn.Execute("SELECT name FROM pragma_table_info(" + Literal(table) + ") ORDER BY cid");
      for (; !rs->Eof(); rs->MoveNext()) columns.push_back(rs->Fields(0).Value().ToText());
    }
    std::string column_list;
    for (const auto& c : columns) column_list += (column_list.empty() ? "" : ", ") + BracketName(c);
    std::vector<std::string> recreate, views;
    {
      auto rs = cn.Execute(
          "SELECT type, name, sql FROM sqlite_master WHERE sql IS NOT NULL AND "
          "((type IN ('index', 'trigger') AND tbl_name = " +
          Literal(table) + ") OR type = 'view') ORDER BY type = 'view'");
      for (; !rs->Eof(); rs->MoveNext()) {
        const std::string sql = rs->Fields(2).Value().ToText();
        if (rs->Fields(0).Value().ToText() != "view") {
          recreate.push_back(sql);
        } else if (AsciiLower(sql).find(AsciiLower(table)) != std::string::npos) {
          views.push_back(rs->Fields(1).Value().ToText());
          recreate.push_back(sql);
        }
      }
    }
    std::string body;
    for (const auto& item : parts.items) body += (body.empty() ? "" : ",") + item;
    const std::string temp = "zt_rebuild_" + table;

    const bool fk_on = scalar("PRAGMA foreign_keys").ToInt32() != 0;
    if (fk_on) cn.Execute("PRAGMA foreign_keys = OFF");
    cn.BeginTrans();
    try {
      for (const auto& v : views) cn.Execute("DROP VIEW " + BracketName(v));
      cn.Execute("CREATE TABLE " + BracketName(temp) + " (" + body + ")" + parts.tail);
      cn.Execute("INSERT INTO " + BracketName(temp) + " (" + column_list + ") SELECT " +
                 column_list + " FROM " + BracketName(table));
      cn.Execute("DROP TABLE " + BracketName(table));
      cn.Execute("ALTER TABLE " + BracketName(temp) + " RENAME TO " + BracketName(table));
      for (const auto& sql : recreate) cn.Execute(sql);
      auto bad = cn.Execute("PRAGMA foreign_key_check");
      if (bad->State() == ado::adStateOpen && !bad->Eof())
        throw ZtError(hr::kIntegrity, kRebuildSource,
                      "The change would break a relationship of table '" +
                          bad->Fields(0).Value().ToText() + "'.");
      cn.CommitTrans();
    } catch (...) {
      try {
        cn.RollbackTrans();
      } catch (const ZtError&) {
        // The rebuild's own error is the one to report.
      }
      if (fk_on) cn.Execute("PRAGMA foreign_keys = ON");
      throw;
    }
    if (fk_on) cn.Execute("PRAGMA foreign_keys = ON");
  }
};

class PostgresDialect : public Dialect {
 public:
  std::string_view Engine() const override { return "PostgreSQL"; }
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
    return AlterTable(table) + "ALTER COLUMN " + BracketName(column) + " TYPE " + type;
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

}  // namespace

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

}  // namespace zt::platform

namespace zt::platform {

// Until an engine composes its own plans, a change it is asked for is refused before anything
// runs.
SchemaPlan Dialect::PlanAddColumn(Connection&, const std::string& table, const std::string&,
                                  const std::string&, bool, const std::string&) const {
  RaiseAdo(AdoError::kNotUpdatable, kRebuildSource, "(no schema plans for " + table + ")");
}
SchemaPlan Dialect::PlanAlterColumn(Connection&, const std::string& table, const std::string&,
                                    const std::string&, bool) const {
  RaiseAdo(AdoError::kNotUpdatable, kRebuildSource, "(no schema plans for " + table + ")");
}
SchemaPlan Dialect::PlanSetNullable(Connection&, const std::string& table, const std::string&,
                                    const std::string&, bool) const {
  RaiseAdo(AdoError::kNotUpdatable, kRebuildSource, "(no schema plans for " + table + ")");
}
SchemaPlan Dialect::PlanRenameColumn(Connection&, const std::string& table, const std::string&,
                                     const std::string&) const {
  RaiseAdo(AdoError::kNotUpdatable, kRebuildSource, "(no schema plans for " + table + ")");
}
SchemaPlan Dialect::PlanDropColumn(Connection&, const std::string& table,
                                   const std::string&) const {
  RaiseAdo(AdoError::kNotUpdatable, kRebuildSource, "(no schema plans for " + table + ")");
}
SchemaPlan Dialect::PlanCreateIndex(Connection&, const std::string& table,
                                    const std::vector<std::string>&, const std::string&,
                                    std::int32_t) const {
  RaiseAdo(AdoError::kNotUpdatable, kRebuildSource, "(no schema plans for " + table + ")");
}
SchemaPlan Dialect::PlanDropIndex(Connection&, const std::string& table, const std::string&,
                                  bool) const {
  RaiseAdo(AdoError::kNotUpdatable, kRebuildSource, "(no schema plans for " + table + ")");
}

void RunSchemaPlan(Connection& cn, const SchemaPlan& plan) {
  if (cn.InTransaction())
    RaiseAdo(AdoError::kIllegalOperation, kRebuildSource,
             "(a schema change cannot run inside a transaction)");
  for (const auto& sql : plan.statements) cn.Execute(sql);
}

}  // namespace zt::platform
