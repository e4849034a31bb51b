// Resolving localisable messages from catalog files: language choice,
// fallbacks, hostile catalogs and the safe format substitution.
#include "platform/msgcatalog.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/configdict.h"
#include "support/fixtures.h"

namespace {

using gp::test::TempDir;
using gp::test::writeFile;

constexpr const char kPro[] = "@&!*@*@(msg.autoinstall.win_pro) Professional";
constexpr const char kFormat[] = "@&!*@*@(msg.autoinstall.prettyFormat)%s%s%s";

// Controls every variable that picks the catalog, restoring them after.
class MsgCatalogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char *name : kVars) {
      const char *v = std::getenv(name);
      saved_.emplace_back(
          name, v != nullptr ? std::optional<std::string>(v) : std::nullopt);
      unsetenv(name);
    }
    setenv("GUESTPREP_MSGDIR", dir_.path().c_str(), 1);
    gp::msg::takePending();
  }
  void TearDown() override {
    for (const auto &[name, value] : saved_) {
      if (value) {
        setenv(name, value->c_str(), 1);
      } else {
        unsetenv(name);
      }
    }
  }

  void writeCatalog(const std::string &lang, const std::string &text) {
    writeFile(dir_ / (lang + "/guestprep.vmsg"), text);
  }

  static constexpr const char *kVars[] = {"GUESTPREP_MSGDIR", "GUESTPREP_LANG",
                                          "LC_ALL", "LC_MESSAGES", "LANG"};
  TempDir dir_;
  std::vector<std::pair<const char *, std::optional<std::string>>> saved_;
};

TEST_F(MsgCatalogTest, TranslatesAndFallsBackToTheDefault) {
  writeCatalog("de", "msg.autoinstall.win_pro = \" Profi\"\n");
  setenv("GUESTPREP_LANG", "de", 1);
  EXPECT_EQ(" Profi", gp::msg::get(kPro));
  EXPECT_EQ(" Ultimate",
            gp::msg::get("@&!*@*@(msg.autoinstall.win_ultimate) Ultimate"));
  EXPECT_EQ("no marker", gp::msg::get("no marker"));
  EXPECT_EQ("@&!*@*@(unclosed", gp::msg::get("@&!*@*@(unclosed"));
  char *heap = gp::msg::getHeap(kPro);
  EXPECT_STREQ(" Profi", heap);
  std::free(heap);
}

TEST_F(MsgCatalogTest, LanguageComesFromTheEnvironmentInOrder) {
  writeCatalog("de", "msg.autoinstall.win_pro = \" de\"\n");
  writeCatalog("fr", "msg.autoinstall.win_pro = \" fr\"\n");
  writeCatalog("pt_BR", "msg.autoinstall.win_pro = \" pt_BR\"\n");
  writeCatalog("pt", "msg.autoinstall.win_pro = \" pt\"\n");
  EXPECT_EQ(" Professional", gp::msg::get(kPro));
  EXPECT_EQ("", gp::msg::catalogPath());

  setenv("LANG", "de_DE.UTF-8", 1);
  EXPECT_EQ(" de", gp::msg::get(kPro));
  setenv("LC_MESSAGES", "fr_FR@euro", 1);
  EXPECT_EQ(" fr", gp::msg::get(kPro));
  setenv("LC_ALL", "pt_BR.UTF-8", 1);
  EXPECT_EQ(" pt_BR", gp::msg::get(kPro));
  setenv("LC_ALL", "pt_PT.UTF-8", 1);  // no pt_PT catalog: "pt" is next
  EXPECT_EQ(" pt", gp::msg::get(kPro));
  setenv("GUESTPREP_LANG", "de", 1);
  EXPECT_EQ(" de", gp::msg::get(kPro));
  EXPECT_EQ(dir_ / "de/guestprep.vmsg", gp::msg::catalogPath());
  for (const char *none : {"C", "POSIX", "C.UTF-8", "en", "xx_YY"}) {
    setenv("GUESTPREP_LANG", none, 1);
    EXPECT_EQ(" Professional", gp::msg::get(kPro)) << none;
  }
}

TEST_F(MsgCatalogTest, LanguageCannotLeaveTheCatalogDirectory) {
  writeCatalog("de", "msg.autoinstall.win_pro = \" de\"\n");
  writeFile(dir_ / "guestprep.vmsg", "msg.autoinstall.win_pro = \" top\"\n");
  writeFile(dir_ / "sub/de/guestprep.vmsg",
            "msg.autoinstall.win_pro = \" sub\"\n");
  std::string inner = dir_ / "sub";
  setenv("GUESTPREP_MSGDIR", inner.c_str(), 1);
  for (const char *lang : {"../de", "..", ".", "/de", "de/../..", "d e"}) {
    setenv("GUESTPREP_LANG", lang, 1);
    EXPECT_EQ(" Professional", gp::msg::get(kPro)) << lang;
  }
}

TEST_F(MsgCatalogTest, HostileCatalogsGiveDefaultsAndLeaveNoPendingText) {
  setenv("GUESTPREP_LANG", "de", 1);
  gp::msg::appendPending("earlier failure");
  // Malformed lines are skipped, the rest still counts.
  writeCatalog("de",
               "garbage line\n"
               "msg.autoinstall.win_ultimate = \"unterminated\n"
               "msg.autoinstall.win_pro = \" Profi\"\n"
               "msg.autoinstall.win_business = \"\"\n"
               "msg.autoinstall.win_starter = \"" +
                   std::string(gp::msg::kMaxMessageLength + 1, 'x') + "\"\n");
  EXPECT_EQ(" Profi", gp::msg::get(kPro));
  EXPECT_EQ(" Ultimate",
            gp::msg::get("@&!*@*@(msg.autoinstall.win_ultimate) Ultimate"));
  EXPECT_EQ(" Business",
            gp::msg::get("@&!*@*@(msg.autoinstall.win_business) Business"));
  EXPECT_EQ(" Starter",
            gp::msg::get("@&!*@*@(msg.autoinstall.win_starter) Starter"));

  // A catalog the dictionary refuses as a whole, and a directory where the
  // file should be.
  writeCatalog("de", ".encoding = \"EBCDIC\"\nmsg.autoinstall.win_pro = x\n");
  EXPECT_EQ(" Professional", gp::msg::get(kPro));
  writeCatalog("de", std::string("msg.autoinstall.win_pro = x\n\0", 29));
  EXPECT_EQ(" Professional", gp::msg::get(kPro));
  std::filesystem::remove(dir_ / "de/guestprep.vmsg");
  std::filesystem::create_directories(dir_ / "de/guestprep.vmsg");
  EXPECT_EQ(" Professional", gp::msg::get(kPro));
  EXPECT_EQ("earlier failure", gp::msg::takePending());
}

// The file's size tells the versions apart even when both writes fall in
// the same clock tick of the file system's time stamps.
TEST_F(MsgCatalogTest, EditedCatalogIsReadAgain) {
  setenv("GUESTPREP_LANG", "de", 1);
  writeCatalog("de", "msg.autoinstall.win_pro = \" eins\"\n");
  EXPECT_EQ(" eins", gp::msg::get(kPro));
  writeCatalog("de", "msg.autoinstall.win_pro = \" zweite\"\n");
  EXPECT_EQ(" zweite", gp::msg::get(kPro));
}

TEST_F(MsgCatalogTest, FormatSubstitutesOnlyPlainDirectives) {
  EXPECT_EQ("a-b-c", gp::msg::format("%s-%s-%s", {"a", "b", "c"}));
  EXPECT_EQ("100% %s", gp::msg::format("100%% %s", {"%s"}));
  EXPECT_EQ("xyz", gp::msg::format(kFormat, {"x", "y", "z"}));

  setenv("GUESTPREP_LANG", "de", 1);
  writeCatalog("de",
               "msg.autoinstall.prettyFormat = \"%3$s/%1$s (%2$s) 5%%\"\n");
  EXPECT_EQ("z/x (y) 5%", gp::msg::format(kFormat, {"x", "y", "z"}));
  // Directives a catalog could use to read or write memory through printf,
  // or to name arguments that do not exist, make the default text win.
  int n = 0;
  for (const char *bad : {"%n%s%s", "%s%s%s%s", "%4$s", "%d", "%.1000s", "%p%s",
                          "%1$n", "%s%", "%0$s", "%10$s"}) {
    // A catalog of its own each, so that no cached one can answer.
    std::string lang = "t" + std::to_string(++n);
    writeCatalog(
        lang, std::string("msg.autoinstall.prettyFormat = \"") + bad + "\"\n");
    setenv("GUESTPREP_LANG", lang.c_str(), 1);
    EXPECT_EQ("xyz", gp::msg::format(kFormat, {"x", "y", "z"})) << bad;
  }
}

// Every message id in the library's sources has a German text, and the
// shipped catalog parses without a single skipped line.
TEST_F(MsgCatalogTest, GermanCatalogCoversEveryMessageOfTheLibrary) {
  std::string catalogFile = gp::test::sourcePath("messages/de/guestprep.vmsg");
  gp::ConfigDict catalog;
  ASSERT_TRUE(catalog.loadFile(catalogFile.c_str())) << gp::msg::takePending();

  std::set<std::string> ids;
  std::regex marker(R"(@&!\*@\*@\((msg\.[A-Za-z0-9_.]+)\))");
  for (const char *dir : {"lib", "platform"}) {
    for (const auto &entry : std::filesystem::recursive_directory_iterator(
             gp::test::sourcePath(dir))) {
      std::string text = gp::test::readFile(entry.path().string());
      for (std::sregex_iterator it(text.begin(), text.end(), marker), end;
           it != end; ++it) {
        ids.insert((*it)[1]);
      }
    }
  }
  EXPECT_GE(ids.size(), 31u);
  EXPECT_TRUE(ids.count("msg.guessGuest.ubuntuServer"));
  for (const std::string &id : ids) {
    EXPECT_TRUE(catalog.isDefined(id)) << id;
  }
}

}  // namespace
