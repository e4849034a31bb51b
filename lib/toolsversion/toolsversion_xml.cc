// The tools records of the extended configuration file: the update
// agent's report, the guest's tools manifest and the last installation.
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "lib/toolsversion/toolsversion_machine.h"
#include "platform/abi.h"
#include "platform/hostio.h"
#include "platform/log.h"
#include "platform/msgcatalog.h"
#include "platform/strutil.h"

namespace gp::tools {

void toolsXmlAddManifestEntry(const char *name, const char *value,
                              xmlNode *parent);

namespace {

const xmlChar *xc(const char *s) {
  return reinterpret_cast<const xmlChar *>(s);
}

char *heapCopy(const std::string &s) {
  char *out = static_cast<char *>(std::malloc(s.size() + 1));
  if (out == nullptr) {
    outOfMemory();
  }
  std::memcpy(out, s.c_str(), s.size() + 1);
  return out;
}

// The text of an element's own text children; entity references are not
// followed.
std::string elementText(const xmlNode *element) {
  std::string text;
  for (const xmlNode *c = element->children; c != nullptr; c = c->next) {
    if ((c->type == XML_TEXT_NODE || c->type == XML_CDATA_SECTION_NODE) &&
        c->content != nullptr) {
      text += reinterpret_cast<const char *>(c->content);
    }
  }
  return text;
}

struct XmlFree {
  void operator()(xmlChar *p) const { xmlFree(p); }
};

void removeNode(xmlNode *node) {
  if (node != nullptr) {
    xmlUnlinkNode(node);
    xmlFreeNode(node);
  }
}

// A new element child. Names that would not serialise as an element name
// (a manifest entry may hold "<" or "/") are refused: writing them would
// leave a file that no longer parses.
xmlNode *newChild(xmlNode *parent, const char *name) {
  if (xmlValidateName(xc(name), 0) != 0) {
    return nullptr;
  }
  return xmlNewChild(parent, nullptr, xc(name), nullptr);
}

void setAttribute(xmlNode *node, const char *name, const std::string &value) {
  xmlSetProp(node, xc(name), xc(value.c_str()));
}

int32_t statusValue(const std::optional<std::string> &text) {
  long value = text ? str::parseLong(*text) : 0;
  if (value < INT32_MIN || value > INT32_MAX) {
    value = 0;
  }
  return value == 0 ? TOOLS_STATUS_UNKNOWN : static_cast<int32_t>(value);
}

struct ManifestIteration {
  xmlNode *parent;
};

void addManifestEntryCallback(const char *name, const char *value,
                              void *userData) {
  toolsXmlAddManifestEntry(name, value,
                           static_cast<ManifestIteration *>(userData)->parent);
}

bool getUpdateInfo(const char *configPath, ToolsUpdateInfo **info, int *count) {
  ToolsExtendedConfig config;
  if (!toolsXmlLoadExtendedConfig(configPath, &config)) {
    return false;
  }
  xmlNode *agent = toolsXmlFirstChild(config.root, "update-agent-info");
  xmlNode *tools = agent ? toolsXmlFirstChild(agent, "tools") : nullptr;
  if (tools == nullptr || tools->children == nullptr) {
    logf("Failed to find update agent tools info in extended config xml.\n");
    return false;
  }
  int n = 0;
  for (xmlNode *c = tools->children; c != nullptr; c = c->next) {
    ++n;
  }
  auto *records =
      static_cast<ToolsUpdateInfo *>(std::calloc(n, sizeof(ToolsUpdateInfo)));
  if (records == nullptr) {
    outOfMemory();
  }
  int i = 0;
  for (xmlNode *c = tools->children; c != nullptr; c = c->next, ++i) {
    records[i].name =
        heapCopy(c->name ? reinterpret_cast<const char *>(c->name) : "");
    std::optional<std::string> guest = toolsXmlAttribute(c, "guestVersion");
    std::optional<std::string> repo = toolsXmlAttribute(c, "repoVersion");
    records[i].guestVersion = guest ? heapCopy(*guest) : nullptr;
    records[i].repoVersion = repo ? heapCopy(*repo) : nullptr;
    records[i].status = statusValue(toolsXmlAttribute(c, "status"));
  }
  *info = records;
  *count = n;
  return true;
}

bool getInstallInfo(const char *configPath, int *installError,
                    int *updateCounter) {
  if (installError != nullptr) *installError = 0;
  if (updateCounter != nullptr) *updateCounter = 0;
  ToolsExtendedConfig config;
  if (!toolsXmlLoadExtendedConfig(configPath, &config)) {
    return false;
  }
  xmlNode *install = toolsXmlFirstChild(config.root, "tools-install-info");
  if (install == nullptr) {
    return true;
  }
  auto store = [install](const char *name, int *out) {
    xmlNode *e = toolsXmlLastChild(install, name);
    if (e != nullptr && out != nullptr) {
      long v = str::parseLong(elementText(e));
      *out = v < INT32_MIN   ? INT32_MIN
             : v > INT32_MAX ? INT32_MAX
                             : static_cast<int>(v);
    }
  };
  store("installError", installError);
  store("updateCounter", updateCounter);
  return true;
}

// Copies the agent's report, two levels deep, by name and with the three
// attributes the host reads. Returns the "monolithic" guest version the
// report gives, if any.
std::optional<std::string> copyAgentReport(xmlNode *agentRoot,
                                           xmlNode *target) {
  std::optional<std::string> monolithic;
  for (xmlNode *c = agentRoot->children; c != nullptr; c = c->next) {
    xmlNode *copy = newChild(target, reinterpret_cast<const char *>(c->name));
    if (copy == nullptr) {
      continue;
    }
    bool isTools = toolsXmlIsElement(c, "tools");
    for (xmlNode *g = c->children; g != nullptr; g = g->next) {
      xmlNode *leaf = newChild(copy, reinterpret_cast<const char *>(g->name));
      if (leaf == nullptr) {
        continue;
      }
      for (const char *attr : {"guestVersion", "repoVersion", "status"}) {
        if (std::optional<std::string> v = toolsXmlAttribute(g, attr)) {
          setAttribute(leaf, attr, *v);
        }
      }
      if (isTools && toolsXmlIsElement(g, "monolithic")) {
        if (auto v = toolsXmlAttribute(g, "guestVersion")) {
          monolithic = v;
        }
      }
    }
  }
  return monolithic;
}

// The agent step of a save; false (logged) when its text does not parse.
bool saveAgentReport(xmlNode *root, const char *agentXml, xmlNode **agent,
                     xmlNode **manifest) {
  if (std::strcmp(agentXml, "null") == 0) {
    return true;
  }
  if (std::strcmp(agentXml, "no tools") == 0) {
    if (*agent != nullptr) {
      xmlNode *next;
      for (xmlNode *c = (*agent)->children; c != nullptr; c = next) {
        next = c->next;
        if (toolsXmlIsElement(c, "tools")) {
          removeNode(c);
        }
      }
    }
    removeNode(*manifest);
    *manifest = nullptr;
    return true;
  }
  size_t length = std::strlen(agentXml);
  XmlDocPtr report = length < kMaxExtendedConfigSize
                         ? toolsXmlParse(agentXml, length)
                         : nullptr;
  if (!report) {
    logf("Error parsing xml from update agent.\n");
    return false;
  }
  xmlNode *reportRoot = xmlDocGetRootElement(report.get());
  if (reportRoot == nullptr) {
    logf("Failed to find root in update agent xml.\n");
    return false;
  }
  removeNode(*agent);
  *agent = newChild(root, "update-agent-info");
  std::optional<std::string> monolithic = copyAgentReport(reportRoot, *agent);
  removeNode(*manifest);
  *manifest = nullptr;
  if (monolithic) {
    *manifest = newChild(root, "tools-manifest");
    setAttribute(newChild(*manifest, "monolithic"), "version", *monolithic);
  }
  return true;
}

bool saveManifest(xmlNode *root, const char *manifestText, xmlNode **manifest) {
  if (std::strcmp(manifestText, "null") == 0) {
    return true;
  }
  if (std::strcmp(manifestText, "no tools") == 0) {
    removeNode(*manifest);
    *manifest = nullptr;
    return true;
  }
  ConfigDict dict;
  if (!dict.loadBuffer(manifestText, "manifest")) {
    logf("Error loading dictionary from manifest buffer: %s.\n",
         msg::takePending().c_str());
    return false;
  }
  removeNode(*manifest);
  *manifest = newChild(root, "tools-manifest");
  ManifestIteration it{*manifest};
  if (dict.iterate(addManifestEntryCallback, &it) != dict.count()) {
    logf("Error iterating through iso version info dictionary.\n");
    return false;
  }
  return true;
}

void saveInstallInfo(xmlNode *root, xmlNode *install, int installError,
                     int updateCounter) {
  if (install == nullptr) {
    install = newChild(root, "tools-install-info");
  }
  xmlNode *error = toolsXmlLastChild(install, "installError");
  xmlNode *counter = toolsXmlLastChild(install, "updateCounter");
  if (error == nullptr) error = newChild(install, "installError");
  if (counter == nullptr) counter = newChild(install, "updateCounter");
  xmlNodeSetContent(error, xc(std::to_string(installError).c_str()));
  xmlNodeSetContent(counter, xc(std::to_string(updateCounter).c_str()));
}

bool writeDocument(const ToolsExtendedConfig &config) {
  xmlChar *dump = nullptr;
  int size = 0;
  xmlDocDumpMemory(config.doc.get(), &dump, &size);
  std::unique_ptr<xmlChar, XmlFree> owner(dump);
  if (dump == nullptr || size <= 0 ||
      static_cast<uint32_t>(size) >= kMaxExtendedConfigSize) {
    logf("Error dumping xml doc to the output buffer.\n");
    return false;
  }
  // A crash or a full disk leaves the old file or the whole new one.
  ReplaceFailure failure;
  if (!replaceFileAtomically(
          config.path,
          std::string_view(reinterpret_cast<const char *>(dump),
                           static_cast<size_t>(size)),
          0644, &failure)) {
    if (failure == ReplaceFailure::kCreate) {
      logf("Error opening extended config file for writing: errcode %d.\n",
           errno);
    } else {
      logf("Error writing to extended config file: errcode %d.\n", errno);
    }
    logf("Failed to save xml buffer in extended config file.\n");
    return false;
  }
  return true;
}

bool isSet(const char *text) { return text != nullptr && *text != '\0'; }

bool saveXmlInfo(const char *configPath, const char *agentXml,
                 const char *manifestText, int installError,
                 int updateCounter) {
  if (!isSet(agentXml) && !isSet(manifestText) && updateCounter == 0) {
    return true;
  }
  ToolsExtendedConfig config;
  if (!toolsXmlLoadExtendedConfig(configPath, &config)) {
    return false;
  }
  xmlNode *manifest = toolsXmlLastChild(config.root, "tools-manifest");
  xmlNode *install = toolsXmlLastChild(config.root, "tools-install-info");
  xmlNode *agent = toolsXmlLastChild(config.root, "update-agent-info");
  if (isSet(agentXml) &&
      !saveAgentReport(config.root, agentXml, &agent, &manifest)) {
    return false;
  }
  if (isSet(manifestText) &&
      !saveManifest(config.root, manifestText, &manifest)) {
    return false;
  }
  if (updateCounter != 0) {
    saveInstallInfo(config.root, install, installError, updateCounter);
  }
  return writeDocument(config);
}

}  // namespace

void toolsXmlAddManifestEntry(const char *name, const char *value,
                              xmlNode *parent) {
  std::string base(name);
  std::string suffix;
  size_t dot = base.rfind('.');
  if (dot != std::string::npos) {
    suffix = base.substr(dot + 1);
    base.resize(dot);
  }
  if (str::equalsCaseless(suffix, "encoding")) {
    return;
  }
  xmlNode *element = nullptr;
  for (xmlNode *c = parent->children; c != nullptr; c = c->next) {
    if (c->type == XML_ELEMENT_NODE && c->name != nullptr &&
        base == reinterpret_cast<const char *>(c->name)) {
      element = c;
      break;
    }
  }
  if (element == nullptr) {
    element = newChild(parent, base.c_str());
    if (element == nullptr) {
      return;
    }
  }
  if (str::equalsCaseless(suffix, "version")) {
    setAttribute(element, "version", value);
  } else if (str::equalsCaseless(suffix, "installed")) {
    setAttribute(element, "installed", value);
  }
}

}  // namespace gp::tools

using namespace gp::tools;

GP_EXPORT Bool ToolsVersion_GetUpdateInfo(const char *configPath,
                                          ToolsUpdateInfo **info, int *count) {
  return gp::abiGuard<Bool>(FALSE, [&]() -> Bool {
    if (configPath == nullptr || info == nullptr || count == nullptr) {
      return FALSE;
    }
    return getUpdateInfo(configPath, info, count) ? TRUE : FALSE;
  });
}

GP_EXPORT void ToolsVersion_FreeUpdateInfo(ToolsUpdateInfo *info, int count) {
  if (info == nullptr) {
    return;
  }
  for (int i = 0; i < count; ++i) {
    std::free(info[i].name);
    std::free(info[i].guestVersion);
    std::free(info[i].repoVersion);
  }
  std::free(info);
}

GP_EXPORT Bool ToolsVersion_GetInstallInfo(const char *configPath,
                                           int *installError,
                                           int *updateCounter) {
  return gp::abiGuard<Bool>(FALSE, [&]() -> Bool {
    if (configPath == nullptr) {
      if (installError != nullptr) *installError = 0;
      if (updateCounter != nullptr) *updateCounter = 0;
      return FALSE;
    }
    return getInstallInfo(configPath, installError, updateCounter) ? TRUE
                                                                   : FALSE;
  });
}

GP_EXPORT Bool ToolsVersion_SaveXmlInfo(const char *configPath,
                                        const char *updateAgentXml,
                                        const char *manifestText,
                                        int installError, int updateCounter) {
  return gp::abiGuard<Bool>(FALSE, [&]() -> Bool {
    if (configPath == nullptr) {
      return FALSE;
    }
    return saveXmlInfo(configPath, updateAgentXml, manifestText, installError,
                       updateCounter)
               ? TRUE
               : FALSE;
  });
}
