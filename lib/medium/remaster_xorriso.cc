// The mastering tool's view of an image's boot equipment: its reports
// parsed, and the comparison that tells whether a new image kept
// everything the old one booted with.
#include "lib/medium/remaster_internal.h"
#include "platform/strutil.h"

namespace gp::medium {
using namespace gp::str;
namespace {

// The tool quotes a value as a shell word: 'text', a quote as '"'"'.
std::string unquote(std::string_view word) {
  std::string out;
  bool single = false, dbl = false;
  for (char c : word) {
    if (c == '\'' && !dbl) {
      single = !single;
    } else if (c == '"' && !single) {
      dbl = !dbl;
    } else {
      out += c;
    }
  }
  return out;
}

std::string_view afterPrefix(std::string_view line, std::string_view prefix) {
  return line.substr(prefix.size());
}

// "--interval:local_fs:568d-8759d::'image.iso'": the blocks.
bool intervalBlocks(std::string_view source, uint64_t &first, uint64_t &last) {
  size_t colon = source.find(":local_fs:");
  if (colon == std::string_view::npos) {
    colon = source.find(":imported_iso:");
    if (colon == std::string_view::npos) {
      return false;
    }
    colon += std::string_view(":imported_iso:").size();
  } else {
    colon += std::string_view(":local_fs:").size();
  }
  std::string_view range = source.substr(colon);
  size_t dash = range.find('-');
  if (dash == std::string_view::npos || dash == 0 ||
      range.substr(0, dash).back() != 'd') {
    return false;
  }
  std::string_view tail = range.substr(dash + 1);
  size_t d = tail.find('d');
  if (d == std::string_view::npos) {
    return false;
  }
  first = static_cast<uint64_t>(parseLong(range.substr(0, dash - 1)));
  last = static_cast<uint64_t>(parseLong(tail.substr(0, d)));
  return last >= first;
}

}  // namespace

bool AppendedPartition::isEfi() const {
  std::string t = toLower(type);
  return t == "0xef" || t == "ef" || t == "28732ac11ff8d211ba4b00a0c93ec93b" ||
         t == "c12a7328-f81f-11d2-ba4b-00a0c93ec93b";
}

BootReport parseBootReport(std::string_view text) {
  BootReport r;
  size_t pos = 0;
  std::string_view line;
  while (nextToken(text, pos, "\n", line)) {
    if (startsWith(line, "Boot record  :")) {
      std::string_view v = afterPrefix(line, "Boot record  :");
      size_t b = v.find_first_not_of(' ');
      r.bootRecord =
          b == std::string_view::npos ? "" : std::string(v.substr(b));
    } else if (startsWith(line, "El Torito boot img :")) {
      size_t p = 0;
      std::string_view word, number, platform;
      std::string_view rest = afterPrefix(line, "El Torito boot img :");
      if (nextToken(rest, p, " ", number) &&
          nextToken(rest, p, " ", platform)) {
        r.images.emplace_back(platform);
      }
      (void)word;
    } else if (startsWith(line, "-e ")) {
      std::string value = unquote(afterPrefix(line, "-e "));
      bool seen = false;
      for (const std::string &e : r.efiSources) {
        seen = seen || e == value;
      }
      if (!seen) {
        r.efiSources.push_back(value);
      }
    } else if (startsWith(line, "-V ")) {
      r.volumeId = unquote(afterPrefix(line, "-V "));
    } else if (startsWith(line, "-append_partition ")) {
      size_t p = 0;
      std::string_view rest = afterPrefix(line, "-append_partition ");
      std::string_view number, type, source;
      if (!nextToken(rest, p, " ", number) || !nextToken(rest, p, " ", type) ||
          !nextToken(rest, p, " ", source)) {
        continue;
      }
      AppendedPartition part;
      part.number = static_cast<int>(parseLong(number));
      part.type = std::string(type);
      if (!intervalBlocks(source, part.first, part.last)) {
        part.first = part.last = 0;
      }
      bool seen = false;
      for (const AppendedPartition &q : r.partitions) {
        seen = seen || q.number == part.number;
      }
      if (!seen) {
        r.partitions.push_back(part);
      }
    }
  }
  return r;
}

bool readBootReport(const std::string &image, ScratchArea &scratch,
                    BootReport &out, std::string &error) {
  std::string text;
  if (!runTool("xorriso -indev " + shellWord(image) +
                   " -report_el_torito plain -report_el_torito as_mkisofs"
                   " -report_system_area as_mkisofs",
               scratch, &text)) {
    error = image + ": the mastering tool cannot read the image (" +
            text.substr(0, 200) + ")";
    return false;
  }
  out = parseBootReport(text);
  return true;
}

std::string compareBootReports(const BootReport &before,
                               const BootReport &after) {
  if (before.volumeId != after.volumeId) {
    return "the volume id changed";
  }
  if (before.images != after.images) {
    return "the El Torito entries differ";
  }
  if (before.bootRecord != after.bootRecord) {
    return "the boot record differs (\"" + after.bootRecord +
           "\" instead of \"" + before.bootRecord + "\")";
  }
  if (before.partitions.size() != after.partitions.size()) {
    return "an appended partition was lost";
  }
  for (size_t i = 0; i < before.partitions.size(); ++i) {
    if (before.partitions[i].number != after.partitions[i].number ||
        toLower(before.partitions[i].type) !=
            toLower(after.partitions[i].type)) {
      return "appended partition " +
             std::to_string(before.partitions[i].number) + " differs";
    }
  }
  if (before.efiSources.size() != after.efiSources.size()) {
    return "an EFI boot entry was lost";
  }
  return "";
}

}  // namespace gp::medium
