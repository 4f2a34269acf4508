#pragma once

// Which messages are wanted: the options that every verb which reads messages has.

#include <optional>
#include <string>
#include <vector>

#include "client/message_selection.h"

namespace CLI {
class App;
}

namespace TamLogCtl {

struct SelectionOptions {
  std::vector<std::string> sources;
  std::vector<std::string> excludedSources;
  std::string types;
  std::string pattern;
  bool fixedPattern = false;
  bool ignoreCase = false;
  std::string since;
  std::string until;
};

void DefineSelectionOptions(CLI::App& verb, SelectionOptions& to);

// Throws the parser's error when options contradict each other.
void CheckSelectionOptions(const SelectionOptions& options);

// Nothing, after a word on stderr, when an option's value makes no sense.
std::optional<TamLogClient::MessageSelection> MakeSelection(const SelectionOptions& options);

}  // namespace TamLogCtl
