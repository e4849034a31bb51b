// A configuration text as lines that can be edited, removed and added to,
// and joined again with the text's own line ending.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace gp::medium {

struct EditLine {
  std::string text;                // without the line ending
  std::vector<std::string> after;  // lines added after this one
  bool removed = false;
};

struct EditText {
  std::vector<EditLine> lines;
  std::vector<std::string> before;  // lines added at the top
  std::string ending = "\n";        // "\r\n" when the text uses it
  bool finalEnding = true;          // the text ended with a line ending
  bool changed = false;
};

inline EditText splitLines(std::string_view text) {
  EditText out;
  size_t crlf = text.find("\r\n");
  if (crlf != std::string_view::npos && crlf == text.find('\n') - 1) {
    out.ending = "\r\n";
  }
  size_t pos = 0;
  while (pos < text.size()) {
    size_t end = text.find('\n', pos);
    std::string_view line =
        text.substr(pos, end == std::string_view::npos ? std::string_view::npos
                                                       : end - pos);
    if (!line.empty() && line.back() == '\r') {
      line.remove_suffix(1);
    }
    out.lines.push_back(EditLine{std::string(line), {}, false});
    if (end == std::string_view::npos) {
      out.finalEnding = false;
      break;
    }
    pos = end + 1;
  }
  return out;
}

inline std::string joinLines(const EditText &t) {
  std::string out;
  for (const std::string &b : t.before) {
    out += b + t.ending;
  }
  for (size_t i = 0; i < t.lines.size(); ++i) {
    const EditLine &l = t.lines[i];
    if (!l.removed) {
      out += l.text;
      if (i + 1 < t.lines.size() || t.finalEnding || !l.after.empty()) {
        out += t.ending;
      }
    }
    for (const std::string &a : l.after) {
      out += a + t.ending;
    }
  }
  return out;
}

// The leading blanks of a line.
inline std::string indentOf(std::string_view line) {
  size_t n = line.find_first_not_of(" \t");
  return std::string(line.substr(0, n == std::string_view::npos ? 0 : n));
}

// True when `arg` holds a byte that cannot stand in a configuration line.
inline bool hasControlByte(std::string_view arg) {
  for (char c : arg) {
    unsigned char u = static_cast<unsigned char>(c);
    if (u < 0x20 || u == 0x7f) {
      return true;
    }
  }
  return false;
}

}  // namespace gp::medium
