#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <string>

#include "tamlogctl/commands/command_line.h"
#include "tamlogctl/server/doctor.h"
#include "tamlogctl/server/server_control.h"
#include "tamlogctl/server/status.h"

namespace TamLogCtl {

namespace {

constexpr const char* kStatusFooter =
    R"(Exit code 0 when the server answers and shares its log, 3 when it is not running, 5 when only one of the
two works.

Examples:
  tamlogctl status                            for people
  tamlogctl status -o json                    for programs
  tamlogctl status >nul && echo running       for scripts)";

constexpr const char* kServerFooter = R"(Examples:
  tamlogctl server state                      what the service manager says
  tamlogctl server start                      and wait until it answers
  tamlogctl server restart --wait 30          within 30 seconds, or exit code 5)";

constexpr const char* kStateFooter = R"(Exit code 0 running, 1 installed and not running, 3 not installed.

Examples:
  tamlogctl server state                      running, process 1234
  tamlogctl server state -o json              for programs
  tamlogctl server state >nul || tamlogctl server start)";

constexpr const char* kStartFooter = R"(Examples:
  tamlogctl server start                      and wait until it answers
  tamlogctl server start --wait 120           with more patience
  tamlogctl server start && tamlogctl follow)";

constexpr const char* kStopFooter = R"(A stop takes up to 15 s when readers keep the log open.

Examples:
  tamlogctl server stop                       and wait until it has stopped
  tamlogctl server stop --wait 30             or exit code 5
  tamlogctl server stop && tamlogctl show --file Logs.dat)";

constexpr const char* kRestartFooter = R"(Examples:
  tamlogctl server restart                    and wait until it answers again
  tamlogctl server restart --wait 120         with more patience
  tamlogctl settings path D:\Logs.dat && tamlogctl server restart)";

constexpr const char* kDoctorFooter =
    R"(Looks at the service, the pipe, settings, filters, the shared log and its locks, and reads once. A reader
counts as stuck when nobody has moved for --watch milliseconds; one that only is slow looks the same, so make
sure before --unstick: it lets the server write under whoever is inside.
Exit code 0 all is well, 1 something was found, 3 no server, 4 access denied.

Examples:
  tamlogctl doctor                            one line a check, and the mend
  tamlogctl doctor -o json                    for programs
  tamlogctl doctor --unstick                  after a reader died inside)";

void DefineStatus(CLI::App& app, Action& chosen) {
  const auto options = std::make_shared<StatusOptions>();
  CLI::App* verb =
      app.add_subcommand("status", "Show whether the server runs, its settings and how full the log is");
  verb->footer(kStatusFooter);
  verb->add_option_function<std::string>(
          "-o,--output", [options](const std::string& format) { options->json = format == "json"; },
          "Format: text or json")
      ->check(CLI::IsMember({"text", "json"}))
      ->option_text("text|json");
  DefineCommonOptions(*verb, *options);
  verb->callback([options, &chosen] { chosen = [options] { return ShowStatus(*options); }; });
}

void DefineControl(CLI::App& parent, const char* name, const char* purpose, const char* footer,
                   int (*run)(const ServerOptions&), Action& chosen) {
  const auto options = std::make_shared<ServerOptions>();
  CLI::App* verb = parent.add_subcommand(name, purpose);
  verb->footer(footer);
  verb->add_option_function<std::uint32_t>(
          "--wait", [options](const std::uint32_t& seconds) { options->waitMs = seconds * 1000; },
          "How long to wait for it, in seconds (60)")
      ->check(CLI::Range(1, 600))
      ->option_text("SECONDS");
  DefineCommonOptions(*verb, *options);
  verb->callback([options, run, &chosen] { chosen = [options, run] { return run(*options); }; });
}

void DefineServer(CLI::App& app, Action& chosen) {
  CLI::App* server = app.add_subcommand("server", "Start, stop and look at the service");
  server->footer(kServerFooter);
  server->require_subcommand(1);
  DefineControl(*server, "start", "Start the service", kStartFooter, StartServer, chosen);
  DefineControl(*server, "stop", "Stop the service", kStopFooter, StopServer, chosen);
  DefineControl(*server, "restart", "Stop and start the service", kRestartFooter, RestartServer, chosen);
  const auto options = std::make_shared<ServerOptions>();
  CLI::App* state = server->add_subcommand("state", "Show the service's state");
  state->footer(kStateFooter);
  state
      ->add_option_function<std::string>(
          "-o,--output", [options](const std::string& format) { options->json = format == "json"; },
          "Format: text or json")
      ->check(CLI::IsMember({"text", "json"}))
      ->option_text("text|json");
  DefineCommonOptions(*state, *options);
  state->callback([options, &chosen] { chosen = [options] { return ShowServerState(*options); }; });
}

void DefineDoctor(CLI::App& app, Action& chosen) {
  const auto options = std::make_shared<DoctorOptions>();
  CLI::App* verb = app.add_subcommand("doctor", "Check everything that can be wrong with a server");
  verb->footer(kDoctorFooter);
  verb->add_flag("--unstick", options->unstick, "Mend what a dead reader or a half-open client left behind");
  verb->add_option("--watch", options->watchMs,
                   "How long nobody may move until a reader counts as stuck, in milliseconds (2000)")
      ->check(CLI::Range(100, 60000))
      ->option_text("MS");
  verb->add_option_function<std::string>(
          "-o,--output", [options](const std::string& format) { options->json = format == "json"; },
          "Format: text or json")
      ->check(CLI::IsMember({"text", "json"}))
      ->option_text("text|json");
  DefineCommonOptions(*verb, *options);
  verb->callback([options, &chosen] { chosen = [options] { return Doctor(*options); }; });
}

}  // namespace

void DefineServerVerbs(CLI::App& app, Action& chosen) {
  DefineStatus(app, chosen);
  DefineServer(app, chosen);
  DefineDoctor(app, chosen);
}

}  // namespace TamLogCtl
