#include "support/fatcheck.h"

#include <regex>
#include <sstream>

#include "support/fixtures.h"

namespace gp::test {
namespace {

// mtools refuses images whose geometry it finds odd unless told not to.
const char *kMtools = "MTOOLS_SKIP_CHECK=1 MTOOLS_NO_VFAT=0 ";

}  // namespace

bool fsckClean(const std::string &image, std::string *report) {
  return runCommand("fsck.fat -n " + shellQuote(image) + " 2>&1", report) == 0;
}

std::vector<MdirEntry> mdirList(const std::string &image,
                                const std::string &dir) {
  std::string out;
  std::vector<MdirEntry> entries;
  if (runCommand(std::string(kMtools) + "mdir -i " + shellQuote(image) + " " +
                     shellQuote(dir) + " 2>/dev/null",
                 &out) != 0) {
    return entries;
  }
  // "preseed  cfg         6 2026-11-23  12:03  long name"
  static const std::regex line(
      R"(^(\S[^ ]*) +([^ ]{0,3}) +(\d+|<DIR>) +\S+ +\S+ ?(?: (.*))?$)");
  std::istringstream lines(out);
  std::string text;
  while (std::getline(lines, text)) {
    std::smatch m;
    if (text.size() < 13 || !std::regex_match(text, m, line)) {
      continue;
    }
    MdirEntry e;
    std::string base = text.substr(0, 8), ext = text.substr(9, 3);
    base.erase(base.find_last_not_of(' ') + 1);
    ext.erase(ext.find_last_not_of(' ') + 1);
    e.shortName = ext.empty() ? base : base + "." + ext;
    e.size = m[3];
    e.longName = m[4];
    e.longName.erase(e.longName.find_last_not_of(' ') + 1);
    if (e.shortName != "." && e.shortName != "..") {
      entries.push_back(e);
    }
  }
  return entries;
}

bool mcopyOut(const std::string &image, const std::string &name,
              std::string &content) {
  return runCommand(std::string(kMtools) + "mcopy -n -i " + shellQuote(image) +
                        " " + shellQuote("::/" + name) + " -",
                    &content) == 0;
}

bool mcopyIn(const std::string &image, const std::string &hostPath,
             const std::string &name) {
  return runCommand(std::string(kMtools) + "mcopy -o -i " + shellQuote(image) +
                    " " + shellQuote(hostPath) + " " +
                    shellQuote("::/" + name)) == 0;
}

std::string pattern(size_t n, unsigned seed) {
  std::string s(n, '\0');
  for (size_t i = 0; i < n; ++i) {
    s[i] = static_cast<char>((i * 131 + seed * 17 + i / 7 + i / 509) & 0xFF);
  }
  return s;
}

bool mkfsFat12(const std::string &image) {
  return runCommand("mkfs.fat -C -F 12 " + shellQuote(image) +
                    " 1440 >/dev/null 2>&1") == 0;
}

}  // namespace gp::test
