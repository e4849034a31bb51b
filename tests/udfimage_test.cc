#include "platform/udfimage.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "platform/hostio.h"
#include "support/fixtures.h"
#include "support/udf_fixtures.h"

namespace gp::udf {
namespace {

using test::FileTree;
namespace fs = std::filesystem;

struct ImageCloser {
  void operator()(UdfImage *image) const { close(image); }
};
using ImagePtr = std::unique_ptr<UdfImage, ImageCloser>;

ImagePtr openImage(const std::string &path) {
  return ImagePtr(open(path.c_str()));
}

// Reads a file of the image through the reader; "<absent>" when it fails.
std::string slurp(UdfImage *image, const std::string &dirPath,
                  const std::string &name) {
  Dir *dir = openDir(image, nullptr, dirPath.c_str());
  if (dir == nullptr) {
    return "<absent>";
  }
  std::string result = "<absent>";
  if (File *file = openFile(image, dir, name.c_str())) {
    char *data = nullptr;
    size_t length = 0;
    if (readFile(file, &data, &length)) {
      EXPECT_EQ(data[length], '\0');
      result.assign(data, length);
      std::free(data);
    }
    closeFile(file);
  }
  closeDir(dir);
  return result;
}

// Every file of the image below `path`, as the reader sees it.
void walk(UdfImage *image, const std::string &path, FileTree &out) {
  Dir *dir = openDir(image, nullptr, path.c_str());
  ASSERT_NE(dir, nullptr) << path;
  std::vector<std::string> names;
  while (const char *name = readDir(dir)) {
    names.emplace_back(name);
  }
  closeDir(dir);
  for (const std::string &name : names) {
    std::string full = path.empty() ? name : path + "/" + name;
    std::string contents = slurp(image, path, name);
    if (contents == "<absent>") {
      walk(image, full, out);
    } else {
      out[full] = contents;
    }
  }
}

// What 7-Zip extracts from the UDF side of the image.
FileTree sevenZipTree(const std::string &imagePath) {
  test::TempDir out;
  int rc =
      test::runCommand("7zz x -tudf -y -o" + test::shellQuote(out.path()) +
                       " " + test::shellQuote(imagePath) + " >/dev/null 2>&1");
  EXPECT_EQ(rc, 0);
  FileTree tree;
  for (const auto &e : fs::recursive_directory_iterator(out.path())) {
    if (e.is_regular_file()) {
      tree[fs::relative(e.path(), out.path()).string()] =
          test::readFile(e.path().string());
    }
  }
  return tree;
}

// Names and sizes only: the contents of big files would flood the log.
std::string describe(const FileTree &tree) {
  std::string out;
  for (const auto &[name, contents] : tree) {
    out += name + " (" + std::to_string(contents.size()) + ")\n";
  }
  return out;
}

std::string pattern(size_t size, unsigned seed) {
  std::string s(size, '\0');
  for (size_t i = 0; i < size; ++i) {
    seed = seed * 1103515245u + 12345u;
    s[i] = static_cast<char>(seed >> 16);
  }
  return s;
}

const FileTree &sampleTree() {
  static const FileTree tree = {
      {"README.TXT", "top level\r\n"},
      {"sources/product.ini", "[x]\r\nType=Client\r\n"},
      {"sources/Install_Windows 7 ULTIMATE.clg", "catalog"},
      {"sources/big.bin", pattern(3 * 2048 + 123, 7)},
      {"sources/exact.bin", pattern(2 * 2048, 9)},
      {"sources/empty.txt", ""},
      {"a/b/c/d/deep.txt", "deep\n"},
      {"names/Ünïcode.txt", "8-bit name"},
      {"names/日本語.txt", "16-bit name"},
      {"emptydir/", ""},
  };
  return tree;
}

// Both bridge writers record revision 1.02 (file entries with short
// descriptors), pycdlib too although it is asked for 2.60; the later
// revisions come from mkudffs below.
TEST(UdfImage, BridgeImageAgreesWithSevenZip) {
  std::string path = test::udfBridgeFromTree(sampleTree());
  ImagePtr image = openImage(path);
  ASSERT_NE(image, nullptr);
  FileTree seen;
  walk(image.get(), "", seen);
  FileTree expected = sampleTree();
  expected.erase("emptydir/");
  EXPECT_TRUE(seen == expected) << describe(seen);
  FileTree oracle = sevenZipTree(path);
  EXPECT_TRUE(seen == oracle) << describe(oracle);
}

TEST(UdfImage, PathsAndNameMatching) {
  ImagePtr image = openImage(test::udfBridgeFromTree(sampleTree()));
  ASSERT_NE(image, nullptr);
  UdfImage *img = image.get();
  // Root spellings, nested paths, caseless components, paths from a start.
  for (const char *root : {"", "/", "//"}) {
    Dir *dir = openDir(img, nullptr, root);
    ASSERT_NE(dir, nullptr) << root;
    EXPECT_TRUE(closeDir(dir));
  }
  EXPECT_EQ(slurp(img, "/a/b/c/d", "deep.txt"), "deep\n");
  EXPECT_EQ(slurp(img, "A/B/C/D", "DEEP.TXT"), "deep\n");
  EXPECT_EQ(slurp(img, "NAMES", "日本語.txt"), "16-bit name");
  EXPECT_EQ(slurp(img, "SOURCES", "install_windows 7 ultimate.clg"), "catalog");
  Dir *a = openDir(img, nullptr, "a");
  ASSERT_NE(a, nullptr);
  Dir *d = openDir(img, a, "b/c/d");
  ASSERT_NE(d, nullptr);
  EXPECT_STREQ(readDir(d), "deep.txt");
  EXPECT_EQ(readDir(d), nullptr);
  rewindDir(d);
  EXPECT_STREQ(readDir(d), "deep.txt");
  closeDir(d);
  closeDir(a);
  // Files are not directories and directories are not files.
  EXPECT_EQ(openDir(img, nullptr, "README.TXT"), nullptr);
  EXPECT_EQ(openDir(img, nullptr, "a/missing"), nullptr);
  EXPECT_EQ(slurp(img, "a", "b"), "<absent>");
  Dir *empty = openDir(img, nullptr, "emptydir");
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(readDir(empty), nullptr);
  closeDir(empty);
  EXPECT_FALSE(closeDir(nullptr));
}

TEST(UdfImage, PycdlibMixedCaseNamesPreferExactMatch) {
  FileTree tree = {{"MiXeD.txt", "mixed"},
                   {"Dir1/Sub/readme", "lower"},
                   {"Dir1/Sub/README", "upper"},
                   {"Dir1/empty", ""}};
  std::string path = test::pycdlibUdfFromTree(tree);
  ImagePtr image = openImage(path);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(slurp(image.get(), "", "mixed.TXT"), "mixed");
  EXPECT_EQ(slurp(image.get(), "dir1/sub", "readme"), "lower");
  EXPECT_EQ(slurp(image.get(), "DIR1/SUB", "README"), "upper");
  EXPECT_EQ(slurp(image.get(), "Dir1", "empty"), "");
  // pycdlib reads its own UDF paths back the same way.
  std::string out;
  ASSERT_EQ(
      test::runCommand("/usr/bin/python3 -c \"import io,pycdlib,sys;"
                       "i=pycdlib.PyCdlib();i.open(sys.argv[1]);b=io.BytesIO();"
                       "i.get_file_from_iso_fp(b,udf_path='/Dir1/Sub/README');"
                       "sys.stdout.write(b.getvalue().decode())\" " +
                           test::shellQuote(path),
                       &out),
      0);
  EXPECT_EQ(out, "upper");
}

TEST(UdfImage, MkudffsRevisionsAndBlockSizes) {
  struct Case {
    const char *revision;
    unsigned blockSize;
    const char *media;
  };
  // 2.00 and later use extended file entries; 512 and 4096 byte blocks are
  // what images of hard disks and some USB sticks carry. Write-once media
  // (cdr, bdr) get a virtual partition: the only layout this tool writes
  // for 2.50 and 2.60.
  for (Case c : {Case{"1.02", 2048, "hd"}, Case{"1.50", 2048, "hd"},
                 Case{"2.00", 2048, "hd"}, Case{"2.01", 2048, "hd"},
                 Case{"2.01", 512, "hd"}, Case{"1.50", 4096, "hd"},
                 Case{"1.50", 2048, "cdr"}, Case{"2.01", 2048, "cdr"},
                 Case{"2.50", 2048, "bdr"}, Case{"2.60", 2048, "bdr"}}) {
    SCOPED_TRACE(std::string(c.revision) + "/" + std::to_string(c.blockSize) +
                 "/" + c.media);
    ImagePtr image =
        openImage(test::mkudffsImage(c.revision, c.blockSize, c.media));
    ASSERT_NE(image, nullptr);
    Dir *root = openDir(image.get(), nullptr, "");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(readDir(root), nullptr);
    closeDir(root);
  }
}

TEST(UdfImage, NotUdf) {
  test::TempDir tmp;
  test::writeFile(tmp / "zeros", std::string(1 << 20, '\0'));
  EXPECT_EQ(open((tmp / "zeros").c_str()), nullptr);
  EXPECT_EQ(open((tmp / "missing").c_str()), nullptr);
  EXPECT_EQ(open(tmp.path().c_str()), nullptr);
  // A plain ISO 9660 image has no UDF descriptors.
  EXPECT_EQ(
      open(
          test::isoFromTree({{"A.TXT", "a"}}, test::IsoFlavor::Joliet).c_str()),
      nullptr);
}

TEST(UdfImage, ReadsGoThroughTheHostSeamOnDemand) {
  std::string path = test::udfBridgeFromTree(sampleTree());
  ImagePtr image = openImage(path);
  ASSERT_NE(image, nullptr);
  uint64_t afterOpen = bytesRead(image.get());
  EXPECT_LT(afterOpen, 64u * 1024);
  EXPECT_EQ(slurp(image.get(), "a/b/c/d", "deep.txt"), "deep\n");
  EXPECT_LT(bytesRead(image.get()) - afterOpen, 32u * 1024);

  // A failing read makes the file absent, not a crash.
  HostOps ops = hostOps();
  ops.pread = [](int, void *, size_t, off_t) -> ssize_t {
    errno = EIO;
    return -1;
  };
  ScopedHostOps failing(ops);
  EXPECT_EQ(slurp(image.get(), "sources", "big.bin"), "<absent>");
}

}  // namespace
}  // namespace gp::udf
