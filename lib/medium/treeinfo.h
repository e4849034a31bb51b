// INI-style marker files of Linux installation trees: .treeinfo (productmd
// 1.x, its [general] compat section and the older [product] header) and
// the facts a description takes from it.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace gp::medium {

// section -> key -> value, section and key names lower-cased. Lines that
// are not "[section]" or "key = value" are skipped; a bounded number of
// lines is read.
using IniSections = std::map<std::string, std::map<std::string, std::string>>;
IniSections parseIni(std::string_view text);

struct TreeInfo {
  std::string name;       // "Red Hat Enterprise Linux", "CentOS", "Fedora"
  std::string shortName;  // "RHEL", "CentOS-Stream"; may be empty
  std::string version;    // as written: "9", "9.3.0", "15 SP4"
  std::string arch;       // as written: "x86_64", "aarch64"
};

// The product of a .treeinfo; an empty name when the file names none.
TreeInfo readTreeInfo(std::string_view text);

}  // namespace gp::medium
