#include "platform/strutil.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace gp::str {

bool nextToken(std::string_view text, size_t &pos, std::string_view delimiters,
               std::string_view &token) {
  size_t start = pos < text.size() ? text.find_first_not_of(delimiters, pos)
                                   : std::string_view::npos;
  if (start == std::string_view::npos) {
    pos = text.size();
    return false;
  }
  size_t end = text.find_first_of(delimiters, start);
  if (end == std::string_view::npos) {
    end = text.size();
  }
  token = text.substr(start, end - start);
  pos = end;
  return true;
}

bool nextIntToken(std::string_view text, size_t &pos,
                  std::string_view delimiters, long &value) {
  std::string_view token;
  if (!nextToken(text, pos, delimiters, token)) {
    return false;
  }
  value = parseLong(token);
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

bool contains(std::string_view s, std::string_view part) {
  return s.find(part) != std::string_view::npos;
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

namespace {

bool isCSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The digits at the start of `s` without leading zeros ("" for none or 0).
std::string_view significantDigits(std::string_view s) {
  size_t n = 0;
  while (n < s.size() && isDigit(s[n])) {
    ++n;
  }
  std::string_view digits = s.substr(0, n);
  size_t zeros = digits.find_first_not_of('0');
  return zeros == std::string_view::npos ? std::string_view()
                                         : digits.substr(zeros);
}

}  // namespace

long parseLong(std::string_view s) {
  size_t i = 0;
  while (i < s.size() && isCSpace(s[i])) {
    ++i;
  }
  bool negative = false;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) {
    negative = s[i] == '-';
    ++i;
  }
  // Accumulate towards the sign so that LONG_MIN is reachable; clamp as
  // strtol() does.
  long v = 0;
  for (; i < s.size() && isDigit(s[i]); ++i) {
    int d = s[i] - '0';
    if (negative) {
      if (v < (LONG_MIN + d) / 10) {
        return LONG_MIN;
      }
      v = v * 10 - d;
    } else {
      if (v > (LONG_MAX - d) / 10) {
        return LONG_MAX;
      }
      v = v * 10 + d;
    }
  }
  return v;
}

int compareDottedVersion(std::string_view a, std::string_view b) {
  size_t pa = 0, pb = 0;
  while (pa < a.size() || pb < b.size()) {
    size_t ea = std::min(a.find('.', pa), a.size());
    size_t eb = std::min(b.find('.', pb), b.size());
    // Compare as digit strings: fields of any length, no overflow.
    std::string_view da = pa < a.size()
                              ? significantDigits(a.substr(pa, ea - pa))
                              : std::string_view();
    std::string_view db = pb < b.size()
                              ? significantDigits(b.substr(pb, eb - pb))
                              : std::string_view();
    if (da.size() != db.size()) {
      return da.size() < db.size() ? -1 : 1;
    }
    int c = da.compare(db);
    if (c != 0) {
      return c < 0 ? -1 : 1;
    }
    pa = ea < a.size() ? ea + 1 : a.size();
    pb = eb < b.size() ? eb + 1 : b.size();
  }
  return 0;
}

std::string shellSingleQuoted(std::string_view s) {
  std::string out = "'";
  for (char c : s) {
    if (c == '\'') {
      out += "'\\''";
    } else {
      out += c;
    }
  }
  return out + "'";
}

}  // namespace gp::str
