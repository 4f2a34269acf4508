#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "tamlogctl/commands/command_line.h"
#include "tamlogctl/read/reading_options.h"
#include "tamlogctl/read/stats.h"

namespace TamLogCtl {

namespace {

constexpr const char* kStatsFooter =
    R"(Bars are shown on a terminal. The depth of the ring is the time from its oldest message to its newest, wanted
or not.

Examples:
  tamlogctl stats                             of the running server
  tamlogctl stats -S -1h -s Camera --file Logs.dat
                                              of one source in the last hour of a copied log
  tamlogctl stats -o json                     one object with all sources and minutes)";

}  // namespace

void DefineStatsVerb(CLI::App& app, Action& chosen) {
  const auto options = std::make_shared<StatsOptions>();
  CLI::App* verb = app.add_subcommand("stats", "Count messages by source, type and time");
  verb->footer(kStatsFooter);
  verb->add_option_function<std::string>(
          "-o,--output", [options](const std::string& format) { options->json = format == "json"; },
          "Format: text or json")
      ->check(CLI::IsMember({"text", "json"}))
      ->option_text("text|json");
  verb->add_option("--file", options->files, "Read a copy of the log file (repeatable)")
      ->allow_extra_args(false)
      ->option_text("FILE");
  verb->add_option("--top", options->top, "How many sources to list, 0 for all (20)")
      ->check(CLI::Range(0, 1000000))
      ->option_text("N");
  verb->add_flag("--bars", options->bars, "Bars also when the output is no terminal");
  DefineCount(*verb, options->last, "Of the last N that match, or of all");
  DefineNaming(*verb, options->output);
  DefineSelectionOptions(*verb, options->selection);
  verb->add_flag("-q,--quiet", options->quiet, "Say nothing on stderr that is not an error");
  DefineCommonOptions(*verb, *options);
  verb->callback([options, &chosen] {
    CheckSelectionOptions(options->selection);
    chosen = [options] { return ShowStats(*options); };
  });
}

}  // namespace TamLogCtl
