// CZtDTMgr on an SQLite file (the Jet stand-in): what is particular to the schema operations'
// own code there. The engine-neutral suite covers the changes made by the engine plans.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/test_env.h"
#include "zt/datastore.h"
#include "zt/platform.h"
#include "zt/schema/dt_mgr.h"

namespace fs = std::filesystem;

namespace {

class DTMgrSqliteTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // One folder per test process: ctest runs the tests of this file side by side.
    dir_ = fs::temp_directory_path() / ("zt-dtmgr-sqlite-" + std::to_string(::getpid()));
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    env_.app_path = dir_.string();
    env_.real_sleep = false;
    ds_->GeneralProviderType(zt::kProviderJet);
    ds_->Location(dir_.string());
    ds_->DataStoreName("help.db");
    ds_->CreatePhysicalDataStore();
    cn_ = ds_->GetConnection(1);
    cn_->Execute(
        "CREATE TABLE [tblCalls] ([nId] LONG NOT NULL, [tCustomer] TEXT(50), [tNotes] MEMO, "
        "CONSTRAINT [PK_tblCalls] PRIMARY KEY ([nId]))");
    cn_->Execute("CREATE UNIQUE INDEX [UN_tblCalls_Customer] ON [tblCalls] ([tCustomer])");
    cn_->Execute("CREATE INDEX [IN_tblCalls_Both] ON [tblCalls] ([tCustomer], [nId])");
    for (int i = 1; i <= 3; ++i)
      cn_->Execute("INSERT INTO [tblCalls] VALUES (" + std::to_string(i) + ", 'C" +
                   std::to_string(i) + "', 'n')");
  }
  void TearDown() override {
    ds_->CloseConnections();
    fs::remove_all(dir_);
  }
  std::string FileBytes() {
    std::ifstream in(ds_->FullPath(), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  zt::testing::RecordingEnv env_;
  fs::path dir_;
  std::shared_ptr<zt::CZtDataStore> ds_ = std::make_shared<zt::CZtDataStore>();
  std::shared_ptr<zt::Connection> cn_;
  zt::CZtDTMgr dt_;
};

TEST_F(DTMgrSqliteTest, ReadsOfTheSchema) {
  EXPECT_TRUE(dt_.TableExists(cn_, "tblCalls"));
  EXPECT_FALSE(dt_.TableExists(cn_, "tblNone"));
  EXPECT_TRUE(dt_.FieldExists(cn_, "tblCalls", "tCustomer"));
  EXPECT_FALSE(dt_.FieldExists(cn_, "tblCalls", "tNone"));
  EXPECT_EQ(dt_.GetFieldProperty(cn_, "tblCalls", "tNone", "DATA_TYPE").IsEmpty(), true);
  auto db = ds_->OpenDAODataStore();
  EXPECT_TRUE(dt_.FieldExistsDAO(*db, "tblCalls", "tNotes"));
  EXPECT_FALSE(dt_.FieldExistsDAO(*db, "tblCalls", "TNOTES"));  // DAO compares names exactly

  const auto fields = dt_.GetAllFieldsInfo(cn_, "tblCalls");
  ASSERT_EQ(fields.size(), 3u);
  EXPECT_EQ(fields[0].name, "nId");
  EXPECT_EQ(fields[0].dao_type, 4);
  EXPECT_FALSE(fields[0].nullable);
  EXPECT_EQ(fields[1].dao_type, 10);
  EXPECT_EQ(fields[1].size, 50);
  EXPECT_EQ(fields[2].dao_type, 12);
  try {
    dt_.GetAllFieldsInfo(cn_, "tblNone");
    ADD_FAILURE() << "no error";
  } catch (const zt::ZtError& e) {
    EXPECT_EQ(e.Number(), zt::AdoErrorNumber(zt::AdoError::kItemNotFound));
  }

  std::string key;
  std::vector<std::string> columns;
  EXPECT_TRUE(dt_.GetPrimaryKeyInfo(cn_, "tblCalls", key, columns));
  EXPECT_EQ(columns, std::vector<std::string>{"nId"});
  std::vector<zt::IndexNameInfo> indexes;
  EXPECT_TRUE(dt_.GetIndexNames(cn_, "tblCalls", "tCustomer", indexes));
  ASSERT_EQ(indexes.size(), 2u);
  for (const auto& i : indexes) {
    if (i.name == "UN_tblCalls_Customer") {
      EXPECT_EQ(i.kind, zt::kIndexKindUnique);
    }
    if (i.name == "IN_tblCalls_Both") {
      EXPECT_EQ(i.kind, zt::kIndexKindPlain);
      EXPECT_EQ(i.columns, (std::vector<std::string>{"tCustomer", "nId"}));
    }
  }
}

// Nullability and the zero-length flag go through the DAO view, which rebuilds the table with
// its rows and indexes; a dry run names the DAO changes and leaves the file as it was.
TEST_F(DTMgrSqliteTest, NullabilityThroughTheDaoViewAndDryRun) {
  EXPECT_FALSE(dt_.AddFieldToTable(*ds_, "tblCalls", "tCustomer", 10, 50, true, true));
  EXPECT_TRUE(
      env_.Logged("CZtDTMgr.AddFieldToTable, Field: [tCustomer] already exists in tblCalls"));
  // A NOT NULL text is filled with '', which a field without zero-length texts cannot hold:
  // the flags fail after the field was added, and the field goes again.
  EXPECT_THROW(dt_.AddFieldToTable(*ds_, "tblCalls", "tMust", 10, 20, false, false), zt::ZtError);
  EXPECT_FALSE(dt_.FieldExists(ds_->GetConnection(1), "tblCalls", "tMust"));

  ds_->CloseConnections();
  const std::string before = FileBytes();
  std::vector<std::string> printed;
  dt_.SetDryRun([&](const std::string& s) { printed.push_back(s); });
  dt_.SetFieldNullability(false, *ds_, "tblCalls", "tCustomer", 10, false);
  EXPECT_EQ(printed, (std::vector<std::string>{
                         "TableDefs(\"tblCalls\").Fields(\"tCustomer\").Required = True",
                         "TableDefs(\"tblCalls\").Fields(\"tCustomer\").AllowZeroLength = False"}));
  ds_->CloseConnections();
  EXPECT_EQ(FileBytes(), before);
  dt_.SetDryRun(nullptr);

  EXPECT_TRUE(dt_.SetFieldNullability(false, *ds_, "tblCalls", "tCustomer", 10, false));
  auto db = ds_->OpenDAODataStore();
  db->Refresh();
  auto& f = db->TableDefs("tblCalls").Fields("tCustomer");
  EXPECT_TRUE(f.Required());
  EXPECT_FALSE(f.AllowZeroLength());
  cn_ = ds_->GetConnection(1);
  EXPECT_EQ(cn_->Execute("SELECT COUNT(*) FROM [tblCalls]")->Fields(0).Value().ToInt32(), 3);
  std::vector<zt::IndexNameInfo> indexes;
  EXPECT_TRUE(dt_.GetIndexNames(cn_, "tblCalls", "tCustomer", indexes));
  EXPECT_EQ(indexes.size(), 2u);

  // Rows holding Null refuse NOT NULL; the table stays as it was and the error carries it.
  cn_->Execute("INSERT INTO [tblCalls] ([nId], [tCustomer]) VALUES (9, 'C9')");
  EXPECT_THROW(dt_.SetFieldNullability(false, *ds_, "tblCalls", "tNotes", 12, true), zt::ZtError);
  EXPECT_TRUE(env_.Logged("CZtDTMgr.SetFieldNullability; Table: tblCalls; Field: tNotes"));
  db->Refresh();
  EXPECT_FALSE(db->TableDefs("tblCalls").Fields("tNotes").Required());
}

// A rebuild of the table and a copy that replaces it keep what other tables and views say of
// it: another table's trigger that writes to it, a view that reads it. A replacement that would
// break the view is refused and changes nothing.
TEST_F(DTMgrSqliteTest, RebuildsAndReplacementsKeepOtherTablesTriggersAndViews) {
  cn_->Execute("CREATE TABLE [tblLog] ([nId] LONG, [tWhat] TEXT(20))");
  cn_->Execute(
      "CREATE TRIGGER [trLog] AFTER INSERT ON [tblLog] BEGIN INSERT INTO [tblCalls] (nId, "
      "tCustomer) VALUES (NEW.nId, NEW.tWhat); END");
  cn_->Execute("CREATE VIEW [vCustomers] AS SELECT tCustomer FROM [tblCalls]");
  // set-nullable rebuilds the table on SQLite
  EXPECT_TRUE(dt_.AlterFieldType(*ds_, "tblCalls", "tCustomer", 10, 60, false));
  cn_->Execute("INSERT INTO [tblLog] VALUES (7, 'C7')");
  const auto count = [&](const std::string& sql) {
    return cn_->Execute(sql)->Fields(0).Value().ToInt64();
  };
  EXPECT_EQ(count("SELECT count(*) FROM [vCustomers]"), 4);

  // The same table from another file replaces this one under the view and the trigger.
  auto other = std::make_shared<zt::CZtDataStore>();
  other->GeneralProviderType(zt::kProviderJet);
  other->Location(dir_.string());
  other->DataStoreName("other.db");
  other->CreatePhysicalDataStore();
  auto ocn = other->GetConnection(1);
  ocn->Execute("CREATE TABLE [tblCalls] ([nId] LONG NOT NULL PRIMARY KEY, [tCustomer] TEXT(50))");
  ocn->Execute("INSERT INTO [tblCalls] VALUES (1, 'X')");
  ASSERT_TRUE(dt_.CopyTable(*other, ocn, "tblCalls", *ds_, zt::kCopyReplace))
      << dt_.LastCopyResults().at(0).error;
  EXPECT_EQ(count("SELECT count(*) FROM [vCustomers]"), 1);
  cn_->Execute("INSERT INTO [tblLog] VALUES (8, 'C8')");
  EXPECT_EQ(count("SELECT count(*) FROM [tblCalls]"), 2);

  // Without tCustomer the view would break: refused, the table stays as it was.
  ocn->Execute("CREATE TABLE [tblBare] ([nId] LONG NOT NULL PRIMARY KEY)");
  ocn->Execute("DROP TABLE [tblCalls]");
  ocn->Execute("ALTER TABLE [tblBare] RENAME TO [tblCalls]");
  EXPECT_THROW(dt_.CopyTable(*other, ocn, "tblCalls", *ds_, zt::kCopyReplace), zt::ZtError);
  EXPECT_EQ(count("SELECT count(*) FROM [vCustomers]"), 2);
  other->CloseConnections();
}

// A memo holds texts as written: SQLite's numeric affinity for the declared type MEMO would have
// stored "007" as 7 and " 1.50" as 1.5. The column still reads as a memo.
TEST_F(DTMgrSqliteTest, MemoColumnsKeepTextsThatLookLikeNumbers) {
  cn_->Execute("ALTER TABLE [tblCalls] ADD COLUMN [tMore] MEMO");
  cn_->Execute(
      "CREATE TABLE [tblMemo] ([memo] MEMO NOT NULL, [n] LONG, [note] NOTE, CONSTRAINT [c] CHECK "
      "([memo] <> 'MEMO'))");
  zt::PreparedStatement up(*cn_, "UPDATE [tblCalls] SET [tNotes] = ?, [tMore] = ? WHERE nId = 1");
  up.Bind(0, zt::Variant(std::string("007")));
  up.Bind(1, zt::Variant(std::string(" 1.50")));
  up.Execute();
  cn_->Execute("INSERT INTO [tblMemo] VALUES ('3.0e+5', 1, '0042')");
  auto rs = cn_->Execute("SELECT [tNotes], [tMore] FROM [tblCalls] WHERE nId = 1");
  EXPECT_EQ(rs->Fields(0).Value().ToText(), "007");
  EXPECT_EQ(rs->Fields(1).Value().ToText(), " 1.50");
  rs = cn_->Execute("SELECT [memo], [note] FROM [tblMemo]");
  EXPECT_EQ(rs->Fields(0).Value().ToText(), "3.0e+5");
  EXPECT_EQ(rs->Fields(1).Value().ToText(), "0042");
  for (const auto& [table, column] : {std::pair<std::string, std::string>{"tblCalls", "tMore"},
                                      {"tblMemo", "memo"},
                                      {"tblMemo", "note"}}) {
    bool found = false;
    for (const auto& f : dt_.GetAllFieldsInfo(cn_, table))
      if (f.name == column) {
        found = true;
        EXPECT_EQ(f.dao_type, 12) << column;
      }
    EXPECT_TRUE(found) << column;
  }
}

}  // namespace
