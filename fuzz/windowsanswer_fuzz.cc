// Edits arbitrary answer-file templates the way the Windows answer-file
// writer does. Whatever the template, the edited document must serialise
// into XML that parses again, with the value set stored literally.
//
// Input: the value's text up to the first line feed, then the template.
#include <libxml/parser.h>
#include <libxml/xpathInternals.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "lib/guestInstall/autoinstallGuestWindows_xml.h"

namespace {

namespace wx = gp::autoinstall::winxml;

void check(bool ok) {
  if (!ok) std::abort();
}

const char kUser[] =
    "//urn:settings[@pass='oobeSystem']/urn:component[@name='Microsoft-"
    "Windows-Shell-Setup']/urn:AutoLogon/urn:Username";
const char kOrders[] =
    "//urn:settings[@pass='oobeSystem']/urn:component[@name='Microsoft-"
    "Windows-Shell-Setup']/urn:FirstLogonCommands/urn:SynchronousCommand/"
    "urn:Order";
const char kComponent[] =
    "//urn:settings[@pass='windowsPE']/urn:component[@name='Microsoft-"
    "Windows-Setup']";
const char kProductKey[] =
    "//urn:settings[@pass='windowsPE']/urn:component[@name='Microsoft-"
    "Windows-Setup']/urn:UserData/urn:ProductKey";

size_t count(xmlXPathContext *ctx, const char *expression) {
  wx::ObjectPtr r(xmlXPathEvalExpression(
      reinterpret_cast<const xmlChar *>(expression), ctx));
  return r && r->nodesetval ? static_cast<size_t>(r->nodesetval->nodeNr) : 0;
}

std::string firstText(xmlXPathContext *ctx, const char *expression) {
  wx::ObjectPtr r(xmlXPathEvalExpression(
      reinterpret_cast<const xmlChar *>(expression), ctx));
  if (!r || !r->nodesetval || r->nodesetval->nodeNr < 1) return "(none)";
  xmlChar *t = xmlNodeGetContent(r->nodesetval->nodeTab[0]);
  std::string out = t ? reinterpret_cast<const char *>(t) : "";
  xmlFree(t);
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string input(reinterpret_cast<const char *>(data), size);
  size_t nl = input.find('\n');
  if (nl == std::string::npos) return 0;
  // Printable ASCII only: the host validates what users type.
  std::string value = input.substr(0, nl);
  for (char &c : value) {
    if (static_cast<unsigned char>(c) < 0x20 ||
        static_cast<unsigned char>(c) >= 0x7f) {
      c = '?';
    }
  }
  wx::DocPtr doc = wx::parseTemplate(input.substr(nl + 1));
  if (!doc) return 0;
  wx::ContextPtr ctx = wx::newContext(doc.get());
  check(ctx != nullptr);
  bool hasUser = wx::setXmlNodeText(ctx.get(), kUser, value.c_str());
  wx::setXmlProcessorArchitecture(ctx.get(), kComponent);
  wx::removeXmlNodes(ctx.get(), kProductKey);
  check(count(ctx.get(), kProductKey) == 0);
  size_t orders = count(ctx.get(), kOrders);
  if (orders > 0 && wx::addFirstLogonCommand(doc.get(), value.c_str())) {
    check(count(ctx.get(), kOrders) == orders + 1);
  }
  std::string saved;
  check(wx::serialise(doc.get(), saved));
  wx::DocPtr again = wx::parseTemplate(saved);
  check(again != nullptr);
  if (hasUser) {
    wx::ContextPtr ctx2 = wx::newContext(again.get());
    check(firstText(ctx2.get(), kUser) == value);
  }
  return 0;
}
