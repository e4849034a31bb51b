// From an installation disc and the user's entries to everything a host
// attaches to a new machine so that its guest installs itself: the answer
// file, the medium that carries it and, where the installer needs it, a
// remastered boot disc.
//
// Two paths lead there. Guests that identification recognises and the
// unattended-installation rules support, and that are not among today's
// releases, take the classic path: the classic answer file, a boot ISO
// "autoinst.iso" with the installer's kernel, and the install disc as the
// second CD. Every other disc takes the path of today's installers: the
// described installer's answer file on a small second medium, and the disc
// itself (or its remastered copy) to boot from.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "guestprep/guess.h"
#include "lib/medium/description.h"
#include "lib/medium/install_entries.h"
#include "lib/medium/remaster.h"

namespace gp::medium {

struct PrepareRequest {
  std::string image;   // the installation disc
  std::string outDir;  // created when missing; nothing is written elsewhere
  InstallEntries entries;
  // Ubuntu: also remaster the disc so that its installer starts without
  // asking "Continue with autoinstall?".
  bool noPrompt = false;
  // The classic path: the ISO mastering program (empty: xorrisofs, else
  // genisoimage, from PATH).
  std::string masterTool;
};

struct PrepareResult {
  std::string path;       // "parts" (the classic path) or "modern"
  std::string installer;  // anaconda, debian-installer, subiquity, ...
  std::string answerFile;
  std::string bootImage;  // the disc itself, or the one written here
  std::optional<std::string> secondMedium;  // to attach as a second CD
  std::optional<std::string> floppy;        // classic installers only
  std::string firmware;                     // "uefi", "bios" or "either"
  bool bootKeypress = false;  // the boot disc waits for a key press
};

enum class PrepareStatus {
  Ok = 0,
  Refused = 1,       // a guest, or entries, that cannot be prepared
  BadArguments = 2,  // a missing entry, an image that cannot be opened
};

enum class PrepareRoute { Parts, Modern };

// The path a disc takes: the classic one when identification found a
// guest (`guessResult` GUESS_FOUND) that the unattended-installation rules
// support, unless the description places the disc among today's releases,
// whose installers reject the classic answer files or boot without
// isolinux.
PrepareRoute choosePrepareRoute(int guessResult, const GuessInfo &guess,
                                const Description &facts);

// True for the releases the answer-file writers of today are made for:
// EL 8 and later, CentOS Stream, Fedora 28 and later, Ubuntu with
// subiquity, Debian 11 and later, SLE and Leap 15, Windows 10, 11 and
// Server 2016 and later.
bool isTodaysRelease(const OsFacts &os);

// Prepares the installation. On success the products are in
// `request.outDir` and `result` names them. Otherwise `error` says why,
// nothing was added to or replaced in the output directory, and a
// directory created for it is removed again. `progress` receives one line
// per step.
PrepareStatus prepareInstall(const PrepareRequest &request,
                             PrepareResult &result, std::string &error,
                             const ProgressFn &progress = {});

// The result as the JSON document that the command line and the C entry
// give.
std::string prepareResultJson(const PrepareResult &result);

// Reads the entries document of Guestprep_PrepareInstall() into `request`;
// false with `error` set for a document that is not an object, a key it
// does not know, a value of the wrong type or a missing required entry.
bool parsePrepareEntries(const std::string &json, PrepareRequest &request,
                         std::string &error);

}  // namespace gp::medium
