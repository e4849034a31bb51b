#include "lib/guestInstall/autoinstallGuestLinux_escape.h"

namespace gp::autoinstall {
namespace {

// `text` with a backslash before every character of `special`.
std::string escapeWith(std::string_view text, std::string_view special) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (special.find(c) != std::string_view::npos) {
      out.push_back('\\');
    }
    out.push_back(c);
  }
  return out;
}

bool isShellSafe(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         (c >= '0' && c <= '9') ||
         std::string_view("_@%+=:,./-").find(c) != std::string_view::npos;
}

}  // namespace

bool isOneLine(std::string_view text) {
  for (char c : text) {
    auto byte = static_cast<unsigned char>(c);
    if ((byte < 0x20 && c != '\t') || byte == 0x7F) {
      return false;
    }
  }
  return true;
}

std::string shellWord(std::string_view text) {
  bool safe = true;
  for (char c : text) {
    safe = safe && isShellSafe(c);
  }
  // An empty entry stays empty, as it always was.
  if (safe) {
    return std::string(text);
  }
  std::string out = "'";
  for (char c : text) {
    if (c == '\'') {
      out += "'\\''";
    } else {
      out.push_back(c);
    }
  }
  out.push_back('\'');
  return out;
}

std::string shellDoubleQuoted(std::string_view text) {
  return escapeWith(text, "\"\\$`");
}

std::string perlDoubleQuoted(std::string_view text) {
  return escapeWith(text, "\"\\$@");
}

std::string perlSingleQuoted(std::string_view text) {
  return escapeWith(text, "'\\");
}

std::string xmlText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      default:
        out.push_back(c);
    }
  }
  return out;
}

std::string xmlCdata(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t pos = 0;;) {
    size_t end = text.find("]]>", pos);
    if (end == std::string_view::npos) {
      out.append(text.substr(pos));
      return out;
    }
    // "]]" closes this section; ">" opens the next one.
    out.append(text.substr(pos, end + 2 - pos));
    out += "]]><![CDATA[";
    pos = end + 2;
  }
}

bool fitsDebconfValue(std::string_view text) {
  return isOneLine(text) && (text.empty() || text.back() != '\\');
}

}  // namespace gp::autoinstall
