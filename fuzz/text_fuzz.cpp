// Fuzz target for the property-string and encoding procedures: besides crashes and sanitizer
// reports it checks the properties callers rely on (round trips, escape alphabets, masking).
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "support/test_env.h"
#include "zt/error.h"
#include "zt/text.h"
#include "zt/text/prop_string.h"

namespace {

void Check(bool condition) {
  if (!condition) std::abort();
}

bool OnlyUrlSafe(const std::string& s, const std::string& kept) {
  for (char c : s) {
    bool alnum = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    if (!alnum && c != '%' && kept.find(c) == std::string::npos) return false;
  }
  return true;
}

void FuzzEncoders(const std::string& text) {
  std::string url = zt::ZtStrMan_UrlEncode(text);
  Check(OnlyUrlSafe(url, ""));
  Check(OnlyUrlSafe(zt::ZtStrMan_EncodeURIComponent(text), "!'()*-._~"));
  std::int32_t code = -1;
  zt::URLEncodeChar(text, code);
  zt::URIEscapeChar(text);
  zt::ZtStrMan_UTF16_To_UTF8(text);
  zt::ZtStrMan_GetNullTerminatedString(text);
}

void FuzzPropertyStrings(FuzzedDataProvider& in, const std::string& text,
                         zt::testing::RecordingEnv& env) {
  const std::string name = in.ConsumeRandomLengthString(16);
  const std::string item_delimiter = in.ConsumeRandomLengthString(3);
  const std::string kv_delimiter = in.ConsumeRandomLengthString(3);
  zt::ZtStrMan_GetProperty_FromString(text, name, item_delimiter, kv_delimiter);
  // Reading the password itself must never put its value in the diagnostic. Only this call's
  // entries count: a fuzzed name such as "Password=x" writes a diagnostic of its own above.
  env.log.entries.clear();
  zt::ZtStrMan_GetProperty_FromString(text, "Password", item_delimiter, kv_delimiter);
  const std::string diagnostic = ".ZtStrMan_GetProperty, Property:Password=";
  for (const auto& entry : env.log.entries)
    if (entry.text.rfind(diagnostic, 0) == 0) Check(entry.text == diagnostic + "*");
  std::int32_t limit = in.ConsumeIntegralInRange<std::int32_t>(-3, 4);
  zt::ZtStrMan_GetProperty(zt::Variant::Array({zt::Variant(text), zt::Variant(name)}), name,
                           kv_delimiter, limit);
  zt::ZtStrMan_SetPropertyValue(text, name, kv_delimiter, item_delimiter, in.ConsumeBool());
  const zt::ErrorInfo pending{7, "src", "pending", "", 0};
  zt::Err() = pending;
  zt::ZtStrMan_RemovePasswordFromConnectionString(text);
  Check(zt::Err() == pending);
  zt::Err().Clear();
  zt::ZtStrMan_GetToken(text, in.ConsumeIntegralInRange<std::int32_t>(-2, 40), item_delimiter);
  zt::ZtStrMan_StripLeading(text, name);
  zt::ZtStrMan_StripTrailing(text, name);
  zt::ZtStrMan_AddBrackets(text);
  try {
    zt::ZtStrMan_RemoveBrackets(text);
  } catch (const zt::ZtError&) {
  }
  try {
    zt::ZtStrMan_ReplaceStringVar(text, zt::Variant::Array({zt::Variant(name)}),
                                  zt::Variant::Array({zt::Variant(kv_delimiter)}));
  } catch (const zt::ZtError&) {
    std::abort();  // the lists match: nothing may fail
  }
}

void FuzzEscaping(FuzzedDataProvider& in, const std::string& text) {
  zt::CZtPropString ps;
  const std::string extra = in.ConsumeRandomLengthString(2);
  zt::Variant extras = zt::Variant::Array({zt::Variant(extra)});
  const std::string encoded = ps.Encode(text, extras);
  const std::string decoded = ps.Decode(encoded, extras);
  // Without "%" in the text, or in the extra, escapes cannot be confused with data.
  if (text.find('%') == std::string::npos && extra.find('%') == std::string::npos &&
      extra.size() <= 1)
    Check(decoded == text);

  zt::CZtFieldEncoder encoder;
  encoder.ItemDelimiter(extra);
  const std::string field = encoder.Encode(text, "|");
  Check(zt::CZtFieldEncoder::Decode(field) == text);
  Check(field.find('|') == std::string::npos && field.find(';') == std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Logs go to memory, not syslog; kept across inputs and emptied each time. Never destroyed:
  // its destructor would reset the thread's state after the thread-locals are gone at exit.
  static auto& env = *new zt::testing::RecordingEnv;
  env.log.entries.clear();
  FuzzedDataProvider in(data, size);
  const int which = in.ConsumeIntegralInRange(0, 2);
  const std::string text = in.ConsumeRandomLengthString(256);
  switch (which) {
    case 0:
      FuzzEncoders(text);
      break;
    case 1:
      FuzzPropertyStrings(in, text, env);
      break;
    default:
      FuzzEscaping(in, text);
      break;
  }
  return 0;
}
