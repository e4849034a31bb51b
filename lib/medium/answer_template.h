// The templates of today's answer files: one directory per installer below
// the template directory (data/templates/<installer>/ in this tree), with
// {{name}} placeholders that the writers fill.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "lib/medium/install_entries.h"

namespace gp::medium {

// The template directory: entries.templateDir when set, else
// $GUESTPREP_TEMPLATEDIR when set, else where `cmake --install` puts the
// templates.
std::string answerTemplateRoot(const InstallEntries &entries);

// Reads <root>/<installer>/<file> into `text`; false with `error` naming
// the file and the reason otherwise.
bool loadAnswerTemplate(const InstallEntries &entries,
                        std::string_view installer, std::string_view file,
                        std::string &text, std::string &error);

using TemplateValues = std::map<std::string, std::string, std::less<>>;

// The template with each {{name}} replaced by values[name]. The values are
// inserted as they are: the caller escapes them for their place. False
// with `error` naming `templateName` and the placeholder when the template
// names a value that does not exist or leaves a "{{" unclosed.
bool fillAnswerTemplate(std::string_view templ, const TemplateValues &values,
                        std::string_view templateName, std::string &out,
                        std::string &error);

}  // namespace gp::medium
