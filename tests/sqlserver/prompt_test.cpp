// The default prompt: without a controlling terminal nobody can be asked, and the answer is
// "cancelled" at once rather than a read from whatever standard input happens to be.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "zt/env.h"
#include "zt/user_interaction.h"

namespace zt::testing {
namespace {

TEST(DefaultPrompt, WithoutATerminalEverythingIsCancelled) {
  int in[2];
  ASSERT_EQ(::pipe(in), 0);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // A new session has no controlling terminal; standard input holds a line that must not be
    // taken for a password.
    ::setsid();
    ::dup2(in[0], STDIN_FILENO);
    const bool cancelled = !CZtDialog::ZtInputBox("Password:", "Test", {}, true).has_value() &&
                           !CZtDialog::ZtInputBox("Name:", "Test", "x", false).has_value() &&
                           !CZtDialog::ZtAskYesNo("Sure?", "Test");
    ::_exit(cancelled ? 0 : 1);
  }
  ASSERT_EQ(::write(in[1], "y\nsecret\n", 9), 9);
  ::close(in[1]);
  ::close(in[0]);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace zt::testing
