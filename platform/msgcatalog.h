// The message catalog: localisable messages and pending error messages.
//
// A localisable message is the text "@&!*@*@(" id ")" default-text. The
// catalog resolves it to the user's language, falling back to the default
// text. Text without the marker is returned as it stands.
//
// Catalog files
// -------------
// One file per language, <dir>/<lang>/guestprep.vmsg, in the key = value
// syntax of platform/configdict.h, one entry per message id:
//
//     .encoding = "UTF-8"
//     msg.autoinstall.win_pro = " Professional"
//
// The catalog directory <dir> is $GUESTPREP_MSGDIR when that is set and not
// empty, else kDefaultCatalogDir.
//
// The language is $GUESTPREP_LANG when set and not empty, else the first
// non-empty one of $LC_ALL, $LC_MESSAGES and $LANG, as the C library picks
// the message locale. A locale name "ll_CC.codeset@modifier" is tried as
// "ll_CC", then as "ll". "C", "POSIX" and names holding anything but ASCII
// letters, digits, "_" and "-" (so no path can be smuggled in) mean no
// translation.
//
// Catalogs are user-editable files and are read defensively: a malformed
// line is skipped, an empty value or one longer than kMaxMessageLength
// bytes counts as untranslated, and a missing or unreadable file (or one
// over the dictionary's limits) means the default texts. Nothing of a
// failed load is left among the pending messages.
//
// Each thread keeps the catalog it loaded last and reads the file again
// when the directory, the language or the file itself (size, time, inode)
// change; nothing is shared between threads.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace gp::msg {

inline constexpr std::string_view kMarker = "@&!*@*@(";

#ifndef GP_MESSAGES_DIR
#define GP_MESSAGES_DIR "/usr/share/guestprep/messages"
#endif
inline constexpr const char kDefaultCatalogDir[] = GP_MESSAGES_DIR;
inline constexpr const char kCatalogFileName[] = "guestprep.vmsg";
inline constexpr size_t kMaxMessageLength = 4096;

// Splits a localisable message into its id and default text. Returns false
// (and leaves the outputs empty) when `message` lacks the marker form.
bool split(std::string_view message, std::string_view &id,
           std::string_view &defaultText);

// The message in the user's language, or its default text.
std::string get(std::string_view message);

// Like get(), as a malloc'ed string that the caller frees.
char *getHeap(std::string_view message);

// Resolves a localisable format and substitutes `args` into it. The only
// directives are "%s" (the next argument), "%N$s" (argument N, from 1, so
// a translation may reorder) and "%%". A translation that holds any other
// directive, or names an argument that is not given, is ignored in favour
// of the default text: catalog text never reaches printf. Arguments are
// inserted as they stand, never read as directives.
std::string format(std::string_view message,
                   std::initializer_list<std::string_view> args);
char *formatHeap(std::string_view message,
                 std::initializer_list<std::string_view> args);

// The catalog file that get() reads now, or an empty string when there is
// none (no translation asked for, or no file for the language).
std::string catalogPath();

// Pending error messages: platform services that fail leave a message
// here; callers append takePending() to their log lines.
void appendPending(std::string_view text);
std::string takePending();

}  // namespace gp::msg
