// The platform suite's fixture over the live engines of the test registry
// (support/engines.h): SQLite always, PostgreSQL and MariaDB when their servers run.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/engines.h"
#include "zt/platform.h"

namespace zt::testing {

// The platform suite runs statements for real: the live engines of the registry.
inline std::vector<Engine> AllEngines() {
  return LiveEngines();
}

// Base fixture: opens the engine of the test's parameter, or skips (fails when engines are
// required) when its server is not configured.
class EngineTest : public ::testing::TestWithParam<Engine> {
 protected:
  void SetUp() override {
    const Engine& e = GetParam();
    ZT_NEED_ENGINE(e.Available(), e.name);
    dir_ = std::filesystem::temp_directory_path() /
           ("zt_platform_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(dir_);
    file_ = (dir_ / "test.db").string();
    cn = std::make_shared<Connection>();
    cn->Open(e.ConnectionString(file_));
  }
  void TearDown() override {
    if (cn) cn->Close();
    if (!dir_.empty()) std::filesystem::remove_all(dir_);
  }

  // Creates the probe table `name` (id key, code unique text(50) not null, descr memo, qty int,
  // ratio double, price money, active bool, created date) and fills `rows` rows:
  // id i, code "C<i>", qty i*10, ratio i/2, price i+0.25, active (i odd), created 2024-01-i.
  void MakeTable(const std::string& name, int rows) {
    const Engine& e = GetParam();
    cn->Execute("DROP TABLE IF EXISTS [" + name + "]");
    cn->Execute("CREATE TABLE [" + name + "] ([id] " + e.t_int + " NOT NULL PRIMARY KEY, [code] " +
                e.t_text50 + " NOT NULL, [descr] " + e.t_memo + ", [qty] " + e.t_int +
                ", [ratio] " + e.t_double + ", [price] " + e.t_money + ", [active] " + e.t_bool +
                ", [created] " + e.t_date + ")");
    cn->Execute("CREATE UNIQUE INDEX [ux_" + name + "_code] ON [" + name + "] ([code])");
    PreparedStatement ins(*cn, "INSERT INTO [" + name +
                                   "] ([id], [code], [descr], [qty], [ratio], [price], [active], "
                                   "[created]) VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
    for (int i = 1; i <= rows; ++i) {
      ins.Bind(0, i);
      ins.Bind(1, "C" + std::to_string(i));
      ins.Bind(2, i == 2 ? Variant::Null() : Variant("row " + std::to_string(i)));
      ins.Bind(3, i * 10);
      ins.Bind(4, i / 2.0);
      ins.Bind(5, Currency::FromDouble(i + 0.25));
      ins.Bind(6, i % 2 == 1);
      ins.Bind(7, Date::FromParts(2024, 1, i, 8, 30, 0));
      EXPECT_EQ(ins.Execute(), 1);
    }
  }
  std::int64_t Count(const std::string& table, const std::string& where = "") {
    auto rs = cn->Execute("SELECT COUNT(*) FROM [" + table + "]" +
                          (where.empty() ? "" : " WHERE " + where));
    return rs->Fields(0).Value().ToInt64();
  }

  std::shared_ptr<Connection> cn;
  std::filesystem::path dir_;
  std::string file_;
};

// The number of the ZtError that `fn` throws, or 0 when it throws nothing.
template <class F>
std::int32_t ErrorNumber(F&& fn) {
  try {
    fn();
  } catch (const ZtError& e) {
    return e.Number();
  }
  return 0;
}
#define ZT_ERROR_NUMBER(stmt) ::zt::testing::ErrorNumber([&] { (void)(stmt); })

inline std::int32_t Hr(std::uint32_t v) {
  return static_cast<std::int32_t>(v);
}

}  // namespace zt::testing
