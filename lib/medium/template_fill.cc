#include "lib/medium/template_fill.h"

namespace gp::medium {

bool fillAnswerTemplate(std::string_view templ, const TemplateValues &values,
                        std::string_view templateName, std::string &out,
                        std::string &error) {
  out.clear();
  out.reserve(templ.size() + 1024);
  size_t pos = 0;
  while (pos < templ.size()) {
    size_t open = templ.find("{{", pos);
    if (open == std::string_view::npos) {
      out.append(templ.substr(pos));
      break;
    }
    out.append(templ.substr(pos, open - pos));
    size_t close = templ.find("}}", open + 2);
    if (close == std::string_view::npos) {
      error =
          "template " + std::string(templateName) + ": a \"{{\" is not closed";
      return false;
    }
    std::string_view name = templ.substr(open + 2, close - open - 2);
    auto found = values.find(name);
    if (found == values.end()) {
      error = "template " + std::string(templateName) +
              ": no value is called {{" + std::string(name) + "}}";
      return false;
    }
    out += found->second;
    pos = close + 2;
  }
  return true;
}

}  // namespace gp::medium
