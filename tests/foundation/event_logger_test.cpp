#include "zt/event_logger.h"

#include <gtest/gtest.h>

#include "support/test_env.h"
#include "zt/resources.h"

namespace zt {
namespace {

using testing::RecordingEnv;

TEST(EventLogger, LevelMaskFromRegistryAndLogLevelOverride) {
  {
    RecordingEnv env;  // no key: every level passes, and Initialize does nothing
    CZtEventLogger logger;
    EXPECT_EQ(logger.Level(), -1);
    std::string file, folder;
    std::int32_t mode = 8;
    logger.Initialize(file, folder, mode);
    EXPECT_TRUE(file.empty());
    EXPECT_EQ(logger.LogMode(), 1);
  }
  {
    RecordingEnv env(0);  // 0 also means every level
    EXPECT_EQ(CZtEventLogger().Level(), -1);
  }
  {
    RecordingEnv env(1 | 32);
    CZtEventLogger logger;
    EXPECT_EQ(logger.Level(), 33);
    env.log.entries.clear();
    std::int32_t type = 4, level = 0;
    logger.LogEvent("zero level logs at 1", nullptr, type, level);
    EXPECT_EQ(level, 1);  // the caller's variable changes too
    level = 64;
    logger.LogEvent("filtered", nullptr, type, level);
    // A raiser chooses its level through HelpFile "LogLevel".
    ErrorInfo chosen{5, "src", "desc", "LogLevel", 64};
    level = 1;
    logger.LogEvent("chosen 64", &chosen, type, level);
    EXPECT_EQ(level, 64);
    ErrorInfo chosen32{5, "src", "desc", "LogLevel", 32};
    level = 64;
    logger.LogEvent("chosen 32", &chosen32, type, level);
    ASSERT_EQ(env.log.entries.size(), 2u);
    EXPECT_EQ(env.log.entries[0].text, "zero level logs at 1");
    EXPECT_EQ(env.log.entries[1].text, "chosen 32\tError: #5\tSource: src\tDescription: desc");
  }
  {
    // The level is read once per thread: a later change of the registry does not count.
    RecordingEnv env(2);
    CZtEventLogger first;
    env.registry.WriteValue("HKLM\\SOFTWARE\\Quillmark", "EventLogLevel", "dword:000000ff");
    EXPECT_EQ(CZtEventLogger().Level(), 2);
  }
  {
    RecordingEnv env;
    env.registry.WriteValue("HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillmark", "EventLogLevel", "junk");
    EXPECT_EQ(CZtEventLogger().Level(), -1);  // an unreadable value is -1
  }
}

TEST(EventLogger, ApplicationLogPiecesOverlapByOneCharacter) {
  RecordingEnv env;
  std::string text;
  for (int i = 0; i < 2000; ++i) text += static_cast<char>('a' + i % 26);
  ZtLog_LogEvent(text, nullptr, 4, 32);
  ASSERT_EQ(env.log.entries.size(), 3u);
  EXPECT_EQ(env.log.entries[0].text, text.substr(0, 908));
  EXPECT_EQ(env.log.entries[1].text, text.substr(907, 908));
  EXPECT_EQ(env.log.entries[2].text, text.substr(1814));
  EXPECT_EQ(env.log.entries[2].text.size(), 186u);

  // Pieces are cut in characters, not bytes.
  env.log.entries.clear();
  std::string wide;
  for (int i = 0; i < 1000; ++i) wide += "\xC3\xA9";  // é
  ZtLog_LogEvent(wide, nullptr, 4, 32);
  ASSERT_EQ(env.log.entries.size(), 2u);
  EXPECT_EQ(env.log.entries[0].text.size(), 908u * 2);
  EXPECT_EQ(env.log.entries[1].text.size(), 93u * 2);
}

TEST(EventLogger, FileLineKeepsTheLiteralFormat) {
  RecordingEnv env;
  env.thread_id = 4242;
  // 2026-11-15 05:38:00 local time.
  std::tm tm{};
  tm.tm_year = 126;
  tm.tm_mon = 10;
  tm.tm_mday = 15;
  tm.tm_hour = 5;
  tm.tm_min = 38;
  tm.tm_isdst = -1;
  env.fixed_now = std::chrono::system_clock::from_time_t(std::mktime(&tm));
  EXPECT_EQ(CZtEventLogger::DefaultLogFileName(), "Quillmark11-15-2026_05.38.00.log");

  CZtEventLogger& logger = ThreadEventLogger();
  logger.LogMode(8);
  logger.SetProperties(Variant::Array({Variant(""), Variant("/logs/zt.log")}), 8);
  ZtLog_LogEvent("hello %4 %5 %1", nullptr, 2, 32);
  EXPECT_EQ(env.files["/logs/zt.log"],
            "Sunday, November 15, 2026, 5:38:00 AM\\tType: Warning\\thello Warning 4242 %1\\r\\n");
  EXPECT_TRUE(env.log.entries.empty());  // mode 8 alone does not write the application log

  // SetProperties ignores a non-array and any mode but 8.
  logger.SetProperties(Variant("/other.log"), 8);
  logger.SetProperties(Variant::Array({Variant("%3"), Variant("/other.log")}), 1);
  ZtLog_LogEvent("again", nullptr, 4, 32);
  EXPECT_EQ(env.files.count("/other.log"), 0u);
  EXPECT_NE(env.files["/logs/zt.log"].find("Type: Information\\tagain"), std::string::npos);

  // The file is ANSI text: one Windows-1252 byte per character, "?" for what it cannot hold.
  logger.SetProperties(Variant::Array({Variant("%3"), Variant("/ansi.log")}), 8);
  ZtLog_LogEvent("Zürich €5 Ω", nullptr, 4, 32);
  EXPECT_EQ(env.files["/ansi.log"],
            "Z\xFCrich \x80"
            "5 ?");

  // An array without element 0 writes an empty line.
  logger.SetProperties(Variant::Array({Variant("/empty.log")}, 1), 8);
  ZtLog_LogEvent("dropped", nullptr, 4, 32);
  EXPECT_EQ(env.files["/empty.log"], "");
}

TEST(EventLogger, CallersErrorSurvivesLogging) {
  RecordingEnv env;
  Err() = ErrorInfo{91, "caller", "pending", "h", 3};
  ZtLog_LogEvent("diagnostic", nullptr, 4, 32);
  EXPECT_EQ(Err(), (ErrorInfo{91, "caller", "pending", "h", 3}));

  ErrorInfo passed{13, "s", "d", "", 0};
  ZtLog_LogEvent("with error", &passed, 4, 1);
  EXPECT_EQ(passed, (ErrorInfo{13, "s", "d", "", 0}));
  EXPECT_EQ(Err().number, 91);
  // An error object with number 0 and no description is logged as a plain event.
  ErrorInfo empty;
  ZtLog_LogEvent("plain", &empty, 4, 1);
  EXPECT_EQ(env.log.entries.back().text, "plain");
  EXPECT_EQ(env.log.entries.back().event_type, 4);
}

TEST(EventLogger, InitializeTakesDefaultsAndOrsTheMode) {
  RecordingEnv env(1);
  env.app_path = "/opt/zt/lib";
  CZtEventLogger logger;
  EXPECT_EQ(env.log.targets.back().rfind("/opt/zt/lib/Quillmark", 0), 0u);
  std::string file, folder;
  std::int32_t mode = 8;
  logger.Initialize(file, folder, mode);
  EXPECT_EQ(folder, "/opt/zt/lib/");
  EXPECT_EQ(file.rfind("Quillmark", 0), 0u);
  EXPECT_EQ(logger.LogMode(), 9);
  EXPECT_EQ(env.log.targets.back(), folder + file);
  std::string win_folder = "C:\\Logs", name = "a.log";
  logger.InitializeEventLogger(name, win_folder);
  EXPECT_EQ(env.log.targets.back(), "C:\\Logs\\a.log");
}

}  // namespace
}  // namespace zt
