// Message resolution over hostile catalogs: the input is written as the
// German catalog, then messages and the product-name format are resolved
// through it. Also feeds the input as a format text of its own.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/msgcatalog.h"

namespace {

std::string gBase;

void removeCatalog() {
  unlink((gBase + "/de/guestprep.vmsg").c_str());
  rmdir((gBase + "/de").c_str());
  rmdir(gBase.c_str());
}

std::string catalogFile() {
  static std::string path = [] {
    char dirTemplate[] = "/tmp/gp-msgcatalog-fuzz-XXXXXX";
    const char *dir = mkdtemp(dirTemplate);
    if (dir == nullptr) {
      std::abort();
    }
    gBase = dir;
    std::string langDir = gBase + "/de";
    if (mkdir(langDir.c_str(), 0700) != 0) {
      std::abort();
    }
    std::atexit(removeCatalog);
    setenv("GUESTPREP_MSGDIR", gBase.c_str(), 1);
    setenv("GUESTPREP_LANG", "de", 1);
    return langDir + "/guestprep.vmsg";
  }();
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string_view input(reinterpret_cast<const char *>(data), size);
  std::string path = catalogFile();
  FILE *f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) {
    return 0;
  }
  std::fwrite(data, 1, size, f);
  std::fclose(f);

  gp::msg::get("@&!*@*@(msg.autoinstall.win_pro) Professional");
  gp::msg::get("@&!*@*@(msg.autoinstall.bad_linux_name)x");
  std::string pretty = gp::msg::format(
      "@&!*@*@(msg.autoinstall.prettyFormat)%s%s%s", {"%n%s", "b", "c"});
  // A catalog can reorder or drop the arguments, never multiply them past
  // what the length limit on a message allows.
  if (pretty.size() > gp::msg::kMaxMessageLength * 4) {
    std::abort();
  }
  gp::msg::format(input, {"x", "y"});
  gp::msg::takePending();
  return 0;
}
