// The data-access layer: connections, commands, recordsets, fields and schema rowsets with the
// members and numbers of the old data-access objects, on real engines (SQLite embedded,
// PostgreSQL, MariaDB/MySQL, and ODBC drivers for the rest).
//
//   auto cn = std::make_shared<zt::Connection>();
//   cn->Open("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=/srv/tessel/tessel.db;");
//   auto rs = std::make_shared<zt::Recordset>();
//   rs->Open("SELECT * FROM [tblCalls] WHERE nId > 10", cn, zt::ado::adOpenKeyset,
//            zt::ado::adLockOptimistic);
//   while (!rs->Eof()) { rs->Fields("tStatus").SetValue("Closed"); rs->Update(); rs->MoveNext(); }
//
// Failures throw zt::ZtError (see error.h) with the HRESULT the old objects raised: engine
// errors go through one table (0x80004005 general failure, 0x80040E14 command error, 0x80040E09
// permission, 0x80040E4D login, 0x80040E31 time-out ...) with the engine's native code and
// message in the Description and the provider as Source; misuse of an object raises the
// 0x800A0xxx numbers (3021 no current record, 3251 not updatable, 3265 no such field, 3704
// object closed ...), all named in zt/error_codes.h. Engine errors also carry the engine's
// SQLSTATE, native code and the kind of failure (ZtError::SqlState, NativeError, Category). A
// failed call changes nothing that the caller can see, except where a member says otherwise.
// Passwords never appear in an error text.
//
// The DAO view (zt::dao::Database with its TableDefs) is declared in zt/platform/dao.h, which
// this header includes. Objects belong to the thread that created them. A Recordset keeps its
// connection's engine session alive until it is closed or destroyed.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "zt/error.h"
#include "zt/error_codes.h"
#include "zt/export.h"
#include "zt/variant.h"

namespace zt {

namespace platform {
class ConnectionBackend;
class Dialect;
class ProviderTable;
class StatementBackend;
class BulkWriterBackend;
struct Session;
struct ColumnInfo;
struct RowSet;
}  // namespace platform

// The numbers of the old enumerations, so that code ported from the old library reads the same.
namespace ado {
inline constexpr std::int32_t adStateClosed = 0;
inline constexpr std::int32_t adStateOpen = 1;

inline constexpr std::int32_t adOpenUnspecified = -1;
inline constexpr std::int32_t adOpenForwardOnly = 0;
inline constexpr std::int32_t adOpenKeyset = 1;
inline constexpr std::int32_t adOpenDynamic = 2;  // kept as a keyset cursor
inline constexpr std::int32_t adOpenStatic = 3;

inline constexpr std::int32_t adLockUnspecified = -1;
inline constexpr std::int32_t adLockReadOnly = 1;
inline constexpr std::int32_t adLockPessimistic = 2;  // written as optimistic
inline constexpr std::int32_t adLockOptimistic = 3;
inline constexpr std::int32_t adLockBatchOptimistic = 4;

inline constexpr std::int32_t adUseServer = 2;
inline constexpr std::int32_t adUseClient = 3;

inline constexpr std::int32_t adCmdUnspecified = -1;
inline constexpr std::int32_t adCmdText = 1;
inline constexpr std::int32_t adCmdTable = 2;
inline constexpr std::int32_t adCmdUnknown = 8;
inline constexpr std::int32_t adCmdTableDirect = 512;
inline constexpr std::int32_t adExecuteNoRecords = 128;

inline constexpr std::int32_t adSearchForward = 1;
inline constexpr std::int32_t adSearchBackward = -1;

inline constexpr std::int32_t adFilterNone = 0;
inline constexpr std::int32_t adFilterPendingRecords = 1;

inline constexpr std::int32_t adEditNone = 0;
inline constexpr std::int32_t adEditInProgress = 1;
inline constexpr std::int32_t adEditAdd = 2;

inline constexpr std::int32_t adSchemaColumns = 4;
inline constexpr std::int32_t adSchemaIndexes = 12;
inline constexpr std::int32_t adSchemaTables = 20;
inline constexpr std::int32_t adSchemaViews = 23;
inline constexpr std::int32_t adSchemaForeignKeys = 27;
inline constexpr std::int32_t adSchemaPrimaryKeys = 28;

// DataTypeEnum.
inline constexpr std::int32_t adSmallInt = 2;
inline constexpr std::int32_t adInteger = 3;
inline constexpr std::int32_t adSingle = 4;
inline constexpr std::int32_t adDouble = 5;
inline constexpr std::int32_t adCurrency = 6;
inline constexpr std::int32_t adDate = 7;
inline constexpr std::int32_t adBoolean = 11;
inline constexpr std::int32_t adTinyInt = 16;
inline constexpr std::int32_t adUnsignedTinyInt = 17;
inline constexpr std::int32_t adBigInt = 20;
inline constexpr std::int32_t adGUID = 72;
inline constexpr std::int32_t adBinary = 128;
inline constexpr std::int32_t adChar = 129;
inline constexpr std::int32_t adWChar = 130;
inline constexpr std::int32_t adNumeric = 131;
inline constexpr std::int32_t adDBDate = 133;
inline constexpr std::int32_t adDBTime = 134;
inline constexpr std::int32_t adDBTimeStamp = 135;
inline constexpr std::int32_t adVarChar = 200;
inline constexpr std::int32_t adLongVarChar = 201;
inline constexpr std::int32_t adVarWChar = 202;
inline constexpr std::int32_t adLongVarWChar = 203;
inline constexpr std::int32_t adVarBinary = 204;
inline constexpr std::int32_t adLongVarBinary = 205;

// FieldAttributeEnum.
inline constexpr std::int32_t adFldUpdatable = 0x4;
inline constexpr std::int32_t adFldUnknownUpdatable = 0x8;
inline constexpr std::int32_t adFldFixed = 0x10;
inline constexpr std::int32_t adFldIsNullable = 0x20;
inline constexpr std::int32_t adFldMayBeNull = 0x40;
inline constexpr std::int32_t adFldLong = 0x80;
inline constexpr std::int32_t adFldRowID = 0x100;
inline constexpr std::int32_t adFldRowVersion = 0x200;
inline constexpr std::int32_t adFldKeyColumn = 0x8000;
}  // namespace ado

class Recordset;

// A live session with one database.
class ZT_EXPORT Connection : public Object, public std::enable_shared_from_this<Connection> {
 public:
  Connection();
  ~Connection() override;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  std::string TypeName() const override { return "Connection"; }

  // Opens the database named by `connection_string` (the OLE DB form "Provider=...;Data
  // Source=...;"; see the provider table in src/platform/connection_string.cpp). An empty string
  // reopens with the one stored by the last Open or set with SetConnectionString. `user` and
  // `password`, when not empty, win over the string's. `options` is accepted and ignored.
  // Raises 3705 when already open, 3706 for an unknown provider, the engine's error otherwise
  // (a refused or missing server is 0x80004005). On failure the connection stays closed.
  void Open(const std::string& connection_string = {}, const std::string& user = {},
            const std::string& password = {}, std::int32_t options = -1);
  // Closes the session; a transaction still open is rolled back, and open recordsets keep
  // reading what they hold. No error when closed.
  void Close();
  // adStateOpen (1) or adStateClosed (0). A connection that a failed statement found dead
  // reports closed.
  std::int32_t State() const;
  // A cheap round trip to the engine; when it fails the connection is closed and false returned.
  bool IsAlive();

  // Runs one statement. `records_affected` receives the rows changed (-1 for a query). Returns a
  // forward-only read-only recordset over the rows (it shares this connection's session),
  // closed when the statement returns none or `options` holds adExecuteNoRecords.
  // A second statement in the text is refused (0x80040E14) before anything runs. Raises 3704
  // when closed and the engine's error when the statement fails.
  std::shared_ptr<Recordset> Execute(const std::string& sql,
                                     std::int64_t* records_affected = nullptr,
                                     std::int32_t options = -1);

  // Transactions. BeginTrans returns the nesting level (1); only one level is supported and a
  // second BeginTrans raises 3219. Commit/Rollback without a transaction raise 3219 as well.
  std::int32_t BeginTrans();
  void CommitTrans();
  void RollbackTrans();
  bool InTransaction() const;

  std::int32_t CursorLocation() const { return cursor_location_; }
  void SetCursorLocation(std::int32_t location);  // adUseServer or adUseClient, else 3001
  std::int32_t CommandTimeout() const { return command_timeout_; }
  void SetCommandTimeout(std::int32_t seconds);  // 0 = no limit; negative raises 3001
  std::int32_t ConnectionTimeout() const { return connection_timeout_; }
  void SetConnectionTimeout(std::int32_t seconds) { connection_timeout_ = seconds; }
  // The provider named in the connection string ("Microsoft.Jet.OLEDB.4.0"); without one,
  // "MSDASQL" when the string names a Driver=, else "SQLite" (the embedded engine it opens).
  std::string Provider() const;
  // The engine's name from the driver ("SQLite", "PostgreSQL", "MariaDB" ...), "" when closed.
  std::string Engine() const;
  // The stored connection string, with the password as written (never log it).
  const std::string& ConnectionString() const { return connection_string_; }
  void SetConnectionString(const std::string& text);  // raises 3705 while open
  // The provider table the next Open maps provider names through (nullptr: the library's
  // built-in table, the default). Data stores hand in the table with the configured providers.
  void SetProviderTable(std::shared_ptr<const platform::ProviderTable> table);
  // The current database ("" for SQLite).
  std::string DefaultDatabase() const;
  // The engine's column type for a DAO type code (1 Boolean, 2 Byte, 3 Integer, 4 Long,
  // 5 Currency, 6 Single, 7 Double, 8 Date, 10 Text, 11 Long binary, 12 Memo, 15 GUID) and,
  // for Text, its length in characters: "TEXT(50)" on an SQLite file (the Jet vocabulary),
  // "VARCHAR(50)" on PostgreSQL and MariaDB. Raises 3704 when closed, 3001 for an unknown code.
  std::string ColumnType(std::int32_t dao_type, std::int32_t size = 0) const;
  // The engine's dialect (src/platform/dialect.h): column changes, database creation, size and
  // user-roster queries. Raises 3704 when closed.
  const platform::Dialect& Dialect() const;

  // A schema rowset: adSchemaTables (20), adSchemaColumns (4), adSchemaIndexes (12),
  // adSchemaPrimaryKeys (28), adSchemaViews (23), adSchemaForeignKeys (27), with the OLE DB
  // column names. `restrictions` is Empty or an array of catalog, schema, table and, for tables
  // TABLE_TYPE, for columns COLUMN_NAME, for indexes INDEX_NAME; Empty elements do not restrict;
  // an empty schema means the default schema. Foreign keys take OLE DB's order: the referenced
  // (primary-key) table third, the table holding the key sixth; one row per column pair, with
  // UPDATE_RULE and DELETE_RULE ("CASCADE", "SET NULL", "NO ACTION" ...). A view's
  // VIEW_DEFINITION is its query in the engine's own SQL, Null where the engine cannot give it
  // as SQL (a query of an Access file).
  // (PostgreSQL takes an absent schema as its default schema too, so that its system catalogs
  // stay out of the lists.) Other rowsets raise 3251; the indexes rowset of a driver that cannot
  // list indexes safely (MDB Tools' ODBC driver) raises 3251 as well. The result is a static
  // read-only recordset that keeps the session alive; the engine's error is raised when the query
  // fails.
  std::shared_ptr<Recordset> OpenSchema(std::int32_t schema, const Variant& restrictions = {});

  // For the layer's own use and for drivers: the session, or nullptr when closed.
  const std::shared_ptr<platform::Session>& SessionPtr() const { return session_; }
  // The session, raising 3704 when closed.
  platform::Session& RequireSession() const;

 private:
  std::shared_ptr<platform::Session> session_;
  std::string connection_string_;
  std::shared_ptr<const platform::ProviderTable> provider_table_;
  std::int32_t cursor_location_ = ado::adUseServer;
  std::int32_t command_timeout_ = 30;
  std::int32_t connection_timeout_ = 15;
};

// A statement prepared once and run many times with new values (the library's bulk work).
// It keeps the connection's engine session alive until it is destroyed, even past Close.
class ZT_EXPORT PreparedStatement {
 public:
  // Prepares `sql` ("?" for each parameter; one statement, as for Connection::Execute) on
  // `connection`. Raises 3704 when the connection is closed, the engine's error for bad SQL.
  PreparedStatement(const Connection& connection, const std::string& sql);
  ~PreparedStatement();
  PreparedStatement(const PreparedStatement&) = delete;
  PreparedStatement& operator=(const PreparedStatement&) = delete;

  int ParameterCount();
  // Binds parameter `index` (0-based); the value is copied. Raises 3001 for a bad index.
  void Bind(int index, const Variant& value);
  // Binds `bytes` as a binary value for a binary column (Bind of a string binds text).
  void BindBytes(int index, const std::string& bytes);
  // Runs the statement; returns the rows changed. Values stay bound for the next run. Raises
  // the engine's error; what a failed run changed is undone by the engine, as for any single
  // statement.
  std::int64_t Execute();

 private:
  std::shared_ptr<platform::Session> session_;
  std::unique_ptr<platform::StatementBackend> stmt_;
  int parameters_ = 0;
};

// Loads rows into one table as fast as the engine allows (COPY on PostgreSQL, prepared INSERTs
// in one transaction elsewhere). All or nothing: the rows are kept only when Finish succeeds.
// A load that fails, or is destroyed before Finish, leaves the table as it was. It keeps the
// connection's engine session alive until it is destroyed.
// Started inside a transaction opened with BeginTrans, the load is part of that transaction:
// Finish commits nothing, and after a failure the caller rolls back (on engines with
// transactional DDL, a CREATE TABLE and its load can so be kept or undone together).
class ZT_EXPORT BulkInserter {
 public:
  // Starts the load of `columns` of `table` (plain names, quoted here for the engine). Raises
  // 3704 when the connection is closed, the engine's error for an unknown table or column (some
  // engines only report that with the first rows).
  BulkInserter(const Connection& connection, const std::string& table,
               const std::vector<std::string>& columns);
  ~BulkInserter();
  BulkInserter(const BulkInserter&) = delete;
  BulkInserter& operator=(const BulkInserter&) = delete;
  // One value per column, in the constructor's order (else 3001, and the load goes on). The
  // engine may report a bad row here or only at Finish; after such an error the load is over:
  // nothing of it is kept and every later call raises 3704.
  void AddRow(const std::vector<Variant>& values);
  // Writes what is pending and commits. Raises the engine's error (nothing kept then), or 3704
  // when the load is already over.
  void Finish();

 private:
  std::shared_ptr<platform::Session> session_;
  std::unique_ptr<platform::BulkWriterBackend> writer_;
  std::size_t columns_;
};

// A statement with its connection and time-out (the old Command object).
class ZT_EXPORT Command : public Object {
 public:
  std::string TypeName() const override { return "Command"; }
  const std::shared_ptr<Connection>& ActiveConnection() const { return connection_; }
  void SetActiveConnection(std::shared_ptr<Connection> connection) {
    connection_ = std::move(connection);
  }
  const std::string& CommandText() const { return text_; }
  void SetCommandText(std::string text) { text_ = std::move(text); }
  std::int32_t CommandTimeout() const { return timeout_; }
  void SetCommandTimeout(std::int32_t seconds);  // negative raises 3001
  // Values for the "?" parameters of the text, in order.
  std::vector<Variant>& Parameters() { return parameters_; }

  // Runs the text on the active connection under this command's time-out (the connection's own
  // time-out is restored afterwards), as Connection::Execute does (one statement; options
  // adExecuteNoRecords). Raises 3704 without an open connection, the engine's error otherwise.
  std::shared_ptr<Recordset> Execute(std::int64_t* records_affected = nullptr,
                                     std::int32_t options = -1);

 private:
  std::shared_ptr<Connection> connection_;
  std::string text_;
  std::int32_t timeout_ = 30;
  std::vector<Variant> parameters_;
};

// One column of a recordset's current row. Owned by its Recordset; valid while it is open.
// A Variant can hold one without copying it, keeping its recordset alive, through the aliasing
// constructor: Variant(std::shared_ptr<Object>(recordset, &recordset->Fields("tName"))).
class ZT_EXPORT Field : public Object {
 public:
  std::string TypeName() const override { return "Field"; }
  const std::string& Name() const;
  std::int32_t Type() const;         // ADO DataTypeEnum code
  std::int64_t DefinedSize() const;  // characters for text, bytes otherwise
  std::int32_t Attributes() const;   // ADO FieldAttributeEnum bits
  std::int32_t Precision() const;
  std::int32_t NumericScale() const;
  // The value in the current row (raises 3021 at BOF/EOF).
  Variant Value() const;
  // Changes the value in the current row's edit buffer (starts an edit). Raises 3251 on a
  // read-only recordset or a column that cannot be written, 0x80040E21 for a text longer than
  // DefinedSize; nothing changes then.
  void SetValue(const Variant& value);
  // The value as it was read (before any pending change).
  Variant OriginalValue() const;
  // True when the engine numbers the column itself on insert (an AutoNumber, identity, serial,
  // AUTO_INCREMENT, or SQLite's INTEGER PRIMARY KEY).
  bool AutoIncrement() const;
  // Length of the current value in bytes (text) or its size.
  std::int64_t ActualSize() const;

 private:
  friend class Recordset;
  Field(Recordset* rs, int index) : rs_(rs), index_(index) {}
  Recordset* rs_;
  int index_;
};

// The Fields collection of a Recordset.
class ZT_EXPORT FieldsCollection {
 public:
  std::int32_t Count() const { return static_cast<std::int32_t>(fields_.size()); }
  // By 0-based position or by name (case-insensitive); raises 3265 when there is none.
  Field& Item(std::int32_t index);
  Field& Item(const std::string& name);
  // True when a column of that name exists (no error, no allocation of an error text).
  bool Has(const std::string& name) const;
  // Position of `name`, or -1.
  int IndexOf(const std::string& name) const;

 private:
  friend class Recordset;
  std::vector<Field> fields_;
  std::unordered_map<std::string, int> by_name_;  // lower-cased names
};

// One column of a recordset built in memory (Recordset::OpenDisconnected).
struct ZT_EXPORT RecordsetColumn {
  std::string name;
  std::int32_t type = ado::adVarWChar;  // ADO DataTypeEnum code
  std::int64_t defined_size = 0;        // characters for text (0: no limit), bytes otherwise
  // FieldAttributeEnum bits: without adFldIsNullable the column refuses Null; without
  // adFldUpdatable (or adFldUnknownUpdatable) it cannot be changed.
  std::int32_t attributes = ado::adFldUpdatable | ado::adFldIsNullable | ado::adFldMayBeNull;
  std::int32_t precision = 255;  // 255 when not applicable
  std::int32_t scale = 255;
};

// Rows of a query or table with a cursor (the old Recordset object).
class ZT_EXPORT Recordset : public Object {
 public:
  Recordset();
  ~Recordset() override;
  Recordset(const Recordset&) = delete;
  Recordset& operator=(const Recordset&) = delete;
  std::string TypeName() const override { return "Recordset"; }

  // Opens `source` (SQL text, or a table name with adCmdTable / adCmdTableDirect, or a bare
  // name with adCmdUnknown) on `connection`. Forward-only read-only recordsets stream; every
  // other kind reads its rows at open (keyset and static cursors are kept on the client;
  // dynamic becomes keyset, and a client cursor location makes the cursor static).
  // Raises 3705 when already open, 3704 when the connection is closed, the engine's error
  // otherwise (the recordset stays closed).
  void Open(const std::string& source, const std::shared_ptr<Connection>& connection,
            std::int32_t cursor_type = ado::adOpenForwardOnly,
            std::int32_t lock_type = ado::adLockReadOnly, std::int32_t options = -1);
  // Opens a disconnected recordset over `rows` (one value per column, in the order of
  // `columns`), with no connection behind it: a client-side static cursor that reads, moves,
  // Finds, Filters and edits in memory only. The recordset takes both vectors; its values are
  // kept as given (no conversion to the column's type). With adLockReadOnly nothing can be
  // changed; with adLockOptimistic AddNew/Update/Delete take effect at once; with
  // adLockBatchOptimistic (the default) they stay pending, as adFilterPendingRecords shows,
  // until UpdateBatch accepts them or CancelBatch drops them. Nothing is ever written anywhere.
  // Raises 3705 when already open; 3001 for no columns, an empty or repeated column name
  // (names compare without regard to case), a row whose number of values differs from the
  // columns', or another lock type; 0x80040E21 for a text longer than its column's
  // DefinedSize or a Null in a column without adFldIsNullable. The recordset then stays closed.
  void OpenDisconnected(std::vector<RecordsetColumn> columns,
                        std::vector<std::vector<Variant>> rows = {},
                        std::int32_t lock_type = ado::adLockBatchOptimistic);
  // Closes; pending batch changes are dropped. No error when closed.
  void Close();
  std::int32_t State() const { return open_ ? ado::adStateOpen : ado::adStateClosed; }

  bool Eof() const;
  bool Bof() const;
  // Rows visible through the filter; -1 for a forward-only cursor.
  std::int64_t RecordCount() const;
  // 1-based position of the current row among the visible rows, -1 at BOF/EOF or when unknown.
  std::int64_t AbsolutePosition() const;
  std::int32_t CursorType() const { return cursor_type_; }
  std::int32_t LockType() const { return lock_type_; }
  std::int32_t EditMode() const { return edit_mode_; }
  const std::string& Source() const { return source_; }
  // The connection the recordset was opened on (null for one made by a Connection that is not
  // held by a shared_ptr).
  const std::shared_ptr<Connection>& ActiveConnection() const { return connection_; }

  // Moves. A forward-only cursor raises 3219 for a move backwards; MoveFirst on
  // it runs the statement again. Moving past EOF/BOF raises 3021. A pending edit is written
  // first (Update), as the old objects did.
  void MoveFirst();
  void MoveLast();
  void MoveNext();
  void MovePrevious();
  void Move(std::int64_t rows);

  FieldsCollection& GetFields();
  Field& Fields(std::int32_t index) { return GetFields().Item(index); }
  Field& Fields(const std::string& name) { return GetFields().Item(name); }
  Field& Fields(const char* name) { return GetFields().Item(std::string(name)); }
  // Shorthands for Fields(name).Value() / SetValue().
  Variant Value(const std::string& name) { return Fields(name).Value(); }
  bool HasField(const std::string& name) const { return fields_.Has(name); }

  // Searches for the first row meeting `criteria` ("COLUMN_NAME='x'", "nId > 5", "tName LIKE
  // 'ab*'"), starting `skip` rows from the current one (or from the first/last row when there
  // is no current one) in `direction`. Not found: EOF (forward) or BOF (backward). A criteria
  // text that cannot be read raises 3001 and leaves the position.
  void Find(const std::string& criteria, std::int64_t skip = 0,
            std::int32_t direction = ado::adSearchForward);

  // Shows only the rows meeting the criteria (the Find forms joined with AND / OR and
  // parentheses), or adFilterNone (0) / adFilterPendingRecords (1). Moves to the first visible
  // row. A forward-only recordset reads its remaining rows first.
  void SetFilter(const Variant& filter);
  const Variant& Filter() const { return filter_; }

  // Editing. AddNew starts a new row (written by Update, or by UpdateBatch in batch mode);
  // Update writes the current row's changes by key with a generated parameterised statement
  // (immediate locks) or marks them pending (batch lock); CancelUpdate drops the edit buffer;
  // Delete removes the current row (immediately, or at UpdateBatch). A row changed by another
  // session since it was read raises 0x80040E38 and stays as it was here.
  void AddNew();
  void Update();
  void CancelUpdate();
  void Delete();
  // Writes every pending change in one transaction; on any failure that transaction is rolled
  // back, the table is as it was, the changes stay pending and the error is raised. Inside a
  // transaction the caller opened with BeginTrans the writes join it instead: after a failure
  // the rows written so far stay in that transaction until the caller rolls it back.
  void UpdateBatch();
  // Drops every pending change.
  void CancelBatch();

 private:
  friend class Field;
  friend class FieldsCollection;
  friend class Connection;
  friend class Command;
  struct Row;
  struct Impl;

  // Opens over rows already read (schema rowsets).
  void OpenRowSet(platform::RowSet rows, std::shared_ptr<platform::Session> session);
  void OpenStatement(std::shared_ptr<platform::Session> session,
                     std::unique_ptr<platform::StatementBackend> stmt, bool stream);

  void RequireOpen() const;
  void RequireCurrent() const;
  void RequireWritable() const;
  Variant ValueAt(int col) const;
  Variant OriginalAt(int col) const;
  void SetValueAt(int col, const Variant& v);
  void BuildFields();
  void StreamNext();
  void BufferRest();
  void FirstVisible();
  bool Visible(std::size_t row) const;
  void Step(int direction);
  void WriteRow(Row& row);
  void Reopen();

  std::unique_ptr<Impl> impl_;
  std::shared_ptr<Connection> connection_;
  FieldsCollection fields_;
  bool open_ = false;
  std::int32_t cursor_type_ = ado::adOpenForwardOnly;
  std::int32_t lock_type_ = ado::adLockReadOnly;
  std::int32_t edit_mode_ = ado::adEditNone;
  std::string source_;
  Variant filter_ = Variant(std::int32_t{0});
};

}  // namespace zt

// The DAO view over embedded database files (Database, TableDefs, Fields, Recordset).
#include "zt/platform/dao.h"
