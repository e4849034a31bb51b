/* Every public header together in one plain C99 translation unit. */
#include "guestprep/autoinstall.h"
#include "guestprep/guess.h"
#include "guestprep/iniutil.h"
#include "guestprep/toolsversion.h"
#include "guestprep/types.h"

int main(void) { return 0; }
