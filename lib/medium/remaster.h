// Remastering an installation disc so that its own installer reads an
// answer file unattended: the boot menus are rewritten, the answer file is
// added, and the new image is written from the old one with only the
// changed files mapped in, keeping the El Torito entries, the signed EFI
// binaries, the hybrid MBR/GPT and the volume id.
#pragma once

#include <functional>
#include <string>

namespace gp::medium {

// What remasterMedium() returns; Guestprep_RemasterMedium() returns the
// same numbers.
enum class RemasterStatus {
  Ok = 0,
  NoInstallerBoot = 1,  // the disc has no installer boot that we know
  BadArguments = 2,     // a missing answer file, the output naming the input
  Failed = 3,           // reading, rewriting or writing failed
};

// Called once per step with a line for the user ("rewriting
// isolinux/isolinux.cfg", "writing OUT"), so that a command can show
// progress; may be empty.
using ProgressFn = std::function<void(const std::string &)>;

// Writes `outPath` from `imagePath` with `answerFilePath` placed where the
// disc's installer (as describeImage() finds it) reads it and the kernel
// arguments that make it do so. On failure `error` says why, naming the
// file concerned, and nothing is left at `outPath`.
RemasterStatus remasterMedium(const std::string &imagePath,
                              const std::string &answerFilePath,
                              const std::string &outPath, std::string &error,
                              const ProgressFn &progress = {});

}  // namespace gp::medium
