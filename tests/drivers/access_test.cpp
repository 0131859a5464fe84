// A real Access 97 file read through the MDB Tools ODBC driver.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "engines.h"
#include "support/test_env.h"

// MDB Tools' SQL parser keeps the condition of a WHERE clause for good (mdb_sql_add_sarg, through
// glib). It is the driver's memory, not ours: the leak checker of sanitizer builds is told to let
// glib's allocations be (nothing else in this program uses glib, and the fast unwinder stops at
// g_malloc, so the driver's own frames cannot be named).
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libmdbsql.so\nleak:libglib-2.0.so\n";
}

namespace zt::testing {
namespace {

namespace fs = std::filesystem;
using platform::SchemaKind;
using platform::SchemaRestrictions;

// The sample file in a temporary folder, fetched once per test program; "" when it cannot be had.
std::string AccessSample() {
  static const std::string path = [] {
    const fs::path dir = fs::temp_directory_path() / ("zt-access-" + std::to_string(::getpid()));
    const fs::path script = fs::path(__FILE__).parent_path() / "fetch_access_sample.sh";
    const std::string cmd = "bash '" + script.string() + "' '" + dir.string() + "'";
    if (std::system(cmd.c_str()) != 0) return std::string();
    std::atexit([] {
      fs::remove_all(fs::temp_directory_path() / ("zt-access-" + std::to_string(::getpid())));
    });
    return (dir / "testodbc.mdb").string();
  }();
  return path;
}

class AccessFile : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string file = AccessSample();
    ZT_NEED_ENGINE(!file.empty(), "The Access sample file (fetch_access_sample.sh)");
    conn_ = OpenBackend("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + file + ";");
  }
  std::unique_ptr<platform::ConnectionBackend> conn_;
};

TEST_F(AccessFile, TableColumnsAndRowsAreRead) {
  EXPECT_TRUE(conn_->Quirks().read_only);
  SchemaRestrictions user_tables;
  user_tables.extra = "TABLE";
  auto tables = conn_->Schema(SchemaKind::kTables, user_tables);
  ASSERT_EQ(tables.rows.size(), 1u);
  EXPECT_EQ(tables.rows[0][ColumnIndex(tables, "TABLE_NAME")].ToText(), "FPdev");
  // The system tables are there too, under their own type.
  SchemaRestrictions one;
  one.table = "MSysObjects";
  auto sys = conn_->Schema(SchemaKind::kTables, one);
  ASSERT_EQ(sys.rows.size(), 1u);
  EXPECT_EQ(sys.rows[0][ColumnIndex(sys, "TABLE_TYPE")].ToText(), "SYSTEM TABLE");

  SchemaRestrictions fpdev;
  fpdev.table = "fpdev";  // Access names ignore case
  auto cols = conn_->Schema(SchemaKind::kColumns, fpdev);
  ASSERT_EQ(cols.rows.size(), 3u);
  const int name = ColumnIndex(cols, "COLUMN_NAME"), type = ColumnIndex(cols, "DATA_TYPE");
  EXPECT_EQ(cols.rows[0][name].ToText(), "id");
  EXPECT_EQ(cols.rows[0][type].ToInt32(), 3);
  EXPECT_EQ(cols.rows[1][name].ToText(), "UserName");
  EXPECT_EQ(cols.rows[2][name].ToText(), "InstEmail");
  EXPECT_EQ(cols.rows[2][type].ToInt32(), 202);

  auto rs = Rows(*conn_, "SELECT id, UserName, InstEmail FROM FPdev WHERE id > 0");
  ASSERT_EQ(rs.columns.size(), 3u);
  EXPECT_EQ(rs.rows.size(), 8u);
  EXPECT_EQ(rs.columns[0].type, 3);
  EXPECT_EQ(rs.columns[1].type, 202);
  EXPECT_FALSE(rs.columns[1].attributes & 0x4) << "fields of a read-only file are not updatable";
  bool found_six = false;
  for (const auto& row : rs.rows) {
    EXPECT_EQ(row[0].Type(), VarType::Long);
    EXPECT_FALSE(row[1].ToText().empty());
    found_six = found_six || row[0].ToInt32() == 6;
  }
  EXPECT_TRUE(found_six);
}

TEST_F(AccessFile, WritesAreRefusedAndTheIndexRowsetCannotCrash) {
  RecordingEnv env;
  for (const char* sql : {"UPDATE FPdev SET UserName = 'x' WHERE id = 1", "DELETE FROM FPdev",
                          "INSERT INTO FPdev (id) VALUES (99)", "  create table t (a int)"}) {
    try {
      conn_->Prepare(sql);
      ADD_FAILURE() << "accepted: " << sql;
    } catch (const ZtError& e) {
      EXPECT_NE(e.Description().find("read-only"), std::string::npos) << e.Description();
    }
  }
  EXPECT_THROW(conn_->BeginTransaction(), ZtError);
  // The driver answers SQLStatistics without a result set and crashes when it is fetched.
  auto idx = conn_->Schema(SchemaKind::kIndexes, {});
  EXPECT_TRUE(idx.rows.empty());
  EXPECT_EQ(ColumnIndex(idx, "INDEX_NAME"), 5);
  EXPECT_TRUE(conn_->PrimaryKeyColumns("FPdev").empty());
  // Still usable afterwards.
  EXPECT_EQ(Rows(*conn_, "SELECT id FROM FPdev").rows.size(), 8u);
  EXPECT_TRUE(conn_->IsAlive());
}

}  // namespace
}  // namespace zt::testing
