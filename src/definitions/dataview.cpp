// CZtDataView and CZtDataViewCol: the data views of tblDataView.
#include "zt/definitions/dataview.h"

#include "definitions/row_values.h"
#include "zt/datastore.h"
#include "zt/definitions/field.h"
#include "zt/definitions/field_collection.h"
#include "zt/definitions/query.h"
#include "zt/platform.h"
#include "zt/recordset/recordset_utils.h"
#include "zt/text/compare.h"
#include "zt/text/strings.h"

namespace zt {

namespace {

constexpr const char* kViewType = "CZtDataView";
constexpr const char* kColType = "CZtDataViewCol";

// The view's own columns in tblDataView, and those of a link table of views.
constexpr const char* kQueryColumn = "nDefaultQueryID";
constexpr const char* kOrderColumn = "nDefaultOrder";
constexpr const char* kNameColumn = "tName";
constexpr const char* kDescriptionColumn = "tDescription";
constexpr const char* kLinkIdColumn = "nDataViewID";
constexpr const char* kLinkQueryColumn = "nQueryID";
constexpr const char* kLinkOrderColumn = "nOrder";

// The number of fields a view writes as text.
constexpr std::size_t kViewTextFields = 5;

std::int32_t TextToInt32(const std::string& text, const char* type_name) {
  if (!ParseNumber(TrimSpaces(text)))
    defs::Fail(rt::kTypeMismatch, type_name, ".FromString, not a number: " + text);
  return Variant(text).ToInt32();
}

}  // namespace

// ---- CZtDataView ----------------------------------------------------------------------------

void CZtDataView::Load(Recordset& recordset) {
  Trap at(kViewType, "IZtDataView_Load");
  at.Reraising([&] {
    at = 10;
    if (recordset.State() != ado::adStateOpen || recordset.Eof()) return;
    // A link table of views names the view by nDataViewID and has no nID of its own.
    at = 20;
    if (!recordset.HasField(kDataViewIdColumn)) {
      const std::int32_t id = defs::ColumnInt32(recordset, kLinkIdColumn);
      const std::int32_t query = defs::ColumnInt32(recordset, kLinkQueryColumn);
      const std::int32_t order = defs::ColumnInt32(recordset, kLinkOrderColumn);
      id_ = id;
      query_id_ = query;
      order_ = order;
      return;
    }
    at = 30;
    const std::int32_t id = defs::ColumnInt32(recordset, kDataViewIdColumn);
    const std::int32_t query = defs::ColumnInt32(recordset, kQueryColumn);
    const std::int32_t order = defs::ColumnInt32(recordset, kOrderColumn);
    std::string name = defs::ColumnText(recordset, kNameColumn);
    std::string description = defs::ColumnText(recordset, kDescriptionColumn);
    id_ = id;
    query_id_ = query;
    order_ = order;
    name_ = std::move(name);
    description_ = std::move(description);
  });
}

void CZtDataView::Save(Recordset& recordset) {
  Trap at(kViewType, "IZtDataView_Save");
  at.Reraising([&] {
    at = 10;
    if (recordset.State() != ado::adStateOpen || recordset.Eof()) return;
    at = 20;
    if (!recordset.HasField(kDataViewIdColumn)) {
      recordset.Fields(kLinkIdColumn).SetValue(id_);
      recordset.Fields(kLinkQueryColumn).SetValue(query_id_);
      recordset.Fields(kLinkOrderColumn).SetValue(order_);
    } else {
      at = 30;
      recordset.Fields(kDataViewIdColumn).SetValue(id_);
      recordset.Fields(kQueryColumn).SetValue(query_id_);
      recordset.Fields(kOrderColumn).SetValue(order_);
      recordset.Fields(kNameColumn).SetValue(name_);
      recordset.Fields(kDescriptionColumn).SetValue(description_);
    }
    at = 40;
    recordset.Update();
  });
}

std::shared_ptr<IZtDataView> CZtDataView::Copy() const {
  auto copy = std::make_shared<CZtDataView>();
  copy->id_ = id_;
  copy->query_id_ = query_id_;
  copy->order_ = order_;
  copy->name_ = name_;
  copy->description_ = description_;
  return copy;
}

std::shared_ptr<IZtQuery> CZtDataView::GetQuery(const std::shared_ptr<Object>& data_store,
                                                std::int32_t table_type) {
  Trap at(kViewType, "IZtDataView_GetQuery");
  return at.Reraising([&]() -> std::shared_ptr<IZtQuery> {
    at = 10;
    if (query_id_ == 0) return nullptr;
    at = 20;
    auto query = std::make_shared<CZtQuery>();
    query->Initialize(query_id_, table_type);
    at = 30;
    query->Load(data_store);
    return query;
  });
}

DataViewFields CZtDataView::GetRelatedFields(const DataViewFields& fields) const {
  DataViewFields related;
  for (const auto& field : fields)
    if (field && field->DataViewID() == id_) related.push_back(field);
  return related;
}

std::int32_t CZtDataView::GetMainTableDsType(const DataViewFields& fields,
                                             const Variant& field_keys) const {
  Trap at(kViewType, "IZtDataView_GetMainTableDsType");
  return at.Reraising([&] {
    at = 10;
    const auto is_main = [&](const CZtField& field) {
      return field.DataViewID() == id_ && field.RelationShipType() == kMainTableRelationship;
    };
    if (!field_keys.IsArray()) {
      for (const auto& field : fields)
        if (field && is_main(*field)) return field->TableDSType();
      return std::int32_t{0};
    }
    at = 20;
    for (const Variant& key : field_keys.AsArray()->items) {
      if (!key.IsNumeric() || key.IsEmpty()) rt::Raise(rt::kTypeMismatch);
      const std::int32_t id = key.ToInt32();
      at = 30;
      std::shared_ptr<CZtField> found;
      for (const auto& field : fields)
        if (field && field->FieldID() == id) found = field;
      if (!found)
        defs::Fail(rt::kElementNotFound, kViewType,
                   ".GetMainTableDsType, no field with the ID " + std::to_string(id));
      if (is_main(*found)) return found->TableDSType();
    }
    return std::int32_t{0};
  });
}

// The collection's fields pass through the list forms above: the related fields are the same
// objects, in the collection's order.
std::shared_ptr<CZtFieldCollection> CZtDataView::GetRelatedFields(
    const CZtFieldCollection& fields) {
  auto related = std::make_shared<CZtFieldCollection>();
  for (const auto& f : GetRelatedFields(fields.Items())) related->Add(f);
  return related;
}

std::int32_t CZtDataView::GetMainTableDsType(const CZtFieldCollection& fields,
                                             const Variant& field_keys) {
  return GetMainTableDsType(fields.Items(), field_keys);
}

// The base class only reports these; a view raises them, so that a caller relying on a mask or
// a replacement learns at once that none is applied.
std::string CZtDataView::FormatMask() const {
  RaiseNotImplemented(kViewType, "IZtSerializable_FormatMask", Accessor::Get);
}
void CZtDataView::FormatMask(const std::string&) {
  RaiseNotImplemented(kViewType, "IZtSerializable_FormatMask", Accessor::Let);
}
std::string CZtDataView::Replace() const {
  RaiseNotImplemented(kViewType, "IZtSerializable_Replace", Accessor::Get);
}
void CZtDataView::Replace(const std::string&) {
  RaiseNotImplemented(kViewType, "IZtSerializable_Replace", Accessor::Let);
}

std::string CZtDataView::ToString() {
  Trap at(kViewType, "IZtSerializable_ToString");
  return at.Reraising([&] {
    return JoinFields({std::to_string(id_), std::to_string(query_id_), std::to_string(order_),
                       name_, description_});
  });
}

void CZtDataView::FromString(const std::string& line) {
  Trap at(kViewType, "FromString");
  at.Reraising([&] {
    at = 10;
    if (FieldDelimiter().empty())
      defs::Fail(rt::kInvalidProcedureCall, kViewType,
                 ".FromString, the field delimiter must be set to read a line back");
    at = 20;
    std::vector<std::string> fields = SplitText(line, FieldDelimiter());
    if (fields.size() != kViewTextFields)
      defs::Fail(rt::kTypeMismatch, kViewType,
                 ".FromString, not the five fields of a view: " + line);
    if (EncodeFields())
      for (std::string& f : fields) f = CZtFieldEncoder::Decode(f);
    at = 30;
    const std::int32_t id = TextToInt32(fields[0], kViewType);
    const std::int32_t query = TextToInt32(fields[1], kViewType);
    const std::int32_t order = TextToInt32(fields[2], kViewType);
    id_ = id;
    query_id_ = query;
    order_ = order;
    name_ = std::move(fields[3]);
    description_ = std::move(fields[4]);
  });
}

// ---- CZtDataViewCol -------------------------------------------------------------------------

std::shared_ptr<CZtDataView> CZtDataViewCol::AsView(const Variant& item) {
  return std::dynamic_pointer_cast<CZtDataView>(item.AsObject());
}

void CZtDataViewCol::Add(std::shared_ptr<IZtDataView> view) {
  Trap at(kColType, "IZtDataViewCol_Add");
  at.Reraising([&] {
    at = 10;
    if (!view) rt::Raise(rt::kObjectNotSet);
    auto object = std::dynamic_pointer_cast<CZtDataView>(view);
    if (!object) rt::Raise(rt::kTypeMismatch);
    at = 20;
    items_.Add(std::to_string(object->ID()), Variant(std::shared_ptr<Object>(object)));
  });
}

std::shared_ptr<IZtDataViewCol> CZtDataViewCol::Copy() const {
  auto copy = std::make_shared<CZtDataViewCol>();
  for (const auto& [key, item] : items_.Items())
    copy->items_.Add(key, Variant(std::dynamic_pointer_cast<Object>(AsView(item)->Copy())));
  copy->statement_ = statement_;
  return copy;
}

bool CZtDataViewCol::Exists(std::int32_t key) const {
  return items_.Exists(std::to_string(key));
}

std::shared_ptr<IZtDataView> CZtDataViewCol::Item(std::int32_t key) const {
  if (!Exists(key))
    defs::Fail(rt::kElementNotFound, kColType,
               ".Item, no data view with the ID " + std::to_string(key));
  return AsView(items_.Item(std::to_string(key)));
}

std::vector<std::shared_ptr<IZtDataView>> CZtDataViewCol::Items() const {
  std::vector<std::shared_ptr<IZtDataView>> views;
  for (const auto& [key, item] : items_.Items()) views.push_back(AsView(item));
  return views;
}

std::int32_t CZtDataViewCol::Key(std::int32_t index) const {
  if (index < 0 || index >= Count()) rt::Raise(rt::kSubscriptOutOfRange);
  return Variant(items_.Items()[static_cast<std::size_t>(index)].first).ToInt32();
}

std::vector<std::int32_t> CZtDataViewCol::Keys() const {
  std::vector<std::int32_t> keys;
  for (const auto& [key, item] : items_.Items()) keys.push_back(Variant(key).ToInt32());
  return keys;
}

void CZtDataViewCol::Remove(std::int32_t key) {
  if (!Exists(key))
    defs::Fail(rt::kElementNotFound, kColType,
               ".Remove, no data view with the ID " + std::to_string(key));
  items_.Remove(std::to_string(key));
}

std::shared_ptr<CZtSQLStatement> CZtDataViewCol::SQLStatement() {
  if (statement_) return statement_;
  auto statement = std::make_shared<CZtSQLStatement>();
  statement->Table("tblDataView");
  std::string select;
  for (const char* column :
       {kDataViewIdColumn, kQueryColumn, kOrderColumn, kNameColumn, kDescriptionColumn})
    select += (select.empty() ? "" : ",") + ZtStrMan_AddBrackets(column);
  statement->SelectClause(select);
  statement->OrderByClause(ZtStrMan_AddBrackets(kDataViewIdColumn));
  statement_ = statement;
  return statement_;
}

void CZtDataViewCol::Load(const std::shared_ptr<Object>& data_store) {
  Trap at(kColType, "Load", ", #Line=");
  at.Reraising([&] {
    at = 10;
    const std::shared_ptr<CZtDataStore> ds =
        defs::RequireDataStore(data_store, kColType, "IZtDataViewCol_Load");
    // A statement without a table is a blank statement: there is nothing to read or write.
    const std::shared_ptr<CZtSQLStatement> statement = SQLStatement();
    if (TrimSpaces(statement->Table()).empty()) return;
    const std::string sql = statement->SQLText();
    at = 20;
    Dictionary read = items_;
    defs::WithRows(ds->GetConnection(1), sql, [&](Recordset& rs) {
      at = 30;
      for (; !rs.Eof(); rs.MoveNext()) {
        auto view = std::make_shared<CZtDataView>();
        view->Load(rs);
        const std::string key = std::to_string(view->ID());
        if (!read.Exists(key)) read.Add(key, Variant(std::shared_ptr<Object>(view)));
      }
    });
    // Only a complete read changes what the collection holds.
    items_ = std::move(read);
  });
}

void CZtDataViewCol::Save(const std::shared_ptr<Object>& data_store) {
  Trap at(kColType, "Save", ", #Line=");
  at.Reraising([&] {
    at = 10;
    const std::shared_ptr<CZtDataStore> ds =
        defs::RequireDataStore(data_store, kColType, "IZtDataViewCol_Save");
    // A statement without a table is a blank statement: there is nothing to read or write.
    const std::shared_ptr<CZtSQLStatement> statement = SQLStatement();
    if (TrimSpaces(statement->Table()).empty()) return;
    const std::string sql = statement->SQLText();
    at = 20;
    std::shared_ptr<Connection> cn = ds->GetConnection(1);
    auto rs = std::make_shared<Recordset>();
    CZTADOUtilities utils;
    const std::int32_t location = cn->CursorLocation();
    bool in_transaction = false;
    try {
      cn->SetCursorLocation(ado::adUseClient);
      rs->Open(sql, cn, ado::adOpenKeyset, ado::adLockOptimistic);
      cn->SetCursorLocation(location);
      cn->BeginTrans();
      in_transaction = true;
      at = 30;
      if (!rs->Eof()) rs->MoveFirst();
      while (!rs->Eof()) {
        rs->Delete();
        // Deleting the last visible row already puts the recordset at its end.
        if (!rs->Eof()) rs->MoveNext();
      }
      at = 40;
      for (const auto& [key, item] : items_.Items()) {
        rs->AddNew();
        AsView(item)->Save(*rs);
      }
      at = 50;
      cn->CommitTrans();
      in_transaction = false;
    } catch (...) {
      // The table keeps its former rows: nothing of a half-done save stays.
      if (in_transaction) cn->RollbackTrans();
      cn->SetCursorLocation(location);
      utils.CloseRecordsetADO(rs);
      throw;
    }
    at = 60;
    utils.CloseRecordsetADO(rs);
  });
}

std::string CZtDataViewCol::FormatMask() const {
  RaiseNotImplemented(kColType, "IZtSerializable_FormatMask", Accessor::Get);
}
void CZtDataViewCol::FormatMask(const std::string&) {
  RaiseNotImplemented(kColType, "IZtSerializable_FormatMask", Accessor::Let);
}
std::string CZtDataViewCol::Replace() const {
  RaiseNotImplemented(kColType, "IZtSerializable_Replace", Accessor::Get);
}
void CZtDataViewCol::Replace(const std::string&) {
  RaiseNotImplemented(kColType, "IZtSerializable_Replace", Accessor::Let);
}

std::string CZtDataViewCol::ToString() {
  return JoinItems(items_);
}

void CZtDataViewCol::FromString(const std::string& text) {
  Trap at(kColType, "FromString");
  at.Reraising([&] {
    at = 10;
    defs::RequireDelimiters(kColType, FieldDelimiter(), ChildrenFieldDelimiter());
    Dictionary read;
    at = 20;
    if (!text.empty())
      for (const std::string& line : SplitText(text, FieldDelimiter())) {
        auto view = std::make_shared<CZtDataView>();
        view->FieldDelimiter(ChildrenFieldDelimiter());
        view->EncodeFields(EncodeFields());
        view->FromString(line);
        read.Add(std::to_string(view->ID()), Variant(std::shared_ptr<Object>(view)));
      }
    items_ = std::move(read);
  });
}

}  // namespace zt
