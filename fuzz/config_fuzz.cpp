// Fuzz target for the configuration file reader. The fuzzed bytes are written to a file and
// loaded. Besides crashes and sanitizer reports it checks what the library promises: loading
// never throws; a file that is not well-formed XML, has no appSettings element or has an entry
// with a key but no value leaves no dictionary (never a part of the entries) and says so in the
// log; any other file gives exactly its entries, in file order, the first of a key winning.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <pugixml.hpp>
#include <string>
#include <utility>
#include <vector>

#include "support/test_env.h"
#include "zt/config.h"
#include "zt/variant.h"

namespace {

using Entries = std::vector<std::pair<std::string, std::string>>;

void Check(bool condition) {
  if (!condition) std::abort();
}

// The first element named appSettings in document order, the root included.
pugi::xml_node FindSettings(pugi::xml_node node) {
  for (pugi::xml_node child : node.children()) {
    if (child.type() != pugi::node_element) continue;
    if (std::string(child.name()) == "appSettings") return child;
    if (pugi::xml_node found = FindSettings(child)) return found;
  }
  return {};
}

// The entries the file holds, or nullopt when it must leave no dictionary.
std::optional<Entries> ExpectedEntries(const std::string& bytes) {
  pugi::xml_document doc;
  if (!doc.load_buffer(bytes.data(), bytes.size()) || !doc.document_element()) return std::nullopt;
  const pugi::xml_node settings = FindSettings(doc);
  if (!settings) return std::nullopt;
  Entries entries;
  for (pugi::xml_node child : settings.children()) {
    const pugi::xml_attribute key = child.attribute("key");
    if (child.type() != pugi::node_element || !key) continue;
    bool seen = false;
    for (const auto& entry : entries) seen = seen || entry.first == key.value();
    if (seen) continue;
    const pugi::xml_attribute value = child.attribute("value");
    if (!value) return std::nullopt;
    entries.emplace_back(key.value(), value.value());
  }
  return entries;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Logs go to memory, not syslog. Never destroyed: its destructor would reset the thread's
  // state after the thread-locals are gone at exit.
  static auto& env = *new zt::testing::RecordingEnv;
  // One reader for the whole run, so that every load also replaces what the one before left.
  static auto& reader = *new zt::CZtConfigReader;
  static const std::string file =
      "/tmp/zt-config-fuzz-" + std::to_string(::getpid()) + ".zt.config";
  env.log.entries.clear();

  const std::string bytes(reinterpret_cast<const char*>(data), size);
  std::FILE* out = std::fopen(file.c_str(), "wb");
  Check(out != nullptr);
  Check(std::fwrite(bytes.data(), 1, bytes.size(), out) == bytes.size());
  Check(std::fclose(out) == 0);

  reader.Load(file);
  std::remove(file.c_str());
  const std::shared_ptr<zt::Dictionary> dictionary = reader.Dictionary();
  const std::optional<Entries> expected = ExpectedEntries(bytes);
  if (!expected) {
    Check(dictionary == nullptr);
    Check(!env.log.entries.empty());
  } else {
    Check(dictionary != nullptr);
    const auto& items = dictionary->Items();
    Check(items.size() == expected->size());
    for (std::size_t i = 0; i < items.size(); ++i) {
      Check(items[i].first == (*expected)[i].first);
      Check(items[i].second.ToText() == (*expected)[i].second);
      Check(reader.GetValue(items[i].first).ToText() == (*expected)[i].second);
    }
  }
  return 0;
}
