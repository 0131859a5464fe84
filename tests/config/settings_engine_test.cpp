// Settings on every live engine, against a real tblSettings and tblCustomAction: adding leaves an
// existing setting alone and writes Null / nothing where the caller gave nothing, reads and
// writes go by ID, a value built to inject SQL changes no row, and a property collection loads
// from the table with the exact diagnostics for the columns a recordset lacks.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/engines.h"
#include "support/test_env.h"
#include "zt/config/settings.h"
#include "zt/error.h"
#include "zt/error_codes.h"
#include "zt/platform.h"

namespace zt::testing {
namespace {

class SettingsEngineTest : public ::testing::TestWithParam<Engine> {
 protected:
  void SetUp() override {
    const Engine& e = GetParam();
    ZT_NEED_ENGINE(e.Available(), e.name);
    Scratch s = OpenScratch(e, "zt_settings", "settings.db");
    dir_ = s.dir;
    cn_ = s.cn;
    DropTables();
    Connection& cn = *cn_;
    const std::string i = cn.ColumnType(4), t = cn.ColumnType(10, 100);
    cn.Execute("CREATE TABLE [tblSettings] ([nID] " + i + " NOT NULL, [tName] " + t +
               ", [tValue] " + t + ", [tDefaultValue] " + t + ", [nType] " + i +
               ", [tDescription] " + t + ", [tValidationRule] " + t + ", [nCustomAction] " + i +
               ", [tCACaption] " + t + ", [tCADisplay] " + t + ", [tValueSourceTable] " + t +
               ", CONSTRAINT [PK_tblSettings] PRIMARY KEY ([nID]))");
    cn.Execute(
        "INSERT INTO [tblSettings] ([nID], [tName], [tValue], [tDefaultValue], [nType], "
        "[tDescription], [tValidationRule], [nCustomAction], [tCACaption], [tCADisplay], "
        "[tValueSourceTable]) VALUES (1, 'Mail server', 'mail.local', 'localhost', 10, "
        "'Outgoing mail', '<>''''', 7, 'Test', 'Button', 'tblServers')");
    cn.Execute(
        "INSERT INTO [tblSettings] ([nID], [tName], [tValue], [tDefaultValue], [nType]) "
        "VALUES (2, 'Page size', NULL, '25', 3)");
    cn.Execute("CREATE TABLE [tblCustomAction] ([nActionID] " + i + " NOT NULL, [nType] " + i +
               ", [nSource] " + i + ", [tTarget] " + t +
               ", CONSTRAINT [PK_tblCustomAction] PRIMARY KEY ([nActionID]))");
    cn.Execute("INSERT INTO [tblCustomAction] VALUES (7, 1, 2, 'old.exe')");
  }
  void TearDown() override {
    if (cn_ && cn_->State() == ado::adStateOpen) {
      DropTables();
      cn_->Close();
    }
    if (!dir_.empty()) std::filesystem::remove_all(dir_);
  }
  void DropTables() {
    for (const char* t : {"tblSettings", "tblCustomAction"})
      cn_->Execute("DROP TABLE IF EXISTS [" + std::string(t) + "]");
  }

  // Every row of `table` in key order, columns joined with "|", Null as "<null>".
  std::vector<std::string> Rows(const std::string& table, const std::string& key) {
    std::vector<std::string> out;
    auto rs = cn_->Execute("SELECT * FROM [" + table + "] ORDER BY [" + key + "]");
    for (; !rs->Eof(); rs->MoveNext()) {
      std::string row;
      for (int c = 0; c < rs->GetFields().Count(); ++c) {
        const Variant v = rs->Fields(c).Value();
        row += (c ? "|" : "") + (v.IsNull() ? std::string("<null>") : v.ToText());
      }
      out.push_back(row);
    }
    return out;
  }

  RecordingEnv env_;
  std::filesystem::path dir_;
  std::shared_ptr<Connection> cn_;
};

TEST_P(SettingsEngineTest, AddSettingKeepsAnExistingRowAndWritesOnlyWhatWasGiven) {
  const std::vector<std::string> before = Rows("tblSettings", "nID");
  CZtSetting setting;
  // An existing ID: nothing changes, though every argument differs.
  setting.AddSetting(cn_, 1, "Other", "other.value", 99, "Other text", "", 0, "", "", "");
  EXPECT_EQ(Rows("tblSettings", "nID"), before);

  // An empty rule is stored as Null, a custom action of 0 and blank texts leave their columns
  // unset; the default value is never written by AddSetting.
  setting.AddSetting(cn_, 30, "Colour", "blue", 10, "Screen colour", "", 0, "   ", "", " ");
  // Everything given is written.
  CZtSettingMgr mgr;
  mgr.AddSetting(cn_, 31, "Editor", "vi", 10, "Editor to run", "Len([tValue])>0", 7, "Pick",
                 "Dialog", "tblEditors");
  const std::vector<std::string> rows = Rows("tblSettings", "nID");
  ASSERT_EQ(rows.size(), 4u);
  EXPECT_EQ(rows[2], "30|Colour|blue|<null>|10|Screen colour|<null>|<null>|<null>|<null>|<null>");
  EXPECT_EQ(rows[3],
            "31|Editor|vi|<null>|10|Editor to run|Len([tValue])>0|7|Pick|Dialog|tblEditors");

  // A failure is logged by the manager and by the setting on its way out, then raised.
  cn_->Execute("DROP TABLE [tblSettings]");
  EXPECT_THROW(setting.AddSetting(cn_, 32, "x", "y", 1, "", "", 0, "", "", ""), ZtError);
  EXPECT_TRUE(env_.Logged("CZtSettingMgr.AddSetting, @Line#20"));
  EXPECT_TRUE(env_.Logged("CZtSetting.AddSetting, Line# 20"));
}

TEST_P(SettingsEngineTest, ReadAndWriteGoByIdAndAMissingIdLeavesTheCallersValue) {
  CZtSetting setting;
  Variant value = "unchanged";
  setting.GetSettingValue(cn_, 404, value);
  EXPECT_EQ(value.ToText(), "unchanged");
  setting.GetSettingValue(cn_, 2, value);  // tValue Null reads as ""
  EXPECT_TRUE(value.IsString());
  EXPECT_EQ(value.ToText(), "");
  setting.GetSettingValue(cn_, 1, value);
  EXPECT_EQ(value.ToText(), "mail.local");

  setting.SetSettingValue(cn_, 2, "50");
  setting.SetSettingValue(cn_, 404, "nobody");  // no row: no error, nothing added
  setting.GetSettingValue(cn_, 2, value);
  EXPECT_EQ(value.ToText(), "50");
  EXPECT_EQ(Rows("tblSettings", "nID").size(), 2u);
  setting.GetSettingValue(cn_, 1, value);
  EXPECT_EQ(value.ToText(), "mail.local");
}

TEST_P(SettingsEngineTest, AValueBuiltToInjectChangesNoRowAndTheErrorNamesTheSetting) {
  const std::vector<std::string> before = Rows("tblSettings", "nID");
  CZtSetting setting;
  // A second statement, a WHERE of the value's own that would rewrite every row, a plain quote.
  for (const std::string value :
       {"x'; DELETE FROM tblSettings; --", "x' WHERE 1=1 --", "it's", "x' OR '1'='1"}) {
    SCOPED_TRACE(value);
    try {
      setting.SetSettingValue(cn_, 2, value);
      ADD_FAILURE() << "the value was written";
    } catch (const ZtError& e) {
      EXPECT_EQ(e.Number(), hr::kCommand);
      EXPECT_NE(e.Description().find("setting 2"), std::string::npos) << e.Description();
    }
    EXPECT_EQ(Rows("tblSettings", "nID"), before);
  }
  // The failure went through the procedure's tail once per attempt.
  int logged = 0;
  for (const std::string& text : env_.Errors())
    if (text.rfind("CZtSetting.SetSettingValue", 0) == 0) ++logged;
  EXPECT_EQ(logged, 4);

  // An engine failure says which setting failed too.
  cn_->Execute("DROP TABLE [tblSettings]");
  try {
    setting.SetSettingValue(cn_, 9, "fine");
    ADD_FAILURE() << "no table, no error";
  } catch (const ZtError& e) {
    EXPECT_NE(e.Description().find("setting 9"), std::string::npos) << e.Description();
  }
}

TEST_P(SettingsEngineTest, AddCustomActionDoublesQuotesAndKeepsAnExistingAction) {
  CZtSettingMgr mgr;
  mgr.AddCustomAction(cn_, 7, 9, 9, "new.exe");  // exists: untouched
  mgr.AddCustomAction(cn_, 8, 3, 4, "C:\\Tools\\O'Neil's.exe");
  EXPECT_EQ(Rows("tblCustomAction", "nActionID"),
            (std::vector<std::string>{"7|1|2|old.exe", "8|3|4|C:\\Tools\\O'Neil's.exe"}));
  // A missing table is raised to the caller after its location is logged.
  cn_->Execute("DROP TABLE [tblCustomAction]");
  EXPECT_THROW(mgr.AddCustomAction(cn_, 9, 1, 1, "x"), ZtError);
  EXPECT_TRUE(env_.Logged("CZtSettingMgr.AddCustomAction, @Line#20"));
}

TEST_P(SettingsEngineTest, PropertyCollectionLoadsValuesDefaultsAndReportsMissingColumns) {
  CZtPropertyCol col;
  {
    Recordset rs;
    rs.Open("SELECT * FROM [tblSettings] ORDER BY [nID]", cn_);
    col.Load(rs);
  }
  ASSERT_EQ(col.Keys(), (std::vector<std::string>{"1", "2"}));
  auto mail = col.Item("1");
  EXPECT_EQ(mail->Name(), "Mail server");
  EXPECT_EQ(mail->Value().ToText(), "mail.local");
  EXPECT_EQ(mail->DefaultValue().ToText(), "localhost");
  EXPECT_EQ(mail->PropertyType(), 10);
  EXPECT_EQ(mail->Description(), "Outgoing mail");
  EXPECT_EQ(mail->ValidationRule(), "<>''");
  EXPECT_EQ(mail->CustomActionID(), 7);
  EXPECT_EQ(mail->CustomActionCaption(), "Test");
  EXPECT_EQ(mail->CustomActionDisplay(), "Button");
  EXPECT_EQ(mail->ValueList(), "tblServers");
  EXPECT_EQ(col.Item("2")->Value().ToText(), "25");  // tValue Null: the default
  EXPECT_FALSE(env_.Logged("is not in the recordset"));

  // Without tValue the value comes from the default; each missing column is reported per row.
  CZtPropertyCol part;
  {
    Recordset rs;
    rs.Open("SELECT [nID], [tName], [tDefaultValue] FROM [tblSettings] WHERE [nID]=1", cn_);
    part.Load(rs);
  }
  EXPECT_EQ(part.Item("1")->Value().ToText(), "localhost");
  EXPECT_EQ(part.Item("1")->Name(), "Mail server");
  EXPECT_EQ(part.Item("1")->PropertyType(), 0);
  std::vector<std::string> diagnostics;
  for (const std::string& text : env_.EntriesOfType(4))
    if (text.find("is not in the recordset") != std::string::npos) diagnostics.push_back(text);
  const std::string p = "CZtPropertyCol.Load - Field ";
  EXPECT_EQ(
      diagnostics,
      (std::vector<std::string>{
          p + "tDescription is not in the recordset. The Description Property could not be set.",
          p + "nType is not in the recordset. The PropertyType Property could not be set.",
          p + "tValue is not in the recordset. The Value Property could not be set.",
          p + "tValueSourceTable is not in the recordset. The ValueList Property could not be set.",
          p + "nCustomAction is not in the recordset. The CustomActionID Property could not be "
              "set.",
          p + "tCACaption is not in the recordset. The CustomActionCaption Property could not be "
              "set.",
          p + "tCADisplay is not in the recordset. The CustomActionDisplay Property could not be "
              "set.",
          p + "tValidationRule is not in the recordset. The ValidationRule Property could not be "
              "set.",
      }));
}

INSTANTIATE_TEST_SUITE_P(Engines, SettingsEngineTest, ::testing::ValuesIn(LiveEngines()),
                         EngineName());

}  // namespace
}  // namespace zt::testing
