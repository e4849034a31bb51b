// Helpers for the extern "C" entry points. Every exported function is a
// thin wrapper that runs its C++ body inside abiGuard(), so no exception
// crosses the C boundary: allocation failure stops the process, anything
// else becomes the function's documented failure value.
#pragma once

#include <cstdlib>
#include <memory>
#include <new>

#include "platform/fatal.h"

#define GP_EXPORT extern "C" __attribute__((visibility("default")))

namespace gp {

template <typename R, typename F>
R abiGuard(R onFailure, F &&body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc &) {
    outOfMemory();
  } catch (...) {
    return onFailure;
  }
}

template <typename F>
void abiGuardVoid(F &&body) noexcept {
  try {
    body();
  } catch (const std::bad_alloc &) {
    outOfMemory();
  } catch (...) {
  }
}

// Owner of a malloc'ed block.
struct FreeDeleter {
  void operator()(void *p) const { std::free(p); }
};
template <typename T>
using MallocPtr = std::unique_ptr<T, FreeDeleter>;

}  // namespace gp
