// guestprep pretty-name: the display name of Windows install image names.
#include <cstdio>
#include <string>

#include "guestprep/autoinstall.h"
#include "platform/abi.h"
#include "tools/cli.h"

namespace gp::cli {
namespace {

int prettyName(const Args &args) {
  if (args.empty()) {
    return usageError("pretty-name");
  }
  for (const std::string &name : args) {
    MallocPtr<char> pretty(AutoInstall_GetPrettyWindowsName(name.c_str()));
    std::printf("%s\n", pretty.get());
  }
  return 0;
}

}  // namespace

GP_COMMAND("pretty-name", "IMAGE-NAME...",
           "display names of Windows install images, e.g. "
           "\"Windows 7 HOMEPREMIUMN\"",
           prettyName);

}  // namespace gp::cli
