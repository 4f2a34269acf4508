#include "tamlogctl/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <utility>

#include "tamlogctl/console.h"
#include "tamlogctl/exit_code.h"

namespace TamLogCtl {

namespace {

constexpr const char* kAppFooter =
    R"(With no verb, `show` is meant: `tamlogctl -n 20` shows the last 20 messages.

Examples:
  tamlogctl                                   all messages, oldest first
  tamlogctl follow                            the last 10, then what comes, until Ctrl-C
  tamlogctl send -s Demo "hello"              hands in one message
  tamlogctl status                            is the server running, how full is the log
  tamlogctl show --file Logs.dat -o json      a copied log, on any system

Exit codes: 0 done, 1 a negative answer (nothing matched, not stored, something found), 2 usage, 3 server or
file not there, 4 access denied,
5 time-out, 6 refused by the server, 7 damaged data met (output still given), 8 output failed,
130 interrupted. An empty log is not an error unless something was searched for.)";

class Parser {
 public:
  Parser() : app("Reads, follows and feeds the log of the Torvane Log Server.", "tamlogctl") {
    app.footer(kAppFooter);
    app.require_subcommand(1);
    // Verbs take this over. On Windows the parser would otherwise take "/dev/null is gone" for an option.
    app.allow_windows_style_options(false);
    DefineShowVerbs(app, chosen);
    DefineStatsVerb(app, chosen);
    DefineSendVerbs(app, chosen);
    DefineFilterVerbs(app, chosen);
    DefineSettingsVerbs(app, chosen);
    DefineServerVerbs(app, chosen);
    DefineFileVerbs(app, chosen);
    DefineCompletionVerbs(app, chosen);
    app.add_subcommand("help", "Show help, also for one verb: tamlogctl help send");
    app.add_subcommand("version", "Show the version");
  }

  bool IsVerb(const std::string& word) const;
  std::string Verbs() const;
  std::optional<Action> Parse(std::vector<std::string> arguments, int& exitCode);

 private:
  CLI::App app;
  Action chosen;
};

bool Parser::IsVerb(const std::string& word) const {
  const auto verbs = app.get_subcommands(nullptr);
  return std::any_of(verbs.begin(), verbs.end(),
                     [&](const CLI::App* verb) { return verb->check_name(word); });
}

std::string Parser::Verbs() const {
  std::string list;
  for (const CLI::App* verb : app.get_subcommands(nullptr))
    list += (list.empty() ? "" : ", ") + verb->get_name();
  return list;
}

std::optional<Action> Parser::Parse(std::vector<std::string> arguments, int& exitCode) {
  const std::string verb = arguments.front();
  try {
    std::reverse(arguments.begin(), arguments.end());  // as the parser wants them
    app.parse(arguments);
    return chosen;
  } catch (const CLI::CallForHelp&) {
    // Of the innermost verb that was named: `filter add --help` is about add.
    const CLI::App* about = &app;
    std::string path;
    while (!about->get_subcommands().empty()) {
      path += (path.empty() ? "" : " ") + about->get_name();
      about = about->get_subcommands().front();
    }
    WriteOut(about->help(path));
    exitCode = kDone;
  } catch (const CLI::ParseError& error) {
    Say(std::string(error.what()));
    Say(IsVerb(verb) ? "see: tamlogctl " + verb + " --help" : "see: tamlogctl --help");
    exitCode = kUsage;
  }
  return std::nullopt;
}

}  // namespace

void DefineCommonOptions(CLI::App& verb, CommonOptions& to) {
  verb.add_option("--color", to.color, "When to colour: auto, always or never (NO_COLOR is respected)")
      ->transform(CLI::CheckedTransformer(std::map<std::string, Color>{
          {"auto", Color::Auto}, {"always", Color::Always}, {"never", Color::Never}}))
      ->option_text("auto|always|never");
  verb.add_option("--timeout", to.timeoutMs, "How long to wait for the server, in milliseconds (5000)")
      ->check(CLI::Range(1, 600000))
      ->option_text("MS");
}

std::optional<Action> ParseCommandLine(std::vector<std::string> arguments, int& exitCode) {
  // With no verb `show` is meant. A first word that is no option may be a misspelt verb: that is told as
  // such.
  const std::string first = arguments.empty() ? "" : arguments.front();
  if (first == "--version" || first == "version") {
    WriteOut("tamlogctl " TAMLOG_VERSION "\n");
    exitCode = kDone;
    return std::nullopt;
  }
  if (first == "help") {
    arguments.erase(arguments.begin());
    arguments.emplace_back("--help");
  } else if (first.empty() || (first.front() == '-' && first != "--help" && first != "-h")) {
    arguments.insert(arguments.begin(), "show");
  }
  Parser parser;
  const std::string verb = arguments.front();
  if (!verb.empty() && verb.front() != '-' && !parser.IsVerb(verb)) {
    Say("there is no verb '" + verb + "'; verbs are " + parser.Verbs());
    exitCode = kUsage;
    return std::nullopt;
  }
  return parser.Parse(std::move(arguments), exitCode);
}

}  // namespace TamLogCtl
