// The DAO view over an embedded (SQLite) database file: the database, its table definitions with
// their fields, and a simple recordset, with DAO's names and type codes.
//
//   auto db = zt::dao::Database::OpenDatabase("/srv/tessel/tessel.db");
//   zt::dao::Field& f = db->TableDefs("tblCalls").Fields("tNotes");
//   if (!f.Required()) f.SetRequired(true);   // rebuilds tblCalls, keeping rows and indexes
//
// Declared column types keep the Jet vocabulary (TEXT(n), LONG, SHORT, BIT, CURRENCY, DATETIME,
// MEMO ...), so the DAO codes read back what was declared. SQLite cannot change a column in
// place: a setter rebuilds the table (new table, rows copied, old one dropped, indexes,
// triggers and the views that name it created again) inside one transaction and checks the
// foreign keys before it commits. If anything fails, the table is as it was and the error
// (a zt::ZtError with the engine's number, e.g. 0x80040E2F when rows hold Null for a field made
// Required) reaches the caller.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zt/export.h"
#include "zt/platform.h"

namespace zt::dao {

// DataTypeEnum of DAO.
inline constexpr std::int32_t dbBoolean = 1;
inline constexpr std::int32_t dbByte = 2;
inline constexpr std::int32_t dbInteger = 3;
inline constexpr std::int32_t dbLong = 4;
inline constexpr std::int32_t dbCurrency = 5;
inline constexpr std::int32_t dbSingle = 6;
inline constexpr std::int32_t dbDouble = 7;
inline constexpr std::int32_t dbDate = 8;
inline constexpr std::int32_t dbBinary = 9;
inline constexpr std::int32_t dbText = 10;
inline constexpr std::int32_t dbLongBinary = 11;
inline constexpr std::int32_t dbMemo = 12;
inline constexpr std::int32_t dbGUID = 15;
inline constexpr std::int32_t dbBigInt = 16;
inline constexpr std::int32_t dbDecimal = 20;

// RecordsetTypeEnum of DAO.
inline constexpr std::int32_t dbOpenTable = 1;
inline constexpr std::int32_t dbOpenDynaset = 2;
inline constexpr std::int32_t dbOpenSnapshot = 4;
inline constexpr std::int32_t dbOpenForwardOnly = 8;

class Database;
class TableDef;

// A field of a table definition. Owned by its TableDef; valid until the TableDefs are re-read
// (Database::Refresh, or a setter of another field of the same table).
class ZT_EXPORT Field {
 public:
  const std::string& Name() const { return name_; }
  std::int32_t Type() const { return type_; }  // DAO code (dbText ...)
  // Characters for text, bytes for fixed-size types, 0 for Memo and Long binary.
  std::int32_t Size() const { return size_; }
  bool Required() const { return required_; }
  // Meaningful for Text and Memo; other types answer false.
  bool AllowZeroLength() const { return allow_zero_length_; }

  // Change the table (see the header comment). Setting the value it already has does nothing.
  // AllowZeroLength on a field that is not Text or Memo raises 3001.
  void SetRequired(bool required);
  void SetAllowZeroLength(bool allow);

 private:
  friend class TableDef;
  friend class Database;
  TableDef* table_ = nullptr;
  std::string name_;
  std::int32_t type_ = dbText;
  std::int32_t size_ = 0;
  bool required_ = false;
  bool allow_zero_length_ = true;
};

class ZT_EXPORT TableDef {
 public:
  const std::string& Name() const { return name_; }
  std::int32_t FieldCount() const { return static_cast<std::int32_t>(fields_.size()); }
  // By position or by name (case-insensitive); raises 3265 when there is none.
  Field& Fields(std::int32_t index);
  Field& Fields(const std::string& name);
  // The number of rows in the table.
  std::int64_t RecordCount() const;

 private:
  friend class Database;
  friend class Field;
  Database* db_ = nullptr;
  std::string name_;
  std::vector<Field> fields_;
};

// A DAO recordset over the database's tables (a wrapper of zt::Recordset with DAO's verbs).
class ZT_EXPORT Recordset {
 public:
  bool Eof() const { return rs_->Eof(); }
  bool Bof() const { return rs_->Bof(); }
  bool NoMatch() const { return no_match_; }
  std::int64_t RecordCount() const { return rs_->RecordCount(); }
  void MoveFirst() { rs_->MoveFirst(); }
  void MoveLast() { rs_->MoveLast(); }
  void MoveNext() { rs_->MoveNext(); }
  void MovePrevious() { rs_->MovePrevious(); }
  // Value of a column of the current row (3265 for an unknown name, 3021 without a row).
  Variant Value(const std::string& field) { return rs_->Fields(field).Value(); }
  // Sets a value in the edit started by Edit or AddNew (3020 "Update or CancelUpdate without
  // AddNew or Edit" when none was started).
  void SetValue(const std::string& field, const Variant& value);
  void Edit();
  void AddNew();
  void Update();
  void CancelUpdate();
  void Delete();
  // Positions on the first / next row meeting the criteria; NoMatch tells whether one was found
  // (the position is kept when not).
  void FindFirst(const std::string& criteria);
  void FindNext(const std::string& criteria);
  void Close() { rs_->Close(); }
  zt::Recordset& Rows() { return *rs_; }

 private:
  friend class Database;
  void FindFrom(const std::string& criteria, bool from_start);
  std::shared_ptr<zt::Recordset> rs_;
  bool editing_ = false;
  bool no_match_ = false;
};

class ZT_EXPORT Database : public Object {
 public:
  // Opens (DBEngine.OpenDatabase) the file at `path`; raises the engine's error (0x80004005
  // when it cannot be opened). `read_only` opens without write access.
  static std::shared_ptr<Database> OpenDatabase(const std::string& path, bool read_only = false);
  std::string TypeName() const override { return "Database"; }

  const std::string& Name() const { return path_; }
  void Close();
  // The table definitions (user tables only), read on first use.
  std::int32_t TableDefCount();
  TableDef& TableDefs(std::int32_t index);
  TableDef& TableDefs(const std::string& name);  // 3265 when there is no such table
  // Forgets the table definitions so that the next call reads them again.
  void Refresh() { tables_loaded_ = false; }
  // Runs one statement; returns the rows changed.
  std::int64_t Execute(const std::string& sql);
  // Opens a table or SQL text. dbOpenTable / dbOpenDynaset can be edited; dbOpenSnapshot and
  // dbOpenForwardOnly are read-only.
  std::unique_ptr<Recordset> OpenRecordset(const std::string& source,
                                           std::int32_t type = dbOpenDynaset);
  // The connection underneath, for code that mixes both views.
  const std::shared_ptr<zt::Connection>& Connection() const { return cn_; }

 private:
  friend class Field;
  friend class TableDef;
  void LoadTables();
  // Rewrites the definition of one column and rebuilds its table.
  void AlterColumn(TableDef& table, const std::string& column, bool required, bool allow_zero);

  std::shared_ptr<zt::Connection> cn_;
  std::string path_;
  std::vector<TableDef> tables_;
  bool tables_loaded_ = false;
};

}  // namespace zt::dao
