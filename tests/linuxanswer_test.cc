// Linux answer files against saved copies, openssl and each file's own tool.
// GP_UPDATE_GOLDEN=1 rewrites tests/data/answerfiles/ from the library
// instead of comparing; review the difference before committing it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
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

bool hasLine(const std::string &text, const std::string &line) {
  return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
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

TEST_F(LinuxAnswer, OneCompleteFilePerKindMatchesItsSavedCopy) {
  const struct {
    const char *file;
    Entries entries;
  } goldens[] = {
      {"ks-rhel6-64.cfg", {"rhel6-64", GUESS_VERSION_UNKNOWN, "KEY-6"}},
      {"preseed.cfg", {"ubuntu-64", GUESS_VERSION_UBUNTU_710_OR_HIGHER}},
      {"autoinst-sles11.xml",
       {"sles11-64", GUESS_VERSION_UNKNOWN, nullptr, true}},
      {"auto_i~1.cfg", {"mandriva", GUESS_VERSION_MANDRIVA_2008_0}},
  };
  const bool update = std::getenv("GP_UPDATE_GOLDEN") != nullptr;
  for (const auto &g : goldens) {
    std::string saved = sourcePath("tests/data/answerfiles/") + g.file;
    std::string text = write(g.entries);
    if (update) {
      writeFile(saved, text);
    } else {
      EXPECT_EQ(readFile(saved), text) << g.file;
    }
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
       "%packages --resolvedeps|zerombr yes|reboot"},
      {{"rhel5-64", GUESS_VERSION_UNKNOWN, "", true},
       "#langsupport --default en_US|#mouse generic3ps/2|key --skip|%packages|"
       "poweroff|zerombr yes|@ GNOME Desktop Environment|#%end|"
       "xconfig --startxonboot --resolution=800x600"},
      // Without a release digit no version-dependent line is switched on.
      {{"rhel", GUESS_VERSION_UNKNOWN, "K"},
       "#langsupport --default en_US|#mouse generic3ps/2|#key K|%packages"},
      {{"fedora-64", GUESS_VERSION_FEDORA_14_OR_HIGHER},
       "zerombr #yes|part biosboot --fstype=biosboot --size=1|#key --skip|"
       "@ GNOME Desktop Environment|%end|!@ Desktop"},
      {{"fedora", GUESS_VERSION_FEDORA_9_TO_12},
       "zerombr yes|#part biosboot --fstype=biosboot --size=1|@ Fonts|"
       "#key --skip|#%end"},
      {{"asianux3-64", GUESS_VERSION_UNKNOWN, "AX3"},
       "zerombr yes|#part biosboot --fstype=biosboot --size=1|#key AX3|"
       "@ Korean-support|#%end|xconfig --startxonboot --resolution=800x600"},
      // Asianux keeps its syntax and packages on a Fedora 14 code; the
      // biosboot partition follows the code alone.
      {{"asianux", GUESS_VERSION_FEDORA_14_OR_HIGHER},
       "zerombr yes|part biosboot --fstype=biosboot --size=1|@ Korean-support|"
       "!@ Fonts|#%end"},
      {{"sles10-64", GUESS_VERSION_SLES_10_SP2_OR_LOWER, nullptr, true},
       "      <pattern>default</pattern>|!      <pattern>base</pattern>|"
       "mount -t iso9660 /dev/hda /tmp/zentav-toolsmnt0|"
       "      <final_halt config:type=\"boolean\">true</final_halt>"},
      {{"opensuse", GUESS_VERSION_UNKNOWN},
       "      <pattern>kde4</pattern>|      <pattern>enhanced_base</pattern>|"
       "      <pattern>devel_C_C++</pattern>|!      <pattern>gnome</pattern>|"
       "      <display_manager>kdm</display_manager>|"
       "mount -t iso9660 /dev/sr0 /tmp/zentav-toolsmnt0|"
       "      <final_halt config:type=\"boolean\">false</final_halt>"},
      {{"sles11", GUESS_VERSION_SLED_ALL},
       "      <pattern>desktop-gnome</pattern>|"
       "      <display_manager>gdm</display_manager>"},
  };
  for (const auto &c : cases) {
    std::string text = write(c.e), lines = c.lines;
    for (size_t at = 0, bar; at <= lines.size(); at = bar + 1) {
      bar = std::min(lines.find('|', at), lines.size());
      std::string line = lines.substr(at, bar - at);
      bool absent = line[0] == '!';
      EXPECT_NE(absent, hasLine(text, line.substr(absent ? 1 : 0)))
          << c.e.os << ": " << line;
    }
  }
  // CentOS rebuilds RHEL: each CentOS code gives the file of its release.
  const std::pair<GuessVersion, const char *> centos[] = {
      {GUESS_VERSION_CENTOS_3, "rhel3"},
      {GUESS_VERSION_CENTOS_4, "rhel4"},
      {GUESS_VERSION_CENTOS_5, "rhel5"},
      {GUESS_VERSION_CENTOS_6, "rhel6-64"}};
  for (const auto &[code, rhel] : centos) {
    for (const char *key : {static_cast<const char *>(nullptr), "K-1"}) {
      EXPECT_EQ(write({rhel, GUESS_VERSION_UNKNOWN, key}),
                write({"centos-64", code, key}))
          << rhel << " key " << (key != nullptr);
    }
  }
}

// A swapped user and administrator password would go unnoticed until the
// guest refuses its logins: each place, in order, with openssl's hash.
TEST_F(LinuxAnswer, EachPasswordLandsInItsPlace) {
  std::string user, root;
  ASSERT_EQ(0, runCommand("openssl passwd -1 -salt ABCDEFGH s3cret", &user));
  ASSERT_EQ(0, runCommand("openssl passwd -1 -salt ABCDEFGH 'r00t!'", &root));
  user.pop_back(), root.pop_back();
  const std::pair<const char *, std::vector<std::string>> kinds[] = {
      {"rhel5",
       {"\nrootpw --iscrypted " + root + "\n",
        "\n/usr/sbin/usermod -p '" + user + "' jdoe\n"}},
      {"sles11", {">" + root + "<", "</user>", ">" + user + "<"}},
      {"mandriva",
       {"'password' => \"s3cret\"", "'superuser'", "'password' => \"r00t!\""}},
  };
  for (const auto &[os, places] : kinds) {
    std::string text = write({os});
    for (size_t i = 0, at = 0; i < places.size(); ++i) {
      ASSERT_NE(std::string::npos, at = text.find(places[i], at)) << places[i];
    }
  }
}

// User entries go in through the quote escaping only; with quotes,
// backslashes, dollar signs, XML-special characters and non-ASCII text in
// them, every file must still be read correctly by its own tool.
TEST_F(LinuxAnswer, HostileEntriesKeepEachFileParseable) {
  const char *fullName = "Jo \"Q\" O'Brien $HOME <b>&amp; \\ Ünïcødé ✓";
  std::string escaped = gp::autoinstall::autoInstallEscapeQuotes(fullName);
  EXPECT_EQ("Jo \\\"Q\\\" O'Brien $HOME <b>&amp; \\ Ünïcødé ✓", escaped);
  const struct {
    const char *os, *file, *before, *after, *tool;
  } kinds[] = {
      // Kickstart: the %post section is a shell script.
      {"rhel6-64", "ks.cfg", "/usr/bin/chfn -f \"", "\" jdoe-2",
       "sed '1,/^%post$/d;$d' \"$1\" | bash -n"},
      {"ubuntu", "custom/preseed.cfg",
       "ubiquity\tpasswd/user-fullname\tstring\t", "",
       "debconf-set-selections -c \"$1\""},
      {"mandriva-64", "auto_i~1.cfg", "\t\t      'realname' => \"", "\",",
       "perl -cw \"$1\""},
      // AutoYaST: the full name stands unchanged in its character data.
      {"opensuse-64", "autoinst.xml", nullptr, nullptr,
       "xmllint --noout \"$1\" && xmllint --xpath "
       "\"string((//*[local-name()='forename'])[2])\" \"$1\""},
  };
  for (const auto &k : kinds) {
    Entries e{k.os};
    e.user = "jdoe-2";
    e.fullName = fullName;
    e.password = "p\"a$s\\w'<&>]]ü€";
    e.rootPassword = "$(reboot)`id`\"'\\n";
    ASSERT_EQ(TRUE, prepare(e, tmp_ / "check")) << k.os;
    std::string path = tmp_ / (std::string("check/") + k.file);
    std::string out;  // each tool reads the file as "$1"
    EXPECT_EQ(0, runCommand("sh -c " + shellQuote(k.tool) + " sh " +
                                shellQuote(path) + " 2>&1",
                            &out))
        << k.os << ": " << out;
    if (k.before != nullptr) {
      EXPECT_TRUE(hasLine(readFile(path), k.before + escaped + k.after))
          << k.os;
    } else {
      EXPECT_EQ(std::string(fullName) + "\n", out);
    }
  }
}

// The salt: srand(seconds) at every call, then eight draws modulo 64.
TEST(LinuxAnswerHash, SaltFromTheClockAndHashesMatchOpenssl) {
  static time_t now = 1290000000;
  gp::HostOps ops = gp::realHostOps();
  ops.time = [](time_t *out) { return out ? *out = now : now; };
  gp::ScopedHostOps scoped(ops);
  const char alphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789./";
  std::srand(static_cast<unsigned>(now));
  std::string salt;
  for (int i = 0; i < 8; ++i) {
    salt += alphabet[std::rand() % 64];
  }
  for (const std::string &pw :
       {std::string(), std::string("p\"a$s\\w'<&> ✓"), std::string(200, 'x')}) {
    const char *hash = gp::autoinstall::autoInstallCryptPassword(pw.c_str());
    ASSERT_NE(nullptr, hash);
    std::string expected;
    ASSERT_EQ(0, runCommand("openssl passwd -1 -salt " + shellQuote(salt) +
                                " " + shellQuote(pw),
                            &expected));
    EXPECT_EQ(expected, std::string(hash) + "\n") << pw;
  }
  std::string first = gp::autoinstall::autoInstallCryptPassword("x");
  ++now;
  EXPECT_NE(first.substr(0, 12),
            std::string(gp::autoinstall::autoInstallCryptPassword("x"), 12));
  EXPECT_EQ(nullptr, gp::autoinstall::autoInstallCryptPassword(nullptr));
}

TEST_F(LinuxAnswer, FileHandlingAndRefusals) {
  gp::LogCapture log;
  std::string dir = tmp_ / "a/b";
  const Entries ks{"rhel5"};

  // No answer file for other guests or missing entries; the directory is
  // still made first.
  EXPECT_EQ(FALSE, prepare({"debian5"}, dir));
  EXPECT_EQ(FALSE, prepare({nullptr}, dir));
  EXPECT_EQ(
      0, runCommand("test -d " + dir + " && test -z \"$(ls -A " + dir + ")\""));
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

  // A directory that cannot be made, a file that cannot be opened.
  writeFile(tmp_ / "plain", "x");
  EXPECT_EQ(FALSE, prepare(ks, tmp_ / "plain/sub"));
  writeFile(dir + "/custom", "not a directory");
  EXPECT_EQ(FALSE, prepare({"ubuntu"}, dir));

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
    static bool wroteSome;
    wroteSome = false;
    gp::HostOps failing = gp::hostOps();
    failing.write = [](int fd, const void *buf, size_t count) -> ssize_t {
      if (!wroteSome && count > 100) {
        wroteSome = true;
        return ::write(fd, buf, 100);
      }
      errno = ENOSPC;
      return -1;
    };
    gp::ScopedHostOps scoped(failing);
    EXPECT_EQ(FALSE, prepare(ks, tmp_ / "full"));
  }
  EXPECT_EQ(fresh.substr(0, 100), readFile(tmp_ / "full/ks.cfg"));

  // Writing twice into the same directory works, "custom" included.
  ASSERT_EQ(0, unlink((dir + "/custom").c_str()));
  EXPECT_EQ(TRUE, prepare({"ubuntu"}, dir));
  EXPECT_EQ(TRUE, prepare({"ubuntu"}, dir));
  EXPECT_TRUE(fileExists(dir + "/custom/preseed.cfg"));
  EXPECT_FALSE(fileExists(dir + "/preseed.cfg"));
  EXPECT_TRUE(log.lines().empty()) << log.text();
}

TEST_F(LinuxAnswer, CommandLineWritesAndPrintsThePath) {
  const std::string cli = std::string(GP_CLI) + " answer-file --out " +
                          (tmp_ / "cli") +
                          " --user u --full-name 'J D' --password p"
                          " --root-password r --os ";
  std::string out;
  EXPECT_EQ(0, runCommand(cli + "ubuntu-64 --sub-version 4 --power-off", &out));
  EXPECT_EQ(tmp_ / "cli/custom/preseed.cfg\n", out);
  EXPECT_TRUE(hasLine(readFile(tmp_ / "cli/custom/preseed.cfg"),
                      "ubiquity\tubiquity/poweroff boolean true"));
  EXPECT_EQ(1, runCommand(cli + "debian5 2>/dev/null"));
  EXPECT_EQ(2, runCommand(cli + "rhel5 --sub-version 99 2>/dev/null"));
}

}  // namespace
