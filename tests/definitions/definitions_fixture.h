// A value table on each live engine for the definition suites: SQLite in a file of its own, the
// test servers' shared database under a table name of the test's own.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "support/engines.h"
#include "support/test_env.h"
#include "zt/datastore.h"
#include "zt/platform.h"

namespace zt::testing {

// The number of the ZtError that `fn` throws with its description, or 0 and "".
template <class F>
std::pair<std::int32_t, std::string> Thrown(F&& fn) {
  try {
    fn();
  } catch (const ZtError& e) {
    return {e.Number(), e.Description()};
  }
  return {0, ""};
}

class ValueTableTest : public ::testing::TestWithParam<Engine> {
 protected:
  void SetUp() override {
    const Engine& e = GetParam();
    ZT_NEED_ENGINE(e.Available(), e.name);
    std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    test = test.substr(0, test.find('/'));
    dir_ = std::filesystem::temp_directory_path() /
           ("zt_defs_" + std::to_string(::getpid()) + "_" + test);
    std::filesystem::create_directories(dir_);
    cn_ = std::make_shared<Connection>();
    cn_->Open(e.ConnectionString((dir_ / "defs.db").string()));
    table_ = "zt_val_" + test.substr(0, 30);
    for (char& c : table_) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    store_ = e.MakeStore(dir_.string(), "defs.db");
    cn_->Execute("DROP TABLE IF EXISTS [" + table_ + "]");
    cn_->Execute("CREATE TABLE [" + table_ + "] ([nID] " + cn_->ColumnType(4) + ", [tName] " +
                 cn_->ColumnType(10, 50) + ", [nChoiceID] " + cn_->ColumnType(4) +
                 ", [nDependentFieldID] " + cn_->ColumnType(4) + ", [tCode] " +
                 cn_->ColumnType(10, 10) + ")");
    // A Null ID, a repeated ID (its second row differs), a name with a quote.
    const char* rows[] = {"1, 'Low', 3, 12, 'L'",         "2, 'High', 1, 12, 'H'",
                          "NULL, 'Ghost', 9, 12, 'G'",    "2, 'High again', 2, 13, 'X'",
                          "3, 'O''Brien', 5, 13, 'O''B'", "4, 'Urgent', 4, 12, 'U'"};
    for (const char* r : rows)
      cn_->Execute("INSERT INTO [" + table_ +
                   "] ([nID], [tName], [nChoiceID], [nDependentFieldID], [tCode]) VALUES (" + r +
                   ")");
  }
  void TearDown() override {
    if (store_) store_->CloseConnections();
    if (cn_ && cn_->State() == ado::adStateOpen) {
      cn_->Execute("DROP TABLE IF EXISTS [" + table_ + "]");
      cn_->Close();
    }
    if (!dir_.empty()) std::filesystem::remove_all(dir_);
  }

  RecordingEnv env_;
  std::filesystem::path dir_;
  std::shared_ptr<Connection> cn_;
  std::shared_ptr<CZtDataStore> store_;
  std::string table_;
};

}  // namespace zt::testing
