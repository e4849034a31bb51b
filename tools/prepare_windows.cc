// guestprep prepare windows: identifies a Windows installation image and
// writes its answer files (winnt.sif, autoun~0.xml, storePwd.ini) from the
// shipped templates, in the image's language and for its first install
// image unless told otherwise; given the support files, goes on to put them
// with the storage driver on the boot floppy autoinst.flp.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "guestprep/autoinstall.h"
#include "guestprep/guess.h"
#include "platform/abi.h"
#include "platform/hostio.h"
#include "tools/cli.h"
#include "tools/json.h"
#include "tools/prepare.h"

#ifndef GP_TEMPLATES_DIR
#define GP_TEMPLATES_DIR "/usr/share/guestprep/templates"
#endif

namespace gp::cli {
namespace {

constexpr const char kName[] = "prepare";

struct PrepareOptions {
  std::string image;
  std::string out;
  std::string user;
  std::string password;
  std::string productKey;
  std::string kmsHost;
  std::string imageName;
  bool hasImageName = false;
  bool keepAutoLogon = false;
  // The boot floppy, made when supportDir is given.
  std::string supportDir;
  std::string upgraderDir;
  std::string toolsIso;
  std::string driverDir;
  std::string templateFloppy;
};

bool parsePrepareArgs(const Args &args, PrepareOptions &opt) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string &a = args[i];
    bool hasValue = i + 1 < args.size();
    if (a == "--out" && hasValue) {
      opt.out = args[++i];
    } else if (a == "--user" && hasValue) {
      opt.user = args[++i];
    } else if (a == "--password" && hasValue) {
      opt.password = args[++i];
    } else if (a == "--product-key" && hasValue) {
      opt.productKey = args[++i];
    } else if (a == "--kms" && hasValue) {
      opt.kmsHost = args[++i];
    } else if (a == "--image" && hasValue) {
      opt.imageName = args[++i];
      opt.hasImageName = true;
    } else if (a == "--support-dir" && hasValue) {
      opt.supportDir = args[++i];
    } else if (a == "--upgrader-dir" && hasValue) {
      opt.upgraderDir = args[++i];
    } else if (a == "--tools-iso" && hasValue) {
      opt.toolsIso = args[++i];
    } else if (a == "--driver-dir" && hasValue) {
      opt.driverDir = args[++i];
    } else if (a == "--template-floppy" && hasValue) {
      opt.templateFloppy = args[++i];
    } else if (a == "--keep-autologon") {
      opt.keepAutoLogon = true;
    } else if (!a.empty() && a[0] != '-' && opt.image.empty()) {
      opt.image = a;
    } else {
      return false;
    }
  }
  // The floppy options mean nothing without the support files.
  const bool floppyOption = !opt.upgraderDir.empty() || !opt.toolsIso.empty() ||
                            !opt.driverDir.empty() ||
                            !opt.templateFloppy.empty();
  if (floppyOption && opt.supportDir.empty()) {
    return false;
  }
  if (opt.upgraderDir.empty()) {
    opt.upgraderDir = opt.supportDir;
  }
  return !opt.image.empty() && !opt.out.empty() && !opt.user.empty() &&
         !opt.password.empty();
}

// The templates: $GUESTPREP_TEMPLATEDIR/windows when set, else where
// `cmake --install` puts them.
std::string templateDir() {
  const char *dir = std::getenv("GUESTPREP_TEMPLATEDIR");
  return joinPath(dir != nullptr && dir[0] != '\0' ? dir : GP_TEMPLATES_DIR,
                  "windows");
}

// Refuses a name or password the guest would not take, with the library's
// message.
bool accepted(const char *what, AutoInstallValidation result, char *message) {
  MallocPtr<char> owner(message);
  if (result == AUTOINSTALL_VALID) {
    return true;
  }
  std::fprintf(stderr, "guestprep %s: %s refused: %s\n", kName, what,
               message != nullptr ? message : "invalid");
  return false;
}

const char *orNull(const std::string &s) {
  return s.empty() ? nullptr : s.c_str();
}

// The files that the run leaves in the output directory.
std::vector<std::string> outputFiles(const PrepareOptions &opt) {
  if (!opt.supportDir.empty()) {
    return {joinPath(opt.out, "autoinst.flp")};
  }
  std::vector<std::string> files;
  for (const char *file : {"winnt.sif", "autoun~0.xml", "storePwd.ini"}) {
    files.push_back(joinPath(opt.out, file));
  }
  return files;
}

// Puts the answer files, the storage driver and the guest programs on the
// boot floppy; the answer files leave the output directory.
bool makeFloppy(const PrepareOptions &opt) {
  if (AutoInstall_MakeFloppyImg(orNull(opt.templateFloppy), opt.out.c_str(),
                                orNull(opt.toolsIso), orNull(opt.driverDir),
                                opt.upgraderDir.c_str(),
                                opt.supportDir.c_str())) {
    return true;
  }
  std::fprintf(stderr,
               "guestprep %s: the boot floppy was not made (the log says "
               "why)\n",
               kName);
  return false;
}

}  // namespace

int prepareWindows(const Args &all) {
  Args args = all;
  bool json = takeFlag(args, "--json");
  PrepareOptions opt;
  if (!parsePrepareArgs(args, opt)) {
    return usageError(kName);
  }
  GuessInfo info;
  std::memset(&info, 0, sizeof info);
  int rc = Guess_Guest(opt.image.c_str(), 0, &info);
  if (rc == GUESS_OPEN_FAILED) {
    reportUnreadable(opt.image, "not an ISO 9660 or UDF image");
    return 2;
  }
  if (rc != GUESS_FOUND || info.osName == nullptr ||
      !AutoInstallIsSupportedWindowsGuest(&info)) {
    std::fprintf(stderr,
                 "guestprep %s: %s is not a Windows image that can be "
                 "installed unattended (%s)\n",
                 kName, opt.image.c_str(),
                 info.osName != nullptr ? info.osName : "not recognised");
    return 1;
  }
  char *message = nullptr;
  if (!accepted("user name",
                AutoInstall_ValidateName("windows", &info, opt.user.c_str(),
                                         &message),
                message)) {
    return 1;
  }
  message = nullptr;
  if (!accepted("password",
                AutoInstall_ValidatePassword("windows", &info,
                                             opt.password.c_str(), &message),
                message)) {
    return 1;
  }
  if (!opt.hasImageName) {
    std::string editions = info.editions;
    opt.imageName = editions.substr(0, editions.find('?'));
  }
  if (!makeDirectories(opt.out)) {
    std::string problem = directoryProblem(opt.out);
    reportFileError(opt.out, problem.empty() ? "cannot be created" : problem);
    return 1;
  }
  std::string dir = templateDir();
  std::string winnt = joinPath(dir, "winnt.sif");
  std::string unattend = joinPath(dir, "autounattend.xml");
  std::string storePwd = joinPath(dir, "storePwd.ini");
  Bool ok = AutoInstall_PrepareAnswerFileEx(
      winnt.c_str(), unattend.c_str(), storePwd.c_str(), orNull(opt.productKey),
      orNull(opt.kmsHost), opt.user.c_str(), opt.password.c_str(), info.osName,
      opt.out.c_str(), info.language, opt.imageName.c_str(),
      opt.keepAutoLogon ? TRUE : FALSE);
  if (!ok) {
    if (std::string problem = directoryProblem(opt.out); !problem.empty()) {
      reportFileError(opt.out, problem);
    } else {
      std::fprintf(stderr,
                   "guestprep %s: the answer files were not written (the "
                   "log says why)\n",
                   kName);
    }
    return 1;
  }
  if (!opt.supportDir.empty() && !makeFloppy(opt)) {
    return 1;
  }
  if (json) {
    Json files = Json::array();
    for (const std::string &file : outputFiles(opt)) {
      files.push_back(file);
    }
    printJson({{"osName", jsonText(info.osName)},
               {"language", jsonText(info.language)},
               {"imageName", opt.imageName},
               {"files", files}});
    return 0;
  }
  std::printf("guest:    %s\nlanguage: %s\nimage:    %s\n", info.osName,
              info.language[0] != '\0' ? info.language : "(default)",
              opt.imageName.empty() ? "(none)" : opt.imageName.c_str());
  for (const std::string &file : outputFiles(opt)) {
    std::printf("%s\n", file.c_str());
  }
  return 0;
}

}  // namespace gp::cli
