// Process stops for states that cannot happen and for allocation failure.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace gp {

// Prints "NOT_REACHED <file>:<line>\n" to the log and standard error, then
// aborts. `file` names the source module, e.g. "lib/guessGuest/guess".
[[noreturn]] void notReached(const char *file, int line);

// Allocation failure is fatal everywhere in the library.
[[noreturn]] void outOfMemory();

// malloc() that never returns null.
void *checkedMalloc(size_t size);
void *checkedRealloc(void *ptr, size_t size);

// A malloc'ed, NUL-terminated copy, for heap results handed to the caller.
char *heapCopy(std::string_view text);

}  // namespace gp

#define GP_NOT_REACHED(module) ::gp::notReached(module, __LINE__)
