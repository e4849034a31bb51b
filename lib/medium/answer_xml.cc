// Safe parsing and literal editing of XML answer-file templates.
#include "lib/medium/answer_xml.h"

#include <libxml/parser.h>
#include <libxml/xpathInternals.h>

#include <climits>

#include "platform/fatal.h"
#include "platform/unicode.h"

namespace gp::medium::xml {
namespace {

using gp::xml::ObjectPtr;
using gp::xml::x;
using XmlCharPtr = gp::xml::CharPtr;

}  // namespace

DocPtr parseTemplate(const std::string &text) {
  return gp::xml::parseTemplateText(text, "template.xml", XML_PARSE_NOBLANKS);
}

ContextPtr newContext(
    xmlDoc *doc,
    const std::vector<std::pair<const char *, const char *>> &namespaces) {
  ContextPtr ctx(xmlXPathNewContext(doc));
  if (!ctx) {
    return ctx;
  }
  for (const auto &[prefix, uri] : namespaces) {
    if (xmlXPathRegisterNs(ctx.get(), x(prefix), x(uri)) != 0) {
      return nullptr;
    }
  }
  return ctx;
}

std::vector<xmlNode *> select(xmlXPathContext *ctx, const char *expression,
                              xmlNode *from) {
  std::vector<xmlNode *> nodes;
  xmlNode *saved = ctx->node;
  ctx->node = from != nullptr ? from : xmlDocGetRootElement(ctx->doc);
  ObjectPtr result(xmlXPathEvalExpression(x(expression), ctx));
  ctx->node = saved;
  if (!result || result->type != XPATH_NODESET ||
      result->nodesetval == nullptr) {
    return nodes;
  }
  for (int i = 0; i < result->nodesetval->nodeNr; ++i) {
    xmlNode *node = result->nodesetval->nodeTab[i];
    if (node != nullptr && node->type == XML_ELEMENT_NODE) {
      nodes.push_back(node);
    }
  }
  return nodes;
}

bool setText(xmlXPathContext *ctx, const char *expression,
             std::string_view text) {
  std::vector<xmlNode *> nodes = select(ctx, expression);
  const std::string owned(text);
  // Last first: a selected node inside another selected one is set before
  // its ancestor's new content frees it, never after.
  for (auto it = nodes.rbegin(); it != nodes.rend(); ++it) {
    xmlNode *node = *it;
    // Emptied first, then added as a text node: the text is never parsed
    // for entity references.
    xmlNodeSetContent(node, nullptr);
    xmlNode *child = xmlNewDocText(node->doc, x(owned.c_str()));
    if (child == nullptr) {
      outOfMemory();
    }
    xmlAddChild(node, child);
  }
  return !nodes.empty();
}

bool setAttribute(xmlXPathContext *ctx, const char *expression,
                  const char *name, const std::string &value) {
  std::vector<xmlNode *> nodes = select(ctx, expression);
  for (xmlNode *node : nodes) {
    if (xmlSetProp(node, x(name), x(value.c_str())) == nullptr) {
      outOfMemory();
    }
  }
  return !nodes.empty();
}

void removeAll(xmlXPathContext *ctx, const char *expression) {
  std::vector<xmlNode *> nodes = select(ctx, expression);
  // Last first: a selected node inside another selected one is freed
  // before its ancestor, never after it.
  for (auto it = nodes.rbegin(); it != nodes.rend(); ++it) {
    xmlUnlinkNode(*it);
    xmlFreeNode(*it);
  }
}

void removeOuterComments(xmlDoc *doc) {
  xmlNode *node = doc->children;
  while (node != nullptr) {
    xmlNode *next = node->next;
    if (node->type == XML_COMMENT_NODE) {
      xmlUnlinkNode(node);
      xmlFreeNode(node);
    }
    node = next;
  }
}

std::string textOf(xmlNode *node) {
  XmlCharPtr text(xmlNodeGetContent(node));
  return text ? std::string(reinterpret_cast<const char *>(text.get()))
              : std::string();
}

bool serialise(xmlDoc *doc, std::string &out) {
  xmlChar *mem = nullptr;
  int size = 0;
  xmlDocDumpFormatMemoryEnc(doc, &mem, &size, "UTF-8", 1);
  XmlCharPtr owner(mem);
  if (mem == nullptr || size < 0) {
    return false;
  }
  out.assign(reinterpret_cast<const char *>(mem), static_cast<size_t>(size));
  return true;
}

bool carriesAsLine(std::string_view text) {
  std::u16string units;
  if (!utf8ToUtf16(text, units)) {
    return false;
  }
  for (char16_t u : units) {
    if (u < 0x20 || (u >= 0x7f && u <= 0x9f) || u == 0xfffe || u == 0xffff) {
      return false;
    }
  }
  return true;
}

}  // namespace gp::medium::xml
