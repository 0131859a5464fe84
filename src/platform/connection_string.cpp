// Connection strings: splitting the OLE DB form, the provider table and the ODBC string.
#include <algorithm>
#include <cctype>
#include <fstream>
#include <map>

#include "platform/driver.h"
#include "platform/errors.h"
#include "platform/sql_text.h"
#include "text/password_mask.h"

namespace zt::platform {

namespace {

std::string Trim(const std::string& s) {
  std::size_t b = 0, e = s.size();
  while (b < e && std::isspace(static_cast<unsigned char>(s[b]))) ++b;
  while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1]))) --e;
  return s.substr(b, e - b);
}

[[noreturn]] void BadString(const std::string& why) {
  throw ZtError(hr::kBadConnectionString, "ADODB.Connection",
                "The connection string cannot be read. " + why);
}

bool PatternMatches(const std::string& pattern, const std::string& provider) {
  const std::string p = AsciiLower(pattern), v = AsciiLower(Trim(provider));
  if (!p.empty() && p.back() == '*') return v.compare(0, p.size() - 1, p, 0, p.size() - 1) == 0;
  return p == v;
}

// An Access file that exists keeps its own format: it is read by the Access reader (libmdb).
bool IsAccessFile(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  char head[20] = {};
  if (!f.read(head, sizeof head)) return false;
  const std::string magic(head + 4, 15);
  return magic == "Standard Jet DB" || magic == "Standard ACE DB";
}

std::vector<ProviderEntry> BuiltInProviders() {
  // The keys a target driver always needs (MariaDB's Option=2, FreeTDS's TDS_Version ...) are
  // added by the ODBC driver's family table, whichever provider or Driver= name led there; the
  // fixed keys of an entry are for tables read from the configuration.
  return {
      {"Microsoft.Jet.OLEDB.*", "sqlite", "", "", "", {}},
      {"Microsoft.ACE.OLEDB.*", "sqlite", "", "", "", {}},
      {"SQLite*", "sqlite", "", "", "", {}},
      {"MSOLEDBSQL*", "odbc", "FreeTDS", "Server", "Database", {}},
      {"SQLOLEDB*", "odbc", "FreeTDS", "Server", "Database", {}},
      {"SQLNCLI*", "odbc", "FreeTDS", "Server", "Database", {}},
      {"OraOLEDB.Oracle*", "odbc", "Oracle", "DBQ", "", {}},
      {"MSDAORA*", "odbc", "Oracle", "DBQ", "", {}},
      {"MySQLProv*", "mariadb", "", "Server", "Database", {}},
      {"MySQL*", "mariadb", "", "Server", "Database", {}},
      {"MariaDB*", "mariadb", "", "Server", "Database", {}},
      {"PostgreSQL*", "postgresql", "", "", "", {}},
      {"PGNP*", "postgresql", "", "", "", {}},
      {"MSDASQL*", "odbc", "", "Server", "Database", {}},
      {"Scripted*", "scripted", "", "", "", {}},
  };
}

thread_local std::vector<ProviderEntry> t_overrides;

enum class Key {
  kProvider,
  kSource,
  kDatabase,
  kUser,
  kPassword,
  kIntegrated,
  kPort,
  kTimeout,
  kMode,
  kDriver,
  kOther
};

Key Classify(const std::string& key) {
  static const std::map<std::string, Key> keys = {
      {"provider", Key::kProvider},
      {"data source", Key::kSource},
      {"server", Key::kSource},
      {"address", Key::kSource},
      {"addr", Key::kSource},
      {"network address", Key::kSource},
      {"host", Key::kSource},
      {"dbq", Key::kSource},
      {"initial catalog", Key::kDatabase},
      {"database", Key::kDatabase},
      {"user id", Key::kUser},
      {"uid", Key::kUser},
      {"user", Key::kUser},
      {"user name", Key::kUser},
      {"integrated security", Key::kIntegrated},
      {"trusted_connection", Key::kIntegrated},
      {"port", Key::kPort},
      {"connect timeout", Key::kTimeout},
      {"connection timeout", Key::kTimeout},
      {"mode", Key::kMode},
      {"driver", Key::kDriver},
  };
  // Password keys have one definition, shared with every masking of log lines and messages.
  if (text_detail::IsPasswordKey(key)) return Key::kPassword;
  const auto it = keys.find(AsciiLower(key));
  return it == keys.end() ? Key::kOther : it->second;
}

int ToInt(const std::string& text, const std::string& key) {
  try {
    std::size_t used = 0;
    const int v = std::stoi(text, &used);
    if (used == text.size() && v >= 0) return v;
  } catch (const std::exception&) {
  }
  BadString("The value of " + key + " is not a number.");
}

}  // namespace

ConnectionKeys SplitConnectionString(const std::string& text) {
  ConnectionKeys out;
  std::size_t i = 0;
  const std::size_t n = text.size();
  while (i < n) {
    const std::size_t eq = text.find('=', i);
    const std::size_t semi = text.find(';', i);
    if (eq == std::string::npos || (semi != std::string::npos && semi < eq)) {
      // A part without "=" (blank, or a stray word): skip to the next ";".
      if (!Trim(text.substr(i, semi == std::string::npos ? n - i : semi - i)).empty())
        BadString("A part has no '='.");
      if (semi == std::string::npos) break;
      i = semi + 1;
      continue;
    }
    std::string key = Trim(text.substr(i, eq - i));
    std::size_t j = eq + 1;
    while (j < n && (text[j] == ' ' || text[j] == '\t')) ++j;
    std::string value;
    if (j < n && (text[j] == '"' || text[j] == '\'' || text[j] == '{')) {
      const char open = text[j];
      const char close = open == '{' ? '}' : open;
      bool closed = false;
      for (++j; j < n; ++j) {
        if (text[j] == close) {
          if (j + 1 < n && text[j + 1] == close) {
            value += close;
            ++j;
            continue;
          }
          closed = true;
          ++j;
          break;
        }
        value += text[j];
      }
      if (!closed) BadString("A quoted value of " + key + " is not closed.");
      while (j < n && text[j] != ';') {
        if (!std::isspace(static_cast<unsigned char>(text[j])))
          BadString("Text follows the quoted value of " + key + ".");
        ++j;
      }
    } else {
      const std::size_t end = text.find(';', j);
      value = Trim(text.substr(j, end == std::string::npos ? n - j : end - j));
      j = end == std::string::npos ? n : end;
    }
    if (!key.empty()) out.emplace_back(std::move(key), std::move(value));
    i = j < n ? j + 1 : n;
  }
  return out;
}

std::optional<std::string> FindKey(const ConnectionKeys& keys, const std::string& key) {
  const std::string k = AsciiLower(key);
  for (const auto& [name, value] : keys)
    if (AsciiLower(name) == k) return value;
  return std::nullopt;
}

namespace {
std::string Braced(const std::string& value) {
  std::string out = "{";
  for (char c : value) {
    out += c;
    if (c == '}') out += '}';
  }
  return out + "}";
}
}  // namespace

std::string OdbcQuote(const std::string& value) {
  // A leading quote is braced too: some drivers read '...' and "..." as quoting of their own.
  const bool needs = value.find_first_of(";{}") != std::string::npos ||
                     (!value.empty() && (std::isspace(static_cast<unsigned char>(value.front())) ||
                                         std::isspace(static_cast<unsigned char>(value.back())) ||
                                         value.front() == '"' || value.front() == '\''));
  return needs ? Braced(value) : value;
}

const ProviderEntry* ProviderTable::Find(const std::string& provider) const {
  for (const ProviderEntry& e : entries_)
    if (PatternMatches(e.pattern, provider)) return &e;
  return nullptr;
}

const std::shared_ptr<const ProviderTable>& ProviderTable::BuiltIn() {
  static const std::shared_ptr<const ProviderTable> table =
      std::make_shared<const ProviderTable>(BuiltInProviders());
  return table;
}

void PushThreadProviderOverride(ProviderEntry entry) {
  t_overrides.insert(t_overrides.begin(), std::move(entry));
}

void PopThreadProviderOverride(const std::string& pattern) {
  const auto it = std::find_if(t_overrides.begin(), t_overrides.end(),
                               [&](const ProviderEntry& e) { return e.pattern == pattern; });
  if (it != t_overrides.end()) t_overrides.erase(it);
}

ConnectParams ParseConnectionString(const std::string& text, const std::string& user,
                                    const std::string& password, const ProviderTable* table) {
  const ConnectionKeys keys = SplitConnectionString(text);
  ConnectParams p;
  for (const auto& [key, value] : keys) {
    switch (Classify(key)) {
      case Key::kProvider:
        p.provider = value;
        break;
      case Key::kSource:
        p.data_source = value;
        break;
      case Key::kDatabase:
        p.database = value;
        break;
      case Key::kUser:
        p.user = value;
        break;
      case Key::kPassword:
        p.password = value;
        break;
      case Key::kIntegrated: {
        const std::string v = AsciiLower(value);
        p.integrated_security = v == "sspi" || v == "true" || v == "yes";
        break;
      }
      case Key::kPort:
        p.port = ToInt(value, key);
        break;
      case Key::kTimeout:
        p.login_timeout = ToInt(value, key);
        break;
      case Key::kMode: {
        const std::string v = AsciiLower(value);
        p.read_only =
            v.find("read") != std::string::npos && v.find("readwrite") == std::string::npos;
        break;
      }
      case Key::kDriver:
        p.odbc_driver = value;
        break;
      case Key::kOther:
        p.extra.emplace_back(key, value);
        break;
    }
  }
  if (!user.empty()) p.user = user;
  if (!password.empty()) p.password = password;

  // Without a provider, a Driver= key means the ODBC bridge (as ADO's default provider did);
  // otherwise the embedded engine.
  const std::string provider =
      p.provider.empty() ? (p.odbc_driver.empty() ? "SQLite" : "MSDASQL") : p.provider;
  const ProviderEntry* entry = nullptr;
  for (const ProviderEntry& e : t_overrides)
    if (!entry && PatternMatches(e.pattern, provider)) entry = &e;
  if (!entry) entry = (table ? *table : *ProviderTable::BuiltIn()).Find(provider);
  if (!entry) RaiseAdo(AdoError::kProviderNotFound, "ADODB.Connection", "(" + provider + ")");
  p.provider = provider;
  p.driver = entry->driver;
  if (p.odbc_driver.empty()) p.odbc_driver = entry->odbc_driver;
  p.odbc_server_key = entry->odbc_server_key;
  p.odbc_database_key = entry->odbc_database_key;
  p.odbc_fixed = entry->odbc_fixed;

  // MariaDB's own ODBC driver named through the bridge: the native driver speaks to the same
  // server, faster and with rows read as they arrive. Any other driver (MySQL's own) stays ODBC.
  if (p.driver == "odbc" && AsciiLower(p.odbc_driver).find("mariadb") != std::string::npos)
    p.driver = "mariadb";
  if (p.driver == "sqlite") {
    // An old Access file (not an SQLite file): read through libmdb, never written.
    if (IsAccessFile(p.data_source)) {
      p.driver = "access";
      p.read_only = true;
    }
  } else if (p.port == 0) {
    // "host,port" (SQL Server's form) or "host:port".
    const std::size_t sep = p.data_source.find_last_of(",:");
    if (sep != std::string::npos && sep + 1 < p.data_source.size() &&
        std::all_of(p.data_source.begin() + static_cast<std::ptrdiff_t>(sep) + 1,
                    p.data_source.end(), [](unsigned char c) { return std::isdigit(c); })) {
      p.port = ToInt(p.data_source.substr(sep + 1), "Data Source");
      p.data_source.resize(sep);
    }
  }
  return p;
}

std::string ConnectParams::OdbcConnectionString() const {
  std::string s;
  auto add = [&](const std::string& key, const std::string& value) {
    if (!key.empty()) s += key + "=" + OdbcQuote(value) + ";";
  };
  if (!odbc_driver.empty()) s += "Driver=" + Braced(odbc_driver) + ";";
  if (!data_source.empty()) add(odbc_server_key, data_source);
  if (port != 0) add("Port", std::to_string(port));
  if (!database.empty()) add(odbc_database_key, database);
  if (integrated_security) add("Trusted_Connection", "Yes");
  if (!user.empty()) add("UID", user);
  if (!password.empty()) add("PWD", password);
  for (const auto& [k, v] : odbc_fixed) add(k, v);
  for (const auto& [k, v] : extra) add(k, v);
  return s;
}

}  // namespace zt::platform
