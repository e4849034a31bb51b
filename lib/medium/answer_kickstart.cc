// Kickstart files for the anaconda of EL 8 and later and of Fedora, read
// from ks.cfg on a volume labelled OEMDRV. The choices that differ between
// releases are made here; the rest is the template anaconda/ks.cfg.
#include <string>

#include "lib/medium/answer_escape.h"
#include "lib/medium/answer_template.h"
#include "lib/medium/install_entries.h"
#include "lib/medium/linux_answer_values.h"

namespace gp::medium {
namespace {

constexpr char kInstaller[] = "anaconda";
constexpr char kTemplate[] = "ks.cfg";

constexpr const char *kEnterpriseDistros[] = {
    "rhel", "centos", "centos-stream", "rocky", "almalinux", "ol"};

struct AnacondaRelease {
  bool fedora = false;
  long major = -1;
  // rootpw --allow-ssh: EL 9 and Fedora 37 brought it, and with it root's
  // password no longer opens SSH without it.
  bool allowSsh = false;
  const char *environment = nullptr;  // the %packages environment group
};

bool anacondaRelease(const OsFacts &os, AnacondaRelease &out,
                     std::string &error) {
  AnacondaRelease r;
  r.fedora = os.distro == "fedora";
  bool enterprise = false;
  for (const char *distro : kEnterpriseDistros) {
    enterprise = enterprise || os.distro == distro;
  }
  r.major = leadingNumber(os.version);
  if (r.fedora && os.id == "fedora-rawhide") {
    r.major = 9999;
  }
  if (r.fedora && r.major >= 30) {
    r.allowSsh = r.major >= 37;
    r.environment = "@^server-product-environment";
  } else if (enterprise && r.major >= 8) {
    r.allowSsh = r.major >= 9;
    r.environment = "@^minimal-environment";
  } else {
    error = os.name + " " + os.version +
            ": kickstart files are written for EL 8 and later and Fedora 30 "
            "and later";
    return false;
  }
  out = r;
  return true;
}

// cdrom when the disc carries the packages, the user's repository
// otherwise; a boot disc without one cannot install anything.
bool installSource(const Described &disc, const InstallEntries &entries,
                   std::string &source, std::string &error) {
  if (!entries.repoUrl.empty()) {
    MirrorUrl url;
    if (!parseMirrorUrl(entries.repoUrl, url)) {
      error =
          "repository: give an http, https or ftp URL without blanks "
          "or quotes";
      return false;
    }
    source = "url --url=" + kickstartWord(entries.repoUrl);
    return true;
  }
  if (!disc.facts.packageRepositories) {
    error =
        "the disc carries no package repositories (a boot disc): give "
        "the URL of an installation repository";
    return false;
  }
  source = "cdrom";
  return true;
}

}  // namespace

bool writeKickstart(const Described &disc, const InstallEntries &entries,
                    Answer &out, std::string &error) {
  const OsFacts *os = installerFacts(disc, kInstaller, error);
  AnacondaRelease release;
  LinuxAnswerValues v;
  std::string source, templ, text;
  if (os == nullptr || !anacondaRelease(*os, release, error) ||
      !installSource(disc, entries, source, error) ||
      !prepareLinuxValues(entries, UserNameRules::Linux, v, error) ||
      !loadAnswerTemplate(entries, kInstaller, kTemplate, templ, error)) {
    return false;
  }
  // The OS name lands in a comment, which ends at the line's end.
  TemplateValues values = {
      {"os_name", isOneLineText(os->name) ? os->name : ""},
      {"os_version", isOneLineText(os->version) ? os->version : ""},
      {"locale", kickstartWord(v.locale)},
      {"keyboard", kickstartWord(v.xkbLayout)},
      {"time_zone", kickstartWord(v.timeZone)},
      {"hostname", kickstartWord(v.hostname)},
      {"source", source},
      {"rootpw_options", release.allowSsh ? " --allow-ssh" : ""},
      {"root_hash", kickstartWord(v.rootHash)},
      {"user", kickstartWord(v.user)},
      {"full_name", kickstartWord(v.fullName)},
      {"user_hash", kickstartWord(v.userHash)},
      {"finish", entries.powerOff ? "poweroff" : "reboot --eject"},
      {"environment", release.environment},
  };
  if (!fillAnswerTemplate(templ, values, kTemplate, text, error)) {
    return false;
  }
  out.installer = kInstaller;
  out.volumeLabel = "OEMDRV";
  out.files = {{kTemplate, std::move(text)}};
  return true;
}

}  // namespace gp::medium
