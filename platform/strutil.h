// String utilities shared by every module: the tokeniser, ASCII case
// helpers and bounded copies.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace gp::str {

// Successive tokens of a text separated by runs of any of `delimiters`;
// leading delimiters are skipped, so empty fields are never tokens.
class Tokenizer {
 public:
  Tokenizer(std::string_view text, std::string_view delimiters)
      : text_(text), delimiters_(delimiters) {}
  // The next token, or false at the end of the text.
  bool next(std::string_view &token);

 private:
  std::string_view text_;
  std::string_view delimiters_;
  size_t pos_ = 0;
};

char toUpper(char c);
char toLower(char c);
std::string toUpper(std::string_view s);
std::string toLower(std::string_view s);

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

}  // namespace gp::str
