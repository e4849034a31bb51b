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

// Entries that an installer would run, interpolate or take as markup. Each
// file's own tool checks it, then reads the entries back, in the file's own
// terms, as exactly the text given; nothing in them ran. The tools run in
// the output directory, where a command that ran would leave "ran".
TEST_F(LinuxAnswer, HostileEntriesAreReadLiterally) {
  using gp::autoinstall::autoInstallCryptPassword;
  using gp::autoinstall::autoInstallEscapeQuotes;
  // The quote escaping the files always had, which preseed keeps.
  EXPECT_EQ("Jo \\\"Q\\\" O'Brien $HOME \\",
            autoInstallEscapeQuotes("Jo \"Q\" O'Brien $HOME \\"));
  // Kickstart: the %post script parses; its user commands, run against
  // stand-ins, get their arguments whole; the key line splits as the
  // kickstart reader splits it.
  const char *kickstart = R"sh(cd "$1" &&
    sed '1,/^%post$/d;$d' ks.cfg | bash -n &&
    { echo 'adduser() { printf "[%s]" "$@"; echo; }; usermod() { adduser "$@"; }; chfn() { adduser "$@"; }'
      grep -E '^/usr/s?bin/(adduser|usermod|chfn) ' ks.cfg | sed -E 's#^/usr/s?bin/##'
    } | bash &&
    python3 -c 'import shlex; [print("[" + "][".join(shlex.split(l, comments=True)) + "]") for l in open("ks.cfg") if l.startswith("key ")]')sh";
  const char *preseed = R"sh(cd "$1" &&
    err=$(debconf-set-selections -c custom/preseed.cfg 2>&1 >/dev/null) &&
    test -z "$err" &&
    sed -n 's/^ubiquity\tpasswd\/\(user-fullname\|username\)\tstring\t\(.*\)$/[\2]/p' custom/preseed.cfg)sh";
  const char *mandriva = R"sh(cd "$1" && perl -cw auto_i~1.cfg 2>/dev/null &&
    perl -e 'our $o; do "./auto_i~1.cfg" or die; my $u = $o->{users}[0];
      print "[$_]\n" for $o->{security_user}, $u->{name}, $u->{realname},
        $u->{password}, $o->{superuser}{password}')sh";
  const char *autoyast = R"sh(cd "$1" && xmllint --noout autoinst.xml &&
    for e in username forename; do
      printf '[%s]\n' "$(xmllint --xpath "string((//*[local-name()='$e'])[2])" autoinst.xml)"
    done)sh";

  const std::string shellName =
      "Jo $(touch ran) `touch ran` ${HOME} \"Q\" \\ O'Brien !! ~ *";
  const std::string perlName =
      "Jo @{[ `touch ran` ]} ${\\ `touch ran`} $o \\n \"Q\" 'x'";
  const std::string xmlName = "a]]>b <c> & \"Q\" ]]]]> Ünïcødé ✓";
  const std::string password = "p@ss$word\\\"\n'q'";
  const std::string rootPassword = "@ARGV $$ `touch ran` ${\\ 1}";
  const struct {
    const char *os;
    std::string user, fullName, key;
    const char *tool;
    std::string expected;  // empty: made from the entries below
  } cases[] = {
      {"rhel6-64", "jo;touch ran'$(touch ran)", shellName,
       "K-1 #x'$(touch ran)", kickstart, ""},
      {"ubuntu", "jo $(touch ran)", shellName, "", preseed,
       "[" + autoInstallEscapeQuotes(shellName) + "]\n[jo $(touch ran)]\n"},
      {"mandriva-64", "jo'\\x", perlName, "", mandriva,
       "[jo'\\x]\n[jo'\\x]\n[" + perlName + "]\n[" + password + "]\n[" +
           rootPassword + "]\n"},
      {"opensuse-64", "jo<b>&amp;", xmlName, "", autoyast,
       "[jo<b>&amp;]\n[" + xmlName + "]\n"},
  };
  for (const auto &c : cases) {
    Entries e{c.os};
    e.user = c.user.c_str();
    e.fullName = c.fullName.c_str();
    e.key = c.key.c_str();
    e.password = password.c_str();
    e.rootPassword = rootPassword.c_str();
    const std::string dir = tmp_ / c.os;
    ASSERT_EQ(TRUE, prepare(e, dir)) << c.os;
    std::string expected = c.expected;
    if (expected.empty()) {  // kickstart
      const std::string hash = autoInstallCryptPassword(e.password);
      expected = "[" + c.user + "]\n[-p][" + hash + "][" + c.user + "]\n[-f][" +
                 c.fullName + "][" + c.user + "]\n[key][" + c.key + "]\n";
    }
    std::string out;
    EXPECT_EQ(0, runCommand("sh -c " + shellQuote(c.tool) + " sh " +
                                shellQuote(dir) + " 2>&1",
                            &out))
        << c.os << ": " << out;
    EXPECT_EQ(expected, out) << c.os;
    EXPECT_FALSE(fileExists(dir + "/ran")) << c.os << ": an entry ran";
  }
}

// Entries that a file cannot hold literally: no file at all.
TEST_F(LinuxAnswer, EntriesThatCannotBeReadLiterallyAreRefused) {
  const struct {
    const char *os;
    const char *Entries::*field;
    const char *value;
  } cases[] = {
      {"rhel6-64", &Entries::fullName, "Jo\n%end\n%post\nreboot"},
      {"rhel6-64", &Entries::user, "jo\rx"},
      {"rhel5", &Entries::key, "K\n%post"},
      {"ubuntu", &Entries::fullName, "Jo \\"},  // would join the next line
      {"ubuntu", &Entries::user, "jo\nd-i x string y"},
      {"opensuse-64", &Entries::fullName, "Jos\xe9"},  // not UTF-8
      {"sles11", &Entries::user, "jo\x01"},
      {"sles10", &Entries::fullName, "Jo \xef\xbf\xbf"},  // U+FFFF
      {"mandriva", &Entries::fullName, "Jo\nx"},
  };
  for (const auto &c : cases) {
    Entries e{c.os};
    e.*c.field = c.value;
    const std::string dir = tmp_ / "out";
    EXPECT_EQ(FALSE, prepare(e, dir)) << c.os << ": " << c.value;
    EXPECT_FALSE(fileExists(gp::autoinstall::autoInstallLinuxAnswerPath(
        gp::autoinstall::autoInstallGetLinuxKind(c.os), dir)))
        << c.os;
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
