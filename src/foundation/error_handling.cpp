#include "zt/error_handling.h"

#include <limits>

#include "zt/error.h"
#include "zt/resources.h"

namespace zt {

std::string ZtErr_GetMessage(const std::string& message_id, const std::string& suffix,
                             const std::optional<VariantArray>& args) {
  if (!args) return LoadCommonResString(message_id) + suffix;
  std::vector<std::string> texts;
  for (const Variant& v : args->items) texts.push_back(v.IsNull() ? std::string() : v.ToText());
  return FormatMessage(LoadCommonResString(message_id), texts);
}

std::int32_t ZtErr_ObjectErrorNumber(std::int32_t number) {
  std::int64_t sum = static_cast<std::int64_t>(vbObjectError) + number;
  if (sum < std::numeric_limits<std::int32_t>::min() ||
      sum > std::numeric_limits<std::int32_t>::max())
    rt::Raise(rt::kOverflow);
  return static_cast<std::int32_t>(sum);
}

void ZtErr_Raise(std::int32_t number, const std::string& message_id, const std::string& suffix,
                 const std::string& source, const std::string& help_file,
                 std::int32_t help_context) {
  const std::int32_t n = ZtErr_ObjectErrorNumber(number);
  throw ZtError(n, source, ZtErr_GetMessage(message_id, suffix), help_file, help_context);
}

void ZtErr_RaiseFormatted(std::int32_t number, const std::string& message_id,
                          const std::string& source, const VariantArray& args,
                          const std::string& help_file, std::int32_t help_context) {
  const std::int32_t n = ZtErr_ObjectErrorNumber(number);
  throw ZtError(n, source, ZtErr_GetMessage(message_id, "", args), help_file, help_context);
}

}  // namespace zt
