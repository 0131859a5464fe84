#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "support/test_env.h"
#include "zt/config.h"
#include "zt/datastore.h"
#include "zt/error.h"

namespace fs = std::filesystem;

namespace {

// Each test gets a library folder of its own, so a configuration file written by one test is
// never seen by another.
class DataStoreDefinitionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("ztds-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::create_directories(dir_);
    env_.app_path = dir_.string();
  }
  void TearDown() override { fs::remove_all(dir_); }

  void Configure(const std::string& entries) {
    std::ofstream(dir_ / "ztdbtools.zt.config")
        << "<configuration><appSettings>" << entries << "</appSettings></configuration>";
    zt::ThreadConfigReader().Load(zt::CZtConfigReader::DefaultFileName());
  }
  std::shared_ptr<zt::CZtDataStore> Store(std::int32_t type, const std::string& location,
                                          const std::string& name) {
    auto ds = std::make_shared<zt::CZtDataStore>();
    ds->GeneralProviderType(type);
    ds->Location(location);
    ds->DataStoreName(name);
    return ds;
  }

  zt::testing::RecordingEnv env_;
  fs::path dir_;
};

TEST_F(DataStoreDefinitionTest, ConnectionStringsOfEveryProvider) {
  auto jet = Store(zt::kProviderJet, "C:\\Data", "Help.mdb");
  EXPECT_EQ(jet->ConnectionString(),
            "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=C:\\Data\\Help.mdb");
  EXPECT_EQ(jet->FullPath(), "C:\\Data\\Help.mdb");

  // A Jet password is cut to 14 characters (counted as characters, not bytes).
  jet->SystemDB("C:\\Data\\System.mdw");
  jet->UserName("admin");
  jet->Password("ÄbcdefghijklmnopqrsT");
  EXPECT_EQ(jet->ConnectionString(),
            "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=C:\\Data\\Help.mdb;"
            "Jet OLEDB:System Database=C:\\Data\\System.mdw;User ID=admin;Password=Äbcdefghijklmn");
  jet->Attributes(zt::kAttrOdbcForm);
  EXPECT_EQ(jet->ConnectionString(),
            "Driver=;dbq=;Data Source=C:\\Data\\Help.mdb;SystemDB=C:\\Data\\System.mdw;"
            "Uid=admin;Pwd=Äbcdefghijklmn");

  auto sql = Store(zt::kProviderSqlServer, "HDSRV", "HelpDesk");
  sql->UserName("user1");
  sql->Password("abcdefghijklmnopqrstu");  // never cut for a server
  EXPECT_EQ(sql->ConnectionString(),
            "Provider=MSOLEDBSQL;Data Source=HDSRV;Database=HelpDesk;Uid=user1;"
            "Pwd=abcdefghijklmnopqrstu;");
  sql->Password("abc");
  EXPECT_EQ(sql->ConnectionString(),
            "Provider=MSOLEDBSQL;Data Source=HDSRV;Database=HelpDesk;Uid=user1;Pwd=abc;");
  auto anonymous = Store(zt::kProviderSqlServer, "HDSRV", "HelpDesk");
  EXPECT_EQ(anonymous->ConnectionString(),
            "Provider=MSOLEDBSQL;Data Source=HDSRV;Database=HelpDesk;Uid=;Pwd=;");
  sql->Attributes(zt::kAttrOdbcForm);
  EXPECT_EQ(sql->ConnectionString(),
            "Driver=SQL Server;dbq=;Data Source=HDSRV;Database=HelpDesk;Uid=user1;Pwd=abc;");

  // Masked for log lines and displays: the whole password goes, also one holding a ";" and
  // the Jet form cut to 14 characters.
  sql->Password("s3cr;et!x");
  EXPECT_EQ(sql->MaskedConnectionString(),
            "Driver=SQL Server;dbq=;Data Source=HDSRV;Database=HelpDesk;Uid=user1;Pwd=*;");
  jet->Password("abcdefghi;jklmnopqrs");
  EXPECT_EQ(jet->MaskedConnectionString(),
            "Driver=;dbq=;Data Source=C:\\Data\\Help.mdb;SystemDB=C:\\Data\\System.mdw;"
            "Uid=admin;Pwd=*");

  auto ora = Store(zt::kProviderOracle, "ORA1", "ignored");
  ora->UserName("u");
  ora->Password("p");
  EXPECT_EQ(ora->ConnectionString(),
            "Provider=OraOLEDB.Oracle;Data Source=ORA1;User ID=u;Password=p;");

  auto my = Store(zt::kProviderMySql, "myhost", "help");
  my->UserName("u");
  my->Password("p");
  EXPECT_EQ(my->ConnectionString(),
            "Provider=MSDASQL;Driver={MySQL ODBC 5.3 ANSI Driver};Server=myhost;Database=help;"
            "User=u;Password=p;Option=3");

  // An unsupported provider type: the provider read fails (logged once) and nothing follows.
  auto odd = Store(3, "x", "y");
  EXPECT_EQ(odd->ConnectionString(), "Provider=");
  EXPECT_TRUE(env_.Logged("CZtProvider.GetOLEDBProvider, @Line#20"));
  EXPECT_TRUE(env_.Logged("CZtDataStore.Provider, @Line#10"));
  EXPECT_TRUE(env_.Logged("This data provider is not yet supported: 3"));
}

TEST_F(DataStoreDefinitionTest, AlternativeStringAndIntegratedSecurity) {
  auto sql = Store(zt::kProviderSqlServer, "HDSRV", "HelpDesk");
  sql->UserName("user1");
  sql->Password("abc");
  const std::string built =
      "Provider=MSOLEDBSQL;Data Source=HDSRV;Database=HelpDesk;Uid=user1;Pwd=abc;";

  sql->AltConnString("Timeout=30");
  sql->AltConnStringOperation(zt::kAltConnAppend);
  EXPECT_EQ(sql->ConnectionString(), built + ";Timeout=30");  // the ";;" stays
  sql->AltConnStringOperation(7);                             // any other value appends too
  EXPECT_EQ(sql->ConnectionString(), built + ";Timeout=30");
  sql->AltConnStringOperation(zt::kAltConnIgnore);
  EXPECT_EQ(sql->ConnectionString(), built);
  sql->AltConnStringOperation(zt::kAltConnReplace);
  sql->AltConnString(" Provider=Other;X=1 ");
  EXPECT_EQ(sql->ConnectionString(), " Provider=Other;X=1 ");  // replaced untrimmed
  sql->AltConnString("   ");
  EXPECT_EQ(sql->ConnectionString(), built);  // blanks only do not replace
  sql->AltConnStringOperation(zt::kAltConnAppend);
  EXPECT_EQ(sql->ConnectionString(), built);  // nor append

  Configure("<add key=\"203\" value=\"1\"/>");
  auto trusted = Store(zt::kProviderSqlServer, "HDSRV", "HelpDesk");
  trusted->UserName("user1");
  trusted->Password("abc");
  EXPECT_EQ(trusted->ConnectionString(),
            "Provider=MSOLEDBSQL;Data Source=HDSRV;Database=HelpDesk;Uid=user1;Pwd=abc;"
            "Integrated Security=SSPI;");
  // The provider name is configurable as well.
  Configure("<add key=\"203\" value=\"1\"/><add key=\"10452\" value=\"SQLOLEDB\"/>");
  EXPECT_EQ(Store(zt::kProviderSqlServer, "HDSRV", "HelpDesk")->ConnectionString(),
            "Provider=SQLOLEDB;Data Source=HDSRV;Database=HelpDesk;Uid=;Pwd=;"
            "Integrated Security=SSPI;");
  std::string none;
  EXPECT_EQ(trusted->DAOConnectionString(none, none),
            "ODBC;Driver=SQL Server;Server=HDSRV;Database=HelpDesk;Trusted_Connection=Yes");
  // Asking again does not add a second Trusted_Connection.
  EXPECT_EQ(trusted->DAOConnectionString(none, none),
            "ODBC;Driver=SQL Server;Server=HDSRV;Database=HelpDesk;Trusted_Connection=Yes");
  // Integrated security is for SQL Server only.
  EXPECT_EQ(Store(zt::kProviderOracle, "O", "")->ConnectionString(),
            "Provider=OraOLEDB.Oracle;Data Source=O;User ID=;Password=;");
}

TEST_F(DataStoreDefinitionTest, DaoConnectStringIsCachedUntilLocationChanges) {
  auto jet = Store(zt::kProviderJet, "/srv/help", "help.db");
  EXPECT_EQ(jet->DAOConnectionString("", ""), ";Database=/srv/help/help.db");
  jet->DataStoreName("other.db");  // the name alone does not clear the cache
  EXPECT_EQ(jet->DAOConnectionString("", ""), ";Database=/srv/help/help.db");
  jet->Location("/srv/new");
  EXPECT_EQ(jet->DAOConnectionString("", ""), ";Database=/srv/new/other.db");

  auto sql = Store(zt::kProviderSqlServer, "HDSRV", "HelpDesk");
  EXPECT_EQ(sql->DAOConnectionString("sa", "pw"),
            "ODBC;Driver=SQL Server;Server=HDSRV;Database=HelpDesk;Uid=sa;Pwd=pw");
  EXPECT_EQ(sql->UserName(), "sa");  // the credentials were stored
  EXPECT_EQ(sql->Password(), "pw");
  EXPECT_EQ(Store(zt::kProviderMySql, "h", "d")->DAOConnectionString("u", "p"), "");
}

TEST_F(DataStoreDefinitionTest, ValuesAndComparisonsOfConnectStrings) {
  zt::CZtDataStore ds;
  std::string cs = "Provider=X;Database=Help";
  EXPECT_EQ(ds.GetValueFromConnectionString("Database", cs), "Help");
  cs = "database=Help;Uid=a";
  EXPECT_EQ(ds.GetValueFromConnectionString("Database", cs), "Help");
  cs = "Uid=a;Pwd=";
  EXPECT_EQ(ds.GetValueFromConnectionString("Pwd", cs), "");
  EXPECT_EQ(ds.GetValueFromConnectionString("Server", cs), "");
  std::string empty;
  EXPECT_EQ(ds.GetValueFromConnectionString("Server", empty), "");  // no open connection

  // Positions were 16-bit: a key found at character 32767 is read, one beyond overflows.
  std::string at_limit = std::string(32766, 'x') + "Key=v;";
  EXPECT_EQ(ds.GetValueFromConnectionString("Key", at_limit), "v");
  EXPECT_TRUE(env_.Errors().empty());
  std::string beyond = "é" + std::string(32766, 'x') + "Key=v";
  EXPECT_EQ(ds.GetValueFromConnectionString("Key", beyond), "");
  ASSERT_EQ(env_.Errors().size(), 1u);
  EXPECT_NE(env_.Errors()[0].find("CZtDataStore.GetValueFromConnectionString, @Line#20"),
            std::string::npos);
  EXPECT_NE(env_.Errors()[0].find("Overflow"), std::string::npos);

  auto jet = Store(zt::kProviderJet, "/srv", "help.db");
  std::string a = ";DATABASE=/srv/help.db", b = ";database=/SRV/HELP.DB", none;
  EXPECT_FALSE(jet->SameConnectionString(a, b, false));
  EXPECT_TRUE(jet->SameConnectionString(a, b, true));
  EXPECT_TRUE(jet->SameConnectionString(a, none, true));
  std::string other = ";Database=/srv/other.db";
  EXPECT_FALSE(jet->SameConnectionString(other, none, true));

  auto sql = Store(zt::kProviderSqlServer, "HDSRV", "HelpDesk");
  std::string s1 = "ODBC;Server=HDSRV;Database=HelpDesk",
              s2 = "ODBC;SERVER=hdsrv;DATABASE=helpdesk";
  std::string s3 = "ODBC;Server=OTHER;Database=HelpDesk";
  EXPECT_TRUE(sql->SameConnectionString(s1, s2, true));
  EXPECT_FALSE(sql->SameConnectionString(s1, s3, true));
  EXPECT_TRUE(sql->SameConnectionString(s2, none, true));
  EXPECT_FALSE(sql->SameConnectionString(s3, none, true));
  EXPECT_FALSE(Store(zt::kProviderOracle, "HDSRV", "HelpDesk")->SameConnectionString(s1, s2, true));
}

TEST_F(DataStoreDefinitionTest, ProviderAndDriverDefaultsAndDefinitionCopy) {
  auto sql = Store(zt::kProviderSqlServer, "HDSRV", "HelpDesk");
  EXPECT_EQ(sql->ODBCDriver(), "SQL Server");
  EXPECT_EQ(Store(zt::kProviderOracle, "", "")->ODBCDriver(), "Microsoft ODBC Driver for Oracle");
  EXPECT_EQ(Store(zt::kProviderJet, "", "")->ODBCDriver(), "");
  sql->Provider("  ");
  EXPECT_EQ(sql->Provider(), "MSOLEDBSQL");  // blank counts as unset
  sql->GeneralProviderType(zt::kProviderOracle);
  EXPECT_EQ(sql->Provider(), "MSOLEDBSQL");  // filled once, kept
  EXPECT_EQ(sql->ODBCDriver(), "SQL Server");

  Configure("<add key=\"501\" value=\"2\"/><add key=\"502\" value=\"7\"/>");
  auto ds = Store(zt::kProviderJet, "/a", "b.db");
  EXPECT_EQ(ds->MaxRetries(), 2);
  EXPECT_EQ(ds->RetryInterval(), 7);
  ds->Order(3);
  ds->SecurityAccess(4);
  ds->SecurityDB("sec");
  ds->AltLocation("/alt");
  ds->DataStoreType(9);
  ds->Password("pw");
  ds->Attributes(zt::kAttrOdbcForm | zt::kAttrDaoSupplied);
  std::shared_ptr<zt::IZtDSDefinition> copy = ds->Copy();
  EXPECT_EQ(copy->Name(), "b.db");
  EXPECT_EQ(copy->Location(), "/a");
  EXPECT_EQ(copy->Type(), 9);
  EXPECT_EQ(copy->ProviderType(), zt::kProviderJet);
  EXPECT_EQ(copy->Order(), 3);
  EXPECT_EQ(copy->SecurityAccess(), 4);
  EXPECT_EQ(copy->SecurityDB(), "sec");
  EXPECT_EQ(copy->AltLocation(), "/alt");
  auto copied = std::dynamic_pointer_cast<zt::CZtDataStore>(copy);
  ASSERT_TRUE(copied);
  EXPECT_EQ(copied->Attributes(), zt::kAttrOdbcForm);
  EXPECT_EQ(copied->Password(), "pw");
  copy->Name("changed");
  EXPECT_EQ(ds->DataStoreName(), "b.db");
}

TEST_F(DataStoreDefinitionTest, ProviderNamesPrefixesAndTypes) {
  zt::CZtProvider p;
  EXPECT_EQ(p.GetOLEDBProvider(zt::kProviderJet, ""), "Microsoft.Jet.OLEDB.4.0");
  EXPECT_EQ(p.GetOLEDBProvider(zt::kProviderJet, "3.51"), "Microsoft.Jet.OLEDB.3.51");
  EXPECT_EQ(p.GetOLEDBProvider(zt::kProviderJet, "4.0"), "Microsoft.Jet.OLEDB.4.0");
  EXPECT_EQ(p.GetOLEDBProvider(zt::kProviderMySql, ""), "MSDASQL");
  EXPECT_EQ(p.GetOLEDBProviderPrefix(zt::kProviderJet), "Microsoft.Jet");
  EXPECT_EQ(p.GetCaptionName(zt::kProviderOracle), "Oracle");
  EXPECT_EQ(p.GetProviderType("MSDASQL"), zt::kProviderMySql);
  EXPECT_EQ(p.GetProviderType("microsoft.jet.oledb.4.0"), zt::kProviderJet);
  EXPECT_EQ(p.GetProviderType("MSOLEDBSQL.1"), zt::kProviderSqlServer);
  EXPECT_EQ(p.GetProviderType("SQLite"), 0);
  // The last type in the order 1, 4, 2, 16 wins.
  EXPECT_EQ(p.GetProviderType("MSOLEDBSQL over MSDASQL"), zt::kProviderMySql);

  for (auto call : {+[](zt::CZtProvider& q) { q.GetOLEDBProvider(8, ""); },
                    +[](zt::CZtProvider& q) { q.GetOLEDBProviderPrefix(0); },
                    +[](zt::CZtProvider& q) { q.GetCaptionName(64); },
                    +[](zt::CZtProvider& q) { q.GetLatestOLEDBProvider(-1); }}) {
    try {
      call(p);
      ADD_FAILURE() << "no error raised";
    } catch (const zt::ZtError& e) {
      EXPECT_EQ(e.Number(), zt::vbObjectError + 9020);
      EXPECT_EQ(e.Description().rfind("This data provider is not yet supported: ", 0), 0u);
    }
  }

  // ODBC drivers registered with the driver manager count as installed, with their versions:
  // the newest name carrying the prefix wins over the library's own provider.
  std::ofstream(dir_ / "odbcinst.ini")
      << "[MSOLEDBSQL bridge old]\nDriver=/nonexistent/a.so\nVersion=1.5\n\n"
      << "[MSOLEDBSQL bridge new]\nDriver=/nonexistent/b.so\nVersion=19.2\n\n"
      << "[Unrelated]\nDriver=/nonexistent/c.so\nVersion=99\n";
  // The driver manager remembers the first odbcinst.ini it read for the life of the process,
  // so the private list is read in a child process of its own.
  std::string latest_sql, unrelated_version;
  {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ::setenv("ODBCSYSINI", dir_.c_str(), 1);
      std::string out = p.GetLatestOLEDBProvider(zt::kProviderSqlServer) + "\n";
      for (const auto& i : zt::CZtProvider::InstalledProviders())
        if (i.name == "Unrelated") out += i.version;
      (void)!::write(fds[1], out.data(), out.size());
      ::_exit(0);
    }
    ::close(fds[1]);
    std::string got;
    char buf[256];
    for (ssize_t n; (n = ::read(fds[0], buf, sizeof buf)) > 0;) got.append(buf, n);
    ::close(fds[0]);
    ::waitpid(child, nullptr, 0);
    latest_sql = got.substr(0, got.find('\n'));
    unrelated_version = got.substr(got.find('\n') + 1);
  }
  EXPECT_EQ(latest_sql, "MSOLEDBSQL bridge new");
  EXPECT_EQ(unrelated_version, "99");
  EXPECT_EQ(p.GetLatestOLEDBProvider(zt::kProviderMySql), "MSDASQL");
  EXPECT_EQ(p.GetLatestOLEDBProvider(zt::kProviderJet), "Microsoft.Jet.OLEDB.4.0");
  EXPECT_LT(zt::CZtProvider::CompareVersions("9.11", "10.2"), 0);
  EXPECT_EQ(zt::CZtProvider::CompareVersions("3.0", "3"), 0);
  EXPECT_GT(zt::CZtProvider::CompareVersions("03.51.2", "03.51"), 0);
  Configure("<add key=\"10454\" value=\"Nothing.Here\"/>");
  zt::CZtProvider renamed;
  EXPECT_EQ(renamed.GetLatestOLEDBProvider(zt::kProviderJet), "");
}

}  // namespace
