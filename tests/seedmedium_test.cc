// The seed medium: an ISO 9660 image with Joliet and Rock Ridge names that
// blkid and xorriso read back, the same bytes twice under
// SOURCE_DATE_EPOCH, and nothing lost or left behind when a step fails.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "lib/medium/install_entries.h"
#include "platform/hostio.h"
#include "support/fixtures.h"

namespace {

using gp::medium::Answer;
using gp::test::readFile;
using gp::test::runCommand;
using gp::test::shellQuote;
using gp::test::TempDir;

// Sets an environment variable for its lifetime.
class ScopedEnv {
 public:
  ScopedEnv(const char *name, const char *value) : name_(name) {
    const char *old = std::getenv(name);
    had_ = old != nullptr;
    old_ = had_ ? old : "";
    setenv(name, value, 1);
  }
  ~ScopedEnv() {
    if (had_) {
      setenv(name_, old_.c_str(), 1);
    } else {
      unsetenv(name_);
    }
  }

 private:
  const char *name_;
  bool had_;
  std::string old_;
};

Answer cidata() {
  return Answer{"subiquity",
                "CIDATA",
                {{"user-data", "#cloud-config\nautoinstall:\n  version: 1\n"},
                 {"meta-data", "instance-id: i-1\n"}}};
}

class SeedMedium : public ::testing::Test {
 protected:
  TempDir dir;
  // The private staging directories go below TMPDIR: it must be empty
  // after every call.
  ScopedEnv tmp{"TMPDIR", dir.path().c_str()};
  std::string out = dir / "out/seed.iso";

  void SetUp() override { gp::makeDirectories(dir / "out"); }

  bool make(const Answer &answer, std::string *error = nullptr) {
    std::string e;
    bool ok = gp::medium::makeSeedMedium(answer, out, e);
    EXPECT_EQ(ok, e.empty()) << e;
    if (error != nullptr) {
      *error = e;
    }
    return ok;
  }

  size_t stagingLeft() {
    const std::string staging =
        dir / ("guestprep-" + std::to_string(::getuid()));
    size_t n = 0;
    if (gp::test::fileExists(staging)) {
      for (auto &entry : std::filesystem::directory_iterator(staging)) {
        (void)entry;
        ++n;
      }
    }
    return n;
  }

  std::string ls(const std::string &image) {
    std::string listing;
    runCommand("xorriso -indev " + shellQuote(image) + " -ls / 2>/dev/null",
               &listing);
    return listing;
  }
};

TEST_F(SeedMedium, LabelAndNamesAsTheInstallersLookForThem) {
  if (runCommand("command -v blkid >/dev/null") != 0) {
    GTEST_SKIP() << "blkid (util-linux) is not installed";
  }
  const struct {
    Answer answer;
    const char *listing;
  } cases[] = {
      {cidata(), "'meta-data'\n'user-data'\n"},
      {Answer{"windows-setup", "AUTOUNATTEND", {{"Autounattend.xml", "<x/>"}}},
       "'Autounattend.xml'\n"},
      {Answer{"anaconda", "OEMDRV", {{"ks.cfg", "text\n"}}}, "'ks.cfg'\n"},
  };
  for (const auto &c : cases) {
    ASSERT_TRUE(make(c.answer));
    std::string label;
    runCommand("blkid -o value -s LABEL " + shellQuote(out), &label);
    EXPECT_EQ(label, c.answer.volumeLabel + "\n");
    EXPECT_EQ(ls(out), c.listing);
    // Joliet keeps the names as Windows reads them.
    std::string joliet;
    runCommand("xorriso -rockridge off -joliet on -indev " + shellQuote(out) +
                   " -ls / 2>/dev/null",
               &joliet);
    EXPECT_EQ(joliet, c.listing);
    std::string text;
    runCommand("xorriso -indev " + shellQuote(out) + " -osirrox on -extract /" +
               c.answer.files[0].name + " " + shellQuote(dir / "back") +
               " >/dev/null 2>&1");
    EXPECT_EQ(readFile(dir / "back"), c.answer.files[0].text);
    std::filesystem::remove(dir / "back");
  }
  EXPECT_EQ(stagingLeft(), 0u);
  struct stat st;
  ASSERT_EQ(::stat(out.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST_F(SeedMedium, SameBytesUnderSourceDateEpoch) {
  ScopedEnv epoch("SOURCE_DATE_EPOCH", "1700000000");
  ASSERT_TRUE(make(cidata()));
  const std::string first = readFile(out);
  ::sleep(1);  // a clock that leaked into the image would now differ
  ASSERT_TRUE(make(cidata()));
  EXPECT_EQ(readFile(out), first);
  EXPECT_FALSE(first.empty());
}

TEST_F(SeedMedium, RefusesBadRequests) {
  const struct {
    const char *what;
    Answer answer;
    const char *epoch;
    const char *says;
  } cases[] = {
      {"label", Answer{"", "OEM DRV", {{"ks.cfg", ""}}}, nullptr,
       "volume label"},
      {"no files", Answer{"", "OEMDRV", {}}, nullptr, "1 to 16 files"},
      {"path", Answer{"", "OEMDRV", {{"../ks.cfg", ""}}}, nullptr,
       "not a file name"},
      {"twice", Answer{"", "OEMDRV", {{"ks.cfg", ""}, {"ks.cfg", ""}}}, nullptr,
       "given twice"},
      {"epoch", cidata(), "yesterday", "SOURCE_DATE_EPOCH"},
  };
  for (const auto &c : cases) {
    std::string error;
    if (c.epoch != nullptr) {
      ScopedEnv epoch("SOURCE_DATE_EPOCH", c.epoch);
      EXPECT_FALSE(make(c.answer, &error)) << c.what;
    } else {
      EXPECT_FALSE(make(c.answer, &error)) << c.what;
    }
    EXPECT_NE(error.find(c.says), std::string::npos) << c.what << ": " << error;
    EXPECT_FALSE(gp::test::fileExists(out)) << c.what;
  }
}

TEST_F(SeedMedium, FailuresKeepTheOldFileAndLeaveNothing) {
  gp::test::writeFile(out, "old medium");
  ::chmod(out.c_str(), 0640);
  struct Case {
    const char *what;
    void (*inject)(gp::HostOps &);
    const char *says;
  };
  const Case cases[] = {
      {"tool fails",
       [](gp::HostOps &o) { o.system = [](const char *) { return 1 << 8; }; },
       "xorriso could not master"},
      {"tool missing",
       [](gp::HostOps &o) { o.system = [](const char *) { return -1; }; },
       "xorriso could not master"},
      {"rename fails",
       [](gp::HostOps &o) {
         o.rename = [](const char *, const char *) {
           errno = EXDEV;
           return -1;
         };
       },
       "cannot write"},
      {"disk full",
       [](gp::HostOps &o) {
         o.fsync = [](int) {
           errno = ENOSPC;
           return -1;
         };
       },
       "No space left"},
  };
  for (const Case &c : cases) {
    gp::HostOps ops = gp::hostOps();
    c.inject(ops);
    std::string error;
    {
      gp::ScopedHostOps failing(ops);
      EXPECT_FALSE(make(cidata(), &error)) << c.what;
    }
    EXPECT_NE(error.find(c.says), std::string::npos) << c.what << ": " << error;
    EXPECT_EQ(readFile(out), "old medium") << c.what;
    EXPECT_EQ(stagingLeft(), 0u) << c.what;
    size_t inOut = 0;
    for (auto &entry : std::filesystem::directory_iterator(dir / "out")) {
      (void)entry;
      ++inOut;
    }
    EXPECT_EQ(inOut, 1u) << c.what << ": a temporary file was left";
  }
  // The replacement keeps the mode of the file it replaces.
  ASSERT_TRUE(make(cidata()));
  struct stat st;
  ASSERT_EQ(::stat(out.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  EXPECT_EQ(ls(out), "'meta-data'\n'user-data'\n");
}

}  // namespace
