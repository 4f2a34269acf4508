#include "tamlogctl/commands/shared_options.h"
#include "tamlogctl/commands/verbs.h"
#include "tamlogctl/read/show.h"

namespace TamLogCtl {

namespace {

constexpr const char* kShowFooter = R"(Examples:
  tamlogctl show -n 20 -s Camera:2,3          the last 20 of Camera with type 2 or 3
  tamlogctl show -S -15m -g "timed? out"      of the last 15 minutes, texts that match
  tamlogctl show Logs.dat -o csv > log.csv    a copied log as a table
  tamlogctl show --cursor-file done.txt       messages since the last run
  tamlogctl show -n +1 -g "timed? out"        the first message that matches
  tamlogctl show --count -t 3 -S today        how many of type 3 today

The formats are explained by: tamlogctl help formats)";

constexpr const char* kFollowFooter =
    R"(Continues after a restart of the server and reports it. A message older than one already shown is marked
(late). Messages overwritten before they could be read are counted on stderr. A change of capacity empties
the log; messages that are sent again after it are printed again, also with -n 0.

Examples:
  tamlogctl follow                            the last 10 messages, then new ones
  tamlogctl follow -n 0 -s "Cam*" -o json     only new ones of sources that begin with Cam
  tamlogctl follow --ordered --cursor-file done.txt
                                              in strict time order; the next run continues there
  tamlogctl follow --for 30 > half-minute.txt ends after 30 seconds)";

constexpr std::size_t kFollowedLines = 10;  // printed before new messages

std::string FollowingProblem(const ShowOptions& options, bool countGiven) {
  if (!options.files.empty()) return "FILE: a copied log does not grow; leave out -f";
  if (options.reverse) return "-r: cannot be used with -f: new messages come last";
  if (options.count) return "--count: cannot be used with -f, which never ends";
  const bool cursor = !options.cursorFile.empty() || !options.afterCursor.empty();
  if (options.limit.first) return "-n +N: cannot be used with -f, which never ends";
  if (countGiven && cursor)
    return "-n: cannot be used with -f and a cursor: all messages after the cursor are printed";
  return "";
}

std::string Check(ShowOptions& options, const Given& given) {
  const bool countGiven = given.Has("--lines");
  if (options.follow && !countGiven) {
    const bool cursor = !options.cursorFile.empty() || !options.afterCursor.empty();
    options.limit.last = cursor ? std::nullopt : std::optional(kFollowedLines);
  }
  for (const char* const name : {"--interval", "--for"}) {
    if (!options.follow && given.Has(name)) return std::string(name) + ": only for following; add -f";
  }
  std::string problem = options.follow ? FollowingProblem(options, countGiven) : "";
  if (!options.follow && options.ordered)
    problem = "--ordered: only for following; show is always in time order";
  if (problem.empty()) problem = CursorProblem(options);
  return problem.empty() ? SelectionProblem(options.selection, !options.files.empty()) : problem;
}

void AddReading(Verb& verb, ShowOptions& to) {
  verb.Add(FollowingOptions(to.intervalMs, to.ordered, to.forSeconds));
  verb.Add(WritingOptions(to.output));
  verb.Add({Values("--highlight", "RE", List(to.highlights),
                   "Mark what matches this expression (repeatable; with colours)")
                .MayBeEmpty()});
  verb.Add(SelectingOptions(to.selection));
  verb.Add(PositionOptions(to));
  verb.Add({QuietOption(to.quiet)});
  verb.Add(OptionsOfAll(to));
}

int ShowMessages(const ShowOptions& options) {
  return options.files.empty() ? ShowLive(options) : ShowFiles(options);
}

Verb Show() {
  const auto options = std::make_shared<ShowOptions>();
  Verb verb =
      MakeVerb("show", "Print messages, oldest first (the default)", kShowFooter, options, ShowMessages);
  verb.Add({
      LimitOption(options->limit, "The last N that match, the first N (+N), or all"),
      Flag("--count", options->count, "Print only the number of messages that match"),
      PagerOption(options->noPager),
      Flag("-r,--reverse", options->reverse, "Newest first"),
      Flag("-f,--follow", options->follow, "Continue with new messages"),
  });
  verb.Add(FileOptions(options->files, "Copies of the log file, also .gz and .xz, or - for standard input"));
  AddReading(verb, *options);
  verb.check = [options](const Given& given) { return Check(*options, given); };
  return verb;
}

Verb Follow() {
  const auto options = std::make_shared<ShowOptions>();
  options->follow = true;
  Verb verb = MakeVerb("follow", "Print the last 10 messages, then new ones as they arrive", kFollowFooter,
                       options, ShowLive);
  verb.Add({CountOption(options->limit.last, "Begin with the last N that match, or all")});
  AddReading(verb, *options);
  verb.check = [options](const Given& given) { return Check(*options, given); };
  return verb;
}

}  // namespace

std::vector<Verb> ShowVerbs() {
  return {Show(), Follow()};
}

}  // namespace TamLogCtl
