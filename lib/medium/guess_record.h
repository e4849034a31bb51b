// The JSON object of one identification result. The command line's
// identify and the medium description both print it, so the two always
// agree; it uses only the public identification header.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "guestprep/guess.h"

namespace gp::medium {

inline const char *guessResultName(int rc) {
  switch (rc) {
    case GUESS_FOUND:
      return "GUESS_FOUND";
    case GUESS_NOT_FOUND:
      return "GUESS_NOT_FOUND";
    default:
      return "GUESS_OPEN_FAILED";
  }
}

// The editions field is a list of names, each followed by "?".
inline nlohmann::ordered_json guessEditionsJson(const char *editions) {
  nlohmann::ordered_json out = nlohmann::ordered_json::array();
  std::string current;
  for (const char *p = editions; *p != '\0'; ++p) {
    if (*p == '?') {
      out.push_back(current);
      current.clear();
    } else {
      current += *p;
    }
  }
  return out;
}

inline nlohmann::ordered_json guessRecordJson(const char *image, int rc,
                                              const GuessInfo &info) {
  using Json = nlohmann::ordered_json;
  auto text = [](const char *s) {
    return s == nullptr ? Json(nullptr) : Json(s);
  };
  bool named = info.subVersion < GUESS_VERSION_DUMMY_LAST;
  return Json{
      {"image", image},
      {"result", rc},
      {"resultName", guessResultName(rc)},
      {"osName", text(info.osName)},
      {"osName64", text(info.osName64)},
      {"subVersion", info.subVersion},
      {"subVersionName",
       named ? text(Guess_GetSubString(GuessVersion(info.subVersion)))
             : Json(nullptr)},
      {"noIsolinux", info.noIsolinux != 0},
      {"versionString", info.versionString},
      {"language", info.language},
      {"editions", guessEditionsJson(info.editions)},
  };
}

}  // namespace gp::medium
