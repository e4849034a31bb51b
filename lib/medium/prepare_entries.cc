// Guestprep_PrepareInstall: the entries come in, and the result or the
// error goes out, as JSON documents.
#include <cstring>
#include <nlohmann/json.hpp>

#include "guestprep/medium.h"
#include "lib/medium/prepare_install.h"
#include "platform/abi.h"

namespace gp::medium {
namespace {

using Json = nlohmann::json;

struct TextKey {
  const char *key;
  std::string InstallEntries::*field;
};

const TextKey kTextKeys[] = {
    {"user", &InstallEntries::user},
    {"full_name", &InstallEntries::fullName},
    {"password", &InstallEntries::password},
    {"root_password", &InstallEntries::rootPassword},
    {"product_key", &InstallEntries::productKey},
    {"language", &InstallEntries::language},
    {"time_zone", &InstallEntries::timeZone},
    {"hostname", &InstallEntries::hostname},
    {"edition", &InstallEntries::edition},
    {"repo_url", &InstallEntries::repoUrl},
    {"template_dir", &InstallEntries::templateDir},
};

// One key of the document into the request; false with `error` set when
// the key is unknown or its value has the wrong type.
bool takeKey(const std::string &key, const Json &value, PrepareRequest &request,
             std::string &error) {
  InstallEntries &e = request.entries;
  for (const TextKey &text : kTextKeys) {
    if (key == text.key) {
      if (!value.is_string()) {
        error = "the entry " + key + " must be a string";
        return false;
      }
      e.*text.field = value.get<std::string>();
      return true;
    }
  }
  bool *flag = key == "bypass_requirements" ? &e.bypassRequirements
               : key == "power_off"         ? &e.powerOff
               : key == "no_prompt"         ? &request.noPrompt
                                            : nullptr;
  if (flag != nullptr) {
    if (!value.is_boolean()) {
      error = "the entry " + key + " must be true or false";
      return false;
    }
    *flag = value.get<bool>();
    return true;
  }
  if (key == "firmware") {
    if (value != "uefi" && value != "bios") {
      error = "the entry firmware must be \"uefi\" or \"bios\"";
      return false;
    }
    e.firmware = value == "bios" ? Firmware::Bios : Firmware::Uefi;
    return true;
  }
  error = "unknown entry " + key;
  return false;
}

char *heapCopy(const std::string &text) {
  char *out = static_cast<char *>(std::malloc(text.size() + 1));
  if (out == nullptr) {
    outOfMemory();
  }
  std::memcpy(out, text.c_str(), text.size() + 1);
  return out;
}

std::string errorJson(const std::string &why, PrepareStatus status) {
  return nlohmann::ordered_json{{"error", why},
                                {"status", static_cast<int>(status)}}
      .dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

bool parsePrepareEntries(const std::string &json, PrepareRequest &request,
                         std::string &error) {
  Json doc = Json::parse(json, nullptr, false);
  if (doc.is_discarded() || !doc.is_object()) {
    error = "the entries are not a JSON object";
    return false;
  }
  for (const auto &[key, value] : doc.items()) {
    if (!takeKey(key, value, request, error)) {
      return false;
    }
  }
  for (const char *required :
       {"user", "full_name", "password", "root_password"}) {
    if (!doc.contains(required)) {
      error = std::string("the entry ") + required + " is required";
      return false;
    }
  }
  return true;
}

}  // namespace gp::medium

GP_EXPORT char *Guestprep_PrepareInstall(const char *imagePath,
                                         const char *entriesJson,
                                         const char *outDir) {
  using namespace gp::medium;
  return gp::abiGuard<char *>(nullptr, [&]() -> char * {
    if (imagePath == nullptr || entriesJson == nullptr || outDir == nullptr) {
      return heapCopy(
          errorJson("a null argument", PrepareStatus::BadArguments));
    }
    PrepareRequest request;
    request.image = imagePath;
    request.outDir = outDir;
    std::string error;
    if (!parsePrepareEntries(entriesJson, request, error)) {
      return heapCopy(errorJson(error, PrepareStatus::BadArguments));
    }
    PrepareResult result;
    PrepareStatus status = prepareInstall(request, result, error);
    return heapCopy(status == PrepareStatus::Ok ? prepareResultJson(result)
                                                : errorJson(error, status));
  });
}
