// Replays saved fuzz inputs: every regular file under the given
// directories is fed once to the target.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
  namespace fs = std::filesystem;
  size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    std::error_code ec;
    if (!fs::is_directory(argv[i], ec)) {
      continue;
    }
    for (const auto &entry : fs::recursive_directory_iterator(argv[i])) {
      if (!entry.is_regular_file()) {
        continue;
      }
      std::ifstream in(entry.path(), std::ios::binary);
      std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                 std::istreambuf_iterator<char>());
      LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
      ++count;
    }
  }
  std::printf("replayed %zu inputs\n", count);
  return 0;
}
