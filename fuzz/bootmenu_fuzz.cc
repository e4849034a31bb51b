// Rewrites arbitrary boot menus. The first bytes choose the loader and the
// split of the rest into files of an include chain; a rewrite that reports
// a change must carry the arguments, quoted for the loader, and add no
// more than its own lines.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "lib/medium/bootmenu.h"

namespace {

namespace md = gp::medium;

void check(bool ok) {
  if (!ok) std::abort();
}

size_t lines(const std::string &s) {
  size_t n = 0;
  for (char c : s) n += c == '\n';
  return n;
}

const std::vector<std::string> kArgs = {"autoinstall",
                                        "ds=nocloud;s=/cdrom/nocloud/"};

void grub(std::string_view text) {
  std::string edited(text);
  md::MenuResult r = md::rewriteGrubConfig(edited, kArgs);
  if (r.edit != md::MenuEdit::Changed) {
    check(edited == text);
    return;
  }
  check(edited.find("autoinstall 'ds=nocloud;s=/cdrom/nocloud/'") !=
        std::string::npos);
  check(lines(edited) <= lines(std::string(text)) + 3);
}

void isolinux(std::string_view text) {
  // Files separated by NUL bytes: "a.cfg", "b.cfg", ...
  std::vector<std::string> parts;
  size_t pos = 0;
  while (parts.size() < 8) {
    size_t end = text.find('\0', pos);
    parts.emplace_back(text.substr(pos, end == std::string_view::npos
                                            ? std::string_view::npos
                                            : end - pos));
    if (end == std::string_view::npos) break;
    pos = end + 1;
  }
  auto read = [&parts](const std::string &path) -> std::optional<std::string> {
    if (path.rfind("isolinux/", 0) == 0 && path.size() == 14 &&
        path.compare(10, 4, ".cfg") == 0 && path[9] >= 'a' &&
        static_cast<size_t>(path[9] - 'a') < parts.size()) {
      return parts[static_cast<size_t>(path[9] - 'a')];
    }
    return std::nullopt;
  };
  std::vector<md::MenuFile> chain =
      md::collectIsolinuxChain("isolinux/a.cfg", read);
  check(!chain.empty() && chain.size() <= parts.size());
  std::vector<md::MenuFile> original = chain;
  md::MenuResult r = md::rewriteIsolinuxChain(chain, kArgs);
  bool carried = false;
  size_t added = 0;
  for (size_t i = 0; i < chain.size(); ++i) {
    check(chain[i].path == original[i].path);
    if (!chain[i].changed) {
      check(chain[i].text == original[i].text);
      continue;
    }
    carried = carried || chain[i].text.find(
                             "autoinstall ds=nocloud;s=/cdrom/"
                             "nocloud/") != std::string::npos;
    added += lines(chain[i].text) + 1 -
             std::min(lines(chain[i].text) + 1, lines(original[i].text));
  }
  check(r.edit != md::MenuEdit::Changed || carried);
  check(r.edit == md::MenuEdit::Changed || !carried);
  check(added <= 6);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) {
    return 0;
  }
  std::string_view text(reinterpret_cast<const char *>(data) + 1, size - 1);
  if (data[0] & 1) {
    grub(text);
  } else {
    isolinux(text);
  }
  return 0;
}
