// Table and data-store copies between real engines: a small help-desk store is copied from one
// engine to another and both sides are compared column by column (names as written, types,
// lengths, nullability, indexes) and row by row. Then the copies that must not go through: a
// record too long for its target column, a table whose copy fails, the Jet system tables.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
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

constexpr const char* kCalls = "zt_cp_calls";
constexpr const char* kUsers = "zt_cp_users";
constexpr const char* kBad = "zt_cp_bad";

struct Pair {
  std::string from, to;
};

void PrintTo(const Pair& p, std::ostream* os) {
  *os << p.from << "->" << p.to;
}

// One value as text that every engine gives alike: Booleans as -1/0, numbers to four decimals,
// dates to the second.
std::string Canonical(const Variant& v) {
  if (v.IsNull() || v.IsEmpty()) return "NULL";
  switch (v.Type()) {
    case zt::VarType::Boolean:  // as the number it stands for: MariaDB holds -1 itself
      return v.ToBool() ? "-1.0000" : "0.0000";
    case zt::VarType::Date: {
      char buf[32];
      std::snprintf(buf, sizeof buf, "%.5f", v.ToDouble());
      return buf;
    }
    case zt::VarType::String:
      return "'" + v.ToText() + "'";
    default: {
      char buf[64];
      std::snprintf(buf, sizeof buf, "%.4f", v.ToDouble());
      return buf;
    }
  }
}

// Every row in key order, every value canonical.
std::vector<std::string> Rows(Connection& cn, const std::string& table, const std::string& key) {
  std::vector<std::string> out;
  auto rs = cn.Execute("SELECT * FROM [" + table + "] ORDER BY [" + key + "]");
  for (; !rs->Eof(); rs->MoveNext()) {
    std::string row;
    auto& f = rs->GetFields();
    for (std::int32_t i = 0; i < f.Count(); ++i)
      row += f.Item(i).Name() + "=" + Canonical(f.Item(i).Value()) + ";";
    out.push_back(row);
  }
  return out;
}

// The table as the library reads it back: columns (DAO code, length, nullability) and indexes
// (kind, name, columns). A primary key is compared by its columns: each engine reports its own
// name for it ("PrimaryKey", "PRIMARY", "PK_" + table). Two declarations read back as another
// DAO code than the one they were made from, on the engines where the library itself declares
// them so: Currency as DECIMAL(19,4) reads as Decimal (20), MariaDB's TINYINT(1) Boolean as
// Byte (2).
std::string Shape(zt::CZtDTMgr& dt, const std::shared_ptr<Connection>& cn,
                  const std::string& table) {
  std::string out;
  for (const auto& f : dt.GetAllFieldsInfo(cn, table)) {
    std::int32_t dao = f.dao_type == 20 ? 5 : f.dao_type;
    if (dao == 2 && zt::platform::AsciiLower(cn->Engine()) == "mariadb") dao = 1;
    out += f.name + " dao=" + std::to_string(dao) + " size=" + std::to_string(f.size) +
           (f.nullable ? " null" : " not null") + "\n";
  }
  auto indexes = dt.GetTableIndexes(cn, table);
  for (auto& i : indexes) i.name = i.kind == zt::kIndexKindPrimaryKey ? "<primary key>" : i.name;
  std::sort(indexes.begin(), indexes.end(),
            [](const auto& a, const auto& b) { return a.name < b.name; });
  for (const auto& i : indexes) {
    out += "index " + i.name + " kind=" + std::to_string(i.kind);
    for (const auto& c : i.columns) out += " " + c;
    out += "\n";
  }
  return out;
}

class CopyEngineTest : public ::testing::TestWithParam<Pair> {
 protected:
  void SetUp() override {
    const Engine& from = EngineNamed(GetParam().from);
    const Engine& to = EngineNamed(GetParam().to);
    ZT_NEED_ENGINE(from.Available(), from.name);
    ZT_NEED_ENGINE(to.Available(), to.name);
    dir_ = std::filesystem::temp_directory_path() / ("zt_copy_" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir_);
    source_ = Open(from, "source.db");
    target_ = Open(to, "target.db");
    src_cn_ = source_->GetConnection(1);
    tgt_cn_ = target_->GetConnection(1);
    for (auto* t : {kCalls, kUsers, kBad, "MSysObjects", "IN_zt_cp_bad_Notes"}) {
      Drop(*src_cn_, t);
      Drop(*tgt_cn_, t);
    }
  }
  void TearDown() override {
    for (auto* cn : {src_cn_.get(), tgt_cn_.get()})
      if (cn)
        for (auto* t : {kCalls, kUsers, kBad, "MSysObjects", "IN_zt_cp_bad_Notes"}) Drop(*cn, t);
    if (source_) source_->CloseConnections();
    if (target_) target_->CloseConnections();
    std::filesystem::remove_all(dir_);
  }

  std::shared_ptr<CZtDataStore> Open(const Engine& e, const std::string& file) {
    auto ds = e.MakeStore(dir_.string(), file);
    if (e.is_file && !std::filesystem::exists(dir_ / file)) ds->CreatePhysicalDataStore();
    return ds;
  }
  static void Drop(Connection& cn, const std::string& table) {
    cn.Execute("DROP TABLE IF EXISTS [" + table + "]");
  }

  // The engine's own column type for a DAO type, as the library creates its tables.
  std::string T(Connection& cn, std::int32_t dao, std::int32_t size = 0) {
    return cn.ColumnType(dao, size);
  }

  void Insert(Connection& cn, const std::string& table, const std::vector<Variant>& values) {
    auto rs = std::make_shared<zt::Recordset>();
    rs->Open("SELECT * FROM [" + table + "]", cn.shared_from_this(), zt::ado::adOpenKeyset,
             zt::ado::adLockOptimistic);
    rs->AddNew();
    for (std::size_t i = 0; i < values.size(); ++i)
      if (!values[i].IsNull()) rs->Fields(static_cast<std::int32_t>(i)).SetValue(values[i]);
    rs->Update();
    rs->Close();
  }

  // The sample store: calls with every kind of value, a key, a unique and a plain index; users
  // with a key.
  void MakeSample(Connection& cn) {
    const auto cns = cn.shared_from_this();
    // The application writes -1 and 0; MariaDB's TINYINT(1) takes them as they are, the other
    // engines through their Boolean type.
    const bool maria = zt::platform::AsciiLower(cn.Engine()) == "mariadb";
    const Variant yes = maria ? Variant(std::int32_t{-1}) : Variant(true);
    const Variant no = maria ? Variant(std::int32_t{0}) : Variant(false);
    cn.Execute(std::string("CREATE TABLE [") + kCalls + "] ([nId] " + T(cn, 4) +
               " NOT NULL, [tCustomer] " + T(cn, 10, 50) + " NOT NULL, [tNotes] " + T(cn, 12) +
               ", [dAmount] " + T(cn, 7) + ", [cPrice] " + T(cn, 5) + ", [fDone] " + T(cn, 1) +
               ", [dtOpened] " + T(cn, 8) + ", [tCategory] " + T(cn, 10, 20) + ")");
    dt_.CreatePrimaryKey(cns, kCalls, Variant::Array({"nId"}));
    dt_.CreateIndex(cns, kCalls, Variant::Array({"tCustomer"}), "Customer", zt::kIndexKindUnique);
    dt_.CreateIndex(cns, kCalls, Variant::Array({"tCategory"}), "Category", zt::kIndexKindPlain);
    const auto d = zt::Date::FromParts(2024, 2, 29, 13, 45, 59);
    Insert(cn, kCalls,
           {1, "Müller & Söhne", "long note\nwith a line break", 12.5,
            zt::Currency::FromDouble(1234.5678), yes, d, "Printer"});
    Insert(cn, kCalls,
           {2, "O'Brien", Variant::Null(), -0.25, zt::Currency::FromDouble(0), no, Variant::Null(),
            Variant::Null()});
    Insert(cn, kCalls,
           {3, "ACME", "", Variant::Null(), Variant::Null(), yes, zt::Date::FromParts(1999, 12, 31),
            "Network"});
    cn.Execute(std::string("CREATE TABLE [") + kUsers + "] ([nUserId] " + T(cn, 4) +
               " NOT NULL, [tName] " + T(cn, 10, 30) + ")");
    dt_.CreatePrimaryKey(cns, kUsers, Variant::Array({"nUserId"}));
    Insert(cn, kUsers, {7, "admin"});
  }

  std::filesystem::path dir_;
  zt::testing::RecordingEnv env_;
  std::shared_ptr<CZtDataStore> source_, target_;
  std::shared_ptr<Connection> src_cn_, tgt_cn_;
  zt::CZtDTMgr dt_;
};

TEST_P(CopyEngineTest, TablesArriveWithTheirShapeAndRows) {
  MakeSample(*src_cn_);
  std::vector<zt::CopyProgress> progress;
  dt_.SetCopyProgress([&](const zt::CopyProgress& p) { progress.push_back(p); });
  for (const char* table : {kCalls, kUsers}) {
    ASSERT_TRUE(dt_.CopyTable(*source_, src_cn_, table, *target_, zt::kCopyIndexes)) << table;
    EXPECT_EQ(dt_.RecordsFailed(), 0);
    EXPECT_EQ(Shape(dt_, src_cn_, table), Shape(dt_, tgt_cn_, table)) << table;
    const std::string key = table == std::string(kCalls) ? "nId" : "nUserId";
    EXPECT_EQ(Rows(*src_cn_, table, key), Rows(*tgt_cn_, table, key)) << table;
  }
  ASSERT_EQ(dt_.LastCopyResults().size(), 1u);
  EXPECT_EQ(dt_.LastCopyResults()[0].rows, 1);
  ASSERT_GE(progress.size(), 4u);
  EXPECT_EQ(progress.front().table, kCalls);
  EXPECT_EQ(progress.front().rows_total, 3);
  EXPECT_TRUE(progress.back().done);

  // Copied again without option 1: the old rows go, the table holds the copy once.
  ASSERT_TRUE(dt_.CopyTable(*source_, src_cn_, kCalls, *target_, 0));
  EXPECT_EQ(Rows(*src_cn_, kCalls, "nId"), Rows(*tgt_cn_, kCalls, "nId"));
  // With option 1 the rows are added to those there: the key refuses all three.
  ASSERT_TRUE(dt_.CopyTable(*source_, src_cn_, kCalls, *target_, zt::kCopyAppend));
  EXPECT_EQ(dt_.RecordsCopied(), 0);
  EXPECT_EQ(dt_.RecordsFailed(), 3);
  EXPECT_EQ(Rows(*src_cn_, kCalls, "nId"), Rows(*tgt_cn_, kCalls, "nId"));
  // A row the target lacks goes in beside the refused ones.
  tgt_cn_->Execute(std::string("DELETE FROM [") + kCalls + "] WHERE [nId] = 2");
  ASSERT_TRUE(dt_.CopyTable(*source_, src_cn_, kCalls, *target_, zt::kCopyAppend));
  EXPECT_EQ(dt_.RecordsCopied(), 1);
  EXPECT_EQ(dt_.RecordsFailed(), 2);
  EXPECT_EQ(Rows(*src_cn_, kCalls, "nId"), Rows(*tgt_cn_, kCalls, "nId"));
  EXPECT_TRUE(dt_.VerifySameFields(*source_, *target_, kCalls));
}

TEST_P(CopyEngineTest, ARecordTooLongIsCountedAndTheRestCopied) {
  const std::string t60 = T(*src_cn_, 10, 60);
  src_cn_->Execute(std::string("CREATE TABLE [") + kBad + "] ([nId] " + T(*src_cn_, 4) +
                   " NOT NULL, [tName] " + t60 + ")");
  Insert(*src_cn_, kBad, {1, std::string(50, 'a')});
  Insert(*src_cn_, kBad, {2, std::string(60, 'b')});
  Insert(*src_cn_, kBad, {3, "c"});
  tgt_cn_->Execute(std::string("CREATE TABLE [") + kBad + "] ([nId] " + T(*tgt_cn_, 4) +
                   " NOT NULL, [tName] " + T(*tgt_cn_, 10, 50) + ")");
  Insert(*tgt_cn_, kBad, {9, "old"});
  ASSERT_TRUE(dt_.CopyTable(*source_, src_cn_, kBad, *target_, 0));
  EXPECT_EQ(dt_.RecordsCopied(), 2);
  EXPECT_EQ(dt_.RecordsFailed(), 1);
  const auto& r = dt_.LastCopyResults().at(0);
  ASSERT_EQ(r.messages.size(), 2u);
  EXPECT_EQ(r.messages[0], ".CopyFieldValue, Field: tName, Value: " + std::string(60, 'b') +
                               "  Source field value too long for target field.");
  EXPECT_EQ(r.messages[1], "1 records could not be copied.");
  auto rows = Rows(*tgt_cn_, kBad, "nId");
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[1], "nId=3.0000;tName='c';");
}

TEST_P(CopyEngineTest, AFailedCopyLeavesTheTargetAsItWas) {
  // A table whose rows cannot be read: the old rows of the target come back.
  tgt_cn_->Execute(std::string("CREATE TABLE [") + kBad + "] ([nId] " + T(*tgt_cn_, 4) + ")");
  Insert(*tgt_cn_, kBad, {41});
  Insert(*tgt_cn_, kBad, {42});
  EXPECT_THROW(dt_.CopyTable(*source_, src_cn_, kBad, *target_, 0), zt::ZtError);
  EXPECT_EQ(Rows(*tgt_cn_, kBad, "nId").size(), 2u);
  EXPECT_FALSE(dt_.LastCopyResults().at(0).copied);
  EXPECT_FALSE(dt_.LastCopyResults().at(0).error.empty());
  Drop(*tgt_cn_, kBad);

  // A structure the target refuses half-way, after its CREATE TABLE: on SQLite and PostgreSQL
  // an index name already taken by a table (their index names share the tables' namespace),
  // on MariaDB (whose DDL commits itself) an index name longer than its 64 characters. No table
  // is left behind.
  const bool maria = GetParam().to == "MariaDB";
  src_cn_->Execute(std::string("CREATE TABLE [") + kBad + "] ([nId] " + T(*src_cn_, 4) +
                   ", [tNotes] " + T(*src_cn_, 12) + ", [tCat] " + T(*src_cn_, 10, 10) + ")");
  dt_.CreateIndex(src_cn_, kBad, Variant::Array({"tCat"}),
                  maria ? "Notes" + std::string(70, 'x') : std::string("Notes"),
                  zt::kIndexKindPlain);
  Insert(*src_cn_, kBad, {1, "x", "y"});
  if (!maria) tgt_cn_->Execute("CREATE TABLE [IN_zt_cp_bad_Notes] ([n] " + T(*tgt_cn_, 4) + ")");
  EXPECT_FALSE(dt_.CopyTable(*source_, src_cn_, kBad, *target_, zt::kCopyIndexes));
  EXPECT_FALSE(dt_.TableExists(tgt_cn_, kBad));
  EXPECT_NE(dt_.LastCopyResults().at(0).error.find("could not be copied"), std::string::npos);
}

TEST_P(CopyEngineTest, AWholeStoreWithoutTheSystemTables) {
  MakeSample(*src_cn_);
  src_cn_->Execute("CREATE TABLE [MSysObjects] ([Id] " + T(*src_cn_, 4) + ")");
  std::vector<std::string> not_copied;
  EXPECT_TRUE(dt_.CopyPhysicalDataStore(*source_, *target_, *source_, false, &not_copied));
  EXPECT_TRUE(not_copied.empty());
  EXPECT_FALSE(dt_.TableExists(tgt_cn_, "MSysObjects"));
  std::map<std::string, std::int64_t> counts;
  for (const auto& r : dt_.LastCopyResults()) {
    if (r.table != kCalls && r.table != kUsers) continue;  // the server's other tables
    EXPECT_TRUE(r.copied) << r.table << ": " << r.error;
    EXPECT_EQ(r.source_rows, r.target_rows) << r.table;
    counts[r.table] = r.target_rows;
  }
  EXPECT_EQ(counts[kCalls], 3);
  EXPECT_EQ(counts[kUsers], 1);
  EXPECT_EQ(Rows(*src_cn_, kCalls, "nId"), Rows(*tgt_cn_, kCalls, "nId"));
}

INSTANTIATE_TEST_SUITE_P(Live, CopyEngineTest,
                         ::testing::Values(Pair{"SQLite", "PostgreSQL"}, Pair{"SQLite", "MariaDB"},
                                           Pair{"PostgreSQL", "SQLite"},
                                           Pair{"MariaDB", "PostgreSQL"}),
                         [](const ::testing::TestParamInfo<Pair>& info) {
                           return info.param.from + "To" + info.param.to;
                         });

}  // namespace

namespace {

// Between two SQLite files, a table of 12,000 rows: progress at the start, every 5,000 rows and
// at the end, with the total known beforehand.
TEST(CopyProgressTest, StartEveryFiveThousandRowsAndEnd) {
  zt::testing::RecordingEnv env;
  const auto dir =
      std::filesystem::temp_directory_path() / ("zt_copy_progress_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  const Engine& sqlite = EngineNamed("SQLite");
  auto source = sqlite.MakeStore(dir.string(), "a.db");
  auto target = sqlite.MakeStore(dir.string(), "b.db");
  source->CreatePhysicalDataStore();
  target->CreatePhysicalDataStore();
  auto cn = source->GetConnection(1);
  cn->Execute("CREATE TABLE [tblMany] ([nId] LONG NOT NULL, [tText] TEXT(20))");
  cn->Execute(
      "INSERT INTO [tblMany] WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
      "WHERE i < 12000) SELECT i, 'row ' || i FROM n");
  zt::CZtDTMgr dt;
  std::vector<std::pair<std::int64_t, bool>> seen;
  dt.SetCopyProgress([&](const zt::CopyProgress& p) {
    EXPECT_EQ(p.table, "tblMany");
    EXPECT_EQ(p.rows_total, 12000);
    seen.emplace_back(p.rows_done, p.done);
  });
  // Rows into a table in the caller's transaction go record by record: a report every 5,000.
  auto tcn = target->GetConnection(1);
  tcn->Execute("CREATE TABLE [tblMany] ([nId] LONG NOT NULL, [tText] TEXT(20))");
  tcn->BeginTrans();
  ASSERT_TRUE(dt.CopyTable(*source, cn, "tblMany", *target, 0));
  tcn->CommitTrans();
  EXPECT_EQ(seen, (std::vector<std::pair<std::int64_t, bool>>{
                      {0, false}, {5000, false}, {10000, false}, {12000, true}}));
  // A replaced table goes the fast way (here one INSERT ... SELECT between the files): it
  // reports its start and its end.
  seen.clear();
  ASSERT_TRUE(dt.CopyTable(*source, cn, "tblMany", *target, zt::kCopyReplace));
  ASSERT_GE(seen.size(), 2u);
  EXPECT_EQ(seen.front(), (std::pair<std::int64_t, bool>{0, false}));
  EXPECT_EQ(seen.back(), (std::pair<std::int64_t, bool>{12000, true}));
  const auto& r = dt.LastCopyResults().at(0);
  EXPECT_TRUE(r.copied);
  EXPECT_EQ(r.rows, 12000);
  EXPECT_EQ(target->GetConnection(1)
                ->Execute("SELECT COUNT(*) FROM [tblMany]")
                ->Fields(0)
                .Value()
                .ToInt64(),
            12000);
  source->CloseConnections();
  target->CloseConnections();
  std::filesystem::remove_all(dir);
}

}  // namespace
