// Extended properties of definition objects.
#include "definitions/extended_properties.h"

#include <string>

#include "zt/config/settings.h"

namespace zt::defs {

namespace {
std::string KeyOf(std::int32_t number) {
  return std::to_string(number);
}
}  // namespace

void AddExtendedProperty(IZtExtendedProperties& target, std::int32_t number, std::int32_t type,
                         const Variant& value, bool overwrite) {
  std::shared_ptr<IZtPropertyCol> properties = target.ExtendedProperties();
  if (!properties) {
    properties = std::make_shared<CZtPropertyCol>();
    target.ExtendedProperties(properties);
  }
  const std::string key = KeyOf(number);
  if (properties->Exists(key)) {
    if (!overwrite) return;
    properties->Remove(key);
  }
  auto property = std::make_shared<CZtSetting>();
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
