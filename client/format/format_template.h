#pragma once

// A line that a user has laid out: words with the names of fields in braces.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/format/message_fields.h"

namespace TamLogClient {

class TextTemplate {
 public:
  struct Part {
    std::string words;           // come first
    std::optional<Field> field;  // and then this
  };

  // "{time} {source}: {text}". {{ and }} are braces, \n \t \\ a line end, a tab and a backslash. On failure
  // the result is empty and `problem` says what is wrong and what would be right.
  static std::optional<TextTemplate> Parse(std::string_view text, std::string& problem);

  const std::vector<Part>& Parts() const { return parts; }

 private:
  std::vector<Part> parts;
};

}  // namespace TamLogClient
