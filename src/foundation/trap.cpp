#include "zt/trap.h"

#include <new>

#include "foundation/thread_state.h"
#include "zt/error_codes.h"
#include "zt/event_logger.h"

namespace zt {

namespace {

// The service of the host utility library: the location text, then the error's values, as one
// event through the thread's logger (which preserves the caller's error).
class DefaultErrorHandler : public IZtErrorHandler {
 public:
  void LogError(const std::string& text, ErrorInfo* err, std::int32_t event_type,
                std::int32_t level) override {
    ZtLog_LogEvent(text, err, event_type, level);
  }
};

}  // namespace

IZtErrorHandler& ErrorHandler() {
  auto& slot = ThreadState().error_handler;
  if (!slot) slot = std::make_shared<DefaultErrorHandler>();
  return *slot;
}

void SetErrorHandler(std::shared_ptr<IZtErrorHandler> handler) {
  ThreadState().error_handler = std::move(handler);
}

std::string Trap::LocationText() const {
  // Module procedures have no type name; they spell their whole prefix themselves
  // (".ZtStrMan_UrlEncode" or "ZtStrMan_StripLeading").
  std::string text;
  if (!type_name_.empty()) {
    text = type_name_;
    text += '.';
  }
  text += procedure_;
  text += line_mark_;
  if (with_step_) text += std::to_string(step_);
  text += key_;
  return text;
}

ErrorInfo ToErrorInfo(std::exception_ptr ex) {
  try {
    std::rethrow_exception(ex);
  } catch (const ZtError& e) {
    return e.Info();
  } catch (const std::bad_alloc&) {
    return ErrorInfo{
        rt::kOutOfMemory, std::string(kLibrarySource), rt::Description(rt::kOutOfMemory), {}, 0};
  } catch (const std::exception& e) {
    return ErrorInfo{hr::kFail, std::string(kLibrarySource), e.what(), {}, 0};
  } catch (...) {
    return ErrorInfo{hr::kFail, std::string(kLibrarySource), "Unknown failure", {}, 0};
  }
}

ErrorInfo Trap::Tail(std::exception_ptr ex) const {
  ErrorInfo info = ToErrorInfo(ex);
  Err() = info;
  ErrorHandler().LogError(LocationText(), &Err(), kEventWarning, kLevelError);
  return info;
}

std::int32_t NextInstanceId() {
  auto& counter = ThreadState().instance_counter;
  if (counter > 2147483645) counter = 0;
  return ++counter;
}

namespace {
void TraceLifeCycle(std::string_view type_name, std::int32_t id, const char* what) {
  // Life-cycle traces go through the same service as the error tails, so a host that replaces
  // the service sees them too. A trace runs in destructors: nothing may escape it.
  try {
    std::string text = "'";
    text += type_name;
    text += "' instance ";
    text += std::to_string(id);
    text += what;
    ErrorHandler().LogError(text, nullptr, kEventInformation, kLevelLifeCycle);
  } catch (...) {
  }
}
}  // namespace

InstanceTrace::InstanceTrace(std::string_view type_name)
    : type_name_(type_name), id_(NextInstanceId()) {
  TraceLifeCycle(type_name_, id_, " created");
}

InstanceTrace::InstanceTrace(const InstanceTrace& other)
    : type_name_(other.type_name_), id_(NextInstanceId()) {
  TraceLifeCycle(type_name_, id_, " created");
}

InstanceTrace::~InstanceTrace() {
  TraceLifeCycle(type_name_, id_, " is terminating");
}

}  // namespace zt
