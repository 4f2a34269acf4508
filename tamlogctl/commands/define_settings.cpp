#include "tamlogctl/commands/shared_options.h"
#include "tamlogctl/commands/verbs.h"
#include "tamlogctl/select/message_selection.h"
#include "tamlogctl/server/clear.h"
#include "tamlogctl/server/settings.h"

namespace TamLogCtl {

namespace {

using Options = std::shared_ptr<SettingsOptions>;

constexpr const char* kSettingsFooter = R"(Examples:
  tamlogctl settings                          capacity, rates, types
  tamlogctl settings set --capacity 100000    a larger log, with its messages
  tamlogctl settings path                     where the log file is)";

constexpr const char* kGetFooter = R"(Examples:
  tamlogctl settings get                      for people
  tamlogctl settings get -o json > saved.json restored by: settings set - < saved.json
  tamlogctl settings get --timeout 20000      of a server that is slow to answer)";

constexpr const char* kSetFooter =
    R"(Reads the settings, changes those named, writes them back and waits until the server has restarted with
them. A change of capacity usually empties the log, so its messages are saved in a file first. Where the
capacity grows they are also sent again; where it shrinks --keep sends as many as there is room for. With
--no-backup and without sending them again it asks on a terminal, unless --yes is given. Exit code 1 when
another capacity is in effect afterwards, or the user declined.

Examples:
  tamlogctl settings set --types 0,1,3        drops messages of type 2
  tamlogctl settings set --capacity 100000    more room; the messages are sent again
  tamlogctl settings set - < saved.json       what `settings get -o json` printed)";

constexpr const char* kPathFooter =
    R"(The server moves its log to a new path at its next restart. The path is tried first: with a path that it
cannot use the server would not start again. Network, device and relative paths are rejected. An existing file would be
used if it is a log and emptied if it is not; without --force it is rejected. --offline sets or shows the path of a
stopped server, in the registry.

Examples:
  tamlogctl settings path                     prints the path
  tamlogctl settings path D:\Logs\Logs.dat --apply
                                              at once, not at the next restart
  tamlogctl settings path --offline D:\Logs\Logs.dat
                                              as an administrator, after a start that failed)";

constexpr const char* kClearFooter =
    R"(Asks before it empties the log, then offers to save the messages. Where standard input is no terminal nothing
can be asked, and it does nothing without --yes.
Messages that arrive between saving and emptying are lost.

Examples:
  tamlogctl clear                             asks on the terminal
  tamlogctl clear --backup old.dat --yes      saves, then empties; `show --file old.dat` shows them
  tamlogctl clear --yes --no-wait             for scripts that do not mind the restart)";

constexpr std::uint32_t kMostSaveSeconds = 4294967;  // beyond, the server's milliseconds overflow
constexpr std::uint32_t kMostPollMs = 0xFFFFFFFFU;

Verb Make(const char* name, const char* purpose, const char* footer, const Options& options,
          int (*run)(const SettingsOptions&), std::vector<Option> own) {
  Verb verb = MakeVerb(name, purpose, footer, options, run);
  verb.Add(std::move(own));
  verb.Add(OptionsOfAll(*options));
  return verb;
}

Verb Get() {
  const auto options = std::make_shared<SettingsOptions>();
  return Make("get", "Show the settings", kGetFooter, options, GetSettings, {JsonOption(options->json)});
}

Option TypesOption(std::optional<std::uint32_t>& to) {
  const auto take = [&to](const std::string& text) {
    to = ParseTypes(text);
    return to ? "" : "'" + text + "': expected types from 0 to 3, as 0,1,3 or 0-2";
  };
  return Value("--types", "LIST", take, "Types that are kept: 0,1,3 or 0-2");
}

Verb Set() {
  const auto options = std::make_shared<SettingsOptions>();
  SettingsChange& change = options->change;
  const auto fromInput = [to = options.get()](std::size_t) { to->fromInput = true; };
  Verb verb =
      Make("set", "Change settings; the server restarts with them", kSetFooter, options, SetSettings,
           {Words("INPUT", {"-"}, fromInput, "- reads a JSON object from standard input"),
            Value("--capacity", "N", Number(1, kMostMessages, change.capacity),
                  "Messages that the log holds, 1 to 1000000"),
            Value("--poll", "MS", Number(1, kMostPollMs, change.pollMs),
                  "Pause between two reads of the driver, in milliseconds, at least 1"),
            Value("--save", "S", Number(1, kMostSaveSeconds, change.saveSeconds),
                  "Pause between two forced writes to disk, in seconds, at least 1"),
            TypesOption(change.types),
            Switch("--keep", "--no-keep", options->keep,
                   "After a change of capacity send the messages again, with their times (the default where "
                   "it grows), or "
                   "do not"),
            Value("--backup", "FILE", NewFile(options->backup),
                  "Where the messages are saved before a change of capacity (tamlog-DATE-TIME.dat here)"),
            Flag("--no-backup", options->noBackup, "Save nothing before a change of capacity")
                .Excludes("--backup"),
            Flag("--yes", options->yes, "Do not ask before messages are lost"),
            Switch("--wait", "--no-wait", options->wait,
                   "Wait until the server is back (the default), or do not")});
  verb.check = [options](const Given& given) {
    options->keepGiven = given.Has("--keep");
    const SettingsChange& named = options->change;
    const bool any = named.capacity || named.pollMs || named.saveSeconds || named.types;
    return std::string(any || options->fromInput
                           ? ""
                           : "settings set: name a setting to change, for example --capacity 100000");
  };
  return verb;
}

Verb Path() {
  const auto options = std::make_shared<SettingsOptions>();
  return Make("path", "Show or set the log file's path", kPathFooter, options, SettingsPath,
              {Operand("NEW", Text(options->path), "The new path, absolute, at most 255 bytes"),
               Flag("--apply", options->apply, "Restart the server, so that the path takes effect at once"),
               Flag("--force", options->force, "Also if the file already exists"),
               Flag("--offline", options->offline,
                    "In the registry, while the server is stopped; needs an administrator")
                   .Excludes("--apply"),
               Switch("--wait", "--no-wait", options->wait,
                      "With --apply: wait until the server is back (the default), or do not")});
}

Verb ClearVerb() {
  const auto options = std::make_shared<ClearOptions>();
  Verb verb = MakeVerb("clear", "Empty the log", kClearFooter, options, Clear);
  verb.Add({Value("--backup", "FILE", NewFile(options->backup), "Save the messages in this file first"),
            Flag("--yes", options->yes, "Do not ask"),
            Switch("--wait", "--no-wait", options->wait,
                   "Wait until the restart that follows is over (the default), or do not")});
  verb.Add(OptionsOfAll(*options));
  return verb;
}

}  // namespace

std::vector<Verb> SettingsVerbs() {
  Verb settings;
  settings.name = "settings";
  settings.purpose = "Show and change capacity, rates, types and the log's path";
  settings.footer = kSettingsFooter;
  settings.verbs = {Get(), Set(), Path()};
  settings.alone = "get";
  return {settings, ClearVerb()};
}

}  // namespace TamLogCtl
