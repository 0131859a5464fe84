// The data store named on the command line and its URL form. Kept apart from the rest of the
// tool (no CLI11, no JSON) so that the URL parser can be exercised on its own.
#pragma once

#include <stdexcept>
#include <string>

#include "zt/datastore.h"

namespace ztdb {

// A command line that asks for something impossible (exit 2); nothing was touched.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The data store named on the command line. Without options it is the SQLite file helpdesk.db
// in the current folder.
struct StoreOptions {
  std::string url;
  std::string type = "jet";
  std::string location;
  std::string name = "helpdesk.db";
  std::string user;
  std::string provider;
  std::string odbc_driver;
  std::string alt;
  int alt_op = zt::kAltConnAppend;
  bool ask_password = false;
  bool operator==(const StoreOptions&) const = default;
};

// `text` with every "%" followed by two hex digits replaced by the byte they give; any other
// "%" stays as it is.
std::string PercentDecoded(const std::string& text);

// Sets `o` from a data store URL: sqlite:///path/file.db, postgresql://user@host:port/db,
// mysql://..., sqlserver://..., oracle://user@host:port. The user, the database name and the
// file path may carry percent-escapes; a port is handed on after a comma (host,port). A server
// URL may end in "?key=value&...": "schema=x" makes x the schema the store's names live in, and
// other keys reach the driver as connection string items (sslmode=disable). A URL with a
// password in it, an unknown scheme or no file/server is a UsageError and leaves `o` as it was.
void ApplyStoreUrl(const std::string& url, StoreOptions& o);

}  // namespace ztdb
