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
  // Prose that repeats a longer password keeps being masked where it stands.
  script->FailOpen(platform::hr::kLogin, "Login failed (password 'Secr3t;pw'; pwd=Secr3t;pw)");
  const std::string text =
      OpenError("Provider=Scripted;Data Source=echo;User ID=sa;Password={Secr3t;pw}");
  EXPECT_EQ(text.find("Secr3t"), std::string::npos) << text;
  EXPECT_EQ(text.find(";pw"), std::string::npos) << text;
  platform::UnregisterDriverScript("echo");
}

}  // namespace
}  // namespace zt::testing
