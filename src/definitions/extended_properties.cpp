// Extended properties of definition objects.
#include "definitions/extended_properties.h"

#include "definitions/row_values.h"
#include "zt/error.h"

namespace zt::defs {

namespace {
constexpr const char* kColType = "CZtExtendedPropertyCol";
std::string KeyOf(std::int32_t number) {
  return std::to_string(number);
}
}  // namespace

void ExtendedProperty::Load(Recordset&) {
  RaiseNotImplemented(TypeName(), "IZtProperty_Load", Accessor::Let);
}

void ExtendedPropertyCol::Add(const std::string& key, std::shared_ptr<IZtProperty> property) {
  if (!property) Fail(rt::kInvalidProcedureCall, kColType, ".IZtPropertyCol_Add, no property");
  if (Exists(key)) rt::Raise(rt::kKeyAlreadyExists);
  items_.emplace_back(key, std::move(property));
}

Dictionary& ExtendedPropertyCol::GetDictionary() {
  view_.RemoveAll();
  for (const auto& [key, property] : items_)
    view_.Add(key, Variant(std::dynamic_pointer_cast<Object>(property)));
  return view_;
}

bool ExtendedPropertyCol::Exists(const std::string& key) const {
  return Item(key) != nullptr;
}

std::shared_ptr<IZtProperty> ExtendedPropertyCol::Item(const std::string& key) const {
  for (const auto& [k, property] : items_)
    if (k == key) return property;
  return nullptr;
}

std::vector<std::shared_ptr<IZtProperty>> ExtendedPropertyCol::Items() const {
  std::vector<std::shared_ptr<IZtProperty>> out;
  for (const auto& item : items_) out.push_back(item.second);
  return out;
}

std::vector<std::string> ExtendedPropertyCol::Keys() const {
  std::vector<std::string> out;
  for (const auto& item : items_) out.push_back(item.first);
  return out;
}

void ExtendedPropertyCol::Load(Recordset&) {
  RaiseNotImplemented(kColType, "IZtPropertyCol_Load", Accessor::Let);
}

void ExtendedPropertyCol::Remove(const std::string& key) {
  for (auto it = items_.begin(); it != items_.end(); ++it)
    if (it->first == key) {
      items_.erase(it);
      return;
    }
  rt::Raise(rt::kElementNotFound);
}

std::shared_ptr<IZtPropertyCol> ExtendedPropertyCol::Copy() const {
  auto copy = std::make_shared<ExtendedPropertyCol>();
  for (const auto& [key, property] : items_) copy->items_.emplace_back(key, property->Copy());
  return copy;
}

void AddExtendedProperty(IZtExtendedProperties& target, std::int32_t number, std::int32_t type,
                         const Variant& value, bool overwrite) {
  std::shared_ptr<IZtPropertyCol> properties = target.ExtendedProperties();
  if (!properties) {
    properties = std::make_shared<ExtendedPropertyCol>();
    target.ExtendedProperties(properties);
  }
  const std::string key = KeyOf(number);
  if (properties->Exists(key)) {
    if (!overwrite) return;
    properties->Remove(key);
  }
  auto property = std::make_shared<ExtendedProperty>();
  property->ID(number);
  property->PropertyType(type);
  property->Value(value);
  properties->Add(key, std::move(property));
}

void RemoveExtendedProperty(IZtExtendedProperties& target, std::int32_t number) {
  const std::shared_ptr<IZtPropertyCol> properties = target.ExtendedProperties();
  if (properties && properties->Exists(KeyOf(number))) properties->Remove(KeyOf(number));
}

std::shared_ptr<IZtProperty> FindExtendedProperty(const IZtExtendedProperties& target,
                                                  std::int32_t number) {
  const std::shared_ptr<IZtPropertyCol> properties = target.ExtendedProperties();
  return properties ? properties->Item(KeyOf(number)) : nullptr;
}

}  // namespace zt::defs
