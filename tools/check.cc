// guestprep check: whether the guest on an image can be installed
// unattended, and the limits and reserved names the host applies to the
// user's entries for it.
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "guestprep/autoinstall.h"
#include "guestprep/guess.h"
#include "platform/strutil.h"
#include "tools/cli.h"
#include "tools/json.h"

namespace gp::cli {
namespace {

struct CheckOptions {
  std::string family;
  std::string image;
  std::string osName;
  long subVersion = 0;
  std::string version;
};

bool parseCheckArgs(const Args &args, CheckOptions &opt) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string &a = args[i];
    bool hasValue = i + 1 < args.size();
    if (a == "--family" && hasValue) {
      opt.family = args[++i];
    } else if (a == "--os" && hasValue) {
      opt.osName = args[++i];
    } else if (a == "--sub-version" && hasValue) {
      opt.subVersion = str::parseLong(args[++i]);
    } else if (a == "--version" && hasValue) {
      opt.version = args[++i];
    } else if (!a.empty() && a[0] != '-' && opt.image.empty()) {
      opt.image = a;
    } else {
      return false;
    }
  }
  bool familyOk =
      opt.family.empty() || opt.family == "windows" || opt.family == "linux";
  bool oneSource = opt.image.empty() != opt.osName.empty();
  return familyOk && oneSource && opt.subVersion >= 0 &&
         opt.subVersion < GUESS_VERSION_DUMMY_LAST;
}

std::string reservedList(const AutoInstallReservedName *list) {
  if (list == nullptr || list->name == nullptr) {
    return "(none)";
  }
  std::string out;
  for (; list->name != nullptr; ++list) {
    out += out.empty() ? "" : " ";
    out += list->name;
    out += list->isPrefix ? "*" : "";
  }
  return out;
}

std::string flagBytes(const uint8_t *bytes, size_t n) {
  std::string out;
  for (size_t i = 0; i < n; ++i) {
    out += (i == 0 ? "" : " ") + std::to_string(bytes[i]);
  }
  return out;
}

// Without --family, the guest's own family: Windows identifiers all begin
// with "win" or "longhorn".
std::string familyOf(const GuessInfo &info) {
  if (str::startsWithCaseless(info.osName, "win") ||
      str::startsWithCaseless(info.osName, "longhorn")) {
    return "windows";
  }
  return "linux";
}

Json reservedJson(const AutoInstallReservedName *list) {
  Json out = Json::array();
  for (; list != nullptr && list->name != nullptr; ++list) {
    out.push_back({{"name", list->name}, {"isPrefix", list->isPrefix != 0}});
  }
  return out;
}

Json reportJson(const CheckOptions &opt, const GuessInfo &info,
                const std::string &family) {
  AutoInstallConfigInfo config;
  AutoInstall_GetInstallConfigInfo(family.c_str(), &info, &config);
  Json doc;
  doc["image"] = opt.image.empty() ? Json(nullptr) : Json(opt.image);
  doc["osName"] = jsonText(info.osName);
  doc["subVersion"] = info.subVersion;
  doc["subVersionName"] = Guess_GetSubString(GuessVersion(info.subVersion));
  doc["versionString"] = info.versionString;
  doc["family"] = family;
  doc["supported"] = AutoInstall_IsSupportedGuest(&info) != FALSE;
  if (family == "linux") {
    doc["needsFloppy"] = AutoInstall_NeedsFloppy_Linux(info.osName) != FALSE;
  }
  doc["reservedShortNames"] = reservedJson(config.reservedShortNames);
  doc["reservedNames"] = reservedJson(config.reservedNames);
  doc["maxShortNameLength"] = config.maxShortNameLength;
  doc["maxNameLength"] = config.maxNameLength;
  doc["guestLimit"] = config.guestLimit;
  doc["maxPasswordLength"] = config.maxPasswordLength;
  doc["familyFlags"] = std::vector<int>(std::begin(config.familyFlags),
                                        std::end(config.familyFlags));
  doc["guestFlags"] = std::vector<int>(std::begin(config.guestFlags),
                                       std::end(config.guestFlags));
  return doc;
}

void printReport(const CheckOptions &opt, const GuessInfo &info,
                 const std::string &family) {
  AutoInstallConfigInfo config;
  AutoInstall_GetInstallConfigInfo(family.c_str(), &info, &config);
  Bool supported = AutoInstall_IsSupportedGuest(&info);
  if (!opt.image.empty()) {
    std::printf("image:              %s\n", opt.image.c_str());
  }
  std::printf("osName:             %s\n", info.osName);
  std::printf("subVersion:         %u (%s)\n", info.subVersion,
              Guess_GetSubString(GuessVersion(info.subVersion)));
  std::printf("versionString:      %s\n", info.versionString);
  std::printf("family:             %s\n", family.c_str());
  std::printf("supported:          %s\n", supported ? "TRUE" : "FALSE");
  if (family == "linux") {
    std::printf("needsFloppy:        %s\n",
                AutoInstall_NeedsFloppy_Linux(info.osName) ? "TRUE" : "FALSE");
  }
  std::printf("maxNameLength:      %u\n", config.maxNameLength);
  std::printf("maxShortNameLength: %u\n", config.maxShortNameLength);
  std::printf("maxPasswordLength:  %u\n", config.maxPasswordLength);
  std::printf("guestLimit:         %u\n", config.guestLimit);
  std::printf("familyFlags:        %s\n",
              flagBytes(config.familyFlags, sizeof config.familyFlags).c_str());
  std::printf("guestFlags:         %s\n",
              flagBytes(config.guestFlags, sizeof config.guestFlags).c_str());
  std::printf("reservedNames:      %s\n",
              reservedList(config.reservedNames).c_str());
  std::printf("reservedShortNames: %s\n",
              reservedList(config.reservedShortNames).c_str());
}

int check(const Args &args) {
  Args rest = args;
  bool json = takeFlag(rest, "--json");
  CheckOptions opt;
  if (!parseCheckArgs(rest, opt)) {
    return usageError("check");
  }
  GuessInfo info;
  std::memset(&info, 0, sizeof info);
  if (!opt.image.empty()) {
    int rc = Guess_Guest(opt.image.c_str(), 0, &info);
    if (rc == GUESS_OPEN_FAILED) {
      reportUnreadable(opt.image, "not an ISO 9660 or UDF image");
      return 2;
    }
    if (rc != GUESS_FOUND || info.osName == nullptr) {
      if (json) {
        printJson(
            {{"image", opt.image}, {"osName", nullptr}, {"supported", false}});
        return 1;
      }
      std::printf(
          "image:              %s\nosName:             (none)\n"
          "supported:          FALSE\n",
          opt.image.c_str());
      return 1;
    }
  } else {
    info.osName = opt.osName.c_str();
    info.subVersion = static_cast<uint32_t>(opt.subVersion);
    str::boundedCopy(info.versionString, sizeof info.versionString,
                     opt.version);
  }
  std::string family = opt.family.empty() ? familyOf(info) : opt.family;
  if (json) {
    printJson(reportJson(opt, info, family));
  } else {
    printReport(opt, info, family);
  }
  return AutoInstall_IsSupportedGuest(&info) ? 0 : 1;
}

}  // namespace

GP_COMMAND(
    "check",
    "[--json] [--family windows|linux] (IMAGE | --os ID [--sub-version N] "
    "[--version TEXT])",
    "whether a guest can be installed unattended, with its input limits "
    "(exit 0 when supported)",
    check);

}  // namespace gp::cli
