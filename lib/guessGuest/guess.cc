// Media access and the identification driver.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "lib/guessGuest/guess_internal.h"
#include "platform/fatal.h"
#include "platform/isoimage.h"
#include "platform/msgcatalog.h"
#include "platform/strutil.h"
#include "platform/udfimage.h"

using gp::guess::kModule;

struct GuessDir {
  gp::iso::Dir *isoDir;
  gp::iso::Entry isoEntry;
  gp::udf::Dir *udfDir;
  char *path;
};

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
  auto *dir = static_cast<GuessDir *>(checkedMalloc(sizeof(GuessDir)));
  std::memset(dir, 0, sizeof *dir);
  bool opened;
  switch (medium->kind) {
    case GUESS_MEDIUM_ISO9660:
      opened = iso::openDir(medium->isoImage, path, &dir->isoDir) == iso::ISO_OK;
      break;
    case GUESS_MEDIUM_UDF:
      dir->udfDir = udf::openDir(medium->udfImage, nullptr, path);
      opened = dir->udfDir != nullptr;
      break;
    default:
      GP_NOT_REACHED(kModule);
  }
  if (!opened) {
    std::free(dir);
    return nullptr;
  }
  dir->path = heapCopy(path);
  return dir;
}

// Marker files are small; the largest one read whole is a kernel of a few
// MiB. A larger file is treated as unreadable, so a hostile image cannot
// make identification allocate gigabytes (the UDF reader has the same cap).
constexpr size_t kMaxFileBytes = 64u << 20;

// Reads an opened ISO 9660 file whole; null on a read error or when the
// file is larger than kMaxFileBytes.
char *readIsoFile(IsoImage *image, iso::File *file, size_t *size) {
  char chunk[2048];
  MallocPtr<char> buffer(static_cast<char *>(checkedMalloc(sizeof chunk + 1)));
  size_t room = sizeof chunk;
  size_t total = 0;
  for (;;) {
    size_t length = sizeof chunk;
    int rc = iso::readFile(image, file, chunk, &length);
    if (rc == iso::ISO_END) {
      break;
    }
    if (rc != iso::ISO_OK || total + length > kMaxFileBytes) {
      return nullptr;
    }
    if (total + length > room) {
      room = std::max(room * 2, total + length);
      buffer.reset(static_cast<char *>(checkedRealloc(buffer.release(), room + 1)));
    }
    std::memcpy(buffer.get() + total, chunk, length);
    total += length;
  }
  buffer.get()[total] = '\0';
  *size = total;
  return buffer.release();
}

void *lookupIso(GuessMedium *medium, GuessDir *dir, const char *name,
                bool readContents, size_t *size) {
  if (str::equalsCaseless(dir->isoEntry.name, name)) {
    return nullptr;
  }
  IsoImage *image = medium->isoImage;
  iso::Dir *scan = nullptr;
  if (iso::openDir(image, dir->path, &scan) != iso::ISO_OK) {
    return nullptr;
  }
  iso::Entry entry;
  void *result = nullptr;
  for (;;) {
    std::memset(&entry, 0, sizeof entry);
    if (iso::readDir(image, scan, &entry) != iso::ISO_OK) {
      break;  // end of directory, or an error: the file is not there
    }
    if (!str::equalsCaseless(entry.name, name)) {
      continue;
    }
    iso::File *file = nullptr;
    if (iso::openFile(image, &entry, &file) != iso::ISO_OK) {
      break;
    }
    size_t length = 0;
    if (readContents) {
      result = readIsoFile(image, file, &length);
    } else {
      result = reinterpret_cast<void *>(1);
    }
    iso::closeFile(image, file);
    if (result != nullptr && size != nullptr) {
      *size = length;
    }
    break;
  }
  iso::closeDir(image, scan);
  return result;
}

void *lookupUdf(GuessMedium *medium, GuessDir *dir, const char *name,
                bool readContents, size_t *size) {
  udf::File *file = udf::openFile(medium->udfImage, dir->udfDir, name);
  if (file == nullptr) {
    return nullptr;
  }
  void *result = reinterpret_cast<void *>(1);
  if (readContents) {
    char *contents = nullptr;
    size_t length = 0;
    if (udf::readFile(file, &contents, &length)) {
      result = contents;
      if (size != nullptr) {
        *size = length;
      }
    } else {
      result = nullptr;
    }
  }
  udf::closeFile(file);
  return result;
}

void *guessLookupFile(GuessMedium *medium, GuessDir *dir, const char *name,
                      bool readContents, size_t *size) {
  switch (medium->kind) {
    case GUESS_MEDIUM_ISO9660:
      return lookupIso(medium, dir, name, readContents, size);
    case GUESS_MEDIUM_UDF:
      return lookupUdf(medium, dir, name, readContents, size);
    default:
      GP_NOT_REACHED(kModule);
  }
}

bool openMedium(const char *imagePath, GuessMedium &medium) {
  medium.udfImage = udf::open(imagePath);
  if (medium.udfImage != nullptr) {
    medium.kind = GUESS_MEDIUM_UDF;
    return true;
  }
  uint32_t formats = iso::listFormats(imagePath);
  if (iso::open(imagePath, formats, 0, &medium.isoImage) != iso::ISO_OK) {
    medium.isoImage = nullptr;
    return false;
  }
  medium.kind = GUESS_MEDIUM_ISO9660;
  return true;
}

void closeMedium(GuessMedium &medium) {
  switch (medium.kind) {
    case GUESS_MEDIUM_ISO9660:
      iso::close(medium.isoImage);
      break;
    case GUESS_MEDIUM_UDF:
      udf::close(medium.udfImage);
      break;
    default:
      GP_NOT_REACHED(kModule);
  }
}

int guessGuest(const char *imagePath, GuessInfo *info) {
  std::memset(info, 0, sizeof *info);
  GuessMedium medium{};
  if (imagePath == nullptr || !openMedium(imagePath, medium)) {
    return GUESS_OPEN_FAILED;
  }
  medium.path = heapCopy(imagePath);
  bool found = false;
  for (const GuessDetector *d = kDetectors; *d != nullptr && !found; ++d) {
    found = (*d)(&medium, info) != FALSE;
  }
  std::free(medium.path);
  closeMedium(medium);
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

FileText readFile(GuessMedium *medium, GuessDir *dir, const char *name) {
  FileText t;
  t.data.reset(Guess_ReadFile(medium, dir, name, &t.size));
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
  return SUB_NAMES[code];
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
  switch (medium->kind) {
    case GUESS_MEDIUM_ISO9660:
      std::memset(&dir->isoEntry, 0, sizeof dir->isoEntry);
      if (iso::readDir(medium->isoImage, dir->isoDir, &dir->isoEntry) !=
          iso::ISO_OK) {
        return nullptr;
      }
      return dir->isoEntry.name;
    case GUESS_MEDIUM_UDF:
      return udf::readDir(dir->udfDir);
    default:
      GP_NOT_REACHED(kModule);
  }
}

GP_EXPORT Bool Guess_RewindDir(GuessMedium *medium, GuessDir *dir) {
  if (medium == nullptr || dir == nullptr) {
    return FALSE;
  }
  switch (medium->kind) {
    case GUESS_MEDIUM_ISO9660:
      return iso::rewindDir(medium->isoImage, dir->isoDir) == iso::ISO_OK;
    case GUESS_MEDIUM_UDF:
      udf::rewindDir(dir->udfDir);
      return TRUE;
    default:
      GP_NOT_REACHED(kModule);
  }
}

GP_EXPORT Bool Guess_CloseDir(GuessMedium *medium, GuessDir *dir) {
  if (medium == nullptr || dir == nullptr) {
    return FALSE;
  }
  switch (medium->kind) {
    case GUESS_MEDIUM_ISO9660:
      if (iso::closeDir(medium->isoImage, dir->isoDir) != iso::ISO_OK) {
        return FALSE;
      }
      break;
    case GUESS_MEDIUM_UDF:
      if (!udf::closeDir(dir->udfDir)) {
        return FALSE;
      }
      break;
    default:
      GP_NOT_REACHED(kModule);
  }
  std::free(dir->path);
  std::free(dir);
  return TRUE;
}

GP_EXPORT char *Guess_ReadFile(GuessMedium *medium, GuessDir *dir,
                               const char *name, size_t *size) {
  if (medium == nullptr || dir == nullptr || name == nullptr) {
    return nullptr;
  }
  return abiGuard(static_cast<char *>(nullptr), [&] {
    return tryCaseVariants(name, [&](const char *variant) {
      return static_cast<char *>(
          guessLookupFile(medium, dir, variant, true, size));
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
    return guessLookupFile(medium, dir.get(), name, false, nullptr) != nullptr;
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
