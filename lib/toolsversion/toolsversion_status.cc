// Component statuses, the overall status and the log lines that explain
// the decision.
#include <cstdio>

#include "lib/toolsversion/toolsversion_internal.h"
#include "platform/log.h"

namespace gp::tools {

const char *const toolsStatusNames[kToolsComponentStatusCount] = {
    "blacklisted",
    "too old",
    "too new",
    "supported old",
    "supported new",
    "current",
    "additional in the guest",
    "missing from the guest",
    "not installed",
    "gone",
};

const ToolsVersionStatus toolsStatusResult[6] = {
    TOOLS_STATUS_BLACKLISTED,   TOOLS_STATUS_TOO_OLD,
    TOOLS_STATUS_TOO_NEW,       TOOLS_STATUS_SUPPORTED_OLD,
    TOOLS_STATUS_SUPPORTED_NEW, TOOLS_STATUS_CURRENT,
};

namespace {

// Compares `value` with `reference` over the reference's depth: -1 below,
// 0 equal, 1 above. Depths beyond the four parts compare all four.
int compareOver(const ToolsVersionValue &value,
                const ToolsVersionValue &reference) {
  uint32_t depth = reference.depth < 4 ? reference.depth : 4;
  for (uint32_t i = 0; i < depth; ++i) {
    if (value.parts[i] != reference.parts[i]) {
      return value.parts[i] < reference.parts[i] ? -1 : 1;
    }
  }
  return 0;
}

// "a", "a and b", "a, b, and c".
std::string joinEnglish(const std::vector<const std::string *> &names) {
  if (names.size() == 1) {
    return *names[0];
  }
  if (names.size() == 2) {
    return *names[0] + " and " + *names[1];
  }
  std::string out;
  for (size_t i = 0; i + 1 < names.size(); ++i) {
    out += *names[i];
    out += ", ";
  }
  return out + "and " + *names.back();
}

void logComponentTable(const ToolsComponentTable &table,
                       const ToolsComponent &mono) {
  logf("ToolsVersion: %-24s: %-11.11s %-16s %c %-16s %-16s %-16s %s\n",
       "Component", "Status", "Guest", 'I', "Host", "AVR Min", "AVR Max",
       "AVR Illegal");
  toolsComponentLogRow("monolithic", &mono);
  table.forEach([](const std::string &name, const ToolsComponent &c) {
    toolsComponentLogRow(name.c_str(), &c);
  });
}

void logResultLists(const ToolsStatusLists &lists) {
  for (uint32_t s = 0; s < kToolsComponentStatusCount; ++s) {
    if (!lists[s].empty()) {
      logf("ToolsVersion: %-24s: (%3zu) %s\n", toolsStatusNames[s],
           lists[s].size(), joinEnglish(lists[s]).c_str());
    }
  }
}

// When components are missing from the guest, a supported monolithic
// status stands for the whole package.
bool logMonolithicWithMissing(const ToolsStatusLists &lists,
                              uint32_t monoStatus) {
  const auto &missing = lists[TOOLS_COMPONENT_MISSING];
  if (missing.empty() || (monoStatus != TOOLS_COMPONENT_SUPPORTED_OLD &&
                          monoStatus != TOOLS_COMPONENT_SUPPORTED_NEW)) {
    return false;
  }
  const char *name = toolsStatusNames[monoStatus];
  if (missing.size() == 1) {
    logf(
        "ToolsVersion: Status is %s because this is status of monolithic "
        "version, and %s is missing from the guest.\n",
        name, missing[0]->c_str());
  } else if (missing.size() == 2) {
    logf(
        "ToolsVersion: Status is %s because this is status of monolithic "
        "version, and %s and %s are missing from the guest.\n",
        name, missing[0]->c_str(), missing[1]->c_str());
  } else {
    logf(
        "ToolsVersion: Status is %s because this is status of monolithic "
        "version, and %s and %zu more components are missing from the "
        "guest.\n",
        name, missing[0]->c_str(), missing.size() - 1);
  }
  return true;
}

// The record that stands for the tools package as a whole: "monolithic",
// completed from "legacy" (which goes) and the "upgrader" guest version.
ToolsComponentPtr takeMonolithic(ToolsComponentTable *table) {
  ToolsComponentPtr mono = table->lookupAndDelete("monolithic");
  if (!mono) {
    mono = toolsComponentNew();
  }
  if (ToolsComponentPtr legacy = table->lookupAndDelete("legacy")) {
    if (mono->host.depth == 0) mono->host = legacy->host;
    if (mono->guest.depth == 0) mono->guest = legacy->guest;
    if (mono->avrMin.depth == 0) mono->avrMin = legacy->avrMin;
    toolsComponentFree(std::move(legacy));
  }
  if (mono->guest.depth == 0) {
    if (const ToolsComponent *upgrader = table->lookup("upgrader")) {
      mono->guest = upgrader->guest;
    }
  }
  mono->installed = TRUE;
  return mono;
}

}  // namespace

ToolsComponentStatus toolsComponentGetStatus(ToolsComponent *c) {
  ToolsComponentStatus status;
  if (c->guest.depth == 0) {
    status =
        c->host.depth != 0 ? TOOLS_COMPONENT_MISSING : TOOLS_COMPONENT_GONE;
  } else if (!c->installed) {
    status = TOOLS_COMPONENT_NOT_INSTALLED;
  } else {
    bool blacklisted = false;
    for (const ToolsVersionValue &bad : c->illegal) {
      if (bad.depth == 0 || compareOver(c->guest, bad) == 0) {
        blacklisted = true;
        break;
      }
    }
    if (blacklisted) {
      status = TOOLS_COMPONENT_BLACKLISTED;
    } else if (c->avrMin.depth != 0 && compareOver(c->guest, c->avrMin) < 0) {
      status = TOOLS_COMPONENT_TOO_OLD;
    } else if (c->avrMax.depth != 0 && compareOver(c->guest, c->avrMax) > 0) {
      status = TOOLS_COMPONENT_TOO_NEW;
    } else if (c->host.depth == 0) {
      status = TOOLS_COMPONENT_ADDITIONAL;
    } else {
      int cmp = compareOver(c->guest, c->host);
      status = cmp > 0   ? TOOLS_COMPONENT_SUPPORTED_NEW
               : cmp < 0 ? TOOLS_COMPONENT_SUPPORTED_OLD
                         : TOOLS_COMPONENT_CURRENT;
    }
  }
  c->status = status;
  return status;
}

void toolsSetAvrMinFromHost(ToolsComponentTable *table) {
  table->forEach(
      [](const std::string &, ToolsComponent &c) { c.avrMin = c.host; });
}

bool toolsStatusLogReason(const ToolsStatusLists &lists, uint32_t monoStatus,
                          uint32_t status) {
  size_t n = lists[status].size();
  bool isMono = monoStatus == status;
  if (!isMono && n == 0) {
    return false;
  }
  const char *subject = "monolithic version";
  size_t next = 0;
  if (!isMono) {
    subject = lists[status][0]->c_str();
    next = 1;
    --n;
  }
  const char *name = toolsStatusNames[status];
  if (n == 0) {
    logf("ToolsVersion: Status is %s because this is status of %s.\n", name,
         subject);
  } else if (n == 1) {
    logf("ToolsVersion: Status is %s because this is status of %s and %s.\n",
         name, subject, lists[status][next]->c_str());
  } else {
    logf(
        "ToolsVersion: Status is %s because this is status of %s and %zu "
        "more components.\n",
        name, subject, n - 1);
  }
  return true;
}

void toolsComponentLogRow(const char *name, const ToolsComponent *c) {
  std::string illegal;
  for (const ToolsVersionValue &v : c->illegal) {
    if (!illegal.empty()) {
      illegal += ", ";
    }
    illegal += toolsVersionFormat(&v, TRUE);
  }
  const char *status =
      c->status < kToolsComponentStatusCount ? toolsStatusNames[c->status] : "";
  logf("ToolsVersion: %-24s: %-11.11s %-16s %c %-16s %-16s %-16s %s\n", name,
       status, toolsVersionFormat(&c->guest, FALSE).c_str(),
       c->installed ? 'Y' : 'N', toolsVersionFormat(&c->host, FALSE).c_str(),
       toolsVersionFormat(&c->avrMin, FALSE).c_str(),
       toolsVersionFormat(&c->avrMax, FALSE).c_str(), illegal.c_str());
}

ToolsVersionStatus toolsStatusEvaluateOutcome(ToolsComponentTable *table,
                                              const ToolsDebugFlags *flags,
                                              ToolsStatusOutcome *outcome) {
  ToolsComponentPtr mono = takeMonolithic(table);
  ToolsStatusLists lists;
  table->forEach([&lists](const std::string &name, ToolsComponent &c) {
    lists[toolsComponentGetStatus(&c)].push_back(&name);
  });
  uint32_t monoStatus = toolsComponentGetStatus(mono.get());
  if (flags != nullptr && flags->componentsLog) {
    logComponentTable(*table, *mono);
  }
  if (flags != nullptr && flags->resultLog) {
    logResultLists(lists);
  }

  ToolsComponentStatus overall;
  if (toolsStatusLogReason(lists, monoStatus, TOOLS_COMPONENT_BLACKLISTED)) {
    overall = TOOLS_COMPONENT_BLACKLISTED;
  } else if (toolsStatusLogReason(lists, monoStatus, TOOLS_COMPONENT_TOO_OLD)) {
    overall = TOOLS_COMPONENT_TOO_OLD;
  } else if (toolsStatusLogReason(lists, monoStatus, TOOLS_COMPONENT_TOO_NEW)) {
    overall = TOOLS_COMPONENT_TOO_NEW;
  } else if (logMonolithicWithMissing(lists, monoStatus)) {
    overall = static_cast<ToolsComponentStatus>(monoStatus);
  } else if (toolsStatusLogReason(lists, TOOLS_COMPONENT_NOT_INSTALLED,
                                  TOOLS_COMPONENT_SUPPORTED_OLD)) {
    overall = TOOLS_COMPONENT_SUPPORTED_OLD;
  } else if (toolsStatusLogReason(lists, TOOLS_COMPONENT_NOT_INSTALLED,
                                  TOOLS_COMPONENT_SUPPORTED_NEW)) {
    overall = TOOLS_COMPONENT_SUPPORTED_NEW;
  } else {
    overall = TOOLS_COMPONENT_CURRENT;
  }
  ToolsVersionStatus result = toolsStatusResult[overall];
  if (outcome != nullptr) {
    outcome->monolithic = std::move(*mono);
    outcome->overall = overall;
    outcome->status = result;
  }
  toolsComponentFree(std::move(mono));
  return result;
}

ToolsVersionStatus toolsStatusEvaluate(ToolsComponentTable *table,
                                       const ToolsDebugFlags *flags) {
  return toolsStatusEvaluateOutcome(table, flags, nullptr);
}

}  // namespace gp::tools
