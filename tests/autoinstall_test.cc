// Support decisions, limits, input validation and Windows product names of
// the unattended installation, through the exported C functions.
#include "guestprep/autoinstall.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/abi.h"
#include "support/fixtures.h"

namespace {

GuessInfo guestInfo(const char *osName, uint32_t subVersion = 0,
                    const char *version = "") {
  GuessInfo info;
  std::memset(&info, 0, sizeof info);
  info.osName = osName;
  info.subVersion = subVersion;
  std::strncpy(info.versionString, version, sizeof info.versionString - 1);
  return info;
}

// Messages in the default (English) texts unless a test asks otherwise.
class AutoInstallTest : public ::testing::Test {
 protected:
  void SetUp() override { setenv("GUESTPREP_LANG", "C", 1); }
};

std::string prettyName(const char *name) {
  gp::MallocPtr<char> out(AutoInstall_GetPrettyWindowsName(name));
  return out ? out.get() : "(null)";
}

int listLength(const AutoInstallReservedName *list) {
  int n = 0;
  while (list != nullptr && list[n].name != nullptr) ++n;
  return n;
}

TEST_F(AutoInstallTest, ConfigInfoRulesAndRefusals) {
  GuessInfo info = guestInfo("winXPPro");
  GuessInfo noName = guestInfo(nullptr);
  AutoInstallConfigInfo out;
  std::memset(&out, 0xAB, sizeof out);
  AutoInstallConfigInfo before = out;
  EXPECT_FALSE(AutoInstall_GetInstallConfigInfo("Windows", &info, &out));
  EXPECT_FALSE(AutoInstall_GetInstallConfigInfo(nullptr, &info, &out));
  EXPECT_FALSE(AutoInstall_GetInstallConfigInfo("windows", nullptr, &out));
  EXPECT_FALSE(AutoInstall_GetInstallConfigInfo("windows", &info, nullptr));
  EXPECT_FALSE(AutoInstall_GetInstallConfigInfo("windows", &noName, &out));
  EXPECT_EQ(0, std::memcmp(&before, &out, sizeof out));

  // The last matching rule wins; a Windows identifier gets the Linux
  // family's one rule when asked for that family.
  struct Case {
    const char *family, *osName;
    uint32_t maxNameLength;
    uint8_t guestFlags[2];
    int reservedNames;  // list A has 6 entries, list B 4
  } cases[] = {
      {"windows", "WINXPPRO", 50, {1, 1}, 6},
      {"windows", "winNetWeb", 50, {1, 0}, 6},
      {"windows", "windows7-64", 20, {1, 1}, 4},
      {"windows", "winNT", 50, {0, 0}, 6},
      {"linux", "winXPPro", 52, {0, 0}, 0},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.osName);
    info = guestInfo(c.osName, 0, "SP2");
    ASSERT_TRUE(AutoInstall_GetInstallConfigInfo(c.family, &info, &out));
    EXPECT_EQ(c.maxNameLength, out.maxNameLength);
    EXPECT_EQ(0, std::memcmp(c.guestFlags, out.guestFlags, 2));
    EXPECT_EQ(c.reservedNames, listLength(out.reservedNames));
    EXPECT_EQ(c.reservedNames == 0 ? 1 : 0, listLength(out.reservedShortNames));
  }
}

TEST_F(AutoInstallTest, SupportedGuestsAndFloppyNeed) {
  const std::pair<GuessInfo, Bool> supported[] = {
      {guestInfo("WINVISTA"), TRUE},
      {guestInfo("win2000Pro"), FALSE},
      {guestInfo("winNT"), FALSE},
      {guestInfo("rhel3"), TRUE},
      {guestInfo("redhat-64"), TRUE},
      {guestInfo("rhel2"), FALSE},
      {guestInfo("redhat"), FALSE},
      {guestInfo("fedora", GUESS_VERSION_FEDORA_8), FALSE},
      {guestInfo("fedora-64", GUESS_VERSION_FEDORA_13), FALSE},
      {guestInfo("RHEL5"), FALSE},  // Linux kinds are case-sensitive
      {guestInfo("ubuntu", GUESS_VERSION_UBUNTU_710_OR_HIGHER), TRUE},
      {guestInfo("ubuntu", GUESS_VERSION_UNKNOWN), FALSE},
      {guestInfo("ubuntu", GUESS_VERSION_UBUNTU_SERVER_804_OR_LOWER), FALSE},
      {guestInfo("ubuntu-64", GUESS_VERSION_UBUNTU_704_OR_LOWER), FALSE},
      {guestInfo("opensuse", GUESS_VERSION_UNKNOWN), TRUE},
      {guestInfo("sles10", GUESS_VERSION_SLED_ALL), TRUE},
      {guestInfo("opensuse-64", GUESS_VERSION_OPENSUSE_11_2_OR_LOWER), FALSE},
      {guestInfo("sles10", GUESS_VERSION_SLES_10_SP2_OR_LOWER), FALSE},
      {guestInfo("sles11", GUESS_VERSION_SLED_10_SP2_OR_LOWER), FALSE},
      {guestInfo("mandriva", GUESS_VERSION_MANDRIVA_2008_1_OR_HIGHER), FALSE},
      {guestInfo("debian5"), FALSE},
      {guestInfo(nullptr), FALSE},
  };
  for (const auto &[info, expected] : supported) {
    EXPECT_EQ(expected, AutoInstall_IsSupportedGuest(&info))
        << (info.osName ? info.osName : "null") << " " << info.subVersion;
  }
  EXPECT_FALSE(AutoInstall_IsSupportedGuest(nullptr));
  for (const char *os :
       {"fedora-64", "debian5", "UBUNTU", static_cast<const char *>(nullptr)})
    EXPECT_FALSE(AutoInstall_NeedsFloppy_Linux(os)) << (os ? os : "null");
  for (const char *os : {"ubuntu-64", "opensuse", "sles10-64", "mandriva"})
    EXPECT_TRUE(AutoInstall_NeedsFloppy_Linux(os)) << os;
}

using Validator = AutoInstallValidation (*)(const char *, const GuessInfo *,
                                            const char *, char **);

int code(Validator fn, const char *family, const char *osName,
         const std::string &text) {
  GuessInfo info = guestInfo(osName);
  return fn(family, &info, text.c_str(), nullptr);
}

// The message is allocated on refusal only, and only when asked for;
// "untouched" when it was not.
std::string messageOf(Validator fn, const char *family, const char *os,
                      const char *text, int expectedCode) {
  GuessInfo info = guestInfo(os);
  char sentinel[] = "untouched";
  char *message = sentinel;
  EXPECT_EQ(expectedCode, fn(family, &info, text, &message)) << text;
  if (message == sentinel) return "untouched";
  std::string out = message;
  std::free(message);
  return out;
}

// The default message of each refusal code.
const char *const kMessages[] = {
    "untouched",
    "The full name does not allow the following characters: ':\"\\,'\n"
    "Enter a new value.",
    "The name must not contain the following characters:\n"
    "'/\\[]\":;|<>+=,?*'\nEnter a new value.",
    "The password must not contain the characters ']]>' in a row.\n"
    "Enter a new value.",
    "The full name must not contain the characters ']]>' in a row.\n"
    "Enter a new value.",
    "The user name must consist only of lowercase US English characters, "
    "numbers 0 to 9 and dashes.\nEnter a new value.",
    "The user name must start with a lowercase US English character.\n"
    "Enter a new value.",
};

TEST_F(AutoInstallTest, ValidationRules) {
  const Validator name = AutoInstall_ValidateName,
                  shortName = AutoInstall_ValidateShortName,
                  password = AutoInstall_ValidatePassword;
  struct Case {
    Validator fn;
    const char *family, *os, *text;
    int code;
  } cases[] = {
      {shortName, "linux", "rhel5", "2john", AUTOINSTALL_VALID},
      {shortName, "linux", "rhel5", "", AUTOINSTALL_VALID},
      {shortName, "linux", "ubuntu", "john-2", AUTOINSTALL_VALID},
      {shortName, "linux", "ubuntu", "2john", AUTOINSTALL_BAD_UBUNTU_USERNAME},
      {shortName, "linux", "ubuntu-64", "", AUTOINSTALL_BAD_UBUNTU_USERNAME},
      {shortName, "linux", "ubuntu", "jOhn", AUTOINSTALL_BAD_LINUX_USERNAME},
      // The Ubuntu test is by installer kind, which is case-sensitive.
      {shortName, "linux", "Ubuntu", "2john", AUTOINSTALL_VALID},
      {name, "linux", "sles11", "J:D", AUTOINSTALL_BAD_LINUX_NAME},
      {name, "linux", "sles11", "Doe, John", AUTOINSTALL_BAD_LINUX_NAME},
      {name, "linux", "sles11", "a]]>b", AUTOINSTALL_BAD_GECOS_SUBSTRING},
      {name, "linux", "sles11", "a]]>b,c", AUTOINSTALL_BAD_LINUX_NAME},
      {name, "linux", "sles11", "a]] >b", AUTOINSTALL_VALID},
      {name, "linux", "sles11", "J\xc3\xbcrgen O'Neil-Smith <x>; [y]",
       AUTOINSTALL_VALID},
      {password, "linux", "sles11", "x]]>y",
       AUTOINSTALL_BAD_PASSWORD_SUBSTRING},
      {password, "linux", "sles11", "]]", AUTOINSTALL_VALID},
      {password, "linux", "sles11", "a\"b\\c:d,e$f'g", AUTOINSTALL_VALID},
      {password, "windows", "windows7", "x]]>y", AUTOINSTALL_VALID},
      {name, "windows", "winXPPro", "a*b", AUTOINSTALL_BAD_WINDOWS_NAME},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(std::string(c.family) + " " + c.os + " " + c.text);
    EXPECT_EQ(c.code, code(c.fn, c.family, c.os, c.text));
    EXPECT_EQ(kMessages[c.code],
              messageOf(c.fn, c.family, c.os, c.text, c.code));
  }

  // Every byte outside a-z, 0-9 and "-" is refused in a Linux user name;
  // the fifteen refused bytes of a Windows name are refused there, and
  // nothing is checked in a Windows short name.
  const std::string windowsRefused = "/\\[]\":;|<>+=,?*";
  for (int c = 1; c < 256; ++c) {
    SCOPED_TRACE(c);
    bool linuxOk = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
    std::string text = std::string("ab") + static_cast<char>(c);
    EXPECT_EQ(linuxOk ? AUTOINSTALL_VALID : AUTOINSTALL_BAD_LINUX_USERNAME,
              code(shortName, "linux", "rhel5", text));
    bool windowsBad =
        windowsRefused.find(static_cast<char>(c)) != std::string::npos;
    EXPECT_EQ(windowsBad ? AUTOINSTALL_BAD_WINDOWS_NAME : AUTOINSTALL_VALID,
              code(name, "windows", "winXPPro", text));
    EXPECT_EQ(AUTOINSTALL_VALID, code(shortName, "windows", "winXPPro", text));
  }
}

TEST(AutoInstallDeathTest, UnknownFamilyStopsTheProcess) {
  GuessInfo info = guestInfo("rhel5");
  for (const char *family : {"Linux", static_cast<const char *>(nullptr)}) {
    EXPECT_DEATH(AutoInstall_ValidateName(family, &info, "x", nullptr),
                 "NOT_REACHED lib/guestInstall/autoinstall:[0-9]+");
  }
}

TEST_F(AutoInstallTest, PrettyWindowsNames) {
  const std::pair<const char *, const char *> cases[] = {
      {"Windows Vista ULTIMATEX", "Windows Vista Ultimate"},
      {"Windows Vista ultimate", "Windows Vista ultimate"},
      {"", ""},
      // A product text that begins a longer key takes that key's name.
      {"Windows Server 2008 SERVERWEB", "Windows Server 2008 R2 Web Edition"},
      {"Windows SERVERWEB", "Windows Server 2008 Web Edition"},
      // Arguments are inserted, never read as directives.
      {"%s%n STARTER", "%s%n Starter"},
  };
  for (const auto &[name, pretty] : cases) {
    EXPECT_EQ(pretty, prettyName(name)) << name;
  }
  EXPECT_EQ(nullptr, AutoInstall_GetPrettyWindowsName(nullptr));
}

TEST_F(AutoInstallTest, GermanMessagesAndNamesComeFromTheCatalog) {
  setenv("GUESTPREP_MSGDIR", gp::test::sourcePath("messages").c_str(), 1);
  setenv("GUESTPREP_LANG", "de_DE.UTF-8", 1);
  EXPECT_EQ("Windows Server 2008 Datacenter Core ohne Hyper-V",
            prettyName("Windows Longhorn SERVERDATACENTERVCORE"));
  EXPECT_EQ(
      "Der Benutzername muss mit einem englischen Kleinbuchstaben (US) "
      "beginnen.\nGeben Sie einen neuen Wert ein.",
      messageOf(AutoInstall_ValidateShortName, "linux", "ubuntu", "1",
                AUTOINSTALL_BAD_UBUNTU_USERNAME));
}

int cli(const std::string &args, std::string *out) {
  out->clear();
  return gp::test::runCommand(
      std::string("GUESTPREP_LANG=C ") + GP_CLI + " " + args + " 2>&1", out);
}

// One check per command that the library was reached.
TEST(AutoInstallCliTest, ValidatePrettyNameAndCheck) {
  std::string out;
  EXPECT_EQ(1, cli("validate --family linux --kind short --os ubuntu-64 2john",
                   &out));
  EXPECT_EQ(0u, out.find("6 AUTOINSTALL_BAD_UBUNTU_USERNAME\n")) << out;
  EXPECT_EQ(0, cli("pretty-name 'Windows Vista ULTIMATEX'", &out));
  EXPECT_EQ("Windows Vista Ultimate\n", out);
  EXPECT_EQ(0, cli("check --os windows7-64", &out));
  EXPECT_PRED_FORMAT2(
      testing::IsSubstring,
      "reservedNames:      administra* amministratore guest guests\n", out);
}

}  // namespace
