// Where each installer reads an answer file from its own disc, and the
// kernel arguments that make it do so without asking.
#include "lib/medium/remaster_internal.h"

namespace gp::medium {
namespace {

// A label in a kernel argument: the installer finds the disc by the name
// the system gives its label, where a blank is written "\x20".
std::string labelArgument(const std::string &volumeId) {
  std::string out;
  for (char c : volumeId) {
    out += c == ' ' ? std::string("\\x20") : std::string(1, c);
  }
  return out;
}

}  // namespace

std::optional<InstallerPlan> planForInstaller(const std::string &installer,
                                              const std::string &volumeId) {
  InstallerPlan plan;
  if (installer == "anaconda") {
    plan.files = {{"/ks.cfg", true}};
    plan.args = {"inst.ks=hd:LABEL=" + labelArgument(volumeId) + ":/ks.cfg"};
  } else if (installer == "debian-installer") {
    plan.files = {{"/preseed.cfg", true}};
    plan.args = {"auto=true", "priority=critical",
                 "preseed/file=/cdrom/preseed.cfg"};
  } else if (installer == "subiquity") {
    plan.files = {{"/nocloud/user-data", true}, {"/nocloud/meta-data", false}};
    plan.args = {"autoinstall", "ds=nocloud;s=/cdrom/nocloud/"};
  } else if (installer == "yast") {
    plan.files = {{"/autoinst.xml", true}};
    plan.args = {"autoyast=cd:/autoinst.xml"};
  } else {
    return std::nullopt;
  }
  return plan;
}

}  // namespace gp::medium
