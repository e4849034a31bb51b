#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "lib/toolsversion/toolsversion_internal.h"
#include "platform/log.h"
#include "platform/msgcatalog.h"
#include "support/fixtures.h"

namespace {

using namespace gp::tools;
using Lines = std::vector<std::string>;

std::string fmt(const ToolsVersionValue &v) {
  return toolsVersionFormat(&v, TRUE);
}

// Manifest text from "a=1 b=2+ b.version_max=3": a name without "." is the
// component's version, and "+" after it marks the component installed.
std::string manifest(const std::string &shorthand) {
  std::istringstream in(shorthand);
  std::string out, token;
  while (in >> token) {
    size_t eq = token.find('=');
    std::string name = token.substr(0, eq), value = token.substr(eq + 1);
    bool installed = !value.empty() && value.back() == '+';
    if (installed) value.pop_back();
    out += name + (name.find('.') == std::string::npos ? ".version" : "") +
           " = " + value + "\n";
    if (installed) out += name + ".installed = TRUE\n";
  }
  return out;
}

// One status computation: host manifest, then the AVR file (none when
// empty: the host's versions are the lowest supported ones), then the guest
// manifest.
struct Computation {
  gp::test::TempDir dir;
  ToolsComponentTable table;
  ToolsDebugFlags flags;
  gp::LogCapture log;

  // Guest manifest entries come without the flags: their errors are dropped.
  void load(ToolsManifestKind kind, const std::string &text) {
    gp::test::writeFile(dir / "m", text);
    ASSERT_TRUE(toolsManifestLoad(
        &table, kind == TOOLS_MANIFEST_GUEST ? nullptr : &flags, kind,
        (dir / "m").c_str()));
  }
  ToolsVersionStatus evaluate(const char *host, const char *avr,
                              const char *guest) {
    load(TOOLS_MANIFEST_HOST, manifest(host));
    if (*avr != '\0') {
      load(TOOLS_MANIFEST_AVR, manifest(avr));
    } else {
      toolsSetAvrMinFromHost(&table);
    }
    load(TOOLS_MANIFEST_GUEST, manifest(guest));
    log.clear();
    return toolsStatusEvaluate(&table, &flags);
  }
  // One line per record in table order: guest, host, AVR min and max, the
  // illegal versions, and whether the component is installed.
  std::string dump() const {
    std::string out;
    table.forEach([&](const std::string &name, const ToolsComponent &r) {
      out += name;
      for (const ToolsVersionValue *v :
           {&r.guest, &r.host, &r.avrMin, &r.avrMax})
        out += " " + toolsVersionFormat(v, FALSE) + ",";
      for (const ToolsVersionValue &v : r.illegal) out += " " + fmt(v);
      out += r.installed ? " Y\n" : " N\n";
    });
    return out;
  }
};

TEST(ToolsVersionParse, EdgesOfTheVersionText) {
  const char *const cases[][3] = {
      // text, formatted, rest
      {"8.6", "8.6.0.0", ""},
      {"1.2.3.4.5.6", "1.2.3.4", ""},
      {"1.2.3.4#7", "1.2.3.4#4", ""},
      {"1.2.3.4#0", "1.2.3.4#0", ""},
      {"4294967295.0", "4294967295.0.0.0", ""},
      {"8.1,8.2", "8.1.0.0", ",8.2"},
  };
  for (const auto &[text, formatted, rest] : cases) {
    ToolsVersionValue v{77, {9, 9, 9, 9}};
    const char *end = toolsVersionParse(&v, text);
    ASSERT_NE(nullptr, end) << text;
    EXPECT_EQ(formatted, fmt(v));
    EXPECT_STREQ(rest, end);
  }
  for (const char *bad :
       {"", "1.", "1..2", "1.2#", "-1", "4294967296", "1#99999999999",
        "1.2.1234567890123456789012345678901234567890"}) {
    ToolsVersionValue v{77, {9, 9, 9, 9}};
    EXPECT_EQ(nullptr, toolsVersionParse(&v, bad)) << bad;
    EXPECT_EQ(77u, v.depth) << bad;  // depth is written only on success
  }
}

TEST(ToolsManifest, EntryRulesPerFileKindAndUnloadableFiles) {
  Computation c;
  c.load(TOOLS_MANIFEST_HOST,
         "tools.version = 8.3.2.1 beta\ntools.VERSION = 9.0\n"
         "tools.version_max = 9\ntools.version_illegal = 1\n"
         "tools.installed = TRUE\nresult.log = TRUE\ndebug.log = TRUE\n"
         "nodot = 1\ntools.flavour = x\nzero.version = 1.0#0\n"
         "zero.Version = 2.0\n");
  c.load(TOOLS_MANIFEST_AVR,
         "tools.version = 8.0\ntools.version_max = 9.1#2\n"
         "tools.version_illegal = 8.1.0.0, 8.2#2 ,8.3\n"
         "part.version_illegal = 8.1, x, 8.2\n"
         "tail.version_illegal = 8.1 8.2\ncomponents.LOG = on\n");
  // Guest manifest errors are dropped silently and its switches ignored.
  c.load(TOOLS_MANIFEST_GUEST,
         "tools.version = 8.3\nzero.version_max = 9\nTools.Installed = yes\n"
         "result.log = FALSE\ncomponents.log = FALSE\nnodot = 1\n"
         "tools.Version = garbage\n");
  const std::string p = "ToolsVersion: ";
  EXPECT_EQ(
      (Lines{
          p + "Cannot parse version: tools.version = 8.3.2.1 beta\n",
          p + "Multiple identical entries: tools.VERSION = 9.0\n",
          p + "Maximum version in non-AVR file: tools.version_max = 9\n",
          p + "Illegal version in non-AVR file: "
              "tools.version_illegal = 1\n",
          p + "Installed flag in non-guest file: tools.installed = TRUE\n",
          p + "Unknown debug entry: debug.log = TRUE\n",
          p + "No '.' in the name: nodot = 1\n",
          p + "Unknown entry: tools.flavour = x\n",
          p + "Cannot parse illegal version: "
              "part.version_illegal = 8.1, x, 8.2\n",
          p + "Cannot parse illegal version: "
              "tail.version_illegal = 8.1 8.2\n",
      }),
      c.log.lines());
  // Version text after the number is an error but keeps the version; a
  // depth 0 version leaves the slot open; component names keep their case.
  EXPECT_EQ(
      "tools 8.3.0.0, 8.3.2.1, 8.0.0.0, 9.1.0.0#2, 8.1.0.0 8.2.0.0#2 8.3.0.0 "
      "N\n"
      "zero , 2.0.0.0, , , N\n"
      "part , , , , 8.1.0.0 N\n"
      "tail , , , , 8.1.0.0 N\n"
      "Tools , , , , Y\n",
      c.dump());
  EXPECT_TRUE(c.flags.resultLog && c.flags.componentsLog);

  // Files that do not load leave table and flags alone, even when the
  // broken line comes late.
  c.log.clear();
  gp::test::writeFile(c.dir / "bad",
                      "a.version = 1\ncomponents.log = 0\nx\x01\n");
  for (const std::string &path :
       {c.dir / "absent", c.dir.path(), c.dir / "bad"}) {
    EXPECT_FALSE(toolsManifestLoad(&c.table, &c.flags, TOOLS_MANIFEST_AVR,
                                   path.c_str()));
  }
  const std::string e =
      "ToolsVersion: Error loading dictionary from host manifest: ";
  EXPECT_EQ(
      (Lines{
          e + (c.dir / "absent") + ": No such file or directory.\n",
          e + c.dir.path() + ": not a regular file.\n",
          e + (c.dir / "bad") + " line 3: control character in the line.\n",
      }),
      c.log.lines());
  EXPECT_EQ(5u, c.table.size());
  EXPECT_TRUE(c.flags.componentsLog);
  EXPECT_EQ("", gp::msg::takePending());
}

TEST(ToolsStatus, EveryComponentStatus) {
  Computation c;
  EXPECT_EQ(TOOLS_STATUS_BLACKLISTED,
            c.evaluate("result.log=1 monolithic=8.3.0 cur=8.3.2.1 "
                       "curhash=8.3.2.1#4 old=8.3 new=8.3 low=8.3 high=8.3 "
                       "bad=8.3 missing=1 notinst=8.2 zero=1",
                       "old=8.0 new=8.0 low=8.2 high=8.0 high.version_max=8.4 "
                       "bad=8.0 bad.version_illegal=7,8.2#2 "
                       "notinst.version_illegal=8.2 avronly=1 "
                       "extra2.version_max=2 zero.version_illegal=5#0",
                       "cur=8.3.2.999+ curhash=8.3.2.999+ old=8.1+ new=8.4+ "
                       "low=8.1.9.9+ high=8.5+ bad=8.2.9.9+ notinst=8.2 "
                       "notinst.installed=FALSE extra=1+ extra2=3+ zero=1+"));
  EXPECT_EQ(
      (Lines{
          "ToolsVersion: blacklisted             : (  2) bad and zero\n",
          "ToolsVersion: too old                 : (  1) low\n",
          "ToolsVersion: too new                 : (  2) high and extra2\n",
          "ToolsVersion: supported old           : (  1) old\n",
          "ToolsVersion: supported new           : (  2) curhash and new\n",
          "ToolsVersion: current                 : (  1) cur\n",
          "ToolsVersion: additional in the guest : (  1) extra\n",
          "ToolsVersion: missing from the guest  : (  1) missing\n",
          "ToolsVersion: not installed           : (  1) notinst\n",
          "ToolsVersion: gone                    : (  1) avronly\n",
          "ToolsVersion: Status is blacklisted because this is status of "
          "bad and zero.\n",
      }),
      c.log.lines());
  EXPECT_EQ(nullptr, c.table.lookup("monolithic"));
}

TEST(ToolsStatus, PrecedenceOfTheOverallStatus) {
  struct Case {
    const char *host, *avr, *guest;  // avr "": none
    ToolsVersionStatus status;
    const char *reason;  // "": no log line
  } cases[] = {
      // Monolithic supported old counts only when components are missing.
      {"monolithic=8.3 a=1", "monolithic=8.0", "monolithic=8.1 a=1+",
       TOOLS_STATUS_CURRENT, ""},
      {"monolithic=8.3 a=1", "monolithic=8.0", "monolithic=8.1",
       TOOLS_STATUS_SUPPORTED_OLD,
       "supported old because this is status of monolithic version, and a is "
       "missing from the guest"},
      {"monolithic=8.3 a=1 b=1", "", "monolithic=8.4",
       TOOLS_STATUS_SUPPORTED_NEW,
       "supported new because this is status of monolithic version, and a and "
       "b are missing from the guest"},
      {"monolithic=8.3 a=1 b=1 c=1", "monolithic=8.0", "monolithic=8.1",
       TOOLS_STATUS_SUPPORTED_OLD,
       "supported old because this is status of monolithic version, and a and "
       "2 more components are missing from the guest"},
      {"monolithic=8 a=1 b=1", "a.version_max=1 b.version_max=1",
       "monolithic=8 a=2+ b=2+", TOOLS_STATUS_TOO_NEW,
       "too new because this is status of a and b"},
      {"monolithic=8 a=1", "monolithic=8 a.version_max=1", "monolithic=7 a=2+",
       TOOLS_STATUS_TOO_OLD,
       "too old because this is status of monolithic version"},
      // Without an AVR file the host version is the lowest supported one.
      {"monolithic=8.3.2.0 a=8 b=8 c=8", "",
       "monolithic=8.3.1.0 a=7+ b=7+ c=7+", TOOLS_STATUS_TOO_OLD,
       "too old because this is status of monolithic version and 2 more "
       "components"},
      {"monolithic=8 a=8 b=8", "", "monolithic=8 b=9+",
       TOOLS_STATUS_SUPPORTED_NEW, "supported new because this is status of b"},
      // A legacy or upgrader guest version stands for the monolithic one;
      // the upgrader is judged as well.
      {"monolithic=8.3", "", "legacy=8.2 legacy.installed=FALSE",
       TOOLS_STATUS_TOO_OLD,
       "too old because this is status of monolithic version"},
      {"monolithic=8.3 upgrader=8.3", "monolithic=8 upgrader=8",
       "upgrader=8.4+", TOOLS_STATUS_SUPPORTED_NEW,
       "supported new because this is status of upgrader"},
  };
  for (const Case &k : cases) {
    SCOPED_TRACE(std::string(k.host) + " | " + k.avr + " | " + k.guest);
    Computation c;
    EXPECT_EQ(k.status, c.evaluate(k.host, k.avr, k.guest));
    EXPECT_EQ(
        *k.reason == '\0'
            ? Lines{}
            : Lines{std::string("ToolsVersion: Status is ") + k.reason + ".\n"},
        c.log.lines());
  }
}

TEST(ToolsStatus, DiagnosticTables) {
  Computation c;
  EXPECT_EQ(TOOLS_STATUS_CURRENT,
            c.evaluate("components.log=TRUE result.log=yes "
                       "monolithic=8.3.2.1 a=1.2.3.4#4 b=1 c=1 d=1",
                       "a.version_illegal=0.9,0.8#2 a.version_max=2",
                       "monolithic=8.3.2.1 a=1.2.3.4+ legacy=1"));
  auto row = [](const char *a, const char *b, const char *g, char i,
                const char *h, const char *mn, const char *mx, const char *il) {
    char buf[256];
    std::snprintf(
        buf, sizeof buf,
        "ToolsVersion: %-24s: %-11.11s %-16s %c %-16s %-16s %-16s %s\n", a, b,
        g, i, h, mn, mx, il);
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
          "ToolsVersion: current                 : (  1) a\n",
          "ToolsVersion: missing from the guest  : (  3) b, c, and d\n",
      }),
      c.log.lines());
}

TEST(ToolsStatusCommand, ExampleManifests) {
  const std::string ex =
      gp::test::shellQuote(gp::test::sourcePath("examples/tools")) + "/";
  std::string out;
  ASSERT_EQ(0, gp::test::runCommand(
                   std::string(GP_CLI) + " tools-status --host " + ex +
                       "host-manifest.txt --guest " + ex +
                       "guest-manifest.txt --avr " + ex + "avr.txt 2>&1",
                   &out));
  EXPECT_PRED_FORMAT2(testing::IsSubstring,
                      "ToolsVersion: Status is supported old because this is "
                      "status of monolithic version, and netdrv is missing "
                      "from the guest.\n",
                      out);
}

}  // namespace
