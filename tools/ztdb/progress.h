// Progress of long work: a redrawn bar on a terminal (rows done / total, rows per second, time
// left), plain lines every few seconds otherwise, so that logs of scheduled runs stay readable.
// Everything goes to stderr: stdout keeps the command's own output (and --json its document).
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace ztdb {

class Progress {
 public:
  // `terminal`: draw a bar (normally: stderr is a terminal).
  explicit Progress(bool terminal);
  // Whether stderr is a terminal.
  static bool StderrIsTerminal();

  void Start(const std::string& what, std::int64_t total);  // total -1: unknown
  void Update(std::int64_t done);
  // Ends the current line with the closing count.
  void Finish(std::int64_t done, const std::string& note = {});

 private:
  void Draw(bool force);
  using Clock = std::chrono::steady_clock;
  bool terminal_;
  std::string what_;
  std::int64_t total_ = -1, done_ = 0;
  Clock::time_point start_, last_;
  bool active_ = false;
};

}  // namespace ztdb
