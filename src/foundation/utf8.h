// UTF-8 helpers for code that counts and cuts text in characters, as the old library's 16-bit
// strings did. Malformed bytes count as one character each and are kept as they are.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zt::utf8 {

// Length of the sequence that starts with byte `lead` (1 for a malformed lead byte).
std::size_t SequenceLength(unsigned char lead);
// Number of characters in `s`.
std::size_t Length(std::string_view s);
// Byte offset of character `index` (0-based); s.size() when index is at or past the end.
std::size_t ByteOffset(std::string_view s, std::size_t index);
// The run time's Mid(s, start, count) with 1-based `start`; count npos means "to the end".
std::string Mid(std::string_view s, std::size_t start, std::size_t count = std::string::npos);
std::string Left(std::string_view s, std::size_t count);
// Decodes one character at byte `pos`, advancing `pos`; U+FFFD for malformed bytes.
char32_t Next(std::string_view s, std::size_t& pos);
void Append(std::string& out, char32_t cp);

}  // namespace zt::utf8
