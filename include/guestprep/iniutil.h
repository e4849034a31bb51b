/*
 * INI files: reading and writing single keys.
 *
 * Every call opens the file, does its work and closes it again; nothing is
 * kept between calls. Section names and keys match ASCII case-insensitively
 * and as whole strings. A line is a comment when it begins with ';' and a
 * section header when it begins with '['. When reading, a ';' after the
 * first byte of a line ends the line's meaningful text, and a value between
 * two double quotes loses them. Lines longer than 1023 bytes are taken in
 * pieces of 1023 bytes, each handled as a line of its own.
 *
 * The writers rewrite the whole file: the new content goes to a temporary
 * file in the same directory, is flushed to disk and renamed over the file,
 * which keeps its permission bits (a symbolic link stays a link and the file
 * it points to is rewritten). On any failure the file is left exactly as it
 * was. The file must exist: the writers never create it.
 */
#ifndef GUESTPREP_INIUTIL_H
#define GUESTPREP_INIUTIL_H

#include "guestprep/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Copies the value of `key` in `section` into `buffer` (at most
 * bufferSize - 1 bytes, NUL-terminated). The first matching line decides.
 * FALSE, with `buffer` untouched, when the key is not there, the file cannot
 * be read, a section header without ']' comes first, or bufferSize < 1.
 */
GUESTPREP_API Bool IniUtil_GetIniFileString(const char *path,
                                            const char *section,
                                            const char *key, char *buffer,
                                            int32_t bufferSize);

/*
 * Reads the value of `key` as a decimal number, clamped to the 32-bit
 * range. TRUE when the text is "0" or converts to a non-zero number; other
 * texts set *value to 0 and give FALSE.
 */
GUESTPREP_API Bool IniUtil_GetIniFileInt(const char *path, const char *section,
                                         const char *key, int32_t *value);

/*
 * Sets `key` to `value` in `section`: every matching line of the section is
 * rewritten, or a new line is put at the end of the section's first
 * occurrence, or the section is added at the end of the file. `quoted`
 * writes the value between double quotes. Values are cut so that a line
 * stays within 1023 bytes; a key longer than 1019 bytes or a section name
 * longer than 1020 bytes is refused, and so is a section, key or value
 * holding a line feed or a carriage return. FALSE, with the file unchanged,
 * when it cannot be read or replaced (a file of another owner that the
 * caller cannot give back to that owner included), holds a section header
 * without ']', or would grow past the size limit (about 512 KiB).
 */
GUESTPREP_API Bool IniUtil_WriteIniFileString(const char *path,
                                              const char *section,
                                              const char *key,
                                              const char *value, Bool quoted);

/* Writes `value` in decimal, without quotes. */
GUESTPREP_API Bool IniUtil_WriteIniFileInt(const char *path,
                                           const char *section, const char *key,
                                           int32_t value);

#ifdef __cplusplus
}
#endif

#endif /* GUESTPREP_INIUTIL_H */
