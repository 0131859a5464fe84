// Finding SQL Server instances on the network through the SQL Server Browser service: one
// datagram to UDP port 1434 (broadcast, or to named hosts), answered by every browser that
// hears it with the instances its machine runs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zt/export.h"

namespace zt {

// One instance as a browser described it.
struct ZT_EXPORT SqlServerInstance {
  std::string server_name;    // ServerName
  std::string instance_name;  // InstanceName ("MSSQLSERVER" for the default instance)
  std::string version;        // Version, "16.0.1000.6"
  std::string tcp_port;       // tcp, "" when the instance does not listen on TCP
  bool clustered = false;     // IsClustered
  std::string peer;           // the address the answer came from
  // The name a client connects with: the server name, + "\" + instance unless it is the
  // default instance.
  std::string ConnectName() const;
  friend bool operator==(const SqlServerInstance&, const SqlServerInstance&) = default;
};

inline constexpr std::uint16_t kSqlBrowserPort = 1434;

struct ZT_EXPORT SqlBrowserQuery {
  // Hosts to ask, each "host" or "host:port" (port 1434 when none). Empty: the configured
  // targets (.zt.config key 10470, by default the broadcast address 255.255.255.255).
  std::vector<std::string> targets;
  // How long answers are collected; < 0: the configured time-out (key 10471, 1000 ms).
  std::int64_t timeout_ms = -1;
};

// The instances of a browser's answer (SVR_RESP: 0x05, a 16-bit little-endian length, then
// "ServerName;A;InstanceName;B;IsClustered;No;Version;16.0.1000.6;tcp;1433;;" per instance).
// A datagram that is not such an answer, is cut short or holds a record without a server or
// instance name is reported in `problems` and gives nothing for that datagram or record.
ZT_EXPORT std::vector<SqlServerInstance> ParseSqlBrowserAnswer(const std::string& datagram,
                                                               const std::string& peer,
                                                               std::vector<std::string>& problems);

// Asks the browsers (through Env::Current().Datagrams()) and returns every instance that
// answered in time, once each, in the order the answers came. Malformed answers are logged as
// warnings and left out; no answer at all gives an empty list.
ZT_EXPORT std::vector<SqlServerInstance> DiscoverSqlServers(const SqlBrowserQuery& query = {});

// basSQLServer.GetAvailableSQLServersList: the connect names of the instances that answer,
// `domain` read as a list of targets separated by "," or ";" (blank: the configured ones).
ZT_EXPORT std::vector<std::string> GetAvailableSQLServersList(const std::string& domain);

}  // namespace zt
