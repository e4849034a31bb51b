// guestprep identify: runs the identification on each image.
#include <cstdio>
#include <string>

#include "guestprep/guess.h"
#include "lib/medium/guess_record.h"
#include "tools/cli.h"
#include "tools/json.h"

namespace gp::cli {
namespace {

void printHuman(const char *image, int rc, const GuessInfo &info) {
  std::printf("%s\n", image);
  std::printf("  result:        %d (%s)\n", rc, medium::guessResultName(rc));
  std::printf("  osName:        %s\n", info.osName ? info.osName : "(none)");
  std::printf("  osName64:      %s\n",
              info.osName64 ? info.osName64 : "(none)");
  std::printf("  subVersion:    %u (%s)\n", info.subVersion,
              info.subVersion < GUESS_VERSION_DUMMY_LAST
                  ? Guess_GetSubString(GuessVersion(info.subVersion))
                  : "?");
  std::printf("  noIsolinux:    %s\n", info.noIsolinux ? "TRUE" : "FALSE");
  std::printf("  versionString: %s\n", info.versionString);
  std::printf("  language:      %s\n", info.language);
  std::printf("  editions:      %s\n", info.editions);
}

int identify(const Args &args) {
  Args images = args;
  bool json = takeFlag(images, "--json");
  for (const std::string &a : images) {
    if (!a.empty() && a[0] == '-') {
      return usageError("identify");
    }
  }
  if (images.empty()) {
    return usageError("identify");
  }
  int status = 0;
  Json records = Json::array();
  for (const std::string &image : images) {
    GuessInfo info;
    int rc = Guess_Guest(image.c_str(), 0, &info);
    if (json) {
      records.push_back(medium::guessRecordJson(image.c_str(), rc, info));
    } else {
      printHuman(image.c_str(), rc, info);
    }
    if (rc == GUESS_OPEN_FAILED) {
      reportUnreadable(image, "not an ISO 9660 or UDF image");
      status = 2;
    } else if (rc == GUESS_NOT_FOUND && status == 0) {
      status = 1;
    }
  }
  if (json) {
    printJson(records);
  }
  return status;
}

}  // namespace

GP_COMMAND("identify", "[--json] IMAGE...",
           "identify the guest OS on installation images (exit 0: all "
           "recognised, 1: one not recognised, 2: one could not be opened)",
           identify);

}  // namespace gp::cli
