// The XML answer file of Windows Vista and later: parsing the template
// safely, the XPath edits, and the first-logon commands.
#pragma once

#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <memory>
#include <string>

#include "platform/xmldoc.h"

namespace gp::autoinstall::winxml {

using gp::xml::ContextPtr;
using gp::xml::DocPtr;
using gp::xml::ObjectPtr;

// Parses an answer-file template from memory without network access,
// without loading or expanding any entity, and without error output. A
// template with a document type declaration is refused: the unattend
// schema has none, and it is where entities come from.
DocPtr parseTemplate(const std::string &text);

// An XPath context over the document with "urn" bound to the unattend
// namespace; null when none can be made.
ContextPtr newContext(xmlDoc *doc);

// Sets the text of the first node the expression selects, stored literally
// whatever it holds. False when nothing matched.
bool setXmlNodeText(xmlXPathContext *ctx, const char *expression,
                    const char *text);

// Sets processorArchitecture="amd64" on the first node selected.
bool setXmlProcessorArchitecture(xmlXPathContext *ctx, const char *expression);

// Unlinks and frees every node the expression selects.
void removeXmlNodes(xmlXPathContext *ctx, const char *expression);

// Appends a SynchronousCommand with the next Order number after the last
// first-logon command. False when the expression cannot be evaluated or
// the next number would not fit three digits. A template without any
// first-logon command stops the process.
bool addFirstLogonCommand(xmlDoc *doc, const char *commandLine);

// The document as it would be saved to a file; false when it cannot be
// serialised.
bool serialise(xmlDoc *doc, std::string &out);

}  // namespace gp::autoinstall::winxml
