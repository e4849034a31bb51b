// UDF images made with the real tools, cached in the build tree.
#pragma once

#include <string>

#include "support/fixtures.h"

namespace gp::test {

// A UDF/ISO 9660 bridge image of the tree: genisoimage -udf -J -R.
std::string udfBridgeFromTree(const FileTree &files);

// A bridge image written by pycdlib whose files are in the UDF tree only.
std::string pycdlibUdfFromTree(const FileTree &files);

// An empty file system made by mkudffs with the given options, such as
// "-m hd -r 2.01 -b 512" (media type, revision, block size).
std::string mkudffsImage(const std::string &options);

}  // namespace gp::test
