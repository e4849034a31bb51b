// guestprep validate: checks a full name, user name or password as the host
// does while the user types, and prints the message the user would see.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "guestprep/autoinstall.h"
#include "platform/abi.h"
#include "tools/cli.h"
#include "tools/json.h"

namespace gp::cli {
namespace {

const char *resultName(int code) {
  switch (code) {
    case AUTOINSTALL_VALID:
      return "AUTOINSTALL_VALID";
    case AUTOINSTALL_BAD_LINUX_NAME:
      return "AUTOINSTALL_BAD_LINUX_NAME";
    case AUTOINSTALL_BAD_WINDOWS_NAME:
      return "AUTOINSTALL_BAD_WINDOWS_NAME";
    case AUTOINSTALL_BAD_PASSWORD_SUBSTRING:
      return "AUTOINSTALL_BAD_PASSWORD_SUBSTRING";
    case AUTOINSTALL_BAD_GECOS_SUBSTRING:
      return "AUTOINSTALL_BAD_GECOS_SUBSTRING";
    case AUTOINSTALL_BAD_LINUX_USERNAME:
      return "AUTOINSTALL_BAD_LINUX_USERNAME";
    case AUTOINSTALL_BAD_UBUNTU_USERNAME:
      return "AUTOINSTALL_BAD_UBUNTU_USERNAME";
    default:
      return "?";
  }
}

int validate(const Args &all) {
  Args args = all;
  bool json = takeFlag(args, "--json");
  std::string family, kind, osName;
  const std::string *text = nullptr;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string &a = args[i];
    bool hasValue = i + 1 < args.size();
    if (a == "--family" && hasValue) {
      family = args[++i];
    } else if (a == "--kind" && hasValue) {
      kind = args[++i];
    } else if (a == "--os" && hasValue) {
      osName = args[++i];
    } else if (a == "--" && i + 2 == args.size() && text == nullptr) {
      text = &args[++i];
    } else if ((a.empty() || a[0] != '-') && text == nullptr) {
      text = &args[i];
    } else {
      return usageError("validate");
    }
  }
  // The library treats any other family as a programming error and stops.
  if ((family != "windows" && family != "linux") || text == nullptr) {
    return usageError("validate");
  }
  using Validator = AutoInstallValidation (*)(const char *, const GuessInfo *,
                                              const char *, char **);
  Validator fn = kind == "name"       ? AutoInstall_ValidateName
                 : kind == "short"    ? AutoInstall_ValidateShortName
                 : kind == "password" ? AutoInstall_ValidatePassword
                                      : nullptr;
  if (fn == nullptr) {
    return usageError("validate");
  }
  GuessInfo info;
  std::memset(&info, 0, sizeof info);
  info.osName = osName.empty() ? nullptr : osName.c_str();
  char *message = nullptr;
  int code = fn(family.c_str(), &info, text->c_str(), &message);
  MallocPtr<char> owned(message);
  if (json) {
    printJson({{"text", *text},
               {"result", code},
               {"resultName", resultName(code)},
               {"message", jsonText(message)}});
  } else {
    std::printf("%d %s\n", code, resultName(code));
    if (message != nullptr) {
      std::printf("%s\n", message);
    }
  }
  return code == AUTOINSTALL_VALID ? 0 : 1;
}

}  // namespace

GP_COMMAND(
    "validate",
    "[--json] --family windows|linux --kind name|short|password [--os ID] "
    "[--] TEXT",
    "checks a user entry; prints the code and the message "
    "(exit 0 when valid)",
    validate);

}  // namespace gp::cli
