// The JSON output of the command line: every command that prints a result
// prints it, with --json, as one JSON document on stdout whose keys are the
// names of the C fields it comes from.
#pragma once

#include <nlohmann/json.hpp>

#include "tools/cli.h"

namespace gp::cli {

// Keys stay in the order they were added, which follows the C records.
using Json = nlohmann::ordered_json;

// Removes every `flag` before a "--" from `args`; true when there was one.
bool takeFlag(Args &args, const char *flag);

// A C string field: JSON null for a null pointer.
Json jsonText(const char *text);

// Prints `doc` and a newline on stdout. Control characters are escaped and
// bytes that are not UTF-8 become U+FFFD, so the output is always valid
// JSON whatever names and values the guest media hold.
void printJson(const Json &doc);

}  // namespace gp::cli
