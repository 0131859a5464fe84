// CZtSetting, CZtSettingMgr and CZtPropertyCol: the settings table and property collections.
#include "zt/config/settings.h"

#include <array>

#include "zt/error_codes.h"
#include "zt/event_logger.h"
#include "zt/platform.h"
#include "zt/text/strings.h"

namespace zt {

namespace {
constexpr const char* kSetting = "CZtSetting";
constexpr const char* kMgr = "CZtSettingMgr";
constexpr const char* kCol = "CZtPropertyCol";
constexpr std::string_view kAtSpacedLine = ", @ Line #";

// The host's null-safe text conversion: Null and Empty read as "".
std::string NzText(const Variant& v) {
  return v.IsNull() || v.IsEmpty() ? std::string() : v.ToText();
}
std::int32_t NzInt32(const Variant& v) {
  return v.IsNull() || v.IsEmpty() ? 0 : v.ToInt32();
}
bool IsBlank(const std::string& text) {
  return text.find_first_not_of(' ') == std::string::npos;
}

// Opens `sql` on `cn`, hands the recordset to `fn` and closes it on every way out, so that a
// failure never leaves a cursor holding the connection's session.
template <class F>
void WithRecordset(const std::shared_ptr<Connection>& cn, const std::string& sql,
                   std::int32_t cursor, std::int32_t lock, F&& fn) {
  Recordset rs;
  try {
    rs.Open(sql, cn, cursor, lock);
    fn(rs);
  } catch (...) {
    rs.Close();
    throw;
  }
  rs.Close();
}

void RequireConnection(const std::shared_ptr<Connection>& cn, std::string_view type,
                       const std::string& procedure) {
  if (!cn)
    throw ZtError(rt::kObjectNotSet, std::string(type),
                  std::string(type) + "." + procedure + " - no connection was given");
}

// Where each property of a loaded row comes from, in the order the row is read.
struct ColumnRule {
  const char* column;
  const char* property;
  void (*apply)(CZtSetting&, const Variant&);
};
constexpr std::array<ColumnRule, 11> kColumns{{
    {"nID", "ID", [](CZtSetting& s, const Variant& v) { s.ID(NzInt32(v)); }},
    {"tName", "Name", [](CZtSetting& s, const Variant& v) { s.Name(NzText(v)); }},
    {"tDescription", "Description",
     [](CZtSetting& s, const Variant& v) { s.Description(NzText(v)); }},
    {"nType", "PropertyType", [](CZtSetting& s, const Variant& v) { s.PropertyType(NzInt32(v)); }},
    {"tDefaultValue", "DefaultValue", [](CZtSetting& s, const Variant& v) { s.DefaultValue(v); }},
    // A Null value falls back to the default, which the row has just given.
    {"tValue", "Value",
     [](CZtSetting& s, const Variant& v) { s.Value(v.IsNull() ? s.DefaultValue() : v); }},
    {"tValueSourceTable", "ValueList",
     [](CZtSetting& s, const Variant& v) { s.ValueList(NzText(v)); }},
    {"nCustomAction", "CustomActionID",
     [](CZtSetting& s, const Variant& v) { s.CustomActionID(NzInt32(v)); }},
    {"tCACaption", "CustomActionCaption",
     [](CZtSetting& s, const Variant& v) { s.CustomActionCaption(NzText(v)); }},
    {"tCADisplay", "CustomActionDisplay",
     [](CZtSetting& s, const Variant& v) { s.CustomActionDisplay(NzText(v)); }},
    {"tValidationRule", "ValidationRule",
     [](CZtSetting& s, const Variant& v) { s.ValidationRule(NzText(v)); }},
}};
}  // namespace

// ---- CZtSetting ---------------------------------------------------------------------------

void CZtSetting::Load(Recordset&) {
  ErrorHandler().LogError(std::string(kSetting) +
                              ".IZtProperty_Load - This function is not yet "
                              "implemented!",
                          nullptr, kEventError, kLevelError);
}

std::shared_ptr<IZtProperty> CZtSetting::Copy() const {
  Trap at(kSetting, "IZtProperty_Copy", kAtSpacedLine);
  return at.Reraising([&] {
    at = 10;
    return std::shared_ptr<IZtProperty>(std::make_shared<CZtSetting>(*this));
  });
}

void CZtSetting::AddSetting(const std::shared_ptr<Connection>& connection, std::int32_t id,
                            const std::string& name, const std::string& value,
                            std::int32_t property_type, const std::string& description,
                            const std::string& validation_rule, std::int32_t custom_action_id,
                            const std::string& custom_action_caption,
                            const std::string& custom_action_display,
                            const std::string& value_list) {
  Trap at(kSetting, "AddSetting", ", Line# ");
  at.Reraising([&] {
    at = 10;
    CZtSettingMgr mgr;
    at = 20;
    mgr.AddSetting(connection, id, name, value, property_type, description, validation_rule,
                   custom_action_id, custom_action_caption, custom_action_display, value_list);
  });
}

void CZtSetting::GetSettingValue(const std::shared_ptr<Connection>& connection, std::int32_t id,
                                 Variant& value) {
  Trap at(kSetting, "GetSettingValue", "");
  at.NoStep();
  at.Reraising([&] {
    RequireConnection(connection, kSetting, "GetSettingValue");
    const std::string sql = "SELECT [tValue] FROM [tblSettings] WHERE [nID]=" + std::to_string(id);
    WithRecordset(connection, sql, ado::adOpenForwardOnly, ado::adLockReadOnly, [&](Recordset& rs) {
      if (!rs.Eof()) value = NzText(rs.Fields(0).Value());
    });
  });
}

std::string CZtSetting::SetValueStatement(std::int32_t id, const std::string& value) {
  // The value goes between the quotes as it is: a quote in it would end the literal and let
  // the rest of the value run as SQL ("x' WHERE 1=1 --" rewrites every row). Such a value can
  // only fail, so it fails here, before any statement is sent or shown as one that would be.
  if (value.find('\'') != std::string::npos)
    throw ZtError(hr::kCommand, kSetting,
                  std::string(kSetting) + ".SetSettingValue - the value for setting " +
                      std::to_string(id) + " holds a single quote and cannot be written");
  return "UPDATE [tblSettings] SET [tValue] ='" + value + "' WHERE [nID] =" + std::to_string(id);
}

void CZtSetting::SetSettingValue(const std::shared_ptr<Connection>& connection, std::int32_t id,
                                 const std::string& value) {
  Trap at(kSetting, "SetSettingValue", "");
  at.NoStep();
  at.Reraising([&] {
    RequireConnection(connection, kSetting, "SetSettingValue");
    const std::string setting = "setting " + std::to_string(id);
    const std::string sql = SetValueStatement(id, value);
    try {
      connection->Execute(sql, nullptr, ado::adExecuteNoRecords);
    } catch (const ZtError& e) {
      ErrorInfo info = e.Info();
      info.description =
          std::string(kSetting) + ".SetSettingValue - " + setting + ": " + info.description;
      throw ZtError(std::move(info));
    }
  });
}

// ---- CZtSettingMgr ------------------------------------------------------------------------

void CZtSettingMgr::AddSetting(const std::shared_ptr<Connection>& connection, std::int32_t id,
                               const std::string& name, const std::string& value,
                               std::int32_t property_type, const std::string& description,
                               const std::string& validation_rule, std::int32_t custom_action_id,
                               const std::string& custom_action_caption,
                               const std::string& custom_action_display,
                               const std::string& value_list) {
  Trap at(kMgr, "AddSetting");
  at.Reraising([&] {
    at = 10;
    RequireConnection(connection, kMgr, "AddSetting");
    at = 20;
    const std::string sql = "SELECT * FROM [tblSettings] WHERE [nID]=" + std::to_string(id);
    WithRecordset(connection, sql, ado::adOpenStatic, ado::adLockOptimistic, [&](Recordset& rs) {
      at = 30;
      if (!rs.Eof()) return;  // an existing setting keeps its value and everything else
      at = 40;
      rs.AddNew();
      rs.Fields("nID").SetValue(id);
      rs.Fields("tValue").SetValue(value);
      rs.Fields("tName").SetValue(name);
      rs.Fields("nType").SetValue(property_type);
      rs.Fields("tDescription").SetValue(description);
      at = 50;
      rs.Fields("tValidationRule")
          .SetValue(validation_rule.empty() ? Variant::Null() : Variant(validation_rule));
      if (custom_action_id > 0) rs.Fields("nCustomAction").SetValue(custom_action_id);
      if (!IsBlank(custom_action_caption)) rs.Fields("tCACaption").SetValue(custom_action_caption);
      if (!IsBlank(custom_action_display)) rs.Fields("tCADisplay").SetValue(custom_action_display);
      if (!IsBlank(value_list)) rs.Fields("tValueSourceTable").SetValue(value_list);
      at = 60;
      try {
        rs.Update();
      } catch (...) {
        rs.CancelUpdate();
        throw;
      }
    });
  });
}

void CZtSettingMgr::AddCustomAction(const std::shared_ptr<Connection>& connection,
                                    std::int32_t action_id, std::int32_t type, std::int32_t source,
                                    const std::string& target) {
  Trap at(kMgr, "AddCustomAction");
  at.Reraising([&] {
    at = 10;
    RequireConnection(connection, kMgr, "AddCustomAction");
    bool exists = false;
    at = 20;
    WithRecordset(
        connection,
        "SELECT [nActionID] FROM [tblCustomAction] WHERE [nActionID]=" + std::to_string(action_id),
        ado::adOpenForwardOnly, ado::adLockReadOnly, [&](Recordset& rs) { exists = !rs.Eof(); });
    if (exists) return;
    at = 30;
    connection->Execute(
        "INSERT INTO tblCustomAction (nActionID, nType, nSource, tTarget) VALUES (" +
            std::to_string(action_id) + ", " + std::to_string(type) + ", " +
            std::to_string(source) + ", '" + ZtStrMan_EscapeQuotes(Variant(target)) + "')",
        nullptr, ado::adExecuteNoRecords);
  });
}

// ---- CZtPropertyCol -----------------------------------------------------------------------

void CZtPropertyCol::Add(const std::string& key, std::shared_ptr<IZtProperty> property) {
  Trap at(kCol, "IZtPropertyCol_Add", "");
  at.NoStep();
  at.Reraising([&] {
    auto object = std::dynamic_pointer_cast<Object>(property);
    if (!object)
      throw ZtError(rt::kInvalidProcedureCall, kCol,
                    std::string(kCol) + ".IZtPropertyCol_Add - no property for key " + key);
    items_.Add(key, Variant(std::move(object)));
  });
}

std::shared_ptr<IZtProperty> CZtPropertyCol::Item(const std::string& key) const {
  const Variant item = items_.Item(key);
  return item.IsObject() ? std::dynamic_pointer_cast<IZtProperty>(item.AsObject()) : nullptr;
}

std::vector<std::shared_ptr<IZtProperty>> CZtPropertyCol::Items() const {
  std::vector<std::shared_ptr<IZtProperty>> out;
  out.reserve(items_.Count());
  for (const auto& [key, item] : items_.Items())
    out.push_back(std::dynamic_pointer_cast<IZtProperty>(item.AsObject()));
  return out;
}

void CZtPropertyCol::Load(Recordset& recordset) {
  Trap at(kCol, "IZtPropertyCol_Load", kAtSpacedLine);
  at.Reraising([&] {
    at = 10;
    // Which columns are there is the same for every row; what is missing is reported per row,
    // as each property is filled.
    std::array<int, kColumns.size()> index{};
    for (std::size_t i = 0; i < kColumns.size(); ++i)
      index[i] = recordset.GetFields().IndexOf(kColumns[i].column);
    at = 20;
    while (!recordset.Eof()) {
      auto setting = std::make_shared<CZtSetting>();
      for (std::size_t i = 0; i < kColumns.size(); ++i) {
        const ColumnRule& rule = kColumns[i];
        if (index[i] >= 0) {
          rule.apply(*setting, recordset.Fields(index[i]).Value());
          continue;
        }
        ErrorHandler().LogError(std::string(kCol) + ".Load - Field " + rule.column +
                                    " is not in the recordset. The " + rule.property +
                                    " Property could not be set.",
                                nullptr, kEventInformation, kLevelDiagnostic);
        if (std::string_view(rule.column) == "tValue") setting->Value(setting->DefaultValue());
      }
      at = 30;
      std::string key = std::to_string(setting->ID());
      items_.Set(std::move(key), Variant(std::static_pointer_cast<Object>(std::move(setting))));
      at = 40;
      recordset.MoveNext();
    }
  });
}

std::shared_ptr<IZtPropertyCol> CZtPropertyCol::Copy() const {
  Trap at(kCol, "IZtPropertyCol_Copy", kAtSpacedLine);
  return at.Reraising([&] {
    at = 10;
    auto copy = std::make_shared<CZtPropertyCol>();
    for (const auto& [key, item] : items_.Items()) {
      at = 20;
      auto property = std::dynamic_pointer_cast<IZtProperty>(item.AsObject());
      copy->Add(key, property->Copy());
    }
    return std::shared_ptr<IZtPropertyCol>(copy);
  });
}

}  // namespace zt
