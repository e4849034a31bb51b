// The shared file helpers under short writes, interrupted calls and
// failures injected through the host seam.
#include "platform/hostio.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "support/fixtures.h"

namespace gp {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::TempDir;
using test::writeFile;

// Every other call is interrupted; the rest write at most three bytes.
int gCalls = 0;
bool interrupted() { return ++gCalls % 2 == 0 && (errno = EINTR); }
ssize_t stutteringWrite(int fd, const void *buf, size_t n) {
  return interrupted() ? -1 : realHostOps().write(fd, buf, n < 3 ? n : 3);
}
ssize_t stutteringPwrite(int fd, const void *buf, size_t n, off_t at) {
  return interrupted() ? -1 : realHostOps().pwrite(fd, buf, n < 3 ? n : 3, at);
}

TEST(HostIo, ShortAndInterruptedWritesCompleteAndNoProgressFails) {
  TempDir tmp;
  HostOps ops = realHostOps();
  ops.write = stutteringWrite;
  ops.pwrite = stutteringPwrite;
  const std::string text = "0123456789abcdefghij";
  {
    ScopedHostOps scoped(ops);
    UniqueFd w = openFile((tmp / "w").c_str(), O_CREAT | O_WRONLY, 0600);
    UniqueFd p = openFile((tmp / "p").c_str(), O_CREAT | O_WRONLY, 0600);
    ASSERT_TRUE(writeFull(w.get(), text.data(), text.size()));
    ASSERT_TRUE(pwriteFull(p.get(), text.data(), text.size(), 5));
  }
  EXPECT_EQ(text, readFile(tmp / "w"));
  EXPECT_EQ(std::string(5, '\0') + text, readFile(tmp / "p"));

  ops.write = [](int, const void *, size_t) -> ssize_t { return 0; };
  ScopedHostOps scoped(ops);
  UniqueFd fd = openFile((tmp / "w").c_str(), O_WRONLY, 0600);
  EXPECT_FALSE(writeFull(fd.get(), "x", 1));
  EXPECT_EQ(EIO, errno);
}

ssize_t fullDisk(int, const void *, size_t) { return errno = ENOSPC, -1; }
int crossDevice(const char *, const char *) { return errno = EXDEV, -1; }

TEST(HostIo, AtomicReplaceKeepsTheOriginalOnFailure) {
  TempDir tmp;
  const std::string target = tmp / "file";
  writeFile(target, "original");
  fs::permissions(target, fs::perms(0640));
  HostOps noSpace = realHostOps(), noRename = realHostOps();
  noSpace.write = fullDisk;
  noRename.rename = crossDevice;
  for (const HostOps &ops : {noSpace, noRename}) {
    ScopedHostOps scoped(ops);
    EXPECT_FALSE(replaceFileAtomically(target, "replacement"));
    EXPECT_EQ("original", readFile(target));
    EXPECT_EQ(1, std::distance(fs::directory_iterator(tmp.path()),
                               fs::directory_iterator()))
        << "temporary file left behind";
  }
  ASSERT_TRUE(replaceFileAtomically(target, "replacement"));
  EXPECT_EQ("replacement", readFile(target));
  EXPECT_EQ(fs::perms(0640),
            fs::status(target).permissions() & fs::perms::mask);
  // Through a link, the link stays and its target is rewritten.
  fs::create_symlink("file", tmp / "link");
  ASSERT_TRUE(replaceFileAtomically(tmp / "link", "new"));
  EXPECT_TRUE(fs::is_symlink(tmp / "link"));
  EXPECT_EQ("new", readFile(target));
}

TEST(HostIo, DirectoriesAndWholeFiles) {
  TempDir tmp;
  EXPECT_TRUE(makeDirectories(tmp / "a/b/c/") &&
              fs::is_directory(tmp / "a/b/c"));
  EXPECT_TRUE(makeDirectories(tmp / "a/b"));  // already there
  writeFile(tmp / "a/file", "12345");
  EXPECT_FALSE(makeDirectories(tmp / "a/file/d"));
  std::string out = "unchanged";
  EXPECT_FALSE(readWholeFile((tmp / "a/file").c_str(), out, 4));  // too big
  EXPECT_FALSE(readWholeFile((tmp / "a").c_str(), out));
  EXPECT_FALSE(readWholeFile((tmp / "missing").c_str(), out));
  EXPECT_EQ("unchanged", out);
  EXPECT_TRUE(readWholeFile((tmp / "a/file").c_str(), out));
  EXPECT_EQ("12345", out);
  EXPECT_EQ("dir/name", joinPath("dir/", "/name"));
}

}  // namespace
}  // namespace gp
