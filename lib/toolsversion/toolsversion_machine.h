// Shared between the files of the tools version module that read a real
// machine: its extended configuration XML, its tools image and host
// manifest cache, and the status query that joins them.
#pragma once

#include <libxml/tree.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "guestprep/toolsversion.h"
#include "lib/toolsversion/toolsversion_internal.h"
#include "platform/configdict.h"

namespace gp::tools {

// Extended configuration files and update agent reports of this size or
// more are refused, and a rewrite never makes a file that large: the file
// holds a few records, and a document in memory takes many times its text.
inline constexpr uint32_t kMaxExtendedConfigSize = 1u << 20;

struct XmlDocFree {
  void operator()(xmlDoc *doc) const { xmlFreeDoc(doc); }
};
using XmlDocPtr = std::unique_ptr<xmlDoc, XmlDocFree>;

// The machine's extended configuration path, or nothing (logged).
std::optional<std::string> toolsGetExtendedConfigPath(const char *configPath);

// The whole file; false (logged) when it cannot be opened or read or is
// not below kMaxExtendedConfigSize bytes.
bool toolsReadWholeFile(const char *path, std::string *buffer);

// The once-per-process libxml2 version check.
void toolsXmlCheckVersion();

// Parses a document from memory without network access, DTD loading or
// entity expansion; null when it does not parse.
XmlDocPtr toolsXmlParse(const char *data, size_t size);

// The parsed extended configuration file of a machine.
struct ToolsExtendedConfig {
  std::string path;
  std::string buffer;
  XmlDocPtr doc;
  xmlNode *root = nullptr;
};

// Locates, reads and parses the file, logging each failure.
bool toolsXmlLoadExtendedConfig(const char *configPath,
                                ToolsExtendedConfig *config);

// Element children named `name` without regard to ASCII case.
bool toolsXmlIsElement(const xmlNode *node, const char *name);
xmlNode *toolsXmlFirstChild(xmlNode *parent, const char *name);
xmlNode *toolsXmlLastChild(xmlNode *parent, const char *name);

// An attribute's text (exact name), with entity references left as
// "&name;" and never expanded; nothing when absent.
std::optional<std::string> toolsXmlAttribute(const xmlNode *node,
                                             const char *name);

// Host manifest cache and tools images.
struct ToolsIsoPaths {
  std::string isoPath;
  std::string isoDir;
  std::string isoBase;
  int isoFormat = 0;
};
bool toolsGetIsoPath(const char *configPath, const char *isoName,
                     ToolsIsoPaths *paths);
// `cachePath` is left empty when no cache directory is set.
void toolsGetManifestPaths(const std::string &isoDir,
                           const std::string &isoBase, std::string *avrPath,
                           std::string *cachePath);
// Tests point the default library directory at a tree of their own.
void toolsSetDefaultLibDir(const char *dir);
bool toolsExtractManifest(const char *destPath, const char *isoPath,
                          int isoFormat);

// The gathering step of the status query: the machine's host manifest and
// AVR file and the guest dictionary, judged. 9 when the host's manifests
// cannot be had. With `table` and `outcome`, the judged components are
// left there for callers that show them.
ToolsVersionStatus toolsStatusCompute(const char *configPath,
                                      const char *guestManifestPath,
                                      const ConfigDict *guestDict,
                                      ToolsComponentTable *table = nullptr,
                                      ToolsStatusDecision *outcome = nullptr);

// The guest manifest kept in the extended configuration file, or the
// update agent's recorded status of the tools package as a whole. Returns
// the status (as recorded, or computed with `configPath`'s host manifests).
int32_t toolsStatusFromExtendedConfig(const char *configPath,
                                      ConfigDict *guestDict);

}  // namespace gp::tools
