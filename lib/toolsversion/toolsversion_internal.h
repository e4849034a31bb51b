// Shared between the files of the tools version module: version values,
// the component table that one status computation fills from the host
// manifest, the AVR file and the guest manifest, and the status rules.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "guestprep/toolsversion.h"
#include "guestprep/types.h"

namespace gp::tools {

// One version: `depth` leading parts take part in comparisons; depth 0
// means unset.
struct ToolsVersionValue {
  uint32_t depth;
  uint32_t parts[4];
};

// Everything known about one component; zero-filled when created.
struct ToolsComponent {
  ToolsVersionValue guest{};
  Bool installed = FALSE;
  ToolsVersionValue host{};
  ToolsVersionValue avrMin{};
  ToolsVersionValue avrMax{};
  std::vector<ToolsVersionValue> illegal;
  uint32_t status = 0;
};

using ToolsComponentPtr = std::unique_ptr<ToolsComponent>;

ToolsComponentPtr toolsComponentNew();
void toolsComponentFree(ToolsComponentPtr record);

// Component name -> record. Lookups go through a hash table of 128 buckets;
// iteration follows insertion order so that logs and reports list the
// components in the order the manifests name them. Keys are the table's
// own copies and stay put until their entry is removed.
class ToolsComponentTable {
 public:
  ToolsComponentTable();
  ToolsComponentTable(const ToolsComponentTable &) = delete;
  ToolsComponentTable &operator=(const ToolsComponentTable &) = delete;

  ToolsComponent *lookup(std::string_view name) const;
  // Inserts `record` under a copy of `name`; false (record dropped) when the
  // name is present already.
  bool insert(std::string_view name, ToolsComponentPtr record);
  // Removes the entry and hands its record to the caller; null if absent.
  ToolsComponentPtr lookupAndDelete(std::string_view name);

  size_t size() const { return order_.size(); }

  // Calls fn(const std::string &name, ToolsComponent &record) in order.
  template <typename F>
  void forEach(F &&fn) const {
    for (const Node &node : order_) {
      fn(node.first, *node.second);
    }
  }

 private:
  using Node = std::pair<const std::string, ToolsComponentPtr>;
  std::list<Node> order_;
  std::unordered_map<std::string_view, std::list<Node>::iterator> index_;
};

enum ToolsManifestKind : uint32_t {
  TOOLS_MANIFEST_HOST = 0,
  TOOLS_MANIFEST_GUEST = 1,
  TOOLS_MANIFEST_AVR = 2,
};

struct ToolsDebugFlags {
  Bool componentsLog = FALSE;
  Bool resultLog = FALSE;
};

// What every entry of one manifest is applied with. A null `flags` (the
// guest manifest) also means that entry errors are dropped, not logged.
struct ToolsManifestContext {
  ToolsComponentTable *table;
  ToolsManifestKind kind;
  ToolsDebugFlags *flags;
};

// Parses a version into `out`; returns the position after it, or null when
// a number is missing. The parts are zeroed first; `depth` is written only
// on success. A number that does not fit in 32 bits is a missing number.
const char *toolsVersionParse(ToolsVersionValue *out, const char *text);

// "" for an unset value (unless `always`), "a.b.c.d" for depth 3, else
// "a.b.c.d#depth".
std::string toolsVersionFormat(const ToolsVersionValue *value, Bool always);

// Applies one manifest entry to the context's table.
void toolsManifestAddEntry(const char *name, const char *value,
                           ToolsManifestContext *ctx);

// Loads a host manifest or AVR file and applies every entry. False (table
// untouched) when the file cannot be loaded.
bool toolsManifestLoad(ToolsComponentTable *table, ToolsDebugFlags *flags,
                       ToolsManifestKind kind, const char *path);

// Component statuses; toolsStatusNames holds their names.
enum ToolsComponentStatus : uint32_t {
  TOOLS_COMPONENT_BLACKLISTED = 0,
  TOOLS_COMPONENT_TOO_OLD = 1,
  TOOLS_COMPONENT_TOO_NEW = 2,
  TOOLS_COMPONENT_SUPPORTED_OLD = 3,
  TOOLS_COMPONENT_SUPPORTED_NEW = 4,
  TOOLS_COMPONENT_CURRENT = 5,
  TOOLS_COMPONENT_ADDITIONAL = 6,
  TOOLS_COMPONENT_MISSING = 7,
  TOOLS_COMPONENT_NOT_INSTALLED = 8,
  TOOLS_COMPONENT_GONE = 9,
};
inline constexpr uint32_t kToolsComponentStatusCount = 10;
extern const char *const toolsStatusNames[kToolsComponentStatusCount];
// Overall status (0 to 5) -> public code.
extern const ToolsVersionStatus toolsStatusResult[6];

// Names of the components with each status, in table order; the names
// point into the table's keys.
using ToolsStatusLists =
    std::vector<const std::string *>[kToolsComponentStatusCount];

ToolsComponentStatus toolsComponentGetStatus(ToolsComponent *c);
void toolsSetAvrMinFromHost(ToolsComponentTable *table);

// Why the overall status is what it is.
enum class ToolsStatusReason {
  None,                   // everything current: nothing to explain
  Holders,                // the components (and perhaps the monolithic
                          // version) that have the overall status
  MonolithicWithMissing,  // the monolithic version's status, with
                          // components missing from the guest
};

// The whole decision: what to report and why.
struct ToolsStatusDecision {
  ToolsComponent monolithic;  // as judged
  ToolsStatusLists lists;     // names point into the table's keys
  ToolsComponentStatus overall = TOOLS_COMPONENT_CURRENT;
  ToolsStatusReason reason = ToolsStatusReason::None;
  bool monolithicCounts = false;  // Holders: led by the monolithic version
  ToolsVersionStatus status() const { return toolsStatusResult[overall]; }
};

// Judges every record once all three manifests are in the table; removes
// and frees the "monolithic" and "legacy" records.
ToolsStatusDecision toolsStatusDecide(ToolsComponentTable *table);
// The log lines of a decision: the component table and the lists when
// `flags` ask for them, then the reason.
void toolsStatusLog(const ToolsComponentTable &table,
                    const ToolsStatusDecision &decision,
                    const ToolsDebugFlags *flags);
// Decides, logs and returns the public code (1 to 6).
ToolsVersionStatus toolsStatusEvaluate(ToolsComponentTable *table,
                                       const ToolsDebugFlags *flags);

// One row of the component table, newline-terminated: the record `c`, or
// the column titles when it is null. `forLog` gives the log's layout.
std::string toolsComponentRow(const char *name, const ToolsComponent *c,
                              bool forLog);

}  // namespace gp::tools
