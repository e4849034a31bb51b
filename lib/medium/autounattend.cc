// Autounattend.xml for Windows 10, Windows 11 and Windows Server 2016 to
// 2025: the shipped template with the user's entries placed by XPath.
#include "lib/medium/autounattend.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "guestprep/autoinstall.h"
#include "lib/medium/answer_templates.h"
#include "lib/medium/answer_xml.h"
#include "lib/medium/install_entries.h"
#include "platform/fatal.h"
#include "platform/strutil.h"
#include "platform/timezone.h"
#include "platform/unicode.h"

namespace gp::medium {
namespace {

constexpr const char kInstaller[] = "windows-setup";
constexpr const char kFileName[] = "Autounattend.xml";
// Windows Setup looks for the file at the root of every removable disk and
// CD, whatever its label; this one says what the disc is for.
constexpr const char kVolumeLabel[] = "AUTOUNATTEND";

constexpr const char kShellOobe[] =
    "//urn:settings[@pass='oobeSystem']/"
    "urn:component[@name='Microsoft-Windows-Shell-Setup']";
constexpr const char kSetupPe[] =
    "//urn:settings[@pass='windowsPE']/"
    "urn:component[@name='Microsoft-Windows-Setup']";
constexpr const char kUefiDisk[] =
    "urn:CreatePartitions/urn:CreatePartition[urn:Type='EFI']";

// The releases this answer file serves, by the description's id.
const char *const kReleases[] = {"win10",   "win11",   "win2k16",
                                 "win2k19", "win2k22", "win2k25"};

std::string quoted(std::string_view s) { return "\"" + std::string(s) + "\""; }

std::string base64(std::string_view bytes) {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    uint32_t n = static_cast<uint8_t>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) {
      n |= static_cast<uint8_t>(bytes[i + 1]) << 8;
    }
    if (i + 2 < bytes.size()) {
      n |= static_cast<uint8_t>(bytes[i + 2]);
    }
    out += kAlphabet[(n >> 18) & 63];
    out += kAlphabet[(n >> 12) & 63];
    out += i + 1 < bytes.size() ? kAlphabet[(n >> 6) & 63] : '=';
    out += i + 2 < bytes.size() ? kAlphabet[n & 63] : '=';
  }
  return out;
}

// The answer file's way of keeping a password out of plain sight (not a
// hash): base64 of the UTF-16LE text of the password followed by the name
// of the element it fills, "Password" or "AdministratorPassword".
std::string hidePassword(const std::string &password, const char *suffix) {
  std::u16string units;
  if (!utf8ToUtf16(password + suffix, units)) {
    GP_NOT_REACHED("lib/medium/autounattend");  // checked before
  }
  std::string bytes;
  for (char16_t u : units) {
    bytes += static_cast<char>(u & 0xff);
    bytes += static_cast<char>(u >> 8);
  }
  return base64(bytes);
}

std::string windowsArch(const std::string &arch) {
  if (arch == "x86_64") {
    return "amd64";
  }
  if (arch == "aarch64") {
    return "arm64";
  }
  if (arch == "i686") {
    return "x86";
  }
  return "";
}

bool isAlnum(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         (c >= '0' && c <= '9');
}

bool allDigits(std::string_view s) {
  return s.find_first_not_of("0123456789") == std::string_view::npos;
}

// What the entries become in the file.
struct Values {
  std::string arch;
  std::string locale;
  std::string image;
  std::string computerName;
  std::string timeZone;
  std::string displayName;
};

bool checkDisc(const Described &disc, std::string &error) {
  const std::optional<OsFacts> &os = disc.facts.os;
  if (!os || os->installer != std::optional<std::string>(kInstaller)) {
    error = "the disc is not installed by Windows Setup";
    return false;
  }
  for (const char *id : kReleases) {
    if (os->id == id) {
      return true;
    }
  }
  error = (os->name.empty() ? os->id : os->name) +
          " is not one of the releases that Autounattend.xml is written for "
          "(Windows 10, Windows 11, Windows Server 2016 to 2025)";
  return false;
}

// The install image: the one named, else the first on the disc.
const Edition *chooseEdition(const Described &disc, const std::string &wanted,
                             std::string &error) {
  const std::vector<Edition> &editions = disc.facts.editions;
  if (editions.empty()) {
    error = "the disc lists no install image to choose from";
    return nullptr;
  }
  if (wanted.empty()) {
    return &editions.front();
  }
  for (const Edition &e : editions) {
    if (e.name == wanted) {
      return &e;
    }
  }
  for (const Edition &e : editions) {
    if (str::equalsCaseless(e.name, wanted)) {
      return &e;
    }
  }
  error = "the disc has no edition " + quoted(wanted) + "; it has ";
  for (size_t i = 0; i < editions.size(); ++i) {
    error += (i > 0 ? ", " : "") + quoted(editions[i].name);
  }
  return nullptr;
}

// "en-US" from "en-US", "en_US" or "en_US.UTF-8"; empty when the text is no
// language tag with a region.
std::string localeName(std::string_view language) {
  language = language.substr(0, language.find_first_of(".@"));
  std::string out;
  size_t pos = 0;
  int part = 0;
  std::string_view piece;
  while (str::nextToken(language, pos, "-_", piece)) {
    const bool letters = piece.find_first_not_of(
                             "abcdefghijklmnopqrstuvwxyz"
                             "ABCDEFGHIJKLMNOPQRSTUVWXYZ") == std::string::npos;
    const bool ok = part == 0
                        ? letters && piece.size() >= 2 && piece.size() <= 3
                        : piece.size() >= 2 && piece.size() <= 8 &&
                              std::all_of(piece.begin(), piece.end(), isAlnum);
    if (!ok || part > 2) {
      return "";
    }
    out += (part > 0 ? "-" : "") + std::string(piece);
    ++part;
  }
  // A language and its region at least ("de" alone names no locale that
  // Setup takes); every separator between two pieces.
  return part >= 2 && out.size() == language.size() ? out : "";
}

// The computer name: the one given, checked, or one made of the user name.
// Windows takes at most 15 characters; letters, digits and hyphens are
// what every network that the guest joins accepts.
bool computerName(const InstallEntries &entries, std::string &out,
                  std::string &error) {
  if (!entries.hostname.empty()) {
    const std::string &h = entries.hostname;
    const bool ok = h.size() <= 15 && !allDigits(h) && h.front() != '-' &&
                    h.back() != '-' &&
                    std::all_of(h.begin(), h.end(),
                                [](char c) { return isAlnum(c) || c == '-'; });
    if (!ok) {
      error = "the host name " + quoted(h) +
              " is not a Windows computer name: at most 15 letters, digits "
              "and inner hyphens, not only digits";
      return false;
    }
    out = h;
    return true;
  }
  for (char c : entries.user) {
    if ((isAlnum(c) || (c == '-' && !out.empty())) && out.size() < 15) {
      out += c;
    }
  }
  while (!out.empty() && out.back() == '-') {
    out.pop_back();
  }
  // Nothing usable: Windows then makes up a name itself.
  if (out.empty() || allDigits(out)) {
    out = "*";
  }
  return true;
}

bool validProductKey(std::string_view key) {
  if (key.size() != 29) {
    return false;
  }
  for (size_t i = 0; i < key.size(); ++i) {
    if (i % 6 == 5 ? key[i] != '-' : !isAlnum(key[i])) {
      return false;
    }
  }
  return true;
}

// The library's own rule for Windows account names, with its message.
bool validAccountName(const std::string &user, std::string &error) {
  char *message = nullptr;
  AutoInstallValidation v =
      AutoInstall_ValidateName("windows", nullptr, user.c_str(), &message);
  if (v != AUTOINSTALL_VALID) {
    error = "the user name " + quoted(user) +
            " is refused: " + (message != nullptr ? message : "invalid");
    std::free(message);
    return false;
  }
  std::u16string units;
  utf8ToUtf16(user, units);
  if (units.size() > 20 || user.find_first_not_of(" .") == std::string::npos) {
    error = "the user name " + quoted(user) +
            " is refused: Windows account names have 1 to 20 characters, "
            "not only dots and spaces";
    return false;
  }
  for (const char *builtIn : {"Administrator", "Guest"}) {
    if (str::equalsCaseless(user, builtIn)) {
      error = "the user name " + quoted(user) +
              " is refused: it is a built-in account of Windows";
      return false;
    }
  }
  return true;
}

bool validPassword(const char *what, const std::string &password,
                   std::string &error) {
  char *message = nullptr;
  AutoInstallValidation v = AutoInstall_ValidatePassword(
      "windows", nullptr, password.c_str(), &message);
  if (v != AUTOINSTALL_VALID) {
    error = std::string("the ") + what +
            " is refused: " + (message != nullptr ? message : "invalid");
    std::free(message);
    return false;
  }
  return true;
}

bool checkEntries(const InstallEntries &entries, std::string &error) {
  const struct {
    const char *what;
    const std::string &value;
  } fields[] = {{"user name", entries.user},
                {"full name", entries.fullName},
                {"password", entries.password},
                {"administrator password", entries.rootPassword},
                {"product key", entries.productKey},
                {"language", entries.language},
                {"time zone", entries.timeZone},
                {"host name", entries.hostname},
                {"edition", entries.edition}};
  for (const auto &f : fields) {
    if (!xml::carriesAsLine(f.value)) {
      error = std::string("the ") + f.what +
              " holds a line break, a control character or bytes that are "
              "not UTF-8, which the answer file cannot carry";
      return false;
    }
  }
  if (entries.user.empty()) {
    error = "a user name is needed";
    return false;
  }
  if (!validAccountName(entries.user, error) ||
      !validPassword("password", entries.password, error) ||
      !validPassword("administrator password", entries.rootPassword, error)) {
    return false;
  }
  if (!entries.productKey.empty() && !validProductKey(entries.productKey)) {
    error = "the product key " + quoted(entries.productKey) +
            " is not five groups of five letters or digits joined by hyphens";
    return false;
  }
  return true;
}

bool chooseValues(const Described &disc, const InstallEntries &entries,
                  Values &v, std::string &error) {
  const Edition *edition = chooseEdition(disc, entries.edition, error);
  if (edition == nullptr) {
    return false;
  }
  v.image = edition->name;
  const std::string &arch =
      edition->arch.empty() ? disc.facts.os->arch : edition->arch;
  v.arch = windowsArch(arch);
  if (v.arch.empty()) {
    error = "the disc's architecture " + quoted(arch) +
            " is not one Windows Setup installs (x86_64, aarch64, i686)";
    return false;
  }
  // The disc's own language unless another is asked for: Setup stops on a
  // UI language that the disc does not carry.
  std::string language = entries.language;
  if (language.empty()) {
    language = disc.facts.language.value_or("en-US");
  }
  v.locale = localeName(language);
  if (v.locale.empty()) {
    error = "the language " + quoted(language) +
            " is not a language tag such as en-US or de_DE";
    return false;
  }
  const std::string zone = entries.timeZone.empty() ? "UTC" : entries.timeZone;
  v.timeZone = tz::windowsZoneFor(zone).name;
  if (v.timeZone.empty()) {
    error = "the time zone " + quoted(zone) + " is not a known IANA zone";
    return false;
  }
  v.displayName = entries.fullName.empty() ? entries.user : entries.fullName;
  return computerName(entries, v.computerName, error);
}

// Keeps the one disk layout of the firmware and points the installation at
// its partition labelled "Windows".
bool chooseDiskLayout(xmlXPathContext *ctx, Firmware firmware,
                      std::string &error) {
  const std::string disks =
      std::string(kSetupPe) + "/urn:DiskConfiguration/urn:Disk";
  const std::string other =
      disks + (firmware == Firmware::Uefi
                   ? std::string("[not(") + kUefiDisk + ")]"
                   : std::string("[") + kUefiDisk + "]");
  xml::removeAll(ctx, other.c_str());
  std::vector<xmlNode *> kept = xml::select(ctx, disks.c_str());
  if (kept.size() != 1) {
    error = std::string("the template has no single disk layout for ") +
            (firmware == Firmware::Uefi ? "UEFI" : "BIOS");
    return false;
  }
  std::vector<xmlNode *> disk = xml::select(ctx, "urn:DiskID", kept[0]);
  std::vector<xmlNode *> part = xml::select(
      ctx,
      "urn:ModifyPartitions/urn:ModifyPartition[urn:Label='Windows']/"
      "urn:PartitionID",
      kept[0]);
  if (disk.empty() || part.empty()) {
    error = "the template's disk layout has no partition labelled Windows";
    return false;
  }
  const std::string installTo =
      std::string(kSetupPe) + "/urn:ImageInstall/urn:OSImage/urn:InstallTo/";
  if (!xml::setText(ctx, (installTo + "urn:DiskID").c_str(),
                    xml::textOf(disk[0])) ||
      !xml::setText(ctx, (installTo + "urn:PartitionID").c_str(),
                    xml::textOf(part[0]))) {
    error = "the template has no ImageInstall/OSImage/InstallTo";
    return false;
  }
  return true;
}

// Drops what the entries do not ask for: the requirement checks' bypass,
// the product key, the administrator password, the final power-off.
void dropUnasked(xmlXPathContext *ctx, const Described &disc,
                 const InstallEntries &entries) {
  if (!(entries.bypassRequirements && disc.facts.os->id == "win11")) {
    xml::removeAll(ctx,
                   "//urn:RunSynchronousCommand[contains(urn:Path,"
                   "'\\LabConfig ') or contains(urn:Path,' BypassNRO ')]");
    xml::removeAll(ctx, "//urn:RunSynchronous[not(*)]");
    xml::removeAll(ctx, "//urn:component[not(*)]");
  }
  if (entries.productKey.empty()) {
    xml::removeAll(
        ctx, (std::string(kSetupPe) + "/urn:UserData/urn:ProductKey").c_str());
  }
  if (entries.rootPassword.empty()) {
    xml::removeAll(ctx, (std::string(kShellOobe) +
                         "/urn:UserAccounts/urn:AdministratorPassword")
                            .c_str());
  }
  if (!entries.powerOff) {
    xml::removeAll(ctx,
                   "//urn:FirstLogonCommands/urn:SynchronousCommand[starts-"
                   "with(urn:CommandLine,'shutdown.exe /s')]");
  }
}

bool fill(xmlXPathContext *ctx, const InstallEntries &entries, const Values &v,
          std::string &error) {
  xml::setAttribute(ctx, "//urn:component", "processorArchitecture", v.arch);
  for (const char *element : {"urn:InputLocale", "urn:SystemLocale",
                              "urn:UILanguage", "urn:UserLocale"}) {
    xml::setText(ctx,
                 (std::string("//urn:component[starts-with(@name,'Microsoft-"
                              "Windows-International-Core')]//") +
                  element)
                     .c_str(),
                 v.locale);
  }
  const std::string shell = kShellOobe;
  const std::string account =
      shell + "/urn:UserAccounts/urn:LocalAccounts/urn:LocalAccount";
  const std::string pe = kSetupPe;
  const struct {
    std::string path;
    std::string value;
    bool required;
  } values[] = {
      {pe + "/urn:ImageInstall/urn:OSImage/urn:InstallFrom/urn:MetaData"
            "[urn:Key='/IMAGE/NAME']/urn:Value",
       v.image, true},
      {pe + "/urn:UserData/urn:FullName", v.displayName, false},
      {pe + "/urn:UserData/urn:ProductKey/urn:Key", entries.productKey, false},
      {"//urn:settings[@pass='specialize']/urn:component[@name='Microsoft-"
       "Windows-Shell-Setup']/urn:ComputerName",
       v.computerName, true},
      {shell + "/urn:TimeZone", v.timeZone, true},
      {shell + "/urn:RegisteredOwner", v.displayName, false},
      {account + "/urn:Name", entries.user, true},
      {account + "/urn:DisplayName", v.displayName, false},
      {account + "/urn:Password/urn:Value",
       hidePassword(entries.password, "Password"), true},
      {shell + "/urn:AutoLogon/urn:Username", entries.user, true},
      {shell + "/urn:AutoLogon/urn:Password/urn:Value",
       hidePassword(entries.password, "Password"), true},
      {shell + "/urn:UserAccounts/urn:AdministratorPassword/urn:Value",
       hidePassword(entries.rootPassword, "AdministratorPassword"), false},
      {"//urn:Password/urn:PlainText", "false", false},
      {"//urn:AdministratorPassword/urn:PlainText", "false", false},
  };
  for (const auto &value : values) {
    if (!xml::setText(ctx, value.path.c_str(), value.value) && value.required) {
      error = "the template has no element " + value.path;
      return false;
    }
  }
  return true;
}

}  // namespace

bool fillAutounattend(const std::string &templateText, const Described &disc,
                      const InstallEntries &entries, Answer &out,
                      std::string &error) {
  Values values;
  if (!checkDisc(disc, error) || !checkEntries(entries, error) ||
      !chooseValues(disc, entries, values, error)) {
    return false;
  }
  xml::DocPtr doc = xml::parseTemplate(templateText);
  xml::ContextPtr ctx =
      doc ? xml::newContext(
                doc.get(),
                {{"urn", "urn:schemas-microsoft-com:unattend"},
                 {"wcm", "http://schemas.microsoft.com/WMIConfig/2002/State"}})
          : nullptr;
  if (!ctx) {
    error =
        "the template autounattend.xml is not a well-formed XML document "
        "without a document type";
    return false;
  }
  xml::removeOuterComments(doc.get());
  dropUnasked(ctx.get(), disc, entries);
  if (!chooseDiskLayout(ctx.get(), entries.firmware, error) ||
      !fill(ctx.get(), entries, values, error)) {
    return false;
  }
  std::string xmlText;
  if (!xml::serialise(doc.get(), xmlText)) {
    error = "the answer file could not be written out";
    return false;
  }
  out.installer = kInstaller;
  out.volumeLabel = kVolumeLabel;
  out.files = {{kFileName, std::move(xmlText)}};
  return true;
}

bool writeAutounattend(const Described &disc, const InstallEntries &entries,
                       Answer &out, std::string &error) {
  std::string text;
  // The entries are checked before the template is looked for, so that a
  // bad entry is named even when no template is installed.
  if (!checkDisc(disc, error) || !checkEntries(entries, error)) {
    return false;
  }
  if (!readAnswerTemplate(entries.templateDir, kInstaller, "autounattend.xml",
                          text, error)) {
    return false;
  }
  return fillAutounattend(text, disc, entries, out, error);
}

}  // namespace gp::medium
