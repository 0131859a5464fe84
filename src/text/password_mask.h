// What a password item of a connection or property string is, and masking by item. Every text
// that may reach a log line, a message or a display goes through MaskPasswordItems, and the
// connection-string splitter asks IsPasswordKey, so both agree on what a password is.
#pragma once

#include <string>
#include <vector>

#include "zt/export.h"

namespace zt::text_detail {

// True when `key` names a password item: "Password", "Pwd" or "Jet OLEDB:Database Password",
// in any case, with blanks anywhere in the key ignored ("  pWd  ", "Jet OLEDB: Database
// Password").
ZT_TEST_EXPORT bool IsPasswordKey(const std::string& key);

// `text` with the value of every password item replaced by "*"; everything else, including the
// key and its spacing, is kept byte for byte. Items are read the way connection strings are
// split: ";" separates items, a value opened by "{", '"' or "'" runs to its closing character
// (doubled inside), so "Pwd={a;b}}c}" is one item. An unclosed quoted password runs to the end.
// A connection string nested in another item's value ("Extended Properties={DSN=x;PWD=y}") has
// its password items masked as well.
// `known` are passwords that may have been pasted in raw (a ";" in one would otherwise end its
// item early): a password item whose value starts with one of them is masked at least through
// it. Known passwords are used only to find where an item ends, never searched for elsewhere,
// so a password "127" leaves "Data Source=127.0.0.1" as it is.
ZT_TEST_EXPORT std::string MaskPasswordItems(const std::string& text,
                                             const std::vector<std::string>& known = {});

// The value of property `property_name` as it may appear in a log: "*" when the property is
// itself a password; otherwise the value with its password items masked.
ZT_TEST_EXPORT std::string MaskForDiagnostic(const std::string& property_name,
                                             const std::string& value);

}  // namespace zt::text_detail
