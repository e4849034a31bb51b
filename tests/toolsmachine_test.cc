// The tools status of whole machines: configuration file, extended
// configuration XML, disk descriptors and tools images made by xorriso,
// all built in a fresh directory per test.
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "guestprep/toolsversion.h"
#include "lib/toolsversion/toolsversion_machine.h"
#include "platform/disks.h"
#include "platform/hostio.h"
#include "platform/log.h"
#include "support/fixtures.h"

namespace {

namespace fs = std::filesystem;
using namespace gp::tools;
using gp::test::readFile;
using gp::test::writeFile;
using Lines = std::vector<std::string>;

constexpr uint32_t kReadDisks = 0xFFFFFFFF;

const char kHostManifest[] =
    "monolithic.version = 8.3.2.4000\nvmhgfs.version = 8.3.2\n";
const char kAvr[] =
    "monolithic.version = 8.0\nmonolithic.version_max = 8.9\n"
    "monolithic.version_illegal = 8.1.5\n";

// One machine directory: "machine.cfg", "machine.xml", and a library
// directory with tools images holding `hostManifest`.
struct Machine {
  gp::test::TempDir dir;
  std::string config = dir / "vm/machine.cfg";
  std::string xml = dir / "vm/machine.xml";
  std::string lib = dir / "lib";
  std::string images = lib + "/isoimages";

  explicit Machine(const std::string &guestOS = "ubuntu",
                   const std::string &extra = "") {
    setenv("TMPDIR", dir.path().c_str(), 1);
    writeConfig(guestOS, extra);
    writeFile(xml, "<config/>\n");
    image("linux.iso", kHostManifest);
    writeFile(images + "/linux_avr_manifest.txt", kAvr);
  }
  ~Machine() {
    unsetenv("TMPDIR");
    ToolsVersion_SetHostManifestCacheDir(nullptr);
  }
  void writeConfig(const std::string &guestOS, const std::string &extra) {
    writeFile(config, "guestOS = \"" + guestOS +
                          "\"\nextendedConfigFile = \"machine.xml\"\n"
                          "libdir = \"" +
                          lib + "\"\n" + extra);
  }
  void image(const std::string &name, const std::string &manifest) {
    std::string iso = gp::test::isoFromTree(
        {{"manifest.txt", manifest}}, gp::test::IsoFlavor::JolietRockRidge);
    writeFile(images + "/" + name, readFile(iso));
  }
  int32_t status(const char *guestText, uint32_t legacy = kReadDisks) {
    return ToolsVersion_GetStatus(config.c_str(), nullptr, guestText, legacy);
  }
  // Every temporary host manifest copy is gone after a query.
  void expectNoCopies() const {
    for (const auto &e : fs::recursive_directory_iterator(dir.path())) {
      EXPECT_EQ(std::string::npos, e.path().string().find(".iso.shipped"))
          << e.path();
    }
  }
};

TEST(ToolsMachine, EveryPublicStatusFromTheManifests) {
  Machine m;
  const struct {
    const char *guest;
    int32_t status;
  } cases[] = {
      {"monolithic.version = 7.9\n", TOOLS_STATUS_TOO_OLD},
      {"monolithic.version = 8.1\n", TOOLS_STATUS_SUPPORTED_OLD},
      {"monolithic.version = 8.3.2.1\n", TOOLS_STATUS_CURRENT},
      {"monolithic.version = 8.4\n", TOOLS_STATUS_SUPPORTED_NEW},
      {"monolithic.version = 9.0\n", TOOLS_STATUS_TOO_NEW},
      {"monolithic.version = 8.1.5\n", TOOLS_STATUS_BLACKLISTED},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(c.status, m.status(c.guest)) << c.guest;
    // The same manifest as a file: the host copy lies beside it.
    writeFile(m.dir / "guest.txt", c.guest);
    EXPECT_EQ(c.status, ToolsVersion_GetStatus(m.config.c_str(),
                                               (m.dir / "guest.txt").c_str(),
                                               nullptr, kReadDisks));
  }
  // A corrupted AVR file: the host's own versions are the lowest supported.
  writeFile(m.images + "/linux_avr_manifest.txt", "broken \"\n");
  gp::LogCapture log;
  EXPECT_EQ(TOOLS_STATUS_TOO_OLD, m.status("monolithic.version = 8.1\n"));
  ASSERT_EQ(3u, log.lines().size());
  EXPECT_EQ(0u, log.lines()[0].find(
                    "ToolsVersion: Error loading dictionary from host "
                    "manifest: "));
  EXPECT_EQ("ToolsVersion: AVR file corrupted, ignoring AVR values\n",
            log.lines()[1]);
  m.expectNoCopies();
}

TEST(ToolsMachine, LegacyFallbacksAndTheirLogLines) {
  Machine m;
  gp::LogCapture log;
  EXPECT_EQ(TOOLS_STATUS_NONE, m.status("", 0));
  EXPECT_EQ(TOOLS_STATUS_RESERVED_VERSION, m.status("", 0x7FFFFFFF));
  EXPECT_EQ(Lines{}, log.lines());  // an empty text is no manifest
  // 9231 packs 9.0.15, newer than the AVR maximum 8.9.
  EXPECT_EQ(TOOLS_STATUS_TOO_NEW, m.status("", 9231));
  // (8 << 10) | (3 << 5) | 2 is 8.3.2, the host's own version.
  EXPECT_EQ(TOOLS_STATUS_CURRENT, m.status("", (8 << 10) | (3 << 5) | 2));

  // Without a tools image the number alone decides: above 9.0.14 current.
  Machine none("ztkernel");
  log.clear();
  EXPECT_EQ(TOOLS_STATUS_CURRENT, none.status("", 9231));
  EXPECT_EQ(TOOLS_STATUS_TOO_OLD, none.status("", 9230));
  EXPECT_EQ(Lines({"Failed to get tools iso path.\n",
                   "Error getting host tools manifest files.\n",
                   "Failed to get tools iso path.\n",
                   "Error getting host tools manifest files.\n"}),
            log.lines());

  // Disks that cannot be listed: the guest's hardware version decides.
  std::string disks;
  for (int i = 0; i <= int(gp::disks::kMaxDisks); ++i) {
    disks += "disk" + std::to_string(i) + ".path = d\n";
  }
  none.writeConfig("ztkernel", disks);
  EXPECT_EQ(TOOLS_STATUS_UNKNOWN, none.status("virtualHW.version = 9\n"));
  EXPECT_EQ(TOOLS_STATUS_TOO_OLD, none.status("virtualHW.version = 8\n"));
  EXPECT_EQ(TOOLS_STATUS_TOO_OLD, none.status("x.version = 1\n"));
  m.expectNoCopies();
  none.expectNoCopies();
}

TEST(ToolsMachine, LegacyVersionFromTheDisks) {
  Machine m;
  writeFile(m.dir / "vm/a.vdisk", "toolsVersion = 7240\n");
  writeFile(m.dir / "vm/b.vdisk", "toolsVersion = \"9230\"\n");
  writeFile(m.dir / "vm/abc.vdisk", "toolsVersion = abc\n");
  writeFile(m.dir / "vm/big.vdisk", "toolsVersion = 99999999999\n");
  writeFile(m.dir / "vm/huge.vdisk", std::string(10u << 20, '7'));
  writeFile(m.dir / "vm/bad.vdisk", "RW 4192256 SPARSE \"x\"\n");
  writeFile(m.dir / "outside.vdisk", "toolsVersion = 60000\n");
  const struct {
    const char *disks;
    Bool ok;
    uint32_t version;
  } cases[] = {
      {"disk0.path = a.vdisk\ndisk1.path = b.vdisk\n", TRUE, 9230},
      {"disk10.path = a.vdisk\ndisk2.path = abc.vdisk\n", TRUE, 7240},
      {"disk0.path = missing.vdisk\n", TRUE, 0},
      {"disk0.path = big.vdisk\ndisk1.path = huge.vdisk\n"
       "disk2.path = bad.vdisk\n",
       TRUE, 0},
      {"disk0.path = ../outside.vdisk\ndisk1.path = a.vdisk\n", TRUE, 7240},
      {"", TRUE, 0},
  };
  for (const auto &c : cases) {
    m.writeConfig("ubuntu", c.disks);
    uint32_t version = 77;
    EXPECT_EQ(c.ok,
              ToolsVersion_GetLegacyVersionNumber(m.config.c_str(), &version))
        << c.disks;
    EXPECT_EQ(c.version, version) << c.disks;
  }
  uint32_t version = 77;
  EXPECT_FALSE(ToolsVersion_GetLegacyVersionNumber(
      (m.dir / "no-such.cfg").c_str(), &version));
  EXPECT_EQ(0u, version);

  // Index order, relative paths against the configuration's directory.
  m.writeConfig("ubuntu",
                "disk10.path = j\ndisk2.path = /abs/i\ndisk3.path = ..\n");
  std::vector<std::string> paths;
  ASSERT_TRUE(gp::disks::listCurrentDisks(m.config.c_str(), &paths));
  EXPECT_EQ((std::vector<std::string>{"/abs/i", m.dir / "vm/j"}), paths);
}

TEST(ToolsMachine, ImageOfEachFamily) {
  Machine m;
  const struct {
    const char *guestOS;
    const char *iso;
    int format;
  } cases[] = {
      {"win98", "winPre2k.iso", 2},     {"WINXPPRO", "windows.iso", 2},
      {"ubuntu", "linux.iso", 4},       {"rhel6-64", "linux.iso", 4},
      {"solaris10", "solaris.iso", 4},  {"netware6", "netware.iso", 4},
      {"freeBSD-64", "freebsd.iso", 4}, {"ztkernel", nullptr, 0},
      {"no-such-guest", nullptr, 0},
  };
  for (const auto &c : cases) {
    m.writeConfig(c.guestOS, "");
    ToolsIsoPaths paths;
    ASSERT_EQ(c.iso != nullptr,
              toolsGetIsoPath(m.config.c_str(), nullptr, &paths))
        << c.guestOS;
    if (c.iso != nullptr) {
      EXPECT_EQ(m.images + "/" + c.iso, paths.isoPath);
      EXPECT_EQ(c.format, paths.isoFormat) << c.guestOS;
    }
  }
  m.writeConfig("ubuntu", "");
  writeFile(m.config, "guestOS = ubuntu\nlibdir = /opt/tv/lib\n");
  ToolsIsoPaths paths;
  ASSERT_TRUE(toolsGetIsoPath(m.config.c_str(), nullptr, &paths));
  std::string avr, cache;
  toolsGetManifestPaths(paths.isoDir, paths.isoBase, &avr, &cache);
  EXPECT_EQ("/opt/tv/lib/isoimages/linux.iso", paths.isoPath);
  EXPECT_EQ("/opt/tv/lib/isoimages/linux_avr_manifest.txt", avr);
  EXPECT_EQ("", cache);
  ToolsVersion_SetHostManifestCacheDir("/var/cache/tv");
  toolsGetManifestPaths(paths.isoDir, paths.isoBase, &avr, &cache);
  EXPECT_EQ("/var/cache/tv/linux_manifest.txt", cache);
  ToolsVersion_SetHostManifestCacheDir("");  // never the root directory
  toolsGetManifestPaths(paths.isoDir, paths.isoBase, &avr, &cache);
  EXPECT_EQ("", cache);
}

TEST(ToolsMachine, CacheIsFilledReusedAndRefreshed) {
  Machine m;
  std::string cacheDir = m.dir / "cache";
  fs::create_directory(cacheDir);
  std::string cached = cacheDir + "/linux_manifest.txt";
  ToolsVersion_SetHostManifestCacheDir(cacheDir.c_str());
  EXPECT_EQ(TOOLS_STATUS_CURRENT, m.status("monolithic.version = 8.3.2\n"));
  EXPECT_EQ(kHostManifest, readFile(cached));

  // A cached manifest is used as it stands, without opening the image.
  writeFile(cached, "monolithic.version = 8.5\nvmhgfs.version = 1\n");
  fs::remove(m.images + "/linux.iso");
  EXPECT_EQ(TOOLS_STATUS_SUPPORTED_OLD,
            m.status("monolithic.version = 8.3.2\n"));

  // Initialisation replaces every cache file from the images there are.
  m.image("linux.iso", kHostManifest);
  m.image("windows.iso", "monolithic.version = 9.1\n");
  writeFile(cacheDir + "/solaris_manifest.txt", "stale.version = 1\n");
  toolsSetDefaultLibDir(m.lib.c_str());
  gp::LogCapture log;
  ToolsVersion_InitHostManifestCache(cacheDir.c_str());
  toolsSetDefaultLibDir("/usr/lib/zentav");
  EXPECT_EQ(kHostManifest, readFile(cached));
  EXPECT_EQ("monolithic.version = 9.1\n",
            readFile(cacheDir + "/windows_manifest.txt"));
  EXPECT_FALSE(gp::test::fileExists(cacheDir + "/solaris_manifest.txt"));
  EXPECT_EQ(Lines(4, "Failed to open tools ISO image.\n"), log.lines());
  m.expectNoCopies();
}

TEST(ToolsMachine, TruncatedOrMissingImageFallsBackOnTheLegacyNumber) {
  Machine m;
  std::string iso = m.images + "/linux.iso";
  std::string full = readFile(iso);
  gp::LogCapture log;
  const std::string open = "Failed to open tools ISO image.\n";
  const std::string extract =
      "Failed to extract version file from tools ISO image.\n";
  const std::string gather = "Error getting host tools manifest files.\n";
  // No volume descriptor, none complete, the manifest cut short.
  for (auto [size, line] :
       {std::pair{size_t{0}, open}, std::pair{size_t{36864}, open},
        std::pair{size_t{60000}, extract}}) {
    writeFile(iso, full.substr(0, size));
    log.clear();
    EXPECT_EQ(TOOLS_STATUS_CURRENT,
              m.status("monolithic.version = 8.3.2\n", 9231));
    EXPECT_EQ(Lines({line, gather, line, gather}), log.lines()) << size;
    EXPECT_EQ(TOOLS_STATUS_TOO_OLD, m.status("", 9230));
  }
  m.expectNoCopies();
  // A cache never keeps half a manifest.
  ToolsVersion_SetHostManifestCacheDir(m.dir.path().c_str());
  m.status("", 9230);
  EXPECT_FALSE(gp::test::fileExists(m.dir / "linux_manifest.txt"));
}

TEST(ToolsMachine, StatusFromTheExtendedConfiguration) {
  Machine m;
  const struct {
    const char *xml;
    int32_t status;
  } cases[] = {
      // The agent's own verdict stands, even outside the public codes.
      {"<update-agent-info><tools><monolithic status=\"5\"/></tools>"
       "</update-agent-info>",
       5},
      {"<Update-Agent-Info><TOOLS><monolithic status=\"42\"/></TOOLS>"
       "</Update-Agent-Info>",
       42},
      // 9 or 0: the kept manifest decides.
      {"<update-agent-info><tools><monolithic status=\"9\"/></tools>"
       "</update-agent-info><tools-manifest><monolithic version=\"8.1\" "
       "installed=\"true\"/></tools-manifest>",
       TOOLS_STATUS_SUPPORTED_OLD},
      {"<tools-manifest><monolithic version=\"7.0\" installed=\"TRUE\"/>"
       "</tools-manifest><tools-manifest><monolithic version=\"8.3.2\" "
       "installed=\"TRUE\"/></tools-manifest>",
       TOOLS_STATUS_CURRENT},
      // Not installed, or without "installed": the component is missing.
      {"<tools-manifest><monolithic version=\"8.1\" installed=\"TRUE\"/>"
       "<vmhgfs version=\"8.3.2\"/></tools-manifest>",
       TOOLS_STATUS_SUPPORTED_OLD},
  };
  for (const auto &c : cases) {
    writeFile(m.xml, std::string("<config>") + c.xml + "</config>");
    EXPECT_EQ(c.status, m.status(nullptr, 0)) << c.xml;
  }
  gp::LogCapture log;
  writeFile(m.xml, "<config><tools-manifest/></config>");
  EXPECT_EQ(TOOLS_STATUS_NONE, m.status(nullptr, 0));
  writeFile(m.xml, "not xml");
  EXPECT_EQ(TOOLS_STATUS_NONE, m.status(nullptr, 0));
  EXPECT_EQ(Lines({"Failed to find manifest content in extended config xml.\n",
                   "Error parsing xml from extended config file.\n"}),
            log.lines());
  m.expectNoCopies();
}

// The extended configuration file: reading, rewriting, refusing.
struct XmlFile : Machine {
  // "name guest repo status" per record, "-" for an absent version; "" when
  // the call fails.
  std::string updateInfo() {
    ToolsUpdateInfo *info = nullptr;
    int count = -1;
    if (!ToolsVersion_GetUpdateInfo(config.c_str(), &info, &count)) {
      return "";
    }
    std::string out;
    for (int i = 0; i < count; ++i) {
      const ToolsUpdateInfo &r = info[i];
      out += std::string(r.name) + " " +
             (r.guestVersion ? r.guestVersion : "-") + " " +
             (r.repoVersion ? r.repoVersion : "-") + " " +
             std::to_string(r.status) + "\n";
    }
    ToolsVersion_FreeUpdateInfo(info, count);
    return out;
  }
};

TEST(ToolsXml, UpdateAndInstallInfoAreReadBack) {
  XmlFile f;
  writeFile(f.xml,
            "<config><update-agent-info><tools><monolithic guestVersion=\"8.3\""
            " repoVersion=\"8.4\" status=\"2\"/><vmhgfs status=\"0\"/>"
            "<vmxnet status=\"abc\"/></tools></update-agent-info>"
            "<tools-install-info><installError>7</installError>"
            "<installError> -3</installError><updateCounter>4</updateCounter>"
            "</tools-install-info></config>");
  EXPECT_EQ("monolithic 8.3 8.4 2\nvmhgfs - - 9\nvmxnet - - 9\n",
            f.updateInfo());
  int error = 1, counter = 1;
  EXPECT_TRUE(ToolsVersion_GetInstallInfo(f.config.c_str(), &error, &counter));
  EXPECT_EQ(-3, error);
  EXPECT_EQ(4, counter);
  EXPECT_TRUE(ToolsVersion_GetInstallInfo(f.config.c_str(), nullptr, nullptr));

  gp::LogCapture log;
  writeFile(f.xml,
            "<config><update-agent-info><tools/></update-agent-info>"
            "</config>");
  EXPECT_TRUE(f.updateInfo() == "");
  EXPECT_TRUE(ToolsVersion_GetInstallInfo(f.config.c_str(), &error, &counter));
  EXPECT_EQ(0, error + counter);
  EXPECT_EQ(Lines{"Failed to find update agent tools info in extended config "
                  "xml.\n"},
            log.lines());
}

TEST(ToolsXml, SaveRewritesOnlyWhatItOwns) {
  XmlFile f;
  const std::string original =
      "<?xml version=\"1.0\"?>\n<config keep=\"1\"><other a=\"b\"/>"
      "<tools-manifest><old/></tools-manifest><update-agent-info><x/>"
      "<tools/></update-agent-info><tools-manifest><older/></tools-manifest>"
      "</config>\n";
  writeFile(f.xml, original);
  EXPECT_TRUE(ToolsVersion_SaveXmlInfo(f.config.c_str(), nullptr, "", 0, 0));
  EXPECT_EQ(original, readFile(f.xml));

  // The agent's report replaces the old one; its monolithic version becomes
  // the kept manifest (the last one is replaced, the first stays).
  EXPECT_TRUE(ToolsVersion_SaveXmlInfo(
      f.config.c_str(),
      "<r><tools><monolithic guestVersion=\"8.3.2.1\" status=\"3\" x=\"y\"/>"
      "</tools><os/></r>",
      nullptr, 0, 3));
  EXPECT_EQ(
      "<?xml version=\"1.0\"?>\n<config keep=\"1\"><other a=\"b\"/>"
      "<tools-manifest><old/></tools-manifest><update-agent-info><tools>"
      "<monolithic guestVersion=\"8.3.2.1\" status=\"3\"/></tools><os/>"
      "</update-agent-info><tools-manifest><monolithic version=\"8.3.2.1\"/>"
      "</tools-manifest><tools-install-info><installError>0</installError>"
      "<updateCounter>3</updateCounter></tools-install-info></config>\n",
      readFile(f.xml));
  int error = -1, counter = -1;
  ASSERT_TRUE(ToolsVersion_GetInstallInfo(f.config.c_str(), &error, &counter));
  EXPECT_EQ(0, error);
  EXPECT_EQ(3, counter);

  // A manifest text replaces the element again; names keep their case,
  // and names that are no element names are left out.
  EXPECT_TRUE(ToolsVersion_SaveXmlInfo(
      f.config.c_str(), "null",
      ".encoding = \"UTF-8\"\ntools.version = 8.3.2.1\n"
      "Tools.version = 1\ntools.installed = TRUE\nbad<name.version = 1\n"
      "plain = 1\n",
      -5, 4));
  std::string saved = readFile(f.xml);
  EXPECT_NE(std::string::npos,
            saved.find("<tools-install-info><installError>-5</installError>"
                       "<updateCounter>4</updateCounter></tools-install-info>"
                       "<tools-manifest><tools version=\"8.3.2.1\" "
                       "installed=\"TRUE\"/><Tools version=\"1\"/><plain/>"
                       "</tools-manifest></config>"))
      << saved;

  // "no tools" drops the agent's tools and the kept manifest.
  EXPECT_TRUE(
      ToolsVersion_SaveXmlInfo(f.config.c_str(), "no tools", nullptr, 0, 0));
  saved = readFile(f.xml);
  EXPECT_NE(std::string::npos,
            saved.find("<update-agent-info><os/></update-agent-info>"))
      << saved;
  EXPECT_EQ(std::string::npos, saved.find("<plain/>"));
  EXPECT_NE(std::string::npos,
            saved.find("<tools-manifest><old/></tools-manifest>"));
}

TEST(ToolsXml, FailedSavesLeaveTheFileAsItWas) {
  XmlFile f;
  const std::string original = "<config><tools-manifest/></config>\n";
  writeFile(f.xml, original);
  gp::LogCapture log;
  EXPECT_FALSE(
      ToolsVersion_SaveXmlInfo(f.config.c_str(), "<r>", nullptr, 0, 0));
  EXPECT_FALSE(
      ToolsVersion_SaveXmlInfo(f.config.c_str(), nullptr, "a = \"x", 0, 0));
  gp::HostOps ops = gp::hostOps();
  ops.write = [](int, const void *, size_t) -> ssize_t {
    return errno = ENOSPC, -1;
  };
  {
    gp::ScopedHostOps scoped(ops);
    EXPECT_FALSE(ToolsVersion_SaveXmlInfo(f.config.c_str(), nullptr,
                                          "a.version = 1\n", 0, 1));
  }
  ops = gp::hostOps();
  ops.mkstemp = [](char *) { return errno = EACCES, -1; };
  {
    gp::ScopedHostOps scoped(ops);
    EXPECT_FALSE(ToolsVersion_SaveXmlInfo(f.config.c_str(), nullptr,
                                          "a.version = 1\n", 0, 1));
  }
  EXPECT_EQ(original, readFile(f.xml));
  ASSERT_EQ(6u, log.lines().size());
  EXPECT_EQ("Error parsing xml from update agent.\n", log.lines()[0]);
  EXPECT_EQ(0u, log.lines()[1].find("Error loading dictionary from manifest "
                                    "buffer: "));
  EXPECT_EQ((Lines{"Error writing to extended config file: errcode 28.\n",
                   "Failed to save xml buffer in extended config file.\n",
                   "Error opening extended config file for writing: "
                   "errcode 13.\n",
                   "Failed to save xml buffer in extended config file.\n"}),
            Lines(log.lines().begin() + 2, log.lines().end()));
  // machine.cfg and machine.xml, no temporary file
  EXPECT_EQ(2, std::distance(fs::directory_iterator(f.dir / "vm"),
                             fs::directory_iterator()));
}

TEST(ToolsXml, HostileFilesAreRefusedQuicklyAndNeverExpanded) {
  XmlFile f;
  writeFile(f.dir / "secret.txt", "TOP-SECRET-CONTENT");
  std::string bomb = "<!DOCTYPE r [<!ENTITY a \"aaaaaaaaaaaaaaaa\">";
  for (char c = 'b'; c <= 'k'; ++c) {
    std::string prev(1, char(c - 1));
    bomb += std::string("<!ENTITY ") + c + " \"&" + prev + ";&" + prev + ";&" +
            prev + ";&" + prev + ";&" + prev + ";&" + prev + ";\">";
  }
  const std::string bombs[] = {
      bomb +
          "]><r><update-agent-info><tools><monolithic status=\"&k;\" "
          "guestVersion=\"&k;\"/></tools></update-agent-info></r>",
      bomb +
          "]><r><update-agent-info><tools><monolithic guestVersion=\"1\"/>"
          "</tools></update-agent-info><tools-install-info><installError>"
          "&k;</installError></tools-install-info></r>"};
  const std::string external =
      "<!DOCTYPE r [<!ENTITY s SYSTEM \"file://" + (f.dir / "secret.txt") +
      "\">]><r><update-agent-info><tools><monolithic guestVersion=\"8\" "
      "status=\"3\"/></tools></update-agent-info><tools-install-info>"
      "<installError>&s;</installError></tools-install-info></r>";
  gp::LogCapture log;
  for (const std::string &text : {bombs[0], bombs[1], external}) {
    writeFile(f.xml, text);
    int error = 5;
    ToolsVersion_GetInstallInfo(f.config.c_str(), &error, nullptr);
    EXPECT_EQ(0, error);
    auto start = std::chrono::steady_clock::now();
    std::string info = f.updateInfo();
    EXPECT_LT(info.size(), 100u);
    EXPECT_EQ(std::string::npos, info.find("SECRET"));
    EXPECT_TRUE(ToolsVersion_SaveXmlInfo(f.config.c_str(), nullptr,
                                         "x.version = 1\n", 0, 0) ||
                !log.lines().empty());
    EXPECT_EQ(std::string::npos, readFile(f.xml).find("SECRET"));
    EXPECT_LT(readFile(f.xml).size(), 4096u);
    EXPECT_LT(std::chrono::steady_clock::now() - start,
              std::chrono::seconds(2));
  }
  log.clear();
  writeFile(f.xml, "<config/>");
  std::string big = "<r>" + std::string(kMaxExtendedConfigSize, ' ') + "</r>";
  EXPECT_FALSE(
      ToolsVersion_SaveXmlInfo(f.config.c_str(), big.c_str(), nullptr, 0, 0));
  big = "a.version = \"" + std::string(kMaxExtendedConfigSize, 'x') + "\"";
  EXPECT_FALSE(
      ToolsVersion_SaveXmlInfo(f.config.c_str(), nullptr, big.c_str(), 0, 0));
  EXPECT_EQ("<config/>", readFile(f.xml));
  writeFile(f.xml, std::string(50u << 20, ' '));
  EXPECT_TRUE(f.updateInfo() == "");
  writeFile(f.xml, "<config");
  EXPECT_TRUE(f.updateInfo() == "");
  fs::remove(f.xml);
  EXPECT_TRUE(f.updateInfo() == "");
  writeFile(f.config, "guestOS = ubuntu\n");
  EXPECT_TRUE(f.updateInfo() == "");
  EXPECT_EQ(
      (Lines{"Error parsing xml from update agent.\n",
             "Error dumping xml doc to the output buffer.\n",
             "Error getting size of extended config file.\n",
             "Failed to get xml buffer from extended config file.\n",
             "Error parsing xml from extended config file.\n",
             "Error opening extended config file for reading: errcode 2.\n",
             "Failed to get xml buffer from extended config file.\n",
             "Error getting extended config name from config file.\n",
             "Error getting extended config file path.\n"}),
      log.lines());
}

TEST(ToolsCli, QueryAndSaveOnAMachine) {
  Machine m;
  writeFile(m.dir / "agent.xml",
            "<r><tools><monolithic guestVersion=\"8.1\" status=\"9\"/></tools>"
            "</r>");
  std::string cli = std::string(GP_CLI) + " tools-status ";
  std::string cfg = " --config " + gp::test::shellQuote(m.config);
  std::string out;
  EXPECT_EQ(0,
            gp::test::runCommand(cli + "--save-xml" + cfg + " --agent-xml " +
                                     gp::test::shellQuote(m.dir / "agent.xml") +
                                     " --update-counter 2 2>&1",
                                 &out));
  EXPECT_EQ("saved\n", out);
  out.clear();
  // The kept manifest says 8.1 but not that it is installed: the guest
  // names no component, which is no reason to complain.
  EXPECT_EQ(0,
            gp::test::runCommand(cli + cfg + " --legacy 0 2>/dev/null", &out));
  EXPECT_EQ("Public status:  3 TOOLS_STATUS_CURRENT\n", out);
  out.clear();
  EXPECT_EQ(0,
            gp::test::runCommand(cli + cfg +
                                     " --guest-text 'monolithic.version = 8.1' "
                                     "--json 2>/dev/null",
                                 &out));
  EXPECT_NE(std::string::npos,
            out.find("\"status\":2,\"statusName\":\"TOOLS_STATUS_SUPPORTED_"
                     "OLD\"}"))
      << out;
  EXPECT_EQ(2, gp::test::runCommand(cli + "--config 2>/dev/null", &out));
}

}  // namespace
