// Media access, the identification driver and Red Hat family detection,
// run on real images mastered at test time.
#include "guestprep/guess.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/hostio.h"
#include "platform/isoimage.h"
#include "support/fixtures.h"
#include "support/hostile_iso.h"

namespace {

using gp::test::FileTree;
using gp::test::IsoFlavor;
using gp::test::isoFromTree;

// A medium record built the way Guess_Guest builds one.
struct Medium {
  Medium(const FileTree &tree, IsoFlavor flavor) {
    std::string image = isoFromTree(tree, flavor);
    EXPECT_EQ(gp::iso::ISO_OK,
              gp::iso::open(image.c_str(), gp::iso::listFormats(image.c_str()),
                            0, &medium_.isoImage));
    medium_.kind = GUESS_MEDIUM_ISO9660;
    medium_.path = strdup(image.c_str());
  }
  ~Medium() {
    gp::iso::close(medium_.isoImage);
    free(medium_.path);
  }
  GuessMedium *get() { return &medium_; }
  GuessMedium medium_{};
};

// The file whole, checked for its NUL; "<null>" when it cannot be read.
std::string readWhole(GuessMedium *m, const char *path, size_t *size) {
  char *data = Guess_ReadFileName(m, path, size);
  if (data == nullptr) return "<null>";
  std::string out(data, *size);
  EXPECT_EQ('\0', data[*size]);
  free(data);
  return out;
}

TEST(MediaAccess, CaseVariantsAndWholeFiles) {
  // Primary-only images hold upper-case names; lower-case paths and names
  // still find them.
  const std::string exact(2048, 'x'), more(2049, 'z');
  Medium m({{"ISOLINUX/ISOLINUX.CFG", "x"},
            {"README", "hello\n"},
            {"DOCS/SUB/NOTES.TXT", "deep\n"},
            {"EXACT", exact},
            {"MORE", more},
            {"EMPTY", ""}},
           IsoFlavor::Primary);
  EXPECT_TRUE(Guess_FileExists(m.get(), "isolinux", "isolinux.cfg"));
  EXPECT_FALSE(Guess_FileExists(m.get(), "isolinux", "missing.cfg"));
  EXPECT_FALSE(Guess_FileExists(m.get(), "nodir", "README"));

  // The size never counts the NUL, at sector boundaries too.
  size_t size = 99;
  auto read = [&](const char *path) { return readWhole(m.get(), path, &size); };
  EXPECT_EQ("hello\n", read("README"));
  EXPECT_EQ("hello\n", read("/readme"));
  EXPECT_EQ("deep\n", read("docs/sub/notes.txt"));
  EXPECT_EQ("<null>", read("docs/missing"));
  EXPECT_EQ(exact, read("exact"));
  EXPECT_EQ(more, read("more"));
  EXPECT_EQ("", read("empty"));
}

TEST(MediaAccess, FilesTooLargeToBeMarkersAreNotRead) {
  // A hostile image must not make identification allocate without bound.
  Medium m({{"huge", std::string((64u << 20) + 1, '\0')}},
           IsoFlavor::RockRidge);
  size_t size = 7;
  EXPECT_TRUE(Guess_FileExists(m.get(), "", "huge"));
  EXPECT_EQ("<null>", readWhole(m.get(), "huge", &size));
  EXPECT_EQ(7u, size);
}

TEST(MediaAccess, MixedCaseListingRewindAndPrefix) {
  // Rock Ridge keeps mixed case: only the exact, upper or lower spelling of
  // the whole path opens; lookups inside are caseless.
  Medium m({{"Docs/alpha", "a"}, {"Docs/Beta", "b"}}, IsoFlavor::RockRidge);
  EXPECT_EQ(nullptr, Guess_OpenDir(m.get(), "docs"));
  EXPECT_TRUE(Guess_FileExists(m.get(), "Docs", "ALPHA"));
  GuessDir *dir = Guess_OpenDir(m.get(), "Docs");
  ASSERT_NE(nullptr, dir);
  for (int pass = 0; pass < 2; ++pass) {  // the second after a rewind
    std::vector<std::string> names;
    while (const char *name = Guess_ReadDir(m.get(), dir)) {
      names.push_back(name);
      // The entry just listed reads like any other, without moving the
      // listing on.
      size_t size = 0;
      char *data = Guess_ReadFile(m.get(), dir, names.back().c_str(), &size);
      EXPECT_EQ(std::string(data ? data : "<null>"),
                names.back() == "alpha" ? "a" : "b");
      free(data);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"alpha", "Beta"}));
    EXPECT_TRUE(Guess_RewindDir(m.get(), dir));
  }
  EXPECT_TRUE(Guess_CloseDir(m.get(), dir));

  EXPECT_TRUE(Guess_FileExistsWithPrefix(m.get(), "Docs", "BET"));
  EXPECT_FALSE(Guess_FileExistsWithPrefix(m.get(), "Docs", "gamma"));
  EXPECT_FALSE(Guess_FileExistsWithPrefix(m.get(), "nodir", "a"));
  EXPECT_FALSE(Guess_CloseDir(m.get(), nullptr));
}

TEST(MediaAccess, ElfArchitectureFromByte18Alone) {
  unsigned char elf[19] = {};  // neither magic nor class is looked at
  // 1: 32-bit x86, 2: x86-64, 0: anything else.
  for (auto [machine, arch] :
       {std::pair{3, 1}, {6, 1}, {7, 1}, {40, 0}, {62, 2}}) {
    elf[18] = static_cast<unsigned char>(machine);
    EXPECT_EQ(arch, Guess_ELF_Arch(elf, sizeof elf)) << machine;
  }
  EXPECT_EQ(GUESS_ARCH_UNKNOWN, Guess_ELF_Arch(elf, 18));  // 62 out of reach
}

struct Identified {
  int rc;
  GuessInfo info;
  explicit Identified(const FileTree &tree) {
    std::memset(&info, 0xAB, sizeof info);
    rc = Guess_Guest(isoFromTree(tree, IsoFlavor::JolietRockRidge).c_str(), 0,
                     &info);
  }
};

TEST(Driver, OpenFailureClearsTheRecord) {
  gp::test::TempDir tmp;
  gp::test::writeFile(tmp / "junk.iso", std::string(100000, 'j'));
  GuessInfo info, zero;
  std::memset(&info, 0xAB, sizeof info);
  std::memset(&zero, 0, sizeof zero);
  EXPECT_EQ(GUESS_OPEN_FAILED,
            Guess_Guest((tmp / "junk.iso").c_str(), 7, &info));
  EXPECT_EQ(0, std::memcmp(&zero, &info, sizeof info));
  EXPECT_EQ(GUESS_OPEN_FAILED,
            Guess_Guest((tmp / "missing").c_str(), 0, &info));
  EXPECT_EQ(GUESS_OPEN_FAILED, Guess_Guest(tmp.path().c_str(), 0, &info));
}

// Every byte that pread delivers while it is alive.
class PreadCounter {
 public:
  PreadCounter() : scoped_(counting()) { bytes() = 0; }
  static uint64_t &bytes() {
    static uint64_t count = 0;
    return count;
  }

 private:
  static gp::HostOps counting() {
    gp::HostOps ops = gp::hostOps();
    ops.pread = [](int fd, void *buf, size_t n, off_t at) {
      ssize_t got = gp::realHostOps().pread(fd, buf, n, at);
      bytes() += got > 0 ? static_cast<uint64_t>(got) : 0;
      return got;
    };
    return ops;
  }
  gp::ScopedHostOps scoped_;
};

// Crafted images that made identification take seconds to hours: now the
// whole run reads each byte of them a few times at most, and one that
// would pass the budget counts as unreadable, with the record cleared.
TEST(Driver, HostileImagesCostLittle) {
  gp::test::TempDir tmp;
  const struct {
    const char *what;
    gp::test::HostileIso shape;
    int result;
  } cases[] = {
      {"100 records, self-continuing areas", {100, 65536}, GUESS_NOT_FOUND},
      {"1000 records, self-continuing areas", {1000, 65536}, GUESS_OPEN_FAILED},
      {"100,000 records", {100000, 0}, GUESS_NOT_FOUND},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    const std::string path = tmp / "hostile.iso";
    ASSERT_TRUE(gp::test::writeHostileIso(path, c.shape));
    GuessInfo info, zero{};
    std::memset(&info, 0xAB, sizeof info);
    PreadCounter reads;
    EXPECT_EQ(c.result, Guess_Guest(path.c_str(), 0, &info));
    if (c.result == GUESS_OPEN_FAILED) {
      EXPECT_EQ(0, std::memcmp(&zero, &info, sizeof info));
    }
    EXPECT_LT(PreadCounter::bytes(), 4 * std::filesystem::file_size(path));
  }
}

TEST(Driver, VersionStrings) {
  // A recorded version text wins over the code.
  for (auto [code, recorded, name, expected] :
       {std::tuple{GUESS_VERSION_SLED_ALL, "", "SUSE", "SUSE Desktop"},
        {GUESS_VERSION_SLES_10_SP2_OR_LOWER, "", "SLES", "SLES"},
        {GUESS_VERSION_UBUNTU_SERVER_810_OR_HIGHER, "Server 10.04", "Ubuntu",
         "Ubuntu Server 10.04"}}) {
    GuessInfo info{};
    info.subVersion = code;
    std::strcpy(info.versionString, recorded);
    char *s = Guess_GetVersionString(name, &info);
    EXPECT_STREQ(expected, s);
    free(s);
  }
}

TEST(Driver, SubStringsOnlyWithinTheTable) {
  EXPECT_STREQ("GUESS_VERSION_UNKNOWN",
               Guess_GetSubString(GUESS_VERSION_UNKNOWN));
  EXPECT_STREQ("GUESS_VERSION_DUMMY_LAST",
               Guess_GetSubString(static_cast<GuessVersion>(21)));
  for (unsigned code : {22u, 31u}) {
    EXPECT_EQ(nullptr, Guess_GetSubString(static_cast<GuessVersion>(code)))
        << code;
  }
}

TEST(RedHat, ReleaseNamesArchitecturesAndCodes) {
  // A .discinfo: a time stamp, the release name, the architecture.
  auto disc = [](const std::string &release, const char *arch,
                 std::vector<const char *> keys = {}) {
    FileTree tree = {
        {".discinfo", "1170972069.39\n" + release + "\n" + arch + "\n1,2,3\n"}};
    for (const char *key : keys) tree[key] = "k";
    return tree;
  };
  const std::string rhel = "Red Hat Enterprise Linux ";
  const struct {
    FileTree tree;       // with isolinux/isolinux.cfg unless noIsolinux
    const char *osName;  // null: not recognised
    uint32_t subVersion = 0;
    bool noIsolinux = false;
  } cases[] = {
      {disc(rhel + "Server 5", "x86_64"), "rhel5-64"},
      {disc(rhel + "4", "i386"), "rhel4", 0, true},
      {disc(rhel + "5", "i386"), nullptr},  // neither Client nor Server
      // A CentOS key wins over the release name; the first in order counts.
      {disc(rhel + "Server 5", "x86_64", {"RPM-GPG-KEY-CentOS-5"}), "centos-64",
       GUESS_VERSION_CENTOS_5},
      {disc("Final", "i386", {"RPM-GPG-KEY-CentOS-6", "RPM-GPG-KEY-CentOS-3"}),
       "centos", GUESS_VERSION_CENTOS_3},
      {disc("final", "i386", {"RPM-GPG-KEY-centos4"}), "centos",
       GUESS_VERSION_CENTOS_4},
      // The architecture line must match exactly; blank lines are skipped.
      {{{".discinfo", "1\r\n" + rhel + "4\r\nx86_64\r\n"}}, nullptr},
      {{{".discinfo", "\n\n1\n\n" + rhel + "3\n\ni386\n"}}, "rhel3"},
      {{{".discinfo", "1\n" + rhel + "3\n"}}, nullptr},
      {disc("Fedora 8", "i386"), "fedora", GUESS_VERSION_FEDORA_8},
      {disc("Fedora 12", "i386"), "fedora", GUESS_VERSION_FEDORA_9_TO_12},
      {disc("Fedora 13", "x86_64"), "fedora-64", GUESS_VERSION_FEDORA_13},
      {disc("Fedora 15", "i386"), "fedora", GUESS_VERSION_FEDORA_14_OR_HIGHER},
      // The number is read from the name's start, not from "Fedora".
      {disc("Remix of Fedora 14", "i386"), "fedora"},
      // Without .discinfo, the first line of RELEASE-NOTES decides.
      {{{"RELEASE-NOTES", rhel + "AS 2.1 release\nmore\n"}}, "rhel2", 0, true},
      {{{"RELEASE-NOTES", rhel + "3\n"}}, nullptr},
      {{{"RELEASE-NOTES", "Red Hat Linux 9\n"}}, "redhat"},
      // An upper-case isolinux directory and file are found caselessly.
      {{{".discinfo", "1\n" + rhel + "Client 5\ni386\n"},
        {"ISOLINUX/ISOLINUX.CFG", "x"}},
       "rhel5"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << "case " << &c - cases);
    FileTree tree = c.tree;
    if (!c.noIsolinux && !tree.count("ISOLINUX/ISOLINUX.CFG"))
      tree["isolinux/isolinux.cfg"] = "x";
    Identified r(tree);
    EXPECT_EQ(c.osName ? GUESS_FOUND : GUESS_NOT_FOUND, r.rc);
    EXPECT_STREQ(c.osName, r.info.osName);
    // A record that recognised nothing is cleared, not left as it came.
    EXPECT_EQ(c.subVersion, r.info.subVersion);
    EXPECT_EQ(c.osName && c.noIsolinux, r.info.noIsolinux != 0);
  }
}

}  // namespace
