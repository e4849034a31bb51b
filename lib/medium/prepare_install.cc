// prepareInstall(): describes the disc, chooses the classic path or that of
// today's installers, and moves the products into the output directory
// only when every one of them was made.
#include "lib/medium/prepare_install.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>

#include "guestprep/autoinstall.h"
#include "lib/medium/prepare_steps.h"
#include "platform/hostio.h"

namespace gp::medium {
namespace {

using Json = nlohmann::ordered_json;

// The number that follows the distro in an id: 9 for "rhel9.3", 24 for
// "ubuntu24.04", 15 for "sle15sp4"; -1 when there is none.
long releaseMajor(const OsFacts &os) {
  if (os.id.compare(0, os.distro.size(), os.distro) != 0) {
    return -1;
  }
  const char *rest = os.id.c_str() + os.distro.size();
  if (*rest < '0' || *rest > '9') {
    return -1;
  }
  return std::strtol(rest, nullptr, 10);
}

bool isOneOf(const std::string &s, std::initializer_list<const char *> list) {
  for (const char *item : list) {
    if (s == item) {
      return true;
    }
  }
  return false;
}

// Whether the same file is reached through both paths.
bool sameFile(const std::string &a, const std::string &b) {
  struct stat sa;
  struct stat sb;
  return hostOps().stat(a.c_str(), &sa) == 0 &&
         hostOps().stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
         sa.st_ino == sb.st_ino;
}

PrepareStatus badArguments(std::string &error, std::string why) {
  error = std::move(why);
  return PrepareStatus::BadArguments;
}

}  // namespace

bool isTodaysRelease(const OsFacts &os) {
  const long major = releaseMajor(os);
  const std::string &d = os.distro;
  if (isOneOf(d, {"rhel", "centos", "rocky", "almalinux", "ol"})) {
    return major >= 8;
  }
  if (d == "centos-stream") {
    return true;
  }
  if (d == "fedora") {
    return major >= 28;
  }
  if (d == "ubuntu") {
    return major >= 20 || os.installer == std::string("subiquity");
  }
  if (d == "debian") {
    return major >= 11;
  }
  if (d == "sle" || d == "opensuse") {
    return major >= 15 || os.id == "opensusetumbleweed";
  }
  return isOneOf(
      os.id, {"win10", "win11", "win2k16", "win2k19", "win2k22", "win2k25"});
}

PrepareRoute choosePrepareRoute(int guessResult, const GuessInfo &guess,
                                const Description &facts) {
  if (facts.os && isTodaysRelease(*facts.os)) {
    return PrepareRoute::Modern;
  }
  if (guessResult == GUESS_FOUND && guess.osName != nullptr &&
      AutoInstall_IsSupportedGuest(&guess)) {
    return PrepareRoute::Parts;
  }
  return PrepareRoute::Modern;
}

PrepareStatus prepareInstall(const PrepareRequest &request,
                             PrepareResult &result, std::string &error,
                             const ProgressFn &progress) {
  const InstallEntries &e = request.entries;
  if (request.image.empty() || request.outDir.empty()) {
    return badArguments(error, request.image.empty()
                                   ? "the image is required"
                                   : "the output directory is required");
  }
  for (const auto &[value, key] : {std::pair{&e.user, "user"},
                                   {&e.fullName, "full_name"},
                                   {&e.password, "password"},
                                   {&e.rootPassword, "root_password"}}) {
    if (value->empty()) {
      return badArguments(error,
                          std::string("the entry ") + key + " is required");
    }
  }
  if (progress) {
    progress("describing " + request.image);
  }
  std::optional<Described> disc = describeImage(request.image.c_str(), nullptr);
  if (!disc) {
    return badArguments(error,
                        request.image + ": " +
                            (errno == EINVAL ? "not an ISO 9660 or UDF image"
                                             : std::strerror(errno)));
  }
  GuessInfo guess;
  std::memset(&guess, 0, sizeof guess);
  const int found = Guess_Guest(request.image.c_str(), 0, &guess);
  const PrepareRoute route = choosePrepareRoute(found, guess, disc->facts);
  Staging staging;
  if (!staging.begin(request.outDir, error)) {
    return PrepareStatus::Refused;
  }
  PrepareResult made;
  PrepareStatus status =
      route == PrepareRoute::Parts
          ? prepareClassic(request, guess, staging, made, error, progress)
          : prepareModern(request, *disc, staging, made, error, progress);
  if (status != PrepareStatus::Ok) {
    return status;
  }
  for (const std::string &name : staging.kept()) {
    if (sameFile(staging.finalPath(name), request.image)) {
      return badArguments(error, staging.finalPath(name) +
                                     ": the output would replace the image");
    }
  }
  if (!staging.commit(error)) {
    return PrepareStatus::Refused;
  }
  result = made;
  return PrepareStatus::Ok;
}

std::string prepareResultJson(const PrepareResult &r) {
  auto optional = [](const std::optional<std::string> &s) {
    return s ? Json(*s) : Json(nullptr);
  };
  Json doc = {{"path", r.path},
              {"installer", r.installer},
              {"answer_file", r.answerFile},
              {"boot_image", r.bootImage},
              {"second_medium", optional(r.secondMedium)},
              {"floppy", optional(r.floppy)},
              {"firmware", r.firmware},
              {"boot_keypress", r.bootKeypress}};
  return doc.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace gp::medium
