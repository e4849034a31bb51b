// Filling the templates of today's answer files: {{name}} placeholders
// replaced with values that the writers have escaped for their places.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace gp::medium {

using TemplateValues = std::map<std::string, std::string, std::less<>>;

// The template with each {{name}} replaced by values[name]. The values are
// inserted as they are: the caller escapes them for their place. False
// with `error` naming `templateName` and the placeholder when the template
// names a value that does not exist or leaves a "{{" unclosed.
bool fillAnswerTemplate(std::string_view templ, const TemplateValues &values,
                        std::string_view templateName, std::string &out,
                        std::string &error);

}  // namespace gp::medium
