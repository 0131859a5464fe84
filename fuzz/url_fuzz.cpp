// Fuzz target for ztdb's data-store URLs. Besides crashes and sanitizer reports it checks what
// the tool relies on: any text either is refused with UsageError, changing nothing, or names a
// store of a known type whose server or file is given, a URL that carries a password (user:pw@) is
// always refused, and a URL written from parts (user, host, port, database or file path, with
// percent-escapes, and a schema parameter) is read back to the same parts.
#include <fuzzer/FuzzedDataProvider.h>

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "store_url.h"
#include "zt/datastore.h"

namespace {

void Check(bool condition) {
  if (!condition) std::abort();
}

bool Parses(const std::string& url, ztdb::StoreOptions& o) {
  try {
    ztdb::ApplyStoreUrl(url, o);
    return true;
  } catch (const ztdb::UsageError&) {
    return false;
  }
}

// Whether the part before the path reads as user:password@host.
bool CarriesPassword(const std::string& url) {
  const auto scheme_end = url.find("://");
  if (scheme_end == std::string::npos) return false;
  const std::string rest = url.substr(scheme_end + 3);
  const std::string authority = rest.substr(0, rest.find('/'));
  const auto at = authority.rfind('@');
  return at != std::string::npos && authority.find(':') < at;
}

void FuzzAnyText(const std::string& url) {
  ztdb::StoreOptions o;
  o.user = "someone";
  const ztdb::StoreOptions before = o;
  if (!Parses(url, o)) {
    Check(o == before);
    return;
  }
  Check(!CarriesPassword(url));
  const std::int32_t type = zt::ProviderTypeFromName(o.type);
  Check(type != 0);
  Check(url.compare(0, o.type.size() + 3, o.type + "://") == 0);
  if (type == zt::kProviderJet)
    Check(!o.name.empty());
  else
    Check(!o.location.empty());
}

// `text` with the characters in `always` and, at the fuzzer's choice, any other written as
// %XX (hex digits in either case).
std::string Escaped(FuzzedDataProvider& in, const std::string& text, const std::string& always) {
  static const char* hex[] = {"0123456789ABCDEF", "0123456789abcdef"};
  std::string out;
  for (char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (always.find(c) != std::string::npos || byte < 0x20 || byte >= 0x7f || in.ConsumeBool()) {
      const char* digits = hex[in.ConsumeBool()];
      out += '%';
      out += digits[byte >> 4];
      out += digits[byte & 15];
    } else {
      out += c;
    }
  }
  return out;
}

void FuzzServerUrl(FuzzedDataProvider& in) {
  static const char* schemes[] = {"postgresql", "postgres", "mysql",  "mariadb",
                                  "sqlserver",  "mssql",    "ORACLE", "MySQL"};
  const std::string scheme = schemes[in.ConsumeIntegralInRange(0, 7)];
  const bool with_user = in.ConsumeBool();
  const std::string user = in.ConsumeRandomLengthString(16);
  std::string host = in.ConsumeRandomLengthString(16);
  std::erase_if(host, [](char c) {
    return !std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '-' && c != '_';
  });
  if (host.empty()) host = "db.example";
  const bool with_port = in.ConsumeBool();
  const std::string port = std::to_string(in.ConsumeIntegralInRange(1, 65535));
  const bool with_db = in.ConsumeBool();
  const std::string db = in.ConsumeRandomLengthString(24);
  const bool with_schema = with_db && in.ConsumeBool();
  std::string schema = in.ConsumeRandomLengthString(16);
  std::erase_if(schema, [](char c) { return c == ';' || c == '{' || c == '}'; });

  std::string url = scheme + "://";
  if (with_user) url += Escaped(in, user, ":@/%") + "@";
  url += host;
  if (with_port) url += ":" + port;
  if (with_db) url += "/" + Escaped(in, db, "%?");
  if (with_schema) url += "?schema=" + Escaped(in, schema, "%&");

  ztdb::StoreOptions o;
  Check(Parses(url, o));
  Check(o.type == scheme);
  Check(o.user == (with_user ? user : ""));
  Check(o.location == host + (with_port ? "," + port : ""));
  Check(o.name == (with_db ? db : ""));
  Check(o.alt == (with_schema ? "Schema=" + schema : ""));
}

void FuzzFileUrl(FuzzedDataProvider& in) {
  std::vector<std::string> segments;
  const int count = in.ConsumeIntegralInRange(1, 4);
  for (int i = 0; i < count; ++i) {
    std::string segment = in.ConsumeRandomLengthString(12);
    std::erase(segment, '/');
    std::erase(segment, '\0');
    if (segment.empty()) segment = "x.db";
    segments.push_back(segment);
  }
  std::string url = in.ConsumeBool() ? "sqlite://" : "jet://";
  std::string folder;
  for (int i = 0; i < count; ++i) {
    url += "/" + Escaped(in, segments[i], "%/");
    if (i + 1 < count) folder += "/" + segments[i];
  }
  ztdb::StoreOptions o;
  Check(Parses(url, o));
  Check(o.location == (folder.empty() ? "/" : folder));
  Check(o.name == segments.back());
  Check(o.user.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider in(data, size);
  switch (in.ConsumeIntegralInRange(0, 2)) {
    case 0:
      FuzzAnyText(in.ConsumeRandomLengthString(256));
      break;
    case 1:
      FuzzServerUrl(in);
      break;
    default:
      FuzzFileUrl(in);
      break;
  }
  return 0;
}
