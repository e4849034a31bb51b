// Display names of the install images on Windows Vista-or-newer media.
// An image name is "<product> <EDITION><suffix>", e.g. "Windows Longhorn
// SERVERDATACENTERVCORE"; each part is looked up in its own table and the
// display texts are joined through one localisable format, so a
// translation may reorder them.
#include <cstring>
#include <string>
#include <string_view>

#include "guestprep/autoinstall.h"
#include "platform/abi.h"
#include "platform/fatal.h"
#include "platform/msgcatalog.h"

namespace gp::autoinstall {
namespace {

struct WindowsPrefixName {
  const char *key;
  const char *message;
};

struct WindowsEditionName {
  const char *key;
  const char *message;
};

struct WindowsSuffixName {
  const char *key;
  const char *message;
};

const WindowsPrefixName kPrefixNames[] = {
    {"Windows Longhorn",
     "@&!*@*@(msg.autoinstall.winpfx_2k8)Windows Server 2008"},
    {"Windows Server 2008 R2",
     "@&!*@*@(msg.autoinstall.winpfx_2k8r2)Windows Server 2008 R2"},
    {nullptr, nullptr},
};

// Display texts of editions and suffixes carry their leading blank, so the
// parts join without separators.
const WindowsEditionName kEditionNames[] = {
    {"STARTER", "@&!*@*@(msg.autoinstall.win_starter) Starter"},
    {"HOMEBASIC", "@&!*@*@(msg.autoinstall.win_homebasic) Home Basic"},
    {"HOMEPREMIUM", "@&!*@*@(msg.autoinstall.win_homepremium) Home Premium"},
    {"PROFESSIONAL", "@&!*@*@(msg.autoinstall.win_pro) Professional"},
    {"BUSINESS", "@&!*@*@(msg.autoinstall.win_business) Business"},
    {"ENTERPRISE", "@&!*@*@(msg.autoinstall.win_enterprise) Enterprise"},
    {"ULTIMATE", "@&!*@*@(msg.autoinstall.win_ultimate) Ultimate"},
    {"SERVERSTANDARD", "@&!*@*@(msg.autoinstall.winsrv_standard) Standard"},
    {"SERVERWEB", "@&!*@*@(msg.autoinstall.winsrv_web) Web Edition"},
    {"SERVERDATACENTER",
     "@&!*@*@(msg.autoinstall.winsrv_datacenter) Datacenter"},
    {"SERVERENTERPRISE",
     "@&!*@*@(msg.autoinstall.winsrv_enterprise) Enterprise"},
    {"SERVERSBSSTANDARD",
     "@&!*@*@(msg.autoinstall.winsrv_sbs_std) Small Business Standard"},
    {"SERVERSBSPRIME",
     "@&!*@*@(msg.autoinstall.winsrv_sbs_found) Small Business Foundation"},
    {"SERVERSBSPREMIUM",
     "@&!*@*@(msg.autoinstall.winsrv_sbs_premium) Small Business Premium"},
    {nullptr, nullptr},
};

const WindowsSuffixName kSuffixNames[] = {
    {"N", "@&!*@*@(msg.autoinstall.winsfx_n) N"},
    {"V", "@&!*@*@(msg.autoinstall.winsfx_v) without Hyper-V"},
    {"CORE", "@&!*@*@(msg.autoinstall.winsfx_core) Core"},
    {"VCORE", "@&!*@*@(msg.autoinstall.winsfx_vcore) Core without Hyper-V"},
    {"K", "@&!*@*@(msg.autoinstall.winsfx_k) K"},
    {"KN", "@&!*@*@(msg.autoinstall.winsfx_kn) KN"},
    {nullptr, nullptr},
};

constexpr const char kPrettyFormat[] =
    "@&!*@*@(msg.autoinstall.prettyFormat)%s%s%s";

// Media name products by an older or shorter label than the one users know:
// a product text that begins a key takes that key's name.
std::string prefixDisplay(std::string_view prefix) {
  for (const WindowsPrefixName *row = kPrefixNames; row->key != nullptr;
       ++row) {
    if (std::strncmp(row->key, prefix.data(), prefix.size()) == 0 &&
        std::strlen(row->key) >= prefix.size()) {
      return msg::get(row->message);
    }
  }
  return std::string(prefix);
}

const WindowsEditionName *findEdition(std::string_view edition) {
  for (const WindowsEditionName *row = kEditionNames; row->key != nullptr;
       ++row) {
    if (edition == row->key) {
      return row;
    }
  }
  for (const WindowsEditionName *row = kEditionNames; row->key != nullptr;
       ++row) {
    if (edition.substr(0, std::strlen(row->key)) == row->key) {
      return row;
    }
  }
  return nullptr;
}

// A suffix we do not know is left out rather than shown raw.
std::string suffixDisplay(std::string_view rest) {
  for (const WindowsSuffixName *row = kSuffixNames; row->key != nullptr;
       ++row) {
    if (rest == row->key) {
      return msg::get(row->message);
    }
  }
  return std::string();
}

std::string prettyWindowsName(std::string_view imageName) {
  std::string_view::size_type blank = imageName.rfind(' ');
  if (blank == std::string_view::npos) {
    return std::string(imageName);
  }
  std::string_view prefix = imageName.substr(0, blank);
  std::string_view edition = imageName.substr(blank + 1);
  const WindowsEditionName *row = findEdition(edition);
  if (row == nullptr) {
    return std::string(imageName);
  }
  std::string suffix;
  size_t keyLength = std::strlen(row->key);
  if (edition.size() > keyLength) {
    suffix = suffixDisplay(edition.substr(keyLength));
  }
  return msg::format(kPrettyFormat,
                     {prefixDisplay(prefix), msg::get(row->message), suffix});
}

}  // namespace
}  // namespace gp::autoinstall

GP_EXPORT char *AutoInstall_GetPrettyWindowsName(const char *imageName) {
  if (imageName == nullptr) {
    return nullptr;
  }
  return gp::abiGuard(static_cast<char *>(nullptr), [&] {
    return gp::heapCopy(gp::autoinstall::prettyWindowsName(imageName));
  });
}
