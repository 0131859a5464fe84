// The URL form of a data store on the command line.
#include "store_url.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace ztdb {

namespace fs = std::filesystem;

std::string PercentDecoded(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() &&
        std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
        std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
      out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

void ApplyStoreUrl(const std::string& url, StoreOptions& given) {
  // Filled in a copy: a refused URL leaves the caller's options as they were.
  StoreOptions o = given;
  const auto scheme_end = url.find("://");
  if (scheme_end == std::string::npos)
    throw UsageError("'" + url + "' is not a data store URL (scheme://...)");
  const std::string scheme = url.substr(0, scheme_end);
  std::string rest = url.substr(scheme_end + 3);
  // A scheme is a provider type's name or alias ("sqlite", "postgres", "mariadb", ...); its
  // number is no scheme.
  const bool numeric =
      !scheme.empty() && scheme.find_first_not_of("0123456789") == std::string::npos;
  if (numeric || zt::ProviderTypeFromName(scheme) == 0)
    throw UsageError("unknown data store URL scheme '" + scheme + "'");
  const auto slash = rest.find('/');
  std::string authority = rest.substr(0, slash);
  const auto at = authority.rfind('@');
  // Checked for files too: "sqlite://user:pw@host/x.db" would otherwise pass as a relative
  // path and carry the password into the store's folder, and from there into logs.
  if (at != std::string::npos && authority.find(':') < at)
    throw UsageError("a password never goes on the command line; use $ZTDB_PASSWORD or -W");
  o.type = scheme;
  if (zt::ProviderTypeFromName(o.type) == zt::kProviderJet) {
    const fs::path file(PercentDecoded(rest));
    if (!file.has_filename()) throw UsageError("the URL '" + url + "' names no file");
    o.location = file.parent_path().string();
    o.name = file.filename().string();
    given = o;
    return;
  }
  // "?key=value&..." after a server's database: "schema" picks the schema names are found and
  // made in; any other key goes on to the driver as a connection string item (sslmode=...).
  std::string path = slash == std::string::npos ? "" : rest.substr(slash + 1);
  const auto query = path.find('?');
  if (query != std::string::npos) {
    std::string items = path.substr(query + 1);
    path.resize(query);
    for (std::size_t start = 0; start <= items.size();) {
      const std::size_t end = std::min(items.find('&', start), items.size());
      const std::string item = items.substr(start, end - start);
      start = end + 1;
      if (item.empty()) continue;
      const auto eq = item.find('=');
      const std::string key = PercentDecoded(item.substr(0, eq));
      const std::string value = eq == std::string::npos ? "" : PercentDecoded(item.substr(eq + 1));
      if (key.empty() || eq == std::string::npos ||
          key.find_first_of(";={}") != std::string::npos ||
          value.find_first_of(";{}") != std::string::npos)
        throw UsageError("the URL parameter '" + item + "' is not of the form key=value");
      if (key == "password" || key == "pwd")
        throw UsageError("a password never goes on the command line; use $ZTDB_PASSWORD or -W");
      o.alt += (o.alt.empty() ? "" : ";") + (key == "schema" ? std::string("Schema") : key) + "=" +
               value;
    }
  }
  o.name = PercentDecoded(path);
  if (at != std::string::npos) {
    o.user = PercentDecoded(authority.substr(0, at));
    authority = authority.substr(at + 1);
  }
  // The library writes a server's port after a comma, as administrators always have.
  const auto colon = authority.rfind(':');
  if (colon != std::string::npos && authority.find(']') == std::string::npos)
    authority = authority.substr(0, colon) + "," + authority.substr(colon + 1);
  if (authority.empty()) throw UsageError("the URL '" + url + "' names no server");
  o.location = authority;
  given = o;
}

}  // namespace ztdb
