// The readings of marker files, fed straight from text.
#include "lib/guessGuest/guess_markers.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>

#include "platform/strutil.h"
#include "support/fixtures.h"

namespace gp::guess {
namespace {

std::string nameOf(const MarkerVerdict &v) {
  return v.osName != nullptr ? v.osName : "(none)";
}

#define EXPECT_VERDICT(v, name, code)          \
  do {                                         \
    EXPECT_EQ(nameOf(v), name);                \
    EXPECT_EQ((v).subVersion, uint32_t(code)); \
  } while (0)

TEST(MandrivaMarkers, VolumeIdentifierAndProductFile) {
  // The volume identifier needs the dotted, capitalised prefix.
  for (const char *other :
       {"Mandriva-Linux-2010.0-x86_64", "mandriva.2010.0.x86_64"}) {
    MandrivaFacts f;
    mandrivaFromVolumeId(other, f);
    EXPECT_FALSE(f.settled) << other;
    EXPECT_VERDICT(f.verdict, "(none)", 0);
  }
  // clang-format off
  const struct { const char *rest, *name; uint32_t code; const char *version; } cases[] = {
      {"version=2008.2,arch=i586", "mandriva", GUESS_VERSION_MANDRIVA_2008_1_OR_HIGHER, "2008.2"},
      {"version=2007.1 \narch=x86_6", "mandriva-64", GUESS_VERSION_MANDRIVA_2007, "2007.1"},
      {"version=2008.0", "(none)", 0, ""},  // no "arch=": version unread
      {"arch=i586,version=", "mandriva", 0, ""},
      {"arch=x86", "(none)", 0, ""},
  };  // clang-format on
  for (const auto &c : cases) {
    MandrivaFacts f;
    mandrivaFromProductId(std::string("vendor=Mandriva,") + c.rest, f);
    EXPECT_VERDICT(f.verdict, c.name, c.code);
    EXPECT_EQ(f.version, c.version) << c.rest;
  }
}

TEST(DebianMarkers, ReleasesAndEditions) {
  // clang-format off
  const struct { const char *info, *name; uint32_t code; const char *version; } cases[] = {
      {"Ubuntu-Server 8.04 \"Hardy Heron\" - Release amd64 (20080424)", "ubuntu-64", GUESS_VERSION_UBUNTU_SERVER_804_OR_LOWER, "Server 8.04"},
      {"Ubuntu-Server 8.10 \"Intrepid Ibex\" - Release i386", "ubuntu", GUESS_VERSION_UBUNTU_SERVER_810_OR_HIGHER, "Server 8.10"},
      {"Kubuntu 7.04 \"Feisty Fawn\" - Release i386", "ubuntu", GUESS_VERSION_UBUNTU_704_OR_LOWER, "7.04"},
      {"Kubuntu 7.10 \"Gutsy Gibbon\" - Release i386", "ubuntu", GUESS_VERSION_UBUNTU_710_OR_HIGHER, "7.10"},
      {"Edubuntu 8.04 - Release powerpc", "(none)", GUESS_VERSION_UBUNTU_710_OR_HIGHER, "8.04"},
      {"Ubuntu-i386-without-blanks", "ubuntu", GUESS_VERSION_UBUNTU_704_OR_LOWER, ""},
      {"Debian GNU/Linux 5.0.3 \"Lenny\" - Official amd64", "debian5-64", 0, ""},
      {"Debian GNU/Linux 6.0.1 \"Squeeze\" - amd64", "(none)", 0, ""},
  };  // clang-format on
  for (const auto &c : cases) {
    DebianFacts f = debianFromDiskInfo(c.info);
    EXPECT_VERDICT(f.verdict, c.name, c.code);
    EXPECT_EQ(f.version, c.version) << c.info;
  }
}

#define X64 "\nBASEARCHS x86_64\n"

TEST(SuseMarkers, ContentFile) {
  // clang-format off
  const struct { const char *text, *name; uint32_t code; } cases[] = {
      {"NAME SUSE_SLED\nVERSION 10.1" X64, "sles10-64", GUESS_VERSION_SLED_10_SP2_OR_LOWER},
      {"NAME SUSE_SLED\nVERSION 10.3" X64, "sles10-64", GUESS_VERSION_SLED_ALL},
      {"NAME SUSE_SLES\nVERSION 10.2" X64, "sles10-64", GUESS_VERSION_SLES_10_SP2_OR_LOWER},
      {"NAME SUSE_SLES\nVERSION 10.3" X64, "sles10-64", 0},
      {"NAME SuSE_SLES\nVERSION 10" X64, "(none)", 0},  // case matters here
      {"NAME openSUSE\nVERSION 11.2" X64, "opensuse-64", GUESS_VERSION_OPENSUSE_11_2_OR_LOWER},
      {"NAME openSUSE\nVERSION 11.3" X64, "opensuse-64", 0},
      {"NAME OPENSUSE" X64, "opensuse-64", GUESS_VERSION_OPENSUSE_11_2_OR_LOWER},
      {"PRODUCT SuSE Linux 9.3" X64, "suse-64", 0},
      {"PRODUCT novell linux desktop" X64, "nld9", 0},
      // The first product name wins; the first architecture wins.
      {"PRODUCT openSUSE\nNAME SUSE LINUX\nDEFAULTBASE i586" X64, "opensuse", GUESS_VERSION_OPENSUSE_11_2_OR_LOWER},
      // Every VERSION line overwrites the version.
      {"NAME openSUSE\nVERSION 11.3\nVERSION 11.1" X64, "opensuse-64", GUESS_VERSION_OPENSUSE_11_2_OR_LOWER},
      // Without an architecture nothing is recognised.
      {"NAME SUSE_SLES\nVERSION 10\n", "(none)", 0},
      // The name may start on the next line; the word only needs the prefix.
      {"NAME\n  SUSE_SLES" X64, "sles-64", 0},
      // A tab is not a word delimiter, and the architecture is the next word
      // wherever it is.
      {"PRODUCTNAME SUSE LINUX\n   \n  DEFAULTBASE\tx86_64" X64, "suse", 0},
  };  // clang-format on
  for (const auto &c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_VERDICT(suseFromContent(c.text), c.name, c.code);
  }
}

// The VERSION lines are evaluated from the end; a plain forward walk over
// every line, as the rules read, must agree on any text. The minor number
// is the next token wherever it is: "VERSION 10\nLABEL SLED 10.1" gives 10.1.
SuseVersion forwardVersion(std::string_view text) {
  SuseVersion v;
  size_t linePos = 0;
  std::string_view line;
  while (str::nextToken(text, linePos, "\n", line)) {
    size_t wordPos = static_cast<size_t>(line.data() - text.data());
    std::string_view word;
    str::nextToken(text, wordPos, " \n", word);
    if (str::startsWith(word, "VERSION")) {
      if (str::nextIntToken(text, wordPos, ".", v.major)) {
        str::nextIntToken(text, wordPos, ".", v.minor);
      }
    }
  }
  return v;
}

TEST(SuseMarkers, VersionMatchesAForwardWalkOnRandomTexts) {
  const char *pieces[] = {"VERSION", " ", ".", "\n", "1", "23", "x", ".."};
  std::mt19937 rng(7);
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    int n = rng() % 14;
    for (int i = 0; i < n; ++i) text += pieces[rng() % 8];
    SuseVersion want = forwardVersion(text), got = suseContentVersion(text);
    ASSERT_EQ(got.major, want.major) << '"' << text << '"';
    ASSERT_EQ(got.minor, want.minor) << '"' << text << '"';
  }
  SuseVersion v = suseContentVersion("VERSION 10\nLABEL SLED 10.1-SP1\n");
  EXPECT_EQ(v.major, 10);
  EXPECT_EQ(v.minor, 1);
}

TEST(SuseMarkers, ManyVersionLinesWithoutDotsStayFast) {
  std::string text = "NAME openSUSE\nBASEARCHS x86_64\n";
  for (int i = 0; i < 200000; ++i) text += "VERSION 10\n";
  text += "VERSION 11\n" + std::string(1 << 20, ' ') + ".";
  auto start = std::chrono::steady_clock::now();
  SuseVersion v = suseContentVersion(text);
  EXPECT_EQ(v.major, 11);
  EXPECT_EQ(v.minor, -1);
  EXPECT_EQ(nameOf(suseFromContent(text)), "opensuse-64");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(SuseMarkers, ProductsFile) {
  EXPECT_VERDICT(suseFromProducts("/ SLES9-SLD-i386 9-0\n"), "nld9", 0);
  EXPECT_VERDICT(suseFromProducts("/ SUSE-Linux-Enterprise-Server-i386 11.1"),
                 "sles11", 0);
  EXPECT_VERDICT(suseFromProducts("/ SuSE-Linux-9.3-x86-64 9.3"), "suse-64", 0);
  for (const char *other : {"", "/", "SUSE-Linux-10.0", "/ openSUSE"}) {
    EXPECT_VERDICT(suseFromProducts(other), "(none)", 0);
  }
}

TEST(OrvexMarkers, PackageList) {
  const std::string v4 = "<orvex_version>4.0</orvex_version>";
  const std::pair<std::string, bool> cases[] = {
      {"<orvex_version>4.1.0</orvex_version>\n <!-- n -->\n"
       "<name>ZENTAV ORVEX Server</name>",
       true},
      // A later element replaces an earlier one, until both are known.
      {"<name>Other</name><name>Zentav Orvex</name>" + v4, true},
      {"<name>Other</name>" + v4 + "<name>Zentav Orvex</name>", false},
      {"<name>Zentav Orvex</name><orvex_version>3.5</orvex_version>", false},
      {"<name/>" + v4, false},
      {"<name><![CDATA[Zentav Orvex]]></name>" + v4, false},
      {"<name>Zentav Orvex</name>", false},
  };
  for (const auto &[product, orvex] : cases) {
    std::string xml =
        "<?xml version=\"1.0\"?>\n<iso_build><id>7</id><product>" + product +
        "</product></iso_build>\n";
    EXPECT_EQ(orvexFromPackageList(xml.c_str()), orvex) << product;
  }
}

// Were entities substituted, the external one would make the name right.
TEST(OrvexMarkers, EntitiesAreNeitherLoadedNorExpanded) {
  test::TempDir dir;
  test::writeFile(dir / "name.txt", "Zentav Orvex");
  std::string external =
      "<?xml version=\"1.0\"?>\n<!DOCTYPE iso_build [\n"
      "<!ENTITY n SYSTEM \"file://" +
      dir / "name.txt" +
      "\">\n]>\n<iso_build><product><name>&n;</name>"
      "<orvex_version>4.0</orvex_version></product></iso_build>\n";
  EXPECT_FALSE(orvexFromPackageList(external.c_str()));

  std::string bomb =
      "<?xml version=\"1.0\"?>\n<!DOCTYPE iso_build [\n"
      "<!ENTITY a0 \"Zentav Orvex \">\n";
  for (int i = 1; i <= 30; ++i) {
    std::string ref = "&a" + std::to_string(i - 1) + ";", refs;
    for (int k = 0; k < 10; ++k) refs += ref;
    bomb += "<!ENTITY a" + std::to_string(i) + " \"" + refs + "\">\n";
  }
  bomb +=
      "]>\n<iso_build><product><name>&a30;</name>"
      "<orvex_version>4.0</orvex_version></product></iso_build>\n";
  auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(orvexFromPackageList(bomb.c_str()));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(OrvexMarkers, BootMenuTitles) {
  EXPECT_STREQ(orvexiFromBootMenu("MENU TITLE Orvexi-5 Installer\n"
                                  "menu title Zentav ZTvisor 4.1\n"),
               "ztkernel");
  EXPECT_EQ(orvexiFromBootMenu("MENU TITLE Zentav ZTvisor\n"), nullptr);
}

}  // namespace
}  // namespace gp::guess
