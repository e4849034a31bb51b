#include "support/kickstart_check.h"

#include <sstream>

namespace gp::test {
namespace {

// A command, or a command with one of its words, that anaconda refuses
// from a release on (EL major, Fedora release; 0: never removed there).
struct Removed {
  const char *command;
  const char *word;  // null: the command itself
  long sinceEl;
  long sinceFedora;
};

constexpr Removed kRemoved[] = {
    {"key", nullptr, 6, 1},           {"langsupport", nullptr, 6, 1},
    {"mouse", nullptr, 6, 1},         {"monitor", nullptr, 8, 18},
    {"upgrade", nullptr, 8, 29},      {"install", nullptr, 9, 34},
    {"device", nullptr, 9, 34},       {"deviceprobe", nullptr, 9, 34},
    {"dmraid", nullptr, 9, 34},       {"multipath", nullptr, 9, 34},
    {"autostep", nullptr, 9, 34},     {"interactive", nullptr, 8, 29},
    {"zerombr", "yes", 9, 34},        {"auth", nullptr, 10, 0},
    {"authconfig", nullptr, 10, 0},   {"bootloader", "--upgrade", 9, 34},
    {"partition", "--active", 9, 34}, {"xconfig", "--resolution", 8, 18},
};

// Added options: rootpw --allow-ssh came with EL 9 and Fedora 37.
struct Added {
  const char *command;
  const char *word;
  long sinceEl;
  long sinceFedora;
};

constexpr Added kAdded[] = {{"rootpw", "--allow-ssh", 9, 37}};

bool applies(long sinceEl, long sinceFedora, const KickstartTarget &t) {
  long since = t.fedora ? sinceFedora : sinceEl;
  return since != 0 && t.major >= since;
}

std::vector<std::string> words(const std::string &line) {
  std::vector<std::string> out;
  std::istringstream in(line);
  std::string w;
  while (in >> w) {
    out.push_back(w);
  }
  return out;
}

bool hasWord(const std::vector<std::string> &w, const std::string &word) {
  for (size_t i = 1; i < w.size(); ++i) {
    if (w[i] == word || w[i].rfind(word + "=", 0) == 0) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::vector<std::string> checkKickstart(const std::string &text,
                                        const KickstartTarget &target) {
  std::vector<std::string> problems;
  std::istringstream in(text);
  std::string line, section;
  int number = 0;
  while (std::getline(in, line)) {
    ++number;
    std::vector<std::string> w = words(line);
    if (w.empty() || w[0][0] == '#') {
      continue;
    }
    const std::string where = "line " + std::to_string(number) + ": ";
    if (w[0][0] == '%') {
      if (w[0] == "%end") {
        if (section.empty()) {
          problems.push_back(where + "%end outside a section");
        }
        section.clear();
      } else if (!section.empty()) {
        problems.push_back(where + w[0] + " opens before " + section +
                           " is closed with %end");
      } else {
        section = w[0];
      }
      continue;
    }
    if (!section.empty()) {
      continue;  // a package or a script line
    }
    for (const Removed &r : kRemoved) {
      if (w[0] == r.command && (r.word == nullptr || hasWord(w, r.word)) &&
          applies(r.sinceEl, r.sinceFedora, target)) {
        problems.push_back(
            where + w[0] +
            (r.word ? std::string(" ") + r.word : std::string()) +
            " was removed from this release");
      }
    }
    for (const Added &a : kAdded) {
      if (w[0] == a.command && hasWord(w, a.word) &&
          !applies(a.sinceEl, a.sinceFedora, target)) {
        problems.push_back(where + w[0] + " " + a.word +
                           " is unknown to this release");
      }
    }
  }
  if (!section.empty()) {
    problems.push_back(section + " is not closed with %end");
  }
  return problems;
}

}  // namespace gp::test
