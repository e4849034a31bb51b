// GRUB menus: a grub.cfg read as GRUB's script reader splits it into
// commands and words, and the rewrite that makes the first installer entry
// boot by itself.
#include <algorithm>
#include <cctype>

#include "lib/medium/bootmenu.h"
#include "lib/medium/bootmenu_lines.h"
#include "platform/strutil.h"

namespace gp::medium {
using namespace gp::str;
namespace {

// A word of a command: its text with the quoting removed and where it
// stands in the line.
struct Word {
  std::string value;
  size_t begin = 0, end = 0;
};
using Command = std::vector<Word>;

// The commands of one line: words split at blanks, commands at an unquoted
// ";", a "#" at the start of a word ending the line. Quotes left open run
// to the end of the line.
std::vector<Command> commandsOf(std::string_view line) {
  std::vector<Command> out(1);
  size_t i = 0;
  while (i < line.size()) {
    char c = line[i];
    if (c == ' ' || c == '\t' || c == '\r') {
      ++i;
      continue;
    }
    if (c == ';') {
      out.emplace_back();
      ++i;
      continue;
    }
    if (c == '#') {
      break;
    }
    Word w;
    w.begin = i;
    while (i < line.size()) {
      c = line[i];
      if (c == ' ' || c == '\t' || c == '\r' || c == ';') {
        break;
      }
      if (c == '\'') {
        size_t close = line.find('\'', i + 1);
        close = close == std::string_view::npos ? line.size() : close;
        w.value.append(line.substr(i + 1, close - i - 1));
        i = std::min(line.size(), close + 1);
      } else if (c == '"') {
        ++i;
        while (i < line.size() && line[i] != '"') {
          if (line[i] == '\\' && i + 1 < line.size()) {
            ++i;
          }
          w.value += line[i++];
        }
        i = std::min(line.size(), i + 1);
      } else if (c == '\\' && i + 1 < line.size()) {
        w.value += line[i + 1];
        i += 2;
      } else {
        w.value += c;
        ++i;
      }
    }
    w.end = i;
    out.back().push_back(std::move(w));
  }
  return out;
}

bool isOneOf(const std::string &word, std::initializer_list<const char *> set) {
  for (const char *s : set) {
    if (word == s) {
      return true;
    }
  }
  return false;
}

// The title (or id, when the entry has one) of a `menuentry` or `submenu`
// command.
struct EntryName {
  std::string title, id;
};

EntryName entryName(const Command &cmd) {
  EntryName name;
  bool titled = false;
  for (size_t i = 1; i < cmd.size(); ++i) {
    const std::string &w = cmd[i].value;
    if (w == "{") {
      break;
    }
    if (w == "--id" || w == "$menuentry_id_option" ||
        w == "${menuentry_id_option}") {
      if (i + 1 < cmd.size()) {
        name.id = cmd[++i].value;
      }
    } else if (startsWith(w, "--id=")) {
      name.id = w.substr(5);
    } else if (isOneOf(w, {"--class", "--users", "--hotkey"})) {
      ++i;
    } else if (startsWith(w, "--")) {
      continue;
    } else if (!titled) {
      name.title = w;
      titled = true;
    }
  }
  return name;
}

struct Block {
  enum Kind { Entry, Submenu, Function, Other } kind = Other;
  EntryName name;
  size_t line = 0;
};

struct Candidate {
  bool hasLinux = false;
  size_t line = 0;             // of the linux command
  Word lastWord;               // of the linux command
  std::optional<Word> dashes;  // its "---"
  bool initrd = false;
  std::vector<std::string> path;  // submenu titles, then the entry's name
  bool pathHasSeparator = false;
  size_t topIndex = 0;  // the entry's place among the top-level entries
  bool topLevel = false;
};

struct Setting {
  size_t line;
  Word word;
  bool isDefault;
};

bool isKernelModule(const std::string &path) {
  std::string k = toLower(path);
  return contains(k, "memtest") || endsWithCaseless(k, ".efi") ||
         endsWithCaseless(k, ".bin");
}

}  // namespace

std::optional<std::string> grubWord(std::string_view arg) {
  if (hasControlByte(arg)) {
    return std::nullopt;
  }
  bool plain = !arg.empty();
  for (char c : arg) {
    unsigned char u = static_cast<unsigned char>(c);
    if (!(std::isalnum(u) || u >= 0x80 ||
          std::string_view("_-./:=,+@%^~").find(c) != std::string_view::npos)) {
      plain = false;
    }
  }
  if (plain) {
    return std::string(arg);
  }
  std::string out = "'";
  for (char c : arg) {
    out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return out + "'";
}

MenuResult rewriteGrubConfig(std::string &text,
                             const std::vector<std::string> &args) {
  MenuResult result;
  std::string joined;
  for (const std::string &a : args) {
    std::optional<std::string> w = grubWord(a);
    if (!w || a.empty()) {
      result.edit = MenuEdit::Refused;
      result.reason =
          "the kernel argument \"" + a + "\" cannot be carried in a GRUB menu";
      return result;
    }
    joined += joined.empty() ? *w : " " + *w;
  }
  EditText edit = splitLines(text);
  std::vector<Block> stack;
  std::vector<Setting> settings;
  std::optional<Candidate> chosen;
  std::optional<Candidate> current;  // the entry being read
  size_t topIndex = 0;
  for (size_t l = 0; l < edit.lines.size(); ++l) {
    for (const Command &cmd : commandsOf(edit.lines[l].text)) {
      if (cmd.empty()) {
        continue;
      }
      const std::string &verb = cmd[0].value;
      bool inEntry = !stack.empty() && stack.back().kind == Block::Entry;
      bool inFunction = false;
      for (const Block &b : stack) {
        inFunction = inFunction || b.kind == Block::Function;
      }
      if (verb == "}") {
        if (!stack.empty()) {
          if (stack.back().kind == Block::Entry && current) {
            if (!chosen && current->hasLinux && current->initrd) {
              chosen = current;
            }
            current.reset();
          }
          stack.pop_back();
        }
        continue;
      }
      bool opens = cmd.back().value == "{";
      if (verb == "menuentry" || verb == "submenu") {
        Block b;
        b.kind = verb == "menuentry" ? Block::Entry : Block::Submenu;
        b.name = entryName(cmd);
        b.line = l;
        bool topLevel = true;
        for (const Block &s : stack) {
          topLevel = topLevel && s.kind == Block::Other;
        }
        if (topLevel) {
          ++topIndex;
        }
        if (b.kind == Block::Entry && !inFunction) {
          current = Candidate{};
          current->topLevel = topLevel;
          current->topIndex = topIndex - 1;
          for (const Block &s : stack) {
            if (s.kind == Block::Submenu) {
              current->path.push_back(s.name.id.empty() ? s.name.title
                                                        : s.name.id);
            }
          }
          current->path.push_back(b.name.id.empty() ? b.name.title : b.name.id);
          for (const std::string &p : current->path) {
            current->pathHasSeparator =
                current->pathHasSeparator || contains(p, ">");
          }
        }
        stack.push_back(b);
        continue;
      }
      if (verb == "function" && opens) {
        stack.push_back(Block{Block::Function, {}, l});
        continue;
      }
      if (inEntry && current) {
        if (isOneOf(verb, {"linux", "linuxefi", "linux16"}) &&
            cmd.size() >= 2 && !current->hasLinux) {
          if (isKernelModule(cmd[1].value)) {
            current.reset();
            continue;
          }
          current->hasLinux = true;
          current->line = l;
          current->lastWord = cmd.back();
          for (const Word &w : cmd) {
            if (w.value == "---" && !current->dashes) {
              current->dashes = w;
            }
          }
        } else if (isOneOf(verb, {"initrd", "initrdefi", "initrd16"})) {
          current->initrd = true;
        }
        continue;
      }
      if (inEntry || inFunction) {
        continue;
      }
      // `set timeout=N`, `timeout=N`, and the same for the default.
      const Word *assign = nullptr;
      if (verb == "set" && cmd.size() >= 2) {
        assign = &cmd[1];
      } else if (cmd.size() == 1) {
        assign = &cmd[0];
      }
      if (assign != nullptr) {
        if (startsWith(assign->value, "timeout=")) {
          settings.push_back({l, *assign, false});
        } else if (startsWith(assign->value, "default=")) {
          settings.push_back({l, *assign, true});
        }
      }
    }
  }
  if (!chosen) {
    return result;
  }
  // The default names the entry by its path of titles (or ids); a title
  // holding ">" would be read as a path, so such an entry is named by its
  // number when it is at the top level.
  std::string defaultValue;
  if (!chosen->pathHasSeparator) {
    for (const std::string &p : chosen->path) {
      defaultValue += defaultValue.empty() ? p : ">" + p;
    }
  } else if (chosen->topLevel) {
    defaultValue = std::to_string(chosen->topIndex);
  } else {
    result.edit = MenuEdit::Refused;
    result.reason = "the installer entry's title cannot name it as the default";
    return result;
  }
  std::optional<std::string> quotedDefault = grubWord(defaultValue);
  if (!quotedDefault) {
    result.edit = MenuEdit::Refused;
    result.reason = "the installer entry's title cannot name it as the default";
    return result;
  }
  std::string timeout = "timeout=" + std::to_string(kMenuTimeoutSeconds);
  // Edits within a line run from its end, so earlier positions hold.
  struct Splice {
    size_t line, begin, end;
    std::string text;
  };
  std::vector<Splice> splices;
  bool sawDefault = false, sawTimeout = false;
  for (const Setting &s : settings) {
    sawDefault = sawDefault || s.isDefault;
    sawTimeout = sawTimeout || !s.isDefault;
    splices.push_back({s.line, s.word.begin, s.word.end,
                       s.isDefault ? "default=" + *quotedDefault : timeout});
  }
  if (chosen->dashes) {
    splices.push_back({chosen->line, chosen->dashes->begin,
                       chosen->dashes->begin, joined + " "});
  } else {
    splices.push_back({chosen->line, chosen->lastWord.end, chosen->lastWord.end,
                       " " + joined});
  }
  std::sort(splices.begin(), splices.end(),
            [](const Splice &a, const Splice &b) {
              return a.line != b.line ? a.line < b.line : a.begin > b.begin;
            });
  for (const Splice &s : splices) {
    std::string &line = edit.lines[s.line].text;
    line.replace(s.begin, s.end - s.begin, s.text);
  }
  if (!sawDefault) {
    edit.before.push_back("set default=" + *quotedDefault);
  }
  if (!sawTimeout) {
    edit.before.push_back("set " + timeout);
  }
  text = joinLines(edit);
  result.edit = MenuEdit::Changed;
  result.entry = defaultValue;
  return result;
}

}  // namespace gp::medium
