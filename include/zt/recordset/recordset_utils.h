// Recordset helpers and duplicate removal: CZTADOUtilities (closing, maxima, first match),
// CZtDAOUtilities (closing DAO objects), CZtRSRecUtils (writing a value only when it changed)
// and CZtRecordMgr (removing duplicate records).
//
// Arguments the old objects took by reference (a recordset or connection to close) are taken as
// a reference to the caller's pointer, which is reset once the object is closed.
//
// CZtRecordMgr::RemoveDuplicateRecords keeps, of every group of records with equal values in the
// listed columns, one record, and never touches a record holding Null in a listed column. When
// the first group in the engine's sort order (ORDER BY the listed columns) is made only of 0,
// "" (and Empty-equal) values, that whole group goes: the old record-by-record walk compared the
// first record with an empty match array, and callers rely on that outcome.
//
// How each engine gets there:
//   SQL Server, Oracle and any engine not named below: the old walk, statement text and all
//     (a keyset cursor over the duplicates, deleting record by record).
//   SQLite, PostgreSQL, MariaDB/MySQL: set-based, in one transaction (joining the caller's
//     transaction when one is open): row_number() over the partition of the listed columns,
//     deleting every row numbered above 1, by the engine's row identity. The survivor of a
//     group is the one with the lowest identity:
//       SQLite      rowid (a WITHOUT ROWID table is refused by the engine with an error);
//       PostgreSQL  ctid (the physical position, i.e. the row stored first);
//       MariaDB     the primary key when the table has one (a multi-table DELETE joined to a
//                   derived table, which MariaDB materialises); without one, one
//                   "DELETE ... LIMIT count-1" per duplicate group, which keeps an arbitrary
//                   member of the group (the group's keys are read into the client then).
//
// Which values are "equal" is the engine's own rule, the one its GROUP BY and ORDER BY apply:
//   SQLite      binary: case matters, trailing blanks matter ('a' <> 'A', 'a' <> 'a ').
//   PostgreSQL  binary for text and varchar under the C/deterministic collations (case and
//               trailing blanks matter); char(n) ignores trailing blanks.
//   MariaDB     the column's collation; the default (utf8mb4_general_ci and friends) ignores
//               case and trailing blanks (PAD SPACE): 'abc', 'ABC' and 'abc ' are one group and
//               two of them are deleted.
//   SQL Server  the walk: the statement groups by the server's collation, but the walk compares
//               the values in the client exactly (binary), so only records that are identical
//               and adjacent in the sort order are deleted.
// "Empty-equal" in the first group means: numbers equal to 0, Booleans false, texts equal to ''
// under the same rule (so a text of blanks only on MariaDB). Dates, binary and GUID columns
// never compare equal to Empty here, so a group holding one is never removed as a whole.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zt/export.h"
#include "zt/platform.h"
#include "zt/trap.h"
#include "zt/variant.h"

namespace zt {

class ZT_EXPORT CZTADOUtilities : public Object {
 public:
  std::string TypeName() const override { return "CZTADOUtilities"; }

  // Closes the recordset when it is set and open, and resets the caller's pointer.
  void CloseRecordsetADO(std::shared_ptr<Recordset>& rs);
  // Closes the connection when it is set and open, and resets the caller's pointer.
  void CloseConnection(std::shared_ptr<Connection>& cn);
  // The highest value of `column` in `table` (rows limited by `where` when not empty); 0 for an
  // empty table. Failures are logged as "CZTADOUtilities.GetMaxID, @Line#" + step and raised.
  std::int32_t GetMaxID(const std::shared_ptr<Connection>& cn, const std::string& table,
                        const std::string& column, const std::string& where = {});
  // Moves to the first record; true.
  bool MoveFirst(Recordset& rs);
  // The first record meeting `criteria`; true when there is one (the recordset is positioned
  // on it), false at the end.
  bool FindFirst(Recordset& rs, const std::string& criteria);

 private:
  InstanceTrace trace_{"CZTADOUtilities"};
};

class ZT_EXPORT CZtDAOUtilities : public Object {
 public:
  std::string TypeName() const override { return "CZtDAOUtilities"; }
  // Close the object when set and reset the caller's pointer.
  void CloseDataBase(std::shared_ptr<dao::Database>& db);
  void CloseRecordsetDAO(std::unique_ptr<dao::Recordset>& rs);

 private:
  InstanceTrace trace_{"CZtDAOUtilities"};
};

class ZT_EXPORT CZtRSRecUtils : public Object {
 public:
  std::string TypeName() const override { return "CZtRSRecUtils"; }

  // Writes `value` into the current record's column `column` when it differs from what the
  // column holds; a recordset without that column is left alone. Text columns (ADO 200, 202)
  // follow the text rules below. Returns true when the column exists.
  //
  // Text rules: a new text differing from the stored one only in case is not written; a text of
  // blanks only stores "" (never Null); a text longer than the column's size keeps the old value
  // and is reported to the error-handler service (not raised).
  bool SetFieldValue(Recordset& rs, const std::string& column, const Variant& value);
  // The same for a field object. Returns true.
  bool SetFieldValue2(Field& field, const Variant& value);

 private:
  void SetFieldValue_String(Field& field, const Variant& value);
  InstanceTrace trace_{"CZtRSRecUtils"};
};

class ZT_EXPORT CZtRecordMgr : public Object {
 public:
  std::string TypeName() const override { return "CZtRecordMgr"; }

  // Deletes duplicate records of `table` over `columns` (an array of column names; Empty names
  // are skipped) as the header comment says. Returns false without doing anything when
  // `columns` is not an array or its first element is empty, else true. Failures are logged as
  // "CZtRecordMgr.RemoveDuplicateRecords, @Line#" + step and raised; what the set-based path
  // deleted is rolled back then.
  bool RemoveDuplicateRecords(const std::string& table, const std::shared_ptr<Connection>& cn,
                              const Variant& columns);

  // Beyond the old interface, for tools:
  // The records the last RemoveDuplicateRecords deleted (0 before any).
  std::int64_t LastRecordsDeleted() const { return last_deleted_; }
  // The statements RemoveDuplicateRecords would send for this engine, in order (the walk's
  // engines: the SELECT of the walk). Nothing is changed; the E-group check may be queried.
  std::vector<std::string> DuplicateRemovalStatements(const std::string& table,
                                                      const std::shared_ptr<Connection>& cn,
                                                      const Variant& columns);
  // How many records RemoveDuplicateRecords would delete, counted with queries only.
  std::int64_t CountDuplicateRecords(const std::string& table,
                                     const std::shared_ptr<Connection>& cn, const Variant& columns);

 private:
  std::int64_t last_deleted_ = 0;
  InstanceTrace trace_{"CZtRecordMgr"};
};

}  // namespace zt
