// Message resolution over hostile catalogs: the input is written as the
// German catalog, then messages and the product-name format are resolved
// through it. Also feeds the input as a format text of its own.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "platform/msgcatalog.h"

namespace {

std::string catalogFile() {
  static const std::string path = [] {
    static char dir[] = "/tmp/gp-msgcatalog-fuzz-XXXXXX";
    if (mkdtemp(dir) == nullptr) std::abort();
    std::atexit([] { std::filesystem::remove_all(dir); });
    std::filesystem::create_directory(std::string(dir) + "/de");
    setenv("GUESTPREP_MSGDIR", dir, 1);
    setenv("GUESTPREP_LANG", "de", 1);
    return std::string(dir) + "/de/guestprep.vmsg";
  }();
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string_view input(reinterpret_cast<const char *>(data), size);
  std::string path = catalogFile();
  std::ofstream(path, std::ios::binary | std::ios::trunc) << input;

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
