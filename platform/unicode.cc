#include "platform/unicode.h"

namespace gp {
namespace {

bool isHighSurrogate(uint32_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool isLowSurrogate(uint32_t u) { return u >= 0xDC00 && u <= 0xDFFF; }

}  // namespace

void appendUtf8(std::string &out, uint32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | cp >> 6);
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | cp >> 12);
    out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | cp >> 18);
    out += static_cast<char>(0x80 | (cp >> 12 & 0x3F));
    out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

bool utf16ToUtf8(std::u16string_view units, std::string &out,
                 LoneSurrogate lone) {
  out.clear();
  for (size_t i = 0; i < units.size(); ++i) {
    uint32_t u = units[i];
    if (isHighSurrogate(u) && i + 1 < units.size() &&
        isLowSurrogate(units[i + 1])) {
      u = 0x10000 + ((u - 0xD800) << 10) + (units[i + 1] - 0xDC00);
      ++i;
    } else if (isHighSurrogate(u) || isLowSurrogate(u)) {
      if (lone == LoneSurrogate::Reject) {
        return false;
      }
      u = 0xFFFD;
    }
    appendUtf8(out, u);
  }
  return true;
}

bool utf8ToUtf16(std::string_view text, std::u16string &units) {
  units.clear();
  size_t i = 0;
  while (i < text.size()) {
    auto c = static_cast<unsigned char>(text[i]);
    uint32_t cp;
    size_t len;
    if (c < 0x80) {
      cp = c, len = 1;
    } else if ((c & 0xE0) == 0xC0) {
      cp = c & 0x1F, len = 2;
    } else if ((c & 0xF0) == 0xE0) {
      cp = c & 0x0F, len = 3;
    } else if ((c & 0xF8) == 0xF0) {
      cp = c & 0x07, len = 4;
    } else {
      return false;
    }
    if (len > text.size() - i) {
      return false;
    }
    for (size_t k = 1; k < len; ++k) {
      auto cc = static_cast<unsigned char>(text[i + k]);
      if ((cc & 0xC0) != 0x80) {
        return false;
      }
      cp = cp << 6 | (cc & 0x3F);
    }
    static const uint32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < kMin[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
      return false;  // overlong, out of range, or a surrogate
    }
    if (cp >= 0x10000) {
      cp -= 0x10000;
      units += static_cast<char16_t>(0xD800 | cp >> 10);
      units += static_cast<char16_t>(0xDC00 | (cp & 0x3FF));
    } else {
      units += static_cast<char16_t>(cp);
    }
    i += len;
  }
  return true;
}

}  // namespace gp
