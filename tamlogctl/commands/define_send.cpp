#include "tamlogctl/commands/shared_options.h"
#include "tamlogctl/commands/verbs.h"
#include "tamlogctl/server/send.h"

namespace TamLogCtl {

namespace {

constexpr const char* kSendFooter =
    R"(Without TEXT each line of standard input is one message. A text has at most 256 bytes; a longer one is
rejected, with its line number, unless --truncate or --split says otherwise. A file (--input) with such a line is not
sent at all; of standard input all other lines are sent, and the exit code is 1. After a restart of the server the lines
that it has lost are sent again, none twice. With --confirm the program reports for each message whether it was stored,
which filter or type dropped it, or that it was not seen within 1 s (exit code 1).

Examples:
  tamlogctl send -s Demo -t 1 "door opened"   one message, with the current time
  dmesg | tamlogctl send -s Kernel --truncate one message a line
  tamlogctl send --input tsv saved.tsv        what `show -o tsv` wrote, with its times and sources)";

}  // namespace

Verb SendVerb() {
  const auto options = std::make_shared<SendOptions>();
  Verb verb = MakeVerb("send", "Send one message, or one for each line of standard input", kSendFooter,
                       options, Send);
  verb.Add({
      Operand("TEXT", Text(options->argument), "The message's text (with --input: a file to read)")
          .MayBeEmpty(),
      Value("-s,--source", "SOURCE", Text(options->source), "The message's source (tamlogctl)").MayBeEmpty(),
      Value("-t,--type", "TYPE", Number(0, 3, options->type), "Its type, 0 to 3 (0)"),
      Value("--time", "TIME", Text(options->time),
            "Its time, as printed, HH:MM, yesterday 10:00, -1h30m, RFC 3339 or @SECONDS (now)"),
      Words("--input", {"text", "tsv"}, options->input, "Lines of text, or of tsv: time, type, source, text"),
      Flag(
          "--truncate", [options] { options->longText = LongText::Truncate; },
          "Cut a text of more than 256 bytes"),
      Flag(
          "--split", [options] { options->longText = LongText::Split; },
          "Send a text of more than 256 bytes as several messages")
          .Excludes("--truncate"),
      Value("--retry", "SECONDS", Number(0, 3600, options->retrySeconds),
            "How long to wait for a server that is gone, in seconds (30; at the start and for a single TEXT "
            "0)"),
      Flag("--confirm", options->confirm,
           "Look for the message in the log; exit code 1 if it was dropped or not seen"),
  });
  verb.Add(OptionsOfAll(*options));
  verb.check = [options](const Given& given) {
    options->hasArgument = given.Has("TEXT");
    options->waitAtStart = given.Has("--retry");
    for (const char* const name : {"--source", "--type", "--time"}) {
      if (options->input == "tsv" && given.Has(name))
        return std::string(name) + ": cannot be used with --input tsv: each line has its own";
    }
    return std::string();
  };
  return verb;
}

}  // namespace TamLogCtl
