// The library's one log sink. Every log line of the library goes through
// logLine()/logf(); the host sees one line per event, ending in a line feed.
//
// By default lines go to standard error. GUESTPREP_LOG=<path> appends them
// to that file instead. Tests install a capture with LogCapture.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace gp {

// Writes one line; a missing final line feed is added.
void logLine(std::string_view line);

// printf-style formatting into one line.
void logf(const char *format, ...) __attribute__((format(printf, 1, 2)));

using LogSink = std::function<void(std::string_view line)>;

// Replaces the sink; returns the previous one. An empty sink restores the
// default.
LogSink setLogSink(LogSink sink);

// Collects every line logged during its lifetime (tests).
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture &) = delete;
  LogCapture &operator=(const LogCapture &) = delete;

  const std::vector<std::string> &lines() const { return lines_; }
  std::string text() const;  // all lines concatenated
  void clear() { lines_.clear(); }

 private:
  std::vector<std::string> lines_;
  LogSink previous_;
};

}  // namespace gp
