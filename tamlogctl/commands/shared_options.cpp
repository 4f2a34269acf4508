#include "tamlogctl/commands/shared_options.h"

#include <charconv>

#include "tamlogctl/base/common_options.h"
#include "tamlogctl/base/output_options.h"
#include "tamlogctl/base/wildcards.h"
#include "tamlogctl/read/reading_options.h"
#include "tamlogctl/select/selection_options.h"

namespace TamLogCtl {

namespace {

Take ContextOf(std::size_t& to) {
  return Number(0, kMostMessages, [&to](std::uint64_t count) { to = count; });
}

bool TakeCount(const std::string& text, std::optional<std::size_t>& count) {
  std::size_t number = 0;
  const char* const last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, number);
  if (error != std::errc() || end != last) return false;
  count = number;
  return true;
}

}  // namespace

std::vector<Option> OptionsOfAll(CommonOptions& to) {
  return InGroup(kOptionsOfAll,
                 {Choice("--color", {"auto", "always", "never"}, to.color,
                         "When to colour (auto: on a terminal, unless NO_COLOR is set or TERM is dumb)"),
                  Value("--timeout", "MS", Number(1, 600000, to.timeoutMs),
                        "How long to wait for the server, in milliseconds (5000)")});
}

std::vector<Option> WritingOptions(OutputOptions& to) {
  std::vector<Option> options{
      Value("-o,--output", "short|full|cat|json|json-array|csv|tsv|export|rfc5424|raw|template=TEXT",
            Text(to.format), "Format of a message (short)"),
      Value("--fields", "A,B", Text(to.fields),
            "Of json, json-array, csv and tsv: these fields, in this order"),
      Flag(
          "--spreadsheet", to.spreadsheet,
          "Of csv and tsv: an apostrophe before texts that a spreadsheet would take for a formula (= + - @)"),
      Value("--tz", "written|local|utc|+HH:MM", Text(to.zone),
            "The zone in which times were written; its offset is then shown")};
  for (Option& option : NamingOptions(to)) options.push_back(std::move(option));
  return InGroup(kWriting, std::move(options));
}

std::vector<Option> NamingOptions(OutputOptions& to) {
  return InGroup(kWriting, {Value("--type-names", "0=NAME,...", Text(to.typeNames),
                                  "Names of the types, instead of T0 to T3; the name of a severity "
                                  "(1=warn,3=err) also colours them"),
                            Value("--encoding", "ENCODING", Text(to.encoding),
                                  "Encoding of the texts: utf-8, ascii, latin-1, windows-1252, ...")});
}

std::vector<Option> SelectingOptions(SelectionOptions& to) {
  std::vector<Option> options{
      Values("-s,--source", "NAME[:TYPES]", List(to.sources),
             "Only this source, of these types (NAME may contain *; repeatable)")
          .MayBeEmpty(),
      Values("-x,--exclude", "NAME[:TYPES]", List(to.excludedSources),
             "Not this source, or not these of its types (repeatable)")
          .MayBeEmpty(),
      Values("--filter-file", "FILE", List(to.filterFiles),
             "Sources from a file: one NAME[:TYPES] or !NAME[:TYPES] a line"),
      Value("-t,--type", "LIST", Text(to.types),
            "Only these types: 0,2 or 1-3, T2, or names of --type-names"),
      Value("-p,--priority", "SEVERITY", Text(to.severity),
            "Only types of this severity or a worse one, by --type-names: emerg, alert, crit, err, warning, "
            "notice, "
            "info, debug"),
      Values("-g,--grep", "RE", List(to.patterns),
             "Only texts that match this expression (repeatable: any of them)")
          .MayBeEmpty(),
      Values("-v,--not-matching", "RE", List(to.antiPatterns),
             "Only texts that do not match it (repeatable: none of them)")
          .MayBeEmpty(),
      Flag("-F,--fixed", to.fixedPattern, "The expressions of -g and -v are plain text"),
      Flag("-i,--ignore-case", to.ignoreCase,
           "Ignore case (always done for an expression that is all in lower case)"),
      Value("-S,--since", "TIME", Text(to.since),
            "Not older: as printed, [YYYY-MM-DD] HH:MM, yesterday 10:00, -1h30m, '1 hour ago', RFC 3339, "
            "@SECONDS"),
      Value("-U,--until", "TIME", Text(to.until), "Not newer than this time"),
      Words(
          "--relative-to", {"now", "end"}, [&to](std::size_t index) { to.relativeToEnd = index == 1; },
          "Count times such as 10:00 and -15m from now, or from the end of the copied logs"),
  };
  return InGroup(kSelecting, std::move(options));
}

Option LimitOption(MessageLimit& to, std::string purpose) {
  const auto take = [&to](const std::string& text) {
    to = {};
    std::optional<std::size_t>& count = text.starts_with('+') ? to.first : to.last;
    if (text == "all" || TakeCount(text.starts_with('+') ? text.substr(1) : text, count))
      return std::string();
    return "'" + text + "' is neither a number, nor + and a number, nor 'all'";
  };
  return Value("-n,--lines", "N|+N|all", take, std::move(purpose));
}

Option CountOption(std::optional<std::size_t>& last, std::string purpose) {
  const auto take = [&last](const std::string& text) {
    last.reset();
    if (text == "all" || TakeCount(text, last)) return std::string();
    return "'" + text + "' is neither a number nor 'all'";
  };
  return Value("-n,--lines", "N|all", take, std::move(purpose));
}

std::vector<Option> PositionOptions(ReadingOptions& to) {
  const auto both = [&to](std::uint64_t count) { to.before = to.after = count; };
  std::vector<Option> options{
      Value("-A,--after-context", "N", ContextOf(to.after), "Also N messages after each that matches"),
      Value("-B,--before-context", "N", ContextOf(to.before), "Also N messages before each that matches"),
      Value("-C,--context", "N", Number(0, kMostMessages, both),
            "Both (short, full and cat print -- between messages that are not neighbours)"),
      Value("--cursor-file", "FILE", NewFile(to.cursorFile),
            "Continue after the cursor in this file, and store the newest one there"),
      Value("--after-cursor", "CURSOR", Text(to.afterCursor), "Only messages newer than the cursor's"),
      Flag("--show-cursor", to.showCursor, "At the end print the newest message's cursor on stderr"),
      Choice("--events", {"stderr", "json", "none"}, to.events,
             "How losses, restarts and clears are reported on stderr (stderr: in words)"),
  };
  return InGroup(kPosition, std::move(options));
}

Option PagerOption(bool& to) {
  return Flag("--no-pager", to, "Write to the terminal directly");
}

Option QuietOption(bool& to) {
  return Flag("-q,--quiet", to, "Print nothing on stderr but errors");
}

Option JsonOption(bool& to, std::string purpose) {
  return Words(
      "-o,--output", {"text", "json"}, [&to](std::size_t index) { to = index == 1; }, std::move(purpose));
}

Take Files(std::vector<std::string>& to) {
  return [&to](const std::string& name) {
    for (std::string& file : FilesNamed(name)) to.push_back(std::move(file));
    return std::string();
  };
}

Option FileOption(std::vector<std::string>& to, std::string purpose) {
  return Values("--file", "FILE", Files(to), std::move(purpose));
}

std::vector<Option> FileOptions(std::vector<std::string>& to, const std::string& purpose) {
  return {Operands("FILE", Files(to), purpose), FileOption(to, "The same as FILE (repeatable)")};
}

std::vector<Option> FollowingOptions(std::uint32_t& intervalMs, bool& ordered,
                                     std::optional<double>& forSeconds) {
  return InGroup(
      kFollowing,
      {Value("--interval", "MS", Number(10, 60000, intervalMs),
             "When following: pause between two reads of the log, in milliseconds (100)"),
       Flag("--ordered", ordered, "When following: hold messages back until they are in time order"),
       Value("--for", "SECONDS", Seconds(forSeconds), "When following: end after this time")});
}

}  // namespace TamLogCtl
