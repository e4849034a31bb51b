// The grub.cfg files inside an EFI system image (FAT12, FAT16 or FAT32 of
// a few MiB), read and replaced with mtools. The signed EFI binaries in
// the image are never touched: only the configuration files are written.
#include "lib/medium/remaster_internal.h"
#include "platform/hostio.h"
#include "platform/strutil.h"

namespace gp::medium {
using namespace gp::str;
namespace {

constexpr size_t kMaxConfigs = 16;
constexpr size_t kMaxConfigBytes = 1u << 20;

std::vector<std::string> grubConfigsIn(const std::string &listing) {
  std::vector<std::string> out;
  size_t pos = 0;
  std::string_view line;
  while (nextToken(listing, pos, "\r\n", line) && out.size() < kMaxConfigs) {
    if (startsWith(line, "::/") && endsWithCaseless(line, "/grub.cfg")) {
      out.emplace_back(line.substr(2));
    }
  }
  return out;
}

}  // namespace

bool rewriteEfiImage(const std::string &imageFile,
                     const std::vector<std::string> &args, ScratchArea &scratch,
                     std::vector<std::string> &rewritten, std::string &error) {
  std::string listing;
  if (!runTool("mdir -/ -b -i " + shellWord(imageFile) + " ::/", scratch,
               &listing)) {
    error = "the EFI image cannot be listed (" + listing.substr(0, 200) + ")";
    return false;
  }
  bool changed = false;
  int n = 0;
  for (const std::string &config : grubConfigsIn(listing)) {
    std::string copy = scratch.file("efi-grub-" + std::to_string(n++) + ".cfg");
    std::string output;
    if (!runTool("mtype -i " + shellWord(imageFile) + " " +
                     shellWord("::" + config) + " >" + shellWord(copy),
                 scratch, &output)) {
      error = "the EFI image's " + config + " cannot be read";
      return false;
    }
    std::string text;
    if (!readWholeFile(copy.c_str(), text, kMaxConfigBytes)) {
      error = "the EFI image's " + config + " cannot be read";
      return false;
    }
    MenuResult r = rewriteGrubConfig(text, args);
    if (r.edit == MenuEdit::Refused) {
      error = config + ": " + r.reason;
      return false;
    }
    if (r.edit != MenuEdit::Changed) {
      continue;
    }
    if (!scratch.write(copy, text) ||
        !runTool("mcopy -o -i " + shellWord(imageFile) + " " + shellWord(copy) +
                     " " + shellWord("::" + config),
                 scratch, &output)) {
      error = "the EFI image's " + config + " cannot be replaced (" +
              output.substr(0, 200) + ")";
      return false;
    }
    rewritten.push_back(config);
    changed = true;
  }
  return changed;
}

}  // namespace gp::medium
