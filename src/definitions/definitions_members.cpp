// The late-bound members of the definition classes: fields, lookup values, queries, data views,
// table types and styles, the data-store collection and the statement object.
#include "server/member_table.h"
#include "text/serializable_members.h"
#include "zt/datastore.h"
#include "zt/definitions/datastore_collection.h"
#include "zt/definitions/dataview.h"
#include "zt/definitions/field.h"
#include "zt/definitions/field_collection.h"
#include "zt/definitions/lookup_values.h"
#include "zt/definitions/query.h"
#include "zt/definitions/sql_statement.h"
#include "zt/definitions/table_type.h"
#include "zt/platform.h"

namespace zt {
namespace {

using server::Registrar;

const Registrar<CZtField> kField("CZtField", [](auto& t) {
  using F = CZtField;
  t.Prop("FieldID", &F::FieldID, &F::FieldID)
      .Prop("AliasSourceTable", &F::AliasSourceTable, &F::AliasSourceTable)
      .Prop("BoundControlName", &F::BoundControlName, &F::BoundControlName)
      .Prop("CanQueryBy", &F::CanQueryBy, &F::CanQueryBy)
      .Prop("ChoiceOrder", &F::ChoiceOrder, &F::ChoiceOrder)
      .Prop("DestinationTab", &F::DestinationTab, &F::DestinationTab)
      .Prop("DestinationTabID", &F::DestinationTabID, &F::DestinationTabID)
      .Prop("Editable", &F::Editable, &F::Editable)
      .Prop("FieldCaption", &F::FieldCaption, &F::FieldCaption)
      .Prop("FieldDataSize", &F::FieldDataSize, &F::FieldDataSize)
      .Prop("FieldDataType", &F::FieldDataType, &F::FieldDataType)
      .Prop("FieldValueTable", &F::FieldValueTable, &F::FieldValueTable)
      .Prop("ValueTableDSType", &F::ValueTableDSType, &F::ValueTableDSType)
      .Prop("KeepHistory", &F::KeepHistory, &F::KeepHistory)
      .Prop("LabelCaption", &F::LabelCaption, &F::LabelCaption)
      .Prop("RelatedField", &F::RelatedField, &F::RelatedField)
      .Prop("Required", &F::Required, &F::Required)
      .Prop("Visible", &F::Visible, &F::Visible)
      .Prop("Where", &F::Where, &F::Where)
      .Prop("FieldName", &F::FieldName, &F::FieldName)
      .Prop("RelationShipType", &F::RelationShipType, &F::RelationShipType)
      .Prop("ControlType", &F::ControlType, &F::ControlType)
      .Prop("ContainerType", &F::ContainerType, &F::ContainerType)
      .Prop("Enabled", &F::Enabled, &F::Enabled)
      .Prop("TableDSType", &F::TableDSType, &F::TableDSType)
      .Prop("TableName", &F::TableName, &F::TableName)
      .Prop("DataViewID", &F::DataViewID, &F::DataViewID)
      .Prop("ValueTableIDField", &F::ValueTableIDField, &F::ValueTableIDField)
      .Prop("ValueTableNameField", &F::ValueTableNameField, &F::ValueTableNameField)
      .Prop("OriginalFieldCaption", &F::OriginalFieldCaption, &F::OriginalFieldCaption)
      .Prop("Status", &F::Status, &F::Status)
      .Prop("FieldIndex", &F::FieldIndex, &F::FieldIndex)
      .Prop("FieldForSort", &F::FieldForSort, &F::FieldForSort)
      .Prop("SqlAlias", &F::SqlAlias, &F::SqlAlias)
      .Prop("RepeatedFieldID", &F::RepeatedFieldID, &F::RepeatedFieldID)
      .Method("Load", &F::Load)
      .Method("FillProperties", &F::FillProperties)
      .Method("Copy", &F::Copy)
      .Prop("DefinitionsDataStore", &F::DefinitionsDataStore, &F::DefinitionsDataStore)
      .Method("SingleChoiceSQL", &F::SingleChoiceSQL)
      .Method("FillSingleChoiceTable", &F::FillSingleChoiceTable, 1)
      .Get("ChoiceTableValues", &F::ChoiceTableValues)
      .Method("ChoiceValues", &F::ChoiceValues)
      .Method("GetChoiceID", &F::GetChoiceID, 1)
      .Method("GetLookupValueName", &F::GetLookupValueName)
      .Method("FieldValuesEnumReset", &F::FieldValuesEnumReset, 1)
      .Method("FieldValuesEnumNext", &F::FieldValuesEnumNext)
      .Method("GetFormattedWhere", &F::GetFormattedWhere)
      // The data-store collection travels as an object (or Nothing) rather than a pointer.
      .Method(
          "GenerateHtmlCode",
          [](F& f, const std::shared_ptr<Connection>& type16,
             const std::shared_ptr<Connection>& others, const Variant& value, bool select_tag,
             bool force_text, const std::shared_ptr<CZtDataStoreCollection>& stores, bool utf8) {
            return f.GenerateHtmlCode(type16, others, value, select_tag, force_text, stores.get(),
                                      utf8);
          },
          // Every argument may be left out; the connections and the collection may be Nothing,
          // for field types that need none of them.
          server::Defaults{{Variant(), Variant(), Variant(), false, false, Variant(), false}})
      .Method("FromString", &F::FromString)
      .Prop("MacroCollection", &F::MacroCollection, &F::MacroCollection)
      .Prop("WhereDefinition", &F::WhereDefinition, &F::WhereDefinition)
      .Prop("ExtendedProperties", &F::ExtendedProperties, &F::ExtendedProperties)
      .Method("HasExtendedProperty", &F::HasExtendedProperty)
      .Method("ExtendedProperty", &F::ExtendedProperty)
      .Method("SetExtendedProperty", &F::SetExtendedProperty)
      .Method("RemoveExtendedProperty", &F::RemoveExtendedProperty);
  SerializableMembers(t);
});

const Registrar<CZtFieldCollection> kFieldCollection("CZtFieldCollection", [](auto& t) {
  using C = CZtFieldCollection;
  t.Get("Count", &C::Count)
      .Method("Item", &C::Item)
      .Method("Exists", &C::Exists)
      .Method("Remove", &C::Remove)
      .Method("RemoveAll", &C::RemoveAll)
      .Method("Items", &C::Items)
      .Method("Add", &C::Add)
      .Method("AddField", &C::AddField)
      .Method("Load", &C::Load)
      .Method("Copy", &C::Copy)
      .Method("FromString", &C::FromString);
  SerializableMembers(t);
});

const Registrar<CZtLookupValue> kLookupValue("CZtLookupValue", [](auto& t) {
  using L = CZtLookupValue;
  t.Prop("ID", &L::ID, &L::ID)
      .Prop("Name", &L::Name, &L::Name)
      .Prop("Caption", &L::Caption, &L::Caption)
      .Prop("Description", &L::Description, &L::Description)
      .Prop("ChoiceID", &L::ChoiceID, &L::ChoiceID)
      .Prop("DependentFieldID", &L::DependentFieldID, &L::DependentFieldID)
      .Method("GetFieldValue", &L::GetFieldValue)
      .Method("SetFieldValue", &L::SetFieldValue);
  SerializableMembers(t);
});

const Registrar<CZtLookupValCol> kLookupValCol("CZtLookupValCol", [](auto& t) {
  using L = CZtLookupValCol;
  t.Method("Initialize", &L::Initialize, 1)
      .Prop("DataStore", &L::DataStore, &L::DataStore)
      .Prop("Table", &L::Table, &L::Table)
      .Prop("Where", &L::Where, &L::Where)
      .Prop("SelectClause", &L::SelectClause, &L::SelectClause)
      .Prop("sortBy", &L::sortBy, &L::sortBy)
      .Method("SQLText", &L::SQLText, 1)
      .Method("Load", &L::Load, 1)
      .Method("Add", &L::Add)
      .Get("Count", &L::Count)
      .Method("Exists", &L::Exists)
      .Method("Item", &L::Item)
      .Method("Remove", &L::Remove)
      .Method("RemoveAll", &L::RemoveAll)
      .Method("Items", &L::Items)
      .Method("Keys", &L::Keys)
      .Method("GetNameFromID", &L::GetNameFromID)
      .Method("GetFirstIDFromName", &L::GetFirstIDFromName)
      .Prop("FieldID", &L::FieldID, &L::FieldID)
      .Prop("FieldName", &L::FieldName, &L::FieldName)
      .Prop("FieldChoiceID", &L::FieldChoiceID, &L::FieldChoiceID)
      .Prop("FieldDependentFieldID", &L::FieldDependentFieldID, &L::FieldDependentFieldID)
      .Prop("FieldCaption", &L::FieldCaption, &L::FieldCaption)
      .Prop("FieldDescription", &L::FieldDescription, &L::FieldDescription)
      .Method("GetName", &L::GetName)
      .Method("GetFirstID", &L::GetFirstID)
      .Method("FromString", &L::FromString);
  SerializableMembers(t);
});

const Registrar<CZtWhereMacroHlpr> kWhereMacro("CZtWhereMacroHlpr", [](auto& t) {
  using W = CZtWhereMacroHlpr;
  t.Method("ExpandMacros", &W::ExpandMacros)
      .Method("ReplacePair",
              [](W&, const std::string& text, const std::string& s1, const std::string& s2,
                 const std::string& r1,
                 const std::string& r2) { return W::ReplacePair(text, s1, s2, r1, r2); });
});

const Registrar<CZtQuery> kQuery("CZtQuery", [](auto& t) {
  using Q = CZtQuery;
  t.Prop("ID", &Q::ID, &Q::ID)
      .Prop("Name", &Q::Name, &Q::Name)
      .Prop("Caption", &Q::Caption, &Q::Caption)
      .Prop("TableType", &Q::TableType, &Q::TableType)
      .Method("Initialize", &Q::Initialize, 2)
      .Method("Load", &Q::Load)
      .Method("Save", &Q::Save)
      .Method("Delete", &Q::Delete)
      .Method("GetSQLStatement", &Q::GetSQLStatement)
      .Method("SQLStatement",
              [](Q& q, const std::shared_ptr<Object>& ds) { return q.SQLStatement(ds); })
      .PutFn("SQLStatement",
             [](Q& q, std::shared_ptr<CZtSQLStatement> s) { q.SQLStatement(std::move(s)); });
});

const Registrar<CZtDataView> kDataView("CZtDataView", [](auto& t) {
  using V = CZtDataView;
  t.Prop("ID", &V::ID, &V::ID)
      .Prop("Name", &V::Name, &V::Name)
      .Prop("Description", &V::Description, &V::Description)
      .Prop("QueryID", &V::QueryID, &V::QueryID)
      .Prop("Order", &V::Order, &V::Order)
      .Method("Load", &V::Load)
      .Method("Save", &V::Save)
      .Method("Copy", &V::Copy)
      .Method("GetQuery", &V::GetQuery)
      .Method("GetRelatedFields",
              [](V& v, const CZtFieldCollection& fields) { return v.GetRelatedFields(fields); })
      .Method("GetMainTableDsType",
              [](V& v, const CZtFieldCollection& fields, const Variant& keys) {
                return v.GetMainTableDsType(fields, keys);
              })
      .Method("FromString", &V::FromString);
  SerializableMembers(t);
});

const Registrar<CZtDataViewCol> kDataViewCol("CZtDataViewCol", [](auto& t) {
  using C = CZtDataViewCol;
  t.Method("Add", &C::Add)
      .Method("Copy", &C::Copy)
      .Get("Count", &C::Count)
      .Method("Exists", &C::Exists)
      .Method("Item", &C::Item)
      .Method("Items", &C::Items)
      .Method("Key", &C::Key)
      .Method("Keys", &C::Keys)
      .Method("Load", &C::Load)
      .Method("Remove", &C::Remove)
      .Method("RemoveAll", &C::RemoveAll)
      .Method("Save", &C::Save)
      .Prop("SQLStatement", &C::SQLStatement, &C::SQLStatement)
      .Method("FromString", &C::FromString);
  SerializableMembers(t);
});

const Registrar<CZtSQLStatement> kStatement("CZtSQLStatement", [](auto& t) {
  using S = CZtSQLStatement;
  t.Prop("Table", &S::Table, &S::Table)
      .Prop("SelectClause", &S::SelectClause, &S::SelectClause)
      .Prop("WhereClause", &S::WhereClause, &S::WhereClause)
      .Prop("OrderByClause", &S::OrderByClause, &S::OrderByClause)
      .Get("SQLText", &S::SQLText);
});

const Registrar<CZtDataStoreCollection> kStores("CZtDataStoreCollection", [](auto& t) {
  using C = CZtDataStoreCollection;
  t.Method("Add", &C::Add)
      .Get("Count", &C::Count)
      .Method("FindByType", &C::FindByType)
      .Method("GetConnection", &C::GetConnection);
});

const Registrar<CZtTableType> kTableType("CZtTableType", [](auto& t) {
  using T = CZtTableType;
  t.Prop("ID", &T::ID, &T::ID)
      .Prop("StyleType", &T::StyleType, &T::StyleType)
      .Prop("IsLocal", &T::IsLocal, &T::IsLocal)
      .Prop("StructureTable", &T::StructureTable, &T::StructureTable)
      .Prop("DefinitionTable", &T::DefinitionTable, &T::DefinitionTable)
      .Prop("TemporaryTable", &T::TemporaryTable, &T::TemporaryTable)
      .Prop("Prefix", &T::Prefix, &T::Prefix)
      .Prop("SecurityTable", &T::SecurityTable, &T::SecurityTable)
      .Method("Load", &T::Load, 2)
      .Method("GetLocalTables", &T::GetLocalTables)
      .Method("LoadStatement", [](T&, std::int32_t id, std::int32_t style, std::int32_t local) {
        return T::LoadStatement(id, style, local);
      });
});

const Registrar<CZtTableTypeMgr> kTableTypeMgr("CZtTableTypeMgr", [](auto& t) {
  using M = CZtTableTypeMgr;
  t.Method("Initialize", &M::Initialize)
      .Method("Item", &M::Item)
      .Get("Count", &M::Count)
      .Method("Exists", &M::Exists)
      .Method("Remove", &M::Remove)
      .Method("RemoveAll", &M::RemoveAll)
      .Method("ItemsArray", &M::ItemsArray)
      .Method("Keys", &M::Keys);
});

const Registrar<CZtStyle> kStyle("CZtStyle", [](auto& t) {
  using S = CZtStyle;
  t.Method("InitializeStyle", &S::InitializeStyle)
      .Prop("Name", &S::Name, &S::Name)
      .Prop("Caption", &S::Caption, &S::Caption)
      .Prop("ID", &S::ID, &S::ID)
      .Prop("StructureTableID", &S::StructureTableID, &S::StructureTableID)
      .Prop("StyleType", &S::StyleType, &S::StyleType)
      .Get("IsLocal", &S::IsLocal)
      .Method("GetStructureTableName", &S::GetStructureTableName)
      .Method("GetDefinitionTableName", &S::GetDefinitionTableName);
});

}  // namespace
}  // namespace zt
