// The UDF reader on images of the mastering tools, checked against 7-Zip,
// and on copies patched into layouts those tools do not write (metadata
// partition, split and chained extents) or into hostile ones.
#include "platform/udfimage.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <tuple>

#include "platform/hostio.h"
#include "support/udf_fixtures.h"

namespace gp::udf {
namespace {

using namespace gp::test;
using namespace gp::img;
namespace fs = std::filesystem;
constexpr size_t kBlock = 2048;
constexpr uint64_t kBigSize = 3 * kBlock + 123;
constexpr size_t npos = std::string::npos;

using ImagePtr = std::unique_ptr<UdfImage, void (*)(UdfImage *)>;
ImagePtr openImage(const std::string &path) {
  UdfImage *image = nullptr;
  bool opened = open(path.c_str(), &image) == IMG_OK;
  EXPECT_EQ(opened, image != nullptr);
  return ImagePtr(image, close);
}

// The directory, or null when it does not open.
Dir *dirAt(UdfImage *image, Dir *start, const char *path) {
  Dir *dir = nullptr;
  bool opened = openDir(image, start, path, &dir) == IMG_OK;
  EXPECT_EQ(opened, dir != nullptr);
  return dir;
}

// The next name, or null at the end of the listing.
const char *nextName(Dir *dir) {
  const char *name = nullptr;
  return readDir(dir, &name) == IMG_OK ? name : nullptr;
}

// Reads a file of the image through the reader; "<absent>" when it fails.
std::string slurp(UdfImage *image, const std::string &dirPath,
                  const std::string &name) {
  Dir *dir = image ? dirAt(image, nullptr, dirPath.c_str()) : nullptr;
  File *file = nullptr;
  if (dir) openFile(image, dir, name.c_str(), &file);
  char *data = nullptr;
  size_t length = 0;
  std::string result = "<absent>";
  if (file && readFile(file, &data, &length) == IMG_OK) {
    EXPECT_EQ(data[length], '\0');
    result.assign(data, length);
    std::free(data);
  }
  if (file) closeFile(file);
  closeDir(dir);
  return result;
}

// Every file below `path` as the reader sees it; an entry that opens
// neither as a file nor as a directory reads "<absent>".
FileTree walk(UdfImage *image, const std::string &path = "") {
  Dir *dir = dirAt(image, nullptr, path.c_str());
  if (dir == nullptr) return {{path, "<absent>"}};
  FileTree out;
  while (const char *entry = nextName(dir)) {
    std::string name = entry, full = path.empty() ? name : path + "/" + name;
    if (std::string data = slurp(image, path, name); data != "<absent>")
      out[full] = data;
    else
      out.merge(walk(image, full));
  }
  closeDir(dir);
  return out;
}

std::string pattern(size_t size, unsigned seed) {
  std::string s(size, '\0');
  for (char &c : s) c = char((seed = seed * 1103515245u + 12345u) >> 16);
  return s;
}

const FileTree kSample = {{"README.TXT", "top level\r\n"},
                          {"a/b/c/d/deep.txt", "deep\n"},
                          {"sources/Install_Windows 7 ULTIMATE.clg", "catalog"},
                          {"sources/big.bin", pattern(kBigSize, 7)},
                          {"sources/exact.bin", pattern(2 * kBlock, 9)},
                          {"sources/empty.txt", ""},
                          {"names/Ünïcode.txt", "8-bit name"},
                          {"names/日本語.txt", "16-bit name"},
                          {"Dir1/Sub/readme", "lower"},
                          {"Dir1/Sub/README", "upper"}};

// The bridge writer records revision 1.02 (file entries with short
// descriptors); the later revisions come from mkudffs below.
TEST(UdfImage, BridgeImageAgreesWithSevenZip) {
  std::string path = udfBridgeFromTree(kSample);
  ImagePtr image = openImage(path);
  ASSERT_NE(image, nullptr);
  UdfImage *img = image.get();
  // Blocks are read through the host seam as needed, never the whole image.
  uint64_t afterOpen = bytesRead(img);
  EXPECT_LT(afterOpen, 64u * 1024);
  EXPECT_EQ(slurp(img, "a/b/c/d", "deep.txt"), "deep\n");
  EXPECT_LT(bytesRead(img) - afterOpen, 32u * 1024);
  FileTree seen = walk(img);
  TempDir out;
  ASSERT_EQ(runCommand("7zz x -tudf -y -o" + shellQuote(out.path()) + " " +
                       shellQuote(path) + " >/dev/null 2>&1"),
            0);
  FileTree oracle;
  for (const auto &e : fs::recursive_directory_iterator(out.path()))
    if (e.is_regular_file())
      oracle[fs::relative(e.path(), out.path())] = test::readFile(e.path());
  EXPECT_EQ(oracle.size(), kSample.size());
  EXPECT_EQ(seen, oracle);
  // Root spellings, caseless paths; an exact name wins over a caseless one.
  for (auto [dir, name, contents] :
       {std::tuple{"//", "README.TXT", "top level\r\n"},
        {"A/B/C/D", "DEEP.TXT", "deep\n"},
        {"SOURCES", "install_windows 7 ultimate.clg", "catalog"},
        {"a", "b", "<absent>"},
        {"dir1/sub", "readme", "lower"},
        {"DIR1/SUB", "README", "upper"}}) {
    EXPECT_EQ(slurp(img, dir, name), contents) << dir << " " << name;
  }
  // A path taken from a starting directory; rewinding.
  Dir *a = dirAt(img, nullptr, "a");
  Dir *d = dirAt(img, a, "b/c/d");
  ASSERT_TRUE(a && d);
  EXPECT_STREQ(nextName(d), "deep.txt");
  EXPECT_EQ(nextName(d), nullptr);
  EXPECT_EQ(rewindDir(d), IMG_OK);
  EXPECT_STREQ(nextName(d), "deep.txt");
  EXPECT_EQ(closeDir(d), IMG_OK);
  EXPECT_EQ(closeDir(a), IMG_OK);
  Dir *none = nullptr;
  EXPECT_EQ(openDir(img, nullptr, "README.TXT", &none), IMG_ERR_NOT_DIR);
  EXPECT_EQ(openDir(img, nullptr, "a/missing", &none), IMG_ERR_NOT_FOUND);
  EXPECT_EQ(none, nullptr);
  // A failing read makes the file absent, not a crash.
  HostOps ops = hostOps();
  ops.pread = [](int, void *, size_t, off_t) { return errno = EIO, -1L; };
  ScopedHostOps failing(ops);
  EXPECT_EQ(slurp(img, "sources", "big.bin"), "<absent>");
}

TEST(UdfImage, MkudffsRevisionsAndBlockSizes) {
  // Extended file entries from 2.00; virtual partitions (old form at 1.50).
  for (const char *options :
       {"-m hd -r 1.50 -b 4096", "-m hd -r 2.01 -b 512", "-m cdr -r 1.50",
        "-m cdr -r 2.01", "-m bdr -r 2.60"}) {
    ImagePtr image = openImage(mkudffsImage(options));
    EXPECT_TRUE(image && walk(image.get()).empty()) << options;
  }
}

// A little-endian descriptor field: offset, width, value.
using Field = std::tuple<size_t, int, uint64_t>;

void put(std::string &b, size_t base, std::initializer_list<Field> fields) {
  for (auto [at, width, value] : fields)
    for (int i = 0; i < width; ++i) b[base + at + i] = char(value >> 8 * i);
}

uint64_t get(const std::string &b, size_t at, int width) {
  uint64_t value = 0;
  while (width-- > 0) value = value << 8 | static_cast<uint8_t>(b[at + width]);
  return value;
}

uint8_t tagChecksum(const std::string &b, size_t at) {
  uint8_t sum = 0;
  for (size_t i = 0; i < 16; ++i) sum += i == 4 ? 0 : uint8_t(b[at + i]);
  return sum;
}

// Recomputes the CRC (ITU-T, initial value 0) of `crcLength` bytes after
// the descriptor tag at `at`, and the tag's checksum.
void resealTag(std::string &b, size_t at, size_t crcLength) {
  uint16_t crc = 0;
  for (size_t i = 0; i < crcLength; ++i) {
    crc = static_cast<uint16_t>(crc ^ get(b, at + 16 + i, 1) << 8);
    for (int bit = 0; bit < 8; ++bit)
      crc = static_cast<uint16_t>(crc & 0x8000 ? crc << 1 ^ 0x1021 : crc << 1);
  }
  put(b, at, {{8, 2, crc}, {10, 2, crcLength}});
  b[at + 4] = static_cast<char>(tagChecksum(b, at));
}

// The first block at or after `from` that holds a descriptor of tag `id`.
size_t findDescriptor(const std::string &b, uint16_t id, size_t from = 0) {
  for (size_t at = from; at + kBlock <= b.size(); at += kBlock)
    if (get(b, at, 2) == id && tagChecksum(b, at) == get(b, at + 4, 1))
      return at;
  return npos;
}

std::string shortAd(uint64_t length, uint64_t position, uint64_t type = 0) {
  std::string ad(8, '\0');
  put(ad, 0, {{0, 4, length | type << 30}, {4, 4, position}});
  return ad;
}

// A descriptor block of tag `id`; its allocation descriptors start at `adAt`.
std::string descriptorBlock(uint16_t id, size_t adAt, const std::string &ads,
                            std::initializer_list<Field> more = {}) {
  std::string b(kBlock, '\0');
  put(b, 0, {{0, 2, id}, {2, 2, 2}, {adAt - 4, 4, ads.size()}});
  put(b, 0, more);
  b.replace(adAt, ads.size(), ads);
  resealTag(b, 0, adAt + ads.size() - 16);
  return b;
}

const std::string kBig = pattern(kBigSize, 3);
const FileTree kBase = {
    {"README.TXT", "top\r\n"}, {"big.bin", kBig}, {"alpha/inner.txt", "inner"}};

// A writable copy of the image of kBase with helpers to rewrite it.
struct Patched {
  std::string img = test::readFile(udfBridgeFromTree(kBase));
  // The file identifier of `name` (8-bit, unique in the image), and the
  // file entry of big.bin.
  size_t fileIdent(const std::string &n) { return img.find("\x08" + n) - 38; }
  size_t bigFe =
      (partitionStart() + get(img, fileIdent("big.bin") + 24, 4)) * kBlock;
  uint64_t bigStart = get(img, bigFe + 176 + get(img, bigFe + 168, 4) + 4, 4);
  TempDir dir;

  ImagePtr image() {
    writeFile(dir / "patched.img", img);
    return openImage(dir / "patched.img");
  }

  void set(size_t at, Field f) {
    put(img, at, {f});
    resealTag(img, at, get(img, at + 10, 2));
  }

  // Applies `edit` to every descriptor of tag `id` (main and reserve
  // sequences alike) and reseals it; or sets a field in every one.
  void editAll(uint16_t id, const std::function<void(size_t)> &edit) {
    for (size_t at = findDescriptor(img, id); at != npos;
         at = findDescriptor(img, id, at + kBlock)) {
      edit(at);
      resealTag(img, at, get(img, at + 10, 2));
    }
  }

  void setAll(uint16_t id, Field f) {
    editAll(id, [&](size_t at) { put(img, at, {f}); });
  }

  size_t partitionStart() { return get(img, findDescriptor(img, 5) + 188, 4); }

  // Appends a block, grows the partition over it and returns its number.
  uint32_t append(const std::string &block) {
    size_t end = (img.size() + kBlock - 1) / kBlock;
    auto lbn = static_cast<uint32_t>(end - partitionStart());
    img.resize((end + 1) * kBlock, '\0');
    img.replace(end * kBlock, block.size(), block);
    editAll(5, [&](size_t pd) { put(img, pd, {{192, 4, lbn + 1}}); });
    return lbn;
  }

  void setAds(const std::string &ads) {
    size_t adStart = bigFe + 176 + get(img, bigFe + 168, 4);
    img.replace(adStart, ads.size(), ads);
    put(img, bigFe, {{172, 4, ads.size()}});
    resealTag(img, bigFe, adStart + ads.size() - bigFe - 16);
  }

  // Block `i` of big.bin as an extent of `type`.
  std::string extent(uint32_t i, uint64_t type = 0) {
    return shortAd(i < 2 ? kBlock : kBigSize - 2 * kBlock, bigStart + i, type);
  }

  // The extents of big.bin behind two extent blocks; with `loop` the
  // second leads back to the first instead of holding the last extent.
  void chain(bool loop) {
    size_t next = (img.size() + kBlock - 1) / kBlock - partitionStart();
    uint32_t second = append(descriptorBlock(
        258, 24,
        extent(1) + (loop ? shortAd(kBlock, next + 1, 3) : extent(2))));
    uint32_t first = append(
        descriptorBlock(258, 24, extent(0) + shortAd(kBlock, second, 3)));
    setAds(shortAd(kBlock, first, 3));
  }

  // Moves the root's file entry to a new block that only the second extent
  // of a metadata partition reaches, and wipes its old place. The main
  // metadata file is damaged, so only its mirror can serve.
  void useMetadata() {
    size_t fsd = findDescriptor(img, 256);
    size_t rootFe = (partitionStart() + get(img, fsd + 404, 4)) * kBlock;
    uint64_t physical = get(img, findDescriptor(img, 5) + 192, 4);
    uint32_t movedRoot = append(img.substr(rootFe, kBlock));
    img.replace(rootFe, kBlock, kBlock, '\0');
    auto metadataFile = [&](uint64_t type) {
      return descriptorBlock(
          261, 176, shortAd(physical * kBlock, 0) + shortAd(kBlock, movedRoot),
          {{20, 2, 4}, {27, 1, type}, {56, 8, (physical + 1) * kBlock}});
    };
    std::string main = metadataFile(250);
    main[4] ^= 1;
    uint32_t mainAt = append(main);
    uint32_t mirrorAt = append(metadataFile(251));
    editAll(6, [&](size_t lvd) {
      std::string map(64, '\0');
      map.replace(5, 23, "*UDF Metadata Partition");
      put(map, 0, {{0, 1, 2}, {1, 1, 64}, {36, 2, 1}, {52, 4, 32}});
      put(map, 0, {{38, 2, get(img, lvd + 444, 2)}, {48, 4, 0xFFFFFFFF}});
      put(map, 0, {{40, 4, mainAt}, {44, 4, mirrorAt}});
      img.replace(lvd + 446, map.size(), map);
      // Two maps; the file set lives in the metadata partition.
      put(img, lvd, {{264, 4, 70}, {268, 4, 2}, {256, 2, 1}, {10, 2, 494}});
    });
    editAll(256, [&](size_t set) {
      put(img, set, {{404, 4, physical}, {408, 2, 1}});
    });
  }
};

TEST(UdfLayout, PatchedImages) {
  const std::string absent = "<absent>", unlisted = "<unlisted>",
                    noImage = "<no image>";
  // `big`: big.bin afterwards.
  // clang-format off
  const struct { const char *what; std::function<void(Patched &)> patch; std::string big; } cases[] = {
      {"metadata partition, its main file damaged: the mirror serves", [](Patched &p) { p.useMetadata(); }, kBig},
      {"three extents, the first allocated but not recorded: zeros",
       [](Patched &p) { p.setAds(p.extent(0, 1) + p.extent(1) + p.extent(2)); }, std::string(kBlock, '\0') + kBig.substr(kBlock)},
      {"extents behind extent blocks", [](Patched &p) { p.chain(false); }, kBig},
      {"extent blocks in a loop", [](Patched &p) { p.chain(true); }, absent},
      {"main anchor broken: the backup anchor serves", [](Patched &p) { p.img[256 * kBlock + 4] ^= 1; }, kBig},
      {"every anchor broken", [](Patched &p) { p.setAll(2, {0, 2, 9}); }, noImage},
      {"file entry with a wrong CRC", [](Patched &p) { p.img[p.bigFe + 100] ^= 1; }, absent},
      {"huge information length", [](Patched &p) { p.set(p.bigFe, {56, 8, uint64_t{1} << 40}); }, absent},
      {"extent outside the partition", [](Patched &p) { p.setAds(shortAd(kBigSize, 0xFFFFFF00u)); }, absent},
      {"identifier running past its directory", [](Patched &p) { p.set(p.fileIdent("big.bin"), {19, 1, 255}); }, unlisted},
      {"partition map of a partition that does not exist", [](Patched &p) { p.setAll(6, {444, 2, 7}); }, noImage},
      {"absurd partition map count", [](Patched &p) { p.setAll(6, {268, 4, 100000}); }, noImage},
  };  // clang-format on
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    Patched p;
    c.patch(p);
    ImagePtr image = p.image();
    ASSERT_EQ(image == nullptr, c.big == noImage);
    FileTree expected = kBase;
    expected["big.bin"] = c.big;
    if (c.big == unlisted) expected.erase("big.bin");
    FileTree seen = image ? walk(image.get()) : expected;
    EXPECT_EQ(seen, expected);
  }
  // A directory that contains itself: "alpha" now leads back to the root.
  Patched p;
  p.set(p.fileIdent("alpha"),
        {24, 4, get(p.img, findDescriptor(p.img, 256) + 404, 4)});
  ImagePtr image = p.image();
  EXPECT_EQ(slurp(image.get(), "alpha/alpha/alpha", "README.TXT"), "top\r\n");
  std::string deep;
  for (int i = 0; i < 100; ++i) deep += "alpha/";
  EXPECT_EQ(dirAt(image.get(), nullptr, deep.c_str()), nullptr);
}

// Every openDir lists its directories afresh; a caller that keeps listing
// a large directory runs into the open's budget instead of working on.
TEST(UdfImage, ListingAgainAndAgainEndsAtTheBudget) {
  FileTree tree;
  for (int i = 0; i < 4000; ++i) tree["f" + std::to_string(i)] = "";
  ImagePtr image = openImage(udfBridgeFromTree(tree));
  ASSERT_TRUE(image);
  int opened = 0;
  Dir *dir = nullptr;
  Error err;
  while ((err = openDir(image.get(), nullptr, "", &dir)) == IMG_OK &&
         opened < 1000) {
    ++opened;
    closeDir(dir);
  }
  EXPECT_EQ(err, IMG_ERR_BUDGET);
  EXPECT_TRUE(overBudget(image.get()));
  EXPECT_GT(opened, 50);  // a real caller's listings stay far below
}

}  // namespace
}  // namespace gp::udf

namespace gp::udf {
namespace {

TEST(UdfImage, RangesOfAFileMatchItsBytes) {
  std::string content;
  for (int i = 0; i < 3 * 2048 + 700; ++i) {
    content += static_cast<char>('a' + i % 23);
  }
  auto image = openImage(test::udfBridgeFromTree({{"dir/big.bin", content}}));
  ASSERT_NE(nullptr, image.get());
  Dir *dir = dirAt(image.get(), nullptr, "dir");
  ASSERT_NE(nullptr, dir);
  File *file = nullptr;
  ASSERT_EQ(IMG_OK, openFile(image.get(), dir, "big.bin", &file));
  EXPECT_EQ(content.size(), fileSize(file));
  const struct {
    uint64_t offset;
    size_t length;
    Error rc;
  } cases[] = {
      {0, 208, IMG_OK},
      {2000, 100, IMG_OK},  // across a block
      {6000, 844, IMG_OK},
      {6844, 0, IMG_OK},  // up to the end
      {6800, 100, IMG_ERR_FORMAT},
      {UINT64_MAX, 1, IMG_ERR_FORMAT},
  };
  for (const auto &c : cases) {
    std::string out;
    EXPECT_EQ(c.rc, readFileRange(file, c.offset, c.length, out)) << c.offset;
    if (c.rc == IMG_OK) {
      EXPECT_EQ(content.substr(c.offset, c.length), out) << c.offset;
    }
  }
  closeFile(file);
  closeDir(dir);
}

}  // namespace
}  // namespace gp::udf
