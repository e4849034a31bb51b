#include "guestprep/iniutil.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <iterator>
#include <tuple>

#include "platform/hostio.h"
#include "support/fixtures.h"

namespace {

using gp::test::readFile;
using gp::test::writeFile;

class Ini : public ::testing::Test {
 protected:
  void file(std::string_view content) { writeFile(path_, content); }
  // The value, or "<none>" when the read fails; a failed read must leave
  // the buffer as it was.
  std::string get(const char *section, const char *key, int32_t size = 2048) {
    std::string buf(static_cast<size_t>(size), '#');
    if (!IniUtil_GetIniFileString(path_.c_str(), section, key, buf.data(),
                                  size)) {
      EXPECT_EQ(std::string(static_cast<size_t>(size), '#'), buf);
      return "<none>";
    }
    return buf.c_str();
  }
  bool set(const char *section, const char *key, const char *value,
           bool quoted = false) {
    return IniUtil_WriteIniFileString(path_.c_str(), section, key, value,
                                      quoted ? TRUE : FALSE);
  }
  // The file still holds `original` and nothing else is in the directory.
  void expectUntouched(const std::string &original) {
    EXPECT_EQ(original, readFile(path_));
    std::filesystem::directory_iterator entries(dir_.path());
    EXPECT_EQ(1, std::distance(begin(entries), end(entries)))
        << "a temporary file was left behind";
  }

  gp::test::TempDir dir_;
  std::string path_ = dir_ / "t.ini";
};

TEST_F(Ini, CommentsAndQuotes) {
  file(
      "[s] ; header comment\n;k=commented\nk = \"a b\"   ; note\nlone=\"\n"
      "long=\"abcdef\"\nsemi=a;b\ne=\ncrlf=\r\nbare\n[t;x]\n");
  const std::pair<const char *, const char *> values[] = {
      {"k", "a b"}, {"lone", "\""}, {"semi", "a"},
      {"e", ""},    {"crlf", ""},   {"bare", ""}};
  for (const auto &[key, value] : values) {
    EXPECT_EQ(value, get("s", key)) << key;
  }
  EXPECT_EQ("\"ab", get("s", "long", 4));  // cut before unquoting
  // The reader cuts the comment before looking for ']'.
  EXPECT_EQ("<none>", get("t;x", "k"));

  // When writing, ';' only marks a comment as a line's first byte.
  file("[s;x]\n  key = old ; c\n[s]\n  Key = old ; c\n");
  ASSERT_TRUE(set("s", "KEY", "new", true));
  EXPECT_EQ("[s;x]\n  key = old ; c\n[s]\n  Key =\"new\"\n", readFile(path_));

  // Values with the format's own characters, written and read back through
  // differently cased names.
  file("; header comment\r\n[Main]\r\nkey = old\r\n");
  const std::tuple<const char *, bool, const char *> cases[] = {
      // value written, quoted, value read back
      {"a=b [c] #d!", false, "a=b [c] #d!"},
      {" \t\"q\"= ", true, " \t\"q\"= "},
      {" \"in\" quotes\t", false, "\"in\" quotes"},
      {"\"a\"b\"", false, "a\"b"},
  };
  for (const auto &[value, quoted, back] : cases) {
    ASSERT_TRUE(set("MAIN", "KEY", value, quoted));
    EXPECT_EQ(back, get("main", "key")) << readFile(path_);
  }
}

TEST_F(Ini, SectionsAndPlacement) {
  file("k=before\n[a]\nx=1\n[ b]\nk=blank\n[B]\nk=B1\nK=B2\n[A]\n  k  =  3\n");
  EXPECT_EQ("3", get("a", "K"));   // the section opens again
  EXPECT_EQ("B1", get("b", "k"));  // the first match decides
  EXPECT_EQ("<none>", get("c", "k"));

  ASSERT_TRUE(set("B", "k", "v"));    // every match is rewritten
  ASSERT_TRUE(set("a", "new", "n"));  // after the first [a]
  EXPECT_EQ(
      "k=before\n[a]\nx=1\nnew=n\n[ b]\nk=blank\n[B]\nk=v\nK=v\n[A]\n  k  =  "
      "3\n",
      readFile(path_));

  file("[a]\nx=1\n\n; end of a\n[b]\ny=2\r\n");
  ASSERT_TRUE(set("a", "k", "1"));
  ASSERT_TRUE(set("b", "k", "2"));
  ASSERT_TRUE(set("c", "k", ""));
  EXPECT_EQ("[a]\nx=1\n\n; end of a\nk=1\n[b]\ny=2\r\nk=2\n[c]\nk\n",
            readFile(path_));
  EXPECT_EQ("", get("c", "k"));
  ASSERT_TRUE(set("c", "k", "v"));  // a bare key gains its '='
  EXPECT_EQ("v", get("c", "k"));

  file("[s]\r\nold=1\r\nk=x ;c\r\n[t]\nz=1");  // no final line break
  ASSERT_TRUE(set("s", "k", "y"));
  ASSERT_TRUE(set("t", "n", "2"));
  EXPECT_EQ("[s]\r\nold=1\r\nk=y\n[t]\nz=1\nn=2\n", readFile(path_));

  std::string missing = dir_ / "missing.ini";
  EXPECT_FALSE(IniUtil_WriteIniFileString(missing.c_str(), "s", "k", "v", 0));
  EXPECT_FALSE(gp::test::fileExists(missing));
}

// Fills `bytes` bytes with comment lines.
std::string filler(size_t bytes) {
  std::string out;
  while (bytes - out.size() > 100) out += ";" + std::string(98, 'c') + "\n";
  return out + std::string(bytes - out.size() - 1, ';') + "\n";
}

TEST_F(Ini, PiecesCutsAndLimits) {
  std::string x1023(1023, 'x');
  file("[s]\n" + x1023 + "k=v\n" + x1023 + "[t]\nj=1\n" +
       "m=" + std::string(1025, 'a') + "\n");
  EXPECT_EQ("v", get("s", "k"));  // a piece is a line of its own
  EXPECT_EQ("1", get("t", "j"));
  EXPECT_EQ("<none>", get("s", "j"));
  EXPECT_EQ(std::string(1021, 'a'), get("t", "m"));

  file("[s]\n  kk =old\n");
  std::string big(2000, 'v');
  ASSERT_TRUE(set("s", "kk", big.c_str(), true));
  ASSERT_TRUE(set("s", "n", big.c_str()));
  EXPECT_EQ("[s]\n  kk =\"" + std::string(1014, 'v') +
                "\"\nn=" + std::string(1018, 'v') + "\n",
            readFile(path_));
  EXPECT_TRUE(set("s", std::string(1019, 'k').c_str(), "v"));
  EXPECT_FALSE(set("s", std::string(1020, 'k').c_str(), "v"));
  EXPECT_FALSE(set(std::string(1021, 's').c_str(), "k", "v"));

  // The writer reads a further line while its output is at most 522,240
  // bytes, and appends at the end under the same condition.
  for (size_t before : {522240u, 522241u}) {
    for (const auto &[content, key] :
         {std::pair{"[s]\nk=1\n" + filler(before - 8) + "z\n", "k"},
          std::pair{"[s]\n" + filler(before - 4), "new"}}) {
      file(content);
      EXPECT_EQ(before == 522240, set("s", key, "2")) << before;
      if (before > 522240) expectUntouched(content);
    }
  }
}

// Only "0" itself reads as zero; a failed read stores 0 unless the key is
// missing.
TEST_F(Ini, Numbers) {
  const std::string numbers =
      "[n]\nmin=-2147483648\nzero=0\nq=\"42\"\nsfx=12abc\nsp=  5\n"
      "huge=99999999999\ntiny=-99999999999\nzz=00\n";
  file(numbers);
  ASSERT_TRUE(IniUtil_WriteIniFileInt(path_.c_str(), "n", "neg", -5));
  EXPECT_EQ(numbers + "neg=-5\n", readFile(path_));
  const std::tuple<const char *, Bool, int32_t> cases[] = {
      {"neg", TRUE, -5},         {"min", TRUE, INT32_MIN},  {"zero", TRUE, 0},
      {"q", TRUE, 42},           {"sfx", TRUE, 12},         {"sp", TRUE, 5},
      {"huge", TRUE, INT32_MAX}, {"tiny", TRUE, INT32_MIN}, {"zz", FALSE, 0},
      {"missing", FALSE, 99}};
  for (const auto &[key, ok, value] : cases) {
    int32_t v = 99;
    EXPECT_EQ(ok, IniUtil_GetIniFileInt(path_.c_str(), "n", key, &v)) << key;
    EXPECT_EQ(value, v) << key;
  }
  EXPECT_FALSE(IniUtil_GetIniFileInt(path_.c_str(), "n", "neg", nullptr));
}

// Each failure leaves the file byte for byte as it was, with no temporary
// file beside it.
TEST_F(Ini, FailedWritesLoseNothing) {
  const std::string original = "[s]\r\nk=1\r\n";
  file(original);
  auto failWith = [&](auto member, auto fails) {
    gp::HostOps ops = gp::hostOps();
    ops.*member = fails;
    gp::ScopedHostOps scoped(ops);
    EXPECT_FALSE(set("s", "k", "2"));
    expectUntouched(original);
  };
  auto fails = [](auto...) { return errno = EIO, -1; };
  auto sizeFails = [](auto...) -> ssize_t { return errno = ENOSPC, -1; };
  failWith(&gp::HostOps::read, sizeFails);
  failWith(&gp::HostOps::mkstemp, fails);  // an unwritable directory
  failWith(&gp::HostOps::write, sizeFails);
  failWith(&gp::HostOps::fsync, fails);
  failWith(&gp::HostOps::rename, fails);
  file("[s]\nk=1\n[broken\n[t]\n");
  EXPECT_FALSE(set("t", "k", "2"));
  expectUntouched("[s]\nk=1\n[broken\n[t]\n");

  // Success keeps the permission bits, and a link stays a link.
  file(original);
  chmod(path_.c_str(), 0640);
  std::string link = dir_ / "link.ini";
  ASSERT_EQ(0, symlink("t.ini", link.c_str()));
  ASSERT_TRUE(IniUtil_WriteIniFileString(link.c_str(), "s", "k", "2", 0));
  struct stat st;
  ASSERT_EQ(0, lstat(link.c_str(), &st));
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  ASSERT_EQ(0, stat(path_.c_str(), &st));
  EXPECT_EQ(0640u, st.st_mode & 07777);
  EXPECT_EQ("[s]\r\nk=2\n", readFile(path_));
  EXPECT_FALSE(
      IniUtil_WriteIniFileString(dir_.path().c_str(), "s", "k", "v", 0));
  char buf[8];
  EXPECT_FALSE(IniUtil_GetIniFileString(dir_.path().c_str(), "s", "k", buf, 8));
  EXPECT_FALSE(IniUtil_GetIniFileString(path_.c_str(), "s", "k", buf, 0));
  EXPECT_FALSE(IniUtil_GetIniFileString(path_.c_str(), "s", "k", nullptr, 8));
}

TEST_F(Ini, BadInput) {
  // A NUL ends a line's text; the writer still copies the whole line.
  std::string nul("[s]\nk=ab\0cd\nj=1\n", 16);
  file(nul);
  EXPECT_EQ("ab", get("s", "k"));
  ASSERT_TRUE(set("s", "j", "2"));
  EXPECT_EQ(std::string("[s]\nk=ab\0cd\nj=2\n", 16), readFile(path_));
  file(std::string("[s\0]\nk=1\n", 9));
  EXPECT_EQ("<none>", get("s", "k"));
  EXPECT_FALSE(set("s", "k", "2"));

  // A file far beyond the writer's limit; the reader streams through it.
  const std::string huge = "[s]\n" + std::string(5 << 20, 'a') + "\nk=1\n";
  file(huge);
  EXPECT_EQ("1", get("s", "k"));
  EXPECT_FALSE(set("s", "k", "2"));
  expectUntouched(huge);
}

// A line break in a name or a value would write a line of its own: another
// key, or a whole new section.
TEST_F(Ini, LineBreaksInWhatIsWrittenAreRefused) {
  const std::string original = "[s]\nk=1\n";
  const struct {
    const char *section, *key, *value;
  } cases[] = {
      {"s", "k", "2\nadmin=1"}, {"s", "k", "2\r"},   {"s", "k", "\n"},
      {"s", "k\nj", "2"},       {"s", "k\r", "2"},   {"s]\n[t", "k", "2"},
      {"s\r", "k", "2"},        {"new\n", "k", "2"},
  };
  for (const auto &c : cases) {
    file(original);
    EXPECT_FALSE(set(c.section, c.key, c.value))
        << c.section << c.key << c.value;
    EXPECT_FALSE(set(c.section, c.key, c.value, true));
    expectUntouched(original);
  }
  // Other control characters stay part of the value.
  ASSERT_TRUE(set("s", "k", "a\tb\x01"));
  EXPECT_EQ("a\tb\x01", get("s", "k"));
}

// Root rewriting somebody else's file gives it back to its owner and group.
TEST_F(Ini, RewriteKeepsOwnerAndGroup) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root to give a file away";
  }
  const passwd *nobody = getpwnam("nobody");
  const group *nogroup = getgrnam("nogroup");
  ASSERT_TRUE(nobody != nullptr && nogroup != nullptr);
  file("[s]\nk=1\n");
  ASSERT_EQ(0, chown(path_.c_str(), nobody->pw_uid, nogroup->gr_gid));
  ASSERT_TRUE(set("s", "k", "2"));
  struct stat st;
  ASSERT_EQ(0, stat(path_.c_str(), &st));
  EXPECT_EQ(nobody->pw_uid, st.st_uid);
  EXPECT_EQ(nogroup->gr_gid, st.st_gid);
  EXPECT_EQ("[s]\nk=2\n", readFile(path_));
}

TEST_F(Ini, CommandLine) {
  file("[s]\nk=1\n");
  std::string cli = std::string(GP_CLI) + " ini ", out;
  std::string p = gp::test::shellQuote(path_);
  EXPECT_EQ(0, gp::test::runCommand(cli + "set " + p + " s k 'a b' --quoted"));
  EXPECT_EQ("[s]\nk=\"a b\"\n", readFile(path_));
  EXPECT_EQ(0, gp::test::runCommand(cli + "get " + p + " S K", &out));
  EXPECT_EQ("a b\n", out);
}

}  // namespace
