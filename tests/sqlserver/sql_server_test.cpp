// CZtSQLServer against a scripted SQL Server: every statement as sent, every error as raised.
#include "zt/sqlserver/sql_server.h"

#include <gtest/gtest.h>

#include "admin_env.h"
#include "platform/sql_text.h"
#include "zt/error_handling.h"

namespace zt::testing {
namespace {

using platform::DriverScript;
using platform::ScriptedAnswer;
using Match = DriverScript::Match;

constexpr const char* kBanner2019 =
    "Microsoft SQL Server 2019 (RTM-CU8) (KB4577194) - 15.0.4073.23 (X64) \n\tSep 23 2020 "
    "16:03:08 \n\tCopyright (C) 2019 Microsoft Corporation\n\tDeveloper Edition (64-bit) on "
    "Windows Server 2019 Standard 10.0 <X64> (Build 17763: ) (Hypervisor)\n";

ScriptedAnswer ServerError(std::int32_t native, const std::string& text) {
  ScriptedAnswer a = ScriptedAnswer::Error(-2147217900, text);
  a.error->native_error = native;
  return a;
}

class SqlServerAdmin : public ::testing::Test {
 protected:
  void SetUp() override {
    sql.LogInSA("db1", kSaPassword, false);
    script->ClearLog();
  }
  void TearDown() override { ExpectNoSecretsLogged(env); }

  // The error the call raises (fails the test when it raises none).
  template <class F>
  ZtError Raised(F&& call) {
    try {
      call();
    } catch (const ZtError& e) {
      return e;
    }
    ADD_FAILURE() << "no error raised";
    return ZtError(0, "", "");
  }
  static std::int32_t Own(std::int32_t n) { return vbObjectError + n; }

  AdminEnv env;
  std::shared_ptr<DriverScript> script = std::make_shared<DriverScript>();
  platform::ScopedScriptedProvider provider{"MSOLEDBSQL", script};
  CZtSQLServer sql;
};

TEST_F(SqlServerAdmin, StatementsAndLogTextsAsSent) {
  EXPECT_TRUE(env.Logged("Trying to login to: db1 with sa"));
  script
      ->On("SELECT filename FROM",
           ScriptedAnswer::Rows({"filename"}, {{"D:\\Data\\Help.mdf   "}, {"D:\\Data\\Help.ldf"}}))
      .On("sp_helpdb", ScriptedAnswer::Rows({"name", "db_size"}, {{"Help", "     3.00 MB"}}));
  sql.DropLogin("old");
  sql.CreateSimpleDatabase("Help", "Help_dat", "D:\\Data\\Help.mdf", 10, 50, 15);
  sql.CreateSimpleDatabase("Zero", "Zero_dat", "D:\\Data\\Zero.mdf", 0, 0, 0);
  sql.DropDatabase("Help");
  sql.AddUserToSysAdmins("tesselapplication");
  sql.DetachDatabase("Help");
  sql.AttachDatabase("Help", {"D:\\Data\\Help.mdf", "D:\\Data\\Help.ldf", "E:\\Help2.ndf"});
  EXPECT_EQ(sql.GetOSFiles("Help"),
            (std::vector<std::string>{"D:\\Data\\Help.mdf", "D:\\Data\\Help.ldf"}));
  sql.SendMessage("PC7", "Back at 5, o'clock");
  EXPECT_EQ(sql.GetDBSize("Help"), "3.00 MB");
  sql.CreateTimestampField("tblCalls", "tsRow");
  sql.DetachDatabase("O'Brien");
  EXPECT_EQ(script->Statements(),
            (std::vector<std::string>{
                "sp_droplogin [old]",
                "CREATE DATABASE [Help] ON (NAME =[Help_dat] ,FILENAME ='D:\\Data\\Help.mdf'  "
                ",SIZE =10 ,MAXSIZE = 50 ,FILEGROWTH = 15%)",
                "CREATE DATABASE [Zero] ON (NAME =[Zero_dat] ,FILENAME ='D:\\Data\\Zero.mdf' )",
                "DROP DATABASE [Help]",
                "sp_addsrvrolemember [tesselapplication], 'sysadmin'",
                "sp_detach_db 'Help','true' ",
                "sp_attach_db 'Help','D:\\Data\\Help.mdf','D:\\Data\\Help.ldf','E:\\Help2.ndf'",
                "SELECT filename FROM [Help].dbo.sysfiles ORDER BY fileid",
                "EXEC master..xp_cmdshell 'net send PC7 Back at 5, o''clock'",
                "sp_helpdb 'Help'",
                "ALTER TABLE [tblCalls] ADD [tsRow] TIMESTAMP NOT NULL",
                "sp_detach_db 'O''Brien','true' ",
            }));
  EXPECT_TRUE(
      env.Logged("Creating database: Zero with: CREATE DATABASE [Zero] ON (NAME "
                 "=[Zero_dat] ,FILENAME ='D:\\Data\\Zero.mdf' )"));
  EXPECT_TRUE(env.Logged("Deleting database: Help"));
  EXPECT_TRUE(env.Logged(".RunStoredProcedureNoResults: Beginning"));
  EXPECT_EQ(CZtSQLServer::Default_Database_File_Extension(), ".mdf");

  // Bad input is refused before anything reaches the server.
  script->ClearLog();
  EXPECT_THROW(sql.AttachDatabase("Help", {}), ZtError);
  EXPECT_EQ(Raised([&] { sql.SendMessage("PC7 & del *", "x"); }).Number(), Own(10207));
  EXPECT_THROW(sql.MapShareNameToResource("data\" & format c:"), ZtError);
  EXPECT_TRUE(script->Statements().empty());

  // A failing statement is the server's error, logged once with where it happened.
  script->On("DROP DATABASE", ServerError(3701, "Cannot drop the database 'Gone'"));
  const ZtError e = Raised([&] { sql.DropDatabase("Gone"); });
  EXPECT_EQ(e.Number(), -2147217900);
  EXPECT_NE(e.Description().find("Cannot drop"), std::string::npos);
  EXPECT_TRUE(env.Logged("CZtSQLServer.DropDatabase, @Line#20"));
}

TEST_F(SqlServerAdmin, AddLoginKeepsAnExistingLoginAndReportsEachStatement) {
  // The login exists: the first statement's 15025 is accepted and the password is reset.
  script->On("sp_addlogin", ServerError(15025, "The server principal 'x' already exists."),
             Match::kPrefix, 1);
  sql.AddLogin("helpdesk", "n3w;Pw]d");
  EXPECT_EQ(script->Statements(), (std::vector<std::string>{
                                      "sp_addlogin [helpdesk],[n3w;Pw]]d]",
                                      "sp_password NULL,[n3w;Pw]]d],[helpdesk]",
                                  }));

  // Any other error of the first statement: tslAddLoginError, and no password is set.
  script->ClearLog();
  script->On("sp_addlogin", ServerError(15247, "User does not have permission"), Match::kPrefix, 1);
  ZtError e = Raised([&] { sql.AddLogin("helpdesk", "n3w;Pw]d"); });
  EXPECT_EQ(e.Number(), Own(10204));
  EXPECT_EQ(e.Description().rfind("The login could not be added to the SQL Server.", 0), 0u);
  EXPECT_EQ(script->Statements().size(), 1u);
  EXPECT_TRUE(env.Logged("CZtSQLServer.AddLogin login"));

  // An error of the second statement: the same error, from the other location.
  script->ClearLog();
  script->On("sp_password", ServerError(15118, "Password validation failed"), Match::kPrefix, 1);
  e = Raised([&] { sql.AddLogin("helpdesk", "n3w;Pw]d"); });
  EXPECT_EQ(e.Number(), Own(10204));
  EXPECT_TRUE(env.Logged("CZtSQLServer.AddLogin pwd"));
  ExpectNoSecretsLogged(env, {"n3w;Pw]d", "n3w;Pw]]d"});
}

TEST_F(SqlServerAdmin, PreparationChecksVersionLoginAndSecurityMode) {
  // Each round of the preparation gets its own answers.
  const auto server_says = [&](const std::string& banner, const std::string& mode) {
    script->On("SELECT @@version", ScriptedAnswer::Rows({""}, {{banner}}), Match::kPrefix, 1);
    if (!mode.empty())
      script->On("xp_loginconfig 'login mode'",
                 ScriptedAnswer::Rows({"name", "config_value"}, {{"login mode", mode}}),
                 Match::kPrefix, 1);
  };
  server_says(kBanner2019, "Mixed");
  sql.InitializeForOrvane("db1", kSaPassword);
  const std::string app = "tesselapplication";
  const std::string pw = platform::BracketName(sqlserver::TSL_PASSWORD());
  EXPECT_EQ(script->Statements(), (std::vector<std::string>{
                                      "SELECT @@version",
                                      "sp_addlogin [" + app + "]," + pw,
                                      "sp_password NULL," + pw + ",[" + app + "]",
                                      "sp_addsrvrolemember [" + app + "], 'sysadmin'",
                                      "xp_loginconfig 'login mode'",
                                  }));
  EXPECT_EQ(script->Connects().back().user, "sa");
  EXPECT_EQ(script->Connects().back().database, "master");
  EXPECT_TRUE(env.Logged("CZtSQLServer.InitializeForOrvane: Beginning"));

  // Version 6.5 is refused before anything is changed.
  script->ClearLog();
  server_says("Microsoft SQL Server  6.50 - 6.50.201 (Intel X86) \n", "");
  ZtError e = Raised([&] { sql.InitializeForOrvane("db1", kSaPassword); });
  EXPECT_EQ(e.Number(), Own(10201));
  EXPECT_EQ(e.Description(), "SQL Server version 6 on db1 is not supported.");
  EXPECT_EQ(script->Statements(), (std::vector<std::string>{"SELECT @@version"}));

  // Windows authentication only: refused.
  server_says(kBanner2019, "Windows NT Authentication");
  e = Raised([&] { sql.InitializeForOrvane("db1", kSaPassword); });
  EXPECT_EQ(e.Number(), Own(10202));

  // "MIXED" is the same mode; a login that cannot get its rights is refused with its own error.
  server_says(kBanner2019, " MIXED ");
  EXPECT_NO_THROW(sql.InitializeForOrvane("db1", kSaPassword));
  server_says(kBanner2019, "");
  script->On("sp_addsrvrolemember", ServerError(15247, "no permission"), Match::kPrefix, 1);
  e = Raised([&] { sql.InitializeForOrvane("db1", kSaPassword); });
  EXPECT_EQ(e.Number(), Own(10203));

  // A banner without a version is an error, never version 0.
  server_says("PostgreSQL 15.4", "");
  e = Raised([&] { sql.GetVersion(); });
  EXPECT_EQ(e.Number(), Own(10206));
  EXPECT_NE(e.Description().find("PostgreSQL 15.4"), std::string::npos);
}

TEST_F(SqlServerAdmin, DatabaseFilesOnAShareAreMappedToTheServersOwnPath) {
  script
      ->On("EXEC master..xp_cmdshell 'net share HelpData'",
           ScriptedAnswer::Rows({"output"}, {{"Share name        HelpData"},
                                             {"Path              D:\\SQL Data\\Help"},
                                             {"Remark            "},
                                             {Variant::Null()},
                                             {"The command completed successfully."}}))
      .On("EXEC master..xp_cmdshell 'net share Public'",
          ScriptedAnswer::Rows({"output"}, {{"This shared resource does not exist."}}));
  sql.CreateSimpleDatabase("Help", "Help_dat", "\\\\db1\\HelpData\\2024\\Help.mdf", 0, 0, 5);
  EXPECT_EQ(script->Statements().back(),
            "CREATE DATABASE [Help] ON (NAME =[Help_dat] ,FILENAME ='D:\\SQL "
            "Data\\Help\\2024\\Help.mdf'  ,FILEGROWTH = 5%)");

  // A share the server does not have, or no share at all: the files are not on the server.
  script->ClearLog();
  for (const char* path : {"\\\\db1\\Public\\Help.mdf", "\\\\db1"}) {
    const ZtError e = Raised([&] { sql.CreateSimpleDatabase("Help", "Help_dat", path, 0, 0, 0); });
    EXPECT_EQ(e.Number(), Own(10200)) << path;
    EXPECT_EQ(e.Description(),
              "The database files of Help are not on the server db1, so the database cannot be "
              "moved.");
  }
  EXPECT_EQ(script->Statements(),
            (std::vector<std::string>{"EXEC master..xp_cmdshell 'net share Public'"}));
  EXPECT_FALSE(CZtSQLServer::ValidLocalPath("\\\\db1\\HelpData"));
  EXPECT_FALSE(CZtSQLServer::ValidLocalPath(""));
  EXPECT_TRUE(CZtSQLServer::ValidLocalPath("D:\\Data"));
}

TEST_F(SqlServerAdmin, RosterLeavesOutTheOwnConnectionAndProcessesWithoutHost) {
  script->On("SELECT loginame=",
             ScriptedAnswer::Rows({"loginame", "hostname", "nt_username"},
                                  {{"sa", "PC7", "maria"}, {"sa", "", "sqlagent"}}));
  const auto roster = sql.GetUserRoster("Help", "program_name<>'Tessel'");
  const std::string expected =
      "SELECT loginame=rtrim(loginame),hostname=rtrim(hostname),nt_username=rtrim(nt_username)  "
      "FROM master.dbo.sysprocesses WHERE db_name(dbid)='Help' AND spid<>@@spid AND "
      "rtrim(hostname)<>'' AND program_name<>'Tessel'";
  EXPECT_EQ(script->Statements(), std::vector<std::string>{expected});
  EXPECT_EQ(roster, (std::vector<RosterEntry>{{"PC7", "maria"}}));
  EXPECT_TRUE(env.Logged("CZtSQLServer.GetUserRoster, SQL:" + expected));
  EXPECT_EQ(CZtSQLServer::UserRosterSql("Help", "").find(" AND program"), std::string::npos);
}

TEST_F(SqlServerAdmin, ApplicationLoginThatFailsPreparesTheServerWhenTheUserMayBeAsked) {
  auto refusing = std::make_shared<DriverScript>();
  refusing->FailOpen(-2147217843, "Login failed for user 'tesselapplication'.");
  platform::RegisterDriverScript("MSOLEDBSQL", refusing);

  // Nobody may be asked: ERR_NEED_TO_INIT_SQLSVR with the failed login's number and source.
  ZtError e = Raised([&] { sql.LogInSA("db1", "", true); });
  EXPECT_EQ(e.Number(), -2147217843);
  EXPECT_EQ(e.Source(), "MSOLEDBSQL");
  EXPECT_EQ(e.Description().rfind("The SQL Server db1 must be prepared", 0), 0u);
  EXPECT_NE(e.Description().find("Login failed for user"), std::string::npos);
  EXPECT_TRUE(env.prompt.asked.empty());

  // The user declines: the same error, nothing prepared.
  sql.UserInteraction(true);
  env.prompt.answers = {false};
  EXPECT_EQ(Raised([&] { sql.LogInSA("db1", "", true); }).Number(), -2147217843);

  // The user agrees, gets the "sa" password wrong once, tries again: the server is prepared
  // and the application login tried once more.
  script->On("SELECT @@version", ScriptedAnswer::Rows({""}, {{kBanner2019}}))
      .On("xp_loginconfig", ScriptedAnswer::Rows({"config_value"}, {{"Mixed"}}));
  env.prompt.answers = {true, true};
  env.prompt.inputs = {std::string("wrong"), std::string(kSaPassword)};
  int inputs = 0;
  env.prompt.on_input = [&] {
    // The first "sa" password is refused by the server, the second one accepted.
    if (++inputs == 2) platform::RegisterDriverScript("MSOLEDBSQL", script);
  };
  env.prompt.asked.clear();
  script->ClearLog();
  sql.LogInSA("db1", "", true);
  ASSERT_EQ(env.prompt.asked.size(), 4u);
  EXPECT_NE(env.prompt.asked[0].find("Do you want to prepare the SQL Server now?"),
            std::string::npos);
  EXPECT_NE(env.prompt.asked[0].find("Microsoft SQL Server: db1"), std::string::npos);
  EXPECT_EQ(env.prompt.asked[1],
            "secret: Enter the password of the SQL Server administrator (sa):");
  EXPECT_NE(env.prompt.asked[2].find("Try again?"), std::string::npos);
  EXPECT_EQ(script->Connects().size(), 2u);
  EXPECT_EQ(script->Connects()[0].user, "sa");
  EXPECT_EQ(script->Connects()[1].user, "tesselapplication");
  EXPECT_EQ(sql.DataStore()->UserName(), "tesselapplication");
  EXPECT_TRUE(env.Logged("CZtSQLServer.InitializeForTesselDlg, @Line#40"));
  ExpectNoSecretsLogged(env, {"wrong"});
}

TEST(SqlServerNames, VersionsFromRealBannersAndComputerNames) {
  RecordingEnv env;
  const std::vector<std::pair<std::string, int>> banners = {
      {"Microsoft SQL Server  6.50 - 6.50.201 (Intel X86) \n\tApr  3 1996 02:55:53 \n", 6},
      {"Microsoft SQL Server  7.00 - 7.00.623 (Intel X86) \n\tNov 27 1998 22:20:07 \n", 7},
      {"Microsoft SQL Server  2000 - 8.00.2039 (Intel X86) \n\tMay  3 2005 23:18:38 \n", 8},
      {"Microsoft SQL Server 2005 - 9.00.5000.00 (Intel X86) \n\tDec 10 2010 10:56:29 \n", 9},
      {"Microsoft SQL Server 2008 (SP3) - 10.0.5500.0 (X64) \n\tSep 21 2011 22:45:45 \n", 10},
      {"Microsoft SQL Server 2008 R2 (SP2) - 10.50.4000.0 (X64) \n\tJun 28 2012 08:36:30 \n", 10},
      {"Microsoft SQL Server 2012 - 11.0.2100.60 (X64) \n\tFeb 10 2012 19:39:15 \n", 11},
      {"Microsoft SQL Server 2014 (SP3) (KB4022619) - 12.0.6024.0 (X64) \n", 12},
      {"Microsoft SQL Server 2016 (SP2) (KB4052908) - 13.0.5026.0 (X64) \n", 13},
      {"Microsoft SQL Server 2017 (RTM) - 14.0.1000.169 (X64) \n\tAug 22 2017 17:04:49 \n", 14},
      {kBanner2019, 15},
      {"Microsoft SQL Server 2022 (RTM) - 16.0.1000.6 (X64) \n\tOct  8 2022 05:58:25 \n", 16},
      {"Microsoft SQL Azure (RTM) - 12.0.2000.8 \n\tSep 18 2023 12:22:13 \n", 12},
  };
  for (const auto& [banner, major] : banners)
    EXPECT_EQ(ParseSqlServerMajorVersion(banner), major) << banner;
  for (const char* bad : {"", "Microsoft SQL Server", "Microsoft SQL Server 2019 (RTM)",
                          "Microsoft SQL Server 2019 - (X64)"})
    EXPECT_THROW(ParseSqlServerMajorVersion(bad), ZtError) << bad;

  EXPECT_EQ(GetComputerNameFromInstance("DB1\\HELPDESK"), "DB1");
  EXPECT_EQ(GetComputerNameFromInstance("DB1"), "DB1");
  EXPECT_EQ(GetComputerNameFromInstance("db1,1433"), "db1,1433");
}

}  // namespace
}  // namespace zt::testing
