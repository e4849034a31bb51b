#include "lib/medium/answer_escape.h"

#include <cstdint>
#include <cstdio>

namespace gp::medium {
namespace {

// The code points of well-formed UTF-8, or false at the first malformed
// sequence (stray or missing continuation bytes, overlong forms, encoded
// surrogates, values beyond U+10FFFF).
template <typename Fn>
bool forEachCodePoint(std::string_view text, Fn fn) {
  size_t i = 0;
  while (i < text.size()) {
    auto lead = static_cast<unsigned char>(text[i]);
    uint32_t cp = 0;
    size_t length = 0;
    uint32_t minimum = 0;
    if (lead < 0x80) {
      cp = lead;
      length = 1;
    } else if ((lead & 0xE0) == 0xC0) {
      cp = lead & 0x1F;
      length = 2;
      minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
      cp = lead & 0x0F;
      length = 3;
      minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
      cp = lead & 0x07;
      length = 4;
      minimum = 0x10000;
    } else {
      return false;
    }
    if (text.size() - i < length) {
      return false;
    }
    for (size_t k = 1; k < length; ++k) {
      auto next = static_cast<unsigned char>(text[i + k]);
      if ((next & 0xC0) != 0x80) {
        return false;
      }
      cp = (cp << 6) | (next & 0x3F);
    }
    if (cp < minimum || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
      return false;
    }
    fn(cp, text.substr(i, length));
    i += length;
  }
  return true;
}

bool isLineBreakOrControl(uint32_t cp) {
  return (cp < 0x20 && cp != '\t') || (cp >= 0x7F && cp <= 0x9F) ||
         cp == 0x2028 || cp == 0x2029;
}

void appendHex(std::string &out, const char *format, uint32_t cp) {
  char buf[16];
  std::snprintf(buf, sizeof buf, format, static_cast<unsigned>(cp));
  out += buf;
}

bool needsNoQuotes(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         (c >= '0' && c <= '9') ||
         std::string_view("_@%+=:,./-").find(c) != std::string_view::npos;
}

}  // namespace

bool isOneLineText(std::string_view text) {
  bool oneLine = true;
  bool utf8 = forEachCodePoint(text, [&](uint32_t cp, std::string_view) {
    oneLine = oneLine && !isLineBreakOrControl(cp);
  });
  return utf8 && oneLine;
}

std::optional<std::string> yamlQuoted(std::string_view text) {
  std::string out = "\"";
  bool utf8 = forEachCodePoint(text, [&](uint32_t cp, std::string_view bytes) {
    switch (cp) {
      case '"':
        out += "\\\"";
        return;
      case '\\':
        out += "\\\\";
        return;
      case '\t':
        out += "\\t";
        return;
      case '\n':
        out += "\\n";
        return;
      default:
        break;
    }
    // Controls, the YAML line breaks, the byte order mark and the two
    // non-characters are not printable in a YAML stream: escape them.
    if (cp < 0x20 || (cp >= 0x7F && cp <= 0x9F)) {
      appendHex(out, "\\x%02X", cp);
    } else if (cp == 0x2028 || cp == 0x2029 || cp == 0xFEFF || cp == 0xFFFE ||
               cp == 0xFFFF) {
      appendHex(out, "\\u%04X", cp);
    } else {
      out.append(bytes);
    }
  });
  if (!utf8) {
    return std::nullopt;
  }
  out += '"';
  return out;
}

std::optional<std::string> xmlEscaped(std::string_view text) {
  std::string out;
  bool fits = true;
  bool utf8 = forEachCodePoint(text, [&](uint32_t cp, std::string_view bytes) {
    switch (cp) {
      case '&':
        out += "&amp;";
        return;
      case '<':
        out += "&lt;";
        return;
      case '>':
        out += "&gt;";
        return;
      case '"':
        out += "&quot;";
        return;
      case '\'':
        out += "&apos;";
        return;
      default:
        break;
    }
    if ((cp < 0x20 && cp != '\t' && cp != '\n' && cp != '\r') || cp == 0xFFFE ||
        cp == 0xFFFF) {
      fits = false;
    }
    out.append(bytes);
  });
  if (!utf8 || !fits) {
    return std::nullopt;
  }
  return out;
}

std::string kickstartWord(std::string_view text) {
  bool plain = !text.empty();
  for (char c : text) {
    plain = plain && needsNoQuotes(c);
  }
  if (plain) {
    return std::string(text);
  }
  // Inside single quotes every character stands for itself; a quote ends
  // the quoted part, is written escaped, and a new part begins.
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

bool fitsDebconfValue(std::string_view text) {
  return isOneLineText(text) && (text.empty() || text.back() != '\\');
}

}  // namespace gp::medium
