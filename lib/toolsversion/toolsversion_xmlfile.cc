// Locating, reading and parsing a machine's extended configuration file,
// and the small node helpers every reader of it uses.
#include <fcntl.h>
#include <libxml/parser.h>
#include <libxml/xmlversion.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>

#include "lib/toolsversion/toolsversion_machine.h"
#include "platform/hostio.h"
#include "platform/log.h"
#include "platform/msgcatalog.h"
#include "platform/strutil.h"

namespace gp::tools {
namespace {

std::atomic<uint32_t> xmlInitialized{0};

// The file comes from the machine's directory, which a guest-facing
// process may have written: no network, no DTD loading, entities left as
// references (never expanded, so neither a bomb nor an external file can
// reach us), and no messages on the host's standard error.
constexpr int kParseOptions =
    XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;

const char *nodeName(const xmlNode *node) {
  return node->name != nullptr ? reinterpret_cast<const char *>(node->name)
                               : "";
}

}  // namespace

std::optional<std::string> toolsGetExtendedConfigPath(const char *configPath) {
  ConfigDict config;
  if (!config.loadFile(configPath)) {
    logf("Error loading dictionary for ztx config file: %s.\n",
         msg::takePending().c_str());
    return std::nullopt;
  }
  const char *name = config.get("extendedConfigFile");
  if (name == nullptr) {
    logf("Error getting extended config name from config file.\n");
    return std::nullopt;
  }
  std::string_view path(configPath);
  size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) {
    return std::string(name);
  }
  return std::string(path.substr(0, slash + 1)) + name;
}

bool toolsReadWholeFile(const char *path, std::string *buffer) {
  // A FIFO or device planted under the file's name fails at once.
  struct stat st;
  UniqueFd fd = openUntrustedFile(path, O_RDONLY | O_CLOEXEC, 0, &st);
  if (!fd.valid()) {
    logf("Error opening extended config file for reading: errcode %d.\n",
         errno);
    return false;
  }
  if (st.st_size < 0 || st.st_size >= kMaxExtendedConfigSize) {
    logf("Error getting size of extended config file.\n");
    return false;
  }
  std::string data(static_cast<size_t>(st.st_size), '\0');
  errno = 0;
  ssize_t n = preadFull(fd.get(), data.data(), data.size(), 0);
  if (n < 0 || static_cast<size_t>(n) != data.size()) {
    logf("Error reading from extended config file: errcode %d.\n",
         n < 0 ? errno : EIO);
    return false;
  }
  buffer->swap(data);
  return true;
}

void toolsXmlCheckVersion() {
  if (xmlInitialized.exchange(1) == 0) {
    xmlCheckVersion(20626);
  }
}

XmlDocPtr toolsXmlParse(const char *data, size_t size) {
  if (size > static_cast<size_t>(INT32_MAX)) {
    return nullptr;
  }
  return XmlDocPtr(xmlReadMemory(data, static_cast<int>(size), nullptr, nullptr,
                                 kParseOptions));
}

bool toolsXmlLoadExtendedConfig(const char *configPath,
                                ToolsExtendedConfig *config) {
  std::optional<std::string> path = toolsGetExtendedConfigPath(configPath);
  if (!path) {
    logf("Error getting extended config file path.\n");
    return false;
  }
  config->path = *path;
  if (!toolsReadWholeFile(config->path.c_str(), &config->buffer)) {
    logf("Failed to get xml buffer from extended config file.\n");
    return false;
  }
  toolsXmlCheckVersion();
  config->doc = toolsXmlParse(config->buffer.data(), config->buffer.size());
  if (!config->doc) {
    logf("Error parsing xml from extended config file.\n");
    return false;
  }
  config->root = xmlDocGetRootElement(config->doc.get());
  if (config->root == nullptr) {
    logf("Failed to find root in extended config xml.\n");
    return false;
  }
  return true;
}

bool toolsXmlIsElement(const xmlNode *node, const char *name) {
  return node->type == XML_ELEMENT_NODE &&
         str::equalsCaseless(nodeName(node), name);
}

xmlNode *toolsXmlFirstChild(xmlNode *parent, const char *name) {
  for (xmlNode *n = parent->children; n != nullptr; n = n->next) {
    if (toolsXmlIsElement(n, name)) {
      return n;
    }
  }
  return nullptr;
}

xmlNode *toolsXmlLastChild(xmlNode *parent, const char *name) {
  xmlNode *last = nullptr;
  for (xmlNode *n = parent->children; n != nullptr; n = n->next) {
    if (toolsXmlIsElement(n, name)) {
      last = n;
    }
  }
  return last;
}

std::optional<std::string> toolsXmlAttribute(const xmlNode *node,
                                             const char *name) {
  if (node->type != XML_ELEMENT_NODE) {
    return std::nullopt;
  }
  for (const xmlAttr *a = node->properties; a != nullptr; a = a->next) {
    if (a->name == nullptr ||
        std::string_view(reinterpret_cast<const char *>(a->name)) != name) {
      continue;
    }
    std::string text;
    for (const xmlNode *c = a->children; c != nullptr; c = c->next) {
      if (c->type == XML_TEXT_NODE && c->content != nullptr) {
        text += reinterpret_cast<const char *>(c->content);
      } else if (c->type == XML_ENTITY_REF_NODE) {
        text += std::string("&") + nodeName(c) + ";";
      }
    }
    return text;
  }
  return std::nullopt;
}

}  // namespace gp::tools
