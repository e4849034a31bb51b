// guestprep remaster: a copy of an installation disc whose own installer
// reads the given answer file unattended.
#include "lib/medium/remaster.h"

#include <cstdio>
#include <string>

#include "tools/cli.h"
#include "tools/json.h"

namespace gp::cli {
namespace {

// Takes "--name VALUE" from `args`; false when the option is missing its
// value or given twice.
bool takeValue(Args &args, const char *name, std::string &value, bool &seen) {
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--") {
      break;
    }
    if (args[i] == name) {
      if (seen || i + 1 >= args.size()) {
        return false;
      }
      value = args[i + 1];
      seen = true;
      args.erase(args.begin() + static_cast<long>(i),
                 args.begin() + static_cast<long>(i) + 2);
      --i;
    }
  }
  return true;
}

int remaster(const Args &argsIn) {
  Args args = argsIn;
  bool json = takeFlag(args, "--json");
  std::string answer, out;
  bool haveAnswer = false, haveOut = false;
  if (!takeValue(args, "--answer-file", answer, haveAnswer) ||
      !takeValue(args, "--out", out, haveOut) || !haveAnswer || !haveOut ||
      args.size() != 1 || (!args[0].empty() && args[0][0] == '-')) {
    return usageError("remaster");
  }
  const std::string &image = args[0];
  if (std::string problem = readProblem(image); !problem.empty()) {
    reportFileError(image, problem);
    return 2;
  }
  std::string error;
  medium::RemasterStatus status = medium::remasterMedium(
      image, answer, out, error, [](const std::string &line) {
        std::fprintf(stderr, "guestprep: %s\n", line.c_str());
      });
  int code = static_cast<int>(status);
  if (json) {
    printJson(Json{
        {"imagePath", image},
        {"answerFilePath", answer},
        {"outPath", out},
        {"status", code},
        {"errorMessage",
         status == medium::RemasterStatus::Ok ? Json(nullptr) : Json(error)}});
  }
  if (status != medium::RemasterStatus::Ok) {
    std::fprintf(stderr, "guestprep: %s\n", error.c_str());
  }
  return code;
}

}  // namespace

GP_COMMAND("remaster", "IMAGE --answer-file FILE --out OUT.iso [--json]",
           "a copy of an installation disc that installs unattended", remaster);

}  // namespace gp::cli
