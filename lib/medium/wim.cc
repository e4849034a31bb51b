// The Windows install image's header and XML, decoded from untrusted
// bytes.
#include "lib/medium/wim.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <memory>

#include "platform/strutil.h"
#include "platform/unicode.h"

namespace gp::medium {
namespace {

constexpr size_t kXmlResource = 0x48;
constexpr size_t kMaxImages = 256;

struct DocFree {
  void operator()(xmlDoc *doc) const { xmlFreeDoc(doc); }
};
using DocPtr = std::unique_ptr<xmlDoc, DocFree>;

bool named(const xmlNode *node, const char *name) {
  return node->type == XML_ELEMENT_NODE &&
         str::equalsCaseless(reinterpret_cast<const char *>(node->name), name);
}

const xmlNode *child(const xmlNode *node, const char *name) {
  for (const xmlNode *c = node ? node->children : nullptr; c; c = c->next) {
    if (named(c, name)) {
      return c;
    }
  }
  return nullptr;
}

std::string text(const xmlNode *node) {
  std::string out;
  if (node == nullptr) {
    return out;
  }
  for (const xmlNode *c = node->children; c; c = c->next) {
    if (c->type == XML_TEXT_NODE && c->content != nullptr) {
      out += reinterpret_cast<const char *>(c->content);
    }
  }
  return out;
}

std::string path(const xmlNode *node,
                 std::initializer_list<const char *> names) {
  for (const char *n : names) {
    node = child(node, n);
  }
  return text(node);
}

uint32_t number(const std::string &s) {
  long v = str::parseLong(s);
  return v < 0 || v > 0x7fffffff ? 0 : static_cast<uint32_t>(v);
}

const char *archName(const std::string &arch) {
  if (arch == "0") return "i686";
  if (arch == "9") return "x86_64";
  if (arch == "12") return "aarch64";
  return "";
}

Edition edition(const xmlNode *image) {
  Edition e;
  xmlChar *index =
      xmlGetProp(image, reinterpret_cast<const xmlChar *>("INDEX"));
  if (index != nullptr) {
    e.index = number(reinterpret_cast<const char *>(index));
    xmlFree(index);
  }
  e.name = path(image, {"NAME"});
  e.displayName = path(image, {"DISPLAYNAME"});
  e.editionId = path(image, {"WINDOWS", "EDITIONID"});
  if (e.editionId.empty()) {
    e.editionId = path(image, {"FLAGS"});
  }
  e.installationType = path(image, {"WINDOWS", "INSTALLATIONTYPE"});
  e.build = number(path(image, {"WINDOWS", "VERSION", "BUILD"}));
  e.arch = archName(path(image, {"WINDOWS", "ARCH"}));
  if (e.build != 0) {
    e.version = path(image, {"WINDOWS", "VERSION", "MAJOR"}) + "." +
                path(image, {"WINDOWS", "VERSION", "MINOR"}) + "." +
                std::to_string(e.build);
  }
  return e;
}

}  // namespace

bool wimXmlLocation(ByteView header, uint64_t fileSize, WimXmlLocation &out) {
  if (!header.has(0, kWimHeaderSize) ||
      header.text(0, 8) != std::string_view("MSWIM\0\0\0", 8)) {
    return false;
  }
  // A resource header: 7 bytes of stored size, a flags byte, the offset
  // and the original size.
  uint64_t size = header.le64(kXmlResource) & 0x00FFFFFFFFFFFFFFull;
  uint64_t offset = header.le64(kXmlResource + 8);
  if (size < 2 || size > kWimXmlMax || offset > fileSize ||
      size > fileSize - offset) {
    return false;
  }
  out.offset = offset;
  out.size = size;
  return true;
}

std::vector<Edition> parseWimXml(std::string_view utf16le,
                                 std::string &language) {
  std::vector<Edition> editions;
  std::u16string units;
  units.reserve(utf16le.size() / 2);
  for (size_t i = 0; i + 1 < utf16le.size(); i += 2) {
    units.push_back(
        static_cast<char16_t>(static_cast<uint8_t>(utf16le[i]) |
                              static_cast<uint8_t>(utf16le[i + 1]) << 8));
  }
  if (!units.empty() && units[0] == 0xFEFF) {
    units.erase(0, 1);
  }
  std::string utf8;
  utf16ToUtf8(units, utf8, LoneSurrogate::Replace);
  if (utf8.size() > static_cast<size_t>(INT32_MAX)) {
    return editions;
  }
  // No network, no DTD, no entity expansion: the text is untrusted.
  DocPtr doc(xmlReadMemory(utf8.data(), static_cast<int>(utf8.size()), nullptr,
                           "UTF-8",
                           XML_PARSE_NONET | XML_PARSE_NOERROR |
                               XML_PARSE_NOWARNING | XML_PARSE_NOBLANKS));
  const xmlNode *root = doc ? xmlDocGetRootElement(doc.get()) : nullptr;
  if (root == nullptr || !named(root, "WIM")) {
    return editions;
  }
  for (const xmlNode *c = root->children; c && editions.size() < kMaxImages;
       c = c->next) {
    if (named(c, "IMAGE")) {
      editions.push_back(edition(c));
      if (language.empty()) {
        language = path(c, {"WINDOWS", "LANGUAGES", "DEFAULT"});
      }
    }
  }
  std::stable_sort(
      editions.begin(), editions.end(),
      [](const Edition &a, const Edition &b) { return a.index < b.index; });
  return editions;
}

std::string windowsId(const Edition &e) {
  bool server = str::startsWithCaseless(e.installationType, "Server");
  if (e.build < 9600) {
    return "";
  }
  if (!server) {
    return e.build == 9600 ? "win8.1" : e.build < 22000 ? "win10" : "win11";
  }
  if (e.build >= 26100) return "win2k25";
  if (e.build >= 20348) return "win2k22";
  if (e.build >= 17763) return "win2k19";
  if (e.build >= 14393) return "win2k16";
  return "win2k12r2";
}

}  // namespace gp::medium
