/* The tools version header from plain C99. */
#include "guestprep/toolsversion.h"

#include <stddef.h>

int main(void) {
  ToolsUpdateInfo *info = NULL;
  int count = 0, error = 1, counter = 1;
  uint32_t legacy = 1;
  int32_t status;
  ToolsVersion_SetHostManifestCacheDir(NULL);
  ToolsVersion_FreeUpdateInfo(NULL, 0);
  if (ToolsVersion_GetUpdateInfo("/nonexistent/m.cfg", &info, &count) ||
      ToolsVersion_GetInstallInfo("/nonexistent/m.cfg", &error, &counter) ||
      error != 0 || counter != 0 ||
      ToolsVersion_GetLegacyVersionNumber("/nonexistent/m.cfg", &legacy) ||
      legacy != 0 ||
      !ToolsVersion_SaveXmlInfo("/nonexistent/m.cfg", NULL, "", 0, 0)) {
    return 1;
  }
  /* No manifest text and legacy number 0: no tools, no file read. */
  status = ToolsVersion_GetStatus("/nonexistent/m.cfg", NULL, "", 0);
  return status == TOOLS_STATUS_NONE ? 0 : 1;
}
