// Builds Linux answer files from arbitrary user entries. Checks that the
// quote escaping is reversible and that an AutoYaST profile stays
// well-formed XML with the full name intact whenever the entries are what
// the input validation lets through (no "]]>" in the full name, a plain
// user name).
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "lib/guestInstall/autoinstallGuestLinux_answer.h"

namespace {

using gp::autoinstall::AutoInstallLinuxKind;

struct DocFree {
  void operator()(xmlDoc *doc) const { xmlFreeDoc(doc); }
};
struct XmlStringFree {
  void operator()(xmlChar *s) const { xmlFree(s); }
};

void check(bool ok) {
  if (!ok) {
    std::abort();
  }
}

// Undoes the escaping: every quote must have been preceded by a backslash.
void checkEscaping(const std::string &text) {
  std::string escaped = gp::autoinstall::autoInstallEscapeQuotes(text);
  std::string undone;
  for (size_t i = 0; i < escaped.size(); ++i) {
    if (escaped[i] == '"') {
      check(!undone.empty() && undone.back() == '\\');
      undone.back() = '"';
    } else {
      undone.push_back(escaped[i]);
    }
  }
  check(undone == text);
}

bool plainAscii(const std::string &s) {
  for (unsigned char c : s) {
    if (c < 0x20 || c > 0x7e) {
      return false;
    }
  }
  return true;
}

bool plainUserName(const std::string &s) {
  return s.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-") ==
         std::string::npos;
}

// Element contents named `name`, in document order. The profile is the
// library's own template, so its depth is small and fixed.
void collect(xmlNode *node, const char *name, std::vector<std::string> &out) {
  for (; node != nullptr; node = node->next) {
    if (node->type != XML_ELEMENT_NODE) {
      continue;
    }
    if (std::strcmp(reinterpret_cast<const char *>(node->name), name) == 0) {
      std::unique_ptr<xmlChar, XmlStringFree> text(xmlNodeGetContent(node));
      out.emplace_back(reinterpret_cast<const char *>(text.get()));
    }
    collect(node->children, name, out);
  }
}

// The second forename element holds the user's full name.
void checkProfile(const std::string &xml, const std::string &fullName) {
  std::unique_ptr<xmlDoc, DocFree> doc(xmlReadMemory(
      xml.data(), static_cast<int>(xml.size()), "autoinst.xml", nullptr,
      XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
  check(doc != nullptr);
  std::vector<std::string> forenames;
  collect(xmlDocGetRootElement(doc.get()), "forename", forenames);
  check(forenames.size() == 2 && forenames[1] == fullName);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 3) {
    return 0;
  }
  static const char *const kNames[] = {
      "rhel4",  "rhel6-64", "centos",   "fedora",   "asianux3", "ubuntu-64",
      "sles11", "sles10",   "opensuse", "mandriva", "debian5",  "rhel"};
  const char *osName = kNames[data[0] % (sizeof kNames / sizeof kNames[0])];
  auto subVersion = static_cast<GuessVersion>(data[1] % 22);
  const bool powerOff = (data[2] & 1) != 0;

  // User name, full name, password, root password, product key: separated
  // by NUL bytes.
  std::vector<std::string> fields(5);
  size_t field = 0;
  for (size_t i = 3; i < size; ++i) {
    if (data[i] == 0) {
      if (++field == fields.size()) {
        break;
      }
      continue;
    }
    fields[field].push_back(static_cast<char>(data[i]));
  }
  for (const std::string &f : fields) {
    checkEscaping(f);
  }

  AutoInstallLinuxKind kind = gp::autoinstall::autoInstallGetLinuxKind(osName);
  if (kind == gp::autoinstall::LINUX_KIND_NONE) {
    return 0;
  }
  const gp::autoinstall::LinuxAnswerInput in = {osName,
                                                subVersion,
                                                fields[0].c_str(),
                                                fields[1].c_str(),
                                                fields[2].c_str(),
                                                fields[3].c_str(),
                                                fields[4].c_str(),
                                                powerOff};
  std::string text;
  check(gp::autoinstall::autoInstallLinuxAnswerText(kind, in, text));
  check(text.find(fields[0]) != std::string::npos);

  const bool suse = kind == gp::autoinstall::LINUX_KIND_SUSE11 ||
                    kind == gp::autoinstall::LINUX_KIND_SUSE10;
  if (suse && plainUserName(fields[0]) && plainAscii(fields[1]) &&
      fields[1].find("]]>") == std::string::npos) {
    checkProfile(text, fields[1]);
  }
  return 0;
}
