// LogIn through the real FreeTDS driver where no SQL Server can answer: a closed port and a
// port whose listener accepts and hangs up at once. The errors are the library's, with the
// masked connection text, and the login time-out bounds the wait.
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "admin_env.h"
#include "support/loopback.h"
#include "zt/sqlserver/sql_server.h"

namespace zt::testing {
namespace {

class Listener {
 public:
  enum Kind { kClosed, kHangsUp, kSilent };
  // kClosed: the port is only reserved and closed again, so nothing listens there; kHangsUp:
  // every connection is accepted and closed at once; kSilent: connections are let in by the
  // kernel and never answered.
  explicit Listener(Kind kind) {
    fd_ = BindLoopback(SOCK_STREAM, port_);
    if (kind == kClosed) {
      ::close(fd_);
      fd_ = -1;
      return;
    }
    ::listen(fd_, 8);
    if (kind == kSilent) return;
    thread_ = std::thread([this] {
      while (!stop_) {
        pollfd p{fd_, POLLIN, 0};
        if (::poll(&p, 1, 50) <= 0) continue;
        const int c = ::accept(fd_, nullptr, nullptr);
        if (c >= 0) ::close(c);
      }
    });
  }
  ~Listener() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    if (fd_ >= 0) ::close(fd_);
  }
  std::string Server() const { return "127.0.0.1," + std::to_string(port_); }

 private:
  int fd_ = -1;
  std::uint16_t port_ = 0;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

TEST(SqlServerFreeTds, LoginFailuresAreReportedMaskedAndInTime) {
  AdminEnv env;
  for (const auto kind : {Listener::kClosed, Listener::kHangsUp}) {
    Listener port(kind);
    CZtSQLServer sql;
    sql.LoginTimeout(3);
    const auto start = std::chrono::steady_clock::now();
    try {
      sql.LogIn(port.Server(), "sa", kSaPassword, "master");
      ADD_FAILURE() << "logged in to " << port.Server();
    } catch (const ZtError& e) {
      EXPECT_EQ(e.Source(), "MSOLEDBSQL") << e.Description();
      EXPECT_NE(e.Number(), 0);
      EXPECT_NE(e.Description().find("Unable to connect"), std::string::npos) << e.Description();
      // The connection text is there to show where the login went, the password masked.
      EXPECT_NE(e.Description().find("Data Source=" + port.Server()), std::string::npos)
          << e.Description();
      EXPECT_NE(e.Description().find("Uid=sa;Pwd=*"), std::string::npos) << e.Description();
      EXPECT_EQ(e.Description().find(kSaPassword), std::string::npos);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
    EXPECT_EQ(sql.ServerConnection(), nullptr);
    EXPECT_TRUE(env.Logged("CZtSQLServer.LogIn, @Line#30"));
    EXPECT_TRUE(env.Logged("Trying to login to: " + port.Server() + " with sa"));
  }
  ExpectNoSecretsLogged(env);
}

TEST(SqlServerFreeTds, ASilentServerFailsWithinTheLoginTimeOut) {
  AdminEnv env;
  Listener silent(Listener::kSilent);
  CZtSQLServer sql;
  sql.LoginTimeout(2);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THROW(sql.LogIn(silent.Server(), "sa", kSaPassword, "master"), ZtError);
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_GE(took, std::chrono::milliseconds(1500));
  EXPECT_LT(took, std::chrono::seconds(8));
  ExpectNoSecretsLogged(env);
}

}  // namespace
}  // namespace zt::testing
