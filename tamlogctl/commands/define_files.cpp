#include <cstdint>
#include <limits>
#include <string>

#include "client/file/log_file_image.h"
#include "tamlogctl/commands/shared_options.h"
#include "tamlogctl/commands/verbs.h"
#include "tamlogctl/read/export.h"
#include "tamlogctl/read/merge.h"
#include "tamlogctl/read/repair.h"
#include "tamlogctl/read/verify.h"

namespace TamLogCtl {

namespace {

constexpr const char* kVerifyFooter =
    R"(A server that finds a broken rule at its start empties the whole file. Damage is data that no server writes; a
remark is unusual data that a server can write. Exit codes: 0 no damage, 1 damage, 3 no such file, 7 damaged gzip or
xz data, 9 not a log.

Examples:
  tamlogctl verify Logs.dat                   findings, rule by rule
  tamlogctl verify -q --strict Logs.dat       for scripts: would a server keep it?
  tamlogctl verify --live -o json             the running server's log, for programs)";

constexpr const char* kRepairFooter =
    R"(Never changes the damaged file. The new file is in time order and passes every rule. Where the file lost or
gained bytes, the messages are found at their new places.
Exit codes: 0 saved, 7 most saved messages are in doubt, or nothing could be saved, 9 FILE is not a log.

Examples:
  tamlogctl repair Logs.dat New.dat           all that the ring holds
  tamlogctl repair Logs.dat New.dat --carve   also messages that a clear or a reformat left
  tamlogctl repair Logs.dat New.dat --capacity 50000 --force
                                              for a server that is set to 50000 messages)";

constexpr const char* kMergeFooter =
    R"(The label is written HOST/source; json, rfc5424 and export have a field of their own for it, and --fields and
templates the field "host".

Examples:
  tamlogctl merge a.dat b.dat                 one stream, in order of time
  tamlogctl merge --label east=a.dat --label west=b.dat -o json
                                              with the name of the machine
  tamlogctl merge --label east=a.dat --label west=b.dat --offset west=-1h
                                              where one clock is an hour ahead)";

constexpr const char* kExportFooter =
    R"(The file appears under its name only when it is complete. With --follow it grows until Ctrl-C; a rotated
file is renamed to TARGET.1, the one before it to TARGET.2, and so on.

Examples:
  tamlogctl export today.csv -o csv -S today  of the running server's log
  tamlogctl export backup.dat --log           as a log file that a server accepts
  tamlogctl export all.json -o json --file a.dat --file b.dat
                                              of copied logs, merged by time
  tamlogctl export log.json -o json --follow --cursor-file done.txt --rotate 10M --rotate 1d --keep 30
                                              all new messages, in files of one day or 10 MiB)";

Verb Verify() {
  const auto options = std::make_shared<VerifyVerbOptions>();
  Verb verb = MakeVerb("verify", "Check log files against every rule of the format", kVerifyFooter, options,
                       VerifyFiles);
  verb.Add({
      Operands("FILE", Files(options->files), "Files to check"),
      Flag("--live", options->live, "Check the running server's log"),
      Flag("--all", options->all,
           "List every finding, not only the first 20 of each rule and the first remark of each"),
      Flag("--strict", options->strict,
           "Exit code 1 also when a server would not accept it for another reason"),
      Flag("-q,--quiet", options->quiet, "Print nothing; the exit code is the answer"),
      JsonOption(options->json, "Format: text or json (one object a file)"),
      PagerOption(options->noPager),
  });
  verb.Add(OptionsOfAll(*options));
  verb.check = [options](const Given&) {
    return std::string(options->files.empty() && !options->live ? "FILE: name a file to check, or --live"
                                                                : "");
  };
  return verb;
}

Verb Repair() {
  const auto options = std::make_shared<RepairVerbOptions>();
  Verb verb = MakeVerb("repair", "Save the messages of a damaged log file into a new one", kRepairFooter,
                       options, RepairFile);
  verb.Add({
      Operand("FILE", Text(options->file), "The damaged file; it is only read").Required(),
      Operand("NEW", NewFile(options->output), "The new file"),
      Value("--output", "NEW", NewFile(options->output), "The new file, for scripts that name it so")
          .Excludes("NEW"),
      Flag("--carve", options->carve, "Also messages outside the ring or after the end of the log"),
      Flag("--unique", options->unique, "Leave out messages that are equal to an earlier one, byte for byte"),
      Value("--capacity", "N", Number(1, std::numeric_limits<std::int32_t>::max(), options->capacity),
            "Capacity of the new file (that of the damaged one, or more, up to 1000000)"),
      Flag("--force", options->force, "Replace NEW if it already exists"),
      Flag("--all", options->all, "List every loss, not only the first 20"),
      Flag("-q,--quiet", options->quiet, "Print nothing but errors"),
  });
  verb.Add(OptionsOfAll(*options));
  verb.check = [options](const Given&) {
    return std::string(options->output.empty() ? "NEW: name the file to write" : "");
  };
  return verb;
}

Verb Merge() {
  const auto options = std::make_shared<MergeOptions>();
  Verb verb = MakeVerb("merge", "Print the messages of several log files in order of time", kMergeFooter,
                       options, MergeFiles);
  verb.Add({
      Operands("FILE", Files(options->files), "Log files without a label"),
      Values("--label", "HOST=FILE", List(options->labels),
             "A log file and the name of its machine (repeatable)"),
      Values("--offset", "HOST=OFFSET", List(options->offsets),
             "Added to that machine's times: +1h, -90s (ms, s, m, h, d, w)"),
      LimitOption(options->limit, "The last N that match, the first N (+N), or all"),
      Flag("--count", options->count, "Print only the number of messages that match"),
      Flag("-r,--reverse", options->reverse, "Newest first"),
      PagerOption(options->noPager),
  });
  verb.Add(WritingOptions(options->output));
  verb.Add(SelectingOptions(options->selection));
  verb.Add({QuietOption(options->quiet)});
  verb.Add(OptionsOfAll(*options));
  verb.check = [options](const Given&) {
    if (options->files.empty() && options->labels.empty())
      return std::string("FILE: name a file, or --label HOST=FILE");
    return SelectionProblem(options->selection, true);
  };
  return verb;
}

std::vector<Option> RotationOptions(ExportOptions& to) {
  const auto rotate = [&to](const std::string& text) { return TakeRotationLimit(text, to.rotation); };
  return {Flag("-f,--follow", to.follow, "Continue with new messages"),
          Values("--rotate", "SIZE|TIME", rotate,
                 "Begin a new file after so many bytes (500K, 10M, 1G) or at each full period "
                 "(15min, 1h, 1d, 1w); repeatable")
              .Needs("--follow"),
          Value("--keep", "N", Number(1, 1000000, to.rotation.keep),
                "Number of rotated files to keep; older ones are removed (all)")
              .Needs("--rotate")};
}

std::string FollowingProblem(const ExportOptions& options) {
  if (!options.files.empty()) return "--file: a copied log does not grow; leave out --follow";
  if (options.asLog) return "--log: cannot be used with --follow: a log file has a fixed size";
  if (options.output.format == "json-array")
    return "-o json-array: cannot be used with --follow: the array would be unterminated; use -o json";
  if (options.limit.last || options.limit.first || options.before > 0 || options.after > 0)
    return "-n: cannot be used with --follow, nor can -A, -B and -C: all messages that match are written";
  if (!options.afterCursor.empty())
    return "--after-cursor: cannot be used with --follow; use --cursor-file, which also lets the next run "
           "continue";
  return "";
}

std::string Check(const ExportOptions& options, const Given& given) {
  for (const char* const name : {"--output", "--fields", "--tz", "--type-names", "--encoding"}) {
    if (options.asLog && given.Has(name))
      return std::string(name) + ": cannot be used with --log: a log file has its own format";
  }
  std::string problem = SelectionProblem(options.selection, !options.files.empty());
  if (problem.empty()) problem = CursorProblem(options);
  if (problem.empty() && options.follow) problem = FollowingProblem(options);
  const bool hasCursorFile = !options.cursorFile.empty();
  if (problem.empty() && hasCursorFile && TamLogClient::IsSameFile(options.cursorFile, options.target))
    problem = "--cursor-file '" + options.cursorFile + "': is the file to write; give another name";
  return problem;
}

int RunExport(const ExportOptions& options) {
  return options.follow ? FollowExport(options) : ExportMessages(options);
}

Verb Export() {
  const auto options = std::make_shared<ExportOptions>();
  Verb verb = MakeVerb("export", "Write messages to a file that appears when it is complete", kExportFooter,
                       options, RunExport);
  verb.Add({
      Operand("TARGET", NewFile(options->target), "The file to write").Required(),
      FileOption(options->files, "Of a copied log instead of the running server's (repeatable)"),
      Flag("--log", options->asLog, "Write a log file instead of text"),
      Value("--capacity", "N", Number(1, kMostMessages, options->capacity),
            "Capacity of that log file (the source's)")
          .Needs("--log"),
      Flag("--force", options->force, "Replace TARGET if it already exists"),
  });
  verb.Add(RotationOptions(*options));
  for (Option& option : FollowingOptions(options->intervalMs, options->ordered, options->forSeconds))
    verb.options.push_back(std::move(option).Needs("--follow"));
  verb.Add({LimitOption(options->limit, "The last N that match, the first N (+N), or all")});
  verb.Add(WritingOptions(options->output));
  verb.Add(SelectingOptions(options->selection));
  verb.Add(PositionOptions(*options));
  verb.Add({QuietOption(options->quiet)});
  verb.Add(OptionsOfAll(*options));
  verb.check = [options](const Given& given) { return Check(*options, given); };
  return verb;
}

}  // namespace

std::vector<Verb> FileVerbs() {
  return {Verify(), Repair(), Export(), Merge()};
}

}  // namespace TamLogCtl
