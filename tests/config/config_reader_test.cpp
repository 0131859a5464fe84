#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/test_env.h"
#include "zt/config.h"

namespace fs = std::filesystem;

namespace {

class ConfigReaderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("ztcfg-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_);
    env_.app_path = dir_.string();
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::string Write(const std::string& name, const std::string& text) {
    std::string path = (dir_ / name).string();
    std::ofstream(path) << text;
    return path;
  }

  zt::testing::RecordingEnv env_;
  fs::path dir_;
};

TEST_F(ConfigReaderTest, FileOverridesAndFallsBackToResources) {
  std::string path = Write("a.zt.config",
                           "<configuration><appSettings>"
                           "<add key=\"417\" value=\"Query\"/>"
                           "<add key=\"417\" value=\"Second\"/>"          // first entry wins
                           "<setting key=\"10452\" value=\"SQLOLEDB\"/>"  // any element name
                           "<add value=\"no key\"/>"                      // skipped
                           "<!-- <add key=\"421\" value=\"commented out\"/> -->"
                           "<add key=\"502\" value=\"\"/>"  // empty: falls back
                           "<add key=\"PROVIDER_SQL\" value=\"SQL box\"/>"
                           "</appSettings></configuration>");
  zt::CZtConfigReader reader;
  EXPECT_EQ(reader.Dictionary(), nullptr);
  reader.Load(path);
  ASSERT_NE(reader.Dictionary(), nullptr);
  EXPECT_EQ(reader.Dictionary()->Keys(),
            (std::vector<std::string>{"417", "10452", "502", "PROVIDER_SQL"}));

  EXPECT_EQ(reader.LoadConfigResString("417"), "Query");
  EXPECT_EQ(reader.LoadConfigResString("10452"), "SQLOLEDB");
  EXPECT_EQ(reader.LoadConfigResString("416"), "//appSettings");  // numbered table
  EXPECT_EQ(reader.LoadConfigResString("421"), "key");
  EXPECT_EQ(reader.LoadConfigResString("502"), "100");
  EXPECT_EQ(reader.LoadConfigResString("PROVIDER_SQL"), "SQL box");
  EXPECT_EQ(reader.LoadConfigResString("PROVIDER_JET"), "Microsoft Access (Jet)");  // named
  EXPECT_EQ(reader.LoadConfigResString("NO_SUCH_MESSAGE"), "");
  EXPECT_TRUE(env_.Logged("CZtConfigReader.GetValue, Key not found:416"));
  EXPECT_TRUE(reader.GetValue("nope").IsEmpty());
  EXPECT_TRUE(env_.Errors().empty());

  // Closing keeps an empty dictionary; the file is not read again, lookups fall back.
  reader.CloseRes();
  ASSERT_NE(reader.Dictionary(), nullptr);
  EXPECT_EQ(reader.Dictionary()->Count(), 0u);
  EXPECT_EQ(reader.LoadConfigResString("417"), "SelectionLanguage");
}

TEST_F(ConfigReaderTest, BadFilesAreReportedAndLeaveNothingLoaded) {
  zt::CZtConfigReader reader;
  std::string missing = (dir_ / "missing.zt.config").string();
  reader.Load(missing);
  EXPECT_EQ(reader.Dictionary(), nullptr);
  EXPECT_TRUE(env_.Logged("CZtConfigReader.CreateDictionary, File not loaded:" + missing));
  EXPECT_TRUE(env_.Errors().empty());  // a diagnostic, not an error

  std::string broken = Write("broken.zt.config", "<configuration><appSettings><add key=");
  reader.Load(broken);
  EXPECT_EQ(reader.Dictionary(), nullptr);
  EXPECT_TRUE(env_.Logged("CZtConfigReader.CreateDictionary, File not loaded:" + broken));

  // A loaded dictionary is replaced by a failed load.
  reader.Load(
      Write("good.zt.config", "<c><appSettings><add key=\"a\" value=\"1\"/></appSettings></c>"));
  ASSERT_NE(reader.Dictionary(), nullptr);
  reader.Load(Write("nosection.zt.config", "<configuration><other/></configuration>"));
  EXPECT_EQ(reader.Dictionary(), nullptr);
  ASSERT_EQ(env_.Errors().size(), 1u);
  EXPECT_EQ(env_.Errors()[0].rfind("CZtConfigReader.CreateDictionary, Line#20", 0), 0u)
      << env_.Errors()[0];

  reader.Load(Write("novalue.zt.config",
                    "<configuration><appSettings><add key=\"a\"/></appSettings></configuration>"));
  EXPECT_EQ(reader.Dictionary(), nullptr);
  EXPECT_EQ(env_.Errors().size(), 2u);
}

TEST_F(ConfigReaderTest, DefaultFileLiesBesideTheLibrary) {
  EXPECT_EQ(zt::CZtConfigReader::DefaultFileName(), (dir_ / "ztdbtools.zt.config").string());
  // No file yet: the shared reader falls back to the resources.
  EXPECT_EQ(zt::LoadConfigResString(501), "5");

  Write("ztdbtools.zt.config",
        "<configuration><deep><appSettings><add key=\"501\" value=\"2\"/></appSettings></deep>"
        "</configuration>");
  zt::CZtConfigReader reader;
  EXPECT_EQ(reader.LoadConfigResString("501"), "2");
  EXPECT_EQ(zt::LoadConfigResString(501), "2");  // a missing file is tried again
  EXPECT_EQ(zt::LoadConfigResString(502), "100");
}

}  // namespace
