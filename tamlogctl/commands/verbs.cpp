#include "tamlogctl/commands/verbs.h"

#include <iterator>
#include <utility>

#include "tamlogctl/commands/shared_options.h"
#include "tamlogctl/commands/topics.h"

namespace TamLogCtl {

namespace {

constexpr const char* kFooter =
    R"(Without a verb the program runs `show`: `tamlogctl -n 20` prints the last 20 messages.

Examples:
  tamlogctl                                   all messages, oldest first
  tamlogctl follow                            the last 10, then new ones, until Ctrl-C
  tamlogctl send -s Demo "hello"              sends one message
  tamlogctl status                            is the server running, how full is the log
  tamlogctl show --file Logs.dat -o json      a copied log, on any system

Topics: tamlogctl help times, expressions, formats, exit-status, environment, files)";

void Append(std::vector<Verb> more, std::vector<Verb>& to) {
  to.insert(to.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

// Verbs that are answered before any other is looked for.
Verb Answered(const char* name, const char* purpose) {
  Verb verb;
  verb.name = name;
  verb.purpose = purpose;
  return verb;
}

// Only the completions and the help use it.
Option WordsOfHelp(const Verb& program) {
  std::vector<std::string> words;
  for (const Verb& verb : program.verbs) words.push_back(verb.name);
  for (const Topic& topic : Topics()) words.emplace_back(topic.name);
  Option option = Words(
      "VERB", words, [](std::size_t) {}, "A verb or a topic");
  option.operand = "VERB|TOPIC";
  return option;
}

void AddHelp(Verb& verb) {
  Option help = Flag("-h,--help", std::function<void()>(), "Print this help and exit");
  help.take = nullptr;  // the parser answers it
  help.group = kOptionsOfAll;
  verb.Add({std::move(help)});
  for (Verb& child : verb.verbs) AddHelp(child);
}

}  // namespace

Verb MakeProgram() {
  Verb program;
  program.name = "tamlogctl";
  program.purpose = "Reads, follows and feeds the log of the Torvane Log Server.";
  program.footer = kFooter;
  Append(ShowVerbs(), program.verbs);
  program.verbs.push_back(StatsVerb());
  program.verbs.push_back(SendVerb());
  program.verbs.push_back(FilterVerb());
  Append(SettingsVerbs(), program.verbs);
  Append(ServerVerbs(), program.verbs);
  Append(FileVerbs(), program.verbs);
  Append(ImportVerbs(), program.verbs);
  Append(CompletionVerbs(), program.verbs);
  Verb help = Answered("help", "Show help, also for one verb or topic: tamlogctl help send");
  help.Add({WordsOfHelp(program)});
  program.verbs.push_back(std::move(help));
  program.verbs.push_back(Answered("version", "Show the version"));
  AddHelp(program);
  return program;
}

}  // namespace TamLogCtl
