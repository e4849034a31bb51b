// Finding and reading the answer-file templates.
#include "lib/medium/answer_templates.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/hostio.h"

#ifndef GP_TEMPLATES_DIR
#define GP_TEMPLATES_DIR "/usr/local/share/guestprep/templates"
#endif

namespace gp::medium {
namespace {

// Templates are small; a larger file is not one of ours.
constexpr size_t kMaxTemplateSize = 1u << 20;

}  // namespace

std::string templateRoot(const std::string &entriesDir) {
  if (!entriesDir.empty()) {
    return entriesDir;
  }
  const char *env = std::getenv("GUESTPREP_TEMPLATEDIR");
  return env != nullptr && env[0] != '\0' ? env : GP_TEMPLATES_DIR;
}

bool readAnswerTemplate(const std::string &entriesDir,
                        const std::string &installer, const std::string &file,
                        std::string &text, std::string &error) {
  const std::string path =
      joinPath(joinPath(templateRoot(entriesDir), installer), file);
  errno = 0;
  if (!readWholeFile(path.c_str(), text, kMaxTemplateSize)) {
    error =
        "cannot read the template " + path + ": " +
        (errno != 0 ? std::strerror(errno)
                    : "not a template file (a regular file of at most 1 MiB)");
    return false;
  }
  return true;
}

}  // namespace gp::medium
