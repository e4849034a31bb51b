// guestprep describe: what each installation image is, what installs it
// and how it boots.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "guestprep/medium.h"
#include "tools/cli.h"
#include "tools/json.h"

namespace gp::cli {
namespace {

std::string textOr(const Json &v, const char *fallback) {
  return v.is_string() ? v.get<std::string>() : fallback;
}

void printHuman(const Json &doc) {
  std::printf("%s\n", textOr(doc["image"], "").c_str());
  std::printf("  volume_id:   %s\n", textOr(doc["volume_id"], "").c_str());
  const Json &os = doc["os"];
  if (os.is_object()) {
    std::printf("  os:          %s (%s %s, %s)\n", textOr(os["id"], "").c_str(),
                textOr(os["name"], "").c_str(),
                textOr(os["version"], "").c_str(),
                textOr(os["arch"], "?").c_str());
    std::printf("  installer:   %s\n",
                textOr(os["installer"], "(unknown)").c_str());
  } else {
    std::printf("  os:          (not recognised)\n");
  }
  for (const Json &e : doc["editions"]) {
    std::printf("  edition %u:   %s (%s, build %u, %s)\n",
                e["index"].get<unsigned>(), textOr(e["name"], "").c_str(),
                textOr(e["edition_id"], "").c_str(), e["build"].get<unsigned>(),
                textOr(e["arch"], "").c_str());
  }
  if (doc["language"].is_string()) {
    std::printf("  language:    %s\n", textOr(doc["language"], "").c_str());
  }
  const Json &boot = doc["boot"];
  std::printf("  bios:        %s", textOr(boot["bios"], "(none)").c_str());
  if (boot["bios_config"].is_string()) {
    std::printf(" (%s)", textOr(boot["bios_config"], "").c_str());
  }
  std::printf("\n  uefi:        %s\n", boot["uefi"].get<bool>() ? "yes" : "no");
  for (const Json &e : boot["el_torito"]) {
    std::printf("  el_torito:   %s %s\n", textOr(e["platform"], "").c_str(),
                textOr(e["image"], "(no file)").c_str());
  }
  for (const Json &p : doc["evidence"]) {
    std::printf("  evidence:    %s\n", textOr(p, "").c_str());
  }
}

int describe(const Args &args) {
  Args images = args;
  bool json = takeFlag(images, "--json");
  for (const std::string &a : images) {
    if (!a.empty() && a[0] == '-') {
      return usageError("describe");
    }
  }
  if (images.empty()) {
    return usageError("describe");
  }
  int status = 0;
  Json docs = Json::array();
  for (const std::string &image : images) {
    errno = 0;
    char *text = Guestprep_DescribeMedium(image.c_str());
    if (text == nullptr) {
      reportUnreadable(image, "not an ISO 9660 or UDF image");
      status = 2;
      continue;
    }
    Json doc = Json::parse(text, nullptr, false);
    std::free(text);
    if (doc.is_discarded() || !doc.is_object()) {
      reportFileError(image, "could not be described");
      status = 2;
      continue;
    }
    if (doc["os"].is_null() && status == 0) {
      status = 1;
    }
    if (json) {
      docs.push_back(std::move(doc));
    } else {
      printHuman(doc);
    }
  }
  if (json) {
    printJson(docs);
  }
  return status;
}

}  // namespace

GP_COMMAND("describe", "[--json] IMAGE...",
           "describe installation images: the OS, its installer, editions "
           "and how the disc boots (exit 0: all known, 1: one not known, 2: "
           "one could not be opened)",
           describe);

}  // namespace gp::cli
