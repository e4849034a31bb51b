// Tokens, integer tokens and dotted versions for the marker-file readers.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/strutil.h"

namespace gp::str {
namespace {

std::vector<std::string> allTokens(std::string_view text,
                                   std::string_view delimiters) {
  std::vector<std::string> out;
  size_t pos = 0;
  std::string_view token;
  while (nextToken(text, pos, delimiters, token)) {
    out.emplace_back(token);
  }
  EXPECT_EQ(pos, text.size());
  return out;
}

TEST(Tokens, DelimiterRunsAndIntegerTokens) {
  EXPECT_EQ(allTokens("  a, b,,c \n", " ,\n"),
            (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_TRUE(allTokens(" \n ", " \n").empty());
  // An integer token takes the leading number.
  std::string_view text = " 11.2rc\n.\n x.-7";
  size_t pos = 0;
  long v = 99;
  ASSERT_TRUE(nextIntToken(text, pos, ".", v));
  EXPECT_EQ(v, 11);
  ASSERT_TRUE(nextIntToken(text, pos, ".", v));
  EXPECT_EQ(v, 2);  // stored although "rc" follows
  ASSERT_TRUE(nextIntToken(text, pos, ".", v));
  EXPECT_EQ(v, 0);  // white space, then no digits
  ASSERT_TRUE(nextIntToken(text, pos, ".", v));
  EXPECT_EQ(v, -7);
  v = 42;
  EXPECT_FALSE(nextIntToken(text, pos, ".", v));
  EXPECT_EQ(v, 42);  // no token left: untouched
}

TEST(Tokens, NumbersClampLikeStrtol) {
  EXPECT_EQ(parseLong("99999999999999999999999"), LONG_MAX);
  EXPECT_EQ(parseLong("-99999999999999999999999"), LONG_MIN);
  EXPECT_EQ(parseLong("\t\v +12x"), 12);
  EXPECT_EQ(parseLong("0x1f"), 0);
}

TEST(DottedVersion, ComparesFieldsNumerically) {
  EXPECT_LT(compareDottedVersion("8.04", "8.10"), 0);
  EXPECT_GT(compareDottedVersion("10.04", "7.10"), 0);  // not by text
  EXPECT_EQ(compareDottedVersion("7.10", "7.10.0"), 0);
  EXPECT_EQ(compareDottedVersion("008.010", "8.10"), 0);
  // Fields of any length compare without overflow.
  EXPECT_GT(compareDottedVersion("8.100000000000000000000000001",
                                 "8.100000000000000000000000000"),
            0);
  // A field's number is its leading digits; other text counts as 0.
  EXPECT_EQ(compareDottedVersion("8.04.1-LTS", "8.4.1"), 0);
  EXPECT_LT(compareDottedVersion("beta", "0.1"), 0);
}

}  // namespace
}  // namespace gp::str

TEST(ShellQuoting, TheShellGivesBackEveryWordAsItWas) {
  for (std::string word : {"", "plain", "it's", "'", "$(reboot) `id` \"x\"",
                           "a\\b;c&d|e>f", "tab\there", "line\nbreak",
                           "gr\xc3\xbc\xc3\x9f"}) {
    std::string cmd = "printf %s " + gp::str::shellSingleQuoted(word);
    FILE *pipe = ::popen(cmd.c_str(), "r");
    ASSERT_NE(nullptr, pipe);
    std::string out;
    char buf[256];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, pipe)) > 0) {
      out.append(buf, n);
    }
    EXPECT_EQ(0, ::pclose(pipe));
    EXPECT_EQ(word, out);
  }
}
