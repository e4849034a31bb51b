// The FAT image service, checked against dosfstools and mtools: every image
// it writes must pass fsck.fat and read back the same with mtools, and it
// must read what mkfs.fat and mcopy made. Hostile images end in an error.
#include "platform/fatimage.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "platform/hostio.h"
#include "support/fatcheck.h"
#include "support/fixtures.h"

namespace {

using namespace gp::fat;
using gp::test::pattern;
using gp::test::TempDir;

// Owns a handle; closes it at the end of the scope.
struct H {
  FatHandle h = nullptr;
  ~H() { done(); }
  FatHandle *out() { return &h; }
  Error done() {
    Error e = h ? close(h) : FAT_OK;
    h = nullptr;
    return e;
  }
};

Error putFile(FatHandle dir, const std::string &name, const std::string &data) {
  H f;
  Error e = createFile(dir, name.c_str(), f.out());
  uint32_t done = 0;
  if (e == FAT_OK) e = writeFile(f.h, 0, data.data(), data.size(), &done);
  Error c = f.done();
  return e != FAT_OK ? e : c;
}

std::string getFile(FatHandle dir, const std::string &name) {
  H f;
  std::string out;
  Error e = openFile(dir, name.c_str(), f.out());
  char buf[700];
  uint32_t got = 0;
  while (e == FAT_OK &&
         (e = readFile(f.h, out.size(), buf, sizeof buf, &got)) == FAT_OK &&
         got) {
    out.append(buf, got);
  }
  return out;
}

struct Listed {
  std::string name;
  uint64_t size;
  bool dir;
};
std::vector<Listed> list(FatHandle dir) {
  std::vector<Listed> out;
  for (int64_t i = 0, n = entryCount(dir); i < n; ++i) {
    uint8_t present = 0, isDir = 0;
    char *name = nullptr;
    uint64_t size = 0;
    EXPECT_EQ(FAT_OK,
              catalogEntry(dir, i, &present, &name, &isDir, &size, nullptr));
    if (present) out.push_back({name, size, isDir != 0});
    free(name);
  }
  return out;
}

class FatImageTest : public ::testing::Test {
 protected:
  TempDir tmp;
  std::string image = tmp / "test.flp";
  H vol, root;

  void format() {
    ASSERT_EQ(FAT_OK, formatVolume(image.c_str(), 1, vol.out()));
    ASSERT_EQ(FAT_OK, skipVolumeBoot(vol.h, FAT_FILE_SYSTEM));
    ASSERT_EQ(FAT_OK, openRootDirectory(vol.h, root.out()));
  }
  Error reopen(int writable = 1) {
    root.done();
    vol.done();
    Error e = openVolume(image.c_str(), writable, vol.out());
    return e == FAT_OK ? openRootDirectory(vol.h, root.out()) : e;
  }
  void expectClean() {
    std::string report;
    EXPECT_TRUE(gp::test::fsckClean(image, &report)) << report;
  }
};

// Short names keep their look through the case bits; other names get long
// entries with unique aliases; mtools sees exactly what we wrote.
TEST_F(FatImageTest, FormatsAndNamesMatchMtools) {
  EXPECT_EQ(FAT_ERR_ARG, formatVolume(nullptr, 1, vol.out()));
  format();
  EXPECT_EQ(2847u * 512, freeBytes(vol.h));
  std::string bytes = gp::test::readFile(image);
  ASSERT_EQ(1474560u, bytes.size());
  EXPECT_EQ("\x55\xAA", bytes.substr(510, 2));
  expectClean();
  const struct {
    std::string name, alias, data;
  } files[] = {
      {"preseed.cfg", "preseed.cfg", pattern(300, 1)},
      {"AUTOUN~0.XML", "AUTOUN~0.XML", pattern(0, 2)},
      {"winnt.SIF", "winnt.SIF", pattern(512, 3)},  // case bit on the base
      {"A long file name.txt", "ALONGF~1.TXT", pattern(5000, 4)},
      {"A long file name.txt2", "ALONGF~2.TXT", pattern(1025, 5)},
      {"Mixed.Txt", "MIXED.TXT", pattern(70000, 6)},
      {"r\xC3\xA9sum\xC3\xA9.cfg", "R_SUM_~1.CFG", pattern(10, 7)},
  };
  for (const auto &f : files) {
    ASSERT_EQ(FAT_OK, putFile(root.h, f.name, f.data)) << f.name;
  }
  // The volume is still open: each close has already written its file.
  expectClean();
  auto listed = gp::test::mdirList(image);
  auto ours = list(root.h);
  ASSERT_EQ(7u, listed.size());
  ASSERT_EQ(7u, ours.size());
  for (size_t i = 0; i < 7; ++i) {
    EXPECT_EQ(files[i].alias, listed[i].shortName);
    EXPECT_EQ(i >= 3 ? files[i].name : "", listed[i].longName);
    EXPECT_EQ(std::to_string(files[i].data.size()), listed[i].size);
    EXPECT_EQ(files[i].name, ours[i].name);
    EXPECT_EQ(files[i].data.size(), ours[i].size);
  }
  // Lookups ignore case and find a file by its alias too.
  EXPECT_EQ(files[0].data, getFile(root.h, "PRESEED.CFG"));
  EXPECT_EQ(files[3].data, getFile(root.h, "alongf~1.txt"));
  H f;
  EXPECT_EQ(FAT_ERR_EXISTS, createFile(root.h, "Preseed.Cfg", f.out()));
  const std::string bads[] = {
      "",   ".",    "..",    "a/b",           "a\\b",
      "x?", "end.", "tab\t", "\xC3(bad-utf8", std::string(256, 'n')};
  for (const std::string &bad : bads) {
    EXPECT_EQ(FAT_ERR_BAD_NAME, createFile(root.h, bad.c_str(), f.out()))
        << bad;
  }
}

TEST_F(FatImageTest, ReadsWhatMkfsAndMcopyMade) {
  ASSERT_TRUE(gp::test::mkfsFat12(image));
  std::string big = pattern(40000, 9);
  gp::test::writeFile(tmp / "big", big);
  ASSERT_TRUE(gp::test::mcopyIn(image, tmp / "big", "Driver Package.inf"));
  ASSERT_TRUE(gp::test::mcopyIn(image, tmp / "big", "txtsetup.oem"));
  ASSERT_EQ(0, gp::test::runCommand("MTOOLS_SKIP_CHECK=1 mmd -i " + image +
                                    " ::/sub"));
  ASSERT_TRUE(gp::test::mcopyIn(image, tmp / "big", "sub/inner.bin"));
  ASSERT_EQ(FAT_OK, reopen(0));
  auto ours = list(root.h);
  ASSERT_EQ(3u, ours.size());
  EXPECT_EQ("Driver Package.inf", ours[0].name);
  EXPECT_EQ("txtsetup.oem", ours[1].name);
  EXPECT_TRUE(ours[2].dir);
  EXPECT_EQ(big, getFile(root.h, "driver package.INF"));
  H sub;
  ASSERT_EQ(FAT_OK, openDirectory(root.h, "SUB", sub.out()));
  EXPECT_EQ(big, getFile(sub.h, "inner.bin"));
  H f;
  EXPECT_EQ(FAT_ERR_IS_DIR, openFile(root.h, "sub", f.out()));
  EXPECT_EQ(FAT_ERR_NOT_FOUND, openFile(root.h, "missing.txt", f.out()));
  // Read only: nothing may change.
  EXPECT_EQ(FAT_ERR_READ_ONLY, createFile(root.h, "new.txt", f.out()));
  ASSERT_EQ(FAT_OK, openFile(root.h, "txtsetup.oem", f.out()));
  uint32_t done;
  EXPECT_EQ(FAT_ERR_READ_ONLY, writeFile(f.h, 0, "x", 1, &done));

  // Written into: a new file in the subdirectory, grown past its cluster.
  f.done();
  sub.done();
  ASSERT_EQ(FAT_OK, reopen(1));
  ASSERT_EQ(FAT_OK, openDirectory(root.h, "sub", sub.out()));
  for (int i = 0; i < 70; ++i) {
    ASSERT_EQ(FAT_OK, putFile(sub.h, "file number " + std::to_string(i), "x"));
  }
  expectClean();
  EXPECT_EQ(71u, gp::test::mdirList(image, "::/sub").size());
}

TEST_F(FatImageTest, WritesAtOffsetsAndFailedWriteBacks) {
  format();
  H f;
  ASSERT_EQ(FAT_OK, createFile(root.h, "sparse.bin", f.out()));
  uint32_t done = 0;
  std::string head = pattern(100, 1), tail = pattern(3000, 2);
  ASSERT_EQ(FAT_OK, writeFile(f.h, 0, head.data(), head.size(), &done));
  ASSERT_EQ(FAT_OK, writeFile(f.h, 10000, tail.data(), tail.size(), &done));
  EXPECT_EQ(3000u, done);
  // A second handle on the same file sees the same state.
  H g;
  ASSERT_EQ(FAT_OK, openFile(root.h, "sparse.bin", g.out()));
  uint64_t size = 0;
  ASSERT_EQ(FAT_OK, fileSize(g.h, &size));
  EXPECT_EQ(13000u, size);
  ASSERT_EQ(FAT_OK, writeFile(g.h, 50, "ABC", 3, &done));
  g.done();
  f.done();
  std::string expect = head + std::string(9900, '\0') + tail;
  expect.replace(50, 3, "ABC");
  std::string back;
  ASSERT_TRUE(gp::test::mcopyOut(image, "sparse.bin", back));
  EXPECT_EQ(expect, back);
  ASSERT_EQ(FAT_OK, openFile(root.h, "sparse.bin", f.out()));
  EXPECT_EQ(FAT_ERR_TOO_LARGE,
            writeFile(f.h, 0xFFFFFFF0u, "0123456789abcdefg", 17, &done));
  // A failed write-back is reported; the changes stay pending and reach the
  // file with the volume.
  ASSERT_EQ(FAT_OK, createFile(root.h, "a.txt", g.out()));
  ASSERT_EQ(FAT_OK, writeFile(g.h, 0, "data", 4, &done));
  gp::HostOps ops = gp::hostOps();
  ops.pwrite = [](int, const void *, size_t, off_t) -> ssize_t {
    return errno = ENOSPC, -1;
  };
  {
    gp::ScopedHostOps failing(ops);
    EXPECT_EQ(FAT_ERR_IO, g.done());
  }
  EXPECT_EQ(FAT_OK, vol.done());
  std::string pending;
  ASSERT_TRUE(gp::test::mcopyOut(image, "a.txt", pending));
  EXPECT_EQ("data", pending);
  expectClean();
}

TEST_F(FatImageTest, FullDiskAndFullRootAreCleanErrors) {
  format();
  std::string big = pattern(1400 * 1024, 3);
  ASSERT_EQ(FAT_OK, putFile(root.h, "big.bin", big));
  uint64_t before = freeBytes(vol.h);
  EXPECT_EQ(FAT_ERR_DISK_FULL,
            putFile(root.h, "more.bin", pattern(before + 1, 4)));
  EXPECT_EQ(before, freeBytes(vol.h));  // nothing allocated by the failed write
  EXPECT_EQ(FAT_OK, putFile(root.h, "fits.bin", pattern(before, 5)));
  EXPECT_EQ(0u, freeBytes(vol.h));
  expectClean();
  EXPECT_EQ(big, getFile(root.h, "big.bin"));

  ASSERT_EQ(FAT_OK, reopen());
  for (int i = 3; i < 224; ++i) {
    ASSERT_EQ(FAT_OK, putFile(root.h, "f" + std::to_string(i) + ".txt", ""));
  }
  H f;
  EXPECT_EQ(FAT_ERR_DIR_FULL, createFile(root.h, "one.txt", f.out()));
  expectClean();
  EXPECT_EQ(224u, gp::test::mdirList(image).size());
}

// Hostile images: geometry, chains and sizes that cannot be trusted.
class HostileImageTest : public FatImageTest {
 protected:
  std::string bytes;
  void SetUp() override {
    format();
    ASSERT_EQ(FAT_OK,
              putFile(root.h, "three.bin", pattern(1500, 1)));  // 2, 3, 4
    root.done();
    vol.done();
    bytes = gp::test::readFile(image);
  }
  void put16(size_t off, uint16_t v) {
    bytes[off] = static_cast<char>(v);
    bytes[off + 1] = static_cast<char>(v >> 8);
  }
  void setFat(uint32_t cluster, uint32_t value) {  // in both copies
    for (size_t at : {512 + cluster * 3 / 2, 5120 + cluster * 3 / 2}) {
      auto *p = reinterpret_cast<uint8_t *>(&bytes[at]);
      uint32_t old = p[0] | p[1] << 8;
      put16(at,
            cluster & 1 ? (old & 0x000F) | value << 4 : (old & 0xF000) | value);
    }
  }
};

// Bad geometry is refused when the volume opens; broken chains and sizes
// when the file is read.
TEST_F(HostileImageTest, BadGeometryAndBrokenChainsAreRefused) {
  const std::string good = bytes;
  const size_t entry = 19 * 512;  // the file's directory entry
  const Error ok = FAT_OK, bad = FAT_ERR_BAD_IMAGE;
  const struct {
    const char *what;
    std::function<void()> mutate;
    Error open, file;
  } cases[] = {
      {"odd bytes per sector", [&] { put16(11, 513); }, bad, ok},
      {"zero sectors per cluster", [&] { bytes[13] = 0; }, bad, ok},
      {"no FAT", [&] { bytes[16] = 0; }, bad, ok},
      {"no root directory", [&] { put16(17, 0); }, FAT_ERR_UNSUPPORTED, ok},
      {"huge root directory", [&] { put16(17, 0xFFF0); }, bad, ok},
      {"more sectors than the file", [&] { put16(19, 0xFFFF); }, bad, ok},
      {"no data area", [&] { put16(19, 33); }, bad, ok},
      {"FAT too small", [&] { put16(22, 1); }, bad, ok},
      {"shorter than a sector", [&] { bytes.resize(100); }, bad, ok},
      {"FAT points outside", [&] { setFat(3, 0xF00); }, ok, bad},
      {"chain loops", [&] { setFat(4, 2); }, ok, bad},
      {"free cluster in chain", [&] { setFat(3, 0); }, ok, bad},
      {"size beyond chain", [&] { put16(entry + 28, 1537); }, ok, bad},
  };
  for (const auto &c : cases) {
    bytes = good;
    c.mutate();
    gp::test::writeFile(image, bytes);
    EXPECT_EQ(c.open, reopen(1)) << c.what;
    if (c.open == FAT_OK) {
      list(root.h);
      H f;
      EXPECT_EQ(c.file, openFile(root.h, "three.bin", f.out())) << c.what;
    }
  }
}

// A long name that says "../" is dropped for the short one; a short name
// with a slash shows '_' in its place.
TEST_F(HostileImageTest, NamesFromTheImageCarryNoPathSeparator) {
  ASSERT_EQ(FAT_OK, reopen());
  ASSERT_EQ(FAT_OK, putFile(root.h, "abc def", ""));  // slots 1 and 2
  root.done();
  ASSERT_EQ(FAT_OK, vol.done());
  bytes = gp::test::readFile(image);
  const size_t root0 = 19 * 512;
  bytes[root0 + 1] = '/';
  bytes[root0 + 32 + 1] = bytes[root0 + 32 + 3] = '.';
  bytes[root0 + 32 + 5] = '/';
  gp::test::writeFile(image, bytes);
  ASSERT_EQ(FAT_OK, reopen(0));
  auto ours = list(root.h);
  ASSERT_EQ(2u, ours.size());
  EXPECT_EQ("t_ree.bin", ours[0].name);
  EXPECT_EQ("ABCDEF~1", ours[1].name);
}

TEST_F(HostileImageTest, NothingIsWrittenPastTheVolume) {
  // A volume smaller than its file: bytes after it belong to someone else.
  put16(19, 1000);
  std::string trailer = pattern(1474560 - 1000 * 512, 8);
  bytes.replace(1000 * 512, std::string::npos, trailer);
  gp::test::writeFile(image, bytes);
  ASSERT_EQ(FAT_OK, reopen(1));
  EXPECT_EQ(FAT_ERR_DISK_FULL, putFile(root.h, "huge", pattern(600 * 1024, 2)));
  EXPECT_EQ(FAT_OK, putFile(root.h, "fits", pattern(400 * 1024, 2)));
  ASSERT_EQ(FAT_OK, vol.done());
  root.done();
  std::string after = gp::test::readFile(image);
  ASSERT_EQ(bytes.size(), after.size());
  EXPECT_EQ(trailer, after.substr(1000 * 512));
}

}  // namespace
