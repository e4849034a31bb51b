#include "platform/msgcatalog.h"

#include "platform/fatal.h"

namespace gp::msg {
namespace {

std::string &pending() {
  static std::string text;
  return text;
}

}  // namespace

bool split(std::string_view message, std::string_view &id,
           std::string_view &defaultText) {
  id = {};
  defaultText = {};
  if (message.substr(0, kMarker.size()) != kMarker) {
    return false;
  }
  std::string_view rest = message.substr(kMarker.size());
  std::string_view::size_type close = rest.find(')');
  if (close == std::string_view::npos) {
    return false;
  }
  id = rest.substr(0, close);
  defaultText = rest.substr(close + 1);
  return true;
}

std::string get(std::string_view message) {
  std::string_view id;
  std::string_view text;
  if (!split(message, id, text)) {
    return std::string(message);
  }
  return std::string(text);
}

char *getHeap(std::string_view message) { return heapCopy(get(message)); }

void appendPending(std::string_view text) { pending().append(text); }

std::string takePending() {
  std::string out;
  out.swap(pending());
  return out;
}

}  // namespace gp::msg
