// The reading path of the extended configuration file: a fuzzed file and
// a fuzzed update agent report (separated by a NUL byte) go through every
// reader and one save. A file that a save rewrote must parse again.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "guestprep/toolsversion.h"
#include "lib/toolsversion/toolsversion_machine.h"
#include "platform/configdict.h"
#include "platform/hostio.h"
#include "platform/log.h"

namespace {

struct Machine {
  std::string dir, config, xml;
  Machine() {
    char templ[] = "/tmp/toolsxml_fuzz.XXXXXX";
    dir = ::mkdtemp(templ);
    config = dir + "/machine.cfg";
    xml = dir + "/machine.xml";
    // A guest without a tools image: no image is ever opened.
    gp::replaceFileAtomically(
        config, "guestOS = ztkernel\nextendedConfigFile = machine.xml\n");
  }
  ~Machine() {
    ::unlink(xml.c_str());
    ::unlink(config.c_str());
    ::rmdir(dir.c_str());
  }
};

void write(const std::string &path, std::string_view text) {
  if (!gp::replaceFileAtomically(path, text)) {
    __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static Machine machine;
  static const bool quiet = [] {
    gp::setLogSink([](std::string_view) {});
    // The files live for one input: flushing them would only slow us down.
    gp::hostOps().fsync = [](int) { return 0; };
    return true;
  }();
  (void)quiet;
  std::string_view input(reinterpret_cast<const char *>(data), size);
  size_t nul = input.find('\0');
  std::string_view file = input.substr(0, nul);
  std::string agent(nul == std::string_view::npos ? std::string_view()
                                                  : input.substr(nul + 1));
  write(machine.xml, file);
  const char *config = machine.config.c_str();

  ToolsUpdateInfo *info = nullptr;
  int count = 0;
  if (ToolsVersion_GetUpdateInfo(config, &info, &count)) {
    for (int i = 0; i < count; ++i) {
      if (info[i].name == nullptr || info[i].status == 0) {
        __builtin_trap();
      }
    }
    ToolsVersion_FreeUpdateInfo(info, count);
  }
  int error = 0, counter = 0;
  ToolsVersion_GetInstallInfo(config, &error, &counter);
  gp::ConfigDict guest;
  gp::tools::toolsStatusFromExtendedConfig(config, &guest);

  if (ToolsVersion_SaveXmlInfo(config, agent.c_str(), "a.version = 1\n", 1,
                               2)) {
    std::string saved;
    if (!gp::readWholeFile(machine.xml.c_str(), saved) ||
        !gp::tools::toolsXmlParse(saved.data(), saved.size())) {
      __builtin_trap();
    }
  }
  return 0;
}
