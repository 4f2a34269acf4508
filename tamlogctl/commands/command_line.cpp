#include "tamlogctl/commands/command_line.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/suggestion.h"
#include "tamlogctl/commands/completer.h"
#include "tamlogctl/commands/help.h"
#include "tamlogctl/commands/parser.h"
#include "tamlogctl/commands/topics.h"
#include "tamlogctl/commands/verbs.h"

namespace TamLogCtl {

namespace {

// Inserts the verb that a group of verbs runs when none of them is named: "settings" is "settings get".
void InsertVerbOfGroup(const Verb& program, std::vector<std::string>& arguments) {
  const auto hasName = [&arguments](const Verb& verb) { return verb.name == arguments.front(); };
  const auto group = std::find_if(program.verbs.begin(), program.verbs.end(), hasName);
  if (group == program.verbs.end() || group->alone.empty()) return;
  const std::string next = arguments.size() > 1 ? arguments[1] : "";
  const bool isOption = next.size() > 1 && next.front() == '-' && next != "--help" && next != "-h";
  if (arguments.size() == 1 || isOption) arguments.insert(arguments.begin() + 1, group->alone);
}

// Reports a word that resembles a topic and no verb; returns false for any other.
bool SuggestTopic(const std::string& word) {
  std::vector<std::string> topics;
  for (const Topic& topic : Topics()) topics.emplace_back(topic.name);
  std::vector<std::string> verbs;
  for (const Verb& verb : MakeProgram().verbs) verbs.push_back(verb.name);
  const std::string nearest = NearestWord(word, topics);
  if (nearest.empty() || !NearestWord(word, verbs).empty()) return false;
  Say("there is no verb or topic '" + word + "'; did you mean 'tamlogctl help " + nearest + "'?");
  return true;
}

int WriteHelp(std::string_view text) {
  return WriteOut(LaidOut(text, StdoutColumns())) ? kDone : kOutputFailed;
}

}  // namespace

std::optional<Action> ParseCommandLine(std::vector<std::string> arguments, int& exitCode) {
  // Without a verb the program runs `show`.
  const std::string first = arguments.empty() ? "" : arguments.front();
  if (first == "--version" || first == "version") {
    exitCode = WriteOut("tamlogctl " TAMLOG_VERSION "\n") ? kDone : kOutputFailed;
    return std::nullopt;
  }
  if (first == kCompleteWord) {
    arguments.erase(arguments.begin());
    exitCode = WriteOut(CompletionLines(MakeProgram(), arguments)) ? kDone : kOutputFailed;
    return std::nullopt;
  }
  if (first == "help") {
    const Topic* const topic = arguments.size() == 2 ? FindTopic(arguments.back()) : nullptr;
    if (topic != nullptr) {
      exitCode = WriteHelp(topic->text);
      return std::nullopt;
    }
    if (arguments.size() == 2 && SuggestTopic(arguments.back())) {
      exitCode = kUsage;
      return std::nullopt;
    }
    arguments.erase(arguments.begin());
    arguments.emplace_back("--help");
  } else if (first.empty() || (first.front() == '-' && first != "--help" && first != "-h")) {
    arguments.insert(arguments.begin(), "show");
  }
  const Verb program = MakeProgram();
  InsertVerbOfGroup(program, arguments);
  const Parsed parsed = Parse(program, std::move(arguments));
  if (!parsed.help.empty()) {
    exitCode = WriteHelp(parsed.help);
    return std::nullopt;
  }
  if (!parsed.problem.empty()) {
    Say(parsed.problem);
    Say("see: " + parsed.path + " --help");
    exitCode = kUsage;
    return std::nullopt;
  }
  return parsed.verb->run;
}

}  // namespace TamLogCtl
