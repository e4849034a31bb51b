// Builds Linux answer files from arbitrary user entries. The quote escaping
// must be reversible; an entry may only be refused when no file could hold
// it literally; and an AutoYaST profile must be well-formed XML that holds
// the user name and the full name exactly as given.
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "lib/guestInstall/autoinstallGuestLinux_answer.h"

namespace {

namespace ai = gp::autoinstall;

void check(bool ok) {
  if (!ok) std::abort();
}

// Every quote must have been preceded by a backslash.
void checkEscaping(const std::string &text) {
  std::string escaped = ai::autoInstallEscapeQuotes(text), undone;
  for (char c : escaped) {
    if (c == '"') {
      check(!undone.empty() && undone.back() == '\\');
      undone.back() = '"';
    } else {
      undone.push_back(c);
    }
  }
  check(undone == text);
}

// The contents of the elements called `name`, in document order.
void elements(xmlNode *node, const char *name, std::vector<std::string> &out) {
  for (; node != nullptr; node = node->next) {
    if (node->type == XML_ELEMENT_NODE &&
        std::strcmp(reinterpret_cast<const char *>(node->name), name) == 0) {
      xmlChar *text = xmlNodeGetContent(node);
      out.emplace_back(reinterpret_cast<const char *>(text));
      xmlFree(text);
    }
    elements(node->children, name, out);
  }
}

bool hasControl(const std::string &s) {
  for (unsigned char c : s) {
    if ((c < 0x20 && c != '\t') || c == 0x7f) return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 3) return 0;
  static const char *const kNames[] = {
      "rhel4",  "rhel6-64", "centos",   "fedora",   "asianux3", "ubuntu-64",
      "sles11", "sles10",   "opensuse", "mandriva", "debian5",  "rhel"};
  const char *osName = kNames[data[0] % (sizeof kNames / sizeof kNames[0])];
  // User name, full name, password, root password, product key: NUL-separated.
  std::vector<std::string> f(5);
  for (size_t i = 3, field = 0; i < size && field < f.size(); ++i) {
    if (data[i] == 0) {
      ++field;
    } else {
      f[field].push_back(static_cast<char>(data[i]));
    }
  }
  for (const std::string &s : f) checkEscaping(s);

  ai::AutoInstallLinuxKind kind = ai::autoInstallGetLinuxKind(osName);
  if (kind == ai::LINUX_KIND_NONE) return 0;
  const ai::LinuxAnswerInput in = {
      osName,       static_cast<GuessVersion>(data[1] % 22),
      f[0].c_str(), f[1].c_str(),
      f[2].c_str(), f[3].c_str(),
      f[4].c_str(), (data[2] & 1) != 0};
  std::string text;
  bool suse = kind == ai::LINUX_KIND_SUSE11 || kind == ai::LINUX_KIND_SUSE10;
  if (!ai::autoInstallLinuxAnswerText(kind, in, text)) {
    // Line breaks in names or the key, a preseed name ending in a
    // backslash, AutoYaST names that are no XML text.
    bool preseed = kind == ai::LINUX_KIND_UBUNTU;
    bool endsInBackslash = (!f[0].empty() && f[0].back() == '\\') ||
                           (!f[1].empty() && f[1].back() == '\\');
    check(hasControl(f[0]) || hasControl(f[1]) ||
          (kind == ai::LINUX_KIND_REDHAT && hasControl(f[4])) ||
          (preseed && endsInBackslash) || suse);
    return 0;
  }
  if (suse) {
    xmlDoc *doc = xmlReadMemory(
        text.data(), static_cast<int>(text.size()), "autoinst.xml", nullptr,
        XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    check(doc != nullptr);
    std::vector<std::string> users, names;
    elements(xmlDocGetRootElement(doc), "username", users);
    elements(xmlDocGetRootElement(doc), "forename", names);
    xmlFreeDoc(doc);
    // The second user is the guest's own.
    check(users.size() == 2 && users[1] == f[0]);
    check(names.size() == 2 && names[1] == f[1]);
  }
  return 0;
}
