// A test environment: every effect of the library on the world outside its databases is
// recorded here instead of reaching syslog, the real registry file or the clock.
//
//   zt::testing::RecordingEnv env;   // installs itself for the calling thread
//   ... call the library ...
//   EXPECT_EQ(env.Errors().size(), 1u);
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "zt/env.h"

namespace zt::testing {

class RecordingLog : public ApplicationLog {
 public:
  struct Entry {
    std::string text;
    std::int32_t event_type;
  };
  void StartLogging(const std::string& target, std::int32_t mode) override {
    targets.push_back(target);
    modes.push_back(mode);
  }
  void LogEvent(const std::string& text, std::int32_t event_type) override {
    entries.push_back({text, event_type});
  }
  std::vector<Entry> entries;
  std::vector<std::string> targets;
  std::vector<std::int32_t> modes;
};

class RecordingEnv : public EnvWrapper {
 public:
  // Installs itself as the thread's environment (fresh per-thread state) until destroyed.
  // The registry starts empty (every log level passes) unless `event_log_level` is given.
  explicit RecordingEnv(std::optional<std::int32_t> event_log_level = std::nullopt)
      : EnvWrapper(Env::Default()), scope_(Prepare(event_log_level)) {}

  std::chrono::system_clock::time_point Now() override {
    return fixed_now ? *fixed_now : EnvWrapper::Now();
  }
  void SleepForMilliseconds(std::int64_t ms) override {
    sleeps.push_back(ms);
    if (real_sleep) EnvWrapper::SleepForMilliseconds(ms);
  }
  RegistryStore& Registry() override { return registry; }
  ApplicationLog& AppLog() override { return log; }
  bool AppendToFile(const std::string& path, const std::string& text) override {
    if (!capture_files) return EnvWrapper::AppendToFile(path, text);
    files[path] += text;
    return true;
  }
  std::string AppPath() override { return app_path ? *app_path : EnvWrapper::AppPath(); }
  std::int64_t ThreadId() override { return thread_id ? *thread_id : EnvWrapper::ThreadId(); }

  // Entries of the application log whose event type is `type`.
  std::vector<std::string> EntriesOfType(std::int32_t type) const {
    std::vector<std::string> out;
    for (const auto& e : log.entries)
      if (e.event_type == type) out.push_back(e.text);
    return out;
  }
  std::vector<std::string> Errors() const { return EntriesOfType(1); }
  std::vector<std::string> Warnings() const { return EntriesOfType(2); }
  // True when some entry contains `needle`.
  bool Logged(const std::string& needle) const {
    for (const auto& e : log.entries)
      if (e.text.find(needle) != std::string::npos) return true;
    return false;
  }

  MemoryRegistryStore registry;
  RecordingLog log;
  std::vector<std::int64_t> sleeps;
  bool real_sleep = true;
  bool capture_files = true;
  std::map<std::string, std::string> files;
  std::optional<std::chrono::system_clock::time_point> fixed_now;
  std::optional<std::string> app_path;
  std::optional<std::int64_t> thread_id;

 private:
  RecordingEnv& Prepare(std::optional<std::int32_t> level) {
    if (level)
      registry.WriteValue("HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillmark", "EventLogLevel",
                          std::to_string(*level));
    return *this;
  }
  ScopedEnv scope_;
};

}  // namespace zt::testing
