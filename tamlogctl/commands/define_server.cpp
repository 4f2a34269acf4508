#include "tamlogctl/commands/shared_options.h"
#include "tamlogctl/commands/verbs.h"
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
  tamlogctl server                            the state that the service manager reports
  tamlogctl server start                      and wait until it answers
  tamlogctl server restart --wait 30          within 30 seconds, or exit code 5)";

constexpr const char* kInstallFooter =
    R"(Registers the service "TamLogServer" with automatic start, as an administrator, and lets every user start and stop
it. It does not start it.

Examples:
  tamlogctl server install                    TamLogServer.exe of this program's directory
  tamlogctl server install --program C:\Torvane\TamLogServer.exe
                                              another one
  tamlogctl server install && tamlogctl server start)";

constexpr const char* kRemoveFooter =
    R"(Stops the service and removes its registration, as an administrator. The settings in the registry and the log file
stay.

Examples:
  tamlogctl server remove                     stops it first
  tamlogctl server remove --wait 120          waits longer for the stop
  tamlogctl server remove && tamlogctl server install
                                              registers another program)";

constexpr const char* kStateFooter = R"(Exit code 0 running, 1 installed and not running, 3 not installed.

Examples:
  tamlogctl server state                      running, process 1234
  tamlogctl server state -o json              for programs
  tamlogctl server state >nul || tamlogctl server start)";

constexpr const char* kStartFooter = R"(Examples:
  tamlogctl server start                      and wait until it answers
  tamlogctl server start --wait 120           waits longer
  tamlogctl server start && tamlogctl follow)";

constexpr const char* kStopFooter = R"(A stop takes up to 15 s when readers keep the log open.

Examples:
  tamlogctl server stop                       and wait until it has stopped
  tamlogctl server stop --wait 30             or exit code 5
  tamlogctl server stop && tamlogctl show --file Logs.dat)";

constexpr const char* kRestartFooter = R"(Examples:
  tamlogctl server restart                    and wait until it answers again
  tamlogctl server restart --wait 120         waits longer
  tamlogctl settings path D:\Logs.dat && tamlogctl server restart)";

constexpr const char* kDoctorFooter =
    R"(Checks the service and its last start, the driver, the pipe and who answers on it, path, settings, filters,
the shared log and its locks, reads once, and names the size of the server's own log of failures. A reader counts as
stuck when the lock's counters have not changed for --watch milliseconds. A slow reader looks the same, so make sure
before --unstick: it lets the server write while that reader may still be reading.
Exit code 0 no problem found, 1 something was found, 3 no server, 4 access denied.

Examples:
  tamlogctl doctor                            one line a check, and the fix
  tamlogctl doctor -o json                    for programs
  tamlogctl doctor --unstick                  after a reader died inside)";

Verb Status() {
  const auto options = std::make_shared<StatusOptions>();
  Verb verb = MakeVerb("status", "Show whether the server runs, its settings and how full the log is",
                       kStatusFooter, options, ShowStatus);
  verb.Add({JsonOption(options->json)});
  verb.Add(OptionsOfAll(*options));
  return verb;
}

Verb Control(const char* name, const char* purpose, const char* footer, int (*run)(const ServerOptions&)) {
  const auto options = std::make_shared<ServerOptions>();
  Verb verb = MakeVerb(name, purpose, footer, options, run);
  const auto wait = [to = options.get()](std::uint64_t seconds) {
    to->waitMs = static_cast<std::uint32_t>(seconds) * 1000;
  };
  verb.Add({Value("--wait", "SECONDS", Number(1, 600, wait), "How long to wait for it, in seconds (60)")});
  verb.Add(OptionsOfAll(*options));
  return verb;
}

Verb Install() {
  const auto options = std::make_shared<ServerOptions>();
  Verb verb = MakeVerb("install", "Register the service", kInstallFooter, options, InstallServer);
  verb.Add({Value("--program", "FILE", Text(options->program),
                  "The server's program (TamLogServer.exe in this program's directory)")});
  verb.Add(OptionsOfAll(*options));
  return verb;
}

Verb State() {
  const auto options = std::make_shared<ServerOptions>();
  Verb verb = MakeVerb("state", "Show the service's state", kStateFooter, options, ShowServerState);
  verb.Add({JsonOption(options->json)});
  verb.Add(OptionsOfAll(*options));
  return verb;
}

Verb Server() {
  Verb server;
  server.name = "server";
  server.purpose = "Install, start, stop, inspect and remove the service";
  server.footer = kServerFooter;
  server.verbs = {
      Control("start", "Start the service", kStartFooter, StartServer),
      Control("stop", "Stop the service", kStopFooter, StopServer),
      Control("restart", "Stop and start the service", kRestartFooter, RestartServer),
      State(),
      Install(),
      Control("remove", "Stop the service and remove its registration", kRemoveFooter, RemoveServer)};
  server.alone = "state";
  return server;
}

Verb DoctorVerb() {
  const auto options = std::make_shared<DoctorOptions>();
  Verb verb =
      MakeVerb("doctor", "Check everything that can be wrong with a server", kDoctorFooter, options, Doctor);
  verb.Add(
      {Flag("--unstick", options->unstick, "Release what a dead reader or a half-open client still holds"),
       Flag("--restore-rights", options->restoreRights,
            "Let every user start and stop the service again; needs an administrator")
           .Excludes("--unstick"),
       Value("--watch", "MS", Number(100, 60000, options->watchMs),
             "Time without any change after which a reader counts as stuck, in milliseconds (2000)"),
       JsonOption(options->json)});
  verb.Add(OptionsOfAll(*options));
  return verb;
}

}  // namespace

std::vector<Verb> ServerVerbs() {
  return {Status(), Server(), DoctorVerb()};
}

}  // namespace TamLogCtl
