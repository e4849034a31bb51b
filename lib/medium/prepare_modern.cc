// The path of today's installers: the described installer's answer file,
// the second medium it is read from and, for the installers that need one,
// the remastered disc.
#include <string>

#include "lib/medium/prepare_steps.h"

namespace gp::medium {
namespace {

using Writer = bool (*)(const Described &, const InstallEntries &, Answer &,
                        std::string &);

enum class Remaster { Never, Always, WithoutPrompt };

struct InstallerWay {
  const char *installer;
  Writer write;
  bool seedMedium;  // the installer finds its answer file on a second disc
  Remaster remaster;
};

// Debian's installer looks for no answer-file volume, so its disc is
// remastered; Ubuntu's asks before it installs unless the kernel command
// line says "autoinstall", which only a remastered disc can add.
const InstallerWay kWays[] = {
    {"anaconda", writeKickstart, true, Remaster::Never},
    {"subiquity", writeAutoinstall, true, Remaster::WithoutPrompt},
    {"debian-installer", writePreseed, false, Remaster::Always},
    {"yast", writeAutoyast, true, Remaster::Never},
    {"windows-setup", writeAutounattend, true, Remaster::Never},
};

constexpr const char kSeedName[] = "seed.iso";
constexpr const char kBootName[] = "boot.iso";

// Why a disc without a known way cannot be prepared.
std::string refusal(const Description &facts) {
  if (!facts.os) {
    return "the disc is not an installation disc that guestprep knows";
  }
  const std::string name =
      facts.os->name.empty() ? facts.os->id : facts.os->name;
  if (!facts.os->installer) {
    return name + ": the disc's installer is not known";
  }
  if (*facts.os->installer == "live") {
    return name +
           ": a live disc, whose installer takes no answer file; use the "
           "release's server or netinst disc";
  }
  if (*facts.os->installer == "agama") {
    return name + ": installs with agama, which guestprep cannot prepare yet";
  }
  return name + ": installs with " + *facts.os->installer +
         ", which guestprep cannot prepare";
}

const InstallerWay *wayOf(const Description &facts) {
  if (!facts.os || !facts.os->installer) {
    return nullptr;
  }
  for (const InstallerWay &way : kWays) {
    if (*facts.os->installer == way.installer) {
      return &way;
    }
  }
  return nullptr;
}

// The firmware the products assume: Windows' disk layout follows the
// entries; the Linux installers lay out either, so the disc's boot entries
// decide.
std::string firmwareOf(const InstallerWay &way, const Described &disc,
                       const InstallEntries &entries) {
  if (std::string(way.installer) == "windows-setup") {
    return entries.firmware == Firmware::Bios ? "bios" : "uefi";
  }
  const bool bios = disc.facts.boot.bios.has_value();
  const bool uefi = disc.facts.boot.uefi;
  if (bios && !uefi) {
    return "bios";
  }
  if (uefi && !bios) {
    return "uefi";
  }
  return "either";
}

void say(const ProgressFn &progress, const std::string &line) {
  if (progress) {
    progress(line);
  }
}

}  // namespace

PrepareStatus prepareModern(const PrepareRequest &request,
                            const Described &disc, Staging &staging,
                            PrepareResult &result, std::string &error,
                            const ProgressFn &progress) {
  const InstallerWay *way = wayOf(disc.facts);
  if (way == nullptr) {
    error = refusal(disc.facts);
    return PrepareStatus::Refused;
  }
  say(progress, std::string("writing the answer file for ") + way->installer);
  Answer answer;
  if (!way->write(disc, request.entries, answer, error)) {
    return PrepareStatus::Refused;
  }
  if (answer.files.empty()) {
    error = std::string("the ") + way->installer + " answer file is empty";
    return PrepareStatus::Refused;
  }
  for (const AnswerFile &file : answer.files) {
    if (!writeProduct(staging.path(file.name), file.text, error)) {
      return PrepareStatus::Refused;
    }
    staging.keep(file.name);
  }
  result.path = "modern";
  result.installer = way->installer;
  result.answerFile = staging.finalPath(answer.files.front().name);
  result.bootImage = request.image;
  result.firmware = firmwareOf(*way, disc, request.entries);
  result.bootKeypress = std::string(way->installer) == "windows-setup" &&
                        result.firmware == "uefi";
  if (way->seedMedium) {
    say(progress, "writing the second medium " + staging.finalPath(kSeedName));
    if (!makeSeedMedium(answer, staging.path(kSeedName), error)) {
      return PrepareStatus::Refused;
    }
    staging.keep(kSeedName);
    result.secondMedium = staging.finalPath(kSeedName);
  }
  if (way->remaster == Remaster::Always ||
      (way->remaster == Remaster::WithoutPrompt && request.noPrompt)) {
    say(progress, "remastering the disc into " + staging.finalPath(kBootName));
    RemasterStatus status =
        remasterMedium(request.image, staging.path(answer.files.front().name),
                       staging.path(kBootName), error, progress);
    if (status != RemasterStatus::Ok) {
      return PrepareStatus::Refused;
    }
    staging.keep(kBootName);
    result.bootImage = staging.finalPath(kBootName);
  }
  return PrepareStatus::Ok;
}

}  // namespace gp::medium
