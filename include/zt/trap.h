// Error tails and instance traces: the two things every procedure and every class of the
// library does the same way, written once here.
//
// A procedure runs its body under a Trap. The body advances the trap's step number as it goes
// (`at = 20;`), like the old numbered lines. When the body throws, the trap
//   1. makes the error the thread's current error (Err()),
//   2. builds the location text: type name + "." + procedure + line mark + step number
//      (the mark is ", @Line#" unless the procedure used another spelling), then any key text,
//   3. hands it to the thread's error-handler service (event type 2, level 1), which logs it once,
//   4. then either returns the procedure's default result (Returning) or throws the same error
//      again with its five values unchanged (Reraising).
//
//   std::string CZtThing::Name() {
//     Trap at(kTypeName, "Name");
//     return at.Returning([&] {
//       at = 10;
//       ...
//       return text;
//     }, std::string{});
//   }
//
// The default may be a callable, for procedures that return whatever their result held at the
// failure: `at.Returning(body, [&] { return partial; })`.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "zt/error.h"
#include "zt/export.h"

namespace zt {

// The service the error tails log through (the host utility library's error handler). It
// writes the location text followed by the error's number, source and description, as an
// error, and leaves the caller's error state as it found it.
class ZT_EXPORT IZtErrorHandler {
 public:
  virtual ~IZtErrorHandler() = default;
  // `err` is the live error; `text` the location text (or a message when err is null).
  virtual void LogError(const std::string& text, ErrorInfo* err, std::int32_t event_type,
                        std::int32_t level) = 0;
};

// The calling thread's error-handler service, created on first use (it logs through
// ZtLog_LogEvent).
ZT_EXPORT IZtErrorHandler& ErrorHandler();
// Replaces the calling thread's service (nullptr restores the default). The thread shares
// ownership of `handler`.
ZT_EXPORT void SetErrorHandler(std::shared_ptr<IZtErrorHandler> handler);

inline constexpr std::string_view kAtLine = ", @Line#";

class ZT_EXPORT Trap {
 public:
  // `type_name`: the class name ("CZtDataStore"); the location starts with it and ".". A module
  // procedure passes "" and spells its own prefix in `procedure` (".ZtStrMan_UrlEncode").
  // `line_mark` is the text between the procedure and the step number.
  Trap(std::string_view type_name, std::string_view procedure, std::string_view line_mark = kAtLine)
      : type_name_(type_name), procedure_(procedure), line_mark_(line_mark) {}

  Trap& operator=(int step) {
    step_ = step;
    return *this;
  }
  int step() const { return step_; }
  // Appends text after the step number in the location ("strIdentifier=" + id ...).
  void Key(std::string text) { key_ = std::move(text); }
  // Drops the step number from the location (for procedures whose text has none).
  void NoStep() { with_step_ = false; }

  std::string LocationText() const;

  template <class F>
  decltype(auto) Reraising(F&& body) {
    try {
      return std::forward<F>(body)();
    } catch (...) {
      ErrorInfo info = Tail(std::current_exception());
      throw ZtError(std::move(info));
    }
  }

  template <class F, class D>
  auto Returning(F&& body, D&& fallback) -> std::invoke_result_t<F> {
    try {
      return std::forward<F>(body)();
    } catch (...) {
      Tail(std::current_exception());
      Err().Clear();  // leaving the procedure after its handler clears the error
      if constexpr (std::is_invocable_v<D>)
        return std::forward<D>(fallback)();
      else
        return std::forward<D>(fallback);
    }
  }

  // For procedures without a result.
  template <class F>
  void Returning(F&& body) {
    try {
      std::forward<F>(body)();
    } catch (...) {
      Tail(std::current_exception());
      Err().Clear();
    }
  }

 private:
  // Steps 1-3 of the tail; returns the error's five values.
  ErrorInfo Tail(std::exception_ptr ex) const;

  std::string_view type_name_;
  std::string_view procedure_;
  std::string_view line_mark_;
  std::string key_;
  int step_ = 0;
  bool with_step_ = true;
};

// Converts whatever was thrown into the five values of an error (a ZtError as it is; a
// std::bad_alloc as error 7; any other std::exception as E_FAIL with its message).
ZT_EXPORT ErrorInfo ToErrorInfo(std::exception_ptr ex);

// Per-thread instance numbers: 1 to 2147483646, then 1 again.
ZT_EXPORT std::int32_t NextInstanceId();

// The life-cycle trace of an object: hands "'" + type + "' instance " + n + " created" to the
// thread's error-handler service when constructed and "... is terminating" when destroyed (no
// error, event type 4, level 64); a failure to log is swallowed. A class holds one as a member;
// a copy of an object is a new instance and takes a new number.
class ZT_EXPORT InstanceTrace {
 public:
  explicit InstanceTrace(std::string_view type_name);
  InstanceTrace(const InstanceTrace& other);
  InstanceTrace& operator=(const InstanceTrace&) { return *this; }  // keeps its own number
  ~InstanceTrace();
  std::int32_t id() const { return id_; }

 private:
  std::string_view type_name_;
  std::int32_t id_;
};

}  // namespace zt
