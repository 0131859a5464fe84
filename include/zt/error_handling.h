// basErrorHandling: the library's own errors, raised with texts from the resources.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "zt/export.h"
#include "zt/variant.h"

namespace zt {

// Without `args`: the text of `message_id` followed by `suffix`. With `args`: the text of
// `message_id` with "%1", "%2", ... filled from the arguments in order (suffix not used).
ZT_EXPORT std::string ZtErr_GetMessage(const std::string& message_id, const std::string& suffix,
                                       const std::optional<VariantArray>& args = std::nullopt);

// Throws ZtError(vbObjectError + number, source, ZtErr_GetMessage(message_id, suffix),
// help_file, help_context). A number for which the sum overflows a signed 32-bit integer throws
// the run time's overflow error (6) instead.
[[noreturn]] ZT_EXPORT void ZtErr_Raise(std::int32_t number, const std::string& message_id,
                                        const std::string& suffix, const std::string& source,
                                        const std::string& help_file = {},
                                        std::int32_t help_context = 0);

// The same with the description ZtErr_GetMessage(message_id, "", args).
[[noreturn]] ZT_EXPORT void ZtErr_RaiseFormatted(std::int32_t number, const std::string& message_id,
                                                 const std::string& source,
                                                 const VariantArray& args,
                                                 const std::string& help_file = {},
                                                 std::int32_t help_context = 0);

// vbObjectError + number with the run time's overflow check.
ZT_EXPORT std::int32_t ZtErr_ObjectErrorNumber(std::int32_t number);

}  // namespace zt
