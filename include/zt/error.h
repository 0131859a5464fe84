// Errors of the library.
//
// Exception policy (the one rule every layer follows):
//   * A zt::ZtError is thrown exactly where the old library raised an error: a procedure with a
//     re-raising error tail, ZtErr_Raise / ZtErr_RaiseFormatted, a failed conversion of the run
//     time (overflow, type mismatch), and the platform layer when a driver reports a failure.
//   * A ZtError is caught only by an error tail (trap.h), which logs it once and then returns the
//     procedure's default result or throws the same five values again, or by a caller that
//     means to handle it (a retry loop, a "does this table exist" probe). Nothing else catches.
//   * No other exception type crosses a public interface. An error tail turns a stray
//     std::exception into a ZtError before it logs it.
//   * Logging never throws into its caller.
//
// Besides the exception, each thread keeps the "current error" (the old run time's Err object):
// the error tails set it before they log, the event logger preserves it across logging, and
// ErrorSnapshot captures and restores it.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

#include "zt/export.h"

namespace zt {

// The base of the library's own error numbers: 0x80040000 as a signed 32-bit value.
inline constexpr std::int32_t vbObjectError = static_cast<std::int32_t>(0x80040000u);

// The source name the run time gives its own errors (overflow, type mismatch ...).
inline constexpr std::string_view kLibrarySource = "ZtDBTools404";

// What kind of failure a database engine reported, so that a caller can react to the kind
// (reconnect, retry the transaction, tell the user) without knowing each engine's codes.
enum class ErrorCategory : std::int32_t {
  kNone = 0,          // not reported by an engine
  kOther,             // an engine failure of none of the kinds below
  kBrokenConnection,  // the server cannot be reached, or the session ended under the statement
  kLogin,             // the server refused the login
  kTimeout,           // the command time-out ended the statement
  kDeadlock,          // the transaction was chosen to end a deadlock or could not be serialised:
                      // nothing of it was kept, and running it again may well succeed
  kInDoubtCommit,     // the connection broke during COMMIT: the changes may or may not be kept
  kBusy,              // another session holds the lock the statement needs (SQLite)
  kIntegrity,         // a constraint refused the change (unique, not null, foreign key, check)
  kSyntax,            // the statement cannot be read or names something unknown to the engine
  kNoTable,           // the table or view does not exist
  kPermission,        // not allowed, or the data source is read-only
  kData,              // a value does not fit its column or cannot be converted
};

// The five values of an error, as the old run time's Err object carried them, and what the
// engine said when the error came from one.
struct ZT_EXPORT ErrorInfo {
  std::int32_t number = 0;
  std::string source;
  std::string description;
  std::string help_file;
  std::int32_t help_context = 0;
  // The engine's SQLSTATE ("" when it gave none), its own error code (0 when none) and the kind
  // of failure; kNone for errors that no engine reported.
  std::string sql_state = {};
  std::int64_t native_error = 0;
  ErrorCategory category = ErrorCategory::kNone;

  // An error is "set" when it has a non-zero number or a non-empty description.
  bool IsSet() const { return number != 0 || !description.empty(); }
  void Clear() { *this = ErrorInfo{}; }
  friend bool operator==(const ErrorInfo&, const ErrorInfo&) = default;
};

class ZT_EXPORT ZtError : public std::exception {
 public:
  explicit ZtError(ErrorInfo info) : info_(std::move(info)) {}
  ZtError(std::int32_t number, std::string source, std::string description,
          std::string help_file = {}, std::int32_t help_context = 0)
      : info_{number, std::move(source), std::move(description), std::move(help_file),
              help_context} {}

  std::int32_t Number() const { return info_.number; }
  const std::string& Source() const { return info_.source; }
  const std::string& Description() const { return info_.description; }
  const std::string& HelpFile() const { return info_.help_file; }
  std::int32_t HelpContext() const { return info_.help_context; }
  const std::string& SqlState() const { return info_.sql_state; }
  std::int64_t NativeError() const { return info_.native_error; }
  ErrorCategory Category() const { return info_.category; }
  const ErrorInfo& Info() const { return info_; }
  const char* what() const noexcept override { return info_.description.c_str(); }

 private:
  ErrorInfo info_;
};

// The calling thread's current error (the run time's Err object). Never null.
ZT_EXPORT ErrorInfo& Err();

// Captures an error's number, source and description and puts them back later, so that code
// which must not disturb its caller's error state (logging) can run in between.
class ZT_EXPORT ErrorSnapshot {
 public:
  void Capture(const ErrorInfo& from);
  // Writes the captured number, source and description into `into`; help file and context of
  // `into` are left as they are.
  void Restore(ErrorInfo& into) const;
  std::int32_t Number() const { return number_; }
  const std::string& Source() const { return source_; }
  const std::string& Description() const { return description_; }

 private:
  std::int32_t number_ = 0;
  std::string source_;
  std::string description_;
};

// Errors of the run time itself, with their customary numbers and texts.
namespace rt {
inline constexpr std::int32_t kInvalidProcedureCall = 5;
inline constexpr std::int32_t kOverflow = 6;
inline constexpr std::int32_t kOutOfMemory = 7;
inline constexpr std::int32_t kSubscriptOutOfRange = 9;
inline constexpr std::int32_t kTypeMismatch = 13;
inline constexpr std::int32_t kFileNotFound = 53;
inline constexpr std::int32_t kPathFileAccess = 75;
inline constexpr std::int32_t kObjectNotSet = 91;
inline constexpr std::int32_t kInvalidUseOfNull = 94;
inline constexpr std::int32_t kCannotCreateObject = 429;
inline constexpr std::int32_t kActionNotSupported = 445;
inline constexpr std::int32_t kMemberNotSupported = 438;
inline constexpr std::int32_t kWrongArgumentCount = 450;
inline constexpr std::int32_t kKeyAlreadyExists = 457;
inline constexpr std::int32_t kElementNotFound = 32811;

// The run time's text for one of the numbers above ("Overflow", "Type mismatch" ...).
ZT_EXPORT std::string Description(std::int32_t number);
// Throws ZtError(number, "ZtDBTools404", Description(number)).
[[noreturn]] ZT_EXPORT void Raise(std::int32_t number);
}  // namespace rt

// The text of an unsupported interface member:
// TypeName + "." + member + " (Get).  Currently not implemented." (or " (Let).").
enum class Accessor { Get, Let };
ZT_EXPORT std::string NotImplementedText(std::string_view type_name, std::string_view member,
                                         Accessor acc);
// Throws the unsupported-member error (number 445, source the type name, the text above).
[[noreturn]] ZT_EXPORT void RaiseNotImplemented(std::string_view type_name, std::string_view member,
                                                Accessor acc);

}  // namespace zt
