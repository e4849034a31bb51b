// Media access and the identification driver.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "lib/guessGuest/guess_internal.h"
#include "lib/guessGuest/guess_medium.h"
#include "platform/msgcatalog.h"
#include "platform/strutil.h"

namespace gp::guess {
namespace {

// The detector table, in the order of detection.
const GuessDetector kDetectors[] = {
    Guess_WindowsNT,
    Guess_WindowsLegacy,
    Guess_WindowsVistaAndNewer,
    Guess_RedHat,
    Guess_Mandriva,
    Guess_Debian,
    Guess_SUSE,
    Guess_TurboLinux,
    Guess_Solaris,
    Guess_NetWare,
    Guess_FreeBSD,
    Guess_Orvex,
    Guess_Orvexi,
    nullptr,
};

GuessDir *guessOpenDirOnce(GuessMedium *medium, const char *path) {
  std::unique_ptr<GuessDir> dir;
  openMediumDir(*medium, path, dir);
  return dir.release();
}

// Looks `name` up in `dir`; reads it whole when `contents` is not null.
bool guessLookupFile(GuessDir *dir, const char *name, FileText *contents) {
  return dir->lookup(name, contents) == img::IMG_OK;
}

int guessGuest(const char *imagePath, GuessInfo *info) {
  std::memset(info, 0, sizeof *info);
  GuessMedium medium{};
  if (imagePath == nullptr || openMedium(imagePath, medium) != img::IMG_OK) {
    return GUESS_OPEN_FAILED;
  }
  medium.path = heapCopy(imagePath);
  bool found = false;
  for (const GuessDetector *d = kDetectors; *d != nullptr && !found; ++d) {
    found = (*d)(&medium, info) != FALSE;
  }
  std::free(medium.path);
  bool overBudget = mediumOverBudget(medium);
  closeMedium(medium);
  if (overBudget) {
    std::memset(info, 0, sizeof *info);
    return GUESS_OPEN_FAILED;
  }
  return found ? GUESS_FOUND : GUESS_NOT_FOUND;
}

// The three variants of a path or name: unchanged, upper, lower case.
template <typename Try>
auto tryCaseVariants(const char *text, Try &&attempt)
    -> decltype(attempt(text)) {
  if (auto r = attempt(text)) {
    return r;
  }
  std::string upper = str::toUpper(text);
  if (auto r = attempt(upper.c_str())) {
    return r;
  }
  std::string lower = str::toLower(text);
  return attempt(lower.c_str());
}

}  // namespace

FileText readFileName(GuessMedium *medium, const char *path) {
  FileText t;
  t.data.reset(Guess_ReadFileName(medium, path, &t.size));
  return t;
}

FileText readFirstOf(GuessMedium *medium,
                     std::initializer_list<const char *> paths) {
  FileText t;
  for (auto path = paths.begin(); !t.present() && path != paths.end(); ++path) {
    t = readFileName(medium, *path);
  }
  return t;
}

}  // namespace gp::guess

using namespace gp;
using namespace gp::guess;

GP_EXPORT const char *const SUB_NAMES[22] = {
    "GUESS_VERSION_UNKNOWN",
    "GUESS_VERSION_UBUNTU_SERVER_804_OR_LOWER",
    "GUESS_VERSION_UBUNTU_SERVER_810_OR_HIGHER",
    "GUESS_VERSION_UBUNTU_704_OR_LOWER",
    "GUESS_VERSION_UBUNTU_710_OR_HIGHER",
    "GUESS_VERSION_MANDRIVA_2006",
    "GUESS_VERSION_MANDRIVA_2007",
    "GUESS_VERSION_MANDRIVA_2008_0",
    "GUESS_VERSION_MANDRIVA_2008_1_OR_HIGHER",
    "GUESS_VERSION_FEDORA_8",
    "GUESS_VERSION_FEDORA_9_TO_12",
    "GUESS_VERSION_FEDORA_13",
    "GUESS_VERSION_FEDORA_14_OR_HIGHER",
    "GUESS_VERSION_OPENSUSE_11_2_OR_LOWER",
    "GUESS_VERSION_SLES_10_SP2_OR_LOWER",
    "GUESS_VERSION_SLED_10_SP2_OR_LOWER",
    "GUESS_VERSION_SLED_ALL",
    "GUESS_VERSION_CENTOS_3",
    "GUESS_VERSION_CENTOS_4",
    "GUESS_VERSION_CENTOS_5",
    "GUESS_VERSION_CENTOS_6",
    "GUESS_VERSION_DUMMY_LAST",
};

GP_EXPORT int Guess_Guest(const char *imagePath, uint32_t, GuessInfo *info) {
  if (info == nullptr) {
    return GUESS_OPEN_FAILED;
  }
  return abiGuard(static_cast<int>(GUESS_OPEN_FAILED),
                  [&] { return guessGuest(imagePath, info); });
}

GP_EXPORT const char *Guess_GetSubString(GuessVersion code) {
  constexpr size_t kCount = sizeof SUB_NAMES / sizeof SUB_NAMES[0];
  return static_cast<size_t>(code) < kCount ? SUB_NAMES[code] : nullptr;
}

GP_EXPORT char *Guess_GetVersionString(const char *name,
                                       const GuessInfo *info) {
  return abiGuard(static_cast<char *>(nullptr), [&]() -> char * {
    std::string suffix;
    if (info->versionString[0] != '\0') {
      suffix = info->versionString;
    } else if (info->subVersion == GUESS_VERSION_UBUNTU_SERVER_804_OR_LOWER ||
               info->subVersion == GUESS_VERSION_UBUNTU_SERVER_810_OR_HIGHER) {
      suffix = msg::get("@&!*@*@(msg.guessGuest.ubuntuServer)Server");
    } else if (info->subVersion == GUESS_VERSION_SLED_10_SP2_OR_LOWER ||
               info->subVersion == GUESS_VERSION_SLED_ALL) {
      suffix = msg::get("@&!*@*@(msg.guessGuest.sledDesktop)Desktop");
    }
    if (suffix.empty()) {
      return heapCopy(name);
    }
    return heapCopy(std::string(name) + " " + suffix);
  });
}

GP_EXPORT GuessDir *Guess_OpenDir(GuessMedium *medium, const char *path) {
  if (medium == nullptr || path == nullptr) {
    return nullptr;
  }
  return abiGuard(static_cast<GuessDir *>(nullptr), [&] {
    return tryCaseVariants(path, [&](const char *variant) {
      return guessOpenDirOnce(medium, variant);
    });
  });
}

GP_EXPORT const char *Guess_ReadDir(GuessMedium *medium, GuessDir *dir) {
  if (medium == nullptr || dir == nullptr) {
    return nullptr;
  }
  const char *name = nullptr;
  return dir->next(name) == img::IMG_OK ? name : nullptr;
}

GP_EXPORT Bool Guess_RewindDir(GuessMedium *medium, GuessDir *dir) {
  if (medium == nullptr || dir == nullptr) {
    return FALSE;
  }
  return dir->rewind() == img::IMG_OK;
}

GP_EXPORT Bool Guess_CloseDir(GuessMedium *medium, GuessDir *dir) {
  if (medium == nullptr || dir == nullptr) {
    return FALSE;
  }
  delete dir;
  return TRUE;
}

GP_EXPORT char *Guess_ReadFile(GuessMedium *medium, GuessDir *dir,
                               const char *name, size_t *size) {
  if (medium == nullptr || dir == nullptr || name == nullptr) {
    return nullptr;
  }
  return abiGuard(static_cast<char *>(nullptr), [&] {
    return tryCaseVariants(name, [&](const char *variant) -> char * {
      FileText text;
      if (!guessLookupFile(dir, variant, &text)) {
        return nullptr;
      }
      if (size != nullptr) {
        *size = text.size;
      }
      return text.data.release();
    });
  });
}

GP_EXPORT char *Guess_ReadFileName(GuessMedium *medium, const char *path,
                                   size_t *size) {
  if (medium == nullptr || path == nullptr) {
    return nullptr;
  }
  return abiGuard(static_cast<char *>(nullptr), [&]() -> char * {
    std::string_view whole(path);
    std::string_view::size_type slash = whole.rfind('/');
    std::string dirPart, name;
    if (slash == std::string_view::npos) {
      name = std::string(whole);
    } else {
      dirPart = std::string(whole.substr(0, slash));
      name = std::string(whole.substr(slash + 1));
    }
    DirHandle dir(medium, dirPart.c_str());
    if (!dir) {
      return nullptr;
    }
    return Guess_ReadFile(medium, dir.get(), name.c_str(), size);
  });
}

GP_EXPORT Bool Guess_FileExists(GuessMedium *medium, const char *dirPath,
                                const char *name) {
  if (medium == nullptr || dirPath == nullptr || name == nullptr) {
    return FALSE;
  }
  return abiGuard(Bool(FALSE), [&]() -> Bool {
    DirHandle dir(medium, dirPath);
    if (!dir) {
      return FALSE;
    }
    return guessLookupFile(dir.get(), name, nullptr);
  });
}

GP_EXPORT Bool Guess_FileExistsWithPrefix(GuessMedium *medium,
                                          const char *dirPath,
                                          const char *prefix) {
  if (medium == nullptr || dirPath == nullptr || prefix == nullptr) {
    return FALSE;
  }
  return abiGuard(Bool(FALSE), [&]() -> Bool {
    DirHandle dir(medium, dirPath);
    if (!dir) {
      return FALSE;
    }
    while (const char *entry = Guess_ReadDir(medium, dir.get())) {
      if (str::startsWithCaseless(entry, prefix)) {
        return TRUE;
      }
    }
    return FALSE;
  });
}

GP_EXPORT int Guess_ELF_Arch(const unsigned char *buffer, size_t size) {
  if (buffer == nullptr || size < 19) {
    return GUESS_ARCH_UNKNOWN;
  }
  switch (buffer[18]) {
    case 3:
    case 6:
    case 7:
      return GUESS_ARCH_32;
    case 62:
      return GUESS_ARCH_64;
    default:
      return GUESS_ARCH_UNKNOWN;
  }
}
