// Owners for libxml2's objects, and the one way answer-file templates are
// parsed: from memory, without network access, without loading or
// expanding any entity, without a document type declaration (where
// entities come from) and without writing libxml2's messages to the host's
// standard error.
#pragma once

#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <memory>
#include <string>

namespace gp::xml {

struct DocFree {
  void operator()(xmlDoc *d) const { xmlFreeDoc(d); }
};
struct ContextFree {
  void operator()(xmlXPathContext *c) const { xmlXPathFreeContext(c); }
};
struct ObjectFree {
  void operator()(xmlXPathObject *o) const { xmlXPathFreeObject(o); }
};
struct CharFree {
  void operator()(xmlChar *p) const { xmlFree(p); }
};
using DocPtr = std::unique_ptr<xmlDoc, DocFree>;
using ContextPtr = std::unique_ptr<xmlXPathContext, ContextFree>;
using ObjectPtr = std::unique_ptr<xmlXPathObject, ObjectFree>;
using CharPtr = std::unique_ptr<xmlChar, CharFree>;

inline const xmlChar *x(const char *s) {
  return reinterpret_cast<const xmlChar *>(s);
}

// The document in `text`, or null when it is not well formed, has no root
// element or declares a document type. `name` is the document's URL in
// libxml2's own records; `extraOptions` are further XML_PARSE_ flags.
DocPtr parseTemplateText(const std::string &text, const char *name,
                         int extraOptions = 0);

}  // namespace gp::xml
