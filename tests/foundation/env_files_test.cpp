// The file members of Env: what the real file system defaults refuse to do, and a data store
// whose move breaks half-way through staying where it was.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
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

// A whole-file write killed at any moment leaves the file as it was and nothing beside it; a
// complete one keeps the old file as .bak, and the file is never missing in between.
TEST_F(EnvFilesTest, CarefulWritesLeaveNothingBehindWhenKilled) {
  zt::Env& env = zt::Env::Default();
  std::ofstream(P("f.xml")) << "old";
  fs::permissions(P("f.xml"), fs::perms::owner_read | fs::perms::owner_write);
  const auto names = [&] {
    std::set<std::string> n;
    for (const auto& e : fs::directory_iterator(dir_)) n.insert(e.path().filename().string());
    return n;
  };
  for (bool committing : {false, true}) {
    SCOPED_TRACE(committing ? "killed while renaming" : "killed while writing");
    const pid_t child = ::fork();
    if (child == 0) {
      (void)env.WriteFile(
          P("f.xml"),
          [&](std::ostream& out) {
            out << std::string(1 << 20, 'n');
            out.flush();
            if (!committing) std::raise(SIGKILL);
          },
          true);
      std::raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    if (!committing) {
      EXPECT_EQ(names(), std::set<std::string>{"f.xml"});
      EXPECT_EQ(Read(P("f.xml")), "old");
    }
  }
  EXPECT_EQ(names(), (std::set<std::string>{"f.xml", "f.xml.bak"}));
  EXPECT_EQ(Read(P("f.xml.bak")), "old");
  EXPECT_EQ(Read(P("f.xml")).size(), 1u << 20);
  EXPECT_EQ(fs::status(P("f.xml")).permissions() & fs::perms::all,
            fs::perms::owner_read | fs::perms::owner_write);

  // What the writer raises passes through and changes nothing.
  EXPECT_THROW(env.WriteFile(
                   P("f.xml"), [](std::ostream&) { throw std::runtime_error("x"); }, true),
               std::runtime_error);
  EXPECT_EQ(names(), (std::set<std::string>{"f.xml", "f.xml.bak"}));
}

}  // namespace
