#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "support/test_env.h"
#include "zt/config.h"
#include "zt/datastore.h"
#include "zt/error.h"
#include "zt/platform.h"
#include "zt/platform/dao.h"

namespace fs = std::filesystem;

namespace {

constexpr std::int32_t kEFail = static_cast<std::int32_t>(0x80004005u);

int CountContaining(const std::vector<std::string>& entries, const std::string& needle) {
  int n = 0;
  for (const auto& e : entries) n += e.find(needle) != std::string::npos;
  return n;
}

class DataStoreLiveTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ =
        fs::temp_directory_path() /
        ("ztlive-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    env_.app_path = dir_.string();
    env_.real_sleep = false;
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::shared_ptr<zt::CZtDataStore> SqliteStore(const std::string& name = "help.db") {
    auto ds = std::make_shared<zt::CZtDataStore>();
    ds->GeneralProviderType(zt::kProviderJet);
    ds->Location(dir_.string());
    ds->DataStoreName(name);
    return ds;
  }
  // A store whose file exists with a version table holding 7.6 and a few tickets.
  std::shared_ptr<zt::CZtDataStore> SampleStore() {
    auto ds = SqliteStore();
    ds->CreatePhysicalDataStore();
    auto c = ds->GetConnection(1);
    c->Execute("CREATE TABLE [tblTesselVersion] ([tMajor] TEXT(10), [tMinor] TEXT(10))");
    c->Execute("INSERT INTO [tblTesselVersion] VALUES ('7', '6')");
    c->Execute("CREATE TABLE [tblTickets] ([nId] LONG PRIMARY KEY, [tTitle] TEXT(50))");
    for (int i = 1; i <= 5; ++i)
      c->Execute("INSERT INTO [tblTickets] VALUES (" + std::to_string(i) + ", 'T')");
    return ds;
  }

  zt::testing::RecordingEnv env_;
  fs::path dir_;
};

// Version stamps, record and table deletion, reopening by mode: engine_store_test.cpp runs
// them on every engine. What follows is particular to a store in one file.
TEST_F(DataStoreLiveTest, DaoViewAndSingleFieldChanges) {
  auto ds = SampleStore();
  // The DAO view of the same file, cached until the connections are closed.
  auto db = ds->OpenDAODataStore();
  ASSERT_TRUE(db);
  EXPECT_EQ(ds->OpenDAODataStore(), db);
  EXPECT_EQ(db->TableDefs("tblTickets").Name(), "tblTickets");
  ds->CloseConnections();
  EXPECT_EQ(ds->DataStoreDAOConnection(), nullptr);
  EXPECT_NE(ds->OpenDAODataStore(), db);
  auto server = std::make_shared<zt::CZtDataStore>();
  server->GeneralProviderType(zt::kProviderSqlServer);
  EXPECT_THROW(server->OpenDAODataStore(), zt::ZtError);

  // The single-field changes go to the schema operations: a field that is there already is
  // only logged, and deleting one that is not there is no error.
  ds->AddFieldToTable("tblTickets", "tTitle", 10, 50);
  EXPECT_TRUE(
      env_.Logged("CZtDTMgr.AddFieldToTable, Field: [tTitle] already exists in tblTickets"));
  ds->DeleteFieldFromTable("tblTickets", "tNoSuchField");
  EXPECT_TRUE(env_.Logged("DeleteFieldFromTable, Field:tNoSuchField"));
  EXPECT_EQ(ds->OpenDAODataStore()->TableDefs("tblTickets").Fields("tTitle").Type(),
            zt::dao::dbText);
}

TEST_F(DataStoreLiveTest, OwnConnectionStringIsReadWhenNoneIsGiven) {
  auto ds = SampleStore();
  ds->GetConnection(1);
  // With no text given, the open connection's own string is read (and handed back).
  std::string cs;
  EXPECT_EQ(ds->GetValueFromConnectionString("Data Source", cs), ds->FullPath());
  EXPECT_EQ(cs, ds->ConnectionString());
}

TEST_F(DataStoreLiveTest, LockedFileIsRetriedThenRaised) {
  auto ds = SampleStore();
  ds->CloseConnections();
  // Another party holds the file exclusively: a write under the exclusive locking mode keeps
  // the lock until that connection closes.
  auto holder = std::make_shared<zt::Connection>();
  holder->Open("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + ds->FullPath());
  holder->Execute("PRAGMA locking_mode=EXCLUSIVE");
  holder->Execute("UPDATE [tblTickets] SET [tTitle]='locked'");

  ds->MaxRetries(3);
  ds->RetryInterval(25);
  env_.log.entries.clear();
  try {
    ds->OpenDataStore();
    FAIL() << "a locked file opened";
  } catch (const zt::ZtError& e) {
    EXPECT_EQ(e.Number(), kEFail);
  }
  EXPECT_EQ(env_.sleeps, (std::vector<std::int64_t>{25, 25, 25}));
  ASSERT_EQ(env_.Warnings().size(), 4u);
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(env_.Warnings()[i].rfind("CZtDataStore.ZtConnOpen, Retry:" + std::to_string(i) +
                                           ", Line#20\tError: #-2147467259",
                                       0),
              0u)
        << env_.Warnings()[i];
  EXPECT_EQ(CountContaining(env_.Errors(), "CZtDataStore.ZtConnOpen, Line#20"), 1);

  // The retry list is read once per data store: this store keeps retrying after the
  // configuration drops the error from the list, a new store does not.
  std::ofstream(dir_ / "ztdbtools.zt.config") << "<configuration><appSettings><add key=\"503\" "
                                                 "value=\"1;2\"/></appSettings></configuration>";
  zt::ThreadConfigReader().Load(zt::CZtConfigReader::DefaultFileName());
  ds->MaxRetries(1);
  env_.sleeps.clear();
  EXPECT_THROW(ds->OpenDataStore(), zt::ZtError);
  EXPECT_EQ(env_.sleeps.size(), 1u);
  auto fresh = SqliteStore();
  fresh->MaxRetries(1);
  env_.sleeps.clear();
  EXPECT_THROW(fresh->OpenDataStore(), zt::ZtError);
  EXPECT_TRUE(env_.sleeps.empty());

  // Once the other party lets go, the same store opens.
  holder->Close();
  EXPECT_TRUE(ds->OpenDataStore());
  EXPECT_EQ(ds->TesselVersion(0), "7.6");
}

TEST_F(DataStoreLiveTest, SqlServerIsNeverRetriedAndForeignErrorsFailAtOnce) {
  auto sql = std::make_shared<zt::CZtDataStore>();
  sql->GeneralProviderType(zt::kProviderSqlServer);
  sql->Location("127.0.0.1,1");  // nothing listens there
  sql->DataStoreName("HelpDesk");
  sql->UserName("sa");
  sql->Password("Secret#Pw1");
  EXPECT_THROW(sql->GetConnection(1), zt::ZtError);
  EXPECT_TRUE(env_.sleeps.empty());
  EXPECT_EQ(env_.Warnings().size(), 1u);
  EXPECT_EQ(CountContaining(env_.Errors(), "CZtDataStore.ZtConnOpen, Line#20"), 1);
  for (const auto& e : env_.log.entries) EXPECT_EQ(e.text.find("Secret#Pw1"), std::string::npos);

  // A provider nobody knows fails with an error outside the retry list: one warning, no wait,
  // no error entry of the opening itself.
  env_.log.entries.clear();
  auto odd = SqliteStore();
  odd->CreatePhysicalDataStore();
  odd->Provider("NoSuchProvider");
  odd->MaxRetries(5);
  EXPECT_THROW(odd->OpenDataStore(), zt::ZtError);
  EXPECT_TRUE(env_.sleeps.empty());
  EXPECT_EQ(env_.Warnings().size(), 1u);
  EXPECT_EQ(CountContaining(env_.Errors(), "ZtConnOpen"), 0);
}

TEST_F(DataStoreLiveTest, PhysicalFileOperations) {
  auto ds = SqliteStore();
  EXPECT_FALSE(ds->ValidateDataStore());  // no file: invalid, and none is created
  EXPECT_THROW(ds->GetConnection(1), zt::ZtError);
  EXPECT_TRUE(env_.sleeps.empty());  // a missing file is not waited for
  EXPECT_FALSE(fs::exists(ds->FullPath()));
  ds->CreatePhysicalDataStore();
  EXPECT_TRUE(ds->ValidateDataStore());
  EXPECT_THROW(ds->CreatePhysicalDataStore(), zt::ZtError);  // never over an existing file

  auto c = ds->GetConnection(1);
  c->Execute("CREATE TABLE [big] ([t] MEMO)");
  c->BeginTrans();
  for (int i = 0; i < 200; ++i)
    c->Execute("INSERT INTO [big] VALUES ('" + std::string(2000, 'x') + "')");
  c->CommitTrans();
  ds->DeleteTableRecords("big");
  // Another program has the file open while it is compacted and writes to it afterwards; its
  // row must land in the compacted file.
  auto other = std::make_shared<zt::Connection>();
  other->Open(ds->ConnectionString());
  other->Execute("SELECT COUNT(*) FROM [big]");
  const std::int64_t before = ds->Size();
  ds->Compact();
  EXPECT_LT(ds->Size(), before / 4);
  other->Execute("INSERT INTO [big] VALUES ('after')");
  other->Close();
  EXPECT_EQ(
      ds->GetConnection(1)->Execute("SELECT COUNT(*) FROM [big]")->Fields(0).Value().ToInt32(), 1);
  ds->CloseConnections();
  EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator{}), 1);
  EXPECT_TRUE(ds->ValidateDataStore());
  EXPECT_FALSE(ds->IsReplica());
  EXPECT_TRUE(ds->GetUserRoster({{"pc1", "u1"}}).empty());
  EXPECT_TRUE(env_.Logged(
      "CZtDataStore.GetUserRoster Exclude: [COMPUTER_NAME]='pc1' AND [LOGIN_NAME]='u1' "));

  // Move to another folder; the same folder is refused.
  fs::create_directories(dir_ / "moved");
  EXPECT_THROW(ds->MovePhysicalDataStore(dir_.string()), zt::ZtError);
  ds->MovePhysicalDataStore((dir_ / "moved").string());
  EXPECT_EQ(ds->Location(), (dir_ / "moved").string());
  EXPECT_TRUE(fs::exists(dir_ / "moved" / "help.db"));
  EXPECT_TRUE(ds->ValidateDataStore());

  // Deleting takes the companions along.
  const std::string path = ds->FullPath();
  std::ofstream(dir_ / "moved" / "help.ldb") << "lock";
  ds->DeletePhysicalDataStore();
  EXPECT_FALSE(fs::exists(path));
  EXPECT_FALSE(fs::exists(dir_ / "moved" / "help.ldb"));
  EXPECT_TRUE(env_.Logged("File deleted: " + path));
  EXPECT_TRUE(env_.Logged("File deleted: " + (dir_ / "moved" / "help.ldb").string()));
  EXPECT_THROW(ds->DeletePhysicalDataStore(), zt::ZtError);
}

TEST_F(DataStoreLiveTest, InitializeLinkedNamesAndConfiguredProviders) {
  zt::CZtDataStore ds;
  ds.Initialize("ProviderType=16;Location=myhost;Name=help;User=u;Password=pw1;Type=3");
  EXPECT_EQ(ds.GeneralProviderType(), zt::kProviderMySql);
  EXPECT_EQ(ds.Location(), "myhost");
  EXPECT_EQ(ds.DataStoreName(), "help");
  EXPECT_EQ(ds.DataStoreType(), 3);
  EXPECT_EQ(ds.Password(), "pw1");
  EXPECT_TRUE(env_.Logged("CZtDataStore.Initialize, Param:ProviderType=16;Location=myhost;"));
  for (const auto& e : env_.log.entries) EXPECT_EQ(e.text.find("pw1"), std::string::npos) << e.text;
  EXPECT_EQ(ds.GetLinkedTableName("tblUser"), "tblUser_1");
  EXPECT_EQ(ds.GetLinkedTableName("tblTickets"), "tblTickets");

  try {
    ds.Initialize("ProviderType=8;Location=elsewhere");
    FAIL() << "an unsupported provider type was accepted";
  } catch (const zt::ZtError& e) {
    EXPECT_EQ(e.Number(), zt::vbObjectError + 9020);
  }
  EXPECT_EQ(ds.Location(), "myhost");  // nothing changed
  ds.GeneralProviderType(zt::kProviderJet);
  EXPECT_EQ(ds.GetLinkedTableName("tblUser"), "tblUser");

  // A provider name that only the configuration file knows reaches its engine; a bad entry is
  // logged and skipped.
  std::ofstream(dir_ / "ztdbtools.zt.config")
      << "<configuration><appSettings>"
      << "<add key=\"Provider:HelpFile*\" value=\"Driver=sqlite\"/>"
      << "<add key=\"Provider:Broken*\" value=\"Driver=nosuchdriver\"/>"
      << "</appSettings></configuration>";
  auto file = SqliteStore();
  file->CreatePhysicalDataStore();
  file->Provider("HelpFile.2");
  EXPECT_TRUE(file->OpenDataStore());
  EXPECT_EQ(file->GetConnection(1)->Engine(), "SQLite");
  EXPECT_EQ(CountContaining(env_.Errors(), "ConfiguredProviderTable, Line#10, Provider=Broken*"),
            1);
  file->CloseConnections();
  fs::remove(dir_ / "ztdbtools.zt.config");
  zt::ThreadConfigReader().Load(zt::CZtConfigReader::DefaultFileName());
  EXPECT_THROW(file->OpenDataStore(), zt::ZtError);  // the built-in table is back
}

}  // namespace
