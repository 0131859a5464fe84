// The unixODBC driver against real targets: FreeTDS with no server behind it, MariaDB.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "engines.h"
#include "platform/errors.h"
#include "platform/odbc_driver.h"
#include "support/loopback.h"
#include "support/test_env.h"
#include "zt/platform.h"

namespace zt::testing {
namespace {

using platform::SchemaKind;
using platform::SchemaRestrictions;
using Clock = std::chrono::steady_clock;

// A loopback TCP socket on a free port; listening or merely bound (then nothing accepts).
class LoopbackPort {
 public:
  explicit LoopbackPort(bool listen_on) {
    fd_ = BindLoopback(SOCK_STREAM, port_);
    if (listen_on) ::listen(fd_, 4);
  }
  ~LoopbackPort() { ::close(fd_); }
  int port() const { return port_; }
  int fd() const { return fd_; }

 private:
  int fd_ = -1;
  std::uint16_t port_ = 0;
};

std::string SqlServerString(int port, const std::string& extra = {}) {
  return "Provider=MSOLEDBSQL;Data Source=127.0.0.1," + std::to_string(port) +
         ";Initial Catalog=master;User ID=sa;Password='Secr3t;pw'" + extra;
}

TEST(FreeTdsDriver, UnreachableServerFailsFastAndSilentServerWithinLoginTimeout) {
  RecordingEnv env;
  {
    // Bound but not listening: the connection is refused at once.
    LoopbackPort closed(false);
    const auto start = Clock::now();
    try {
      OpenBackend(SqlServerString(closed.port(), ";Connect Timeout=5"));
      FAIL() << "connected to a closed port";
    } catch (const ZtError& e) {
      EXPECT_EQ(e.Number(), -2147467259);
      EXPECT_EQ(e.Source(), "MSOLEDBSQL");
      EXPECT_NE(e.Description().find("Unable to connect"), std::string::npos) << e.Description();
      EXPECT_NE(e.Description().find("(20009)"), std::string::npos) << e.Description();
      EXPECT_EQ(e.Description().find("Secr3t"), std::string::npos);
    }
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
  }
  {
    // Listening but never answering: without the driver's TDS_Version the login time-out is
    // ignored and this would hang for good.
    LoopbackPort silent(true);
    const auto start = Clock::now();
    try {
      OpenBackend(SqlServerString(silent.port(), ";Connect Timeout=1"));
      FAIL() << "connected to a silent port";
    } catch (const ZtError& e) {
      EXPECT_EQ(e.Number(), platform::hr::kFail) << e.Description();  // retried like a refusal
      EXPECT_NE(e.Description().find("Timeout expired"), std::string::npos) << e.Description();
    }
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(6));

    // Named through MSDASQL's Driver= the FreeTDS driver gets its TDS_Version all the same.
    const auto again = Clock::now();
    EXPECT_THROW(OpenBackend("Provider=MSDASQL;Driver={FreeTDS};Server=127.0.0.1;Port=" +
                             std::to_string(silent.port()) + ";UID=sa;PWD=x;Connect Timeout=1"),
                 ZtError);
    EXPECT_LT(Clock::now() - again, std::chrono::seconds(6));
  }
}

// Opens `text` through a Connection with `connection_timeout` while `port` stays silent. Gives
// the error, or nothing when the open succeeded or did not end within 30 s (then the port is
// closed so that the waiting driver is let go).
std::optional<ZtError> OpenAgainstSilentPort(std::unique_ptr<LoopbackPort>& port,
                                             const std::string& text, int connection_timeout) {
  auto opening = std::async(std::launch::async, [&]() -> std::optional<ZtError> {
    RecordingEnv env;
    Connection cn;
    cn.SetConnectionTimeout(connection_timeout);
    try {
      cn.Open(text);
    } catch (const ZtError& e) {
      return e;
    }
    return std::nullopt;
  });
  if (opening.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
    port.reset();
    opening.wait();
    return std::nullopt;
  }
  return opening.get();
}

TEST(MariaDbTimeouts, SilentServerFailsWithinTheLoginTimeOutAndReadsAreBounded) {
  // A port that accepts and never sends the server's greeting: the MariaDB driver ignores
  // SQL_ATTR_LOGIN_TIMEOUT and waited for good.
  auto silent = std::make_unique<LoopbackPort>(true);
  const std::string text = "Provider=MySQLProv;Data Source=127.0.0.1," +
                           std::to_string(silent->port()) +
                           ";Initial Catalog=db;User ID=u;Password=Secr3t;";
  for (const auto& [extra, connection_timeout] :
       {std::pair<std::string, int>{"Connect Timeout=2", 15}, {"", 2}}) {
    const auto start = Clock::now();
    const std::optional<ZtError> e =
        OpenAgainstSilentPort(silent, text + extra, connection_timeout);
    ASSERT_TRUE(e.has_value()) << "no error within 30 s: " << extra;
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(30));
    EXPECT_EQ(e->Number(), platform::hr::kFail) << e->Description();
    EXPECT_NE(e->Description().find("handshake"), std::string::npos) << e->Description();
    EXPECT_EQ(e->Description().find("Secr3t"), std::string::npos);
  }

  // MariaDB's provider and MariaDB's ODBC driver reach the native driver; MySQL's own ODBC
  // driver stays on the bridge, where the keys that carry the time-outs are composed: the login
  // one from the connection string or the connection, reads bounded past the command time-out;
  // a caller's own value wins.
  EXPECT_EQ(platform::ParseConnectionString(text).driver, "mariadb");
  EXPECT_EQ(platform::ParseConnectionString("Driver={MariaDB Unicode};Server=h;").driver,
            "mariadb");
  const std::string odbc_text = "Provider=MSDASQL;Driver={MySQL ODBC 8.0 Unicode Driver};Server=" +
                                std::string("127.0.0.1,") + std::to_string(silent->port()) +
                                ";Database=db;Uid=u;Pwd=Secr3t;";
  platform::ConnectParams p = platform::ParseConnectionString(odbc_text + "Connect Timeout=4");
  EXPECT_EQ(p.driver, "odbc");
  p.read_timeout = 30;
  const auto& maria = platform::odbc::FamilyForDriver(p.odbc_driver);
  std::string composed = platform::odbc::ConnectionStringFor(p, maria);
  EXPECT_NE(composed.find(";CONN_TIMEOUT=4;"), std::string::npos) << composed;
  EXPECT_NE(composed.find(";READ_TIMEOUT=40;WRITE_TIMEOUT=40;"), std::string::npos) << composed;
  p = platform::ParseConnectionString(odbc_text + "READ_TIMEOUT=7;conn_timeout=9");
  p.read_timeout = 0;
  composed = platform::odbc::ConnectionStringFor(p, maria);
  EXPECT_NE(composed.find("READ_TIMEOUT=7;conn_timeout=9;"), std::string::npos) << composed;
  EXPECT_EQ(composed.find("WRITE_TIMEOUT"), std::string::npos) << composed;
  EXPECT_EQ(composed.find("CONN_TIMEOUT"), std::string::npos) << composed;
}

// Forwards one client to a server on loopback until Stall(): from then on nothing the server
// sends reaches the client, as when a server hangs or the network drops its packets.
class StallingProxy {
 public:
  explicit StallingProxy(int server_port) : listener_(true), server_port_(server_port) {
    thread_ = std::thread([this] { Run(); });
  }
  ~StallingProxy() {
    stop_ = true;
    thread_.join();
  }
  int port() const { return listener_.port(); }
  void Stall() { stall_ = true; }

 private:
  void Run() {
    int client = -1;
    while (!stop_ && client < 0) {
      pollfd p{listener_.fd(), POLLIN, 0};
      if (::poll(&p, 1, 100) > 0) client = ::accept(listener_.fd(), nullptr, nullptr);
    }
    if (client < 0) return;
    const int server = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(static_cast<std::uint16_t>(server_port_));
    if (::connect(server, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0) {
      char buffer[16384];
      while (!stop_) {
        pollfd p[2] = {{client, POLLIN, 0}, {server, static_cast<short>(stall_ ? 0 : POLLIN), 0}};
        if (::poll(p, 2, 100) <= 0) continue;
        if (p[0].revents) {
          const ssize_t n = ::read(client, buffer, sizeof buffer);
          if (n <= 0 || ::write(server, buffer, static_cast<std::size_t>(n)) != n) break;
        }
        if (p[1].revents && !stall_) {
          const ssize_t n = ::read(server, buffer, sizeof buffer);
          if (n <= 0 || ::write(client, buffer, static_cast<std::size_t>(n)) != n) break;
        }
      }
    }
    ::close(server);
    ::close(client);
  }

  LoopbackPort listener_;
  int server_port_;
  std::atomic<bool> stop_{false};
  std::atomic<bool> stall_{false};
  std::thread thread_;
};

TEST(MariaDbTimeouts, ReadsFromAServerThatStopsAnsweringEndPastTheCommandTimeOut) {
  const std::string host = EnvOr("DBTEST_MY_HOST");
  ZT_NEED_ENGINE(!host.empty(), "MariaDB (DBTEST_MY_HOST)");
  auto proxy = std::make_unique<StallingProxy>(std::stoi(EnvOr("DBTEST_MY_PORT")));
  const std::string text =
      "Provider=MySQLProv;Data Source=127.0.0.1;Port=" + std::to_string(proxy->port()) +
      ";Initial Catalog=" + EnvOr("DBTEST_MY_DB") + ";User ID=" + EnvOr("DBTEST_MY_USER") +
      ";Password=" + EnvOr("DBTEST_MY_PASSWORD") + ";";
  RecordingEnv env;
  Connection cn;
  cn.SetCommandTimeout(1);
  cn.Open(text);
  cn.Execute("SELECT 1", nullptr, ado::adExecuteNoRecords);
  proxy->Stall();
  const auto start = Clock::now();
  auto reading = std::async(std::launch::async, [&]() -> std::optional<ZtError> {
    try {
      cn.Execute("SELECT 2", nullptr, ado::adExecuteNoRecords);
    } catch (const ZtError& e) {
      return e;
    }
    return std::nullopt;
  });
  if (reading.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
    proxy.reset();  // lets the waiting driver go
    reading.wait();
    FAIL() << "the read did not end within 30 s";
  }
  const std::optional<ZtError> e = reading.get();
  ASSERT_TRUE(e.has_value());
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(30));
  EXPECT_NE(e->Description().find("Lost connection"), std::string::npos) << e->Description();
}

class MariaDbDriver : public ::testing::Test {
 protected:
  void SetUp() override {
    text_ = ServerConnectionString("MySQLProv", "MY");
    ZT_NEED_ENGINE(text_, "MariaDB (DBTEST_MY_PORT)");
    conn_ = OpenBackend(*text_);
    // Test programs run in parallel and these tests share their table: one at a time (the lock
    // goes with the session).
    Rows(*conn_, "SELECT GET_LOCK('zt_drv_items', 120)");
    Exec(*conn_, "DROP TABLE IF EXISTS zt_drv_items");
    Exec(*conn_,
         "CREATE TABLE zt_drv_items (id INT NOT NULL PRIMARY KEY, code VARCHAR(50) NOT NULL, "
         "descr TEXT, active BOOLEAN, amount DOUBLE, price DECIMAL(12,2), created DATETIME, "
         "big BIGINT, UNIQUE KEY UN_code (code), KEY IN_two (active, amount))");
  }
  void TearDown() override {
    if (conn_) Exec(*conn_, "DROP TABLE IF EXISTS zt_drv_items");
  }
  std::optional<std::string> text_;
  std::unique_ptr<platform::ConnectionBackend> conn_;
};

TEST_F(MariaDbDriver, RowCountsAreMatchedRowsAndValuesRoundTrip) {
  EXPECT_EQ(conn_->Quirks().quote, platform::QuoteStyle::kBackticks);
  const Date when = Date::FromParts(2024, 2, 1, 13, 45, 30);
  EXPECT_EQ(Exec(*conn_,
                 "INSERT INTO zt_drv_items (id, code, descr, active, amount, price, "
                 "created, big) VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
                 {1, "a;b{c} Grüße 東京", Variant::Null(), true, 2.5, 10.25, when,
                  std::int64_t{5000000000}}),
            1);
  // Rewriting a row with its own values still counts it: a caller checking "1 row" after an
  // optimistic update must not see a conflict.
  EXPECT_EQ(Exec(*conn_, "UPDATE zt_drv_items SET code = code WHERE id = 1"), 1);
  EXPECT_EQ(Exec(*conn_, "UPDATE zt_drv_items SET code = 'x' WHERE id = 99"), 0);

  auto rs = Rows(*conn_,
                 "SELECT id, code, descr, active, amount, price, created, big "
                 "FROM zt_drv_items");
  ASSERT_EQ(rs.rows.size(), 1u);
  const auto& r = rs.rows[0];
  EXPECT_EQ(r[0].ToInt32(), 1);
  EXPECT_EQ(r[1].ToText(), "a;b{c} Grüße 東京");
  EXPECT_TRUE(r[2].IsNull());
  EXPECT_TRUE(r[3].ToBool());
  EXPECT_DOUBLE_EQ(r[4].ToDouble(), 2.5);
  EXPECT_DOUBLE_EQ(r[5].ToDouble(), 10.25);
  // DECIMAL(12,2) is fetched as the driver's exact text, not as SQL_C_DOUBLE.
  EXPECT_EQ(r[5].Type(), VarType::Decimal);
  EXPECT_EQ(r[5].ToText(), "10.25");
  EXPECT_EQ(r[6].Type(), VarType::Date);
  EXPECT_NEAR(r[6].ToDouble(), when.serial, 1e-6);
  EXPECT_EQ(r[7].ToInt64(), 5000000000);
  // Field codes follow the engine's type names.
  EXPECT_EQ(rs.columns[0].type, 3);
  EXPECT_EQ(rs.columns[1].type, 202);
  EXPECT_EQ(rs.columns[1].defined_size, 50);
  EXPECT_EQ(rs.columns[2].type, 203);
  EXPECT_EQ(rs.columns[5].type, 131);
  EXPECT_EQ(rs.columns[5].precision, 12);
  EXPECT_EQ(rs.columns[5].scale, 2);
  EXPECT_EQ(rs.columns[7].type, 20);
  EXPECT_TRUE(rs.columns[2].attributes & 0x20);
  EXPECT_FALSE(rs.columns[0].attributes & 0x20);
}

TEST_F(MariaDbDriver, MsdasqlDriverKeyGetsTheFamilyOptionsAndDeadConnectionsAreSeen) {
  // Through MSDASQL the provider table adds nothing; the driver's family still asks for
  // matched-row counts.
  auto direct = OpenBackend(EngineNamed("MariaDB").OdbcBridgeConnectionString("MariaDB Unicode"));
  Exec(*direct, "INSERT INTO zt_drv_items (id, code) VALUES (1, 'a')");
  EXPECT_EQ(Exec(*direct, "UPDATE zt_drv_items SET code = 'a' WHERE id = 1"), 1);

  Exec(*direct, "CREATE TEMPORARY TABLE zt_auto (n INT AUTO_INCREMENT PRIMARY KEY, v INT)");
  Exec(*direct, "INSERT INTO zt_auto (v) VALUES (1), (2)");
  Exec(*direct, "INSERT INTO zt_auto (v) VALUES (3)");
  EXPECT_EQ(direct->LastInsertId().ToInt32(), 3);

  EXPECT_TRUE(direct->IsAlive());
  const auto id = Rows(*direct, "SELECT CONNECTION_ID()").rows.at(0).at(0).ToInt64();
  Exec(*conn_, "KILL CONNECTION " + std::to_string(id));
  EXPECT_FALSE(direct->IsAlive());
  EXPECT_TRUE(conn_->IsAlive());
}

TEST_F(MariaDbDriver, BulkLoadsSendManyRowsPerInsertAndKeepAllOrNothing) {
  auto count = [&] {
    return Rows(*conn_, "SELECT COUNT(*) FROM zt_drv_items").rows[0][0].ToInt64();
  };
  {
    // 25,000 rows of 3 values: twelve full statements of 2,000 rows and a shorter last one.
    auto bulk = conn_->BeginBulk("zt_drv_items", {"id", "code", "descr"});
    for (int i = 1; i <= 25000; ++i)
      bulk->AddRow({i, "c" + std::to_string(i),
                    i % 2 ? Variant("d'\\" + std::to_string(i)) : Variant::Null()});
    bulk->Finish();
  }
  EXPECT_EQ(count(), 25000);
  auto rs =
      Rows(*conn_, "SELECT code, descr FROM zt_drv_items WHERE id IN (24999, 25000) ORDER BY id");
  ASSERT_EQ(rs.rows.size(), 2u);
  EXPECT_EQ(rs.rows[0][0].ToText(), "c24999");
  EXPECT_EQ(rs.rows[0][1].ToText(), "d'\\24999");
  EXPECT_TRUE(rs.rows[1][1].IsNull());

  // A duplicate in the second statement takes the first one back with it.
  Exec(*conn_, "DELETE FROM zt_drv_items");
  {
    auto bulk = conn_->BeginBulk("zt_drv_items", {"id", "code", "descr"});
    try {
      for (int i = 1; i <= 15000; ++i)
        bulk->AddRow({i == 12000 ? 5 : i, "c" + std::to_string(i), 1});
      bulk->Finish();
      FAIL() << "a duplicate key was loaded";
    } catch (const ZtError& e) {
      EXPECT_EQ(e.Number(), platform::hr::kIntegrity) << e.Description();
    }
    EXPECT_THROW(bulk->AddRow({1, "x", 1}), ZtError);
  }
  EXPECT_EQ(count(), 0);
}

TEST_F(MariaDbDriver, CatalogRowsetsStayInTheCurrentDatabase) {
  auto tables = conn_->Schema(SchemaKind::kTables, {});
  const int name = ColumnIndex(tables, "TABLE_NAME"), cat = ColumnIndex(tables, "TABLE_CATALOG");
  bool found = false;
  for (const auto& row : tables.rows) {
    // Without the current database as catalog the driver lists mysql.*, sys.* ...
    EXPECT_EQ(row[cat].ToText(), EngineNamed("MariaDB").Database());
    found = found || row[name].ToText() == "zt_drv_items";
  }
  EXPECT_TRUE(found);

  SchemaRestrictions r;
  r.table = "zt_drv_items";
  auto cols = conn_->Schema(SchemaKind::kColumns, r);
  ASSERT_EQ(cols.rows.size(), 8u);
  const int cname = ColumnIndex(cols, "COLUMN_NAME"), type = ColumnIndex(cols, "DATA_TYPE"),
            len = ColumnIndex(cols, "CHARACTER_MAXIMUM_LENGTH"),
            nullable = ColumnIndex(cols, "IS_NULLABLE"),
            ord = ColumnIndex(cols, "ORDINAL_POSITION");
  EXPECT_EQ(cols.rows[1][cname].ToText(), "code");
  EXPECT_EQ(cols.rows[1][type].ToInt32(), 202);
  EXPECT_EQ(cols.rows[1][len].ToInt32(), 50);
  EXPECT_FALSE(cols.rows[1][nullable].ToBool());
  EXPECT_EQ(cols.rows[1][ord].ToInt32(), 2);
  EXPECT_TRUE(cols.rows[2][nullable].ToBool());

  auto pk = conn_->Schema(SchemaKind::kPrimaryKeys, r);
  ASSERT_EQ(pk.rows.size(), 1u);
  EXPECT_EQ(pk.rows[0][ColumnIndex(pk, "COLUMN_NAME")].ToText(), "id");
  EXPECT_EQ(conn_->PrimaryKeyColumns("zt_drv_items"), std::vector<std::string>{"id"});

  auto idx = conn_->Schema(SchemaKind::kIndexes, r);
  const int iname = ColumnIndex(idx, "INDEX_NAME"), prim = ColumnIndex(idx, "PRIMARY_KEY"),
            uniq = ColumnIndex(idx, "UNIQUE"), icol = ColumnIndex(idx, "COLUMN_NAME"),
            ipos = ColumnIndex(idx, "ORDINAL_POSITION");
  std::map<std::string, std::vector<std::string>> columns;
  for (const auto& row : idx.rows) {
    const std::string n = row[iname].ToText();
    columns[n].push_back(row[icol].ToText());
    EXPECT_EQ(row[prim].ToBool(), n == "PRIMARY") << n;
    EXPECT_EQ(row[uniq].ToBool(), n != "IN_two") << n;
    EXPECT_EQ(row[ipos].ToInt32(), static_cast<int>(columns[n].size())) << n;
  }
  EXPECT_EQ(columns["IN_two"], (std::vector<std::string>{"active", "amount"}));
  EXPECT_EQ(columns["UN_code"], std::vector<std::string>{"code"});
}

TEST_F(MariaDbDriver, TransactionsErrorsAndBraceQuotedPasswords) {
  conn_->BeginTransaction();
  Exec(*conn_, "INSERT INTO zt_drv_items (id, code) VALUES (1, 'a')");
  conn_->Rollback();
  EXPECT_TRUE(Rows(*conn_, "SELECT id FROM zt_drv_items").rows.empty());
  conn_->BeginTransaction();
  Exec(*conn_, "INSERT INTO zt_drv_items (id, code) VALUES (2, 'b')");
  conn_->Commit();
  EXPECT_EQ(Rows(*conn_, "SELECT id FROM zt_drv_items").rows.size(), 1u);

  try {
    Exec(*conn_, "INSERT INTO zt_drv_items (id, code) VALUES (2, 'c')");
    FAIL() << "duplicate key accepted";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), platform::hr::kIntegrity);
    EXPECT_NE(e.Description().find("(1062)"), std::string::npos) << e.Description();
  }
  EXPECT_THROW(Exec(*conn_, "SELEC nothing"), ZtError);
  EXPECT_TRUE(conn_->IsAlive());

  // The driver ignores the ODBC query time-out; the family sets the server's own instead.
  conn_->SetCommandTimeout(1);
  const auto start = Clock::now();
  try {
    Rows(*conn_, "SELECT SLEEP(3)");
    ADD_FAILURE() << "the time-out did not end the statement";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), platform::hr::kTimeout) << e.Description();
  }
  EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(2500));
  conn_->SetCommandTimeout(0);
  EXPECT_EQ(Rows(*conn_, "SELECT SLEEP(1.2)").rows.at(0).at(0).ToInt32(), 0);

  // A password holding ";" and braces reaches the server whole instead of adding keys.
  const std::string pw = "p;w{d}}x";
  Exec(*conn_, "DROP USER IF EXISTS 'zt_semi'@'%'");
  Exec(*conn_, "CREATE USER 'zt_semi'@'%' IDENTIFIED BY 'p;w{d}}x'");
  auto params = platform::ParseConnectionString(*text_, "zt_semi", pw);
  params.database.clear();  // the new user may not use the test database
  EXPECT_NO_THROW((*platform::FindDriver(params.driver))(params));
  params.password = "p;w{d}";
  try {
    (*platform::FindDriver(params.driver))(params);
    FAIL() << "wrong password accepted";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), platform::hr::kLogin);
    EXPECT_EQ(e.Description().find("p;w"), std::string::npos);
  }
  Exec(*conn_, "DROP USER 'zt_semi'@'%'");
}

}  // namespace
}  // namespace zt::testing

namespace zt::testing {
namespace {

TEST(PsqlOdbcDriver, BooleansStayBooleanAndEmptyUpdatesCountZero) {
  const Engine& pg = EngineNamed("PostgreSQL");
  ZT_NEED_ENGINE(pg.Available(), "PostgreSQL (DBTEST_PG_PORT)");
  auto conn = OpenBackend(pg.OdbcBridgeConnectionString("PostgreSQL Unicode"));
  EXPECT_EQ(conn->Quirks().quote, platform::QuoteStyle::kDoubleQuotes);
  EXPECT_EQ(conn->DefaultSchema(), "public");
  Exec(*conn, "DROP TABLE IF EXISTS zt_psql_items");
  Exec(*conn, "CREATE TABLE zt_psql_items (id int PRIMARY KEY, flag boolean)");
  Exec(*conn, "INSERT INTO zt_psql_items VALUES (?, ?)", {1, true});
  auto rs = Rows(*conn, "SELECT flag FROM zt_psql_items");
  EXPECT_EQ(rs.columns.at(0).type, 11);
  EXPECT_EQ(rs.rows.at(0).at(0).Type(), VarType::Boolean);
  EXPECT_TRUE(rs.rows[0][0].ToBool());
  // The driver answers an UPDATE that matched nothing with SQL_NO_DATA.
  EXPECT_EQ(Exec(*conn, "UPDATE zt_psql_items SET flag = false WHERE id = 42"), 0);
  Exec(*conn, "DROP TABLE zt_psql_items");
}

}  // namespace
}  // namespace zt::testing

namespace zt::testing {
namespace {

TEST(OdbcDriverKey, SqliteOdbcFileAndUnknownDriver) {
  const std::string file = "/tmp/zt_odbc_sqlite_" + std::to_string(::getpid()) + ".db";
  std::remove(file.c_str());
  {
    auto conn = OpenBackend("Provider=MSDASQL;Driver={SQLite3};Database=" + file);
    Exec(*conn, "CREATE TABLE t (id INTEGER PRIMARY KEY, name VARCHAR(20) NOT NULL)");
    Exec(*conn, "CREATE UNIQUE INDEX ux_t_name ON t (name)");
    EXPECT_EQ(Exec(*conn, "INSERT INTO t (name) VALUES (?)", {"a"}), 1);
    EXPECT_EQ(conn->LastInsertId().ToInt32(), 1);
    // The driver answers an UPDATE that matched nothing with SQL_NO_DATA.
    EXPECT_EQ(Exec(*conn, "UPDATE t SET name = 'b' WHERE id = 7"), 0);

    platform::SchemaRestrictions r;
    r.table = "t";
    auto tables = conn->Schema(platform::SchemaKind::kTables, r);
    ASSERT_EQ(tables.rows.size(), 1u);
    // The driver's '' catalog and schema read as absent, as with every other engine.
    EXPECT_TRUE(tables.rows[0][ColumnIndex(tables, "TABLE_CATALOG")].IsNull());
    EXPECT_TRUE(tables.rows[0][ColumnIndex(tables, "TABLE_SCHEMA")].IsNull());
    auto idx = conn->Schema(platform::SchemaKind::kIndexes, r);
    bool unique_name = false;
    for (const auto& row : idx.rows)
      if (row[ColumnIndex(idx, "INDEX_NAME")].ToText() == "ux_t_name")
        unique_name = row[ColumnIndex(idx, "UNIQUE")].ToBool() &&
                      !row[ColumnIndex(idx, "PRIMARY_KEY")].ToBool();
    EXPECT_TRUE(unique_name);
  }
  std::remove(file.c_str());

  try {
    OpenBackend("Provider=MSDASQL;Driver={No Such Driver};Database=x");
    FAIL() << "an unknown driver opened";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), platform::hr::kFail);
    EXPECT_NE(e.Description().find("No Such Driver"), std::string::npos) << e.Description();
  }
}

}  // namespace
}  // namespace zt::testing
