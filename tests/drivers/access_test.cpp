// Real Access files read natively (libmdb): a small Access 97 sample, and Northwind where the
// shared real-data folder is beside the project.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>

#include "engines.h"
#include "platform/errors.h"
#include "support/test_env.h"
#include "zt/platform.h"

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

  // Conditions of the shapes the library and its users write, evaluated row by row.
  EXPECT_EQ(Rows(*conn_,
                 "SELECT COUNT(*) FROM [FPdev] WHERE id <= 3 OR (UserName = 'x' AND id "
                 "IS NOT NULL)")
                .rows[0][0]
                .ToInt32(),
            3);
  EXPECT_TRUE(Rows(*conn_, "SELECT * FROM [FPdev] WHERE -1=0").rows.empty());
  const auto sorted = Rows(*conn_, "SELECT [id] FROM [FPdev] ORDER BY [id] DESC");
  ASSERT_EQ(sorted.rows.size(), 8u);
  EXPECT_GT(sorted.rows[0][0].ToInt32(), sorted.rows[7][0].ToInt32());
  for (const char* other :
       {"SELECT id FROM FPdev GROUP BY id", "SELECT id FROM FPdev WHERE id IN (1)",
        "SELECT nope FROM FPdev", "SELECT id FROM Missing"})
    EXPECT_THROW(Rows(*conn_, other), ZtError) << other;

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

TEST_F(AccessFile, WritesAreRefused) {
  RecordingEnv env;
  for (const char* sql : {"UPDATE FPdev SET UserName = 'x' WHERE id = 1", "DELETE FROM FPdev",
                          "INSERT INTO FPdev (id) VALUES (99)", "  create table t (a int)"}) {
    try {
      conn_->Prepare(sql);
      ADD_FAILURE() << "accepted: " << sql;
    } catch (const ZtError& e) {
      EXPECT_NE(e.Description().find("read-only"), std::string::npos) << e.Description();
      EXPECT_EQ(e.Number(), platform::hr::kPermission);
    }
  }
  EXPECT_THROW(conn_->BeginTransaction(), ZtError);
  EXPECT_EQ(conn_->PrimaryKeyColumns("FPdev"), std::vector<std::string>{"id"});
  // Still usable afterwards.
  EXPECT_EQ(Rows(*conn_, "SELECT id FROM FPdev").rows.size(), 8u);
  EXPECT_TRUE(conn_->IsAlive());
}

// The same file as the rest of the library sees it, through Connection and Recordset.
TEST_F(AccessFile, RecordsetsReadAndRefuseEdits) {
  RecordingEnv env;
  auto cn = std::make_shared<Connection>();
  cn->Open("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + AccessSample());
  EXPECT_EQ(cn->Engine(), "Access");
  Recordset rs;
  rs.Open("FPdev", cn, ado::adOpenKeyset, ado::adLockOptimistic);
  EXPECT_EQ(rs.RecordCount(), 8);
  rs.Find("id = 6");
  ASSERT_FALSE(rs.Eof());
  const Variant name = rs.Value("UserName");
  EXPECT_THROW(
      {
        rs.Fields("UserName").SetValue(Variant("changed"));
        rs.Update();
      },
      ZtError);
  Recordset again;
  again.Open("SELECT UserName FROM FPdev WHERE id = 6", cn, ado::adOpenStatic, ado::adLockReadOnly);
  EXPECT_EQ(again.Value("UserName").ToText(), name.ToText());
  EXPECT_THROW(cn->Execute("DELETE FROM FPdev"), ZtError);
  EXPECT_EQ(cn->OpenSchema(ado::adSchemaIndexes)->RecordCount(), 1);  // the primary key
  EXPECT_EQ(cn->OpenSchema(ado::adSchemaColumns, Variant::Array({Variant(), Variant(), "FPdev"}))
                ->RecordCount(),
            3);
}

// Northwind (Access 97), as MDB Tools' own mdb-schema and mdb-export read it.
class Northwind : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = (fs::path(__FILE__).parent_path() / "../../../shared/realdata/nwind.mdb").string();
    if (!fs::exists(path_)) GTEST_SKIP() << "no " << path_ << " (the shared real data is absent)";
    conn_ = OpenBackend("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + path_ + ";");
  }
  std::string path_;
  std::unique_ptr<platform::ConnectionBackend> conn_;
};

TEST_F(Northwind, TypesKeysAndValuesAreTheFilesOwn) {
  EXPECT_EQ(conn_->Quirks().engine, "Access");
  SchemaRestrictions user;
  user.extra = "TABLE";
  const auto tables = conn_->Schema(SchemaKind::kTables, user);
  EXPECT_EQ(tables.rows.size(), 9u);

  // Columns: lengths in characters, Required as the only NOT NULL, defaults, exact types.
  SchemaRestrictions employees;
  employees.table = "Employees";
  const auto cols = conn_->Schema(SchemaKind::kColumns, employees);
  const int name = ColumnIndex(cols, "COLUMN_NAME"), type = ColumnIndex(cols, "DATA_TYPE"),
            size = ColumnIndex(cols, "CHARACTER_MAXIMUM_LENGTH"),
            nullable = ColumnIndex(cols, "IS_NULLABLE");
  std::map<std::string, std::vector<Variant>> by_name;
  for (const auto& row : cols.rows) by_name[row[name].ToText()] = row;
  EXPECT_EQ(by_name["LastName"][type].ToInt32(), 202);
  EXPECT_EQ(by_name["LastName"][size].ToInt32(), 20);
  EXPECT_FALSE(by_name["LastName"][nullable].ToBool());
  EXPECT_TRUE(by_name["ReportsTo"][nullable].ToBool()) << "a Long is not Required by itself";
  EXPECT_EQ(by_name["Photo"][type].ToInt32(), 205);
  EXPECT_EQ(by_name["Notes"][type].ToInt32(), 203);
  SchemaRestrictions products;
  products.table = "Products";
  const auto pcols = conn_->Schema(SchemaKind::kColumns, products);
  for (const auto& row : pcols.rows)
    if (row[name].ToText() == "UnitPrice") {
      EXPECT_EQ(row[type].ToInt32(), 6);
      EXPECT_EQ(row[ColumnIndex(pcols, "COLUMN_DEFAULT")].ToText(), "0");
    }

  // Keys and indexes, a composite key in its order.
  EXPECT_EQ(conn_->PrimaryKeyColumns("Order Details"),
            (std::vector<std::string>{"OrderID", "ProductID"}));
  const auto pks = conn_->Schema(SchemaKind::kPrimaryKeys, {});
  std::set<std::string> keyed;
  for (const auto& row : pks.rows) keyed.insert(row[ColumnIndex(pks, "TABLE_NAME")].ToText());
  EXPECT_EQ(keyed.size(), 9u);
  const auto idx = conn_->Schema(SchemaKind::kIndexes, {});
  bool last_name = false;
  for (const auto& row : idx.rows)
    last_name = last_name || (row[ColumnIndex(idx, "TABLE_NAME")].ToText() == "Employees" &&
                              row[ColumnIndex(idx, "COLUMN_NAME")].ToText() == "LastName");
  EXPECT_TRUE(last_name);

  // Values as stored: a Single exactly, Currency to the ten-thousandth, pictures byte for byte,
  // Nulls where the file has them.
  const auto od = Rows(*conn_,
                       "SELECT [UnitPrice], [Discount] FROM [Order Details] WHERE [OrderID] = "
                       "10250 AND [ProductID] = 51");
  ASSERT_EQ(od.rows.size(), 1u);
  EXPECT_EQ(od.rows[0][0].Type(), VarType::Currency);
  EXPECT_EQ(od.rows[0][0].ToText(), "42.4");
  EXPECT_EQ(od.rows[0][1].ToDouble(), static_cast<double>(0.15f));
  const auto photo = Rows(*conn_, "SELECT [Photo] FROM [Employees] WHERE [EmployeeID] = 1");
  ASSERT_EQ(photo.rows.size(), 1u);
  const std::string* bytes = photo.rows[0][0].AsString();
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(bytes->size(), 21626u);
  EXPECT_EQ(bytes->substr(0, 4), std::string("\x15\x1c\x2f\x00", 4));
  EXPECT_EQ(Rows(*conn_, "SELECT COUNT(*) FROM [Orders] WHERE [ShippedDate] IS NULL")
                .rows[0][0]
                .ToInt32(),
            21);
  const auto umlaut = Rows(*conn_, "SELECT COUNT(*) FROM [Umsätze]");
  EXPECT_EQ(umlaut.rows[0][0].ToInt32(), 830);
}

}  // namespace
}  // namespace zt::testing
