// Fills arbitrary templates from arbitrary entries the way the
// Autounattend.xml writer does. Whatever the input, a file that is written
// must parse again and carry the user, the full name and the edition
// literally.
//
// Input: five lines (user, full name, password, edition on the disc,
// flags: 'b' BIOS, 'p' power off, 'k' bypass, 'x' a product key), then the
// template.
#include <libxml/parser.h>
#include <libxml/xpathInternals.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "lib/medium/autounattend.h"

namespace {

// The places the writer fills, as it finds them.
const std::string kAccount =
    "//u:settings[@pass='oobeSystem']/u:component[@name='Microsoft-Windows-"
    "Shell-Setup']/u:UserAccounts/u:LocalAccounts/u:LocalAccount";
const char kImageName[] =
    "//u:settings[@pass='windowsPE']/u:component[@name='Microsoft-Windows-"
    "Setup']/u:ImageInstall/u:OSImage/u:InstallFrom/"
    "u:MetaData[u:Key='/IMAGE/NAME']/u:Value";

void check(bool ok) {
  if (!ok) std::abort();
}

// The texts of the elements the expression selects.
std::vector<std::string> texts(xmlDoc *doc, const char *expression) {
  std::vector<std::string> out;
  xmlXPathContext *ctx = xmlXPathNewContext(doc);
  xmlXPathRegisterNs(ctx, BAD_CAST "u",
                     BAD_CAST "urn:schemas-microsoft-com:unattend");
  xmlXPathObject *r = xmlXPathEvalExpression(BAD_CAST expression, ctx);
  for (int i = 0; r && r->nodesetval && i < r->nodesetval->nodeNr; ++i) {
    xmlChar *t = xmlNodeGetContent(r->nodesetval->nodeTab[i]);
    out.push_back(t != nullptr ? reinterpret_cast<char *>(t) : "");
    xmlFree(t);
  }
  xmlXPathFreeObject(r);
  xmlXPathFreeContext(ctx);
  return out;
}

// Every element selected holds exactly the text, and there is one.
bool allHold(xmlDoc *doc, const char *expression, const std::string &text) {
  std::vector<std::string> found = texts(doc, expression);
  for (const std::string &t : found) {
    if (t != text) return false;
  }
  return !found.empty();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string input(reinterpret_cast<const char *>(data), size);
  std::string lines[5];
  size_t pos = 0;
  for (std::string &line : lines) {
    size_t nl = input.find('\n', pos);
    if (nl == std::string::npos) return 0;
    line = input.substr(pos, nl - pos);
    pos = nl + 1;
  }
  gp::medium::Described disc;
  gp::medium::OsFacts os;
  os.id = "win11";
  os.arch = "x86_64";
  os.installer = "windows-setup";
  disc.facts.os = os;
  gp::medium::Edition edition;
  edition.name = lines[3];
  disc.facts.editions.push_back(edition);
  gp::medium::InstallEntries entries;
  entries.user = lines[0];
  entries.fullName = lines[1];
  entries.password = lines[2];
  entries.rootPassword = lines[2];
  const std::string &flags = lines[4];
  if (flags.find('b') != std::string::npos) {
    entries.firmware = gp::medium::Firmware::Bios;
  }
  entries.powerOff = flags.find('p') != std::string::npos;
  entries.bypassRequirements = flags.find('k') != std::string::npos;
  if (flags.find('x') != std::string::npos) {
    entries.productKey = "VK7JG-NPHTM-C97JM-9MPGT-3V66T";
  }
  gp::medium::Answer answer;
  std::string error;
  if (!gp::medium::fillAutounattend(input.substr(pos), disc, entries, answer,
                                    error)) {
    check(!error.empty() && answer.files.empty());
    return 0;
  }
  check(answer.files.size() == 1);
  const std::string &text = answer.files[0].text;
  xmlDoc *doc = xmlReadMemory(
      text.data(), static_cast<int>(text.size()), "out.xml", nullptr,
      XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
  check(doc != nullptr);
  check(allHold(doc, (kAccount + "/u:Name").c_str(), entries.user));
  check(allHold(doc, kImageName, edition.name));
  // A template without a DisplayName has nowhere to put the full name.
  const std::string shown =
      entries.fullName.empty() ? entries.user : entries.fullName;
  const std::string display = kAccount + "/u:DisplayName";
  check(texts(doc, display.c_str()).empty() ||
        allHold(doc, display.c_str(), shown));
  xmlFreeDoc(doc);
  return 0;
}
