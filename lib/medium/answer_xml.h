// The XML answer files of today's installers: a template parsed safely,
// values placed by XPath as literal text, and the checks that a value can
// be carried by an XML document at all.
#pragma once

#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/xmldoc.h"

namespace gp::medium::xml {

using gp::xml::ContextPtr;
using gp::xml::DocPtr;

// Parses a template from memory without network access, without loading
// or expanding any entity and without error output. A template with a
// document type declaration is refused: it is where entities come from.
DocPtr parseTemplate(const std::string &text);

// An XPath context over the document with each (prefix, namespace) pair
// registered; null when none can be made.
ContextPtr newContext(
    xmlDoc *doc,
    const std::vector<std::pair<const char *, const char *>> &namespaces);

// The element nodes that the expression selects, in document order; empty
// when it selects none or cannot be evaluated.
std::vector<xmlNode *> select(xmlXPathContext *ctx, const char *expression,
                              xmlNode *from = nullptr);

// Replaces the content of every element selected by the text, stored
// literally whatever characters it holds. False when nothing matched.
bool setText(xmlXPathContext *ctx, const char *expression,
             std::string_view text);

// Sets an attribute on every element selected; false when nothing matched.
bool setAttribute(xmlXPathContext *ctx, const char *expression,
                  const char *name, const std::string &value);

// Unlinks and frees every element the expression selects.
void removeAll(xmlXPathContext *ctx, const char *expression);

// Removes the comments outside the root element: a template's notes for
// whoever edits it, not for the installer.
void removeOuterComments(xmlDoc *doc);

// The text content of a node.
std::string textOf(xmlNode *node);

// The document as UTF-8 text; false when it cannot be serialised.
bool serialise(xmlDoc *doc, std::string &out);

// Whether an XML document carries `text` as one line: valid UTF-8 with no
// control character (C0, DEL, C1) and no noncharacter U+FFFE or U+FFFF.
// Line breaks and tabs are refused too, since every answer-file value is a
// single line that the installer would not read back as written.
bool carriesAsLine(std::string_view text);

}  // namespace gp::medium::xml
