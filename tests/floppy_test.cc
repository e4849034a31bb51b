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

class FloppyTest : public ::testing::Test {
 protected:
  TempDir tmp;
  std::string image = tmp / "autoinst.flp";
  FatHandle vol = nullptr, root = nullptr;
  gp::LogCapture log;

  void SetUp() override {
    ASSERT_EQ(fat::FAT_OK, fat::formatVolume(image.c_str(), 1, &vol));
    ASSERT_EQ(fat::FAT_OK, fat::openRootDirectory(vol, &root));
  }
  void TearDown() override {
    closeImage();
    EXPECT_TRUE(log.lines().empty()) << log.text();  // never logs
  }
  void closeImage() {
    if (root) fat::close(root);
    EXPECT_EQ(fat::FAT_OK, vol ? fat::close(vol) : fat::FAT_OK);
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

// Empty, exactly one chunk, and many chunks and clusters: each arrives and
// comes back whole; a shorter copy overwrites in place, under any case.
TEST_F(FloppyTest, CopiesFilesOfEverySizeBothWays) {
  for (size_t size : {0, 512, 300000}) {
    std::string name = "f" + std::to_string(size) + ".bin", out = tmp / "out";
    std::string content = pattern(size, static_cast<unsigned>(size));
    EXPECT_EQ(TRUE, AddFileToFloppyImg(root, host("in", content).c_str(),
                                       name.c_str()));
    expectOnImage(name, content);
    EXPECT_EQ(TRUE, GetFileFromFloppyImg(root, name.c_str(), out.c_str()));
    EXPECT_EQ(content, readFile(out)) << name;
  }
  std::string shorter = pattern(700, 2), b = host("b", shorter);
  ASSERT_EQ(TRUE, AddFileToFloppyImg(root, b.c_str(), "F300000.BIN"));
  expectOnImage("f300000.bin", shorter + pattern(300000, 300000).substr(700));
  EXPECT_EQ(3u, mdirList(image).size());
}

// Refusals create nothing; a full disk, a failed read of the source, write
// of the target or write of the image fails the copy and leaves it clean.
TEST_F(FloppyTest, RefusalsAndFailuresFailCleanly) {
  std::string out = tmp / "never", src = host("src", pattern(5000, 4));
  EXPECT_EQ(FALSE, GetFileFromFloppyImg(root, "absent.txt", out.c_str()));
  EXPECT_FALSE(fileExists(out));
  EXPECT_EQ(FALSE, AddFileToFloppyImg(root, (tmp / "none").c_str(), "x.txt"));
  EXPECT_EQ(FALSE, GetFileFromFloppyImg(root, "x.txt", nullptr));
  EXPECT_EQ(FALSE, AddFileToFloppyImg(root, src.c_str(), "bad/name"));
  EXPECT_TRUE(mdirList(image).empty());

  gp::HostOps readFails = gp::hostOps(), writeFails = readFails;
  readFails.read = [](int, void *, size_t) -> ssize_t {
    return errno = EIO, -1;
  };
  writeFails.write = [](int, const void *, size_t) -> ssize_t {
    return errno = ENOSPC, -1;
  };
  writeFails.pwrite = [](int, const void *, size_t, off_t) -> ssize_t {
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
    EXPECT_EQ(FALSE, AddFileToFloppyImg(root, src.c_str(), "b.bin"));
  }
  std::string big = host("big", pattern(1500 * 1024, 3));
  EXPECT_EQ(FALSE, AddFileToFloppyImg(root, big.c_str(), "big.bin"));
  EXPECT_EQ(0u, fat::freeBytes(root));
  closeImage();
  expectOnImage("a.bin", pattern(5000, 4));
}

TEST_F(FloppyTest, AddsToTheWorkDirFloppy) {
  closeImage();
  std::string src = host("answer", "d-i debian-installer/locale string en\n");
  auto add = [&](const char *name, const std::string &dir) {
    return AutoInstall_AddFileToFloppyImg(src.c_str(), name, dir.c_str());
  };
  EXPECT_EQ(TRUE, add("preseed.cfg", tmp.path()));
  expectOnImage("preseed.cfg", readFile(src));
  // A floppy made by another tool takes files as well.
  std::remove(image.c_str());
  ASSERT_TRUE(mkfsFat12(image));
  EXPECT_EQ(TRUE, add("Long Name.cfg", tmp.path()));
  expectOnImage("Long Name.cfg", readFile(src));

  TempDir empty;
  EXPECT_EQ(FALSE, add("preseed.cfg", empty.path()));
  EXPECT_EQ(FALSE, AutoInstall_AddFileToFloppyImg(src.c_str(), "preseed.cfg",
                                                  nullptr));
  writeFile(empty / "autoinst.flp", "not an image");
  EXPECT_EQ(FALSE, add("preseed.cfg", empty.path()));
  EXPECT_EQ("not an image", readFile(empty / "autoinst.flp"));
}

TEST_F(FloppyTest, CommandLineReachesTheLibrary) {
  std::string cli = std::string(GP_CLI) + " floppy ", out;
  std::string q = shellQuote(tmp / "cli.flp");
  ASSERT_EQ(0, runCommand(cli + "new " + q));
  ASSERT_EQ(0, runCommand(cli + "add " + q + " " +
                          shellQuote(host("x", "12345")) + " 'Read Me.txt'"));
  ASSERT_EQ(0, runCommand(cli + "ls " + q, &out));
  EXPECT_NE(std::string::npos, out.find("         5  Read Me.txt\n")) << out;
}

}  // namespace
