// What a driver repeats of a connection string in a failed open reaches callers masked.
#include <gtest/gtest.h>

#include <memory>

#include "platform/errors.h"
#include "support/test_env.h"
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

}  // namespace
}  // namespace zt::testing
