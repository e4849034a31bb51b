#include "lib/medium/answer_template.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/hostio.h"

#ifndef GP_TEMPLATES_DIR
#define GP_TEMPLATES_DIR "/usr/share/guestprep/templates"
#endif

namespace gp::medium {
namespace {

// A template is a page of text; anything larger is not one.
constexpr size_t kMaxTemplateBytes = 1u << 20;

}  // namespace

std::string answerTemplateRoot(const InstallEntries &entries) {
  if (!entries.templateDir.empty()) {
    return entries.templateDir;
  }
  const char *dir = std::getenv("GUESTPREP_TEMPLATEDIR");
  return dir != nullptr && dir[0] != '\0' ? dir : GP_TEMPLATES_DIR;
}

bool loadAnswerTemplate(const InstallEntries &entries,
                        std::string_view installer, std::string_view file,
                        std::string &text, std::string &error) {
  std::string path =
      joinPath(joinPath(answerTemplateRoot(entries), installer), file);
  errno = 0;
  if (!readWholeFile(path.c_str(), text, kMaxTemplateBytes)) {
    error = "template " + path + ": " +
            (errno != 0 ? std::strerror(errno)
                        : "not a regular file of at most 1 MiB");
    return false;
  }
  return true;
}

bool fillAnswerTemplate(std::string_view templ, const TemplateValues &values,
                        std::string_view templateName, std::string &out,
                        std::string &error) {
  out.clear();
  out.reserve(templ.size() + 1024);
  size_t pos = 0;
  while (pos < templ.size()) {
    size_t open = templ.find("{{", pos);
    if (open == std::string_view::npos) {
      out.append(templ.substr(pos));
      break;
    }
    out.append(templ.substr(pos, open - pos));
    size_t close = templ.find("}}", open + 2);
    if (close == std::string_view::npos) {
      error =
          "template " + std::string(templateName) + ": a \"{{\" is not closed";
      return false;
    }
    std::string_view name = templ.substr(open + 2, close - open - 2);
    auto found = values.find(name);
    if (found == values.end()) {
      error = "template " + std::string(templateName) +
              ": no value is called {{" + std::string(name) + "}}";
      return false;
    }
    out += found->second;
    pos = close + 2;
  }
  return true;
}

}  // namespace gp::medium
