// guestprep ini: reads or writes one key of an INI file.
#include <cstdio>
#include <string>
#include <vector>

#include "guestprep/iniutil.h"
#include "tools/cli.h"
#include "tools/json.h"

namespace gp::cli {
namespace {

int iniGet(const std::vector<std::string> &words, bool json) {
  if (words.size() != 3) {
    return usageError("ini");
  }
  // A value never exceeds one line piece, so this buffer holds any of them.
  char value[1024];
  if (!IniUtil_GetIniFileString(words[0].c_str(), words[1].c_str(),
                                words[2].c_str(), value, sizeof value)) {
    std::string problem = readProblem(words[0]);
    if (!problem.empty()) {
      reportFileError(words[0], problem);
      return 1;
    }
    std::fprintf(stderr, "guestprep ini: no key '%s' in section [%s] of %s\n",
                 words[2].c_str(), words[1].c_str(), words[0].c_str());
    return 1;
  }
  if (json) {
    printJson({{"path", words[0]},
               {"section", words[1]},
               {"key", words[2]},
               {"value", value}});
  } else {
    std::printf("%s\n", value);
  }
  return 0;
}

int iniSet(const std::vector<std::string> &words, bool quoted) {
  if (words.size() != 4) {
    return usageError("ini");
  }
  if (!IniUtil_WriteIniFileString(words[0].c_str(), words[1].c_str(),
                                  words[2].c_str(), words[3].c_str(),
                                  quoted ? TRUE : FALSE)) {
    std::string problem = readProblem(words[0]);
    if (!problem.empty()) {
      reportFileError(words[0], problem);
      return 1;
    }
    std::fprintf(stderr, "guestprep ini: could not write key '%s' to %s\n",
                 words[2].c_str(), words[0].c_str());
    return 1;
  }
  return 0;
}

int runIni(const Args &all) {
  Args args = all;
  bool json = takeFlag(args, "--json");
  if (args.empty()) {
    return usageError("ini");
  }
  bool quoted = false;
  std::vector<std::string> words;
  for (size_t i = 1; i < args.size(); ++i) {
    if (args[i] == "--quoted") {
      quoted = true;
    } else {
      words.push_back(args[i]);
    }
  }
  if (args[0] == "get" && !quoted) {
    return iniGet(words, json);
  }
  if (args[0] == "set" && !json) {
    return iniSet(words, quoted);
  }
  return usageError("ini");
}

}  // namespace

GP_COMMAND(
    "ini",
    "get [--json] FILE SECTION KEY | set FILE SECTION KEY VALUE [--quoted]",
    "read or write one key of an INI file", runIni);

}  // namespace gp::cli
