// The ISO 9660 reader against real images from the mastering tools, an
// independent reader, and images damaged on purpose.
#include "platform/isoimage.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "platform/hostio.h"
#include "platform/isoimage_records.h"
#include "support/fixtures.h"

namespace gp::iso {
namespace {

namespace fs = std::filesystem;
using test::IsoFlavor;
using test::TempDir;

std::string pattern(size_t size, char seed) {
  std::string s(size, '\0');
  for (size_t i = 0; i < size; ++i) {
    s[i] = static_cast<char>(seed + i % 23);
  }
  return s;
}

const test::FileTree &sampleTree() {
  static const test::FileTree tree = {
      {"README.TXT", "read me\n"},
      {"NOEXT", "no extension\n"},
      {"EMPTY.TXT", ""},
      {"EXACT.BIN", pattern(2048, 'a')},
      {"BIG.BIN", pattern(5000, 'A')},
      {"isolinux/isolinux.cfg", "default linux\n"},
      {"a/b/c/d/e/f/DEEP.TXT", "deep\n"},
      {"EMPTYDIR/", ""},
  };
  return tree;
}

struct ImageCloser {
  void operator()(IsoImage *image) const { iso::close(image); }
};
using ImagePtr = std::unique_ptr<IsoImage, ImageCloser>;

ImagePtr openImage(const std::string &path, uint32_t formats) {
  IsoImage *image = nullptr;
  EXPECT_EQ(iso::open(path.c_str(), formats, 0, &image), ISO_OK) << path;
  return ImagePtr(image);
}

std::string readAll(IsoImage *image, const Entry &entry, int *rc = nullptr) {
  File *file = nullptr;
  int result = openFile(image, &entry, &file);
  std::string data;
  while (result == ISO_OK) {
    char buffer[2048];
    size_t length = sizeof buffer;
    result = readFile(image, file, buffer, &length);
    if (result == ISO_OK) {
      data.append(buffer, length);
    }
  }
  closeFile(image, file);
  if (rc != nullptr) {
    *rc = result;
  }
  return data;
}

// Path -> contents of every file and directory ("/" suffix) the reader
// shows; bounded so a hostile image cannot keep it going.
int walk(IsoImage *image, const std::string &path,
         std::map<std::string, std::string> &out, int depth = 0) {
  Dir *dir = nullptr;
  int rc = openDir(image, path.c_str(), &dir);
  if (rc != ISO_OK) {
    return rc;
  }
  Entry entry;
  int failure = ISO_OK;  // the first error met below this directory
  while ((rc = readDir(image, dir, &entry)) == ISO_OK && out.size() < 500) {
    std::string child = path.empty() ? entry.name : path + "/" + entry.name;
    int childRc = ISO_END;
    if (entry.isDirectory) {
      out[child + "/"] = "";
      childRc = depth < 12 ? walk(image, child, out, depth + 1) : ISO_OK;
    } else {
      out[child] = readAll(image, entry, &childRc);
    }
    if (failure == ISO_OK && childRc != ISO_OK && childRc != ISO_END) {
      failure = childRc;
    }
  }
  closeDir(image, dir);
  if (rc != ISO_END && rc != ISO_OK) {
    return rc;
  }
  return failure;
}

std::map<std::string, std::string> hostTree(const std::string &root) {
  std::map<std::string, std::string> out;
  for (const auto &e : fs::recursive_directory_iterator(root)) {
    std::string rel = fs::relative(e.path(), root).string();
    if (e.is_directory()) {
      out[rel + "/"] = "";
    } else {
      out[rel] = test::readFile(e.path().string());
    }
  }
  return out;
}

// What xorriso extracts when it loads the given tree of the image.
std::map<std::string, std::string> xorrisoTree(const std::string &iso,
                                               const char *readFs) {
  TempDir out;
  std::string cmd = std::string("xorriso -read_fs ") + readFs +
                    " -ecma119_map stripped -indev " + test::shellQuote(iso) +
                    " -osirrox on -extract / " + test::shellQuote(out / "x") +
                    " >/dev/null 2>&1";
  EXPECT_EQ(test::runCommand(cmd), 0) << cmd;
  return hostTree(out / "x");
}

struct FlavorCase {
  IsoFlavor flavor;
  uint32_t formats;  // what listFormats must report
  uint32_t requested;
  uint32_t active;
  const char *readFs;  // xorriso's choice of the same tree
};

const FlavorCase kFlavors[] = {
    {IsoFlavor::Primary, FORMAT_ISO9660, 7, FORMAT_ISO9660, "ecma119"},
    {IsoFlavor::Joliet, FORMAT_ISO9660 | FORMAT_JOLIET, 7, FORMAT_JOLIET,
     "norock"},
    {IsoFlavor::RockRidge, FORMAT_ISO9660 | FORMAT_ROCKRIDGE, 7,
     FORMAT_ROCKRIDGE, "any"},
    {IsoFlavor::JolietRockRidge, 7, 7, FORMAT_ROCKRIDGE, "any"},
    {IsoFlavor::JolietRockRidge, 7, 3, FORMAT_JOLIET, "norock"},
    {IsoFlavor::JolietRockRidge, 7, 1, FORMAT_ISO9660, "ecma119"},
};

TEST(IsoImage, ListsAndReadsWhatAnIndependentReaderExtracts) {
  for (const FlavorCase &c : kFlavors) {
    std::string iso = test::isoFromTree(sampleTree(), c.flavor);
    SCOPED_TRACE(iso);
    EXPECT_EQ(listFormats(iso.c_str()), c.formats);
    ImagePtr image = openImage(iso, c.requested);
    ASSERT_TRUE(image);
    EXPECT_EQ(activeFormat(image.get()), c.active);
    std::map<std::string, std::string> ours;
    EXPECT_EQ(walk(image.get(), "", ours), ISO_OK);
    EXPECT_EQ(ours, xorrisoTree(iso, c.readFs));
    // Listing everything must not pull the file data in.
    ImagePtr fresh = openImage(iso, 7);
    std::map<std::string, std::string> names;
    Dir *dir = nullptr;
    ASSERT_EQ(openDir(fresh.get(), "/", &dir), ISO_OK);
    Entry entry;
    while (readDir(fresh.get(), dir, &entry) == ISO_OK) {
    }
    closeDir(fresh.get(), dir);
    EXPECT_LT(bytesRead(fresh.get()), 8u * 2048);
  }
}

TEST(IsoImage, ChoosesTheRichestRequestedFormatAndFallsBack) {
  std::string jrr = test::isoFromTree(sampleTree(), IsoFlavor::JolietRockRidge);
  std::string joliet = test::isoFromTree(sampleTree(), IsoFlavor::Joliet);
  struct {
    const std::string &iso;
    uint32_t requested;
    uint32_t active;
  } cases[] = {
      {jrr, 0, FORMAT_ISO9660},
      {joliet, 5, FORMAT_ISO9660},
      {joliet, 6, FORMAT_JOLIET},
  };
  for (const auto &c : cases) {
    ImagePtr image = openImage(c.iso, c.requested);
    ASSERT_TRUE(image);
    EXPECT_EQ(activeFormat(image.get()), c.active) << c.requested;
  }
  IsoImage *image = nullptr;
  EXPECT_EQ(iso::open(jrr.c_str(), 7, 1, &image), ISO_ERR_ARG);
  EXPECT_EQ(image, nullptr);
}

TEST(IsoImage, MatchesPathsExactlyAsTheFormatShowsNames) {
  std::string jrr = test::isoFromTree(sampleTree(), IsoFlavor::JolietRockRidge);
  struct {
    uint32_t formats;
    const char *found;
    const char *missing;
  } cases[] = {
      {FORMAT_ISO9660, "/ISOLINUX/", "isolinux"},
      {FORMAT_JOLIET, "isolinux", "ISOLINUX"},
      {FORMAT_ROCKRIDGE, "//isolinux", "ISOLINUX"},
  };
  for (const auto &c : cases) {
    ImagePtr image = openImage(jrr, c.formats);
    Dir *dir = nullptr;
    EXPECT_EQ(openDir(image.get(), c.found, &dir), ISO_OK) << c.found;
    closeDir(image.get(), dir);
    EXPECT_EQ(openDir(image.get(), c.missing, &dir), ISO_ERR_NOT_FOUND);
    EXPECT_EQ(dir, nullptr);
  }
  ImagePtr image = openImage(jrr, FORMAT_ISO9660);
  Dir *dir = nullptr;
  EXPECT_EQ(openDir(image.get(), "README.TXT", &dir), ISO_ERR_NOT_DIR);
  EXPECT_EQ(openDir(image.get(), "A/B/C/D/E/F", &dir), ISO_OK);
  Entry entry;
  ASSERT_EQ(readDir(image.get(), dir, &entry), ISO_OK);
  EXPECT_STREQ(entry.name, "DEEP.TXT");
  EXPECT_EQ(readDir(image.get(), dir, &entry), ISO_END);
  EXPECT_EQ(rewindDir(image.get(), dir), ISO_OK);
  ASSERT_EQ(readDir(image.get(), dir, &entry), ISO_OK);
  EXPECT_STREQ(entry.name, "DEEP.TXT");
  EXPECT_EQ(closeDir(image.get(), dir), ISO_OK);
}

// Root entries by name, from the primary tree of the plain image.
std::map<std::string, Entry> rootEntries(IsoImage *image) {
  std::map<std::string, Entry> out;
  Dir *dir = nullptr;
  EXPECT_EQ(openDir(image, "", &dir), ISO_OK);
  Entry entry;
  while (readDir(image, dir, &entry) == ISO_OK) {
    out[entry.name] = entry;
  }
  closeDir(image, dir);
  return out;
}

TEST(IsoImage, DeliversAtMostOneSectorPerRead) {
  std::string iso = test::isoFromTree(sampleTree(), IsoFlavor::Primary);
  ImagePtr image = openImage(iso, 7);
  auto entries = rootEntries(image.get());
  ASSERT_EQ(entries.count("BIG.BIN"), 1u);
  File *file = nullptr;
  ASSERT_EQ(openFile(image.get(), &entries["BIG.BIN"], &file), ISO_OK);
  std::vector<size_t> chunks;
  char buffer[4096];
  size_t length = sizeof buffer;
  while (readFile(image.get(), file, buffer, &length) == ISO_OK) {
    chunks.push_back(length);
    length = chunks.size() == 1 ? 1000 : sizeof buffer;
  }
  EXPECT_EQ(length, 0u);
  closeFile(image.get(), file);
  // A smaller buffer takes part of a sector; the next read ends there.
  EXPECT_EQ(chunks, (std::vector<size_t>{2048, 1000, 1048, 904}));

  int rc = ISO_OK;
  EXPECT_EQ(readAll(image.get(), entries["EXACT.BIN"], &rc),
            pattern(2048, 'a'));
  EXPECT_EQ(rc, ISO_END);
  EXPECT_EQ(readAll(image.get(), entries["EMPTY.TXT"], &rc), "");
  EXPECT_EQ(rc, ISO_END);
  EXPECT_EQ(openFile(image.get(), &entries["EMPTYDIR"], &file), ISO_ERR_IS_DIR);
}

TEST(IsoImage, VolumeIdWithoutPadding) {
  ImagePtr rr =
      openImage(test::isoFromTree(sampleTree(), IsoFlavor::RockRidge), 7);
  char *id = nullptr;
  ASSERT_EQ(volumeId(rr.get(), &id), ISO_OK);
  EXPECT_STREQ(id, "TESTVOL");
  std::free(id);
}

TEST(IsoImage, ExtractsFilesAndDirectories) {
  std::string iso = test::isoFromTree(sampleTree(), IsoFlavor::JolietRockRidge);
  ImagePtr image = openImage(iso, 7);
  TempDir out;
  EXPECT_EQ(extractFile(image.get(), "/BIG.BIN", (out / "big").c_str()),
            ISO_OK);
  EXPECT_EQ(test::readFile(out / "big"), pattern(5000, 'A'));
  EXPECT_EQ(extractFile(image.get(), "isolinux", (out / "x").c_str()),
            ISO_ERR_IS_DIR);
  EXPECT_EQ(extractFile(image.get(), "nothere", (out / "x").c_str()),
            ISO_ERR_NOT_FOUND);
  EXPECT_EQ(extractFile(image.get(), "README.TXT", (out / "no/such").c_str()),
            ISO_ERR_HOST);

  fs::create_directory(out / "root");
  EXPECT_EQ(extractDir(image.get(), "/", (out / "root").c_str()), ISO_OK);
  auto copied = hostTree(out / "root");
  EXPECT_EQ(copied.size(), 5u);  // the files, none of the directories
  EXPECT_EQ(copied["EXACT.BIN"], pattern(2048, 'a'));
  EXPECT_EQ(copied["EMPTY.TXT"], "");
  EXPECT_EQ(extractDir(image.get(), "/", (out / "missing").c_str()),
            ISO_ERR_HOST);
}

TEST(IsoImage, FailedExtractionKeepsTheOldFile) {
  std::string iso = test::isoFromTree(sampleTree(), IsoFlavor::RockRidge);
  ImagePtr image = openImage(iso, 7);
  TempDir out;
  test::writeFile(out / "big", "old");
  HostOps ops = hostOps();
  ops.write = [](int, const void *, size_t) -> ssize_t {
    errno = ENOSPC;
    return -1;
  };
  {
    ScopedHostOps scoped(ops);
    EXPECT_EQ(extractFile(image.get(), "BIG.BIN", (out / "big").c_str()),
              ISO_ERR_HOST);
  }
  EXPECT_EQ(test::readFile(out / "big"), "old");
  EXPECT_EQ(hostTree(out.path()).size(), 1u);  // no temporary left behind
}

// A copy of a real image with bytes changed, the way a damaged or hostile
// image would arrive.
class PatchedImage {
 public:
  explicit PatchedImage(const std::string &source)
      : bytes_(test::readFile(source)) {}

  // Offset of the directory record with this identifier in the primary
  // tree (Joliet names are UCS-2, so they never match).
  size_t record(const std::string &identifier) const {
    for (size_t pos = bytes_.find(identifier); pos != std::string::npos;
         pos = bytes_.find(identifier, pos + 1)) {
      // Volume sequence number 1 in both byte orders marks a real record.
      if (pos >= 33 &&
          static_cast<uint8_t>(bytes_[pos - 1]) == identifier.size() &&
          bytes_.compare(pos - 5, 4, std::string("\1\0\0\1", 4)) == 0) {
        return pos - 33;
      }
    }
    ADD_FAILURE() << "no record " << identifier;
    return 0;
  }
  uint32_t le32(size_t at) const {
    uint32_t v = 0;
    for (int i = 3; i >= 0; --i) {
      v = (v << 8) | static_cast<uint8_t>(bytes_[at + i]);
    }
    return v;
  }
  // Both-endian 32-bit field, as directory records store them.
  void setBoth32(size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) {
      bytes_[at + i] = static_cast<char>(v >> (8 * i));
      bytes_[at + 7 - i] = static_cast<char>(v >> (8 * i));
    }
  }
  void set8(size_t at, uint8_t v) { bytes_[at] = static_cast<char>(v); }
  void truncate(size_t size) { bytes_.resize(size); }
  size_t size() const { return bytes_.size(); }

  std::string write(const TempDir &dir, const std::string &name) const {
    std::string path = dir / name;
    test::writeFile(path, bytes_);
    return path;
  }

 private:
  std::string bytes_;
};

// Opens and walks a damaged image: each call must fail cleanly or give the
// original bytes, never anything else.
// Returns the walk's result, or open's when the image does not open.
int expectSafeWalk(const std::string &path, uint32_t formats = 7) {
  static const auto original = [] {
    std::map<std::string, std::string> tree;
    ImagePtr image =
        openImage(test::isoFromTree(sampleTree(), IsoFlavor::Primary), 7);
    walk(image.get(), "", tree);
    return tree;
  }();
  listFormats(path.c_str());
  IsoImage *raw = nullptr;
  int rc = iso::open(path.c_str(), formats, 0, &raw);
  if (rc != ISO_OK) {
    EXPECT_EQ(raw, nullptr);
    return rc;
  }
  ImagePtr image(raw);
  std::map<std::string, std::string> tree;
  rc = walk(image.get(), "", tree);
  for (const auto &[name, data] : tree) {
    auto it = original.find(name);
    if (it != original.end() && it->second != data) {
      // A file whose data was cut off reads short or not at all.
      EXPECT_TRUE(data.empty() || it->second.compare(0, data.size(), data) == 0)
          << name;
    }
  }
  char *id = nullptr;
  if (volumeId(image.get(), &id) == ISO_OK) {
    std::free(id);
  }
  return rc;
}

size_t openDescriptors() {
  return static_cast<size_t>(std::distance(
      fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

TEST(IsoImageHostile, TruncatedImagesFailCleanly) {
  size_t descriptors = openDescriptors();
  std::string iso = test::isoFromTree(sampleTree(), IsoFlavor::Primary);
  TempDir dir;
  PatchedImage image(iso);
  size_t full = image.size();
  for (size_t size : {size_t{0}, size_t{100}, size_t{16 * 2048},
                      size_t{17 * 2048 + 5}, full / 2, full - 2048, full - 1}) {
    SCOPED_TRACE(size);
    PatchedImage cut(iso);
    cut.truncate(size);
    std::string path = cut.write(dir, "cut.iso");
    if (size <= 16 * 2048) {
      EXPECT_EQ(listFormats(path.c_str()), 0u);
    }
    expectSafeWalk(path);
  }
  // The last sector holds BIG.BIN's tail: it cannot be opened any more.
  PatchedImage cut(iso);
  size_t big = cut.record("BIG.BIN;1");
  cut.truncate((cut.le32(big + 2) + 2) * 2048 + 10);
  ImagePtr opened = openImage(cut.write(dir, "short.iso"), 1);
  Entry entry = rootEntries(opened.get())["BIG.BIN"];
  File *file = nullptr;
  EXPECT_EQ(openFile(opened.get(), &entry, &file), ISO_ERR_FORMAT);
  EXPECT_EQ(file, nullptr);
  opened.reset();
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(IsoImageHostile, ImpossibleExtentsAndLengthsAreRefused) {
  std::string iso = test::isoFromTree(sampleTree(), IsoFlavor::Joliet);
  TempDir dir;
  constexpr int kAny = -1;
  struct Patch {
    const char *what;
    void (*apply)(PatchedImage &);
    int primaryResult;  // of walking the primary tree
  } patches[] = {
      {"file extent past the end",
       [](PatchedImage &p) {
         p.setBoth32(p.record("README.TXT;1") + 2, 0x7FFFFFFF);
       },
       ISO_ERR_FORMAT},
      {"file size past the end",
       [](PatchedImage &p) {
         p.setBoth32(p.record("BIG.BIN;1") + 10, 0xFFFFFFFF);
       },
       ISO_ERR_FORMAT},
      {"directory size past the end",
       [](PatchedImage &p) {
         p.setBoth32(p.record("ISOLINUX") + 10, 0xFFFFF800);
       },
       ISO_ERR_FORMAT},
      {"record length reaching into the next records",
       [](PatchedImage &p) { p.set8(p.record("README.TXT;1"), 0xFF); }, kAny},
      {"name longer than its record",
       [](PatchedImage &p) { p.set8(p.record("README.TXT;1") + 32, 0xF0); },
       ISO_ERR_FORMAT},
      {"record shorter than its fixed part",
       [](PatchedImage &p) { p.set8(p.record("NOEXT.;1"), 20); },
       ISO_ERR_FORMAT},
      {"root size zero",
       [](PatchedImage &p) { p.setBoth32(16 * 2048 + 156 + 10, 0); }, ISO_OK},
      {"root extent past the end",
       [](PatchedImage &p) { p.setBoth32(16 * 2048 + 156 + 2, 0xFFFFFFF0); },
       ISO_ERR_FORMAT},
  };
  for (const Patch &patch : patches) {
    SCOPED_TRACE(patch.what);
    PatchedImage image(iso);
    patch.apply(image);
    std::string path = image.write(dir, "bad.iso");
    int rc = expectSafeWalk(path, FORMAT_ISO9660);
    if (patch.primaryResult != kAny) {
      EXPECT_EQ(rc, patch.primaryResult);
    }
    // The Joliet tree does not share the damaged records.
    if (patch.primaryResult != ISO_OK &&
        std::strstr(patch.what, "root") == nullptr) {
      EXPECT_EQ(expectSafeWalk(path, 7), ISO_OK);
    }
  }
}

TEST(IsoImageHostile, DirectoryContainingItselfCannotHang) {
  std::string iso = test::isoFromTree(sampleTree(), IsoFlavor::Primary);
  TempDir dir;
  PatchedImage image(iso);
  uint32_t rootExtent = image.le32(16 * 2048 + 156 + 2);
  uint32_t rootSize = image.le32(16 * 2048 + 156 + 10);
  size_t a = image.record("A");
  image.setBoth32(a + 2, rootExtent);
  image.setBoth32(a + 10, rootSize);
  std::string path = image.write(dir, "loop.iso");
  expectSafeWalk(path);
  ImagePtr opened = openImage(path, 7);
  std::string deep;
  for (int i = 0; i < 200; ++i) {
    deep += "A/";
  }
  Dir *d = nullptr;
  EXPECT_EQ(openDir(opened.get(), "A/A/A/README.TXT", &d), ISO_ERR_NOT_DIR);
  EXPECT_EQ(openDir(opened.get(), deep.c_str(), &d), ISO_ERR_NOT_FOUND);
  EXPECT_EQ(d, nullptr);
  TempDir out;
  EXPECT_EQ(extractDir(opened.get(), "A/A", out.path().c_str()), ISO_OK);
  EXPECT_EQ(test::readFile(out / "README.TXT"), "read me\n");
}

TEST(IsoImage, JoinsTheExtentsOfAMultiExtentFile) {
  // Mastering tools split only files of 4 GiB and more; two neighbouring
  // files made into the parts of one give the same records.
  std::string iso = test::isoFromTree({{"AAAA.BIN", pattern(2048, 'a')},
                                       {"AAAB.BIN", pattern(100, 'b')},
                                       {"ZZZ.TXT", "after\n"}},
                                      IsoFlavor::Primary);
  TempDir dir;
  PatchedImage image(iso);
  size_t first = image.record("AAAA.BIN;1");
  image.set8(first + 25, 0x80);
  image.set8(image.record("AAAB.BIN;1") + 33 + 3, 'A');
  std::string path = image.write(dir, "multi.iso");
  ImagePtr opened = openImage(path, 7);
  std::map<std::string, std::string> ours;
  EXPECT_EQ(walk(opened.get(), "", ours), ISO_OK);
  EXPECT_EQ(ours, xorrisoTree(path, "ecma119"));
  EXPECT_EQ(ours["AAAA.BIN"], pattern(2048, 'a') + pattern(100, 'b'));
  EXPECT_EQ(ours.count("ZZZ.TXT"), 1u);
  EXPECT_EQ(extractFile(opened.get(), "AAAA.BIN", (dir / "out").c_str()),
            ISO_OK);
  EXPECT_EQ(test::readFile(dir / "out"), ours["AAAA.BIN"]);
  // A last part that never comes is a damaged directory.
  image.set8(image.record("AAAA.BIN;1") + 25, 0x80);
  expectSafeWalk(image.write(dir, "multi2.iso"));
}

TEST(IsoImage, RockRidgeNamesFromContinuationAreas) {
  // A long name does not fit in the record, so its NM entry moves to a
  // continuation area, possibly in pieces.
  const std::string longName = std::string(200, 'n') + ".Mixed Case";
  std::string iso =
      test::isoFromTree({{longName, "long\n"}, {"sub/" + longName, "deeper\n"}},
                        IsoFlavor::RockRidge);
  ImagePtr image = openImage(iso, FORMAT_ROCKRIDGE);
  std::map<std::string, std::string> ours;
  EXPECT_EQ(walk(image.get(), "", ours), ISO_OK);
  EXPECT_EQ(ours, xorrisoTree(iso, "any"));
  EXPECT_EQ(ours[longName], "long\n");
  TempDir out;
  EXPECT_EQ(extractFile(image.get(), ("sub/" + longName).c_str(),
                        (out / "x").c_str()),
            ISO_OK);
  EXPECT_EQ(test::readFile(out / "x"), "deeper\n");
}

TEST(IsoImage, FollowsRelocatedRockRidgeDirectories) {
  // genisoimage moves directories nested deeper than eight levels aside
  // and links them back into place.
  TempDir dir;
  std::string deep = "1/2/3/4/5/6/7/8/9/10";
  test::writeTree(dir / "tree",
                  {{deep + "/deep.txt", "bottom\n"}, {"top.txt", "top\n"}});
  std::string iso = dir / "deep.iso";
  ASSERT_EQ(
      test::runCommand("genisoimage -quiet -R -o " + test::shellQuote(iso) +
                       " " + test::shellQuote(dir / "tree") + " 2>/dev/null"),
      0);
  ImagePtr image = openImage(iso, 7);
  ASSERT_EQ(activeFormat(image.get()), FORMAT_ROCKRIDGE);
  std::map<std::string, std::string> ours;
  EXPECT_EQ(walk(image.get(), "", ours), ISO_OK);
  EXPECT_EQ(ours, xorrisoTree(iso, "any"));
  EXPECT_EQ(ours[deep + "/deep.txt"], "bottom\n");
}

TEST(IsoImageRecords, JolietNamesBecomeUtf8) {
  const uint8_t raw[] = {0x00, 'c',  0x00, 'a',  0x00, 'f', 0x00, 0xE9,
                         0xD8, 0x3D, 0xDE, 0x00, 0x00, ';', 0x00, '1'};
  std::string name;
  ASSERT_TRUE(rec::jolietName(rec::Bytes{raw, sizeof raw}, name));
  EXPECT_EQ(name, "caf\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_FALSE(rec::jolietName(rec::Bytes{raw, 3}, name));
}

}  // namespace
}  // namespace gp::iso
