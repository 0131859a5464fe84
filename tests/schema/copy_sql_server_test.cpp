// Copies into SQL Server, statement for statement through the scripted driver: the bulk-copy
// switch around SELECT INTO within one database, and the structure of a table created from an
// SQLite file. Then the value rules of every copy (DecideCopyValue) and CopyRecord on records
// built in memory.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "schema/copy_rules.h"
#include "support/test_env.h"
#include "zt/datastore.h"
#include "zt/platform.h"
#include "zt/platform/scripted_driver.h"
#include "zt/schema/dt_mgr.h"

using zt::Variant;
using zt::platform::DriverScript;
using zt::platform::ScopedScriptedProvider;
using zt::platform::ScriptedAnswer;
using Texts = std::vector<std::string>;

namespace {

bool Contains(const Texts& texts, const std::string& part) {
  return std::any_of(texts.begin(), texts.end(),
                     [&](const std::string& t) { return t.find(part) != std::string::npos; });
}

Texts Logged(const zt::testing::RecordingEnv& env) {
  Texts out;
  for (const auto& e : env.log.entries) out.push_back(e.text);
  return out;
}

class CopySqlServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    env_.real_sleep = false;
    script_->Schema(zt::ado::adSchemaTables,
                    ScriptedAnswer::Rows({"TABLE_SCHEMA", "TABLE_NAME", "TABLE_TYPE"},
                                         {{"dbo", "tblCalls", "TABLE"}}));
    ds_->GeneralProviderType(zt::kProviderSqlServer);
    ds_->Location("HDSRV");
    ds_->DataStoreName("HelpDesk");
  }
  std::shared_ptr<zt::Connection> Connect() {
    auto cn = ds_->GetConnection(1);
    script_->ClearLog();
    return cn;
  }

  zt::testing::RecordingEnv env_;
  std::shared_ptr<DriverScript> script_ = std::make_shared<DriverScript>();
  ScopedScriptedProvider provider_{"MSOLEDBSQL", script_};
  std::shared_ptr<zt::CZtDataStore> ds_ = std::make_shared<zt::CZtDataStore>();
  zt::CZtDTMgr dt_;
};

TEST_F(CopySqlServerTest, SelectIntoBetweenTheBulkCopySwitch) {
  auto cn = Connect();
  ASSERT_TRUE(dt_.CopyTable(*ds_, cn, "tblNew", *ds_, 0));
  EXPECT_EQ(script_->Statements(),
            (Texts{"sp_dboption 'HelpDesk','select into/bulkcopy','true' ",
                   "SELECT * INTO [tblNew] FROM [tblNew] ",
                   "sp_dboption 'HelpDesk','select into/bulkcopy','false' "}));
  EXPECT_TRUE(env_.Warnings().empty());

  // With option 8 an existing table is dropped first, then copied the same way.
  script_->ClearLog();
  ASSERT_TRUE(dt_.CopyTable(*ds_, cn, "tblCalls", *ds_, zt::kCopyReplace));
  EXPECT_EQ(script_->Statements().front(), "DROP TABLE [tblCalls]");

  // A SELECT INTO that fails still switches the option off again.
  script_->On("SELECT * INTO", ScriptedAnswer::Error(208, "Invalid object name"));
  script_->ClearLog();
  EXPECT_THROW(dt_.CopyTable(*ds_, cn, "tblNew", *ds_, 0), zt::ZtError);
  EXPECT_EQ(script_->Statements().back(), "sp_dboption 'HelpDesk','select into/bulkcopy','false' ");
}

TEST_F(CopySqlServerTest, AFailedSwitchWarnsAndIsNotSwitchedOff) {
  script_->On("sp_dboption", ScriptedAnswer::Error(15247, "User does not have permission"));
  auto cn = Connect();
  ASSERT_TRUE(dt_.CopyTable(*ds_, cn, "tblNew", *ds_, 0));
  EXPECT_EQ(script_->Statements(), (Texts{"sp_dboption 'HelpDesk','select into/bulkcopy','true' ",
                                          "SELECT * INTO [tblNew] FROM [tblNew] "}));
  ASSERT_EQ(env_.Warnings().size(), 1u);
  EXPECT_EQ(env_.Warnings()[0],
            "CZtDTMgr.CopyTableSameDB, Error running  'sp_dboption' to set 'select "
            "into/bulkcopy','true' in the SQL Server.\nPlease ensure the 'tesselapplication' "
            "login in the SQL Server has enough permissions to run this command.");
}

class CopyToSqlServerTest : public CopySqlServerTest {
 protected:
  void SetUp() override {
    CopySqlServerTest::SetUp();
    dir_ = std::filesystem::temp_directory_path() / ("zt_copy_mssql_" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir_);
    source_->GeneralProviderType(zt::kProviderJet);
    source_->Location(dir_.string());
    source_->DataStoreName("source.db");
    source_->CreatePhysicalDataStore();
    src_ = source_->GetConnection(1);
    src_->Execute(
        "CREATE TABLE [tblCopy] ([nId] LONG NOT NULL, [tName] TEXT(50), [fDone] BIT, "
        "[tNotes] LONGTEXT, [cPrice] CURRENCY NOT NULL)");
    dt_.CreatePrimaryKey(src_, "tblCopy", Variant::Array({"nId"}));
    dt_.CreateIndex(src_, "tblCopy", Variant::Array({"tName"}), "Name", zt::kIndexKindUnique);
    script_->On("SELECT COUNT(*)", ScriptedAnswer::Rows({"n"}, {{0}}));
  }
  void TearDown() override {
    source_->CloseConnections();
    std::filesystem::remove_all(dir_);
  }
  Texts Creates() const {
    Texts out;
    for (const auto& s : script_->Statements())
      if (s.rfind("CREATE", 0) == 0 || s.rfind("ALTER", 0) == 0) out.push_back(s);
    return out;
  }

  std::filesystem::path dir_;
  std::shared_ptr<zt::CZtDataStore> source_ = std::make_shared<zt::CZtDataStore>();
  std::shared_ptr<zt::Connection> src_;
};

TEST_F(CopyToSqlServerTest, StructureTextsWithIndexes) {
  Connect();
  ASSERT_TRUE(dt_.CopyTable(*source_, src_, "tblCopy", *ds_, zt::kCopyIndexes));
  EXPECT_EQ(
      Creates(),
      (Texts{"CREATE TABLE [tblCopy] ( [nId] INT NOT NULL , [tName] NVARCHAR (50), [fDone] "
             "BIT DEFAULT '0'  NOT NULL , [tNotes] NVARCHAR(MAX), [cPrice] MONEY NOT NULL  )",
             "ALTER TABLE [tblCopy] ADD CONSTRAINT [PK_tblCopy]  PRIMARY KEY (  [nId]  )",
             "ALTER TABLE [tblCopy] ADD CONSTRAINT [UN_tblCopy_Name]  UNIQUE  (  [tName]  )"}));
  EXPECT_TRUE(Contains(Logged(env_), "CopyTableStructure: Creating table: CREATE TABLE"));
  // The structure and its rows are one transaction.
  const auto& events = script_->Events();
  EXPECT_EQ(std::count(events.begin(), events.end(), "begin"), 1);
  EXPECT_EQ(std::count(events.begin(), events.end(), "commit"), 1);
}

TEST_F(CopyToSqlServerTest, ARefusedStructureIsRolledBackAndReported) {
  script_->On("ALTER TABLE", ScriptedAnswer::Error(1750, "Could not create constraint"));
  Connect();
  EXPECT_FALSE(dt_.CopyTable(*source_, src_, "tblCopy", *ds_, zt::kCopyIndexes));
  const auto& events = script_->Events();
  EXPECT_EQ(std::count(events.begin(), events.end(), "rollback"), 1);
  EXPECT_EQ(std::count(events.begin(), events.end(), "commit"), 0);
  const Texts errors = env_.Errors();
  EXPECT_TRUE(Contains(errors,
                       ", BaseTable:tblCopy, NewTable:tblCopy, fCreateIndexes:True, "
                       "TargetProviderType:2"));
  EXPECT_TRUE(Contains(Logged(env_), "Table Structure not Copied from source.db to tblCopy"));
  ASSERT_EQ(dt_.LastCopyResults().size(), 1u);
  EXPECT_NE(
      dt_.LastCopyResults()[0].error.find("The structure of table tblCopy could not be copied."),
      std::string::npos);
}

// ---- The value rules ----------------------------------------------------------------------

TEST(CopyRulesTest, EachRuleInOrder) {
  using zt::schema::CopyDecision;
  using zt::schema::CopyTarget;
  using zt::schema::DecideCopyValue;
  std::string msg;
  const CopyTarget text50{"tName", zt::ado::adVarWChar, 50, 0};
  // Null and Empty are never written, not even into a short text.
  EXPECT_EQ(DecideCopyValue(text50, Variant::Null(), false, &msg), CopyDecision::kSkip);
  EXPECT_EQ(DecideCopyValue(text50, Variant(), false, &msg), CopyDecision::kSkip);
  // A row-version column fills itself, whatever the source holds, even a value too long.
  const CopyTarget rowver{"tsVersion", zt::ado::adVarWChar, 8, zt::ado::adFldRowVersion};
  EXPECT_EQ(DecideCopyValue(rowver, Variant(std::string(60, 'x')), false, &msg),
            CopyDecision::kSkip);
  // 50 characters fit (counted as characters, not UTF-8 bytes); 60 refuse the record.
  std::string fifty;
  for (int i = 0; i < 50; ++i) fifty += "\xC3\xBC";  // u-umlaut, two bytes each
  EXPECT_EQ(DecideCopyValue(text50, Variant(fifty), false, &msg), CopyDecision::kWrite);
  msg.clear();
  EXPECT_EQ(DecideCopyValue(text50, Variant(std::string(60, 'a')), false, &msg),
            CopyDecision::kRefuseRecord);
  EXPECT_EQ(msg, ".CopyFieldValue, Field: tName, Value: " + std::string(60, 'a') +
                     "  Source field value too long for target field.");
  EXPECT_EQ(DecideCopyValue(text50, Variant(std::string(60, 'a')), true, &msg),
            CopyDecision::kRefuseRecord);
  EXPECT_EQ(msg, ".CopyFieldValue, Field: tName  Source field value too long for target field.");
  // Numbers and Booleans take only numbers: text that is not one is left out, not refused.
  for (std::int32_t type : {zt::ado::adSmallInt, zt::ado::adInteger, zt::ado::adDouble,
                            zt::ado::adBoolean, zt::ado::adNumeric}) {
    const CopyTarget number{"n", type, 0, 0};
    EXPECT_EQ(DecideCopyValue(number, Variant("abc"), false, &msg), CopyDecision::kSkip) << type;
    EXPECT_EQ(DecideCopyValue(number, Variant("12"), false, &msg), CopyDecision::kWrite) << type;
  }
  // A date column takes what it is given.
  const CopyTarget date{"dtOpened", zt::ado::adDBTimeStamp, 16, 0};
  EXPECT_EQ(DecideCopyValue(date, Variant("2024-01-01"), false, &msg), CopyDecision::kWrite);
}

// CopyRecordset over records in memory: a refused record is counted, leaves no half-written
// record behind, and the count reaches the messages.
TEST(CopyRecordsetTest, CountsRefusalsAndWritesOnlySharedFields) {
  zt::testing::RecordingEnv env;
  auto source = std::make_shared<zt::Recordset>();
  source->OpenDisconnected(
      {{"nId", zt::ado::adInteger, 4}, {"tName", zt::ado::adVarWChar, 60}, {"tExtra", 202, 10}},
      {{1, "short", "x"}, {2, std::string(60, 'b'), "y"}, {3, Variant::Null(), "z"}},
      zt::ado::adLockBatchOptimistic);
  auto target = std::make_shared<zt::Recordset>();
  target->OpenDisconnected({{"nId", zt::ado::adInteger, 4}, {"tName", zt::ado::adVarWChar, 50}}, {},
                           zt::ado::adLockBatchOptimistic);
  zt::CZtDTMgr dt;
  std::vector<std::string> messages;
  dt.CopyRecordset(source, target, {}, &messages);
  EXPECT_EQ(dt.RecordsCopied(), 2);
  EXPECT_EQ(dt.RecordsFailed(), 1);
  EXPECT_EQ(target->RecordCount(), 2);
  target->MoveFirst();
  EXPECT_EQ(target->Value("nId").ToInt32(), 1);
  target->MoveNext();
  EXPECT_EQ(target->Value("nId").ToInt32(), 3);
  EXPECT_TRUE(target->Value("tName").IsNull());
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[1], "1 records could not be copied.");
  EXPECT_TRUE(Contains(Logged(env), "CZtDTMgr.CopyRecordset, Copied:2, Failed:1"));
}

}  // namespace

namespace {

TEST_F(CopyToSqlServerTest, AStoreCopySkipsAFailingTableAndNamesIt) {
  src_->Execute("CREATE TABLE [tblBad] ([nId] LONG)");
  src_->Execute("CREATE TABLE [MSysObjects] ([Id] LONG)");
  script_->On("CREATE TABLE [tblBad]", ScriptedAnswer::Error(2714, "There is already an object"));
  Connect();
  std::vector<std::string> not_copied;
  EXPECT_FALSE(dt_.CopyPhysicalDataStore(*source_, *ds_, *source_, true, &not_copied));
  EXPECT_EQ(not_copied, (Texts{"tblBad not copied"}));
  EXPECT_TRUE(Contains(env_.Warnings(), "Table tblBad was not copied."));
  EXPECT_TRUE(Contains(Logged(env_), "Copying from Data Store: source.db to HelpDesk"));
  EXPECT_FALSE(Contains(script_->Statements(), "MSysObjects"));
  // The other table went through, and its count was checked against the target's.
  ASSERT_EQ(dt_.LastCopyResults().size(), 2u);
  for (const auto& r : dt_.LastCopyResults()) EXPECT_EQ(r.copied, r.table == "tblCopy") << r.table;
  EXPECT_TRUE(Contains(script_->Statements(), "SELECT COUNT(*) FROM [tblCopy]"));
}

TEST_F(CopyToSqlServerTest, ATargetThatMustExistOnTheServer) {
  script_->FailOpen(4060, "Cannot open database \"HelpDesk\" requested by the login.");
  try {
    dt_.CopyPhysicalDataStore(*source_, *ds_, *source_, true);
    FAIL() << "no error";
  } catch (const zt::ZtError& e) {
    EXPECT_EQ(e.Number(), zt::vbObjectError + 9032);
    EXPECT_EQ(e.Description(), "The database HelpDesk is not attached to the SQL Server HDSRV.");
  }
  EXPECT_TRUE(script_->Statements().empty());
}

}  // namespace
