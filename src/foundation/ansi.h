// The "ANSI code page" of the old platform: Windows-1252. Used where the old library produced
// ANSI bytes (Asc, the escapes of the URL encoders, the text log file).
#pragma once

#include <string>
#include <string_view>

namespace zt::ansi {

// The Windows-1252 byte of a code point; code points the code page cannot hold give 63 ("?").
unsigned char FromCodePoint(char32_t cp);
// The code point of a Windows-1252 byte (the five unassigned bytes map to the C1 control of the
// same number, as the platform's conversion does).
char32_t ToCodePoint(unsigned char byte);
// UTF-8 text as Windows-1252 bytes, one byte per character; a character the code page cannot
// hold, and a malformed byte, become "?".
std::string Encode(std::string_view utf8_text);

}  // namespace zt::ansi
