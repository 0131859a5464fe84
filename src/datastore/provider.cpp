#include <sql.h>
#include <sqlext.h>

#include <array>
#include <string>
#include <vector>

#include "datastore/provider_types.h"
#include "platform/driver.h"
#include "zt/config.h"
#include "zt/datastore.h"
#include "zt/error_handling.h"
#include "zt/resources.h"
#include "zt/text/compare.h"
#include "zt/trap.h"
#include "zt/version.h"

namespace zt {

namespace {

constexpr std::string_view kTypeName = "CZtProvider";
// The run time's Val: the number at the start of the text ("3.51b" -> 3.51), 0 when there is
// none.
double LeadingNumber(const std::string& text) {
  std::size_t i = 0;
  while (i < text.size() && text[i] == ' ') ++i;
  std::size_t start = i;
  bool dot = false;
  while (i < text.size() && ((text[i] >= '0' && text[i] <= '9') || (text[i] == '.' && !dot))) {
    if (text[i] == '.') dot = true;
    ++i;
  }
  if (i == start) return 0;
  return ParseNumber(text.substr(start, i - start)).value_or(0);
}

// The ODBC drivers that the driver manager knows, with the version that odbcinst.ini gives
// them ("Version", else "DriverODBCVer"); a driver without either has an empty version and so
// never beats a versioned one.
std::vector<CZtProvider::Installed> RegisteredOdbcDrivers() {
  std::vector<CZtProvider::Installed> out;
  SQLHENV env = SQL_NULL_HENV;
  if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env))) return out;
  SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
  std::array<SQLCHAR, 512> name{};
  std::array<SQLCHAR, 4096> attrs{};
  SQLSMALLINT name_len = 0, attrs_len = 0;
  SQLUSMALLINT direction = SQL_FETCH_FIRST;
  while (SQL_SUCCEEDED(SQLDrivers(env, direction, name.data(), name.size(), &name_len, attrs.data(),
                                  attrs.size(), &attrs_len))) {
    direction = SQL_FETCH_NEXT;
    CZtProvider::Installed d{reinterpret_cast<const char*>(name.data()), {}};
    // The attributes come as "Key=Value\0Key=Value\0\0".
    std::string version, odbc_version;
    for (const SQLCHAR* p = attrs.data(); *p && p < attrs.data() + attrs.size();) {
      std::string pair(reinterpret_cast<const char*>(p));
      p += pair.size() + 1;
      auto eq = pair.find('=');
      if (eq == std::string::npos) continue;
      std::string key = pair.substr(0, eq);
      if (TextEquals(key, "Version")) version = pair.substr(eq + 1);
      if (TextEquals(key, "DriverODBCVer")) odbc_version = pair.substr(eq + 1);
    }
    d.version = version.empty() ? odbc_version : version;
    out.push_back(std::move(d));
  }
  SQLFreeHandle(SQL_HANDLE_ENV, env);
  return out;
}

// The row of `provider_type`; a type without one fails at step 20 of the member, after the
// lookup of the known types, where its error has always been reported.
const ds::ProviderTypeRow& RowOf(std::int32_t provider_type, Trap& at) {
  if (const ds::ProviderTypeRow* row = ds::FindProviderType(provider_type)) return *row;
  at = 20;
  ds::RaiseProviderNotSupported(provider_type, kTypeName);
}

}  // namespace

std::vector<CZtProvider::Installed> CZtProvider::InstalledProviders() {
  // The OLE DB names that this library answers itself: installed when the data-access layer's
  // provider table maps the name to a driver built into this library. They are part of the
  // library and carry its version; Jet 4.0 is listed before 3.51 so that, at equal versions,
  // the newer Jet name is the one chosen.
  const std::string v = LibraryVersion();
  std::vector<Installed> out;
  for (const char* name : {"Microsoft.Jet.OLEDB.4.0", "Microsoft.Jet.OLEDB.3.51", "MSOLEDBSQL",
                           "SQLOLEDB", "OraOLEDB.Oracle", "MSDASQL", "PostgreSQL"}) {
    try {
      platform::ConnectParams p = platform::ParseConnectionString(
          "Provider=" + std::string(name), {}, {}, ConfiguredProviderTable().get());
      if (platform::FindDriver(p.driver)) out.push_back({name, v});
    } catch (const ZtError&) {
      // not in the provider table: not installed
    }
  }
  for (auto& d : RegisteredOdbcDrivers()) out.push_back(std::move(d));
  return out;
}

int CZtProvider::CompareVersions(const std::string& a, const std::string& b) {
  auto parts = [](const std::string& s) {
    std::vector<long> n;
    std::size_t i = 0;
    while (i < s.size()) {
      long part = 0;
      bool any = false;
      while (i < s.size() && s[i] >= '0' && s[i] <= '9') {
        part = part * 10 + (s[i] - '0');
        if (part > 1000000000L) part = 1000000000L;
        any = true;
        ++i;
      }
      if (any) n.push_back(part);
      while (i < s.size() && (s[i] < '0' || s[i] > '9')) ++i;
    }
    return n;
  };
  auto pa = parts(a), pb = parts(b);
  for (std::size_t i = 0; i < std::max(pa.size(), pb.size()); ++i) {
    long x = i < pa.size() ? pa[i] : 0, y = i < pb.size() ? pb[i] : 0;
    if (x != y) return x < y ? -1 : 1;
  }
  return 0;
}

std::string CZtProvider::GetLatestOLEDBProvider(std::int32_t provider_type) {
  Trap at(kTypeName, "GetLatestOLEDBProvider");
  return at.Reraising([&] {
    at = 10;
    const std::string prefix = GetOLEDBProviderPrefix(provider_type);
    at = 20;
    const Installed* candidate = nullptr;
    std::vector<Installed> installed = InstalledProviders();
    for (const Installed& p : installed) {
      if (InStr(1, p.name, prefix, CompareMode::Text) == 0) continue;
      if (!candidate || CompareVersions(p.version, candidate->version) > 0) candidate = &p;
    }
    return candidate ? candidate->name : std::string{};
  });
}

std::string CZtProvider::GetOLEDBProvider(std::int32_t provider_type, const std::string& version) {
  Trap at(kTypeName, "GetOLEDBProvider");
  return at.Reraising([&] {
    const ds::ProviderTypeRow& row = RowOf(provider_type, at);
    at = 10;
    const bool old = row.old_provider_id != 0 && !version.empty() && LeadingNumber(version) < 4.0;
    return LoadConfigResString(old ? row.old_provider_id : row.provider_id);
  });
}

std::string CZtProvider::GetOLEDBProviderPrefix(std::int32_t provider_type) {
  Trap at(kTypeName, "GetOLEDBProviderPrefix");
  return at.Reraising([&] {
    const ds::ProviderTypeRow& row = RowOf(provider_type, at);
    at = 10;
    return LoadConfigResString(row.prefix_id);
  });
}

std::string CZtProvider::GetCaptionName(std::int32_t provider_type) {
  Trap at(kTypeName, "GetCaptionName");
  return at.Reraising([&] {
    const ds::ProviderTypeRow& row = RowOf(provider_type, at);
    at = 10;
    return LoadCommonResString(std::string(row.caption));
  });
}

std::int32_t CZtProvider::GetProviderType(const std::string& provider) {
  Trap at(kTypeName, "GetProviderType");
  return at.Reraising([&] {
    std::int32_t result = 0;
    at = 10;
    // Every match overwrites the result, so the last row in the table's order wins: "MSDASQL"
    // names the MySQL bridge even though no SQL Server prefix is in it, and an SQL Server name
    // that also carried the MySQL bridge's prefix counts as MySQL.
    for (auto* row = ds::ProviderTypesBegin(); row != ds::ProviderTypesEnd(); ++row)
      if (InStr(1, provider, LoadConfigResString(row->prefix_id), CompareMode::Text) != 0)
        result = row->type;
    return result;
  });
}

}  // namespace zt
