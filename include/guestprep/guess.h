/*
 * Guest OS identification from installation media.
 *
 * Guess_Guest() opens an ISO 9660 or UDF image, runs a fixed table of
 * detectors over its marker files and fills a caller-allocated GuessInfo.
 * The media access functions are exported so that a host can run them on a
 * medium record of its own.
 */
#ifndef GUESTPREP_GUESS_H
#define GUESTPREP_GUESS_H

#include "guestprep/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Sub-version codes; SUB_NAMES holds the name of each. */
typedef enum GuessVersion {
  GUESS_VERSION_UNKNOWN = 0,
  GUESS_VERSION_UBUNTU_SERVER_804_OR_LOWER = 1,
  GUESS_VERSION_UBUNTU_SERVER_810_OR_HIGHER = 2,
  GUESS_VERSION_UBUNTU_704_OR_LOWER = 3,
  GUESS_VERSION_UBUNTU_710_OR_HIGHER = 4,
  GUESS_VERSION_MANDRIVA_2006 = 5,
  GUESS_VERSION_MANDRIVA_2007 = 6,
  GUESS_VERSION_MANDRIVA_2008_0 = 7,
  GUESS_VERSION_MANDRIVA_2008_1_OR_HIGHER = 8,
  GUESS_VERSION_FEDORA_8 = 9,
  GUESS_VERSION_FEDORA_9_TO_12 = 10,
  GUESS_VERSION_FEDORA_13 = 11,
  GUESS_VERSION_FEDORA_14_OR_HIGHER = 12,
  GUESS_VERSION_OPENSUSE_11_2_OR_LOWER = 13,
  GUESS_VERSION_SLES_10_SP2_OR_LOWER = 14,
  GUESS_VERSION_SLED_10_SP2_OR_LOWER = 15,
  GUESS_VERSION_SLED_ALL = 16,
  GUESS_VERSION_CENTOS_3 = 17,
  GUESS_VERSION_CENTOS_4 = 18,
  GUESS_VERSION_CENTOS_5 = 19,
  GUESS_VERSION_CENTOS_6 = 20,
  GUESS_VERSION_DUMMY_LAST = 21
} GuessVersion;

/* Results of Guess_Guest(). */
enum {
  GUESS_FOUND = 0,
  GUESS_NOT_FOUND = 1,
  GUESS_OPEN_FAILED = 2
};

/* Medium kinds of GuessMedium.kind. */
enum {
  GUESS_MEDIUM_ISO9660 = 1,
  GUESS_MEDIUM_UDF = 2
};

/* Results of Guess_ELF_Arch(). */
enum {
  GUESS_ARCH_UNKNOWN = 0,
  GUESS_ARCH_32 = 1,
  GUESS_ARCH_64 = 2
};

/* The identification result, allocated by the caller. */
typedef struct GuessInfo {
  const char *osName;   /* static guest OS identifier, NULL if none */
  const char *osName64; /* static identifier of the 64-bit edition */
  uint32_t subVersion;  /* a GuessVersion code */
  uint8_t noIsolinux;   /* Bool */
  char versionString[32];
  char language[128];
  char editions[512];   /* install image names, each followed by '?' */
} GuessInfo;

struct IsoImage;
struct UdfImage;

/* An opened installation medium. */
typedef struct GuessMedium {
  uint32_t kind;              /* GUESS_MEDIUM_ISO9660 or GUESS_MEDIUM_UDF */
  char *path;                 /* heap copy of the image path */
  struct IsoImage *isoImage;  /* ISO 9660 media only */
  struct UdfImage *udfImage;  /* UDF media only */
} GuessMedium;

/* A directory on a medium; opaque, released by Guess_CloseDir(). */
typedef struct GuessDir GuessDir;

typedef Bool (*GuessDetector)(GuessMedium *medium, GuessInfo *info);

GUESTPREP_API extern const char *const SUB_NAMES[22];

GUESTPREP_API int Guess_Guest(const char *imagePath, uint32_t unused,
                              GuessInfo *info);
GUESTPREP_API const char *Guess_GetSubString(GuessVersion code);
GUESTPREP_API char *Guess_GetVersionString(const char *name,
                                           const GuessInfo *info);

GUESTPREP_API GuessDir *Guess_OpenDir(GuessMedium *medium, const char *path);
GUESTPREP_API const char *Guess_ReadDir(GuessMedium *medium, GuessDir *dir);
GUESTPREP_API Bool Guess_RewindDir(GuessMedium *medium, GuessDir *dir);
GUESTPREP_API Bool Guess_CloseDir(GuessMedium *medium, GuessDir *dir);
GUESTPREP_API char *Guess_ReadFile(GuessMedium *medium, GuessDir *dir,
                                   const char *name, size_t *size);
GUESTPREP_API char *Guess_ReadFileName(GuessMedium *medium, const char *path,
                                       size_t *size);
GUESTPREP_API Bool Guess_FileExists(GuessMedium *medium, const char *dirPath,
                                    const char *name);
GUESTPREP_API Bool Guess_FileExistsWithPrefix(GuessMedium *medium,
                                              const char *dirPath,
                                              const char *prefix);
GUESTPREP_API int Guess_ELF_Arch(const unsigned char *buffer, size_t size);

/* Detectors, in the order Guess_Guest() runs them. */
GUESTPREP_API Bool Guess_WindowsNT(GuessMedium *medium, GuessInfo *info);
GUESTPREP_API Bool Guess_WindowsLegacy(GuessMedium *medium, GuessInfo *info);
GUESTPREP_API Bool Guess_WindowsVistaAndNewer(GuessMedium *medium,
                                              GuessInfo *info);
GUESTPREP_API Bool Guess_RedHat(GuessMedium *medium, GuessInfo *info);
GUESTPREP_API Bool Guess_Mandriva(GuessMedium *medium, GuessInfo *info);
GUESTPREP_API Bool Guess_Debian(GuessMedium *medium, GuessInfo *info);
GUESTPREP_API Bool Guess_SUSE(GuessMedium *medium, GuessInfo *info);
GUESTPREP_API Bool Guess_TurboLinux(GuessMedium *medium, GuessInfo *info);
GUESTPREP_API Bool Guess_Solaris(GuessMedium *medium, GuessInfo *info);
GUESTPREP_API Bool Guess_NetWare(GuessMedium *medium, GuessInfo *info);
GUESTPREP_API Bool Guess_FreeBSD(GuessMedium *medium, GuessInfo *info);
GUESTPREP_API Bool Guess_Orvex(GuessMedium *medium, GuessInfo *info);
GUESTPREP_API Bool Guess_Orvexi(GuessMedium *medium, GuessInfo *info);

/* Mac OS X media; not run by Guess_Guest(). */
GUESTPREP_API Bool Guess_MacOS(GuessMedium *medium, GuessInfo *info);

#ifdef __cplusplus
}
#endif

#endif /* GUESTPREP_GUESS_H */
