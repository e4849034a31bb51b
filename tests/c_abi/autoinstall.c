/* The installation header from plain C99. */
#include "guestprep/autoinstall.h"

int main(void) { return 0; }
