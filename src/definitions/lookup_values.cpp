// CZtLookupValue and CZtLookupValCol: the choices of a value table.
#include "zt/definitions/lookup_values.h"

#include "definitions/row_values.h"
#include "zt/datastore.h"
#include "zt/definitions/sql_statement.h"
#include "zt/event_logger.h"
#include "zt/platform.h"
#include "zt/text/compare.h"
#include "zt/text/strings.h"

namespace zt {

namespace {
constexpr const char* kValueType = "CZtLookupValue";
constexpr const char* kColType = "CZtLookupValCol";

// The dictionary key of an ID: its decimal text, or its own text when it is not numeric.
std::string KeyOf(const Variant& id) {
  return id.IsNumeric() ? std::to_string(id.ToInt32()) : id.ToText();
}

std::shared_ptr<CZtLookupValue> AsValue(const Variant& item) {
  return std::dynamic_pointer_cast<CZtLookupValue>(item.AsObject());
}
}  // namespace

// ---- CZtLookupValue -----------------------------------------------------------------------

std::int32_t CZtLookupValue::ID() const {
  if (!id_.IsNumeric() || id_.IsEmpty())
    defs::Fail(rt::kTypeMismatch, kValueType,
               ".ID. This property is used for numeric IDs.  ID=" + defs::NzText(id_));
  return id_.ToInt32();
}

std::string CZtLookupValue::Caption() const {
  RaiseNotImplemented(kValueType, "IZtLookupValue_Caption", Accessor::Get);
}
void CZtLookupValue::Caption(const std::string&) {
  RaiseNotImplemented(kValueType, "IZtLookupValue_Caption", Accessor::Let);
}
std::string CZtLookupValue::Description() const {
  RaiseNotImplemented(kValueType, "IZtLookupValue_Description", Accessor::Get);
}
void CZtLookupValue::Description(const std::string&) {
  RaiseNotImplemented(kValueType, "IZtLookupValue_Description", Accessor::Let);
}

std::string CZtLookupValue::ToString() {
  Trap at(kValueType, "IZtSerializable_ToString");
  return at.Reraising([&] { return JoinFields({std::to_string(ID()), name_}); });
}

// ---- CZtLookupValCol ----------------------------------------------------------------------

void CZtLookupValCol::Initialize(std::shared_ptr<CZtDataStore> data_store, const std::string& table,
                                 const std::string& where) {
  data_store_ = std::move(data_store);
  table_ = table;
  where_ = where;
}

std::string CZtLookupValCol::SQLText(const Variant& dependent_value) const {
  CZtSQLStatement st;
  st.Table(table_);
  st.SelectClause(select_);
  st.WhereClause(where_);
  if (!dependent_value.IsEmpty() && !dependent_value.IsNull()) {
    // A text value goes into the statement as a quoted literal; numbers as they are.
    const std::string value = dependent_value.IsNumeric()
                                  ? dependent_value.ToText()
                                  : "'" + ZtStrMan_EscapeQuotes(dependent_value) + "'";
    std::string condition;
    if (!where_.empty()) condition = "(" + where_ + ") AND ";
    condition += " [" + field_dependent_ + "]=" + value;
    st.WhereClause(condition);
  }
  switch (sort_by_) {
    case LookupSort::kByName:
      st.OrderByClause("[" + field_name_ + "]");
      break;
    case LookupSort::kByChoiceID:
      st.OrderByClause("[" + field_choice_id_ + "]");
      break;
    case LookupSort::kByID:
      st.OrderByClause("[" + field_id_ + "]");
      break;
    case LookupSort::kNone:
      break;
  }
  return st.SQLText();
}

void CZtLookupValCol::Load(const Variant& dependent_value) {
  Trap at(kColType, "Load");
  at.Reraising([&] {
    at = 10;
    if (!data_store_)
      defs::Fail(rt::kObjectNotSet, kColType,
                 ".Load, Cannot load values because DataStore has not been initialized, Table:" +
                     table_ + ", Where:" + where_);
    at = 20;
    std::vector<std::string> extra;  // selected columns kept in FieldValues
    if (!TextEquals(TrimSpaces(select_), "*")) {
      for (const std::string& piece : SplitText(select_, ",")) {
        std::string col = TrimSpaces(piece);
        if (!col.empty() && col.front() == '[') col = ZtStrMan_RemoveBrackets(col);
        if (col.empty() || TextEquals(col, field_id_) || TextEquals(col, field_name_) ||
            TextEquals(col, field_choice_id_) || TextEquals(col, field_dependent_))
          continue;
        extra.push_back(col);
      }
    }
    at = 30;
    const std::string sql = SQLText(dependent_value);
    auto cn = data_store_->GetConnection(1);
    auto rs = std::make_shared<Recordset>();
    rs->Open(sql, cn);
    at = 40;
    // The rows are gathered aside first, so that a failure part-way leaves the collection as
    // it was.
    Dictionary loaded = items_;
    const bool has_choice = rs->HasField(field_choice_id_);
    const bool has_dependent = rs->HasField(field_dependent_);
    for (; !rs->Eof(); rs->MoveNext()) {
      const Variant id = rs->Value(field_id_);
      if (id.IsNull()) {
        ErrorHandler().LogError(std::string(kColType) + ".DoLoadValues, field id is null for field",
                                nullptr, kEventWarning, kLevelError);
        continue;
      }
      const std::string key = KeyOf(id);
      if (loaded.Exists(key)) continue;
      auto value = std::make_shared<CZtLookupValue>(id, defs::NzText(rs->Value(field_name_)));
      if (has_choice) value->ChoiceID(defs::NzInt32(rs->Value(field_choice_id_)));
      if (has_dependent) {
        // The dependent column may be a text column (a code rather than an ID): its value is
        // then kept among the field values instead of failing the whole load.
        const Variant dependent = rs->Value(field_dependent_);
        if (dependent.IsNumeric() || dependent.IsNull())
          value->DependentFieldID(defs::NzInt32(dependent));
        else
          value->SetFieldValue(field_dependent_, dependent);
      }
      for (const std::string& col : extra) value->SetFieldValue(col, rs->Value(col));
      loaded.Add(key, Variant(std::shared_ptr<Object>(value)));
    }
    rs->Close();
    items_ = std::move(loaded);
  });
}

bool CZtLookupValCol::Add(std::shared_ptr<CZtLookupValue> value) {
  if (!value) defs::Fail(rt::kInvalidProcedureCall, kColType, ".Add, no value given");
  const std::string key = KeyOf(value->RawID());
  if (items_.Exists(key)) return false;
  items_.Add(key, Variant(std::shared_ptr<Object>(std::move(value))));
  return true;
}

std::shared_ptr<CZtLookupValue> CZtLookupValCol::Item(std::int32_t id) const {
  return AsValue(items_.Item(std::to_string(id)));
}

void CZtLookupValCol::Remove(std::int32_t id) {
  items_.Remove(std::to_string(id));
}

std::vector<std::shared_ptr<CZtLookupValue>> CZtLookupValCol::Items() const {
  std::vector<std::shared_ptr<CZtLookupValue>> out;
  for (const auto& [key, item] : items_.Items()) out.push_back(AsValue(item));
  return out;
}

std::vector<std::int32_t> CZtLookupValCol::Keys() const {
  std::vector<std::int32_t> out;
  for (const auto& [key, item] : items_.Items()) out.push_back(AsValue(item)->ID());
  return out;
}

std::string CZtLookupValCol::GetNameFromID(std::int32_t id) {
  Trap at(kColType, "IZtLookupValCol_GetName");
  return at.Reraising([&] {
    auto value = Item(id);
    if (!value)
      defs::Fail(rt::kElementNotFound, kColType,
                 ".IZtLookupValCol_GetName, Value not found in dictionary; ID: " +
                     std::to_string(id) + "; Table: " + table_);
    return value->Name();
  });
}

std::int32_t CZtLookupValCol::GetFirstIDFromName(const std::string& name) {
  Trap at(kColType, "GetFirstIDFromName");
  return at.Reraising([&]() -> std::int32_t {
    for (const auto& [key, item] : items_.Items()) {
      auto value = AsValue(item);
      if (value->Name() != name) continue;
      const Variant& id = value->RawID();
      if (!id.IsNumeric() || id.IsEmpty())
        defs::Fail(rt::kTypeMismatch, kColType,
                   ".GetFirstIDFromName. This function expects to return a number. FirstID=" +
                       defs::NzText(id));
      return id.ToInt32();
    }
    return 0;
  });
}

std::string CZtLookupValCol::FieldCaption() const {
  RaiseNotImplemented(kColType, "IZtLookupValCol_FieldCaption", Accessor::Get);
}
void CZtLookupValCol::FieldCaption(const std::string&) {
  RaiseNotImplemented(kColType, "IZtLookupValCol_FieldCaption", Accessor::Let);
}
std::string CZtLookupValCol::FieldDescription() const {
  RaiseNotImplemented(kColType, "IZtLookupValCol_FieldDescription", Accessor::Get);
}
void CZtLookupValCol::FieldDescription(const std::string&) {
  RaiseNotImplemented(kColType, "IZtLookupValCol_FieldDescription", Accessor::Let);
}

std::string CZtLookupValCol::ToString() {
  return JoinItems(items_);
}

void CZtLookupValCol::FromString(const std::string& text) {
  Trap at(kColType, "FromString");
  at.Reraising([&] {
    at = 10;
    defs::RequireDelimiters(kColType, FieldDelimiter(), ChildrenFieldDelimiter());
    Dictionary read;
    at = 20;
    for (const std::string& item : SplitText(text, FieldDelimiter())) {
      const auto fields = SplitText(item, ChildrenFieldDelimiter());
      if (fields.size() != 2)
        defs::Fail(rt::kTypeMismatch, kColType, ".FromString, not an ID and a name: " + item);
      const std::string id = EncodeFields() ? CZtFieldEncoder::Decode(fields[0]) : fields[0];
      const std::string name = EncodeFields() ? CZtFieldEncoder::Decode(fields[1]) : fields[1];
      const auto number = ParseNumber(id);
      if (!number)
        defs::Fail(rt::kTypeMismatch, kColType, ".FromString, the ID is not a number: " + id);
      auto value = std::make_shared<CZtLookupValue>(Variant(id).ToInt32(), name);
      const std::string key = KeyOf(value->RawID());
      if (!read.Exists(key)) read.Add(key, Variant(std::shared_ptr<Object>(value)));
    }
    items_ = std::move(read);
  });
}

}  // namespace zt
