#include "tamlogctl/commands/verbs.h"

#include <iterator>

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

Exit codes: 0 done, 1 a negative answer (nothing matched, not stored, something found), 2 usage, 3 server or
file not found, 4 access denied, 5 time-out, 6 refused by the server, 7 damaged data (output still printed),
8 output failed, 130 interrupted. An empty log is not an error unless the command searched for something.)";

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

void AddHelp(Verb& verb) {
  Option help = Flag("-h,--help", std::function<void()>(), "Print this help and exit");
  help.take = nullptr;  // the parser answers it
  verb.options.insert(verb.options.begin(), std::move(help));
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
  program.verbs.push_back(Answered("help", "Show help, also for one verb: tamlogctl help send"));
  program.verbs.push_back(Answered("version", "Show the version"));
  AddHelp(program);
  return program;
}

}  // namespace TamLogCtl
