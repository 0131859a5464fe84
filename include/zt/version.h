#pragma once

#include <string>

#include "zt/export.h"

namespace zt {
// "7.6.0": the version of the library this program runs with.
ZT_EXPORT std::string LibraryVersion();
// "Quillmark Database Tools and Utilities 7.6"
ZT_EXPORT std::string ProductName();
}  // namespace zt
