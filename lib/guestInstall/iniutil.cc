// Reading and rewriting single keys of INI files.
//
// The file is taken in the pieces that a 1024-byte line buffer holds: a
// physical line longer than 1023 bytes arrives as several pieces and each
// piece is judged as a line of its own, by its first byte. Reader and
// writer share that view, so a key the writer puts in is found by the
// reader at the same place.
#include "guestprep/iniutil.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "platform/abi.h"
#include "platform/fatal.h"
#include "platform/hostio.h"
#include "platform/strutil.h"

namespace gp {
namespace {

// A line buffer of 1024 bytes holds at most 1023 bytes of a line.
constexpr size_t kPieceMax = 1023;
// The writer holds the whole new content in one buffer of this size.
constexpr size_t kOutputBuffer = 512 * 1024;
// Beyond this much output the writer stops reading or appending, so that
// the last piece and up to two new lines always fit the buffer.
constexpr size_t kOutputReadLimit = kOutputBuffer - 2048;
// A rewritten line keeps its text up to the '=' (P bytes); the value gets
// at most kRewriteLimit - P bytes, leaving room for two quotes and the LF.
constexpr size_t kRewriteLimit = 1020;
// Longest names whose new lines still fit a line buffer: "[name]\n" and
// "key=\"\"\n".
constexpr size_t kMaxSectionName = kPieceMax - 3;
constexpr size_t kMaxKeyName = kRewriteLimit - 1;
constexpr size_t kReadChunk = 64 * 1024;

// Hands out the pieces of an open file, as a line buffer of 1024 bytes
// would receive them: up to and including the next LF, at most 1023 bytes.
class PieceReader {
 public:
  enum class Result { Piece, End, Error };

  explicit PieceReader(int fd) : fd_(fd), buf_(kReadChunk) {}

  Result next(std::string_view &piece) {
    for (;;) {
      size_t avail = len_ - pos_;
      const char *start = buf_.data() + pos_;
      size_t span = std::min(avail, kPieceMax);
      const void *lf = std::memchr(start, '\n', span);
      if (lf != nullptr || avail >= kPieceMax || (eof_ && avail > 0)) {
        size_t n =
            lf != nullptr ? static_cast<const char *>(lf) - start + 1 : span;
        piece = std::string_view(start, n);
        pos_ += n;
        return Result::Piece;
      }
      if (eof_) {
        return Result::End;
      }
      if (!refill()) {
        return Result::Error;
      }
    }
  }

 private:
  bool refill() {
    size_t avail = len_ - pos_;
    std::memmove(buf_.data(), buf_.data() + pos_, avail);
    pos_ = 0;
    len_ = avail;
    for (;;) {
      ssize_t n = hostOps().read(fd_, buf_.data() + len_, buf_.size() - len_);
      if (n < 0 && errno == EINTR) {
        continue;
      }
      if (n < 0) {
        return false;
      }
      if (n == 0) {
        eof_ = true;
      }
      len_ += static_cast<size_t>(n);
      return true;
    }
  }

  int fd_;
  std::vector<char> buf_;
  size_t pos_ = 0;
  size_t len_ = 0;
  bool eof_ = false;
};

// Opens a regular file for reading. Devices and pipes are refused: an
// endless stream of bytes would keep the reader going for ever.
UniqueFd openIniFile(const char *path) {
  return openUntrustedFile(path, O_RDONLY);
}

// The text of a piece is what a C string holds: a NUL byte ends it.
std::string_view pieceText(std::string_view piece) {
  return piece.substr(0, piece.find('\0'));
}

bool isBlank(char c) { return c == ' ' || c == '\t'; }
bool isLineEndOrBlank(char c) { return isBlank(c) || c == '\r' || c == '\n'; }

std::string_view trimTrailing(std::string_view s) {
  while (!s.empty() && isLineEndOrBlank(s.back())) {
    s.remove_suffix(1);
  }
  return s;
}

// A line inside a section: "  key  = value".
struct KeyLine {
  std::string_view key;  // leading and trailing blanks removed
  size_t keyEnd = 0;     // offset just past the key's last byte in the text
  bool hasEquals = false;
  size_t equals = 0;       // offset of the first '='
  std::string_view value;  // raw text after the '=', empty without one
};

KeyLine splitKeyLine(std::string_view text) {
  KeyLine line;
  size_t begin = 0;
  while (begin < text.size() && isBlank(text[begin])) {
    ++begin;
  }
  size_t end = text.find('=', begin);
  line.hasEquals = end != std::string_view::npos;
  if (line.hasEquals) {
    line.equals = end;
    line.value = text.substr(end + 1);
  } else {
    end = text.size();
  }
  line.key = trimTrailing(text.substr(begin, end - begin));
  line.keyEnd = begin + line.key.size();
  return line;
}

// A blank line inside a section has an empty key too; only a line with
// an '=' answers to the empty key, so that blank lines are never taken
// for it.
bool keyMatches(const KeyLine &line, std::string_view key) {
  if (key.empty() && !line.hasEquals) {
    return false;
  }
  return str::equalsCaseless(line.key, key);
}

// The name of a header line: between the '[' and the first ']', exactly.
// False for a header without ']'.
bool headerName(std::string_view text, std::string_view &name) {
  size_t close = text.find(']');
  if (close == std::string_view::npos) {
    return false;
  }
  name = text.substr(1, close - 1);
  return true;
}

bool startsWith(std::string_view text, char c) {
  return !text.empty() && text.front() == c;
}

bool getIniFileString(const char *path, const char *section, const char *key,
                      char *buffer, int32_t bufferSize) {
  if (buffer == nullptr || bufferSize < 1 || path == nullptr ||
      section == nullptr || key == nullptr) {
    return false;
  }
  UniqueFd fd = openIniFile(path);
  if (!fd.valid()) {
    return false;
  }
  PieceReader reader(fd.get());
  bool inSection = false;
  std::string_view piece;
  while (reader.next(piece) == PieceReader::Result::Piece) {
    std::string_view text = pieceText(piece);
    if (startsWith(text, ';')) {
      continue;
    }
    // An inline comment may follow anything, a header's name or a value.
    text = text.substr(0, text.find(';', 1));
    if (startsWith(text, '[')) {
      std::string_view name;
      if (!headerName(text, name)) {
        return false;
      }
      inSection = str::equalsCaseless(name, section);
      continue;
    }
    if (!inSection) {
      continue;
    }
    KeyLine line = splitKeyLine(text);
    if (!keyMatches(line, key)) {
      continue;
    }
    std::string_view value = trimTrailing(line.value);
    while (!value.empty() && isBlank(value.front())) {
      value.remove_prefix(1);
    }
    // The cut comes before the quotes are taken off: a quoted value too
    // long for the buffer keeps its opening quote.
    value = value.substr(0, static_cast<size_t>(bufferSize) - 1);
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
      value = value.substr(1, value.size() - 2);
    }
    std::copy(value.begin(), value.end(), buffer);
    buffer[value.size()] = '\0';
    return true;
  }
  return false;
}

bool getIniFileInt(const char *path, const char *section, const char *key,
                   int32_t *value) {
  if (value == nullptr) {
    return false;
  }
  char text[1024];
  if (!getIniFileString(path, section, key, text, sizeof text)) {
    return false;
  }
  if (std::strcmp(text, "0") == 0) {
    *value = 0;
    return true;
  }
  long number = str::parseLong(text);
  number = std::clamp<long>(number, INT32_MIN, INT32_MAX);
  *value = static_cast<int32_t>(number);
  return number != 0;
}

// The rewritten file, in a buffer allocated once per call.
class Output {
 public:
  Output() { data_.reserve(kOutputBuffer); }

  void append(std::string_view s) {
    // The read limit leaves room for the largest additions; more would
    // mean the limit checks are wrong.
    if (data_.size() + s.size() > kOutputBuffer) {
      GP_NOT_REACHED("lib/guestInstall/iniutil");
    }
    data_.append(s);
  }
  size_t size() const { return data_.size(); }
  bool endsInLineFeed() const { return !data_.empty() && data_.back() == '\n'; }
  std::string_view view() const { return data_; }

 private:
  std::string data_;
};

void appendValue(Output &out, std::string_view value, bool quoted) {
  if (quoted) {
    out.append("\"");
  }
  out.append(value);
  if (quoted) {
    out.append("\"");
  }
}

// A new key line: the bare key for an empty value, else key=value. The
// value is cut as in a rewritten line, so the line fits a line buffer
// whole, LF included.
void appendNewKeyLine(Output &out, std::string_view key, std::string_view value,
                      bool quoted) {
  out.append(key);
  // The empty key is only ever matched on a line with '=', so it keeps one.
  if (!value.empty() || key.empty()) {
    out.append("=");
    appendValue(out, value.substr(0, kRewriteLimit - (key.size() + 1)), quoted);
  }
  out.append("\n");
}

// A matching line keeps its text up to and including the '=' (the key's
// own spelling and blanks); the new value follows directly and the line
// ends in a bare LF. Whatever followed the old value is dropped.
void appendRewrittenLine(Output &out, std::string_view text,
                         const KeyLine &line, std::string_view value,
                         bool quoted) {
  if (!line.hasEquals && value.empty()) {
    out.append(text.substr(0, line.keyEnd));
    out.append("\n");
    return;
  }
  std::string_view head = line.hasEquals ? text.substr(0, line.equals + 1)
                                         : text.substr(0, line.keyEnd);
  size_t prefix = head.size() + (line.hasEquals ? 0 : 1);
  size_t room = prefix < kRewriteLimit ? kRewriteLimit - prefix : 0;
  out.append(head);
  if (!line.hasEquals) {
    out.append("=");
  }
  appendValue(out, value.substr(0, room), quoted);
  out.append("\n");
}

// Builds the new content of the file in `out`; false when the file cannot
// be read, holds a header without ']', or grows too large.
bool rewriteIni(int fd, std::string_view section, std::string_view key,
                std::string_view value, bool quoted, Output &out) {
  PieceReader reader(fd);
  bool inSection = false;
  bool sectionSeen = false;
  bool keyWritten = false;
  std::string_view piece;
  for (;;) {
    PieceReader::Result result = reader.next(piece);
    if (result == PieceReader::Result::Error) {
      return false;
    }
    if (result == PieceReader::Result::End) {
      break;
    }
    if (out.size() > kOutputReadLimit) {
      return false;
    }
    std::string_view text = pieceText(piece);
    if (startsWith(text, ';')) {
      out.append(piece);
      continue;
    }
    if (startsWith(text, '[')) {
      // The new key closes its section: it goes after any blank or comment
      // lines that end the section, right before the next header. A
      // preceding piece without LF is part of a longer line; the new line
      // still starts a piece of its own there.
      if (inSection && !keyWritten) {
        appendNewKeyLine(out, key, value, quoted);
        keyWritten = true;
      }
      std::string_view name;
      if (!headerName(text, name)) {
        return false;
      }
      inSection = str::equalsCaseless(name, section);
      sectionSeen = sectionSeen || inSection;
      out.append(piece);
      continue;
    }
    KeyLine line;
    if (inSection) {
      line = splitKeyLine(text);
    }
    if (!inSection || !keyMatches(line, key)) {
      out.append(piece);
      continue;
    }
    appendRewrittenLine(out, text, line, value, quoted);
    keyWritten = true;
  }
  if (keyWritten) {
    return true;
  }
  if (out.size() > kOutputReadLimit) {
    return false;
  }
  // A last line without a line break would otherwise run on into the new
  // lines.
  if (out.size() > 0 && !out.endsInLineFeed()) {
    out.append("\n");
  }
  if (!sectionSeen) {
    out.append("[");
    out.append(section);
    out.append("]\n");
  }
  appendNewKeyLine(out, key, value, quoted);
  return true;
}

bool writeIniFileString(const char *path, const char *section, const char *key,
                        const char *value, bool quoted) {
  if (path == nullptr || section == nullptr || key == nullptr ||
      value == nullptr) {
    return false;
  }
  std::string_view sectionName(section);
  std::string_view keyName(key);
  // Names whose new lines could not be read back whole.
  if (sectionName.size() > kMaxSectionName || keyName.size() > kMaxKeyName) {
    return false;
  }
  // A line break would end the new line early and make the rest a line of
  // its own: another key, or another section. (A NUL cannot occur inside a
  // C string; it ends the text.)
  for (std::string_view text :
       {sectionName, keyName, std::string_view(value)}) {
    if (text.find_first_of("\r\n") != std::string_view::npos) {
      return false;
    }
  }
  Output out;
  {
    UniqueFd fd = openIniFile(path);
    if (!fd.valid() ||
        !rewriteIni(fd.get(), sectionName, keyName, value, quoted, out)) {
      return false;
    }
  }
  return replaceFileAtomically(path, out.view());
}

bool writeIniFileInt(const char *path, const char *section, const char *key,
                     int32_t value) {
  char text[64];
  if (std::snprintf(text, sizeof text, "%d", static_cast<int>(value)) < 0) {
    return false;
  }
  return writeIniFileString(path, section, key, text, false);
}

Bool toBool(bool b) { return b ? TRUE : FALSE; }

}  // namespace
}  // namespace gp

GP_EXPORT Bool IniUtil_GetIniFileString(const char *path, const char *section,
                                        const char *key, char *buffer,
                                        int32_t bufferSize) {
  return gp::abiGuard(static_cast<Bool>(FALSE), [&] {
    return gp::toBool(
        gp::getIniFileString(path, section, key, buffer, bufferSize));
  });
}

GP_EXPORT Bool IniUtil_GetIniFileInt(const char *path, const char *section,
                                     const char *key, int32_t *value) {
  return gp::abiGuard(static_cast<Bool>(FALSE), [&] {
    return gp::toBool(gp::getIniFileInt(path, section, key, value));
  });
}

GP_EXPORT Bool IniUtil_WriteIniFileString(const char *path, const char *section,
                                          const char *key, const char *value,
                                          Bool quoted) {
  return gp::abiGuard(static_cast<Bool>(FALSE), [&] {
    return gp::toBool(
        gp::writeIniFileString(path, section, key, value, quoted != FALSE));
  });
}

GP_EXPORT Bool IniUtil_WriteIniFileInt(const char *path, const char *section,
                                       const char *key, int32_t value) {
  return gp::abiGuard(static_cast<Bool>(FALSE), [&] {
    return gp::toBool(gp::writeIniFileInt(path, section, key, value));
  });
}
