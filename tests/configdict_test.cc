#include "platform/configdict.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "platform/msgcatalog.h"
#include "support/fixtures.h"

namespace {

using gp::ConfigDict;

// "name=value;" for every entry, in order.
std::string entriesOf(const ConfigDict &dict) {
  std::string out;
  size_t n = dict.iterate([&](const char *name, const char *value) {
    out += std::string(name) + "=" + value + ";";
  });
  EXPECT_EQ(n, dict.count());
  return out;
}

TEST(ConfigDict, ParsesTheDocumentedSyntax) {
  ConfigDict dict;
  ASSERT_TRUE(dict.loadBuffer(
      "\xef\xbb\xbf# comment\n\n"
      "   .encoding = \"UTF-8\"\r\n"
      "guestOS = \"ubuntu-64\"   # trailing\n"
      "tools.version = 8.3.2.1 beta  # the comment goes\n"
      "ver = 7.4.3.0#2\n"
      "quoted = \"a \\\"b\\\" \\\\ \\t\\x41\\r\\n # not a comment\"\n"
      "empty =\n"
      "\tspaced\t=\t\"\"\t\n"
      "Tools.version = 1\n"
      "tools.version = 9.9\n"
      "last = Gr\xc3\xbc\xc3\x9f"));
  EXPECT_EQ(
      ".encoding=UTF-8;guestOS=ubuntu-64;tools.version=9.9;ver=7.4.3.0#2;"
      "quoted=a \"b\" \\ \tA\r\n # not a comment;empty=;spaced=;"
      "Tools.version=1;last=Gr\xc3\xbc\xc3\x9f;",
      entriesOf(dict));
  EXPECT_EQ("", gp::msg::takePending());
  // Latin-1 text is stored as UTF-8; without an encoding bytes stay as is.
  EXPECT_TRUE(dict.loadBuffer("x = Gr\xfc\xdf\n.encoding = latin1\n"));
  EXPECT_STREQ("Gr\xc3\xbc\xc3\x9f", dict.get("x"));
  EXPECT_TRUE(dict.loadBuffer("x = \xff\xfe\n"));
  EXPECT_STREQ("\xff\xfe", dict.get("x"));
}

// Each line fails the whole load with its reason and changes nothing; in
// lenient mode only the bad line is dropped.
TEST(ConfigDict, MalformedInput) {
  std::string many;
  for (size_t i = 0; i < ConfigDict::kMaxEntries; ++i) {
    many += "c" + std::to_string(i) + ".version = 1\n";
  }
  const std::string utf8 = ".encoding = \"utf-8\"\nx = ";
  const char *encoding = "t.cfg line 3: value does not match the encoding";
  const std::pair<std::string, const char *> cases[] = {
      {"= 1", "t.cfg line 2: expected a name"},
      {"\xc3\xa9 = 1", "t.cfg line 2: expected a name"},
      {"name value", "t.cfg line 2: expected \"=\""},
      {"a = \"open", "t.cfg line 2: missing closing quote"},
      {"a = \"x\" y", "t.cfg line 2: text after the closing quote"},
      {"a = \"\\q\"", "t.cfg line 2: unknown escape"},
      {"a = \"\\x0g\"", "t.cfg line 2: bad \\x escape"},
      {"a = \"\\x00\"", "t.cfg line 2: control character"},
      {"a = b\x7f", "t.cfg line 2: control character"},
      {".encoding = EBCDIC", "t.cfg line 2: unsupported encoding"},
      {std::string("b = 2\n\0", 7), "t.cfg: NUL byte in the text"},
      {many, "t.cfg: too many entries"},
      {utf8 + "\xc3", encoding},
      {utf8 + "\xc0\xaf", encoding},
      {utf8 + "\xed\xa0\x80", encoding},
      {".encoding = US-ASCII\nx = \xc3\xbc", encoding},
  };
  for (const auto &[line, reason] : cases) {
    SCOPED_TRACE(line.substr(0, 40));
    ConfigDict dict;
    dict.setString("kept", "yes");
    EXPECT_FALSE(dict.loadBuffer("ok = 1\n" + line, "t.cfg"));
    std::string pending = gp::msg::takePending();
    EXPECT_EQ(0u, pending.find(reason)) << pending;
    EXPECT_EQ("kept=yes;", entriesOf(dict));
  }
  gp::test::TempDir dir;
  gp::test::writeFile(dir / "big",
                      std::string(ConfigDict::kMaxFileSize + 1, '#'));
  EXPECT_FALSE(ConfigDict().loadFile((dir / "big").c_str()));
  EXPECT_EQ(dir / "big: file too large", gp::msg::takePending());
  ConfigDict lenient;
  ASSERT_TRUE(lenient.loadBuffer("a = 1\nbroken\nb = \"open\nc = 3\n", "cat",
                                 ConfigDict::LoadMode::kSkipBadLines));
  EXPECT_EQ("a=1;c=3;", entriesOf(lenient));
  EXPECT_EQ("", gp::msg::takePending());
}

TEST(ConfigDict, TypedAccess) {
  ConfigDict dict;
  ASSERT_TRUE(dict.loadBuffer(
      "a = 9\nb = \" -2147483648 \"\nc = 2147483648\nd = 12x\ne = \"\"\n"
      "f = +7\ng = 99999999999999999999999\n"));
  const std::pair<const char *, int32_t> ints[] = {
      {"a", 9},  {"b", INT32_MIN}, {"c", -1}, {"d", -1},
      {"e", -1}, {"f", 7},         {"g", -1}, {"absent", -1},
  };
  for (const auto &[key, value] : ints) {
    EXPECT_EQ(value, dict.getInt32(key, -1)) << key;
  }
  EXPECT_STREQ("dflt", dict.get("absent", "dflt"));
  for (const char *t : {"TRUE", " Yes ", "ON", "1"})
    EXPECT_TRUE(ConfigDict::valueToBool(t, false)) << t;
  for (const char *f : {"FALSE", "no", "Off", "0"})
    EXPECT_FALSE(ConfigDict::valueToBool(f, true)) << f;
  for (const char *other : {"", "2", "truth", "y"}) {
    EXPECT_TRUE(ConfigDict::valueToBool(other, true));
    EXPECT_FALSE(ConfigDict::valueToBool(other, false));
  }
  EXPECT_TRUE(ConfigDict::valueToBool(nullptr, true));
  // Set entries are stored in a form the Bool conversion reads back.
  ConfigDict set;
  set.setBool("tools.installed", true);
  set.setBool("x.installed", false);
  EXPECT_EQ("tools.installed=TRUE;x.installed=FALSE;", entriesOf(set));
  EXPECT_FALSE(set.isDefined("Tools.installed"));
}

}  // namespace
