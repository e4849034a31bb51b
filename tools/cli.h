// The guestprep command line: each command lives in its own file and
// registers itself with GP_COMMAND. A new command also gets a subsection
// (".SS name") under COMMANDS in man/guestprep.1.in, which tests/cli_test.py
// checks for every command "guestprep --help" lists; one that prints a
// result takes --json and prints it through tools/json.h.
#pragma once

#include <string>
#include <vector>

namespace gp::cli {

using Args = std::vector<std::string>;

struct Command {
  const char *name;
  const char *usage;             // one line: arguments and options
  const char *summary;           // one line: what it does
  int (*run)(const Args &args);  // args exclude the command name
};

void registerCommand(const Command &command);

struct Registrar {
  explicit Registrar(const Command &command) { registerCommand(command); }
};

// Prints the usage of one command to stderr; returns 2.
int usageError(const char *name);

// Prints "guestprep: PATH: REASON" on stderr, as every failure to open or
// read a file named on the command line is reported.
void reportFileError(const std::string &path, const std::string &reason);

// Why `path` cannot be opened and read as a file (the system's error text),
// or "" when it can.
std::string readProblem(const std::string &path);

// Why no file can be written in the directory `path`, or "" when one can.
std::string directoryProblem(const std::string &path);

// Reports `path` with its read problem, or with `fallback` when the file
// reads fine (the content was what the command could not use).
void reportUnreadable(const std::string &path, const std::string &fallback);

}  // namespace gp::cli

#define GP_CLI_CONCAT2(a, b) a##b
#define GP_CLI_CONCAT(a, b) GP_CLI_CONCAT2(a, b)
#define GP_COMMAND(name, usage, summary, fn)       \
  static const ::gp::cli::Registrar GP_CLI_CONCAT( \
      gpCommand, __LINE__)(::gp::cli::Command{name, usage, summary, fn})
