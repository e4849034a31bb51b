// Linux answer files: complete files against saved copies, the kickstart
// version choices, the password hashes against openssl, each file against
// its own tool, and the file handling.
//
// GP_UPDATE_GOLDEN=1 rewrites tests/data/answerfiles/ from the library
// instead of comparing; review the difference before committing it.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "guestprep/autoinstall.h"
#include "lib/guestInstall/autoinstallGuestLinux_answer.h"
#include "platform/hostio.h"
#include "platform/log.h"
#include "support/fixtures.h"

namespace {

using gp::test::fileExists;
using gp::test::readFile;
using gp::test::runCommand;
using gp::test::shellQuote;
using gp::test::sourcePath;
using gp::test::TempDir;
using gp::test::writeFile;

// A salt source that depends only on the seed: with the clock stopped at
// 0 every hash gets the salt "ABCDEFGH".
unsigned gFakeSeed;
void fakeSrand(unsigned seed) { gFakeSeed = seed; }
int fakeRand() { return static_cast<int>(gFakeSeed++ & 0x7fffffffu); }
time_t stoppedClock(time_t *out) {
  if (out != nullptr) {
    *out = 0;
  }
  return 0;
}

gp::HostOps deterministicOps() {
  gp::HostOps ops = gp::realHostOps();
  ops.time = stoppedClock;
  ops.srand = fakeSrand;
  ops.rand = fakeRand;
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

std::string answerPath(const Entries &e, const std::string &dir) {
  return gp::autoinstall::autoInstallLinuxAnswerPath(
      gp::autoinstall::autoInstallGetLinuxKind(e.os), dir);
}

class LinuxAnswer : public ::testing::Test {
 protected:
  // The text of the answer file written for `e`.
  std::string write(const Entries &e) {
    std::string dir = tmp_ / "out";
    EXPECT_EQ(TRUE, prepare(e, dir)) << e.os;
    std::string text = readFile(answerPath(e, dir));
    std::remove(answerPath(e, dir).c_str());
    return text;
  }

  static bool hasLine(const std::string &text, const std::string &line) {
    return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
  }

  gp::ScopedHostOps ops_{deterministicOps()};
  TempDir tmp_;
};

TEST_F(LinuxAnswer, CompleteFilesMatchTheSavedCopies) {
  struct Golden {
    const char *file;
    Entries entries;
  };
  const Golden goldens[] = {
      {"ks-rhel4.cfg", {"rhel4", GUESS_VERSION_UNKNOWN, "ABCD-1234"}},
      {"ks-rhel5-64.cfg", {"rhel5-64", GUESS_VERSION_UNKNOWN, nullptr, true}},
      {"ks-rhel6-64.cfg", {"rhel6-64", GUESS_VERSION_UNKNOWN, "KEY-6"}},
      {"ks-fedora14.cfg", {"fedora-64", GUESS_VERSION_FEDORA_14_OR_HIGHER}},
      {"ks-asianux3.cfg", {"asianux3-64", GUESS_VERSION_UNKNOWN, "AX3"}},
      {"preseed.cfg", {"ubuntu-64", GUESS_VERSION_UBUNTU_710_OR_HIGHER}},
      {"autoinst-sles11.xml",
       {"sles11-64", GUESS_VERSION_UNKNOWN, nullptr, true}},
      {"autoinst-sles10.xml", {"sles10", GUESS_VERSION_SLES_10_SP2_OR_LOWER}},
      {"autoinst-opensuse.xml", {"opensuse", GUESS_VERSION_UNKNOWN}},
      {"auto_i~1.cfg", {"mandriva", GUESS_VERSION_MANDRIVA_2008_0}},
  };
  const bool update = std::getenv("GP_UPDATE_GOLDEN") != nullptr;
  for (const Golden &g : goldens) {
    std::string saved = sourcePath("tests/data/answerfiles/") + g.file;
    std::string text = write(g.entries);
    if (update) {
      writeFile(saved, text);
      continue;
    }
    EXPECT_EQ(readFile(saved), text) << g.file;
  }
}

// CentOS rebuilds RHEL: each CentOS code must give the file of its release.
TEST_F(LinuxAnswer, CentosCodesGiveTheFileOfTheirRhelRelease) {
  const struct {
    GuessVersion code;
    const char *rhel;
  } releases[] = {
      {GUESS_VERSION_CENTOS_3, "rhel3"},
      {GUESS_VERSION_CENTOS_4, "rhel4"},
      {GUESS_VERSION_CENTOS_5, "rhel5"},
      {GUESS_VERSION_CENTOS_6, "rhel6-64"},
  };
  for (const auto &r : releases) {
    for (bool key : {false, true}) {
      Entries centos{"centos-64", r.code, key ? "K-1" : nullptr};
      Entries rhel{r.rhel, GUESS_VERSION_UNKNOWN, key ? "K-1" : nullptr};
      EXPECT_EQ(write(rhel), write(centos)) << r.rhel << " key " << key;
    }
  }
}

TEST_F(LinuxAnswer, KickstartVersionChoices) {
  // Fedora 9 to 12: fonts, but the old syntax and no biosboot partition.
  std::string ks = write({"fedora", GUESS_VERSION_FEDORA_9_TO_12});
  EXPECT_TRUE(hasLine(ks, "zerombr yes"));
  EXPECT_TRUE(hasLine(ks, "#part biosboot --fstype=biosboot --size=1"));
  EXPECT_TRUE(hasLine(ks, "@ Fonts"));
  EXPECT_TRUE(hasLine(ks, "#key --skip"));
  EXPECT_TRUE(hasLine(ks, "#%end"));

  // Asianux keeps the old syntax and its own packages even on a Fedora 14
  // code, while the biosboot partition follows the code alone.
  ks = write({"asianux", GUESS_VERSION_FEDORA_14_OR_HIGHER});
  EXPECT_TRUE(hasLine(ks, "zerombr yes"));
  EXPECT_TRUE(hasLine(ks, "part biosboot --fstype=biosboot --size=1"));
  EXPECT_TRUE(hasLine(ks, "@ Korean-support"));
  EXPECT_FALSE(hasLine(ks, "@ Fonts"));
  EXPECT_TRUE(hasLine(ks, "#%end"));

  // The key line: active from RHEL 5, the given key or --skip.
  EXPECT_TRUE(
      hasLine(write({"rhel5", GUESS_VERSION_UNKNOWN, "AB-12"}), "key AB-12"));
  EXPECT_TRUE(
      hasLine(write({"rhel5", GUESS_VERSION_UNKNOWN, ""}), "key --skip"));
  EXPECT_TRUE(
      hasLine(write({"rhel4", GUESS_VERSION_UNKNOWN, "AB-12"}), "#key AB-12"));

  // Power off or reboot, on its own line.
  EXPECT_TRUE(hasLine(write({"rhel5", GUESS_VERSION_UNKNOWN, nullptr, true}),
                      "poweroff"));
  EXPECT_TRUE(hasLine(write({"rhel5", GUESS_VERSION_UNKNOWN, nullptr, false}),
                      "reboot"));

  // An identifier without a release digit has no version: none of the
  // version-dependent lines is switched on.
  ks = write({"rhel", GUESS_VERSION_UNKNOWN, "K"});
  EXPECT_TRUE(hasLine(ks, "#langsupport --default en_US"));
  EXPECT_TRUE(hasLine(ks, "#mouse generic3ps/2"));
  EXPECT_TRUE(hasLine(ks, "#key K"));
  EXPECT_TRUE(hasLine(ks, "%packages"));
}

TEST_F(LinuxAnswer, AutoyastChoices) {
  std::string xml = write({"sles11", GUESS_VERSION_SLED_ALL});
  EXPECT_TRUE(hasLine(xml, "      <pattern>desktop-gnome</pattern>"));
  EXPECT_TRUE(hasLine(xml, "      <display_manager>gdm</display_manager>"));
  EXPECT_TRUE(hasLine(xml, "mount -t iso9660 /dev/sr0 /tmp/zentav-toolsmnt0"));
  xml = write({"sles10-64", GUESS_VERSION_UNKNOWN, nullptr, true});
  EXPECT_TRUE(hasLine(xml, "      <pattern>default</pattern>"));
  EXPECT_TRUE(hasLine(xml, "mount -t iso9660 /dev/hda /tmp/zentav-toolsmnt0"));
  EXPECT_TRUE(hasLine(
      xml, "      <final_halt config:type=\"boolean\">true</final_halt>"));
}

// A swapped user and administrator password would go unnoticed until the
// guest refuses its logins; check each place against openssl's hash.
TEST_F(LinuxAnswer, EachPasswordLandsInItsPlace) {
  auto md5crypt = [](const std::string &password) {
    std::string hash;
    EXPECT_EQ(0, runCommand(
                     "openssl passwd -1 -salt ABCDEFGH " + shellQuote(password),
                     &hash));
    return hash.substr(0, hash.size() - 1);
  };
  const std::string user = md5crypt("s3cret");
  const std::string root = md5crypt("r00t!");

  std::string ks = write({"rhel5"});
  EXPECT_TRUE(hasLine(ks, "rootpw --iscrypted " + root));
  EXPECT_TRUE(hasLine(ks, "/usr/sbin/usermod -p '" + user + "' jdoe"));
  EXPECT_TRUE(
      hasLine(write({"ubuntu"}),
              "ubiquity\tpasswd/user-password-crypted password " + user));
  std::string xml = write({"sles11"});
  size_t rootAt = xml.find("<user_password>" + root + "</user_password>");
  size_t userAt = xml.find("<user_password>" + user + "</user_password>");
  size_t rootUserEnd = xml.find("</user>");
  EXPECT_LT(rootAt, rootUserEnd);
  EXPECT_GT(userAt, rootUserEnd);
  EXPECT_NE(std::string::npos, userAt);
  std::string perl = write({"mandriva"});
  size_t superuser = perl.find("'superuser'");
  size_t rootPlain = perl.find("'password' => \"r00t!\"");
  EXPECT_LT(perl.find("'password' => \"s3cret\""), superuser);
  EXPECT_GT(rootPlain, superuser);
  EXPECT_NE(std::string::npos, rootPlain);
}

// User entries go in through the quote escaping only; with quotes,
// backslashes, dollar signs, XML-special characters and non-ASCII text in
// them, every file must still be read correctly by its own tool.
TEST_F(LinuxAnswer, HostileEntriesKeepEachFileParseable) {
  const char *fullName = "Jo \"Q\" O'Brien $HOME <b>&amp; \\ Ünïcødé ✓";
  const char *password = "p\"a$s\\w'<&>]]ü€";
  const char *rootPassword = "$(reboot)`id`\"'\\n";
  auto entries = [&](const char *os, GuessVersion sub) {
    Entries e{os, sub};
    e.user = "jdoe-2";
    e.fullName = fullName;
    e.password = password;
    e.rootPassword = rootPassword;
    return e;
  };
  std::string dir = tmp_ / "check";
  std::string escaped = gp::autoinstall::autoInstallEscapeQuotes(fullName);
  EXPECT_EQ("Jo \\\"Q\\\" O'Brien $HOME <b>&amp; \\ Ünïcødé ✓", escaped);

  // Kickstart: the %post section is a shell script.
  Entries e = entries("rhel6-64", GUESS_VERSION_UNKNOWN);
  ASSERT_EQ(TRUE, prepare(e, dir));
  std::string ks = readFile(dir + "/ks.cfg");
  EXPECT_TRUE(hasLine(ks, "/usr/bin/chfn -f \"" + escaped + "\" jdoe-2"));
  writeFile(dir + "/post.sh", ks.substr(ks.find("\n%post\n") + 7));
  EXPECT_EQ(0, runCommand("sed '$d' " + dir + "/post.sh | bash -n"));

  e = entries("ubuntu", GUESS_VERSION_UBUNTU_710_OR_HIGHER);
  ASSERT_EQ(TRUE, prepare(e, dir));
  std::string preseed = readFile(dir + "/custom/preseed.cfg");
  EXPECT_TRUE(
      hasLine(preseed, "ubiquity\tpasswd/user-fullname\tstring\t" + escaped));
  EXPECT_EQ(0, runCommand("debconf-set-selections -c " + dir +
                          "/custom/preseed.cfg 2>&1"));

  // AutoYaST: the full name stands unchanged in its character data.
  e = entries("opensuse-64", GUESS_VERSION_UNKNOWN);
  ASSERT_EQ(TRUE, prepare(e, dir));
  std::string forename;
  ASSERT_EQ(
      0,
      runCommand("xmllint --noout " + dir +
                     "/autoinst.xml && xmllint "
                     "--xpath \"string((//*[local-name()='forename'])[2])\" " +
                     dir + "/autoinst.xml",
                 &forename));
  EXPECT_EQ(std::string(fullName) + "\n", forename);

  e = entries("mandriva-64", GUESS_VERSION_UNKNOWN);
  ASSERT_EQ(TRUE, prepare(e, dir));
  std::string perl;
  EXPECT_EQ(
      0, runCommand("perl -cw " + shellQuote(dir + "/auto_i~1.cfg") + " 2>&1",
                    &perl))
      << perl;
  EXPECT_TRUE(hasLine(readFile(dir + "/auto_i~1.cfg"),
                      "\t\t      'realname' => \"" + escaped + "\","));
}

TEST(LinuxAnswerHash, SaltFromTheClockAndHashesMatchOpenssl) {
  static time_t now = 1290000000;
  gp::HostOps ops = gp::realHostOps();
  ops.time = [](time_t *out) {
    if (out != nullptr) {
      *out = now;
    }
    return now;
  };
  gp::ScopedHostOps scoped(ops);

  // The salt: srand(seconds), then eight draws modulo 64.
  const char alphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789./";
  std::srand(static_cast<unsigned>(now));
  std::string salt;
  for (int i = 0; i < 8; ++i) {
    salt += alphabet[std::rand() % 64];
  }

  const std::regex form(R"(\$1\$[A-Za-z0-9./]{8}\$[A-Za-z0-9./]{22})");
  const std::vector<std::string> passwords = {
      "", "a", "s3cret", "p\"a$s\\w'<&>", "Ünïcødé ✓", std::string(200, 'x')};
  for (const std::string &pw : passwords) {
    const char *hash = gp::autoinstall::autoInstallCryptPassword(pw.c_str());
    ASSERT_NE(nullptr, hash);
    EXPECT_TRUE(std::regex_match(hash, form)) << hash;
    EXPECT_EQ("$1$" + salt + "$", std::string(hash, 12));
    std::string expected;
    ASSERT_EQ(0, runCommand("openssl passwd -1 -salt " + shellQuote(salt) +
                                " " + shellQuote(pw),
                            &expected));
    EXPECT_EQ(expected, std::string(hash) + "\n") << pw;
  }

  // Reseeded at every call: the same second gives the same salt, the next
  // second another one.
  std::string first = gp::autoinstall::autoInstallCryptPassword("x");
  EXPECT_EQ(first, gp::autoinstall::autoInstallCryptPassword("x"));
  ++now;
  EXPECT_NE(first.substr(0, 12),
            std::string(gp::autoinstall::autoInstallCryptPassword("x"), 12));
  EXPECT_EQ(nullptr, gp::autoinstall::autoInstallCryptPassword(nullptr));
}

TEST_F(LinuxAnswer, FileHandlingAndRefusals) {
  gp::LogCapture log;
  std::string dir = tmp_ / "a/b";
  Entries ks{"rhel5"};

  // No answer file for other guests; the directory is still made first.
  EXPECT_EQ(FALSE, prepare({"debian5"}, dir));
  EXPECT_EQ(FALSE, prepare({nullptr}, dir));
  EXPECT_EQ(
      0, runCommand("test -d " + dir + " && test -z \"$(ls -A " + dir + ")\""));

  for (int i = 0; i < 4; ++i) {
    Entries e = ks;
    (i == 0   ? e.user
     : i == 1 ? e.fullName
     : i == 2 ? e.password
              : e.rootPassword) = nullptr;
    EXPECT_EQ(FALSE, prepare(e, dir)) << i;
  }
  EXPECT_EQ(FALSE, AutoInstall_PrepareAnswerFileEx_Linux(
                       "rhel5", GUESS_VERSION_UNKNOWN, nullptr, "u", "f", "p",
                       "r", nullptr, FALSE));
  EXPECT_FALSE(fileExists(dir + "/ks.cfg"));

  // A directory that cannot be made, a file that cannot be opened.
  writeFile(tmp_ / "plain", "x");
  EXPECT_EQ(FALSE, prepare(ks, tmp_ / "plain/sub"));
  ASSERT_EQ(0, mkdir((dir + "/ks.cfg").c_str(), 0755));
  EXPECT_EQ(FALSE, prepare(ks, dir));
  ASSERT_EQ(0, rmdir((dir + "/ks.cfg").c_str()));
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
  std::string overwritten = readFile(dir + "/ks.cfg");
  EXPECT_EQ(fresh + tail.substr(fresh.size()), overwritten);

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
  std::string dir = tmp_ / "cli";
  std::string out;
  EXPECT_EQ(0, runCommand(std::string(GP_CLI) +
                              " answer-file --os ubuntu-64 --sub-version 4"
                              " --out " +
                              dir +
                              " --user jdoe --full-name 'John Doe'"
                              " --password pw --root-password rpw --power-off",
                          &out));
  EXPECT_EQ(dir + "/custom/preseed.cfg\n", out);
  EXPECT_TRUE(hasLine(readFile(dir + "/custom/preseed.cfg"),
                      "ubiquity\tubiquity/poweroff boolean true"));
  EXPECT_EQ(1, runCommand(std::string(GP_CLI) +
                          " answer-file --os debian5 --out " + dir +
                          " --user u --full-name f --password p"
                          " --root-password r 2>/dev/null"));
  EXPECT_EQ(2,
            runCommand(std::string(GP_CLI) +
                       " answer-file --os rhel5 --sub-version 99 --out " + dir +
                       " --user u --full-name f --password p"
                       " --root-password r 2>/dev/null"));
}

}  // namespace
