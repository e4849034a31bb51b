// Writing the user's entries into the answer files so that each installer
// reads them literally: every place a value lands in is a shell command, a
// Perl string, XML or a debconf line, and each has its own special
// characters. A value that a place cannot hold literally at all (a line
// break in a one-line setting) is refused instead.
#pragma once

#include <string>
#include <string_view>

namespace gp::autoinstall {

// True when `text` is one line: no control character other than the tab.
bool isOneLine(std::string_view text);

// A word of a shell command (and of a kickstart command, which is split the
// same way): unchanged when it holds only characters that no shell treats
// specially, between single quotes otherwise.
std::string shellWord(std::string_view text);

// The inside of a double-quoted shell string: a backslash before each of
// the four characters still special there (" \ $ `).
std::string shellDoubleQuoted(std::string_view text);

// The inside of a double-quoted Perl string: a backslash before ", \ and
// before $ and @, which would interpolate a variable.
std::string perlDoubleQuoted(std::string_view text);

// The inside of a single-quoted Perl string: a backslash before ' and \.
std::string perlSingleQuoted(std::string_view text);

// XML character data in an element: &, < and > as entity references.
std::string xmlText(std::string_view text);

// The inside of a CDATA section: each "]]>", which would end the section,
// is split across two sections.
std::string xmlCdata(std::string_view text);

// True when `text` can be the value of a debconf selection line, which
// runs to the line's end: one line, not ending in a backslash (which would
// join the next line to it).
bool fitsDebconfValue(std::string_view text);

}  // namespace gp::autoinstall
