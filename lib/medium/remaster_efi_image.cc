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

bool planEfiImage(const std::string &imageSpec,
                  const std::vector<std::string> &args, ScratchArea &scratch,
                  std::vector<EfiConfigEdit> &edits, std::string &error) {
  edits.clear();
  std::string listing;
  if (!runTool("mdir -/ -b -i " + shellWord(imageSpec) + " ::/", scratch,
               &listing)) {
    error = "the EFI image cannot be listed (" + listing.substr(0, 200) + ")";
    return false;
  }
  int n = 0;
  for (const std::string &config : grubConfigsIn(listing)) {
    std::string copy = scratch.file("efi-grub-" + std::to_string(n++) + ".cfg");
    std::string output;
    std::string text;
    if (!runTool("mtype -i " + shellWord(imageSpec) + " " +
                     shellWord("::" + config) + " >" + shellWord(copy),
                 scratch, &output) ||
        !readWholeFile(copy.c_str(), text, kMaxConfigBytes)) {
      error = "the EFI image's " + config + " cannot be read";
      return false;
    }
    MenuResult r = rewriteGrubConfig(text, args);
    if (r.edit == MenuEdit::Refused) {
      error = config + ": " + r.reason;
      return false;
    }
    if (r.edit == MenuEdit::Changed) {
      edits.push_back({config, std::move(text)});
    }
  }
  return true;
}

bool applyEfiImage(const std::string &imageFile,
                   const std::vector<EfiConfigEdit> &edits,
                   ScratchArea &scratch, std::string &error) {
  int n = 0;
  for (const EfiConfigEdit &edit : edits) {
    std::string copy = scratch.file("efi-new-" + std::to_string(n++) + ".cfg");
    std::string output;
    if (!scratch.write(copy, edit.text) ||
        !runTool("mcopy -o -i " + shellWord(imageFile) + " " + shellWord(copy) +
                     " " + shellWord("::" + edit.config),
                 scratch, &output)) {
      error = "the EFI image's " + edit.config + " cannot be replaced (" +
              output.substr(0, 200) + ")";
      return false;
    }
  }
  return true;
}

}  // namespace gp::medium
