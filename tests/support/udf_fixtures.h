// UDF fixture images made with the real tools, cached in the build tree,
// and helpers that patch descriptors of an image in place.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "support/fixtures.h"

namespace gp::test {

// A UDF/ISO 9660 bridge image of the tree: genisoimage -udf -J -R.
std::string udfBridgeFromTree(const FileTree &files);

// A bridge image written by pycdlib. Keys are UDF paths; each file also gets
// an ISO 9660 name of its own (FILEn.;1) unless `udfOnly` is set.
std::string pycdlibUdfFromTree(const FileTree &files, bool udfOnly = false);

// An empty file system made by mkudffs, of the given revision ("1.02" ...),
// block size and media type (write-once types get a virtual partition).
std::string mkudffsImage(const std::string &revision, unsigned blockSize,
                         const std::string &media = "hd");

// The image as bytes, and back.
std::string loadImage(const std::string &path);
void saveImage(const std::string &path, const std::string &bytes);

// Recomputes the checksum and CRC of the descriptor tag at `offset`,
// covering `crcLength` bytes after the tag.
void resealTag(std::string &image, size_t offset, size_t crcLength);

// The offset of the first 2048-byte block at or after `from` that starts
// with a valid descriptor tag of `id`, or npos.
size_t findDescriptor(const std::string &image, uint16_t id, size_t from = 0);

// The offset of the file entry (tag 261 or 266) whose information length
// is `length`; npos when there is none.
size_t findFileEntryBySize(const std::string &image, uint64_t length);

uint16_t get16(const std::string &b, size_t at);
uint32_t get32(const std::string &b, size_t at);
uint64_t get64(const std::string &b, size_t at);
void put16(std::string &b, size_t at, uint16_t v);
void put32(std::string &b, size_t at, uint32_t v);
void put64(std::string &b, size_t at, uint64_t v);

}  // namespace gp::test
