// Extended properties: numbered extra values that an object implementing IZtExtendedProperties
// carries beside its own (a field's mark that its choices load on demand is number 1). They
// are kept in an IZtPropertyCol keyed by the number's decimal text, each an IZtProperty whose
// ID is the number, PropertyType the value's type code and Value the value, so that any
// property collection the caller sets works the same way.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zt/definitions/interfaces.h"
#include "zt/export.h"
#include "zt/variant.h"

namespace zt::defs {

// Adds property `number` (type code `type`) with `value` to the object's collection, creating
// the collection when it has none. An existing property is replaced only when `overwrite`.
ZT_TEST_EXPORT void AddExtendedProperty(IZtExtendedProperties& target, std::int32_t number,
                                        std::int32_t type, const Variant& value, bool overwrite);
// Removes property `number`; nothing happens when it is not there.
ZT_TEST_EXPORT void RemoveExtendedProperty(IZtExtendedProperties& target, std::int32_t number);
// The property `number`, nullptr when absent.
ZT_TEST_EXPORT std::shared_ptr<IZtProperty> FindExtendedProperty(
    const IZtExtendedProperties& target, std::int32_t number);

// The property objects an extended-property collection is made of: plain stored values.
class ExtendedProperty : public Object, public IZtProperty {
 public:
  std::string TypeName() const override { return "CZtExtendedProperty"; }
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
  // Extended properties are set by code, never read from a table.
  void Load(Recordset& recordset) override;
  std::string ValueList() const override { return value_list_; }
  void ValueList(const std::string& value) override { value_list_ = value; }
  Variant DefaultValue() const override { return default_value_; }
  void DefaultValue(const Variant& value) override { default_value_ = value; }
  std::shared_ptr<IZtProperty> Copy() const override {
    return std::make_shared<ExtendedProperty>(*this);
  }

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
};

// A keyed collection of properties in insertion order.
class ExtendedPropertyCol : public Object, public IZtPropertyCol {
 public:
  std::string TypeName() const override { return "CZtExtendedPropertyCol"; }
  void Add(const std::string& key, std::shared_ptr<IZtProperty> property) override;
  std::int32_t Count() const override { return static_cast<std::int32_t>(items_.size()); }
  Dictionary& GetDictionary() override;
  bool Exists(const std::string& key) const override;
  std::shared_ptr<IZtProperty> Item(const std::string& key) const override;
  std::vector<std::shared_ptr<IZtProperty>> Items() const override;
  std::vector<std::string> Keys() const override;
  void Load(Recordset& recordset) override;
  void Remove(const std::string& key) override;
  std::shared_ptr<IZtPropertyCol> Copy() const override;

 private:
  std::vector<std::pair<std::string, std::shared_ptr<IZtProperty>>> items_;
  Dictionary view_;  // GetDictionary's picture of items_
};

}  // namespace zt::defs
