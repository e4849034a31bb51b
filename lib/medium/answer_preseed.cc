// Preseed answers for the installer of Debian 11 and later. Its installer
// looks for no answer volume, so the disc is remastered with preseed.cfg;
// each entry is the rest of a debconf selection line.
#include <string>

#include "lib/medium/answer_escape.h"
#include "lib/medium/answer_template.h"
#include "lib/medium/install_entries.h"
#include "lib/medium/linux_answer_values.h"

namespace gp::medium {
namespace {

constexpr char kInstaller[] = "debian-installer";
constexpr char kTemplate[] = "preseed.cfg";

bool supportedDebian(const OsFacts &os, std::string &error) {
  if (os.distro != "debian" || leadingNumber(os.version) < 11) {
    error = os.name + " " + os.version +
            ": preseed answers are written for Debian 11 and later";
    return false;
  }
  return true;
}

// The installer's own default mirror unless the user names one.
bool mirror(const InstallEntries &entries, MirrorUrl &out, std::string &error) {
  if (entries.repoUrl.empty()) {
    out = {"http", "deb.debian.org", "/debian"};
    return true;
  }
  if (!parseMirrorUrl(entries.repoUrl, out) ||
      !fitsDebconfValue(entries.repoUrl)) {
    error =
        "mirror: give an http, https or ftp URL without blanks or "
        "quotes";
    return false;
  }
  return true;
}

}  // namespace

bool writePreseed(const Described &disc, const InstallEntries &entries,
                  Answer &out, std::string &error) {
  const OsFacts *os = installerFacts(disc, kInstaller, error);
  LinuxAnswerValues v;
  MirrorUrl url;
  std::string templ, text;
  if (os == nullptr || !supportedDebian(*os, error) ||
      !prepareLinuxValues(entries, UserNameRules::LetterFirst, v, error) ||
      !mirror(entries, url, error)) {
    return false;
  }
  if (!fitsDebconfValue(v.fullName)) {
    error =
        "full name: a preseed value is one line that does not end in a "
        "backslash";
    return false;
  }
  if (!loadAnswerTemplate(entries, kInstaller, kTemplate, templ, error)) {
    return false;
  }
  TemplateValues values = {
      {"os_name", isOneLineText(os->name) ? os->name : ""},
      {"os_version", isOneLineText(os->version) ? os->version : ""},
      {"locale", v.locale},
      {"keyboard", v.xkbLayout},
      {"hostname", v.hostname},
      {"mirror_protocol", url.scheme},
      {"mirror_host", url.host},
      {"mirror_directory", url.directory},
      {"root_hash", v.rootHash},
      {"full_name", v.fullName},
      {"user", v.user},
      {"user_hash", v.userHash},
      {"time_zone", v.timeZone},
      {"power_off", entries.powerOff ? "true" : "false"},
  };
  if (!fillAnswerTemplate(templ, values, kTemplate, text, error)) {
    return false;
  }
  out.installer = kInstaller;
  out.volumeLabel = "";  // the disc is remastered: no answer volume
  out.files = {{kTemplate, std::move(text)}};
  return true;
}

}  // namespace gp::medium
