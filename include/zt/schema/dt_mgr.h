// Schema operations: the one place that inspects and changes the physical tables of a data store
// (tables and fields that exist, keys and indexes, fields added, renamed, retyped and dropped,
// nullability, indexes created and dropped, tables dropped).
//
//   zt::CZtDTMgr dt;
//   dt.AddFieldToTable(*store, "tblCalls", "tCategory", zt::dao::dbText, 50, false, false);
//   dt.AlterFieldType(*store, "tblCalls", "tCategory", zt::dao::dbText, 100, true);
//
// Names are passed bare; the operations quote them. The way a change is made follows the data
// store's provider type (GeneralProviderType; for the members that take a connection, the
// engine of the connection):
//   * SQL Server (2): the statements the library has always sent, text for text (sp_rename,
//     sp_columns, the sysobjects query for default constraints, "DF_" defaults added and dropped
//     again, "AlterTempField" while a type changes), in one transaction where several are needed;
//   * Oracle (4): the same SQL path; RenameField raises vbObjectError + 9020;
//   * Jet files (1, SQLite here), PostgreSQL (32) and MariaDB/MySQL (16): the engine's own DDL
//     (src/platform/dialect.h). Rows, the indexes the change does not name (with their names) and,
//     on SQLite, triggers and views are kept; a change that fails leaves the table as it was.
//     MariaDB commits each DDL statement on its own, so a change is checked before it starts
//     (Nulls in a column made NOT NULL ...); what can still be left behind is said at each member.
//
// Generated names: default constraint "DF_" + table + "_" + field, primary key "PK_" + table,
// unique index "UN_" + table + "_" + name and plain index "IN_" + table + "_" + name (unless the
// name already starts with "UN_" / "IN_").
//
// Failures: every member logs through the error tail with its location text and raises the
// error again (ZtError); a provider an operation does not support raises vbObjectError + 9020
// (tslDSProviderNotSupportedErr). Each change that succeeds is written to the event log.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "zt/export.h"
#include "zt/platform.h"
#include "zt/user_interaction.h"
#include "zt/variant.h"

namespace zt {

class CZtDataStore;

// Index kinds (CreateIndex, DeleteIndex, GetIndexNames).
inline constexpr std::int32_t kIndexKindPrimaryKey = 4;
inline constexpr std::int32_t kIndexKindUnique = 8;
inline constexpr std::int32_t kIndexKindPlain = 16;

// Copy options (CopyTable), bit flags.
inline constexpr std::int32_t kCopyAppend = 1;   // the rows already in the target stay
inline constexpr std::int32_t kCopySameDb = 2;   // one further step of a copy within a database
inline constexpr std::int32_t kCopyIndexes = 4;  // the table's indexes come with its structure
inline constexpr std::int32_t kCopyReplace = 8;  // an existing target table is dropped first

// Where a table copy stands, for progress displays: called at the start of a table (rows_done
// 0), every few thousand rows and at its end (done true).
struct ZT_EXPORT CopyProgress {
  std::string table;
  std::int64_t rows_done = 0;
  std::int64_t rows_total = -1;  // -1 when the source cannot tell beforehand
  bool done = false;
};
using CopyProgressSink = std::function<void(const CopyProgress&)>;

// What the copy of one table did (CopyTable, CopyPhysicalDataStore).
struct ZT_EXPORT TableCopyResult {
  std::string table;
  bool copied = false;           // the table is in the target, complete
  std::int64_t rows = 0;         // records written
  std::int64_t failed = 0;       // records refused (CopyFieldValue's rules, or the engine)
  std::int64_t source_rows = 0;  // records the source held (verification)
  std::int64_t target_rows = 0;  // records the target holds afterwards (verification)
  double seconds = 0;
  std::string error;                  // why the table was not copied ("" when it was)
  std::vector<std::string> messages;  // the first refusals, with their texts
};

// A record the copy refused, with its values and why (SetCopyRejects). When the engine refused a
// bulk load and the table's rows are copied again record by record, the sink first gets an entry
// with `restart` set: the refusals reported for `table` so far are void, each comes again.
struct ZT_EXPORT CopyReject {
  std::string table;
  std::vector<std::string> columns;  // the source's column names
  std::vector<Variant> values;       // the record's values, one per column
  std::string reason;
  bool restart = false;
};
using CopyRejectSink = std::function<void(const CopyReject&)>;

// A part of a data store beside its tables' columns, rows and indexes that a copy carries over,
// or names as not carried over with the reason: a relationship ("foreign key"), a column the
// engine numbers ("identity"), a column default ("default"), a view ("view").
struct ZT_EXPORT StoreObjectResult {
  std::string kind;
  std::string table;  // the table it belongs to ("" for a view)
  std::string name;   // the relationship's, column's or view's name
  bool kept = false;
  std::string detail;  // what the target got ("DEFAULT 0", "numbers from 831" ...), or why not
};

// What VerifyCopy found when it compared a copied table with its source.
struct ZT_EXPORT CopyVerification {
  bool same = false;  // the target holds exactly the source less the rejected rows
  std::int64_t source_rows = 0;
  std::int64_t target_rows = 0;
  std::int64_t missing = 0;      // source rows the target lacks
  std::int64_t extra = 0;        // target rows the source lacks
  std::int64_t differing = 0;    // rows on both sides whose values differ
  bool by_key = false;           // rows were matched by the primary key (else by content)
  std::string first_difference;  // the first difference in words: table, column, key, values
  double seconds = 0;
};

// One index that contains a field (GetIndexNames).
struct ZT_EXPORT IndexNameInfo {
  std::string name;
  std::int32_t kind = kIndexKindPlain;  // 4 primary key, 8 unique, 16 plain
  bool clustered = false;
  std::vector<std::string> columns;  // every column of the index, in key order
};

// One field of a table (GetAllFieldsInfo).
struct ZT_EXPORT FieldInfo {
  std::string name;
  std::int32_t ado_type = 0;  // DATA_TYPE of the columns rowset (ADO DataTypeEnum)
  std::int32_t dao_type = 0;  // the DAO code the field reads back as (0 when none fits)
  std::int64_t size = 0;      // characters for text, 0 when the type has no length
  bool nullable = true;
  std::int32_t ordinal = 0;  // 1-based position in the table
};

class ZT_EXPORT CZtDTMgr : public Object, public IZtUserInteraction {
 public:
  CZtDTMgr();
  ~CZtDTMgr() override;
  std::string TypeName() const override { return "CZtDTMgr"; }

  // A dry run: while a sink is set, every statement that would change the schema or the data
  // goes to the sink instead of the database, in the order it would run; the reads that plan
  // the change still run. Nothing is changed and nothing is logged as done. nullptr ends it.
  using StatementSink = std::function<void(const std::string& sql)>;
  void SetDryRun(StatementSink sink);
  bool DryRun() const;

  bool TableExists(const std::shared_ptr<Connection>& cn, const std::string& table);
  bool FieldExists(const std::shared_ptr<Connection>& cn, const std::string& table,
                   const std::string& field);
  // The named column (DATA_TYPE, COLUMN_FLAGS, IS_NULLABLE ...) of the field's row in the
  // columns schema rowset; Empty when the field does not exist.
  Variant GetFieldProperty(const std::shared_ptr<Connection>& cn, const std::string& table,
                           const std::string& field, const std::string& property);
  bool FieldExistsDAO(dao::Database& db, const std::string& table, const std::string& field);
  // True when the table has a primary key; `key_name` and `columns` (key order) receive it.
  bool GetPrimaryKeyInfo(const std::shared_ptr<Connection>& cn, const std::string& table,
                         std::string& key_name, std::vector<std::string>& columns);
  // The fields in table order. Raises 3265 (item not found) for a table that does not exist.
  std::vector<FieldInfo> GetAllFieldsInfo(const std::shared_ptr<Connection>& cn,
                                          const std::string& table);
  // "UPDATE table SET field = value WHERE key = key value [AND ...]"; the values are SQL text
  // as the caller wrote them (quoted by the caller).
  void UpdateFieldValue(const std::shared_ptr<Connection>& cn, const std::string& table,
                        const std::string& field, const std::string& value,
                        const std::vector<std::string>& key_fields,
                        const std::vector<std::string>& key_values);
  // "PK_" + table over `fields` (an array of names). Returns true when created.
  bool CreatePrimaryKey(CZtDataStore& ds, const std::string& table, const Variant& fields);
  bool CreatePrimaryKey(const std::shared_ptr<Connection>& cn, const std::string& table,
                        const Variant& fields);
  bool DeleteTable(const std::shared_ptr<Connection>& cn, const std::string& table);
  // Adds a field (DAO type or application type 101-120; size for Text). A field that exists
  // already is only logged. A NOT NULL field is filled with '' or 0 in the existing rows.
  bool AddFieldToTable(CZtDataStore& ds, const std::string& table, const std::string& field,
                       std::int32_t field_type, std::int32_t size, bool nullable,
                       bool allow_zero_length);
  bool RenameField(CZtDataStore& ds, const std::string& table, const std::string& old_name,
                   const std::string& new_name);
  // Gives the field a new type, size and nullability; its name, values and indexes stay.
  bool AlterFieldType(CZtDataStore& ds, const std::string& table, const std::string& field,
                      std::int32_t new_type, std::int32_t new_size, bool nullable);
  // The indexes that contain `field`; true when there is at least one.
  bool GetIndexNames(const std::shared_ptr<Connection>& cn, const std::string& table,
                     const std::string& field, std::vector<IndexNameInfo>& indexes);
  // Every index of the table (for listings).
  std::vector<IndexNameInfo> GetTableIndexes(const std::shared_ptr<Connection>& cn,
                                             const std::string& table);
  bool DeleteIndex(const std::shared_ptr<Connection>& cn, const std::string& table,
                   const std::string& index, std::int32_t kind);
  // Drops the field with its indexes (and its default constraint on SQL Server). A field that
  // does not exist is no error.
  bool DeleteField(CZtDataStore& ds, const std::string& table, const std::string& field);
  bool SetFieldNullability(bool nullable, CZtDataStore& ds, const std::string& table,
                           const std::string& field, std::int32_t field_type,
                           bool allow_zero_length);
  // `fields` an array of names; nothing is done when it is not an array.
  bool CreateIndex(const std::shared_ptr<Connection>& cn, const std::string& table,
                   const Variant& fields, const std::string& index_name, std::int32_t kind);

  // ---- Copying --------------------------------------------------------------------------------
  // Copies `table` from `source` (its connection `source_cn`) into `target` with `options`
  // (kCopyAppend, kCopySameDb, kCopyIndexes, kCopyReplace): within one database when
  // `source_cn` is the target's own connection, else across databases (the structure created
  // when the target lacks the table, then the rows). Across databases the target ends with
  // either the complete copy or the table as it was (no table, or its old rows): a copy that
  // fails is undone. Record refusals are counted (RecordsFailed), not raised. The source is
  // never written.
  //   * Within one database: SELECT INTO on SQL Server (with "select into/bulkcopy" switched on
  //     around it when the login may), CREATE TABLE ... AS SELECT on the other engines.
  //   * Structure: each column gets the narrowest type of the target that holds every value
  //     of the source column exactly (the dialect's column model; the Jet names on an SQLite
  //     file; SQL Server keeps the names of CZtDataType where that table has one), with its
  //     length and nullability. The primary key always comes with the structure on SQLite,
  //     PostgreSQL and MariaDB; with kCopyIndexes (always, on SQL Server) the primary key and
  //     the other indexes by the PK_ / UN_ / IN_ rules. A table name longer than the engine
  //     keeps whole is refused before anything is made. PostgreSQL receives the names folded
  //     to lower case, as every
  //     name the data-access layer sends there: the application writes its names in varying
  //     case ([nID] here, [nId] there), as engines that ignore case let it, and names kept
  //     exactly as written would be different names to PostgreSQL. Everything else about a
  //     column (type, length, nullability, -1/0 Booleans, keys, index names) arrives as it was.
  //   * SQLite, PostgreSQL and SQL Server take structure and rows in one transaction; MariaDB
  //     commits its DDL at once, so a table this copy created is dropped again on failure (with
  //     kCopyReplace the old table is gone by then).
  //   * The structure refused: false, with the reason in LastCopyResults(); a failure while
  //     the rows are copied raises.
  bool CopyTable(CZtDataStore& source, const std::shared_ptr<Connection>& source_cn,
                 const std::string& table, CZtDataStore& target, std::int32_t options);
  // Copies every user table of `source` into `target` (created when missing, unless
  // `must_exist_on_sql_server` asks for an existing SQL Server database), one by one; a table
  // that fails is logged and skipped. `copied` names the data store being copied in the logs.
  // Afterwards the row counts of source and target are compared per table. `not_copied`
  // receives "name not copied" for each table that was not copied. True when every table was.
  bool CopyPhysicalDataStore(CZtDataStore& source, CZtDataStore& target, CZtDataStore& copied,
                             bool must_exist_on_sql_server,
                             std::vector<std::string>* not_copied = nullptr);
  // After the tables are copied, what makes a set of tables a store: between SQLite, PostgreSQL
  // and MariaDB (and from Access files), in this order:
  //   * identities: each column of a table in `created` that the source's engine numbers itself
  //     is numbered by the target too, from the highest copied value + 1 (PostgreSQL identity,
  //     MariaDB AUTO_INCREMENT; on SQLite the INTEGER PRIMARY KEY the structure was given);
  //   * foreign keys between two tables of `tables`, with their ON DELETE / ON UPDATE rules. The
  //     target's rows are checked first: a relationship that rows of the target break is not
  //     added, and the count of those rows and the first one are its reason (no row is ever
  //     dropped to make one fit). One the target has already is left as it is;
  //   * with `views`, every view of the source, its text taken over with the target's quoting;
  //     a view the target refuses (or an Access query, which has no SQL text) is not made.
  // Each is one entry of LastCopyObjects(), kept or not with the reason, and logged (not kept:
  // a warning). True when everything was kept. The column defaults the structure copy
  // translated or left out are entries there as well. Other engines: nothing, true.
  bool CopyStoreObjects(const std::shared_ptr<Connection>& source_cn, CZtDataStore& target,
                        const std::vector<std::string>& tables,
                        const std::vector<std::string>& created, bool views);
  // The entries of the last CopyTable / CopyPhysicalDataStore / CopyStoreObjects since the
  // last ClearCopyObjects (CopyPhysicalDataStore clears them itself).
  const std::vector<StoreObjectResult>& LastCopyObjects() const;
  void ClearCopyObjects();
  // True when `table` has the same field names in both data stores.
  bool VerifySameFields(CZtDataStore& source, CZtDataStore& target, const std::string& table);
  // Copies every record of `source` that passes `filter` (Empty: all) into new records of
  // `target`; refusals are counted and, when any, NUM_FAILED_RECORDS is added to `messages`.
  void CopyRecordset(const std::shared_ptr<Recordset>& source,
                     const std::shared_ptr<Recordset>& target, const Variant& filter = {},
                     std::vector<std::string>* messages = nullptr);
  // Copies the current record of `source` into `target` (into a new record when `add_new`).
  // Raises for a refused value, leaving the target record unwritten.
  void CopyRecord(const std::shared_ptr<Recordset>& target,
                  const std::shared_ptr<Recordset>& source, bool add_new);
  // The counters of the last CopyRecordset / table copy.
  std::int64_t RecordsCopied() const;
  std::int64_t RecordsFailed() const;
  // Progress of table copies (nullptr: none).
  void SetCopyProgress(CopyProgressSink sink);
  // Every record a table copy refuses, with its values and reason (nullptr: none; the counters
  // and the first messages are kept either way).
  void SetCopyRejects(CopyRejectSink sink);
  // Compares `table` in the target with its source value by value: both sides are read once, at
  // the same time, in primary-key order where the source has a primary key (else every row's
  // content is matched as a whole). Numbers compare by value (an integer 3 equals a double 3.0,
  // a decimal 24.990 equals 24.99, a double narrowed to single precision does not), Booleans as
  // -1/0, dates to the microsecond, text and binary byte for byte. `rejected` source rows may be
  // missing from the target (the rows the copy refused); nothing else may differ. Progress goes
  // to the copy's progress sink (rows compared). Raises when either side cannot be read.
  CopyVerification VerifyCopy(const std::shared_ptr<Connection>& source_cn,
                              const std::shared_ptr<Connection>& target_cn,
                              const std::string& table, std::int64_t rejected = 0);
  // One entry per table of the last CopyTable / CopyPhysicalDataStore.
  const std::vector<TableCopyResult>& LastCopyResults() const;

  bool UseLimitedErrorMessages() const { return limited_messages_; }
  void UseLimitedErrorMessages(bool value) { limited_messages_ = value; }
  bool UserInteraction() const override { return user_interaction_; }
  void UserInteraction(bool value) override { user_interaction_ = value; }

 private:
  // The statements that give a table its indexes back after a change: constraint clauses
  // ("CONSTRAINT [PK_t]  PRIMARY KEY ( ... )") and plain CREATE INDEX statements.
  struct IndexStatements {
    std::vector<std::string> constraints;
    std::vector<std::string> plain;
  };
  static std::int32_t ProviderOfStore(CZtDataStore& ds);
  // The column type text of a field (the Text length appended, after a blank when asked).
  static std::string TypeText(const std::shared_ptr<Connection>& cn, std::int32_t provider,
                              std::int32_t& dao_type, std::int32_t size, bool blank_before_size);
  // basDTMgr's column definition: " [field] " + type + " DEFAULT '0' " / " NOT NULL".
  static std::string GetFieldDefinitionSQL(const std::shared_ptr<Connection>& cn,
                                           std::int32_t provider, const std::string& field,
                                           std::int32_t& dao_type, std::int32_t size,
                                           bool nullable);
  static void GetConstraint(std::int32_t provider, const std::string& table,
                            const std::string& field, std::int32_t field_type,
                            std::int32_t dao_type, bool nullable, std::string& name,
                            std::string& value);
  void CreateSimplePrimaryKey(Connection& cn, const std::string& table,
                              const std::vector<std::string>& fields);
  IndexStatements CreateTableIndexesSQLStatements(
      const std::shared_ptr<Connection>& cn, const std::string& table,
      const std::vector<IndexNameInfo>& indexes,
      const std::map<std::string, std::int32_t>& new_types, bool clustering);
  static void CreateIndexSQLStatement(const std::string& table, const IndexNameInfo& index,
                                      const std::map<std::string, std::int32_t>& types,
                                      bool clustering, IndexStatements& out);
  std::string GetDefaultConstraintSQLServer(Connection& cn, const std::string& table,
                                            const std::string& field);
  void DeleteDefaultConstraintSQLServer(Connection& cn, const std::string& table,
                                        const std::string& field);
  void DropField(Connection& cn, std::int32_t provider, const std::string& table,
                 const std::string& field, bool with_indexes);
  static std::string GetFieldDataTypeNameSQLServer(Connection& cn, const std::string& table,
                                                   const std::string& field);
  bool NullabilityNeedsResetting(Connection& cn, const std::string& table, const std::string& field,
                                 bool nullable);
  bool FieldAllowsNulls(Connection& cn, const std::string& table, const std::string& field);
  void AlterSQLMemoFieldNullability(CZtDataStore& ds, const std::string& table,
                                    const std::string& field, bool nullable);
  static bool NullabilityNeedsResetting_Jet(dao::Field& f, std::int32_t field_type, bool nullable,
                                            bool allow_zero_length);
  bool SetNullabilityJet(bool nullable, CZtDataStore& ds, const std::string& table,
                         const std::string& field, std::int32_t field_type, bool allow_zero_length);

  // ---- Copying (dt_copy.cpp) ----
  struct CopyState;
  // The provider type of a connection, from its engine.
  static std::int32_t ProviderOfConnection(const Connection& cn);
  // Runs one statement that changes something (or hands it to the dry-run sink).
  void RunStatement(Connection& cn, const std::string& sql);
  bool CopyTableSameDB(CZtDataStore& source, const std::shared_ptr<Connection>& source_cn,
                       const std::string& table, CZtDataStore& target, std::int32_t options);
  bool CopyTableDifferentDB(CZtDataStore& source, const std::shared_ptr<Connection>& source_cn,
                            const std::string& table, CZtDataStore& target, std::int32_t options,
                            TableCopyResult& result);
  // Server targets (SQL Server, Oracle, PostgreSQL, MariaDB): CREATE TABLE from the source's
  // fields with the target's type names, then the indexes when asked.
  bool CopyTableStructure(const std::shared_ptr<Connection>& source_cn,
                          const std::shared_ptr<Connection>& target_cn, const std::string& table,
                          const std::string& new_table, bool create_indexes,
                          std::int32_t target_provider);
  // An SQLite (Jet) target: the Jet type names, so that the DAO view reads the types back.
  // With `key_for`, the source's primary key is part of the CREATE TABLE, named after the table
  // `key_for` (the table the new one will become); a one-column 64-bit key is the rowid.
  bool CopyTableStructureJet(const std::shared_ptr<Connection>& source_cn,
                             const std::shared_ptr<Connection>& target_cn, const std::string& table,
                             const std::string& new_table, bool create_indexes,
                             const std::string& key_for = {});
  // The rows of one table from source to target (the one place the rows of a table copy go
  // through). Counts into `result`.
  void CopyRows(const std::shared_ptr<Connection>& source_cn,
                const std::shared_ptr<Connection>& target_cn, const std::string& table,
                TableCopyResult& result);
  // Source and target of different providers: the rows, then both counts logged.
  void CopyHeterogeneousRecordset(const std::shared_ptr<Connection>& source_cn,
                                  const std::shared_ptr<Connection>& target_cn,
                                  const std::string& table, TableCopyResult& result);
  // "SELECT * FROM [t]" of the source into "SELECT * FROM [t]" of the target, record by record.
  void CopyRecordsOfTable(const std::shared_ptr<Connection>& source_cn,
                          const std::shared_ptr<Connection>& target_cn, const std::string& table,
                          TableCopyResult& result);
  void ReportProgress(std::int64_t rows_done, bool done);
  // The source table's indexes on the new table of an SQLite, PostgreSQL or MariaDB target,
  // through the engine's index plans, inside the copy's transaction.
  // `on_table`, when given, is the table that gets the indexes named after `new_table`;
  // `key_made`: the primary key came with the CREATE TABLE and is left out.
  void CopyIndexesByPlan(const std::shared_ptr<Connection>& source_cn, Connection& target_cn,
                         const std::string& table, const std::string& new_table,
                         const std::string& on_table = {}, bool primary_only = false,
                         bool key_made = false);
  // A new (or replaced) table on SQLite, PostgreSQL or MariaDB: the rows streamed through the
  // engine's bulk path into a working table, which takes the table's name once complete.
  bool CopyTableByStreaming(CZtDataStore& source, const std::shared_ptr<Connection>& source_cn,
                            const std::string& table, CZtDataStore& target, std::int32_t options,
                            TableCopyResult& result);
  // The rows of a table that stays replaced on those engines: loaded into a working table, then
  // swapped in with one DELETE and one INSERT ... SELECT in a transaction. False (nothing
  // changed) when the engine refuses the swap, for the record-by-record copy to count.
  bool ReplaceRowsByStreaming(const std::shared_ptr<Connection>& source_cn,
                              const std::string& table, CZtDataStore& target,
                              TableCopyResult& result);
  // The rows of `table` streamed into `into` ("" : the table of that name) on `cn`, with the
  // progress reports and the result's counters and refusals.
  void StreamRowsInto(const std::shared_ptr<Connection>& source_cn, const std::string& table,
                      const std::shared_ptr<Connection>& cn, const std::string& into,
                      TableCopyResult& result);
  // Drops a working table if it is there; a failure is cleared, not raised.
  void DropWorkTable(const std::shared_ptr<Connection>& cn, const std::string& work);
  // Rows added to an existing table on those engines: the bulk path straight into the table.
  void AppendByStreaming(const std::shared_ptr<Connection>& source_cn, const std::string& table,
                         const std::shared_ptr<Connection>& cn, TableCopyResult& result);
  // "PK_" + table, "UN_" / "IN_" + table + "_" + name (a name already so prefixed is kept).
  static std::string GeneratedIndexName(const std::string& table, const std::string& name,
                                        std::int32_t kind);
  bool VerifySameFields_Recordset(Recordset& source, Recordset& target);
  std::vector<std::string> GetTables(const std::shared_ptr<Connection>& cn);
  void CopyFieldValue(Field& target, const Variant& value);

  struct Impl;
  std::unique_ptr<Impl> impl_;
  std::unique_ptr<CopyState> copy_;
  bool limited_messages_ = false;
  bool user_interaction_ = false;
};

}  // namespace zt
