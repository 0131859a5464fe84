// Path joining with one separator, in the style of the folder it joins to.
#pragma once

#include <string>

namespace zt {

// True for folders written the Windows way: a drive letter ("C:"), a UNC name ("\\server"), or
// backslashes without any "/". Those keep "\" as separator; every other folder takes "/".
bool IsWindowsStylePath(const std::string& folder);
// The separator that folder joins with ("/" or "\").
char PathSeparatorFor(const std::string& folder);
// `folder` ending in exactly its separator (an empty folder stays empty).
std::string WithTrailingSeparator(const std::string& folder);
// folder + separator + name, with one separator between them.
std::string JoinPath(const std::string& folder, const std::string& name);

}  // namespace zt
