// The JSON output of the command line.
#include "tools/json.h"

#include <algorithm>
#include <cstdio>

namespace gp::cli {

bool takeFlag(Args &args, const char *flag) {
  auto end = std::find(args.begin(), args.end(), "--");
  auto kept = std::remove(args.begin(), end, flag);
  bool found = kept != end;
  args.erase(kept, end);
  return found;
}

Json jsonText(const char *text) {
  return text == nullptr ? Json(nullptr) : Json(text);
}

void printJson(const Json &doc) {
  std::string text = doc.dump(-1, ' ', false, Json::error_handler_t::replace);
  std::printf("%s\n", text.c_str());
}

}  // namespace gp::cli
