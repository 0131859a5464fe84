// The stand-ins of field_deps.h.
#include "definitions/field_deps.h"

#include "zt/text/compare.h"

namespace zt::defs {

std::string StatementStandIn::SqlText() const {
  std::string sql = "SELECT " + select + " FROM [" + table + "]";
  if (!where.empty()) sql += " WHERE " + where;
  if (!order_by.empty()) sql += " ORDER BY " + order_by;
  return sql;
}

namespace {
// Replaces every occurrence of `first` and then of `second`, exactly (case matters).
std::string ReplacePair(const std::string& text, const std::string& first,
                        const std::string& second, const std::string& first_by,
                        const std::string& second_by) {
  return ReplaceAll(ReplaceAll(text, first, first_by, CompareMode::Binary), second, second_by,
                    CompareMode::Binary);
}

Variant MacroValue(const Variant& item, const Variant& context) {
  if (item.IsObject())
    if (auto macro = std::dynamic_pointer_cast<IZtMacroStandIn>(item.AsObject()))
      return macro->Value(context, nullptr, nullptr);
  return item;
}
}  // namespace

std::string ExpandMacros(const std::string& where, const Dictionary& macros,
                         const Variant& context) {
  // Stored texts write a macro as <<Name>>, so that single < and > remain comparison operators.
  if (InStr(1, where, "<<", CompareMode::Text) == 0 ||
      InStr(1, where, ">>", CompareMode::Text) == 0)
    return where;
  std::string text = ReplacePair(where, "<<", ">>", "ZtConvertTempLeft", "ZtConvertTempRight");
  text = ReplacePair(text, "<", ">", "ZtLeftMacro", "ZtRightMacro");
  text = ReplacePair(text, "ZtConvertTempLeft", "ZtConvertTempRight", "<", ">");
  for (const auto& [key, item] : macros.Items()) {
    if (InStr(1, text, key, CompareMode::Text) == 0) continue;
    const Variant value = MacroValue(item, context);
    const std::string value_text = value.IsNull() || value.IsEmpty() ? "" : value.ToText();
    if (!value_text.empty()) text = ReplaceAll(text, key, value_text, CompareMode::Binary);
  }
  text = ReplacePair(text, "<", ">", "<<", ">>");
  return ReplacePair(text, "ZtLeftMacro", "ZtRightMacro", "<", ">");
}

}  // namespace zt::defs
