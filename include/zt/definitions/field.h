// CZtField: the definition of one field of the help-desk application, as a row of the
// definitions table tblDtsFields keeps it (where the field lives, how a form shows it, how it
// behaves, and where its choices come from), with its choices loaded on demand and the HTML
// input element with which a web page edits a value of the field.
//
//   zt::CZtField f;
//   f.Load(zt::Variant(std::shared_ptr<zt::Object>(rs)));   // the current row of tblDtsFields
//   f.DefinitionsDataStore(store);
//   f.GetLookupValueName(2);                                // "High"
//   f.GenerateHtmlCode(nullptr, nullptr, 2, true, false, nullptr, false);
//
// Failures raise a zt::ZtError after the location (class, procedure, step) is logged once.
// The HTML written for a value holds every name and value escaped (&, <, >, ", '), so that text
// stored in the definitions cannot put markup or script into the page.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "zt/definitions/interfaces.h"
#include "zt/definitions/lookup_values.h"
#include "zt/export.h"
#include "zt/trap.h"
#include "zt/variant.h"

namespace zt {

class Connection;
class Recordset;
class CZtDataStore;
class CZtDataStoreCollection;
namespace dao {
class Recordset;
}

// The members of a field that macro expansion of its WHERE text uses.
class ZT_EXPORT IZtField {
 public:
  virtual ~IZtField() = default;
  // Keys "<Name>" (macro names in single angle brackets), items the macro objects.
  virtual std::shared_ptr<Dictionary> MacroCollection() const = 0;
  virtual void MacroCollection(std::shared_ptr<Dictionary> value) = 0;
  // The context the macros compute their values for.
  virtual Variant WhereDefinition() const = 0;
  virtual void WhereDefinition(const Variant& value) = 0;
};

// Data types the field tells apart when it writes HTML.
inline constexpr std::int32_t kFieldTypeYesNo = 1;
inline constexpr std::int32_t kFieldTypeMemo = 12;
inline constexpr std::int32_t kFieldTypeChoiceList = 103;
inline constexpr std::int32_t kFieldTypeChoiceList2 = 104;

// The number of the extended property that marks a field whose choices load on demand.
inline constexpr std::int32_t kExtPropChoiceValuesOnDemand = 1;

// The values of a field read from its definition row, in the order of the row's columns.
struct ZT_EXPORT FieldDefinition {
  std::int32_t field_id = 0;                     // nID
  std::string alias_source_table;                // tAliasSourceTable
  std::string bound_control_name;                // tBoundControlName
  bool can_query_by = false;                     // fCanQueryBy
  bool choice_order = false;                     // fChoiceOrder
  std::string destination_tab;                   // tDestinationTab
  std::int32_t destination_tab_id = 0;           // nDestinationTabID
  bool editable = false;                         // fEditable
  std::string field_caption;                     // tCaption
  std::int32_t field_data_size = 0;              // nDataSize
  std::int32_t field_data_type = 0;              // nDataType
  std::string field_value_table;                 // tFieldValuesTable
  std::int32_t value_table_ds_type = 0;          // nValueTableDSType
  bool keep_history = false;                     // fKeepHistory
  std::string label_caption;                     // tLabelCaption
  std::int32_t related_field = 0;                // nRelatedField
  bool required = false;                         // fRequired
  bool visible = false;                          // fVisible
  std::string where;                             // tWhere
  std::string field_name;                        // tName
  std::int32_t relationship_type = 0;            // nRelationshipType
  std::int32_t control_type = 0;                 // nControlType
  std::int32_t container_type = 0;               // nContainerType
  bool enabled = false;                          // fEnabled
  std::int32_t table_ds_type = 0;                // nTableDSType
  std::string table_name;                        // tTableName
  std::int32_t data_view_id = 0;                 // nDataViewID (optional column)
  std::string value_table_id_field = "nID";      // tValueTableIDFld (optional column)
  std::string value_table_name_field = "tName";  // tValueTableNameFld (optional column)
  std::string original_field_caption;            // tOrigCaption (optional column)
  friend bool operator==(const FieldDefinition&, const FieldDefinition&) = default;
};

class ZT_EXPORT CZtField : public ZtSerializable, public IZtField, public IZtExtendedProperties {
 public:
  CZtField() { FieldDelimiter(";"); }
  std::string TypeName() const override { return "CZtField"; }

  // ---- Definition ----
  const FieldDefinition& Definition() const { return def_; }
  void Definition(const FieldDefinition& value) { def_ = value; }

#define ZT_FIELD_PROPERTY(Type, Name, member) \
  Type Name() const {                         \
    return def_.member;                       \
  }                                           \
  void Name(const Type& value) {              \
    def_.member = value;                      \
  }
  ZT_FIELD_PROPERTY(std::int32_t, FieldID, field_id)
  ZT_FIELD_PROPERTY(std::string, AliasSourceTable, alias_source_table)
  ZT_FIELD_PROPERTY(std::string, BoundControlName, bound_control_name)
  ZT_FIELD_PROPERTY(bool, CanQueryBy, can_query_by)
  ZT_FIELD_PROPERTY(bool, ChoiceOrder, choice_order)
  ZT_FIELD_PROPERTY(std::string, DestinationTab, destination_tab)
  ZT_FIELD_PROPERTY(std::int32_t, DestinationTabID, destination_tab_id)
  ZT_FIELD_PROPERTY(bool, Editable, editable)
  ZT_FIELD_PROPERTY(std::string, FieldCaption, field_caption)
  ZT_FIELD_PROPERTY(std::int32_t, FieldDataSize, field_data_size)
  ZT_FIELD_PROPERTY(std::int32_t, FieldDataType, field_data_type)
  ZT_FIELD_PROPERTY(std::string, FieldValueTable, field_value_table)
  ZT_FIELD_PROPERTY(std::int32_t, ValueTableDSType, value_table_ds_type)
  ZT_FIELD_PROPERTY(bool, KeepHistory, keep_history)
  ZT_FIELD_PROPERTY(std::string, LabelCaption, label_caption)
  ZT_FIELD_PROPERTY(std::int32_t, RelatedField, related_field)
  ZT_FIELD_PROPERTY(bool, Required, required)
  ZT_FIELD_PROPERTY(bool, Visible, visible)
  ZT_FIELD_PROPERTY(std::string, Where, where)
  ZT_FIELD_PROPERTY(std::string, FieldName, field_name)
  ZT_FIELD_PROPERTY(std::int32_t, RelationShipType, relationship_type)
  ZT_FIELD_PROPERTY(std::int32_t, ControlType, control_type)
  ZT_FIELD_PROPERTY(std::int32_t, ContainerType, container_type)
  ZT_FIELD_PROPERTY(bool, Enabled, enabled)
  ZT_FIELD_PROPERTY(std::int32_t, TableDSType, table_ds_type)
  ZT_FIELD_PROPERTY(std::string, TableName, table_name)
  ZT_FIELD_PROPERTY(std::int32_t, DataViewID, data_view_id)
  ZT_FIELD_PROPERTY(std::string, ValueTableIDField, value_table_id_field)
  ZT_FIELD_PROPERTY(std::string, ValueTableNameField, value_table_name_field)
  ZT_FIELD_PROPERTY(std::string, OriginalFieldCaption, original_field_caption)
#undef ZT_FIELD_PROPERTY

  // Plain values kept for the caller, not read from the definition row.
  std::int32_t Status() const {
    return status_;
  }
  void Status(std::int32_t value) {
    status_ = value;
  }
  std::int32_t FieldIndex() const {
    return field_index_;
  }
  void FieldIndex(std::int32_t value) {
    field_index_ = value;
  }
  bool FieldForSort() const {
    return field_for_sort_;
  }
  void FieldForSort(bool value) {
    field_for_sort_ = value;
  }
  std::string SqlAlias() const {
    return sql_alias_;
  }
  void SqlAlias(const std::string& value) {
    sql_alias_ = value;
  }
  std::int32_t RepeatedFieldID() const {
    return repeated_field_id_;
  }
  void RepeatedFieldID(std::int32_t value) {
    repeated_field_id_ = value;
  }

  // ---- Reading a definition row ----
  // An ADO recordset (a zt::Recordset object) goes to FillProperties; anything else is ignored.
  void Load(const Variant& recordset);
  // The current row of tblDtsFields into the definition. The optional columns (nDataViewID,
  // tValueTableIDFld, tValueTableNameFld, tOrigCaption) are read when present; a user table of
  // a MySQL store stored as "tblUser_1" reads as "tblUser". A missing mandatory column raises.
  void FillProperties(Recordset& rs);
  // The same through the DAO view, which keeps the table name as stored and expects every
  // column, the optional ones included.
  void FillPropertiesDAO(dao::Recordset& rs);
  // Every definition value of `source`.
  void Copy(const CZtField& source);

  // ---- Choices ----
  // The data store the choices load from when no connection is given. Setting the one already
  // held changes nothing.
  const std::shared_ptr<CZtDataStore>& DefinitionsDataStore() const {
    return definitions_ds_;
  }
  void DefinitionsDataStore(std::shared_ptr<CZtDataStore> value);
  // The statement that loads the choices.
  std::string SingleChoiceSQL();
  // Loads the choices once, from `connection` or else from DefinitionsDataStore; does nothing
  // when they are loaded or there is no connection.
  void FillSingleChoiceTable(const std::shared_ptr<Connection>& connection = nullptr);
  // The loaded choices (nullptr while not loaded).
  const std::shared_ptr<CZtLookupValCol>& ChoiceTableValues() const {
    return choices_;
  }
  // The choices, loaded on demand from DefinitionsDataStore.
  std::shared_ptr<CZtLookupValCol> ChoiceValues();
  // The choice number (nChoiceID) of a value; 0 when ChoiceOrder is off or the value is unknown.
  std::int32_t GetChoiceID(const Variant& value_id,
                           const std::shared_ptr<Connection>& connection = nullptr);
  // The display name of a value; "" when the field has no value table, no data store, or the
  // value is not a choice.
  std::string GetLookupValueName(const Variant& value_id);
  // Walking the choices: Reset loads them when needed and starts at the first; Next gives one
  // choice and moves on, false past the last.
  void FieldValuesEnumReset(const std::shared_ptr<Connection>& connection = nullptr);
  bool FieldValuesEnumNext(std::int32_t& id, std::string& name);

  // The Where text with its macros expanded; raises when it is not empty and no macro
  // collection is set.
  std::string GetFormattedWhere();

  // The HTML input element for `value`: a <select> with its options for a choice list (103,
  // 104) and a yes/no field (1), a text input otherwise (see field.cpp for the exact text).
  std::string GenerateHtmlCode(const std::shared_ptr<Connection>& connection_for_type16,
                               const std::shared_ptr<Connection>& connection_for_other_types,
                               const Variant& value, bool include_select_tag, bool force_text_input,
                               CZtDataStoreCollection* data_stores, bool convert_names_to_utf8);

  // ---- IZtSerializable ----
  // The definition values in the order of the row's columns (nID first, tOrigCaption last),
  // Booleans as -1 and 0, joined with FieldDelimiter (";" unless set).
  std::string ToString() override;
  // Reads a line written by ToString with the same FieldDelimiter and EncodeFields setting into
  // the definition. A line without exactly one value per column, or with a number column that
  // is not a number, raises (type mismatch) and changes nothing.
  void FromString(const std::string& text);

  // ---- IZtField ----
  std::shared_ptr<Dictionary> MacroCollection() const override {
    return macros_;
  }
  void MacroCollection(std::shared_ptr<Dictionary> value) override {
    macros_ = std::move(value);
  }
  Variant WhereDefinition() const override {
    return where_definition_;
  }
  void WhereDefinition(const Variant& value) override {
    where_definition_ = value;
  }

  // ---- IZtExtendedProperties ----
  // Keyed by the property number's decimal text; null until the first one is set.
  std::shared_ptr<IZtPropertyCol> ExtendedProperties() const override {
    return extended_;
  }
  void ExtendedProperties(std::shared_ptr<IZtPropertyCol> properties) override {
    extended_ = std::move(properties);
  }
  // Shorthands by number: the value (Empty when absent), adding (an existing one is replaced
  // only when `overwrite`) and removing.
  bool HasExtendedProperty(std::int32_t number) const;
  Variant ExtendedProperty(std::int32_t number) const;
  void SetExtendedProperty(std::int32_t number, std::int32_t type, const Variant& value,
                           bool overwrite);
  void RemoveExtendedProperty(std::int32_t number);

 private:
  template <class Rs>
  void ReadRow(Rs& rs, bool ado);

  FieldDefinition def_;
  std::int32_t status_ = 0;
  std::int32_t field_index_ = 0;
  bool field_for_sort_ = false;
  std::string sql_alias_;
  std::int32_t repeated_field_id_ = 0;

  std::shared_ptr<CZtDataStore> definitions_ds_;
  std::shared_ptr<CZtLookupValCol> choices_;
  std::vector<std::int32_t> enum_keys_;
  bool enum_snapshot_ = false;
  std::size_t enum_pos_ = 0;
  std::unordered_map<std::string, std::int32_t> choice_ids_;
  bool choice_ids_loaded_ = false;
  std::shared_ptr<Dictionary> macros_;
  Variant where_definition_;
  std::shared_ptr<IZtPropertyCol> extended_;
  InstanceTrace trace_{"CZtField"};
};

// basField: marks a field whose choice values load on demand (extended property 1, a Boolean)
// and removes that mark.
ZT_EXPORT void Field_MakeChoiceValuesLoadOndemand(CZtField& field);
ZT_EXPORT void Field_RemoveChoiceValuesLoadOnDemand(CZtField& field);
// Whether the mark is set.
ZT_EXPORT bool Field_ChoiceValuesLoadOnDemand(const CZtField& field);

// The text written into HTML for a name or value: & < > " ' replaced by their character
// references.
ZT_EXPORT std::string HtmlEscape(const std::string& text);

}  // namespace zt
