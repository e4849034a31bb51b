// The pieces of a remaster: what each installer needs on the disc and on
// its kernel line, the external tools run through the host seam (the
// mastering tool for reports, extraction and writing; mtools for the
// files inside an EFI image), and the scratch area that holds only the
// changed files.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lib/medium/bootmenu.h"

namespace gp::medium {

// A file the remaster adds to the disc: the answer file itself, or an
// empty file beside it.
struct AnswerPlacement {
  std::string isoPath;  // absolute on the disc, e.g. "/ks.cfg"
  bool holdsAnswer = true;
};

struct InstallerPlan {
  std::vector<AnswerPlacement> files;
  std::vector<std::string> args;  // as the kernel must receive them
};

// What `installer` (the description's name) needs, with the disc's volume
// id where the installer finds the disc by its label; nullopt for an
// installer that is not started from a boot menu by kernel arguments.
std::optional<InstallerPlan> planForInstaller(const std::string &installer,
                                              const std::string &volumeId);

// A string as one /bin/sh word.
std::string shellWord(std::string_view s);

// A directory of the user's own that holds the changed files while a
// remaster runs; it and everything made in it go when it is destroyed.
class ScratchArea {
 public:
  ScratchArea() = default;
  ~ScratchArea();
  ScratchArea(const ScratchArea &) = delete;
  ScratchArea &operator=(const ScratchArea &) = delete;

  // False (errno set) when the directory cannot be made.
  bool create();
  // A path for a new file named `name` in the area, removed with it.
  std::string file(const std::string &name);
  bool write(const std::string &path, std::string_view data);

 private:
  std::string dir_;
  std::vector<std::string> files_;
};

// Runs `command` through the host's shell with its output in `log`; true
// on exit status 0. `output`, when given, receives what it printed.
bool runTool(const std::string &command, ScratchArea &scratch,
             std::string *output = nullptr);

// An appended partition as the mastering tool reports it.
struct AppendedPartition {
  int number = 0;
  std::string type;  // as the tool spells it (an MBR byte or a GPT GUID)
  uint64_t first = 0, last = 0;  // 512-byte blocks of the image, inclusive
  bool isEfi() const;
};

// The boot equipment of an image, as the mastering tool reports it.
struct BootReport {
  std::string volumeId;
  std::string bootRecord;               // "El Torito , MBR ... GPT"
  std::vector<std::string> images;      // per El Torito entry: "BIOS", "UEFI"
  std::vector<std::string> efiSources;  // the `-e` of each EFI entry
  std::vector<AppendedPartition> partitions;
};

// Parses the tool's report (the plain El Torito report and the
// mkisofs-style ones of the boot images and the system area).
BootReport parseBootReport(std::string_view text);

bool readBootReport(const std::string &image, ScratchArea &scratch,
                    BootReport &out, std::string &error);

// What a new image lost of the old one's boot equipment; empty when
// nothing.
std::string compareBootReports(const BootReport &before,
                               const BootReport &after);

// A grub.cfg inside a FAT image and its rewritten text.
struct EfiConfigEdit {
  std::string config;  // its path in the image, "/EFI/BOOT/grub.cfg"
  std::string text;
};

// The grub.cfg files inside a FAT image that the rewrite changes.
// `imageSpec` is what mtools reads: a file, or "file@@offset" for an image
// inside the disc, which is then read in place. False with `error` set
// when the image cannot be read or a menu cannot carry the arguments.
bool planEfiImage(const std::string &imageSpec,
                  const std::vector<std::string> &args, ScratchArea &scratch,
                  std::vector<EfiConfigEdit> &edits, std::string &error);

// Writes the planned texts into the FAT image file `imageFile`.
bool applyEfiImage(const std::string &imageFile,
                   const std::vector<EfiConfigEdit> &edits,
                   ScratchArea &scratch, std::string &error);

}  // namespace gp::medium
