// What a description found on a medium, before it is written as JSON.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lib/medium/eltorito.h"
#include "lib/medium/medium_files.h"

namespace gp::medium {

struct OsFacts {
  std::string id;       // the short id of the OS database, e.g. "rhel9.3"
  std::string distro;   // e.g. "rhel", "debian", "win"
  std::string family;   // "linux" or "windows"
  std::string name;     // as the medium states it
  std::string version;  // as the medium states it
  std::string arch;     // x86_64, i686, aarch64, ppc64le, s390x, riscv64
  std::optional<std::string> installer;  // null when unknown
};

struct Edition {
  uint32_t index = 0;
  std::string name;
  std::string displayName;
  std::string editionId;
  std::string installationType;
  uint32_t build = 0;
  std::string arch;
  std::string version;  // MAJOR.MINOR.BUILD as the XML gives them
};

struct BootImage {
  BootPlatform platform = BootPlatform::X86;
  std::optional<std::string> image;
};

struct BootFacts {
  std::optional<std::string> bios;  // "isolinux", "grub", "other"
  std::optional<std::string> biosConfig;
  bool uefi = false;
  std::vector<BootImage> elTorito;
};

struct Description {
  std::optional<OsFacts> os;
  std::vector<Edition> editions;
  std::optional<std::string> language;
  BootFacts boot;
  std::vector<std::string> evidence;
  // An anaconda disc that carries package repositories (a DVD), not only
  // the installer (a boot disc, which installs from the network).
  bool packageRepositories = false;

  void cite(const std::string &path) {
    for (const std::string &seen : evidence) {
      if (seen == path) {
        return;
      }
    }
    evidence.push_back(path);
  }
};

// The detectors: each fills `out.os` (and what else it knows) and cites
// the files that decided; false when the medium is not its family's.
bool describeRedHat(MediumFiles &files, Description &out);
bool describeSuse(MediumFiles &files, Description &out);
bool describeDebian(MediumFiles &files, Description &out);
bool describeWindows(MediumFiles &files, Description &out);

// The boot facts: the catalog, its images and the BIOS loader's config.
void describeBoot(MediumFiles &files, Description &out);

// A described medium: the facts and the volume id they came with.
struct Described {
  Description facts;
  std::string volumeId;
};

// The facts of the image, or nullopt with errno set when it cannot be
// opened or is neither ISO 9660 nor UDF; `bytesRead`, when given, receives
// the bytes read from the image file.
std::optional<Described> describeImage(const char *imagePath,
                                       uint64_t *bytesRead);

// The JSON document of the image (the facts, plus what identification
// says of it), or nullopt with errno set as describeImage() does.
std::optional<std::string> describeMedium(const char *imagePath,
                                          uint64_t *bytesRead);

// x86_64, i686, aarch64, ppc64le, s390x or riscv64 for the spellings that
// distributions use; the input otherwise.
std::string normalArch(std::string_view arch);

}  // namespace gp::medium
