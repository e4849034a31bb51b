// Windows guests: the per-guest limits and reserved account names, which
// Windows releases can be installed unattended, and the characters that a
// Windows account name may not hold.
#include <cstring>

#include "lib/guestInstall/autoinstallFamilies.h"
#include "platform/abi.h"
#include "platform/msgcatalog.h"
#include "platform/strutil.h"

namespace gp::autoinstall {
namespace {

// Names that older releases keep for built-in accounts, localised ones
// included.
const AutoInstallReservedName kReservedNamesA[] = {
    {"administra", 1}, {"amministratore", 0}, {"guest", 0}, {"guests", 0},
    {"gast", 0},       {"invitado", 0},       {nullptr, 0},
};

const AutoInstallReservedName kReservedNamesB[] = {
    {"administra", 1}, {"amministratore", 0}, {"guest", 0},
    {"guests", 0},     {nullptr, 0},
};

// Tested in this order; the first prefix that matches decides.
const char *const kSupportedWindowsPrefixes[] = {
    "winXP", "winVista", "winNet", "longhorn", "windows7", "windows8", nullptr,
};

// Account names end up in the answer files and in the SAM, which refuse
// these.
constexpr const char kRefusedNameChars[] = "/\\[]\":;|<>+=,?*";

constexpr const char kBadWindowsName[] =
    "@&!*@*@(msg.autoinstall.bad_windows_name)The name must not contain the "
    "following characters:\n'/\\[]\":;|<>+=,?*'\nEnter a new value.";

}  // namespace

const AutoInstallGuestRule kWindowsRules[] = {
    {"*", "*", {0, 0}, 50, 0, kReservedNamesA},
    {"winnet", "*", {1, 0}, 50, 0, kReservedNamesA},
    {"win2000", "*", {1, 1}, 50, 0, kReservedNamesA},
    {"winxp", "*", {1, 1}, 50, 0, kReservedNamesA},
    {"winvista", "*", {1, 1}, 20, 0, kReservedNamesB},
    {"windows7", "*", {1, 1}, 20, 0, kReservedNamesB},
    {"longhorn", "*", {1, 1}, 20, 0, kReservedNamesB},
    {nullptr, nullptr, {0, 0}, 0, 0, nullptr},
};

}  // namespace gp::autoinstall

using namespace gp::autoinstall;

GP_EXPORT Bool AutoInstallIsSupportedWindowsGuest(const GuessInfo *info) {
  if (info == nullptr || info->osName == nullptr) {
    return FALSE;
  }
  for (const char *const *p = kSupportedWindowsPrefixes; *p != nullptr; ++p) {
    if (gp::str::startsWithCaseless(info->osName, *p)) {
      return TRUE;
    }
  }
  return FALSE;
}

GP_EXPORT AutoInstallValidation AutoInstallValidateWindowsText(
    const GuessInfo * /*info*/, const char *text, int kind, char **message) {
  return gp::abiGuard<AutoInstallValidation>(
      AUTOINSTALL_VALID, [&]() -> AutoInstallValidation {
        if (kind != AUTOINSTALL_TEXT_NAME || text == nullptr ||
            std::strpbrk(text, kRefusedNameChars) == nullptr) {
          return AUTOINSTALL_VALID;
        }
        if (message != nullptr) {
          *message = gp::msg::getHeap(kBadWindowsName);
        }
        return AUTOINSTALL_BAD_WINDOWS_NAME;
      });
}
