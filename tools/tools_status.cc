// guestprep tools-status: the tools version status of a guest from the
// host manifest, the AVR file and the guest manifest.
#include <cstdio>
#include <string>
#include <vector>

#include "lib/toolsversion/toolsversion_internal.h"
#include "platform/configdict.h"
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

std::string joined(const std::vector<std::string> &items) {
  std::string out;
  for (const std::string &item : items) {
    out += (out.empty() ? "" : ", ") + item;
  }
  return out;
}

void printRow(const char *name, const ToolsComponent &c) {
  std::printf(
      "%-24s %-23s %-16s %c %-16s %-16s %-16s %s\n", name,
      toolsStatusNames[c.status], toolsVersionFormat(&c.guest, FALSE).c_str(),
      c.installed ? 'Y' : 'N', toolsVersionFormat(&c.host, FALSE).c_str(),
      toolsVersionFormat(&c.avrMin, FALSE).c_str(),
      toolsVersionFormat(&c.avrMax, FALSE).c_str(),
      joined(illegalList(c)).c_str());
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
                 const ToolsStatusOutcome &outcome, bool json) {
  if (json) {
    Json rows = Json::array({jsonRow("monolithic", outcome.monolithic)});
    table.forEach([&rows](const std::string &name, const ToolsComponent &c) {
      rows.push_back(jsonRow(name, c));
    });
    gp::cli::printJson({{"components", rows},
                        {"overall", toolsStatusNames[outcome.overall]},
                        {"status", outcome.status},
                        {"statusName", publicName(outcome.status)}});
    return;
  }
  std::printf("%-24s %-23s %-16s %c %-16s %-16s %-16s %s\n", "Component",
              "Status", "Guest", 'I', "Host", "AVR Min", "AVR Max",
              "AVR Illegal");
  printRow("monolithic", outcome.monolithic);
  table.forEach([](const std::string &name, const ToolsComponent &c) {
    printRow(name.c_str(), c);
  });
  std::printf("\nOverall status: %s\nPublic status:  %d %s\n",
              toolsStatusNames[outcome.overall], outcome.status,
              publicName(outcome.status));
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

int run(const gp::cli::Args &args) {
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

  ToolsStatusOutcome outcome;
  toolsStatusEvaluateOutcome(&table, &flags, &outcome);
  printReport(table, outcome, json);
  return 0;
}

}  // namespace

GP_COMMAND("tools-status",
           "--host HOSTMANIFEST [--avr AVRFILE] --guest GUESTMANIFEST "
           "[--json]",
           "guest tools version status of every component and overall", run);
