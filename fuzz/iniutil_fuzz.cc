// Reads and writes keys of a fuzzed INI file; the first byte picks the names
// and options, the rest is the file. A failed write must leave the file as
// it was, and after a successful write of a file without ';' the reader
// finds the key again with the value written, or the start of it when the
// line left too little room.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "guestprep/iniutil.h"
#include "platform/hostio.h"

namespace {

std::string scratchFile() {
  static const std::string path = [] {
    static char dir[] = "/tmp/iniutil_fuzz-XXXXXX";
    if (::mkdtemp(dir) == nullptr) std::abort();
    std::atexit([] { std::filesystem::remove_all(dir); });
    gp::hostOps().fsync = [](int) { return 0; };  // no need to flush here
    return std::string(dir) + "/f.ini";
  }();
  return path;
}

std::string load(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  static const char *const kSections[] = {"s", "Section", "", "a b"};
  static const char *const kKeys[] = {"k", "Key", "", "x y"};
  static const char *const kValues[] = {"v", "", "two words", "\"q\""};
  const unsigned pick = data[0];
  const char *section = kSections[pick & 3];
  const char *key = kKeys[(pick >> 2) & 3];
  const char *value = kValues[(pick >> 4) & 3];
  const bool quoted = (pick & 0x40) != 0;
  std::string_view content(reinterpret_cast<const char *>(data) + 1, size - 1);
  const std::string path = scratchFile();
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;

  char buf[64];
  int32_t number = 0;
  IniUtil_GetIniFileString(path.c_str(), section, key, buf, sizeof buf);
  IniUtil_GetIniFileString(path.c_str(), section, key, buf, 1 + pick % 4);
  IniUtil_GetIniFileInt(path.c_str(), section, key, &number);

  if (!IniUtil_WriteIniFileString(path.c_str(), section, key, value,
                                  quoted ? TRUE : FALSE)) {
    if (load(path) != content) std::abort();
    return 0;
  }
  if (content.find(';') == std::string_view::npos) {
    char back[2048];
    if (!IniUtil_GetIniFileString(path.c_str(), section, key, back,
                                  sizeof back))
      std::abort();
    // A value cut short keeps its start; an unquoted value that happens to
    // stand between quotes loses them when it is read whole.
    std::string_view written(value), got(back);
    bool unquotedWhole = !quoted && written.size() >= 2 &&
                         written.front() == '"' && written.back() == '"' &&
                         got == written.substr(1, written.size() - 2);
    if (!unquotedWhole && written.substr(0, got.size()) != got) std::abort();
  }
  return 0;
}
