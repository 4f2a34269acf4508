#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "tamlogctl/commands/command_line.h"
#include "tamlogctl/read/show.h"

namespace TamLogCtl {

namespace {

constexpr const char* kShowFooter = R"(Examples:
  tamlogctl show -n 20 -s Camera:2,3          the last 20 of Camera with type 2 or 3
  tamlogctl show -S -15m -g "timed? out"      of the last 15 minutes, texts that match
  tamlogctl show --file Logs.dat -o csv > log.csv
                                              a copied log as a table
  tamlogctl show --cursor-file done.txt       what has come since the last time
  tamlogctl show --count -t 3 -S today        how many of type 3 today

Formats: short  2026-01-02 03:04:05.678 T2 Camera: text
         full   the same with sequence number, origin, spare and tail
         cat    the texts alone
         json   one object a line     tsv  time, type, source, text     csv  with a head line
         json-array, export (for journals), rfc5424 (syslog), raw (the slots), template='{time} {text}'
An impossible date is shown as its raw words: !2026,13,40,0,0,0,0)";

constexpr const char* kFollowFooter =
    R"(Goes on over a restart of the server, and says so. A message that is older than one shown before is
marked (late). Messages that were overwritten before they could be read are counted on stderr.

Examples:
  tamlogctl follow                            the last 10 messages, then what comes
  tamlogctl follow -n 0 -s "Cam*" -o json     only new ones of sources that begin with Cam
  tamlogctl follow --ordered --cursor-file done.txt
                                              in strict time order, and on from there the next time
  tamlogctl follow --for 30 > half-minute.txt ends by itself after 30 seconds)";

void DefineFollowing(CLI::App& verb, ShowOptions& to) {
  verb.add_option("--interval", to.intervalMs, "When following: how often to look, in milliseconds (100)")
      ->check(CLI::Range(10, 60000))
      ->option_text("MS");
  verb.add_flag("--ordered", to.ordered, "When following: hold messages back until they are in time order");
  verb.add_option("--for", to.forSeconds, "When following: end by itself after so long")
      ->check(CLI::Range(0.0, 1e7))
      ->option_text("SECONDS");
}

void DefineReading(CLI::App& verb, ShowOptions& to) {
  DefineOutputOptions(verb, to.output);
  verb.add_option("--highlight", to.highlights,
                  "Mark what matches this expression (repeatable; with colours)")
      ->allow_extra_args(false)
      ->option_text("RE");
  DefineSelectionOptions(verb, to.selection);
  DefineContext(verb, to);
  DefineCursors(verb, to);
  DefineEvents(verb, to);
  verb.add_flag("-q,--quiet", to.quiet, "Say nothing on stderr that is not an error");
  DefineCommonOptions(verb, to);
}

void Refuse(const char* option, const char* mend) {
  throw CLI::ValidationError(option, mend);
}

void CheckFollowing(const ShowOptions& options, bool countGiven) {
  if (!options.files.empty()) Refuse("--file", "a copied log does not grow; leave out -f");
  if (options.reverse) Refuse("-r", "cannot be used with -f: new messages come last");
  if (options.count) Refuse("--count", "cannot be used with -f: there is no end to count to");
  if (countGiven && (!options.cursorFile.empty() || !options.afterCursor.empty())) {
    Refuse("-n", "cannot be used with -f and a cursor: all that comes after it is shown");
  }
}

void Check(const ShowOptions& options, bool countGiven) {
  if (options.follow) CheckFollowing(options, countGiven);
  if (!options.follow && options.ordered)
    Refuse("--ordered", "is for following; show is in time order anyway");
  CheckCursors(options);
  CheckSelectionOptions(options.selection);
}

constexpr std::size_t kFollowedLines = 10;  // with which following begins

void UseFollowedLines(ShowOptions& options) {
  const bool cursor = !options.cursorFile.empty() || !options.afterCursor.empty();
  options.last = cursor ? std::nullopt : std::optional(kFollowedLines);
}

void DefineShow(CLI::App& app, Action& chosen) {
  const auto options = std::make_shared<ShowOptions>();
  CLI::App* verb = app.add_subcommand("show", "Print messages, oldest first (the default)");
  verb->footer(kShowFooter);
  DefineCount(*verb, options->last, "The last N that match, or all");
  verb->add_flag("--count", options->count, "Print the number of messages that match, and nothing else");
  verb->add_flag("--no-pager", options->noPager, "Write to the terminal directly");
  verb->add_flag("-r,--reverse", options->reverse, "Newest first");
  verb->add_flag("-f,--follow", options->follow, "Go on with what comes");
  verb->add_option("--file", options->files, "Read a copy of the log file (repeatable, merged by time)")
      ->allow_extra_args(false)
      ->option_text("FILE");
  DefineFollowing(*verb, *options);
  DefineReading(*verb, *options);
  verb->callback([verb, options, &chosen] {
    const bool countGiven = verb->count("--lines") > 0;
    if (options->follow && !countGiven) UseFollowedLines(*options);
    for (const char* const name : {"--interval", "--for"}) {
      if (!options->follow && verb->count(name) > 0) Refuse(name, "is for following; add -f");
    }
    Check(*options, countGiven);
    chosen = [options] { return options->files.empty() ? ShowLive(*options) : ShowFiles(*options); };
  });
}

void DefineFollow(CLI::App& app, Action& chosen) {
  const auto options = std::make_shared<ShowOptions>();
  options->follow = true;
  CLI::App* verb = app.add_subcommand("follow", "Print the last 10 messages and go on with what comes");
  verb->footer(kFollowFooter);
  DefineCount(*verb, options->last, "Begin with the last N that match, or all");
  DefineFollowing(*verb, *options);
  DefineReading(*verb, *options);
  verb->callback([verb, options, &chosen] {
    const bool countGiven = verb->count("--lines") > 0;
    if (!countGiven) UseFollowedLines(*options);
    Check(*options, countGiven);
    chosen = [options] { return ShowLive(*options); };
  });
}

}  // namespace

void DefineShowVerbs(CLI::App& app, Action& chosen) {
  DefineShow(app, chosen);
  DefineFollow(app, chosen);
}

}  // namespace TamLogCtl
