// Small stand-ins for pieces of the definitions layer that fields and lookup values use but do
// not own: the statement object, the macro objects with their expansion, and the extended
// properties of a field. Each is the least that this folder's classes need, so that they can be
// replaced by the full objects without touching the callers' behaviour.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "zt/export.h"
#include "zt/platform.h"
#include "zt/variant.h"

namespace zt {

class CZtField;

namespace defs {

// joins h8's statement builder (table, select list, WHERE condition, ordering).
// Rendered as "SELECT " + select + " FROM [" + table + "]", then " WHERE " + where and
// " ORDER BY " + order when they are not empty.
struct StatementStandIn {
  std::string table;
  std::string select = "*";
  std::string where;
  std::string order_by;
  std::string SqlText() const;
};

// joins h8's macro-object interface: a value computed from the caller's context, with a
// recordset and a second object that the callers here always leave empty.
class ZT_TEST_EXPORT IZtMacroStandIn : public Object {
 public:
  virtual Variant Value(const Variant& context, const std::shared_ptr<Recordset>& recordset,
                        const std::shared_ptr<Object>& other) = 0;
};

// joins h8's CZtWhereMacroHlpr.ExpandMacros: `where` with the macros of `macros` (keys
// "<Name>", items macro objects; an item that is not a macro object is its own value)
// expanded for `context`.
ZT_TEST_EXPORT std::string ExpandMacros(const std::string& where, const Dictionary& macros,
                                        const Variant& context);

// joins h8's IZtExtendedProperties: AddExtendedProperty(field, number, type, value, overwrite)
// and its removal, kept on the field.
void AddExtendedProperty(CZtField& field, std::int32_t number, std::int32_t type,
                         const Variant& value, bool overwrite);
void RemoveExtendedProperty(CZtField& field, std::int32_t number);

}  // namespace defs
}  // namespace zt
