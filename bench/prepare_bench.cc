// prepareInstall() from a 4 GiB image to every medium the host attaches, for
// a Red Hat DVD (kickstart and OEMDRV medium) and a Windows 11 disc
// (Autounattend.xml and its medium), neither remastered. Each iteration
// writes into a fresh output directory, removed outside the timing.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "bench/bench_support.h"
#include "lib/medium/prepare_install.h"

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kImageSize = uint64_t{4} << 30;

bool ready(const fs::path &image) {
  std::error_code ec;
  return fs::exists(image, ec) && fs::file_size(image, ec) == kImageSize;
}

std::string redHatDvd() {
  fs::path dir = gp::bench::fixtureDir();
  fs::path image = dir / "prepare-rhel9-4g.iso";
  if (ready(image)) {
    return image.string();
  }
  fs::path tree = dir / "prepare-rhel9-tree";
  std::error_code ec;
  fs::remove_all(tree, ec);
  gp::bench::writeText(tree / ".treeinfo",
                       "[header]\ntype = productmd.treeinfo\nversion = 1.2\n"
                       "[release]\nname = Red Hat Enterprise Linux\nshort = "
                       "RHEL\nversion = 9.3\n[tree]\narch = x86_64\n"
                       "[variant-BaseOS]\nrepository = BaseOS\n"
                       "[variant-AppStream]\nrepository = AppStream\n");
  gp::bench::writeText(tree / ".discinfo", "1697000000.0\n9.3\nx86_64\n");
  gp::bench::writeText(tree / "BaseOS/repodata/repomd.xml", "<repomd/>\n");
  gp::bench::writeText(tree / "AppStream/repodata/repomd.xml", "<repomd/>\n");
  gp::bench::writeText(tree / "images/efiboot.img", std::string(65536, '\0'));
  gp::bench::masterSparseImage(
      "-R -J -V RHEL-9-3-0-BaseOS-x86_64 -e images/efiboot.img "
      "-no-emul-boot",
      tree, image, kImageSize);
  return image.string();
}

std::string windowsDisc() {
  fs::path dir = gp::bench::fixtureDir();
  fs::path image = dir / "prepare-win11-4g.iso";
  if (ready(image)) {
    return image.string();
  }
  fs::path tree = dir / "prepare-win11-tree";
  std::error_code ec;
  fs::remove_all(tree, ec);
  fs::create_directories(tree / "sources");
  fs::create_directories(dir / "prepare-win11-src");
  gp::bench::writeText(dir / "prepare-win11-src/a.txt", "hi\n");
  const std::string wim = "'" + (tree / "sources/install.wim").string() + "'";
  std::string cmd =
      "wimlib-imagex capture '" + (dir / "prepare-win11-src").string() + "' " +
      wim + " 'Windows 11 Pro' >/dev/null && wimlib-imagex info " + wim +
      " 1 --image-property WINDOWS/ARCH=9 --image-property "
      "WINDOWS/INSTALLATIONTYPE=Client --image-property "
      "WINDOWS/VERSION/BUILD=26100 >/dev/null";
  if (std::system(cmd.c_str()) != 0) {
    std::fprintf(stderr, "cannot build %s\n", image.c_str());
    std::exit(1);
  }
  gp::bench::masterSparseImage("-R -J -V CCCOMA_X64FRE_EN-US_DV9", tree, image,
                               kImageSize);
  return image.string();
}

void prepareLoop(benchmark::State &state, const std::string &image,
                 const char *installer) {
  gp::medium::PrepareRequest request;
  request.image = image;
  request.entries.user = "jdoe";
  request.entries.fullName = "John Doe";
  request.entries.password = "S3cret!";
  request.entries.rootPassword = "R00t!";
  request.entries.templateDir = std::string(GP_SOURCE_DIR) + "/data/templates";
  const fs::path out = gp::bench::fixtureDir() / "prepare-out";
  request.outDir = out.string();
  std::error_code ec;
  for (auto _ : state) {
    gp::medium::PrepareResult result;
    std::string error;
    if (gp::medium::prepareInstall(request, result, error) !=
            gp::medium::PrepareStatus::Ok ||
        result.installer != installer || !result.secondMedium) {
      state.SkipWithError(("not prepared: " + error).c_str());
      return;
    }
    state.PauseTiming();
    fs::remove_all(out, ec);
    state.ResumeTiming();
  }
}

void BM_PrepareRedHatDvd4GiB(benchmark::State &state) {
  static const std::string image = redHatDvd();
  prepareLoop(state, image, "anaconda");
}
BENCHMARK(BM_PrepareRedHatDvd4GiB)->Unit(benchmark::kMillisecond);

void BM_PrepareWindows11Disc4GiB(benchmark::State &state) {
  static const std::string image = windowsDisc();
  prepareLoop(state, image, "windows-setup");
}
BENCHMARK(BM_PrepareWindows11Disc4GiB)->Unit(benchmark::kMillisecond);

}  // namespace
