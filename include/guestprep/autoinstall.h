/*
 * Unattended installation: support decisions and limits, input validation,
 * answer files, and the floppy or ISO boot media that carry them.
 */
#ifndef GUESTPREP_AUTOINSTALL_H
#define GUESTPREP_AUTOINSTALL_H

#include "guestprep/guess.h"
#include "guestprep/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Installation configuration and guest families ---- */

/* One reserved name: with isPrefix 1, every name that begins with `name` is
 * reserved; with 0, only `name` itself. A list ends with a null `name`. */
typedef struct AutoInstallReservedName {
  const char *name;
  uint32_t isPrefix;
} AutoInstallReservedName;

/* The limits and reserved names of a guest, filled by
 * AutoInstall_GetInstallConfigInfo(). The list pointers point into constant
 * tables of the library and are never freed. The library attaches no
 * meaning to the flag bytes and the guest limit: they are the host's. */
typedef struct AutoInstallConfigInfo {
  const AutoInstallReservedName *reservedShortNames; /* family, may be NULL */
  const AutoInstallReservedName *reservedNames;      /* guest, may be NULL */
  uint32_t maxShortNameLength;                       /* family */
  uint32_t maxNameLength;                            /* guest */
  uint32_t guestLimit;                               /* guest */
  uint32_t maxPasswordLength;                        /* family */
  uint8_t familyFlags[4];                            /* family */
  uint8_t guestFlags[2];                             /* guest */
} AutoInstallConfigInfo;

/* Fills `out` with the limits for the guest identified in `info`; `family`
 * is "windows" or "linux", compared exactly. FALSE, with `out` untouched,
 * for a null argument, a null osName or an unknown family. */
GUESTPREP_API Bool AutoInstall_GetInstallConfigInfo(const char *family,
                                                    const GuessInfo *info,
                                                    AutoInstallConfigInfo *out);

/* TRUE when the library can prepare an unattended installation of the
 * identified guest: the Windows test, else the Linux test. */
GUESTPREP_API Bool AutoInstall_IsSupportedGuest(const GuessInfo *info);
GUESTPREP_API Bool AutoInstallIsSupportedWindowsGuest(const GuessInfo *info);
GUESTPREP_API Bool AutoInstallIsSupportedLinuxGuest(const GuessInfo *info);

/* TRUE when the guest's Linux installer reads its answer file from a floppy
 * image, FALSE when the answer file goes on the remastered ISO. */
GUESTPREP_API Bool AutoInstall_NeedsFloppy_Linux(const char *osName);

/* ---- User input validation ---- */

/* Which field a text is (the `kind` argument). */
enum {
  AUTOINSTALL_TEXT_PASSWORD = 0,
  AUTOINSTALL_TEXT_SHORT_NAME = 1, /* login (user) name */
  AUTOINSTALL_TEXT_NAME = 2        /* full name; on Windows the account name */
};
typedef int AutoInstallTextKind;

/* Validation results. */
enum {
  AUTOINSTALL_VALID = 0,
  AUTOINSTALL_BAD_LINUX_NAME = 1,
  AUTOINSTALL_BAD_WINDOWS_NAME = 2,
  AUTOINSTALL_BAD_PASSWORD_SUBSTRING = 3,
  AUTOINSTALL_BAD_GECOS_SUBSTRING = 4,
  AUTOINSTALL_BAD_LINUX_USERNAME = 5,
  AUTOINSTALL_BAD_UBUNTU_USERNAME = 6
};
typedef int AutoInstallValidation;

/* Each returns AUTOINSTALL_VALID or the first rule the text breaks. When a
 * text is refused and `message` is not NULL, *message receives a new heap
 * string in the user's language that the caller frees; otherwise *message
 * is left as it was. `family` must be "windows" or "linux": anything else
 * is a programming error that stops the process. */
GUESTPREP_API AutoInstallValidation
AutoInstall_ValidateName(const char *family, const GuessInfo *info,
                         const char *text, char **message);
GUESTPREP_API AutoInstallValidation
AutoInstall_ValidateShortName(const char *family, const GuessInfo *info,
                              const char *text, char **message);
GUESTPREP_API AutoInstallValidation
AutoInstall_ValidatePassword(const char *family, const GuessInfo *info,
                             const char *text, char **message);

/* The rules of each family; `kind` is an AutoInstallTextKind. */
GUESTPREP_API AutoInstallValidation AutoInstallValidateLinuxText(
    const GuessInfo *info, const char *text, int kind, char **message);
GUESTPREP_API AutoInstallValidation AutoInstallValidateWindowsText(
    const GuessInfo *info, const char *text, int kind, char **message);

/* ---- Floppy image file transfer ---- */

/* An open volume, directory or file of a FAT floppy image; NULL is none. */
typedef struct FatObject *FatHandle;

/* Copies the file `name` of the open image directory `dir` to the host
 * file `hostPath` (created or emptied). */
GUESTPREP_API Bool GetFileFromFloppyImg(FatHandle dir, const char *name,
                                        const char *hostPath);

/* Copies the host file `hostPath` into the open image directory `dir` under
 * `name`. An existing file is overwritten from its start and keeps any
 * bytes beyond the new length. */
GUESTPREP_API Bool AddFileToFloppyImg(FatHandle dir, const char *hostPath,
                                      const char *name);

/* Adds the host file `hostPath` as `name` to the root directory of the
 * floppy image "autoinst.flp" in `workDir`. */
GUESTPREP_API Bool AutoInstall_AddFileToFloppyImg(const char *hostPath,
                                                  const char *name,
                                                  const char *workDir);

/* ---- Linux answer files ---- */

/*
 * Writes the answer file of a Linux guest into outDir (created with its
 * parents when missing): "ks.cfg", "custom/preseed.cfg", "autoinst.xml" or
 * "auto_i~1.cfg", by the installer kind of osName. password and
 * rootPassword are plain text; the files hold their MD5-crypt hashes
 * (Mandriva's holds them as they are). productKey may be NULL or empty.
 * powerOff TRUE powers the guest off after installing, FALSE reboots it.
 * Every entry is escaped for the place it lands in (shell, Perl, XML or
 * debconf), so that the installer reads it literally.
 * Returns TRUE when the whole file was written; FALSE, with nothing logged,
 * for a null argument, a guest without an answer file, an entry the file
 * cannot hold literally (a line break in a user name, full name or product
 * key, a preseed value ending in a backslash, an AutoYaST name that is not
 * UTF-8), or any file error; in the first cases no file is written.
 * An existing file is overwritten from its start without being emptied.
 */
GUESTPREP_API Bool AutoInstall_PrepareAnswerFileEx_Linux(
    const char *osName, GuessVersion subVersion, const char *outDir,
    const char *userName, const char *fullName, const char *password,
    const char *rootPassword, const char *productKey, Bool powerOff);

/* ---- Linux boot media ---- */

/*
 * Finds the isolinux configuration of a Linux installation disc (an ISO
 * image, or the disc's files in the host directory discDir; NULL is "/"),
 * takes its first complete boot entry, and prepares the staging directory
 * outDir, the root of the future boot ISO: its subdirectory "isolinux"
 * receives the kernel, the RAM disk, "isolinux.bin" (from isolinuxBinPath,
 * or from the disc when that is NULL), "ldlinux.c32" when it lies beside
 * "isolinux.bin", and a new "isolinux.cfg" that boots the kernel at once
 * with the disc's arguments and the answer-file arguments of osName.
 * A disc whose boot files lie outside it, or whose configuration does not
 * fit 4095 bytes (an append line 510), is refused. Files already copied
 * stay after a failure. AutoInstall_ScanDisk logs its failures.
 */
GUESTPREP_API Bool AutoInstall_ScanISO(const char *isoPath, const char *outDir,
                                       const char *osName,
                                       const char *isolinuxBinPath);
GUESTPREP_API Bool AutoInstall_ScanDisk(const char *discDir, const char *outDir,
                                        const char *osName,
                                        const char *isolinuxBinPath);

/*
 * Masters stagingDir into outDir/"autoinst.iso" with the mkisofs-style tool
 * toolPath, run through the system shell, then deletes the staging tree
 * (symbolic links in it are removed, never followed), whatever the tool
 * did. An argument holding a character that double quotes leave active
 * ($, `, ", \, a line break) is refused before any command runs. TRUE when
 * the tool's status is 0.
 */
GUESTPREP_API Bool AutoInstall_MasterISO(const char *stagingDir,
                                         const char *toolPath,
                                         const char *outDir);

/*
 * Builds workDir/"autoinst.flp" holding the answer file that
 * AutoInstall_PrepareAnswerFileEx_Linux wrote into answerDir: formatted
 * fresh for Ubuntu, copied from "suse.flp" or "mandriva.flp" in templateDir
 * for SUSE and Mandriva. TRUE without a floppy for guests whose installer
 * reads its answer file from the CD.
 */
GUESTPREP_API Bool AutoInstall_MakeFloppyImg_Linux(const char *answerDir,
                                                   const char *workDir,
                                                   const char *templateDir,
                                                   const char *osName);

/* Copies the guest tools upgrader files of toolsDir into destDir under the
 * short names that the answer files' commands expect: "upgra32",
 * "upgra64" and "upgrade.sh". */
GUESTPREP_API Bool AutoInstall_AddTools_Linux(const char *destDir,
                                              const char *toolsDir);

/* ---- Windows answer files ---- */

/*
 * Writes the Windows answer files into workDir: "winnt.sif" (text-mode
 * installer), "autoun~0.xml" (Windows Vista and later) and, when
 * storePwdTemplatePath is not NULL, "storePwd.ini", each a copy of its
 * template with the user's values set. productKey, kmsHost, userName,
 * password, language and imageName may be NULL or empty: a missing value is
 * not set (language defaults to "en-US" for Windows Vista and later, else
 * "English"). guestID must be a Windows guest identifier. keepAutoLogon
 * TRUE keeps automatic logon on after the first logon. Returns TRUE when
 * the files were written; FALSE on failure, logged, with the copies made so
 * far left in workDir. Every file appears whole or not at all.
 */
GUESTPREP_API Bool AutoInstall_PrepareAnswerFileEx(
    const char *winntTemplatePath, const char *unattendTemplatePath,
    const char *storePwdTemplatePath, const char *productKey,
    const char *kmsHost, const char *userName, const char *password,
    const char *guestID, const char *workDir, const char *language,
    const char *imageName, Bool keepAutoLogon);

/* ---- Windows boot floppy ---- */

/*
 * Builds the floppy image "autoinst.flp" in workDir for the Windows
 * installer: the mass-storage driver files (listed in winnt.sif under
 * "OEMBootFiles"), then winnt.sif, autoun~0.xml, storePwd.ini and
 * storePwd.exe (when storePwd.ini is in workDir), upgrader.exe and
 * unattend.cmd. templateFloppyPath NULL formats a new volume, else the
 * image starts as a copy of it. The drivers come from the directory
 * scsiDriverDir of the tools image toolsIsoPath; from the host directory
 * scsiDriverDir when toolsIsoPath is NULL; or from supportDir's driver
 * floppy "ztscsi.flp" when toolsIsoPath names no existing file.
 * scsiDriverDir NULL puts no drivers on the image. upgraderDir holds
 * "ZentavToolsUpgrader.exe"; supportDir "storePwd.exe" and
 * "unattend.cmd". TRUE when unattend.cmd, the last file, was added.
 * Whatever the result, the answer files and the staging directory are
 * removed from workDir; the image itself always stays.
 */
GUESTPREP_API Bool AutoInstall_MakeFloppyImg(const char *templateFloppyPath,
                                             const char *workDir,
                                             const char *toolsIsoPath,
                                             const char *scsiDriverDir,
                                             const char *upgraderDir,
                                             const char *supportDir);

/* Names the driver that the driver description file txtsetupOemPath
 * describes in winnt.sif's section "MassStorageDrivers" ("<description>"
 * = OEM). Does nothing when the file cannot be read or names no known
 * driver. */
GUESTPREP_API void WriteOEMDriverInfo(const char *txtsetupOemPath,
                                      const char *winntPath);

/* ---- Windows product names ---- */

/* The display name, in the user's language, of an install image name such
 * as "Windows 7 HOMEPREMIUMN" ("Windows 7 Home Premium N"). Names it does
 * not know come back unchanged. A new heap string that the caller frees;
 * NULL for a NULL name. */
GUESTPREP_API char *AutoInstall_GetPrettyWindowsName(const char *imageName);

#ifdef __cplusplus
}
#endif

#endif /* GUESTPREP_AUTOINSTALL_H */
