// The guestprep command line: each command lives in its own file and
// registers itself with GP_COMMAND.
#pragma once

#include <string>
#include <vector>

namespace gp::cli {

using Args = std::vector<std::string>;

struct Command {
  const char *name;
  const char *usage;    // one line: arguments and options
  const char *summary;  // one line: what it does
  int (*run)(const Args &args);  // args exclude the command name
};

void registerCommand(const Command &command);

struct Registrar {
  explicit Registrar(const Command &command) { registerCommand(command); }
};

// Prints the usage of one command to stderr; returns 2.
int usageError(const char *name);

// JSON string literal for `text` (quoted and escaped).
std::string jsonString(const std::string &text);

}  // namespace gp::cli

#define GP_CLI_CONCAT2(a, b) a##b
#define GP_CLI_CONCAT(a, b) GP_CLI_CONCAT2(a, b)
#define GP_COMMAND(name, usage, summary, fn)                           \
  static const ::gp::cli::Registrar GP_CLI_CONCAT(gpCommand, __LINE__)( \
      ::gp::cli::Command{name, usage, summary, fn})
