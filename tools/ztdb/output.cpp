// Output forms of the tool and what it does when it is stopped.
#include <signal.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <iostream>

#include "tool.h"
#include "zt/datastore/working_file.h"

namespace ztdb {

void Output::Line(const std::string& text) const {
  if (!json) std::cout << text << "\n";
}

void Output::Json(const nlohmann::json& document) const {
  // A name or value that is not UTF-8 (a Latin-1 file, a binary column) is written with U+FFFD
  // in its place instead of ending the command after its work is done.
  if (json)
    std::cout << document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
}

void Output::Table(const std::vector<std::vector<std::string>>& rows) const {
  if (json) return;
  std::vector<std::size_t> widths;
  for (const auto& row : rows)
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (widths.size() <= i) widths.push_back(0);
      widths[i] = std::max(widths[i], row[i].size());
    }
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i)
      line +=
          i + 1 < row.size() ? row[i] + std::string(widths[i] - row[i].size() + 2, ' ') : row[i];
    std::cout << line << "\n";
  }
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

void ReportError(const zt::ZtError& e) {
  char number[16];
  std::snprintf(number, sizeof number, "0x%08X", static_cast<std::uint32_t>(e.Number()));
  std::cerr << "ztdb: error " << number << " (" << e.Source() << "): " << e.Description() << "\n";
}

}  // namespace ztdb
