// Linux guests: their limits, which distributions and releases can be
// installed unattended, and what user names, full names and passwords the
// answer files can carry.
#include <cstring>

#include "lib/guestInstall/autoinstallFamilies.h"
#include "lib/guestInstall/autoinstallGuestLinux.h"
#include "platform/abi.h"
#include "platform/fatal.h"
#include "platform/msgcatalog.h"

namespace gp::autoinstall {
namespace {

// The full name goes into the passwd GECOS field, where these separate
// subfields or break the installers' quoting.
constexpr const char kRefusedFullNameChars[] = ":\"\\,";

// The AutoYaST profile holds the full name and the password in XML
// character data, which this sequence would end.
constexpr const char kCdataEnd[] = "]]>";

constexpr const char kBadLinuxName[] =
    "@&!*@*@(msg.autoinstall.bad_linux_name)The full name does not allow the "
    "following characters: ':\"\\,'\nEnter a new value.";
constexpr const char kBadPasswordSubstring[] =
    "@&!*@*@(msg.autoinstall.bad_password_substring)The password must not "
    "contain the characters ']]>' in a row.\nEnter a new value.";
constexpr const char kBadGecosSubstring[] =
    "@&!*@*@(msg.autoinstall.bad_gecos_substring)The full name must not "
    "contain the characters ']]>' in a row.\nEnter a new value.";
constexpr const char kBadLinuxUsername[] =
    "@&!*@*@(msg.autoinstall.bad_linux_username)The user name must consist "
    "only of lowercase US English characters, numbers 0 to 9 and dashes.\n"
    "Enter a new value.";
constexpr const char kBadUbuntuUsername[] =
    "@&!*@*@(msg.autoinstall.bad_ubuntu_username)The user name must start "
    "with a lowercase US English character.\nEnter a new value.";

bool isLowerAscii(char c) { return c >= 'a' && c <= 'z'; }

bool isUserNameChar(char c) {
  return isLowerAscii(c) || (c >= '0' && c <= '9') || c == '-';
}

AutoInstallValidation validateUserName(const GuessInfo *info,
                                       const char *text) {
  const char *osName = info != nullptr ? info->osName : nullptr;
  // The Ubuntu installer also insists on a letter first.
  if (autoInstallGetLinuxKind(osName) == LINUX_KIND_UBUNTU &&
      !isLowerAscii(text[0])) {
    return AUTOINSTALL_BAD_UBUNTU_USERNAME;
  }
  for (const char *p = text; *p != '\0'; ++p) {
    if (!isUserNameChar(*p)) {
      return AUTOINSTALL_BAD_LINUX_USERNAME;
    }
  }
  return AUTOINSTALL_VALID;
}

AutoInstallValidation validateFullName(const char *text) {
  if (std::strpbrk(text, kRefusedFullNameChars) != nullptr) {
    return AUTOINSTALL_BAD_LINUX_NAME;
  }
  if (std::strstr(text, kCdataEnd) != nullptr) {
    return AUTOINSTALL_BAD_GECOS_SUBSTRING;
  }
  return AUTOINSTALL_VALID;
}

AutoInstallValidation validateLinuxText(const GuessInfo *info, const char *text,
                                        int kind) {
  switch (kind) {
    case AUTOINSTALL_TEXT_SHORT_NAME:
      return validateUserName(info, text);
    case AUTOINSTALL_TEXT_NAME:
      return validateFullName(text);
    case AUTOINSTALL_TEXT_PASSWORD:
      // Anything else, quotes included, is escaped or hashed on the way
      // into the answer file.
      return std::strstr(text, kCdataEnd) != nullptr
                 ? AUTOINSTALL_BAD_PASSWORD_SUBSTRING
                 : AUTOINSTALL_VALID;
    default:
      return AUTOINSTALL_VALID;
  }
}

const char *linuxMessage(AutoInstallValidation result) {
  switch (result) {
    case AUTOINSTALL_BAD_LINUX_NAME:
      return kBadLinuxName;
    case AUTOINSTALL_BAD_PASSWORD_SUBSTRING:
      return kBadPasswordSubstring;
    case AUTOINSTALL_BAD_GECOS_SUBSTRING:
      return kBadGecosSubstring;
    case AUTOINSTALL_BAD_LINUX_USERNAME:
      return kBadLinuxUsername;
    case AUTOINSTALL_BAD_UBUNTU_USERNAME:
      return kBadUbuntuUsername;
    default:
      GP_NOT_REACHED(kLinuxModule);
  }
}

// Which releases of a kind have an installer that takes our answer file.
bool isSupportedLinux(const char *osName, uint32_t subVersion) {
  switch (autoInstallGetLinuxKind(osName)) {
    case LINUX_KIND_NONE:
      return false;
    case LINUX_KIND_REDHAT:
      return std::strcmp(osName, "rhel2") != 0 &&
             std::strcmp(osName, "redhat") != 0 &&
             subVersion != GUESS_VERSION_FEDORA_8 &&
             subVersion != GUESS_VERSION_FEDORA_13;
    case LINUX_KIND_UBUNTU:
      return subVersion != GUESS_VERSION_UNKNOWN &&
             subVersion != GUESS_VERSION_UBUNTU_SERVER_804_OR_LOWER &&
             subVersion != GUESS_VERSION_UBUNTU_704_OR_LOWER;
    case LINUX_KIND_SUSE11:
    case LINUX_KIND_SUSE10:
      return subVersion != GUESS_VERSION_OPENSUSE_11_2_OR_LOWER &&
             subVersion != GUESS_VERSION_SLES_10_SP2_OR_LOWER &&
             subVersion != GUESS_VERSION_SLED_10_SP2_OR_LOWER;
    case LINUX_KIND_MANDRIVA:
      // The answer file and floppy exist, but the installer does not
      // finish unattended.
      return false;
  }
  GP_NOT_REACHED(kLinuxModule);
}

}  // namespace

const AutoInstallReservedName kLinuxReservedShortNames[] = {
    {"root", 0},
    {nullptr, 0},
};

const AutoInstallGuestRule kLinuxRules[] = {
    {"*", "*", {0, 0}, 52, 0, nullptr},
    {nullptr, nullptr, {0, 0}, 0, 0, nullptr},
};

}  // namespace gp::autoinstall

using namespace gp::autoinstall;

GP_EXPORT Bool AutoInstallIsSupportedLinuxGuest(const GuessInfo *info) {
  if (info == nullptr || info->osName == nullptr) {
    return FALSE;
  }
  return isSupportedLinux(info->osName, info->subVersion) ? TRUE : FALSE;
}

GP_EXPORT Bool AutoInstall_NeedsFloppy_Linux(const char *osName) {
  return autoInstallLinuxNeedsFloppy(autoInstallGetLinuxKind(osName)) ? TRUE
                                                                      : FALSE;
}

GP_EXPORT AutoInstallValidation AutoInstallValidateLinuxText(
    const GuessInfo *info, const char *text, int kind, char **message) {
  return gp::abiGuard<AutoInstallValidation>(
      AUTOINSTALL_VALID, [&]() -> AutoInstallValidation {
        AutoInstallValidation result =
            validateLinuxText(info, text != nullptr ? text : "", kind);
        if (result != AUTOINSTALL_VALID && message != nullptr) {
          *message = gp::msg::getHeap(linuxMessage(result));
        }
        return result;
      });
}
