// Orvex detection: the hypervisor's installation media list their packages
// in "packages.xml",
//   <iso_build><product><name>Zentav Orvex ...</name>
//     <orvex_version>4.1.0</orvex_version>...</product>...</iso_build>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <climits>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "lib/guessGuest/guess_internal.h"
#include "lib/guessGuest/guess_markers.h"
#include "platform/strutil.h"

namespace gp::guess {
namespace {

struct DocFree {
  void operator()(xmlDoc *doc) const { xmlFreeDoc(doc); }
};
using DocPtr = std::unique_ptr<xmlDoc, DocFree>;

// The file comes from the medium: no network, no DTD loading, entities
// left as references (libxml2 also refuses documents whose entities
// amplify), and no messages on the host's standard error.
constexpr int kParseOptions =
    XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;

bool named(const xmlNode *node, const char *name) {
  return node->type == XML_ELEMENT_NODE && node->name != nullptr &&
         std::strcmp(reinterpret_cast<const char *>(node->name), name) == 0;
}

// An element's value: the text of its first child, when that is text.
std::optional<std::string> elementText(const xmlNode *element) {
  const xmlNode *first = element->children;
  if (first == nullptr || first->type != XML_TEXT_NODE) {
    return std::nullopt;
  }
  return first->content != nullptr
             ? std::string(reinterpret_cast<const char *>(first->content))
             : std::string();
}

const xmlNode *firstChildNamed(const xmlNode *parent, const char *name) {
  for (const xmlNode *n = parent->children; n != nullptr; n = n->next) {
    if (named(n, name)) {
      return n;
    }
  }
  return nullptr;
}

// Collects the product's name and version in document order and decides
// as soon as both are known.
bool isOrvex4(const xmlNode *product) {
  std::optional<std::string> name;
  std::optional<std::string> version;
  for (const xmlNode *n = product->children; n != nullptr; n = n->next) {
    if (named(n, "name")) {
      name = elementText(n);
    } else if (named(n, "orvex_version")) {
      version = elementText(n);
    } else {
      continue;
    }
    if (name && version) {
      return str::startsWithCaseless(*name, "Zentav Orvex") &&
             str::startsWithCaseless(*version, "4.");
    }
  }
  return false;
}

}  // namespace

bool orvexFromPackageList(const char *xml) {
  size_t length = std::strlen(xml);
  if (length > INT_MAX) {
    return false;
  }
  DocPtr doc(xmlReadMemory(xml, static_cast<int>(length), "packages.xml",
                           nullptr, kParseOptions));
  if (!doc) {
    return false;
  }
  const xmlNode *root = xmlDocGetRootElement(doc.get());
  if (root == nullptr || !named(root, "iso_build")) {
    return false;
  }
  const xmlNode *product = firstChildNamed(root, "product");
  return product != nullptr && isOrvex4(product);
}

}  // namespace gp::guess

using namespace gp;
using namespace gp::guess;

GP_EXPORT Bool Guess_Orvex(GuessMedium *medium, GuessInfo *info) {
  return runDetector(medium, info, [&]() -> Outcome {
    FileText packages = readFileName(medium, "packages.xml");
    if (!packages.present() || !orvexFromPackageList(packages.data.get())) {
      return Outcome::NotRecognised;
    }
    return recognise(info, "ztkernel", GUESS_VERSION_UNKNOWN);
  });
}
