// The second medium that hands an answer file to today's installers: a
// small ISO 9660 image with Joliet and Rock Ridge names, mastered by
// xorriso from a private staging directory.
#include <sys/wait.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "lib/medium/answer_xml.h"
#include "lib/medium/install_entries.h"
#include "platform/hostio.h"
#include "platform/strutil.h"

namespace gp::medium {
namespace {

// The whole image is read back before it is put in place; seed media hold
// a few small text files.
constexpr size_t kMaxImageSize = 16u << 20;
constexpr size_t kMaxFiles = 16;
constexpr int kMaxDirectoryTries = 100;

std::string systemError(const char *what, const std::string &path) {
  return std::string(what) + " " + path + ": " + std::strerror(errno);
}

// A volume identifier the installers match on: 1 to 32 letters, digits,
// underscores and hyphens.
bool validLabel(const std::string &label) {
  return !label.empty() && label.size() <= 32 &&
         label.find_first_not_of(
             "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
             "abcdefghijklmnopqrstuvwxyz0123456789_-") == std::string::npos;
}

// A name at the root of the medium: one path component that Joliet keeps
// whole (64 characters).
bool validFileName(const std::string &name) {
  return !name.empty() && name.size() <= 64 && name != "." && name != ".." &&
         name.find('/') == std::string::npos && xml::carriesAsLine(name);
}

bool checkAnswer(const Answer &answer, std::string &error) {
  if (!validLabel(answer.volumeLabel)) {
    error = "the volume label \"" + answer.volumeLabel +
            "\" is not 1 to 32 letters, digits, underscores or hyphens";
    return false;
  }
  if (answer.files.empty() || answer.files.size() > kMaxFiles) {
    error = "a seed medium holds 1 to 16 files";
    return false;
  }
  for (size_t i = 0; i < answer.files.size(); ++i) {
    const std::string &name = answer.files[i].name;
    if (!validFileName(name)) {
      error = "\"" + name + "\" is not a file name for the medium's root";
      return false;
    }
    for (size_t j = 0; j < i; ++j) {
      if (answer.files[j].name == name) {
        error = "the file \"" + name + "\" is given twice";
        return false;
      }
    }
  }
  return true;
}

// SOURCE_DATE_EPOCH as the 16-digit GMT time string xorriso takes
// (YYYYMMDDhhmmsscc); empty when it is unset. False for a value that is not
// a number of seconds.
bool sourceDateEpoch(std::string &stamp, std::string &error) {
  stamp.clear();
  const char *env = std::getenv("SOURCE_DATE_EPOCH");
  if (env == nullptr || env[0] == '\0') {
    return true;
  }
  errno = 0;
  char *end = nullptr;
  unsigned long long seconds = std::strtoull(env, &end, 10);
  struct tm tm;
  const time_t t = static_cast<time_t>(seconds);
  char buf[32];
  if (env[0] < '0' || env[0] > '9' || *end != '\0' || errno != 0 ||
      static_cast<unsigned long long>(t) != seconds ||
      gmtime_r(&t, &tm) == nullptr || tm.tm_year + 1900 > 2999 ||
      std::strftime(buf, sizeof buf, "%Y%m%d%H%M%S00", &tm) != 16) {
    error = std::string("SOURCE_DATE_EPOCH \"") + env +
            "\" is not a number of seconds since 1970 before the year 3000";
    return false;
  }
  stamp = buf;
  return true;
}

// A directory of this call alone below the user's own temporary directory,
// removed with everything put into it when the object goes.
class Staging {
 public:
  ~Staging() {
    for (auto it = files_.rbegin(); it != files_.rend(); ++it) {
      hostOps().unlink(it->c_str());
    }
    for (auto it = dirs_.rbegin(); it != dirs_.rend(); ++it) {
      hostOps().rmdir(it->c_str());
    }
  }

  bool create(std::string &error) {
    const std::string base = userTempDirectory();
    if (base.empty()) {
      error = "no private temporary directory could be made";
      return false;
    }
    for (int i = 0; i < kMaxDirectoryTries; ++i) {
      const std::string dir =
          joinPath(base, "seed-" + std::to_string(::getpid()) + "-" +
                             std::to_string(hostOps().time(nullptr)) + "-" +
                             std::to_string(i));
      if (hostOps().mkdir(dir.c_str(), 0700) == 0) {
        dirs_.push_back(dir);
        return makeDir("files", error);
      }
      if (errno != EEXIST) {
        error = systemError("cannot create", dir);
        return false;
      }
    }
    error = "no fresh temporary directory could be made in " + base;
    return false;
  }

  // A path in the staging directory that is removed with it.
  std::string track(const std::string &relative) {
    files_.push_back(joinPath(dirs_.front(), relative));
    return files_.back();
  }

  bool write(const AnswerFile &file, std::string &error) {
    const std::string path = track(joinPath("files", file.name));
    UniqueFd fd =
        openFile(path.c_str(),
                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (!fd.valid() ||
        !writeFull(fd.get(), file.text.data(), file.text.size()) ||
        fd.reset() != 0) {
      error = systemError("cannot write", path);
      return false;
    }
    return true;
  }

  std::string path(const std::string &relative) const {
    return joinPath(dirs_.front(), relative);
  }

 private:
  bool makeDir(const std::string &relative, std::string &error) {
    const std::string dir = joinPath(dirs_.front(), relative);
    if (hostOps().mkdir(dir.c_str(), 0700) != 0) {
      error = systemError("cannot create", dir);
      return false;
    }
    dirs_.push_back(dir);
    return true;
  }

  std::vector<std::string> dirs_;
  std::vector<std::string> files_;
};

// The xorriso command: names kept by Joliet and Rock Ridge, owners and
// modes that do not depend on who runs it, and with `stamp` every date of
// the image fixed (the volume's dates, its uuid and the files' times).
std::string masteringCommand(const std::string &label, const std::string &stamp,
                             const std::string &image, const std::string &tree,
                             const std::string &log) {
  // -no_rc: no startup file of the host or the user changes the image.
  std::string cmd = "xorriso -no_rc -as mkisofs -quiet -J -joliet-long -R";
  cmd += " -uid 0 -gid 0 -file-mode 0444 -dir-mode 0555";
  cmd += " -V " + str::shellSingleQuoted(label);
  if (!stamp.empty()) {
    cmd += " --modification-date=" + stamp;
    cmd += " --set_all_file_dates " + stamp;
  }
  // Both paths are absolute (the user's temporary directory always is), so
  // neither is ever taken for an option; "--" would end the emulation.
  cmd += " -o " + str::shellSingleQuoted(image) + " " +
         str::shellSingleQuoted(tree);
  cmd += " </dev/null >" + str::shellSingleQuoted(log) + " 2>&1";
  return cmd;
}

// The last non-empty line of the tool's output, for the user.
std::string lastLine(const std::string &logPath) {
  std::string text;
  if (!readWholeFile(logPath.c_str(), text, 1u << 20)) {
    return "";
  }
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
    text.pop_back();
  }
  size_t nl = text.find_last_of('\n');
  return nl == std::string::npos ? text : text.substr(nl + 1);
}

bool master(const Answer &answer, const std::string &stamp, Staging &staging,
            std::string &image, std::string &error) {
  for (const AnswerFile &file : answer.files) {
    if (!staging.write(file, error)) {
      return false;
    }
  }
  const std::string imagePath = staging.track("seed.iso");
  const std::string logPath = staging.track("xorriso.log");
  const int status =
      hostOps().system(masteringCommand(answer.volumeLabel, stamp, imagePath,
                                        staging.path("files"), logPath)
                           .c_str());
  if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    const std::string said = lastLine(logPath);
    error = "xorriso could not master the seed medium" +
            (said.empty() ? std::string() : ": " + said);
    return false;
  }
  if (!readWholeFile(imagePath.c_str(), image, kMaxImageSize) ||
      image.empty()) {
    error = "xorriso left no readable image at " + imagePath;
    return false;
  }
  return true;
}

}  // namespace

bool makeSeedMedium(const Answer &answer, const std::string &outPath,
                    std::string &error) {
  std::string stamp;
  if (outPath.empty()) {
    error = "no output path for the seed medium";
    return false;
  }
  if (!checkAnswer(answer, error) || !sourceDateEpoch(stamp, error)) {
    return false;
  }
  std::string image;
  {
    Staging staging;
    if (!staging.create(error) ||
        !master(answer, stamp, staging, image, error)) {
      return false;
    }
  }
  // The answer files may hold passwords in a form that is easy to reverse:
  // a new medium is for its owner alone; an existing one keeps its mode.
  if (!replaceFileAtomically(outPath, image, 0600)) {
    error = systemError("cannot write", outPath);
    return false;
  }
  return true;
}

}  // namespace gp::medium
