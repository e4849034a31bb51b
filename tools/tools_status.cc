// guestprep tools-status: the tools version status of a guest from the
// host manifest, the AVR file and the guest manifest.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "guestprep/toolsversion.h"
#include "lib/toolsversion/toolsversion_internal.h"
#include "lib/toolsversion/toolsversion_machine.h"
#include "platform/configdict.h"
#include "platform/hostio.h"
#include "platform/log.h"
#include "platform/msgcatalog.h"
#include "tools/cli.h"
#include "tools/json.h"

namespace {

using namespace gp::tools;
using gp::cli::Json;

const char *publicName(ToolsVersionStatus status) {
  static const char *const kNames[] = {
      "",
      "TOOLS_STATUS_TOO_OLD",
      "TOOLS_STATUS_SUPPORTED_OLD",
      "TOOLS_STATUS_CURRENT",
      "TOOLS_STATUS_SUPPORTED_NEW",
      "TOOLS_STATUS_TOO_NEW",
      "TOOLS_STATUS_BLACKLISTED",
      "TOOLS_STATUS_NONE",
      "TOOLS_STATUS_RESERVED_VERSION",
      "TOOLS_STATUS_UNKNOWN",
  };
  return status >= 1 && status <= 9 ? kNames[status] : "?";
}

std::vector<std::string> illegalList(const ToolsComponent &c) {
  std::vector<std::string> out;
  for (const ToolsVersionValue &v : c.illegal) {
    out.push_back(toolsVersionFormat(&v, TRUE));
  }
  return out;
}

Json jsonRow(const std::string &name, const ToolsComponent &c) {
  return {{"name", name},
          {"status", toolsStatusNames[c.status]},
          {"guest", toolsVersionFormat(&c.guest, FALSE)},
          {"installed", c.installed != 0},
          {"host", toolsVersionFormat(&c.host, FALSE)},
          {"avrMin", toolsVersionFormat(&c.avrMin, FALSE)},
          {"avrMax", toolsVersionFormat(&c.avrMax, FALSE)},
          {"illegal", illegalList(c)}};
}

void printReport(const ToolsComponentTable &table,
                 const ToolsStatusDecision &outcome, bool json) {
  if (json) {
    Json rows = Json::array({jsonRow("monolithic", outcome.monolithic)});
    table.forEach([&rows](const std::string &name, const ToolsComponent &c) {
      rows.push_back(jsonRow(name, c));
    });
    gp::cli::printJson({{"components", rows},
                        {"overall", toolsStatusNames[outcome.overall]},
                        {"status", outcome.status()},
                        {"statusName", publicName(outcome.status())}});
    return;
  }
  std::printf("%s", toolsComponentRow("Component", nullptr, false).c_str());
  std::printf(
      "%s",
      toolsComponentRow("monolithic", &outcome.monolithic, false).c_str());
  table.forEach([](const std::string &name, const ToolsComponent &c) {
    std::printf("%s", toolsComponentRow(name.c_str(), &c, false).c_str());
  });
  std::printf("\nOverall status: %s\nPublic status:  %d %s\n",
              toolsStatusNames[outcome.overall], outcome.status(),
              publicName(outcome.status()));
}

void printUnknown(bool json) {
  if (json) {
    gp::cli::printJson({{"components", Json::array()},
                        {"status", TOOLS_STATUS_UNKNOWN},
                        {"statusName", publicName(TOOLS_STATUS_UNKNOWN)}});
  } else {
    std::printf("Public status:  %d %s\n", TOOLS_STATUS_UNKNOWN,
                publicName(TOOLS_STATUS_UNKNOWN));
  }
}

// Names a file the command could not read; a file that reads but does not
// parse is reported by the library's log.
void reportIfUnreadable(const std::string &path) {
  std::string problem = gp::cli::readProblem(path);
  if (!problem.empty()) {
    gp::cli::reportFileError(path, problem);
  }
}

// --config / --save-xml: the real query on a machine's files.
int runMachine(const gp::cli::Args &args);

int run(const gp::cli::Args &args) {
  for (const std::string &a : args) {
    if (a == "--config" || a == "--save-xml") {
      return runMachine(args);
    }
  }
  std::string host, avr, guest;
  bool json = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string &a = args[i];
    if (a == "--json") {
      json = true;
    } else if ((a == "--host" || a == "--avr" || a == "--guest") &&
               i + 1 < args.size()) {
      (a == "--host" ? host : a == "--avr" ? avr : guest) = args[++i];
    } else {
      return gp::cli::usageError("tools-status");
    }
  }
  if (host.empty() || guest.empty()) {
    return gp::cli::usageError("tools-status");
  }

  // The order the status query uses: host manifest, AVR file (or the
  // host's own versions as the lowest supported ones), guest manifest.
  ToolsComponentTable table;
  ToolsDebugFlags flags;
  if (!toolsManifestLoad(&table, &flags, TOOLS_MANIFEST_HOST, host.c_str())) {
    reportIfUnreadable(host);
    printUnknown(json);
    return 1;
  }
  if (avr.empty() ||
      !toolsManifestLoad(&table, &flags, TOOLS_MANIFEST_AVR, avr.c_str())) {
    if (!avr.empty()) {
      reportIfUnreadable(avr);
    }
    toolsSetAvrMinFromHost(&table);
  }
  gp::ConfigDict guestDict;
  if (!guestDict.loadFile(guest.c_str())) {
    reportIfUnreadable(guest);
    gp::logf("Error loading dictionary for guest manifest: %s.\n",
             gp::msg::takePending().c_str());
    printUnknown(json);
    return 1;
  }
  ToolsManifestContext ctx{&table, TOOLS_MANIFEST_GUEST, nullptr};
  guestDict.iterate([&ctx](const char *name, const char *value) {
    toolsManifestAddEntry(name, value, &ctx);
  });

  ToolsStatusDecision decision = toolsStatusDecide(&table);
  toolsStatusLog(table, decision, &flags);
  printReport(table, decision, json);
  return 0;
}

struct MachineArgs {
  std::string config;
  std::optional<std::string> guestFile, guestText, cacheDir, agentFile,
      manifestFile;
  uint32_t legacy = 0xFFFFFFFF;
  int installError = 0, updateCounter = 0;
  bool json = false, saveXml = false;
};

bool parseNumber(const std::string &text, long min, long max, long *out) {
  char *end = nullptr;
  errno = 0;
  long v = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || errno != 0 || v < min || v > max) {
    return false;
  }
  *out = v;
  return true;
}

bool parseMachineArgs(const gp::cli::Args &args, MachineArgs *m) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string &a = args[i];
    bool hasValue = i + 1 < args.size();
    long n = 0;
    if (a == "--json") {
      m->json = true;
    } else if (a == "--save-xml") {
      m->saveXml = true;
    } else if (!hasValue) {
      return false;
    } else if (a == "--config") {
      m->config = args[++i];
    } else if (a == "--guest-manifest") {
      m->guestFile = args[++i];
    } else if (a == "--guest-text") {
      m->guestText = args[++i];
    } else if (a == "--cache-dir") {
      m->cacheDir = args[++i];
    } else if (a == "--agent-xml") {
      m->agentFile = args[++i];
    } else if (a == "--manifest") {
      m->manifestFile = args[++i];
    } else if (a == "--legacy" && parseNumber(args[++i], 0, UINT32_MAX, &n)) {
      m->legacy = static_cast<uint32_t>(n);
    } else if ((a == "--install-error" || a == "--update-counter") &&
               parseNumber(args[i + 1], INT32_MIN, INT32_MAX, &n)) {
      (a == "--install-error" ? m->installError : m->updateCounter) =
          static_cast<int>(n);
      ++i;
    } else {
      return false;
    }
  }
  return !m->config.empty() && !(m->guestFile && m->guestText);
}

// The text of a file named on the command line, or nothing (reported).
std::optional<std::string> readInput(const std::string &path) {
  std::string text;
  if (!gp::readWholeFile(path.c_str(), text, 16u << 20)) {
    gp::cli::reportUnreadable(path, "too large");
    return std::nullopt;
  }
  return text;
}

int saveXml(const MachineArgs &m) {
  std::optional<std::string> agent, manifest;
  if ((m.agentFile && !(agent = readInput(*m.agentFile))) ||
      (m.manifestFile && !(manifest = readInput(*m.manifestFile)))) {
    return 2;
  }
  Bool ok = ToolsVersion_SaveXmlInfo(
      m.config.c_str(), agent ? agent->c_str() : nullptr,
      manifest ? manifest->c_str() : nullptr, m.installError, m.updateCounter);
  if (m.json) {
    gp::cli::printJson({{"saved", ok != FALSE}});
  } else {
    std::printf("%s\n", ok ? "saved" : "not saved");
  }
  return ok ? 0 : 1;
}

// The judged components of the guest manifest at hand, computed again
// quietly (the query has logged its reasoning already); false when the
// host's manifests cannot be had.
bool componentTable(const MachineArgs &m, ToolsComponentTable *table,
                    ToolsStatusDecision *outcome) {
  gp::ConfigDict guest;
  gp::LogSink saved = gp::setLogSink([](std::string_view) {});
  bool loaded = m.guestFile ? guest.loadFile(m.guestFile->c_str())
                            : guest.loadBuffer(*m.guestText);
  gp::msg::takePending();
  bool ok = loaded &&
            toolsStatusCompute(m.config.c_str(),
                               m.guestFile ? m.guestFile->c_str() : nullptr,
                               &guest, table, outcome) != TOOLS_STATUS_UNKNOWN;
  gp::setLogSink(saved);
  return ok;
}

int runMachine(const gp::cli::Args &args) {
  MachineArgs m;
  if (!parseMachineArgs(args, &m)) {
    return gp::cli::usageError("tools-status");
  }
  if (m.saveXml) {
    return saveXml(m);
  }
  if (m.cacheDir) {
    ToolsVersion_SetHostManifestCacheDir(m.cacheDir->c_str());
  }
  int32_t status = ToolsVersion_GetStatus(
      m.config.c_str(), m.guestFile ? m.guestFile->c_str() : nullptr,
      m.guestText ? m.guestText->c_str() : nullptr, m.legacy);
  ToolsComponentTable table;
  ToolsStatusDecision outcome;
  if ((m.guestFile || (m.guestText && !m.guestText->empty())) &&
      componentTable(m, &table, &outcome) && outcome.status() == status) {
    printReport(table, outcome, m.json);
  } else {
    const char *name = publicName(static_cast<ToolsVersionStatus>(
        status >= 1 && status <= 9 ? status : 0));
    if (m.json) {
      gp::cli::printJson({{"status", status}, {"statusName", name}});
    } else {
      std::printf("Public status:  %d %s\n", status, name);
    }
  }
  return status == TOOLS_STATUS_UNKNOWN ? 1 : 0;
}

}  // namespace

GP_COMMAND("tools-status",
           "--host HOSTMANIFEST [--avr AVRFILE] --guest GUESTMANIFEST "
           "[--json] | --config MACHINE-CONFIG [--guest-manifest F | "
           "--guest-text T] [--legacy N] [--cache-dir D] [--json] | "
           "--save-xml --config MACHINE-CONFIG [--agent-xml F] "
           "[--manifest F] [--install-error N] [--update-counter N]",
           "guest tools version status of every component and overall", run);
