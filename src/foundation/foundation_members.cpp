// The late-bound members of the foundation classes (CZtEventLogger, CZtGlobalSettings).
#include "server/member_table.h"
#include "zt/event_logger.h"
#include "zt/resources.h"

namespace zt {
namespace {

const server::Registrar<CZtEventLogger> kLogger("CZtEventLogger", [](auto& t) {
  using L = CZtEventLogger;
  t.Method("SetProperties", &L::SetProperties)
      .Prop("LogMode", &L::LogMode, &L::LogMode)
      .Prop("Level", &L::Level, &L::Level)
      // A host passes no error object: the event carries none.
      .Method("LogEvent",
              [](L& l, const std::string& description, std::int32_t& event_type,
                 std::int32_t& level) { l.LogEvent(description, nullptr, event_type, level); })
      .Method("InitializeEventLogger", &L::InitializeEventLogger)
      .Method("Initialize", &L::Initialize)
      .Method("DefaultLogFileName", [](L&) { return L::DefaultLogFileName(); })
      .Method("FormatLine", [](L&, const std::string& format, const std::string& text,
                               std::int32_t type) { return L::FormatLine(format, text, type); });
});

const server::Registrar<CZtGlobalSettings> kGlobal("CZtGlobalSettings", [](auto& t) {
  t.Method("GetSetting", &CZtGlobalSettings::GetSetting);
});

}  // namespace
}  // namespace zt
