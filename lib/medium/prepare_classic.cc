// The classic path, for the guests that identification recognises and the
// unattended-installation rules support: the classic answer file, and for
// Linux a boot ISO with the installer's kernel and the answer-file
// arguments (the install disc goes beside it as the second CD), for Windows
// Vista to 8 the XML answer file on a second medium.
#include <cstdlib>
#include <string>

#include "guestprep/autoinstall.h"
#include "lib/medium/answer_templates.h"
#include "lib/medium/prepare_steps.h"
#include "platform/abi.h"
#include "platform/hostio.h"
#include "platform/strutil.h"

namespace gp::medium {
namespace {

void say(const ProgressFn &progress, const std::string &line) {
  if (progress) {
    progress(line);
  }
}

const char *orNull(const std::string &s) {
  return s.empty() ? nullptr : s.c_str();
}

// The first rule an entry breaks, as "what: message"; empty when none.
std::string firstRefusal(const char *family, const GuessInfo &guess,
                         const PrepareRequest &request) {
  using Validate = AutoInstallValidation (*)(const char *, const GuessInfo *,
                                             const char *, char **);
  const InstallEntries &e = request.entries;
  const bool linux = std::string(family) == "linux";
  const struct {
    Validate validate;
    const char *what;
    const std::string &text;
    bool linuxOnly;
  } checks[] = {
      {linux ? AutoInstall_ValidateShortName : AutoInstall_ValidateName, "user",
       e.user, false},
      {AutoInstall_ValidateName, "full name", e.fullName, true},
      {AutoInstall_ValidatePassword, "password", e.password, false},
      {AutoInstall_ValidatePassword, "root password", e.rootPassword, true},
  };
  for (const auto &check : checks) {
    if (check.linuxOnly && !linux) {
      continue;
    }
    char *message = nullptr;
    if (check.validate(family, &guess, check.text.c_str(), &message) !=
        AUTOINSTALL_VALID) {
      MallocPtr<char> owner(message);
      return std::string(check.what) + ": " +
             (message != nullptr ? message : "refused");
    }
  }
  return {};
}

// The first executable called `name` on PATH; empty when there is none.
std::string findOnPath(const std::string &name) {
  const char *path = std::getenv("PATH");
  std::string dirs = path == nullptr ? "/usr/bin:/bin" : path;
  for (size_t start = 0; start <= dirs.size();) {
    size_t end = dirs.find(':', start);
    end = end == std::string::npos ? dirs.size() : end;
    std::string dir = dirs.substr(start, end - start);
    std::string candidate = joinPath(dir.empty() ? "." : dir, name);
    struct stat st;
    if (hostOps().stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
        ::access(candidate.c_str(), X_OK) == 0) {
      return candidate;
    }
    start = end + 1;
  }
  return {};
}

// The answer file the Linux writer made in `dir`, and its installer.
struct LinuxAnswer {
  const char *relative;
  const char *installer;
};
const LinuxAnswer kLinuxAnswers[] = {
    {"ks.cfg", "anaconda"},
    {"custom/preseed.cfg", "debian-installer"},
    {"autoinst.xml", "yast"},
};

bool copyProduct(const std::string &from, const std::string &to,
                 std::string &error) {
  std::string text;
  if (!readWholeFile(from.c_str(), text)) {
    error = from + ": cannot be read back";
    return false;
  }
  return writeProduct(to, text, error);
}

PrepareStatus classicLinux(const PrepareRequest &request,
                           const GuessInfo &guess, Staging &staging,
                           PrepareResult &result, std::string &error,
                           const ProgressFn &progress) {
  const InstallEntries &e = request.entries;
  const std::string root = staging.path("iso");
  say(progress, std::string("writing the answer file for ") + guess.osName);
  if (!makeDirectories(root) ||
      !AutoInstall_PrepareAnswerFileEx_Linux(
          guess.osName, static_cast<GuessVersion>(guess.subVersion),
          root.c_str(), e.user.c_str(), e.fullName.c_str(), e.password.c_str(),
          e.rootPassword.c_str(), orNull(e.productKey),
          e.powerOff ? TRUE : FALSE)) {
    error = "the answer file cannot hold these entries literally";
    return PrepareStatus::Refused;
  }
  const LinuxAnswer *answer = nullptr;
  for (const LinuxAnswer &candidate : kLinuxAnswers) {
    struct stat st;
    if (hostOps().stat(joinPath(root, candidate.relative).c_str(), &st) == 0) {
      answer = &candidate;
    }
  }
  if (answer == nullptr) {
    error = std::string(guess.osName) + ": no answer file of a known kind";
    return PrepareStatus::Refused;
  }
  std::string name = answer->relative;
  name = name.substr(name.find_last_of('/') + 1);
  if (!copyProduct(joinPath(root, answer->relative), staging.path(name),
                   error)) {
    return PrepareStatus::Refused;
  }
  staging.keep(name);
  say(progress, "copying the installer's kernel from the isolinux entry");
  if (!AutoInstall_ScanISO(request.image.c_str(), root.c_str(), guess.osName,
                           nullptr)) {
    error = request.image + ": the disc has no usable isolinux boot entry";
    return PrepareStatus::Refused;
  }
  if (AutoInstall_NeedsFloppy_Linux(guess.osName)) {
    say(progress, "building autoinst.flp");
    if (!AutoInstall_MakeFloppyImg_Linux(root.c_str(),
                                         staging.directory().c_str(),
                                         orNull(e.templateDir), guess.osName)) {
      error =
          "the answer floppy was not made (SUSE needs --template-dir with "
          "suse.flp)";
      return PrepareStatus::Refused;
    }
    staging.keep("autoinst.flp");
    result.floppy = staging.finalPath("autoinst.flp");
  }
  std::string tool = request.masterTool;
  for (const char *candidate : {"xorrisofs", "genisoimage"}) {
    tool = tool.empty() ? findOnPath(candidate) : tool;
  }
  say(progress, "mastering autoinst.iso");
  if (tool.empty() || !AutoInstall_MasterISO(root.c_str(), tool.c_str(),
                                             staging.directory().c_str())) {
    error = tool.empty() ? "neither xorrisofs nor genisoimage is on PATH"
                         : "mastering autoinst.iso with " + tool + " failed";
    return PrepareStatus::Refused;
  }
  staging.keep("autoinst.iso");
  result.installer = answer->installer;
  result.answerFile = staging.finalPath(name);
  result.bootImage = staging.finalPath("autoinst.iso");
  result.secondMedium = request.image;
  return PrepareStatus::Ok;
}

std::string windowsTemplates(const InstallEntries &e) {
  return joinPath(templateRoot(e.templateDir), "windows");
}

PrepareStatus classicWindows(const PrepareRequest &request,
                             const GuessInfo &guess, Staging &staging,
                             PrepareResult &result, std::string &error,
                             const ProgressFn &progress) {
  const InstallEntries &e = request.entries;
  const std::string os = guess.osName;
  if (str::startsWithCaseless(os, "winXP") ||
      str::startsWithCaseless(os, "winNet")) {
    error = os +
            ": its installer reads winnt.sif from the boot floppy only; "
            "make it with 'guestprep prepare windows IMAGE --support-dir D'";
    return PrepareStatus::Refused;
  }
  std::string edition = e.edition;
  if (edition.empty()) {
    std::string names = guess.editions;
    edition = names.substr(0, names.find('?'));
  }
  const std::string dir = windowsTemplates(e);
  const std::string work = staging.path("windows");
  say(progress, "writing the answer file for " + os);
  if (!makeDirectories(work) ||
      !AutoInstall_PrepareAnswerFileEx(
          joinPath(dir, "winnt.sif").c_str(),
          joinPath(dir, "autounattend.xml").c_str(), nullptr,
          orNull(e.productKey), nullptr, e.user.c_str(), e.password.c_str(),
          guess.osName, work.c_str(), guess.language, orNull(edition), FALSE)) {
    error = "the answer files were not written (templates in " + dir + ")";
    return PrepareStatus::Refused;
  }
  Answer answer;
  answer.installer = "windows-setup";
  answer.volumeLabel = "AUTOUNATTEND";
  answer.files.push_back({"Autounattend.xml", ""});
  if (!readWholeFile(joinPath(work, "autoun~0.xml").c_str(),
                     answer.files.front().text) ||
      !writeProduct(staging.path("Autounattend.xml"), answer.files.front().text,
                    error)) {
    error = error.empty() ? "the answer file cannot be read back" : error;
    return PrepareStatus::Refused;
  }
  staging.keep("Autounattend.xml");
  say(progress, "writing the second medium " + staging.finalPath("seed.iso"));
  if (!makeSeedMedium(answer, staging.path("seed.iso"), error)) {
    return PrepareStatus::Refused;
  }
  staging.keep("seed.iso");
  result.installer = "windows-setup";
  result.answerFile = staging.finalPath("Autounattend.xml");
  result.bootImage = request.image;
  result.secondMedium = staging.finalPath("seed.iso");
  return PrepareStatus::Ok;
}

}  // namespace

PrepareStatus prepareClassic(const PrepareRequest &request,
                             const GuessInfo &guess, Staging &staging,
                             PrepareResult &result, std::string &error,
                             const ProgressFn &progress) {
  const bool windows = AutoInstallIsSupportedWindowsGuest(&guess) != FALSE;
  const char *family = windows ? "windows" : "linux";
  error = firstRefusal(family, guess, request);
  if (!error.empty()) {
    return PrepareStatus::Refused;
  }
  result.path = "parts";
  // The classic answer files lay out an MBR disk and boot through
  // isolinux or the BIOS loader of the Windows disc, which waits for no
  // key on an empty disk.
  result.firmware = "bios";
  result.bootKeypress = false;
  return windows
             ? classicWindows(request, guess, staging, result, error, progress)
             : classicLinux(request, guess, staging, result, error, progress);
}

}  // namespace gp::medium
