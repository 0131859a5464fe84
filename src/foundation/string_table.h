#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace zt {

// The numbered string table (identifier -> en-US text).
const std::map<std::int32_t, std::string_view>& NumberedStrings();
// The named messages (identifier -> en-US text, identifiers compared exactly).
const std::map<std::string, std::string_view, std::less<>>& NamedMessages();

}  // namespace zt
