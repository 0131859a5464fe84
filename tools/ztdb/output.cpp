// Output forms of the tool and what it does when it is stopped.
#include <signal.h>

#include <csignal>
#include <iostream>

#include "tool.h"
#include "zt/datastore/working_file.h"

namespace ztdb {

void Output::Line(const std::string& text) const {
  if (!json) std::cout << text << "\n";
}

void Output::Json(const nlohmann::json& document) const {
  if (json) std::cout << document.dump(2) << "\n";
}

void Output::Note(const std::string& text) const {
  (json ? std::cerr : std::cout) << text << std::endl;
}

namespace {

ToolLog* g_log = nullptr;

void StopAfterCleanup(int signal_number) {
  zt::RemoveCompactionWorkingFile();
  // Die of the same signal, so that the shell sees why the tool stopped.
  std::signal(signal_number, SIG_DFL);
  std::raise(signal_number);
}

}  // namespace

ToolLog::ToolLog(zt::ApplicationLog& next) : next_(next) {
  g_log = this;
}

ToolLog::~ToolLog() {
  if (g_log == this) g_log = nullptr;
}

void ToolLog::StartLogging(const std::string& target, std::int32_t mode) {
  next_.StartLogging(target, mode);
}

void ToolLog::LogEvent(const std::string& text, std::int32_t event_type) {
  next_.LogEvent(text, event_type);
  if (event_type == zt::kEventError) last_error_ = text;
  if (verbose && event_type != zt::kEventInformation) std::cerr << text << "\n";
}

std::string LastLibraryError() {
  return g_log ? g_log->last_error() : std::string();
}

void InstallCleanupHandlers() {
  for (int signal_number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction action {};
    action.sa_handler = StopAfterCleanup;
    sigemptyset(&action.sa_mask);
    sigaction(signal_number, &action, nullptr);
  }
}

}  // namespace ztdb
