#include "tamlogctl/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <limits>
#include <string_view>
#include <utility>

#include "tamlogctl/console.h"
#include "tamlogctl/exit_code.h"

namespace TamLogCtl {

namespace {

constexpr std::array<std::string_view, 6> kVerbs{"show", "follow", "send", "status", "help", "version"};

constexpr const char* kAppFooter =
    R"(With no verb, `show` is meant: `tamlogctl -n 20` shows the last 20 messages.

Examples:
  tamlogctl                                   all messages, oldest first
  tamlogctl follow                            the last 10, then what comes, until Ctrl-C
  tamlogctl send -s Demo "hello"              hands in one message
  tamlogctl status                            is the server running, how full is the log
  tamlogctl show --file Logs.dat -o json      a copied log, on any system

Exit codes: 0 done, 1 nothing matched, 2 usage, 3 server or file not there, 4 access denied,
5 time-out, 6 refused by the server, 7 damaged data met (output still given), 8 output failed,
130 interrupted. An empty log is not an error unless something was searched for.)";

constexpr const char* kShowFooter = R"(Examples:
  tamlogctl show -n 20 -s Camera:2,3          the last 20 of Camera with type 2 or 3
  tamlogctl show -S -15m -g "timed? out"      of the last 15 minutes, texts that match
  tamlogctl show --file Logs.dat -o csv > log.csv
                                              a copied log as a table

Formats: short  2026-01-02 03:04:05.678 T2 Camera: text
         full   the same with sequence number, origin, spare and tail
         cat    the texts alone
         json   one object a line     tsv  time, type, source, text     csv  with a head line
An impossible date is shown as its raw words: !2026,13,40,0,0,0,0)";

constexpr const char* kFollowFooter =
    R"(Goes on over a restart of the server, and says so. A message that is older than one shown before is
marked (late). Messages that were overwritten before they could be read are counted on stderr.

Examples:
  tamlogctl follow                            the last 10 messages, then what comes
  tamlogctl follow -n 0 -s "Cam*" -o json     only new ones of sources that begin with Cam
  tamlogctl follow --for 30 > half-minute.txt ends by itself after 30 seconds)";

constexpr const char* kSendFooter =
    R"(Without TEXT each line of standard input is one message. A text has at most 256 bytes; a longer one is
refused, with its line, unless --truncate or --split says otherwise.

Examples:
  tamlogctl send -s Demo -t 1 "door opened"   one message, with the time of now
  dmesg | tamlogctl send -s Kernel --truncate one message a line
  tamlogctl send --input tsv saved.tsv        what `show -o tsv` wrote, with its times and sources)";

constexpr const char* kStatusFooter =
    R"(Exit code 0 when the server answers and shares its log, 3 when it is not running, 5 when only one of the
two works.

Examples:
  tamlogctl status                            for people
  tamlogctl status -o json                    for programs
  tamlogctl status >nul && echo running       for scripts)";

bool IsVerb(const std::string& word) {
  return std::find(kVerbs.begin(), kVerbs.end(), word) != kVerbs.end();
}

// "all" or a number of messages.
std::string CheckCount(const std::string& text) {
  std::size_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool number = error == std::errc() && end == text.data() + text.size();
  return number || text == "all" ? "" : "'" + text + "' is neither a number nor 'all'";
}

std::optional<std::size_t> CountOf(const std::string& text) {
  std::size_t value = 0;
  if (text == "all") return std::nullopt;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

class Parser {
 public:
  Parser() : app("Reads, follows and feeds the log of the Torvane Log Server.", "tamlogctl") { Define(); }

  std::optional<Options> Parse(std::vector<std::string> arguments, int& exitCode);

 private:
  void Define();
  void DefineSelection(CLI::App& verb);
  void DefineShow();
  void DefineFollow();
  void DefineSend();
  void DefineStatus();
  void DefineCommon(CLI::App& verb);
  std::optional<Options> Finish();

  CLI::App app;
  Options options;
  std::string showCount = "all";
  std::string followCount = "10";
  CLI::App* show = nullptr;
  CLI::App* follow = nullptr;
  CLI::App* send = nullptr;
  CLI::App* status = nullptr;
  CLI::Option* showCountOption = nullptr;
  CLI::Option* sendText = nullptr;
  bool truncate = false;
  bool split = false;
  std::string statusFormat = "text";
};

void Parser::Define() {
  app.footer(kAppFooter);
  app.require_subcommand(1);
  DefineShow();
  DefineFollow();
  DefineSend();
  DefineStatus();
  app.add_subcommand("help", "Show help, also for one verb: tamlogctl help send");
  app.add_subcommand("version", "Show the version");
}

void Parser::DefineCommon(CLI::App& verb) {
  verb.add_option("--color", options.color, "When to colour: auto, always or never (NO_COLOR is respected)")
      ->transform(CLI::CheckedTransformer(std::map<std::string, Color>{
          {"auto", Color::Auto}, {"always", Color::Always}, {"never", Color::Never}}))
      ->option_text("auto|always|never");
  verb.add_option("--timeout", options.timeoutMs, "How long to wait for the server, in milliseconds (5000)")
      ->check(CLI::Range(1, 600000))
      ->option_text("MS");
}

void Parser::DefineSelection(CLI::App& verb) {
  ShowOptions& to = options.show;
  verb.add_option("-o,--output", to.format, "Format: short, full, cat, json, tsv, csv")
      ->check(CLI::IsMember({"short", "full", "cat", "json", "ndjson", "tsv", "csv"}))
      ->option_text("FORMAT");
  verb.add_option("-s,--source", to.sources, "Only this source, of these types (NAME may hold *; repeatable)")
      ->allow_extra_args(false)
      ->option_text("NAME[:TYPES]");
  verb.add_option("-x,--exclude", to.excludedSources,
                  "Not this source, or not these of its types (repeatable)")
      ->allow_extra_args(false)
      ->option_text("NAME[:TYPES]");
  verb.add_option("-t,--type", to.types, "Only these types: 0,2 or 1-3")->option_text("LIST");
  verb.add_option("-g,--grep", to.pattern, "Only texts that match this regular expression")
      ->option_text("RE");
  verb.add_flag("-F,--fixed", to.fixedPattern, "The expression of -g is plain text");
  verb.add_flag("-i,--ignore-case", to.ignoreCase, "Ignore case (all lower case in -g does so too)");
  verb.add_option("-S,--since", to.since, "Not older: YYYY-MM-DD [HH:MM[:SS[.mmm]]], today, yesterday, -15m")
      ->option_text("TIME");
  verb.add_option("-U,--until", to.until, "Not newer than this time")->option_text("TIME");
  verb.add_flag("-q,--quiet", to.quiet, "Say nothing on stderr that is not an error");
  DefineCommon(verb);
}

void Parser::DefineShow() {
  show = app.add_subcommand("show", "Print messages, oldest first (the default)");
  show->footer(kShowFooter);
  showCountOption = show->add_option("-n,--lines", showCount, "The last N that match, or all")
                        ->check(CheckCount)
                        ->option_text("N|all");
  show->add_flag("-r,--reverse", options.show.reverse, "Newest first");
  show->add_flag("-f,--follow", options.show.follow, "Go on with what comes");
  show->add_option("--file", options.show.files, "Read a copy of the log file (repeatable, merged by time)")
      ->allow_extra_args(false)
      ->option_text("FILE");
  show->add_option("--interval", options.show.intervalMs, "With -f: how often to look, in milliseconds (100)")
      ->check(CLI::Range(10, 60000))
      ->option_text("MS");
  show->add_option("--for", options.show.forSeconds, "With -f: end by itself after so long")
      ->check(CLI::Range(0.0, 1e7))
      ->option_text("SECONDS");
  DefineSelection(*show);
}

void Parser::DefineFollow() {
  follow = app.add_subcommand("follow", "Print the last 10 messages and go on with what comes");
  follow->footer(kFollowFooter);
  follow->add_option("-n,--lines", followCount, "Begin with the last N that match, or all")
      ->check(CheckCount)
      ->option_text("N|all");
  follow->add_option("--interval", options.show.intervalMs, "How often to look, in milliseconds (100)")
      ->check(CLI::Range(10, 60000))
      ->option_text("MS");
  follow->add_option("--for", options.show.forSeconds, "End by itself after so long")
      ->check(CLI::Range(0.0, 1e7))
      ->option_text("SECONDS");
  DefineSelection(*follow);
}

void Parser::DefineSend() {
  SendOptions& to = options.send;
  send = app.add_subcommand("send", "Hand in one message, or one for each line of standard input");
  send->footer(kSendFooter);
  sendText = send->add_option("TEXT", to.argument, "The message's text (with --input: a file to read)");
  send->add_option("-s,--source", to.source, "Who says it (tamlogctl)")->option_text("SOURCE");
  send->add_option("-t,--type", to.type, "Its type, 0 to 3 (0)")
      ->check(CLI::Range(0, 3))
      ->option_text("TYPE");
  send->add_option("--time", to.time, "Its time, YYYY-MM-DD HH:MM:SS.mmm (now)")->option_text("TIME");
  send->add_option("--input", to.input, "Lines of text, or of tsv: time, type, source, text")
      ->check(CLI::IsMember({"text", "tsv"}))
      ->option_text("text|tsv");
  auto* cut = send->add_flag("--truncate", truncate, "Cut a text of more than 256 bytes");
  send->add_flag("--split", split, "Send a text of more than 256 bytes as several messages")->excludes(cut);
  send->add_flag("--confirm", to.confirm,
                 "Wait until the message is seen in the log; exit code 1 if it is not");
  DefineCommon(*send);
}

void Parser::DefineStatus() {
  status = app.add_subcommand("status", "Show whether the server runs, its settings and how full the log is");
  status->footer(kStatusFooter);
  status->add_option("-o,--output", statusFormat, "Format: text or json")
      ->check(CLI::IsMember({"text", "json"}))
      ->option_text("text|json");
  DefineCommon(*status);
}

std::optional<Options> Parser::Finish() {
  if (show->parsed() || follow->parsed()) {
    options.verb = Verb::Show;
    options.show.follow = options.show.follow || follow->parsed();
    const bool lastTen = follow->parsed() || (options.show.follow && showCountOption->count() == 0);
    options.show.last = CountOf(lastTen ? followCount : showCount);
    if (options.show.follow && !options.show.files.empty()) {
      throw CLI::ValidationError("--file", "a copied log does not grow; leave out -f");
    }
    if (options.show.follow && options.show.reverse) {
      throw CLI::ValidationError("-r", "cannot be used with -f: new messages come last");
    }
    if (options.show.pattern.empty() && options.show.fixedPattern) {
      throw CLI::ValidationError("-F", "says how -g is meant; give -g as well");
    }
  } else if (send->parsed()) {
    options.verb = Verb::Send;
    options.send.hasArgument = sendText->count() > 0;
    if (truncate) options.send.longText = LongText::Truncate;
    if (split) options.send.longText = LongText::Split;
  } else {
    options.verb = Verb::Status;
    options.status.json = statusFormat == "json";
  }
  return options;
}

std::optional<Options> Parser::Parse(std::vector<std::string> arguments, int& exitCode) {
  std::string verb = arguments.empty() ? "show" : arguments.front();
  try {
    std::reverse(arguments.begin(), arguments.end());  // as the parser wants them
    app.parse(arguments);
    return Finish();
  } catch (const CLI::CallForHelp&) {
    const auto parsed = app.get_subcommands();
    WriteOut(parsed.empty() ? app.help() : parsed.front()->help("tamlogctl"));
    exitCode = kDone;
  } catch (const CLI::ParseError& error) {
    if (!IsVerb(verb)) verb = "help";
    Say(std::string(error.what()));
    Say(verb == "help" ? "see: tamlogctl --help" : "see: tamlogctl " + verb + " --help");
    exitCode = kUsage;
  }
  return std::nullopt;
}

}  // namespace

std::optional<Options> ParseCommandLine(std::vector<std::string> arguments, int& exitCode) {
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
    if (arguments.size() > 1) arguments.resize(1);
    arguments.emplace_back("--help");
  } else if (first.empty() || (first.front() == '-' && first != "--help" && first != "-h")) {
    arguments.insert(arguments.begin(), "show");
  }
  if (!arguments.front().empty() && arguments.front().front() != '-' && !IsVerb(arguments.front())) {
    Say("there is no verb '" + arguments.front() +
        "'; verbs are show, follow, send, status, help and version");
    exitCode = kUsage;
    return std::nullopt;
  }
  Parser parser;
  return parser.Parse(std::move(arguments), exitCode);
}

}  // namespace TamLogCtl
