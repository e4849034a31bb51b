// The user's entries for an unattended install of today's guests, and the
// answer that each installer's writer makes of them.
#pragma once

#include <string>
#include <vector>

#include "lib/medium/description.h"

namespace gp::medium {

enum class Firmware { Uefi, Bios };

struct InstallEntries {
  std::string user;          // the login name of the first user
  std::string fullName;      // that user's full name
  std::string password;      // that user's password
  std::string rootPassword;  // root's, or the local Administrator's
  std::string productKey;    // empty: none
  std::string language;      // e.g. "en-US" or "en_US"; empty: en-US
  std::string timeZone;      // an IANA zone, e.g. "Europe/Berlin"; empty: UTC
  std::string hostname;      // empty: derived from the user name
  std::string edition;       // Windows: an install image NAME; empty: first
  std::string repoUrl;       // kickstart on a boot-only disc; Debian mirror
  Firmware firmware = Firmware::Uefi;
  bool bypassRequirements = false;  // Windows 11 on a machine without TPM
  bool powerOff = false;            // power off, not reboot, when done
  std::string templateDir;          // empty: the installed templates
};

// One file of an answer: its name at the root of the medium, its bytes.
struct AnswerFile {
  std::string name;
  std::string text;
};

struct Answer {
  std::string installer;    // os.installer of the description
  std::string volumeLabel;  // the second medium's label ("OEMDRV",
                            // "CIDATA"; Windows Setup takes any)
  std::vector<AnswerFile> files;  // the first is the answer file proper
};

// The writers. Each fills `out` from the entries and what the disc is, or
// returns false with a reason for the user in `error` (a value its context
// cannot carry, a disc it cannot install from).
bool writeKickstart(const Described &disc, const InstallEntries &entries,
                    Answer &out, std::string &error);
bool writeAutoinstall(const Described &disc, const InstallEntries &entries,
                      Answer &out, std::string &error);  // subiquity
bool writePreseed(const Described &disc, const InstallEntries &entries,
                  Answer &out, std::string &error);
bool writeAutoyast(const Described &disc, const InstallEntries &entries,
                   Answer &out, std::string &error);
bool writeAutounattend(const Described &disc, const InstallEntries &entries,
                       Answer &out, std::string &error);

// The second medium: an ISO 9660 image with Joliet and Rock Ridge at
// `outPath`, labelled `answer.volumeLabel`, holding `answer.files` at its
// root. Replaced atomically; with SOURCE_DATE_EPOCH set, the same bytes
// every time. False with `error` set otherwise; nothing is left behind.
bool makeSeedMedium(const Answer &answer, const std::string &outPath,
                    std::string &error);

}  // namespace gp::medium
