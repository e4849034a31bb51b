#include "guestprep/iniutil.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <map>
#include <random>

#include "platform/hostio.h"
#include "support/fixtures.h"

namespace {

using gp::test::readFile;
using gp::test::writeFile;

class Ini : public ::testing::Test {
 protected:
  std::string file(std::string_view content) {
    writeFile(path_, content);
    return path_;
  }
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
    size_t entries = 0;
    for ([[maybe_unused]] auto &e :
         std::filesystem::directory_iterator(dir_.path())) {
      ++entries;
    }
    EXPECT_EQ(1u, entries) << "a temporary file was left behind";
  }

  gp::test::TempDir dir_;
  std::string path_ = dir_ / "t.ini";
};

TEST_F(Ini, CommentsAndQuotes) {
  file(
      "[s] ; header comment\n"
      ";k=commented\n"
      "k = \"a b\"   ; note\n"
      "lone=\"\n"
      "long=\"abcdef\"\n"
      "semi=a;b\n"
      "e=\n"
      "crlf=\r\n"
      "bare\n"
      "[t;x]\n");
  EXPECT_EQ("a b", get("s", "k"));
  EXPECT_EQ("\"", get("s", "lone"));
  EXPECT_EQ("\"ab", get("s", "long", 4));  // cut before unquoting
  EXPECT_EQ("a", get("s", "semi"));
  EXPECT_EQ("", get("s", "e"));
  EXPECT_EQ("", get("s", "crlf"));
  EXPECT_EQ("", get("s", "bare"));
  // The reader cuts the comment before looking for ']'.
  EXPECT_EQ("<none>", get("t;x", "k"));

  // When writing, ';' only marks a comment as a line's first byte.
  file("[s;x]\n  key = old ; c\n[s]\n  Key = old ; c\n");
  ASSERT_TRUE(set("s", "KEY", "new", true));
  EXPECT_EQ("[s;x]\n  key = old ; c\n[s]\n  Key =\"new\"\n", readFile(path_));
}

TEST_F(Ini, SectionsAndPlacement) {
  file(
      "k=before\n"
      "[a]\nx=1\n"
      "[ b]\nk=blank\n"
      "[B]\nk=B1\nK=B2\n"
      "[A]\n  k  =  3\n");
  EXPECT_EQ("3", get("a", "K"));   // the section opens again
  EXPECT_EQ("B1", get("b", "k"));  // the first match decides
  EXPECT_EQ("<none>", get("c", "k"));
  EXPECT_EQ("<none>", get("a", "y"));

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

  // The empty key answers only to a line with '=', never to a blank line.
  file("[]\n\nk=1\n");
  ASSERT_TRUE(set("", "", ""));
  EXPECT_EQ("[]\n\nk=1\n=\n", readFile(path_));
  EXPECT_EQ("", get("", ""));

  file("");
  ASSERT_TRUE(set("s", "k", "v"));
  EXPECT_EQ("[s]\nk=v\n", readFile(path_));
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
  while (bytes - out.size() > 100) {
    out += ";" + std::string(98, 'c') + "\n";
  }
  size_t rest = bytes - out.size();
  if (rest > 0) {
    out += std::string(rest - 1, ';') + "\n";
  }
  return out;
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
  EXPECT_EQ(std::string(1014, 'v'), get("s", "kk"));
  EXPECT_TRUE(set("s", std::string(1019, 'k').c_str(), "v"));
  EXPECT_FALSE(set("s", std::string(1020, 'k').c_str(), "v"));
  EXPECT_FALSE(set(std::string(1021, 's').c_str(), "k", "v"));

  // The writer reads a further line while its output is at most 522,240
  // bytes, and appends at the end under the same condition.
  for (size_t before : {522240u, 522241u}) {
    std::string content = "[s]\nk=1\n" + filler(before - 8) + "z\n";
    file(content);
    EXPECT_EQ(before == 522240, set("s", "k", "2")) << before;
    if (before > 522240) {
      expectUntouched(content);
    }
    content = "[s]\n" + filler(before - 4);
    file(content);
    EXPECT_EQ(before == 522240, set("s", "new", "2")) << before;
    if (before > 522240) {
      expectUntouched(content);
    }
  }
}

TEST_F(Ini, Numbers) {
  file("[n]\n");
  ASSERT_TRUE(IniUtil_WriteIniFileInt(path_.c_str(), "n", "neg", -5));
  EXPECT_EQ("[n]\nneg=-5\n", readFile(path_));

  file(
      "[n]\nneg=-5\nmin=-2147483648\nzero=0\nlead=007\nq=\"42\"\n"
      "sfx=12abc\nsp=  5\nhuge=99999999999\ntiny=-99999999999\n"
      "zz=00\nmz=-0\nabc=abc\nempty=\n");
  struct Case {
    const char *key;
    bool ok;
    int32_t value;
  } cases[] = {
      {"neg", true, -5},   {"min", true, INT32_MIN},  {"zero", true, 0},
      {"lead", true, 7},   {"q", true, 42},           {"sfx", true, 12},
      {"sp", true, 5},     {"huge", true, INT32_MAX}, {"tiny", true, INT32_MIN},
      {"zz", false, 0},    {"mz", false, 0},          {"abc", false, 0},
      {"empty", false, 0},
  };
  for (const Case &c : cases) {
    int32_t v = 99;
    EXPECT_EQ(c.ok, IniUtil_GetIniFileInt(path_.c_str(), "n", c.key, &v) != 0)
        << c.key;
    EXPECT_EQ(c.value, v) << c.key;
  }
  int32_t v = 99;
  EXPECT_FALSE(IniUtil_GetIniFileInt(path_.c_str(), "n", "missing", &v));
  EXPECT_EQ(99, v);
  EXPECT_FALSE(IniUtil_GetIniFileInt(path_.c_str(), "n", "neg", nullptr));
}

// Each failure leaves the file byte for byte as it was, with no temporary
// file beside it.
TEST_F(Ini, FailedWritesLoseNothing) {
  const std::string original = "[s]\r\nk=1\r\n";
  file(original);
  auto failWith = [&](auto patch) {
    gp::HostOps ops = gp::hostOps();
    patch(ops);
    gp::ScopedHostOps scoped(ops);
    EXPECT_FALSE(set("s", "k", "2"));
    expectUntouched(original);
  };
  failWith([](gp::HostOps &o) {
    o.write = [](int, const void *, size_t) -> ssize_t {
      errno = ENOSPC;
      return -1;
    };
  });
  failWith([](gp::HostOps &o) {
    o.rename = [](const char *, const char *) { return errno = EIO, -1; };
  });
  failWith(
      [](gp::HostOps &o) { o.fsync = [](int) { return errno = EIO, -1; }; });
  failWith([](gp::HostOps &o) {
    o.read = [](int, void *, size_t) -> ssize_t { return errno = EIO, -1; };
  });
  // A directory the caller cannot write to (root may write anywhere, so
  // then the refusal is simulated).
  if (geteuid() == 0) {
    failWith([](gp::HostOps &o) {
      o.mkstemp = [](char *) { return errno = EACCES, -1; };
    });
  } else {
    chmod(dir_.path().c_str(), 0555);
    EXPECT_FALSE(set("s", "k", "2"));
    chmod(dir_.path().c_str(), 0755);
    expectUntouched(original);
  }
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

  // Files far beyond the writer's limit: a million empty lines, a line of
  // several megabytes. The reader streams through them.
  for (const std::string &content :
       {"[s]\n" + std::string(1000000, '\n') + "k=1\n",
        "[s]\n" + std::string(5 << 20, 'a') + "\nk=1\n"}) {
    file(content);
    EXPECT_EQ("1", get("s", "k"));
    EXPECT_FALSE(set("s", "k", "2"));
    expectUntouched(content);
  }
}

// Random writes through differently cased names, then reads: each key
// gives back the last value written to it.
TEST_F(Ini, RoundTrip) {
  std::mt19937 rng(20240611);
  auto pick = [&](size_t n) { return static_cast<size_t>(rng() % n); };
  const char *sections[] = {"main", "Other Section", "x.y"};
  const char *keys[] = {"Key", "a_b", "Name With Blanks", "k2"};
  // Bytes the format can hold in a value: no ';', no line ends, no NUL.
  const std::string alphabet = "abcXYZ019 \t\"=[]#!";
  auto randomCase = [&](std::string s) {
    for (char &c : s) {
      c = pick(2) ? static_cast<char>(toupper(c))
                  : static_cast<char>(tolower(c));
    }
    return s;
  };
  for (int round = 0; round < 20; ++round) {
    file(round % 2 ? "; header comment\r\n[Main]\r\nkey = old\r\n" : "");
    std::map<std::pair<int, int>, std::string> expected;
    for (int i = 0; i < 30; ++i) {
      int s = static_cast<int>(pick(3));
      int k = static_cast<int>(pick(4));
      bool quoted = pick(2);
      std::string value;
      for (size_t n = pick(12); n > 0; --n) {
        value += alphabet[pick(alphabet.size())];
      }
      if (!quoted) {
        // Unquoted values lose their outer blanks and a pair of quotes.
        while (!value.empty() && (value.back() == ' ' || value.back() == '\t'))
          value.pop_back();
        while (!value.empty() && (value[0] == ' ' || value[0] == '\t'))
          value.erase(0, 1);
        if (value.size() >= 2 && value[0] == '"' && value.back() == '"')
          value[0] = 'q';
      }
      ASSERT_TRUE(set(randomCase(sections[s]).c_str(),
                      randomCase(keys[k]).c_str(), value.c_str(), quoted));
      expected[{s, k}] = value;
    }
    for (const auto &[where, value] : expected) {
      EXPECT_EQ(value, get(randomCase(sections[where.first]).c_str(),
                           randomCase(keys[where.second]).c_str()))
          << readFile(path_);
    }
  }
}

TEST_F(Ini, CommandLine) {
  file("[s]\nk=1\n");
  std::string cli = std::string(GP_CLI) + " ini ";
  std::string p = gp::test::shellQuote(path_);
  std::string out;
  EXPECT_EQ(0, gp::test::runCommand(cli + "set " + p + " s k 'a b' --quoted"));
  EXPECT_EQ("[s]\nk=\"a b\"\n", readFile(path_));
  EXPECT_EQ(0, gp::test::runCommand(cli + "get " + p + " S K", &out));
  EXPECT_EQ("a b\n", out);
  EXPECT_NE(0, gp::test::runCommand(cli + "get " + p + " s none 2>/dev/null"));
  EXPECT_NE(0, gp::test::runCommand(cli + "set " + p + " s k 2>/dev/null"));
}

}  // namespace
