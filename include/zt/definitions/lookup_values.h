// Lookup values: the choices of a field. CZtLookupValue is one row of a value table (an ID, a
// display name, optionally a choice number and the value of another field it depends on);
// CZtLookupValCol is the set of choices of one value table, loaded from a data store, kept in
// insertion order and searched by ID or by name.
//
//   zt::CZtLookupValCol priorities;
//   priorities.Initialize(store, "tblPriority");
//   priorities.Load();                       // every row; Load(12) only those depending on 12
//   priorities.GetNameFromID(2);             // "High"
//
// Both write themselves as one line of text (IZtSerializable): a value as ID + FieldDelimiter +
// Name, a collection as its values joined with its own FieldDelimiter. FromString reads such a
// line back, so a set of choices can travel as text.
//
// Failures raise a zt::ZtError whose description starts with the type name; the location is
// logged once on the way. Nothing is changed by a call that fails.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zt/export.h"
#include "zt/text/serialization.h"
#include "zt/trap.h"
#include "zt/variant.h"

namespace zt {

class CZtDataStore;

class ZT_EXPORT IZtLookupValue {
 public:
  virtual ~IZtLookupValue() = default;
  // The identifier as a 32-bit integer; raises (type mismatch) when the stored one is not
  // numeric.
  virtual std::int32_t ID() const = 0;
  virtual void ID(const Variant& value) = 0;
  virtual std::string Name() const = 0;
  virtual void Name(const std::string& value) = 0;
  // Not supported: both raise "Currently not implemented.".
  virtual std::string Caption() const = 0;
  virtual void Caption(const std::string& value) = 0;
  virtual std::string Description() const = 0;
  virtual void Description(const std::string& value) = 0;
};

class ZT_EXPORT IZtLookupValCol {
 public:
  virtual ~IZtLookupValCol() = default;
  // The column names Load reads: "nID", "tName", "nChoiceID", "nDependentFieldID" by default.
  virtual std::string FieldID() const = 0;
  virtual void FieldID(const std::string& value) = 0;
  virtual std::string FieldName() const = 0;
  virtual void FieldName(const std::string& value) = 0;
  virtual std::string FieldChoiceID() const = 0;
  virtual void FieldChoiceID(const std::string& value) = 0;
  virtual std::string FieldDependentFieldID() const = 0;
  virtual void FieldDependentFieldID(const std::string& value) = 0;
  // Not supported: both raise "Currently not implemented.".
  virtual std::string FieldCaption() const = 0;
  virtual void FieldCaption(const std::string& value) = 0;
  virtual std::string FieldDescription() const = 0;
  virtual void FieldDescription(const std::string& value) = 0;
  virtual std::string GetName(std::int32_t id) = 0;
  virtual std::int32_t GetFirstID(const std::string& name) = 0;
};

class ZT_EXPORT CZtLookupValue : public ZtSerializable, public IZtLookupValue {
 public:
  CZtLookupValue() { FieldDelimiter(";"); }
  CZtLookupValue(const Variant& id, std::string name) : CZtLookupValue() {
    id_ = id;
    name_ = std::move(name);
  }
  std::string TypeName() const override { return "CZtLookupValue"; }

  std::int32_t ID() const override;
  void ID(const Variant& value) override { id_ = value; }
  // The identifier as it was stored, numeric or not.
  const Variant& RawID() const { return id_; }
  std::string Name() const override { return name_; }
  void Name(const std::string& value) override { name_ = value; }
  std::string Caption() const override;
  void Caption(const std::string& value) override;
  std::string Description() const override;
  void Description(const std::string& value) override;

  std::int32_t ChoiceID() const { return choice_id_; }
  void ChoiceID(std::int32_t value) { choice_id_ = value; }
  std::int32_t DependentFieldID() const { return dependent_field_id_; }
  void DependentFieldID(std::int32_t value) { dependent_field_id_ = value; }
  // Further column values of the row, by column name (exact case); Empty when not kept.
  Variant GetFieldValue(const std::string& column) const { return field_values_.Item(column); }
  void SetFieldValue(const std::string& column, const Variant& value) {
    field_values_.Set(column, value);
  }
  const Dictionary& FieldValues() const { return field_values_; }

  // ID + FieldDelimiter + Name (each through the field encoder when EncodeFields is set).
  std::string ToString() override;

 private:
  Variant id_;
  std::string name_;
  std::int32_t choice_id_ = 0;
  std::int32_t dependent_field_id_ = 0;
  Dictionary field_values_;
  InstanceTrace trace_{"CZtLookupValue"};
};

// How Load orders the choices: as the statement returns them, or by a column.
enum class LookupSort : std::int32_t { kNone = 0, kByName = 1, kByChoiceID = 2, kByID = 3 };

class ZT_EXPORT CZtLookupValCol : public ZtSerializable, public IZtLookupValCol {
 public:
  CZtLookupValCol() = default;
  std::string TypeName() const override { return "CZtLookupValCol"; }

  // The data store and value table to load from, and the stored WHERE text (may be empty).
  void Initialize(std::shared_ptr<CZtDataStore> data_store, const std::string& table,
                  const std::string& where = {});
  const std::shared_ptr<CZtDataStore>& DataStore() const { return data_store_; }
  void DataStore(std::shared_ptr<CZtDataStore> value) { data_store_ = std::move(value); }
  std::string Table() const { return table_; }
  void Table(const std::string& value) { table_ = value; }
  std::string Where() const { return where_; }
  void Where(const std::string& value) { where_ = value; }
  // The select list of the statement: "*" (the default) or column names joined with ",";
  // columns beyond the ID, name, choice and dependent columns go into each value's
  // FieldValues.
  std::string SelectClause() const { return select_; }
  void SelectClause(const std::string& value) { select_ = value; }
  LookupSort sortBy() const { return sort_by_; }
  void sortBy(LookupSort value) { sort_by_ = value; }

  // The statement Load sends for `dependent_value` (Empty: not restricted to one).
  std::string SQLText(const Variant& dependent_value = {}) const;
  // Adds the rows of the value table to the collection, in the statement's order (see SQLText).
  // A row whose ID is Null is skipped (and logged); of a repeated ID the first row stays.
  // Raises when no data store is set or the statement fails; the collection is then unchanged.
  void Load(const Variant& dependent_value = {});

  // Adds `value` under its ID; a value whose ID is already present is not added (false).
  bool Add(std::shared_ptr<CZtLookupValue> value);
  std::int32_t Count() const { return static_cast<std::int32_t>(items_.Count()); }
  bool Exists(std::int32_t id) const { return items_.Exists(std::to_string(id)); }
  // The value under `id`, nullptr when none.
  std::shared_ptr<CZtLookupValue> Item(std::int32_t id) const;
  // Raises (element not found) when `id` is not present.
  void Remove(std::int32_t id);
  void RemoveAll() { items_.RemoveAll(); }
  std::vector<std::shared_ptr<CZtLookupValue>> Items() const;
  std::vector<std::int32_t> Keys() const;

  // The name under `id`; raises "Value not found in dictionary" when absent.
  std::string GetNameFromID(std::int32_t id);
  // The ID of the first value (in order) whose Name equals `name` exactly; 0 when none.
  std::int32_t GetFirstIDFromName(const std::string& name);

  // ---- IZtLookupValCol ----
  std::string FieldID() const override { return field_id_; }
  void FieldID(const std::string& value) override { field_id_ = value; }
  std::string FieldName() const override { return field_name_; }
  void FieldName(const std::string& value) override { field_name_ = value; }
  std::string FieldChoiceID() const override { return field_choice_id_; }
  void FieldChoiceID(const std::string& value) override { field_choice_id_ = value; }
  std::string FieldDependentFieldID() const override { return field_dependent_; }
  void FieldDependentFieldID(const std::string& value) override { field_dependent_ = value; }
  std::string FieldCaption() const override;
  void FieldCaption(const std::string& value) override;
  std::string FieldDescription() const override;
  void FieldDescription(const std::string& value) override;
  std::string GetName(std::int32_t id) override { return GetNameFromID(id); }
  std::int32_t GetFirstID(const std::string& name) override { return GetFirstIDFromName(name); }

  // ---- IZtSerializable ----
  // The values joined with FieldDelimiter, each value's fields with ChildrenFieldDelimiter.
  std::string ToString() override;
  // Replaces the values by those of a line written by ToString with the same delimiters and
  // EncodeFields setting. Raises (nothing changed) for an empty delimiter or an item that does
  // not hold exactly an ID and a name.
  void FromString(const std::string& text);

 private:
  std::shared_ptr<CZtDataStore> data_store_;
  std::string table_;
  std::string where_;
  std::string select_ = "*";
  LookupSort sort_by_ = LookupSort::kNone;
  std::string field_id_ = "nID";
  std::string field_name_ = "tName";
  std::string field_choice_id_ = "nChoiceID";
  std::string field_dependent_ = "nDependentFieldID";
  Dictionary items_;  // decimal ID -> CZtLookupValue
  InstanceTrace trace_{"CZtLookupValCol"};
};

}  // namespace zt
