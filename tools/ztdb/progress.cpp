#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>

namespace ztdb {

namespace {

std::string Seconds(double s) {
  const long whole = static_cast<long>(s + 0.5);
  char text[32];
  if (whole < 60)
    std::snprintf(text, sizeof text, "%lds", whole);
  else
    std::snprintf(text, sizeof text, "%ldm%02lds", whole / 60, whole % 60);
  return text;
}

}  // namespace

Progress::Progress(bool terminal) : terminal_(terminal) {}

bool Progress::StderrIsTerminal() {
  return ::isatty(STDERR_FILENO) != 0;
}

void Progress::Start(const std::string& what, std::int64_t total) {
  what_ = what;
  total_ = total;
  done_ = 0;
  start_ = last_ = Clock::now();
  active_ = true;
  if (terminal_)
    Draw(true);
  else
    std::cerr << what_ << ": started"
              << (total_ >= 0 ? ", " + std::to_string(total_) + " rows" : "") << std::endl;
}

void Progress::Update(std::int64_t done) {
  done_ = done;
  Draw(false);
}

void Progress::Finish(std::int64_t done, const std::string& note) {
  if (!active_) return;
  done_ = done;
  const double secs = std::chrono::duration<double>(Clock::now() - start_).count();
  if (terminal_) {
    Draw(true);
    std::cerr << (note.empty() ? "" : "  " + note) << "\n";
  } else {
    std::cerr << what_ << ": " << done_ << " rows in " << Seconds(secs)
              << (note.empty() ? "" : ", " + note) << std::endl;
  }
  active_ = false;
}

void Progress::Draw(bool force) {
  const auto now = Clock::now();
  // A terminal is redrawn ten times a second at most; a log gets a line every five seconds.
  const auto every = terminal_ ? std::chrono::milliseconds(100) : std::chrono::milliseconds(5000);
  if (!force && now - last_ < every) return;
  last_ = now;
  const double secs = std::chrono::duration<double>(now - start_).count();
  const double rate = secs > 0 ? static_cast<double>(done_) / secs : 0;
  std::string eta;
  if (total_ > 0 && rate > 0 && done_ < total_)
    eta = "  ETA " + Seconds(static_cast<double>(total_ - done_) / rate);
  char rate_text[32];
  std::snprintf(rate_text, sizeof rate_text, "%.0f rows/s", rate);
  if (!terminal_) {
    std::cerr << what_ << ": " << done_ << (total_ >= 0 ? "/" + std::to_string(total_) : "")
              << " rows, " << rate_text << eta << std::endl;
    return;
  }
  constexpr int kWidth = 30;
  std::string bar;
  if (total_ > 0) {
    const int filled = static_cast<int>(
        kWidth * std::min<double>(1.0, static_cast<double>(done_) / static_cast<double>(total_)));
    bar = "[" + std::string(static_cast<std::size_t>(filled), '#') +
          std::string(static_cast<std::size_t>(kWidth - filled), '.') + "] ";
  }
  std::cerr << "\r\033[K" << what_ << " " << bar << done_
            << (total_ >= 0 ? "/" + std::to_string(total_) : "") << " rows  " << rate_text << eta
            << std::flush;
}

}  // namespace ztdb
