// The provider table of the data-access layer, extended from the configuration file, so that an
// administrator can point an OLE DB provider name at another engine or ODBC driver without a
// new build.
#include <mutex>
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

void ApplyConfiguredProviderTable() {
  CZtConfigReader& reader = ThreadConfigReader();
  if (!reader.Dictionary()) reader.Load(CZtConfigReader::DefaultFileName());
  auto dict = reader.Dictionary();
  std::vector<platform::ProviderEntry> configured;
  std::string signature;
  if (dict) {
    for (const auto& [key, value] : dict->Items()) {
      if (key.rfind(kPrefix, 0) != 0) continue;
      const std::string pattern = key.substr(kPrefix.size());
      Trap at("CZtConfigReader", "ApplyConfiguredProviderTable", ", Line#");
      at.Key(", Provider=" + pattern);
      at.Returning([&] {
        at = 10;
        configured.push_back(ParseEntry(pattern, value.ToText()));
        signature += key + '\n' + value.ToText() + '\n';
      });
    }
  }
  // The table is process-wide: it is replaced only when the configured entries differ from the
  // ones applied last, so threads that read the same file never write it twice.
  static std::mutex mu;
  static std::string applied;
  static const std::vector<platform::ProviderEntry> built_in = platform::ProviderTable();
  std::lock_guard<std::mutex> lock(mu);
  if (signature == applied) return;
  for (const auto& e : built_in) configured.push_back(e);
  platform::SetProviderTable(signature.empty() ? std::vector<platform::ProviderEntry>{}
                                               : std::move(configured));
  applied = signature;
}

}  // namespace zt
