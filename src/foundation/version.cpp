#include "zt/version.h"

namespace zt {
std::string LibraryVersion() {
  return ZT_VERSION;
}
std::string ProductName() {
  return "Quillmark Database Tools and Utilities 7.6";
}
}  // namespace zt
