// The server as a service: its registration, its start and stop, and its recovery by the manager.

#include "check/checks.h"
#include "check/child.h"
#include "check/less_rights.h"
#include "check/system.h"
#include "client/live/log_client.h"
#include "client/message/win32.h"

#undef StartService

namespace TamLogCheck {

namespace {

constexpr std::uint32_t kRestartsWithinMs = 20000;  // 5 s of the manager, and a start on a slow machine

Verdict Registered(Session&) {
  const std::optional<Registration> found = FindRegistration();
  if (!found) return Differs("the service is not registered");
  Values values{
      {"command line", found->commandLine}, {"account", found->account}, {"description", found->description}};
  if (!found->commandLine.starts_with('"')) return Differs("the path is not between quotation marks", values);
  if (!found->automatic) return Differs("the service does not start with the machine", values);
  if (!found->ownProcess) return Differs("the service shares its process", values);
  return HoldsIf(found->account == "LocalSystem", "the service does not run as the local system", values);
}

Verdict EveryoneMayControl(Session&) {
  const std::string list = ServiceAccessList();
  return HoldsIf(list.find("(A;;RPWPRC;;;WD)") != std::string::npos, "the list has no entry (A;;RPWPRC;;;WD)",
                 {{"access list", list}});
}

Verdict UserMayStartAndStop(Session&) {
  const LessRights asUser(LessRights::Kind::OrdinaryUser);
  const std::uint32_t control = TryServiceRight(ServiceRight::StartAndStop);
  const std::uint32_t change = TryServiceRight(ServiceRight::Change);
  return HoldsIf(control == 0 && change == ERROR_ACCESS_DENIED,
                 "opening the service to start and stop it: " + ErrorText(control) +
                     ", to change it: " + ErrorText(change));
}

Verdict RecoveryIsKept(Session& session) {
  const Recovery wanted = RecoveryOfThePackages();
  // The packages have set it for an installed service.
  if (!session.WasInstalled()) {
    const std::uint32_t error = SetRecovery(wanted);
    if (error != 0) return Differs("setting it: " + ErrorText(error));
  }
  const std::optional<Recovery> found = FindRecovery();
  if (!found) return Differs("the system does not report the recovery");
  return HoldsIf(*found == wanted, "the service has: " + TextOf(*found), {{"set", TextOf(wanted)}});
}

Verdict RecoveryRestarts(Session& session) {
  const std::optional<Recovery> found = FindRecovery();
  if (!found || found->actions.empty()) {
    const std::uint32_t error = SetRecovery(RecoveryOfThePackages());
    if (error != 0) return Differs("setting the recovery: " + ErrorText(error));
  }
  session.Fresh(100);
  const std::uint32_t before = StatusOf().processId;
  const std::uint64_t begin = Ticks();
  session.Kill();
  const bool back = Eventually(kRestartsWithinMs, [&] {
    TamLogClient::LogClient client;
    return StatusOf().processId != before && session.Alive() && client.Ping() == TamLogClient::Status::Ok;
  });
  const std::uint64_t took = Ticks() - begin;
  if (!back) return Differs("no new process within 20 s");
  return Holds({{"ms", std::to_string(took)}});
}

Verdict StartsAndStops(Session& session) {
  session.Fresh(100);
  const std::uint64_t stop = session.Stop();
  const ServiceStatus status = StatusOf();
  const std::uint64_t start = session.Start();
  return HoldsIf(stop < 10000 && start < 10000 && status.exitCode == 0, "see the values",
                 {{"stop_ms", std::to_string(stop)},
                  {"start_ms", std::to_string(start)},
                  {"exit code", std::to_string(status.exitCode)}});
}

Verdict EndsAtOnceFromAConsole(Session& session) {
  const std::optional<Registration> registration = FindRegistration();
  if (!registration) return NotTried("the service is not registered");
  if (session.Alive()) session.Stop();
  const std::uint64_t begin = Ticks();
  Child server(registration->commandLine);
  const std::optional<std::uint32_t> code = server.WaitForEnd(10000);
  const std::uint64_t took = Ticks() - begin;
  Values values{{"ms", std::to_string(took)}};
  if (!code) return Differs("the program did not end within 10 s", values);
  return HoldsIf(took < 5000, "the program took longer than 5 s", values);
}

// A start that fails leaves the service stopped, ends the process, and gives the reason in the diagnostic
// log.
Verdict FailedStart(Session& session) {
  session.Fresh(100);
  session.Stop();
  const std::uint64_t logged = SizeOf(Session::DiagnosticLog());
  WriteLogFile(PathIn(session.Folder(), "missing\\Logs.dat"));
  const std::uint32_t error = StartService();
  const bool stopped = Eventually(20000, [&session] { return StatusOf().Stopped() && !session.Alive(); });
  const std::uint64_t entry = SizeOf(Session::DiagnosticLog()) - logged;
  Values values{{"start", ErrorText(error)},
                {"exit code", std::to_string(StatusOf().exitCode)},
                {"bytes in the diagnostic log", std::to_string(entry)}};
  if (!stopped) return Differs("the service is not shown as stopped", values);
  return HoldsIf(entry > 0, "no reason in " + Session::DiagnosticLog(), values);
}

// A stop of a server whose reader has died inside takes at most 15 s.
Verdict StopPassesADeadReader(Session& session) {
  session.Fresh(100);
  {
    Child reader(PartCommand("inside"));
    if (reader.ReadLine(15000) != "ready") return NotTried("the reader did not get access");
  }
  SubmitAll("dead reader", 5);
  const std::uint64_t took = session.Stop();
  session.Start();
  const std::string still =
      SharedTexts("dead reader").empty() ? "only what was pending is lost" : "nothing is lost";
  return HoldsIf(took < 25000, "the stop took " + std::to_string(took) + " ms",
                 {{"stop_ms", std::to_string(took)}, {"messages", still}});
}

}  // namespace

const std::vector<Check>& ChecksOfTheService() {
  static const std::vector<Check> kChecks{
      {"service.registered",
       "The service starts with the machine, in its own process as the local system, from a quoted path.",
       Needs::Server, Registered},
      {"service.everyone-may-control", "The service's access list lets everyone start and stop it.",
       Needs::Server, EveryoneMayControl},
      {"service.user-may-start-and-stop",
       "An ordinary user may start and stop the service, and not change it.", Needs::Server,
       UserMayStartAndStop},
      {"service.starts-and-stops", "Start and stop take less than 10 s, and the exit code is 0.",
       Needs::Server, StartsAndStops},
      {"service.failed-start",
       "A start that fails leaves the service stopped, without a process, and the reason in "
       "TamLogServiceLog.txt in the system directory.",
       Needs::Server, FailedStart},
      {"service.ends-at-once-from-a-console", "Started from a console, TamLogServer.exe ends at once.",
       Needs::Server, EndsAtOnceFromAConsole},
      {"service.stop-passes-a-dead-reader", "A stop takes at most 15 s longer when a reader has died inside.",
       Needs::Server, StopPassesADeadReader},
      {"service.recovery-is-kept", "The manager keeps the recovery that the packages set.", Needs::Server,
       RecoveryIsKept},
      {"service.recovery-restarts", "The manager restarts a server whose process was ended.", Needs::Server,
       RecoveryRestarts},
  };
  return kChecks;
}

}  // namespace TamLogCheck
