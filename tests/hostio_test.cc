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

std::string makeFifo(const TempDir &tmp) {
  std::string fifo = tmp / "fifo";
  EXPECT_EQ(0, mkfifo(fifo.c_str(), 0600));
  return fifo;
}

// Kinds of file that open() takes without waiting, even in blocking mode;
// the commands below show that nothing waits on a FIFO.
TEST(HostIo, UntrustedPathsThatAreNoFilesAreRefused) {
  TempDir tmp;
  const std::string fifo = makeFifo(tmp);
  const struct {
    std::string path;
    int flags;
  } cases[] = {
      {fifo, O_RDWR},
      {"/dev/null", O_RDONLY},
      {"/dev/zero", O_RDWR},
      {tmp.path(), O_RDONLY},
  };
  for (const auto &c : cases) {
    errno = 0;
    UniqueFd fd = openUntrustedFile(c.path.c_str(), c.flags);
    EXPECT_FALSE(fd.valid()) << c.path;
    EXPECT_EQ(EINVAL, errno) << c.path;
  }
  // A regular file is handed back in blocking mode, with its status.
  writeFile(tmp / "file", "12345");
  struct stat st;
  UniqueFd fd = openUntrustedFile((tmp / "file").c_str(), O_RDONLY, 0, &st);
  ASSERT_TRUE(fd.valid());
  EXPECT_EQ(5, st.st_size);
  EXPECT_EQ(0, ::fcntl(fd.get(), F_GETFL) & O_NONBLOCK);
}

// Every command that opens a file the user names comes back at once, with a
// failure, when that file is a FIFO nobody writes into.
TEST(HostIo, CommandsGiveUpOnAFifoAtOnce) {
  TempDir tmp;
  const std::string fifo = makeFifo(tmp);
  const std::string floppy = tmp / "floppy.img";
  const std::string cli = std::string(GP_CLI) + " ";
  ASSERT_EQ(0,
            test::runCommand(cli + "floppy new " + test::shellQuote(floppy)));
  writeFile(tmp / "a.txt", "a");
  ASSERT_EQ(0, test::runCommand(cli + "floppy add " + test::shellQuote(floppy) +
                                " " + test::shellQuote(tmp / "a.txt")));
  const std::string f = test::shellQuote(fifo);
  const std::string img = test::shellQuote(floppy);
  for (const std::string &args :
       {"identify " + f, "floppy ls " + f, "ini get " + f + " s k",
        "ini set " + f + " s k v", "floppy add " + img + " " + f + " B.TXT",
        "floppy get " + img + " A.TXT " + f,
        "tools-status --host " + f + " --guest " + f}) {
    int status = test::runCommand("timeout 5 " + cli + args + " 2>/dev/null");
    EXPECT_NE(0, status) << args;
    EXPECT_NE(124, status) << args << ": still waiting after 5 s";
  }
}

// The target as the seam reports it: another owner, or another group.
int gUidShift, gGidShift;
int shiftedStat(const char *path, struct stat *st) {
  int rc = realHostOps().stat(path, st);
  st->st_uid += static_cast<uid_t>(gUidShift);
  st->st_gid += static_cast<gid_t>(gGidShift);
  return rc;
}

TEST(HostIo, AtomicReplaceRefusesToTakeAnotherOwnersFile) {
  TempDir tmp;
  const std::string target = tmp / "file";
  const struct {
    int uidShift, gidShift;
    bool replaced;
  } cases[] = {
      {1, 0, false},  // another owner's file would become ours
      {1, 1, false},
      {0, 1, true},  // our own file, in a group we are not in
  };
  HostOps ops = realHostOps();
  ops.stat = shiftedStat;
  ops.fchown = [](int, uid_t, gid_t) { return errno = EPERM, -1; };
  for (const auto &c : cases) {
    writeFile(target, "original");
    gUidShift = c.uidShift;
    gGidShift = c.gidShift;
    {
      ScopedHostOps scoped(ops);
      EXPECT_EQ(c.replaced, replaceFileAtomically(target, "replacement"));
    }
    EXPECT_EQ(c.replaced ? "replacement" : "original", readFile(target));
    EXPECT_EQ(1, std::distance(fs::directory_iterator(tmp.path()),
                               fs::directory_iterator()))
        << "temporary file left behind";
  }
  // A replacement that is never committed leaves nothing behind.
  {
    FileReplacement dropped;
    ASSERT_TRUE(dropped.begin(target));
    EXPECT_TRUE(writeFull(dropped.fd(), "x", 1));
  }
  EXPECT_EQ("replacement", readFile(target));
  EXPECT_EQ(1, std::distance(fs::directory_iterator(tmp.path()),
                             fs::directory_iterator()));
}

}  // namespace
}  // namespace gp
