// What a driver repeats of a connection string in a failed open reaches callers masked.
#include <gtest/gtest.h>

#include <cctype>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "support/engines.h"
#include "support/test_env.h"
#include "zt/datastore.h"
#include "zt/platform.h"
#include "zt/platform/scripted_driver.h"

namespace zt::testing {
namespace {

std::string OpenError(const std::string& text) {
  Connection cn;
  try {
    cn.Open(text);
  } catch (const ZtError& e) {
    return e.Description();
  }
  return "opened";
}

TEST(OpenErrorMasking, EchoedPasswordItemsAreMaskedWhateverTheirLength) {
  RecordingEnv env;
  auto script = std::make_shared<platform::DriverScript>();
  platform::RegisterDriverScript("echo", script);
  // A short password is masked by item, and its text elsewhere stays: "127" must not turn the
  // address into "*.0.0.1".
  script->FailOpen(platform::hr::kLogin,
                   "Cannot connect with Server=127.0.0.1;UID=sa;PWD=127;APP=x;PWD={1;2}");
  EXPECT_EQ(OpenError("Provider=Scripted;Data Source=echo;User ID=sa;Password=127"),
            "Cannot connect with Server=127.0.0.1;UID=sa;PWD=*;APP=x;PWD=*");
  // The engine's prose is its own: a password that is a common word is not searched for in
  // it, which would garble the message and give the password away by the gap.
  script->FailOpen(platform::hr::kLogin, "Is the server running on that host?;pwd=running");
  EXPECT_EQ(OpenError("Provider=Scripted;Data Source=echo;User ID=sa;Password=running"),
            "Is the server running on that host?;pwd=*");
  platform::UnregisterDriverScript("echo");
}

// The servers' own refusals, for random wrong passwords: the words of the message itself, single
// letters, the user and the address, and texts with the connection string's own characters.
// Whatever the password, the message is the one the server gives for a password that occurs
// nowhere (the library puts the password only in its connection string, and masks it there), and
// no log line holds the password where the library wrote it.
TEST(OpenErrorMasking, ServersRefusalsReadTheSameWhateverThePassword) {
  int engines = 0;
  for (const Engine& e : LiveEngines()) {
    if (e.is_file || !e.Available()) continue;
    ++engines;
    SCOPED_TRACE(e.name);
    // `env` is the environment the attempt runs in (no waits between the store's retries).
    const auto refusal = [&](const std::string& password, RecordingEnv& env) {
      env.real_sleep = false;
      auto ds = e.MakeStore("");
      ds->Password(password);
      try {
        ds->GetConnection(1);
      } catch (const ZtError& err) {
        return err.Description();
      }
      return std::string("opened");
    };
    RecordingEnv reference_env;
    const std::string reference = refusal("Qz7#never-in-a-message", reference_env);
    ASSERT_NE(reference, "opened");
    // Candidates: every word of the refusal, single characters, and random texts.
    std::set<std::string> candidates = {"a",      "e",      "1",      "0",        ":",
                                        e.User(), e.Host(), e.Port(), "password", "the"};
    std::string word;
    for (char c : reference + " ") {
      if (std::isalnum(static_cast<unsigned char>(c))) {
        word += c;
      } else if (!word.empty()) {
        candidates.insert(word);
        word.clear();
      }
    }
    std::mt19937 rng(7);
    const std::string alphabet = "ab12;{}='\" e \"";
    for (int i = 0; i < 12; ++i) {
      std::string random;
      for (int n = 1 + static_cast<int>(rng() % 10); n > 0; --n)
        random += alphabet[rng() % alphabet.size()];
      candidates.insert(random);
    }
    for (const std::string& password : candidates) {
      // A password of blanks only reaches MariaDB as none at all ("using password: NO"): a
      // different refusal, not a masking one.
      if (password == e.Password() || password.find_first_not_of(' ') == std::string::npos)
        continue;
      RecordingEnv env;
      EXPECT_EQ(refusal(password, env), reference) << "password [" << password << "]";
      for (const auto& entry : env.log.entries)
        for (const char* key : {"Pwd=", "PWD=", "Password=", "password="})
          EXPECT_EQ(entry.text.find(key + password), std::string::npos)
              << "password [" << password << "] in " << entry.text;
    }
  }
  if (engines == 0) GTEST_SKIP() << "no database server to refuse a login";
}

}  // namespace
}  // namespace zt::testing
