// basCZtStringManipulation.
#include <cstdio>
#include <vector>

#include "foundation/utf8.h"
#include "text/chars.h"
#include "text/password_mask.h"
#include "zt/error.h"
#include "zt/event_logger.h"
#include "zt/text/compare.h"
#include "zt/text/strings.h"
#include "zt/trap.h"

namespace zt {

namespace {

constexpr std::int32_t kCodeUnknown = -1;

// The run time's Asc under code page 1252: the byte of the first character.
std::int32_t AscOf(const std::string& ch) {
  if (ch.empty()) rt::Raise(rt::kInvalidProcedureCall);
  std::size_t pos = 0;
  bool valid = true;
  char32_t cp = text_detail::NextChar(ch, pos, valid);
  // Malformed bytes are not a character the code page knows.
  return valid ? AnsiCode(cp) : '?';
}

bool IsAsciiAlnum(std::int32_t code) {
  return (code >= '0' && code <= '9') || (code >= 'A' && code <= 'Z') ||
         (code >= 'a' && code <= 'z');
}

bool IsUriMark(std::int32_t code) {
  switch (code) {
    case '!':
    case '\'':
    case '(':
    case ')':
    case '*':
    case '-':
    case '.':
    case '_':
    case '~':
      return true;
    default:
      return false;
  }
}

// The run time's Hex of a 32-bit value: negative numbers show their two's complement.
std::string Hex(std::int32_t value) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%X", static_cast<std::uint32_t>(value));
  return buf;
}

std::size_t CharCount(const std::string& s) {
  return utf8::Length(s);
}

std::string Right(const std::string& s, std::size_t count) {
  std::size_t n = utf8::Length(s);
  return count >= n ? s : utf8::Mid(s, n - count + 1);
}

}  // namespace

// --- Encoding -------------------------------------------------------------------------------

std::string URLEncodeChar(const std::string& ch, std::int32_t& code) {
  Trap at("", ".URLEncodeChar");
  return at.Returning(
      [&] {
        at = 10;
        if (code == kCodeUnknown) code = AscOf(ch);
        at = 20;
        if (IsAsciiAlnum(code)) return ch;
        at = 30;
        return (code < 16 ? std::string("%0") : std::string("%")) + Hex(code);
      },
      std::string{});
}

std::string URIEscapeChar(const std::string& ch) {
  Trap at("", ".URIEscapeChar");
  return at.Returning(
      [&] {
        at = 10;
        std::int32_t code = AscOf(ch);
        at = 20;
        if (IsUriMark(code)) return ch;
        at = 30;
        return URLEncodeChar(ch, code);
      },
      std::string{});
}

std::string EncodeString(const std::string& text, std::int32_t encode_mode) {
  Trap at("", ".EncodeString");
  return at.Returning(
      [&] {
        at = 10;
        std::string out;
        if (text.empty()) return out;
        at = 20;
        for (std::size_t pos = 0; pos < text.size();) {
          std::size_t begin = pos;
          utf8::Next(text, pos);
          std::string ch = text.substr(begin, pos - begin);
          at = 30;
          if (encode_mode == 1) {
            std::int32_t code = kCodeUnknown;
            out += URLEncodeChar(ch, code);
          } else if (encode_mode == 4) {
            out += URIEscapeChar(ch);
          } else {
            out += ch;
          }
        }
        return out;
      },
      std::string{});
}

std::string ZtStrMan_UrlEncode(const std::string& text) {
  Trap at("", ".ZtStrMan_UrlEncode", " @Line #");
  return at.Returning(
      [&] {
        at = 10;
        return EncodeString(text, 1);
      },
      std::string{});
}

std::string ZtStrMan_EncodeURIComponent(const std::string& text) {
  Trap at("", ".ZtStrMan_EncodeURIComponent");
  return at.Returning(
      [&] {
        at = 10;
        return EncodeString(text, 4);
      },
      std::string{});
}

// --- Prefixes and suffixes ------------------------------------------------------------------

bool ZtStrMan_StartsWith(const std::string& text, const std::string& prefix) {
  return TextEquals(utf8::Left(text, CharCount(prefix)), prefix);
}

bool ZtStrMan_EndsWith(const std::string& text, const std::string& suffix) {
  return TextEquals(Right(text, CharCount(suffix)), suffix);
}

std::string ZtStrMan_EnsurePrefix(const std::string& text, const std::string& prefix) {
  return ZtStrMan_StartsWith(text, prefix) ? text : prefix + text;
}

std::string ZtStrMan_EnsureSuffix(const std::string& text, const std::string& suffix) {
  return ZtStrMan_EndsWith(text, suffix) ? text : text + suffix;
}

std::string ZtStrMan_StripLeading(const std::string& text, const std::string& prefix) {
  Trap at("", "ZtStrMan_StripLeading");
  return at.Returning(
      [&] {
        at = 10;
        std::string trimmed = TrimSpaces(text);
        at = 20;
        if (!trimmed.empty() && ZtStrMan_StartsWith(trimmed, prefix))
          trimmed = utf8::Mid(trimmed, CharCount(prefix) + 1);
        return trimmed;
      },
      std::string{});
}

std::string ZtStrMan_StripTrailing(const std::string& text, const std::string& suffix) {
  Trap at("", "ZtStrMan_StripTrailing");
  return at.Returning(
      [&] {
        at = 10;
        std::string trimmed = TrimSpaces(text);
        at = 20;
        if (!trimmed.empty() && ZtStrMan_EndsWith(trimmed, suffix))
          trimmed = utf8::Left(trimmed, CharCount(trimmed) - CharCount(suffix));
        return trimmed;
      },
      std::string{});
}

// --- SQL names and literals -----------------------------------------------------------------

std::string ZtStrMan_AddBrackets(const std::string& name) {
  return ZtStrMan_EnsureSuffix(ZtStrMan_EnsurePrefix(TrimSpaces(name), "["), "]");
}

std::string ZtStrMan_RemoveBrackets(const std::string& name) {
  if (name.empty() || name[0] != '[') return name;
  std::string inner = name.substr(1);
  // The old code cut the last character with Left(s, Len(s) - 1), which fails for a lone "[".
  if (inner.empty()) rt::Raise(rt::kInvalidProcedureCall);
  return utf8::Left(inner, CharCount(inner) - 1);
}

std::string ZtStrMan_EscapeQuotes(const Variant& value) {
  return ReplaceAll(value.ToText(), "'", "''", CompareMode::Binary);
}

// --- Tokens and buffers ---------------------------------------------------------------------

std::string ZtStrMan_GetNullTerminatedString(const std::string& buffer) {
  Trap at("", ".ZtStrMan_GetNullTerminatedString");
  return at.Returning(
      [&] {
        at = 10;
        std::size_t nul = buffer.find('\0');
        return nul == std::string::npos ? buffer : buffer.substr(0, nul);
      },
      std::string{});
}

std::string ZtStrMan_GetToken(const std::string& text, std::int32_t index,
                              const std::string& delimiter) {
  // The text is decoded once: callers walk long paths with growing indexes.
  const text_detail::Chars chars = text_detail::Decode(text, CompareMode::Text);
  const text_detail::Chars delim = text_detail::Decode(delimiter, CompareMode::Text);
  const std::size_t length = chars.size();
  std::size_t previous = 0;  // 1-based position of the previous delimiter, 0 before the first
  std::size_t position = 0;
  for (std::int32_t k = 1; k <= index; ++k) {
    // InStr(previous + 1, text, delimiter), or Len(text) + 1 when there is none.
    std::size_t found =
        previous < length ? text_detail::Find(chars, delim, previous) : std::string::npos;
    position = found == std::string::npos ? length + 1 : found + 1;
    if (k < index) {
      // Past the end every later search fails the same way: the piece is empty.
      if (position > length) return {};
      previous = position;
    }
  }
  if (position <= previous) return {};
  return std::string(chars.Slice(text, previous, position - previous - 1));
}

std::string ZtStrMan_VariantToString(const Variant& value) {
  if (value.IsNull() || value.IsEmpty()) return {};
  return value.ToText();
}

// --- Replacement lists ----------------------------------------------------------------------

std::string ZtStrMan_ReplaceStringVar(const std::string& text, const Variant& find_list,
                                      const Variant& replace_list) {
  Trap at("", ".ZtStrMan_ReplaceStringVar");
  return at.Reraising([&] {
    at = 10;
    std::string out = TrimSpaces(text);
    const VariantArray* finds = find_list.AsArray();
    if (out.empty() || finds == nullptr) return out;
    at = 20;
    const VariantArray* replacements = replace_list.AsArray();
    if (replacements == nullptr) rt::Raise(rt::kTypeMismatch);
    for (std::int32_t i = finds->lower_bound; i <= finds->UpperBound(); ++i) {
      at = 30;
      std::string find = ZtStrMan_VariantToString(finds->at(i));
      std::string replacement = ZtStrMan_VariantToString(replacements->at(i));
      at = 40;
      out = ReplaceAll(out, find, replacement, CompareMode::Text);
    }
    return out;
  });
}

// --- Property strings -----------------------------------------------------------------------

std::string ZtStrMan_SetPropertyValue(const std::string& text, const std::string& key,
                                      const std::string& new_value, const std::string& terminator,
                                      bool append_if_missing) {
  const std::int64_t p = InStr(1, text, key, CompareMode::Text);
  if (p == 0) return append_if_missing ? text + terminator + key + new_value : text;
  const auto key_end = static_cast<std::size_t>(p) + CharCount(key);  // 1-based, after the key
  std::string out = utf8::Left(text, key_end - 1) + new_value;
  const std::int64_t q =
      InStr(static_cast<std::int64_t>(key_end), text, terminator, CompareMode::Binary);
  if (q > 0) out += utf8::Mid(text, static_cast<std::size_t>(q));
  return out;
}

std::string ZtStrMan_RemovePasswordFromConnectionString(const std::string& connection_string) {
  // Error handlers call this while they compose their messages: their pending error must come
  // back exactly as it was, whatever happens in here.
  const ErrorInfo pending = Err();
  Trap at("", "ZtStrMan_RemovePasswordFromConnectionString", " , Line# ");
  std::string masked = at.Returning(
      [&] {
        at = 10;
        std::string out = ZtStrMan_SetPropertyValue(connection_string, ";Pwd=", "*", ";", false);
        at = 20;
        return ZtStrMan_SetPropertyValue(out, ";Password=", "*", ";", false);
      },
      std::string{});
  Err() = pending;
  return masked;
}

std::string ZtStrMan_GetProperty(const Variant& items, const std::string& property_name,
                                 const std::string& key_value_delimiter,
                                 std::int32_t& split_limit) {
  const std::string where = ".ZtStrMan_GetProperty, Property:" + property_name;
  Trap at("", where);
  return at.Returning(
      [&] {
        at = 10;
        std::string value;
        const VariantArray* list = items.AsArray();
        if (list == nullptr || list->items.empty()) return value;
        for (std::int32_t i = list->lower_bound; i <= list->UpperBound(); ++i) {
          at = 20;
          std::string item = ZtStrMan_VariantToString(list->at(i));
          if (TrimSpaces(item).empty()) continue;
          at = 30;
          std::vector<std::string> pieces = SplitText(item, key_value_delimiter, split_limit);
          if (pieces.empty()) rt::Raise(rt::kSubscriptOutOfRange);  // a limit of 0
          at = 40;
          if (TextEquals(pieces[0], property_name)) value = pieces.size() > 1 ? pieces[1] : "";
        }
        at = 50;
        ZtLog_LogEvent(where + "=" + text_detail::MaskForDiagnostic(property_name, value), nullptr,
                       kEventInformation, kLevelPropertyDiagnostic);
        return value;
      },
      std::string{});
}

std::string ZtStrMan_GetProperty_FromString(const std::string& text,
                                            const std::string& property_name,
                                            const std::string& item_delimiter,
                                            const std::string& key_value_delimiter) {
  const std::string where = ".ZtStrMan_GetProperty_FromString, Property:" + property_name;
  Trap at("", where);
  return at.Returning(
      [&] {
        at = 10;
        if (TrimSpaces(text).empty()) return std::string{};
        at = 20;
        VariantArray list;
        for (std::string& piece : SplitText(text, item_delimiter))
          list.items.emplace_back(std::move(piece));
        at = 30;
        std::int32_t no_limit = -1;
        return ZtStrMan_GetProperty(Variant(std::move(list)), property_name, key_value_delimiter,
                                    no_limit);
      },
      std::string{});
}

// --- UTF-8 ----------------------------------------------------------------------------------

std::string ZtStrMan_UTF16_To_UTF8(const std::string& text) {
  Trap at("", ".ZtStrMan_UTF16_To_UTF8");
  return at.Returning(
      [&] {
        at = 10;
        // Re-encode first so that malformed input (stray bytes, overlong forms, surrogates) becomes
        // U+FFFD, as the platform's UTF-8 conversion did with unpaired surrogates.
        std::string bytes;
        for (std::size_t pos = 0; pos < text.size();) {
          bool valid = true;
          char32_t cp = text_detail::NextChar(text, pos, valid);
          utf8::Append(bytes, valid ? cp : U'\uFFFD');
        }
        at = 20;
        std::string widened;
        for (unsigned char b : bytes) utf8::Append(widened, AnsiToUnicode(b));
        return widened;
      },
      std::string{});
}

}  // namespace zt
