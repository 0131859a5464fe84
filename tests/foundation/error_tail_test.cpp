#include <gtest/gtest.h>

#include <limits>

#include "foundation/thread_state.h"
#include "support/test_env.h"
#include "zt/error_handling.h"
#include "zt/trap.h"

namespace zt {
namespace {

using testing::RecordingEnv;

// A class procedure with a re-raising tail and one with a returning tail, as library code
// writes them.
struct Widget {
  InstanceTrace trace{"CZtWidget"};
  std::string Raising(int fail_at) {
    Trap at("CZtWidget", "Open");
    return at.Reraising([&] {
      at = 10;
      if (fail_at == 10) throw ZtError(-2147467259, "Provider", "boom", "help.chm", 77);
      at = 20;
      if (fail_at == 20) rt::Raise(rt::kOverflow);
      return std::string("opened");
    });
  }
  std::int32_t Returning() {
    Trap at("CZtWidget", "Count", ", #Line=");
    std::int32_t partial = 0;
    return at.Returning(
        [&]() -> std::int32_t {
          at = 5;
          partial = 3;
          at = 6;
          return Variant("not a number").ToInt32();
        },
        [&] { return partial; });
  }
};

TEST(ErrorTail, ReraisingTailLogsOnceAndPassesTheSameFiveValues) {
  RecordingEnv env;
  Widget w;
  env.log.entries.clear();
  try {
    w.Raising(10);
    FAIL() << "expected a ZtError";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), -2147467259);
    EXPECT_EQ(e.Source(), "Provider");
    EXPECT_EQ(e.Description(), "boom");
    EXPECT_EQ(e.HelpFile(), "help.chm");
    EXPECT_EQ(e.HelpContext(), 77);
  }
  ASSERT_EQ(env.log.entries.size(), 1u);
  EXPECT_EQ(env.log.entries[0].event_type, 1);  // an event with an error is always an error
  EXPECT_EQ(env.log.entries[0].text,
            "CZtWidget.Open, @Line#10\tError: #-2147467259\tSource: Provider\tDescription: boom");
  // The error is still the thread's current error after a re-raise, as the caller expects.
  EXPECT_EQ(Err().number, -2147467259);
}

TEST(ErrorTail, ReturningTailGivesTheResultHeldAtTheFailureAndClearsTheError) {
  RecordingEnv env;
  Widget w;
  env.log.entries.clear();
  EXPECT_EQ(w.Returning(), 3);
  ASSERT_EQ(env.log.entries.size(), 1u);
  EXPECT_EQ(
      env.log.entries[0].text,
      "CZtWidget.Count, #Line=6\tError: #13\tSource: ZtDBTools404\tDescription: Type mismatch");
  EXPECT_FALSE(Err().IsSet());
}

TEST(ErrorTail, LocationTextSpellings) {
  Trap module("", ".ZtStrMan_UrlEncode", " @Line #");
  module = 40;
  EXPECT_EQ(module.LocationText(), ".ZtStrMan_UrlEncode @Line #40");
  Trap keyed("", ".LoadCommonResString, strIdentifier=", "");
  keyed.NoStep();
  keyed.Key("101, m_strCulture=en-US");
  EXPECT_EQ(keyed.LocationText(), ".LoadCommonResString, strIdentifier=101, m_strCulture=en-US");
  Trap with_key("CZtDataStore", "OpenDAODataStore");
  with_key = 3;
  with_key.Key(", DAOConnection: x.db");
  EXPECT_EQ(with_key.LocationText(), "CZtDataStore.OpenDAODataStore, @Line#3, DAOConnection: x.db");
}

TEST(ErrorTail, StrayStandardExceptionBecomesAZtError) {
  RecordingEnv env;
  Trap at("CZtWidget", "Parse");
  EXPECT_THROW(at.Reraising([] { return std::stoi("x"); }), ZtError);
  EXPECT_EQ(Err().number, -2147467259);
}

TEST(InstanceTrace, NumbersPerThreadAndLogsCreationAndTermination) {
  RecordingEnv env;
  {
    Widget a;
    Widget b = a;  // a copy is a new instance
    EXPECT_EQ(a.trace.id() + 1, b.trace.id());
  }
  EXPECT_TRUE(env.Logged("'CZtWidget' instance 1 created"));
  EXPECT_TRUE(env.Logged("'CZtWidget' instance 2 created"));
  EXPECT_TRUE(env.Logged("'CZtWidget' instance 2 is terminating"));
  EXPECT_EQ(env.EntriesOfType(4).size(), 4u);

  // After 2147483646 the numbers start at 1 again.
  RecordingEnv fresh;
  EXPECT_EQ(NextInstanceId(), 1);
  ThreadState().instance_counter = 2147483644;
  EXPECT_EQ(NextInstanceId(), 2147483645);
  EXPECT_EQ(NextInstanceId(), 2147483646);
  EXPECT_EQ(NextInstanceId(), 1);

  // The traces go through the thread's error-handler service, like the error tails.
  struct Collecting : IZtErrorHandler {
    std::vector<std::string> texts;
    void LogError(const std::string& text, ErrorInfo* err, std::int32_t event_type,
                  std::int32_t level) override {
      EXPECT_EQ(err, nullptr);
      EXPECT_EQ(event_type, 4);
      EXPECT_EQ(level, 64);
      texts.push_back(text);
    }
  };
  auto handler = std::make_shared<Collecting>();
  SetErrorHandler(handler);
  { Widget w; }
  SetErrorHandler(nullptr);
  EXPECT_EQ(handler->texts, (std::vector<std::string>{"'CZtWidget' instance 2 created",
                                                      "'CZtWidget' instance 2 is terminating"}));
}

TEST(ErrorHandling, ObjectErrorArithmeticAndOverflow) {
  RecordingEnv env;
  EXPECT_EQ(vbObjectError, -2147221504);
  EXPECT_EQ(ZtErr_ObjectErrorNumber(9020), -2147212484);
  EXPECT_EQ(ZtErr_ObjectErrorNumber(-1), -2147221505);
  // vbObjectError + n leaves the 32-bit range for n below -262144.
  EXPECT_EQ(ZtErr_ObjectErrorNumber(-262144), std::numeric_limits<std::int32_t>::min());
  try {
    ZtErr_Raise(-262145, "tslResourceStringIdNotNumeric", "", "src");
    FAIL();
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), rt::kOverflow);
    EXPECT_EQ(e.Description(), "Overflow");
  }
  try {
    ZtErr_Raise(600, "tslResourceStringIdNotNumeric", " (x)", "basX", "f.chm", 12);
    FAIL();
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), vbObjectError + 600);
    EXPECT_EQ(e.Source(), "basX");
    EXPECT_EQ(e.HelpFile(), "f.chm");
    EXPECT_EQ(e.HelpContext(), 12);
    EXPECT_NE(e.Description().find(" (x)"), std::string::npos);
  }
  try {
    ZtErr_RaiseFormatted(9020, "tslDSProviderNotSupportedErr", "CZtProvider",
                         VariantArray{0, {Variant(std::int32_t{7})}});
    FAIL();
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), -2147212484);
    EXPECT_EQ(e.Description(), "This data provider is not yet supported: 7");
  }
}

TEST(ErrorHandling, NotImplementedText) {
  EXPECT_EQ(NotImplementedText("CZtQuery", "IZtSerializable_FormatMask", Accessor::Get),
            "CZtQuery.IZtSerializable_FormatMask (Get).  Currently not implemented.");
  try {
    RaiseNotImplemented("CZtQuery", "IZtSerializable_Replace", Accessor::Let);
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Description(),
              "CZtQuery.IZtSerializable_Replace (Let).  Currently not implemented.");
  }
}

}  // namespace
}  // namespace zt
