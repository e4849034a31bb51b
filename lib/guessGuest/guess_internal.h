// Shared between the files of the identification module.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "guestprep/guess.h"
#include "platform/abi.h"

namespace gp::guess {

inline constexpr const char kModule[] = "lib/guessGuest/guess";

// A file read whole from the medium, owned; empty() when absent.
struct FileText {
  MallocPtr<char> data;
  size_t size = 0;
  bool present() const { return data != nullptr; }
  std::string_view view() const { return {data.get(), size}; }
  // The contents as the text that marker files are: up to the first NUL.
  std::string_view text() const {
    return data ? std::string_view(data.get()) : std::string_view();
  }
};

// Guess_ReadFileName wrapped in an owner.
FileText readFileName(GuessMedium *medium, const char *path);

// The first of the files that can be read, in order.
FileText readFirstOf(GuessMedium *medium,
                     std::initializer_list<const char *> paths);

// A directory handle closed on scope exit.
class DirHandle {
 public:
  DirHandle(GuessMedium *medium, const char *path)
      : medium_(medium), dir_(Guess_OpenDir(medium, path)) {}
  ~DirHandle() {
    if (dir_ != nullptr) {
      Guess_CloseDir(medium_, dir_);
    }
  }
  DirHandle(const DirHandle &) = delete;
  DirHandle &operator=(const DirHandle &) = delete;
  GuessDir *get() const { return dir_; }
  explicit operator bool() const { return dir_ != nullptr; }

 private:
  GuessMedium *medium_;
  GuessDir *dir_;
};

// Whether "isolinux.cfg" exists in any of the directories, tried in order.
inline bool isolinuxConfigIn(GuessMedium *medium,
                             std::initializer_list<const char *> dirs) {
  for (const char *dir : dirs) {
    if (Guess_FileExists(medium, dir, "isolinux.cfg")) {
      return true;
    }
  }
  return false;
}

// How a detector's body ends.
enum class Outcome {
  Recognised,     // it filled in the record
  NotRecognised,  // the record's earlier finding, if any, stands
  Refused,        // not recognised, whatever the record says
};

// Records a recognised medium: osName and subVersion.
inline Outcome recognise(GuessInfo *info, const char *osName,
                         uint32_t subVersion) {
  info->osName = osName;
  info->subVersion = subVersion;
  return Outcome::Recognised;
}

// The shape every detector shares: null arguments and failures give FALSE,
// otherwise the body's outcome decides.
template <typename Body>
Bool runDetector(GuessMedium *medium, GuessInfo *info, Body &&body) {
  if (medium == nullptr || info == nullptr) {
    return FALSE;
  }
  return abiGuard(Bool(FALSE), [&]() -> Bool {
    Outcome outcome = body();
    return outcome == Outcome::Recognised ||
           (outcome == Outcome::NotRecognised && info->osName != nullptr);
  });
}

}  // namespace gp::guess
