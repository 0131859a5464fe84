// The provider types of data stores, one row each. Everything that differs by provider type in
// the data-store layer reads its row here: names and captions, the connection-string forms, the
// retry rule and the engine dialect. A new provider type is one new row.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "zt/export.h"

namespace zt::ds {

// The parts of a definition that connection strings are built from, as the definition holds
// them; the builders quote what needs quoting.
struct ZT_TEST_EXPORT DefinitionParts {
  std::string location;
  std::string name;
  std::string full_path;
  std::string user;
  std::string password;
  std::string system_db;
  bool odbc_form = false;  // Attributes bit 16
};

// How SameConnectionString compares a DAO connect string with a definition.
enum class SameBy {
  kNever,   // always false
  kFile,    // DATABASE is the full path
  kServer,  // DATABASE is the database name, SERVER the location
};

struct ZT_TEST_EXPORT ProviderTypeRow {
  std::int32_t type;
  std::string_view name;         // short name, as ztdb takes it ("postgresql")
  std::string_view alias;        // a second accepted name ("sqlite" for a Jet store), "" for none
  int provider_id;               // configuration identifier of the OLE DB provider name
  int old_provider_id;           // the provider for versions below 4 (Jet 3.51), 0 for none
  int prefix_id;                 // configuration identifier of the provider prefix
  std::string_view caption;      // resource name of the caption
  std::string_view odbc_driver;  // default ODBC driver, "" for none
  bool retried;                  // a failed opening is retried (SQL Server: never)
  bool is_file;                  // a file on disk rather than a database on a server
  bool linked_user_table;        // the user table is kept under another name (GetLinkedTableName)
  std::string_view engine;       // the engine whose dialect composes its SQL
  SameBy same_by;
  // The connection string after "Provider=..." (or "Driver=...;dbq=" in the ODBC form), without
  // the appended alternative text. `odbc_driver` is the definition's driver.
  std::string (*connection_tail)(const DefinitionParts&, const std::string& odbc_driver);
  // The DAO connect string; `with_login` adds the user and password. nullptr: the type has
  // none.
  std::string (*dao_string)(const DefinitionParts&, const std::string& odbc_driver,
                            bool with_login);
};

// The row of `type`, or nullptr for a type the library does not support.
ZT_TEST_EXPORT const ProviderTypeRow* FindProviderType(std::int32_t type);
// The row of `type`; raises vbObjectError + 9020 (tslDSProviderNotSupportedErr) with `source`
// for a type the library does not support.
ZT_TEST_EXPORT const ProviderTypeRow& RequireProviderType(std::int32_t type,
                                                          std::string_view source);

// Raises vbObjectError + 9020 (tslDSProviderNotSupportedErr) for `type`, with `source`.
[[noreturn]] ZT_TEST_EXPORT void RaiseProviderNotSupported(std::int32_t type,
                                                           std::string_view source);

// Every row, in the order in which GetProviderType tests the prefixes (the last match wins).
ZT_TEST_EXPORT const ProviderTypeRow* ProviderTypesBegin();
ZT_TEST_EXPORT const ProviderTypeRow* ProviderTypesEnd();

}  // namespace zt::ds
