// The file members of Env: what the real file system defaults refuse to do, and a data store
// whose move breaks half-way through staying where it was.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <system_error>

#include "support/test_env.h"
#include "zt/datastore.h"
#include "zt/error.h"
#include "zt/platform.h"

namespace fs = std::filesystem;

namespace {

class EnvFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("zt-envfiles-" + std::to_string(::getpid()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  static std::string Read(const fs::path& p) {
    std::ifstream in(p);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  std::string P(const std::string& name) const { return (dir_ / name).string(); }

  fs::path dir_;
};

TEST_F(EnvFilesTest, DefaultsNeverTakeOrOverwriteWhatIsNotTheirs) {
  zt::Env& env = zt::Env::Default();
  std::ofstream(P("db")) << "database";
  std::ofstream(P("other")) << "someone else's";
  fs::create_directory(P("db-journal"));
  fs::create_symlink(P("nowhere"), P("dangling"));

  // A folder carrying a file's name stays; a file goes; nothing at all is an error.
  EXPECT_TRUE(env.RemoveFile(P("db-journal")));
  EXPECT_TRUE(fs::is_directory(P("db-journal")));
  EXPECT_TRUE(env.RemoveFile(P("missing")));

  // A copy lands neither on an existing file nor through a link that points nowhere.
  EXPECT_TRUE(env.CopyFile(P("db"), P("other")));
  EXPECT_EQ(Read(P("other")), "someone else's");
  EXPECT_TRUE(env.CopyFile(P("db"), P("dangling")));
  EXPECT_FALSE(fs::exists(P("nowhere")));
  EXPECT_FALSE(env.CopyFile(P("db"), P("copy")));
  EXPECT_EQ(Read(P("copy")), "database");

  // A dangling link is no file to open, but the place is taken.
  EXPECT_FALSE(env.FileExists(P("dangling")));
  EXPECT_TRUE(env.PathInUse(P("dangling")));
  EXPECT_TRUE(env.FileExists(P("db-journal")));

  EXPECT_TRUE(env.RenameFile(P("missing"), P("x")));
  EXPECT_FALSE(env.RenameFile(P("copy"), P("renamed")));
  EXPECT_FALSE(env.RemoveFile(P("renamed")));
  EXPECT_FALSE(env.PathInUse(P("renamed")));
}

// Breaks the file operations on request; everything else reaches the real file system.
class FaultyFilesEnv : public zt::testing::RecordingEnv {
 public:
  std::error_code rename_error;  // returned by RenameFile instead of renaming
  bool copy_fails = false;       // CopyFile writes part of the copy and fails
  std::set<std::string> undeletable;
  std::vector<std::string> calls;

  std::error_code RenameFile(const std::string& from, const std::string& to) override {
    calls.push_back("rename");
    return rename_error ? rename_error : RecordingEnv::RenameFile(from, to);
  }
  std::error_code CopyFile(const std::string& from, const std::string& to) override {
    calls.push_back("copy");
    if (!copy_fails) return RecordingEnv::CopyFile(from, to);
    std::ofstream(to) << "SQLite format 3";  // the disk filled up after a few bytes
    return std::make_error_code(std::errc::no_space_on_device);
  }
  std::error_code RemoveFile(const std::string& path) override {
    calls.push_back("remove " + fs::path(path).filename().string());
    if (undeletable.count(path)) return std::make_error_code(std::errc::permission_denied);
    return RecordingEnv::RemoveFile(path);
  }
};

TEST_F(EnvFilesTest, AMoveThatFailsLeavesTheStoreWhereItWas) {
  FaultyFilesEnv env;
  env.app_path = dir_.string();
  env.real_sleep = false;
  fs::create_directories(dir_ / "a");
  fs::create_directories(dir_ / "b");
  zt::CZtDataStore ds;
  ds.GeneralProviderType(zt::kProviderJet);
  ds.Location(P("a"));
  ds.DataStoreName("hd.db");
  ds.CreatePhysicalDataStore();
  ds.GetConnection(1)->Execute("CREATE TABLE [t] ([n] INTEGER)");
  ds.GetConnection(1)->Execute("INSERT INTO [t] ([n]) VALUES (7)");
  const auto rows_at = [&](const std::string& folder) {
    zt::CZtDataStore other;
    other.GeneralProviderType(zt::kProviderJet);
    other.Location(folder);
    other.DataStoreName("hd.db");
    auto rs = other.GetConnection(1)->Execute("SELECT COUNT(*) AS c FROM [t]");
    return rs->Value("c").ToText();
  };
  const auto stayed = [&](const std::string& why) {
    EXPECT_EQ(ds.Location(), P("a")) << why;
    EXPECT_EQ(rows_at(P("a")), "1") << why;
    EXPECT_TRUE(fs::is_empty(dir_ / "b")) << why;
  };

  // The rename is refused and the copy fills the disk: the part written goes again.
  env.rename_error = std::make_error_code(std::errc::permission_denied);
  env.copy_fails = true;
  EXPECT_THROW(ds.MovePhysicalDataStore(P("b")), zt::ZtError);
  stayed("failed copy");

  // Another file system, and the original cannot be removed: the complete copy goes again,
  // so the store is never in two places.
  env.rename_error = std::make_error_code(std::errc::cross_device_link);
  env.copy_fails = false;
  env.undeletable = {P("a/hd.db")};
  env.calls.clear();
  EXPECT_THROW(ds.MovePhysicalDataStore(P("b")), zt::ZtError);
  EXPECT_EQ(env.calls,
            (std::vector<std::string>{"rename", "copy", "remove hd.db", "remove hd.db"}));
  stayed("original not removable");

  // Another file system that works: copied, original removed, the store is in b.
  env.undeletable.clear();
  ds.MovePhysicalDataStore(P("b"));
  EXPECT_EQ(ds.Location(), P("b"));
  EXPECT_FALSE(fs::exists(dir_ / "a" / "hd.db"));
  EXPECT_EQ(rows_at(P("b")), "1");

  // The same file system: one rename, nothing copied.
  env.rename_error = {};
  env.calls.clear();
  ds.MovePhysicalDataStore(P("a"));
  EXPECT_EQ(env.calls, (std::vector<std::string>{"rename"}));
  EXPECT_EQ(rows_at(P("a")), "1");
}

}  // namespace
