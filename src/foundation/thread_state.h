// Per-thread module state of the library. The old library was apartment-threaded: every module
// variable existed once per thread. Here they are gathered in one thread_local record so that
// ResetThreadState() can give a test a fresh "thread".
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "zt/env.h"
#include "zt/event_logger.h"
#include "zt/export.h"
#include "zt/resources.h"
#include "zt/trap.h"
#include "zt/variant.h"

namespace zt {

class ResourceReader;  // resources.cpp

struct ZT_TEST_EXPORT PerThread {
  // Event log.
  std::int32_t cached_level = 0;  // 0: not read yet on this thread
  std::int32_t log_mode = 0;
  Variant file_log_properties;
  std::unique_ptr<CZtEventLogger> module_logger;
  bool logging = false;  // re-entrancy guard: logging must never recurse into itself
  std::shared_ptr<IZtErrorHandler> error_handler;
  std::int32_t instance_counter = 0;
  // Resources.
  std::optional<std::string> culture;
  std::shared_ptr<ResourceReader> resource_reader;
  HostInfo host_info;
  // Environment.
  Env* env = nullptr;
};

ZT_TEST_EXPORT PerThread& ThreadState();

}  // namespace zt
