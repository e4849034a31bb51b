#include "platform/msgcatalog.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <regex>
#include <set>
#include <string>

#include "platform/configdict.h"
#include "support/fixtures.h"

namespace {

using gp::msg::get;

constexpr const char kPro[] = "@&!*@*@(msg.autoinstall.win_pro) Professional";

// Every variable that picks the catalog starts unset; the catalogs live in a
// fresh directory.
class MsgCatalogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char *name : {"GUESTPREP_LANG", "LC_ALL", "LC_MESSAGES", "LANG"})
      unsetenv(name);
    setenv("GUESTPREP_MSGDIR", dir_.path().c_str(), 1);
  }
  void writeCatalog(const std::string &lang, const std::string &proText) {
    gp::test::writeFile(dir_ / (lang + "/guestprep.vmsg"),
                        "msg.autoinstall.win_pro = " + proText + "\n");
  }
  gp::test::TempDir dir_;
};

TEST_F(MsgCatalogTest, LanguageComesFromTheEnvironmentInOrder) {
  for (const char *lang : {"de", "fr", "pt_BR", "pt"})
    writeCatalog(lang, std::string("\" ") + lang + "\"");
  EXPECT_EQ(" Professional", get(kPro));
  EXPECT_EQ("", gp::msg::catalogPath());
  const char *const steps[][3] = {
      {"LANG", "de_DE.UTF-8", " de"},      {"LC_MESSAGES", "fr_FR@euro", " fr"},
      {"LC_ALL", "pt_BR.UTF-8", " pt_BR"}, {"LC_ALL", "pt_PT.UTF-8", " pt"},
      {"GUESTPREP_LANG", "de", " de"},
  };
  for (const auto &[name, value, text] : steps) {
    setenv(name, value, 1);
    EXPECT_EQ(text, get(kPro)) << name << "=" << value;
  }
  EXPECT_EQ(dir_ / "de/guestprep.vmsg", gp::msg::catalogPath());
  EXPECT_EQ(" Ultimate", get("@&!*@*@(msg.autoinstall.win_ultimate) Ultimate"));
  EXPECT_EQ("no marker", get("no marker"));
  EXPECT_EQ("@&!*@*@(unclosed", get("@&!*@*@(unclosed"));
  // No translation, and no way out of the catalog directory.
  gp::test::writeFile(dir_ / "guestprep.vmsg",
                      "msg.autoinstall.win_pro = \" top\"\n");
  writeCatalog("sub/de", "\" sub\"");
  setenv("GUESTPREP_MSGDIR", (dir_ / "sub").c_str(), 1);
  for (const char *lang : {"C", "POSIX", "C.UTF-8", "xx_YY", "../de", "..",
                           "/de", "de/../..", "d e"}) {
    setenv("GUESTPREP_LANG", lang, 1);
    EXPECT_EQ(" Professional", get(kPro)) << lang;
  }
}

TEST_F(MsgCatalogTest, HostileCatalogsGiveDefaultsAndLeaveNoPendingText) {
  setenv("GUESTPREP_LANG", "de", 1);
  gp::msg::appendPending("earlier failure");
  // Malformed lines are skipped, the rest still counts.
  gp::test::writeFile(dir_ / "de/guestprep.vmsg",
                      "garbage line\n"
                      "msg.autoinstall.win_ultimate = \"unterminated\n"
                      "msg.autoinstall.win_pro = \" Profi\"\n"
                      "msg.autoinstall.win_business = \"\"\n"
                      "msg.autoinstall.win_starter = \"" +
                          std::string(gp::msg::kMaxMessageLength + 1, 'x') +
                          "\"\n");
  EXPECT_EQ(" Profi", get(kPro));
  for (const char *message :
       {"win_ultimate) Ultimate", "win_business) Business",
        "win_starter) Starter"}) {
    EXPECT_EQ(std::strchr(message, ' '),
              get(std::string("@&!*@*@(msg.autoinstall.") + message));
  }
  // A catalog the dictionary refuses as a whole, and a directory where the
  // file should be: each rewrite is noticed, even within one tick of the
  // file system's time stamps.
  writeCatalog("de", std::string("x\n\0", 3));
  EXPECT_EQ(" Professional", get(kPro));
  std::filesystem::remove(dir_ / "de/guestprep.vmsg");
  std::filesystem::create_directories(dir_ / "de/guestprep.vmsg");
  EXPECT_EQ(" Professional", get(kPro));
  EXPECT_EQ("earlier failure", gp::msg::takePending());
}

TEST_F(MsgCatalogTest, FormatSubstitutesOnlyPlainDirectives) {
  EXPECT_EQ("a-b-c", gp::msg::format("%s-%s-%s", {"a", "b", "c"}));
  EXPECT_EQ("100% %s", gp::msg::format("100%% %s", {"%s"}));
  // Directives a catalog could use to read or write memory through printf,
  // or to name arguments that do not exist, make the default text win. A
  // catalog of its own each, so that no cached one can answer.
  int n = 0;
  for (const char *text :
       {"%3$s/%1$s (%2$s) 5%%", "%n%s%s", "%s%s%s%s", "%4$s", "%d", "%.1000s",
        "%p%s", "%1$n", "%s%", "%0$s", "%10$s"}) {
    std::string lang = "t" + std::to_string(++n);
    gp::test::writeFile(
        dir_ / (lang + "/guestprep.vmsg"),
        std::string("msg.autoinstall.prettyFormat = \"") + text + "\"\n");
    setenv("GUESTPREP_LANG", lang.c_str(), 1);
    EXPECT_EQ(n == 1 ? "z/x (y) 5%" : "xyz",
              gp::msg::format("@&!*@*@(msg.autoinstall.prettyFormat)%s%s%s",
                              {"x", "y", "z"}))
        << text;
  }
}

// Every message id in the library's sources has a German text, and the
// shipped catalog parses without a single skipped line.
TEST_F(MsgCatalogTest, GermanCatalogCoversEveryMessageOfTheLibrary) {
  gp::ConfigDict catalog;
  ASSERT_TRUE(catalog.loadFile(
      gp::test::sourcePath("messages/de/guestprep.vmsg").c_str()))
      << gp::msg::takePending();
  std::set<std::string> ids;
  std::regex marker(R"(@&!\*@\*@\((msg\.[A-Za-z0-9_.]+)\))");
  for (const char *dir : {"lib", "platform"}) {
    for (const auto &entry : std::filesystem::recursive_directory_iterator(
             gp::test::sourcePath(dir))) {
      std::string text = gp::test::readFile(entry.path().string());
      for (std::sregex_iterator it(text.begin(), text.end(), marker), end;
           it != end; ++it)
        ids.insert((*it)[1]);
    }
  }
  EXPECT_GE(ids.size(), 31u);
  for (const std::string &id : ids) EXPECT_TRUE(catalog.isDefined(id)) << id;
}

}  // namespace
