#include "platform/configdict.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/hostio.h"
#include "platform/msgcatalog.h"
#include "platform/strutil.h"

namespace gp {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

bool isNameChar(unsigned char c) {
  return c > 0x20 && c < 0x7f && c != '=' && c != '"' && c != '#';
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string_view trimBlanks(std::string_view s) {
  size_t b = 0;
  while (b < s.size() && isBlank(s[b])) ++b;
  size_t e = s.size();
  while (e > b && isBlank(s[e - 1])) --e;
  return s.substr(b, e - b);
}

bool hasControl(std::string_view s) {
  for (unsigned char c : s) {
    if ((c < 0x20 && c != '\t') || c == 0x7f) return true;
  }
  return false;
}

bool validUtf8(std::string_view s) {
  size_t i = 0;
  while (i < s.size()) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    size_t len;
    uint32_t cp;
    if (c < 0x80) {
      ++i;
      continue;
    } else if ((c & 0xe0) == 0xc0) {
      len = 2;
      cp = c & 0x1f;
    } else if ((c & 0xf0) == 0xe0) {
      len = 3;
      cp = c & 0x0f;
    } else if ((c & 0xf8) == 0xf0) {
      len = 4;
      cp = c & 0x07;
    } else {
      return false;
    }
    if (s.size() - i < len) return false;
    for (size_t k = 1; k < len; ++k) {
      unsigned char cc = static_cast<unsigned char>(s[i + k]);
      if ((cc & 0xc0) != 0x80) return false;
      cp = (cp << 6) | (cc & 0x3f);
    }
    static const uint32_t kMin[5] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < kMin[len] || cp > 0x10ffff || (cp >= 0xd800 && cp <= 0xdfff)) {
      return false;  // overlong, out of range or a surrogate
    }
    i += len;
  }
  return true;
}

std::string latin1ToUtf8(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  for (unsigned char c : s) {
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else {
      out += static_cast<char>(0xc0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3f));
    }
  }
  return out;
}

struct Parsed {
  std::string name;
  std::string value;
  size_t line;
};

// Reads a quoted value starting after its opening quote. On success `pos`
// is just past the closing quote.
bool parseQuoted(std::string_view line, size_t &pos, std::string &value,
                 const char *&error) {
  while (pos < line.size()) {
    char c = line[pos++];
    if (c == '"') return true;
    if (c != '\\') {
      value += c;
      continue;
    }
    if (pos >= line.size()) break;
    char e = line[pos++];
    switch (e) {
      case '"':
        value += '"';
        break;
      case '\\':
        value += '\\';
        break;
      case 'n':
        value += '\n';
        break;
      case 'r':
        value += '\r';
        break;
      case 't':
        value += '\t';
        break;
      case 'x': {
        int hi = pos < line.size() ? hexDigit(line[pos]) : -1;
        int lo = pos + 1 < line.size() ? hexDigit(line[pos + 1]) : -1;
        if (hi < 0 || lo < 0) {
          error = "bad \\x escape (two hexadecimal digits)";
          return false;
        }
        if (hi < 2 || hi * 16 + lo == 0x7f) {
          error = "control character in the value";
          return false;
        }
        value += static_cast<char>(hi * 16 + lo);
        pos += 2;
        break;
      }
      default:
        error = "unknown escape sequence";
        return false;
    }
  }
  error = "missing closing quote";
  return false;
}

// Parses one line; false with `error` set when it is malformed. A comment
// or blank line gives true and leaves `entry.name` empty.
bool parseLine(std::string_view line, Parsed &entry, const char *&error) {
  size_t pos = 0;
  while (pos < line.size() && isBlank(line[pos])) ++pos;
  if (pos == line.size() || line[pos] == '#') return true;
  if (hasControl(line)) {
    error = "control character in the line";
    return false;
  }
  size_t nameStart = pos;
  while (pos < line.size() && isNameChar(line[pos])) ++pos;
  if (pos == nameStart) {
    error = "expected a name at the start of the line";
    return false;
  }
  std::string_view name = line.substr(nameStart, pos - nameStart);
  while (pos < line.size() && isBlank(line[pos])) ++pos;
  if (pos == line.size() || line[pos] != '=') {
    error = "expected \"=\" after the name";
    return false;
  }
  ++pos;
  while (pos < line.size() && isBlank(line[pos])) ++pos;
  std::string value;
  if (pos < line.size() && line[pos] == '"') {
    ++pos;
    if (!parseQuoted(line, pos, value, error)) return false;
    std::string_view rest = trimBlanks(line.substr(pos));
    if (!rest.empty() && rest[0] != '#') {
      error = "text after the closing quote";
      return false;
    }
  } else {
    size_t end = pos;
    while (end < line.size() &&
           !(line[end] == '#' && end > pos && isBlank(line[end - 1]))) {
      ++end;
    }
    value = std::string(trimBlanks(line.substr(pos, end - pos)));
  }
  entry.name = std::string(name);
  entry.value = std::move(value);
  return true;
}

void reportLine(std::string_view origin, size_t line, const char *what) {
  std::string text(origin);
  text += " line ";
  text += std::to_string(line);
  text += ": ";
  text += what;
  msg::appendPending(text);
}

void report(std::string_view origin, std::string_view what) {
  std::string text(origin);
  text += ": ";
  text += what;
  msg::appendPending(text);
}

enum class Encoding { kAsIs, kUtf8, kAscii, kLatin1 };

bool encodingByName(std::string_view name, Encoding &out) {
  using str::equalsCaseless;
  if (equalsCaseless(name, "UTF-8") || equalsCaseless(name, "UTF8")) {
    out = Encoding::kUtf8;
  } else if (equalsCaseless(name, "US-ASCII") ||
             equalsCaseless(name, "ASCII")) {
    out = Encoding::kAscii;
  } else if (equalsCaseless(name, "ISO-8859-1") ||
             equalsCaseless(name, "latin1")) {
    out = Encoding::kLatin1;
  } else {
    return false;
  }
  return true;
}

// Checks or converts the values for the text's encoding. In strict mode a
// bad value fails; otherwise its entry is dropped.
bool applyEncoding(std::vector<Parsed> &entries, std::string_view origin,
                   bool strict) {
  Encoding encoding = Encoding::kAsIs;
  for (const Parsed &e : entries) {
    if (e.name == ".encoding" && !encodingByName(e.value, encoding)) {
      reportLine(origin, e.line, "unsupported encoding");
      return false;
    }
  }
  if (encoding == Encoding::kAsIs) return true;
  std::vector<Parsed> kept;
  kept.reserve(entries.size());
  for (Parsed &e : entries) {
    bool ok = true;
    if (encoding == Encoding::kUtf8) {
      ok = validUtf8(e.value);
    } else if (encoding == Encoding::kAscii) {
      for (unsigned char c : e.value) ok = ok && c < 0x80;
    } else {
      e.value = latin1ToUtf8(e.value);
    }
    if (!ok) {
      if (strict) {
        reportLine(origin, e.line, "value does not match the encoding");
        return false;
      }
      continue;
    }
    kept.push_back(std::move(e));
  }
  entries.swap(kept);
  return true;
}

}  // namespace

void ConfigDict::put(std::string name, std::string value) {
  auto it = index_.find(name);
  if (it != index_.end()) {
    entries_[it->second].value = std::move(value);
    return;
  }
  index_.emplace(name, entries_.size());
  entries_.push_back(Entry{std::move(name), std::move(value)});
}

bool ConfigDict::loadBuffer(std::string_view text, std::string_view origin,
                            LoadMode mode) {
  const bool strict = mode == LoadMode::kStrict;
  if (text.find('\0') != std::string_view::npos) {
    report(origin, "NUL byte in the text");
    return false;
  }
  if (text.substr(0, 3) == "\xef\xbb\xbf") text.remove_prefix(3);

  std::vector<Parsed> parsed;
  parsed.reserve(std::min<size_t>(
      kMaxEntries,
      static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1));
  size_t lineNo = 0;
  size_t pos = 0;
  while (pos < text.size()) {
    size_t end = text.find('\n', pos);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(pos, end - pos);
    pos = end + 1;
    ++lineNo;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    Parsed entry;
    entry.line = lineNo;
    const char *error = nullptr;
    if (!parseLine(line, entry, error)) {
      if (strict) {
        reportLine(origin, lineNo, error);
        return false;
      }
      continue;
    }
    if (entry.name.empty()) continue;
    if (parsed.size() >= kMaxEntries) {
      report(origin, "too many entries");
      return false;
    }
    parsed.push_back(std::move(entry));
  }
  if (!applyEncoding(parsed, origin, strict)) return false;

  size_t added = 0;
  for (const Parsed &e : parsed) {
    if (index_.find(e.name) == index_.end()) ++added;
  }
  // Repeated names within the text are counted twice above; that only makes
  // the limit stricter.
  if (entries_.size() + added > kMaxEntries) {
    report(origin, "too many entries");
    return false;
  }
  entries_.reserve(entries_.size() + added);
  index_.reserve(entries_.size() + added);
  for (Parsed &e : parsed) put(std::move(e.name), std::move(e.value));
  return true;
}

bool ConfigDict::loadFile(const char *path, LoadMode mode) {
  if (path == nullptr) {
    report("(null)", "no file name");
    return false;
  }
  struct stat st;
  if (hostOps().stat(path, &st) != 0) {
    int err = errno;
    report(path, std::strerror(err));
    return false;
  }
  if (!S_ISREG(st.st_mode)) {
    report(path, "not a regular file");
    return false;
  }
  if (static_cast<unsigned long long>(st.st_size) > kMaxFileSize) {
    report(path, "file too large");
    return false;
  }
  std::string text;
  errno = 0;
  if (!readWholeFile(path, text, kMaxFileSize)) {
    int err = errno;
    report(path, err != 0 ? std::strerror(err) : "cannot read the file");
    return false;
  }
  return loadBuffer(text, path, mode);
}

const char *ConfigDict::get(std::string_view key,
                            const char *defaultValue) const {
  auto it = index_.find(std::string(key));
  return it == index_.end() ? defaultValue : entries_[it->second].value.c_str();
}

void ConfigDict::setString(std::string_view key, std::string_view value) {
  put(std::string(key), std::string(value));
}

void ConfigDict::setBool(std::string_view key, bool value) {
  setString(key, value ? "TRUE" : "FALSE");
}

bool ConfigDict::isDefined(std::string_view key) const {
  return index_.count(std::string(key)) != 0;
}

int32_t ConfigDict::getInt32(std::string_view key, int32_t defaultValue) const {
  const char *value = get(key);
  if (value == nullptr) return defaultValue;
  std::string_view s = trimBlanks(value);
  bool negative = false;
  if (!s.empty() && (s[0] == '-' || s[0] == '+')) {
    negative = s[0] == '-';
    s.remove_prefix(1);
  }
  if (s.empty()) return defaultValue;
  int64_t n = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return defaultValue;
    n = n * 10 + (c - '0');
    if (n > int64_t{INT32_MAX} + 1) return defaultValue;
  }
  if (negative) n = -n;
  if (n < INT32_MIN || n > INT32_MAX) return defaultValue;
  return static_cast<int32_t>(n);
}

bool ConfigDict::valueToBool(const char *value, bool defaultValue) {
  if (value == nullptr) return defaultValue;
  std::string_view v = trimBlanks(value);
  for (const char *t : {"TRUE", "yes", "on", "1"}) {
    if (str::equalsCaseless(v, t)) return true;
  }
  for (const char *f : {"FALSE", "no", "off", "0"}) {
    if (str::equalsCaseless(v, f)) return false;
  }
  return defaultValue;
}

size_t ConfigDict::iterate(Callback callback, void *userData) const {
  size_t n = 0;
  for (const Entry &e : entries_) {
    callback(e.name.c_str(), e.value.c_str(), userData);
    ++n;
  }
  return n;
}

size_t ConfigDict::iterate(
    const std::function<void(const char *, const char *)> &fn) const {
  size_t n = 0;
  for (const Entry &e : entries_) {
    fn(e.name.c_str(), e.value.c_str());
    ++n;
  }
  return n;
}

}  // namespace gp
