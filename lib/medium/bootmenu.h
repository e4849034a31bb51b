// The boot menus of an installation disc, rewritten so that the first
// entry that starts the installer carries extra kernel arguments, is the
// default and boots after a short timeout without a key. Every function
// here works on text alone, so the rewriting is tested and fuzzed without
// any image.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace gp::medium {

// Seconds a rewritten menu waits before it boots the installer.
constexpr int kMenuTimeoutSeconds = 5;

enum class MenuEdit {
  Changed,           // the installer entry now carries the arguments
  NoInstallerEntry,  // nothing in the text starts an installer kernel
  Refused,           // an argument the loader cannot carry
};

struct MenuResult {
  MenuEdit edit = MenuEdit::NoInstallerEntry;
  std::string reason;  // for Refused: which argument and why
  std::string entry;   // for Changed: the label or title of the entry
};

// One configuration file of a menu and what the rewrite made of it.
struct MenuFile {
  std::string path;  // as the disc spells it, without a leading "/"
  std::string text;
  bool changed = false;
};

// isolinux/syslinux ---------------------------------------------------------

// The files that an `include` or `menu include` line of `text` may name,
// in the order they are tried: relative names are looked up in the
// directory of the including file, the loader's directory and each `path`
// directory given so far; absolute ones from the root of the disc.
std::vector<std::string> isolinuxIncludeCandidates(
    std::string_view name, const std::string &fileDir,
    const std::string &loaderDir, const std::vector<std::string> &pathDirs);

// Reads the configuration `mainPath` and every file it includes, in the
// order the loader reads them (an included file right where its `include`
// line is), at most `maxFiles` files and never one twice. `read` returns
// a file's text or nullopt when the disc has no such file.
using MenuReader =
    std::function<std::optional<std::string>(const std::string &)>;
std::vector<MenuFile> collectIsolinuxChain(const std::string &mainPath,
                                           const MenuReader &read,
                                           size_t maxFiles = 32);

// Rewrites the chain that collectIsolinuxChain() gave: the first label
// that boots a Linux kernel with an initrd gets `args` (before a "---"
// on its append line, else at its end), becomes the default (`menu
// default`, and `default` unless that names a menu module), and every
// `timeout` becomes 5 seconds (one is added to the main file when there is
// none). Other labels keep their lines, except a `menu default` that would
// take the default away.
MenuResult rewriteIsolinuxChain(std::vector<MenuFile> &files,
                                const std::vector<std::string> &args);

// GRUB ----------------------------------------------------------------------

// `arg` as one GRUB word: bare when it holds only characters GRUB takes
// literally, else single-quoted. nullopt for a value that GRUB cannot
// carry on a kernel line (a control character, a line break).
std::optional<std::string> grubWord(std::string_view arg);

// Rewrites one grub.cfg: the first menu entry whose `linux` (or
// `linuxefi`, `linux16`) loads a kernel with an `initrd` gets `args`,
// quoted, before a "---" on that line or at its end; the default is set to
// that entry and every timeout to 5 seconds (both are added at the top of
// the file when it sets none). The other entries are left as they were.
MenuResult rewriteGrubConfig(std::string &text,
                             const std::vector<std::string> &args);

}  // namespace gp::medium
