// Whether an object may ask the person at the keyboard (a password, a confirmation) or must
// work without asking, and how it asks. Classes that can prompt implement IZtUserInteraction;
// the flag is off at creation. The asking itself goes through the thread's Env (Env::Prompt),
// so a host can put up its own window and a test can answer from a script.
#pragma once

#include <optional>
#include <string>

#include "zt/export.h"

namespace zt {

class ZT_EXPORT IZtUserInteraction {
 public:
  virtual ~IZtUserInteraction() = default;
  virtual bool UserInteraction() const = 0;
  virtual void UserInteraction(bool value) = 0;
};

// The person at the keyboard. The default (Env::Default().Prompt()) asks on the controlling
// terminal and answers "cancelled" when the process has none.
class ZT_EXPORT IZtPrompt {
 public:
  virtual ~IZtPrompt() = default;
  // Shows `title` and `prompt` and reads one line; `secret` keeps it from being echoed.
  // nullopt when the person cancelled or nobody can be asked.
  virtual std::optional<std::string> InputBox(const std::string& prompt, const std::string& title,
                                              const std::string& default_value, bool secret) = 0;
  // A yes/no question; false when cancelled or nobody can be asked.
  virtual bool AskYesNo(const std::string& question, const std::string& title) = 0;
};

// The library's modal input box, on the calling thread's prompt.
class ZT_EXPORT CZtDialog {
 public:
  static std::optional<std::string> ZtInputBox(const std::string& prompt, const std::string& title,
                                               const std::string& default_value = {},
                                               bool secret = false);
  static bool ZtAskYesNo(const std::string& question, const std::string& title);
};

}  // namespace zt
