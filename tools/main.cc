// guestprep: a command-line host for the library.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "tools/cli.h"

namespace gp::cli {
namespace {

std::map<std::string, Command> &commands() {
  static std::map<std::string, Command> table;
  return table;
}

void printHelp(FILE *out) {
  std::fprintf(
      out,
      "usage: guestprep COMMAND [ARGS...]\n"
      "       guestprep help COMMAND   (or: guestprep COMMAND --help)\n"
      "       guestprep --version\n\ncommands:\n");
  for (const auto &[name, cmd] : commands()) {
    std::fprintf(out, "  %-14s %s\n", name.c_str(), cmd.summary);
  }
}

int printCommandHelp(const std::string &name) {
  auto it = commands().find(name);
  if (it == commands().end()) {
    std::fprintf(stderr, "guestprep: unknown command '%s'\n", name.c_str());
    printHelp(stderr);
    return 2;
  }
  std::printf("usage: guestprep %s %s\n%s\n", name.c_str(), it->second.usage,
              it->second.summary);
  return 0;
}

// A "--help" among the arguments, before any "--" that ends the options.
bool asksForHelp(const Args &args) {
  auto end = std::find(args.begin(), args.end(), "--");
  return std::find(args.begin(), end, "--help") != end;
}

}  // namespace

void registerCommand(const Command &command) {
  commands()[command.name] = command;
}

int usageError(const char *name) {
  auto it = commands().find(name);
  if (it != commands().end()) {
    std::fprintf(stderr, "usage: guestprep %s %s\n", name, it->second.usage);
  }
  return 2;
}

}  // namespace gp::cli

int main(int argc, char **argv) {
  using namespace gp::cli;
  if (argc < 2) {
    printHelp(stderr);
    return 2;
  }
  std::string name = argv[1];
  Args args(argv + 2, argv + argc);
  if (name == "--help" || name == "-h" || (name == "help" && args.empty())) {
    printHelp(stdout);
    return 0;
  }
  if (name == "--version") {
    std::printf("guestprep %s\n", GP_VERSION);
    return 0;
  }
  if (name == "help") {
    return args.size() == 1 ? printCommandHelp(args[0])
                            : (printHelp(stderr), 2);
  }
  auto it = commands().find(name);
  if (it == commands().end() || asksForHelp(args)) {
    return printCommandHelp(name);
  }
  return it->second.run(args);
}
