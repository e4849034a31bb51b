// Names on a FAT volume (see fatimage_names.cc).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/fatimage.h"

namespace gp::fat {

// A UTF-16 unit that no FAT name may hold (controls, path separators,
// wildcards and the other reserved characters).
bool forbiddenInName(uint32_t unit);

// Whether `name` is a plain 8.3 name whose base and extension each have
// one case; if so, its 11-byte short form and the case bits that bring
// back the lower-case look.
bool shortNameFits(std::string_view name, uint8_t shortName[11],
                   uint8_t &caseBits);

// The short name of a directory entry as text ("PRESEED.CFG", or
// "preseed.cfg" with `applyCase`).
std::string shortNameText(const uint8_t *entry, bool applyCase);

uint8_t shortNameChecksum(const uint8_t *shortName);

// The UTF-16 units of a long name as UTF-8; false for lone surrogates,
// forbidden characters and the names "." and "..".
bool unitsToUtf8(const std::u16string &units, std::string &out);

// FAT_OK when `name` may be given to a new file or directory.
Error checkNewName(std::string_view name, std::u16string &units);

// The short alias basis of a long name; true when the conversion lost
// something, so the alias needs a numeric tail.
bool aliasBasis(std::string_view name, uint8_t basis[11]);
// The basis with the tail "~n" at the end of its base part.
void aliasWithTail(const uint8_t basis[11], uint32_t n, uint8_t out[11]);

// Long-name piece `piece` (1-based) of `units`, as a directory entry.
void packLongNamePiece(const std::u16string &units, uint32_t piece, bool last,
                       uint8_t checksum, uint8_t *entry);
// Appends the 13 units of a long-name piece.
void unpackLongNamePiece(const uint8_t *entry, std::u16string &units);

}  // namespace gp::fat
