// The dictionary service: key = value files in the syntax of machine
// configuration files, tools manifests, AVR files and message catalogs.
//
// Syntax (the format a user edits by hand)
// ----------------------------------------
// One entry a line:
//
//     # a comment line
//     .encoding = "UTF-8"
//     guestOS = "ubuntu-64"
//     tools.version = 8.6.5.12345        # trailing comment
//     greeting = "Say \"hello\"\n"
//
// - Lines end with LF; a CR before the LF is dropped. A UTF-8 byte order
//   mark at the very start of the text is skipped.
// - White space (blanks and tabs) around names, "=" and values is ignored.
//   Blank lines and lines whose first non-blank character is "#" are
//   comments.
// - A name is one or more printable ASCII characters other than blank,
//   "=", "\"" and "#". Names are case-sensitive: "Tools.version" and
//   "tools.version" are two entries.
// - A quoted value runs from "\"" to the next unescaped "\"". Inside it:
//   \" is a double quote, \\ a backslash, \n a line feed, \r a carriage
//   return, \t a tab and \xHH the byte with that hexadecimal value (not a
//   control character). Any other backslash sequence is an error. After
//   the closing quote only white space or a "#" comment may follow.
// - An unquoted value is the rest of the line, trimmed, up to a "#" that
//   follows white space; a "#" inside a word belongs to the value, so
//   `tools.version = 7.4.3.0#2` keeps its "#2". An empty value is allowed.
// - Entry lines may not hold raw control characters other than tab, and
//   the text no NUL byte; line feeds, carriage returns and tabs enter
//   values only through their escapes.
// - A repeated name replaces the earlier value and keeps the earlier
//   position in the entry order.
// - The optional entry ".encoding" names the text's encoding: "UTF-8"
//   (every value must be valid UTF-8), "US-ASCII" (bytes below 0x80 only) or
//   "ISO-8859-1" / "latin1" (values are converted to UTF-8). Names are
//   compared without regard to case. Without it, bytes are taken as they
//   stand. The ".encoding" entry itself stays in the dictionary like any
//   other entry.
//
// Limits: a loaded text holds at most kMaxEntries entries and a file at
// most kMaxFileSize bytes; larger input fails the load.
//
// Failures
// --------
// A failed load leaves the dictionary as it was and leaves its reason
// (origin, line number, what is wrong) as a pending message with
// gp::msg::appendPending; callers append gp::msg::takePending() to their
// log line. Reasons are plain text: the message catalog itself loads its
// catalogs through this service, so resolving them here could recurse.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace gp {

class ConfigDict {
 public:
  static constexpr size_t kMaxEntries = 65536;
  static constexpr size_t kMaxFileSize = 8u << 20;

  enum class LoadMode {
    kStrict,        // any malformed line fails the whole load
    kSkipBadLines,  // malformed lines are dropped; limits still fail
  };

  // Called once per entry, in entry order, with the entry's name, its value
  // text and the caller's pointer. It must not change the dictionary.
  using Callback = void (*)(const char *name, const char *value,
                            void *userData);

  ConfigDict() = default;

  // Reads the file at `path` and adds its entries. False (with a pending
  // message) when the file cannot be read, is not a regular file, is too
  // large, or does not parse.
  bool loadFile(const char *path, LoadMode mode = LoadMode::kStrict);

  // Adds the entries of `text`; `origin` names the text in messages.
  bool loadBuffer(std::string_view text, std::string_view origin = "buffer",
                  LoadMode mode = LoadMode::kStrict);

  // The value of `key`, or `defaultValue` when it is absent. The pointer is
  // valid until the entry is set again or the dictionary is freed.
  const char *get(std::string_view key,
                  const char *defaultValue = nullptr) const;

  void setString(std::string_view key, std::string_view value);
  // Stores "TRUE" or "FALSE", which valueToBool reads back.
  void setBool(std::string_view key, bool value);

  bool isDefined(std::string_view key) const;

  // The value as a decimal 32-bit integer (optional sign, surrounding white
  // space allowed); `defaultValue` when absent, malformed or out of range.
  int32_t getInt32(std::string_view key, int32_t defaultValue = 0) const;

  // "TRUE", "yes", "on", "1" are true and "FALSE", "no", "off", "0" false,
  // without regard to case and surrounding white space; any other text,
  // and null, give `defaultValue`.
  static bool valueToBool(const char *value, bool defaultValue);

  // Calls `callback` for every entry in entry order; returns the number of
  // entries visited.
  size_t iterate(Callback callback, void *userData) const;
  size_t iterate(
      const std::function<void(const char *name, const char *value)> &fn) const;

  size_t count() const { return entries_.size(); }

 private:
  struct Entry {
    std::string name;
    std::string value;
  };
  void put(std::string name, std::string value);

  std::vector<Entry> entries_;
  std::unordered_map<std::string, size_t> index_;
};

// The create/free pair for code that holds the dictionary by pointer.
// Creation cannot fail (allocation failure stops the process).
inline ConfigDict *configDictCreate() { return new ConfigDict(); }
inline void configDictFree(ConfigDict *dict) { delete dict; }
using ConfigDictPtr = std::unique_ptr<ConfigDict>;

}  // namespace gp
