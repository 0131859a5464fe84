// Data views: the named views of the help-desk application's records. CZtDataView is one row
// of tblDataView (or of a link table of views); CZtDataViewCol holds every view of a data store,
// keyed by view ID in the order they were added, and loads and saves them as a whole.
//
//   zt::CZtDataViewCol views;
//   views.Load(store);                    // SELECT [nID],...,[tDescription] FROM [tblDataView]
//   views.Item(3)->Name("Open calls");
//   views.Save(store);                    // replaces every row of tblDataView, all or nothing
//
// Both write themselves as one line of text (IZtSerializable). A view's fields are, in this
// order: ID, QueryID, Order, Name, Description (the column order of tblDataView). FromString
// reads such a line back. FormatMask and Replace are not supported by either class: reading or
// setting them raises the "Currently not implemented." error.
//
// Failures raise a zt::ZtError after the location is logged once; a call that fails changes
// neither the object nor the stored rows.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zt/definitions/interfaces.h"
#include "zt/definitions/sql_statement.h"
#include "zt/export.h"
#include "zt/text/serialization.h"
#include "zt/trap.h"
#include "zt/variant.h"

namespace zt {

class CZtField;

// What a view reads of a field collection: its fields in the collection's order. The
// collection keys each field by its FieldID, so a key is a field's ID.
using DataViewFields = std::vector<std::shared_ptr<CZtField>>;

// The column that marks a row of tblDataView; a recordset without it is a link table of views.
inline constexpr const char* kDataViewIdColumn = "nID";
// The RelationShipType of a field of a view's main table.
inline constexpr std::int32_t kMainTableRelationship = -1;

class ZT_EXPORT CZtDataView : public ZtSerializable, public IZtDataView {
 public:
  std::string TypeName() const override { return "CZtDataView"; }

  std::int32_t ID() const override { return id_; }
  void ID(std::int32_t value) override { id_ = value; }
  std::string Name() const override { return name_; }
  void Name(const std::string& value) override { name_ = value; }
  std::string Description() const override { return description_; }
  void Description(const std::string& value) override { description_ = value; }
  std::int32_t QueryID() const override { return query_id_; }
  void QueryID(std::int32_t value) override { query_id_ = value; }
  std::int32_t Order() const override { return order_; }
  void Order(std::int32_t value) override { order_ = value; }

  // Reads the current row: nID, nDefaultQueryID, nDefaultOrder, tName, tDescription; from a
  // link table (no nID column) nDataViewID, nQueryID and nOrder, leaving Name and Description
  // as they were. Null or missing columns read as 0 or "". Nothing is read at the end of the
  // recordset.
  void Load(Recordset& recordset) override;
  // Writes the same columns into the current row (the link form: only the three link columns)
  // and updates it. Nothing is written at the end of the recordset.
  void Save(Recordset& recordset) override;
  std::shared_ptr<IZtDataView> Copy() const override;

  // The view's default query (QueryID) of the query table type `table_type`, its expressions
  // loaded from `data_store` (a CZtDataStore). A view without a default query (QueryID 0) has
  // none: nullptr, and nothing is read. The query's own errors are raised.
  std::shared_ptr<IZtQuery> GetQuery(const std::shared_ptr<Object>& data_store,
                                     std::int32_t table_type) override;

  // The fields that belong to this view (DataViewID equal to the view's ID), in the order of
  // `fields`. They are the same field objects, not copies: a form that edits a related field
  // edits the collection's field.
  DataViewFields GetRelatedFields(const DataViewFields& fields) const;
  // The TableDSType of the first field that belongs to this view and is of its main table
  // (RelationShipType -1), walking `field_keys` (an array of field IDs, each converted to a
  // 32-bit integer) or, when that is not an array, every field of `fields` in order; 0 when no
  // field says. A key that is not a number raises 13 (type mismatch), a key without a field
  // 32811 (element not found).
  std::int32_t GetMainTableDsType(const DataViewFields& fields, const Variant& field_keys) const;
  // The same two over a field collection (its fields in key order).
  std::shared_ptr<CZtFieldCollection> GetRelatedFields(const CZtFieldCollection& fields) override;
  std::int32_t GetMainTableDsType(const CZtFieldCollection& fields,
                                  const Variant& field_keys) override;

  // ---- IZtSerializable ----
  std::string FormatMask() const override;
  void FormatMask(const std::string& value) override;
  std::string Replace() const override;
  void Replace(const std::string& value) override;
  // ID, QueryID, Order, Name, Description joined with FieldDelimiter.
  std::string ToString() override;
  // Reads a line written by ToString with the same FieldDelimiter and EncodeFields. Raises 5
  // for an empty delimiter, 13 for a line without five fields or with a field that is not a
  // number where one belongs; the view is then unchanged.
  void FromString(const std::string& line);

 private:
  std::int32_t id_ = 0;
  std::int32_t query_id_ = 0;
  std::int32_t order_ = 0;
  std::string name_;
  std::string description_;
  InstanceTrace trace_{"CZtDataView"};
};

class ZT_EXPORT CZtDataViewCol : public ZtSerializable, public IZtDataViewCol {
 public:
  std::string TypeName() const override { return "CZtDataViewCol"; }

  // Adds `view` under its ID; raises 457 when that ID is held already, 91 for no view and 13
  // for a view that is not a CZtDataView.
  void Add(std::shared_ptr<IZtDataView> view) override;
  // A collection of copies of the views, with the same statement when one was set.
  std::shared_ptr<IZtDataViewCol> Copy() const override;
  std::int32_t Count() const override { return static_cast<std::int32_t>(items_.Count()); }
  bool Exists(std::int32_t key) const override;
  // Raises 32811 when no view has the ID `key`.
  std::shared_ptr<IZtDataView> Item(std::int32_t key) const override;
  std::vector<std::shared_ptr<IZtDataView>> Items() const override;
  // Raises 9 (subscript out of range) outside 0 .. Count() - 1.
  std::int32_t Key(std::int32_t index) const override;
  std::vector<std::int32_t> Keys() const override;
  // Adds the views of the statement's rows (`data_store` must be a CZtDataStore). A row whose
  // ID is held already (from before or from an earlier row) is passed over: the first stays.
  // A statement without a table reads nothing. When the read fails nothing is added.
  void Load(const std::shared_ptr<Object>& data_store) override;
  // Raises 32811 when no view has the ID `key`.
  void Remove(std::int32_t key) override;
  void RemoveAll() override { items_.RemoveAll(); }
  // Replaces the statement's rows by the held views in one transaction: every row is deleted,
  // then each view is added, in order. When any step fails the transaction is rolled back, the
  // table keeps its former rows and the error is raised. A statement without a table
  // writes nothing.
  void Save(const std::shared_ptr<Object>& data_store) override;
  // The statement set by the caller or, when none was, the default one (kept from then on):
  // "SELECT [nID],[nDefaultQueryID],[nDefaultOrder],[tName],[tDescription] FROM [tblDataView]
  // ORDER BY [nID]".
  std::shared_ptr<CZtSQLStatement> SQLStatement() override;
  void SQLStatement(std::shared_ptr<CZtSQLStatement> statement) override {
    statement_ = std::move(statement);
  }

  // ---- IZtSerializable ----
  std::string FormatMask() const override;
  void FormatMask(const std::string& value) override;
  std::string Replace() const override;
  void Replace(const std::string& value) override;
  // The views joined with FieldDelimiter, each view's fields with ChildrenFieldDelimiter.
  std::string ToString() override;
  // Replaces the views by those of a line written by ToString with the same delimiters and
  // EncodeFields. Raises (nothing changed) for an empty delimiter, a malformed view or an ID
  // that occurs twice.
  void FromString(const std::string& text);

 private:
  static std::shared_ptr<CZtDataView> AsView(const Variant& item);

  Dictionary items_;  // decimal view ID -> CZtDataView
  std::shared_ptr<CZtSQLStatement> statement_;
  InstanceTrace trace_{"CZtDataViewCol"};
};

}  // namespace zt
