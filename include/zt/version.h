#pragma once

#include <string>

namespace zt {
// "7.6.0": the version of the library this program runs with.
std::string LibraryVersion();
// "Quillmark Database Tools and Utilities 7.6"
std::string ProductName();
}  // namespace zt
