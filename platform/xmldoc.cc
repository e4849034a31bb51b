#include "platform/xmldoc.h"

#include <libxml/parser.h>

#include <climits>

namespace gp::xml {
namespace {

// Keeps libxml2's context-free messages (a failed encoding conversion, for
// one) off the host's standard error while a template is parsed; the
// handler is per thread and restored afterwards.
class QuietErrors {
 public:
  QuietErrors() : savedFn_(xmlGenericError), savedCtx_(xmlGenericErrorContext) {
    xmlSetGenericErrorFunc(nullptr, ignore);
  }
  ~QuietErrors() { xmlSetGenericErrorFunc(savedCtx_, savedFn_); }
  QuietErrors(const QuietErrors &) = delete;
  QuietErrors &operator=(const QuietErrors &) = delete;

 private:
  static void ignore(void *, const char *, ...) {}
  xmlGenericErrorFunc savedFn_;
  void *savedCtx_;
};

}  // namespace

DocPtr parseTemplateText(const std::string &text, const char *name,
                         int extraOptions) {
  if (text.size() > static_cast<size_t>(INT_MAX)) {
    return nullptr;
  }
  xmlInitParser();
  QuietErrors quiet;
  const int options =
      XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | extraOptions;
  DocPtr doc(xmlReadMemory(text.data(), static_cast<int>(text.size()), name,
                           nullptr, options));
  if (!doc || doc->intSubset != nullptr || doc->extSubset != nullptr ||
      xmlDocGetRootElement(doc.get()) == nullptr) {
    return nullptr;
  }
  return doc;
}

}  // namespace gp::xml
