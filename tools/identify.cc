// guestprep identify: runs the identification on each image.
#include <cstdio>
#include <string>

#include "guestprep/guess.h"
#include "tools/cli.h"

namespace gp::cli {
namespace {

const char *resultName(int rc) {
  switch (rc) {
    case GUESS_FOUND: return "GUESS_FOUND";
    case GUESS_NOT_FOUND: return "GUESS_NOT_FOUND";
    default: return "GUESS_OPEN_FAILED";
  }
}

std::string orNull(const char *s) { return s ? jsonString(s) : "null"; }

// The editions field is a list of names, each followed by "?".
std::string editionsJson(const char *editions) {
  std::string out = "[";
  std::string current;
  bool first = true;
  for (const char *p = editions; *p != '\0'; ++p) {
    if (*p != '?') {
      current += *p;
      continue;
    }
    out += (first ? "" : ",") + jsonString(current);
    first = false;
    current.clear();
  }
  return out + "]";
}

void printHuman(const char *image, int rc, const GuessInfo &info) {
  std::printf("%s\n", image);
  std::printf("  result:        %d (%s)\n", rc, resultName(rc));
  std::printf("  osName:        %s\n", info.osName ? info.osName : "(none)");
  std::printf("  osName64:      %s\n", info.osName64 ? info.osName64 : "(none)");
  std::printf("  subVersion:    %u (%s)\n", info.subVersion,
              info.subVersion < GUESS_VERSION_DUMMY_LAST
                  ? Guess_GetSubString(GuessVersion(info.subVersion))
                  : "?");
  std::printf("  noIsolinux:    %s\n", info.noIsolinux ? "TRUE" : "FALSE");
  std::printf("  versionString: %s\n", info.versionString);
  std::printf("  language:      %s\n", info.language);
  std::printf("  editions:      %s\n", info.editions);
}

void printJson(const char *image, int rc, const GuessInfo &info) {
  std::printf(
      "{\"image\":%s,\"result\":%d,\"resultName\":%s,\"osName\":%s,"
      "\"osName64\":%s,\"subVersion\":%u,\"subVersionName\":%s,"
      "\"noIsolinux\":%s,\"versionString\":%s,\"language\":%s,"
      "\"editions\":%s}\n",
      jsonString(image).c_str(), rc, jsonString(resultName(rc)).c_str(),
      orNull(info.osName).c_str(), orNull(info.osName64).c_str(),
      info.subVersion,
      info.subVersion < GUESS_VERSION_DUMMY_LAST
          ? jsonString(Guess_GetSubString(GuessVersion(info.subVersion))).c_str()
          : "null",
      info.noIsolinux ? "true" : "false",
      jsonString(info.versionString).c_str(),
      jsonString(info.language).c_str(), editionsJson(info.editions).c_str());
}

int identify(const Args &args) {
  bool json = false;
  std::vector<std::string> images;
  for (const std::string &a : args) {
    if (a == "--json") {
      json = true;
    } else if (!a.empty() && a[0] == '-') {
      return usageError("identify");
    } else {
      images.push_back(a);
    }
  }
  if (images.empty()) {
    return usageError("identify");
  }
  int status = 0;
  for (const std::string &image : images) {
    GuessInfo info;
    int rc = Guess_Guest(image.c_str(), 0, &info);
    if (json) {
      printJson(image.c_str(), rc, info);
    } else {
      printHuman(image.c_str(), rc, info);
    }
    if (rc == GUESS_OPEN_FAILED) {
      status = 2;
    } else if (rc == GUESS_NOT_FOUND && status == 0) {
      status = 1;
    }
  }
  return status;
}

}  // namespace

GP_COMMAND("identify", "[--json] IMAGE...",
           "identify the guest OS on installation images (exit 0: all "
           "recognised, 1: one not recognised, 2: one could not be opened)",
           identify);

}  // namespace gp::cli
