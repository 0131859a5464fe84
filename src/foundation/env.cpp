#include "zt/env.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

#include "foundation/sibling_file.h"
#include "foundation/thread_state.h"

namespace zt {

namespace {

std::string Upper(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return s;
}

std::string Trim(const std::string& s) {
  auto b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return {};
  auto e = s.find_last_not_of(" \t\r\n");
  return s.substr(b, e - b + 1);
}

// Registry paths are written with "\" in the old library; "/" and a leading "\" are accepted
// and normalised here so that both spellings find the same key.
std::string NormaliseKey(std::string key) {
  std::replace(key.begin(), key.end(), '/', '\\');
  while (!key.empty() && key.front() == '\\') key.erase(key.begin());
  while (!key.empty() && key.back() == '\\') key.pop_back();
  key = Upper(key);
  if (key.rfind("HKLM\\", 0) == 0) key = "HKEY_LOCAL_MACHINE\\" + key.substr(5);
  return key;
}

// The store is a few lines an administrator writes; anything bigger is not one.
constexpr std::size_t kMaxRegistryFileBytes = 1 << 20;

enum class FileRead { kRead, kMissing, kRefused };

// Reads `path` only when it is a regular file of at most kMaxRegistryFileBytes. The file is
// opened without blocking and checked after opening, so a FIFO without a writer, a device
// such as /dev/urandom or a file swapped in between cannot hang the reader or fill its memory.
FileRead ReadBoundedRegularFile(const std::string& path, std::string& text) {
  text.clear();
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) return errno == ENOENT || errno == ENOTDIR ? FileRead::kMissing : FileRead::kRefused;
  struct stat st {};
  FileRead result = FileRead::kRefused;
  if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
      static_cast<std::uint64_t>(st.st_size) <= kMaxRegistryFileBytes) {
    // The size is checked again while reading: a file may grow after fstat.
    char buffer[8192];
    result = FileRead::kRead;
    for (;;) {
      const ssize_t got = ::read(fd, buffer, sizeof buffer);
      if (got == 0) break;
      if (got < 0) {
        if (errno == EINTR) continue;
        result = FileRead::kRefused;
        break;
      }
      text.append(buffer, static_cast<std::size_t>(got));
      if (text.size() > kMaxRegistryFileBytes) {
        result = FileRead::kRefused;
        break;
      }
    }
  }
  ::close(fd);
  if (result != FileRead::kRead) text.clear();
  return result;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

class FileRegistryStore : public RegistryStore {
 public:
  explicit FileRegistryStore(std::string path) : path_(std::move(path)) {}

  bool KeyExists(const std::string& key) const override {
    return Load().count(NormaliseKey(key)) != 0;
  }
  std::optional<std::string> ReadValue(const std::string& key,
                                       const std::string& name) const override {
    auto all = Load();
    auto k = all.find(NormaliseKey(key));
    if (k == all.end()) return std::nullopt;
    auto v = k->second.find(Upper(name));
    if (v == k->second.end()) return std::nullopt;
    return v->second;
  }
  bool WriteValue(const std::string& key, const std::string& name,
                  const std::string& value) override {
    // Rewrites the whole file; the store is small and written rarely (by administrators).
    // Something that is not a store file of ours (a FIFO, a device, a huge file) is left alone.
    std::string text;
    if (ReadBoundedRegularFile(path_, text) == FileRead::kRefused) return false;
    std::vector<std::string> lines = Lines(text);
    const std::string want = NormaliseKey(key);
    std::size_t insert_at = lines.size();
    bool in_section = false, found_section = false;
    for (std::size_t i = 0; i < lines.size(); ++i) {
      std::string t = Trim(lines[i]);
      if (!t.empty() && t.front() == '[' && t.back() == ']') {
        if (in_section) {
          insert_at = i;
          break;
        }
        in_section = NormaliseKey(t.substr(1, t.size() - 2)) == want;
        found_section |= in_section;
        continue;
      }
      auto eq = t.find('=');
      if (in_section && eq != std::string::npos && Upper(Trim(t.substr(0, eq))) == Upper(name)) {
        lines[i] = name + "=" + value;
        return Save(lines);
      }
    }
    if (!found_section) {
      lines.push_back("[" + key + "]");
      insert_at = lines.size();
    }
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(insert_at), name + "=" + value);
    return Save(lines);
  }

 private:
  using Keys = std::map<std::string, std::map<std::string, std::string>>;

  Keys Load() const {
    // A file that cannot be read safely counts as a missing store, as a missing key would.
    Keys keys;
    std::string text;
    if (ReadBoundedRegularFile(path_, text) != FileRead::kRead) return keys;
    std::string section;
    for (const std::string& line : Lines(text)) {
      std::string t = Trim(line);
      if (t.empty() || t.front() == '#' || t.front() == ';') continue;
      if (t.front() == '[' && t.back() == ']') {
        section = NormaliseKey(t.substr(1, t.size() - 2));
        keys[section];
        continue;
      }
      auto eq = t.find('=');
      if (eq == std::string::npos || section.empty()) continue;
      keys[section][Upper(Trim(t.substr(0, eq)))] = Trim(t.substr(eq + 1));
    }
    return keys;
  }

  bool Save(const std::vector<std::string>& lines) {
    std::error_code ec;
    auto parent = std::filesystem::path(path_).parent_path();
    if (!parent.empty()) std::filesystem::create_directories(parent, ec);
    // Never written in place: a reader (or a crash) sees the old settings or the new ones.
    SiblingFile file(path_);
    std::ostream out(&file);
    for (const auto& l : lines) out << l << '\n';
    out.flush();
    return !file.Commit();
  }

  std::string path_;
};

class SyslogApplicationLog : public ApplicationLog {
 public:
  void StartLogging(const std::string& target, std::int32_t /*mode*/) override {
    // The old run time switched its log file here; syslog has no targets, so the target is
    // only remembered for hosts that ask.
    std::lock_guard<std::mutex> lock(mu_);
    target_ = target;
  }
  void LogEvent(const std::string& text, std::int32_t event_type) override {
    static std::once_flag opened;
    std::call_once(opened, [] { openlog("ztdbtools", LOG_PID, LOG_USER); });
    int priority = event_type == 1 ? LOG_ERR : event_type == 2 ? LOG_WARNING : LOG_INFO;
    syslog(priority, "%s", text.c_str());
  }

 private:
  std::mutex mu_;
  std::string target_;
};

class PosixEnv : public Env {
 public:
  PosixEnv() : registry_(RegistryStore::OpenFile(RegistryStore::DefaultPath())) {}
  std::chrono::system_clock::time_point Now() override { return std::chrono::system_clock::now(); }
  void SleepForMilliseconds(std::int64_t ms) override {
    if (ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(ms));
  }
  RegistryStore& Registry() override { return *registry_; }
  ApplicationLog& AppLog() override { return app_log_; }
  bool AppendToFile(const std::string& path, const std::string& text) override {
    std::ofstream out(path, std::ios::app | std::ios::binary);
    if (!out) return false;
    out << text;
    return static_cast<bool>(out);
  }
  std::string AppPath() override {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&ThreadState), &info) != 0 && info.dli_fname) {
      auto p = std::filesystem::absolute(info.dli_fname).parent_path();
      return p.string();
    }
    return std::filesystem::current_path().string();
  }
  std::int64_t ThreadId() override { return static_cast<std::int64_t>(::syscall(SYS_gettid)); }

 private:
  std::unique_ptr<RegistryStore> registry_;
  SyslogApplicationLog app_log_;
};

}  // namespace

std::unique_ptr<RegistryStore> RegistryStore::OpenFile(std::string path) {
  return std::make_unique<FileRegistryStore>(std::move(path));
}

std::string RegistryStore::DefaultPath() {
  if (const char* p = std::getenv("ZT_REGISTRY_FILE"); p && *p) return p;
  return "/etc/ztdbtools/registry.ini";
}

Env& Env::Default() {
  static PosixEnv* env = new PosixEnv();  // never destroyed: threads may log during exit
  return *env;
}

Env& Env::Current() {
  Env* e = ThreadState().env;
  return e ? *e : Default();
}

PerThread& ThreadState() {
  thread_local PerThread state;
  return state;
}

ScopedEnv::ScopedEnv(Env& env) : previous_(ThreadState().env) {
  ResetThreadState();
  ThreadState().env = &env;
}

ScopedEnv::~ScopedEnv() {
  ResetThreadState();
  ThreadState().env = previous_;
}

namespace {
std::vector<void (*)()>& ResetHooks() {
  static std::vector<void (*)()> hooks;
  return hooks;
}
std::mutex& ResetHooksMutex() {
  static std::mutex mu;
  return mu;
}
}  // namespace

void AddThreadStateResetHook(void (*hook)()) {
  std::lock_guard<std::mutex> lock(ResetHooksMutex());
  ResetHooks().push_back(hook);
}

void ResetThreadState() {
  std::vector<void (*)()> hooks;
  {
    std::lock_guard<std::mutex> lock(ResetHooksMutex());
    hooks = ResetHooks();
  }
  for (auto hook : hooks) hook();
  PerThread& s = ThreadState();
  Env* env = s.env;
  // The module logger goes first, while the rest of the state it may touch is still there.
  s.module_logger.reset();
  s = PerThread{};
  s.env = env;
}

bool MemoryRegistryStore::KeyExists(const std::string& key) const {
  return keys_.count(NormaliseKey(key)) != 0;
}

std::optional<std::string> MemoryRegistryStore::ReadValue(const std::string& key,
                                                          const std::string& name) const {
  auto k = keys_.find(NormaliseKey(key));
  if (k == keys_.end()) return std::nullopt;
  auto v = k->second.find(Upper(name));
  if (v == k->second.end()) return std::nullopt;
  return v->second;
}

bool MemoryRegistryStore::WriteValue(const std::string& key, const std::string& name,
                                     const std::string& value) {
  keys_[NormaliseKey(key)][Upper(name)] = value;
  return true;
}

void MemoryRegistryStore::DeleteKey(const std::string& key) {
  keys_.erase(NormaliseKey(key));
}

}  // namespace zt
