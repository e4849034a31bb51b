// Autoinstall answers for the installer of Ubuntu Server 20.04 and later:
// user-data and meta-data of cloud-init's NoCloud source on a volume
// labelled CIDATA. Every entry is a YAML double-quoted scalar.
#include <string>

#include "lib/medium/answer_escape.h"
#include "lib/medium/answer_template.h"
#include "lib/medium/install_entries.h"
#include "lib/medium/linux_answer_values.h"

namespace gp::medium {
namespace {

constexpr char kInstaller[] = "subiquity";
constexpr char kUserData[] = "user-data";
constexpr char kMetaData[] = "meta-data";

// Ubuntu's version is YY.MM; its autoinstall format came with 20.04.
bool supportedUbuntu(const OsFacts &os, std::string &error) {
  long year = leadingNumber(os.version);
  if (os.distro != "ubuntu" || year < 20) {
    error = os.name + " " + os.version +
            ": autoinstall answers are written for Ubuntu 20.04 and later";
    return false;
  }
  return true;
}

std::string quoted(const std::string &text) {
  // Every value here was checked to be UTF-8 on the way in.
  return yamlQuoted(text).value_or("\"\"");
}

bool fill(const InstallEntries &entries, const char *file,
          const TemplateValues &values, std::string &text, std::string &error) {
  std::string templ;
  return loadAnswerTemplate(entries, kInstaller, file, templ, error) &&
         fillAnswerTemplate(templ, values, file, text, error);
}

}  // namespace

bool writeAutoinstall(const Described &disc, const InstallEntries &entries,
                      Answer &out, std::string &error) {
  const OsFacts *os = installerFacts(disc, kInstaller, error);
  LinuxAnswerValues v;
  if (os == nullptr || !supportedUbuntu(*os, error) ||
      !prepareLinuxValues(entries, UserNameRules::LetterFirst, v, error)) {
    return false;
  }
  // Ubuntu keeps root locked and gives the user sudo; root gets the
  // password the user chose for it all the same.
  std::string rootCommand = "curtin in-target --target=/target -- usermod -p " +
                            kickstartWord(v.rootHash) + " root";
  TemplateValues values = {
      {"os_name", isOneLineText(os->name) ? os->name : ""},
      {"os_version", isOneLineText(os->version) ? os->version : ""},
      {"locale", quoted(v.locale)},
      {"keyboard", quoted(v.xkbLayout)},
      {"hostname", quoted(v.hostname)},
      {"full_name", quoted(v.fullName)},
      {"user", quoted(v.user)},
      {"user_hash", quoted(v.userHash)},
      {"storage_layout", quoted("lvm")},
      {"root_command", quoted(rootCommand)},
      {"time_zone", quoted(v.timeZone)},
      {"shutdown", quoted(entries.powerOff ? "poweroff" : "reboot")},
      {"instance_id", quoted("guestprep-" + v.hostname)},
  };
  std::string userData, metaData;
  if (!fill(entries, kUserData, values, userData, error) ||
      !fill(entries, kMetaData, values, metaData, error)) {
    return false;
  }
  out.installer = kInstaller;
  out.volumeLabel = "CIDATA";
  out.files = {{kUserData, std::move(userData)},
               {kMetaData, std::move(metaData)}};
  return true;
}

}  // namespace gp::medium
