// AutoYaST profiles for SUSE Linux Enterprise 15 and openSUSE Leap 15, read
// from autoinst.xml on a volume labelled OEMDRV. Every entry is XML text.
#include <string>
#include <utility>
#include <vector>

#include "lib/medium/answer_escape.h"
#include "lib/medium/answer_template.h"
#include "lib/medium/install_entries.h"
#include "lib/medium/linux_answer_values.h"
#include "platform/strutil.h"

namespace gp::medium {
namespace {

constexpr char kInstaller[] = "yast";
constexpr char kTemplate[] = "autoinst.xml";

struct SuseProduct {
  const char *product;  // the product to install
  // The modules of the SLE 15 full medium that the product needs besides
  // itself; empty for Leap, whose medium is one repository.
  std::vector<std::pair<const char *, const char *>> modules;
};

bool suseProduct(const OsFacts &os, SuseProduct &out, std::string &error) {
  if ((os.distro != "sle" && os.distro != "opensuse") ||
      leadingNumber(os.version) != 15) {
    error = os.name + " " + os.version +
            ": AutoYaST profiles are written for SLE 15 and Leap 15";
    return false;
  }
  if (os.distro == "opensuse") {
    out = {"Leap", {}};
    return true;
  }
  std::pair<const char *, const char *> base = {"sle-module-basesystem",
                                                "Module-Basesystem"};
  if (str::contains(str::toLower(os.name), "desktop") ||
      str::startsWith(str::toLower(os.name), "sled")) {
    out = {
        "SLED",
        {base,
         {"sle-module-desktop-applications", "Module-Desktop-Applications"}}};
  } else {
    out = {"SLES",
           {base,
            {"sle-module-server-applications", "Module-Server-Applications"}}};
  }
  return true;
}

// The modules, from their directories on the installation medium.
std::string addOns(const SuseProduct &product) {
  if (product.modules.empty()) {
    return "";
  }
  std::string out = "  <add-on>\n    <add_on_products config:type=\"list\">\n";
  for (const auto &[name, dir] : product.modules) {
    out += std::string("      <listentry>\n") +
           "        <media_url>relurl://</media_url>\n" + "        <product>" +
           name + "</product>\n" + "        <product_dir>/" + dir +
           "</product_dir>\n" + "      </listentry>\n";
  }
  return out + "    </add_on_products>\n  </add-on>\n";
}

// The comment carries the OS name: XML text without "--".
std::string commentText(const std::string &text) {
  std::optional<std::string> escaped = xmlEscaped(text);
  if (!escaped || !isOneLineText(text) ||
      escaped->find("--") != std::string::npos || escaped->back() == '-') {
    return "";
  }
  return *escaped;
}

}  // namespace

bool writeAutoyast(const Described &disc, const InstallEntries &entries,
                   Answer &out, std::string &error) {
  const OsFacts *os = installerFacts(disc, kInstaller, error);
  SuseProduct product;
  LinuxAnswerValues v;
  std::string templ, text;
  if (os == nullptr || !suseProduct(*os, product, error) ||
      !prepareLinuxValues(entries, UserNameRules::Linux, v, error) ||
      !loadAnswerTemplate(entries, kInstaller, kTemplate, templ, error)) {
    return false;
  }
  // The entries were checked to be one line of UTF-8, which XML carries.
  auto xml = [](const std::string &s) { return xmlEscaped(s).value_or(""); };
  TemplateValues values = {
      {"os_name", commentText(os->name)},
      {"os_version", commentText(os->version)},
      {"final_reboot", entries.powerOff ? "false" : "true"},
      {"final_halt", entries.powerOff ? "true" : "false"},
      {"language", xml(v.language)},
      {"keymap", xml(v.yastKeymap)},
      {"time_zone", xml(v.timeZone)},
      {"hostname", xml(v.hostname)},
      {"add_ons", addOns(product)},
      {"product", product.product},
      {"root_hash", xml(v.rootHash)},
      {"user", xml(v.user)},
      {"full_name", xml(v.fullName)},
      {"user_hash", xml(v.userHash)},
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
