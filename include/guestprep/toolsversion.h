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

#ifdef __cplusplus
}
#endif

#endif /* GUESTPREP_TOOLSVERSION_H */
