// The environment of the SQL Server administration tests: a recording log, a scripted SQL
// Server behind the "MSOLEDBSQL" provider, a scripted person at the keyboard, and the check
// that no password ever reached the log.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sqlserver/sql_server_internal.h"
#include "support/test_env.h"
#include "zt/platform/scripted_driver.h"
#include "zt/user_interaction.h"

namespace zt::testing {

inline constexpr const char* kSaPassword = "sa-Pa55word!";

// Answers from a queue; records every question. An empty queue cancels.
class ScriptedPrompt : public IZtPrompt {
 public:
  std::optional<std::string> InputBox(const std::string& prompt, const std::string&,
                                      const std::string&, bool secret) override {
    asked.push_back((secret ? "secret: " : "input: ") + prompt);
    if (on_input) on_input();
    if (inputs.empty()) return std::nullopt;
    auto a = inputs.front();
    inputs.pop_front();
    return a;
  }
  bool AskYesNo(const std::string& question, const std::string&) override {
    asked.push_back("yes/no: " + question);
    if (answers.empty()) return false;
    const bool a = answers.front();
    answers.pop_front();
    return a;
  }
  std::deque<std::optional<std::string>> inputs;
  std::deque<bool> answers;
  std::vector<std::string> asked;
  std::function<void()> on_input;
};

class AdminEnv : public RecordingEnv {
 public:
  IZtPrompt& Prompt() override { return prompt; }
  ScriptedPrompt prompt;
};

// Every log entry, checked for the application login's password and the test passwords.
inline void ExpectNoSecretsLogged(const RecordingEnv& env,
                                  const std::vector<std::string>& more = {}) {
  std::vector<std::string> secrets = more;
  secrets.push_back(sqlserver::TSL_PASSWORD());
  secrets.push_back(kSaPassword);
  for (const auto& e : env.log.entries)
    for (const auto& s : secrets) EXPECT_EQ(e.text.find(s), std::string::npos) << e.text;
  for (const auto& [path, text] : env.files)
    for (const auto& s : secrets) EXPECT_EQ(text.find(s), std::string::npos) << path;
}

}  // namespace zt::testing
