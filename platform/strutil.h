// String utilities shared by every module: the tokeniser, ASCII case
// helpers and bounded copies.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace gp::str {

// The next token of `text` at `pos`: skips any delimiters there and takes
// the characters up to the next delimiter or the end of the text, leaving
// `pos` after them. False at the end of the text; empty tokens never occur.
bool nextToken(std::string_view text, size_t &pos, std::string_view delimiters,
               std::string_view &token);

// The next token's leading decimal number as parseLong() reads it, stored
// even when other characters follow it in the token. False, with `value`
// untouched, when no token is left.
bool nextIntToken(std::string_view text, size_t &pos,
                  std::string_view delimiters, long &value);

// Successive tokens of a text separated by runs of any of `delimiters`,
// as nextToken() finds them.
class Tokenizer {
 public:
  Tokenizer(std::string_view text, std::string_view delimiters)
      : text_(text), delimiters_(delimiters) {}
  // The next token, or false at the end of the text.
  bool next(std::string_view &token) {
    return nextToken(text_, pos_, delimiters_, token);
  }
  size_t position() const { return pos_; }

 private:
  std::string_view text_;
  std::string_view delimiters_;
  size_t pos_ = 0;
};

char toUpper(char c);
char toLower(char c);
std::string toUpper(std::string_view s);
std::string toLower(std::string_view s);

bool contains(std::string_view s, std::string_view part);
bool equalsCaseless(std::string_view a, std::string_view b);
bool startsWith(std::string_view s, std::string_view prefix);
bool startsWithCaseless(std::string_view s, std::string_view prefix);
bool endsWithCaseless(std::string_view s, std::string_view suffix);

// Copies at most room-1 bytes of `text` into dst and NUL-terminates
// (nothing when room is 0).
void boundedCopy(char *dst, size_t room, std::string_view text);

// Decimal number at the start of `s` as strtol() reads it (leading white
// space and a sign accepted, no digits give 0), clamped to the long range.
long parseLong(std::string_view s);

// Compares two dot-separated lists of decimal numbers field by field,
// numerically ("8.10" is above "8.4"); a missing field counts as 0 and a
// field's leading digits are its number. Negative, zero or positive.
int compareDottedVersion(std::string_view a, std::string_view b);

// `s` as one word of a POSIX shell command, always in single quotes: a
// quote inside is written as '\''. (A NUL byte cannot be carried; callers
// that take names from a disc refuse it first.)
std::string shellSingleQuoted(std::string_view s);

}  // namespace gp::str
