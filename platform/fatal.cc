#include "platform/fatal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/log.h"

namespace gp {

void notReached(const char *file, int line) {
  logf("NOT_REACHED %s:%d\n", file, line);
  std::fprintf(stderr, "NOT_REACHED %s:%d\n", file, line);
  std::fflush(stderr);
  std::abort();
}

void outOfMemory() {
  std::fputs("guestprep: out of memory\n", stderr);
  std::abort();
}

void *checkedMalloc(size_t size) {
  void *p = std::malloc(size == 0 ? 1 : size);
  if (p == nullptr) {
    outOfMemory();
  }
  return p;
}

void *checkedRealloc(void *ptr, size_t size) {
  void *p = std::realloc(ptr, size == 0 ? 1 : size);
  if (p == nullptr) {
    outOfMemory();
  }
  return p;
}

char *heapCopy(std::string_view text) {
  char *p = static_cast<char *>(checkedMalloc(text.size() + 1));
  if (!text.empty()) {
    std::memcpy(p, text.data(), text.size());
  }
  p[text.size()] = '\0';
  return p;
}

}  // namespace gp
