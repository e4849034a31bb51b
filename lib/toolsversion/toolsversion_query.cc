// The status query of one machine: finds the guest manifest, gathers the
// host manifest and AVR file of the machine's tools image, judges them,
// and falls back on the legacy version number of the machine's disks.
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>

#include <cstdio>
#include <optional>
#include <string>

#include "lib/toolsversion/toolsversion_machine.h"
#include "platform/abi.h"
#include "platform/hostio.h"
#include "platform/log.h"
#include "platform/msgcatalog.h"
#include "platform/strutil.h"

namespace gp::tools {
namespace {

constexpr uint32_t kLegacyUnknown = 0xFFFFFFFF;
constexpr uint32_t kLegacyReserved = 0x7FFFFFFF;
constexpr uint32_t kLegacyNewest = 9230;  // 9.0.14

bool fileExists(const std::string &path) {
  struct stat st;
  return hostOps().stat(path.c_str(), &st) == 0;
}

// Copies a cached manifest onto the host copy. Only regular files of a
// manifest's size are copied; a FIFO is never opened. The copy is removed
// at the end of the query, so it is not flushed to disk; O_NOFOLLOW keeps
// a link planted under its name from redirecting the write.
bool copyManifest(const std::string &from, const std::string &to) {
  struct stat st;
  std::string text;
  if (hostOps().stat(from.c_str(), &st) != 0 || !S_ISREG(st.st_mode) ||
      !readWholeFile(from.c_str(), text, ConfigDict::kMaxFileSize)) {
    return false;
  }
  UniqueFd out = openFile(
      to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
  return out.valid() && writeFull(out.get(), text.data(), text.size()) &&
         out.reset() == 0;
}

// The name of the host manifest copy of one query; empty (logged) when it
// cannot be made.
std::string hostCopyName(const char *guestManifestPath) {
  if (guestManifestPath != nullptr) {
    if (!fileExists(guestManifestPath)) {
      logf("Error accessing guest tools version manifest file.\n");
      return std::string();
    }
    return std::string(guestManifestPath) + ".iso.shipped";
  }
  std::string tmp = userTempDirectory();
  if (tmp.empty()) {
    logf("Error retrieving local temp directory path.\n");
    return std::string();
  }
  char id[32];
  std::snprintf(id, sizeof id, "%lu",
                static_cast<unsigned long>(pthread_self()));
  return tmp + "/manifest.txt." + id + ".iso.shipped";
}

// Puts the machine's host manifest at `hostCopy` and names the AVR file.
bool gatherHostManifest(const char *configPath, const std::string &hostCopy,
                        std::string *avrPath) {
  ToolsIsoPaths iso;
  if (!toolsGetIsoPath(configPath, nullptr, &iso)) {
    logf("Failed to get tools iso path.\n");
    return false;
  }
  std::string cachePath;
  toolsGetManifestPaths(iso.isoDir, iso.isoBase, avrPath, &cachePath);
  if (cachePath.empty()) {
    return toolsExtractManifest(hostCopy.c_str(), iso.isoPath.c_str(),
                                iso.isoFormat);
  }
  if (!fileExists(cachePath) &&
      !toolsExtractManifest(cachePath.c_str(), iso.isoPath.c_str(),
                            iso.isoFormat)) {
    return false;
  }
  if (!copyManifest(cachePath, hostCopy)) {
    logf("Failed to copy tools manifest file extracted from iso.\n");
    return false;
  }
  return true;
}

void addGuestEntry(const char *name, const char *value, void *userData) {
  toolsManifestAddEntry(name, value,
                        static_cast<ToolsManifestContext *>(userData));
}

int32_t statusOf(const ConfigDict *guest, const char *configPath,
                 const char *guestManifestPath) {
  return toolsStatusCompute(configPath, guestManifestPath, guest);
}

int32_t fromLegacyVersion(const char *configPath, uint32_t n) {
  if (n == 0) {
    return TOOLS_STATUS_NONE;
  }
  if (n == kLegacyReserved) {
    return TOOLS_STATUS_RESERVED_VERSION;
  }
  char version[20];
  std::snprintf(version, sizeof version, "%u.%u.%u", n >> 10, (n >> 5) & 31,
                n & 31);
  ConfigDict guest;
  guest.setString("monolithic.version", version);
  int32_t result = statusOf(&guest, configPath, nullptr);
  if (result != TOOLS_STATUS_UNKNOWN) {
    return result;
  }
  return n > kLegacyNewest ? TOOLS_STATUS_CURRENT : TOOLS_STATUS_TOO_OLD;
}

int32_t getStatus(const char *configPath, const char *guestManifestPath,
                  const char *guestManifestText, uint32_t legacyVersion) {
  std::optional<ConfigDict> guest;
  int32_t result = TOOLS_STATUS_UNKNOWN;
  if (guestManifestPath != nullptr) {
    guest.emplace();
    if (guest->loadFile(guestManifestPath)) {
      result = statusOf(&*guest, configPath, guestManifestPath);
    } else {
      logf("Error loading dictionary for guest manifest: %s.\n",
           msg::takePending().c_str());
    }
  } else if (guestManifestText != nullptr && *guestManifestText != '\0') {
    guest.emplace();
    if (guest->loadBuffer(guestManifestText, "guest manifest")) {
      result = statusOf(&*guest, configPath, nullptr);
    } else {
      logf("Error loading dictionary from guest manifest buffer: %s.\n",
           msg::takePending().c_str());
    }
  } else if (guestManifestText == nullptr) {
    guest.emplace();
    result = toolsStatusFromExtendedConfig(configPath, &*guest);
  }
  if (result != TOOLS_STATUS_UNKNOWN) {
    return result;
  }

  int32_t virtualHW = guest && guest->isDefined("virtualHW.version")
                          ? guest->getInt32("virtualHW.version")
                          : 1;
  guest.reset();
  uint32_t n = legacyVersion;
  if (n == kLegacyUnknown &&
      !ToolsVersion_GetLegacyVersionNumber(configPath, &n)) {
    return virtualHW > 8 ? TOOLS_STATUS_UNKNOWN : TOOLS_STATUS_TOO_OLD;
  }
  return fromLegacyVersion(configPath, n);
}

}  // namespace

ToolsVersionStatus toolsStatusCompute(const char *configPath,
                                      const char *guestManifestPath,
                                      const ConfigDict *guestDict,
                                      ToolsComponentTable *table,
                                      ToolsStatusDecision *outcome) {
  std::string hostCopy = hostCopyName(guestManifestPath);
  std::string avrPath;
  if (hostCopy.empty() || !gatherHostManifest(configPath, hostCopy, &avrPath)) {
    if (!hostCopy.empty()) {
      hostOps().unlink(hostCopy.c_str());
    }
    logf("Error getting host tools manifest files.\n");
    return TOOLS_STATUS_UNKNOWN;
  }
  bool useAvr = fileExists(avrPath);

  ToolsComponentTable ownTable;
  ToolsComponentTable *components = table != nullptr ? table : &ownTable;
  ToolsDebugFlags flags;
  bool loaded = toolsManifestLoad(components, &flags, TOOLS_MANIFEST_HOST,
                                  hostCopy.c_str());
  hostOps().unlink(hostCopy.c_str());
  if (!loaded) {
    return TOOLS_STATUS_UNKNOWN;
  }
  if (!useAvr) {
    toolsSetAvrMinFromHost(components);
  } else if (!toolsManifestLoad(components, &flags, TOOLS_MANIFEST_AVR,
                                avrPath.c_str())) {
    logf("ToolsVersion: AVR file corrupted, ignoring AVR values\n");
    toolsSetAvrMinFromHost(components);
  }
  ToolsManifestContext ctx{components, TOOLS_MANIFEST_GUEST, nullptr};
  guestDict->iterate(addGuestEntry, &ctx);
  ToolsStatusDecision decision = toolsStatusDecide(components);
  toolsStatusLog(*components, decision, &flags);
  if (outcome != nullptr) {
    *outcome = decision;
  }
  return decision.status();
}

int32_t toolsStatusFromExtendedConfig(const char *configPath,
                                      ConfigDict *guestDict) {
  ToolsExtendedConfig config;
  if (!toolsXmlLoadExtendedConfig(configPath, &config)) {
    return TOOLS_STATUS_UNKNOWN;
  }
  if (config.root->children == nullptr) {
    logf("Failed to find manifest content in extended config xml.\n");
    return TOOLS_STATUS_UNKNOWN;
  }
  xmlNode *manifest = toolsXmlLastChild(config.root, "tools-manifest");
  xmlNode *agentTools = nullptr;
  for (xmlNode *n = config.root->children; n != nullptr; n = n->next) {
    xmlNode *tools = toolsXmlIsElement(n, "update-agent-info")
                         ? toolsXmlFirstChild(n, "tools")
                         : nullptr;
    if (tools != nullptr) {
      agentTools = tools;
    }
  }
  xmlNode *mono =
      agentTools ? toolsXmlFirstChild(agentTools, "monolithic") : nullptr;
  if (mono != nullptr) {
    // A status the update agent decided stands as it was recorded.
    std::optional<std::string> s = toolsXmlAttribute(mono, "status");
    long status = s ? str::parseLong(*s) : 0;
    if (status != 0 && status != TOOLS_STATUS_UNKNOWN && status >= INT32_MIN &&
        status <= INT32_MAX) {
      return static_cast<int32_t>(status);
    }
  }
  if (manifest == nullptr || manifest->children == nullptr) {
    logf("Failed to find manifest content in extended config xml.\n");
    return TOOLS_STATUS_UNKNOWN;
  }
  for (xmlNode *e = manifest->children; e != nullptr; e = e->next) {
    std::optional<std::string> version = toolsXmlAttribute(e, "version");
    std::optional<std::string> installed = toolsXmlAttribute(e, "installed");
    if (!version || !installed) {
      continue;
    }
    std::string name = reinterpret_cast<const char *>(e->name);
    guestDict->setString(name + ".version", *version);
    guestDict->setBool(name + ".installed",
                       str::equalsCaseless(*installed, "TRUE"));
  }
  return toolsStatusCompute(configPath, nullptr, guestDict);
}

}  // namespace gp::tools

GP_EXPORT int32_t ToolsVersion_GetStatus(const char *configPath,
                                         const char *guestManifestPath,
                                         const char *guestManifestText,
                                         uint32_t legacyVersion) {
  return gp::abiGuard<int32_t>(TOOLS_STATUS_UNKNOWN, [&] {
    return gp::tools::getStatus(configPath, guestManifestPath,
                                guestManifestText, legacyVersion);
  });
}
