// Finds the description of the SCSI driver in a txtsetup.oem and names it
// in winnt.sif, so that Windows setup loads the driver from the floppy
// without asking.
#include "lib/guestInstall/autoinstallGuestWindows_oem.h"

#include "guestprep/autoinstall.h"
#include "guestprep/iniutil.h"
#include "platform/abi.h"
#include "platform/hostio.h"

namespace gp::autoinstall {
namespace {

// The virtual machine's own driver first, then LSI Logic drivers for
// 32-bit, x64 and Itanium Windows. The first key found decides.
constexpr const char *kDriverKeys[] = {
    "ZTSCSI",      "SYMMPI_32",   "LSI_SCSI_AMD64", "LSI_SAS_AMD64",
    "SYMMPI_1068", "LSI_SAS_32",  "LSI_SAS_X64",    "LSI_SCSI_IA64",
    "LSI_SCSI_32", "SYMMPI_IA64",
};

void writeOemDriverInfo(const char *txtsetupOemPath, const char *winntPath) {
  if (txtsetupOemPath == nullptr || winntPath == nullptr) {
    return;
  }
  std::string text;
  if (!readWholeFile(txtsetupOemPath, text, kMaxTxtsetupOemSize) ||
      text.empty()) {
    return;
  }
  std::optional<std::string> description = oemDriverDescription(text);
  if (!description) {
    return;
  }
  // Setup finds the entry or not; there is nothing to tell the caller.
  IniUtil_WriteIniFileString(winntPath, "MassStorageDrivers",
                             description->c_str(), "OEM", FALSE);
}

}  // namespace

std::optional<std::string> oemDriverDescription(std::string_view text) {
  text = text.substr(0, text.find('\0'));
  for (const char *key : kDriverKeys) {
    const size_t at = text.find(key);
    if (at == std::string_view::npos) {
      continue;
    }
    const size_t open = text.find('"', at);
    if (open == std::string_view::npos) {
      continue;
    }
    const size_t close = text.find('"', open + 1);
    if (close == std::string_view::npos) {
      continue;
    }
    return std::string(text.substr(open, close - open + 1));
  }
  return std::nullopt;
}

}  // namespace gp::autoinstall

GP_EXPORT void WriteOEMDriverInfo(const char *txtsetupOemPath,
                                  const char *winntPath) {
  gp::abiGuardVoid([&]() {
    gp::autoinstall::writeOemDriverInfo(txtsetupOemPath, winntPath);
  });
}
