// Runs arbitrary bytes through the escapers of today's answer files and
// through the template filler, as a template. Whatever an escaper accepts
// must come out without a character that would end its context.
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "lib/medium/answer_escape.h"
#include "lib/medium/answer_template.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string_view text(reinterpret_cast<const char *>(data), size);
  using namespace gp::medium;

  if (std::optional<std::string> yaml = yamlQuoted(text)) {
    // Quoted, with every inner quote escaped and no raw line break.
    if (yaml->size() < 2 || yaml->front() != '"' || yaml->back() != '"' ||
        yaml->find_first_of("\n\r") != std::string::npos) {
      std::abort();
    }
    for (size_t i = 1; i + 1 < yaml->size(); ++i) {
      if ((*yaml)[i] == '\\') {
        ++i;
      } else if ((*yaml)[i] == '"') {
        std::abort();
      }
    }
  }
  if (std::optional<std::string> xml = xmlEscaped(text)) {
    if (xml->find_first_of("<>\"'") != std::string::npos) std::abort();
  }
  std::string word = kickstartWord(text);
  if (word != text &&
      (word.size() < 2 || word.front() != '\'' || word.back() != '\'')) {
    std::abort();
  }
  if (fitsDebconfValue(text) && text.find('\n') != std::string_view::npos) {
    std::abort();
  }

  TemplateValues values = {{"a", "x"}, {"user", "{{user}}"}};
  std::string out, error;
  if (fillAnswerTemplate(text, values, "fuzz", out, error)) {
    // A value is never read as a placeholder again: the output is bounded
    // by the input and the values.
    if (out.size() > size * 4 + 16) std::abort();
  } else if (error.empty()) {
    std::abort();
  }
  return 0;
}
