// The event log: CZtEventLogger and basEventLogger.ZtLog_LogEvent.
//
// Events carry a type (1 error, 2 warning, 4 information) and a level (bits of a 32-bit mask:
// 1 errors, 32 and 128 diagnostics, 64 object life cycle). A logger drops events whose level
// shares no bit with its mask. The mask is read once per thread from the registry value
// HKEY_LOCAL_MACHINE\SOFTWARE\Quillmark\EventLogLevel (missing or 0 means -1: every level).
//
// Where events go is the thread's LogMode: bits 1, 2 or 4 write to the application log (syslog
// unless the Env says otherwise) in 908-character pieces; bit 8 also appends a formatted line to
// the file named by the file-log properties (SetProperties).
//
// Logging never throws into its caller and leaves the caller's error state as it found it.
#pragma once

#include <cstdint>
#include <string>

#include "zt/error.h"
#include "zt/export.h"
#include "zt/trap.h"
#include "zt/variant.h"

namespace zt {

inline constexpr std::int32_t kEventError = 1;
inline constexpr std::int32_t kEventWarning = 2;
inline constexpr std::int32_t kEventInformation = 4;

inline constexpr std::int32_t kLevelError = 1;
inline constexpr std::int32_t kLevelDiagnostic = 32;
inline constexpr std::int32_t kLevelLifeCycle = 64;
inline constexpr std::int32_t kLevelPropertyDiagnostic = 128;

inline constexpr std::int32_t kLogModeFile = 8;

// The default line format, stored with literal backslash sequences: "\t" and "\r\n" reach the
// file as the characters backslash-t and backslash-r-backslash-n. Existing log readers split
// on those literal texts, so they must not become control characters.
inline constexpr std::string_view kDefaultLineFormat = "%1, %2\\tType: %4\\t%3\\r\\n";

// Pieces of the application log overlap by one character (a piece's last character is the
// next piece's first); old log collectors re-join them that way.
inline constexpr std::size_t kAppLogPieceLength = 908;

class ZT_EXPORT CZtEventLogger {
 public:
  // Reads the thread's level mask on first use, sets the logger's level from it and starts a
  // new, time-stamped application-log target under App.Path.
  CZtEventLogger();
  ~CZtEventLogger();
  CZtEventLogger(const CZtEventLogger&) = delete;
  CZtEventLogger& operator=(const CZtEventLogger&) = delete;

  // Stores `properties` as the thread's file-log properties (element 0 the line format,
  // element 1 the file path) only when it is an array and `mode` is 8; otherwise nothing.
  void SetProperties(const Variant& properties, std::int32_t mode);

  // The thread's LogMode, shared by every logger of the thread.
  std::int32_t LogMode() const;
  void LogMode(std::int32_t mode);

  std::int32_t Level() const { return level_; }
  void Level(std::int32_t level) { level_ = level; }

  // Filters and writes one event. `level` 0 becomes 1 (and so does the caller's variable).
  // An error object whose HelpFile is "LogLevel" chooses the level by its HelpContext. An event
  // that carries an error is written as type 1 with the error's number, source and description
  // appended. Never throws; the caller's error (Err(), or *err_object) is preserved.
  void LogEvent(const std::string& description, ErrorInfo* err_object, std::int32_t& event_type,
                std::int32_t& level);

  // Initialize with mode 0.
  void InitializeEventLogger(std::string& log_file_name, std::string& log_folder);
  // Starts the application log in LogFolder + LogFileName and Ors `log_mode` into LogMode.
  // Does nothing at all when the level is -1. Empty arguments take their defaults (the default
  // log file name, App.Path) and the defaults are written back.
  void Initialize(std::string& log_file_name, std::string& log_folder, std::int32_t& log_mode);

  // "Quillmark" + MM-DD-YYYY + "_" + HH.MM.SS + ".log" for the Env's current time.
  static std::string DefaultLogFileName();
  // A file line for `text` and `event_type` in `format` (%1 date, %2 time, %3 text, %4 type
  // text, %5 thread id, replaced in that order over the whole line).
  static std::string FormatLine(const std::string& format, const std::string& text,
                                std::int32_t event_type);

 private:
  void WriteByMode(const std::string& text, std::int32_t event_type);

  // No InstanceTrace here: a logger's own life-cycle trace would log through the thread's
  // logger while that logger is being built.
  std::int32_t level_ = -1;
  ErrorSnapshot snapshot_;
  std::string line_format_;
};

// The text an event carries for an error: "Error: #" + number + tab + "Source: " + source +
// tab + "Description: " + description (real tabs).
ZT_EXPORT std::string ErrorEventText(std::int32_t number, const std::string& source,
                                     const std::string& description);

// The thread's logger, created on first use; every module procedure logs through it.
ZT_EXPORT void ZtLog_LogEvent(const std::string& text, ErrorInfo* err_object,
                              std::int32_t event_type, std::int32_t level);
// The calling thread's module logger (creating it), for callers that tune its mode or level.
ZT_EXPORT CZtEventLogger& ThreadEventLogger();

}  // namespace zt
