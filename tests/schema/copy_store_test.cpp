// Whole stores copied onto each engine with CopyPhysicalDataStore: what makes tables a store
// (relationships, numbering, defaults, views) arrives too, and whatever cannot is named with its
// reason while every row still arrives. Each test copies into a database of its own, so the
// relationships it makes never reach another suite's tables.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "support/engines.h"
#include "support/test_env.h"
#include "zt/datastore.h"
#include "zt/platform.h"
#include "zt/schema/dt_mgr.h"

namespace {

using zt::CZtDataStore;
using zt::StoreObjectResult;
using zt::Variant;
using zt::testing::EngineNamed;

namespace fs = std::filesystem;

class CopyStoreTest : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    ZT_NEED_ENGINE(EngineNamed(GetParam()).Available(), GetParam());
    dir_ = fs::temp_directory_path() / ("zt_store_copy_" + std::to_string(::getpid()));
    fs::create_directories(dir_);
  }
  void TearDown() override {
    for (auto& ds : made_) {
      ds->CloseConnections();
      if (ds->GeneralProviderType() != zt::kProviderJet) {
        try {
          ds->DeletePhysicalDataStore();
        } catch (const zt::ZtError&) {
        }
      }
    }
    fs::remove_all(dir_);
  }

  // A new, empty store of `engine`: a file in the test's folder, or a database of its own.
  std::shared_ptr<CZtDataStore> NewStore(const std::string& engine, const std::string& name) {
    const auto& e = EngineNamed(engine);
    static int serial = 0;
    auto ds = e.MakeStore(dir_.string(), name + ".db");
    if (!e.is_file)
      ds->DataStoreName("zt_sc_" + std::to_string(::getpid()) + "_" + std::to_string(++serial));
    ds->CreatePhysicalDataStore();
    made_.push_back(ds);
    return ds;
  }
  // An SQLite store over a copy of `file`.
  std::shared_ptr<CZtDataStore> FileStore(const fs::path& file) {
    fs::copy_file(file, dir_ / file.filename());
    auto ds = EngineNamed("SQLite").MakeStore(dir_.string(), file.filename().string());
    made_.push_back(ds);
    return ds;
  }

  // Copies the whole store; every table must arrive complete.
  void CopyWhole(CZtDataStore& from, CZtDataStore& to) {
    std::vector<std::string> not_copied;
    EXPECT_TRUE(dt_.CopyPhysicalDataStore(from, to, from, false, &not_copied))
        << (not_copied.empty() ? "" : not_copied.front());
    for (const auto& r : dt_.LastCopyResults()) {
      EXPECT_TRUE(r.copied) << r.table << ": " << r.error;
      EXPECT_EQ(r.source_rows, r.target_rows) << r.table;
    }
  }
  // The entries of the last copy of `kind`: how many were kept, and the reasons of the others.
  std::pair<int, std::vector<std::string>> Objects(const std::string& kind) {
    std::pair<int, std::vector<std::string>> out{0, {}};
    for (const StoreObjectResult& r : dt_.LastCopyObjects()) {
      if (r.kind != kind) continue;
      if (r.kept)
        ++out.first;
      else
        out.second.push_back(r.table + "." + r.name + ": " + r.detail);
    }
    return out;
  }
  // The relationships the store holds, by the table that holds them.
  static std::map<std::string, int> ForeignKeys(CZtDataStore& ds) {
    std::map<std::string, int> out;
    auto rs = ds.GetConnection(1)->OpenSchema(zt::ado::adSchemaForeignKeys);
    for (; !rs->Eof(); rs->MoveNext())
      if (rs->Value("ORDINAL").ToInt32() == 1) ++out[rs->Value("FK_TABLE_NAME").ToText()];
    return out;
  }
  static Variant One(CZtDataStore& ds, const std::string& sql) {
    return ds.GetConnection(1)->Execute(sql)->Fields(0).Value();
  }

  fs::path dir_;
  zt::testing::RecordingEnv env_;
  std::vector<std::shared_ptr<CZtDataStore>> made_;
  zt::CZtDTMgr dt_;
};

// Chinook to the engine and back to SQLite: its 11 relationships both ways, and the keys the
// engine numbered keep numbering after the highest copied id on each side.
TEST_P(CopyStoreTest, ChinookKeepsItsRelationshipsAndNumberingBothWays) {
  auto source = FileStore(fs::path(ZT_TEST_DATA_DIR) / "chinook.sqlite");
  auto target = NewStore(GetParam(), "target");
  CopyWhole(*source, *target);
  EXPECT_EQ(Objects("foreign key"), (std::pair<int, std::vector<std::string>>{11, {}}));
  EXPECT_EQ(Objects("identity"), (std::pair<int, std::vector<std::string>>{10, {}}));
  const auto keys = ForeignKeys(*target);
  EXPECT_EQ(keys, ForeignKeys(*source));
  EXPECT_EQ(keys.at("Track"), 3);
  for (const auto& r : dt_.LastCopyResults()) {
    const auto v = dt_.VerifyCopy(source->GetConnection(1), target->GetConnection(1), r.table);
    EXPECT_TRUE(v.same) << r.table << ": " << v.first_difference;
  }

  auto back = NewStore("SQLite", "back");
  CopyWhole(*target, *back);
  EXPECT_EQ(ForeignKeys(*back), keys);
  for (auto* ds : {target.get(), back.get()}) {
    ds->GetConnection(1)->Execute("INSERT INTO [Artist] ([Name]) VALUES ('Nobody Yet')");
    EXPECT_EQ(One(*ds, "SELECT [ArtistId] FROM [Artist] WHERE [Name] = 'Nobody Yet'").ToInt64(),
              276);
    // The relationship holds on the copy: a track of an album that does not exist is refused.
    EXPECT_THROW(ds->GetConnection(1)->Execute(
                     "INSERT INTO [Track] ([TrackId], [Name], [AlbumId], [MediaTypeId], "
                     "[Milliseconds], [UnitPrice]) VALUES (9999, 'x', 9999, 1, 1, 0.99)"),
                 zt::ZtError);
    zt::Err().Clear();
  }
}

// A store with what a target cannot keep: a relationship that a row breaks (the row still
// arrives, the relationship is named with the row), a default with no portable form, next to
// a default, a view and a relationship that do arrive.
TEST_P(CopyStoreTest, WhatCannotBeKeptIsNamedAndNoRowIsLost) {
  auto source = NewStore("SQLite", "source");
  auto cn = source->GetConnection(1);
  cn->Execute("PRAGMA foreign_keys = OFF");
  cn->Execute(
      "CREATE TABLE [zt_parent] ([nId] INTEGER PRIMARY KEY, [tName] TEXT(20) DEFAULT 'it''s', "
      "[nAbs] LONG DEFAULT (abs(-1)), [dMade] DATETIME DEFAULT CURRENT_TIMESTAMP)");
  cn->Execute(
      "CREATE TABLE [zt_child] ([nId] LONG NOT NULL PRIMARY KEY, [nParent] INTEGER REFERENCES "
      "[zt_parent] ([nId]) ON DELETE CASCADE)");
  cn->Execute(
      "CREATE TABLE [zt_other] ([nId] LONG NOT NULL PRIMARY KEY, [nParent] INTEGER, FOREIGN KEY "
      "([nParent]) REFERENCES [zt_parent] ([nId]))");
  cn->Execute("INSERT INTO [zt_parent] ([nId], [tName]) VALUES (1, 'one'), (2, 'two')");
  cn->Execute("INSERT INTO [zt_child] VALUES (10, 1), (11, 9)");
  cn->Execute("INSERT INTO [zt_other] VALUES (20, 2), (21, NULL)");
  cn->Execute("CREATE VIEW [zt_named] AS SELECT [nId], [tName] FROM [zt_parent] WHERE [nId] > 1");

  auto target = NewStore(GetParam(), "target");
  CopyWhole(*source, *target);
  const auto [fk_kept, fk_lost] = Objects("foreign key");
  EXPECT_EQ(fk_kept, 1);
  ASSERT_EQ(fk_lost.size(), 1u) << fk_lost.back();
  EXPECT_NE(fk_lost[0].find("1 row of zt_child refer to no row of zt_parent (first: nParent = 9)"),
            std::string::npos)
      << fk_lost[0];
  EXPECT_EQ(One(*target, "SELECT COUNT(*) FROM [zt_child]").ToInt32(), 2);
  const auto [defaults_kept, defaults_lost] = Objects("default");
  EXPECT_EQ(defaults_kept, 2);
  ASSERT_EQ(defaults_lost.size(), 1u);
  EXPECT_NE(defaults_lost[0].find("zt_parent.nAbs"), std::string::npos);
  EXPECT_EQ(Objects("view"), (std::pair<int, std::vector<std::string>>{1, {}}));
  EXPECT_EQ(One(*target, "SELECT [tName] FROM [zt_named]").ToText(), "two");
  // The kept defaults work on the target: a row given only its key gets both.
  target->GetConnection(1)->Execute("INSERT INTO [zt_parent] ([nId]) VALUES (3)");
  EXPECT_EQ(One(*target, "SELECT [tName] FROM [zt_parent] WHERE [nId] = 3").ToText(), "it's");
  EXPECT_FALSE(One(*target, "SELECT [dMade] FROM [zt_parent] WHERE [nId] = 3").IsNull());
  // Only the relationship that no row breaks is on the target.
  EXPECT_EQ(ForeignKeys(*target), (std::map<std::string, int>{{"zt_other", 1}}));
}

// Northwind in an Access file: its seven enforced relationships, with their cascades, and its
// seven AutoNumbers arrive; its saved queries, which the file keeps without SQL text, are named.
TEST_P(CopyStoreTest, NorthwindFromAccessKeepsRelationshipsAndAutoNumbers) {
  const fs::path file = fs::path(__FILE__).parent_path() / "../../../shared/realdata/nwind.mdb";
  if (!fs::exists(file)) GTEST_SKIP() << "no " << file << " (the shared real data is absent)";
  auto source = FileStore(file);
  auto target = NewStore(GetParam(), "target");
  CopyWhole(*source, *target);
  EXPECT_EQ(Objects("foreign key"), (std::pair<int, std::vector<std::string>>{7, {}}));
  EXPECT_EQ(Objects("identity"), (std::pair<int, std::vector<std::string>>{7, {}}));
  EXPECT_EQ(Objects("view").first, 0);
  EXPECT_EQ(Objects("view").second.size(), 22u);
  EXPECT_EQ(Objects("default").second, std::vector<std::string>{});
  auto cn = target->GetConnection(1);
  auto rs = cn->OpenSchema(zt::ado::adSchemaForeignKeys,
                           Variant::Array({Variant(), Variant(), Variant("Orders"), Variant(),
                                           Variant(), Variant("Order Details")}));
  ASSERT_FALSE(rs->Eof());
  EXPECT_EQ(rs->Value("DELETE_RULE").ToText(), "CASCADE");
  cn->Execute("INSERT INTO [Shippers] ([CompanyName]) VALUES ('Nobody Yet')");
  EXPECT_EQ(One(*target, "SELECT [ShipperID] FROM [Shippers] WHERE [CompanyName] = 'Nobody Yet'")
                .ToInt32(),
            4);
  // A Yes/No is never Null in Access: NOT NULL, with its default.
  zt::Recordset products;
  products.Open("SELECT * FROM [Products] WHERE 1 = 0", cn);
  EXPECT_FALSE(products.Fields("Discontinued").Attributes() & zt::ado::adFldIsNullable);
}

INSTANTIATE_TEST_SUITE_P(Live, CopyStoreTest, ::testing::Values("SQLite", "PostgreSQL", "MariaDB"),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                           return info.param;
                         });

}  // namespace
