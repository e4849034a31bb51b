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
  logf("ToolsVersion: %s",
       toolsComponentRow("Component", nullptr, true).c_str());
  logf("ToolsVersion: %s",
       toolsComponentRow("monolithic", &mono, true).c_str());
  table.forEach([](const std::string &name, const ToolsComponent &c) {
    logf("ToolsVersion: %s", toolsComponentRow(name.c_str(), &c, true).c_str());
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

// The status stands for the monolithic version and the components missing
// from the guest.
void logMonolithicWithMissing(const ToolsStatusDecision &d) {
  const auto &missing = d.lists[TOOLS_COMPONENT_MISSING];
  const char *name = toolsStatusNames[d.overall];
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
}

// The status stands for the components that have it, led by the
// monolithic version when that has it too.
void logStatusHolders(const ToolsStatusDecision &d) {
  const auto &holders = d.lists[d.overall];
  size_t n = holders.size();
  const char *subject = "monolithic version";
  size_t next = 0;
  if (!d.monolithicCounts) {
    subject = holders[0]->c_str();
    next = 1;
    --n;
  }
  const char *name = toolsStatusNames[d.overall];
  if (n == 0) {
    logf("ToolsVersion: Status is %s because this is status of %s.\n", name,
         subject);
  } else if (n == 1) {
    logf("ToolsVersion: Status is %s because this is status of %s and %s.\n",
         name, subject, holders[next]->c_str());
  } else {
    logf(
        "ToolsVersion: Status is %s because this is status of %s and %zu "
        "more components.\n",
        name, subject, n - 1);
  }
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

std::string toolsComponentRow(const char *name, const ToolsComponent *c,
                              bool forLog) {
  std::string status = "Status", guest = "Guest", host = "Host",
              avrMin = "AVR Min", avrMax = "AVR Max", illegal = "AVR Illegal";
  char installed = 'I';
  if (c != nullptr) {
    status = c->status < kToolsComponentStatusCount
                 ? toolsStatusNames[c->status]
                 : "";
    guest = toolsVersionFormat(&c->guest, FALSE);
    host = toolsVersionFormat(&c->host, FALSE);
    avrMin = toolsVersionFormat(&c->avrMin, FALSE);
    avrMax = toolsVersionFormat(&c->avrMax, FALSE);
    installed = c->installed ? 'Y' : 'N';
    illegal.clear();
    for (const ToolsVersionValue &v : c->illegal) {
      illegal += (illegal.empty() ? "" : ", ") + toolsVersionFormat(&v, TRUE);
    }
  }
  // The log cuts the status to 11 characters after a colon; the command
  // line shows it whole.
  auto print = [&](char *out, size_t room) {
    return std::snprintf(out, room,
                         "%-24s%s %-*.*s %-16s %c %-16s %-16s %-16s %s\n", name,
                         forLog ? ":" : "", forLog ? 11 : 23,
                         forLog ? 11 : static_cast<int>(status.size()),
                         status.c_str(), guest.c_str(), installed, host.c_str(),
                         avrMin.c_str(), avrMax.c_str(), illegal.c_str());
  };
  std::string row(static_cast<size_t>(print(nullptr, 0)), '\0');
  print(row.data(), row.size() + 1);
  return row;
}

ToolsStatusDecision toolsStatusDecide(ToolsComponentTable *table) {
  ToolsStatusDecision d;
  ToolsComponentPtr mono = takeMonolithic(table);
  table->forEach([&d](const std::string &name, ToolsComponent &c) {
    d.lists[toolsComponentGetStatus(&c)].push_back(&name);
  });
  uint32_t monoStatus = toolsComponentGetStatus(mono.get());
  d.monolithic = std::move(*mono);
  toolsComponentFree(std::move(mono));

  d.reason = ToolsStatusReason::Holders;
  for (ToolsComponentStatus worst :
       {TOOLS_COMPONENT_BLACKLISTED, TOOLS_COMPONENT_TOO_OLD,
        TOOLS_COMPONENT_TOO_NEW}) {
    if (monoStatus == worst || !d.lists[worst].empty()) {
      d.overall = worst;
      d.monolithicCounts = monoStatus == worst;
      return d;
    }
  }
  if (!d.lists[TOOLS_COMPONENT_MISSING].empty() &&
      (monoStatus == TOOLS_COMPONENT_SUPPORTED_OLD ||
       monoStatus == TOOLS_COMPONENT_SUPPORTED_NEW)) {
    d.overall = static_cast<ToolsComponentStatus>(monoStatus);
    d.reason = ToolsStatusReason::MonolithicWithMissing;
    return d;
  }
  // Here the monolithic version does not count: only components do.
  for (ToolsComponentStatus supported :
       {TOOLS_COMPONENT_SUPPORTED_OLD, TOOLS_COMPONENT_SUPPORTED_NEW}) {
    if (!d.lists[supported].empty()) {
      d.overall = supported;
      return d;
    }
  }
  d.overall = TOOLS_COMPONENT_CURRENT;
  d.reason = ToolsStatusReason::None;
  return d;
}

void toolsStatusLog(const ToolsComponentTable &table,
                    const ToolsStatusDecision &decision,
                    const ToolsDebugFlags *flags) {
  if (flags != nullptr && flags->componentsLog) {
    logComponentTable(table, decision.monolithic);
  }
  if (flags != nullptr && flags->resultLog) {
    logResultLists(decision.lists);
  }
  if (decision.reason == ToolsStatusReason::Holders) {
    logStatusHolders(decision);
  } else if (decision.reason == ToolsStatusReason::MonolithicWithMissing) {
    logMonolithicWithMissing(decision);
  }
}

ToolsVersionStatus toolsStatusEvaluate(ToolsComponentTable *table,
                                       const ToolsDebugFlags *flags) {
  ToolsStatusDecision decision = toolsStatusDecide(table);
  toolsStatusLog(*table, decision, flags);
  return decision.status();
}

}  // namespace gp::tools
