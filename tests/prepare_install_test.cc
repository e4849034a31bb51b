// Preparing an unattended installation from a disc: which path each kind of
// disc takes, what lands in the output directory and what the result says,
// that a failure leaves the output directory as it was, and the C entry's
// JSON in and out. The discs are built at test time by the real tools.
#include "lib/medium/prepare_install.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>

#include "guestprep/medium.h"
#include "platform/abi.h"
#include "platform/hostio.h"
#include "support/fixtures.h"

namespace {

namespace fs = std::filesystem;
using gp::medium::PrepareRoute;
using gp::medium::PrepareStatus;
using gp::test::FileTree;
using Json = nlohmann::json;

const char kIsolinuxBin[] = "/usr/lib/ISOLINUX/isolinux.bin";
const char kIsolinuxBoot[] =
    "-b isolinux/isolinux.bin -c isolinux/boot.cat -no-emul-boot "
    "-boot-load-size 4 -boot-info-table";

// An image of `files` mastered by xorriso with `bootArgs`, the isolinux
// loader copied in when the tree has an isolinux directory; cached in the
// build tree by content.
std::string disc(const FileTree &files, const std::string &bootArgs = "") {
  std::string key = bootArgs;
  for (const auto &[path, content] : files) {
    key += "\n" + path + "\n" + content;
  }
  std::string out = std::string(GP_BINARY_DIR) + "/fixtures/prepare-" +
                    std::to_string(std::hash<std::string>()(key)) + ".iso";
  if (gp::test::fileExists(out)) {
    return out;
  }
  gp::test::TempDir tmp;
  std::string root = tmp / "tree";
  gp::test::writeTree(root, files);
  if (files.count("isolinux/isolinux.cfg") != 0) {
    gp::test::writeFile(root + "/isolinux/isolinux.bin",
                        gp::test::readFile(kIsolinuxBin));
  }
  std::string cmd = "mkdir -p " + gp::test::shellQuote(GP_BINARY_DIR) +
                    "/fixtures && xorriso -as mkisofs -quiet -R -J -V TEST " +
                    bootArgs + " -o " + gp::test::shellQuote(out + ".tmp") +
                    " " + gp::test::shellQuote(root) + " && mv " +
                    gp::test::shellQuote(out + ".tmp") + " " +
                    gp::test::shellQuote(out);
  EXPECT_EQ(0, gp::test::runCommand(cmd)) << cmd;
  return out;
}

std::string treeinfo(const std::string &name, const std::string &version) {
  return "[header]\ntype = productmd.treeinfo\nversion = 1.2\n\n[release]\n"
         "name = " +
         name + "\nversion = " + version +
         "\n[tree]\narch = x86_64\n[variant-BaseOS]\nrepository = BaseOS\n";
}

const FileTree kRhel9 = {
    {".treeinfo", treeinfo("Red Hat Enterprise Linux", "9.3")},
    {"BaseOS/repodata/repomd.xml", "<repomd/>\n"}};

// A disc of the classic rules: Red Hat Enterprise Linux 5 with its
// isolinux kernel and RAM disk.
FileTree rhel5() {
  return {{".discinfo",
           "1170972069.396645\nRed Hat Enterprise Linux Server 5\nx86_64\n"
           "1,2,3,4,5,6\n"},
          {"RPM-GPG-KEY-redhat-release", "key\n"},
          {"isolinux/isolinux.cfg",
           "default linux\nprompt 1\ntimeout 600\nlabel linux\n  kernel "
           "vmlinuz\n  append initrd=initrd.img\n"},
          {"isolinux/vmlinuz", "kernel"},
          {"isolinux/initrd.img", "ramdisk"}};
}

const FileTree kDebian12 = {
    {".disk/info",
     "Debian GNU/Linux 12.5.0 \"Bookworm\" - Official amd64 DVD Binary-1 "
     "20240210-11:28"},
    {"install.amd/vmlinuz", "kernel"},
    {"install.amd/initrd.gz", "ramdisk"},
    {"isolinux/isolinux.cfg",
     "default install\nlabel install\n\tkernel /install.amd/vmlinuz\n"
     "\tappend vga=788 initrd=/install.amd/initrd.gz --- quiet\n"}};

const FileTree kUbuntuDesktop = {
    {".disk/info", "Ubuntu 24.04 LTS \"Noble Numbat\" - Release amd64"},
    {"casper/vmlinuz", "kernel"}};

// A Windows 11 disc whose install.wim is made by wimlib.
std::string windows11() {
  std::string out = std::string(GP_BINARY_DIR) + "/fixtures/prepare-win11.iso";
  if (gp::test::fileExists(out)) {
    return out;
  }
  gp::test::TempDir tmp;
  const std::string wim = "disc/sources/install.wim";
  std::string cmd =
      "set -e; cd " + gp::test::shellQuote(tmp.path()) +
      "; mkdir -p src disc/sources; echo hi > src/a.txt;"
      "wimlib-imagex capture src " +
      wim + " 'Windows 11 Pro' >/dev/null; wimlib-imagex info " + wim +
      " 1 --image-property WINDOWS/ARCH=9 --image-property "
      "WINDOWS/EDITIONID=Professional --image-property "
      "WINDOWS/INSTALLATIONTYPE=Client --image-property "
      "WINDOWS/VERSION/MAJOR=10 --image-property WINDOWS/VERSION/MINOR=0 "
      "--image-property WINDOWS/VERSION/BUILD=26100 >/dev/null;"
      "genisoimage -quiet -udf -J -R -V CCCOMA_X64FRE_EN-US -o disc.iso disc;"
      "mkdir -p " +
      gp::test::shellQuote(GP_BINARY_DIR) + "/fixtures; mv disc.iso " +
      gp::test::shellQuote(out);
  EXPECT_EQ(0, gp::test::runCommand("(" + cmd + ") 2>&1")) << cmd;
  return out;
}

gp::medium::InstallEntries entries() {
  gp::medium::InstallEntries e;
  e.user = "jdoe";
  e.fullName = "John Doe";
  e.password = "s3cret!";
  e.rootPassword = "r00t!";
  e.templateDir = gp::test::sourcePath("data/templates");
  return e;
}

std::set<std::string> listing(const std::string &dir) {
  std::set<std::string> names;
  std::error_code ec;
  for (const auto &entry : fs::directory_iterator(dir, ec)) {
    names.insert(entry.path().filename().string());
  }
  return names;
}

struct Prepared {
  PrepareStatus status;
  gp::medium::PrepareResult result;
  std::string error;
};

Prepared prepare(const std::string &image, const std::string &out,
                 bool noPrompt = false,
                 gp::medium::InstallEntries e = entries()) {
  gp::medium::PrepareRequest request;
  request.image = image;
  request.outDir = out;
  request.entries = e;
  request.noPrompt = noPrompt;
  Prepared p;
  p.status = gp::medium::prepareInstall(request, p.result, p.error);
  return p;
}

TEST(PrepareRoute, TodaysReleasesTakeTheModernPath) {
  const struct {
    const char *id, *distro, *installer;
    bool today;
  } cases[] = {
      {"rhel7.9", "rhel", "anaconda", false},
      {"rhel8.0", "rhel", "anaconda", true},
      {"centos7.0", "centos", "anaconda", false},
      {"centos-stream9", "centos-stream", "anaconda", true},
      {"fedora27", "fedora", "anaconda", false},
      {"fedora40", "fedora", "anaconda", true},
      {"ubuntu18.04", "ubuntu", "debian-installer", false},
      {"ubuntu20.04", "ubuntu", "subiquity", true},
      {"debian10", "debian", "debian-installer", false},
      {"debian13", "debian", "debian-installer", true},
      {"sles12sp5", "sles", "yast", false},
      {"sle15sp4", "sle", "yast", true},
      {"opensuse15.5", "opensuse", "yast", true},
      {"win8.1", "win", "windows-setup", false},
      {"win2k12r2", "win", "windows-setup", false},
      {"win2k16", "win", "windows-setup", true},
      {"win11", "win", "windows-setup", true},
  };
  for (const auto &c : cases) {
    gp::medium::OsFacts os;
    os.id = c.id;
    os.distro = c.distro;
    os.installer = c.installer;
    EXPECT_EQ(c.today, gp::medium::isTodaysRelease(os)) << c.id;
    // A recognised, supported guest goes the classic way unless it is one
    // of today's releases.
    GuessInfo guess{};
    guess.osName = "ubuntu-64";
    guess.subVersion = GUESS_VERSION_UBUNTU_SERVER_810_OR_HIGHER;
    gp::medium::Description facts;
    facts.os = os;
    EXPECT_EQ(c.today ? PrepareRoute::Modern : PrepareRoute::Parts,
              gp::medium::choosePrepareRoute(GUESS_FOUND, guess, facts))
        << c.id;
  }
  GuessInfo none{};
  EXPECT_EQ(PrepareRoute::Modern,
            gp::medium::choosePrepareRoute(GUESS_NOT_FOUND, none, {}));
  GuessInfo unsupported{};
  unsupported.osName = "mandriva";
  EXPECT_EQ(PrepareRoute::Modern,
            gp::medium::choosePrepareRoute(GUESS_FOUND, unsupported, {}));
}

// The Windows 7 sample tree as a UDF disc, which the classic rules know.
std::string windows7() {
  std::string out = std::string(GP_BINARY_DIR) + "/fixtures/prepare-win7.iso";
  if (!gp::test::fileExists(out)) {
    std::string cmd =
        "genisoimage -quiet -udf -J -R -V GRMCULXFRER_EN_DVD -o " +
        gp::test::shellQuote(out) + " " +
        gp::test::shellQuote(
            gp::test::sourcePath("examples/media/windows7-x64-udf"));
    EXPECT_EQ(0, gp::test::runCommand(cmd + " 2>&1")) << cmd;
  }
  return out;
}

enum class Boot { Disc, ClassicIso, Remastered };
enum class Second { None, Seed, Disc };

TEST(PrepareInstall, EachDiscKindGetsItsMedia) {
  const struct {
    const char *label;
    std::string image;
    const char *path, *installer, *answer;
    Boot boot;
    Second second;
    const char *firmware;
    bool keypress;
  } cases[] = {
      {"RHEL 9", disc(kRhel9), "modern", "anaconda", "ks.cfg", Boot::Disc,
       Second::Seed, "either", false},
      {"Debian 12 is remastered", disc(kDebian12, kIsolinuxBoot), "modern",
       "debian-installer", "preseed.cfg", Boot::Remastered, Second::None,
       "bios", false},
      {"Windows 11 under UEFI waits for a key", windows11(), "modern",
       "windows-setup", "Autounattend.xml", Boot::Disc, Second::Seed, "uefi",
       true},
      // The classic boot ISO starts the installer; the disc is the second CD
      // it installs from.
      {"RHEL 5 takes the classic path", disc(rhel5(), kIsolinuxBoot), "parts",
       "anaconda", "ks.cfg", Boot::ClassicIso, Second::Disc, "bios", false},
      {"Windows 7 takes the classic path", windows7(), "parts", "windows-setup",
       "Autounattend.xml", Boot::Disc, Second::Seed, "bios", false},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.label);
    gp::test::TempDir tmp;
    const std::string out = tmp / "out";
    Prepared p = prepare(c.image, out);
    ASSERT_EQ(PrepareStatus::Ok, p.status) << p.error;
    const auto &r = p.result;
    EXPECT_EQ(c.path, r.path);
    EXPECT_EQ(c.installer, r.installer);
    EXPECT_EQ(out + "/" + c.answer, r.answerFile);
    EXPECT_TRUE(gp::test::fileExists(r.answerFile));
    EXPECT_EQ(c.firmware, r.firmware);
    EXPECT_EQ(c.keypress, r.bootKeypress);
    const std::string boots[] = {c.image, out + "/autoinst.iso",
                                 out + "/boot.iso"};
    EXPECT_EQ(boots[static_cast<int>(c.boot)], r.bootImage);
    const std::string seconds[] = {"", out + "/seed.iso", c.image};
    EXPECT_EQ(seconds[static_cast<int>(c.second)], r.secondMedium.value_or(""));
    EXPECT_TRUE(gp::test::fileExists(r.bootImage));
    if (r.secondMedium) {
      EXPECT_TRUE(gp::test::fileExists(*r.secondMedium));
    }
    for (const std::string &name : listing(out)) {
      EXPECT_NE('.', name[0]) << "the private directory stayed: " << name;
    }
  }
}

TEST(PrepareInstall, UbuntuWithoutPromptIsRemasteredAndKeepsItsSeed) {
  FileTree ubuntu = {
      {".disk/info",
       "Ubuntu-Server 20.04.6 LTS \"Focal Fossa\" - Release amd64"},
      {"casper/vmlinuz", "kernel"},
      {"casper/initrd", "ramdisk"},
      {"isolinux/isolinux.cfg",
       "default live\nlabel live\n  kernel /casper/vmlinuz\n  append "
       "initrd=/casper/initrd quiet ---\n"}};
  const std::string image = disc(ubuntu, kIsolinuxBoot);
  for (bool noPrompt : {false, true}) {
    gp::test::TempDir tmp;
    Prepared p = prepare(image, tmp / "out", noPrompt);
    ASSERT_EQ(PrepareStatus::Ok, p.status) << p.error;
    EXPECT_EQ("subiquity", p.result.installer);
    EXPECT_EQ(noPrompt ? tmp / "out/boot.iso" : image, p.result.bootImage);
    EXPECT_EQ(tmp / "out/seed.iso", p.result.secondMedium.value_or(""));
    EXPECT_TRUE(gp::test::fileExists(tmp / "out/meta-data"));
  }
}

TEST(PrepareInstall, RefusalsWriteNothing) {
  gp::medium::InstallEntries noUser = entries();
  noUser.user.clear();
  const struct {
    const char *label;
    std::string image;
    gp::medium::InstallEntries entries;
    PrepareStatus status;
    const char *reason;
  } cases[] = {
      {"a live disc", disc(kUbuntuDesktop), entries(), PrepareStatus::Refused,
       "live disc"},
      {"not an installer", disc({{"readme.txt", "hi\n"}}), entries(),
       PrepareStatus::Refused, "not an installation disc"},
      {"no image", "/nonexistent/disc.iso", entries(),
       PrepareStatus::BadArguments, "No such file"},
      {"no user", disc(kRhel9), noUser, PrepareStatus::BadArguments,
       "user is required"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.label);
    gp::test::TempDir tmp;
    // An output directory that exists keeps exactly what it had; one that
    // the run made goes again.
    gp::test::writeFile(tmp / "kept/mine.txt", "mine");
    Prepared kept = prepare(c.image, tmp / "kept", false, c.entries);
    EXPECT_EQ(c.status, kept.status);
    EXPECT_NE(std::string::npos, kept.error.find(c.reason)) << kept.error;
    EXPECT_EQ(std::set<std::string>{"mine.txt"}, listing(tmp / "kept"));
    Prepared fresh = prepare(c.image, tmp / "new/out", false, c.entries);
    EXPECT_EQ(c.status, fresh.status);
    EXPECT_FALSE(fs::exists(tmp / "new"));
  }
}

TEST(PrepareInstall, AFailedMoveTakesBackWhatWasMoved) {
  static int renames;
  renames = 0;
  gp::HostOps ops = gp::realHostOps();
  ops.rename = [](const char *from, const char *to) {
    // Of the moves into the output directory, the first (the answer file)
    // succeeds and the second fails.
    if (std::string(to).find("/.guestprep-") == std::string::npos &&
        ++renames > 1) {
      errno = ENOSPC;
      return -1;
    }
    return gp::realHostOps().rename(from, to);
  };
  gp::test::TempDir tmp;
  const std::string image = disc(kRhel9);
  Prepared p;
  {
    gp::ScopedHostOps scoped(ops);
    p = prepare(image, tmp / "out");
  }
  EXPECT_EQ(PrepareStatus::Refused, p.status);
  EXPECT_NE(std::string::npos, p.error.find("No space left")) << p.error;
  EXPECT_FALSE(fs::exists(tmp / "out"));
  EXPECT_GE(renames, 2);
}

TEST(PrepareInstall, TheOutputNeverReplacesTheImage) {
  gp::test::TempDir tmp;
  gp::test::writeFile(tmp / "out/seed.iso", gp::test::readFile(disc(kRhel9)));
  const std::string before = gp::test::readFile(tmp / "out/seed.iso");
  Prepared p = prepare(tmp / "out/seed.iso", tmp / "out");
  EXPECT_EQ(PrepareStatus::BadArguments, p.status);
  EXPECT_EQ(before, gp::test::readFile(tmp / "out/seed.iso"));
  EXPECT_EQ(std::set<std::string>{"seed.iso"}, listing(tmp / "out"));
}

nlohmann::ordered_json callEntry(const char *image, const char *entriesJson,
                                 const char *out) {
  gp::MallocPtr<char> doc(Guestprep_PrepareInstall(image, entriesJson, out));
  EXPECT_NE(nullptr, doc.get());
  return doc ? nlohmann::ordered_json::parse(doc.get())
             : nlohmann::ordered_json();
}

TEST(PrepareInstallEntry, JsonInAndOut) {
  gp::test::TempDir tmp;
  const std::string image = disc(kRhel9);
  const std::string out = tmp / "out";
  const struct {
    const char *entries;
    const char *reason;
  } bad[] = {
      {"[1]", "not a JSON object"},
      {"{\"user\": ", "not a JSON object"},
      {R"({"user":"u","full_name":"U","password":"p","root_password":"r",
           "shoe_size":"9"})",
       "unknown entry shoe_size"},
      {R"({"user":"u","full_name":"U","password":"p","root_password":"r",
           "power_off":"yes"})",
       "power_off must be true or false"},
      {R"({"user":"u","full_name":"U","password":"p","root_password":"r",
           "firmware":"coreboot"})",
       "firmware must be"},
      {R"({"user":"u","full_name":"U","password":"p"})",
       "root_password is required"},
  };
  for (const auto &c : bad) {
    auto doc = callEntry(image.c_str(), c.entries, out.c_str());
    EXPECT_EQ(2, doc["status"]) << c.entries;
    EXPECT_NE(std::string::npos, doc["error"].get<std::string>().find(c.reason))
        << doc;
    EXPECT_FALSE(fs::exists(out));
  }
  EXPECT_EQ(2, callEntry(nullptr, "{}", out.c_str())["status"]);
  auto refused = callEntry(
      disc(kUbuntuDesktop).c_str(),
      R"({"user":"u","full_name":"U","password":"p","root_password":"r"})",
      out.c_str());
  EXPECT_EQ(1, refused["status"]);

  auto done = callEntry(
      image.c_str(),
      (R"({"user":"jdoe","full_name":"John \"Q\" Doe","password":"p&<>",
          "root_password":"r#$\\","time_zone":"Europe/Berlin",
          "power_off":true,"firmware":"bios","no_prompt":false,
          "template_dir":")" +
       gp::test::sourcePath("data/templates") + "\"}")
          .c_str(),
      out.c_str());
  std::vector<std::string> keys;
  for (const auto &item : done.items()) {
    keys.push_back(item.key());
  }
  EXPECT_EQ((std::vector<std::string>{"path", "installer", "answer_file",
                                      "boot_image", "second_medium", "floppy",
                                      "firmware", "boot_keypress"}),
            keys)
      << done;
  EXPECT_EQ("modern", done["path"]);
  EXPECT_EQ(out + "/seed.iso", done["second_medium"]);
  EXPECT_TRUE(done["floppy"].is_null());
}

TEST(PrepareInstallCli, ExitCodes) {
  gp::test::TempDir tmp;
  const std::string who =
      " --user jdoe --full-name 'John Doe' --password p --root-password r";
  auto run = [&](const std::string &args) {
    return gp::test::runCommand(std::string("GUESTPREP_LOG=/dev/null "
                                            "GUESTPREP_TEMPLATEDIR=") +
                                gp::test::sourcePath("data/templates") + " " +
                                GP_CLI + " prepare " + args +
                                " >/dev/null 2>&1");
  };
  const std::string out = " --out " + gp::test::shellQuote(tmp / "out");
  EXPECT_EQ(0, run(gp::test::shellQuote(disc(kRhel9)) + out + who));
  EXPECT_EQ(1, run(gp::test::shellQuote(disc(kUbuntuDesktop)) + out + who));
  EXPECT_EQ(2, run(gp::test::shellQuote(disc(kRhel9)) + out));
  EXPECT_EQ(2, run(gp::test::shellQuote(disc(kRhel9)) + out + who +
                   " --firmware coreboot"));
  EXPECT_EQ(2, run("/nonexistent/disc.iso" + out + who));
  // The family word insists on its family.
  EXPECT_EQ(1, run("linux " + gp::test::shellQuote(windows11()) + out + who));
}

}  // namespace
