#include <CLI/CLI.hpp>
#include <charconv>
#include <memory>
#include <string>

#include "tamlogctl/command_line.h"
#include "tamlogctl/show.h"

namespace TamLogCtl {

namespace {

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

// "all" or a number of messages.
std::optional<std::size_t> CountOf(const std::string& text) {
  std::size_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

std::string CheckCount(const std::string& text) {
  return CountOf(text) || text == "all" ? "" : "'" + text + "' is neither a number nor 'all'";
}

void DefineCount(CLI::App& verb, ShowOptions& to, const char* purpose) {
  verb.add_option_function<std::string>(
          "-n,--lines", [&to](const std::string& text) { to.last = CountOf(text); }, purpose)
      ->check(CheckCount)
      ->option_text("N|all");
}

void DefineFollowing(CLI::App& verb, ShowOptions& to) {
  verb.add_option("--interval", to.intervalMs, "When following: how often to look, in milliseconds (100)")
      ->check(CLI::Range(10, 60000))
      ->option_text("MS");
  verb.add_option("--for", to.forSeconds, "When following: end by itself after so long")
      ->check(CLI::Range(0.0, 1e7))
      ->option_text("SECONDS");
}

void DefineReading(CLI::App& verb, ShowOptions& to) {
  DefineOutputOptions(verb, to.output);
  DefineSelectionOptions(verb, to.selection);
  verb.add_flag("-q,--quiet", to.quiet, "Say nothing on stderr that is not an error");
  DefineCommonOptions(verb, to);
}

void Check(const ShowOptions& options) {
  if (options.follow && !options.files.empty()) {
    throw CLI::ValidationError("--file", "a copied log does not grow; leave out -f");
  }
  if (options.follow && options.reverse) {
    throw CLI::ValidationError("-r", "cannot be used with -f: new messages come last");
  }
  CheckSelectionOptions(options.selection);
}

constexpr std::size_t kFollowedLines = 10;  // with which following begins

void DefineShow(CLI::App& app, Action& chosen) {
  const auto options = std::make_shared<ShowOptions>();
  CLI::App* verb = app.add_subcommand("show", "Print messages, oldest first (the default)");
  verb->footer(kShowFooter);
  DefineCount(*verb, *options, "The last N that match, or all");
  verb->add_flag("-r,--reverse", options->reverse, "Newest first");
  verb->add_flag("-f,--follow", options->follow, "Go on with what comes");
  verb->add_option("--file", options->files, "Read a copy of the log file (repeatable, merged by time)")
      ->allow_extra_args(false)
      ->option_text("FILE");
  DefineFollowing(*verb, *options);
  DefineReading(*verb, *options);
  verb->callback([verb, options, &chosen] {
    if (options->follow && verb->count("--lines") == 0) options->last = kFollowedLines;
    Check(*options);
    chosen = [options] { return options->files.empty() ? ShowLive(*options) : ShowFiles(*options); };
  });
}

void DefineFollow(CLI::App& app, Action& chosen) {
  const auto options = std::make_shared<ShowOptions>();
  options->follow = true;
  options->last = kFollowedLines;
  CLI::App* verb = app.add_subcommand("follow", "Print the last 10 messages and go on with what comes");
  verb->footer(kFollowFooter);
  DefineCount(*verb, *options, "Begin with the last N that match, or all");
  DefineFollowing(*verb, *options);
  DefineReading(*verb, *options);
  verb->callback([options, &chosen] {
    Check(*options);
    chosen = [options] { return ShowLive(*options); };
  });
}

}  // namespace

void DefineShowVerbs(CLI::App& app, Action& chosen) {
  DefineShow(app, chosen);
  DefineFollow(app, chosen);
}

}  // namespace TamLogCtl
