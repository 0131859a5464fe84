// The backend interface of the data-access layer: what a database driver implements so that
// Connection, Command and Recordset (include/zt/platform.h) can run on it.
//
// How a driver plugs in
// ---------------------
//  1. Write one file src/platform/<name>_driver.cpp with a class derived from ConnectionBackend
//     and one derived from StatementBackend. Override what the engine needs; the portable
//     defaults below cover the rest (schema rowsets through information_schema, bulk loading
//     through one prepared INSERT in one transaction, liveness through "SELECT 1").
//  2. Describe the engine in one DriverQuirks value (quoting style, transactional DDL, row-count
//     semantics ...). The layer reads the quirks instead of testing driver names, so a new
//     engine never adds an `if` anywhere else.
//  3. Declare its factory below (OpenSqliteDriver ...) and add it to the one list of drivers in
//     driver.cpp. The provider table (ParseConnectionString) maps the provider of an OLE DB
//     connection string to one of these names.
//  4. Report every failure with RaiseSqlState / RaiseSqlite (errors.h): the SQLSTATE or native
//     code goes through one table that picks the HRESULT a caller of the old library saw, and
//     the ZtError carries the native code and message in its Description, the provider as Source.
//
// Statements reach a backend as exactly one statement, with `[name]` quoting already rewritten
// for the engine's QuoteStyle and with parameters written as "?" (a backend whose engine wants
// "$1" converts them with RewritePlaceholders of sql_text.h).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "zt/export.h"
#include "zt/variant.h"

namespace zt::platform {

// How the engine quotes identifiers; `[name]` in SQL text is rewritten to this form.
enum class QuoteStyle {
  kBrackets,      // [name]: SQLite, SQL Server, Access
  kDoubleQuotes,  // "name": PostgreSQL, Oracle
  kBackticks,     // `name`: MySQL, MariaDB
};

// How a bracketed name reaches an engine whose quoted names are case-sensitive. The library's
// SQL names one table several ways ("[tblTesselVersion]" in one statement, "[tbltesselversion]"
// in the next), as SQL Server and Jet treat names without regard to case.
enum class NameFolding {
  kNone,     // names keep their case, the engine compares them itself (SQLite, SQL Server, MySQL)
  kLower,    // folded to lower case, as the engine folds unquoted names (PostgreSQL over ODBC)
  kUpper,    // folded to upper case (Oracle)
  kCatalog,  // the catalog's own spelling of a name that matches whatever its case; a name the
             // catalog does not hold (a table being made) keeps its case (native PostgreSQL)
};

// What an UPDATE reports as its row count.
enum class RowCountStyle {
  kMatched,  // rows that matched the WHERE clause (most engines)
  kChanged,  // only rows whose values changed (MariaDB without Option=2)
};

// How a DELETE is limited to one row when identical rows cannot be told apart (no key, no row
// identity): SQL Server's "DELETE TOP (1) FROM", MySQL's "... LIMIT 1".
enum class OneRowDelete { kNone, kTop, kLimit };

// Everything that differs between engines in ways the layer above cares about. One value per
// driver (or per ODBC target driver), never scattered tests of the engine's name.
struct ZT_TEST_EXPORT DriverQuirks {
  std::string engine;                        // "SQLite", "PostgreSQL", "MariaDB", "SQL Server" ...
  QuoteStyle quote = QuoteStyle::kBrackets;  // how `[name]` is rewritten
  bool bracket_escapes = true;               // "]]" in [..] reads as "]" (SQL Server)
  NameFolding fold = NameFolding::kNone;     // applied to `[name]` as it is rewritten
  bool transactional_ddl = true;             // a rollback also undoes CREATE/ALTER/DROP
  RowCountStyle row_count = RowCountStyle::kMatched;
  bool backslash_escapes = false;   // '\'' and "\"" escape a quote inside a literal (MySQL)
  bool mysql_comments = false;      // "#" comments; "--" needs a blank after it; "/*!" runs (MySQL)
  bool escape_strings = false;      // E'...' literals take backslash escapes (PostgreSQL)
  bool dollar_quotes = false;       // $tag$ ... $tag$ is a literal (PostgreSQL)
  bool keyset_cursors = false;      // the engine itself keeps keysets (else emulated)
  bool read_only = false;           // every write is refused (Access files via MDB Tools)
  bool index_rowset = true;         // the indexes rowset can be listed safely
  bool has_schemas = true;          // TABLE_SCHEMA is meaningful (false: SQLite, MySQL)
  std::string row_identity;         // hidden row id usable in WHERE ("rowid", "ctid")
  bool row_identity_moves = false;  // each write gives the row a new identity, which the
                                    // statement hands back with RETURNING (PostgreSQL's ctid)
  OneRowDelete one_row_delete = OneRowDelete::kNone;
  std::size_t max_name_bytes = 0;  // longer names are cut by the engine; 0: no limit known
};

// One column of a result, described once when a statement is executed.
struct ZT_TEST_EXPORT ColumnInfo {
  std::string name;
  std::int32_t type = 200;        // ADO DataTypeEnum code (adVarChar when unknown)
  std::int64_t defined_size = 0;  // characters for text, bytes otherwise
  std::int32_t attributes = 0;    // ADO FieldAttributeEnum bits
  std::int32_t precision = 255;   // numeric precision, 255 when not applicable
  std::int32_t scale = 255;       // numeric scale, 255 when not applicable
  std::string base_table;         // the table the column comes from ("" for expressions)
  std::string base_column;        // its name there
  bool key_column = false;        // part of the base table's primary key
  bool auto_increment = false;    // filled by the engine on insert
};

// A fully buffered result, used for schema rowsets and by backends that read everything at once.
struct ZT_TEST_EXPORT RowSet {
  std::vector<ColumnInfo> columns;
  std::vector<std::vector<Variant>> rows;
};

// A prepared statement and, after Execute, its result. Not shared between threads.
class ZT_TEST_EXPORT StatementBackend {
 public:
  virtual ~StatementBackend() = default;

  // Number of "?" parameters of the statement.
  virtual int ParameterCount() = 0;
  // Binds parameter `index` (0-based). The value is copied. Empty and Null bind SQL NULL.
  // Throws ZtError when the value cannot be bound.
  virtual void Bind(int index, const Variant& value) = 0;
  // Binds `bytes` as a binary value (the layer carries binary values as byte strings, which
  // Bind hands over as text). Default: Bind of the string, for engines whose binary columns
  // take text as it is.
  virtual void BindBytes(int index, const std::string& bytes) { Bind(index, Variant(bytes)); }
  // The caller will read the rows once, front to back: the backend may fetch them as they are
  // read instead of all at once. Called before Execute; the default reads them all at once.
  virtual void StreamRows() {}
  // Runs the statement with the bound values, discarding any earlier result. Throws ZtError.
  virtual void Execute() = 0;
  // The columns of the current result (empty for a statement that returns no rows).
  virtual const std::vector<ColumnInfo>& Columns() = 0;
  // Moves to the next row of the result; false (and stays there) after the last.
  virtual bool Fetch() = 0;
  // Value of column `col` of the current row (valid after Fetch returned true).
  virtual Variant Get(int col) = 0;
  // Rows changed by the last Execute (-1 when unknown or for a query).
  virtual std::int64_t RowsAffected() = 0;
};

// A bulk loader for one table and a fixed column list (the library's own table copies).
class ZT_TEST_EXPORT BulkWriterBackend {
 public:
  virtual ~BulkWriterBackend() = default;
  // Adds one row; `values` has one entry per column given to BeginBulk. Throws ZtError.
  virtual void AddRow(const std::vector<Variant>& values) = 0;
  // Writes what is pending and ends the load. Throws ZtError; after a failure nothing of
  // this load is kept.
  virtual void Finish() = 0;
};

class ConnectionBackend;
class Dialect;

// A transaction of the layer's own (a bulk load, a guarded write): begun by the constructor,
// rolled back by Abandon or by the destructor unless Commit succeeded. Errors of the rollback
// are swallowed: the caller needs the error that ended the work, not this one.
class ZT_TEST_EXPORT ScopedTransaction {
 public:
  explicit ScopedTransaction(ConnectionBackend& conn);  // throws ZtError when BEGIN fails
  ~ScopedTransaction() { Abandon(); }
  ScopedTransaction(const ScopedTransaction&) = delete;
  ScopedTransaction& operator=(const ScopedTransaction&) = delete;
  bool Open() const { return open_; }
  // Raises 3704 (object closed) once the load has ended: a row sent after a failure would
  // otherwise be written outside any transaction and kept.
  void RequireOpen() const;
  // Commits; when the commit fails, rolls back and rethrows its error.
  void Commit();
  void Abandon();

 private:
  ConnectionBackend& conn_;
  bool open_ = false;
  bool joined_ = false;  // inside the owner's transaction: nothing to begin, commit or undo
};

// "INSERT INTO t (a, b) VALUES (?, ?)" with `rows` lists of "?", names quoted for the engine.
ZT_TEST_EXPORT std::string InsertText(const DriverQuirks& quirks, const std::string& table,
                                      const std::vector<std::string>& columns, std::size_t rows);

// The one-row DELETE form of the engine named `engine` (SQL Server: kTop; MariaDB and MySQL:
// kLimit; others kNone, as they have a row identity or no such form).
ZT_TEST_EXPORT OneRowDelete OneRowDeleteOf(const std::string& engine);

// The schema rowsets that the layer lists (their OLE DB numbers). Views and foreign keys are
// listed for the connection's default schema (database) as a whole; the layer applies their
// restrictions to the rows.
enum class SchemaKind : int {
  kColumns = 4,
  kIndexes = 12,
  kTables = 20,
  kViews = 23,
  kForeignKeys = 27,
  kPrimaryKeys = 28
};

// The restrictions of a schema query; an absent value does not restrict. The order follows the
// OLE DB restriction columns of each rowset (catalog, schema, table, then the rowset's own).
struct ZT_TEST_EXPORT SchemaRestrictions {
  std::optional<std::string> catalog;
  std::optional<std::string> schema;  // "" means the connection's default schema
  std::optional<std::string> table;
  std::optional<std::string>
      extra;  // tables: TABLE_TYPE; columns: COLUMN_NAME; indexes: INDEX_NAME
};

// An open connection to one database. Owned by a zt::Connection; used by one thread.
class ZT_TEST_EXPORT ConnectionBackend {
 public:
  virtual ~ConnectionBackend() = default;

  virtual const DriverQuirks& Quirks() const = 0;

  // Prepares one statement (already rewritten, "?" placeholders). Throws ZtError.
  virtual std::unique_ptr<StatementBackend> Prepare(const std::string& sql) = 0;

  virtual void BeginTransaction() = 0;
  virtual void Commit() = 0;
  virtual void Rollback() = 0;

  // Seconds a statement may run before it is cancelled with a time-out error; 0 = no limit.
  virtual void SetCommandTimeout(int seconds) { (void)seconds; }

  // The engine's own spelling of `name` (a schema, table, view, column, index or constraint it
  // holds): `name` itself when an object has exactly that name, else the spelling of one that
  // matches it without regard to ASCII case, else "". For an `unquoted` word of the SQL text:
  // the spelling to quote it in when the catalog holds it exactly as written, or when the
  // engine's folding of it reaches nothing but a match in another case does; else "" (keywords
  // included). Engines whose quirks
  // fold names ask this only to keep an exactly named object's case. Default: "".
  // Called with a statement's text before its names are asked for (CatalogSpelling), so that
  // a name spelled differently by two tables is taken from the table the statement names.
  virtual void BeginStatement(const std::string& sql) { (void)sql; }
  virtual std::string CatalogSpelling(const std::string& name, bool unquoted) {
    (void)name;
    (void)unquoted;
    return {};
  }

  // A cheap check that the server is still there. Default: runs "SELECT 1".
  virtual bool IsAlive();

  // The connection's current catalog (database) and default schema ("" when the engine has none).
  virtual std::string CurrentCatalog();
  virtual std::string DefaultSchema();

  // Primary-key column names of `table` in key order (empty when it has none).
  // Default: reads the primary-keys rowset.
  virtual std::vector<std::string> PrimaryKeyColumns(const std::string& table);

  // One schema rowset with the OLE DB column names. Default: information_schema queries.
  virtual RowSet Schema(SchemaKind kind, const SchemaRestrictions& restrictions);

  // The value the engine gave the auto-increment column of the last INSERT on this connection
  // (Null when unknown). Default: Null.
  virtual Variant LastInsertId() { return Variant::Null(); }

  // The SQL the engine speaks for column and database work (platform/dialect.h). Default: the
  // dialect of Quirks().engine, so a driver that serves several engines (ODBC) gets each one's.
  virtual const Dialect& EngineDialect() const;

  // Starts a bulk load. Default: one prepared INSERT per row inside one transaction.
  virtual std::unique_ptr<BulkWriterBackend> BeginBulk(const std::string& table,
                                                       const std::vector<std::string>& columns);

  // True while the owner runs a transaction of its own (BeginTrans): a bulk load started then
  // is part of it, beginning and committing nothing, and after a failure the owner rolls back.
  bool caller_transaction = false;

 protected:
  // Runs `sql` with `params` and buffers its whole result (a helper for the defaults).
  RowSet Query(const std::string& sql, const std::vector<Variant>& params = {});
};

// The parameters of one connection, after the OLE DB connection string has gone through the
// provider table. Passwords stay here and are never written to a log or an error text.
struct ZT_TEST_EXPORT ConnectParams {
  std::string provider;     // as the caller wrote it ("Microsoft.Jet.OLEDB.4.0", "MSDASQL" ...);
                            // without one, "MSDASQL" when Driver= is given, else "SQLite"
  std::string driver;       // registry name of the backend ("sqlite", "odbc", "postgresql" ...)
  std::string data_source;  // file path or server name, without the port
  int port = 0;             // 0 = the driver's default
  std::string database;
  std::string user;
  std::string password;
  bool integrated_security = false;
  bool read_only = false;
  int login_timeout = 0;    // seconds, 0 = the driver's default
  int read_timeout = 0;     // seconds a read may wait on a silent server, 0 = no limit
  std::string odbc_driver;  // the ODBC Driver= name, for the ODBC backend
  // Keys for the ODBC driver: which key names carry server, database, user and password.
  std::string odbc_server_key = "Server";
  std::string odbc_database_key = "Database";
  // Fixed keys the provider table adds for the target driver (TDS_Version=7.4, Option=2 ...).
  std::vector<std::pair<std::string, std::string>> odbc_fixed;
  // Keys of the connection string that the table did not translate, as written.
  std::vector<std::pair<std::string, std::string>> extra;

  // The DSN-less ODBC connection string: Driver, server (with ",port" or Port=), database, user,
  // password, fixed keys, then the extra keys; every value goes through OdbcQuote, so a value
  // can never inject another key.
  std::string OdbcConnectionString() const;
};

// Opens a backend; throws ZtError (a refused server connection is a general failure).
using DriverFactory = std::function<std::unique_ptr<ConnectionBackend>(const ConnectParams&)>;

// The drivers built into the library. The registry (driver.cpp) lists them in one place, by
// name, so that none can vanish from a statically linked program the way a file-scope
// registration object would.
ZT_TEST_EXPORT std::unique_ptr<ConnectionBackend> OpenSqliteDriver(const ConnectParams& p);
ZT_TEST_EXPORT std::unique_ptr<ConnectionBackend> OpenOdbcDriver(const ConnectParams& p);
ZT_TEST_EXPORT std::unique_ptr<ConnectionBackend> OpenPostgresDriver(const ConnectParams& p);
ZT_TEST_EXPORT std::unique_ptr<ConnectionBackend> OpenScriptedDriver(const ConnectParams& p);
ZT_TEST_EXPORT std::unique_ptr<ConnectionBackend> OpenAccessDriver(const ConnectParams& p);
ZT_TEST_EXPORT std::unique_ptr<ConnectionBackend> OpenMariaDbDriver(const ConnectParams& p);

// The factory registered under `name` (case-insensitive), or nullptr.
ZT_TEST_EXPORT const DriverFactory* FindDriver(const std::string& name);

// One key/value pair of a connection string, as written (key trimmed, value unquoted).
using ConnectionKeys = std::vector<std::pair<std::string, std::string>>;

// Splits an OLE DB or ODBC connection string: "key=value;" pairs, keys trimmed and matched
// without regard to case; values may be quoted with '...' or "..." (the quote doubled inside) or
// with {...} ("}}" inside). Throws ZtError 0x80040E73 (bad connection string) on an unclosed quote.
ZT_TEST_EXPORT ConnectionKeys SplitConnectionString(const std::string& text);

// Value of `key` (case-insensitive), or nullopt.
ZT_TEST_EXPORT std::optional<std::string> FindKey(const ConnectionKeys& keys,
                                                  const std::string& key);

// Quotes an ODBC attribute value with braces ("}" doubled inside) when it holds ";", "{", "}",
// outer blanks or a leading quote character, so that it can never end early or add a key.
ZT_TEST_EXPORT std::string OdbcQuote(const std::string& value);

// One entry of the provider table. `pattern` matches the provider name without regard to case;
// a trailing "*" matches any rest ("Microsoft.Jet.OLEDB.*").
struct ZT_TEST_EXPORT ProviderEntry {
  std::string pattern;
  std::string driver;       // registry name
  std::string odbc_driver;  // default ODBC Driver= name ("" = taken from the string)
  std::string odbc_server_key = "Server";
  std::string odbc_database_key = "Database";
  std::vector<std::pair<std::string, std::string>> odbc_fixed;
};

// The provider table: which driver opens a provider name. A table never changes once built;
// whoever needs other entries builds another table and hands it to the connections it opens
// (Connection::SetProviderTable), so one caller's table never reaches another's connections.
class ZT_TEST_EXPORT ProviderTable {
 public:
  explicit ProviderTable(std::vector<ProviderEntry> entries) : entries_(std::move(entries)) {}
  const std::vector<ProviderEntry>& Entries() const { return entries_; }
  // The first entry whose pattern matches `provider`, or nullptr.
  const ProviderEntry* Find(const std::string& provider) const;
  // The library's own table, built once.
  static const std::shared_ptr<const ProviderTable>& BuiltIn();

 private:
  std::vector<ProviderEntry> entries_;
};

// Entries that come before every table on the calling thread while they are set: how the
// scripted test driver takes over a provider name. Set and cleared by ScopedScriptedProvider
// only; they end with it and never reach another thread.
ZT_TEST_EXPORT void PushThreadProviderOverride(ProviderEntry entry);
ZT_TEST_EXPORT void PopThreadProviderOverride(const std::string& pattern);

// Translates an OLE DB connection string through `table` (the built-in table when nullptr).
// User and password given separately (Connection::Open's arguments) win over the string's when
// not empty. Throws ZtError 0x800A0E7A (provider not found) for an unknown provider.
ZT_TEST_EXPORT ConnectParams ParseConnectionString(const std::string& text,
                                                   const std::string& user = {},
                                                   const std::string& password = {},
                                                   const ProviderTable* table = nullptr);

}  // namespace zt::platform
