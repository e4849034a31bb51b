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
#include "support/hostile_iso.h"

namespace gp::iso {
namespace {

namespace fs = std::filesystem;
using test::IsoFlavor;
using test::TempDir;
using Tree = std::map<std::string, std::string>;  // path ("/" ends a dir)

std::string pattern(size_t size, char seed) {
  std::string s;
  for (size_t i = 0; i < size; ++i) s += static_cast<char>(seed + i % 23);
  return s;
}

std::string sampleIso(IsoFlavor flavor) {
  return test::isoFromTree({{"README.TXT", "read me\n"},
                            {"NOEXT", "no extension\n"},
                            {"EMPTY.TXT", ""},
                            {"EXACT.BIN", pattern(2048, 'a')},
                            {"BIG.BIN", pattern(5000, 'A')},
                            {"isolinux/isolinux.cfg", "linux\n"},
                            {"a/b/c/d/e/f/DEEP.TXT", "deep\n"},
                            {"EMPTYDIR/", ""}},
                           flavor);
}

using ImagePtr = std::unique_ptr<IsoImage, void (*)(IsoImage *)>;

ImagePtr openImage(const std::string &path, uint32_t formats) {
  IsoImage *image = nullptr;
  EXPECT_EQ(iso::open(path.c_str(), formats, 0, &image), ISO_OK) << path;
  return ImagePtr(image, iso::close);
}

std::map<std::string, Entry> rootEntries(IsoImage *image) {
  std::map<std::string, Entry> out;
  Dir *dir = nullptr;
  EXPECT_EQ(openDir(image, "", &dir), ISO_OK);
  Entry entry;
  while (readDir(image, dir, &entry) == ISO_OK) out[entry.name] = entry;
  closeDir(image, dir);
  return out;
}

// Every file and directory the reader shows, bounded so a hostile image
// cannot keep it going; returns the first error met. Files are read into
// buffers of changing size, and no read may deliver more than a sector.
int walk(IsoImage *image, const std::string &path, Tree &out, int depth = 0) {
  Dir *dir = nullptr;
  int rc = openDir(image, path.c_str(), &dir), failure = ISO_OK;
  Entry e;
  while (rc == ISO_OK && (rc = readDir(image, dir, &e)) == ISO_OK &&
         out.size() < 500) {
    std::string child = path.empty() ? e.name : path + "/" + e.name;
    int childRc = ISO_OK;
    if (e.isDirectory) {
      out[child + "/"] = "";
      if (depth < 12) childRc = walk(image, child, out, depth + 1);
    } else {
      File *file = nullptr;
      char buffer[4096];
      std::string &data = out[child];
      childRc = openFile(image, &e, &file);
      while (childRc == ISO_OK) {
        size_t length = data.size() % 3 == 0 ? sizeof buffer : 1000;
        childRc = readFile(image, file, buffer, &length);
        if (childRc == ISO_OK) {
          EXPECT_LE(length, 2048u) << child;
          data.append(buffer, length);
        }
      }
      closeFile(image, file);
    }
    if (failure == ISO_OK && childRc != ISO_END) failure = childRc;
  }
  closeDir(image, dir);
  return rc != ISO_END && rc != ISO_OK ? rc : failure;
}

Tree hostTree(const std::string &root) {
  Tree out;
  for (const auto &e : fs::recursive_directory_iterator(root)) {
    std::string rel = fs::relative(e.path(), root).string();
    bool isDir = e.is_directory();
    out[isDir ? rel + "/" : rel] = isDir ? "" : test::readFile(e.path());
  }
  return out;
}

// What xorriso extracts when it loads the given tree of the image.
Tree xorrisoTree(const std::string &iso, const char *readFs) {
  TempDir out;
  std::string cmd = "xorriso -read_fs " + std::string(readFs) +
                    " -ecma119_map stripped -indev " + test::shellQuote(iso) +
                    " -osirrox on -extract / " + test::shellQuote(out / "x");
  EXPECT_EQ(test::runCommand(cmd + " >/dev/null 2>&1"), 0) << cmd;
  return hostTree(out / "x");
}

// A real image with bytes changed, as a damaged or hostile one arrives.
struct Patched {
  std::string bytes;

  // The directory record of this identifier in the primary tree, found by
  // the volume sequence number 1 (both byte orders) and the name's length
  // before it; null: the root's. Joliet names never match.
  size_t record(const char *id) const {
    if (id == nullptr) return 16 * 2048 + 156;
    size_t pos = bytes.find(std::string("\1\0\0\1", 4) +
                            static_cast<char>(std::strlen(id)) + id);
    if (pos == std::string::npos) ADD_FAILURE() << "no record " << id;
    return pos == std::string::npos ? 0 : pos - 28;
  }
  // A both-endian 32-bit field, as directory records store them.
  void setBoth32(size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i)
      bytes[at + i] = bytes[at + 7 - i] = static_cast<char>(v >> 8 * i);
  }
  std::string write(const TempDir &dir) const {
    test::writeFile(dir / "patched.iso", bytes);
    return dir / "patched.iso";
  }
};

// Mastering tools split only files of 4 GiB and more; two neighbouring
// files made into the parts of one give the same records.
Patched multiExtent() {
  Patched image{test::readFile(test::isoFromTree(
      {{"AAAA.BIN", pattern(2048, 'a')}, {"AAAB.BIN", pattern(100, 'b')}},
      IsoFlavor::Primary))};
  image.bytes[image.record("AAAA.BIN;1") + 25] = '\x80';  // more parts follow
  image.bytes[image.record("AAAB.BIN;1") + 33 + 3] = 'A';
  return image;
}

TEST(IsoImage, ListsAndReadsWhatAnIndependentReaderExtracts) {
  TempDir dir;
  // genisoimage moves directories nested deeper than eight levels aside and
  // links them back into place.
  const std::string deep = "1/2/3/4/5/6/7/8/9/10";
  test::writeTree(dir / "tree", {{deep + "/deep.txt", "bottom\n"}});
  const std::string relocated = dir / "deep.iso";
  ASSERT_EQ(test::runCommand("genisoimage -quiet -R -o " +
                             test::shellQuote(relocated) + " " +
                             test::shellQuote(dir / "tree") + " 2>/dev/null"),
            0);
  // A long name's NM entry moves to a continuation area, maybe in pieces.
  const std::string longName = std::string(200, 'n') + ".Mixed Case";
  const std::string named =
      test::isoFromTree({{longName, "long\n"}, {"sub/" + longName, "deeper\n"}},
                        IsoFlavor::RockRidge);
  const std::string jrr = sampleIso(IsoFlavor::JolietRockRidge);
  // The richest requested format present wins, else primary names; paths
  // match names exactly as that format shows them.
  constexpr uint32_t P = FORMAT_ISO9660, J = FORMAT_JOLIET,
                     R = FORMAT_ROCKRIDGE;
  // formats: what listFormats must report; readFs: xorriso's same choice.
  // clang-format off
  const struct { std::string iso; uint32_t formats, requested, active; const char *readFs; std::string found, missing; } cases[] = {
      {sampleIso(IsoFlavor::Primary), P, 7, P, "ecma119", "/ISOLINUX/", "isolinux"},
      {sampleIso(IsoFlavor::Joliet), P | J, 5, P, "ecma119", "ISOLINUX", "isolinux"},
      {jrr, 7, 7, R, "any", "isolinux/", "ISOLINUX"},
      {jrr, 7, 3, J, "norock", "/isolinux", "ISOLINUX"},
      {relocated, P | R, 7, R, "any", deep, "rr_moved/8"},
      {named, P | R, 4, R, "any", "sub", "SUB"},
      {multiExtent().write(dir), P, 7, P, "ecma119", "/", "AAAB.BIN"},
  };  // clang-format on
  for (const auto &c : cases) {
    SCOPED_TRACE(c.iso + " " + std::to_string(c.requested));
    EXPECT_EQ(listFormats(c.iso.c_str()), c.formats);
    ImagePtr image = openImage(c.iso, c.requested);
    ASSERT_TRUE(image);
    EXPECT_EQ(activeFormat(image.get()), c.active);
    rootEntries(image.get());
    EXPECT_LT(bytesRead(image.get()), 8u * 2048) << "listing read file data";
    Tree ours;
    EXPECT_EQ(walk(image.get(), "", ours), ISO_OK);
    EXPECT_EQ(ours, xorrisoTree(c.iso, c.readFs));
    Dir *d = nullptr;
    EXPECT_EQ(openDir(image.get(), c.found.c_str(), &d), ISO_OK);
    closeDir(image.get(), d);
    EXPECT_EQ(openDir(image.get(), c.missing.c_str(), &d), ISO_ERR_NOT_FOUND);
    EXPECT_EQ(d, nullptr);
    // Extracting the root copies its files, none of its directories.
    TempDir out;
    EXPECT_EQ(extractDir(image.get(), "/", out.path().c_str()), ISO_OK);
    for (auto it = ours.begin(); it != ours.end();)
      it = it->first.find('/') == std::string::npos ? ++it : ours.erase(it);
    EXPECT_EQ(hostTree(out.path()), ours);
  }
}

ssize_t fullDisk(int, const void *, size_t) { return errno = ENOSPC, -1; }

TEST(IsoImage, ExtractsAndKeepsTheOldFileWhenWritingFails) {
  ImagePtr image = openImage(sampleIso(IsoFlavor::JolietRockRidge), 7);
  Dir *dir = nullptr;
  EXPECT_EQ(openDir(image.get(), "README.TXT", &dir), ISO_ERR_NOT_DIR);
  char *id = nullptr;
  ASSERT_EQ(volumeId(image.get(), &id), ISO_OK);
  EXPECT_STREQ(id, "TESTVOL");  // without the blanks that pad it
  std::free(id);

  TempDir out;
  auto extract = [&](const char *from, const std::string &to) {
    return extractFile(image.get(), from, to.c_str());
  };
  EXPECT_EQ(extract("/BIG.BIN", out / "big"), ISO_OK);
  EXPECT_EQ(extract("isolinux", out / "x"), ISO_ERR_IS_DIR);
  EXPECT_EQ(extract("README.TXT", out / "no/such"), ISO_ERR_HOST);
  EXPECT_EQ(extractDir(image.get(), "/", (out / "none").c_str()), ISO_ERR_HOST);
  HostOps ops = hostOps();
  ops.write = fullDisk;
  ScopedHostOps scoped(ops);
  EXPECT_EQ(extract("README.TXT", out / "big"), ISO_ERR_HOST);
  // The old file stays whole, and no temporary is left behind.
  EXPECT_EQ(hostTree(out.path()), (Tree{{"big", pattern(5000, 'A')}}));
}

// Opens and walks a damaged image: every call must fail cleanly or give the
// original bytes (or a prefix of them), never anything else. Returns the
// walk's result, or open's when the image does not open.
int expectSafeWalk(const std::string &path, uint32_t formats = 7) {
  static const Tree original = [] {
    Tree tree;
    walk(openImage(sampleIso(IsoFlavor::Primary), 7).get(), "", tree);
    return tree;
  }();
  IsoImage *raw = nullptr;
  int rc = iso::open(path.c_str(), formats, 0, &raw);
  ImagePtr image(raw, iso::close);
  if (rc != ISO_OK) {
    EXPECT_EQ(raw, nullptr);
    return rc;
  }
  Tree tree;
  rc = walk(image.get(), "", tree);
  for (const auto &[name, data] : tree) {
    auto it = original.find(name);
    EXPECT_TRUE(it == original.end() ||
                it->second.compare(0, data.size(), data) == 0)
        << name;
  }
  return rc;
}

TEST(IsoImageHostile, DamagedImagesFailCleanly) {
  auto descriptors = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), {});
  };
  const auto openAtStart = descriptors();
  const std::string iso = sampleIso(IsoFlavor::Joliet);
  auto entries = rootEntries(openImage(iso, FORMAT_ISO9660).get());
  // Records patched in the primary tree, which the Joliet tree does not
  // share; kAny where either refusing or reading past the damage is right.
  constexpr int kAny = -1;
  // A null record: the root's. A width of 1, 8 (a both-endian 32-bit
  // field), or 0: cut the image to `value`.
  const std::string bytes = test::readFile(iso);
  const auto bigTail = bytes.size() - entries["BIG.BIN"].extent * 2048;
  // clang-format off
  const struct { const char *what, *record; size_t field; int width; uint32_t value; int primaryResult; } patches[] = {
      {"cut in the descriptors", nullptr, 0, 0, 33000, ISO_ERR_FORMAT},
      {"file extent", "README.TXT;1", 2, 8, 0x7FFFFFFF, ISO_ERR_FORMAT},
      {"file one byte past the end", "BIG.BIN;1", 10, 8, uint32_t(bigTail + 1), ISO_ERR_FORMAT},
      {"directory size", "ISOLINUX", 10, 8, 0xFFFFF800, ISO_ERR_FORMAT},
      {"record past its neighbours", "README.TXT;1", 0, 1, 0xFF, kAny},
      {"name past its record", "README.TXT;1", 32, 1, 0xF0, ISO_ERR_FORMAT},
      {"record under its fixed part", "NOEXT.;1", 0, 1, 20, ISO_ERR_FORMAT},
      {"root size zero", nullptr, 10, 8, 0, ISO_OK},
      {"root extent", nullptr, 2, 8, 0xFFFFFFF0, ISO_ERR_FORMAT},
      {"file part, then another", "BIG.BIN;1", 25, 1, 0x80, ISO_ERR_FORMAT},
      {"file part, then none", "README.TXT;1", 25, 1, 0x80, ISO_ERR_FORMAT},
      // Last, so that the loop can be checked below.
      {"A/B made to point back at A", "B", 2, 8, entries["A"].extent, kAny},
  };  // clang-format on
  TempDir dir;
  std::string path;
  for (const auto &p : patches) {
    SCOPED_TRACE(p.what);
    Patched image{bytes};
    size_t at = image.record(p.record) + p.field;
    if (p.width == 0) image.bytes.resize(p.value);
    if (p.width == 1) image.bytes[at] = static_cast<char>(p.value);
    if (p.width == 8) image.setBoth32(at, p.value);
    path = image.write(dir);
    int rc = expectSafeWalk(path, FORMAT_ISO9660);
    EXPECT_EQ(rc, p.primaryResult == kAny ? rc : p.primaryResult);
    if (p.primaryResult != ISO_OK && p.record != nullptr) {
      EXPECT_EQ(expectSafeWalk(path, 7), ISO_OK);
    }
  }
  // A path that goes round the loop too often is refused.
  ImagePtr opened = openImage(path, FORMAT_ISO9660);
  std::string deep = "A";
  for (int i = 0; i < 200; ++i) deep += "/B";
  Dir *d = nullptr;
  EXPECT_EQ(openDir(opened.get(), "A/B/B/B/B/B", &d), ISO_OK);
  closeDir(opened.get(), d);
  EXPECT_EQ(openDir(opened.get(), deep.c_str(), &d), ISO_ERR_NOT_FOUND);
  EXPECT_EQ(d, nullptr);
  opened.reset();
  EXPECT_EQ(descriptors(), openAtStart);
}

// Images that once made every listing and lookup redo the same work: each
// byte is now read about once, and a listing that would pass the open's
// budget ends with ISO_ERR_BUDGET instead of running on.
TEST(IsoImageHostile, RepeatedWalksDoNotRepeatTheWork) {
  TempDir dir;
  const struct {
    const char *what;
    test::HostileIso shape;
    size_t listed;  // 0: cut short by the budget
  } cases[] = {
      {"100 records, self-continuing 64 KiB areas", {100, 65536}, 100},
      {"1000 records, self-continuing 64 KiB areas", {1000, 65536}, 0},
      {"100,000 records", {100000, 0}, 100000},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    const std::string path = dir / "hostile.iso";
    ASSERT_TRUE(test::writeHostileIso(path, c.shape));
    ASSERT_EQ(listFormats(path.c_str()),
              uint32_t{FORMAT_ISO9660 | FORMAT_ROCKRIDGE});
    ImagePtr image = openImage(path, FORMAT_ROCKRIDGE);
    Dir *root = nullptr;
    ASSERT_EQ(openDir(image.get(), "/", &root), ISO_OK);
    for (int pass = 0; pass < 2; ++pass, rewindDir(image.get(), root)) {
      Entry entry;
      size_t listed = 0;
      Result rc;
      while ((rc = readDir(image.get(), root, &entry)) == ISO_OK) ++listed;
      EXPECT_EQ(rc, c.listed != 0 ? ISO_END : ISO_ERR_BUDGET);
      if (c.listed != 0) {
        EXPECT_EQ(listed, c.listed);
      }
    }
    closeDir(image.get(), root);
    // Lookups the way identification makes them, each name in turn.
    for (int i = 0; i < 50; ++i) {
      Entry entry;
      Result rc = findEntryCaseless(image.get(), "", "F0000042", &entry);
      EXPECT_EQ(rc, c.listed != 0 ? ISO_OK : ISO_ERR_BUDGET);
      if (rc == ISO_OK) {
        EXPECT_STREQ(entry.name, "f0000042");
      }
      EXPECT_NE(findEntryCaseless(image.get(), "", "missing", &entry), ISO_OK);
    }
    // Paths match exactly, through the same index.
    const std::string out = dir / "out";
    EXPECT_EQ(extractFile(image.get(), "f0000042", out.c_str()),
              c.listed != 0 ? ISO_OK : ISO_ERR_BUDGET);
    EXPECT_NE(extractFile(image.get(), "F0000042", out.c_str()), ISO_OK);
    EXPECT_EQ(overBudget(image.get()), c.listed == 0);
    EXPECT_LT(bytesRead(image.get()), 2 * fs::file_size(path));
  }
}

// A child link to something that is no directory hides that one entry,
// not the rest of the listing.
TEST(IsoImageHostile, BadChildLinkSkipsOnlyItsEntry) {
  TempDir dir;
  const std::string path = dir / "link.iso";
  ASSERT_TRUE(test::writeHostileIso(path, {3, 0, true, 1}));
  ImagePtr image = openImage(path, FORMAT_ROCKRIDGE);
  Dir *root = nullptr;
  ASSERT_EQ(openDir(image.get(), "", &root), ISO_OK);
  std::vector<std::string> names;
  Entry entry;
  Result rc;
  while ((rc = readDir(image.get(), root, &entry)) == ISO_OK) {
    names.push_back(entry.name);
  }
  closeDir(image.get(), root);
  EXPECT_EQ(rc, ISO_END);
  EXPECT_EQ(names, (std::vector<std::string>{"f0000000", "f0000002"}));
  EXPECT_EQ(extractFile(image.get(), "f0000002", (dir / "out").c_str()),
            ISO_OK);
}

TEST(IsoImageRecords, JolietNamesBecomeUtf8) {
  const uint8_t raw[] = {0,    'c',  0,    'a', 0, 'f', 0, 0xE9,
                         0xD8, 0x3D, 0xDE, 0,   0, ';', 0, '1'};
  std::string name;
  ASSERT_TRUE(rec::jolietName(rec::Bytes{raw, sizeof raw}, name));
  EXPECT_EQ(name, "caf\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_FALSE(rec::jolietName(rec::Bytes{raw, 3}, name));
}

}  // namespace
}  // namespace gp::iso
