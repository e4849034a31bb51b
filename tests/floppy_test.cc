// File transfer between the host and floppy images, through the exported
// functions, with the image checked by fsck.fat and mtools.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "guestprep/autoinstall.h"
#include "platform/fatimage.h"
#include "platform/hostio.h"
#include "platform/log.h"
#include "support/fatcheck.h"
#include "support/fixtures.h"

namespace {

using namespace gp::test;
namespace fat = gp::fat;

std::string pattern(size_t n, unsigned seed) {
  std::string s(n, '\0');
  for (size_t i = 0; i < n; ++i) {
    s[i] = static_cast<char>((i * 7 + seed * 31 + i / 509) & 0xFF);
  }
  return s;
}

class FloppyTest : public ::testing::Test {
 protected:
  TempDir tmp;
  std::string image = tmp / "autoinst.flp";
  FatHandle vol = nullptr, root = nullptr;
  gp::LogCapture log;

  void SetUp() override {
    ASSERT_EQ(fat::FAT_OK,
              fat::formatVolume(nullptr, image.c_str(), 1, 1, &vol));
    ASSERT_EQ(fat::FAT_OK, fat::openRootDirectory(vol, &root));
  }
  void TearDown() override {
    closeImage();
    EXPECT_TRUE(log.lines().empty()) << log.text();  // never logs
  }
  void closeImage() {
    if (root) fat::close(root);
    if (vol) {
      EXPECT_EQ(fat::FAT_OK, fat::close(vol));
    }
    root = vol = nullptr;
  }
  std::string host(const std::string &name, const std::string &content) {
    writeFile(tmp / name, content);
    return tmp / name;
  }
  void expectOnImage(const std::string &name, const std::string &content) {
    std::string back, report;
    ASSERT_TRUE(mcopyOut(image, name, back)) << name;
    EXPECT_EQ(content, back) << name;
    EXPECT_TRUE(fsckClean(image, &report)) << report;
  }
};

// Empty, one full chunk, and many chunks and clusters: each arrives whole,
// and comes back whole; a shorter copy overwrites in place.
TEST_F(FloppyTest, CopiesFilesOfEverySizeBothWays) {
  for (size_t size : {0, 512, 513, 300000}) {
    std::string name = "f" + std::to_string(size) + ".bin";
    std::string content = pattern(size, static_cast<unsigned>(size));
    EXPECT_EQ(TRUE, AddFileToFloppyImg(root, host("in", content).c_str(),
                                       name.c_str()));
    expectOnImage(name, content);
    std::string out = tmp / "out";
    EXPECT_EQ(TRUE, GetFileFromFloppyImg(root, name.c_str(), out.c_str()));
    EXPECT_EQ(content, readFile(out)) << name;
  }
  auto listed = mdirList(image);
  ASSERT_EQ(4u, listed.size());
  EXPECT_EQ("0", listed[0].size);
  EXPECT_EQ("f0.bin", listed[0].shortName);
  std::string shorter = pattern(700, 2);
  ASSERT_EQ(TRUE, AddFileToFloppyImg(root, host("b", shorter).c_str(),
                                     "F300000.BIN"));
  expectOnImage("f300000.bin", shorter + pattern(300000, 300000).substr(700));
  EXPECT_EQ(4u, mdirList(image).size());
}

TEST_F(FloppyTest, RefusalsAndAFullDiskFailCleanly) {
  std::string out = tmp / "never";
  EXPECT_EQ(FALSE, GetFileFromFloppyImg(root, "absent.txt", out.c_str()));
  EXPECT_FALSE(fileExists(out));
  EXPECT_EQ(FALSE,
            AddFileToFloppyImg(root, (tmp / "no-such-file").c_str(), "x.txt"));
  EXPECT_TRUE(mdirList(image).empty());
  EXPECT_EQ(FALSE, GetFileFromFloppyImg(root, "x.txt", nullptr));
  EXPECT_EQ(FALSE,
            AddFileToFloppyImg(root, host("a", "x").c_str(), "bad/name"));

  // A full disk fails the copy and leaves the image clean.
  std::string big = host("big", pattern(1500 * 1024, 3));
  EXPECT_EQ(FALSE, AddFileToFloppyImg(root, big.c_str(), "big.bin"));
  EXPECT_EQ(0u, fat::freeBytes(root));
  closeImage();
  std::string report;
  EXPECT_TRUE(fsckClean(image, &report)) << report;
}

// A failed read of the source, write of the target, or write of the image
// fails the copy.
TEST_F(FloppyTest, HostFailuresFailTheCopy) {
  std::string src = host("src", pattern(5000, 4)), out = tmp / "out";
  gp::HostOps readFails = gp::hostOps(), writeFails = readFails,
              pwriteFails = readFails;
  readFails.read = [](int, void *, size_t) -> ssize_t {
    return errno = EIO, -1;
  };
  writeFails.write = [](int, const void *, size_t) -> ssize_t {
    return errno = ENOSPC, -1;
  };
  pwriteFails.pwrite = [](int, const void *, size_t, off_t) -> ssize_t {
    return errno = ENOSPC, -1;
  };
  {
    gp::ScopedHostOps failing(readFails);
    EXPECT_EQ(FALSE, AddFileToFloppyImg(root, src.c_str(), "a.bin"));
  }
  ASSERT_EQ(TRUE, AddFileToFloppyImg(root, src.c_str(), "a.bin"));
  {
    gp::ScopedHostOps failing(writeFails);
    EXPECT_EQ(FALSE, GetFileFromFloppyImg(root, "a.bin", out.c_str()));
  }
  gp::ScopedHostOps failing(pwriteFails);
  EXPECT_EQ(FALSE, AddFileToFloppyImg(root, src.c_str(), "b.bin"));
}

TEST_F(FloppyTest, AddsToTheWorkDirFloppy) {
  closeImage();
  std::string src = host("answer", "d-i debian-installer/locale string en\n");
  auto add = [&](const char *name, const std::string &dir) {
    return AutoInstall_AddFileToFloppyImg(src.c_str(), name, dir.c_str());
  };
  EXPECT_EQ(TRUE, add("preseed.cfg", tmp.path()));
  expectOnImage("preseed.cfg", readFile(src));
  EXPECT_EQ("preseed.cfg", mdirList(image)[0].shortName);
  // A floppy made by another tool takes files as well.
  std::remove(image.c_str());
  ASSERT_TRUE(mkfsFat12(image));
  EXPECT_EQ(TRUE, add("Long Name.cfg", tmp.path()));
  expectOnImage("Long Name.cfg", readFile(src));

  TempDir empty;
  EXPECT_EQ(FALSE, add("preseed.cfg", empty.path()));
  EXPECT_EQ(FALSE, AutoInstall_AddFileToFloppyImg(src.c_str(), "preseed.cfg",
                                                  nullptr));
  // Not a floppy image: refused, and left as it was.
  writeFile(empty / "autoinst.flp", "not an image");
  EXPECT_EQ(FALSE, add("preseed.cfg", empty.path()));
  EXPECT_EQ("not an image", readFile(empty / "autoinst.flp"));
}

TEST_F(FloppyTest, CommandLineMakesFillsListsAndReads) {
  closeImage();
  auto cli = [&](const std::string &args, std::string *out = nullptr) {
    return runCommand(std::string(GP_CLI) + " floppy " + args, out);
  };
  std::string q = shellQuote(tmp / "cli.flp"), out;
  ASSERT_EQ(0, cli("new " + q));
  ASSERT_EQ(0, cli("add " + q + " " + shellQuote(host("ks.cfg", "ks"))));
  ASSERT_EQ(0, cli("add " + q + " " + shellQuote(host("x", "12345")) +
                   " 'Read Me.txt'"));
  ASSERT_EQ(0, cli("ls " + q, &out));
  EXPECT_NE(std::string::npos, out.find("         2  ks.cfg\n")) << out;
  EXPECT_NE(std::string::npos, out.find("         5  Read Me.txt\n")) << out;
  std::string got = shellQuote(tmp / "got");
  ASSERT_EQ(0, cli("get " + q + " 'read me.txt' " + got));
  EXPECT_EQ("12345", readFile(tmp / "got"));
  EXPECT_NE(0, cli("get " + q + " nothing " + got + " 2>/dev/null"));
  EXPECT_NE(0, cli("ls " + shellQuote(tmp / "none") + " 2>/dev/null"));
}

}  // namespace
