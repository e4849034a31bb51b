// Answer files of today's Linux installers, checked with each ecosystem's
// own tools (cloud-init, debconf, xmllint, openssl) and our kickstart
// checker, with entries that every format has to escape.
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "lib/medium/answer_escape.h"
#include "lib/medium/install_entries.h"
#include "lib/medium/password_hash.h"
#include "support/fixtures.h"
#include "support/kickstart_check.h"

namespace {

using gp::medium::Answer;
using gp::medium::Described;
using gp::medium::InstallEntries;
using gp::test::runCommand;
using gp::test::shellQuote;
using gp::test::TempDir;
using Json = nlohmann::json;

// Entries with every character a format treats specially, and letters
// beyond ASCII.
const char kFullName[] = "Zo\xC3\xAB \"Q\" O'Brien & <Co> #1 $HOME \\ a\\tb";
const char kPassword[] = "p\"a's&<w>:#$1\\ \xC3\xB6\xE2\x82\xAC";
const char kRootPassword[] = "r00t:'\"<&>#$\\";

Described disc(const std::string &distro, const std::string &version,
               const std::string &installer, const std::string &name,
               bool repositories = true) {
  Described d;
  gp::medium::OsFacts os;
  os.distro = distro;
  os.version = version;
  os.name = name;
  os.family = "linux";
  os.arch = "x86_64";
  os.id = distro + version;
  os.installer = installer;
  d.facts.os = os;
  d.facts.packageRepositories = repositories;
  return d;
}

InstallEntries entries() {
  InstallEntries e;
  e.user = "alice";
  e.fullName = kFullName;
  e.password = kPassword;
  e.rootPassword = kRootPassword;
  e.language = "de-DE";
  e.timeZone = "Europe/Berlin";
  e.hostname = "guest-1";
  e.templateDir = gp::test::sourcePath("data/templates");
  return e;
}

std::string write(const TempDir &dir, const std::string &name,
                  const std::string &text) {
  std::string path = dir / name;
  gp::test::writeFile(path, text);
  return path;
}

// The hash is SHA-512 crypt of `password`, as openssl makes it again.
void expectHashOf(const std::string &hash, const std::string &password) {
  std::smatch m;
  ASSERT_TRUE(std::regex_match(
      hash, m, std::regex(R"(\$6\$([./0-9A-Za-z]{16})\$.{86})")))
      << hash;
  std::string again;
  ASSERT_EQ(
      0, runCommand("printf '%s\\n' " + shellQuote(password) +
                        " | openssl passwd -6 -salt " + m[1].str() + " -stdin",
                    &again));
  EXPECT_EQ(hash + "\n", again);
}

std::string python(const std::string &script, const std::string &arg) {
  std::string out;
  EXPECT_EQ(
      0, runCommand("python3 -c " + shellQuote(script) + " " + shellQuote(arg),
                    &out))
      << script;
  return out;
}

// ---- kickstart ----

struct KickstartCase {
  const char *distro;
  const char *version;
  gp::test::KickstartTarget target;
  bool allowSsh;
  const char *environment;
};

TEST(AnswersLinux, KickstartPerReleaseReadsBackItsEntries) {
  const KickstartCase cases[] = {
      {"rhel", "8.6", {false, 8}, false, "@^minimal-environment"},
      {"rhel", "9.3", {false, 9}, true, "@^minimal-environment"},
      {"centos-stream", "10", {false, 10}, true, "@^minimal-environment"},
      {"rocky", "9.3", {false, 9}, true, "@^minimal-environment"},
      {"fedora", "36", {true, 36}, false, "@^server-product-environment"},
      {"fedora", "41", {true, 41}, true, "@^server-product-environment"},
  };
  for (const KickstartCase &c : cases) {
    SCOPED_TRACE(std::string(c.distro) + " " + c.version);
    Answer answer;
    std::string error;
    ASSERT_TRUE(gp::medium::writeKickstart(
        disc(c.distro, c.version, "anaconda", "Some EL"), entries(), answer,
        error))
        << error;
    EXPECT_EQ("anaconda", answer.installer);
    EXPECT_EQ("OEMDRV", answer.volumeLabel);
    ASSERT_EQ(1u, answer.files.size());
    EXPECT_EQ("ks.cfg", answer.files[0].name);
    const std::string &ks = answer.files[0].text;
    EXPECT_EQ(std::vector<std::string>{},
              gp::test::checkKickstart(ks, c.target));
    EXPECT_EQ(c.allowSsh, ks.find("--allow-ssh") != std::string::npos);
    EXPECT_NE(std::string::npos,
              ks.find(std::string("\n") + c.environment + "\n%end\n"));
    for (const char *line :
         {"\ntext\n", "\neula --agreed\n", "\ncdrom\n", "\nreboot --eject\n",
          "\nlang de_DE.UTF-8\n", "\nkeyboard --xlayouts=de\n",
          "\ntimezone Europe/Berlin --utc\n"}) {
      EXPECT_NE(std::string::npos, ks.find(line)) << line;
    }

    // The words as anaconda splits them (shlex, # a comment).
    TempDir tmp;
    Json words = Json::parse(
        python("import json,shlex,sys\n"
               "out={}\n"
               "for line in open(sys.argv[1],encoding='utf-8'):\n"
               "  w=shlex.split(line,comments=True)\n"
               "  if w and w[0] in ('user','rootpw'): out[w[0]]=w[1:]\n"
               "print(json.dumps(out))\n",
               write(tmp, "ks.cfg", ks)));
    std::vector<std::string> user = words["user"];
    ASSERT_EQ(5u, user.size());
    EXPECT_EQ("--name=alice", user[0]);
    EXPECT_EQ(std::string("--gecos=") + kFullName, user[1]);
    EXPECT_EQ("--groups=wheel", user[2]);
    EXPECT_EQ("--iscrypted", user[3]);
    expectHashOf(user[4].substr(std::string("--password=").size()), kPassword);
    std::vector<std::string> rootpw = words["rootpw"];
    ASSERT_FALSE(rootpw.empty());
    EXPECT_EQ("--iscrypted", rootpw[0]);
    expectHashOf(rootpw.back(), kRootPassword);
  }
}

TEST(AnswersLinux, KickstartSourceAndFinish) {
  InstallEntries e = entries();
  e.powerOff = true;
  e.repoUrl = "https://mirror.example/el9/BaseOS/x86_64/os/";
  Answer answer;
  std::string error;
  ASSERT_TRUE(gp::medium::writeKickstart(
      disc("rhel", "9.3", "anaconda", "RHEL", false), e, answer, error))
      << error;
  const std::string &ks = answer.files[0].text;
  EXPECT_NE(std::string::npos,
            ks.find("\nurl --url=https://mirror.example/el9/BaseOS/x86_64/"
                    "os/\n"));
  EXPECT_EQ(std::string::npos, ks.find("\ncdrom\n"));
  EXPECT_NE(std::string::npos, ks.find("\npoweroff\n"));
  EXPECT_EQ(std::string::npos, ks.find("reboot"));
}

TEST(AnswersLinux, DescriptionTellsDvdsFromBootDiscs) {
  const std::string treeinfo =
      "[header]\ntype = productmd.treeinfo\nversion = 1.2\n\n"
      "[release]\nname = Red Hat Enterprise Linux\nshort = RHEL\n"
      "version = 9.3\n\n[tree]\narch = x86_64\n\n"
      "[variant-BaseOS]\nrepository = BaseOS\n\n"
      "[variant-AppStream]\nrepository = AppStream\n";
  struct Case {
    const char *what;
    gp::test::FileTree files;
    bool repositories;
  };
  const Case cases[] = {
      {"EL DVD",
       {{".treeinfo", treeinfo},
        {"AppStream/repodata/repomd.xml", "<repomd/>"}},
       true},
      {"repository at the root",
       {{".treeinfo", treeinfo}, {"repodata/repomd.xml", "<repomd/>"}},
       true},
      {"boot disc",
       {{".treeinfo", treeinfo}, {"images/install.img", "x"}},
       false},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    std::string image =
        gp::test::isoFromTree(c.files, gp::test::IsoFlavor::JolietRockRidge);
    std::optional<Described> d =
        gp::medium::describeImage(image.c_str(), nullptr);
    ASSERT_TRUE(d && d->facts.os);
    EXPECT_EQ("anaconda", d->facts.os->installer.value_or(""));
    EXPECT_EQ(c.repositories, d->facts.packageRepositories);
  }
}

// ---- Ubuntu autoinstall ----

TEST(AnswersLinux, AutoinstallPassesCloudInitAndOurSchema) {
  for (bool powerOff : {false, true}) {
    InstallEntries e = entries();
    e.powerOff = powerOff;
    Answer answer;
    std::string error;
    ASSERT_TRUE(gp::medium::writeAutoinstall(
        disc("ubuntu", "24.04", "subiquity", "Ubuntu-Server"), e, answer,
        error))
        << error;
    EXPECT_EQ("CIDATA", answer.volumeLabel);
    ASSERT_EQ(2u, answer.files.size());
    EXPECT_EQ("user-data", answer.files[0].name);
    EXPECT_EQ("meta-data", answer.files[1].name);
    TempDir tmp;
    std::string userData = write(tmp, "user-data", answer.files[0].text);
    std::string metaData = write(tmp, "meta-data", answer.files[1].text);
    std::string out;
    EXPECT_EQ(0, runCommand("cloud-init schema --config-file " +
                                shellQuote(userData) + " 2>&1",
                            &out))
        << out;

    std::string checked;
    ASSERT_EQ(0, runCommand("python3 " +
                                shellQuote(gp::test::sourcePath(
                                    "tests/data/autoinstall/check.py")) +
                                " " + shellQuote(userData) + " " +
                                shellQuote(gp::test::sourcePath(
                                    "tests/data/autoinstall/schema.json")) +
                                " " + shellQuote(metaData),
                            &checked))
        << checked;
    Json doc = Json::parse(checked);
    const Json &ai = doc["autoinstall"];
    EXPECT_EQ(kFullName, ai["identity"]["realname"]);
    EXPECT_EQ("alice", ai["identity"]["username"]);
    EXPECT_EQ("guest-1", ai["identity"]["hostname"]);
    expectHashOf(ai["identity"]["password"], kPassword);
    EXPECT_EQ("de_DE.UTF-8", ai["locale"]);
    EXPECT_EQ("de", ai["keyboard"]["layout"]);
    EXPECT_EQ("Europe/Berlin", ai["user-data"]["timezone"]);
    EXPECT_EQ(powerOff ? "poweroff" : "reboot", ai["shutdown"]);
    EXPECT_EQ("guest-1", doc["meta"]["local-hostname"]);
    EXPECT_EQ("guestprep-guest-1", doc["meta"]["instance-id"]);
    // root's hash rides in a late command: a shell word in a YAML string.
    std::string rootCommand = ai["late-commands"][1];
    std::smatch m;
    ASSERT_TRUE(std::regex_search(rootCommand, m,
                                  std::regex(R"(usermod -p '(\S+)' root$)")));
    expectHashOf(m[1].str(), kRootPassword);
  }
}

// ---- Debian preseed ----

TEST(AnswersLinux, PreseedPassesDebconfAndKeepsItsValues) {
  InstallEntries e = entries();
  e.fullName = " Zo\xC3\xAB \"Q\" O'Brien & <Co> #1 $HOME \\ x ";
  Answer answer;
  std::string error;
  ASSERT_TRUE(gp::medium::writePreseed(
      disc("debian", "12.5.0", "debian-installer", "Debian GNU/Linux"), e,
      answer, error))
      << error;
  EXPECT_EQ("", answer.volumeLabel);
  ASSERT_EQ(1u, answer.files.size());
  EXPECT_EQ("preseed.cfg", answer.files[0].name);
  TempDir tmp;
  std::string path = write(tmp, "preseed.cfg", answer.files[0].text);
  // debconf-set-selections exits 0 even on bad lines: only its silence
  // says that every line was taken.
  std::string err;
  EXPECT_EQ(0, runCommand("debconf-set-selections -c " + shellQuote(path) +
                              " 2>&1 >/dev/null",
                          &err));
  EXPECT_EQ("", err);

  // The values as debconf splits a line: owner, question, type, value.
  Json values = Json::parse(python(
      "import json,re,sys\n"
      "out={}\n"
      "for line in open(sys.argv[1],encoding='utf-8'):\n"
      "  "
      "m=re.match(r'^\\s*(\\S+)\\s+(\\S+)\\s+(\\S+)(?:\\s(.*))?$',line.rstrip('"
      "\\n'))\n"
      "  if m and not line.startswith('#'): out[m.group(2)]=m.group(4) or ''\n"
      "print(json.dumps(out))\n",
      path));
  EXPECT_EQ(e.fullName, values["passwd/user-fullname"]);
  EXPECT_EQ("alice", values["passwd/username"]);
  EXPECT_EQ("guest-1", values["netcfg/get_hostname"]);
  EXPECT_EQ("de_DE.UTF-8", values["debian-installer/locale"]);
  EXPECT_EQ("Europe/Berlin", values["time/zone"]);
  EXPECT_EQ("deb.debian.org", values["mirror/http/hostname"]);
  EXPECT_NE(std::string::npos,
            answer.files[0].text.find(
                "\nd-i finish-install/reboot_in_progress note\n"));
  EXPECT_EQ("default", values["grub-installer/bootdev"]);
  EXPECT_EQ("true", values["partman/confirm_nooverwrite"]);
  EXPECT_NE("", values["preseed/late_command"]);
  expectHashOf(values["passwd/user-password-crypted"], kPassword);
  expectHashOf(values["passwd/root-password-crypted"], kRootPassword);

  e.repoUrl = "https://mirror.example:8443/pub/debian";
  ASSERT_TRUE(gp::medium::writePreseed(
      disc("debian", "13", "debian-installer", "Debian GNU/Linux"), e, answer,
      error))
      << error;
  const std::string &text = answer.files[0].text;
  EXPECT_NE(std::string::npos, text.find("\nd-i mirror/https/hostname string "
                                         "mirror.example:8443\n"));
  EXPECT_NE(std::string::npos,
            text.find("\nd-i mirror/https/directory string /pub/debian\n"));
}

// ---- AutoYaST ----

using XmlDoc = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;
using XPathContext =
    std::unique_ptr<xmlXPathContext, decltype(&xmlXPathFreeContext)>;
using XPathObject =
    std::unique_ptr<xmlXPathObject, decltype(&xmlXPathFreeObject)>;

std::string xpathText(xmlXPathContext *ctx, const char *expr) {
  XPathObject obj(
      xmlXPathEvalExpression(reinterpret_cast<const xmlChar *>(expr), ctx),
      xmlXPathFreeObject);
  if (!obj || obj->nodesetval == nullptr || obj->nodesetval->nodeNr != 1) {
    ADD_FAILURE() << "not exactly one node: " << expr;
    return "";
  }
  xmlChar *content = xmlNodeGetContent(obj->nodesetval->nodeTab[0]);
  std::string out = content != nullptr ? reinterpret_cast<char *>(content) : "";
  xmlFree(content);
  return out;
}

TEST(AnswersLinux, AutoyastPassesXmllintAndItsPaths) {
  struct Case {
    const char *distro, *version, *name, *product;
    bool modules;
  };
  for (const Case &c :
       {Case{"sle", "15 SP4", "SUSE Linux Enterprise Server", "SLES", true},
        Case{"sle", "15.5", "SLED15-SP5", "SLED", true},
        Case{"opensuse", "15.5", "openSUSE Leap", "Leap", false}}) {
    SCOPED_TRACE(c.name);
    Answer answer;
    std::string error;
    ASSERT_TRUE(gp::medium::writeAutoyast(
        disc(c.distro, c.version, "yast", c.name), entries(), answer, error))
        << error;
    EXPECT_EQ("OEMDRV", answer.volumeLabel);
    ASSERT_EQ(1u, answer.files.size());
    EXPECT_EQ("autoinst.xml", answer.files[0].name);
    TempDir tmp;
    std::string path = write(tmp, "autoinst.xml", answer.files[0].text);
    std::string out;
    EXPECT_EQ(
        0, runCommand("xmllint --noout --nonet " + shellQuote(path) + " 2>&1",
                      &out))
        << out;

    const std::string &text = answer.files[0].text;
    XmlDoc doc(xmlReadMemory(text.data(), static_cast<int>(text.size()),
                             "autoinst.xml", nullptr, XML_PARSE_NONET),
               xmlFreeDoc);
    ASSERT_TRUE(doc);
    XPathContext ctx(xmlXPathNewContext(doc.get()), xmlXPathFreeContext);
    xmlXPathRegisterNs(ctx.get(), BAD_CAST "y",
                       BAD_CAST "http://www.suse.com/1.0/yast2ns");
    xmlXPathRegisterNs(ctx.get(), BAD_CAST "c",
                       BAD_CAST "http://www.suse.com/1.0/configns");
    auto at = [&](const char *expr) { return xpathText(ctx.get(), expr); };
    EXPECT_EQ("false", at("/y:profile/y:general/y:mode/y:confirm"));
    EXPECT_EQ("boolean", at("/y:profile/y:general/y:mode/y:confirm/@c:type"));
    EXPECT_EQ(c.product, at("/y:profile/y:software/y:products/y:product"));
    EXPECT_EQ(kFullName, at("//y:user[y:username='alice']/y:fullname"));
    EXPECT_EQ("true", at("//y:user[y:username='alice']/y:encrypted"));
    EXPECT_EQ("true", at("//y:user[y:username='root']/y:encrypted"));
    expectHashOf(at("//y:user[y:username='alice']/y:user_password"), kPassword);
    expectHashOf(at("//y:user[y:username='root']/y:user_password"),
                 kRootPassword);
    EXPECT_EQ("guest-1", at("//y:networking/y:dns/y:hostname"));
    EXPECT_EQ("german", at("//y:keyboard/y:keymap"));
    EXPECT_EQ("Europe/Berlin", at("//y:timezone/y:timezone"));
    EXPECT_EQ(c.modules, text.find("Module-Basesystem") != std::string::npos);
  }
}

// ---- what each writer refuses ----

TEST(AnswersLinux, RefusedEntriesAndDiscs) {
  using Writer = bool (*)(const Described &, const InstallEntries &, Answer &,
                          std::string &);
  const Described el9 = disc("rhel", "9.3", "anaconda", "RHEL");
  const Described ubuntu = disc("ubuntu", "22.04", "subiquity", "Ubuntu");
  const Described debian = disc("debian", "12", "debian-installer", "Debian");
  const Described sle = disc("sle", "15 SP5", "yast", "SLES");
  struct Case {
    const char *what;
    Writer writer;
    Described disc;
    void (*change)(InstallEntries &);
    const char *message;  // part of the error
  };
  const Case cases[] = {
      {"line break in the full name", gp::medium::writeKickstart, el9,
       [](InstallEntries &e) { e.fullName = "A\nB"; }, "one line"},
      {"colon in the full name", gp::medium::writeAutoyast, sle,
       [](InstallEntries &e) { e.fullName = "A:B"; }, "colon"},
      {"not UTF-8", gp::medium::writeAutoinstall, ubuntu,
       [](InstallEntries &e) { e.fullName = "\xC3("; }, "UTF-8"},
      {"trailing backslash in a preseed value", gp::medium::writePreseed,
       debian, [](InstallEntries &e) { e.fullName = "A\\"; }, "backslash"},
      {"digit first on Debian", gp::medium::writePreseed, debian,
       [](InstallEntries &e) { e.user = "1alice"; },
       "must start with a lowercase"},
      {"upper case user", gp::medium::writeKickstart, el9,
       [](InstallEntries &e) { e.user = "Alice"; }, "lowercase"},
      {"root as the user", gp::medium::writeKickstart, el9,
       [](InstallEntries &e) { e.user = "root"; }, "root"},
      {"empty password", gp::medium::writeAutoyast, sle,
       [](InstallEntries &e) { e.password.clear(); }, "password"},
      {"unknown time zone", gp::medium::writeAutoinstall, ubuntu,
       [](InstallEntries &e) { e.timeZone = "Mars/Olympus"; }, "time zone"},
      {"language without country", gp::medium::writePreseed, debian,
       [](InstallEntries &e) { e.language = "german"; }, "language"},
      {"host name with a dot", gp::medium::writeKickstart, el9,
       [](InstallEntries &e) { e.hostname = "a.b"; }, "host name"},
      {"repository with a quote", gp::medium::writeKickstart, el9,
       [](InstallEntries &e) { e.repoUrl = "http://x/'y"; }, "URL"},
      {"missing templates", gp::medium::writeAutoyast, sle,
       [](InstallEntries &e) { e.templateDir = "/nonexistent"; },
       "/nonexistent/yast/autoinst.xml"},
      {"boot disc without a repository", gp::medium::writeKickstart,
       disc("rhel", "9.3", "anaconda", "RHEL", false), [](InstallEntries &) {},
       "no package repositories"},
      {"EL 7", gp::medium::writeKickstart,
       disc("centos", "7", "anaconda", "CentOS"), [](InstallEntries &) {},
       "EL 8 and later"},
      {"Ubuntu 18.04", gp::medium::writeAutoinstall,
       disc("ubuntu", "18.04", "subiquity", "Ubuntu"), [](InstallEntries &) {},
       "20.04"},
      {"Debian 10", gp::medium::writePreseed,
       disc("debian", "10", "debian-installer", "Debian"),
       [](InstallEntries &) {}, "Debian 11"},
      {"SLE 12", gp::medium::writeAutoyast,
       disc("sles", "12 SP5", "yast", "SLES"), [](InstallEntries &) {},
       "SLE 15"},
      {"another installer's disc", gp::medium::writeKickstart, debian,
       [](InstallEntries &) {}, "not installed with anaconda"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    InstallEntries e = entries();
    c.change(e);
    Answer answer;
    std::string error;
    EXPECT_FALSE(c.writer(c.disc, e, answer, error));
    EXPECT_NE(std::string::npos, error.find(c.message)) << error;
    EXPECT_TRUE(answer.files.empty());
  }
}

// ---- templates ----

TEST(AnswersLinux, TemplateDirectoryOverridesAndNamesItsErrors) {
  TempDir tmp;
  gp::test::writeFile(tmp / "anaconda/ks.cfg",
                      "# mine\nuser --name={{user}}\n%packages\n%end\n");
  InstallEntries e = entries();
  e.templateDir = tmp.path();
  Answer answer;
  std::string error;
  ASSERT_TRUE(gp::medium::writeKickstart(
      disc("rhel", "8.9", "anaconda", "RHEL"), e, answer, error))
      << error;
  EXPECT_EQ("# mine\nuser --name=alice\n%packages\n%end\n",
            answer.files[0].text);

  gp::test::writeFile(tmp / "anaconda/ks.cfg", "user {{nope}}\n");
  EXPECT_FALSE(gp::medium::writeKickstart(
      disc("rhel", "8.9", "anaconda", "RHEL"), e, answer, error));
  EXPECT_NE(std::string::npos, error.find("{{nope}}")) << error;
  gp::test::writeFile(tmp / "anaconda/ks.cfg", "user {{user\n");
  EXPECT_FALSE(gp::medium::writeKickstart(
      disc("rhel", "8.9", "anaconda", "RHEL"), e, answer, error));
  EXPECT_NE(std::string::npos, error.find("not closed")) << error;
}

// ---- the escapers, read back by the formats' own parsers ----

TEST(AnswersLinux, EscapedValuesComeBackThroughEachParser) {
  const std::vector<std::string> values = {
      kFullName,
      kPassword,
      "",
      "'",
      "--x",
      "a\tb",
      "\xE2\x80\xA8 sep",
      "bom \xEF\xBB\xBF",
      "\xC2\x85nel",
      "yes",
      "null",
      "# not a comment",
  };
  Json list = Json::array();
  std::string yaml, words;
  for (const std::string &v : values) {
    list.push_back(v);
    yaml += "- " + gp::medium::yamlQuoted(v).value() + "\n";
    words += gp::medium::kickstartWord(v) + " ";
  }
  TempDir tmp;
  std::string yamlPath = write(tmp, "values.yaml", yaml);
  EXPECT_EQ(list, Json::parse(
                      python("import json,sys,yaml\n"
                             "print(json.dumps(yaml.safe_load(open(sys.argv[1],"
                             "encoding='utf-8').read())))\n",
                             yamlPath)));
  std::string wordsPath = write(tmp, "words.txt", words + "# trailing\n");
  EXPECT_EQ(list,
            Json::parse(python("import json,shlex,sys\n"
                               "print(json.dumps(shlex.split(open(sys.argv[1],"
                               "encoding='utf-8').read(),comments=True)))\n",
                               wordsPath)));
  // XML: the same values (but the YAML line breaks, which XML keeps) as
  // attribute and element text.
  std::string xml = "<r>";
  for (const std::string &v : values) {
    std::string e = gp::medium::xmlEscaped(v).value();
    xml += "<v a=\"" + e + "\">" + e + "</v>";
  }
  xml += "</r>";
  XmlDoc doc(xmlReadMemory(xml.data(), static_cast<int>(xml.size()), "v.xml",
                           "UTF-8", XML_PARSE_NONET),
             xmlFreeDoc);
  ASSERT_TRUE(doc);
  size_t i = 0;
  for (xmlNode *n = xmlDocGetRootElement(doc.get())->children; n != nullptr;
       n = n->next, ++i) {
    ASSERT_LT(i, values.size());
    xmlChar *text = xmlNodeGetContent(n);
    xmlChar *attr = xmlGetProp(n, BAD_CAST "a");
    EXPECT_EQ(values[i], reinterpret_cast<char *>(text));
    // Attribute values normalise a tab to a blank.
    if (values[i].find('\t') == std::string::npos) {
      EXPECT_EQ(values[i], reinterpret_cast<char *>(attr));
    }
    xmlFree(text);
    xmlFree(attr);
  }
  EXPECT_EQ(values.size(), i);

  EXPECT_FALSE(gp::medium::xmlEscaped("a\x01").has_value());
  EXPECT_FALSE(gp::medium::xmlEscaped("\xEF\xBF\xBE").has_value());
  EXPECT_FALSE(gp::medium::yamlQuoted("\xED\xA0\x80").has_value());
  EXPECT_FALSE(gp::medium::fitsDebconfValue("a\rb"));
  EXPECT_TRUE(gp::medium::fitsDebconfValue("a \\ b #$"));
}

TEST(AnswersLinux, HashesAreSaltedAndRefuseNul) {
  auto a = gp::medium::sha512CryptHash("same");
  auto b = gp::medium::sha512CryptHash("same");
  ASSERT_TRUE(a && b);
  EXPECT_NE(*a, *b);
  expectHashOf(*a, "same");
  EXPECT_FALSE(gp::medium::sha512CryptHash(std::string("a\0b", 3)));
}

}  // namespace
