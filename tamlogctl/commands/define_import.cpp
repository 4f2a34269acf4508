#include "tamlogctl/commands/shared_options.h"
#include "tamlogctl/commands/verbs.h"
#include "tamlogctl/server/convert.h"
#include "tamlogctl/server/import.h"

namespace TamLogCtl {

namespace {

constexpr const char* kImportFooter =
    R"(FILE is a log file, what this program has exported (json, json-array, csv, tsv, export, rfc5424, raw, short, full),
csv with a head line, or a text whose lines begin with a time: ISO times, syslog of RFC 3164 or 5424; - is standard
input. Messages keep their times; the server sorts them in. Messages that the log already holds are not sent, so the
same import may run twice; --again sends them. After a restart of the server it sends again what the restart has lost.
Exit codes: 0 all are in the log, 1 some were dropped, 3 no server, 6 some were refused, 7 the log file is
damaged.

Examples:
  tamlogctl import backup.dat                 the readable messages of a log file
  tamlogctl import saved.json                 what `show -o json` wrote
  zcat day.json.gz | tamlogctl import -       from a pipe (import reads .gz itself, too)
  tamlogctl import dpkg.log /var/log/syslog   lines with a time, merged by time
  tamlogctl import --input tsv a.txt b.txt    lines of tsv, merged by time)";

constexpr const char* kConvertFooter =
    R"(Reads the same files as import and needs no server. The last name is the new log file, which passes every rule of the
format: a server continues with it, and show, stats, merge and export read it.

Examples:
  tamlogctl convert dpkg.log Logs.dat         a log file of lines with a time
  tamlogctl convert --type-names 2=warn,3=err syslog syslog.1 Logs.dat
                                              merged by time, severities as types
  tamlogctl convert --skip export.csv Logs.dat
                                              without the lines that cannot be read)";

std::vector<Option> ReadingFiles(ReadingFilesOptions& to) {
  const std::vector<std::string> formats(kImportFormats.begin(), kImportFormats.end());
  return {
      Words("--input", formats, to.choice.format, "Format of the files (auto detects it)"),
      Value("--fields", "A,B", Text(to.fields), "Columns of csv without a head line, and of tsv"),
      Value("-s,--source", "SOURCE", Text(to.choice.source),
            "Source of lines that name none (the file's name, stdin)"),
      Value("-t,--type", "TYPE", Number(0, 3, to.choice.type), "Type of lines that state none, 0 to 3 (0)"),
      Value("--type-names", "0=NAME,...", Text(to.typeNames),
            "Names of the types; a line with the severity of such a name gets the type"),
      Value("--year", "YEAR", Number(1, 9999, to.choice.year),
            "Year of times without one (that of the file's last change)"),
      Flag("--keep-zone", to.choice.keepZone,
           "Keep a time with a zone as it is written (it becomes local time)"),
      Flag("--no-host", to.choice.dropHost, "Leave out the machine's name (it precedes the source)"),
      Flag(
          "--truncate", [&to] { to.choice.longText = LongText::Truncate; },
          "Cut a text of more than 256 bytes (it becomes several messages)"),
      Flag("--skip", to.choice.skip, "Leave out what cannot be read (nothing is done if something cannot)"),
  };
}

Verb Import() {
  const auto options = std::make_shared<ImportOptions>();
  Verb verb = MakeVerb("import", "Send the messages of files to the running server", kImportFooter, options,
                       ImportFiles);
  verb.Add({Operands("FILE", Files(options->files),
                     "Log files, exported messages, or logs of other programs; - is standard input")
                .Required()});
  verb.Add(ReadingFiles(*options));
  verb.Add({
      Value("--retry", "SECONDS", Number(0, 3600, options->retrySeconds),
            "How long to wait for a server that is gone, in seconds (30; at the start 0)"),
      Flag("--again", options->again, "Also send messages that the log already holds"),
      QuietOption(options->quiet),
  });
  verb.Add(OptionsOfAll(*options));
  verb.check = [options](const Given& given) {
    options->waitAtStart = given.Has("--retry");
    return std::string();
  };
  return verb;
}

Verb Convert() {
  const auto options = std::make_shared<ConvertOptions>();
  Verb verb = MakeVerb("convert", "Make a log file of other logs, without a server", kConvertFooter, options,
                       ConvertFiles);
  verb.Add({Operands("FILE", Files(options->files),
                     "Files to read (- is standard input), and last the new log file")
                .Required()});
  verb.Add(ReadingFiles(*options));
  verb.Add({
      Value("--capacity", "N", Number(1, kMostMessages, options->capacity),
            "Capacity of the new file (50000, or as many as there are messages)"),
      Flag("--force", options->force, "Replace the new file if it already exists"),
      QuietOption(options->quiet),
  });
  verb.Add(OptionsOfAll(*options));
  verb.check = [options](const Given&) {
    if (options->files.size() < 2) return std::string("FILE: name a file to read, and the new log file");
    const std::string problem = NewFileProblem(options->files.back());
    return problem.empty() ? problem : "FILE: " + problem;
  };
  return verb;
}

}  // namespace

std::vector<Verb> ImportVerbs() {
  return {Import(), Convert()};
}

}  // namespace TamLogCtl
