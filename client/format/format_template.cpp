#include "client/format/format_template.h"

#include <utility>

namespace TamLogClient {

namespace {

// Reads a template from its front.
class Reader {
 public:
  Reader(std::string_view text, std::string& toSay) : all(text), rest(text), problem(toSay) {}

  bool AtEnd() const { return rest.empty(); }

  // Reads one character, or one field, which is then in `part`.
  bool Step(TextTemplate::Part& part) {
    const char first = Take();
    if (first == '\\') return TakeEscape(part.words);
    if (first == '{') return TakeSame('{', part.words) || TakeField(part);
    if (first == '}') return TakeSame('}', part.words) || Fail("has a } without a {; write }} for a brace");
    part.words += first;
    return true;
  }

 private:
  char Take() {
    const char first = rest.front();
    rest.remove_prefix(1);
    return first;
  }

  bool TakeSame(char brace, std::string& words) {
    if (rest.empty() || rest.front() != brace) return false;
    words += Take();
    return true;
  }

  bool TakeEscape(std::string& words) {
    const char letter = rest.empty() ? '\0' : Take();
    if (letter != 'n' && letter != 't' && letter != '\\')
      return Fail("has a backslash that is not followed by n, t or a backslash; write \\\\ for a backslash");
    words += letter == 'n' ? '\n' : letter == 't' ? '\t' : '\\';
    return true;
  }

  bool TakeField(TextTemplate::Part& part) {
    const std::size_t end = rest.find_first_of("{}");
    if (end == std::string_view::npos || rest[end] == '{')
      return Fail("has a { without a }; write {{ for a brace");
    const std::string_view name = rest.substr(0, end);
    part.field = FieldFromName(name);
    if (!part.field) {
      problem = "unknown field {" + std::string(name) + "}; the fields are " + std::string(kFieldNames) +
                ", and {{ for a brace";
      return false;
    }
    rest.remove_prefix(end + 1);
    return true;
  }

  bool Fail(const char* what) {
    problem = "'" + std::string(all) + "' " + what;
    return false;
  }

  std::string_view all;
  std::string_view rest;
  std::string& problem;
};

}  // namespace

std::optional<TextTemplate> TextTemplate::Parse(std::string_view text, std::string& problem) {
  TextTemplate made;
  Reader reader(text, problem);
  Part part;
  while (!reader.AtEnd()) {
    if (!reader.Step(part)) return std::nullopt;
    if (part.field) made.parts.push_back(std::exchange(part, Part{}));
  }
  if (!part.words.empty()) made.parts.push_back(std::move(part));
  return made;
}

}  // namespace TamLogClient
