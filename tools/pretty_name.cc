// guestprep pretty-name: the display name of Windows install image names.
#include <cstdio>
#include <string>

#include "guestprep/autoinstall.h"
#include "platform/abi.h"
#include "tools/cli.h"
#include "tools/json.h"

namespace gp::cli {
namespace {

int prettyName(const Args &all) {
  Args args = all;
  bool json = takeFlag(args, "--json");
  if (args.empty()) {
    return usageError("pretty-name");
  }
  Json names = Json::array();
  for (const std::string &name : args) {
    MallocPtr<char> pretty(AutoInstall_GetPrettyWindowsName(name.c_str()));
    if (json) {
      names.push_back(
          {{"imageName", name}, {"prettyName", jsonText(pretty.get())}});
    } else {
      std::printf("%s\n", pretty.get());
    }
  }
  if (json) {
    printJson(names);
  }
  return 0;
}

}  // namespace

GP_COMMAND("pretty-name", "[--json] IMAGE-NAME...",
           "display names of Windows install images, e.g. "
           "\"Windows 7 HOMEPREMIUMN\"",
           prettyName);

}  // namespace gp::cli
