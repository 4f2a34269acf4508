#pragma once

// Options whose value is one of a few words. The parser's own check would print the values instead of the
// words.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace TamLogCtl {

// Defines the option `name`, or the operand of that name. The user's word chooses the value of `to`, which
// has to outlive `verb`.
template <typename Value>
CLI::Option* DefineChoice(CLI::App& verb, const std::string& name, Value& to, const std::string& purpose,
                          std::vector<std::pair<std::string, Value>> choices) {
  std::string words;
  for (const auto& [word, value] : choices) words += (words.empty() ? "" : "|") + word;
  return verb
      .add_option_function<std::string>(
          name,
          [choices, &to](const std::string& text) {
            for (const auto& [word, value] : choices) {
              if (word == text) to = value;
            }
          },
          purpose)
      ->check([choices, words](const std::string& text) {
        const bool known = std::any_of(choices.begin(), choices.end(),
                                       [&text](const auto& choice) { return choice.first == text; });
        return known ? std::string() : "'" + text + "': expected " + words;
      })
      ->option_text(words);
}

}  // namespace TamLogCtl
