#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lib/toolsversion/toolsversion_internal.h"
#include "platform/configdict.h"
#include "platform/log.h"
#include "platform/msgcatalog.h"
#include "support/fixtures.h"

namespace {

using namespace gp::tools;
using Lines = std::vector<std::string>;

std::string fmt(const ToolsVersionValue &v) {
  return toolsVersionFormat(&v, TRUE);
}

// One status computation from manifest texts, as the status query gathers
// it: host manifest, then the AVR file (or the host's versions as the
// lowest supported ones), then the guest manifest.
struct Computation {
  gp::test::TempDir dir;
  ToolsComponentTable table;
  ToolsDebugFlags flags;
  gp::LogCapture log;

  void host(const std::string &text) {
    gp::test::writeFile(dir / "host", text);
    ASSERT_TRUE(toolsManifestLoad(&table, &flags, TOOLS_MANIFEST_HOST,
                                  (dir / "host").c_str()));
  }
  void avr(const std::string &text) {
    gp::test::writeFile(dir / "avr", text);
    ASSERT_TRUE(toolsManifestLoad(&table, &flags, TOOLS_MANIFEST_AVR,
                                  (dir / "avr").c_str()));
  }
  void noAvr() { toolsSetAvrMinFromHost(&table); }
  void guest(const std::string &text) {
    gp::ConfigDict dict;
    ASSERT_TRUE(dict.loadBuffer(text));
    ToolsManifestContext ctx{&table, TOOLS_MANIFEST_GUEST, nullptr};
    dict.iterate([&](const char *name, const char *value) {
      toolsManifestAddEntry(name, value, &ctx);
    });
  }
  ToolsVersionStatus evaluate() {
    log.clear();
    return toolsStatusEvaluate(&table, &flags);
  }
  uint32_t statusOf(const char *name) { return table.lookup(name)->status; }
};

TEST(ToolsVersionParse, EdgesOfTheVersionText) {
  struct Case {
    const char *text;
    const char *formatted;  // null: the parse fails
    const char *rest;
  } cases[] = {
      {"8.6.5.12345", "8.6.5.12345", ""},
      {"8.6", "8.6.0.0", ""},
      {"1.2.3.4.5.6", "1.2.3.4", ""},
      {"1.2.3.4#7", "1.2.3.4#4", ""},
      {"7.4.3.0#2", "7.4.3.0#2", ""},
      {"1.2.3.4#0", "1.2.3.4#0", ""},
      {"8.3.2.1 beta", "8.3.2.1", " beta"},
      {"8.1,8.2", "8.1.0.0", ",8.2"},
      {"4294967295.0", "4294967295.0.0.0", ""},
      {"", nullptr, nullptr},
      {".1", nullptr, nullptr},
      {"1.", nullptr, nullptr},
      {"1..2", nullptr, nullptr},
      {"1.2#", nullptr, nullptr},
      {"#2", nullptr, nullptr},
      {" 1. 2 x", "1.2.0.0", " x"},
      {"-1", nullptr, nullptr},
      {"4294967296", nullptr, nullptr},
      {"1.2.1234567890123456789012345678901234567890", nullptr, nullptr},
      {"1#99999999999", nullptr, nullptr},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.text);
    ToolsVersionValue v{77, {9, 9, 9, 9}};
    const char *end = toolsVersionParse(&v, c.text);
    if (c.formatted == nullptr) {
      EXPECT_EQ(nullptr, end);
      EXPECT_EQ(77u, v.depth);  // depth is written only on success
      continue;
    }
    ASSERT_NE(nullptr, end);
    EXPECT_EQ(c.formatted, fmt(v));
    EXPECT_STREQ(c.rest, end);
  }
}

TEST(ToolsVersionParse, Format) {
  ToolsVersionValue unset{0, {1, 2, 3, 4}};
  EXPECT_EQ("", toolsVersionFormat(&unset, FALSE));
  EXPECT_EQ("1.2.3.4#0", toolsVersionFormat(&unset, TRUE));
  ToolsVersionValue three{3, {1, 2, 3, 4}};
  EXPECT_EQ("1.2.3.4", toolsVersionFormat(&three, FALSE));
  ToolsVersionValue two{2, {1, 2, 3, 4}};
  EXPECT_EQ("1.2.3.4#2", toolsVersionFormat(&two, FALSE));
}

TEST(ToolsManifest, EntryRulesOfTheHostManifestAreLogged) {
  Computation c;
  c.host(
      "tools.version = 8.3.2.1 beta\n"
      "tools.VERSION = 9.0\n"
      "tools.version_max = 9\n"
      "tools.version_illegal = 1\n"
      "tools.installed = TRUE\n"
      "result.log = TRUE\n"
      "debug.log = TRUE\n"
      "nodot = 1\n"
      "tools.flavour = x\n"
      "zero.version = 1.0#0\n"
      "zero.Version = 2.0\n"
      "big.version = 1.99999999999999999999999999999999999999999\n"
      ".encoding = \"UTF-8\"\n");
  EXPECT_EQ((Lines{
                "ToolsVersion: Cannot parse version: tools.version = 8.3.2.1 "
                "beta\n",
                "ToolsVersion: Multiple identical entries: tools.VERSION = "
                "9.0\n",
                "ToolsVersion: Maximum version in non-AVR file: "
                "tools.version_max = 9\n",
                "ToolsVersion: Illegal version in non-AVR file: "
                "tools.version_illegal = 1\n",
                "ToolsVersion: Installed flag in non-guest file: "
                "tools.installed = TRUE\n",
                "ToolsVersion: Unknown debug entry: debug.log = TRUE\n",
                "ToolsVersion: No '.' in the name: nodot = 1\n",
                "ToolsVersion: Unknown entry: tools.flavour = x\n",
                "ToolsVersion: Cannot parse version: big.version = "
                "1.99999999999999999999999999999999999999999\n",
                "ToolsVersion: Unknown entry: .encoding = UTF-8\n",
            }),
            c.log.lines());
  const ToolsComponent *tools = c.table.lookup("tools");
  ASSERT_NE(nullptr, tools);
  EXPECT_EQ("8.3.2.1", fmt(tools->host));  // kept despite the trailing text
  EXPECT_EQ(0u, tools->avrMax.depth);
  EXPECT_TRUE(tools->illegal.empty());
  EXPECT_FALSE(tools->installed);
  EXPECT_TRUE(c.flags.resultLog);
  EXPECT_FALSE(c.flags.componentsLog);
  EXPECT_EQ("2.0.0.0", fmt(c.table.lookup("zero")->host));
  EXPECT_EQ(0u, c.table.lookup("big")->host.depth);
  // Errors of the classification create no record.
  EXPECT_EQ(nullptr, c.table.lookup("nodot"));
  EXPECT_EQ(nullptr, c.table.lookup("debug"));
}

TEST(ToolsManifest, GuestManifestErrorsAreSilentAndLogSwitchesIgnored) {
  Computation c;
  c.guest(
      "tools.version = 8.3\n"
      "tools.version_max = 9\n"
      "Tools.Installed = yes\n"
      "result.log = TRUE\n"
      "components.log = TRUE\n"
      "nodot = 1\n"
      "tools.Version = garbage\n");
  EXPECT_TRUE(c.log.lines().empty());
  EXPECT_FALSE(c.flags.resultLog);
  EXPECT_FALSE(c.flags.componentsLog);
  const ToolsComponent *tools = c.table.lookup("Tools");
  ASSERT_NE(nullptr, tools);  // component names keep their spelling
  EXPECT_TRUE(tools->installed);
  EXPECT_EQ("8.3.0.0", fmt(c.table.lookup("tools")->guest));
  EXPECT_EQ(0u, c.table.lookup("tools")->avrMax.depth);
  EXPECT_EQ(nullptr, c.table.lookup("result"));
}

TEST(ToolsManifest, AvrFileSlotsAndIllegalLists) {
  Computation c;
  c.avr(
      "tools.version = 8.0\n"
      "tools.version_max = 9.1#2\n"
      "tools.version_illegal = 8.1.0.0, 8.2#2 ,8.3\n"
      "part.version_illegal = 8.1, x, 8.2\n"
      "tail.version_illegal = 8.1 8.2\n"
      "components.LOG = on\n");
  EXPECT_EQ((Lines{
                "ToolsVersion: Cannot parse illegal version: "
                "part.version_illegal = 8.1, x, 8.2\n",
                "ToolsVersion: Cannot parse illegal version: "
                "tail.version_illegal = 8.1 8.2\n",
            }),
            c.log.lines());
  const ToolsComponent *tools = c.table.lookup("tools");
  EXPECT_EQ("8.0.0.0", fmt(tools->avrMin));
  EXPECT_EQ("9.1.0.0#2", fmt(tools->avrMax));
  ASSERT_EQ(3u, tools->illegal.size());
  EXPECT_EQ("8.1.0.0", fmt(tools->illegal[0]));
  EXPECT_EQ("8.2.0.0#2", fmt(tools->illegal[1]));
  EXPECT_EQ("8.3.0.0", fmt(tools->illegal[2]));
  ASSERT_EQ(1u, c.table.lookup("part")->illegal.size());
  EXPECT_EQ("8.1.0.0", fmt(c.table.lookup("part")->illegal[0]));
  EXPECT_EQ(1u, c.table.lookup("tail")->illegal.size());
  EXPECT_TRUE(c.flags.componentsLog);
}

TEST(ToolsManifest, UnloadableFilesLeaveTheTableAlone) {
  gp::test::TempDir dir;
  ToolsComponentTable table;
  ToolsDebugFlags flags;
  gp::LogCapture log;
  EXPECT_FALSE(toolsManifestLoad(&table, &flags, TOOLS_MANIFEST_HOST,
                                 (dir / "absent").c_str()));
  EXPECT_FALSE(toolsManifestLoad(&table, &flags, TOOLS_MANIFEST_AVR,
                                 dir.path().c_str()));
  // A broken line late in the file: nothing before it is applied either.
  gp::test::writeFile(dir / "bad", "a.version = 1\nresult.log = TRUE\nx\x01\n");
  EXPECT_FALSE(toolsManifestLoad(&table, &flags, TOOLS_MANIFEST_HOST,
                                 (dir / "bad").c_str()));
  std::string many;
  for (int i = 0; i < 1000000; ++i) {
    many += "c" + std::to_string(i) + ".version = 1.2.3\n";
  }
  gp::test::writeFile(dir / "many", many);
  EXPECT_FALSE(toolsManifestLoad(&table, &flags, TOOLS_MANIFEST_HOST,
                                 (dir / "many").c_str()));
  EXPECT_EQ((Lines{
                "ToolsVersion: Error loading dictionary from host manifest: " +
                    (dir / "absent") + ": No such file or directory.\n",
                "ToolsVersion: Error loading dictionary from host manifest: " +
                    dir.path() + ": not a regular file.\n",
                "ToolsVersion: Error loading dictionary from host manifest: " +
                    (dir / "bad") + " line 3: control character in the line.\n",
                "ToolsVersion: Error loading dictionary from host manifest: " +
                    (dir / "many") + ": file too large.\n",
            }),
            log.lines());
  EXPECT_EQ(0u, table.size());
  EXPECT_FALSE(flags.resultLog);
  EXPECT_EQ("", gp::msg::takePending());
}

TEST(ToolsStatus, EveryComponentStatusFromManifests) {
  Computation c;
  c.host(
      "monolithic.version = 8.3.0\n"
      "cur.version = 8.3.2.1\ncurhash.version = 8.3.2.1#4\n"
      "old.version = 8.3\nnew.version = 8.3\n"
      "low.version = 8.3\nhigh.version = 8.3\n"
      "bad.version = 8.3\nmissing.version = 1\nnotinst.version = 8.2\n");
  c.avr(
      "old.version = 8.0\nnew.version = 8.0\nlow.version = 8.2\n"
      "high.version = 8.0\nhigh.version_max = 8.4\n"
      "bad.version = 8.0\nbad.version_illegal = 7, 8.2#2\n"
      "notinst.version_illegal = 8.2\navronly.version = 1\n"
      "extra2.version_max = 2\n");
  c.guest(
      "cur.version = 8.3.2.999\ncur.installed = TRUE\n"
      "curhash.version = 8.3.2.999\ncurhash.installed = TRUE\n"
      "old.version = 8.1\nold.installed = TRUE\n"
      "new.version = 8.4\nnew.installed = TRUE\n"
      "low.version = 8.1.9.9\nlow.installed = TRUE\n"
      "high.version = 8.5\nhigh.installed = TRUE\n"
      "bad.version = 8.2.9.9\nbad.installed = TRUE\n"
      "notinst.version = 8.2\nnotinst.installed = FALSE\n"
      "extra.version = 1\nextra.installed = TRUE\n"
      "extra2.version = 3\nextra2.installed = TRUE\n");
  EXPECT_EQ(TOOLS_STATUS_BLACKLISTED, c.evaluate());
  const std::pair<const char *, uint32_t> expected[] = {
      {"cur", TOOLS_COMPONENT_CURRENT},
      {"curhash", TOOLS_COMPONENT_SUPPORTED_NEW},
      {"old", TOOLS_COMPONENT_SUPPORTED_OLD},
      {"new", TOOLS_COMPONENT_SUPPORTED_NEW},
      {"low", TOOLS_COMPONENT_TOO_OLD},
      {"high", TOOLS_COMPONENT_TOO_NEW},
      {"bad", TOOLS_COMPONENT_BLACKLISTED},
      {"missing", TOOLS_COMPONENT_MISSING},
      {"notinst", TOOLS_COMPONENT_NOT_INSTALLED},
      {"avronly", TOOLS_COMPONENT_GONE},
      {"extra", TOOLS_COMPONENT_ADDITIONAL},
      {"extra2", TOOLS_COMPONENT_TOO_NEW},
  };
  for (const auto &[name, status] : expected) {
    EXPECT_EQ(toolsStatusNames[status], toolsStatusNames[c.statusOf(name)])
        << name;
  }
  EXPECT_EQ(nullptr, c.table.lookup("monolithic"));
  EXPECT_EQ((Lines{"ToolsVersion: Status is blacklisted because this is "
                   "status of bad.\n"}),
            c.log.lines());
}

TEST(ToolsStatus, IllegalDepthZeroBlacklistsEveryInstalledVersion) {
  Computation c;
  c.host("a.version = 1\nb.version = 1\n");
  c.avr("a.version_illegal = 5#0\nb.version_illegal = 5#0\n");
  c.guest("a.version = 1\na.installed = 1\nb.version = 1\n");
  EXPECT_EQ(TOOLS_STATUS_BLACKLISTED, c.evaluate());
  EXPECT_EQ(TOOLS_COMPONENT_BLACKLISTED, c.statusOf("a"));
  EXPECT_EQ(TOOLS_COMPONENT_NOT_INSTALLED, c.statusOf("b"));
}

TEST(ToolsStatus, WithoutAvrTheHostVersionIsTheLowestSupported) {
  Computation c;
  c.host("monolithic.version = 8.3.2.0\n");
  c.noAvr();
  c.guest("monolithic.version = 8.3.1.0\n");
  EXPECT_EQ(TOOLS_STATUS_TOO_OLD, c.evaluate());
  EXPECT_EQ((Lines{"ToolsVersion: Status is too old because this is status "
                   "of monolithic version.\n"}),
            c.log.lines());
}

TEST(ToolsStatus, PrecedenceOfTheOverallStatus) {
  struct Case {
    const char *name, *host, *avr, *guest;
    ToolsVersionStatus status;
    Lines log;
  } cases[] = {
      {"all current, monolithic supported old",
       "monolithic.version = 8.3\na.version = 1\n",
       "monolithic.version = 8.0\n",
       "monolithic.version = 8.1\na.version = 1\na.installed = TRUE\n",
       TOOLS_STATUS_CURRENT,
       {}},
      {"monolithic supported old, one missing",
       "monolithic.version = 8.3\na.version = 1\n",
       "monolithic.version = 8.0\n",
       "monolithic.version = 8.1\n",
       TOOLS_STATUS_SUPPORTED_OLD,
       {"ToolsVersion: Status is supported old because this is status of "
        "monolithic version, and a is missing from the guest.\n"}},
      {"monolithic supported new, two missing",
       "monolithic.version = 8.3\na.version = 1\nb.version = 1\n",
       "",
       "monolithic.version = 8.4\n",
       TOOLS_STATUS_SUPPORTED_NEW,
       {"ToolsVersion: Status is supported new because this is status of "
        "monolithic version, and a and b are missing from the guest.\n"}},
      {"monolithic supported old, three missing",
       "monolithic.version = 8.3\na.version = 1\nb.version = 1\n"
       "c.version = 1\n",
       "monolithic.version = 8.0\n",
       "monolithic.version = 8.1\n",
       TOOLS_STATUS_SUPPORTED_OLD,
       {"ToolsVersion: Status is supported old because this is status of "
        "monolithic version, and a and 2 more components are missing from "
        "the guest.\n"}},
      {"two components too new, monolithic current",
       "monolithic.version = 8\na.version = 1\nb.version = 1\n",
       "a.version_max = 1\nb.version_max = 1\n",
       "monolithic.version = 8\na.version = 2\na.installed = 1\n"
       "b.version = 2\nb.installed = 1\n",
       TOOLS_STATUS_TOO_NEW,
       {"ToolsVersion: Status is too new because this is status of a and "
        "b.\n"}},
      {"monolithic too old beats components too new",
       "monolithic.version = 8\na.version = 1\n",
       "monolithic.version = 8\na.version_max = 1\n",
       "monolithic.version = 7\na.version = 2\na.installed = 1\n",
       TOOLS_STATUS_TOO_OLD,
       {"ToolsVersion: Status is too old because this is status of "
        "monolithic version.\n"}},
      {"monolithic and three components too old",
       "monolithic.version = 8\na.version = 8\nb.version = 8\n"
       "c.version = 8\n",
       "",
       "monolithic.version = 7\na.version = 7\na.installed = 1\n"
       "b.version = 7\nb.installed = 1\nc.version = 7\nc.installed = 1\n",
       TOOLS_STATUS_TOO_OLD,
       {"ToolsVersion: Status is too old because this is status of "
        "monolithic version and 2 more components.\n"}},
      {"components supported old, none missing",
       "monolithic.version = 8\na.version = 8\nb.version = 8\n",
       "a.version = 7\nb.version = 7\n",
       "monolithic.version = 8\na.version = 7\na.installed = 1\n"
       "b.version = 7\nb.installed = 1\n",
       TOOLS_STATUS_SUPPORTED_OLD,
       {"ToolsVersion: Status is supported old because this is status of a "
        "and b.\n"}},
      {"missing components with a current monolithic",
       "monolithic.version = 8\na.version = 8\nb.version = 8\n",
       "",
       "monolithic.version = 8\nb.version = 9\nb.installed = 1\n",
       TOOLS_STATUS_SUPPORTED_NEW,
       {"ToolsVersion: Status is supported new because this is status of "
        "b.\n"}},
      {"empty guest manifest",
       "monolithic.version = 8\na.version = 8\nb.version = 8\n",
       "",
       "",
       TOOLS_STATUS_CURRENT,
       {}},
      {"legacy guest version stands for the monolithic one",
       "monolithic.version = 8.3\n",
       "",
       "legacy.version = 8.2\nlegacy.installed = FALSE\n",
       TOOLS_STATUS_TOO_OLD,
       {"ToolsVersion: Status is too old because this is status of "
        "monolithic version.\n"}},
      {"upgrader guest version stands for the monolithic one and is judged",
       "monolithic.version = 8.3\nupgrader.version = 8.3\n",
       "monolithic.version = 8\nupgrader.version = 8\n",
       "upgrader.version = 8.4\nupgrader.installed = TRUE\n",
       TOOLS_STATUS_SUPPORTED_NEW,
       {"ToolsVersion: Status is supported new because this is status of "
        "upgrader.\n"}},
  };
  for (const Case &k : cases) {
    SCOPED_TRACE(k.name);
    Computation c;
    c.host(k.host);
    if (*k.avr != '\0') {
      c.avr(k.avr);
    } else {
      c.noAvr();
    }
    c.guest(k.guest);
    EXPECT_EQ(k.status, c.evaluate());
    EXPECT_EQ(k.log, c.log.lines());
  }
}

TEST(ToolsStatus, DiagnosticTables) {
  Computation c;
  c.host(
      "components.log = TRUE\nresult.log = yes\n"
      "monolithic.version = 8.3.2.1\n"
      "a.version = 1.2.3.4#4\nb.version = 1\nc.version = 1\nd.version = 1\n"
      "e.version = 1\n");
  c.avr("a.version_illegal = 0.9, 0.8#2\na.version_max = 2\n");
  c.guest(
      "monolithic.version = 8.3.2.1\na.version = 1.2.3.4\na.installed = 1\n"
      "legacy.version = 1\n");
  EXPECT_EQ(TOOLS_STATUS_CURRENT, c.evaluate());
  const char *fmtLine =
      "ToolsVersion: %-24s: %-11.11s %-16s %c %-16s %-16s %-16s %s\n";
  auto row = [&](const char *a, const char *b, const char *g, char i,
                 const char *h, const char *mn, const char *mx,
                 const char *il) {
    char buf[256];
    std::snprintf(buf, sizeof buf, fmtLine, a, b, g, i, h, mn, mx, il);
    return std::string(buf);
  };
  EXPECT_EQ(
      (Lines{
          row("Component", "Status", "Guest", 'I', "Host", "AVR Min", "AVR Max",
              "AVR Illegal"),
          row("monolithic", "current", "8.3.2.1", 'Y', "8.3.2.1", "", "", ""),
          row("a", "current", "1.2.3.4", 'Y', "1.2.3.4#4", "", "2.0.0.0",
              "0.9.0.0, 0.8.0.0#2"),
          row("b", "missing fro", "", 'N', "1.0.0.0", "", "", ""),
          row("c", "missing fro", "", 'N', "1.0.0.0", "", "", ""),
          row("d", "missing fro", "", 'N', "1.0.0.0", "", "", ""),
          row("e", "missing fro", "", 'N', "1.0.0.0", "", "", ""),
          "ToolsVersion: current                 : (  1) a\n",
          "ToolsVersion: missing from the guest  : (  4) b, c, d, and e\n",
      }),
      c.log.lines());
}

TEST(ToolsStatusCommand, ExampleManifests) {
  using gp::test::shellQuote;
  using gp::test::sourcePath;
  std::string base =
      std::string(GP_CLI) + " tools-status --host " +
      shellQuote(sourcePath("examples/tools/host-manifest.txt")) + " --guest ";
  std::string avr =
      " --avr " + shellQuote(sourcePath("examples/tools/avr.txt"));
  std::string guest =
      shellQuote(sourcePath("examples/tools/guest-manifest.txt"));
  std::string out;
  ASSERT_EQ(0, gp::test::runCommand(base + guest + avr + " --json 2>&1", &out));
  EXPECT_NE(std::string::npos,
            out.find("ToolsVersion: Status is supported old because this is "
                     "status of monolithic version, and netdrv is missing "
                     "from the guest.\n"))
      << out;
  EXPECT_NE(std::string::npos,
            out.find("\"overall\":\"supported old\",\"status\":2,"
                     "\"statusName\":\"TOOLS_STATUS_SUPPORTED_OLD\"}"))
      << out;
  out.clear();
  ASSERT_EQ(0, gp::test::runCommand(base + guest + " 2>/dev/null", &out));
  EXPECT_NE(std::string::npos,
            out.find("Public status:  1 TOOLS_STATUS_TOO_OLD"))
      << out;
  out.clear();
  EXPECT_EQ(1, gp::test::runCommand(base + "/nonexistent 2>&1", &out));
  EXPECT_NE(std::string::npos,
            out.find("Error loading dictionary for guest manifest: "
                     "/nonexistent: No such file or directory.\n"))
      << out;
  EXPECT_EQ(2, gp::test::runCommand(std::string(GP_CLI) +
                                    " tools-status --host x 2>/dev/null"));
}

}  // namespace
