/* The tools version header from plain C99. */
#include "guestprep/toolsversion.h"

int main(void) {
  ToolsVersionStatus tools = TOOLS_STATUS_UNKNOWN;
  return tools == 9 ? 0 : 1;
}
