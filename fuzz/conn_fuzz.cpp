// Fuzz target for connection strings, SQL text preparation and password masking. Besides crashes
// and sanitizer reports it checks what callers rely on: a split string joins back to the same
// items, the ODBC string of a parsed one carries the same password and no injected key, every
// engine's SQL preparation either refuses a text with ZtError or returns one, and a masked text
// keeps every other item while no password item keeps its value.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/driver.h"
#include "platform/sql_text.h"
#include "support/test_env.h"
#include "text/password_mask.h"
#include "zt/error.h"

namespace {

using zt::platform::ConnectionKeys;

void Check(bool condition) {
  if (!condition) std::abort();
}

std::optional<ConnectionKeys> Split(const std::string& text) {
  try {
    return zt::platform::SplitConnectionString(text);
  } catch (const zt::ZtError&) {
    return std::nullopt;
  }
}

void FuzzSplitting(const std::string& text) {
  const auto keys = Split(text);
  if (keys) {
    // Joined again with the quoting the ODBC strings use, the items come back unchanged.
    std::string joined;
    for (const auto& [key, value] : *keys)
      joined += key + "=" + zt::platform::OdbcQuote(value) + ";";
    const auto again = Split(joined);
    Check(again && *again == *keys);
  }
  try {
    const zt::platform::ConnectParams p = zt::platform::ParseConnectionString(text);
    const auto odbc = Split(p.OdbcConnectionString());
    Check(odbc.has_value());
    if (!p.password.empty()) Check(zt::platform::FindKey(*odbc, "PWD") == p.password);
  } catch (const zt::ZtError&) {
  }
}

// Any text, masked, splits like the original: same keys, every password item's value "*", and
// every other value as it was unless it nests items of its own.
void FuzzMaskingOfAnyText(const std::string& text) {
  const std::string masked = zt::text_detail::MaskPasswordItems(text);
  const auto keys = Split(text);
  if (!keys) return;
  const auto masked_keys = Split(masked);
  Check(masked_keys && masked_keys->size() == keys->size());
  for (std::size_t i = 0; i < keys->size(); ++i) {
    const auto& [key, value] = (*keys)[i];
    Check((*masked_keys)[i].first == key);
    if (zt::text_detail::IsPasswordKey(key))
      Check((*masked_keys)[i].second == "*");
    else if (value.find('=') == std::string::npos)
      Check((*masked_keys)[i].second == value);
  }
}

std::string Braced(const std::string& value) {
  std::string out = "{";
  for (char c : value) {
    out += c;
    if (c == '}') out += '}';
  }
  return out + "}";
}

// Builds a string of items, some of them passwords, some nesting a string of their own, with
// the masked text it must give.
void BuildItems(FuzzedDataProvider& in, int depth, std::string& text, std::string& expected,
                std::vector<std::string>& passwords) {
  static const char* password_keys[] = {"Password", "pwd", " PWD ", "Jet OLEDB:Database Password"};
  static const char* other_keys[] = {"Data Source", "User ID", "x"};
  const int items = in.ConsumeIntegralInRange(1, 4);
  for (int i = 0; i < items; ++i) {
    if (i > 0) {
      text += ';';
      expected += ';';
    }
    const int kind = in.ConsumeIntegralInRange(0, depth < 2 ? 2 : 1);
    if (kind == 0) {
      const std::string key = password_keys[in.ConsumeIntegralInRange(0, 3)];
      const std::string value = in.ConsumeRandomLengthString(24);
      text += key + "=" + zt::platform::OdbcQuote(value);
      expected += key + "=*";
      passwords.push_back(value);
    } else if (kind == 1) {
      // A plain value: without "=" it cannot nest items.
      std::string value = in.ConsumeRandomLengthString(24);
      for (char& c : value)
        if (c == '=') c = '-';
      const std::string item = other_keys[in.ConsumeIntegralInRange(0, 2)] + std::string("=") +
                               zt::platform::OdbcQuote(value);
      text += item;
      expected += item;
    } else {
      std::string inner, inner_expected;
      BuildItems(in, depth + 1, inner, inner_expected, passwords);
      const std::string written = zt::platform::OdbcQuote(inner);
      text += "Extended Properties=" + written;
      expected +=
          "Extended Properties=" + (written == inner ? inner_expected : Braced(inner_expected));
    }
  }
}

void FuzzMaskingOfBuiltStrings(FuzzedDataProvider& in) {
  std::string text, expected;
  std::vector<std::string> passwords;
  BuildItems(in, 0, text, expected, passwords);
  const std::string masked = zt::text_detail::MaskPasswordItems(text);
  Check(masked == expected);
  for (const std::string& p : passwords)
    if (!p.empty() && expected.find(p) == std::string::npos)
      Check(masked.find(p) == std::string::npos);
}

void FuzzSqlText(FuzzedDataProvider& in, const std::string& sql) {
  // Every combination of the engines' lexical quirks, not only today's engines.
  zt::platform::DriverQuirks q;
  q.quote = static_cast<zt::platform::QuoteStyle>(in.ConsumeIntegralInRange(0, 2));
  q.fold = static_cast<zt::platform::NameFolding>(in.ConsumeIntegralInRange(0, 2));
  q.backslash_escapes = in.ConsumeBool();
  q.mysql_comments = in.ConsumeBool();
  q.escape_strings = in.ConsumeBool();
  q.dollar_quotes = in.ConsumeBool();
  try {
    zt::platform::PrepareSqlText(sql, q, "fuzz");
  } catch (const zt::ZtError&) {
  }
  zt::platform::RewritePlaceholders(sql, q);
  zt::platform::FirstKeyword(sql);
  zt::platform::QuoteIdentifier(sql, q);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Logs go to memory, not syslog. Never destroyed: its destructor would reset the thread's
  // state after the thread-locals are gone at exit.
  static auto& env = *new zt::testing::RecordingEnv;
  env.log.entries.clear();
  FuzzedDataProvider in(data, size);
  switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0:
      FuzzSplitting(in.ConsumeRandomLengthString(256));
      break;
    case 1:
      FuzzMaskingOfAnyText(in.ConsumeRandomLengthString(256));
      break;
    case 2:
      FuzzMaskingOfBuiltStrings(in);
      break;
    default: {
      const std::string sql = in.ConsumeRandomLengthString(256);
      FuzzSqlText(in, sql);
      break;
    }
  }
  return 0;
}
