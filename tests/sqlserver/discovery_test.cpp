// SQL Server discovery against a browser responder on 127.0.0.1, written from the protocol's
// public description: one byte 0x02/0x03 in, 0x05 + 16-bit little-endian length + records out.
#include "zt/sqlserver/discovery.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "admin_env.h"
#include "support/loopback.h"
#include "zt/config.h"
#include "zt/sqlserver/sql_server.h"

namespace zt::testing {
namespace {

std::string Response(const std::string& data, int announced = -1) {
  const std::size_t n = announced < 0 ? data.size() : static_cast<std::size_t>(announced);
  return std::string{'\x05', static_cast<char>(n & 0xff), static_cast<char>(n >> 8)} + data;
}

// Answers every request on a free loopback port with `answers` (none: stays silent) and keeps
// the requests it saw.
class BrowserResponder {
 public:
  explicit BrowserResponder(std::vector<std::string> answers) : answers_(std::move(answers)) {
    fd_ = BindLoopback(SOCK_DGRAM, port_);
    thread_ = std::thread([this] { Serve(); });
  }
  ~BrowserResponder() {
    stop_ = true;
    thread_.join();
    ::close(fd_);
  }
  std::string Target() const { return "127.0.0.1:" + std::to_string(port_); }
  std::vector<std::string> requests;

 private:
  void Serve() {
    while (!stop_) {
      pollfd p{fd_, POLLIN, 0};
      if (::poll(&p, 1, 50) <= 0) continue;
      char buf[64];
      sockaddr_in from{};
      socklen_t len = sizeof from;
      const ssize_t n =
          ::recvfrom(fd_, buf, sizeof buf, 0, reinterpret_cast<sockaddr*>(&from), &len);
      if (n <= 0) continue;
      requests.emplace_back(buf, static_cast<std::size_t>(n));
      for (const auto& a : answers_)
        ::sendto(fd_, a.data(), a.size(), 0, reinterpret_cast<sockaddr*>(&from), len);
    }
  }
  std::vector<std::string> answers_;
  int fd_ = -1;
  std::uint16_t port_ = 0;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

const std::string kTwoInstances =
    "ServerName;DB1;InstanceName;MSSQLSERVER;IsClustered;No;Version;16.0.1000.6;tcp;1433;;"
    "ServerName;DB1;InstanceName;HELPDESK;IsClustered;Yes;Version;15.0.2000.5;tcp;50123;"
    "np;\\\\DB1\\pipe\\MSSQL$HELPDESK\\sql\\query;;";

TEST(SqlServerDiscovery, LoopbackBrowserListsItsInstances) {
  RecordingEnv env;
  BrowserResponder browser({Response(kTwoInstances)});
  const auto found = DiscoverSqlServers({{browser.Target()}, 300});
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].ConnectName(), "DB1");
  EXPECT_EQ(found[0].tcp_port, "1433");
  EXPECT_EQ(found[1].ConnectName(), "DB1\\HELPDESK");
  EXPECT_TRUE(found[1].clustered);
  EXPECT_EQ(found[1].version, "15.0.2000.5");
  EXPECT_EQ(found[1].peer, "127.0.0.1");
  // Asked one host: the unicast request.
  EXPECT_EQ(browser.requests, std::vector<std::string>{"\x03"});

  // The administrators' helper joins the names with the caller's separator.
  CZtSQLServer sql;
  EXPECT_EQ(sql.GetSQLServersList(" " + browser.Target() + " ", "|"), "DB1|DB1\\HELPDESK");
  EXPECT_TRUE(env.Warnings().empty());
}

TEST(SqlServerDiscovery, MalformedTruncatedAndMissingAnswersGiveNothing) {
  RecordingEnv env;
  {
    // A stranger's datagram, an answer announcing more than it holds, a record without an
    // instance name and one cut off before its ";;": each is left out with a warning, and the
    // good record in between still counts.
    BrowserResponder browser(
        {"\x01hello", Response("ServerName;X;InstanceName;Y;;", 200),
         Response("ServerName;DB2;Version;9.0;;ServerName;DB3;InstanceName;SQLEXPRESS;;"
                  "ServerName;DB4;Inst")});
    const auto found = DiscoverSqlServers({{browser.Target()}, 300});
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].ConnectName(), "DB3\\SQLEXPRESS");
    EXPECT_TRUE(env.Logged("is not a SQL Server Browser response"));
    EXPECT_TRUE(env.Logged("is cut short: 200 bytes announced"));
    EXPECT_TRUE(env.Logged("malformed instance record"));
    EXPECT_TRUE(env.Logged("ends inside an instance record"));
  }
  {
    // Nobody answers: an empty list once the time-out has passed, not before and not much later.
    BrowserResponder silent({});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(DiscoverSqlServers({{silent.Target()}, 250}).empty());
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(240));
    EXPECT_LT(took, std::chrono::milliseconds(2000));
    CZtSQLServer sql;
    EXPECT_EQ(sql.GetSQLServersList(silent.Target() + ";127.0.0.1:99999", ","), "");
    EXPECT_TRUE(env.Logged("target '127.0.0.1:99999' is not host or host:port"));
  }
  std::vector<std::string> problems;
  EXPECT_TRUE(ParseSqlBrowserAnswer("", "x", problems).empty());
  EXPECT_TRUE(ParseSqlBrowserAnswer(std::string("\x05\x10", 2), "x", problems).empty());
  EXPECT_EQ(problems.size(), 2u);
}

TEST(SqlServerDiscovery, TargetsAndTimeOutComeFromTheConfigurationFile) {
  RecordingEnv env;
  BrowserResponder browser({Response(kTwoInstances)});
  const auto dir = std::filesystem::temp_directory_path() / "zt-sqlsrv-discovery";
  std::filesystem::create_directories(dir);
  env.app_path = dir.string();
  std::ofstream(dir / "ztdbtools.zt.config")
      << "<configuration><appSettings><add key=\"10470\" value=\"" << browser.Target()
      << "\"/><add key=\"10471\" value=\"200\"/></appSettings></configuration>";
  ThreadConfigReader().Load(CZtConfigReader::DefaultFileName());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(GetAvailableSQLServersList("  "), (std::vector<std::string>{"DB1", "DB1\\HELPDESK"}));
  // The configured 200 ms, not the built-in second.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
  std::filesystem::remove_all(dir);
  ThreadConfigReader().Load(CZtConfigReader::DefaultFileName());
}

}  // namespace
}  // namespace zt::testing
