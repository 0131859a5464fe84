// Copies that must keep every value: a table with a column of every logical type, holding the
// boundary values of each, goes from SQLite (declared with SQLite's own type names, as other
// programs write them) to each engine and from there to every engine, each hop checked value by
// value with VerifyCopy; real databases nobody here wrote (Chinook, and Northwind in an Access
// file) go to each engine whole;
// VerifyCopy catches each planted difference; a replacement that would reach into another table
// through ON DELETE CASCADE is refused.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "platform/sql_text.h"
#include "support/engines.h"
#include "support/test_env.h"
#include "zt/datastore.h"
#include "zt/platform.h"
#include "zt/schema/dt_mgr.h"

namespace {

using zt::Connection;
using zt::CZtDataStore;
using zt::Variant;
using zt::testing::Engine;
using zt::testing::EngineNamed;

constexpr const char* kTypes = "zt_types";
const char* const kLiveEngines[] = {"SQLite", "PostgreSQL", "MariaDB"};

std::string AllBytes() {
  std::string b;
  for (int i = 0; i < 256; ++i) b += static_cast<char>(i);
  return b;
}

// A mebibyte of text in four scripts.
std::string BigText() {
  const std::string piece = "Grüße, Привет, 你好世界, 🙂🚀 ";
  std::string t;
  while (t.size() < (1u << 20)) t += piece;
  return t;
}

zt::Date At(int y, int mo, int d, int h, int mi, int s, int micros = 0) {
  zt::Date date = zt::Date::FromParts(y, mo, d, h, mi, s);
  date.serial += micros / 1e6 / 86400.0;
  return date;
}

class CopyTypesTest : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    for (const char* name : kLiveEngines) ZT_NEED_ENGINE(EngineNamed(name).Available(), name);
    dir_ = std::filesystem::temp_directory_path() / ("zt_types_" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override {
    for (auto& [name, ds] : stores_) {
      try {
        auto cn = ds->GetConnection(1);
        for (const auto& t : dropped_) cn->Execute("DROP TABLE IF EXISTS [" + t + "]");
      } catch (const zt::ZtError&) {
      }
      ds->CloseConnections();
    }
    std::filesystem::remove_all(dir_);
  }

  // The store of `engine`; SQLite stores are files named after `file`.
  std::shared_ptr<CZtDataStore> Store(const std::string& engine, const std::string& file) {
    const std::string key = engine + "/" + file;
    auto it = stores_.find(key);
    if (it != stores_.end()) return it->second;
    const Engine& e = EngineNamed(engine);
    auto ds = e.MakeStore(dir_.string(), file);
    if (e.is_file && !std::filesystem::exists(dir_ / file)) ds->CreatePhysicalDataStore();
    stores_[key] = ds;
    return ds;
  }
  void Drop(const std::shared_ptr<CZtDataStore>& ds, const std::string& table) {
    ds->GetConnection(1)->Execute("DROP TABLE IF EXISTS [" + table + "]");
    dropped_.push_back(table);
  }

  // The matrix table on SQLite, declared the way other SQLite programs declare columns.
  void MakeMatrix(const std::shared_ptr<CZtDataStore>& ds) {
    auto cn = ds->GetConnection(1);
    Drop(ds, kTypes);
    cn->Execute(std::string("CREATE TABLE ") + kTypes +
                " (nId INTEGER NOT NULL PRIMARY KEY, i64 INTEGER, i32 LONG, i16 SHORT, u8 BYTE, "
                "b BIT, d REAL, f SINGLE, n NUMERIC(10,2), wide DECIMAL TEXT(38,10), c CURRENCY, "
                "t TEXT, v NVARCHAR(20) NOT NULL DEFAULT '', bin BLOB, ts DATETIME, g GUID)");
    zt::PreparedStatement ins(*cn, std::string("INSERT INTO ") + kTypes +
                                       " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    const Variant null = Variant::Null();
    const std::vector<std::vector<Variant>> rows = {
        {1, std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int32_t>::max(),
         32767, 255, true, 1e308, 0.5, zt::Decimal::Parse("24.99"),
         "1234567890123456789012345678.0123456789",
         // An SQLite file keeps a Jet currency as a double: 15 digits are what it holds.
         zt::Currency{9000000000001234}, BigText(), "Ärger und Öl", AllBytes(),
         At(9999, 12, 31, 23, 59, 59), "{6F9619FF-8B86-D011-B42D-00C04FC964FF}"},
        {2, std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int32_t>::min(),
         -32768, 0, false, -2.2250738585072014e-308, -3.75, zt::Decimal::Parse("-0.01"),
         "-0.0000000001", zt::Currency{-9000000000001234}, "", "", std::string(),
         At(1000, 1, 1, 0, 0, 0), "{00000000-0000-0000-0000-000000000000}"},
        // Texts that look like numbers stay texts ("007" is no 7).
        {3, std::int64_t{3000000000}, null, null, null, null, 0.1, null, zt::Decimal::Parse("0"),
         null, null, "007", " 42", std::string(1, '\xff'), At(2024, 2, 29, 13, 45, 59, 123456),
         null},
        {4, null, null, null, null, null, null, null, null, null, null, null, "", null, null, null},
    };
    for (const auto& row : rows) {
      for (std::size_t i = 0; i < row.size(); ++i) ins.Bind(static_cast<int>(i), row[i]);
      ins.Execute();
    }
  }

  // Copies `table` and checks it value by value; returns the target's connection.
  std::shared_ptr<Connection> CopyAndVerify(const std::shared_ptr<CZtDataStore>& from,
                                            const std::shared_ptr<CZtDataStore>& to,
                                            const std::string& table, std::int32_t options) {
    auto src = from->GetConnection(1);
    auto dst = to->GetConnection(1);
    dropped_.push_back(table);
    EXPECT_TRUE(dt_.CopyTable(*from, src, table, *to, options | zt::kCopyReplace))
        << table << ": " << dt_.LastCopyResults().at(0).error;
    EXPECT_EQ(dt_.RecordsFailed(), 0) << table;
    const zt::CopyVerification v = dt_.VerifyCopy(src, dst, table);
    EXPECT_TRUE(v.same) << src->Engine() << " -> " << dst->Engine() << ": " << v.first_difference;
    EXPECT_TRUE(v.by_key) << table;
    return dst;
  }

  std::filesystem::path dir_;
  zt::testing::RecordingEnv env_;
  std::map<std::string, std::shared_ptr<CZtDataStore>> stores_;
  std::vector<std::string> dropped_;
  zt::CZtDTMgr dt_;
};

// SQLite -> the parameter's engine -> every engine: every value arrives, and each column keeps
// its type class and length, its key and nullability.
TEST_P(CopyTypesTest, EveryValueOfEveryTypeSurvivesEveryPairOfEngines) {
  auto origin = Store("SQLite", "origin.db");
  MakeMatrix(origin);
  auto middle = Store(GetParam(), "middle.db");
  CopyAndVerify(origin, middle, kTypes, 0);
  for (const char* to : kLiveEngines) {
    SCOPED_TRACE(GetParam() + " -> " + to);
    if (GetParam() == to && std::string(to) != "SQLite") continue;  // one server database
    auto target = Store(to, "target.db");
    auto cn = CopyAndVerify(middle, target, kTypes, 0);
    // End to end as well.
    const auto v = dt_.VerifyCopy(origin->GetConnection(1), cn, kTypes);
    EXPECT_TRUE(v.same) << v.first_difference;
    // Without kCopyIndexes the primary key still comes, so an append cannot double the rows.
    bool key = false;
    for (const auto& index : dt_.GetTableIndexes(cn, kTypes))
      key = key || (index.kind == zt::kIndexKindPrimaryKey && index.columns.size() == 1);
    EXPECT_TRUE(key);
    // On SQLite a one-column 64-bit key is the rowid: no second b-tree for it.
    if (std::string(to) == "SQLite") {
      EXPECT_EQ(cn->Execute(std::string("SELECT count(*) FROM pragma_index_list('") + kTypes +
                            "') WHERE origin = 'pk'")
                    ->Fields(0)
                    .Value()
                    .ToInt64(),
                0);
    }
    auto rs = cn->Execute(std::string("SELECT * FROM ") + kTypes + " WHERE 1=0");
    auto& f = rs->GetFields();
    EXPECT_EQ(f.Item("i64").Type(), zt::ado::adBigInt);
    EXPECT_EQ(f.Item("d").Type(), zt::ado::adDouble);
    EXPECT_EQ(f.Item("t").Type(), zt::ado::adLongVarWChar);
    EXPECT_EQ(f.Item("v").DefinedSize(), 20);
    EXPECT_EQ(f.Item("wide").Precision(), 38);
    EXPECT_EQ(f.Item("wide").NumericScale(), 10);
    EXPECT_EQ(f.Item("bin").Type(), zt::ado::adLongVarBinary);
    EXPECT_EQ(f.Item("v").Attributes() & zt::ado::adFldIsNullable, 0);
    rs->Close();
    // The NOT NULL column's default came too: a row without it takes ''.
    cn->Execute(std::string("INSERT INTO ") + kTypes + " (nId) VALUES (99)");
    EXPECT_EQ(cn->Execute(std::string("SELECT v FROM ") + kTypes + " WHERE nId = 99")
                  ->Fields(0)
                  .Value()
                  .ToText(),
              "");
  }
}

// A real database nobody here wrote: eleven tables, every value, every key and index.
TEST_P(CopyTypesTest, ChinookArrivesWhole) {
  const std::filesystem::path file = std::filesystem::path(ZT_TEST_DATA_DIR) / "chinook.sqlite";
  ASSERT_TRUE(std::filesystem::exists(file)) << file;
  std::filesystem::copy_file(file, dir_ / "chinook.db");
  auto source = Store("SQLite", "chinook.db");
  auto target = Store(GetParam(), "chinook-copy.db");
  auto src = source->GetConnection(1);
  std::vector<std::string> tables;
  auto rs = src->Execute(
      "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite%' ORDER BY 1");
  for (; !rs->Eof(); rs->MoveNext()) tables.push_back(rs->Fields(0).Value().ToText());
  ASSERT_EQ(tables.size(), 11u);
  for (const auto& t : tables) {
    SCOPED_TRACE(t);
    Drop(target, t);
    auto cn = CopyAndVerify(source, target, t, zt::kCopyIndexes);
    EXPECT_EQ(dt_.GetTableIndexes(cn, t).size(), dt_.GetTableIndexes(src, t).size());
  }
}

// A real Access file (Northwind, Access 97) goes to each engine whole: Singles, Currency,
// pictures and Nulls value by value, keys and indexes, Required columns as NOT NULL and no
// others, text lengths in characters. The file is the shared real data's, read where it is.
TEST_P(CopyTypesTest, NorthwindArrivesWhole) {
  const std::filesystem::path file =
      std::filesystem::path(__FILE__).parent_path() / "../../../shared/realdata/nwind.mdb";
  if (!std::filesystem::exists(file))
    GTEST_SKIP() << "no " << file << " (the shared real data is absent)";
  std::filesystem::copy_file(file, dir_ / "nwind.mdb");
  auto source = Store("SQLite", "nwind.mdb");
  auto target = Store(GetParam(), "nwind-copy.db");
  auto src = source->GetConnection(1);
  ASSERT_EQ(src->Engine(), "Access");
  std::vector<std::string> tables;
  auto rs = src->OpenSchema(zt::ado::adSchemaTables,
                            Variant::Array({Variant(), Variant(), Variant(), "TABLE"}));
  for (; !rs->Eof(); rs->MoveNext()) tables.push_back(rs->Value("TABLE_NAME").ToText());
  ASSERT_EQ(tables.size(), 9u);
  for (const auto& t : tables) {
    SCOPED_TRACE(t);
    Drop(target, t);
    auto cn = CopyAndVerify(source, target, t, zt::kCopyIndexes);
    EXPECT_EQ(dt_.GetTableIndexes(cn, t).size(), dt_.GetTableIndexes(src, t).size());
  }
  auto cn = target->GetConnection(1);
  zt::Recordset employees;
  employees.Open("SELECT * FROM [Employees] WHERE 1 = 0", cn);
  EXPECT_FALSE(employees.Fields("LastName").Attributes() & zt::ado::adFldIsNullable);
  EXPECT_TRUE(employees.Fields("Title").Attributes() & zt::ado::adFldIsNullable);
  EXPECT_EQ(employees.Fields("LastName").DefinedSize(), 20);
  auto orders = cn->Execute("SELECT COUNT(*) FROM [Orders] WHERE [ShippedDate] IS NULL");
  EXPECT_EQ(orders->Fields(0).Value().ToInt32(), 21);
}

// Each planted difference is found and named: a changed value, a lost row, a narrowed double,
// a cut blob.
TEST_P(CopyTypesTest, VerifyFindsEveryPlantedDifference) {
  auto origin = Store("SQLite", "origin.db");
  MakeMatrix(origin);
  auto target = Store(GetParam(), "target.db");
  auto cn = CopyAndVerify(origin, target, kTypes, 0);
  auto src = origin->GetConnection(1);
  const auto expect_found = [&](const std::string& change, const std::string& named) {
    SCOPED_TRACE(change);
    cn->Execute(change);
    const auto v = dt_.VerifyCopy(src, cn, kTypes);
    EXPECT_FALSE(v.same);
    EXPECT_NE(v.first_difference.find(named), std::string::npos) << v.first_difference;
    CopyAndVerify(origin, target, kTypes, 0);  // back to a true copy
  };
  expect_found(std::string("UPDATE ") + kTypes + " SET [t] = 'y' WHERE [nId] = 3", "[t]");
  expect_found(std::string("DELETE FROM ") + kTypes + " WHERE [nId] = 2", "missing");
  expect_found(std::string("UPDATE ") + kTypes + " SET [d] = 0.10000000149011612 WHERE [nId] = 3",
               "[d]");
  expect_found(std::string("UPDATE ") + kTypes + " SET [bin] = NULL WHERE [nId] = 1", "[bin]");
  // Rows the copy refused may be missing, no others.
  cn->Execute(std::string("DELETE FROM ") + kTypes + " WHERE [nId] = 4");
  EXPECT_TRUE(dt_.VerifyCopy(src, cn, kTypes, 1).same);
  EXPECT_FALSE(dt_.VerifyCopy(src, cn, kTypes, 0).same);
}

// Replacing the rows of a table that another table references with ON DELETE CASCADE would
// delete that table's rows: refused, and both tables stay as they were.
TEST_P(CopyTypesTest, AReplacementThatWouldCascadeIsRefused) {
  auto source = Store("SQLite", "origin.db");
  auto target = Store(GetParam(), "target.db");
  auto tcn = target->GetConnection(1);
  Drop(target, "zt_child");
  Drop(target, "zt_parent");
  Drop(source, "zt_parent");
  source->GetConnection(1)->Execute("CREATE TABLE zt_parent (nId INTEGER PRIMARY KEY)");
  source->GetConnection(1)->Execute("INSERT INTO zt_parent VALUES (1)");
  tcn->Execute("CREATE TABLE zt_parent (nId INTEGER NOT NULL PRIMARY KEY)");
  tcn->Execute(
      "CREATE TABLE zt_child (nId INTEGER NOT NULL PRIMARY KEY, nParent INTEGER, FOREIGN KEY "
      "(nParent) REFERENCES zt_parent (nId) ON DELETE CASCADE)");
  tcn->Execute("INSERT INTO zt_parent VALUES (1)");
  tcn->Execute("INSERT INTO zt_child VALUES (10, 1)");
  for (std::int32_t options : {0, zt::kCopyReplace}) {
    EXPECT_THROW(dt_.CopyTable(*source, source->GetConnection(1), "zt_parent", *target, options),
                 zt::ZtError);
    EXPECT_EQ(tcn->Execute("SELECT COUNT(*) FROM zt_child")->Fields(0).Value().ToInt32(), 1);
  }
}

INSTANTIATE_TEST_SUITE_P(Live, CopyTypesTest, ::testing::Values("SQLite", "PostgreSQL", "MariaDB"),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                           return info.param;
                         });

}  // namespace
