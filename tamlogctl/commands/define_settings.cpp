#include <CLI/CLI.hpp>
#include <memory>

#include "tamlogctl/commands/command_line.h"
#include "tamlogctl/select/message_selection.h"
#include "tamlogctl/server/clear.h"
#include "tamlogctl/server/settings.h"

namespace TamLogCtl {

namespace {

using Options = std::shared_ptr<SettingsOptions>;

constexpr const char* kSettingsFooter = R"(Examples:
  tamlogctl settings get                      capacity, rates, types
  tamlogctl settings set --capacity 100000 --keep
                                              a larger log, with its messages
  tamlogctl settings path                     where the log file is)";

constexpr const char* kGetFooter = R"(Examples:
  tamlogctl settings get                      for people
  tamlogctl settings get -o json > saved.json to be set again: settings set - < saved.json
  tamlogctl settings get --timeout 20000      of a server that is slow to answer)";

constexpr const char* kSetFooter =
    R"(Reads the settings, changes what is named, writes them back and waits until the server has restarted with
them. A change of capacity usually empties the log, so its messages are saved in a file first, and --keep
hands them in again. Exit code 1 when another capacity is in effect afterwards.

Examples:
  tamlogctl settings set --types 0,1,3        drops messages of type 2
  tamlogctl settings set --capacity 100000 --keep
                                              more room, and the messages handed in again
  tamlogctl settings set - < saved.json       what `settings get -o json` printed)";

constexpr const char* kPathFooter =
    R"(The server moves its log to a new path at its next restart. A file that lies there already would be used
if it is a log, and emptied if it is not: it is refused without --force.

Examples:
  tamlogctl settings path                     prints the path
  tamlogctl settings path D:\Logs\Logs.dat    from the next restart on
  tamlogctl settings path D:\Logs\Logs.dat --apply
                                              at once)";

constexpr const char* kClearFooter =
    R"(Asks before it empties the log, and offers to save the messages; where nobody can be asked, --yes is needed.
What arrives between the saving and the emptying is lost.

Examples:
  tamlogctl clear                             asks on the terminal
  tamlogctl clear --backup old.dat --yes      saves, then empties; `show --file old.dat` shows them
  tamlogctl clear --yes --no-wait             for scripts that do not mind the restart)";

CLI::App* Define(CLI::App& parent, const char* name, const char* purpose, const char* footer,
                 const Options& options, int (*run)(const SettingsOptions&), Action& chosen) {
  CLI::App* verb = parent.add_subcommand(name, purpose);
  verb->footer(footer);
  DefineCommonOptions(*verb, *options);
  verb->callback([options, run, &chosen] { chosen = [options, run] { return run(*options); }; });
  return verb;
}

void DefineNumber(CLI::App& verb, const char* name, std::optional<std::uint32_t>& to, std::uint32_t most,
                  const char* unit, const char* purpose) {
  verb.add_option_function<std::uint32_t>(
          name, [&to](const std::uint32_t& value) { to = value; }, purpose)
      ->check(CLI::Range(1U, most))
      ->option_text(unit);
}

void DefineSet(CLI::App& parent, Action& chosen) {
  const auto options = std::make_shared<SettingsOptions>();
  CLI::App* verb = Define(parent, "set", "Change settings; the server restarts with them", kSetFooter,
                          options, SetSettings, chosen);
  verb->add_option_function<std::string>(
          "INPUT", [options](const std::string& /*dash*/) { options->fromInput = true; },
          "- reads a JSON object from standard input")
      ->check(CLI::IsMember({"-"}));
  SettingsChange& change = options->change;
  DefineNumber(*verb, "--capacity", change.capacity, 1000000, "N",
               "Messages that the log holds, 1 to 1000000");
  DefineNumber(*verb, "--poll", change.pollMs, 0xFFFFFFFFU, "MS",
               "Pause between two readings of the driver, in milliseconds, at least 1");
  DefineNumber(*verb, "--save", change.saveSeconds, 4294967, "S",
               "Pause between two forced writes to disk, in seconds, at least 1");
  verb->add_option_function<std::string>(
          "--types", [options](const std::string& text) { options->change.types = ParseTypes(text); },
          "Types that are kept: 0,1,3 or 0-2")
      ->check([](const std::string& text) {
        return ParseTypes(text) ? "" : "'" + text + "': expected types from 0 to 3, as 0,1,3 or 0-2";
      })
      ->option_text("LIST");
  verb->add_flag("--keep", options->keep,
                 "After a change of capacity hand the messages in again, with their times");
  CLI::Option* backup =
      verb->add_option("--backup", options->backup,
                       "Where the messages are saved before a change of capacity (tamlog-DATE-TIME.dat here)")
          ->option_text("FILE");
  verb->add_flag("--no-backup", options->noBackup, "Save nothing before a change of capacity")
      ->excludes(backup);
  verb->add_flag("--wait,!--no-wait", options->wait,
                 "Wait until the server is back (the default), or do not");
  verb->parse_complete_callback([verb, options] {
    const SettingsChange& named = options->change;
    const bool any = named.capacity || named.pollMs || named.saveSeconds || named.types;
    if (!any && !options->fromInput) {
      throw CLI::ValidationError("settings set", "name what is to be changed, for example --capacity 100000");
    }
  });
}

void DefinePath(CLI::App& parent, Action& chosen) {
  const auto options = std::make_shared<SettingsOptions>();
  CLI::App* verb =
      Define(parent, "path", "Show or set the log file's path", kPathFooter, options, SettingsPath, chosen);
  verb->add_option("NEW", options->path, "The new path, absolute, at most 255 bytes");
  verb->add_flag("--apply", options->apply, "Restart the server, so that it takes effect at once");
  verb->add_flag("--force", options->force, "Also if a file lies there already");
  verb->add_flag("--wait,!--no-wait", options->wait,
                 "With --apply: wait until the server is back (the default)");
}

void DefineClear(CLI::App& app, Action& chosen) {
  const auto options = std::make_shared<ClearOptions>();
  CLI::App* verb = app.add_subcommand("clear", "Empty the log");
  verb->footer(kClearFooter);
  verb->add_option("--backup", options->backup, "Save the messages in this file first")->option_text("FILE");
  verb->add_flag("--yes", options->yes, "Do not ask");
  verb->add_flag("--wait,!--no-wait", options->wait,
                 "Wait until the restart that follows is over (the default), or do not");
  DefineCommonOptions(*verb, *options);
  verb->callback([options, &chosen] { chosen = [options] { return Clear(*options); }; });
}

}  // namespace

void DefineSettingsVerbs(CLI::App& app, Action& chosen) {
  CLI::App* settings =
      app.add_subcommand("settings", "Show and change capacity, rates, types and the log's path");
  settings->footer(kSettingsFooter);
  settings->require_subcommand(1);
  const auto options = std::make_shared<SettingsOptions>();
  CLI::App* get = Define(*settings, "get", "Show the settings", kGetFooter, options, GetSettings, chosen);
  get->add_option_function<std::string>(
         "-o,--output", [options](const std::string& format) { options->json = format == "json"; },
         "Format: text or json")
      ->check(CLI::IsMember({"text", "json"}))
      ->option_text("text|json");
  DefineSet(*settings, chosen);
  DefinePath(*settings, chosen);
  DefineClear(app, chosen);
}

}  // namespace TamLogCtl
