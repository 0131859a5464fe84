// The configuration layer: the .zt.config file that lies beside the library.
//
// The file is XML. The first element named appSettings, at any depth, holds the entries; each
// child element (whatever its name) with a "key" attribute gives one entry, and its "value"
// attribute the text:
//
//   <configuration>
//     <appSettings>
//       <add key="10452" value="MSOLEDBSQL"/>
//       <add key="501" value="3"/>
//     </appSettings>
//   </configuration>
//
// A configured text is read by key with LoadConfigResString: a key that the file sets (with a
// non-empty value) wins; every other key falls back to the library's resource texts, the
// numbered string table for numeric keys and the named messages otherwise. So an administrator
// overrides only what he writes into the file.
//
// The default file is <library folder>/<library name>.zt.config: for
// /usr/lib/libztdbtools.so.7 that is /usr/lib/ztdbtools.zt.config.
#pragma once

#include <memory>
#include <string>

#include "zt/export.h"
#include "zt/trap.h"
#include "zt/variant.h"

namespace zt {

namespace platform {
class ProviderTable;
}

class ZT_EXPORT CZtConfigReader {
 public:
  CZtConfigReader() = default;

  // Empties the loaded dictionary (it stays, empty, so later lookups fall back to the
  // resources and the default file is not read again). Does nothing when none is loaded.
  void CloseRes();

  // Reads `file_name` and keeps its entries, replacing any earlier ones. A file that is missing
  // or not well-formed is reported as a diagnostic ("...CreateDictionary, File not loaded:" +
  // the name) and leaves the reader with no dictionary; a file without an appSettings element,
  // or with an entry that has a key but no value, is logged as an error of CreateDictionary
  // and leaves no dictionary either. Nothing is raised for a bad file.
  void Load(const std::string& file_name);

  // The loaded entries in file order (first entry of a key wins), or nullptr when no file has
  // been loaded. The reader and the caller share the dictionary.
  std::shared_ptr<zt::Dictionary> Dictionary() const;

  // The value stored for `key`, or Empty when no file is loaded or the key is not set (the
  // latter is reported as a diagnostic "...GetValue, Key not found:" + key). The second
  // argument is accepted for old callers and not used.
  Variant GetValue(const std::string& key, const Variant& unused = Variant());

  // The configured text for `key`, with the fallback to the resources described at the top of
  // this file. Loads the default file on first use. An empty value in the file also falls
  // back. Returns "" when neither the file nor the resources know the key.
  std::string LoadConfigResString(const std::string& key);

  // <library folder>/<library name without "lib" and extension>.zt.config.
  static std::string DefaultFileName();

 private:
  std::shared_ptr<zt::Dictionary> CreateDictionary(const std::string& file_name,
                                                   const std::string& xpath);

  std::shared_ptr<zt::Dictionary> dictionary_;
  InstanceTrace trace_{"CZtConfigReader"};
};

// The calling thread's shared reader (created on first use; forgotten by ResetThreadState).
ZT_EXPORT CZtConfigReader& ThreadConfigReader();

// The data-access layer's provider table with the providers that the configuration file
// names in front of the built-in ones. An entry
//   <add key="Provider:MSOLEDBSQL*" value="Driver=odbc;OdbcDriver=FreeTDS;ServerKey=Server;
//        DatabaseKey=Database;TDS_Version=7.4"/>
// maps provider names matching the pattern (a trailing "*" matches any rest, case ignored) to a
// driver of the layer ("sqlite", "odbc", "postgresql"), with the ODBC driver name, the keys that
// carry server and database, and every other key as a fixed key for the ODBC driver. A bad entry
// is logged and skipped. The table is an immutable snapshot, built again only when the
// configured entries change; data stores hand it to the connections they open, and nothing else
// sees it. Without configured entries it is the built-in table itself.
ZT_EXPORT std::shared_ptr<const platform::ProviderTable> ConfiguredProviderTable();

// The configured text for `key` through the calling thread's shared reader, which loads the
// default file once per thread. This is what the rest of the library uses for provider names,
// retry settings and the like.
ZT_EXPORT std::string LoadConfigResString(const std::string& key);
inline std::string LoadConfigResString(int key) {
  return LoadConfigResString(std::to_string(key));
}

}  // namespace zt
