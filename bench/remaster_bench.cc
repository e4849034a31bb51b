// Remastering a 4 GiB installation disc with an answer file, against
// xorriso's own replay of the same disc with one file mapped in, timed
// side by side in each iteration. Both write a complete new 4 GiB image;
// the counters give the most temporary space each used beyond its output
// image.
//
// The disc is a Debian-style hybrid one: isolinux with an include chain, a
// GRUB menu, an EFI image, and two 2 GiB package files whose bytes do not
// repeat. Both runs read it from the page cache once the first iteration
// has warmed it.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "bench/bench_support.h"
#include "lib/medium/remaster.h"

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kPackageSize = (uint64_t{2} << 30) - (uint64_t{16} << 20);
constexpr int kPackages = 2;

fs::path benchDir() { return gp::bench::fixtureDir() / "remaster"; }

// Bytes that do not repeat, written in 16 MiB pieces.
void writePattern(const fs::path &path, uint64_t size, uint32_t seed) {
  std::vector<uint32_t> words((16u << 20) / 4);
  std::ofstream out(path, std::ios::binary);
  for (uint64_t done = 0; done < size; done += words.size() * 4) {
    for (uint32_t &w : words) {
      seed = seed * 1664525u + 1013904223u;
      w = seed;
    }
    out.write(reinterpret_cast<const char *>(words.data()),
              static_cast<std::streamsize>(words.size() * 4));
  }
}

void run(const std::string &cmd) {
  if (std::system(cmd.c_str()) != 0) {
    std::fprintf(stderr, "failed: %s\n", cmd.c_str());
    std::exit(1);
  }
}

// Builds the disc once per build tree.
std::string disc() {
  const fs::path image = benchDir() / "debian-4g.iso";
  std::error_code ec;
  if (fs::exists(image, ec) &&
      fs::file_size(image, ec) > (uint64_t{4} << 30) - (uint64_t{64} << 20)) {
    return image.string();
  }
  const fs::path tree = benchDir() / "tree";
  fs::remove_all(tree, ec);
  gp::bench::writeText(tree / ".disk/info",
                       "Debian GNU/Linux 12.5.0 \"Bookworm\" - Official amd64 "
                       "DVD Binary-1 20240210-11:28");
  gp::bench::writeText(tree / "install.amd/vmlinuz", "kernel");
  gp::bench::writeText(tree / "install.amd/initrd.gz", "initrd");
  gp::bench::writeText(tree / "isolinux/isolinux.cfg",
                       "path \ninclude menu.cfg\ndefault vesamenu.c32\n"
                       "prompt 0\ntimeout 0\n");
  gp::bench::writeText(tree / "isolinux/menu.cfg", "include txt.cfg\n");
  gp::bench::writeText(tree / "isolinux/txt.cfg",
                       "label install\n\tmenu label ^Install\n"
                       "\tkernel /install.amd/vmlinuz\n"
                       "\tappend vga=788 initrd=/install.amd/initrd.gz --- "
                       "quiet \n");
  gp::bench::writeText(tree / "boot/grub/grub.cfg",
                       "menuentry 'Install' {\n"
                       "    linux /install.amd/vmlinuz vga=788 --- quiet\n"
                       "    initrd /install.amd/initrd.gz\n}\n");
  fs::copy_file("/usr/lib/ISOLINUX/isolinux.bin",
                tree / "isolinux/isolinux.bin");
  fs::copy_file("/usr/lib/syslinux/modules/bios/ldlinux.c32",
                tree / "isolinux/ldlinux.c32");
  const fs::path efi = tree / "boot/grub/efi.img";
  gp::bench::writeText(benchDir() / "bootx64.efi", std::string(65536, 'E'));
  run("mkfs.fat -C -n EFIBOOT '" + efi.string() + "' 2048 >/dev/null && " +
      "mmd -i '" + efi.string() + "' ::/EFI ::/EFI/boot && mcopy -i '" +
      efi.string() + "' '" + (benchDir() / "bootx64.efi").string() +
      "' ::/EFI/boot/bootx64.efi");
  for (int i = 0; i < kPackages; ++i) {
    fs::create_directories(tree / "pool/main");
    writePattern(tree / ("pool/main/package" + std::to_string(i) + ".deb"),
                 kPackageSize, static_cast<uint32_t>(i + 1));
  }
  const fs::path part = image.string() + ".part";
  run("xorriso -as mkisofs -quiet -r -J -V 'Debian 12.5.0 amd64 1' "
      "-isohybrid-mbr /usr/lib/ISOLINUX/isohdpfx.bin "
      "-b isolinux/isolinux.bin -c isolinux/boot.cat -no-emul-boot "
      "-boot-load-size 4 -boot-info-table -eltorito-alt-boot "
      "-e boot/grub/efi.img -no-emul-boot -isohybrid-gpt-basdat -o '" +
      part.string() + "' '" + tree.string() + "' >/dev/null 2>&1");
  fs::rename(part, image);
  fs::remove_all(tree, ec);
  return image.string();
}

std::string answerFile() {
  const fs::path path = benchDir() / "preseed.cfg";
  gp::bench::writeText(path, "d-i debian-installer/locale string en_US\n");
  return path.string();
}

// The largest total size of the files below `dirs`, less the largest
// single file (the image being written), seen while it is alive.
class TempSpaceWatch {
 public:
  explicit TempSpaceWatch(std::vector<fs::path> dirs)
      : dirs_(std::move(dirs)), thread_([this] { watch(); }) {}
  ~TempSpaceWatch() { stop(); }
  uint64_t stop() {
    if (thread_.joinable()) {
      done_ = true;
      thread_.join();
    }
    return peak_;
  }

 private:
  void watch() {
    while (!done_) {
      uint64_t total = 0, largest = 0;
      for (const fs::path &dir : dirs_) {
        std::error_code ec;
        for (auto it = fs::recursive_directory_iterator(dir, ec);
             !ec && it != fs::recursive_directory_iterator();
             it.increment(ec)) {
          std::error_code sizeError;
          if (it->is_regular_file(sizeError)) {
            const uint64_t size = it->file_size(sizeError);
            if (!sizeError) {
              total += size;
              largest = std::max(largest, size);
            }
          }
        }
      }
      peak_ = std::max(peak_, total - largest);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }
  std::vector<fs::path> dirs_;
  std::atomic<bool> done_{false};
  uint64_t peak_ = 0;
  std::thread thread_;
};

// A fresh output directory and TMPDIR, so that the watch sees only what
// this run writes.
struct Scratch {
  fs::path out, tmp;
  explicit Scratch(const char *name)
      : out(benchDir() / name / "out"), tmp(benchDir() / name / "tmp") {
    fs::remove_all(benchDir() / name);
    fs::create_directories(out);
    fs::create_directories(tmp);
    setenv("TMPDIR", tmp.c_str(), 1);
  }
  ~Scratch() {
    unsetenv("TMPDIR");
    fs::remove_all(out.parent_path());
  }
};

double secondsOf(const std::function<bool()> &step, uint64_t &tempPeak,
                 const Scratch &scratch, bool &ok) {
  // Each run starts with the previous output written back.
  ::sync();
  TempSpaceWatch watch({scratch.out, scratch.tmp});
  const auto start = std::chrono::steady_clock::now();
  ok = step();
  const std::chrono::duration<double> took =
      std::chrono::steady_clock::now() - start;
  tempPeak = std::max(tempPeak, watch.stop());
  return took.count();
}

// Each iteration remasters the disc, then has xorriso replay it with the
// answer file mapped in; the benchmark's time is the remaster's, the
// counters give xorriso's beside it and the ratio of the two.
void BM_Remaster4GiBBesideXorrisoReplay(benchmark::State &state) {
  const std::string image = disc();
  const std::string answer = answerFile();
  Scratch scratch("side-by-side");
  const std::string remastered = (scratch.out / "remastered.iso").string();
  const std::string replayed = (scratch.out / "replayed.iso").string();
  const std::string xorriso = "xorriso -indev '" + image + "' -outdev '" +
                              replayed + "' -map '" + answer +
                              "' /preseed.cfg -boot_image any replay "
                              ">/dev/null 2>&1";
  uint64_t remasterTemp = 0, xorrisoTemp = 0;
  double remasterTotal = 0, xorrisoTotal = 0;
  for (auto _ : state) {
    bool ok = false;
    std::string error;
    const double remaster = secondsOf(
        [&] {
          return gp::medium::remasterMedium(image, answer, remastered, error) ==
                 gp::medium::RemasterStatus::Ok;
        },
        remasterTemp, scratch, ok);
    if (!ok) {
      state.SkipWithError(error.c_str());
      return;
    }
    fs::remove(remastered);
    const double replay =
        secondsOf([&] { return std::system(xorriso.c_str()) == 0; },
                  xorrisoTemp, scratch, ok);
    if (!ok) {
      state.SkipWithError("xorriso failed");
      return;
    }
    fs::remove(replayed);
    state.SetIterationTime(remaster);
    remasterTotal += remaster;
    xorrisoTotal += replay;
  }
  const double n = static_cast<double>(state.iterations());
  state.counters["remaster_s"] = remasterTotal / n;
  state.counters["xorriso_replay_s"] = xorrisoTotal / n;
  state.counters["ratio"] = remasterTotal / xorrisoTotal;
  state.counters["remaster_temp_bytes"] = static_cast<double>(remasterTemp);
  state.counters["xorriso_temp_bytes"] = static_cast<double>(xorrisoTemp);
  state.counters["image_bytes"] = static_cast<double>(fs::file_size(image));
}
BENCHMARK(BM_Remaster4GiBBesideXorrisoReplay)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(3);

}  // namespace
