// UDF layouts that the mastering tools at hand do not write (metadata
// partition, split and chained extents) and hostile images, both made by
// patching the descriptors of a real image.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include "platform/udfimage.h"
#include "support/fixtures.h"
#include "support/udf_fixtures.h"

namespace gp::udf {
namespace {

using namespace gp::test;

constexpr size_t kBlock = 2048;
constexpr uint64_t kBigSize = 3 * kBlock + 123;

std::string bigContents() {
  std::string s(kBigSize, '\0');
  for (size_t i = 0; i < s.size(); ++i) {
    s[i] = static_cast<char>('a' + (i * 7 + i / kBlock) % 26);
  }
  return s;
}

const FileTree &baseTree() {
  static const FileTree tree = {{"README.TXT", "top\r\n"},
                                {"big.bin", bigContents()},
                                {"a/inner.txt", "inner"}};
  return tree;
}

// A writable copy of the base image with helpers to rewrite descriptors.
class Patched {
 public:
  Patched() : img_(loadImage(udfBridgeFromTree(baseTree()))) {}

  std::string &bytes() { return img_; }

  // Applies `edit` to every descriptor with tag `id` (main and reserve
  // sequences alike) and reseals it.
  void editAll(uint16_t id, const std::function<void(size_t)> &edit) {
    for (size_t at = findDescriptor(img_, id); at != std::string::npos;
         at = findDescriptor(img_, id, at + kBlock)) {
      edit(at);
      resealTag(img_, at, get16(img_, at + 10));
    }
  }

  size_t partitionStart() { return get32(img_, findDescriptor(img_, 5) + 188); }

  // Appends a block at the end of the image, grows the partition over it
  // and returns its block number in the partition.
  uint32_t appendBlock(const std::string &block) {
    img_.resize((img_.size() + kBlock - 1) / kBlock * kBlock);
    size_t imageBlock = img_.size() / kBlock;
    img_ += block;
    img_.resize((imageBlock + 1) * kBlock, '\0');
    uint32_t lbn = static_cast<uint32_t>(imageBlock - partitionStart());
    editAll(5, [&](size_t pd) { put32(img_, pd + 192, lbn + 1); });
    return lbn;
  }

  // The file entry of the file of `size` bytes and where its allocation
  // descriptors start.
  size_t fileEntry(uint64_t size) { return findFileEntryBySize(img_, size); }
  size_t adStart(size_t fe) { return fe + 176 + get32(img_, fe + 168); }

  // Replaces the allocation descriptors of a file entry.
  void setDescriptors(size_t fe, const std::string &ads) {
    img_.replace(adStart(fe), ads.size(), ads);
    put32(img_, fe + 172, static_cast<uint32_t>(ads.size()));
    resealTag(img_, fe, adStart(fe) + ads.size() - fe - 16);
  }

  // The byte offset of the file identifier named `name` (8-bit names).
  size_t fileIdent(const std::string &name) {
    std::string wanted = "\x08" + name;
    for (size_t at = img_.find(wanted); at != std::string::npos;
         at = img_.find(wanted, at + 1)) {
      size_t fid = at - 38;
      if (get16(img_, fid) == 257 && img_[fid + 19] == char(wanted.size())) {
        return fid;
      }
    }
    return std::string::npos;
  }

  std::string save() {
    std::string path = dir_ / "patched.img";
    saveImage(path, img_);
    return path;
  }

 private:
  std::string img_;
  TempDir dir_;
};

std::string shortAd(uint32_t length, uint32_t position, uint32_t type = 0) {
  std::string ad(8, '\0');
  put32(ad, 0, length | type << 30);
  put32(ad, 4, position);
  return ad;
}

struct ImageCloser {
  void operator()(UdfImage *image) const { close(image); }
};
using ImagePtr = std::unique_ptr<UdfImage, ImageCloser>;

std::string slurp(UdfImage *image, const char *dirPath, const char *name) {
  if (image == nullptr) {
    return "<no image>";
  }
  Dir *dir = openDir(image, nullptr, dirPath);
  if (dir == nullptr) {
    return "<no dir>";
  }
  std::string result = "<absent>";
  if (File *file = openFile(image, dir, name)) {
    char *data = nullptr;
    size_t length = 0;
    if (readFile(file, &data, &length)) {
      result.assign(data, length);
      std::free(data);
    }
    closeFile(file);
  }
  closeDir(dir);
  return result;
}

std::string listing(UdfImage *image, const char *path) {
  Dir *dir = openDir(image, nullptr, path);
  if (dir == nullptr) {
    return "<no dir>";
  }
  std::string names;
  while (const char *name = readDir(dir)) {
    names += std::string(name) + ";";
  }
  closeDir(dir);
  return names;
}

// A metadata file entry (type 250 or 251) that maps the metadata partition
// onto the physical one: block for block up to `identity`, then `extra`
// blocks onward from physical block `extraAt`.
std::string metadataFile(uint8_t type, uint32_t identity, uint32_t extraAt,
                         uint32_t extra) {
  std::string fe(kBlock, '\0');
  put16(fe, 0, 261);
  put16(fe, 2, 2);
  put16(fe, 16 + 4, 4);  // strategy 4
  fe[16 + 11] = static_cast<char>(type);
  put64(fe, 56, uint64_t{identity + extra} * kBlock);
  std::string ads =
      shortAd(identity * kBlock, 0) + shortAd(extra * kBlock, extraAt);
  fe.replace(176, ads.size(), ads);
  put32(fe, 172, static_cast<uint32_t>(ads.size()));
  resealTag(fe, 0, 176 + ads.size() - 16);
  return fe;
}

TEST(UdfLayout, MetadataPartition) {
  for (bool damagedMain : {false, true}) {
    SCOPED_TRACE(damagedMain ? "mirror" : "main");
    Patched p;
    std::string &img = p.bytes();
    size_t fsd = findDescriptor(img, 256);
    uint32_t rootLbn = get32(img, fsd + 400 + 4);
    size_t rootFe = (p.partitionStart() + rootLbn) * kBlock;
    uint32_t physicalBlocks = get32(img, findDescriptor(img, 5) + 192);

    // The root's file entry moves to a new block that only the metadata
    // partition's second extent reaches; its old place is wiped.
    std::string root = img.substr(rootFe, kBlock);
    std::fill(img.begin() + rootFe, img.begin() + rootFe + kBlock, '\0');
    uint32_t movedRoot = p.appendBlock(root);
    std::string main = metadataFile(250, physicalBlocks, movedRoot, 1);
    if (damagedMain) {
      main[4] ^= 1;
    }
    uint32_t mainAt = p.appendBlock(main);
    uint32_t mirrorAt =
        p.appendBlock(metadataFile(251, physicalBlocks, movedRoot, 1));

    p.editAll(6, [&](size_t lvd) {
      std::string map(64, '\0');
      map[0] = 2;
      map[1] = 64;
      map.replace(5, 23, "*UDF Metadata Partition");
      put16(map, 36, 1);
      put16(map, 38, get16(img, lvd + 440 + 4));
      put32(map, 40, mainAt);
      put32(map, 44, mirrorAt);
      put32(map, 48, 0xFFFFFFFF);
      put32(map, 52, 32);
      img.replace(lvd + 446, map.size(), map);
      put32(img, lvd + 264, 6 + 64);
      put32(img, lvd + 268, 2);
      put16(img, lvd + 248 + 8, 1);  // the file set lives in the metadata
      put16(img, lvd + 10, static_cast<uint16_t>(440 + 70 - 16));
    });
    p.editAll(256, [&](size_t set) {
      put32(img, set + 400 + 4, physicalBlocks);  // first block of extent 2
      put16(img, set + 400 + 8, 1);
    });

    ImagePtr image(open(p.save().c_str()));
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(listing(image.get(), ""), "README.TXT;a;big.bin;");
    EXPECT_EQ(slurp(image.get(), "", "big.bin"), bigContents());
    EXPECT_EQ(slurp(image.get(), "a", "inner.txt"), "inner");
  }
}

TEST(UdfLayout, SplitUnrecordedAndChainedExtents) {
  Patched p;
  size_t fe = p.fileEntry(kBigSize);
  ASSERT_NE(fe, std::string::npos);
  uint32_t first = get32(p.bytes(), p.adStart(fe) + 4);
  std::string big = bigContents();

  // Three extents, the first allocated but not recorded: it reads as zeros.
  p.setDescriptors(fe, shortAd(kBlock, first, 1) + shortAd(kBlock, first + 1) +
                           shortAd(kBigSize - 2 * kBlock, first + 2));
  std::string expected = std::string(kBlock, '\0') + big.substr(kBlock);
  ImagePtr split(open(p.save().c_str()));
  EXPECT_EQ(slurp(split.get(), "", "big.bin"), expected);

  // The same extents behind a chain of two extent blocks.
  auto extentBlock = [](const std::string &ads) {
    std::string aed(kBlock, '\0');
    put16(aed, 0, 258);
    put16(aed, 2, 2);
    put32(aed, 20, static_cast<uint32_t>(ads.size()));
    aed.replace(24, ads.size(), ads);
    resealTag(aed, 0, 24 + ads.size() - 16);
    return aed;
  };
  uint32_t tail = p.appendBlock(extentBlock(
      shortAd(kBlock, first + 1) + shortAd(kBigSize - 2 * kBlock, first + 2)));
  uint32_t head = p.appendBlock(
      extentBlock(shortAd(kBlock, first) + shortAd(kBlock, tail, 3)));
  p.setDescriptors(fe, shortAd(kBlock, head, 3));
  ImagePtr chained(open(p.save().c_str()));
  EXPECT_EQ(slurp(chained.get(), "", "big.bin"), big);

  // A chain that comes back to its start never ends: the file is unreadable.
  size_t tailAt = (p.partitionStart() + tail) * kBlock;
  std::string loop =
      extentBlock(shortAd(kBlock, first + 1) + shortAd(kBlock, head, 3));
  p.bytes().replace(tailAt, kBlock, loop);
  ImagePtr looping(open(p.save().c_str()));
  EXPECT_EQ(slurp(looping.get(), "", "big.bin"), "<absent>");
  EXPECT_EQ(slurp(looping.get(), "", "README.TXT"), "top\r\n");
}

TEST(UdfLayout, HostileDescriptors) {
  struct Case {
    const char *what;
    std::function<void(Patched &)> damage;
    const char *readme;  // README.TXT afterwards
    const char *big;     // big.bin afterwards, "ok" for intact
    const char *root;    // the root listing afterwards
  };
  const Case cases[] = {
      {"main anchor broken: the backup anchor serves",
       [](Patched &p) { p.bytes()[256 * kBlock + 4] ^= 1; }, "top\r\n", "ok",
       "README.TXT;a;big.bin;"},
      {"every anchor broken",
       [](Patched &p) {
         p.editAll(2, [&](size_t a) { put16(p.bytes(), a, 9); });
       },
       "<no image>", "<no image>", "<no dir>"},
      {"file entry with a wrong CRC",
       [](Patched &p) { p.bytes()[p.fileEntry(kBigSize) + 100] ^= 1; },
       "top\r\n", "<absent>", "README.TXT;a;big.bin;"},
      {"huge information length",
       [](Patched &p) {
         size_t fe = p.fileEntry(kBigSize);
         put64(p.bytes(), fe + 56, uint64_t{1} << 40);
         resealTag(p.bytes(), fe, get16(p.bytes(), fe + 10));
       },
       "top\r\n", "<absent>", "README.TXT;a;big.bin;"},
      {"extent outside the partition",
       [](Patched &p) {
         size_t fe = p.fileEntry(kBigSize);
         p.setDescriptors(fe, shortAd(kBigSize, 0xFFFFFF00u));
       },
       "top\r\n", "<absent>", "README.TXT;a;big.bin;"},
      {"identifier running past its directory",
       [](Patched &p) {
         size_t fid = p.fileIdent("big.bin");
         p.bytes()[fid + 19] = char(255);  // name length
         resealTag(p.bytes(), fid, 38 + 255 - 16);
       },
       "top\r\n", "<absent>", "README.TXT;a;"},
      {"file set outside the partition",
       [](Patched &p) {
         p.editAll(6,
                   [&](size_t lvd) { put32(p.bytes(), lvd + 252, 1u << 30); });
       },
       "<no image>", "<no image>", "<no dir>"},
      {"partition map of a partition that does not exist",
       [](Patched &p) {
         p.editAll(6, [&](size_t lvd) { put16(p.bytes(), lvd + 444, 7); });
       },
       "<no image>", "<no image>", "<no dir>"},
      {"absurd partition map count",
       [](Patched &p) {
         p.editAll(6, [&](size_t lvd) { put32(p.bytes(), lvd + 268, 100000); });
       },
       "<no image>", "<no image>", "<no dir>"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    Patched p;
    c.damage(p);
    ImagePtr image(open(p.save().c_str()));
    EXPECT_EQ(slurp(image.get(), "", "README.TXT"), c.readme);
    std::string big = slurp(image.get(), "", "big.bin");
    EXPECT_EQ(big == bigContents() ? "ok" : big, c.big);
    EXPECT_EQ(image ? listing(image.get(), "") : "<no dir>", c.root);
  }
}

TEST(UdfLayout, DirectoryThatContainsItself) {
  Patched p;
  std::string &img = p.bytes();
  size_t fid = p.fileIdent("a");
  size_t fsd = findDescriptor(img, 256);
  // "a" now leads back to the root.
  img.replace(fid + 20 + 4, 6, img.substr(fsd + 400 + 4, 6));
  resealTag(img, fid, get16(img, fid + 10));
  ImagePtr image(open(p.save().c_str()));
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(slurp(image.get(), "a/a/a/a", "README.TXT"), "top\r\n");
  std::string deep;
  for (int i = 0; i < 100; ++i) {
    deep += "a/";
  }
  EXPECT_EQ(openDir(image.get(), nullptr, deep.c_str()), nullptr);
}

}  // namespace
}  // namespace gp::udf
