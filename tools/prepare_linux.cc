// guestprep prepare linux: from a Linux installation image to the media of
// an unattended installation: "autoinst.iso" that boots the installer with
// the answer-file arguments, "autoinst.flp" when the installer reads its
// answer file from a floppy, and the tools files.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "guestprep/autoinstall.h"
#include "guestprep/guess.h"
#include "tools/cli.h"
#include "tools/json.h"
#include "tools/prepare.h"

namespace gp::cli {
namespace {

namespace fs = std::filesystem;

constexpr const char kName[] = "prepare";
constexpr int kSteps = 7;

struct PrepareOptions {
  std::string image;
  std::map<std::string, std::string> values = {
      {"--out", ""},          {"--user", ""},          {"--full-name", ""},
      {"--password", ""},     {"--root-password", ""}, {"--tools-dir", ""},
      {"--template-dir", ""}, {"--master", ""},
  };
  bool json = false;
  const std::string &operator[](const char *key) const {
    return values.at(key);
  }
};

bool parseOptions(const Args &args, PrepareOptions &opt) {
  for (size_t i = 0; i < args.size(); ++i) {
    auto it = opt.values.find(args[i]);
    if (args[i] == "--json") {
      opt.json = true;
    } else if (it != opt.values.end() && i + 1 < args.size()) {
      it->second = args[++i];
    } else if (opt.image.empty() && !args[i].empty() && args[i][0] != '-') {
      opt.image = args[i];
    } else {
      std::fprintf(stderr, "guestprep %s: unexpected argument '%s'\n", kName,
                   args[i].c_str());
      return false;
    }
  }
  for (const char *required :
       {"--out", "--user", "--full-name", "--password", "--root-password"}) {
    if (opt[required].empty()) {
      std::fprintf(stderr, "guestprep %s: %s is required\n", kName, required);
      return false;
    }
  }
  if (opt.image.empty()) {
    std::fprintf(stderr, "guestprep %s: the image is required\n", kName);
  }
  return !opt.image.empty();
}

// The first executable called `name` on PATH; empty when there is none.
std::string findOnPath(const std::string &name) {
  const char *path = std::getenv("PATH");
  std::string dirs = path == nullptr ? "/usr/bin:/bin" : path;
  size_t start = 0;
  while (start <= dirs.size()) {
    size_t end = dirs.find(':', start);
    end = end == std::string::npos ? dirs.size() : end;
    std::string dir = dirs.substr(start, end - start);
    std::string candidate = (dir.empty() ? "." : dir) + "/" + name;
    struct stat st;
    if (::stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
        ::access(candidate.c_str(), X_OK) == 0) {
      return candidate;
    }
    start = end + 1;
  }
  return {};
}

// Runs the steps in order and reports each on stderr; the first failure
// ends the run with a message that names its step.
class Steps {
 public:
  template <typename F>
  bool run(const char *what, F &&step, const std::string &whyNot = {}) {
    std::fprintf(stderr, "[%d/%d] %s\n", ++done_, kSteps, what);
    std::fflush(stderr);
    const bool ok = step();
    if (!ok) {
      std::fprintf(stderr, "guestprep %s linux: %s failed%s%s\n", kName, what,
                   whyNot.empty() ? "" : ": ", whyNot.c_str());
    }
    return ok;
  }

 private:
  int done_ = 0;
};

// Whether the entries pass the guest's validation rules; the first refused
// entry's message goes into `why`.
bool entriesValid(const GuessInfo &info, const PrepareOptions &opt,
                  std::string &why) {
  using Validate = AutoInstallValidation (*)(const char *, const GuessInfo *,
                                             const char *, char **);
  const struct {
    Validate validate;
    const char *option;
  } checks[] = {{AutoInstall_ValidateShortName, "--user"},
                {AutoInstall_ValidateName, "--full-name"},
                {AutoInstall_ValidatePassword, "--password"},
                {AutoInstall_ValidatePassword, "--root-password"}};
  for (const auto &c : checks) {
    char *message = nullptr;
    if (c.validate("linux", &info, opt[c.option].c_str(), &message) !=
        AUTOINSTALL_VALID) {
      why = std::string(c.option) + ": " + (message ? message : "refused");
      std::free(message);
      return false;
    }
  }
  return true;
}

struct Products {
  std::string iso, floppy, tools;
};

bool prepareMedia(const PrepareOptions &opt, const GuessInfo &info,
                  const std::string &staging, Steps &steps, Products &out) {
  const std::string &dir = opt["--out"];
  const char *os = info.osName;
  auto answer = [&] {
    return AutoInstall_PrepareAnswerFileEx_Linux(
        os, static_cast<GuessVersion>(info.subVersion), staging.c_str(),
        opt["--user"].c_str(), opt["--full-name"].c_str(),
        opt["--password"].c_str(), opt["--root-password"].c_str(), nullptr,
        FALSE);
  };
  auto scan = [&] {
    return AutoInstall_ScanISO(opt.image.c_str(), staging.c_str(), os, nullptr);
  };
  if (!steps.run("writing the answer file", answer) ||
      !steps.run("scanning the isolinux configuration", scan,
                 "the image has no usable isolinux boot entry")) {
    return false;
  }
  const bool floppy = AutoInstall_NeedsFloppy_Linux(os);
  const char *templates =
      opt["--template-dir"].empty() ? nullptr : opt["--template-dir"].c_str();
  if (!steps.run(
          floppy ? "building autoinst.flp" : "no floppy needed",
          [&] {
            return AutoInstall_MakeFloppyImg_Linux(staging.c_str(), dir.c_str(),
                                                   templates, os);
          },
          "SUSE and Mandriva need --template-dir with suse.flp or "
          "mandriva.flp")) {
    return false;
  }
  out.floppy = floppy ? dir + "/autoinst.flp" : "";
  if (!opt["--tools-dir"].empty()) {
    out.tools = dir + "/tools";
    std::error_code ec;
    fs::create_directories(out.tools, ec);
  }
  if (!steps.run(
          out.tools.empty() ? "no tools files asked for"
                            : "adding the tools files",
          [&] {
            return out.tools.empty() ||
                   AutoInstall_AddTools_Linux(out.tools.c_str(),
                                              opt["--tools-dir"].c_str());
          },
          "--tools-dir must hold zentav-tools-upgrader-32, "
          "zentav-tools-upgrader-64 and run_upgrader.sh")) {
    return false;
  }
  std::string tool = opt["--master"];
  if (tool.empty()) {
    tool = findOnPath("xorrisofs");
  }
  if (tool.empty()) {
    tool = findOnPath("genisoimage");
  }
  out.iso = dir + "/autoinst.iso";
  return steps.run(
      "mastering autoinst.iso",
      [&] {
        return !tool.empty() && AutoInstall_MasterISO(
                                    staging.c_str(), tool.c_str(), dir.c_str());
      },
      tool.empty() ? "neither xorrisofs nor genisoimage is on PATH"
                   : "the mastering tool failed or was refused");
}

void printProducts(const PrepareOptions &opt, const Products &p) {
  if (!opt.json) {
    for (const std::string *path : {&p.iso, &p.floppy, &p.tools}) {
      if (!path->empty()) {
        std::printf("%s\n", path->c_str());
      }
    }
    return;
  }
  auto field = [](const std::string &path) {
    return path.empty() ? Json(nullptr) : Json(path);
  };
  printJson(Json{{"iso", field(p.iso)},
                 {"floppy", field(p.floppy)},
                 {"tools", field(p.tools)}});
}

}  // namespace

int prepareLinux(const Args &args) {
  PrepareOptions opt;
  if (!parseOptions(args, opt)) {
    return usageError(kName);
  }
  Steps steps;
  GuessInfo info = {};
  std::string unknown;
  auto identify = [&] {
    int found = Guess_Guest(opt.image.c_str(), 0, &info);
    unknown = found == GUESS_OPEN_FAILED ? "cannot open " + opt.image
                                         : "the guest is not recognised";
    return found == GUESS_FOUND;
  };
  if (!steps.run("identifying the image", identify, unknown)) {
    return 1;
  }
  std::fprintf(stderr, "  guest: %s\n", info.osName);
  std::string why = "not a Linux guest that installs unattended";
  auto check = [&] {
    return AutoInstallIsSupportedLinuxGuest(&info) &&
           entriesValid(info, opt, why);
  };
  if (!steps.run("checking support and entries", check, why)) {
    return 1;
  }
  std::error_code ec;
  fs::create_directories(opt["--out"], ec);
  std::string staging = opt["--out"] + "/.staging-XXXXXX";
  if (::mkdtemp(staging.data()) == nullptr) {
    std::fprintf(stderr,
                 "guestprep %s linux: cannot create a directory in %s\n", kName,
                 opt["--out"].c_str());
    return 1;
  }
  Products products;
  if (!prepareMedia(opt, info, staging, steps, products)) {
    // Mastering deletes the staging tree itself; earlier failures leave it.
    fs::remove_all(staging, ec);
    return 1;
  }
  printProducts(opt, products);
  return 0;
}

}  // namespace gp::cli
