#pragma once

// The user's template of a line: text with the names of fields in braces.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/format/message_fields.h"

namespace TamLogClient {

class TextTemplate {
 public:
  struct Part {
    std::string words;           // first this text
    std::optional<Field> field;  // then this field
  };

  // Parses a template such as "{time} {source}: {text}". {{ and }} are braces, \n \t \\ a line end, a tab and
  // a backslash. Returns nothing on failure; `problem` then states the fault and the expected form.
  static std::optional<TextTemplate> Parse(std::string_view text, std::string& problem);

  const std::vector<Part>& Parts() const { return parts; }

 private:
  std::vector<Part> parts;
};

}  // namespace TamLogClient
