// The interfaces of the host's type library that the definition classes implement: saved
// queries, data views and their collection, properties and property collections, extended
// properties, and the macro objects that WHERE texts name. The field and lookup-value
// interfaces live beside their classes.
//
// Members that a class does not support raise the "Currently not implemented." error of
// zt/error.h (RaiseNotImplemented) with the class's own type name.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zt/export.h"
#include "zt/variant.h"

namespace zt {

class CZtSQLStatement;
class CZtFieldCollection;
class Recordset;

// A macro object: computes the value that replaces its name in a stored WHERE text. `context`
// is the caller's value (the current view, a record ID ...); `recordset` and `object` are
// extra inputs that the expansion of WHERE texts always passes empty.
class ZT_EXPORT IZtMacro {
 public:
  virtual ~IZtMacro() = default;
  virtual Variant Value(const Variant& context, const std::shared_ptr<Recordset>& recordset,
                        const std::shared_ptr<Object>& object) = 0;
};

// A saved query: rows of its table type's structure table, selected by nID and ordered by
// nRow. Each expression is one row: its columns other than nID and nRow, by name.
class ZT_EXPORT IZtQuery {
 public:
  virtual ~IZtQuery() = default;

  virtual std::int32_t ID() const = 0;
  virtual void ID(std::int32_t value) = 0;
  virtual std::string Name() const = 0;
  virtual void Name(const std::string& value) = 0;
  virtual std::string Caption() const = 0;
  virtual void Caption(const std::string& value) = 0;
  // The key of the query's table type in the table-type manager.
  virtual std::int32_t TableType() const = 0;
  virtual void TableType(std::int32_t value) = 0;
  virtual std::vector<Dictionary>& Expressions() = 0;

  virtual void Initialize(std::int32_t id, std::int32_t table_type, const std::string& name,
                          const std::string& caption) = 0;
  // Each of these takes the data store as an object and requires a CZtDataStore.
  virtual void Load(const std::shared_ptr<Object>& data_store) = 0;
  virtual void Save(const std::shared_ptr<Object>& data_store) = 0;
  virtual void Delete(const std::shared_ptr<Object>& data_store) = 0;
  virtual std::shared_ptr<CZtSQLStatement> GetSQLStatement(
      const std::shared_ptr<Object>& data_store) = 0;
  // The statement set by the caller, else the query's default statement.
  virtual std::shared_ptr<CZtSQLStatement> SQLStatement(
      const std::shared_ptr<Object>& data_store) = 0;
  virtual void SQLStatement(std::shared_ptr<CZtSQLStatement> statement) = 0;
};

// One data view: a row of tblDataView, or of a link table of views (no nID column).
class ZT_EXPORT IZtDataView {
 public:
  virtual ~IZtDataView() = default;

  virtual std::int32_t ID() const = 0;
  virtual void ID(std::int32_t value) = 0;
  virtual std::string Name() const = 0;
  virtual void Name(const std::string& value) = 0;
  virtual std::string Description() const = 0;
  virtual void Description(const std::string& value) = 0;
  virtual std::int32_t QueryID() const = 0;
  virtual void QueryID(std::int32_t value) = 0;
  virtual std::int32_t Order() const = 0;
  virtual void Order(std::int32_t value) = 0;

  // Reads, or writes and updates, the recordset's current row.
  virtual void Load(Recordset& recordset) = 0;
  virtual void Save(Recordset& recordset) = 0;
  virtual std::shared_ptr<IZtDataView> Copy() const = 0;
  // The view's default query, loaded from `data_store` in the table type `table_type`.
  virtual std::shared_ptr<IZtQuery> GetQuery(const std::shared_ptr<Object>& data_store,
                                             std::int32_t table_type) = 0;
  // The fields of `fields` that belong to this view.
  virtual std::shared_ptr<CZtFieldCollection> GetRelatedFields(
      const CZtFieldCollection& fields) = 0;
  // The data-store type of the view's main table (0 when no field says).
  virtual std::int32_t GetMainTableDsType(const CZtFieldCollection& fields,
                                          const Variant& field_keys) = 0;
};

// The data views of a data store, keyed by view ID in insertion order.
class ZT_EXPORT IZtDataViewCol {
 public:
  virtual ~IZtDataViewCol() = default;

  virtual void Add(std::shared_ptr<IZtDataView> view) = 0;
  virtual std::shared_ptr<IZtDataViewCol> Copy() const = 0;
  virtual std::int32_t Count() const = 0;
  virtual bool Exists(std::int32_t key) const = 0;
  virtual std::shared_ptr<IZtDataView> Item(std::int32_t key) const = 0;
  virtual std::vector<std::shared_ptr<IZtDataView>> Items() const = 0;
  // The key at 0-based `index`.
  virtual std::int32_t Key(std::int32_t index) const = 0;
  virtual std::vector<std::int32_t> Keys() const = 0;
  virtual void Load(const std::shared_ptr<Object>& data_store) = 0;
  virtual void Remove(std::int32_t key) = 0;
  virtual void RemoveAll() = 0;
  virtual void Save(const std::shared_ptr<Object>& data_store) = 0;
  virtual std::shared_ptr<CZtSQLStatement> SQLStatement() = 0;
  virtual void SQLStatement(std::shared_ptr<CZtSQLStatement> statement) = 0;
};

// One named property (a setting row: tblSettings and its custom action).
class ZT_EXPORT IZtProperty {
 public:
  virtual ~IZtProperty() = default;

  virtual std::int32_t ID() const = 0;
  virtual void ID(std::int32_t value) = 0;
  virtual std::string Name() const = 0;
  virtual void Name(const std::string& value) = 0;
  virtual Variant Value() const = 0;
  virtual void Value(const Variant& value) = 0;
  virtual std::string Description() const = 0;
  virtual void Description(const std::string& value) = 0;
  virtual std::int32_t PropertyType() const = 0;
  virtual void PropertyType(std::int32_t value) = 0;
  virtual std::string ValidationRule() const = 0;
  virtual void ValidationRule(const std::string& value) = 0;
  virtual std::int32_t CustomActionID() const = 0;
  virtual void CustomActionID(std::int32_t value) = 0;
  virtual std::string CustomActionCaption() const = 0;
  virtual void CustomActionCaption(const std::string& value) = 0;
  virtual std::string CustomActionDisplay() const = 0;
  virtual void CustomActionDisplay(const std::string& value) = 0;
  virtual void Load(Recordset& recordset) = 0;
  virtual std::string ValueList() const = 0;
  virtual void ValueList(const std::string& value) = 0;
  virtual Variant DefaultValue() const = 0;
  virtual void DefaultValue(const Variant& value) = 0;
  virtual std::shared_ptr<IZtProperty> Copy() const = 0;
};

// A keyed collection of properties.
class ZT_EXPORT IZtPropertyCol {
 public:
  virtual ~IZtPropertyCol() = default;

  virtual void Add(const std::string& key, std::shared_ptr<IZtProperty> property) = 0;
  virtual std::int32_t Count() const = 0;
  // The underlying dictionary (values are the property objects).
  virtual Dictionary& GetDictionary() = 0;
  virtual bool Exists(const std::string& key) const = 0;
  virtual std::shared_ptr<IZtProperty> Item(const std::string& key) const = 0;
  virtual std::vector<std::shared_ptr<IZtProperty>> Items() const = 0;
  virtual std::vector<std::string> Keys() const = 0;
  virtual void Load(Recordset& recordset) = 0;
  virtual void Remove(const std::string& key) = 0;
  virtual std::shared_ptr<IZtPropertyCol> Copy() const = 0;
};

// An object that carries numbered extra properties beside its own (for example the mark that a
// field loads its choices on demand).
class ZT_EXPORT IZtExtendedProperties {
 public:
  virtual ~IZtExtendedProperties() = default;
  // The extra properties; null when none was ever set.
  virtual std::shared_ptr<IZtPropertyCol> ExtendedProperties() const = 0;
  virtual void ExtendedProperties(std::shared_ptr<IZtPropertyCol> properties) = 0;
};

}  // namespace zt
