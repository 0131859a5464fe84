// Engine failures that the live suites cannot provoke at will: a session ended by the server
// and a commit whose outcome is unknown.
#include "platform/errors.h"

#include <gtest/gtest.h>

namespace zt::platform {
namespace {

ErrorCategory CommitCategory(const ZtError& e) {
  try {
    RaiseCommitFailure(e);
  } catch (const ZtError& raised) {
    EXPECT_EQ(raised.Number(), e.Number());
    EXPECT_EQ(raised.Description(), e.Description());
    EXPECT_EQ(raised.SqlState(), e.SqlState());
    return raised.Category();
  }
  return ErrorCategory::kNone;
}

TEST(EngineErrors, ALostSessionIsBrokenAndACommitThatLostItIsInDoubt) {
  const ZtError ended = EngineError("P", "57P01", 0, "terminating connection", "57P01");
  EXPECT_EQ(ended.Category(), ErrorCategory::kBrokenConnection);
  EXPECT_EQ(ended.Number(), hr::kFail) << "still retried by the data store's list";
  EXPECT_EQ(ended.Description(), "terminating connection (57P01)");
  EXPECT_EQ(EngineError("O", "08S01", 2013, "Lost connection", "2013").Category(),
            ErrorCategory::kBrokenConnection);
  EXPECT_EQ(EngineError("O", "08007", 0, "unknown", "0").Category(), ErrorCategory::kInDoubtCommit);

  EXPECT_EQ(CommitCategory(ended), ErrorCategory::kInDoubtCommit);
  // A commit the engine refused kept nothing: that is no doubt.
  EXPECT_EQ(CommitCategory(EngineError("P", "40001", 0, "could not serialize", "40001")),
            ErrorCategory::kDeadlock);
}

}  // namespace
}  // namespace zt::platform
