// Writing the user's entries into the answer files of today's installers so
// that each one reads them back literally: YAML, XML, kickstart command
// words and debconf values each have their own special characters, and a
// value that a place cannot carry at all is refused instead.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace gp::medium {

// True when `text` is well-formed UTF-8 and one line: no control character
// but the tab, and none of the characters that YAML or XML take for a line
// break (NEL, LINE SEPARATOR, PARAGRAPH SEPARATOR).
bool isOneLineText(std::string_view text);

// A YAML double-quoted scalar, quotes included, that any YAML 1.1 or 1.2
// reader gives back as `text`; nullopt when `text` is not UTF-8.
std::optional<std::string> yamlQuoted(std::string_view text);

// Text for XML character data or a double-quoted attribute value, with
// & < > " ' as references; nullopt when `text` is not UTF-8 or holds a
// character that XML 1.0 cannot carry (controls other than tab, CR and LF,
// U+FFFE, U+FFFF).
std::optional<std::string> xmlEscaped(std::string_view text);

// A word of a kickstart command, which the installer splits as a POSIX
// shell would (without expansions), `#` starting a comment: unchanged when
// it holds only characters that need no quoting, in single quotes
// otherwise. Also a word of /bin/sh.
std::string kickstartWord(std::string_view text);

// True when `text` can be the value of a debconf selection, which runs to
// the line's end: one line, not ending in a backslash (which would join the
// next line to it).
bool fitsDebconfValue(std::string_view text);

}  // namespace gp::medium
