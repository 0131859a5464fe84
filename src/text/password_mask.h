// Masking of property values before they reach a diagnostic line.
#pragma once

#include <string>

namespace zt::text_detail {

// The value of property `property_name` as it may appear in a log: "*" when the property is
// itself a password ("Password", "Pwd"); otherwise the value with the value of every password
// item replaced by "*": those ZtStrMan_RemovePasswordFromConnectionString masks, and also one at
// the very start of the text, a repeated one, one whose value is braced as "{a;b}".
std::string MaskForDiagnostic(const std::string& property_name, const std::string& value);

// True when `key` (blanks around it ignored) names a password item.
bool IsPasswordKey(const std::string& key);

}  // namespace zt::text_detail
