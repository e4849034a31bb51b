// Converting UTF-8 text into the legacy Windows encodings that the text-mode
// Windows installer reads, by the encoding identifiers of the answer-file
// language table.
#pragma once

namespace gp::textenc {

// Encoding identifiers.
enum : int {
  ENCODING_BIG5 = 22,          // Traditional Chinese, code page 950
  ENCODING_GBK = 24,           // Simplified Chinese, code page 936
  ENCODING_SHIFT_JIS = 27,     // Japanese, code page 932
  ENCODING_WINDOWS_1251 = 34,  // Cyrillic
  ENCODING_WINDOWS_1252 = 35,  // Western European
  ENCODING_KOREAN = 62,        // Korean, code page 949
};

// The encoding's name ("CP932", "windows-1251", ...), or "unknown".
const char *encodingName(int id);

// A malloc'ed, NUL-terminated copy of `utf8` in the encoding; null when the
// text is not valid UTF-8, holds a character the encoding lacks, or the
// identifier is unknown. Nothing is replaced or dropped silently.
char *convertFromUtf8(const char *utf8, int id);

}  // namespace gp::textenc
