// Guestprep_DescribeMedium on a 4 GiB Red Hat DVD image and on a Windows
// disc whose install.wim is 4 GiB: the description must not depend on the
// size of the disc or of the install image, and the benchmark reports the
// bytes it reads per call.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "bench/bench_support.h"
#include "guestprep/medium.h"
#include "lib/medium/description.h"

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kImageSize = uint64_t{4} << 30;

void run(const std::string &cmd, const fs::path &image) {
  if (std::system(cmd.c_str()) != 0) {
    std::fprintf(stderr, "cannot build %s\n", image.c_str());
    std::exit(1);
  }
}

// A bootable RHEL 9 DVD tree extended to 4 GiB as a sparse file.
std::string redHatDvd() {
  fs::path dir = gp::bench::fixtureDir();
  fs::path image = dir / "rhel9-dvd-4g.iso";
  std::error_code ec;
  if (fs::exists(image, ec) && fs::file_size(image, ec) == kImageSize) {
    return image.string();
  }
  fs::path tree = dir / "rhel9-dvd-tree";
  fs::remove_all(tree, ec);
  gp::bench::writeText(tree / ".treeinfo",
                       "[header]\ntype = productmd.treeinfo\nversion = 1.2\n"
                       "[release]\nname = Red Hat Enterprise Linux\nshort = "
                       "RHEL\nversion = 9.3\n[tree]\narch = x86_64\n");
  gp::bench::writeText(tree / ".discinfo", "1697000000.0\n9.3\nx86_64\n");
  gp::bench::writeText(tree / "isolinux/isolinux.cfg", "default linux\n");
  gp::bench::writeText(tree / "images/efiboot.img", std::string(65536, '\0'));
  for (int i = 0; i < 40; ++i) {
    gp::bench::writeText(tree / ("Packages/pkg-" + std::to_string(i) + ".rpm"),
                         "rpm");
  }
  run("cp /usr/lib/ISOLINUX/isolinux.bin '" + tree.string() + "/isolinux/'",
      image);
  gp::bench::masterSparseImage(
      "-R -J -V RHEL-9-3-0-BaseOS-x86_64 -b isolinux/isolinux.bin -c "
      "isolinux/boot.cat -no-emul-boot -boot-load-size 4 -boot-info-table "
      "-eltorito-alt-boot -e images/efiboot.img -no-emul-boot",
      tree, image, kImageSize);
  return image.string();
}

// A Windows disc whose sources/install.wim is a 4 GiB sparse file: the
// header and XML of a real WIM, the XML moved to the end of the file.
std::string windowsDisc() {
  fs::path dir = gp::bench::fixtureDir();
  fs::path image = dir / "windows-4g-wim.iso";
  std::error_code ec;
  if (fs::exists(image, ec) && fs::file_size(image, ec) > kImageSize - 1) {
    return image.string();
  }
  fs::path tree = dir / "windows-4g-tree";
  fs::remove_all(tree, ec);
  std::string t = "'" + tree.string() + "'";
  std::string wim = t + "/disc/sources/install.wim";
  run("set -e; mkdir -p " + t + "/src " + t + "/disc/sources; echo hi > " + t +
          "/src/a; wimlib-imagex capture " + t + "/src " + t +
          "/small.wim 'Windows 11 Pro' >/dev/null; wimlib-imagex info " + t +
          "/small.wim 1 --image-property WINDOWS/ARCH=9 --image-property "
          "WINDOWS/INSTALLATIONTYPE=Client --image-property "
          "WINDOWS/VERSION/BUILD=26100 >/dev/null; python3 -c \"import "
          "struct,sys; s=open(sys.argv[1],'rb').read(); h=bytearray(s[:208]); "
          "size=int.from_bytes(h[0x48:0x4f],'little'); "
          "off=struct.unpack_from('<Q',h,0x50)[0]; total=(4<<30)-1; "
          "new=total-size; struct.pack_into('<Q',h,0x50,new); "
          "f=open(sys.argv[2],'wb'); f.write(h); f.seek(new); "
          "f.write(s[off:off+size]); f.truncate(total)\" " +
          t + "/small.wim " + wim +
          "; xorriso -as mkisofs -quiet -R -J -V "
          "CCCOMA_X64FRE_EN-US_DV9 -o '" +
          image.string() + "' " + t +
          "/disc >/dev/null 2>&1; fallocate --dig-holes '" + image.string() +
          "'",
      image);
  return image.string();
}

void describeLoop(benchmark::State &state, const std::string &image,
                  const char *wantedId) {
  uint64_t bytes = 0;
  std::optional<std::string> doc =
      gp::medium::describeMedium(image.c_str(), &bytes);
  if (!doc || doc->find(wantedId) == std::string::npos) {
    state.SkipWithError("the image was not described as expected");
    return;
  }
  gp::bench::ReadCounter reads;
  for (auto _ : state) {
    char *text = Guestprep_DescribeMedium(image.c_str());
    benchmark::DoNotOptimize(text);
    std::free(text);
  }
  // The description's own reads, and all reads including the
  // identification that fills `guess`.
  state.counters["bytes_read_per_call"] =
      benchmark::Counter(static_cast<double>(bytes));
  state.counters["with_guess"] =
      benchmark::Counter(static_cast<double>(reads.total()) /
                         static_cast<double>(state.iterations()));
}

void BM_DescribeRedHatDvd4GiB(benchmark::State &state) {
  static const std::string image = redHatDvd();
  describeLoop(state, image, "\"rhel9.3\"");
}
BENCHMARK(BM_DescribeRedHatDvd4GiB)->Unit(benchmark::kMicrosecond);

void BM_DescribeWindows4GiBWim(benchmark::State &state) {
  static const std::string image = windowsDisc();
  describeLoop(state, image, "\"win11\"");
}
BENCHMARK(BM_DescribeWindows4GiBWim)->Unit(benchmark::kMicrosecond);

}  // namespace
