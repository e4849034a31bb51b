// The shared file helpers under short writes, interrupted calls and
// failures injected through the host seam.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "platform/hostio.h"
#include "support/fixtures.h"

namespace gp {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::TempDir;
using test::writeFile;

size_t entriesIn(const std::string &dir) {
  return static_cast<size_t>(std::distance(fs::directory_iterator(dir),
                                           fs::directory_iterator()));
}

// Every other call is interrupted; the rest write at most three bytes.
int gCalls = 0;
ssize_t stutteringWrite(int fd, const void *buf, size_t n) {
  if (++gCalls % 2 == 0) {
    errno = EINTR;
    return -1;
  }
  return realHostOps().write(fd, buf, n < 3 ? n : 3);
}
ssize_t stutteringPwrite(int fd, const void *buf, size_t n, off_t off) {
  if (++gCalls % 2 == 0) {
    errno = EINTR;
    return -1;
  }
  return realHostOps().pwrite(fd, buf, n < 3 ? n : 3, off);
}

TEST(HostIo, ShortAndInterruptedWritesComplete) {
  TempDir tmp;
  HostOps ops = realHostOps();
  ops.write = stutteringWrite;
  ops.pwrite = stutteringPwrite;
  ScopedHostOps scoped(ops);
  const std::string text = "0123456789abcdefghij";
  {
    UniqueFd fd = openFile((tmp / "w").c_str(), O_CREAT | O_WRONLY, 0600);
    ASSERT_TRUE(writeFull(fd.get(), text.data(), text.size()));
  }
  {
    UniqueFd fd = openFile((tmp / "p").c_str(), O_CREAT | O_WRONLY, 0600);
    ASSERT_TRUE(pwriteFull(fd.get(), text.data(), text.size(), 5));
  }
  EXPECT_EQ(text, readFile(tmp / "w"));
  EXPECT_EQ(std::string(5, '\0') + text, readFile(tmp / "p"));
}

ssize_t zeroWrite(int, const void *, size_t) { return 0; }

TEST(HostIo, WriteThatMakesNoProgressFails) {
  TempDir tmp;
  HostOps ops = realHostOps();
  ops.write = zeroWrite;
  ScopedHostOps scoped(ops);
  UniqueFd fd = openFile((tmp / "w").c_str(), O_CREAT | O_WRONLY, 0600);
  EXPECT_FALSE(writeFull(fd.get(), "x", 1));
  EXPECT_EQ(EIO, errno);
}

ssize_t fullDisk(int, const void *, size_t) {
  errno = ENOSPC;
  return -1;
}
int failingRename(const char *, const char *) {
  errno = EXDEV;
  return -1;
}

TEST(HostIo, AtomicReplaceKeepsTheOriginalOnFailure) {
  TempDir tmp;
  const std::string target = tmp / "file";
  writeFile(target, "original");
  fs::permissions(target, fs::perms(0640));
  for (int failure = 0; failure < 2; ++failure) {
    HostOps ops = realHostOps();
    if (failure == 0) {
      ops.write = fullDisk;
    } else {
      ops.rename = failingRename;
    }
    ScopedHostOps scoped(ops);
    EXPECT_FALSE(replaceFileAtomically(target, "replacement"));
    EXPECT_EQ("original", readFile(target));
    EXPECT_EQ(1u, entriesIn(tmp.path())) << "temporary file left behind";
  }
  ASSERT_TRUE(replaceFileAtomically(target, "replacement"));
  EXPECT_EQ("replacement", readFile(target));
  EXPECT_EQ(fs::perms(0640), fs::status(target).permissions() & fs::perms::mask);
}

TEST(HostIo, AtomicReplaceThroughALinkRewritesItsTarget) {
  TempDir tmp;
  writeFile(tmp / "real", "old");
  fs::create_symlink("real", tmp / "link");
  ASSERT_TRUE(replaceFileAtomically(tmp / "link", "new"));
  EXPECT_TRUE(fs::is_symlink(tmp / "link"));
  EXPECT_EQ("new", readFile(tmp / "real"));
}

TEST(HostIo, DirectoriesAndWholeFiles) {
  TempDir tmp;
  EXPECT_TRUE(makeDirectories(tmp / "a/b/c/"));
  EXPECT_TRUE(fs::is_directory(tmp / "a/b/c"));
  EXPECT_TRUE(makeDirectories(tmp / "a/b"));  // already there
  writeFile(tmp / "a/file", "12345");
  EXPECT_FALSE(makeDirectories(tmp / "a/file/d"));
  EXPECT_FALSE(makeDirectories(""));

  std::string out = "unchanged";
  EXPECT_TRUE(readWholeFile((tmp / "a/file").c_str(), out));
  EXPECT_EQ("12345", out);
  out = "unchanged";
  EXPECT_FALSE(readWholeFile((tmp / "a/file").c_str(), out, 4));
  EXPECT_FALSE(readWholeFile((tmp / "a").c_str(), out));
  EXPECT_FALSE(readWholeFile((tmp / "missing").c_str(), out));
  EXPECT_EQ("unchanged", out);

  EXPECT_EQ("dir/name", joinPath("dir", "name"));
  EXPECT_EQ("dir/name", joinPath("dir/", "/name"));
  EXPECT_EQ("name", joinPath("", "name"));
}

}  // namespace
}  // namespace gp
