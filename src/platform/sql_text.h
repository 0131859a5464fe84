// SQL text handling shared by every driver: the library writes SQL with `[name]` quoting and
// one statement per call; this is where both rules are enforced, outside string literals and
// comments only.
#pragma once

#include <string>

#include "platform/driver.h"

namespace zt::platform {

// Rewrites `[name]` to the engine's quoting (a `"` or a backtick inside the name is doubled) and
// refuses a second statement: a ";" followed by anything but blanks and comments throws ZtError
// 0x80040E14, so a value pasted into SQL text cannot smuggle in another statement. String
// literals, quoted identifiers and comments pass unchanged. A trailing ";" is dropped.
// An unclosed literal or comment is left to the engine to report.
std::string PrepareSqlText(const std::string& sql, const DriverQuirks& quirks,
                           const std::string& source);

// Rewrites "?" parameters (outside literals and comments) to "$1", "$2" ... for engines that
// number their parameters.
std::string RewritePlaceholders(const std::string& sql, const DriverQuirks& quirks);

// `name` in the library's own quoting, "[name]" with a "]" doubled; PrepareSqlText turns it into
// the engine's form.
std::string BracketName(const std::string& name);

// The statement's first word, upper-cased ("SELECT" for "  (select 1)"); "" when none.
std::string FirstKeyword(const std::string& sql);

// ASCII lower case, for matching names without regard to case.
std::string AsciiLower(std::string s);

// `name` quoted for the engine ("[a]", "\"a\"", "`a`"), with the closing quote doubled inside.
std::string QuoteIdentifier(const std::string& name, const DriverQuirks& quirks);

}  // namespace zt::platform
