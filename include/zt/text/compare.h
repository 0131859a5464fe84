// Character-level text helpers shared by every layer that searches, compares or splits text the
// way the old run time did.
//
// Text is UTF-8; positions and lengths are counted in characters (code points), 1-based where
// the old run time was 1-based. A byte that is not part of a well-formed UTF-8 sequence counts
// as one character of its own and is kept as it is.
//
// "Text compare" is the case-insensitive comparison of the old run time: characters are
// compared after simple case folding (Latin, Greek, Cyrillic, Armenian, fullwidth Latin and a
// few symbols that fold into them). "Binary compare" is byte equality. None of these throw,
// except SplitText for a limit below -1 (error 5, as the run time's Split).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "zt/export.h"

namespace zt {

enum class CompareMode { Binary, Text };

// The simple case folding of one code point (upper and title case to lower case); code points
// without a folding come back unchanged.
ZT_EXPORT char32_t FoldCase(char32_t cp);

// True when `a` and `b` hold the same characters under `mode`.
ZT_EXPORT bool TextEquals(std::string_view a, std::string_view b,
                          CompareMode mode = CompareMode::Text);

// The run time's InStr: the 1-based character position of the first occurrence of `find` in
// `text` at or after character `start`, or 0 when there is none. An empty `text` gives 0; an
// empty `find` gives `start` when start lies within the text, else 0. `start` below 1 counts
// as 1.
ZT_EXPORT std::int64_t InStr(std::int64_t start, std::string_view text, std::string_view find,
                             CompareMode mode);

// The run time's Replace over the whole text: every non-overlapping occurrence of `find`,
// scanning left to right, becomes `replacement`. An empty `find` leaves the text unchanged.
ZT_EXPORT std::string ReplaceAll(std::string_view text, std::string_view find,
                                 std::string_view replacement, CompareMode mode);

// The run time's Split with binary comparison: at most `limit` pieces (-1: no limit; 0: none).
// An empty text gives no pieces; an empty delimiter gives the text as one piece.
// Throws ZtError 5 (invalid procedure call) for a limit below -1.
ZT_EXPORT std::vector<std::string> SplitText(std::string_view text, std::string_view delimiter,
                                             std::int32_t limit = -1);

// Removes leading and trailing U+0020 characters only (tabs and other blanks stay).
ZT_EXPORT std::string TrimSpaces(std::string_view text);

// The byte that the Windows-1252 code page gives a code point, as the run time's Asc did;
// code points that the code page cannot hold give 63 ("?").
ZT_EXPORT unsigned char AnsiCode(char32_t cp);
// The code point of a Windows-1252 byte (the five unassigned bytes map to the C1 control of the
// same number, as the platform's conversion does).
ZT_EXPORT char32_t AnsiToUnicode(unsigned char byte);

}  // namespace zt
