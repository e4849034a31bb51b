// guestprep prepare IMAGE: describes the disc, picks its family and
// installer, writes the answer file and the media, and says what the host
// must attach to the new machine.
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "guestprep/medium.h"
#include "platform/abi.h"
#include "tools/cli.h"
#include "tools/json.h"
#include "tools/prepare.h"

namespace gp::cli {
namespace {

constexpr const char kName[] = "prepare";

// The options that take a value, and the entry each one fills.
const std::map<std::string, std::string> kValueOptions = {
    {"--user", "user"},
    {"--full-name", "full_name"},
    {"--password", "password"},
    {"--root-password", "root_password"},
    {"--edition", "edition"},
    {"--language", "language"},
    {"--time-zone", "time_zone"},
    {"--hostname", "hostname"},
    {"--product-key", "product_key"},
    {"--firmware", "firmware"},
    {"--template-dir", "template_dir"},
    {"--repo", "repo_url"},
};

const std::map<std::string, std::string> kFlags = {
    {"--bypass-requirements", "bypass_requirements"},
    {"--no-prompt", "no_prompt"},
    {"--power-off", "power_off"},
};

struct Request {
  std::string image;
  std::string out;
  Json entries = Json::object();
  bool json = false;
};

bool refuse(const std::string &why) {
  std::fprintf(stderr, "guestprep %s: %s\n", kName, why.c_str());
  return false;
}

bool parse(const Args &args, Request &r) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string &a = args[i];
    auto value = kValueOptions.find(a);
    auto flag = kFlags.find(a);
    if (a == "--json") {
      r.json = true;
    } else if (flag != kFlags.end()) {
      r.entries[flag->second] = true;
    } else if ((value != kValueOptions.end() || a == "--out") &&
               i + 1 < args.size()) {
      const std::string &text = args[++i];
      if (a == "--out") {
        r.out = text;
      } else {
        r.entries[value->second] = text;
      }
    } else if (r.image.empty() && !a.empty() && a[0] != '-') {
      r.image = a;
    } else {
      return refuse("unexpected argument '" + a + "'");
    }
  }
  if (r.image.empty()) {
    return refuse("the image is required");
  }
  if (r.out.empty()) {
    return refuse("--out is required");
  }
  for (const auto &[option, key] : kValueOptions) {
    bool required = key == "user" || key == "full_name" || key == "password" ||
                    key == "root_password";
    if (required && !r.entries.contains(key)) {
      return refuse(option + " is required");
    }
  }
  if (r.entries.contains("firmware") && r.entries["firmware"] != "uefi" &&
      r.entries["firmware"] != "bios") {
    return refuse("--firmware must be uefi or bios");
  }
  return true;
}

std::string text(const Json &value) {
  return value.is_string() ? value.get<std::string>() : "(none)";
}

void printAttachments(const Json &result) {
  std::printf("path:          %s\n", text(result["path"]).c_str());
  std::printf("installer:     %s\n", text(result["installer"]).c_str());
  std::printf("answer file:   %s\n", text(result["answer_file"]).c_str());
  std::printf("boot image:    %s\n", text(result["boot_image"]).c_str());
  std::printf("second medium: %s\n", text(result["second_medium"]).c_str());
  if (result["floppy"].is_string()) {
    std::printf("floppy:        %s\n", text(result["floppy"]).c_str());
  }
  std::printf("firmware:      %s\n", text(result["firmware"]).c_str());
  std::printf("boot keypress: %s\n",
              result["boot_keypress"] == true
                  ? "yes (the disc asks to press any key to boot from it)"
                  : "no");
}

}  // namespace

int prepareAny(const Args &all) {
  Request request;
  if (!parse(all, request)) {
    return usageError(kName);
  }
  if (std::string problem = readProblem(request.image); !problem.empty()) {
    reportFileError(request.image, problem);
    return 2;
  }
  std::string entries =
      request.entries.dump(-1, ' ', false, Json::error_handler_t::replace);
  MallocPtr<char> answer(Guestprep_PrepareInstall(
      request.image.c_str(), entries.c_str(), request.out.c_str()));
  Json result = answer ? Json::parse(answer.get(), nullptr, false) : Json();
  if (!result.is_object()) {
    std::fprintf(stderr, "guestprep %s: the library failed\n", kName);
    return 1;
  }
  if (result.contains("error")) {
    std::fprintf(stderr, "guestprep %s: %s\n", kName,
                 text(result["error"]).c_str());
    return result["status"] == 2 ? 2 : 1;
  }
  if (request.json) {
    printJson(result);
  } else {
    printAttachments(result);
  }
  return 0;
}

}  // namespace gp::cli
