// What differs between engines in the SQL the library composes for whole-database and
// single-column work: column types for DAO type codes, column changes, database creation, size
// and the user roster. One Dialect per engine; the portable defaults cover what the SQL standard
// says, and an engine overrides only where it departs. Callers reach the dialect of an open
// connection through Connection::Dialect, or by engine name through DialectFor when they must
// compose text before a connection exists (creating a database).
//
// Statements come back in the library's own `[name]` quoting; the layer rewrites them for the
// engine when they are executed. Only the table rebuild runs statements itself, since it is a
// sequence that must stay together.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "zt/export.h"

namespace zt {
class Connection;
}

namespace zt::platform {

struct ColumnInfo;

// The type names an engine gives each logical type of the column model (the ADO code, length,
// precision and scale that every driver reports in ColumnInfo). "%" in a sized name stands for
// the length; decimals take "%p" and "%s". A name is used only up to its limit; past it the next
// wider form is taken (a long text, a long binary, an unconstrained decimal).
struct ZT_TEST_EXPORT EngineTypes {
  const char* boolean;
  const char* byte;          // 0 ... 255
  const char* tiny;          // -128 ... 127
  const char* small;         // 16-bit
  const char* integer;       // 32-bit
  const char* big;           // 64-bit
  const char* single;        // 4-byte float
  const char* dbl;           // 8-byte float
  const char* currency;      // 19 digits, 4 decimals
  const char* decimal;       // "NUMERIC(%p,%s)"
  const char* wide_decimal;  // past max_precision or without a precision: any exact number
  std::int32_t max_precision;
  std::int32_t max_scale;
  const char* date_time;  // a date with its time of day (and fraction where the engine keeps one)
  const char* date;
  const char* time;
  const char* fixed_text;  // "CHAR(%)"
  const char* text;        // "VARCHAR(%)"
  std::int64_t max_text;   // longest sized text, in characters
  const char* long_text;
  const char* fixed_binary;
  const char* binary;
  std::int64_t max_binary;
  const char* long_binary;
  const char* guid;
};

// Gets one column's item of a CREATE TABLE text ("[tName] TEXT(20) NOT NULL") and returns the
// item that replaces it.
using ColumnChange = std::function<std::string(const std::string& item)>;

// One schema change as the statements that make it, in order. Plans are composed from what the
// table holds now (the planning itself only reads) and run by RunSchemaPlan, or printed by a
// dry run, which then changes nothing.
struct ZT_TEST_EXPORT SchemaPlan {
  std::vector<std::string> statements;
  // A table rebuild (SQLite): foreign-key enforcement is paused around the transaction and the
  // relationships are checked before it commits. It runs in one transaction even on an engine
  // without transactional DDL.
  bool rebuild = false;
};

// A relationship between two tables: `columns` of `table` refer to `referenced_columns` of
// `referenced`; the rules are "CASCADE", "SET NULL", "SET DEFAULT", "RESTRICT" or "NO ACTION".
struct ZT_TEST_EXPORT ForeignKeyDef {
  std::string name, table, referenced;
  std::vector<std::string> columns, referenced_columns;
  std::string update_rule = "NO ACTION", delete_rule = "NO ACTION";
};

// Index kinds, as the schema operations number them.
inline constexpr std::int32_t kIndexPrimaryKey = 4;
inline constexpr std::int32_t kIndexUnique = 8;
inline constexpr std::int32_t kIndexPlain = 16;

class ZT_TEST_EXPORT Dialect {
 public:
  virtual ~Dialect() = default;

  // The engine this dialect speaks for ("SQLite", "PostgreSQL", "MariaDB", "SQL Server",
  // "Oracle"; "" for the portable defaults).
  virtual std::string_view Engine() const { return {}; }

  // The column type of a DAO type code (1 Boolean ... 15 GUID) and, for Text (10), its length in
  // characters (255 when 0 or less). Throws ZtError 3001 for an unknown code.
  virtual std::string ColumnType(std::int32_t dao_type, std::int32_t size) const;

  // The narrowest column type of this engine that holds every value of `column` exactly (a
  // 64-bit integer stays 64-bit, a double a double, an exact decimal exact, an unbounded text
  // unbounded), never a narrower one. Nullability, defaults and keys are the caller's.
  std::string ColumnTypeOf(const ColumnInfo& column) const;
  // The engine's type names for the column model (the portable defaults: standard SQL).
  virtual const EngineTypes& Types() const;
  // Other tables whose rows a DELETE of `table`'s rows would change through their relationships
  // (ON DELETE CASCADE, SET NULL or SET DEFAULT, where the engine enforces them). Default: none.
  virtual std::vector<std::string> TablesChangedByDelete(Connection& cn,
                                                         const std::string& table) const;
  // An ORDER BY item that sorts `column` (already in `[name]` form) as the bytes of its values
  // where `text` says it holds text, so that every engine gives one order. Default: as it is.
  virtual std::string OrderByBytes(const std::string& column, bool text) const {
    (void)text;
    return column;
  }
  // The longest table or column name the engine keeps whole, in bytes (0: no limit the
  // library knows); a longer one would be cut silently, so it is refused before anything is made.
  virtual std::size_t MaxNameBytes() const { return 0; }

  // Single-column changes. An empty text means the engine cannot change the column in place
  // (see RebuildsTables).
  virtual std::string AddColumn(const std::string& table, const std::string& column,
                                const std::string& type) const;
  virtual std::string AlterColumn(const std::string& table, const std::string& column,
                                  const std::string& type) const;
  virtual std::string DropColumn(const std::string& table, const std::string& column) const;
  virtual std::string RenameColumn(const std::string& table, const std::string& from,
                                   const std::string& to) const;
  // True when changing a column's type or constraints needs the table rebuilt (new table, copy
  // the rows, swap, recreate indexes), as on SQLite.
  virtual bool RebuildsTables() const { return false; }
  // True when PlanDropColumn also drops every index over the column, in the same plan.
  virtual bool DropColumnTakesItsIndexes() const { return false; }
  // Plans of "ALTER TABLE t ..." statements that CombineAlters can join into one: true where
  // the DDL is not transactional but one ALTER TABLE of several clauses is all or nothing.
  virtual bool CombinesAlterClauses() const { return false; }
  // Rebuilds `table` on `cn` with the item of `column` replaced by change(item): a new table
  // beside the old one, the rows copied, the old one dropped and the new one renamed, indexes,
  // triggers and views created again, all in one transaction; nothing changes when a step fails.
  // Raises 3265 when the table has no such column, 3219 inside an open transaction, and 3251 on
  // an engine that changes columns in place (the default).
  virtual void RebuildTable(Connection& cn, const std::string& table, const std::string& column,
                            const ColumnChange& change) const;

  // Schema changes as plans, for engines whose DDL differs from the library's SQL Server texts
  // (SQLite, PostgreSQL, MariaDB/MySQL). Each keeps the table's rows and the indexes that the
  // change does not name (with their names), and on SQLite its triggers and views. Planning
  // reads the table on `cn` and raises before anything changes when the change cannot succeed:
  // 3265 for a missing table or column, the engine's integrity error (0x80040E2F) when rows
  // hold Null for a column made NOT NULL. `type` is the engine's column type text
  // ("VARCHAR(50)", from the data types table); names are bare.
  //
  // Adds `column`; when not nullable the existing rows get `fill` ("''", "0"; "" : none), and
  // the column keeps no default afterwards.
  virtual SchemaPlan PlanAddColumn(Connection& cn, const std::string& table,
                                   const std::string& column, const std::string& type,
                                   bool nullable, const std::string& fill) const;
  // Gives `column` a new type and nullability, converting the values in place.
  virtual SchemaPlan PlanAlterColumn(Connection& cn, const std::string& table,
                                     const std::string& column, const std::string& type,
                                     bool nullable) const;
  // Changes only the nullability; `type` is the column's present type text.
  virtual SchemaPlan PlanSetNullable(Connection& cn, const std::string& table,
                                     const std::string& column, const std::string& type,
                                     bool nullable) const;
  virtual SchemaPlan PlanRenameColumn(Connection& cn, const std::string& table,
                                      const std::string& from, const std::string& to) const;
  // Drops `column`; the caller has removed the indexes that contain it.
  virtual SchemaPlan PlanDropColumn(Connection& cn, const std::string& table,
                                    const std::string& column) const;
  // Creates an index of `kind` (kIndexPrimaryKey, kIndexUnique, kIndexPlain) named `name` (the
  // caller's final name: "PK_" ..., "UN_" ..., "IN_" ...) over `columns`.
  virtual SchemaPlan PlanCreateIndex(Connection& cn, const std::string& table,
                                     const std::vector<std::string>& columns,
                                     const std::string& name, std::int32_t kind) const;
  // Drops the index `name` of `table`; `constraint` says that it is a primary key or unique
  // constraint rather than a plain index. The name may be the one the indexes rowset lists
  // ("PrimaryKey" or sqlite_autoindex_... on SQLite, PRIMARY on MariaDB) or the one the key was
  // made with (PK_ + table); a unique index made by CREATE UNIQUE INDEX is dropped as an index
  // even when `constraint` is set.
  virtual SchemaPlan PlanDropIndex(Connection& cn, const std::string& table,
                                   const std::string& name, bool constraint) const;
  // Adds the relationship `fk` to a table that may hold rows. The plan does not look at the
  // rows: a caller that must not lose any checks them first. SQLite has no ADD CONSTRAINT: the
  // clause is written into the table's stored definition (its documented way to add a
  // constraint that does not change how the rows are stored), which the schema version bump
  // makes every connection read again.
  virtual SchemaPlan PlanAddForeignKey(Connection& cn, const ForeignKeyDef& fk) const;
  // Makes the engine number `column` of `table` itself from `next` on: an identity (PostgreSQL),
  // AUTO_INCREMENT (MariaDB). SQLite numbers only a table's INTEGER PRIMARY KEY: an empty plan
  // for that column, 3251 for any other. 3251 where the engine has no such change here; on
  // MariaDB 0x80040E2F when a row holds 0, which the engine would number anew.
  virtual SchemaPlan PlanIdentity(Connection& cn, const std::string& table,
                                  const std::string& column, std::int64_t next) const;
  // False when the engine commits each DDL statement on its own (MariaDB/MySQL): a plan of
  // several statements can then stop half-way, and the planning checks beforehand instead
  // (Nulls for NOT NULL: 0x80040E2F; a text that does not read as a number for a numeric type:
  // 0x80040E07; a text longer than a new length: 0x80040E57). Each single ALTER TABLE there is
  // still all or nothing. What can be left behind: an added NOT NULL column keeps its fill
  // default when the second statement (DROP DEFAULT) fails after the first committed, and
  // MODIFY COLUMN restates only the type and nullability, so a column's DEFAULT, COMMENT or
  // AUTO_INCREMENT not given in `type` is dropped by an alter or a nullability change.
  //
  // Plans by engine:
  //   SQLite      ADD COLUMN (nullable); a rebuild for NOT NULL adds, type and nullability
  //               changes, primary keys and constraint drops; RENAME COLUMN; DROP COLUMN when
  //               no key, index, constraint, trigger or view names the column, else a rebuild;
  //               CREATE [UNIQUE] INDEX and DROP INDEX for plain and unique indexes.
  //   PostgreSQL  ALTER COLUMN ... TYPE ... USING CAST, SET / DROP NOT NULL, RENAME COLUMN,
  //               DROP COLUMN, ADD COLUMN ... NOT NULL DEFAULT fill then DROP DEFAULT,
  //               ADD / DROP CONSTRAINT, DROP INDEX schema.name; all in one transaction.
  //   MariaDB     MODIFY COLUMN type NULL / NOT NULL, RENAME COLUMN, DROP COLUMN, ADD COLUMN
  //               ... NOT NULL DEFAULT fill then DROP DEFAULT, ADD CONSTRAINT, ALTER TABLE
  //               DROP INDEX / DROP PRIMARY KEY (the key's index is always PRIMARY there).
  virtual bool TransactionalDdl() const { return true; }

  // Creating and dropping a whole database, sent over a connection to the server's maintenance
  // database. "" when a client cannot do it over a connection (a file engine, Oracle).
  virtual std::string CreateDatabase(const std::string& name) const;
  virtual std::string DropDatabase(const std::string& name) const;
  // The database a server connection uses while no database of the application is selected
  // ("" : none is named, the server picks the login's default).
  virtual std::string MaintenanceDatabase() const { return {}; }

  // One row, one column: the bytes the current database occupies. "" when the engine cannot
  // tell a client.
  virtual std::string SizeQuery() const { return {}; }
  // Rows of (computer name, login name) of the other sessions in the current database; the
  // asking session itself is never among them. "" when the engine has no such list.
  virtual std::string RosterQuery() const { return {}; }
  // A statement that makes a lazily opened database show that it can be read (a locked or
  // damaged file), run right after opening. "" when opening already tells.
  virtual std::string OpenProbe() const { return {}; }
};

// Runs `plan` on `cn`: in one transaction when the engine has transactional DDL (nothing changes
// when a statement fails), statement by statement otherwise. Raises 3219 inside a transaction
// the caller opened, and the failing statement's error.
ZT_TEST_EXPORT void RunSchemaPlan(Connection& cn, const SchemaPlan& plan);

// The steps as one "ALTER TABLE [table] a, b, ..." when every statement of every step is an
// ALTER TABLE of `table` and none rebuilds it; an empty plan otherwise.
ZT_TEST_EXPORT SchemaPlan CombineAlters(const std::string& table,
                                        const std::vector<SchemaPlan>& steps);

// Runs `work`, in which a table is dropped and another renamed to its name, so that the views
// and triggers of other tables that name it survive. SQLite checks every view and trigger when a
// table is renamed and refuses while the name they use is missing; its documented table-rebuild
// procedure renames with legacy_alter_table on, which touches nothing but the renamed table.
// Other engines run `work` as it is.
ZT_TEST_EXPORT void WithTableSwap(Connection& cn, const std::function<void()>& work);

// SQLite: raises 0x80040E2F ("The change would break the view 'v': ...") for the first view
// that no longer reads, so that a change inside the caller's transaction can be undone. A view
// is text that SQLite reads only when it is used: one that names a column a changed table no
// longer has would otherwise fail later, in the application. Other engines check their views
// themselves.
ZT_TEST_EXPORT void RequireWorkingViews(Connection& cn);

// The dialect of the engine named `engine` (as DriverQuirks::engine names it, case ignored);
// the portable defaults for an engine without one of its own.
ZT_TEST_EXPORT const Dialect& DialectFor(std::string_view engine);

}  // namespace zt::platform
