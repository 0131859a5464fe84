// SQL text handling shared by every driver: the library writes SQL with `[name]` quoting and
// one statement per call; this is where both rules are enforced, outside string literals and
// comments only.
#pragma once

#include <functional>
#include <string>

#include "platform/driver.h"
#include "zt/export.h"

namespace zt::platform {

// The engine's spelling of a name it holds, "" when it holds none; for an unquoted word, the
// spelling it must be quoted in, "" to leave it alone (ConnectionBackend::CatalogSpelling).
using NameResolver = std::function<std::string(const std::string& name, bool unquoted)>;

// Rewrites `[name]` to the engine's quoting and refuses a second statement: a ";" followed by
// anything but blanks and comments throws ZtError 0x80040E14, so a value pasted into SQL text
// cannot smuggle in another statement. String literals, quoted identifiers and comments pass
// unchanged. A trailing ";" is dropped; every other character, trailing blanks included, reaches
// the engine as written. An unclosed literal or comment is left to the engine to report.
//
// Inside [..], "]]" stands for one "]" (BracketName writes names so), and the whole name is one
// identifier on every engine: `"` or a backtick inside it is doubled for engines quoting with
// them, and an engine without an escape for "]" inside brackets gets the name in double quotes.
// A caller's name can therefore never end early and turn its rest into SQL.
//
// A bracketed name reaches the engine as `quirks.fold` says: on a case-sensitive engine that
// keeps names as written (kCatalog) it takes the spelling `resolve` gives, so the library's
// mixed spellings of one table and tables that other programs made with quoted mixed-case names
// are all found, and a new name keeps the case it was written in; an unquoted word that names
// such an object only in another case is quoted in the catalog's spelling. On an engine that folds,
// it is folded unless `resolve` reports an object of exactly that name. A name longer than
// `quirks.max_name_bytes` is refused (ZtError 0x80040E14): the engine would cut it silently
// and a later statement could not find it again.
ZT_TEST_EXPORT std::string PrepareSqlText(const std::string& sql, const DriverQuirks& quirks,
                                          const std::string& source,
                                          const NameResolver& resolve = {});

// Rewrites "?" parameters (outside literals and comments) to "$1", "$2" ... for engines that
// number their parameters; `count`, when given, receives how many there were.
ZT_TEST_EXPORT std::string RewritePlaceholders(const std::string& sql, const DriverQuirks& quirks,
                                               int* count = nullptr);

// `name` in the library's own quoting, "[name]" with a "]" doubled; PrepareSqlText turns it into
// the engine's form.
ZT_TEST_EXPORT std::string BracketName(const std::string& name);

// `text` as an SQL string literal: in single quotes, each "'" doubled.
ZT_TEST_EXPORT std::string SqlLiteral(const std::string& text);

// The statement's first word, upper-cased ("SELECT" for "  (select 1)"); "" when none.
ZT_TEST_EXPORT std::string FirstKeyword(const std::string& sql);

// ASCII lower case, for matching names without regard to case.
ZT_TEST_EXPORT std::string AsciiLower(std::string s);

// A date as "YYYY-MM-DD hh:mm:ss", with ".ffffff" when it has a fraction of a second: the text
// every engine reads the same way, keeping the microseconds an OLE date carries.
ZT_TEST_EXPORT std::string DateTimeText(double ole_date);

// `name` quoted for the engine ("[a]", "\"a\"", "`a`"), with the closing quote doubled inside.
ZT_TEST_EXPORT std::string QuoteIdentifier(const std::string& name, const DriverQuirks& quirks);

// A statement an engine wrote (a view's query) in the library's own quoting, so that it can be
// sent to another engine: the engine's quoted names ("a" or `a`) become [a], literals stay as
// they are, and a `qualifier` followed by "." (MariaDB names the database before each table)
// goes. Text the engine did not quote stays as it is.
ZT_TEST_EXPORT std::string BracketQuoting(const std::string& sql, const DriverQuirks& quirks,
                                          const std::string& qualifier = {});

// One field of a bulk load's text line (PostgreSQL's COPY, MariaDB's LOAD DATA, both in their
// backslash-escaped text form): \N for Null, `true_text` / `false_text` for a Boolean, numbers
// in their shortest exact form, dates as DateTimeText, and a backslash before \, tab, LF and CR
// (written \t, \n, \r) and before a NUL (\0). Runs once per value of a load.
ZT_TEST_EXPORT void AppendBulkField(std::string& line, const Variant& v, char true_text,
                                    char false_text);

}  // namespace zt::platform
