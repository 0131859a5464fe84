// What a data store does with its database, on every engine: SQLite, the PostgreSQL and MariaDB
// test servers, and SQL Server through the scripted driver. On live engines the tests look at
// the outcome; on the scripted one at the statement texts that reach the engine.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/engines.h"
#include "support/test_env.h"
#include "zt/datastore.h"
#include "zt/error.h"
#include "zt/platform.h"
#include "zt/platform/scripted_driver.h"

namespace fs = std::filesystem;

namespace zt::testing {
namespace {

using platform::DriverScript;
using platform::ScriptedAnswer;

class EngineStoreTest : public ::testing::TestWithParam<Engine> {
 protected:
  void SetUp() override {
    const Engine& e = GetParam();
    ZT_NEED_ENGINE(e.Available(), e.name);
    const std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    dir_ = fs::temp_directory_path() /
           ("zt_store_" + std::to_string(::getpid()) + "_" + test.substr(0, test.find('/')));
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    env_.app_path = dir_.string();
    env_.real_sleep = false;
    if (e.scripted) {
      script_ = std::make_shared<DriverScript>();
      scope_.emplace(e.provider, script_);
    }
    ds_ = e.MakeStore(dir_.string());
    if (e.Live() && !e.is_file) {
      // Each test has a database of its own on the server: the tables have fixed names, and the
      // roster must see only the sessions the test opens.
      static int serial = 0;
      ds_->DataStoreName("zt_store_" + std::to_string(::getpid()) + "_" + std::to_string(++serial));
    }
    if (e.Live()) {
      ds_->CreatePhysicalDataStore();
      created_ = true;
    }
    env_.log.entries.clear();
  }

  void TearDown() override {
    if (ds_) ds_->CloseConnections();
    if (created_ && !GetParam().is_file) {
      try {
        ds_->DeletePhysicalDataStore();
      } catch (const ZtError&) {
        // a test that deleted it already
      }
    }
    scope_.reset();
    if (!dir_.empty()) fs::remove_all(dir_);
  }

  bool Scripted() const { return GetParam().scripted; }
  std::shared_ptr<Connection> Conn() { return ds_->GetConnection(1); }

  // The version table with one row, created the way the application's setup does.
  void MakeVersionTable(const std::string& major, const std::string& minor) {
    const Engine& e = GetParam();
    if (Scripted()) {
      script_->On("SELECT * FROM tblTesselVersion",
                  ScriptedAnswer::Rows({"tMajor", "tMinor"}, {{Variant(major), Variant(minor)}}),
                  DriverScript::Match::kExact);
      script_->Schema(
          20, ScriptedAnswer::Rows({"TABLE_CATALOG", "TABLE_SCHEMA", "TABLE_NAME", "TABLE_TYPE"},
                                   {{Variant("HelpDesk"), Variant("dbo"),
                                     Variant("tblTesselVersion"), Variant("TABLE")}}));
      return;
    }
    Conn()->Execute("CREATE TABLE [tblTesselVersion] ([tMajor] " + e.t_text50 + ", [tMinor] " +
                    e.t_text50 + ")");
    Conn()->Execute("INSERT INTO [tblTesselVersion] ([tMajor], [tMinor]) VALUES ('" + major +
                    "', '" + minor + "')");
  }
  // tblTickets with the ids 1 to 5.
  void MakeTickets() {
    if (Scripted()) return;
    const Engine& e = GetParam();
    Conn()->Execute("CREATE TABLE [tblTickets] ([nId] " + e.t_int + " NOT NULL PRIMARY KEY, " +
                    "[tTitle] " + e.t_text50 + ")");
    for (int i = 1; i <= 5; ++i)
      Conn()->Execute("INSERT INTO [tblTickets] ([nId], [tTitle]) VALUES (" + std::to_string(i) +
                      ", 'T')");
  }
  std::int64_t Count(const std::string& table) {
    return Conn()->Execute("SELECT COUNT(*) FROM [" + table + "]")->Fields(0).Value().ToInt64();
  }
  int Opens() const {
    int n = 0;
    for (const auto& ev : script_->Events()) n += ev == "open";
    return n;
  }

  RecordingEnv env_;
  fs::path dir_;
  std::shared_ptr<DriverScript> script_;
  std::optional<platform::ScopedScriptedProvider> scope_;
  std::shared_ptr<CZtDataStore> ds_;
  bool created_ = false;
};

// A live session's temporary table shows whether the connection was reopened; the scripted
// engine counts its openings.
TEST_P(EngineStoreTest, GetConnectionReopensByMode) {
  EXPECT_EQ(ds_->GetConnection(0), nullptr);  // nothing opened yet, and nothing opens
  auto c = ds_->GetConnection(1);
  ASSERT_TRUE(c);
  EXPECT_EQ(c->State(), ado::adStateOpen);
  const bool live = GetParam().Live();
  auto mark = [&] {
    if (live) c->Execute("CREATE TEMPORARY TABLE zt_marker (x INT)");
  };
  // True when the session of the last mark is still the connection's.
  auto same_session = [&](int opens_before) {
    if (!live) return Opens() == opens_before;
    try {
      c->Execute("SELECT * FROM zt_marker");
      return true;
    } catch (const ZtError&) {
      return false;
    }
  };
  int opens = live ? 0 : Opens();
  mark();
  EXPECT_EQ(ds_->GetConnection(1), c);
  EXPECT_TRUE(same_session(opens));

  c->Close();  // behind the data store's back
  EXPECT_EQ(ds_->GetConnection(1), c);
  EXPECT_EQ(c->State(), ado::adStateOpen);
  EXPECT_FALSE(same_session(opens));

  opens = live ? 0 : Opens();
  mark();
  EXPECT_EQ(ds_->GetConnection(2), c);  // always reopened
  EXPECT_EQ(c->State(), ado::adStateOpen);
  EXPECT_FALSE(same_session(opens));
  opens = live ? 0 : Opens();
  EXPECT_EQ(ds_->GetConnection(7), c);  // as it is
  EXPECT_TRUE(live || Opens() == opens);

  ds_->CloseConnections();
  EXPECT_EQ(c->State(), ado::adStateClosed);
  EXPECT_TRUE(env_.Logged("Data Store succesfully open with parameters: Provider="));
  const std::string password = ds_->Password();
  if (!password.empty()) {
    for (const auto& e : env_.log.entries) EXPECT_EQ(e.text.find(password), std::string::npos);
  }
  if (Scripted()) {
    for (const auto& connect : script_->Connects()) {
      EXPECT_EQ(connect.database, "HelpDesk");
      EXPECT_EQ(connect.user, "tessel");
      EXPECT_TRUE(connect.has_password);
    }
  }
}

TEST_P(EngineStoreTest, VersionStamp) {
  const std::string name = ds_->DataStoreName();
  if (Scripted()) script_->Schema(20, ScriptedAnswer::Rows({"TABLE_NAME"}, {}));
  // Without the table: reported, nothing sent, and the reader answers "".
  EXPECT_FALSE(ds_->SetTesselVersion("9", "9"));
  EXPECT_TRUE(
      env_.Logged("CZtDataStore.SetTesselVersion - tblTesselVersion is missing in " + name));
  EXPECT_EQ(ds_->TesselVersion(0), "");
  if (Scripted()) {
    for (const auto& s : script_->Statements()) EXPECT_EQ(s.find("UPDATE"), std::string::npos);
    script_->ClearLog();
  }
  env_.log.entries.clear();

  MakeVersionTable("7", "6");
  EXPECT_EQ(ds_->TesselVersion(2), "7");
  EXPECT_EQ(ds_->TesselVersion(3), "6");
  EXPECT_EQ(ds_->TesselVersion(0), "7.6");
  EXPECT_TRUE(ds_->SetTesselVersion("8", "1"));
  if (Scripted()) {
    const auto sent = script_->Statements();
    EXPECT_EQ(std::count(sent.begin(), sent.end(), "SELECT * FROM tblTesselVersion"), 3);
    ASSERT_FALSE(sent.empty());
    EXPECT_EQ(sent.back(), "UPDATE [tblTesselVersion]SET tMajor='8', tMinor='1'");
    return;
  }
  EXPECT_EQ(ds_->TesselVersion(0), "8.1");
  EXPECT_EQ(ds_->TesselVersion(2), "8");
  ds_->DeleteTableRecords("tblTesselVersion");
  EXPECT_EQ(ds_->TesselVersion(0), "");  // an empty table
  EXPECT_TRUE(env_.Errors().empty());
}

// A deletion counts the rows of its own table, not the rows its triggers change elsewhere.
TEST_P(EngineStoreTest, DeletionsCountTheirOwnRowsOnly) {
  if (Scripted()) GTEST_SKIP() << "no triggers on a scripted driver";
  MakeTickets();
  const Engine& e = GetParam();
  auto cn = Conn();
  cn->Execute("CREATE TABLE [tblGone] ([nId] " + e.t_int + ")");
  const std::string insert = "INSERT INTO tblGone VALUES (OLD.nId)";
  if (e.name == "PostgreSQL") {
    // A function's body is the engine's own text: its names are written as the table has them.
    const std::string quoted = "INSERT INTO \"tblGone\" VALUES (OLD.\"nId\")";
    cn->Execute("CREATE FUNCTION zt_gone() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN " + quoted +
                "; " + quoted + "; RETURN OLD; END $$");
    cn->Execute(
        "CREATE TRIGGER [trgGone] AFTER DELETE ON [tblTickets] FOR EACH ROW EXECUTE "
        "FUNCTION zt_gone()");
  } else if (e.is_file) {
    cn->Execute("CREATE TRIGGER [trgGone] AFTER DELETE ON [tblTickets] BEGIN " + insert + "; " +
                insert + "; END");
  } else {
    cn->Execute("CREATE TRIGGER [trgGone] AFTER DELETE ON [tblTickets] FOR EACH ROW " + insert);
  }
  EXPECT_EQ(ds_->DeleteTableRecords("tblTickets", "nId > 3"), 2);
  EXPECT_GE(Count("tblGone"), 2);
  cn->Execute("DROP TABLE [tblTickets]");
  if (e.name == "PostgreSQL") cn->Execute("DROP FUNCTION zt_gone()");
}

TEST_P(EngineStoreTest, DeleteRecordsAndTables) {
  MakeTickets();
  if (Scripted()) {
    script_->On("DELETE FROM [tblTickets] WHERE", ScriptedAnswer::Affected(2))
        .On("DELETE FROM [tblTickets] ", ScriptedAnswer::Affected(3), DriverScript::Match::kExact)
        .On("DROP TABLE [tblTickets]", ScriptedAnswer::Affected(0), DriverScript::Match::kExact, 1)
        .On("DROP TABLE [tblTickets]", ScriptedAnswer::Error(static_cast<std::int32_t>(0x80040E37u),
                                                             "Cannot drop the table 'tblTickets'"));
  }
  EXPECT_EQ(ds_->DeleteTableRecords("tblTickets", "nId > 3"), 2);
  EXPECT_TRUE(env_.Logged("2 records deleted from tblTickets"));
  if (!Scripted()) {
    EXPECT_EQ(Count("tblTickets"), 3);
  }
  EXPECT_EQ(ds_->DeleteTableRecords("tblTickets"), 3);
  EXPECT_TRUE(env_.Logged("3 records deleted from tblTickets"));
  if (!Scripted()) {
    EXPECT_EQ(Count("tblTickets"), 0);
  }

  ds_->DeleteTable("tblTickets");
  EXPECT_TRUE(env_.Logged("Table [tblTickets] deleted."));
  EXPECT_TRUE(env_.Errors().empty());
  EXPECT_THROW(ds_->DeleteTable("tblTickets"), ZtError);
  if (Scripted()) {
    // The trailing blank of the unconditional form reaches the engine.
    EXPECT_EQ(script_->Statements(),
              (std::vector<std::string>{"DELETE FROM [tblTickets] WHERE nId > 3",
                                        "DELETE FROM [tblTickets] ", "DROP TABLE [tblTickets]",
                                        "DROP TABLE [tblTickets]"}));
  } else {
    EXPECT_THROW(ds_->DeleteTableRecords("tblTickets"), ZtError);
  }
}

// A name can never end its quoting early: whatever it holds, it names one table, which here
// does not exist, so nothing is deleted.
TEST_P(EngineStoreTest, HostileTableNamesDeleteNothing) {
  MakeTickets();
  const std::string comment = GetParam().line_comment;
  const std::vector<std::string> names = {"tblTickets] --", "tblTickets] " + comment,
                                          "tblTickets]; DELETE FROM [tblTickets", "tblTickets\" --",
                                          "tblTickets` " + comment};
  for (const auto& name : names) {
    SCOPED_TRACE(name);
    std::string bracketed = "[";
    for (char ch : name) bracketed += ch == ']' ? std::string("]]") : std::string(1, ch);
    bracketed += "]";
    if (Scripted()) {
      script_->ClearLog();
      ds_->DeleteTableRecords(name, "nId=5");
      ds_->DeleteTable(name);
      EXPECT_EQ(script_->Statements(),
                (std::vector<std::string>{"DELETE FROM " + bracketed + " WHERE nId=5",
                                          "DROP TABLE " + bracketed}));
      continue;
    }
    EXPECT_THROW(ds_->DeleteTableRecords(name, "nId=5"), ZtError);
    EXPECT_THROW(ds_->DeleteTableRecords(name), ZtError);
    EXPECT_THROW(ds_->DeleteTable(name), ZtError);
    EXPECT_EQ(Count("tblTickets"), 5);
  }
}

TEST_P(EngineStoreTest, SizeAndUserRoster) {
  const Engine& e = GetParam();
  if (Scripted()) {
    script_
        ->On("SELECT SUM(CAST(size AS BIGINT)) * 8192 FROM sysfiles",
             ScriptedAnswer::Rows({"size"}, {{Variant(std::int64_t{81920})}}),
             DriverScript::Match::kExact)
        .On("SELECT rtrim(hostname), rtrim(nt_username) FROM master.dbo.sysprocesses",
            ScriptedAnswer::Rows(
                {"h", "u"}, {{Variant("pc1 "), Variant("ann")}, {Variant("pc2"), Variant("bob")}}));
    EXPECT_EQ(ds_->Size(), 81920);
    EXPECT_EQ(ds_->GetUserRoster({{"pc2", "bob"}}), (std::vector<RosterEntry>{{"pc1", "ann"}}));
    EXPECT_TRUE(env_.Logged(
        "CZtDataStore.GetUserRoster Exclude: [COMPUTER_NAME]='pc2' AND [LOGIN_NAME]='bob' "));
    return;
  }
  MakeTickets();
  EXPECT_GT(ds_->Size(), 0);

  // The data store's own session is not listed; a second one is, until it is excluded.
  EXPECT_TRUE(ds_->GetUserRoster().empty());
  auto visitor = std::make_shared<Connection>();
  visitor->Open(ds_->ConnectionString());
  const auto roster = ds_->GetUserRoster();
  if (e.is_file) {
    EXPECT_TRUE(roster.empty());  // a file has no server that knows who has it open
  } else {
    ASSERT_EQ(roster.size(), 1u);
    EXPECT_EQ(roster[0].login_name, ds_->UserName());
    EXPECT_FALSE(roster[0].computer_name.empty());
    EXPECT_TRUE(ds_->GetUserRoster({roster[0]}).empty());
    EXPECT_TRUE(env_.Logged("CZtDataStore.GetUserRoster Exclude: [COMPUTER_NAME]='" +
                            roster[0].computer_name + "' AND [LOGIN_NAME]='" +
                            roster[0].login_name + "' "));
  }
  visitor->Close();
  EXPECT_TRUE(env_.Errors().empty());
}

// The fixture created the live engines' stores; here they are validated, refused a second
// creation and deleted. On the scripted engine the texts and the connection they go over.
TEST_P(EngineStoreTest, CreateValidateAndDeletePhysicalStore) {
  if (Scripted()) {
    ds_->CreatePhysicalDataStore();
    EXPECT_TRUE(ds_->ValidateDataStore());
    ds_->DeletePhysicalDataStore();
    EXPECT_EQ(script_->Statements(),
              (std::vector<std::string>{"CREATE DATABASE [HelpDesk]", "DROP DATABASE [HelpDesk]"}));
    // Created and dropped from the server, not from inside the database itself.
    ASSERT_GE(script_->Connects().size(), 2u);
    EXPECT_EQ(script_->Connects().front().database, "");
    EXPECT_EQ(script_->Connects().back().database, "");
    script_->Alive(false);
    EXPECT_FALSE(ds_->ValidateDataStore());
    return;
  }
  EXPECT_TRUE(ds_->ValidateDataStore());
  if (!GetParam().is_file) {
    EXPECT_EQ(Conn()->DefaultDatabase(), ds_->DataStoreName());
  }
  MakeTickets();
  EXPECT_THROW(ds_->CreatePhysicalDataStore(), ZtError);  // never over an existing store
  EXPECT_EQ(Count("tblTickets"), 5);
  ds_->DeletePhysicalDataStore();
  EXPECT_FALSE(ds_->ValidateDataStore());
  EXPECT_THROW(ds_->DeletePhysicalDataStore(), ZtError);
  if (GetParam().is_file) return;

  // A database name holding every quoting character of the engines is still one name.
  auto odd = std::dynamic_pointer_cast<CZtDataStore>(ds_->Copy());
  odd->DataStoreName("zt odd's]`\"x" + std::to_string(::getpid()));
  odd->CreatePhysicalDataStore();
  EXPECT_TRUE(odd->ValidateDataStore());
  EXPECT_EQ(odd->GetConnection(1)->DefaultDatabase(), odd->DataStoreName());
  odd->DeletePhysicalDataStore();
  EXPECT_FALSE(odd->ValidateDataStore());
}

// A version text is stored as given, whatever characters it holds: it is a value, never SQL.
// A backslash is an ordinary character in the library's literals on every engine: were MariaDB to
// read it as an escape, the value "8\" would end its literal early, and with a second value made
// to fit the statement would change more than the version.
TEST_P(EngineStoreTest, VersionTextsAreValues) {
  MakeVersionTable("7", "6");
  EXPECT_TRUE(ds_->SetTesselVersion("8\\", "1'"));
  if (Scripted()) {
    EXPECT_EQ(script_->Statements().back(),
              "UPDATE [tblTesselVersion]SET tMajor='8\\', tMinor='1'''");
    return;
  }
  EXPECT_EQ(ds_->TesselVersion(0), "8\\.1'");
  EXPECT_TRUE(ds_->SetTesselVersion("\\", ", tMajor=USER() #"));
  EXPECT_EQ(ds_->TesselVersion(2), "\\");
  EXPECT_EQ(ds_->TesselVersion(3), ", tMajor=USER() #");
}

INSTANTIATE_TEST_SUITE_P(Engines, EngineStoreTest, ::testing::ValuesIn(TestEngines()),
                         EngineName());

}  // namespace
}  // namespace zt::testing
