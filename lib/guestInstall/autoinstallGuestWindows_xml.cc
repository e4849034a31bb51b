// XPath edits of the Windows XML answer file.
#include "lib/guestInstall/autoinstallGuestWindows_xml.h"

#include <libxml/entities.h>
#include <libxml/parser.h>
#include <libxml/xpathInternals.h>

#include <climits>
#include <cstdio>

#include "platform/fatal.h"
#include "platform/strutil.h"

namespace gp::autoinstall::winxml {
namespace {

constexpr const char kModule[] = "lib/guestInstall/autoinstallGuestWindows";

constexpr const char kFirstLogonOrders[] =
    "//urn:settings[@pass='oobeSystem']/urn:component[@name='Microsoft-"
    "Windows-Shell-Setup']/urn:FirstLogonCommands/urn:SynchronousCommand/"
    "urn:Order";

using gp::xml::x;
using XmlCharPtr = gp::xml::CharPtr;

ObjectPtr evaluate(xmlXPathContext *ctx, const char *expression) {
  return ObjectPtr(xmlXPathEvalExpression(x(expression), ctx));
}

// The first node of an evaluation, or null.
xmlNode *firstNode(const ObjectPtr &result) {
  if (!result || result->nodesetval == nullptr ||
      result->nodesetval->nodeNr < 1) {
    return nullptr;
  }
  return result->nodesetval->nodeTab[0];
}

}  // namespace

DocPtr parseTemplate(const std::string &text) {
  return gp::xml::parseTemplateText(text, "autoun~0.xml");
}

ContextPtr newContext(xmlDoc *doc) {
  ContextPtr ctx(xmlXPathNewContext(doc));
  if (ctx && xmlXPathRegisterNs(ctx.get(), x("urn"),
                                x("urn:schemas-microsoft-com:unattend")) != 0) {
    ctx.reset();
  }
  return ctx;
}

bool setXmlNodeText(xmlXPathContext *ctx, const char *expression,
                    const char *text) {
  ObjectPtr result = evaluate(ctx, expression);
  xmlNode *node = firstNode(result);
  if (node == nullptr) {
    return false;
  }
  // Encoded first, since the content set is parsed for entity references.
  XmlCharPtr encoded(xmlEncodeEntitiesReentrant(nullptr, x(text)));
  if (!encoded) {
    outOfMemory();
  }
  xmlNodeSetContent(node, encoded.get());
  return true;
}

bool setXmlProcessorArchitecture(xmlXPathContext *ctx, const char *expression) {
  ObjectPtr result = evaluate(ctx, expression);
  xmlNode *node = firstNode(result);
  if (node == nullptr || node->type != XML_ELEMENT_NODE) {
    return false;
  }
  return xmlSetProp(node, x("processorArchitecture"), x("amd64")) != nullptr;
}

void removeXmlNodes(xmlXPathContext *ctx, const char *expression) {
  ObjectPtr result = evaluate(ctx, expression);
  if (!result || result->nodesetval == nullptr) {
    return;
  }
  // Last first: a selected node inside another selected one is freed
  // before its ancestor, never after it.
  xmlNodeSet *set = result->nodesetval;
  for (int i = set->nodeNr - 1; i >= 0; --i) {
    xmlNode *node = set->nodeTab[i];
    if (node == nullptr || node->type == XML_NAMESPACE_DECL) {
      continue;
    }
    set->nodeTab[i] = nullptr;  // the result must not see it again
    xmlUnlinkNode(node);
    xmlFreeNode(node);
  }
}

bool addFirstLogonCommand(xmlDoc *doc, const char *commandLine) {
  ContextPtr ctx = newContext(doc);
  if (!ctx) {
    return false;
  }
  ObjectPtr result = evaluate(ctx.get(), kFirstLogonOrders);
  if (!result || result->type != XPATH_NODESET) {
    return false;
  }
  // libxml2 gives an empty selection either as an empty set or as none.
  xmlNodeSet *orders = result->nodesetval;
  if (orders == nullptr || orders->nodeNr < 1) {
    notReached(kModule, __LINE__);
  }
  xmlNode *lastOrder = orders->nodeTab[orders->nodeNr - 1];
  XmlCharPtr text(xmlNodeGetContent(lastOrder));
  long last =
      text ? str::parseLong(reinterpret_cast<const char *>(text.get())) : 0;
  // The number must stay within three digits.
  if (last < 0 || last >= 999) {
    return false;
  }
  long next = last + 1;
  char number[4];
  std::snprintf(number, sizeof number, "%ld", next);

  xmlNode *command = lastOrder->parent;
  xmlNode *list = command != nullptr ? command->parent : nullptr;
  if (list == nullptr || list->type != XML_ELEMENT_NODE) {
    return false;
  }
  xmlNode *added =
      xmlNewDocNode(doc, list->ns, x("SynchronousCommand"), nullptr);
  if (added == nullptr) {
    outOfMemory();
  }
  xmlNs *wcm = xmlSearchNs(doc, list, x("wcm"));
  if (wcm != nullptr) {
    xmlNewNsProp(added, wcm, x("action"), x("add"));
  } else {
    xmlNewProp(added, x("wcm:action"), x("add"));
  }
  xmlNewTextChild(added, list->ns, x("CommandLine"), x(commandLine));
  xmlNewTextChild(added, list->ns, x("Order"), x(number));
  xmlAddChild(list, added);
  return true;
}

bool serialise(xmlDoc *doc, std::string &out) {
  // Windows Setup reads UTF-8 and UTF-16; a template declaring anything
  // else is written out as UTF-8.
  const char *declared = reinterpret_cast<const char *>(doc->encoding);
  const char *encoding = "UTF-8";
  if (declared != nullptr && (str::startsWithCaseless(declared, "utf-8") ||
                              str::startsWithCaseless(declared, "utf-16"))) {
    encoding = declared;
  }
  xmlChar *mem = nullptr;
  int size = 0;
  xmlDocDumpMemoryEnc(doc, &mem, &size, encoding);
  XmlCharPtr owner(mem);
  if (mem == nullptr || size < 0) {
    return false;
  }
  out.assign(reinterpret_cast<const char *>(mem), static_cast<size_t>(size));
  return true;
}

}  // namespace gp::autoinstall::winxml
