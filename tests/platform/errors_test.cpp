// How engine reports become errors: the kind of failure beside the old numbers.
#include "platform/errors.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace zt::platform {
namespace {

ZtError Caught(void (*raise)()) {
  try {
    raise();
  } catch (const ZtError& e) {
    return e;
  }
  return ZtError(0, "", "");
}

// States that the live suites cannot provoke at will: a session ended by the server, a deadlock
// victim, a commit whose outcome is unknown.
TEST(EngineErrors, StatesMapToTheirKindAndKeepTheOldNumbers) {
  const struct {
    const char* state;
    ErrorCategory category;
    std::int32_t number;
  } cases[] = {
      {"08006", ErrorCategory::kBrokenConnection, hr::kFail},
      {"57P01", ErrorCategory::kBrokenConnection, hr::kFail},
      {"08007", ErrorCategory::kInDoubtCommit, hr::kFail},
      {"40P01", ErrorCategory::kDeadlock, hr::kFail},
      {"40001", ErrorCategory::kDeadlock, hr::kFail},
      {"28P01", ErrorCategory::kLogin, hr::kLogin},
      {"57014", ErrorCategory::kTimeout, hr::kTimeout},
      {"23505", ErrorCategory::kIntegrity, hr::kIntegrity},
      {"42501", ErrorCategory::kPermission, hr::kPermission},
      {"42P01", ErrorCategory::kNoTable, hr::kNoTable},
      {"42601", ErrorCategory::kSyntax, hr::kCommand},
      {"22001", ErrorCategory::kData, hr::kDataOverflow},
      {"HY000", ErrorCategory::kOther, hr::kFail},
      {"", ErrorCategory::kOther, hr::kFail},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.state);
    const ZtError e = EngineError("Prov", c.state, 17, "it failed", "17");
    EXPECT_EQ(e.Category(), c.category);
    EXPECT_EQ(e.Number(), c.number);
    EXPECT_EQ(e.SqlState(), c.state);
    EXPECT_EQ(e.NativeError(), 17);
    EXPECT_EQ(e.Description(), "it failed (17)");
    EXPECT_EQ(e.Source(), "Prov");
  }
  // An engine whose time-out has a state of its own (MariaDB's 70100) keeps that state.
  const ZtError t = EngineError("M", "70100", 1969, "max_statement_time exceeded", "1969",
                                ErrorCategory::kTimeout);
  EXPECT_EQ(t.Number(), hr::kTimeout);
  EXPECT_EQ(t.SqlState(), "70100");

  // SQLite's codes get the standard state of their kind.
  const ZtError busy = Caught([] { RaiseSqlite("S", SQLITE_BUSY, "database is locked"); });
  EXPECT_EQ(busy.Category(), ErrorCategory::kBusy);
  EXPECT_EQ(busy.Number(), hr::kFail);
  const ZtError unique =
      Caught([] { RaiseSqlite("S", SQLITE_CONSTRAINT_UNIQUE, "UNIQUE constraint failed"); });
  EXPECT_EQ(unique.SqlState(), "23000");
  EXPECT_EQ(unique.NativeError(), SQLITE_CONSTRAINT_UNIQUE);
  EXPECT_EQ(unique.Description(), "UNIQUE constraint failed (2067)");
}

TEST(EngineErrors, ACommitThatLostItsConnectionIsInDoubt) {
  const ZtError lost = EngineError("P", "08006", 0, "server closed the connection", "08006");
  try {
    RaiseCommitFailure(lost);
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Category(), ErrorCategory::kInDoubtCommit);
    EXPECT_EQ(e.Number(), lost.Number());
    EXPECT_EQ(e.Description(), lost.Description());
    EXPECT_EQ(e.SqlState(), "08006");
  }
  const ZtError refused = EngineError("P", "40001", 0, "could not serialize", "40001");
  try {
    RaiseCommitFailure(refused);
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Category(), ErrorCategory::kDeadlock) << "a refused commit kept nothing";
  }
}

}  // namespace
}  // namespace zt::platform
