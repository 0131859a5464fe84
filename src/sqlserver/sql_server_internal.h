// What basSQLServer keeps to the library: the application login's password and the error
// numbers of the SQL Server administration.
#pragma once

#include <cstdint>
#include <string>

#include "zt/export.h"

namespace zt::sqlserver {

// The password of the application login. It is fixed so that every installation's clients can
// log in without asking; it must never reach a log line or a message.
ZT_TEST_EXPORT const std::string& TSL_PASSWORD();

// Message numbers (added to vbObjectError) of the errors the administration raises itself.
inline constexpr std::int32_t kFilesNotOnServer = 10200;
inline constexpr std::int32_t kVersionNotSupported = 10201;
inline constexpr std::int32_t kSecurityModeNotSupported = 10202;
inline constexpr std::int32_t kSetPermissions = 10203;
inline constexpr std::int32_t kAddLogin = 10204;
inline constexpr std::int32_t kNeedToInit = 10205;
inline constexpr std::int32_t kVersionUnreadable = 10206;
inline constexpr std::int32_t kBadShellText = 10207;

// The server's answer "the login exists already" to sp_addlogin.
inline constexpr std::int32_t kLoginExists = 15025;

}  // namespace zt::sqlserver
