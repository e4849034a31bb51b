// Guestprep_DescribeMedium: what an installation medium is, what installs
// it and how it boots, as one JSON document.
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "guestprep/guess.h"
#include "guestprep/medium.h"
#include "lib/medium/description.h"
#include "lib/medium/guess_record.h"
#include "platform/abi.h"

namespace gp::medium {
namespace {

using Json = nlohmann::ordered_json;

Json optionalText(const std::optional<std::string> &s) {
  return s ? Json(*s) : Json(nullptr);
}

Json osJson(const std::optional<OsFacts> &os) {
  if (!os) {
    return nullptr;
  }
  return Json{{"id", os->id},
              {"distro", os->distro},
              {"family", os->family},
              {"name", os->name},
              {"version", os->version},
              {"arch", os->arch},
              {"installer", optionalText(os->installer)}};
}

Json editionsJson(const std::vector<Edition> &editions) {
  Json out = Json::array();
  for (const Edition &e : editions) {
    out.push_back(Json{{"index", e.index},
                       {"name", e.name},
                       {"display_name", e.displayName},
                       {"edition_id", e.editionId},
                       {"installation_type", e.installationType},
                       {"build", e.build},
                       {"arch", e.arch}});
  }
  return out;
}

Json bootJson(const BootFacts &boot) {
  Json entries = Json::array();
  for (const BootImage &b : boot.elTorito) {
    entries.push_back(Json{{"platform", platformName(b.platform)},
                           {"image", optionalText(b.image)}});
  }
  return Json{{"bios", optionalText(boot.bios)},
              {"bios_config", optionalText(boot.biosConfig)},
              {"uefi", boot.uefi},
              {"el_torito", entries}};
}

Json guessJson(const char *imagePath) {
  GuessInfo info;
  std::memset(&info, 0, sizeof info);
  int rc = Guess_Guest(imagePath, 0, &info);
  return guessRecordJson(imagePath, rc, info);
}

}  // namespace

std::optional<Described> describeImage(const char *imagePath,
                                       uint64_t *bytesRead) {
  MediumFiles files;
  if (files.open(imagePath) != img::IMG_OK) {
    return std::nullopt;
  }
  Described out;
  Description &d = out.facts;
  describeWindows(files, d) || describeRedHat(files, d) ||
      describeSuse(files, d) || describeDebian(files, d);
  describeBoot(files, d);
  out.volumeId = files.volumeId();
  if (bytesRead != nullptr) {
    *bytesRead = files.bytesRead();
  }
  return out;
}

std::optional<std::string> describeMedium(const char *imagePath,
                                          uint64_t *bytesRead) {
  std::optional<Described> found = describeImage(imagePath, bytesRead);
  if (!found) {
    return std::nullopt;
  }
  const Description &d = found->facts;
  Json doc{{"image", imagePath},
           {"volume_id", found->volumeId},
           {"os", osJson(d.os)},
           {"editions", editionsJson(d.editions)},
           {"language", optionalText(d.language)},
           {"boot", bootJson(d.boot)},
           {"guess", guessJson(imagePath)},
           {"evidence", d.evidence}};
  return doc.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace gp::medium

GP_EXPORT char *Guestprep_DescribeMedium(const char *imagePath) {
  return gp::abiGuard<char *>(nullptr, [&]() -> char * {
    if (imagePath == nullptr) {
      errno = EINVAL;
      return nullptr;
    }
    std::optional<std::string> doc =
        gp::medium::describeMedium(imagePath, nullptr);
    if (!doc) {
      return nullptr;
    }
    char *out = static_cast<char *>(std::malloc(doc->size() + 1));
    if (out == nullptr) {
      gp::outOfMemory();
    }
    std::memcpy(out, doc->c_str(), doc->size() + 1);
    return out;
  });
}
