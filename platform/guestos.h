// The guest OS table: every guest identifier the library produces or
// accepts, with its stable numeric id, the facts the installation code asks
// about it, and the tools image of its family.
//
// Ids start at 0x5000. The first 64 (0x5000 to 0x503F) keep the historic
// numbering whose ranges choose the tools image; guests added later take
// ids from 0x5040 on, where a second set of ranges, one block per family,
// chooses the image the same way.
#pragma once

#include <cstddef>
#include <cstdint>

namespace gp::guestos {

constexpr int kFirstId = 0x5000;

// Facts about a guest, or'ed into GuestOsEntry::traits.
enum : uint32_t {
  TRAIT_WINDOWS = 1u << 0,          // any Windows guest
  TRAIT_VISTA_OR_LATER = 1u << 1,   // Windows Vista, Server 2008 and newer
  TRAIT_WIN2000 = 1u << 2,          // Windows 2000, every edition
  TRAIT_WIN_SERVER_2003 = 1u << 3,  // Windows Server 2003, every edition
  TRAIT_64BIT = 1u << 4,            // a 64-bit guest
  TRAIT_WIN8 = 1u << 5,             // Windows 8 and Server 2012
  TRAIT_VISTA = 1u << 6,            // Windows Vista (client) only
};

struct GuestOsEntry {
  const char *name;  // guest identifier; null ends the table
  int id;
  uint32_t traits;
};

// The whole table, ended by an entry whose name is null.
const GuestOsEntry *table();
// The number of entries before the null one.
size_t tableSize();

// The entry whose identifier equals `name` without regard to case, or null.
const GuestOsEntry *find(const char *name);
// The entry with this id, or null.
const GuestOsEntry *findById(int id);

// The id of an identifier (caseless), or -1 when it is unknown.
int idOf(const char *name);

// Predicates over ids; an unknown id is none of these.
bool isWindows(int id);
bool isVistaOrLater(int id);
bool isWin2000(int id);
bool isWinServer2003(int id);
bool is64Bit(int id);
bool isWin8(int id);
bool isVista(int id);

// File name of the tools image for a guest id ("windows.iso", "linux.iso",
// ...), or null when the guest has no tools image.
const char *toolsImage(int id);

}  // namespace gp::guestos
