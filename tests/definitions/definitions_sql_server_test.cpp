// The statements table types, styles and saved queries send to SQL Server, character for
// character, through the scripted driver.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/engines.h"
#include "support/test_env.h"
#include "zt/datastore.h"
#include "zt/definitions/query.h"
#include "zt/definitions/table_type.h"
#include "zt/platform.h"
#include "zt/platform/scripted_driver.h"

namespace zt::testing {
namespace {

using platform::DriverScript;
using platform::ScriptedAnswer;

TEST(DefinitionsSqlServerTest, StatementsAsSent) {
  RecordingEnv env;
  auto script = std::make_shared<DriverScript>();
  const std::vector<std::string> type_columns{"nID", "nType", "nLocal", "tDataTable",
                                              "tCustomTable"};
  script
      ->On("SELECT * FROM tblTableTypes WHERE nID= 5",
           ScriptedAnswer::Rows(type_columns, {{5, 3, 0, "tblQryRows", "tblQryDefs"}}))
      .On("SELECT * FROM [tblTableTypes] WHERE nID = 5",
          ScriptedAnswer::Rows(type_columns, {{5, 3, 0, "tblQryRows", "tblQryDefs"}}))
      .On("SELECT * FROM [tblQryDefs] WHERE nID = 1",
          ScriptedAnswer::Rows({"nID", "tName", "tCaption"}, {{1, "Open", "Open calls"}}))
      .On("SELECT tCustomTable, tDataTable FROM tblTableTypes",
          ScriptedAnswer::Rows({"tCustomTable", "tDataTable"}, {{"tblLocDefs", "tblLocRows"}}))
      .On("SELECT * FROM [tblQryRows]",
          ScriptedAnswer::Rows({"nID", "nRow", "tField"}, {{1, 1, "nStatus"}, {1, 2, "nAge"}}));
  platform::ScopedScriptedProvider sql_server("MSOLEDBSQL", script);
  auto ds = EngineNamed("SQL Server").MakeStore("");
  auto cn = ds->GetConnection(1);
  script->ClearLog();

  CZtTableType type;
  type.Load(cn, 0, 3, 0);
  type.Load(cn, 5);
  std::string defs, rows;
  EXPECT_TRUE(type.GetLocalTables(cn, defs, rows));
  EXPECT_EQ(rows, "tblLocRows");
  CZtStyle style;
  style.InitializeStyle(ds, 1, 5, 3);
  EXPECT_EQ(style.Caption(), "Open calls");
  CZtQuery q;
  q.Initialize(1, 5);
  q.Load(ds);
  EXPECT_EQ(q.Expressions().size(), 2u);
  q.Delete(ds);

  EXPECT_EQ(script->Statements(),
            (std::vector<std::string>{
                "SELECT * FROM tblTableTypes WHERE nType = 3 AND nLocal =  0",
                "SELECT * FROM tblTableTypes WHERE nID= 5",
                "SELECT tCustomTable, tDataTable FROM tblTableTypes WHERE nType = 3 AND nLocal = 1",
                "SELECT * FROM [tblTableTypes] WHERE nID = 5",
                "SELECT * FROM [tblQryDefs] WHERE nID = 1",
                "SELECT * FROM tblTableTypes WHERE nID= 5",
                "SELECT * FROM [tblQryRows] WHERE [nID]=1 ORDER BY [nRow]",
                "SELECT * FROM tblTableTypes WHERE nID= 5",
                "DELETE FROM [tblQryRows] WHERE [nID]=1",
            }));
}

}  // namespace
}  // namespace zt::testing
