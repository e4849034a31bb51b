// isolinux and syslinux menus: the include chain as the loader reads it,
// and the rewrite that makes the first installer label boot by itself.
#include <map>
#include <set>

#include "lib/medium/bootmenu.h"
#include "lib/medium/bootmenu_lines.h"
#include "platform/strutil.h"

namespace gp::medium {
using namespace gp::str;
namespace {

constexpr size_t kMaxDepth = 16;
constexpr size_t kMaxPathDirs = 16;

// A directive: its keyword in lower case ("menu include" and "menu
// default" as two words) and what follows it.
struct Directive {
  std::string keyword;
  std::string rest;
};

std::string_view trimBlanks(std::string_view s) {
  size_t b = s.find_first_not_of(" \t\r");
  if (b == std::string_view::npos) {
    return {};
  }
  size_t e = s.find_last_not_of(" \t\r");
  return s.substr(b, e - b + 1);
}

std::string_view firstWord(std::string_view s, std::string_view *rest) {
  s = trimBlanks(s);
  size_t end = s.find_first_of(" \t");
  std::string_view word = s.substr(0, end);
  if (rest != nullptr) {
    *rest = end == std::string_view::npos ? std::string_view{}
                                          : trimBlanks(s.substr(end));
  }
  return word;
}

Directive directiveOf(std::string_view line) {
  std::string_view rest;
  std::string keyword = toLower(firstWord(line, &rest));
  if (keyword == "menu") {
    std::string_view more;
    std::string second = toLower(firstWord(rest, &more));
    if (second == "include" || second == "default" || second == "begin" ||
        second == "end") {
      return {"menu " + second, std::string(more)};
    }
  }
  return {keyword, std::string(rest)};
}

std::string normalPath(std::string_view path) {
  std::vector<std::string> parts;
  size_t pos = 0;
  std::string_view part;
  while (nextToken(path, pos, "/", part)) {
    if (part == ".") {
      continue;
    }
    if (part == "..") {
      if (!parts.empty()) {
        parts.pop_back();
      }
      continue;
    }
    parts.emplace_back(part);
  }
  std::string out;
  for (const std::string &p : parts) {
    out += out.empty() ? p : "/" + p;
  }
  return out;
}

std::string dirOf(const std::string &path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(0, slash);
}

// Walks the configuration in the loader's order, descending into each
// included file where its line stands. `open` gives the index of a file in
// `texts` (reading it first when needed), or -1.
class ChainWalker {
 public:
  using Open = std::function<int(const std::string &)>;
  using Visit =
      std::function<void(size_t file, size_t line, const Directive &)>;

  ChainWalker(std::vector<EditText> &texts, std::vector<std::string> &paths,
              Open open)
      : texts_(texts), paths_(paths), open_(std::move(open)) {}

  void walk(size_t file, const std::string &loaderDir, const Visit &visit) {
    loaderDir_ = loaderDir;
    entered_.insert(file);
    walkFile(file, visit, 0);
  }

 private:
  void walkFile(size_t file, const Visit &visit, size_t depth) {
    for (size_t i = 0; i < texts_[file].lines.size(); ++i) {
      Directive d = directiveOf(texts_[file].lines[i].text);
      visit(file, i, d);
      if (d.keyword == "path" && pathDirs_.size() < kMaxPathDirs) {
        size_t pos = 0;
        std::string_view dir;
        while (nextToken(d.rest, pos, ": \t", dir) &&
               pathDirs_.size() < kMaxPathDirs) {
          pathDirs_.push_back(normalPath(dir));
        }
      }
      if ((d.keyword == "include" || d.keyword == "menu include") &&
          depth < kMaxDepth) {
        std::string_view name = firstWord(d.rest, nullptr);
        for (const std::string &cand : isolinuxIncludeCandidates(
                 name, dirOf(paths_[file]), loaderDir_, pathDirs_)) {
          int next = open_(cand);
          if (next < 0) {
            continue;
          }
          if (entered_.insert(static_cast<size_t>(next)).second) {
            walkFile(static_cast<size_t>(next), visit, depth + 1);
          }
          break;
        }
      }
    }
  }

  std::vector<EditText> &texts_;
  std::vector<std::string> &paths_;
  Open open_;
  std::string loaderDir_;
  std::vector<std::string> pathDirs_;
  std::set<size_t> entered_;
};

bool isModule(std::string_view kernel) {
  std::string k = toLower(kernel);
  for (const char *suffix :
       {".c32", ".com", ".cbt", ".0", ".bin", ".bs", ".bss", ".img", ".efi"}) {
    if (endsWithCaseless(k, suffix)) {
      return true;
    }
  }
  return contains(k, "memtest") || contains(k, "memdisk") ||
         contains(k, "hdt") || contains(k, "ipxe");
}

bool hasWord(std::string_view text, std::string_view prefix) {
  size_t pos = 0;
  std::string_view word;
  while (nextToken(text, pos, " \t", word)) {
    if (startsWithCaseless(word, prefix)) {
      return true;
    }
  }
  return false;
}

// A label and the lines that belong to it.
struct Label {
  std::string name;
  size_t file = 0, line = 0;
  bool kernel = false, installer = false, initrd = false;
  size_t kernelLine = 0, appendLine = 0;
  bool hasAppend = false;
  std::vector<size_t> menuDefaults;  // lines of this label's file
};

struct Global {
  size_t file, line;
  std::string keyword;
  std::string value;
};

// Inserts `args` into an append line: before its "---" word, else at the
// end.
std::string withArgs(const std::string &line, const std::string &args) {
  size_t pos = 0;
  std::string_view rest;
  firstWord(line, &rest);  // the keyword
  size_t restStart = rest.empty()
                         ? line.size()
                         : static_cast<size_t>(rest.data() - line.data());
  std::string_view word;
  std::string_view tail(line);
  tail.remove_prefix(restStart);
  while (nextToken(tail, pos, " \t", word)) {
    if (word == "---") {
      size_t at = restStart + static_cast<size_t>(word.data() - tail.data());
      return line.substr(0, at) + args + " " + line.substr(at);
    }
  }
  std::string trimmed(line);
  while (!trimmed.empty() &&
         (trimmed.back() == ' ' || trimmed.back() == '\t')) {
    trimmed.pop_back();
  }
  return trimmed + " " + args;
}

}  // namespace

std::vector<std::string> isolinuxIncludeCandidates(
    std::string_view name, const std::string &fileDir,
    const std::string &loaderDir, const std::vector<std::string> &pathDirs) {
  std::vector<std::string> out;
  auto add = [&out](const std::string &path) {
    if (path.empty()) {
      return;
    }
    for (const std::string &seen : out) {
      if (seen == path) {
        return;
      }
    }
    out.push_back(path);
  };
  if (name.empty()) {
    return out;
  }
  if (name.front() == '/') {
    add(normalPath(name));
    return out;
  }
  add(normalPath(fileDir + "/" + std::string(name)));
  add(normalPath(loaderDir + "/" + std::string(name)));
  for (const std::string &dir : pathDirs) {
    add(normalPath(dir + "/" + std::string(name)));
  }
  return out;
}

std::vector<MenuFile> collectIsolinuxChain(const std::string &mainPath,
                                           const MenuReader &read,
                                           size_t maxFiles) {
  std::vector<EditText> texts;
  std::vector<std::string> paths;
  std::vector<MenuFile> out;
  std::map<std::string, int> known;  // path -> index, or -1 when missing
  auto open = [&](const std::string &path) -> int {
    auto it = known.find(path);
    if (it != known.end()) {
      return it->second;
    }
    if (out.size() >= maxFiles) {
      return -1;
    }
    std::optional<std::string> text = read(path);
    int index = -1;
    if (text) {
      index = static_cast<int>(out.size());
      out.push_back(MenuFile{path, *text, false});
      texts.push_back(splitLines(*text));
      paths.push_back(path);
    }
    known[path] = index;
    return index;
  };
  std::string main = normalPath(mainPath);
  if (open(main) < 0) {
    return out;
  }
  ChainWalker walker(texts, paths, open);
  walker.walk(0, dirOf(main), [](size_t, size_t, const Directive &) {});
  return out;
}

MenuResult rewriteIsolinuxChain(std::vector<MenuFile> &files,
                                const std::vector<std::string> &args) {
  MenuResult result;
  if (files.empty()) {
    return result;
  }
  std::string joined;
  for (const std::string &a : args) {
    if (a.empty() || hasControlByte(a) ||
        a.find_first_of(" \t") != std::string::npos) {
      result.edit = MenuEdit::Refused;
      result.reason = "the kernel argument \"" + a +
                      "\" cannot be carried on an isolinux append line";
      return result;
    }
    joined += joined.empty() ? a : " " + a;
  }
  std::vector<EditText> texts;
  std::vector<std::string> paths;
  std::map<std::string, size_t> index;
  for (size_t i = 0; i < files.size(); ++i) {
    texts.push_back(splitLines(files[i].text));
    paths.push_back(files[i].path);
    index.emplace(files[i].path, i);
  }
  std::vector<Label> labels;
  std::vector<Global> globals;
  size_t currentFile = files.size();
  auto open = [&](const std::string &path) -> int {
    auto it = index.find(path);
    return it == index.end() ? -1 : static_cast<int>(it->second);
  };
  ChainWalker walker(texts, paths, open);
  walker.walk(
      0, dirOf(files[0].path), [&](size_t f, size_t l, const Directive &d) {
        bool inLabel = !labels.empty() && currentFile == f;
        if (d.keyword == "label") {
          Label label;
          label.name = std::string(firstWord(d.rest, nullptr));
          label.file = f;
          label.line = l;
          labels.push_back(label);
          currentFile = f;
          return;
        }
        if (d.keyword == "menu begin" || d.keyword == "menu end" ||
            d.keyword == "include" || d.keyword == "menu include") {
          currentFile = files.size();  // what follows belongs to no label
          return;
        }
        if (d.keyword == "default" || d.keyword == "timeout" ||
            d.keyword == "ontimeout" || d.keyword == "ui") {
          globals.push_back(
              {f, l, d.keyword, std::string(firstWord(d.rest, nullptr))});
          return;
        }
        if (!inLabel) {
          return;
        }
        Label &label = labels.back();
        if ((d.keyword == "kernel" || d.keyword == "linux") && !label.kernel) {
          label.kernel = true;
          label.kernelLine = l;
          label.installer = !isModule(firstWord(d.rest, nullptr));
        } else if (d.keyword == "append" && !label.hasAppend) {
          label.hasAppend = true;
          label.appendLine = l;
          label.initrd = label.initrd || hasWord(d.rest, "initrd=");
        } else if (d.keyword == "initrd") {
          label.initrd = true;
        } else if (d.keyword == "menu default") {
          label.menuDefaults.push_back(l);
        }
      });

  const Label *chosen = nullptr;
  for (const Label &label : labels) {
    if (label.kernel && label.installer && label.initrd &&
        !label.name.empty()) {
      chosen = &label;
      break;
    }
  }
  if (chosen == nullptr) {
    return result;
  }
  // The arguments.
  EditText &own = texts[chosen->file];
  if (chosen->hasAppend) {
    EditLine &line = own.lines[chosen->appendLine];
    line.text = withArgs(line.text, joined);
  } else {
    EditLine &kernel = own.lines[chosen->kernelLine];
    kernel.after.push_back(indentOf(kernel.text) + "append " + joined);
  }
  own.changed = true;
  // The default: this label's `menu default`, and no other.
  for (const Label &label : labels) {
    if (&label == chosen) {
      continue;
    }
    for (size_t l : label.menuDefaults) {
      texts[label.file].lines[l].removed = true;
      texts[label.file].changed = true;
    }
  }
  if (chosen->menuDefaults.empty()) {
    const EditLine &kernel = own.lines[chosen->kernelLine];
    own.lines[chosen->line].after.push_back(indentOf(kernel.text) +
                                            "menu default");
  }
  bool sawDefault = false, sawTimeout = false, sawUi = false;
  for (const Global &g : globals) {
    EditText &t = texts[g.file];
    EditLine &line = t.lines[g.line];
    std::string indent = indentOf(line.text);
    if (g.keyword == "ui") {
      sawUi = true;
    } else if (g.keyword == "default") {
      sawDefault = true;
      // "default vesamenu.c32" starts the menu, which honours `menu default`.
      if (!endsWithCaseless(g.value, ".c32")) {
        line.text = indent + "default " + chosen->name;
        t.changed = true;
      }
    } else if (g.keyword == "timeout") {
      sawTimeout = true;
      line.text =
          indent + "timeout " + std::to_string(kMenuTimeoutSeconds * 10);
      t.changed = true;
    } else if (g.keyword == "ontimeout") {
      line.text = indent + "ontimeout " + chosen->name;
      t.changed = true;
    }
  }
  if (!sawDefault && !sawUi) {
    texts[0].before.push_back("default " + chosen->name);
  }
  if (!sawTimeout) {
    texts[0].before.push_back("timeout " +
                              std::to_string(kMenuTimeoutSeconds * 10));
  }
  texts[0].changed = texts[0].changed || !texts[0].before.empty();
  for (size_t i = 0; i < files.size(); ++i) {
    if (texts[i].changed) {
      std::string text = joinLines(texts[i]);
      files[i].changed = text != files[i].text;
      files[i].text = std::move(text);
    }
  }
  result.edit = MenuEdit::Changed;
  result.entry = chosen->name;
  return result;
}

}  // namespace gp::medium
