// Extended properties: numbered extra values that an object implementing IZtExtendedProperties
// carries beside its own (a field's mark that its choices load on demand is number 1). They
// are kept in an IZtPropertyCol keyed by the number's decimal text, each an IZtProperty whose
// ID is the number, PropertyType the value's type code and Value the value, so that any
// property collection the caller sets works the same way. The collection made here when the
// object has none is an ordinary CZtPropertyCol of CZtSetting objects.
#pragma once

#include <cstdint>
#include <memory>

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

}  // namespace zt::defs
