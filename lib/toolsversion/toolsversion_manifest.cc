// Version values, the component table, and how manifest entries land in it.
#include <cstdio>
#include <cstring>

#include "lib/toolsversion/toolsversion_internal.h"
#include "platform/configdict.h"
#include "platform/log.h"
#include "platform/msgcatalog.h"
#include "platform/strutil.h"

namespace gp::tools {
namespace {

constexpr size_t kTableBuckets = 128;

// Reads the decimal number at `*pos` (after blanks, so that lists may be
// written "1.0, 2.0") into `out` and moves past it. Fails when no digit
// stands there or the number does not fit in 32 bits, so a 40-digit part is
// refused rather than wrapped.
bool readNumber(const char **pos, uint32_t *out) {
  const char *p = *pos;
  while (*p == ' ' || *p == '\t') {
    ++p;
  }
  if (*p < '0' || *p > '9') {
    return false;
  }
  uint64_t n = 0;
  for (; *p >= '0' && *p <= '9'; ++p) {
    n = n * 10 + static_cast<uint64_t>(*p - '0');
    if (n > UINT32_MAX) {
      return false;
    }
  }
  *out = static_cast<uint32_t>(n);
  *pos = p;
  return true;
}

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' ||
         c == '\f';
}

enum class EntryKind { kVersion, kMaximum, kIllegal, kInstalled };

void reportEntryError(const ToolsManifestContext *ctx, const char *error,
                      const char *name, const char *value) {
  if (ctx->flags != nullptr) {
    logf("ToolsVersion: %s: %s = %s\n", error, name, value);
  }
}

// What the entry's suffix means in this kind of file. False
// when the entry is an error or is consumed here (".log").
bool classifyEntry(std::string_view name, std::string_view suffix,
                   const char *value, ToolsManifestContext *ctx,
                   EntryKind *kind) {
  using str::equalsCaseless;
  const char *error = nullptr;
  if (equalsCaseless(suffix, ".version")) {
    *kind = EntryKind::kVersion;
  } else if (equalsCaseless(suffix, ".version_max")) {
    *kind = EntryKind::kMaximum;
    if (ctx->kind != TOOLS_MANIFEST_AVR) {
      error = "Maximum version in non-AVR file";
    }
  } else if (equalsCaseless(suffix, ".version_illegal")) {
    *kind = EntryKind::kIllegal;
    if (ctx->kind != TOOLS_MANIFEST_AVR) {
      error = "Illegal version in non-AVR file";
    }
  } else if (equalsCaseless(suffix, ".installed")) {
    *kind = EntryKind::kInstalled;
    if (ctx->kind != TOOLS_MANIFEST_GUEST) {
      error = "Installed flag in non-guest file";
    }
  } else if (equalsCaseless(suffix, ".log")) {
    if (ctx->flags == nullptr) {
      return false;
    }
    if (equalsCaseless(name, "result.log")) {
      ctx->flags->resultLog = ConfigDict::valueToBool(value, false);
    } else if (equalsCaseless(name, "components.log")) {
      ctx->flags->componentsLog = ConfigDict::valueToBool(value, false);
    } else {
      error = "Unknown debug entry";
    }
    if (error == nullptr) {
      return false;
    }
  } else {
    error = "Unknown entry";
  }
  if (error != nullptr) {
    reportEntryError(ctx, error, std::string(name).c_str(), value);
    return false;
  }
  return true;
}

void applyVersion(ToolsVersionValue *slot, const char *name, const char *value,
                  ToolsManifestContext *ctx) {
  if (slot->depth != 0) {
    reportEntryError(ctx, "Multiple identical entries", name, value);
    return;
  }
  const char *end = toolsVersionParse(slot, value);
  if (end == nullptr) {
    reportEntryError(ctx, "Cannot parse version", name, value);
    return;
  }
  while (isSpace(*end)) {
    ++end;
  }
  if (*end != '\0') {
    reportEntryError(ctx, "Cannot parse version", name, value);
  }
}

void applyIllegal(ToolsComponent *c, const char *name, const char *value,
                  ToolsManifestContext *ctx) {
  const char *pos = value;
  for (;;) {
    ToolsVersionValue v;
    const char *end = toolsVersionParse(&v, pos);
    if (end == nullptr) {
      reportEntryError(ctx, "Cannot parse illegal version", name, value);
      return;
    }
    c->illegal.push_back(v);
    pos = end;
    while (isSpace(*pos)) {
      ++pos;
    }
    if (*pos == '\0') {
      return;
    }
    if (*pos != ',') {
      reportEntryError(ctx, "Cannot parse illegal version", name, value);
      return;
    }
    ++pos;
  }
}

void addEntryCallback(const char *name, const char *value, void *ctx) {
  toolsManifestAddEntry(name, value, static_cast<ToolsManifestContext *>(ctx));
}

}  // namespace

const char *toolsVersionParse(ToolsVersionValue *out, const char *text) {
  std::memset(out->parts, 0, sizeof out->parts);
  const char *pos = text;
  for (size_t index = 0;; ++index) {
    uint32_t n;
    if (!readNumber(&pos, &n)) {
      return nullptr;
    }
    if (index < 4) {
      out->parts[index] = n;
    }
    if (*pos != '.') {
      break;
    }
    ++pos;
  }
  uint32_t depth = 3;
  if (*pos == '#') {
    ++pos;
    uint32_t n;
    if (!readNumber(&pos, &n)) {
      return nullptr;
    }
    depth = n < 5 ? n : 4;
  }
  out->depth = depth;
  return pos;
}

std::string toolsVersionFormat(const ToolsVersionValue *value, Bool always) {
  if (value->depth == 0 && !always) {
    return "";
  }
  char buf[64];
  const uint32_t *p = value->parts;
  if (value->depth == 3) {
    std::snprintf(buf, sizeof buf, "%u.%u.%u.%u", p[0], p[1], p[2], p[3]);
  } else {
    std::snprintf(buf, sizeof buf, "%u.%u.%u.%u#%u", p[0], p[1], p[2], p[3],
                  value->depth);
  }
  return buf;
}

ToolsComponentPtr toolsComponentNew() {
  return std::make_unique<ToolsComponent>();
}

void toolsComponentFree(ToolsComponentPtr record) { record.reset(); }

ToolsComponentTable::ToolsComponentTable() : index_(kTableBuckets) {}

ToolsComponent *ToolsComponentTable::lookup(std::string_view name) const {
  auto it = index_.find(name);
  return it == index_.end() ? nullptr : it->second->second.get();
}

bool ToolsComponentTable::insert(std::string_view name,
                                 ToolsComponentPtr record) {
  if (index_.count(name) != 0) {
    return false;
  }
  order_.emplace_back(std::string(name), std::move(record));
  auto node = std::prev(order_.end());
  index_.emplace(std::string_view(node->first), node);
  return true;
}

ToolsComponentPtr ToolsComponentTable::lookupAndDelete(std::string_view name) {
  auto it = index_.find(name);
  if (it == index_.end()) {
    return nullptr;
  }
  auto node = it->second;
  ToolsComponentPtr record = std::move(node->second);
  index_.erase(it);
  order_.erase(node);
  return record;
}

void toolsManifestAddEntry(const char *name, const char *value,
                           ToolsManifestContext *ctx) {
  std::string_view full(name);
  size_t dot = full.rfind('.');
  if (dot == std::string_view::npos) {
    reportEntryError(ctx, "No '.' in the name", name, value);
    return;
  }
  EntryKind kind;
  if (!classifyEntry(full, full.substr(dot), value, ctx, &kind)) {
    return;
  }
  std::string component(full.substr(0, dot));
  ToolsComponent *c = ctx->table->lookup(component);
  if (c == nullptr) {
    ToolsComponentPtr fresh = toolsComponentNew();
    c = fresh.get();
    ctx->table->insert(component, std::move(fresh));
  }
  switch (kind) {
    case EntryKind::kInstalled:
      c->installed = ConfigDict::valueToBool(value, false) ? TRUE : FALSE;
      break;
    case EntryKind::kMaximum:
      applyVersion(&c->avrMax, name, value, ctx);
      break;
    case EntryKind::kVersion: {
      ToolsVersionValue *slot = ctx->kind == TOOLS_MANIFEST_HOST ? &c->host
                                : ctx->kind == TOOLS_MANIFEST_GUEST
                                    ? &c->guest
                                    : &c->avrMin;
      applyVersion(slot, name, value, ctx);
      break;
    }
    case EntryKind::kIllegal:
      applyIllegal(c, name, value, ctx);
      break;
  }
}

bool toolsManifestLoad(ToolsComponentTable *table, ToolsDebugFlags *flags,
                       ToolsManifestKind kind, const char *path) {
  // Creating a dictionary cannot fail: allocation failure stops the process.
  ConfigDict dict;
  if (!dict.loadFile(path)) {
    logf("ToolsVersion: Error loading dictionary from host manifest: %s.\n",
         msg::takePending().c_str());
    return false;
  }
  ToolsManifestContext ctx{table, kind, flags};
  dict.iterate(addEntryCallback, &ctx);
  return true;
}

}  // namespace gp::tools
