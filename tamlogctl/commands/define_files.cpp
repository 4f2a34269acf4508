#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "tamlogctl/commands/command_line.h"
#include "tamlogctl/read/export.h"
#include "tamlogctl/read/merge.h"
#include "tamlogctl/read/repair.h"
#include "tamlogctl/read/verify.h"
#include "tamlogctl/server/import.h"

namespace TamLogCtl {

namespace {

constexpr const char* kVerifyFooter =
    R"(A server that finds one rule broken empties the whole file at its start. Damage is what no server writes; remarks
are what one does write although it is odd. Exit codes: 0 no damage, 1 damage, 3 no such file.

Examples:
  tamlogctl verify Logs.dat                   what is wrong, rule by rule
  tamlogctl verify -q --strict Logs.dat       for scripts: would a server keep it?
  tamlogctl verify --live -o json             the running server's log, for programs)";

constexpr const char* kRepairFooter =
    R"(Never works in place. The new file is in order of time and passes every rule.

Examples:
  tamlogctl repair Logs.dat --output New.dat  all that the ring holds
  tamlogctl repair Logs.dat --output New.dat --carve
                                              also what a clear or a reformat left, and what has moved
  tamlogctl repair Logs.dat --output New.dat --capacity 50000 --force
                                              for a server that is set to 50000 messages)";

constexpr const char* kMergeFooter =
    R"(A labelled source is written HOST/source, in json as a field "host".

Examples:
  tamlogctl merge a.dat b.dat                 one stream, in order of time
  tamlogctl merge --label east=a.dat --label west=b.dat -o json
                                              with the name of the machine
  tamlogctl merge --label east=a.dat --label west=b.dat --offset west=-1h
                                              where one clock is an hour ahead)";

constexpr const char* kExportFooter =
    R"(The file appears under its name only when it is whole. With --follow it grows until Ctrl-C; one that is put
aside is called TARGET.1, the one before it TARGET.2, and so on.

Examples:
  tamlogctl export today.csv -o csv -S today  of the running server's log
  tamlogctl export backup.dat --log           as a log file that a server accepts
  tamlogctl export all.json -o json --file a.dat --file b.dat
                                              of copied logs, merged by time
  tamlogctl export log.json -o json --follow --cursor-file done.txt --rotate 10M --rotate 1d --keep 30
                                              all that comes, in files of a day or of 10 MiB)";

constexpr const char* kImportFooter =
    R"(Messages keep their times; the server sorts them in. After a lost connection it goes on where it was. Exit codes:
0 all are in the log, 1 some were dropped, 3 no server, 6 some were refused, 7 the log file is damaged.

Examples:
  tamlogctl import backup.dat                 what is readable of a log file
  tamlogctl import saved.json                 what `show -o json` wrote
  tamlogctl import --input tsv a.txt b.txt    lines of tsv, merged by time)";

std::string CheckRotation(const std::string& text) {
  RotationLimits limits;
  return TakeRotationLimit(text, limits)
             ? ""
             : "'" + text + "': expected a size such as 500K, 10M or 1G, or a time such as 15m, 1h, 1d or 1w";
}

void DefineVerify(CLI::App& app, Action& chosen) {
  const auto options = std::make_shared<VerifyVerbOptions>();
  CLI::App* verb = app.add_subcommand("verify", "Check log files against every rule of the format");
  verb->footer(kVerifyFooter);
  verb->add_option("FILE", options->files, "Files to check");
  verb->add_flag("--live", options->live, "Check the running server's log");
  verb->add_flag("--all", options->all, "List every finding, not only the first 20 of each rule");
  verb->add_flag("--strict", options->strict,
                 "Exit code 1 also when a server would not accept it for another reason");
  verb->add_flag("-q,--quiet", options->quiet, "Print nothing; the exit code says it");
  verb->add_option_function<std::string>(
          "-o,--output", [options](const std::string& format) { options->json = format == "json"; },
          "Format: text or json (one object a file)")
      ->check(CLI::IsMember({"text", "json"}))
      ->option_text("text|json");
  DefineCommonOptions(*verb, *options);
  verb->callback([options, &chosen] {
    if (options->files.empty() && !options->live)
      throw CLI::ValidationError("FILE", "name a file to check, or --live");
    chosen = [options] { return VerifyFiles(*options); };
  });
}

void DefineRepair(CLI::App& app, Action& chosen) {
  const auto options = std::make_shared<RepairVerbOptions>();
  CLI::App* verb = app.add_subcommand("repair", "Save the messages of a damaged log file into a new one");
  verb->footer(kRepairFooter);
  verb->add_option("FILE", options->file, "The damaged file; it is only read")->required();
  verb->add_option("--output", options->output, "The new file")->required()->option_text("NEW");
  verb->add_flag("--carve", options->carve, "Also messages outside the ring, and such that have moved");
  verb->add_flag("--unique", options->unique, "Leave out messages that were met before, byte for byte");
  verb->add_option("--capacity", options->capacity, "Capacity of the new file (that of the damaged one)")
      ->check(CLI::Range(1, 1000000))
      ->option_text("N");
  verb->add_flag("--force", options->force, "Replace NEW when it is there");
  verb->add_flag("--all", options->all, "List every loss, not only the first 20");
  verb->add_flag("-q,--quiet", options->quiet, "Print nothing that is no error");
  DefineCommonOptions(*verb, *options);
  verb->callback([options, &chosen] { chosen = [options] { return RepairFile(*options); }; });
}

void DefineMerge(CLI::App& app, Action& chosen) {
  const auto options = std::make_shared<MergeOptions>();
  CLI::App* verb = app.add_subcommand("merge", "Print the messages of several log files in order of time");
  verb->footer(kMergeFooter);
  verb->add_option("FILE", options->files, "Log files without a label");
  verb->add_option("--label", options->labels, "A log file and the name of its machine (repeatable)")
      ->allow_extra_args(false)
      ->option_text("HOST=FILE");
  verb->add_option("--offset", options->offsets, "Added to that machine's times: +1h, -90s (ms, s, m, h, d)")
      ->allow_extra_args(false)
      ->option_text("HOST=OFFSET");
  DefineOutputOptions(*verb, options->output);
  DefineSelectionOptions(*verb, options->selection);
  verb->add_flag("-q,--quiet", options->quiet, "Say nothing on stderr that is not an error");
  DefineCommonOptions(*verb, *options);
  verb->callback([options, &chosen] {
    if (options->files.empty() && options->labels.empty())
      throw CLI::ValidationError("FILE", "name a file, or --label HOST=FILE");
    CheckSelectionOptions(options->selection);
    chosen = [options] { return MergeFiles(*options); };
  });
}

void DefineFollowing(CLI::App& verb, ExportOptions& to) {
  CLI::Option* follow = verb.add_flag("-f,--follow", to.follow, "Go on with what comes");
  CLI::Option* rotate = verb.add_option_function<std::vector<std::string>>(
                                "--rotate",
                                [&to](const std::vector<std::string>& limits) {
                                  for (const std::string& limit : limits)
                                    TakeRotationLimit(limit, to.rotation);
                                },
                                "Begin a new file after so many bytes (500K, 10M, 1G) or at each turn of a "
                                "time (15m, 1h, 1d, 1w);"
                                " repeatable")
                            ->allow_extra_args(false)
                            ->check(CheckRotation)
                            ->option_text("SIZE|TIME");
  verb.add_option("--keep", to.rotation.keep, "Files put aside that are kept; older ones are removed (all)")
      ->check(CLI::Range(1, 1000000))
      ->needs(rotate)
      ->option_text("N");
  CLI::Option* const others[] = {
      rotate,
      verb.add_option("--interval", to.intervalMs, "How often to look, in milliseconds (100)")
          ->check(CLI::Range(10, 60000))
          ->option_text("MS"),
      verb.add_flag("--ordered", to.ordered, "Hold messages back until they are in time order"),
      verb.add_option("--for", to.forSeconds, "End by itself after so long")
          ->check(CLI::Range(0.0, 1e7))
          ->option_text("SECONDS")};
  for (CLI::Option* const option : others) option->needs(follow);
}

void Refuse(const char* option, const char* mend) {
  throw CLI::ValidationError(option, mend);
}

void CheckFollowing(const ExportOptions& options) {
  if (!options.files.empty()) Refuse("--file", "a copied log does not grow; leave out --follow");
  if (options.asLog) Refuse("--log", "cannot be used with --follow: a log file has a fixed size");
  if (options.output.format == "json-array")
    Refuse("-o json-array", "cannot be used with --follow: the array would have no end; use -o json");
  if (options.last || options.before > 0 || options.after > 0)
    Refuse("-n", "cannot be used with --follow, nor can -A, -B and -C: all that matches is written");
  if (!options.afterCursor.empty())
    Refuse("--after-cursor", "cannot be used with --follow; --cursor-file lets the next run go on");
}

void DefineExport(CLI::App& app, Action& chosen) {
  const auto options = std::make_shared<ExportOptions>();
  CLI::App* verb = app.add_subcommand("export", "Write messages to a file that appears as a whole");
  verb->footer(kExportFooter);
  verb->add_option("TARGET", options->target, "The file to write")->required();
  verb->add_option("--file", options->files, "Of a copied log instead of the running server's (repeatable)")
      ->allow_extra_args(false)
      ->option_text("FILE");
  CLI::Option* log = verb->add_flag("--log", options->asLog, "Write a log file instead of text");
  verb->add_option("--capacity", options->capacity, "Capacity of that log file (the source's)")
      ->needs(log)
      ->check(CLI::Range(1, 1000000))
      ->option_text("N");
  verb->add_flag("--force", options->force, "Replace TARGET when it is there");
  DefineFollowing(*verb, *options);
  DefineCount(*verb, options->last, "The last N that match, or all");
  DefineOutputOptions(*verb, options->output);
  DefineSelectionOptions(*verb, options->selection);
  DefineContext(*verb, *options);
  DefineCursors(*verb, *options);
  DefineEvents(*verb, *options);
  verb->add_flag("-q,--quiet", options->quiet, "Say nothing on stderr that is not an error");
  DefineCommonOptions(*verb, *options);
  verb->callback([verb, options, &chosen] {
    CheckSelectionOptions(options->selection);
    for (const char* const name : {"--output", "--fields", "--tz", "--type-names", "--encoding"}) {
      if (options->asLog && verb->count(name) > 0)
        Refuse(name, "cannot be used with --log: a log file has its own form");
    }
    CheckCursors(*options);
    if (options->follow) CheckFollowing(*options);
    chosen = [options] { return options->follow ? FollowExport(*options) : ExportMessages(*options); };
  });
}

void DefineImport(CLI::App& app, Action& chosen) {
  const auto options = std::make_shared<ImportOptions>();
  CLI::App* verb = app.add_subcommand("import", "Hand the messages of files in to the running server");
  verb->footer(kImportFooter);
  verb->add_option("FILE", options->files, "Log files, or lines of json or tsv")->required();
  verb->add_option("--input", options->input, "What the files are (auto looks into them)")
      ->check(CLI::IsMember({"auto", "log", "json", "tsv"}))
      ->option_text("auto|log|json|tsv");
  verb->add_option("--retry", options->retrySeconds,
                   "How long to wait for a server that is lost, in seconds (30)")
      ->check(CLI::Range(0, 3600))
      ->option_text("SECONDS");
  verb->add_flag("-q,--quiet", options->quiet, "Say nothing on stderr that is not an error");
  DefineCommonOptions(*verb, *options);
  verb->callback([options, &chosen] { chosen = [options] { return ImportFiles(*options); }; });
}

}  // namespace

void DefineFileVerbs(CLI::App& app, Action& chosen) {
  DefineVerify(app, chosen);
  DefineRepair(app, chosen);
  DefineExport(app, chosen);
  DefineImport(app, chosen);
  DefineMerge(app, chosen);
}

}  // namespace TamLogCtl
