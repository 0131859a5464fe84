// The registry store in a file: only a small regular file is ever read.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <thread>

#include "support/test_env.h"
#include "zt/env.h"
#include "zt/event_logger.h"

namespace fs = std::filesystem;

namespace zt {
namespace {

// A test environment whose registry is the store file at `path`.
class FileRegistryEnv : public testing::RecordingEnv {
 public:
  explicit FileRegistryEnv(const std::string& path) : store_(RegistryStore::OpenFile(path)) {}
  RegistryStore& Registry() override { return *store_; }

 private:
  std::unique_ptr<RegistryStore> store_;
};

// Runs `check` in a child process and says whether it returned true within `seconds`. A child
// that hangs or keeps reading is killed, so a fault fails the test instead of stalling it.
bool TrueWithin(int seconds, const std::function<bool()>& check) {
  const pid_t child = fork();
  if (child == 0) _exit(check() ? 0 : 1);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  int status = 0;
  while (waitpid(child, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      kill(child, SIGKILL);
      waitpid(child, &status, 0);
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::int32_t LevelFrom(const std::string& path) {
  FileRegistryEnv env(path);
  return CZtEventLogger().Level();
}

TEST(RegistryFile, OnlyASmallRegularFileIsRead) {
  const fs::path dir = fs::temp_directory_path() / ("zt-registry-" + std::to_string(getpid()));
  fs::create_directories(dir);
  const std::string good = (dir / "registry.ini").string();
  std::ofstream(good) << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillmark]\nEventLogLevel=255\n";
  EXPECT_EQ(LevelFrom(good), 255);
  EXPECT_EQ(LevelFrom((dir / "missing.ini").string()), -1);

  // A FIFO nobody writes to would block an ordinary open for good; /dev/urandom never ends.
  // Both count as a missing key, at once, and are not written either.
  const std::string fifo = (dir / "fifo.ini").string();
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {fifo, std::string("/dev/urandom")}) {
    EXPECT_TRUE(TrueWithin(20, [&] {
      FileRegistryEnv env(path);
      return CZtEventLogger().Level() == -1 &&
             !env.Registry().WriteValue("HKLM\\SOFTWARE\\Quillmark", "EventLogLevel", "1");
    })) << path;
  }

  // A file beyond the bound is no store of ours, however its text begins.
  const std::string big = (dir / "big.ini").string();
  {
    std::ofstream out(big);
    out << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillmark]\nEventLogLevel=255\n";
    out << std::string(2 << 20, '#') << "\n";
  }
  EXPECT_EQ(LevelFrom(big), -1);
  fs::remove_all(dir);
}

}  // namespace
}  // namespace zt
