// Conversions between UTF-8, the text form used everywhere inside this
// library, and the UTF-16 that disc and floppy file systems store names in.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace gp {

// Appends the UTF-8 form of one code point (at most U+10FFFF).
void appendUtf8(std::string &out, uint32_t codePoint);

// What to do with a surrogate that is not part of a well-formed pair.
enum class LoneSurrogate {
  Replace,  // write U+FFFD in its place
  Reject,   // fail the whole conversion
};

// UTF-16 units to UTF-8 in `out` (replaced, not appended to). Well-formed
// surrogate pairs become one code point. False only when a lone surrogate
// is met under LoneSurrogate::Reject.
bool utf16ToUtf8(std::u16string_view units, std::string &out,
                 LoneSurrogate lone);

// Strict UTF-8 to UTF-16 units in `units` (replaced, not appended to).
// False on any malformed sequence: a stray continuation byte, a truncated
// sequence, an overlong form, an encoded surrogate or a code point beyond
// U+10FFFF.
bool utf8ToUtf16(std::string_view text, std::u16string &units);

}  // namespace gp
