#include "platform/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace gp {
namespace {

void defaultSink(std::string_view line) {
  const char *path = std::getenv("GUESTPREP_LOG");
  if (path != nullptr && *path != '\0') {
    if (FILE *f = std::fopen(path, "a")) {
      std::fwrite(line.data(), 1, line.size(), f);
      std::fclose(f);
      return;
    }
  }
  std::fwrite(line.data(), 1, line.size(), stderr);
}

LogSink &sink() {
  static LogSink current;
  return current;
}

}  // namespace

void logLine(std::string_view line) {
  std::string text(line);
  if (text.empty() || text.back() != '\n') {
    text.push_back('\n');
  }
  if (sink()) {
    sink()(text);
  } else {
    defaultSink(text);
  }
}

void logf(const char *format, ...) {
  va_list args;
  va_start(args, format);
  va_list copy;
  va_copy(copy, args);
  int n = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string text;
  if (n > 0) {
    text.resize(static_cast<size_t>(n) + 1);
    std::vsnprintf(text.data(), text.size(), format, args);
    text.resize(static_cast<size_t>(n));
  }
  va_end(args);
  logLine(text);
}

LogSink setLogSink(LogSink newSink) {
  LogSink old = std::move(sink());
  sink() = std::move(newSink);
  return old;
}

LogCapture::LogCapture() {
  previous_ = setLogSink([this](std::string_view line) {
    lines_.emplace_back(line);
  });
}

LogCapture::~LogCapture() { setLogSink(std::move(previous_)); }

std::string LogCapture::text() const {
  std::string all;
  for (const auto &l : lines_) {
    all += l;
  }
  return all;
}

}  // namespace gp
