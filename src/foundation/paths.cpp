#include "foundation/paths.h"

#include <cctype>

namespace zt {

bool IsWindowsStylePath(const std::string& folder) {
  if (folder.size() >= 2 && std::isalpha(static_cast<unsigned char>(folder[0])) && folder[1] == ':')
    return true;
  if (folder.rfind("\\\\", 0) == 0) return true;
  return folder.find('\\') != std::string::npos && folder.find('/') == std::string::npos;
}

char PathSeparatorFor(const std::string& folder) {
  return IsWindowsStylePath(folder) ? '\\' : '/';
}

std::string WithTrailingSeparator(const std::string& folder) {
  if (folder.empty()) return folder;
  const char sep = PathSeparatorFor(folder);
  return folder.back() == sep ? folder : folder + sep;
}

std::string JoinPath(const std::string& folder, const std::string& name) {
  if (folder.empty()) return name;
  std::string n = name;
  while (!n.empty() && (n.front() == '/' || n.front() == '\\')) n.erase(n.begin());
  return WithTrailingSeparator(folder) + n;
}

}  // namespace zt
