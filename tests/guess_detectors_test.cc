// The Linux and other detectors on real ISO 9660 images.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "guestprep/guess.h"
#include "platform/fatal.h"
#include "platform/isoimage.h"
#include "support/fixtures.h"

namespace gp::guess {
namespace {

using test::FileTree;
using test::IsoFlavor;

struct Result {
  int rc;
  GuessInfo info;
  std::string name() const { return info.osName ? info.osName : "(none)"; }
};

Result identify(const std::string &image) {
  Result r;
  r.rc = Guess_Guest(image.c_str(), 0, &r.info);
  return r;
}

Result identify(const FileTree &tree) {
  return identify(test::isoFromTree(tree, IsoFlavor::JolietRockRidge));
}

// An image with a chosen volume identifier, which the shared fixture fixes.
std::string volumeImage(const test::TempDir &dir, const FileTree &tree,
                        const std::string &volumeId) {
  test::writeTree(dir / "root", tree);
  std::string image = dir / (volumeId + ".iso");
  EXPECT_EQ(test::runCommand(
                "xorriso -as mkisofs -quiet -J -R -V " +
                test::shellQuote(volumeId) + " -o " + test::shellQuote(image) +
                " " + test::shellQuote(dir / "root") + " >/dev/null 2>&1"),
            0);
  return image;
}

// A medium record of the test's own, for detectors outside the table.
struct Medium : GuessMedium {
  explicit Medium(const FileTree &tree) : GuessMedium{} {
    std::string image = test::isoFromTree(tree, IsoFlavor::JolietRockRidge);
    kind = GUESS_MEDIUM_ISO9660;
    path = heapCopy(image);
    EXPECT_EQ(iso::open(path, iso::listFormats(path), 0, &isoImage),
              iso::ISO_OK);
  }
  ~Medium() { iso::close(isoImage), std::free(path); }
};

const char kCfg[] = "label linux\n  kernel vmlinuz\n";

TEST(MandrivaMedia, VolumeIdentifierAndProductFile) {
  FileTree tree = {{"x86_64/isolinux/isolinux.cfg", kCfg},
                   {"i586/product.id",
                    "vendor=Mandriva,arch=i586,version=2006.0,product=Free"}};
  // The volume identifier names both release and architecture: product.id
  // is not read. Without the architecture, product.id adds it and its
  // release text, but an older release keeps the volume's code.
  test::TempDir dir;
  for (auto [volumeId, name, version] :
       {std::tuple{"Mandriva.2010.0.x86_64", "mandriva-64", ""},
        {"Mandriva.2010.0", "mandriva", "2006.0"}}) {
    Result r = identify(volumeImage(dir, tree, volumeId));
    EXPECT_EQ(r.name(), name);
    EXPECT_EQ(r.info.subVersion,
              uint32_t(GUESS_VERSION_MANDRIVA_2008_1_OR_HIGHER));
    EXPECT_FALSE(r.info.noIsolinux);
    EXPECT_STREQ(r.info.versionString, version);
  }
}

std::string elfWithMachine(char machine) {
  return std::string(18, '\0') + machine + std::string(45, '\0');
}

TEST(LinuxMedia, MarkersCodesAndIsolinux) {
  const char sled[] = "PRODUCT SUSE SLED\nVERSION 10.1\nDEFAULTBASE i586\n";
  const char products[] = "/ SUSE-Linux-Enterprise-Desktop-i386 10-0\n";
  const char mdv[] = "vendor=Mandriva,version=2008.0,arch=x86_64";
  // A null name: not recognised.
  // clang-format off
  const struct { FileTree tree; const char *name; uint32_t code; bool noIsolinux; const char *versionString; } cases[] = {
      {{{"x86_64/product.id", mdv}}, "mandriva-64", GUESS_VERSION_MANDRIVA_2008_0, true, "2008.0"},
      // isolinux is not looked for when VERSION exists.
      {{{"VERSION", "Mandrake Linux 10.1 x86_64\n"}}, "mandrake", 0, false, ""},
      // Not recognised, but the release read stays in the record.
      {{{"VERSION", "Mandriva Linux 2006.0 sparc\n"}}, nullptr, 0, false, "2006"},
      // A long release is cut at the field's end.
      {{{".disk/info", "Ubuntu-Server 8.10.123456789012345678901234 i386"}, {"ISOLINUX/ISOLINUX.CFG", kCfg}},
       "ubuntu", GUESS_VERSION_UBUNTU_SERVER_810_OR_HIGHER, false, "Server 8.10.1234567890123456789"},
      {{{"content", sled}, {"boot/x86_64/loader/isolinux.cfg", kCfg}}, "sles10", GUESS_VERSION_SLED_10_SP2_OR_LOWER, false, ""},
      // A content file without an architecture ends the search.
      {{{"content", "PRODUCT SUSE SLED\n"}, {"media.1/products", products}}, nullptr, 0, false, ""},
      {{{"media.1/products", products}, {"boot/loader/isolinux.cfg", kCfg}}, "sles10", GUESS_VERSION_SLED_ALL, false, ""},
      {{{".S.u.S.E-disk-000.20041222", ""}}, "suse", 0, true, ""},
      {{{".s.u.s.e-disk-000", ""}}, nullptr, 0, false, ""},
      {{{"README", "Turbolinux 10 Server\n"}}, "turbolinux", 0, false, ""},
  };  // clang-format on
  for (const auto &c : cases) {
    SCOPED_TRACE(c.tree.begin()->first + ": " + c.tree.begin()->second);
    Result r = identify(c.tree);
    EXPECT_EQ(r.rc, c.name ? GUESS_FOUND : GUESS_NOT_FOUND);
    EXPECT_EQ(r.name(), c.name ? c.name : "(none)");
    EXPECT_EQ(r.info.subVersion, c.code);
    EXPECT_EQ(r.info.noIsolinux != 0, c.noIsolinux);
    EXPECT_STREQ(r.info.versionString, c.versionString);
  }
}

TEST(OtherMedia, MarkersListingAndDetectorOrder) {
  const std::string elf64 = elfWithMachine(62);
  const char ubuntu[] = "Ubuntu 10.04 - Release i386";
  const char opensuse[] = "NAME openSUSE\nVERSION 11.3\nBASEARCHS i586\n";
  const char orvex[] =
      "<iso_build><product><name>Zentav Orvex</name>"
      "<orvex_version>4.0</orvex_version></product></iso_build>";
  // clang-format off
  const struct { FileTree tree; const char *name; } cases[] = {
      // The root listing is sorted; the first marker listed decides.
      {{{"Solaris_9/", ""}, {"Solaris_8/", ""}}, "solaris8"},
      {{{"nw51/", ""}, {"netware6/", ""}}, "netware6"},
      {{{"nw65os/", ""}, {"nw51/", ""}}, "netware5"},
      {{{"boot/kernel/kernel", elf64}}, "freeBSD-64"},
      {{{"boot/kernel/kernel", elfWithMachine(3)}}, "freeBSD"},
      // The root kernel is read first, even when it is no ELF image.
      {{{"kernel", "abc"}, {"boot/kernel/kernel", elf64}}, "freeBSD"},
      {{{"packages.xml", orvex}}, "ztkernel"},
      {{{"packages.xml", "<iso_build><product>"}}, "(none)"},
      {{{"isolinux.cfg", "MENU TITLE Orvexi-5\n"}}, "ztkernel5"},
      // An earlier detector in the table wins.
      {{{"VERSION", "Mandriva Linux 2009.0 i586"}, {".disk/info", ubuntu}}, "mandriva"},
      {{{".disk/info", ubuntu}, {"content", opensuse}}, "ubuntu"},
      {{{"content", opensuse}, {"README", "Turbolinux"}}, "opensuse"},
      {{{"Solaris_10/", ""}, {"kernel", "k"}}, "solaris10"},
      {{{"kernel", "k"}, {"isolinux.cfg", "MENU TITLE Orvexi-5"}}, "freeBSD"},
  };  // clang-format on
  for (const auto &c : cases) {
    EXPECT_EQ(identify(c.tree).name(), c.name) << c.tree.begin()->first;
  }
}

TEST(OtherMedia, SolarisSixtyFourBitEdition) {
  Result r = identify(FileTree{{"SOLARIS_10/", ""}});
  EXPECT_EQ(r.name(), "solaris10");
  EXPECT_STREQ(r.info.osName64, "solaris10-64");
  // A direct call resets osName64 for releases without a 64-bit edition.
  Medium medium(FileTree{{"Solaris_9/", ""}});
  GuessInfo info{};
  info.osName64 = "stale";
  EXPECT_TRUE(Guess_Solaris(&medium, &info));
  EXPECT_STREQ(info.osName, "solaris9");
  EXPECT_EQ(info.osName64, nullptr);
}

TEST(OtherMedia, MacOsOnlyWhenAsked) {
  const char guide[] = "Boot Camp Installation & Setup Guide.pdf";
  FileTree lion = {{"Install Mac OS X Lion.app", "x"}, {guide, "pdf"}};
  EXPECT_EQ(identify(lion).rc, GUESS_NOT_FOUND);
  const std::string bootCamp = std::string("Boot Camp/Documentation/") + guide;
  for (auto [tree, name, name64] :
       {std::tuple<FileTree, const char *, const char *>{lion, "darwin11",
                                                         "darwin11-64"},
        {{{guide, "pdf"}}, "darwin", "darwin-64"},
        {{{bootCamp, "pdf"}}, "darwin10", "darwin10-64"},
        {{{"README", "x"}}, nullptr, nullptr}}) {
    Medium medium(tree);
    GuessInfo info{};
    EXPECT_EQ(Guess_MacOS(&medium, &info), name != nullptr);
    EXPECT_STREQ(info.osName, name);
    EXPECT_STREQ(info.osName64, name64);
  }
}

}  // namespace
}  // namespace gp::guess
