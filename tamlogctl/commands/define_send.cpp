#include <CLI/CLI.hpp>
#include <memory>

#include "tamlogctl/commands/command_line.h"
#include "tamlogctl/server/send.h"

namespace TamLogCtl {

namespace {

constexpr const char* kSendFooter =
    R"(Without TEXT each line of standard input is one message. A text has at most 256 bytes; a longer one is
refused, with its line, unless --truncate or --split says otherwise. With --confirm it is told for each message
whether it was stored, which filter or type dropped it, or that it was not seen in 1 s (exit code 1).

Examples:
  tamlogctl send -s Demo -t 1 "door opened"   one message, with the time of now
  dmesg | tamlogctl send -s Kernel --truncate one message a line
  tamlogctl send --input tsv saved.tsv        what `show -o tsv` wrote, with its times and sources)";

}  // namespace

void DefineSendVerbs(CLI::App& app, Action& chosen) {
  const auto options = std::make_shared<SendOptions>();
  CLI::App* verb = app.add_subcommand("send", "Hand in one message, or one for each line of standard input");
  verb->footer(kSendFooter);
  verb->add_option("TEXT", options->argument, "The message's text (with --input: a file to read)");
  verb->add_option("-s,--source", options->source, "Who says it (tamlogctl)")->option_text("SOURCE");
  verb->add_option("-t,--type", options->type, "Its type, 0 to 3 (0)")
      ->check(CLI::Range(0, 3))
      ->option_text("TYPE");
  verb->add_option("--time", options->time, "Its time, YYYY-MM-DD HH:MM:SS.mmm (now)")->option_text("TIME");
  verb->add_option("--input", options->input, "Lines of text, or of tsv: time, type, source, text")
      ->check(CLI::IsMember({"text", "tsv"}))
      ->option_text("text|tsv");
  CLI::Option* truncate = verb->add_flag_callback(
      "--truncate", [options] { options->longText = LongText::Truncate; },
      "Cut a text of more than 256 bytes");
  verb->add_flag_callback(
          "--split", [options] { options->longText = LongText::Split; },
          "Send a text of more than 256 bytes as several messages")
      ->excludes(truncate);
  verb->add_flag("--confirm", options->confirm,
                 "Look for the message in the log; exit code 1 if it was dropped or not seen");
  DefineCommonOptions(*verb, *options);
  verb->callback([verb, options, &chosen] {
    options->hasArgument = verb->count("TEXT") > 0;
    for (const char* const name : {"--source", "--type", "--time"}) {
      if (options->input == "tsv" && verb->count(name) > 0)
        throw CLI::ValidationError(name, "cannot be used with --input tsv: each line has its own");
    }
    chosen = [options] { return Send(*options); };
  });
}

}  // namespace TamLogCtl
