#include "platform/configdict.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/msgcatalog.h"
#include "support/fixtures.h"

namespace {

using gp::ConfigDict;
using Entries = std::vector<std::pair<std::string, std::string>>;

Entries entriesOf(const ConfigDict &dict) {
  Entries out;
  size_t n = dict.iterate([&](const char *name, const char *value) {
    out.emplace_back(name, value);
  });
  EXPECT_EQ(n, out.size());
  return out;
}

class ConfigDictTest : public ::testing::Test {
 protected:
  void SetUp() override { gp::msg::takePending(); }
  void TearDown() override { gp::msg::takePending(); }
};

TEST_F(ConfigDictTest, ParsesTheDocumentedSyntax) {
  ConfigDict dict;
  ASSERT_TRUE(dict.loadBuffer(
      "\xef\xbb\xbf# comment\n"
      "\n"
      "   .encoding = \"UTF-8\"\r\n"
      "guestOS = \"ubuntu-64\"   # trailing\n"
      "tools.version = 8.3.2.1 beta  # the comment goes\n"
      "ver = 7.4.3.0#2\n"
      "quoted = \"a \\\"b\\\" \\\\ \\t\\x41\\r\\n # not a comment\"\n"
      "empty =\n"
      "\tspaced\t=\t\"\"\t\n"
      "Tools.version = 1\n"
      "tools.version = 9.9\n"
      "last = x"));
  EXPECT_EQ((Entries{{".encoding", "UTF-8"},
                     {"guestOS", "ubuntu-64"},
                     {"tools.version", "9.9"},
                     {"ver", "7.4.3.0#2"},
                     {"quoted", "a \"b\" \\ \tA\r\n # not a comment"},
                     {"empty", ""},
                     {"spaced", ""},
                     {"Tools.version", "1"},
                     {"last", "x"}}),
            entriesOf(dict));
  EXPECT_EQ(9u, dict.count());
  EXPECT_EQ("", gp::msg::takePending());
}

TEST_F(ConfigDictTest, MalformedLineFailsWithReasonAndChangesNothing) {
  const std::pair<const char *, const char *> cases[] = {
      {"= 1", "expected a name"},
      {"name value", "expected \"=\""},
      {"na\"me = 1", "expected \"=\""},
      {"a = \"open", "missing closing quote"},
      {"a = \"x\" y", "text after the closing quote"},
      {"a = \"\\q\"", "unknown escape"},
      {"a = \"\\x0g\"", "bad \\x escape"},
      {"a = \"\\x00\"", "control character"},
      {"a = \"\\x1F\"", "control character"},
      {"a = \"x\x01\"", "control character"},
      {"a = b\x7f", "control character"},
      {"\xc3\xa9 = 1", "expected a name"},
  };
  for (const auto &[line, reason] : cases) {
    SCOPED_TRACE(line);
    ConfigDict dict;
    dict.setString("kept", "yes");
    EXPECT_FALSE(dict.loadBuffer(std::string("ok = 1\n") + line, "t.cfg"));
    std::string pending = gp::msg::takePending();
    EXPECT_EQ(0u, pending.find("t.cfg line 2: ")) << pending;
    EXPECT_NE(std::string::npos, pending.find(reason)) << pending;
    EXPECT_EQ((Entries{{"kept", "yes"}}), entriesOf(dict));
  }
}

TEST_F(ConfigDictTest, LenientModeDropsOnlyBadLines) {
  ConfigDict dict;
  ASSERT_TRUE(dict.loadBuffer("a = 1\nbroken\nb = \"open\nc = 3\n", "cat",
                              ConfigDict::LoadMode::kSkipBadLines));
  EXPECT_EQ((Entries{{"a", "1"}, {"c", "3"}}), entriesOf(dict));
  EXPECT_EQ("", gp::msg::takePending());
}

TEST_F(ConfigDictTest, BinaryAndOversizedInputFail) {
  ConfigDict dict;
  EXPECT_FALSE(dict.loadBuffer(std::string("a = 1\n\0b = 2\n", 12), "bin"));
  EXPECT_EQ("bin: NUL byte in the text", gp::msg::takePending());

  std::string many;
  for (size_t i = 0; i <= ConfigDict::kMaxEntries; ++i) {
    many += "c" + std::to_string(i) + ".version = 1\n";
  }
  EXPECT_FALSE(dict.loadBuffer(many, "big"));
  EXPECT_EQ("big: too many entries", gp::msg::takePending());
  EXPECT_EQ(0u, dict.count());
}

TEST_F(ConfigDictTest, Encodings) {
  ConfigDict utf8;
  EXPECT_TRUE(
      utf8.loadBuffer(".encoding = UTF-8\nde = \"Gr\xc3\xbc\xc3\x9f\"\n"));
  EXPECT_STREQ("Gr\xc3\xbc\xc3\x9f", utf8.get("de"));
  for (const char *bad : {"\xc3", "\xc0\xaf", "\xed\xa0\x80", "\xff"}) {
    ConfigDict d;
    EXPECT_FALSE(
        d.loadBuffer(std::string(".encoding = \"utf-8\"\nx = ") + bad, "u"));
    EXPECT_EQ("u line 2: value does not match the encoding",
              gp::msg::takePending());
  }
  ConfigDict latin;
  EXPECT_TRUE(latin.loadBuffer("x = Gr\xfc\xdf\n.encoding = latin1\n"));
  EXPECT_STREQ("Gr\xc3\xbc\xc3\x9f", latin.get("x"));

  ConfigDict ascii;
  EXPECT_FALSE(ascii.loadBuffer(".encoding = US-ASCII\nx = \xc3\xbc\n", "a"));
  gp::msg::takePending();
  ConfigDict unknown;
  EXPECT_FALSE(unknown.loadBuffer(".encoding = EBCDIC\n", "e"));
  EXPECT_EQ("e line 1: unsupported encoding", gp::msg::takePending());
  ConfigDict raw;  // no encoding line: bytes as they stand
  EXPECT_TRUE(raw.loadBuffer("x = \xff\xfe\n"));
  EXPECT_STREQ("\xff\xfe", raw.get("x"));
}

TEST_F(ConfigDictTest, LoadFileFailures) {
  gp::test::TempDir dir;
  ConfigDict dict;
  EXPECT_FALSE(dict.loadFile((dir / "missing").c_str()));
  EXPECT_EQ(dir / "missing: No such file or directory", gp::msg::takePending());
  EXPECT_FALSE(dict.loadFile(dir.path().c_str()));
  EXPECT_EQ(dir.path() + ": not a regular file", gp::msg::takePending());
  gp::test::writeFile(dir / "big",
                      std::string(ConfigDict::kMaxFileSize + 1, '#'));
  EXPECT_FALSE(dict.loadFile((dir / "big").c_str()));
  EXPECT_EQ(dir / "big: file too large", gp::msg::takePending());
  gp::test::writeFile(dir / "bad", "x\n");
  EXPECT_FALSE(dict.loadFile((dir / "bad").c_str()));
  EXPECT_EQ(dir / "bad line 1: expected \"=\" after the name",
            gp::msg::takePending());

  gp::test::writeFile(dir / "ok", "guestOS = \"rhel5\"\n");
  ASSERT_TRUE(dict.loadFile((dir / "ok").c_str()));
  EXPECT_STREQ("rhel5", dict.get("guestOS"));
  EXPECT_STREQ("dflt", dict.get("libdir", "dflt"));
  EXPECT_EQ(nullptr, dict.get("libdir"));
}

TEST_F(ConfigDictTest, TypedAccess) {
  ConfigDict dict;
  ASSERT_TRUE(dict.loadBuffer(
      "a = 9\nb = \" -2147483648 \"\nc = 2147483648\nd = 12x\ne = \"\"\n"
      "f = +7\ng = 99999999999999999999999\n"));
  EXPECT_EQ(9, dict.getInt32("a", -1));
  EXPECT_EQ(INT32_MIN, dict.getInt32("b", -1));
  EXPECT_EQ(-1, dict.getInt32("c", -1));
  EXPECT_EQ(-1, dict.getInt32("d", -1));
  EXPECT_EQ(-1, dict.getInt32("e", -1));
  EXPECT_EQ(7, dict.getInt32("f", -1));
  EXPECT_EQ(-1, dict.getInt32("g", -1));
  EXPECT_EQ(-1, dict.getInt32("absent", -1));

  for (const char *t : {"TRUE", "true", " Yes ", "ON", "1"}) {
    EXPECT_TRUE(ConfigDict::valueToBool(t, false)) << t;
  }
  for (const char *f : {"FALSE", "no", "Off", "0"}) {
    EXPECT_FALSE(ConfigDict::valueToBool(f, true)) << f;
  }
  for (const char *other : {"", "2", "truth", "y"}) {
    EXPECT_TRUE(ConfigDict::valueToBool(other, true)) << other;
    EXPECT_FALSE(ConfigDict::valueToBool(other, false)) << other;
  }
  EXPECT_TRUE(ConfigDict::valueToBool(nullptr, true));

  // Set entries come back through iteration in a form the loader and the
  // Bool conversion read back alike.
  dict.setBool("tools.installed", true);
  dict.setBool("x.installed", false);
  dict.setString("a", "10");
  EXPECT_TRUE(dict.isDefined("tools.installed"));
  EXPECT_FALSE(dict.isDefined("Tools.installed"));
  EXPECT_EQ(10, dict.getInt32("a"));
  EXPECT_TRUE(ConfigDict::valueToBool(dict.get("tools.installed"), false));
  EXPECT_FALSE(ConfigDict::valueToBool(dict.get("x.installed"), true));
  EXPECT_EQ("a", entriesOf(dict).front().first);
  EXPECT_EQ("x.installed", entriesOf(dict).back().first);
}

TEST_F(ConfigDictTest, PointerCallbackVisitsInOrder) {
  gp::ConfigDictPtr dict(gp::configDictCreate());
  ASSERT_TRUE(dict->loadBuffer("z = 1\na = 2\nm = 3\n"));
  std::string seen;
  size_t n = dict->iterate(
      [](const char *name, const char *value, void *user) {
        *static_cast<std::string *>(user) += std::string(name) + value;
      },
      &seen);
  EXPECT_EQ(3u, n);
  EXPECT_EQ("z1a2m3", seen);
}

}  // namespace
