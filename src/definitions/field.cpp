// CZtField: a field definition, its choices and its HTML.
#include "zt/definitions/field.h"

#include <array>
#include <variant>

#include "definitions/extended_properties.h"
#include "definitions/row_values.h"
#include "zt/datastore.h"
#include "zt/definitions/datastore_collection.h"
#include "zt/definitions/query.h"
#include "zt/platform.h"
#include "zt/resources.h"
#include "zt/text/compare.h"
#include "zt/text/strings.h"

namespace zt {

namespace {

constexpr const char* kType = "CZtField";
constexpr std::int32_t kTypeMySqlStore = 16;
constexpr const char* kChoiceIdColumn = "nChoiceID";
// The extended-property type of a Boolean.
constexpr std::int32_t kExtPropTypeBoolean = 11;

constexpr const char* kSelectOpen =
    "<select name=\"fieldvalue\" id=\"fieldvalue\" onchange=submitinfo()>\r\n";
constexpr const char* kSelectClose = "</select>\r\n";

// One column of the definition row and where its value goes.
struct Column {
  const char* name;
  std::variant<std::int32_t FieldDefinition::*, std::string FieldDefinition::*,
               bool FieldDefinition::*>
      member;
  bool optional = false;
};

// The columns of tblDtsFields in the order they are read.
const std::array<Column, 30> kColumns = {{
    {"nID", &FieldDefinition::field_id},
    {"tAliasSourceTable", &FieldDefinition::alias_source_table},
    {"tBoundControlName", &FieldDefinition::bound_control_name},
    {"fCanQueryBy", &FieldDefinition::can_query_by},
    {"fChoiceOrder", &FieldDefinition::choice_order},
    {"tDestinationTab", &FieldDefinition::destination_tab},
    {"nDestinationTabID", &FieldDefinition::destination_tab_id},
    {"fEditable", &FieldDefinition::editable},
    {"tCaption", &FieldDefinition::field_caption},
    {"nDataSize", &FieldDefinition::field_data_size},
    {"nDataType", &FieldDefinition::field_data_type},
    {"tFieldValuesTable", &FieldDefinition::field_value_table},
    {"nValueTableDSType", &FieldDefinition::value_table_ds_type},
    {"fKeepHistory", &FieldDefinition::keep_history},
    {"tLabelCaption", &FieldDefinition::label_caption},
    {"nRelatedField", &FieldDefinition::related_field},
    {"fRequired", &FieldDefinition::required},
    {"fVisible", &FieldDefinition::visible},
    {"tWhere", &FieldDefinition::where},
    {"tName", &FieldDefinition::field_name},
    {"nRelationshipType", &FieldDefinition::relationship_type},
    {"nControlType", &FieldDefinition::control_type},
    {"nContainerType", &FieldDefinition::container_type},
    {"fEnabled", &FieldDefinition::enabled},
    {"nTableDSType", &FieldDefinition::table_ds_type},
    {"tTableName", &FieldDefinition::table_name},
    {"nDataViewID", &FieldDefinition::data_view_id, true},
    {"tValueTableIDFld", &FieldDefinition::value_table_id_field, true},
    {"tValueTableNameFld", &FieldDefinition::value_table_name_field, true},
    {"tOrigCaption", &FieldDefinition::original_field_caption, true},
}};

Variant ValueOf(Recordset& rs, const char* column) {
  return rs.Fields(column).Value();
}
Variant ValueOf(dao::Recordset& rs, const char* column) {
  return rs.Value(column);
}
bool HasColumn(Recordset& rs, const char* column) {
  return rs.HasField(column);
}
bool HasColumn(dao::Recordset&, const char*) {
  return true;
}

}  // namespace

// The output routine for every name and value written into HTML. The old code handed them to
// the host utility library's text routine; that job lives here, and escaping the five markup
// characters keeps a stored value from closing the attribute or element it is written into.
std::string HtmlEscape(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

// ---- Reading a definition row -------------------------------------------------------------

void CZtField::Load(const Variant& recordset) {
  if (!recordset.IsObject()) return;
  if (auto rs = std::dynamic_pointer_cast<Recordset>(recordset.AsObject())) FillProperties(*rs);
}

template <class Rs>
void CZtField::ReadRow(Rs& rs, bool ado) {
  // Read into a copy so that a row that fails part-way leaves the field as it was.
  FieldDefinition d = def_;
  for (const Column& col : kColumns) {
    if (ado && col.optional && !HasColumn(rs, col.name)) continue;
    const Variant v = ValueOf(rs, col.name);
    std::visit(
        [&](auto member) {
          using T = std::remove_reference_t<decltype(d.*member)>;
          if constexpr (std::is_same_v<T, std::int32_t>)
            d.*member = defs::NzInt32(v);
          else if constexpr (std::is_same_v<T, bool>)
            d.*member = defs::NzBool(v);
          else
            d.*member = defs::NzText(v);
        },
        col.member);
    // The MySQL stores keep the user table under another name; the ADO path gives the name the
    // application knows. The DAO path has always kept the stored name, and callers rely on it.
    if (ado && std::string_view(col.name) == "tTableName" && d.table_ds_type == kTypeMySqlStore &&
        TextEquals(d.table_name, LoadResString(10402).value_or("tblUser_1")))
      d.table_name = LoadResString(10403).value_or("tblUser");
  }
  if (d.value_table_id_field.empty()) d.value_table_id_field = "nID";
  if (d.value_table_name_field.empty()) d.value_table_name_field = "tName";
  def_ = std::move(d);
}

void CZtField::FillProperties(Recordset& rs) {
  Trap at(kType, "FillProperties");
  at.Reraising([&] { ReadRow(rs, true); });
}

void CZtField::FillPropertiesDAO(dao::Recordset& rs) {
  Trap at(kType, "FillPropertiesDAO");
  at.Reraising([&] { ReadRow(rs, false); });
}

void CZtField::Copy(const CZtField& source) {
  def_ = source.Definition();
}

// ---- Text ---------------------------------------------------------------------------------

std::string CZtField::ToString() {
  std::vector<std::string> texts;
  for (const Column& col : kColumns)
    std::visit(
        [&](auto member) {
          using T = std::remove_reference_t<decltype(def_.*member)>;
          if constexpr (std::is_same_v<T, std::int32_t>)
            texts.push_back(std::to_string(def_.*member));
          else if constexpr (std::is_same_v<T, bool>)
            texts.push_back(def_.*member ? "-1" : "0");
          else
            texts.push_back(def_.*member);
        },
        col.member);
  return JoinFields(texts);
}

void CZtField::FromString(const std::string& text) {
  Trap at(kType, "FromString");
  at.Reraising([&] {
    at = 10;
    if (FieldDelimiter().empty())
      defs::Fail(rt::kInvalidProcedureCall, kType, ".FromString, no field delimiter set");
    const std::vector<std::string> texts = SplitText(text, FieldDelimiter());
    if (texts.size() != kColumns.size())
      defs::Fail(rt::kTypeMismatch, kType,
                 ".FromString, " + std::to_string(kColumns.size()) + " values expected, " +
                     std::to_string(texts.size()) + " found");
    at = 20;
    FieldDefinition d;
    for (std::size_t i = 0; i < kColumns.size(); ++i) {
      const std::string value = EncodeFields() ? CZtFieldEncoder::Decode(texts[i]) : texts[i];
      std::visit(
          [&](auto member) {
            using T = std::remove_reference_t<decltype(d.*member)>;
            if constexpr (std::is_same_v<T, std::string>) {
              d.*member = value;
            } else {
              const auto number = ParseNumber(value);
              if (!number)
                defs::Fail(
                    rt::kTypeMismatch, kType,
                    ".FromString, " + std::string(kColumns[i].name) + " is not a number: " + value);
              if constexpr (std::is_same_v<T, bool>)
                d.*member = *number != 0;
              else
                d.*member = Variant(*number).ToInt32();
            }
          },
          kColumns[i].member);
    }
    def_ = std::move(d);
  });
}

// ---- Choices ------------------------------------------------------------------------------

void CZtField::DefinitionsDataStore(std::shared_ptr<CZtDataStore> value) {
  if (value == definitions_ds_) return;
  definitions_ds_ = std::move(value);
}

std::string CZtField::GetFormattedWhere() {
  Trap at(kType, "GetFormattedWhere");
  return at.Reraising([&] {
    at = 10;
    if (def_.where.empty()) return std::string{};
    if (!macros_) defs::Fail(rt::kObjectNotSet, kType, ".GetFormattedWhere - objMacros not set");
    at = 20;
    return CZtWhereMacroHlpr().ExpandMacros(def_.where, *macros_, where_definition_);
  });
}

std::string CZtField::SingleChoiceSQL() {
  std::string sql = "SELECT * FROM [" + def_.field_value_table + "] ";
  const std::string where = GetFormattedWhere();
  if (!where.empty()) sql += where + " ";
  if (!def_.choice_order)
    sql += " ORDER BY [" + def_.value_table_name_field + "]";
  else
    sql += " ORDER BY [" + std::string(kChoiceIdColumn) + "]";
  return sql;
}

void CZtField::FillSingleChoiceTable(const std::shared_ptr<Connection>& connection) {
  Trap at(kType, "FillSingleChoiceTable");
  at.Reraising([&] {
    at = 10;
    if (choices_) return;
    std::shared_ptr<Connection> cn = connection;
    if (!cn && definitions_ds_) cn = definitions_ds_->GetConnection(1);
    if (!cn) return;
    at = 20;
    const std::string sql = SingleChoiceSQL();
    at = 30;
    auto rs = std::make_shared<Recordset>();
    rs->Open(sql, cn);
    auto choices = std::make_shared<CZtLookupValCol>();
    choices->Initialize(definitions_ds_, def_.field_value_table, def_.where);
    choices->FieldID(def_.value_table_id_field);
    choices->FieldName(def_.value_table_name_field);
    const bool has_dependent = rs->HasField(choices->FieldDependentFieldID());
    at = 40;
    for (; !rs->Eof(); rs->MoveNext()) {
      // A row without an ID is no choice: read through the null-safe conversion it would turn
      // into a choice 0 that nobody entered. The lookup collection skips it the same way.
      const Variant id = rs->Value(def_.value_table_id_field);
      if (id.IsNull()) continue;
      auto value = std::make_shared<CZtLookupValue>(
          id.ToInt32(), defs::NzText(rs->Value(def_.value_table_name_field)));
      if (def_.choice_order) value->ChoiceID(defs::NzInt32(rs->Value(kChoiceIdColumn)));
      if (has_dependent)
        value->DependentFieldID(defs::NzInt32(rs->Value(choices->FieldDependentFieldID())));
      // A value table that repeats an ID keeps its first row, as the lookup collection does.
      choices->Add(std::move(value));
    }
    rs->Close();
    choices_ = std::move(choices);
  });
}

std::shared_ptr<CZtLookupValCol> CZtField::ChoiceValues() {
  Trap at(kType, "ChoiceValues");
  return at.Reraising([&] {
    if (!choices_ && !def_.field_value_table.empty()) FillSingleChoiceTable();
    return choices_;
  });
}

std::int32_t CZtField::GetChoiceID(const Variant& value_id,
                                   const std::shared_ptr<Connection>& connection) {
  if (!def_.choice_order) return 0;
  if (!choice_ids_loaded_) {
    Trap at(kType, "GetChoiceID Loading Data");
    at.Reraising([&] {
      at = 10;
      std::shared_ptr<Connection> cn = connection;
      if (!cn && definitions_ds_) cn = definitions_ds_->GetConnection(1);
      if (!cn) defs::Fail(rt::kObjectNotSet, kType, ".GetChoiceID Loading Data, no connection");
      at = 20;
      const std::string sql = "SELECT [" + std::string(kChoiceIdColumn) + "], [" +
                              def_.value_table_id_field + "] FROM [" + def_.field_value_table +
                              "] ";
      auto rs = std::make_shared<Recordset>();
      rs->Open(sql, cn);
      std::unordered_map<std::string, std::int32_t> ids;
      for (; !rs->Eof(); rs->MoveNext())
        ids.emplace(defs::NzText(rs->Fields(1).Value()), defs::NzInt32(rs->Fields(0).Value()));
      rs->Close();
      choice_ids_ = std::move(ids);
      choice_ids_loaded_ = true;
    });
  }
  Trap at(kType, "GetChoiceID");
  return at.Reraising([&] {
    const auto it = choice_ids_.find(defs::NzText(value_id));
    return it == choice_ids_.end() ? 0 : it->second;
  });
}

std::string CZtField::GetLookupValueName(const Variant& value_id) {
  Trap at(kType, "GetLookupValueName");
  return at.Reraising([&] {
    if (def_.field_value_table.empty() || !definitions_ds_) return std::string{};
    FillSingleChoiceTable();
    if (!choices_ || !value_id.IsNumeric() || value_id.IsEmpty()) return std::string{};
    auto value = choices_->Item(value_id.ToInt32());
    return value ? value->Name() : std::string{};
  });
}

void CZtField::FieldValuesEnumReset(const std::shared_ptr<Connection>& connection) {
  Trap at(kType, "FieldValuesEnumReset");
  at.Reraising([&] {
    if (!choices_) FillSingleChoiceTable(connection);
    if (!enum_snapshot_ && choices_) {
      enum_keys_ = choices_->Keys();
      enum_snapshot_ = true;
    }
    enum_pos_ = 0;
  });
}

bool CZtField::FieldValuesEnumNext(std::int32_t& id, std::string& name) {
  if (enum_pos_ >= enum_keys_.size() || !choices_) return false;
  auto value = choices_->Item(enum_keys_[enum_pos_]);
  ++enum_pos_;
  id = value ? value->ID() : enum_keys_[enum_pos_ - 1];
  name = value ? value->Name() : std::string{};
  return true;
}

// ---- HTML ---------------------------------------------------------------------------------

std::string CZtField::GenerateHtmlCode(
    const std::shared_ptr<Connection>& connection_for_type16,
    const std::shared_ptr<Connection>& connection_for_other_types, const Variant& value,
    bool include_select_tag, bool force_text_input, CZtDataStoreCollection* data_stores,
    bool convert_names_to_utf8) {
  Trap at(kType, "GenerateHtmlCode");
  return at.Reraising([&] {
    const std::int32_t type = def_.field_data_type;
    std::string html;
    if (!force_text_input && (type == kFieldTypeChoiceList || type == kFieldTypeChoiceList2)) {
      at = 10;
      if (data_stores)
        FillSingleChoiceTable(data_stores->GetConnection(def_.value_table_ds_type));
      else
        FillSingleChoiceTable(def_.value_table_ds_type == kTypeMySqlStore
                                  ? connection_for_type16
                                  : connection_for_other_types);
      at = 20;
      // No value (Null or Empty) selects nothing; any other value is compared as an integer.
      const bool has_value = !value.IsNull() && !value.IsEmpty();
      const std::int32_t selected = has_value ? value.ToInt32() : 0;
      if (include_select_tag) html += kSelectOpen;
      if (choices_) {
        for (const auto& choice : choices_->Items()) {
          const std::int32_t key = choice->ID();
          std::string name = choice->Name();
          if (convert_names_to_utf8) name = ZtStrMan_UTF16_To_UTF8(name);
          html += "<option value= " + std::to_string(key) +
                  (has_value && key == selected ? " selected>" : ">") + HtmlEscape(name) + "\r\n";
        }
      }
      if (include_select_tag) html += kSelectClose;
      return html;
    }
    if (type == kFieldTypeYesNo) {
      at = 30;
      const std::string yes = LoadCommonResString("BLN_YES");
      const std::string no = LoadCommonResString("BLN_NO");
      if (include_select_tag) html += kSelectOpen;
      if (defs::NzInt32(value) != 0)
        html += "<option value=-1 selected>" + yes + "\r\n" + "<option value=0>" + no + "\r\n";
      else
        html += "<option value=-1>" + yes + "\r\n" + "<option value=0 selected>" + no + "\r\n";
      if (include_select_tag) html += kSelectClose;
      return html;
    }
    at = 40;
    const std::string text = HtmlEscape(defs::NzText(value));
    if (type == kFieldTypeMemo && !force_text_input)
      return "<input size=30  name=\"fieldvalue\" id=\"fieldvalue\"  value='" + text + "'>";
    return "<input size=30  name=\"fieldvalue\" id=\"fieldvalue\" maxlength='255' value='" + text +
           "'>";
  });
}

// ---- Extended properties ------------------------------------------------------------------

Variant CZtField::ExtendedProperty(std::int32_t number) const {
  const auto property = defs::FindExtendedProperty(*this, number);
  return property ? property->Value() : Variant{};
}

void CZtField::SetExtendedProperty(std::int32_t number, std::int32_t type, const Variant& value,
                                   bool overwrite) {
  defs::AddExtendedProperty(*this, number, type, value, overwrite);
}

void CZtField::RemoveExtendedProperty(std::int32_t number) {
  defs::RemoveExtendedProperty(*this, number);
}

bool CZtField::HasExtendedProperty(std::int32_t number) const {
  return defs::FindExtendedProperty(*this, number) != nullptr;
}

void Field_MakeChoiceValuesLoadOndemand(CZtField& field) {
  defs::AddExtendedProperty(field, kExtPropChoiceValuesOnDemand, kExtPropTypeBoolean, true, true);
}

void Field_RemoveChoiceValuesLoadOnDemand(CZtField& field) {
  defs::RemoveExtendedProperty(field, kExtPropChoiceValuesOnDemand);
}

bool Field_ChoiceValuesLoadOnDemand(const CZtField& field) {
  return field.HasExtendedProperty(kExtPropChoiceValuesOnDemand) &&
         field.ExtendedProperty(kExtPropChoiceValuesOnDemand).ToBool();
}

}  // namespace zt
