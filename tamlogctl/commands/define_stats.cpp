#include "tamlogctl/commands/shared_options.h"
#include "tamlogctl/commands/verbs.h"
#include "tamlogctl/read/stats.h"

namespace TamLogCtl {

namespace {

constexpr const char* kStatsFooter =
    R"(Bars are shown on a terminal. The depth of the ring is the time from its oldest message to its newest, selected
or not.

Examples:
  tamlogctl stats                             of the running server
  tamlogctl stats Logs.dat -S -1h -s Camera --relative-to end
                                              of one source in the last hour of a copied log
  tamlogctl stats -o json                     one object with all sources and minutes)";

}  // namespace

Verb StatsVerb() {
  const auto options = std::make_shared<StatsOptions>();
  Verb verb = MakeVerb("stats", "Count messages by source, type and time", kStatsFooter, options, ShowStats);
  const auto top = [options](std::uint64_t count) { options->top = count; };
  verb.Add({
      JsonOption(options->json),
      Value("--top", "N", Number(0, 1000000, top), "Number of sources to list, 0 for all (20)"),
      Flag("--bars", options->bars, "Print bars also when the output is not a terminal"),
      LimitOption(options->limit, "Of the last N that match, of the first N (+N), or of all"),
      PagerOption(options->noPager),
  });
  verb.Add(FileOptions(options->files, "Copies of the log file, also .gz and .xz, or - for standard input"));
  verb.Add(NamingOptions(options->output));
  verb.Add(SelectingOptions(options->selection));
  verb.Add({QuietOption(options->quiet)});
  verb.Add(OptionsOfAll(*options));
  verb.check = [options](const Given&) {
    return SelectionProblem(options->selection, !options->files.empty());
  };
  return verb;
}

}  // namespace TamLogCtl
