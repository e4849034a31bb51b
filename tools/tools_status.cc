// guestprep tools-status: the tools version status of a guest from the
// host manifest, the AVR file and the guest manifest.
#include <cstdio>
#include <string>

#include "lib/toolsversion/toolsversion_internal.h"
#include "platform/configdict.h"
#include "platform/log.h"
#include "platform/msgcatalog.h"
#include "tools/cli.h"

namespace {

using namespace gp::tools;
using gp::cli::jsonString;

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

std::string illegalList(const ToolsComponent &c) {
  std::string out;
  for (const ToolsVersionValue &v : c.illegal) {
    out += (out.empty() ? "" : ",") + jsonString(toolsVersionFormat(&v, TRUE));
  }
  return out;
}

std::string jsonRow(const std::string &name, const ToolsComponent &c) {
  return "{\"name\":" + jsonString(name) +
         ",\"status\":" + jsonString(toolsStatusNames[c.status]) +
         ",\"guest\":" + jsonString(toolsVersionFormat(&c.guest, FALSE)) +
         ",\"installed\":" + (c.installed ? "true" : "false") +
         ",\"host\":" + jsonString(toolsVersionFormat(&c.host, FALSE)) +
         ",\"avrMin\":" + jsonString(toolsVersionFormat(&c.avrMin, FALSE)) +
         ",\"avrMax\":" + jsonString(toolsVersionFormat(&c.avrMax, FALSE)) +
         ",\"illegal\":[" + illegalList(c) + "]}";
}

void printReport(const ToolsComponentTable &table,
                 const ToolsStatusDecision &outcome, bool json) {
  if (json) {
    std::string out =
        "{\"components\":[" + jsonRow("monolithic", outcome.monolithic);
    table.forEach([&out](const std::string &name, const ToolsComponent &c) {
      out += "," + jsonRow(name, c);
    });
    out += "],\"overall\":" + jsonString(toolsStatusNames[outcome.overall]) +
           ",\"status\":" + std::to_string(outcome.status()) +
           ",\"statusName\":" + jsonString(publicName(outcome.status())) + "}";
    std::printf("%s\n", out.c_str());
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
    std::printf("{\"components\":[],\"status\":%d,\"statusName\":%s}\n",
                TOOLS_STATUS_UNKNOWN,
                jsonString(publicName(TOOLS_STATUS_UNKNOWN)).c_str());
  } else {
    std::printf("Public status:  %d %s\n", TOOLS_STATUS_UNKNOWN,
                publicName(TOOLS_STATUS_UNKNOWN));
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
    printUnknown(json);
    return 1;
  }
  if (avr.empty() ||
      !toolsManifestLoad(&table, &flags, TOOLS_MANIFEST_AVR, avr.c_str())) {
    toolsSetAvrMinFromHost(&table);
  }
  gp::ConfigDict guestDict;
  if (!guestDict.loadFile(guest.c_str())) {
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

}  // namespace

GP_COMMAND("tools-status",
           "--host HOSTMANIFEST [--avr AVRFILE] --guest GUESTMANIFEST "
           "[--json]",
           "guest tools version status of every component and overall", run);
