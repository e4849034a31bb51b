// The guest OS table and its queries.
#include "platform/guestos.h"

#include "platform/strutil.h"

namespace gp::guestos {
namespace {

constexpr uint32_t W = TRAIT_WINDOWS;
constexpr uint32_t B64 = TRAIT_64BIT;
constexpr uint32_t W2K = TRAIT_WINDOWS | TRAIT_WIN2000;
constexpr uint32_t NET = TRAIT_WINDOWS | TRAIT_WIN_SERVER_2003;
constexpr uint32_t NT6 = TRAIT_WINDOWS | TRAIT_VISTA_OR_LATER;
constexpr uint32_t VISTA = NT6 | TRAIT_VISTA;
constexpr uint32_t WIN8 = NT6 | TRAIT_WIN8;

constexpr int at(int offset) { return kFirstId + offset; }

// Ids are stable: an entry never changes its id, and a new guest takes a
// free id in its family's block.
constexpr GuestOsEntry kTable[] = {
    // Windows 95, 98 and Me.
    {"win95", at(4), W},
    {"win98", at(5), W},
    {"winMe", at(6), W},
    // Windows NT 4.0 to Server 2008.
    {"winNT", at(7), W},
    {"win2000Pro", at(8), W2K},
    {"win2000Serv", at(9), W2K},
    {"win2000AdvServ", at(10), W2K},
    {"winXPHome", at(11), W},
    {"winXPPro", at(12), W},
    {"winXPPro-64", at(13), W | B64},
    {"winNetWeb", at(14), NET},
    {"winNetStandard", at(15), NET},
    {"winNetEnterprise", at(16), NET},
    {"winNetBusiness", at(17), NET},
    {"winNetStandard-64", at(18), NET | B64},
    {"winNetEnterprise-64", at(19), NET | B64},
    {"winvista", at(20), VISTA},
    {"winvista-64", at(21), VISTA | B64},
    {"longhorn", at(22), NT6},
    {"longhorn-64", at(23), NT6 | B64},
    // Guests without tools.
    {"ztkernel", at(24), 0},
    {"ztkernel5", at(25), 0},
    {"darwin", at(26), 0},
    {"darwin-64", at(33), B64},
    {"darwin10", at(34), 0},
    {"darwin10-64", at(47), B64},
    {"darwin11", at(48), 0},
    {"darwin11-64", at(49), B64},
    // Linux, first numbering.
    {"redhat", at(27), 0},
    {"rhel2", at(28), 0},
    {"rhel3", at(29), 0},
    {"rhel3-64", at(30), B64},
    {"rhel4", at(31), 0},
    {"rhel4-64", at(32), B64},
    {"suse", at(35), 0},
    {"suse-64", at(36), B64},
    {"sles", at(37), 0},
    {"sles-64", at(38), B64},
    {"turbolinux", at(39), 0},
    {"ubuntu", at(59), 0},
    // FreeBSD, Solaris, NetWare.
    {"freeBSD", at(40), 0},
    {"freeBSD-64", at(41), B64},
    {"solaris7", at(42), 0},
    {"solaris8", at(43), 0},
    {"solaris9", at(44), 0},
    {"solaris10", at(45), 0},
    {"solaris10-64", at(46), B64},
    {"netware5", at(56), 0},
    {"netware6", at(57), 0},
    // Windows, second numbering.
    {"windows7", at(64), NT6},
    {"windows7-64", at(65), NT6 | B64},
    {"windows7srv-64", at(66), NT6 | B64},
    {"windows8", at(67), WIN8},
    {"windows8-64", at(68), WIN8 | B64},
    {"windows8srv-64", at(69), WIN8 | B64},
    // Linux, second numbering.
    {"ubuntu-64", at(96), B64},
    {"redhat-64", at(97), B64},
    {"rhel5", at(98), 0},
    {"rhel5-64", at(99), B64},
    {"rhel6", at(100), 0},
    {"rhel6-64", at(101), B64},
    {"centos", at(102), 0},
    {"centos-64", at(103), B64},
    {"asianux3", at(104), 0},
    {"asianux3-64", at(105), B64},
    {"oraclelinux", at(106), 0},
    {"oraclelinux-64", at(107), B64},
    {"fedora", at(108), 0},
    {"fedora-64", at(109), B64},
    {"mandrake", at(110), 0},
    {"mandriva", at(111), 0},
    {"mandriva-64", at(112), B64},
    {"debian4", at(113), 0},
    {"debian4-64", at(114), B64},
    {"debian5", at(115), 0},
    {"debian5-64", at(116), B64},
    {"debian7", at(117), 0},
    {"debian7-64", at(118), B64},
    {"opensuse", at(119), 0},
    {"opensuse-64", at(120), B64},
    {"sles10", at(121), 0},
    {"sles10-64", at(122), B64},
    {"sles11", at(123), 0},
    {"sles11-64", at(124), B64},
    {"sjds", at(125), 0},
    {"nld9", at(126), 0},
    {nullptr, 0, 0},
};

// Offset ranges (inclusive) of the ids that share a tools image.
struct ImageRange {
  int first;
  int last;
  const char *image;
};

constexpr ImageRange kImageRanges[] = {
    {3, 6, "winPre2k.iso"},  {7, 23, "windows.iso"},  {27, 32, "linux.iso"},
    {35, 39, "linux.iso"},   {59, 59, "linux.iso"},   {42, 46, "solaris.iso"},
    {56, 58, "netware.iso"}, {40, 41, "freebsd.iso"}, {64, 95, "windows.iso"},
    {96, 191, "linux.iso"},
};

bool has(int id, uint32_t trait) {
  const GuestOsEntry *e = findById(id);
  return e != nullptr && (e->traits & trait) != 0;
}

}  // namespace

const GuestOsEntry *table() { return kTable; }

size_t tableSize() { return sizeof kTable / sizeof kTable[0] - 1; }

const GuestOsEntry *find(const char *name) {
  if (name == nullptr) {
    return nullptr;
  }
  for (const GuestOsEntry *e = kTable; e->name != nullptr; ++e) {
    if (str::equalsCaseless(e->name, name)) {
      return e;
    }
  }
  return nullptr;
}

const GuestOsEntry *findById(int id) {
  for (const GuestOsEntry *e = kTable; e->name != nullptr; ++e) {
    if (e->id == id) {
      return e;
    }
  }
  return nullptr;
}

int idOf(const char *name) {
  const GuestOsEntry *e = find(name);
  return e == nullptr ? -1 : e->id;
}

bool isWindows(int id) { return has(id, TRAIT_WINDOWS); }
bool isVistaOrLater(int id) { return has(id, TRAIT_VISTA_OR_LATER); }
bool isWin2000(int id) { return has(id, TRAIT_WIN2000); }
bool isWinServer2003(int id) { return has(id, TRAIT_WIN_SERVER_2003); }
bool is64Bit(int id) { return has(id, TRAIT_64BIT); }
bool isWin8(int id) { return has(id, TRAIT_WIN8); }
bool isVista(int id) { return has(id, TRAIT_VISTA); }

const char *toolsImage(int id) {
  int offset = id - kFirstId;
  for (const ImageRange &r : kImageRanges) {
    if (offset >= r.first && offset <= r.last) {
      return r.image;
    }
  }
  return nullptr;
}

}  // namespace gp::guestos
