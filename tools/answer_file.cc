// guestprep answer-file: writes the answer file of a Linux guest and prints
// its path.
#include <cstdio>
#include <map>
#include <string>

#include "guestprep/autoinstall.h"
#include "lib/guestInstall/autoinstallGuestLinux_answer.h"
#include "platform/strutil.h"
#include "tools/cli.h"
#include "tools/json.h"

namespace gp::cli {
namespace {

constexpr const char kName[] = "answer-file";

int answerFile(const Args &all) {
  Args args = all;
  bool json = takeFlag(args, "--json");
  // Options that take a value; --power-off is the only flag.
  std::map<std::string, std::string> values = {
      {"--os", ""},
      {"--sub-version", "0"},
      {"--out", ""},
      {"--user", ""},
      {"--full-name", ""},
      {"--password", ""},
      {"--root-password", ""},
      {"--product-key", ""},
  };
  std::map<std::string, bool> given;
  bool powerOff = false;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--power-off") {
      powerOff = true;
      continue;
    }
    auto it = values.find(args[i]);
    if (it == values.end() || i + 1 >= args.size()) {
      std::fprintf(stderr, "guestprep %s: unexpected argument '%s'\n", kName,
                   args[i].c_str());
      return usageError(kName);
    }
    it->second = args[++i];
    given[it->first] = true;
  }
  for (const char *required : {"--os", "--out", "--user", "--full-name",
                               "--password", "--root-password"}) {
    if (!given[required]) {
      std::fprintf(stderr, "guestprep %s: %s is required\n", kName, required);
      return usageError(kName);
    }
  }
  const std::string &subText = values["--sub-version"];
  long sub = str::parseLong(subText);
  if (subText.find_first_not_of("0123456789") != std::string::npos || sub < 0 ||
      sub >= GUESS_VERSION_DUMMY_LAST) {
    std::fprintf(stderr, "guestprep %s: --sub-version must be 0 to %d\n", kName,
                 GUESS_VERSION_DUMMY_LAST - 1);
    return usageError(kName);
  }

  const std::string &os = values["--os"];
  const std::string &out = values["--out"];
  const std::string &key = values["--product-key"];
  if (!AutoInstall_PrepareAnswerFileEx_Linux(
          os.c_str(), static_cast<GuessVersion>(sub), out.c_str(),
          values["--user"].c_str(), values["--full-name"].c_str(),
          values["--password"].c_str(), values["--root-password"].c_str(),
          key.empty() ? nullptr : key.c_str(), powerOff ? TRUE : FALSE)) {
    auto kind = autoinstall::autoInstallGetLinuxKind(os.c_str());
    if (kind == autoinstall::LINUX_KIND_NONE) {
      std::fprintf(stderr, "guestprep %s: '%s' has no Linux answer file\n",
                   kName, os.c_str());
    } else if (std::string problem = directoryProblem(out); !problem.empty()) {
      reportFileError(out, problem);
    } else {
      std::fprintf(stderr, "guestprep %s: cannot write the answer file in %s\n",
                   kName, out.c_str());
    }
    return 1;
  }
  std::string path = autoinstall::autoInstallLinuxAnswerPath(
      autoinstall::autoInstallGetLinuxKind(os.c_str()), out);
  if (json) {
    printJson({{"osName", os}, {"outDir", out}, {"path", path}});
  } else {
    std::printf("%s\n", path.c_str());
  }
  return 0;
}

}  // namespace

GP_COMMAND(
    kName,
    "[--json] --os ID [--sub-version N] --out DIR --user U --full-name F "
    "--password P --root-password R [--product-key K] [--power-off]",
    "write the answer file of a Linux guest and print its path", answerFile);

}  // namespace gp::cli
