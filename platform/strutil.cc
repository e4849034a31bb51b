#include "platform/strutil.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace gp::str {

bool Tokenizer::next(std::string_view &token) {
  pos_ = text_.find_first_not_of(delimiters_, pos_);
  if (pos_ == std::string_view::npos) {
    pos_ = text_.size();
    return false;
  }
  size_t end = text_.find_first_of(delimiters_, pos_);
  if (end == std::string_view::npos) {
    end = text_.size();
  }
  token = text_.substr(pos_, end - pos_);
  pos_ = end;
  return true;
}

char toUpper(char c) { return (c >= 'a' && c <= 'z') ? char(c - 32) : c; }
char toLower(char c) { return (c >= 'A' && c <= 'Z') ? char(c + 32) : c; }

std::string toUpper(std::string_view s) {
  std::string out(s);
  for (char &c : out) {
    c = toUpper(c);
  }
  return out;
}

std::string toLower(std::string_view s) {
  std::string out(s);
  for (char &c : out) {
    c = toLower(c);
  }
  return out;
}

bool equalsCaseless(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) {
    return false;
  }
  for (size_t i = 0; i < a.size(); ++i) {
    if (toLower(a[i]) != toLower(b[i])) {
      return false;
    }
  }
  return true;
}

bool startsWith(std::string_view s, std::string_view prefix) {
  return s.substr(0, prefix.size()) == prefix;
}

bool startsWithCaseless(std::string_view s, std::string_view prefix) {
  return s.size() >= prefix.size() &&
         equalsCaseless(s.substr(0, prefix.size()), prefix);
}

bool endsWithCaseless(std::string_view s, std::string_view suffix) {
  return s.size() >= suffix.size() &&
         equalsCaseless(s.substr(s.size() - suffix.size()), suffix);
}

void boundedCopy(char *dst, size_t room, std::string_view text) {
  if (room == 0) {
    return;
  }
  size_t n = text.size() < room - 1 ? text.size() : room - 1;
  std::memcpy(dst, text.data(), n);
  dst[n] = '\0';
}

long parseLong(std::string_view s) {
  std::string copy(s);
  errno = 0;
  long v = std::strtol(copy.c_str(), nullptr, 10);
  return v;
}

}  // namespace gp::str
