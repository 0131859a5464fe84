// SQL Server Browser discovery: where the old library asked the Windows network for SQL Server
// machines, every instance that a browser on UDP 1434 names is listed.
#include "zt/sqlserver/discovery.h"

#include <algorithm>

#include "zt/config.h"
#include "zt/datagram.h"
#include "zt/env.h"
#include "zt/event_logger.h"
#include "zt/text/compare.h"
#include "zt/trap.h"

namespace zt {

namespace {

constexpr char kClientBroadcastEx = 0x02;        // CLNT_BCAST_EX: every instance of every machine
constexpr char kClientUnicastEx = 0x03;          // CLNT_UCAST_EX: every instance of one machine
constexpr unsigned char kServerResponse = 0x05;  // SVR_RESP
constexpr std::int64_t kDefaultTimeoutMs = 1000;

std::vector<std::string> SplitList(const std::string& text) {
  std::vector<std::string> items;
  std::string item;
  for (char c : text + ",") {
    if (c == ',' || c == ';') {
      item = TrimSpaces(item);
      if (!item.empty()) items.push_back(item);
      item.clear();
    } else {
      item += c;
    }
  }
  return items;
}

// "host" or "host:port"; nullopt for a port that is not a number from 1 to 65535.
std::optional<DatagramTarget> TargetOf(const std::string& text) {
  DatagramTarget t{text, kSqlBrowserPort};
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) return t;
  const std::string port = text.substr(colon + 1);
  if (port.empty() || port.size() > 5 ||
      !std::all_of(port.begin(), port.end(), [](char c) { return c >= '0' && c <= '9'; }))
    return std::nullopt;
  const int n = std::stoi(port);
  if (n < 1 || n > 65535) return std::nullopt;
  t.host = text.substr(0, colon);
  t.port = static_cast<std::uint16_t>(n);
  return t;
}

bool IsBroadcast(const std::string& host) {
  return host == "255.255.255.255" ||
         (host.size() > 4 && host.compare(host.size() - 4, 4, ".255") == 0);
}

void Warn(const std::string& text) {
  ZtLog_LogEvent(".GetAvailableSQLServersList: " + text, nullptr, kEventWarning, kLevelDiagnostic);
}

}  // namespace

std::string SqlServerInstance::ConnectName() const {
  if (instance_name.empty() || TextEquals(instance_name, "MSSQLSERVER")) return server_name;
  return server_name + "\\" + instance_name;
}

std::vector<SqlServerInstance> ParseSqlBrowserAnswer(const std::string& datagram,
                                                     const std::string& peer,
                                                     std::vector<std::string>& problems) {
  std::vector<SqlServerInstance> found;
  if (datagram.size() < 3 || static_cast<unsigned char>(datagram[0]) != kServerResponse) {
    problems.push_back("answer from " + peer + " is not a SQL Server Browser response");
    return found;
  }
  const std::size_t size = static_cast<unsigned char>(datagram[1]) |
                           (static_cast<std::size_t>(static_cast<unsigned char>(datagram[2])) << 8);
  if (datagram.size() - 3 < size) {
    problems.push_back("answer from " + peer + " is cut short: " + std::to_string(size) +
                       " bytes announced, " + std::to_string(datagram.size() - 3) + " received");
    return found;
  }
  const std::string data = datagram.substr(3, size);
  // Instances are separated by ";;"; within one, names and values alternate, separated by ";".
  std::size_t start = 0;
  while (start < data.size()) {
    std::size_t end = data.find(";;", start);
    if (end == std::string::npos) {
      problems.push_back("answer from " + peer + " ends inside an instance record");
      break;
    }
    const std::string record = data.substr(start, end - start);
    start = end + 2;
    std::vector<std::string> parts;
    std::size_t p = 0;
    for (std::size_t q; (q = record.find(';', p)) != std::string::npos; p = q + 1)
      parts.push_back(record.substr(p, q - p));
    parts.push_back(record.substr(p));
    SqlServerInstance inst;
    inst.peer = peer;
    for (std::size_t i = 0; i + 1 < parts.size(); i += 2) {
      const std::string& key = parts[i];
      const std::string& value = parts[i + 1];
      if (TextEquals(key, "ServerName"))
        inst.server_name = value;
      else if (TextEquals(key, "InstanceName"))
        inst.instance_name = value;
      else if (TextEquals(key, "IsClustered"))
        inst.clustered = TextEquals(value, "Yes");
      else if (TextEquals(key, "Version"))
        inst.version = value;
      else if (TextEquals(key, "tcp"))
        inst.tcp_port = value;
    }
    if (inst.server_name.empty() || inst.instance_name.empty() || parts.size() % 2 != 0) {
      problems.push_back("answer from " + peer + " holds a malformed instance record");
      continue;
    }
    found.push_back(std::move(inst));
  }
  return found;
}

std::vector<SqlServerInstance> DiscoverSqlServers(const SqlBrowserQuery& query) {
  std::vector<std::string> names = query.targets;
  if (names.empty()) names = SplitList(LoadConfigResString(10470));
  std::int64_t timeout = query.timeout_ms;
  if (timeout < 0) {
    try {
      timeout = std::stoll(LoadConfigResString(10471));
    } catch (const std::exception&) {
      timeout = kDefaultTimeoutMs;
    }
  }
  std::vector<DatagramTarget> targets;
  bool broadcast = false;
  for (const auto& n : names) {
    if (const auto t = TargetOf(n)) {
      broadcast = broadcast || IsBroadcast(t->host);
      targets.push_back(*t);
    } else {
      Warn("target '" + n + "' is not host or host:port");
    }
  }
  std::vector<SqlServerInstance> found;
  if (targets.empty()) return found;
  std::vector<std::string> problems;
  const auto answers = Env::Current().Datagrams().Exchange(
      targets, std::string(1, broadcast ? kClientBroadcastEx : kClientUnicastEx), timeout,
      problems);
  for (const auto& a : answers)
    for (auto& inst : ParseSqlBrowserAnswer(a.data, a.peer, problems))
      if (std::none_of(found.begin(), found.end(), [&](const SqlServerInstance& f) {
            return TextEquals(f.ConnectName(), inst.ConnectName());
          }))
        found.push_back(std::move(inst));
  for (const auto& p : problems) Warn(p);
  return found;
}

std::vector<std::string> GetAvailableSQLServersList(const std::string& domain) {
  Trap at("", ".GetAvailableSQLServersList");
  return at.Returning(
      [&] {
        at = 10;
        SqlBrowserQuery query;
        query.targets = SplitList(domain);
        at = 20;
        std::vector<std::string> names;
        for (const auto& inst : DiscoverSqlServers(query)) names.push_back(inst.ConnectName());
        return names;
      },
      std::vector<std::string>{});
}

}  // namespace zt
