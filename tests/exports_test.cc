// The shared library exports exactly the names listed in
// tests/exports/*.txt, unmangled, and nothing else.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "support/fixtures.h"

namespace {

std::set<std::string> expectedExports() {
  std::set<std::string> names;
  for (const auto &entry :
       std::filesystem::directory_iterator(gp::test::sourcePath("tests/exports"))) {
    std::ifstream in(entry.path());
    std::string line;
    while (std::getline(in, line)) {
      if (!line.empty() && line[0] != '#') {
        names.insert(line);
      }
    }
  }
  return names;
}

TEST(Exports, ExactlyTheCAbi) {
  std::string out;
  ASSERT_EQ(0, gp::test::runCommand(
                   std::string("nm -D --defined-only ") + GP_SHARED_LIBRARY +
                       " | awk '{print $3}' | sort",
                   &out));
  std::set<std::string> actual;
  std::istringstream lines(out);
  std::string line;
  while (std::getline(lines, line)) {
    if (!line.empty()) {
      actual.insert(line);
    }
  }
  EXPECT_EQ(expectedExports(), actual);
}

TEST(Exports, SonameCarriesMajorVersion) {
  std::string out;
  ASSERT_EQ(0, gp::test::runCommand(std::string("objdump -p ") +
                                        GP_SHARED_LIBRARY + " | grep SONAME",
                                    &out));
  EXPECT_NE(std::string::npos, out.find("libguestprep.so.1"));
}

}  // namespace
