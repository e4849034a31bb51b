// ToolsVersion_GetStatus on a whole machine with a warm host manifest
// cache: 4 disks, host manifest, AVR file and guest manifest of 200
// components each, the tools image made by xorriso.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench/bench_support.h"
#include "guestprep/toolsversion.h"
#include "platform/log.h"

namespace {

constexpr int kComponents = 200;
constexpr int kDisks = 4;

void writeText(const std::string &path, const std::string &text) {
  std::ofstream(path, std::ios::binary) << text;
}

struct Machine {
  std::string dir, config, guest, guestText, cache;

  Machine() {
    char templ[] = "/tmp/toolsmachine_bench.XXXXXX";
    dir = ::mkdtemp(templ);
    std::string images = dir + "/lib/isoimages";
    std::filesystem::create_directories(images);
    std::filesystem::create_directories(dir + "/iso");
    cache = dir + "/cache";
    std::filesystem::create_directories(cache);
    gp::bench::ManifestTexts m = gp::bench::manifestTexts(kComponents);
    const std::string &h = m.host, &a = m.avr, &g = m.guest;
    writeText(dir + "/iso/manifest.txt", h);
    std::string cmd = "xorriso -as mkisofs -quiet -J -R -o " + images +
                      "/linux.iso " + dir + "/iso 2>/dev/null";
    if (std::system(cmd.c_str()) != 0) {
      std::abort();
    }
    writeText(images + "/linux_avr_manifest.txt", a);
    guest = dir + "/guest.txt";
    guestText = g;
    writeText(guest, g);
    std::string cfg =
        "guestOS = \"ubuntu\"\nextendedConfigFile = \"m.xml\"\n"
        "libdir = \"" +
        dir + "/lib\"\n";
    for (int i = 0; i < kDisks; ++i) {
      std::string disk = "disk" + std::to_string(i) + ".vdisk";
      cfg += "disk" + std::to_string(i) + ".path = \"" + disk + "\"\n";
      writeText(dir + "/" + disk, "format = \"vdisk\"\ntoolsVersion = " +
                                      std::to_string(8000 + i) + "\n");
    }
    config = dir + "/machine.cfg";
    writeText(config, cfg);
    std::string xml = "<config><tools-manifest>";
    for (int i = 0; i < kComponents; ++i) {
      xml += "<component" + std::to_string(i) + " version=\"" +
             std::to_string(i % 5 + 1) + ".4.2.77\" installed=\"TRUE\"/>";
    }
    writeText(dir + "/m.xml", xml + "</tools-manifest></config>\n");
    ToolsVersion_SetHostManifestCacheDir(cache.c_str());
    gp::setLogSink([](std::string_view) {});
  }
  ~Machine() {
    gp::setLogSink({});
    ToolsVersion_SetHostManifestCacheDir(nullptr);
    std::filesystem::remove_all(dir);
  }
};

void BM_GetStatusGuestManifestFile(benchmark::State &state) {
  Machine m;
  for (auto _ : state) {
    benchmark::DoNotOptimize(ToolsVersion_GetStatus(
        m.config.c_str(), m.guest.c_str(), nullptr, 0xFFFFFFFF));
  }
}
BENCHMARK(BM_GetStatusGuestManifestFile)->Unit(benchmark::kMicrosecond);

void BM_GetStatusGuestManifestText(benchmark::State &state) {
  Machine m;
  for (auto _ : state) {
    benchmark::DoNotOptimize(ToolsVersion_GetStatus(
        m.config.c_str(), nullptr, m.guestText.c_str(), 0xFFFFFFFF));
  }
}
BENCHMARK(BM_GetStatusGuestManifestText)->Unit(benchmark::kMicrosecond);

void BM_GetStatusExtendedConfig(benchmark::State &state) {
  Machine m;
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        ToolsVersion_GetStatus(m.config.c_str(), nullptr, nullptr, 0xFFFFFFFF));
  }
}
BENCHMARK(BM_GetStatusExtendedConfig)->Unit(benchmark::kMicrosecond);

// No guest manifest: the legacy number is read from the 4 disks and
// judged against the host manifest.
void BM_GetStatusLegacyFromDisks(benchmark::State &state) {
  Machine m;
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        ToolsVersion_GetStatus(m.config.c_str(), nullptr, "", 0xFFFFFFFF));
  }
}
BENCHMARK(BM_GetStatusLegacyFromDisks)->Unit(benchmark::kMicrosecond);

}  // namespace
