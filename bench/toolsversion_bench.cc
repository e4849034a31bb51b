// A full status computation from files: host manifest, AVR file and guest
// manifest of 200 components each, loaded and judged.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench/bench_support.h"
#include "lib/toolsversion/toolsversion_internal.h"
#include "platform/configdict.h"
#include "platform/log.h"

namespace {

using namespace gp::tools;

constexpr int kComponents = 200;

void writeText(const std::string &path, const std::string &text) {
  std::ofstream(path, std::ios::binary) << text;
}

struct Files {
  std::string dir;
  std::string host, avr, guest;

  Files() {
    char templ[] = "/tmp/toolsversion_bench.XXXXXX";
    dir = ::mkdtemp(templ);
    host = dir + "/host";
    avr = dir + "/avr";
    guest = dir + "/guest";
    gp::bench::ManifestTexts m = gp::bench::manifestTexts(kComponents);
    const std::string &h = m.host, &a = m.avr, &g = m.guest;
    writeText(host, h);
    writeText(avr, a);
    writeText(guest, g);
  }
  ~Files() { std::filesystem::remove_all(dir); }
};

void BM_StatusFromThreeManifests(benchmark::State &state) {
  Files files;
  gp::setLogSink([](std::string_view) {});
  for (auto _ : state) {
    ToolsComponentTable table;
    ToolsDebugFlags flags;
    toolsManifestLoad(&table, &flags, TOOLS_MANIFEST_HOST, files.host.c_str());
    toolsManifestLoad(&table, &flags, TOOLS_MANIFEST_AVR, files.avr.c_str());
    gp::ConfigDict guest;
    guest.loadFile(files.guest.c_str());
    ToolsManifestContext ctx{&table, TOOLS_MANIFEST_GUEST, nullptr};
    guest.iterate([&ctx](const char *name, const char *value) {
      toolsManifestAddEntry(name, value, &ctx);
    });
    benchmark::DoNotOptimize(toolsStatusEvaluate(&table, &flags));
  }
  gp::setLogSink({});
}
BENCHMARK(BM_StatusFromThreeManifests)->Unit(benchmark::kMicrosecond);

}  // namespace
