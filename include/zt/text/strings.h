// basCZtStringManipulation: the small string procedures every layer uses to build SQL text,
// read and mask property strings (connection strings), and encode text for URLs.
//
// Text is UTF-8; counts and positions are in characters. "Case-insensitive" means the text
// compare of zt/text/compare.h; "exact" means byte equality. Trimming removes U+0020 only.
// None of these procedures keeps state or modifies its arguments (apart from the Code that
// URLEncodeChar fills in); all may run on any thread.
//
// Failures. Procedures marked [trap] log an unexpected failure once through the thread's
// error handler (location text as noted, then the step number) and return "" (or false); the
// caller's error state is cleared as after any handled error. ZtStrMan_ReplaceStringVar logs and
// then throws the same error on. Procedures without a trap let a zt::ZtError of the run time
// (type mismatch, invalid use of Null, invalid procedure call, subscript out of range) reach the
// caller unchanged.
#pragma once

#include <cstdint>
#include <string>

#include "zt/export.h"
#include "zt/variant.h"

namespace zt {

// --- Encoding -------------------------------------------------------------------------------
// Escapes are Windows-1252 bytes, one per character ("é" gives "%E9"); a character the code page
// cannot hold is escaped as "?" ("%3F"). Neither encoder turns a space into "+".

// Keeps ASCII letters and digits, escapes everything else ("a b-c" -> "a%20b%2Dc").
// [trap ".ZtStrMan_UrlEncode @Line #"]
ZT_EXPORT std::string ZtStrMan_UrlEncode(const std::string& text);
// Keeps letters, digits and ! ' ( ) * - . _ ~ ("a b-c" -> "a%20b-c").
// [trap ".ZtStrMan_EncodeURIComponent, @Line#"]
ZT_EXPORT std::string ZtStrMan_EncodeURIComponent(const std::string& text);
// Mode 1: URLEncodeChar per character; mode 4: URIEscapeChar per character; any other mode
// returns the text unchanged. "" gives "". [trap ".EncodeString, @Line#"]
ZT_EXPORT std::string EncodeString(const std::string& text, std::int32_t encode_mode);
// `ch` (its first character counts) or its escape: "%" + upper-case hex of `code`, with a "0"
// added below 16 ("%0A"). `code` -1 means "not known yet": it is then set to the character's
// Windows-1252 byte. An empty `ch` with an unknown code fails (invalid procedure call).
// [trap ".URLEncodeChar, @Line#"]
ZT_EXPORT std::string URLEncodeChar(const std::string& ch, std::int32_t& code);
// Keeps ! ' ( ) * - . _ ~, otherwise URLEncodeChar with the character's code.
// [trap ".URIEscapeChar, @Line#"]
ZT_EXPORT std::string URIEscapeChar(const std::string& ch);

// --- Prefixes and suffixes (case-insensitive; an empty prefix or suffix always matches) ------

ZT_EXPORT bool ZtStrMan_StartsWith(const std::string& text, const std::string& prefix);
ZT_EXPORT bool ZtStrMan_EndsWith(const std::string& text, const std::string& suffix);
// `text`, with `prefix` put in front unless it already starts with it.
ZT_EXPORT std::string ZtStrMan_EnsurePrefix(const std::string& text, const std::string& prefix);
ZT_EXPORT std::string ZtStrMan_EnsureSuffix(const std::string& text, const std::string& suffix);
// The trimmed text without one leading `prefix` ("  xxabc ", "XX" -> "abc"); the trimmed text
// also when the prefix is absent. [trap "ZtStrMan_StripLeading, @Line#"]
ZT_EXPORT std::string ZtStrMan_StripLeading(const std::string& text, const std::string& prefix);
// Mirror image of ZtStrMan_StripLeading. [trap "ZtStrMan_StripTrailing, @Line#"]
ZT_EXPORT std::string ZtStrMan_StripTrailing(const std::string& text, const std::string& suffix);

// --- SQL names and literals -----------------------------------------------------------------

// "[" + trimmed name + "]", adding only the bracket that is missing (" Orders] " -> "[Orders]").
ZT_EXPORT std::string ZtStrMan_AddBrackets(const std::string& name);
// When `name` starts with "[", drops its first and its last character, whatever the last one
// is ("[Orders" -> "Order"); otherwise returns it unchanged ("Orders]" stays). A lone "[" fails
// with an invalid procedure call.
ZT_EXPORT std::string ZtStrMan_RemoveBrackets(const std::string& name);
// The value as text with every "'" doubled, for an SQL string literal. Null fails (invalid use
// of Null); arrays and objects fail (type mismatch).
ZT_EXPORT std::string ZtStrMan_EscapeQuotes(const Variant& value);

// --- Tokens and buffers ---------------------------------------------------------------------

// `buffer` cut at its first NUL character, or unchanged.
// [trap ".ZtStrMan_GetNullTerminatedString, @Line#"]
ZT_EXPORT std::string ZtStrMan_GetNullTerminatedString(const std::string& buffer);
// The `index`-th (1-based) piece of `text` between `delimiter`s, found case-insensitively;
// "" for an index of 0 or less or beyond the last piece. "\\srv\share\dir" with "\": piece 3 is
// "srv", piece 4 "share". Each search restarts one character after the previous delimiter's
// first character, so with a longer delimiter later pieces keep the delimiter's tail.
ZT_EXPORT std::string ZtStrMan_GetToken(const std::string& text, std::int32_t index,
                                        const std::string& delimiter);
// "" for Null or Empty, else the value's text (arrays and objects fail with a type mismatch).
ZT_EXPORT std::string ZtStrMan_VariantToString(const Variant& value);

// --- Replacement lists ----------------------------------------------------------------------

// The trimmed `text` with, for each index of `find_list` in order, every case-insensitive
// occurrence of find_list(i) replaced by replace_list(i) (each as ZtStrMan_VariantToString).
// When `find_list` is not an array the trimmed text comes back unchanged. A `replace_list` that
// does not cover find_list's indexes fails (subscript out of range; type mismatch when it is no
// array). [trap ".ZtStrMan_ReplaceStringVar, @Line#", logged and thrown on]
ZT_EXPORT std::string ZtStrMan_ReplaceStringVar(const std::string& text, const Variant& find_list,
                                                const Variant& replace_list);

// --- Property strings ("Key=Value;Key=Value") -----------------------------------------------

// Replaces the value that follows the first case-insensitive occurrence of `key` (which
// usually ends in "="), up to the next `terminator` (exact) or the end of the text. A missing
// key appends terminator + key + new_value when `append_if_missing`, else leaves the text.
//   ("a=1;b=2", "b=", "9", ";", *) -> "a=1;b=9"; ("a=1;b=2", "c=", "3", ";", true) -> "a=1;b=2;c=3"
ZT_EXPORT std::string ZtStrMan_SetPropertyValue(const std::string& text, const std::string& key,
                                                const std::string& new_value,
                                                const std::string& terminator,
                                                bool append_if_missing);
// Masks the first ";Pwd=" and the first ";Password=" value with "*". A password item at the very
// start of the string has no ";" before it and stays as it is: this text goes to diagnostics,
// never use it as proof that a string is free of passwords. The caller's pending error (Err())
// is kept untouched. [trap "ZtStrMan_RemovePasswordFromConnectionString , Line# "]
ZT_EXPORT std::string ZtStrMan_RemovePasswordFromConnectionString(
    const std::string& connection_string);
// The value of `property_name` among `items` (an array of "key<delimiter>value" texts): keys are
// compared case-insensitively and untrimmed, the last match wins, blank items are skipped, an
// item without a value gives "". Each item is split at most `split_limit` times (-1: no limit,
// so "A=b=c" gives "b"). Not a non-empty array: "". After the walk it writes the diagnostic
// ".ZtStrMan_GetProperty, Property:" + name + "=" + masked value (event type 4, level 128); the
// value of a password property itself ("Password", "Pwd") is logged as "*".
// [trap ".ZtStrMan_GetProperty, Property:" + name + ", @Line#"]
ZT_EXPORT std::string ZtStrMan_GetProperty(const Variant& items, const std::string& property_name,
                                           const std::string& key_value_delimiter,
                                           std::int32_t& split_limit);
// Splits `text` at `item_delimiter` (exact) and reads `property_name` with ZtStrMan_GetProperty.
// A blank text gives "". [trap ".ZtStrMan_GetProperty_FromString, Property:" + name + ", @Line#"]
ZT_EXPORT std::string ZtStrMan_GetProperty_FromString(const std::string& text,
                                                      const std::string& property_name,
                                                      const std::string& item_delimiter,
                                                      const std::string& key_value_delimiter);

// --- UTF-8 ----------------------------------------------------------------------------------

// The UTF-8 bytes of `text`, each widened to one character through Windows-1252: a byte string
// for writers that put bytes out one character at a time ("é" -> "Ã©"). A malformed byte of
// `text` counts as U+FFFD. "" gives "". [trap ".ZtStrMan_UTF16_To_UTF8, @Line#"]
ZT_EXPORT std::string ZtStrMan_UTF16_To_UTF8(const std::string& text);

}  // namespace zt
