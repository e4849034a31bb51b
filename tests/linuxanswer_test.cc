// Linux answer files against saved copies, openssl and each file's own tool.
// GP_UPDATE_GOLDEN=1 rewrites tests/data/answerfiles/ from the library
// instead of comparing; review the difference before committing it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "guestprep/autoinstall.h"
#include "lib/guestInstall/autoinstallGuestLinux_answer.h"
#include "platform/hostio.h"
#include "platform/log.h"
#include "support/fixtures.h"

namespace {

using namespace gp::test;

// With the clock stopped at 0 and this rand(), every salt is "ABCDEFGH".
unsigned gFakeSeed;
gp::HostOps deterministicOps() {
  gp::HostOps ops = gp::realHostOps();
  ops.time = [](time_t *out) -> time_t { return out ? *out = 0 : 0; };
  ops.srand = [](unsigned seed) { gFakeSeed = seed; };
  ops.rand = [] { return static_cast<int>(gFakeSeed++ & 0x7fffffffu); };
  return ops;
}

struct Entries {
  const char *os;
  GuessVersion sub = GUESS_VERSION_UNKNOWN;
  const char *key = nullptr;
  bool powerOff = false;
  const char *user = "jdoe";
  const char *fullName = "John \"Q\" Doe";
  const char *password = "s3cret";
  const char *rootPassword = "r00t!";
};

Bool prepare(const Entries &e, const std::string &dir) {
  return AutoInstall_PrepareAnswerFileEx_Linux(
      e.os, e.sub, dir.c_str(), e.user, e.fullName, e.password, e.rootPassword,
      e.key, e.powerOff ? TRUE : FALSE);
}

class LinuxAnswer : public ::testing::Test {
 protected:
  std::string write(const Entries &e) {
    std::string dir = tmp_ / "out";
    EXPECT_EQ(TRUE, prepare(e, dir)) << e.os;
    std::string path = gp::autoinstall::autoInstallLinuxAnswerPath(
        gp::autoinstall::autoInstallGetLinuxKind(e.os), dir);
    std::string text = readFile(path);
    std::remove(path.c_str());
    return text;
  }

  gp::ScopedHostOps ops_{deterministicOps()};
  TempDir tmp_;
};

// Each password in its place, in order, with openssl's hash: a swap would go
// unnoticed until the guest refuses its logins.
TEST_F(LinuxAnswer, OneCompleteFilePerKindMatchesItsSavedCopy) {
  std::string user, root;
  ASSERT_EQ(0, runCommand("openssl passwd -1 -salt ABCDEFGH s3cret", &user));
  ASSERT_EQ(0, runCommand("openssl passwd -1 -salt ABCDEFGH 'r00t!'", &root));
  user.pop_back(), root.pop_back();
  const struct {
    const char *file;
    Entries entries;
    std::vector<std::string> places;
  } goldens[] = {
      {"ks-rhel6-64.cfg",
       {"rhel6-64", GUESS_VERSION_UNKNOWN, "KEY-6"},
       {"\nrootpw --iscrypted " + root + "\n",
        "\n/usr/sbin/usermod -p '" + user + "' jdoe\n"}},
      {"preseed.cfg",
       {"ubuntu-64", GUESS_VERSION_UBUNTU_710_OR_HIGHER},
       {"\tpasswd/user-password-crypted password " + user + "\n"}},
      {"autoinst-sles11.xml",
       {"sles11-64", GUESS_VERSION_UNKNOWN, nullptr, true},
       {">" + root + "<", "</user>", ">" + user + "<"}},
      {"auto_i~1.cfg",
       {"mandriva", GUESS_VERSION_MANDRIVA_2008_0},
       {"'password' => \"s3cret\"", "'superuser'", "'password' => \"r00t!\""}},
  };
  const bool update = std::getenv("GP_UPDATE_GOLDEN") != nullptr;
  for (const auto &g : goldens) {
    std::string saved = sourcePath("tests/data/answerfiles/") + g.file;
    std::string text = write(g.entries);
    for (size_t i = 0, at = 0; i < g.places.size(); ++i) {
      EXPECT_NE(std::string::npos, at = text.find(g.places[i], at))
          << g.places[i];
    }
    if (update) writeFile(saved, text);
    EXPECT_EQ(readFile(saved), text) << g.file;
  }
}

// The lines that set each release apart, "|"-separated; "!" marks a line
// that must be absent.
TEST_F(LinuxAnswer, ReleasesDifferInTheirDistinguishingLines) {
  const struct {
    Entries e;
    const char *lines;
  } cases[] = {
      {{"rhel4", GUESS_VERSION_UNKNOWN, "ABCD-1234"},
       "langsupport --default en_US|mouse generic3ps/2|#key ABCD-1234|"
       "%packages --resolvedeps|reboot"},
      {{"rhel5-64", GUESS_VERSION_UNKNOWN, "", true},
       "#langsupport --default en_US|#mouse generic3ps/2|key --skip|%packages|"
       "poweroff|xconfig --startxonboot --resolution=800x600"},
      // Without a release digit no version-dependent line is switched on.
      {{"rhel", GUESS_VERSION_UNKNOWN, "K"},
       "#langsupport --default en_US|#mouse generic3ps/2|#key K|%packages"},
      {{"fedora-64", GUESS_VERSION_FEDORA_14_OR_HIGHER},
       "zerombr #yes|part biosboot --fstype=biosboot --size=1|#key --skip|"
       "@ Fonts|%end|!@ Desktop"},
      {{"fedora", GUESS_VERSION_FEDORA_9_TO_12},
       "zerombr yes|#part biosboot --fstype=biosboot --size=1|@ Fonts|#%end"},
      // Asianux keeps its syntax and packages on a Fedora 14 code; the
      // biosboot partition follows the code alone.
      {{"asianux", GUESS_VERSION_FEDORA_14_OR_HIGHER},
       "zerombr yes|part biosboot --fstype=biosboot --size=1|@ Korean-support|"
       "!@ Fonts|#%end"},
      {{"sles10-64", GUESS_VERSION_SLES_10_SP2_OR_LOWER},
       "      <pattern>default</pattern>|!      <pattern>base</pattern>|"
       "mount -t iso9660 /dev/hda /tmp/zentav-toolsmnt0"},
      {{"opensuse"},
       "      <pattern>kde4</pattern>|"
       "      <display_manager>kdm</display_manager>|"
       "      <final_halt config:type=\"boolean\">false</final_halt>"},
      {{"sles11", GUESS_VERSION_SLED_ALL},
       "      <pattern>desktop-gnome</pattern>"},
      {{"ubuntu", GUESS_VERSION_UNKNOWN, nullptr, true},
       "ubiquity\tubiquity/poweroff boolean true"},
  };
  for (const auto &c : cases) {
    std::string text = "\n" + write(c.e), line;
    std::istringstream lines(c.lines);
    while (std::getline(lines, line, '|')) {
      bool absent = line[0] == '!';
      EXPECT_EQ(absent, text.find("\n" + line.substr(absent) + "\n") ==
                            std::string::npos)
          << c.e.os << ": " << line;
    }
  }
  // CentOS rebuilds RHEL: its first and last codes give their release's file.
  EXPECT_EQ(write({"rhel3"}), write({"centos-64", GUESS_VERSION_CENTOS_3}));
  EXPECT_EQ(write({"rhel6-64"}), write({"centos-64", GUESS_VERSION_CENTOS_6}));
}

// Quotes, backslashes, dollar signs, XML-special and non-ASCII characters in
// the entries: every file must still be read correctly by its own tool.
TEST_F(LinuxAnswer, HostileEntriesKeepEachFileParseable) {
  const char *fullName = "Jo \"Q\" O'Brien $HOME <b>&amp; \\ Ünïcødé ✓";
  EXPECT_EQ("Jo \\\"Q\\\" O'Brien $HOME <b>&amp; \\ Ünïcødé ✓",
            gp::autoinstall::autoInstallEscapeQuotes(fullName));
  const std::pair<const char *, const char *> kinds[] = {
      // Each tool reads the file as "$1"; the %post section is a script.
      {"rhel6-64", "sed '1,/^%post$/d;$d' \"$1/ks.cfg\" | bash -n"},
      {"ubuntu", "debconf-set-selections -c \"$1/custom/preseed.cfg\""},
      {"mandriva-64", "perl -cw \"$1/auto_i~1.cfg\""},
      // AutoYaST: the full name ("$2") stands unchanged in its character data.
      {"opensuse-64",
       "xmllint --noout \"$1/autoinst.xml\" && test \"$2\" = \"$(xmllint "
       "--xpath \"string((//*[local-name()='forename'])[2])\" "
       "\"$1/autoinst.xml\")\""},
  };
  for (const auto &[os, tool] : kinds) {
    Entries e{os};
    e.user = "jdoe-2";
    e.fullName = fullName;
    e.password = "p\"a$s\\w'<&>]]ü€";
    e.rootPassword = "$(reboot)`id`\"'\\n";
    ASSERT_EQ(TRUE, prepare(e, tmp_ / os)) << os;
    std::string out;
    EXPECT_EQ(0, runCommand("sh -c " + shellQuote(tool) + " sh " +
                                shellQuote(tmp_ / os) + " " +
                                shellQuote(fullName) + " 2>&1",
                            &out))
        << os << ": " << out;
  }
}

// The salt: srand(seconds) at every call, then eight draws modulo 64.
TEST(LinuxAnswerHash, SaltFromTheClockAndHashesMatchOpenssl) {
  using gp::autoinstall::autoInstallCryptPassword;
  static time_t now = 1290000000;
  gp::HostOps ops = gp::realHostOps();
  ops.time = [](time_t *out) { return out ? *out = now : now; };
  gp::ScopedHostOps scoped(ops);
  std::srand(static_cast<unsigned>(now));
  std::string salt;
  for (int i = 0; i < 8; ++i) {
    salt += "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789./"
        [std::rand() % 64];
  }
  for (const std::string &pw : {std::string(), std::string(200, 'x')}) {
    const char *hash = autoInstallCryptPassword(pw.c_str());
    std::string expected;
    ASSERT_EQ(0, runCommand("openssl passwd -1 -salt " + shellQuote(salt) +
                                " " + shellQuote(pw),
                            &expected));
    EXPECT_EQ(expected, std::string(hash ? hash : "(null)") + "\n") << pw;
  }
  ++now;
  EXPECT_NE("$1$" + salt, std::string(autoInstallCryptPassword("x"), 11));
  EXPECT_EQ(nullptr, autoInstallCryptPassword(nullptr));
}

TEST_F(LinuxAnswer, FileHandlingAndRefusals) {
  gp::LogCapture log;
  std::string dir = tmp_ / "a/b";
  const Entries ks{"rhel5"};

  // No file for other guests or missing entries; the directory comes first.
  EXPECT_EQ(FALSE, prepare({"debian5"}, dir));
  EXPECT_EQ(FALSE, prepare({nullptr}, dir));
  EXPECT_TRUE(std::filesystem::is_empty(dir));
  for (const char *Entries::*field :
       {&Entries::user, &Entries::fullName, &Entries::password,
        &Entries::rootPassword}) {
    Entries e = ks;
    e.*field = nullptr;
    EXPECT_EQ(FALSE, prepare(e, dir));
  }
  EXPECT_EQ(FALSE, AutoInstall_PrepareAnswerFileEx_Linux(
                       "rhel5", GUESS_VERSION_UNKNOWN, nullptr, "u", "f", "p",
                       "r", nullptr, FALSE));
  EXPECT_FALSE(fileExists(dir + "/ks.cfg"));

  // A link in the file's place is not followed out of the directory.
  writeFile(tmp_ / "victim", "keep");
  ASSERT_EQ(0, symlink((tmp_ / "victim").c_str(), (dir + "/ks.cfg").c_str()));
  EXPECT_EQ(FALSE, prepare(ks, dir));
  EXPECT_EQ("keep", readFile(tmp_ / "victim"));
  ASSERT_EQ(0, unlink((dir + "/ks.cfg").c_str()));

  // An existing file is written from its start and not emptied first.
  const std::string tail(20000, '~');
  writeFile(dir + "/ks.cfg", tail);
  ASSERT_EQ(TRUE, prepare(ks, dir));
  std::string fresh = write(ks);
  EXPECT_EQ(fresh + tail.substr(fresh.size()), readFile(dir + "/ks.cfg"));

  // A write that fails half way leaves the part written and says FALSE.
  {
    static int writes;
    writes = 0;
    gp::HostOps failing = gp::hostOps();
    failing.write = [](int fd, const void *buf, size_t count) -> ssize_t {
      if (writes++ > 0) return errno = ENOSPC, -1;
      return ::write(fd, buf, std::min<size_t>(count, 100));
    };
    gp::ScopedHostOps scoped(failing);
    EXPECT_EQ(FALSE, prepare(ks, tmp_ / "full"));
  }
  EXPECT_EQ(fresh.substr(0, 100), readFile(tmp_ / "full/ks.cfg"));

  // Writing twice into the same directory works, "custom" included.
  EXPECT_EQ(TRUE, prepare({"ubuntu"}, dir));
  EXPECT_EQ(TRUE, prepare({"ubuntu"}, dir));
  EXPECT_TRUE(fileExists(dir + "/custom/preseed.cfg"));
  EXPECT_TRUE(log.lines().empty()) << log.text();
}

TEST_F(LinuxAnswer, CommandLineWritesAndPrintsThePath) {
  std::string out;
  EXPECT_EQ(
      0,
      runCommand(std::string(GP_CLI) + " answer-file --out " + (tmp_ / "cli") +
                     " --user u --full-name 'J D' --password p"
                     " --root-password r --os ubuntu-64 --sub-version 4",
                 &out));
  EXPECT_EQ(tmp_ / "cli/custom/preseed.cfg\n", out);
}

}  // namespace
