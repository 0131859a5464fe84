// The environment the library runs in: clock, sleep, registry store, application log, files,
// the library's folder and the thread id. Everything the library does to the world outside
// its databases goes through an Env, so that tests (and hosts) can replace any piece of it:
// a test injects a sleep that only records, an application-log sink that keeps every piece, or
// a registry store held in memory.
//
// Each thread uses Env::Current(), which is the process default unless the thread installed its
// own with ScopedEnv. The library never deletes an Env it did not create.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "zt/export.h"

namespace zt {

class IZtPrompt;
class IZtDatagramTransport;

// A small key/value store standing in for the Windows registry. Keys are paths such as
// "HKEY_LOCAL_MACHINE\SOFTWARE\Quillmark"; values are named. A missing store, key or value
// behaves as a missing registry key.
class ZT_EXPORT RegistryStore {
 public:
  virtual ~RegistryStore() = default;
  virtual bool KeyExists(const std::string& key) const = 0;
  // The value as text, or nullopt when the key or the value is missing.
  virtual std::optional<std::string> ReadValue(const std::string& key,
                                               const std::string& name) const = 0;
  // Writes a value, creating the key. Returns false when the store cannot be written.
  virtual bool WriteValue(const std::string& key, const std::string& name,
                          const std::string& value) = 0;

  // The store in a file of INI form:
  //   [HKEY_LOCAL_MACHINE\SOFTWARE\Quillmark]
  //   EventLogLevel=255
  // Key comparison ignores case, as the registry's does. The file is read on each call, so an
  // administrator's edit takes effect for the next thread that reads it. Only a regular file of
  // at most 1 MiB is read or rewritten; anything else (a FIFO, a device, a larger file) behaves
  // as a missing store and refuses writes.
  static std::unique_ptr<RegistryStore> OpenFile(std::string path);
  // The file named by $ZT_REGISTRY_FILE, else /etc/ztdbtools/registry.ini.
  static std::string DefaultPath();
};

// The application log (the host run time's App.StartLogging / App.LogEvent).
class ZT_EXPORT ApplicationLog {
 public:
  virtual ~ApplicationLog() = default;
  // Starts logging to `target` (a file path in the old run time) with the given mode. The
  // default sink writes to syslog and only remembers the target.
  virtual void StartLogging(const std::string& target, std::int32_t mode) = 0;
  // Writes one entry. Must not throw.
  virtual void LogEvent(const std::string& text, std::int32_t event_type) = 0;
};

class ZT_EXPORT Env {
 public:
  virtual ~Env() = default;

  // The process default: real clock, real sleep, syslog, the registry file of DefaultPath().
  static Env& Default();
  // The environment of the calling thread.
  static Env& Current();

  virtual std::chrono::system_clock::time_point Now() = 0;
  virtual void SleepForMilliseconds(std::int64_t ms) = 0;
  virtual RegistryStore& Registry() = 0;
  virtual ApplicationLog& AppLog() = 0;
  // Appends `text` to the file at `path`, creating it; no line break is added. Returns false
  // (never throws) when the file cannot be written.
  virtual bool AppendToFile(const std::string& path, const std::string& text) = 0;
  // The folder of the loaded library (App.Path), without a trailing separator.
  virtual std::string AppPath() = 0;
  // The kernel id of the calling thread (App.ThreadID).
  virtual std::int64_t ThreadId() = 0;

  // The files of a data store: what is there, and moving, copying and removing them. The
  // defaults work on the real file system and never throw; a failure is returned.
  // True when `path` names a file or folder, links followed as opening it would follow them.
  virtual bool FileExists(const std::string& path);
  // True when anything is at `path`, a link counting as itself even when it points nowhere:
  // nothing may be created or moved there.
  virtual bool PathInUse(const std::string& path);
  // Renames `from` to `to`; fails across file systems.
  virtual std::error_code RenameFile(const std::string& from, const std::string& to);
  // Copies the file `from` to `to`, never over anything already at `to`.
  virtual std::error_code CopyFile(const std::string& from, const std::string& to);
  // Removes the file (or link) at `path`; a folder is never removed.
  virtual std::error_code RemoveFile(const std::string& path);
  // The whole content of a regular file, or nullopt when it is missing or cannot be read.
  virtual std::optional<std::string> ReadFile(const std::string& path);
  // Replaces the content of `path` with `text` in one step (a sibling file renamed over it), so
  // a reader sees either the old or the new content, never half of it.
  virtual std::error_code ReplaceFile(const std::string& path, const std::string& text);
  // Writes `path` as a careful editor does, the one way the library writes a whole file:
  // `write` fills a new file made for this write alone in the same folder (never through a
  // link or over a file already there, with the mode of the file it replaces, and nameless
  // until it is complete where the file system allows), which is flushed to the disk and
  // renamed over `path` only once `write` has returned. With `keep_backup` the file it replaces
  // stays as path + ".bak", and `path` is never missing meanwhile. A failure is returned and
  // changes nothing at `path`; what `write` raises passes through, changing nothing either.
  virtual std::error_code WriteFile(const std::string& path,
                                    const std::function<void(std::ostream&)>& write,
                                    bool keep_backup);

  // The person at the keyboard (see <zt/user_interaction.h>): by default the controlling
  // terminal, "cancelled" without one.
  virtual IZtPrompt& Prompt();
  // Datagrams to the network (see <zt/datagram.h>): by default real UDP sockets.
  virtual IZtDatagramTransport& Datagrams();
};

// An Env that forwards every call to another one; tests derive from it and override the pieces
// they want to observe or break.
class ZT_EXPORT EnvWrapper : public Env {
 public:
  explicit EnvWrapper(Env& target) : target_(target) {}
  std::chrono::system_clock::time_point Now() override { return target_.Now(); }
  void SleepForMilliseconds(std::int64_t ms) override { target_.SleepForMilliseconds(ms); }
  RegistryStore& Registry() override { return target_.Registry(); }
  ApplicationLog& AppLog() override { return target_.AppLog(); }
  bool AppendToFile(const std::string& path, const std::string& text) override {
    return target_.AppendToFile(path, text);
  }
  std::string AppPath() override { return target_.AppPath(); }
  std::int64_t ThreadId() override { return target_.ThreadId(); }
  bool FileExists(const std::string& path) override { return target_.FileExists(path); }
  bool PathInUse(const std::string& path) override { return target_.PathInUse(path); }
  std::error_code RenameFile(const std::string& from, const std::string& to) override {
    return target_.RenameFile(from, to);
  }
  std::error_code CopyFile(const std::string& from, const std::string& to) override {
    return target_.CopyFile(from, to);
  }
  std::error_code RemoveFile(const std::string& path) override { return target_.RemoveFile(path); }
  std::optional<std::string> ReadFile(const std::string& path) override {
    return target_.ReadFile(path);
  }
  std::error_code ReplaceFile(const std::string& path, const std::string& text) override {
    return target_.ReplaceFile(path, text);
  }
  std::error_code WriteFile(const std::string& path,
                            const std::function<void(std::ostream&)>& write,
                            bool keep_backup) override {
    return target_.WriteFile(path, write, keep_backup);
  }
  IZtPrompt& Prompt() override { return target_.Prompt(); }
  IZtDatagramTransport& Datagrams() override { return target_.Datagrams(); }

 protected:
  Env& target() { return target_; }

 private:
  Env& target_;
};

// Installs `env` as the calling thread's environment for the lifetime of this object, and
// resets the per-thread state that was derived from the old one (cached log level, culture,
// loggers), so each test starts as a fresh thread would. The caller keeps ownership of `env`.
class ZT_EXPORT ScopedEnv {
 public:
  explicit ScopedEnv(Env& env);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  Env* previous_;
};

// Forgets every piece of per-thread state of the library (log level cache, LogMode, file-log
// properties, loggers, culture, resource reader, instance counter, error handler). A new thread
// starts this way; tests call it to act as one.
ZT_EXPORT void ResetThreadState();

// Lets a layer with per-thread state of its own (a cached reader, an encoder) take part in
// ResetThreadState. Call once per process, e.g. from a static initialiser.
ZT_EXPORT void AddThreadStateResetHook(void (*hook)());

// An in-memory registry store, for tests and for hosts that keep settings elsewhere.
class ZT_EXPORT MemoryRegistryStore : public RegistryStore {
 public:
  bool KeyExists(const std::string& key) const override;
  std::optional<std::string> ReadValue(const std::string& key,
                                       const std::string& name) const override;
  bool WriteValue(const std::string& key, const std::string& name,
                  const std::string& value) override;
  void DeleteKey(const std::string& key);

 private:
  std::map<std::string, std::map<std::string, std::string>> keys_;  // upper-cased key paths
};

}  // namespace zt
