#include "zt/event_logger.h"

#include <ctime>

#include "foundation/ansi.h"
#include "foundation/paths.h"
#include "foundation/thread_state.h"
#include "foundation/utf8.h"
#include "zt/env.h"
#include "zt/resources.h"

namespace zt {

namespace {

constexpr const char* kQuillmarkKey = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillmark";

// Reads EventLogLevel as the old 4-byte registry read did: a value that cannot be read as a
// 32-bit integer gives -1. The store writes it in decimal, "0x" hex or regedit's "dword:" form.
std::int32_t ReadLevelFromRegistry(RegistryStore& reg) {
  if (!reg.KeyExists(kQuillmarkKey)) return -1;
  auto text = reg.ReadValue(kQuillmarkKey, "EventLogLevel");
  if (!text) return -1;
  std::string t = *text;
  int base = 10;
  if (t.rfind("dword:", 0) == 0) {
    t = t.substr(6);
    base = 16;
  } else if (t.rfind("0x", 0) == 0 || t.rfind("0X", 0) == 0) {
    t = t.substr(2);
    base = 16;
  }
  try {
    std::size_t used = 0;
    long long v = std::stoll(t, &used, base);
    if (used != t.size()) return -1;
    // A DWORD above 0x7FFFFFFF reads back as a negative Long.
    if (base == 16) v = static_cast<std::int32_t>(static_cast<std::uint32_t>(v));
    if (v < INT32_MIN || v > INT32_MAX) return -1;
    return v == 0 ? -1 : static_cast<std::int32_t>(v);
  } catch (const std::exception&) {
    return -1;
  }
}

std::tm LocalNow() {
  auto t = std::chrono::system_clock::to_time_t(Env::Current().Now());
  std::tm tm{};
  localtime_r(&t, &tm);
  return tm;
}

std::string Strftime(const char* fmt, const std::tm& tm) {
  char buf[128];
  std::size_t n = std::strftime(buf, sizeof buf, fmt, &tm);
  return std::string(buf, n);
}

// The en-US long date ("Sunday, November 22, 2026") and long time ("5:38:00 AM").
std::string LongDate(const std::tm& tm) {
  return Strftime("%A, %B ", tm) + std::to_string(tm.tm_mday) + Strftime(", %Y", tm);
}
std::string LongTime(const std::tm& tm) {
  int h12 = tm.tm_hour % 12 == 0 ? 12 : tm.tm_hour % 12;
  return std::to_string(h12) + Strftime(":%M:%S %p", tm);
}

void ReplaceAll(std::string& s, std::string_view what, const std::string& with) {
  for (std::size_t pos = 0; (pos = s.find(what, pos)) != std::string::npos; pos += with.size())
    s.replace(pos, what.size(), with);
}

void WriteToApplicationLog(const std::string& text, std::int32_t event_type) {
  ApplicationLog& log = Env::Current().AppLog();
  std::string remainder = text;
  while (!remainder.empty()) {
    try {
      log.LogEvent(utf8::Left(remainder, kAppLogPieceLength), event_type);
    } catch (...) {  // the old writer resumed with the next statement
    }
    // Resume at the piece's last character, not after it: the overlap is part of the format.
    remainder = utf8::Mid(remainder, kAppLogPieceLength);
  }
}

}  // namespace

CZtEventLogger::CZtEventLogger() {
  PerThread& s = ThreadState();
  Env& env = Env::Current();
  if (s.cached_level == 0) {
    s.cached_level = ReadLevelFromRegistry(env.Registry());
    s.log_mode = 1;
  }
  level_ = s.cached_level;
  line_format_ = std::string(kDefaultLineFormat);
  // Every logger starts a new time-stamped target, as the old one did.
  try {
    std::string folder = env.AppPath();
    env.AppLog().StartLogging(WithTrailingSeparator(folder) + DefaultLogFileName(), 0);
  } catch (...) {
  }
}

CZtEventLogger::~CZtEventLogger() = default;

void CZtEventLogger::SetProperties(const Variant& properties, std::int32_t mode) {
  if (properties.IsArray() && mode == kLogModeFile) ThreadState().file_log_properties = properties;
}

std::int32_t CZtEventLogger::LogMode() const {
  return ThreadState().log_mode;
}
void CZtEventLogger::LogMode(std::int32_t mode) {
  ThreadState().log_mode = mode;
}

void CZtEventLogger::LogEvent(const std::string& description, ErrorInfo* err_object,
                              std::int32_t& event_type, std::int32_t& level) {
  if (level == 0) level = kLevelError;
  if (err_object && err_object->help_file == "LogLevel") level = err_object->help_context;
  if ((level & level_) == 0) return;

  PerThread& s = ThreadState();
  // A message lookup inside the writer may itself fail and log; that inner event is dropped
  // rather than recursing.
  if (s.logging) return;
  s.logging = true;
  // Cleared on every way out: a logger left "busy" would drop the thread's events for good.
  struct BusyFlag {
    bool& flag;
    ~BusyFlag() { flag = false; }
  } busy{s.logging};

  bool captured = false;
  if (!err_object) {
    if (Err().IsSet()) {
      snapshot_.Capture(Err());
      captured = true;
    }
  } else {
    snapshot_.Capture(*err_object);
    captured = true;
  }

  try {
    if (!err_object || (snapshot_.Number() == 0 && snapshot_.Description().empty())) {
      WriteByMode(description, event_type);
    } else {
      WriteByMode(
          description + "\t" +
              ErrorEventText(snapshot_.Number(), snapshot_.Source(), snapshot_.Description()),
          kEventError);
    }
  } catch (...) {  // logging never reaches the caller
  }

  if (captured) snapshot_.Restore(err_object ? *err_object : Err());
}

void CZtEventLogger::WriteByMode(const std::string& text, std::int32_t event_type) {
  PerThread& s = ThreadState();
  const std::int32_t mode = s.log_mode;
  if (mode & 7) WriteToApplicationLog(text, event_type);
  if ((mode & kLogModeFile) == 0) return;
  const VariantArray* props = s.file_log_properties.AsArray();
  if (!props) return;
  std::string format, path;
  if (props->Contains(0)) {
    format = props->at(0).IsNull() ? std::string() : props->at(0).ToText();
    if (format.empty()) format = line_format_;
  }
  if (props->Contains(1)) path = props->at(1).IsNull() ? std::string() : props->at(1).ToText();
  // The log file has always been an ANSI text file; its readers expect Windows-1252 bytes.
  Env::Current().AppendToFile(path, ansi::Encode(FormatLine(format, text, event_type)));
}

std::string CZtEventLogger::FormatLine(const std::string& format, const std::string& text,
                                       std::int32_t event_type) {
  const std::tm now = LocalNow();
  std::string line = format;
  ReplaceAll(line, "%1", LongDate(now));
  ReplaceAll(line, "%2", LongTime(now));
  ReplaceAll(line, "%3", text);
  const char* type_id = event_type == kEventError     ? "ERROR_TYPE_ID"
                        : event_type == kEventWarning ? "WARNING_TYPE_ID"
                                                      : "INFO_TYPE_ID";
  ReplaceAll(line, "%4", LoadCommonResString(type_id));
  ReplaceAll(line, "%5", std::to_string(Env::Current().ThreadId()));
  return line;
}

std::string CZtEventLogger::DefaultLogFileName() {
  const std::tm now = LocalNow();
  // The time is written with ":" and then each ":" becomes "." (a file name cannot hold ":").
  return "Quillmark" + Strftime("%m-%d-%Y", now) + "_" + Strftime("%H.%M.%S", now) + ".log";
}

void CZtEventLogger::InitializeEventLogger(std::string& log_file_name, std::string& log_folder) {
  std::int32_t mode = 0;
  Initialize(log_file_name, log_folder, mode);
}

void CZtEventLogger::Initialize(std::string& log_file_name, std::string& log_folder,
                                std::int32_t& log_mode) {
  if (level_ == -1) return;
  if (log_file_name.empty()) log_file_name = DefaultLogFileName();
  if (log_folder.empty()) log_folder = Env::Current().AppPath();
  log_folder = WithTrailingSeparator(log_folder);
  ThreadState().log_mode |= log_mode;
  try {
    Env::Current().AppLog().StartLogging(log_folder + log_file_name, log_mode);
  } catch (...) {
  }
}

std::string ErrorEventText(std::int32_t number, const std::string& source,
                           const std::string& description) {
  return "Error: #" + std::to_string(number) + "\tSource: " + source +
         "\tDescription: " + description;
}

CZtEventLogger& ThreadEventLogger() {
  auto& logger = ThreadState().module_logger;
  if (!logger) logger = std::make_unique<CZtEventLogger>();
  return *logger;
}

void ZtLog_LogEvent(const std::string& text, ErrorInfo* err_object, std::int32_t event_type,
                    std::int32_t level) {
  try {
    ThreadEventLogger().LogEvent(text, err_object, event_type, level);
  } catch (...) {
  }
}

}  // namespace zt
