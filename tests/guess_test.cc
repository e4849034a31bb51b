// Media access, the identification driver and Red Hat family detection,
// run on real images mastered at test time.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "guestprep/guess.h"
#include "platform/isoimage.h"
#include "support/fixtures.h"

namespace {

using gp::test::FileTree;
using gp::test::IsoFlavor;
using gp::test::isoFromTree;

// A medium record built the way Guess_Guest builds one.
class Medium {
 public:
  explicit Medium(const std::string &image) {
    uint32_t formats = gp::iso::listFormats(image.c_str());
    EXPECT_EQ(gp::iso::ISO_OK,
              gp::iso::open(image.c_str(), formats, 0, &medium_.isoImage));
    medium_.kind = GUESS_MEDIUM_ISO9660;
    medium_.path = strdup(image.c_str());
  }
  ~Medium() {
    gp::iso::close(medium_.isoImage);
    free(medium_.path);
  }
  GuessMedium *get() { return &medium_; }

 private:
  GuessMedium medium_{};
};

std::string readWhole(GuessMedium *m, const char *path, size_t *size) {
  char *data = Guess_ReadFileName(m, path, size);
  if (data == nullptr) {
    return "<null>";
  }
  std::string out(data, *size);
  EXPECT_EQ('\0', data[*size]);
  free(data);
  return out;
}

struct Identified {
  int rc;
  GuessInfo info;
};

Identified identify(const FileTree &tree,
                    IsoFlavor flavor = IsoFlavor::JolietRockRidge) {
  Identified r;
  std::memset(&r.info, 0xAB, sizeof r.info);
  r.rc = Guess_Guest(isoFromTree(tree, flavor).c_str(), 0, &r.info);
  return r;
}

std::string discInfo(const std::string &release, const std::string &arch) {
  return "1170972069.396645\n" + release + "\n" + arch + "\n1,2,3\n";
}

TEST(MediaAccess, CaseVariantsOnPrimaryNames) {
  // Primary-only images hold upper-case 8.3 names; lower-case paths and
  // names still find them.
  Medium m(isoFromTree({{"ISOLINUX/ISOLINUX.CFG", "default linux\n"},
                        {"README", "hello\n"},
                        {"DOCS/SUB/NOTES.TXT", "deep\n"}},
                       IsoFlavor::Primary));
  EXPECT_TRUE(Guess_FileExists(m.get(), "isolinux", "isolinux.cfg"));
  EXPECT_TRUE(Guess_FileExists(m.get(), "ISOLINUX", "isolinux.cfg"));
  EXPECT_FALSE(Guess_FileExists(m.get(), "isolinux", "missing.cfg"));
  EXPECT_FALSE(Guess_FileExists(m.get(), "nodir", "README"));

  size_t size = 99;
  EXPECT_EQ("hello\n", readWhole(m.get(), "README", &size));
  EXPECT_EQ(6u, size);
  EXPECT_EQ("hello\n", readWhole(m.get(), "/readme", &size));
  EXPECT_EQ("deep\n", readWhole(m.get(), "docs/sub/notes.txt", &size));
  EXPECT_EQ("<null>", readWhole(m.get(), "docs/missing", &size));

  GuessDir *dir = Guess_OpenDir(m.get(), "docs/sub");
  ASSERT_NE(nullptr, dir);
  char *text = Guess_ReadFile(m.get(), dir, "notes.txt", nullptr);
  ASSERT_NE(nullptr, text);
  EXPECT_STREQ("deep\n", text);
  free(text);
  EXPECT_TRUE(Guess_CloseDir(m.get(), dir));
}

TEST(MediaAccess, MixedCaseDirectoryNeedsExactOrFoldedPath) {
  // Rock Ridge keeps mixed case: only the exact, upper or lower spelling of
  // the whole path opens; the file lookup inside is caseless.
  Medium m(isoFromTree({{"Docs/Read.Me", "x"}}, IsoFlavor::RockRidge));
  GuessDir *dir = Guess_OpenDir(m.get(), "Docs");
  ASSERT_NE(nullptr, dir);
  EXPECT_TRUE(Guess_CloseDir(m.get(), dir));
  EXPECT_EQ(nullptr, Guess_OpenDir(m.get(), "docs"));
  EXPECT_TRUE(Guess_FileExists(m.get(), "Docs", "READ.ME"));
}

TEST(MediaAccess, ListingRewindAndPrefix) {
  Medium m(isoFromTree({{"dir/alpha", "a"}, {"dir/Beta", "b"}},
                       IsoFlavor::RockRidge));
  GuessDir *dir = Guess_OpenDir(m.get(), "dir");
  ASSERT_NE(nullptr, dir);
  std::vector<std::string> first, second;
  while (const char *name = Guess_ReadDir(m.get(), dir)) {
    first.push_back(name);
  }
  ASSERT_EQ(2u, first.size());
  EXPECT_NE(first[0], first[1]);
  EXPECT_TRUE(Guess_RewindDir(m.get(), dir));
  while (const char *name = Guess_ReadDir(m.get(), dir)) {
    second.push_back(name);
  }
  EXPECT_EQ(first, second);

  // A second handle on the same medium works side by side.
  GuessDir *other = Guess_OpenDir(m.get(), "/dir");
  ASSERT_NE(nullptr, other);
  EXPECT_TRUE(Guess_CloseDir(m.get(), other));
  EXPECT_TRUE(Guess_CloseDir(m.get(), dir));

  EXPECT_TRUE(Guess_FileExistsWithPrefix(m.get(), "dir", "BET"));
  EXPECT_FALSE(Guess_FileExistsWithPrefix(m.get(), "dir", "gamma"));
  EXPECT_FALSE(Guess_FileExistsWithPrefix(m.get(), "nodir", "a"));
  EXPECT_FALSE(Guess_CloseDir(m.get(), nullptr));
  EXPECT_FALSE(Guess_CloseDir(nullptr, nullptr));
}

TEST(MediaAccess, WholeFilesAtSectorBoundaries) {
  std::string exact(2048, 'x');
  std::string two(4096, 'y');
  std::string more(2049, 'z');
  Medium m(isoFromTree(
      {{"exact", exact}, {"two", two}, {"more", more}, {"empty", ""}},
      IsoFlavor::RockRidge));
  size_t size = 0;
  EXPECT_EQ(exact, readWhole(m.get(), "exact", &size));
  EXPECT_EQ(2048u, size);
  EXPECT_EQ(two, readWhole(m.get(), "two", &size));
  EXPECT_EQ(more, readWhole(m.get(), "more", &size));
  size = 7;
  EXPECT_EQ("", readWhole(m.get(), "empty", &size));
  EXPECT_EQ(0u, size);
}

TEST(MediaAccess, ElfArchitecture) {
  unsigned char elf[64] = {0x7f, 'E', 'L', 'F'};
  EXPECT_EQ(GUESS_ARCH_UNKNOWN, Guess_ELF_Arch(elf, 18));
  for (unsigned char machine : {3, 6, 7}) {
    elf[18] = machine;
    EXPECT_EQ(GUESS_ARCH_32, Guess_ELF_Arch(elf, 19));
  }
  elf[18] = 62;
  EXPECT_EQ(GUESS_ARCH_64, Guess_ELF_Arch(elf, sizeof elf));
  unsigned char junk[19] = {0};  // no magic: only byte 18 counts
  junk[18] = 62;
  EXPECT_EQ(GUESS_ARCH_64, Guess_ELF_Arch(junk, sizeof junk));
  elf[18] = 40;  // ARM
  EXPECT_EQ(GUESS_ARCH_UNKNOWN, Guess_ELF_Arch(elf, sizeof elf));
}

TEST(Driver, OpenFailureAndNoMatchClearTheRecord) {
  gp::test::TempDir tmp;
  gp::test::writeFile(tmp / "junk.iso", std::string(100000, 'j'));
  GuessInfo info;
  std::memset(&info, 0xAB, sizeof info);
  EXPECT_EQ(GUESS_OPEN_FAILED, Guess_Guest((tmp / "junk.iso").c_str(), 7, &info));
  GuessInfo zero;
  std::memset(&zero, 0, sizeof zero);
  EXPECT_EQ(0, std::memcmp(&zero, &info, sizeof info));
  EXPECT_EQ(GUESS_OPEN_FAILED, Guess_Guest((tmp / "missing").c_str(), 0, &info));
  EXPECT_EQ(GUESS_OPEN_FAILED, Guess_Guest(tmp.path().c_str(), 0, &info));

  Identified r = identify({{"readme.txt", "nothing to see\n"}});
  EXPECT_EQ(GUESS_NOT_FOUND, r.rc);
  EXPECT_EQ(nullptr, r.info.osName);
  EXPECT_EQ(0u, r.info.subVersion);
}

TEST(Driver, NamesAndVersionStrings) {
  EXPECT_STREQ("GUESS_VERSION_DUMMY_LAST", Guess_GetSubString(GUESS_VERSION_DUMMY_LAST));
  EXPECT_STREQ("GUESS_VERSION_FEDORA_13", SUB_NAMES[11]);

  GuessInfo info;
  std::memset(&info, 0, sizeof info);
  auto version = [&](const char *name) {
    char *s = Guess_GetVersionString(name, &info);
    std::string out = s;
    free(s);
    return out;
  };
  info.subVersion = GUESS_VERSION_SLED_ALL;
  EXPECT_EQ("SUSE Linux Enterprise Desktop", version("SUSE Linux Enterprise"));
  info.subVersion = GUESS_VERSION_UBUNTU_SERVER_810_OR_HIGHER;
  EXPECT_EQ("Ubuntu Server", version("Ubuntu"));
  info.subVersion = GUESS_VERSION_SLES_10_SP2_OR_LOWER;
  EXPECT_EQ("SLES", version("SLES"));
  // A recorded version text wins over the code.
  info.subVersion = GUESS_VERSION_UBUNTU_SERVER_810_OR_HIGHER;
  std::strcpy(info.versionString, "Server 10.04");
  EXPECT_EQ("Ubuntu Server 10.04", version("Ubuntu"));
}

struct RedHatCase {
  const char *what;
  FileTree tree;
  const char *osName;  // null: not recognised
  uint32_t subVersion;
  bool noIsolinux;
};

TEST(RedHat, ReleaseNamesArchitecturesAndCodes) {
  const FileTree isolinux = {{"isolinux/isolinux.cfg", "default linux\n"}};
  auto with = [&](FileTree extra) {
    extra.insert(isolinux.begin(), isolinux.end());
    return extra;
  };
  const std::vector<RedHatCase> cases = {
      {"rhel5 server x86_64",
       with({{".discinfo", discInfo("Red Hat Enterprise Linux Server 5", "x86_64")}}),
       "rhel5-64", 0, false},
      {"rhel4 i386 without isolinux",
       {{".discinfo", discInfo("Red Hat Enterprise Linux 4", "i386")}},
       "rhel4", 0, true},
      {"rhel 5 without Client/Server",
       with({{".discinfo", discInfo("Red Hat Enterprise Linux 5", "i386")}}),
       nullptr, 0, false},
      {"rhel6", with({{".discinfo", discInfo("Red Hat Enterprise Linux 6.0", "x86_64")}}),
       "rhel6-64", 0, false},
      {"centos key wins over release name",
       with({{".discinfo", discInfo("Red Hat Enterprise Linux Server 5", "x86_64")},
             {"RPM-GPG-KEY-CentOS-5", "k"}}),
       "centos-64", GUESS_VERSION_CENTOS_5, false},
      {"first centos key in order",
       with({{".discinfo", discInfo("Final", "i386")},
             {"RPM-GPG-KEY-CentOS-6", "k"},
             {"RPM-GPG-KEY-CentOS-3", "k"}}),
       "centos", GUESS_VERSION_CENTOS_3, false},
      {"centos4 key", with({{".discinfo", discInfo("final", "i386")},
                            {"RPM-GPG-KEY-centos4", "k"}}),
       "centos", GUESS_VERSION_CENTOS_4, false},
      {"centos by name only", with({{".discinfo", discInfo("CentOS 5.5", "i386")}}),
       "centos", 0, false},
      {"i686 is not an architecture",
       with({{".discinfo", discInfo("Red Hat Enterprise Linux 4", "i686")}}),
       nullptr, 0, false},
      {"CR LF line ends", with({{".discinfo",
                                 "1\r\nRed Hat Enterprise Linux 4\r\nx86_64\r\n"}}),
       nullptr, 0, false},
      {"blank lines are not tokens",
       with({{".discinfo", "\n\n1\n\nRed Hat Enterprise Linux 3\n\ni386\n"}}),
       "rhel3", 0, false},
      {"missing architecture", with({{".discinfo", "1\nRed Hat Enterprise Linux 3\n"}}),
       nullptr, 0, false},
      {"asianux", with({{".discinfo", discInfo("Asianux Server 3 SP2", "x86_64")}}),
       "asianux3-64", 0, false},
      {"enterprise linux", with({{".discinfo", discInfo("Enterprise Linux Server 5", "i386")}}),
       "oraclelinux", 0, false},
      {"fedora core 6", with({{".discinfo", discInfo("Fedora Core 6", "i386")}}),
       "fedora", 0, false},
      {"fedora 8", with({{".discinfo", discInfo("Fedora 8", "i386")}}),
       "fedora", GUESS_VERSION_FEDORA_8, false},
      {"fedora 12", with({{".discinfo", discInfo("Fedora 12", "i386")}}),
       "fedora", GUESS_VERSION_FEDORA_9_TO_12, false},
      {"fedora 13", with({{".discinfo", discInfo("Fedora 13", "x86_64")}}),
       "fedora-64", GUESS_VERSION_FEDORA_13, false},
      {"fedora 15", with({{".discinfo", discInfo("Fedora 15", "i386")}}),
       "fedora", GUESS_VERSION_FEDORA_14_OR_HIGHER, false},
      {"fedora anywhere, offsets from the start",
       with({{".discinfo", discInfo("Remix of Fedora 14", "i386")}}),
       "fedora", 0, false},
      {"release notes rhel 2.1",
       {{"RELEASE-NOTES", "Red Hat Enterprise Linux AS 2.1 release\nmore\n"}},
       "rhel2", 0, true},
      {"release notes rhel 3 is unknown",
       {{"RELEASE-NOTES", "Red Hat Enterprise Linux 3\n"}}, nullptr, 0, false},
      {"release notes red hat linux",
       with({{"RELEASE-NOTES", "Red Hat Linux 9\n"}}), "redhat", 0, false},
      {"empty release notes", {{"RELEASE-NOTES", "\n\n"}}, nullptr, 0, false},
  };
  for (const RedHatCase &c : cases) {
    SCOPED_TRACE(c.what);
    Identified r = identify(c.tree);
    if (c.osName == nullptr) {
      EXPECT_EQ(GUESS_NOT_FOUND, r.rc);
      EXPECT_EQ(nullptr, r.info.osName);
      continue;
    }
    EXPECT_EQ(GUESS_FOUND, r.rc);
    ASSERT_NE(nullptr, r.info.osName);
    EXPECT_STREQ(c.osName, r.info.osName);
    EXPECT_EQ(c.subVersion, r.info.subVersion);
    EXPECT_EQ(c.noIsolinux, r.info.noIsolinux != 0);
  }
}

TEST(RedHat, UpperCaseIsolinuxIsFoundCaselessly) {
  Identified r = identify(
      {{".discinfo", discInfo("Red Hat Enterprise Linux Client 5", "i386")},
       {"ISOLINUX/ISOLINUX.CFG", "default linux\n"}},
      IsoFlavor::RockRidge);
  EXPECT_EQ(GUESS_FOUND, r.rc);
  EXPECT_STREQ("rhel5", r.info.osName);
  EXPECT_EQ(0, r.info.noIsolinux);
}

}  // namespace
