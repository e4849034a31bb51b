// Parsing an isolinux configuration and writing the one that replaces it.
#include "lib/guestInstall/autoinstallGuestLinux_isolinux.h"

#include <algorithm>

#include "lib/guestInstall/autoinstallGuestLinux_answer.h"
#include "platform/strutil.h"

namespace gp::autoinstall {
namespace {

constexpr std::string_view kLabel = "label ";
constexpr std::string_view kKernel = "kernel ";
constexpr std::string_view kAppend = "append ";
constexpr std::string_view kInitrd = "initrd=";

// What the entry being read has found so far.
struct EntryState {
  IsolinuxBootEntry found;
  bool haveKernel = false;
  bool haveInitrd = false;
  bool haveAppend = false;

  bool complete() const { return haveKernel && haveInitrd && haveAppend; }

  // A new "label " line ends the entry: an incomplete entry loses what it
  // found, the kernel when no append line was seen, else the append line.
  void discard() {
    if (!haveAppend) {
      found.kernel.clear();
      haveKernel = false;
    } else {
      found.initrd.clear();
      found.append.clear();
      haveInitrd = false;
      haveAppend = false;
    }
  }

  // False for an append line, or arguments, that would not fit a buffer.
  bool takeAppend(std::string_view args) {
    if (args.size() > kIsolinuxAppendRoom - 1) {
      return false;
    }
    str::Tokenizer pieces(args, " ");
    std::string_view piece;
    while (pieces.next(piece)) {
      if (str::startsWithCaseless(piece, kInitrd)) {
        found.initrd = std::string(piece.substr(kInitrd.size()));
        haveInitrd = true;
      } else {
        found.append.append(piece);
        found.append.push_back(' ');
      }
    }
    haveAppend = true;
    // Several append lines of one entry add up; the arguments, rebuilt,
    // must still fit their buffer.
    return found.append.size() <= kIsolinuxAppendRoom;
  }
};

// One line without its line feed and trailing carriage returns; the first
// character always stays.
std::string_view trimLine(std::string_view line) {
  while (line.size() > 1 && line.back() == '\r') {
    line.remove_suffix(1);
  }
  return line;
}

std::string_view skipSpaces(std::string_view line) {
  size_t start = line.find_first_not_of(' ');
  return start == std::string_view::npos ? std::string_view()
                                         : line.substr(start);
}

}  // namespace

bool parseIsolinuxConfig(std::string_view text, IsolinuxBootEntry &entry) {
  text = text.substr(0, text.find('\0'));
  if (text.size() > kIsolinuxTextRoom - 1) {
    return false;
  }
  EntryState state;
  bool inEntry = false;
  size_t pos = 0;
  while (pos < text.size()) {
    size_t end = std::min(text.find('\n', pos), text.size());
    std::string_view line = text.substr(pos, end - pos);
    pos = end + 1;
    if (line.empty()) {
      continue;
    }
    line = trimLine(line);
    const bool isLabel = str::startsWithCaseless(line, kLabel);
    if (!inEntry) {
      inEntry = isLabel && line.size() > kLabel.size();
      continue;
    }
    if (isLabel) {
      if (state.haveKernel && state.haveAppend) {
        break;
      }
      state.discard();
      continue;
    }
    std::string_view body = skipSpaces(line);
    if (body.size() > kKernel.size() &&
        str::startsWithCaseless(body, kKernel)) {
      state.found.kernel = std::string(body.substr(kKernel.size()));
      state.haveKernel = true;
    } else if (body.size() > kAppend.size() &&
               str::startsWithCaseless(body, kAppend)) {
      if (!state.takeAppend(body.substr(kAppend.size()))) {
        return false;
      }
      if (state.haveKernel) {
        break;
      }
    }
  }
  if (!state.complete()) {
    return false;
  }
  entry = std::move(state.found);
  return true;
}

std::string_view isolinuxBaseName(std::string_view path) {
  size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

bool rewriteIsolinuxConfig(const IsolinuxBootEntry &entry,
                           AutoInstallLinuxKind kind, std::string &out) {
  const AutoInstallLinuxAnswer &row = autoInstallLinuxAnswer(kind);
  if (row.bootArguments == nullptr) {
    return false;
  }
  std::string append = entry.append;
  if (kind == LINUX_KIND_REDHAT) {
    append.clear();
    str::Tokenizer pieces(entry.append, " ");
    std::string_view piece;
    while (pieces.next(piece)) {
      if (piece != "askmethod") {
        append.append(piece);
        append.push_back(' ');
      }
    }
  }
  std::string text = autoInstallFillTemplate(
      "default linux\nprompt 0\ntimeout 1\n\nlabel linux\n\tkernel %s\n"
      "\tappend initrd=%s %s %s\n",
      {isolinuxBaseName(entry.kernel), isolinuxBaseName(entry.initrd), append,
       row.bootArguments});
  if (text.size() > kIsolinuxTextRoom - 1) {
    return false;
  }
  out = std::move(text);
  return true;
}

}  // namespace gp::autoinstall
