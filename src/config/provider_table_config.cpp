// The provider table of the data-access layer, extended from the configuration file, so that an
// administrator can point an OLE DB provider name at another engine or ODBC driver without a
// new build.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/driver.h"
#include "zt/config.h"
#include "zt/event_logger.h"
#include "zt/text/compare.h"
#include "zt/trap.h"

namespace zt {

namespace {

constexpr std::string_view kPrefix = "Provider:";

// One configured entry; throws ZtError for a value the layer cannot read.
platform::ProviderEntry ParseEntry(const std::string& pattern, const std::string& value) {
  platform::ProviderEntry entry;
  entry.pattern = pattern;
  entry.odbc_server_key = "Server";
  entry.odbc_database_key = "Database";
  for (const auto& [key, v] : platform::SplitConnectionString(value)) {
    if (TextEquals(key, "Driver"))
      entry.driver = v;
    else if (TextEquals(key, "OdbcDriver"))
      entry.odbc_driver = v;
    else if (TextEquals(key, "ServerKey"))
      entry.odbc_server_key = v;
    else if (TextEquals(key, "DatabaseKey"))
      entry.odbc_database_key = v;
    else
      entry.odbc_fixed.emplace_back(key, v);
  }
  if (entry.driver.empty() || !platform::FindDriver(entry.driver))
    throw ZtError(rt::kInvalidProcedureCall, "CZtConfigReader",
                  "Unknown driver '" + entry.driver + "' for provider " + pattern);
  return entry;
}

}  // namespace

std::shared_ptr<const platform::ProviderTable> ConfiguredProviderTable() {
  CZtConfigReader& reader = ThreadConfigReader();
  if (!reader.Dictionary()) reader.Load(CZtConfigReader::DefaultFileName());
  auto dict = reader.Dictionary();
  std::string signature;
  if (dict) {
    for (const auto& [key, value] : dict->Items())
      if (key.rfind(kPrefix, 0) == 0) signature += key + '\n' + value.ToText() + '\n';
  }
  if (signature.empty()) return platform::ProviderTable::BuiltIn();
  // The configuration reader belongs to the thread, and so does the snapshot built from it: it
  // is rebuilt only when the configured entries differ from the ones it was built from.
  thread_local std::string built_from;
  thread_local std::shared_ptr<const platform::ProviderTable> built;
  if (built && signature == built_from) return built;
  std::vector<platform::ProviderEntry> entries;
  for (const auto& [key, value] : dict->Items()) {
    if (key.rfind(kPrefix, 0) != 0) continue;
    const std::string pattern = key.substr(kPrefix.size());
    Trap at("CZtConfigReader", "ConfiguredProviderTable", ", Line#");
    at.Key(", Provider=" + pattern);
    // Named in the capture: clang before 16 cannot capture a structured binding.
    at.Returning([&, &entry_value = value] {
      at = 10;
      entries.push_back(ParseEntry(pattern, entry_value.ToText()));
    });
  }
  for (const auto& e : platform::ProviderTable::BuiltIn()->Entries()) entries.push_back(e);
  built = std::make_shared<const platform::ProviderTable>(std::move(entries));
  built_from = signature;
  return built;
}

}  // namespace zt
