// CZtDTMgr on SQL Server and Oracle: the statements sent, text for text, through the scripted
// driver, with the schema rowsets answered by the script.
#include <gtest/gtest.h>

#include <string>
#include <vector>

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

constexpr std::int32_t kNotSupported = static_cast<std::int32_t>(0x80040000u) + 9020;

Variant Names(std::vector<Variant> names) {
  return Variant::Array(std::move(names));
}

class DTMgrSqlServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    env_.real_sleep = false;
    script_->Schema(
        zt::ado::adSchemaColumns,
        ScriptedAnswer::Rows({"TABLE_SCHEMA", "TABLE_NAME", "COLUMN_NAME", "ORDINAL_POSITION",
                              "IS_NULLABLE", "DATA_TYPE", "CHARACTER_MAXIMUM_LENGTH"},
                             {{"dbo", "tblCalls", "nId", 1, false, 3, Variant::Null()},
                              {"dbo", "tblCalls", "tCustomer", 2, true, 202, 50},
                              {"dbo", "tblCalls", "tNotes", 3, true, 203, 0},
                              {"dbo", "tblCalls", "fDone", 4, true, 11, Variant::Null()}}));
    script_->Schema(
        zt::ado::adSchemaIndexes,
        ScriptedAnswer::Rows(
            {"TABLE_SCHEMA", "TABLE_NAME", "INDEX_NAME", "PRIMARY_KEY", "UNIQUE", "CLUSTERED",
             "ORDINAL_POSITION", "COLUMN_NAME"},
            {{"dbo", "tblCalls", "PK_tblCalls", true, true, true, 1, "nId"},
             {"dbo", "tblCalls", "UN_tblCalls_Customer", false, true, false, 1, "tCustomer"},
             {"dbo", "tblCalls", "IN_tblCalls_Cust", false, false, false, 2, "nId"},
             {"dbo", "tblCalls", "IN_tblCalls_Cust", false, false, false, 1, "tCustomer"}}));
    script_->Schema(zt::ado::adSchemaTables,
                    ScriptedAnswer::Rows({"TABLE_SCHEMA", "TABLE_NAME", "TABLE_TYPE"},
                                         {{"dbo", "tblCalls", "TABLE"}}));
    ds_->GeneralProviderType(zt::kProviderSqlServer);
    ds_->Location("HDSRV");
    ds_->DataStoreName("HelpDesk");
  }
  // Connects (so that the opening's own statements are out of the way) and forgets the log.
  std::shared_ptr<zt::Connection> Connect() {
    auto cn = ds_->GetConnection(1);
    script_->ClearLog();
    return cn;
  }
  // The events from "begin" on, without the statements' "exec " prefix.
  Texts Events() const {
    Texts out;
    for (const auto& e : script_->Events())
      out.push_back(e.rfind("exec ", 0) == 0 ? e.substr(5) : e);
    return out;
  }

  zt::testing::RecordingEnv env_;
  std::shared_ptr<DriverScript> script_ = std::make_shared<DriverScript>();
  ScopedScriptedProvider provider_{"MSOLEDBSQL", script_};
  std::shared_ptr<zt::CZtDataStore> ds_ = std::make_shared<zt::CZtDataStore>();
  zt::CZtDTMgr dt_;
};

TEST_F(DTMgrSqlServerTest, AddFieldTextsDefaultsAddedThenDropped) {
  Connect();
  // A field that is there already: nothing is sent, the fact is logged.
  EXPECT_FALSE(dt_.AddFieldToTable(*ds_, "tblCalls", "tCustomer", 10, 50, true, true));
  EXPECT_TRUE(script_->Statements().empty());
  EXPECT_TRUE(env_.Logged(".AddFieldToTable, Field: [tCustomer] already exists in tblCalls"));

  // NOT NULL text: a DF_ default fills the rows and is dropped at once, in one transaction,
  // under the DDL time-out.
  EXPECT_TRUE(dt_.AddFieldToTable(*ds_, "tblCalls", "tCategory", 10, 50, false, true));
  const std::string add =
      "ALTER TABLE [tblCalls]  ADD  [tCategory] NVARCHAR (50) NOT NULL CONSTRAINT "
      "DF_tblCalls_tCategory DEFAULT ''";
  EXPECT_EQ(Events(), (Texts{"begin", "timeout 600", add, "timeout 30", "timeout 600",
                             "ALTER TABLE [tblCalls] DROP CONSTRAINT DF_tblCalls_tCategory",
                             "timeout 30", "commit"}));
  EXPECT_TRUE(env_.Logged(".AddFieldToTable, Field: [tCategory] added with: " + add));

  // A Boolean always gets BIT DEFAULT '0' NOT NULL and keeps that unnamed default.
  script_->ClearLog();
  dt_.AddFieldToTable(*ds_, "tblCalls", "fUrgent", 1, 0, true, true);
  EXPECT_EQ(script_->Statements(),
            (Texts{"ALTER TABLE [tblCalls]  ADD  [fUrgent] BIT DEFAULT '0'  NOT NULL"}));
  // Application number and memo types: 0 and ''; a date gets no default.
  script_->ClearLog();
  dt_.AddFieldToTable(*ds_, "tblCalls", "nCount", 103, 0, false, true);
  dt_.AddFieldToTable(*ds_, "tblCalls", "tMore", 104, 0, false, true);
  dt_.AddFieldToTable(*ds_, "tblCalls", "dWhen", 8, 0, false, true);
  EXPECT_EQ(script_->Statements(),
            (Texts{"ALTER TABLE [tblCalls]  ADD  [nCount] INT NOT NULL CONSTRAINT "
                   "DF_tblCalls_nCount DEFAULT 0",
                   "ALTER TABLE [tblCalls] DROP CONSTRAINT DF_tblCalls_nCount",
                   "ALTER TABLE [tblCalls]  ADD  [tMore] NVARCHAR(MAX) NOT NULL CONSTRAINT "
                   "DF_tblCalls_tMore DEFAULT ''",
                   "ALTER TABLE [tblCalls] DROP CONSTRAINT DF_tblCalls_tMore",
                   "ALTER TABLE [tblCalls]  ADD  [dWhen] DATETIME NOT NULL"}));

  // Bad input is refused before anything is sent; a failed drop rolls the add back.
  script_->ClearLog();
  EXPECT_THROW(dt_.AddFieldToTable(*ds_, "tblCalls", "", 10, 5, true, true), zt::ZtError);
  EXPECT_THROW(dt_.AddFieldToTable(*ds_, "tblCalls", "xUnknown", 9, 5, true, true), zt::ZtError);
  EXPECT_TRUE(script_->Statements().empty());
  script_->On("ALTER TABLE [tblCalls] DROP CONSTRAINT", ScriptedAnswer::Error(-2147217900, "no"));
  EXPECT_THROW(dt_.AddFieldToTable(*ds_, "tblCalls", "tX", 10, 5, false, true), zt::ZtError);
  EXPECT_EQ(script_->Events().back(), "rollback");
  EXPECT_TRUE(env_.Logged("CZtDTMgr.AddFieldToTable, Line# 40"));
}

TEST_F(DTMgrSqlServerTest, RenameDeleteAndIndexTexts) {
  auto cn = Connect();
  EXPECT_TRUE(dt_.RenameField(*ds_, "tblCalls", "tOld", "tNew"));
  EXPECT_TRUE(env_.Logged("Field: [tOld] renamed to [tNew] in table: tblCalls"));

  script_->On("SELECT o.name FROM sysobjects", ScriptedAnswer::Rows({"name"}, {{"DF_x"}}));
  EXPECT_TRUE(dt_.DeleteField(*ds_, "tblCalls", "tCustomer"));
  EXPECT_FALSE(dt_.DeleteField(*ds_, "tblCalls", "tMissing"));
  EXPECT_TRUE(env_.Logged("Field: [tCustomer] deleted from tblCalls"));
  EXPECT_TRUE(env_.Logged("Index: [UN_tblCalls_Customer] deleted= True"));

  // Index names: UN_/IN_ names kept, others prefixed; a primary key is always PK_ + table.
  EXPECT_TRUE(dt_.CreateIndex(cn, "tblCalls", Names({"tCustomer"}), "UN_Customer", 8));
  EXPECT_TRUE(dt_.CreateIndex(cn, "tblCalls", Names({"tCustomer"}), "Customer", 8));
  EXPECT_TRUE(dt_.CreateIndex(cn, "tblCalls", Names({"nId", "tCustomer"}), "Anything", 4));
  EXPECT_TRUE(dt_.CreateIndex(cn, "tblCalls", Names({"tCustomer"}), "Cust", 16));
  EXPECT_TRUE(dt_.CreateIndex(cn, "tblCalls", Names({"tCustomer"}), "IN_Own", 16));
  EXPECT_FALSE(dt_.CreateIndex(cn, "tblCalls", Variant("tCustomer"), "Cust", 16));
  EXPECT_THROW(dt_.CreateIndex(cn, "tblCalls", Names({"tCustomer"}), "Cust", 5), zt::ZtError);
  EXPECT_TRUE(dt_.CreatePrimaryKey(*ds_, "tblCalls", Names({"nId"})));
  EXPECT_TRUE(dt_.DeleteIndex(cn, "tblCalls", "PK_tblCalls", 4));
  EXPECT_TRUE(dt_.DeleteTable(cn, "tblOld"));
  EXPECT_TRUE(env_.Logged(".CreateIndex, Index created with DDL:CREATE INDEX [IN_tblCalls_Cust]"));
  EXPECT_TRUE(env_.Logged("Table [tblOld] deleted."));

  EXPECT_EQ(
      script_->Statements(),
      (Texts{
          "sp_rename 'tblCalls.[tOld]', 'tNew', 'COLUMN' ",
          "ALTER TABLE [tblCalls] DROP CONSTRAINT [UN_tblCalls_Customer] ",
          "DROP INDEX [tblCalls].[IN_tblCalls_Cust] ",
          "SELECT o.name FROM sysobjects AS o  INNER JOIN syscolumns AS c ON o.id=c.cdefault  "
          "WHERE c.name='tCustomer' AND c.id=(SELECT a.id FROM sysobjects AS a WHERE a.name = "
          "'tblCalls') ",
          "ALTER TABLE [tblCalls] DROP CONSTRAINT [DF_x] ",
          "ALTER TABLE [tblCalls]  DROP COLUMN [tCustomer] ",
          "ALTER TABLE [tblCalls] ADD CONSTRAINT [UN_Customer]  UNIQUE  (  [tCustomer]  )",
          "ALTER TABLE [tblCalls] ADD CONSTRAINT [UN_tblCalls_Customer]  UNIQUE  (  [tCustomer]  )",
          "ALTER TABLE [tblCalls] ADD CONSTRAINT [PK_tblCalls]  PRIMARY KEY (  [nId] , "
          "[tCustomer]  )",
          "CREATE INDEX [IN_tblCalls_Cust] ON tblCalls (  [tCustomer]  )",
          "CREATE INDEX [IN_Own] ON tblCalls (  [tCustomer]  )",
          "ALTER TABLE [tblCalls] ADD CONSTRAINT [PK_tblCalls] PRIMARY KEY (  [nId]  )",
          "ALTER TABLE [tblCalls] DROP CONSTRAINT [PK_tblCalls] ", "DROP TABLE [tblOld]"}));

  // The indexes a field is in, with their kind and every column in key order.
  std::vector<zt::IndexNameInfo> indexes;
  EXPECT_TRUE(dt_.GetIndexNames(cn, "tblCalls", "TCUSTOMER", indexes));
  ASSERT_EQ(indexes.size(), 2u);
  EXPECT_EQ(indexes[0].kind, zt::kIndexKindUnique);
  EXPECT_EQ(indexes[1].kind, zt::kIndexKindPlain);
  EXPECT_EQ(indexes[1].columns, (Texts{"tCustomer", "nId"}));
  EXPECT_FALSE(dt_.GetIndexNames(cn, "tblCalls", "tNotes", indexes));
  const auto fields = dt_.GetAllFieldsInfo(cn, "tblCalls");
  ASSERT_EQ(fields.size(), 4u);
  EXPECT_EQ(fields[1].dao_type, 10);
  EXPECT_EQ(fields[1].size, 50);
  EXPECT_EQ(fields[2].dao_type, 12);
  EXPECT_FALSE(fields[0].nullable);
}

TEST_F(DTMgrSqlServerTest, AlterFieldTypeRebuildsTheColumnAndRestoresItsIndexes) {
  Connect();
  EXPECT_TRUE(dt_.AlterFieldType(*ds_, "tblCalls", "tCustomer", 10, 100, true));
  const std::string constraints =
      "CONSTRAINT [UN_tblCalls_Customer]  UNIQUE  NONCLUSTERED  (  [tCustomer]  )";
  const std::string plain =
      "CREATE INDEX [IN_tblCalls_Cust] ON [tblCalls] (  [tCustomer] , [nId]  )";
  EXPECT_EQ(script_->Statements(),
            (Texts{"ALTER TABLE [tblCalls] DROP CONSTRAINT [UN_tblCalls_Customer] ",
                   "DROP INDEX [tblCalls].[IN_tblCalls_Cust] ",
                   "ALTER TABLE [tblCalls]  ADD  [AlterTempField] NVARCHAR (100)",
                   "UPDATE [tblCalls] SET [AlterTempField] = [tCustomer]",
                   "SELECT o.name FROM sysobjects AS o  INNER JOIN syscolumns AS c ON "
                   "o.id=c.cdefault  WHERE c.name='tCustomer' AND c.id=(SELECT a.id FROM "
                   "sysobjects AS a WHERE a.name = 'tblCalls') ",
                   "ALTER TABLE [tblCalls]  DROP COLUMN [tCustomer] ",
                   "sp_rename 'tblCalls.[AlterTempField]', 'tCustomer', 'COLUMN' ",
                   "ALTER TABLE [tblCalls] ADD " + constraints, plain}));
  EXPECT_EQ(script_->Events().front(), "begin");
  EXPECT_EQ(script_->Events().back(), "commit");
  EXPECT_TRUE(env_.Logged("Constraints SQL: " + constraints));
  EXPECT_TRUE(env_.Logged("Non Constraints SQL: " + plain));
  EXPECT_TRUE(env_.Logged("Updating table: tblCalls"));
  EXPECT_TRUE(env_.Logged("Executing: " + plain));

  // To a memo: the field cannot be indexed any more, which is logged.
  script_->ClearLog();
  dt_.AlterFieldType(*ds_, "tblCalls", "tCustomer", 12, 0, true);
  EXPECT_TRUE(env_.Logged(
      ".CreateIndexSQLStatement - Index not being set for field tCustomer in tblCalls"));
  EXPECT_EQ(script_->Statements().back(),
            "CREATE INDEX [IN_tblCalls_Cust] ON [tblCalls] (  [nId]  )");

  // A step that fails undoes the whole change; the error carries the change.
  script_->ClearLog();
  script_->On("UPDATE [tblCalls]", ScriptedAnswer::Error(-2147217900, "conversion failed"));
  EXPECT_THROW(dt_.AlterFieldType(*ds_, "tblCalls", "tCustomer", 4, 0, true), zt::ZtError);
  EXPECT_EQ(script_->Events().back(), "rollback");
  EXPECT_TRUE(
      env_.Logged(".AlterFieldType, Line# 60, TableName: tblCalls, NewFieldType: 4, "
                  "NewFieldSize: 0"));
}

TEST_F(DTMgrSqlServerTest, NullabilityTextsAndDryRun) {
  Connect();
  script_
      ->On("sp_columns @table_name =[tblCalls] , @column_name=[tCustomer] ",
           ScriptedAnswer::Rows({"TYPE_NAME", "LENGTH"}, {{"nvarchar", 100}}))
      .On("sp_columns @table_name =[tblCalls] , @column_name=[tWide] ",
          ScriptedAnswer::Rows({"TYPE_NAME", "LENGTH"}, {{"nvarchar", Variant::Null()}}))
      .On("sp_columns @table_name =[tblCalls] , @column_name=[tCode] ",
          ScriptedAnswer::Rows({"TYPE_NAME", "LENGTH"}, {{"varchar", 30}}))
      .On("sp_columns @table_name =[tblCalls] , @column_name=[fDone] ",
          ScriptedAnswer::Rows({"TYPE_NAME", "LENGTH"}, {{"bit", 1}}));
  for (const char* f : {"tCustomer", "tWide", "tCode", "fDone"})
    script_->On(std::string("SELECT ") + f + " FROM tblCalls WHERE -1=0",
                ScriptedAnswer::Rows({f}, {}));
  // The script's columns allow Nulls: asking for that changes nothing.
  EXPECT_TRUE(dt_.SetFieldNullability(true, *ds_, "tblCalls", "tCustomer", 10, true));
  EXPECT_EQ(script_->Statements(), (Texts{"SELECT tCustomer FROM tblCalls WHERE -1=0"}));
  script_->ClearLog();
  for (const char* f : {"tCustomer", "tWide", "tCode", "fDone"})
    dt_.SetFieldNullability(false, *ds_, "tblCalls", f, 10, true);
  Texts changes;
  for (const auto& s : script_->Statements())
    if (s.rfind("SELECT", 0) != 0 && s.rfind("sp_columns", 0) != 0) changes.push_back(s);
  EXPECT_EQ(changes, (Texts{"ALTER TABLE [tblCalls] ALTER COLUMN [tCustomer] nvarchar(50) NOT NULL",
                            "ALTER TABLE [tblCalls] ALTER COLUMN [tWide] nvarchar(255) NOT NULL",
                            "ALTER TABLE [tblCalls] ALTER COLUMN [tCode] varchar(30) NOT NULL",
                            "UPDATE tblCalls SET fDone=0 WHERE fDone IS NULL",
                            "ALTER TABLE [tblCalls] ALTER COLUMN [fDone] bit NOT NULL"}));

  // A dry run sends the reads and hands every change to the sink instead.
  script_->ClearLog();
  Texts printed;
  dt_.SetDryRun([&](const std::string& sql) { printed.push_back(sql); });
  EXPECT_TRUE(dt_.DryRun());
  dt_.AddFieldToTable(*ds_, "tblCalls", "tCategory", 10, 50, false, true);
  dt_.DeleteField(*ds_, "tblCalls", "tCustomer");
  for (const auto& s : script_->Statements()) EXPECT_TRUE(s.rfind("SELECT", 0) == 0) << s;
  EXPECT_EQ(printed.size(), 5u);  // add, drop default; two indexes and the column
  EXPECT_EQ(printed[1], "ALTER TABLE [tblCalls] DROP CONSTRAINT DF_tblCalls_tCategory");
  for (const auto& e : script_->Events()) EXPECT_NE(e, "begin");
  EXPECT_FALSE(env_.Logged("added with:"));
  dt_.SetDryRun(nullptr);
  EXPECT_FALSE(dt_.DryRun());
}

TEST_F(DTMgrSqlServerTest, OracleRenameAndTypeChangeAreRefused) {
  auto ora = std::make_shared<DriverScript>();
  ScopedScriptedProvider oracle("OraOLEDB.Oracle", ora);
  auto store = std::make_shared<zt::CZtDataStore>();
  store->GeneralProviderType(zt::kProviderOracle);
  store->Location("ORCL");
  for (auto call : {+[](zt::CZtDTMgr&dt, zt::CZtDataStore&ds) {
                      dt.RenameField(ds, "tblCalls", "tOld", "tNew");
                    },
                    +[](zt::CZtDTMgr&dt, zt::CZtDataStore&ds) {
                      dt.AlterFieldType(ds, "tblCalls", "tOld", 10, 20, true);
                    }}) {
    try {
      call(dt_, *store);
      ADD_FAILURE() << "no error";
    } catch (const zt::ZtError& e) {
      EXPECT_EQ(e.Number(), kNotSupported);
      EXPECT_NE(e.Description().find("4"), std::string::npos);
    }
  }
  EXPECT_TRUE(ora->Statements().empty());
}

}  // namespace
