// Settings: the named values the application keeps in its table tblSettings, the actions a
// setting's editor offers (tblCustomAction), and keyed collections of such properties.
//
//   tblSettings:     nID (key), tName, tValue, tDefaultValue, nType, tDescription,
//                    tValidationRule (may be Null), nCustomAction, tCACaption, tCADisplay,
//                    tValueSourceTable
//   tblCustomAction: nActionID (key), nType, nSource, tTarget
//
//   zt::CZtSetting setting;
//   zt::Variant value = "default";
//   setting.GetSettingValue(cn, 12, value);     // unchanged when there is no setting 12
//   setting.SetSettingValue(cn, 12, "42");
//
// The table operations work on an open connection that the caller owns. Their failures are
// logged once with the procedure's location and raised again to the caller. A value written
// by SetSettingValue goes into its statement between quotes as it is, so a value holding a
// single quote cannot be written: it is refused before anything is sent, and the error names
// the setting.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zt/definitions/interfaces.h"
#include "zt/export.h"
#include "zt/trap.h"
#include "zt/variant.h"

namespace zt {

class Connection;
class Recordset;

// One setting: the columns of a tblSettings row as plain members.
class ZT_EXPORT CZtSetting : public Object, public IZtProperty {
 public:
  CZtSetting() = default;
  std::string TypeName() const override { return "CZtSetting"; }

  // IZtProperty
  std::int32_t ID() const override { return id_; }
  void ID(std::int32_t value) override { id_ = value; }
  std::string Name() const override { return name_; }
  void Name(const std::string& value) override { name_ = value; }
  Variant Value() const override { return value_; }
  void Value(const Variant& value) override { value_ = value; }
  std::string Description() const override { return description_; }
  void Description(const std::string& value) override { description_ = value; }
  std::int32_t PropertyType() const override { return type_; }
  void PropertyType(std::int32_t value) override { type_ = value; }
  std::string ValidationRule() const override { return validation_rule_; }
  void ValidationRule(const std::string& value) override { validation_rule_ = value; }
  std::int32_t CustomActionID() const override { return custom_action_id_; }
  void CustomActionID(std::int32_t value) override { custom_action_id_ = value; }
  std::string CustomActionCaption() const override { return custom_action_caption_; }
  void CustomActionCaption(const std::string& value) override { custom_action_caption_ = value; }
  std::string CustomActionDisplay() const override { return custom_action_display_; }
  void CustomActionDisplay(const std::string& value) override { custom_action_display_ = value; }
  // Not supported: logs ".IZtProperty_Load - This function is not yet implemented!" and does
  // nothing else (CZtPropertyCol::Load fills properties from a recordset).
  void Load(Recordset& recordset) override;
  std::string ValueList() const override { return value_list_; }
  void ValueList(const std::string& value) override { value_list_ = value; }
  Variant DefaultValue() const override { return default_value_; }
  void DefaultValue(const Variant& value) override { default_value_ = value; }
  std::shared_ptr<IZtProperty> Copy() const override;

  // Adds a setting row through CZtSettingMgr::AddSetting (see there).
  void AddSetting(const std::shared_ptr<Connection>& connection, std::int32_t id,
                  const std::string& name, const std::string& value, std::int32_t property_type,
                  const std::string& description, const std::string& validation_rule,
                  std::int32_t custom_action_id, const std::string& custom_action_caption,
                  const std::string& custom_action_display, const std::string& value_list);
  // Sets `value` to the tValue of setting `id` as text (Null reads as ""); leaves it as it was
  // when there is no such setting.
  void GetSettingValue(const std::shared_ptr<Connection>& connection, std::int32_t id,
                       Variant& value);
  // Writes `value` into tValue of setting `id` with
  //   UPDATE [tblSettings] SET [tValue] ='<value>' WHERE [nID] =<id>
  // No check is made that a row was there. A value holding "'" is refused (0x80040E14) and
  // nothing is sent.
  void SetSettingValue(const std::shared_ptr<Connection>& connection, std::int32_t id,
                       const std::string& value);
  // The statement SetSettingValue sends for `id` and `value` (for a dry run); a value holding a
  // single quote is refused (0x80040E14) here as it is there.
  static std::string SetValueStatement(std::int32_t id, const std::string& value);

 private:
  std::int32_t id_ = 0;
  std::string name_;
  Variant value_;
  std::string description_;
  std::int32_t type_ = 0;
  std::string validation_rule_;
  std::int32_t custom_action_id_ = 0;
  std::string custom_action_caption_;
  std::string custom_action_display_;
  std::string value_list_;
  Variant default_value_;
  InstanceTrace trace_{"CZtSetting"};
};

// The row-level work behind adding settings and custom actions.
class ZT_EXPORT CZtSettingMgr {
 public:
  // Adds the tblSettings row `id` unless one exists (an existing setting keeps everything,
  // its value included). tValidationRule is Null for an empty rule; nCustomAction is set only
  // for a `custom_action_id` above 0; tCACaption, tCADisplay and tValueSourceTable only for a
  // text that is not blank.
  void AddSetting(const std::shared_ptr<Connection>& connection, std::int32_t id,
                  const std::string& name, const std::string& value, std::int32_t property_type,
                  const std::string& description, const std::string& validation_rule,
                  std::int32_t custom_action_id, const std::string& custom_action_caption,
                  const std::string& custom_action_display, const std::string& value_list);
  // Adds the tblCustomAction row `action_id` unless one exists; the target's quotes are
  // doubled.
  void AddCustomAction(const std::shared_ptr<Connection>& connection, std::int32_t action_id,
                       std::int32_t type, std::int32_t source, const std::string& target);

 private:
  InstanceTrace trace_{"CZtSettingMgr"};
};

// Properties keyed by text, in insertion order. Load keys each property by its ID's decimal
// text.
class ZT_EXPORT CZtPropertyCol : public Object, public IZtPropertyCol {
 public:
  CZtPropertyCol() = default;
  std::string TypeName() const override { return "CZtPropertyCol"; }

  // Raises 457 for a key that is there already, 5 for no property.
  void Add(const std::string& key, std::shared_ptr<IZtProperty> property) override;
  std::int32_t Count() const override { return static_cast<std::int32_t>(items_.Count()); }
  Dictionary& GetDictionary() override { return items_; }
  bool Exists(const std::string& key) const override { return items_.Exists(key); }
  // nullptr when there is no such key.
  std::shared_ptr<IZtProperty> Item(const std::string& key) const override;
  std::vector<std::shared_ptr<IZtProperty>> Items() const override;
  std::vector<std::string> Keys() const override { return items_.Keys(); }
  // Adds one CZtSetting per row from the recordset's current row to its end (a row whose key
  // is there already replaces it). Value comes from tValue, or from tDefaultValue when tValue
  // is Null or not in the recordset. A column the recordset lacks leaves its property at its
  // default and writes the diagnostic
  //   "CZtPropertyCol.Load - Field <column> is not in the recordset. The <property> Property
  //    could not be set."
  void Load(Recordset& recordset) override;
  // Raises 32811 for a key that is not there.
  void Remove(const std::string& key) override { items_.Remove(key); }
  // A collection of copies of the properties, under the same keys.
  std::shared_ptr<IZtPropertyCol> Copy() const override;

 private:
  Dictionary items_;  // values: the property objects
  InstanceTrace trace_{"CZtPropertyCol"};
};

}  // namespace zt
