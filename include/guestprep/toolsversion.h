/*
 * Guest tools version status.
 *
 * The status compares the guest tools installed in a machine with the
 * tools that the host ships. ToolsVersionStatus is the public status code:
 * it is what the status query returns and what the extended configuration
 * file stores in its "status" attributes.
 */
#ifndef GUESTPREP_TOOLSVERSION_H
#define GUESTPREP_TOOLSVERSION_H

#include "guestprep/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum ToolsVersionStatus {
  TOOLS_STATUS_TOO_OLD = 1,          /* older than supported */
  TOOLS_STATUS_SUPPORTED_OLD = 2,    /* older than the host's, supported */
  TOOLS_STATUS_CURRENT = 3,          /* as the host's */
  TOOLS_STATUS_SUPPORTED_NEW = 4,    /* newer than the host's, supported */
  TOOLS_STATUS_TOO_NEW = 5,          /* newer than supported */
  TOOLS_STATUS_BLACKLISTED = 6,      /* a forbidden version is installed */
  TOOLS_STATUS_NONE = 7,             /* legacy version number 0 */
  TOOLS_STATUS_RESERVED_VERSION = 8, /* legacy version number 0x7FFFFFFF */
  TOOLS_STATUS_UNKNOWN = 9           /* nothing could be decided */
} ToolsVersionStatus;

/*
 * The machine's files
 * -------------------
 * `configPath` is the machine's configuration file, in the key = value
 * syntax of the library's dictionary files. Its keys "guestOS" (the guest
 * OS identifier, which picks the tools image), "extendedConfigFile" (the
 * extended configuration XML, relative to the configuration file's
 * directory), "libdir" (where the tools images are: <libdir>/isoimages,
 * default "/usr/lib/zentav") and "disk0.path", "disk1.path", ... (the
 * disk descriptors that hold the legacy "toolsVersion") are read.
 *
 * Every call logs its failures through the library's log and closes every
 * file it opened before it returns. The extended configuration file and an
 * update agent report must stay below 1 MiB; the XML is parsed without
 * network access, DTD loading or entity expansion.
 */

/* One component of the update agent's report. */
typedef struct ToolsUpdateInfo {
  char *name;         /* the component */
  char *guestVersion; /* NULL when not reported */
  char *repoVersion;  /* NULL when not reported */
  int32_t status;     /* a ToolsVersionStatus; 9 when not given */
} ToolsUpdateInfo;

/*
 * The update agent's report kept in the extended configuration file: one
 * record per child of its "tools" element, in document order. On TRUE,
 * *info is an array of *count records, released with
 * ToolsVersion_FreeUpdateInfo.
 */
GUESTPREP_API Bool ToolsVersion_GetUpdateInfo(const char *configPath,
                                              ToolsUpdateInfo **info,
                                              int *count);
/* Frees the strings of `count` records and the array; NULL does nothing. */
GUESTPREP_API void ToolsVersion_FreeUpdateInfo(ToolsUpdateInfo *info,
                                               int count);

/*
 * The last tools installation's error code and update counter (0 when the
 * file does not record them). Either pointer may be NULL.
 */
GUESTPREP_API Bool ToolsVersion_GetInstallInfo(const char *configPath,
                                               int *installError,
                                               int *updateCounter);

/*
 * Records the update agent's report (an XML text, "no tools" or "null"),
 * the guest's tools manifest (dictionary text, "no tools" or "null") and,
 * when updateCounter is not 0, the installation counters in the extended
 * configuration file. The file is replaced atomically: on any failure it
 * is left exactly as it was. TRUE without touching the file when there is
 * nothing to record.
 */
GUESTPREP_API Bool ToolsVersion_SaveXmlInfo(const char *configPath,
                                            const char *updateAgentXml,
                                            const char *manifestText,
                                            int installError,
                                            int updateCounter);

/*
 * The directory in which status queries keep the manifests extracted from
 * the tools images (NULL: none, every query opens the image). Set it
 * before queries start and do not change it while they run.
 */
GUESTPREP_API void ToolsVersion_SetHostManifestCacheDir(const char *cacheDir);
/* Sets the cache directory and refills it from every tools image. */
GUESTPREP_API void ToolsVersion_InitHostManifestCache(const char *cacheDir);

/*
 * The highest legacy tools version number among the machine's current
 * disks (0 when none holds one). FALSE only when the disks cannot be
 * listed.
 */
GUESTPREP_API Bool ToolsVersion_GetLegacyVersionNumber(const char *configPath,
                                                       uint32_t *version);

/*
 * The tools status of the machine, a ToolsVersionStatus. The guest manifest
 * is the file guestManifestPath, else the text guestManifestText, else the
 * one kept in the extended configuration file; legacyVersion is the legacy
 * tools version number, or 0xFFFFFFFF to read it from the disks. A status
 * recorded by the update agent is returned as it was recorded.
 */
GUESTPREP_API int32_t ToolsVersion_GetStatus(const char *configPath,
                                             const char *guestManifestPath,
                                             const char *guestManifestText,
                                             uint32_t legacyVersion);

#ifdef __cplusplus
}
#endif

#endif /* GUESTPREP_TOOLSVERSION_H */
