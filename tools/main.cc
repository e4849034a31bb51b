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
  std::fprintf(out,
               "usage: guestprep COMMAND [ARGS...]\n"
               "       guestprep help COMMAND\n\ncommands:\n");
  for (const auto &[name, cmd] : commands()) {
    std::fprintf(out, "  %-14s %s\n", name.c_str(), cmd.summary);
  }
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

std::string jsonString(const std::string &text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out + "\"";
}

}  // namespace gp::cli

int main(int argc, char **argv) {
  using namespace gp::cli;
  if (argc < 2 || std::strcmp(argv[1], "--help") == 0 ||
      std::strcmp(argv[1], "-h") == 0) {
    printHelp(argc < 2 ? stderr : stdout);
    return argc < 2 ? 2 : 0;
  }
  std::string name = argv[1];
  if (name == "help" && argc > 2) {
    auto it = commands().find(argv[2]);
    if (it == commands().end()) {
      printHelp(stderr);
      return 2;
    }
    std::printf("usage: guestprep %s %s\n%s\n", it->first.c_str(),
                it->second.usage, it->second.summary);
    return 0;
  }
  auto it = commands().find(name);
  if (it == commands().end()) {
    std::fprintf(stderr, "guestprep: unknown command '%s'\n", name.c_str());
    printHelp(stderr);
    return 2;
  }
  Args args(argv + 2, argv + argc);
  if (std::find(args.begin(), args.end(), "--help") != args.end()) {
    std::printf("usage: guestprep %s %s\n%s\n", name.c_str(),
                it->second.usage, it->second.summary);
    return 0;
  }
  return it->second.run(args);
}
