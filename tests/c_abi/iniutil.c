/* The INI header from plain C99. */
#include "guestprep/iniutil.h"

int main(void) {
  int32_t number = 0;
  return IniUtil_GetIniFileInt("/nonexistent/file.ini", "s", "k", &number) ? 1 : 0;
}
