// The Windows answer files: winnt.sif for the text-mode installer, the XML
// answer file "autoun~0.xml" for Windows Vista and later, and optionally
// storePwd.ini for the guest program that keeps automatic logon. Each is a
// copy of a caller's template with the user's values set in it.
#include <cstring>
#include <string>

#include "guestprep/autoinstall.h"
#include "guestprep/iniutil.h"
#include "lib/guestInstall/autoinstallGuestWindows_xml.h"
#include "platform/abi.h"
#include "platform/guestos.h"
#include "platform/hostio.h"
#include "platform/log.h"
#include "platform/textencoding.h"
#include "platform/timezone.h"

namespace gp::autoinstall {
namespace {

constexpr const char kFn[] = "AutoInstall_PrepareAnswerFileEx";

// No template of an answer file comes near this.
constexpr size_t kMaxTemplateSize = 1u << 20;

// The activation commands are built in a buffer of this size.
constexpr size_t kCommandRoom = 256;

#define SHELL_SETUP                                                    \
  "//urn:settings[@pass='oobeSystem']/urn:component[@name='Microsoft-" \
  "Windows-Shell-Setup']"
#define WINPE_SETUP                                                   \
  "//urn:settings[@pass='windowsPE']/urn:component[@name='Microsoft-" \
  "Windows-Setup']"
#define WINPE_INTERNATIONAL                                           \
  "//urn:settings[@pass='windowsPE']/urn:component[@name='Microsoft-" \
  "Windows-International-Core-WinPE']"

constexpr const char kAutoLogonUser[] =
    SHELL_SETUP "/urn:AutoLogon/urn:Username";
constexpr const char kAccountName[] =
    SHELL_SETUP "/urn:UserAccounts/urn:LocalAccounts/urn:LocalAccount/urn:Name";
constexpr const char kAutoLogonPassword[] =
    SHELL_SETUP "/urn:AutoLogon/urn:Password/urn:Value";
constexpr const char kAutoLogonSwitch[] =
    SHELL_SETUP "/urn:AutoLogon/urn:Enabled";
constexpr const char kAccountPassword[] = SHELL_SETUP
    "/urn:UserAccounts/urn:LocalAccounts/urn:LocalAccount/urn:Password/"
    "urn:Value";
constexpr const char kTimeZone[] = SHELL_SETUP "/urn:TimeZone";
constexpr const char *const kLocales[] = {
    WINPE_INTERNATIONAL "/urn:InputLocale",
    WINPE_INTERNATIONAL "/urn:SystemLocale",
    WINPE_INTERNATIONAL "/urn:UILanguage",
    WINPE_INTERNATIONAL "/urn:UserLocale",
};
constexpr const char kImageName[] = WINPE_SETUP
    "/urn:ImageInstall/urn:OSImage/urn:InstallFrom/urn:MetaData/urn:Value";
constexpr const char kProductKeyValue[] =
    WINPE_SETUP "/urn:UserData/urn:ProductKey/urn:Key";
constexpr const char kProductKeyElement[] =
    WINPE_SETUP "/urn:UserData/urn:ProductKey";
constexpr const char *const kAmd64Components[] = {
    WINPE_SETUP,
    WINPE_INTERNATIONAL,
    SHELL_SETUP,
    "//urn:settings[@pass='specialize']/urn:component[@name='Microsoft-"
    "Windows-Deployment']",
    "//urn:settings[@pass='specialize']/urn:component[@name='Microsoft-"
    "Windows-Security-Licensing-SLC-UX']",
    "//urn:settings[@pass='specialize']/urn:component[@name='Microsoft-"
    "Windows-Shell-Setup']",
};

constexpr const char kAutoLogonOff[] =
    "reg add \"HKLM\\SOFTWARE\\Microsoft\\Windows "
    "NT\\CurrentVersion\\Winlogon\" /v AutoAdminLogon /t REG_SZ /d 0 /f";
constexpr const char kSetKms[] =
    "cscript.exe \\windows\\system32\\slmgr.vbs /skms ";
constexpr const char kInstallKey[] =
    "cscript.exe \\windows\\system32\\slmgr.vbs /ipk ";
constexpr const char kActivate[] =
    "cscript.exe \\windows\\system32\\slmgr.vbs /ato";

struct Language {
  const char *name;
  int encoding;
};

// Compared exactly, in this order; any other language gets windows-1252.
constexpr Language kLanguages[] = {
    {"Japanese", textenc::ENCODING_SHIFT_JIS},
    {"Russian", textenc::ENCODING_WINDOWS_1251},
    {"Simplified Chinese", textenc::ENCODING_GBK},
    {"Traditional Chinese", textenc::ENCODING_BIG5},
    {"Korean", textenc::ENCODING_KOREAN},
};

int answerEncoding(const char *language) {
  for (const Language &l : kLanguages) {
    if (std::strcmp(language, l.name) == 0) {
      return l.encoding;
    }
  }
  return textenc::ENCODING_WINDOWS_1252;
}

bool given(const char *s) { return s != nullptr && s[0] != '\0'; }

struct Request {
  const char *winntTemplate;
  const char *unattendTemplate;
  const char *storePwdTemplate;
  const char *productKey;
  const char *kmsHost;
  const char *userName;
  const char *password;
  const char *guestId;
  const char *workDir;
  const char *language;
  const char *imageName;
  bool keepAutoLogon;
};

struct Plan {
  int os = -1;
  const char *language = nullptr;
  int encoding = textenc::ENCODING_WINDOWS_1252;
  std::string winnt;
  std::string unattend;
  std::string storePwd;  // empty: none asked for
  int tzIndex = -1;
  MallocPtr<char> tzName;
};

// A template: a regular file of bounded size, opened without waiting on a
// FIFO or device.
bool readTemplate(const char *path, std::string &out) {
  return readWholeFile(path, out, kMaxTemplateSize);
}

// Copies a template over its working copy; the copy appears whole or not
// at all.
bool copyTemplate(const char *from, const std::string &to) {
  std::string data;
  bool ok = readTemplate(from, data) && replaceFileAtomically(to, data, 0644);
  if (!ok) {
    logf("%s: File_CopyFromNameToName from=\"%s\" to=\"%s\"\n", kFn, from,
         to.c_str());
  }
  return ok;
}

bool writeIni(const std::string &path, const char *section, const char *key,
              const char *value, bool quoted) {
  return IniUtil_WriteIniFileString(path.c_str(), section, key, value,
                                    quoted ? TRUE : FALSE) == TRUE;
}

// Writes a user's text in the answer encoding, or as UTF-8 when it has no
// form there.
bool writeEncoded(const Plan &plan, const char *section, const char *key,
                  const char *utf8) {
  MallocPtr<char> converted(textenc::convertFromUtf8(utf8, plan.encoding));
  if (!converted) {
    logf("%s: Failed to perform conversion from UTF-8 to %s\n", kFn,
         textenc::encodingName(plan.encoding));
  }
  return writeIni(plan.winnt, section, key, converted ? converted.get() : utf8,
                  true);
}

bool editWinnt(const Request &r, Plan &plan) {
  const char *sif = plan.winnt.c_str();
  if (given(r.productKey)) {
    bool ok =
        writeIni(plan.winnt, "UserData", "ProductKey", r.productKey, true);
    if (ok && guestos::isWin2000(plan.os)) {
      ok = writeIni(plan.winnt, "UserData", "ProductID", r.productKey, true);
    }
    if (!ok) {
      logf(
          "%s: IniUtil_WriteIniFileString unattendFilePath=\"%s\", "
          "ProductKey=\"%s\"\n",
          kFn, sif, r.productKey);
      return false;
    }
  }
  if (given(r.userName) &&
      !writeEncoded(plan, "UserData", "FullName", r.userName)) {
    logf(
        "%s: IniUtil_WriteIniFileString unattendFilePath=\"%s\", "
        "FullName=\"%s\"\n",
        kFn, sif, r.userName);
    return false;
  }
  if (given(r.password)) {
    if (!writeEncoded(plan, "GuiUnattended", "AdminPassword", r.password)) {
      logf(
          "%s: IniUtil_WriteIniFileString unattendFilePath=\"%s\", "
          "AdminPassword=\"%s\"\n",
          kFn, sif, r.password);
      return false;
    }
    if (!writeIni(plan.winnt, "GuiUnattended", "AutoLogon", "Yes", false)) {
      logf(
          "%s: IniUtil_WriteIniFileString unattendFilePath=\"%s\", "
          "AutoLogon=\"Yes\"\n",
          kFn, sif);
      return false;
    }
    if (!writeIni(plan.winnt, "GuiUnattended", "AutoLogonCount", "1", false)) {
      logf(
          "%s: IniUtil_WriteIniFileString unattendFilePath=\"%s\", "
          "AutoLogonCount=\"1\"\n",
          kFn, sif);
      return false;
    }
    if (!plan.storePwd.empty() &&
        !writeIni(plan.storePwd, "Autologon", "Enabled",
                  r.keepAutoLogon ? "1" : "0", false)) {
      logf("%s: IniUtil_WriteIniFileString storePwdIniPath=\"%s\"", kFn,
           plan.storePwd.c_str());
      return false;
    }
  }
  char *name = nullptr;
  plan.tzIndex = tz::localWindowsTimeZone(&name);
  plan.tzName.reset(name);
  if (plan.tzIndex >= 0 &&
      IniUtil_WriteIniFileInt(sif, "GuiUnattended", "TimeZone", plan.tzIndex) !=
          TRUE) {
    logf("%s: IniUtil_WriteIniFileInt unattendFilePath=\"%s\", TimeZone=%d\n",
         kFn, sif, plan.tzIndex);
    return false;
  }
  return true;
}

// Windows Server 2003 runs a command once after setup; the template names
// the command and its entry. Failures here are not the caller's concern.
void addRunOnce(const Plan &plan) {
  char key[64] = {};
  char command[256] = {};
  const char *sif = plan.winnt.c_str();
  if (IniUtil_GetIniFileString(sif, "ZentavData", "RunCmdKey", key,
                               sizeof key) == TRUE &&
      IniUtil_GetIniFileString(sif, "ZentavData", "RunCmdNoReboot", command,
                               sizeof command) == TRUE) {
    IniUtil_WriteIniFileString(sif, "GuiRunOnce", key, command, TRUE);
  }
}

void addCommand(xmlDoc *doc, const char *prefix, const char *value) {
  std::string line = std::string(prefix) + value;
  winxml::addFirstLogonCommand(doc, line.c_str());
}

bool editXml(const Request &r, const Plan &plan) {
  std::string text;
  if (!readTemplate(plan.unattend.c_str(), text)) {
    return false;
  }
  winxml::DocPtr doc = winxml::parseTemplate(text);
  if (!doc) {
    return false;
  }
  winxml::ContextPtr ctx = winxml::newContext(doc.get());
  if (!ctx) {
    return false;
  }
  xmlXPathContext *c = ctx.get();
  if (given(r.userName)) {
    winxml::setXmlNodeText(c, kAutoLogonUser, r.userName);
    winxml::setXmlNodeText(c, kAccountName, r.userName);
  }
  if (given(r.password)) {
    winxml::setXmlNodeText(c, kAutoLogonPassword, r.password);
    winxml::setXmlNodeText(c, kAutoLogonSwitch, "true");
    if (!r.keepAutoLogon) {
      winxml::addFirstLogonCommand(doc.get(), kAutoLogonOff);
    }
    winxml::setXmlNodeText(c, kAccountPassword, r.password);
  }
  if (given(plan.tzName.get())) {
    winxml::setXmlNodeText(c, kTimeZone, plan.tzName.get());
  }
  for (const char *locale : kLocales) {
    winxml::setXmlNodeText(c, locale, plan.language);
  }
  if (guestos::is64Bit(plan.os)) {
    for (const char *component : kAmd64Components) {
      winxml::setXmlProcessorArchitecture(c, component);
    }
  }
  winxml::setXmlNodeText(c, kImageName,
                         r.imageName != nullptr ? r.imageName : "");
  if (guestos::isWin8(plan.os) && given(r.productKey)) {
    winxml::setXmlNodeText(c, kProductKeyValue, r.productKey);
  } else if (!guestos::isVista(plan.os)) {
    winxml::removeXmlNodes(c, kProductKeyElement);
  }
  if (given(r.kmsHost)) {
    addCommand(doc.get(), kSetKms, r.kmsHost);
    winxml::addFirstLogonCommand(doc.get(), kActivate);
  } else if (given(r.productKey)) {
    addCommand(doc.get(), kInstallKey, r.productKey);
    winxml::addFirstLogonCommand(doc.get(), kActivate);
  }
  std::string out;
  if (winxml::serialise(doc.get(), out)) {
    replaceFileAtomically(plan.unattend, out, 0644);
  }
  return true;
}

// A product key or server name that would not fit the activation command
// would give the guest a broken command; such input is refused before any
// file is made.
bool fitsCommand(const char *prefix, const char *value) {
  return !given(value) ||
         std::strlen(prefix) + std::strlen(value) < kCommandRoom;
}

Bool prepareAnswerFiles(const Request &r) {
  Plan plan;
  plan.os = guestos::idOf(r.guestId);
  if (plan.os < 0 || !guestos::isWindows(plan.os)) {
    logf("%s: GuestOS_IsWin failed for guestID %s\n", kFn,
         r.guestId != nullptr ? r.guestId : "(null)");
    return FALSE;
  }
  if (r.winntTemplate == nullptr || r.unattendTemplate == nullptr ||
      r.workDir == nullptr) {
    return FALSE;
  }
  plan.language = given(r.language)                  ? r.language
                  : guestos::isVistaOrLater(plan.os) ? "en-US"
                                                     : "English";
  plan.encoding = answerEncoding(plan.language);
  plan.winnt = joinPath(r.workDir, "winnt.sif");
  plan.unattend = joinPath(r.workDir, "autoun~0.xml");
  if (r.storePwdTemplate != nullptr) {
    plan.storePwd = joinPath(r.workDir, "storePwd.ini");
  }
  if (!fitsCommand(kInstallKey, r.productKey)) {
    logf(
        "%s: IniUtil_WriteIniFileString unattendFilePath=\"%s\", "
        "ProductKey=\"%s\"\n",
        kFn, plan.winnt.c_str(), r.productKey);
    return FALSE;
  }
  if (!fitsCommand(kSetKms, r.kmsHost)) {
    logf("%s: kmsHost too long: \"%s\"\n", kFn, r.kmsHost);
    return FALSE;
  }
  if (!copyTemplate(r.winntTemplate, plan.winnt) ||
      !copyTemplate(r.unattendTemplate, plan.unattend) ||
      (!plan.storePwd.empty() &&
       !copyTemplate(r.storePwdTemplate, plan.storePwd))) {
    return FALSE;
  }
  if (!editWinnt(r, plan)) {
    return FALSE;
  }
  if (guestos::isWinServer2003(plan.os)) {
    addRunOnce(plan);
  }
  return editXml(r, plan) ? TRUE : FALSE;
}

}  // namespace
}  // namespace gp::autoinstall

GP_EXPORT Bool AutoInstall_PrepareAnswerFileEx(
    const char *winntTemplatePath, const char *unattendTemplatePath,
    const char *storePwdTemplatePath, const char *productKey,
    const char *kmsHost, const char *userName, const char *password,
    const char *guestID, const char *workDir, const char *language,
    const char *imageName, Bool keepAutoLogon) {
  return gp::abiGuard(static_cast<Bool>(FALSE), [&]() -> Bool {
    gp::autoinstall::Request r{winntTemplatePath,
                               unattendTemplatePath,
                               storePwdTemplatePath,
                               productKey,
                               kmsHost,
                               userName,
                               password,
                               guestID,
                               workDir,
                               language,
                               imageName,
                               keepAutoLogon != FALSE};
    return gp::autoinstall::prepareAnswerFiles(r);
  });
}
