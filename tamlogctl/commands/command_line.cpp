#include "tamlogctl/commands/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <set>
#include <utility>

#include "tamlogctl/base/choice_option.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"

namespace TamLogCtl {

namespace {

// Some of the parser's own texts neither name what was given nor say what to do.
std::string UsageProblem(const CLI::App& verb, const CLI::ParseError& error) {
  std::string text = error.what();
  const std::string name = text.substr(0, text.find(':'));
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
    const std::vector<std::string> words = verb.remaining();
    const auto isOption = [](const std::string& word) { return word.size() > 1 && word.front() == '-'; };
    const auto option = std::find_if(words.begin(), words.end(), isOption);
    if (option != words.end()) return "there is no option '" + *option + "'";
    if (!words.empty()) return "'" + words.front() + "' is one word too many";
  }
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
    if (text.ends_with(" missing")) return name + ": give a value behind it";
    if (text.find(": At Most ") != std::string::npos) return name + ": is there twice; give it once";
  }
  if (dynamic_cast<const CLI::ConversionError*>(&error) != nullptr && text.find(" = ") != std::string::npos) {
    const std::size_t begin = text.find(": ") + 2;
    const std::size_t sign = text.find(" = ");
    return text.substr(begin, sign - begin) + ": '" + text.substr(sign + 3) + "': expected a number";
  }
  return text;
}

// Texts and names may be empty. Anywhere else an empty value is a variable of a script that is not set, and
// whoever took it for nothing would show, or send, more than was meant.
bool MayBeEmpty(const CLI::Option& option) {
  static const std::set<std::string> texts{"TEXT",      "SOURCE", "--source",       "--include",
                                           "--exclude", "--grep", "--not-matching", "--highlight"};
  return texts.contains(option.get_name());
}

void RefuseEmptyValues(CLI::App& app) {
  const auto check = [](const std::string& value) {
    return value.empty() ? "the value is empty; give one, or leave the option out" : "";
  };
  for (CLI::Option* option : app.get_options()) {
    if (option->get_items_expected_max() > 0 && !MayBeEmpty(*option)) option->check(check);
  }
  for (CLI::App* verb : app.get_subcommands(nullptr)) RefuseEmptyValues(*verb);
}

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
    RefuseEmptyValues(app);
    app.add_subcommand("help", "Show help, also for one verb: tamlogctl help send");
    app.add_subcommand("version", "Show the version");
  }

  bool IsVerb(const std::string& word) const;
  std::string Verbs() const;
  std::optional<Action> Parse(std::vector<std::string> arguments, int& exitCode);

 private:
  std::pair<const CLI::App&, std::string> Innermost() const;

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
  try {
    std::reverse(arguments.begin(), arguments.end());  // as the parser wants them
    app.parse(arguments);
    return chosen;
  } catch (const CLI::CallForHelp&) {
    const auto [verb, before] = Innermost();
    exitCode = WriteOut(verb.help(before)) ? kDone : kOutputFailed;
  } catch (const CLI::ParseError& error) {
    const auto [verb, before] = Innermost();
    Say(UsageProblem(verb, error));
    Say("see: " + (before.empty() ? "" : before + " ") + verb.get_name() + " --help");
    exitCode = kUsage;
  }
  return std::nullopt;
}

// The innermost verb that was named, and the words before it: `filter add --help` is about add.
std::pair<const CLI::App&, std::string> Parser::Innermost() const {
  const CLI::App* verb = &app;
  std::string before;
  while (!verb->get_subcommands().empty()) {
    before += (before.empty() ? "" : " ") + verb->get_name();
    verb = verb->get_subcommands().front();
  }
  return {*verb, before};
}

}  // namespace

void DefineCommonOptions(CLI::App& verb, CommonOptions& to) {
  DefineChoice(verb, "--color", to.color, "When to colour: auto, always or never (NO_COLOR is respected)",
               {{"auto", Color::Auto}, {"always", Color::Always}, {"never", Color::Never}});
  verb.add_option("--timeout", to.timeoutMs, "How long to wait for the server, in milliseconds (5000)")
      ->check(CLI::Range(1, 600000))
      ->option_text("MS");
}

std::optional<Action> ParseCommandLine(std::vector<std::string> arguments, int& exitCode) {
  // With no verb `show` is meant. A first word that is no option may be a misspelt verb: that is told as
  // such.
  const std::string first = arguments.empty() ? "" : arguments.front();
  if (first == "--version" || first == "version") {
    exitCode = WriteOut("tamlogctl " TAMLOG_VERSION "\n") ? kDone : kOutputFailed;
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
