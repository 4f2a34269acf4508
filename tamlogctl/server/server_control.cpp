#include "tamlogctl/server/server_control.h"
#include "tamlogctl/server/access_list_reader.h"

#include <functional>
#include <string>

#include "client/live/log_client.h"
#include "client/message/win32.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/base/system_text.h"
#include "tamlogctl/base/wait.h"
#include "tamlogctl/server/server_program.h"
#include "tamlogctl/server/service.h"
#include "tamlogctl/server/start_failure.h"

namespace TamLogCtl {

namespace {

using TamLogClient::Status;

constexpr std::uint32_t kAskEveryMs = 200;

// Reports why the service manager refused, and returns the exit code. `verb` is "server start", for example.
int RefusedByManager(const std::string& verb, std::uint32_t error) {
  const bool starts = verb == "server start" || verb == "server restart";
  switch (error) {
    case ERROR_ACCESS_DENIED:
      return Refuse(kAccessDenied, verb + ": access denied; " + ServiceAdvice(ServiceState::Denied));
    case ERROR_SERVICE_DOES_NOT_EXIST:
      // Only a start needs advice: there is nothing to stop or remove.
      return Refuse(kNotThere,
                    verb + ": the service is not installed" +
                        (starts ? std::string("; ") + ServiceAdvice(ServiceState::NotInstalled) : ""));
    case ERROR_SERVICE_DISABLED:
      return Refuse(kRefused, verb + ": the service is disabled; enable it in the service manager");
    default:
      return Refuse(kRefused, verb + ": the service manager refused: " + SystemText(error));
  }
}

enum class Progressing : std::uint8_t { Reached, Waiting, Failed };

// Returns how far the service is. May replace `state`, the text that is shown while it waits, or the reason
// when it failed.
using Look = std::function<Progressing(const ServiceReport&, std::string& state)>;

// Waits until `look` returns Reached or Failed, and shows the state meanwhile. Returns the exit code.
int WaitFor(const std::string& verb, std::uint32_t waitMs, const Look& look) {
  Progress progress(verb + ":");
  std::string state;
  Progressing now = Progressing::Waiting;
  int failure = kRefused;
  const auto reached = [&] {
    const ServiceReport report = QueryService();
    state = ServiceText(report);
    now = look(report, state);
    if (report.state == ServiceState::NotInstalled) failure = kNotThere;
    if (now != Progressing::Waiting) return true;
    progress.Show(state);
    return false;
  };
  const int waited = WaitUntil(waitMs, kAskEveryMs, reached);
  if (now == Progressing::Failed) return Refuse(failure, verb + ": " + state);
  if (waited != kTimedOut) return waited;
  return Refuse(kTimedOut, verb + ": not done after " + std::to_string(waitMs / 1000) +
                               " s, the service is " + state + "; see: tamlogctl doctor");
}

constexpr const char* kRemovedMeanwhile = "the service was removed meanwhile";

int Stop(const std::string& verb, const ServerOptions& options) {
  const std::uint32_t error = RequestServiceStop();
  // These are no refusals: the service manager waits less long than a stop that waits for readers, the
  // process may end before it answers, and it may have stopped already. The service's state decides.
  const bool goesOn = error == ERROR_SUCCESS || error == ERROR_SERVICE_REQUEST_TIMEOUT ||
                      error == ERROR_BROKEN_PIPE || error == ERROR_SERVICE_NOT_ACTIVE ||
                      error == ERROR_SERVICE_CANNOT_ACCEPT_CTRL || QueryService().processGone;
  if (!goesOn) return RefusedByManager(verb, error);
  return WaitFor(verb, options.waitMs, [](const ServiceReport& report, std::string& state) {
    if (report.state == ServiceState::Stopped || report.processGone) return Progressing::Reached;
    if (report.state != ServiceState::NotInstalled) return Progressing::Waiting;
    state = kRemovedMeanwhile;
    return Progressing::Failed;
  });
}

// Waits until the server answers, which is later than the service manager's "running".
int Start(const ServerOptions& options) {
  const StartFailure failure;
  const std::uint32_t error = RequestServiceStart();
  if (error != ERROR_SUCCESS && error != ERROR_SERVICE_ALREADY_RUNNING)
    return RefusedByManager("server start", error);
  TamLogClient::LogClient client({kRequestPipeName, 1000, 200});
  const auto look = [&client, &failure](const ServiceReport& report, std::string& state) {
    if (report.state == ServiceState::NotInstalled) {
      state = kRemovedMeanwhile;
      return Progressing::Failed;
    }
    if (const auto reason = failure.Look(report)) {
      state = *reason + "; see: tamlogctl doctor";
      return Progressing::Failed;
    }
    if (report.state != ServiceState::Running) return Progressing::Waiting;
    if (client.Ping() == Status::Ok) return Progressing::Reached;
    state = "running, but does not answer yet";
    return Progressing::Waiting;
  };
  return WaitFor("server start", options.waitMs, look);
}

int Report(int exitCode, const char* success) {
  if (exitCode == kDone) Say(success);
  return exitCode;
}

}  // namespace

int StartServer(const ServerOptions& options) {
  DeferInterrupts();
  return Report(Start(options), "the server is running");
}

int StopServer(const ServerOptions& options) {
  DeferInterrupts();
  return Report(Stop("server stop", options), "the server is stopped");
}

int RestartServer(const ServerOptions& options) {
  DeferInterrupts();
  const int stopped = Stop("server restart", options);
  return stopped == kDone ? Report(Start(options), "the server is running again") : stopped;
}

// The service runs its program with all rights of the machine.
void WarnOfOthers(const std::string& program) {
  std::string names;
  for (const std::string& name : OthersWhoMayChange(program)) names += (names.empty() ? "" : ", ") + name;
  if (names.empty()) return;
  Say("warning: " + program + " can be changed or replaced by " + names +
      ", and runs as local system; install it from a directory that only administrators can change, such as "
      "C:\\Program Files\\Torvane");
}

int InstallServer(const ServerOptions& options) {
  if (QueryService().state != ServiceState::NotInstalled)
    return Refuse(kUsage, "server install: the service is already installed; see: tamlogctl server state");
  const std::string program = options.program.empty() ? ServerProgramHere() : options.program;
  if (const std::string problem = RunInstallation(program); !problem.empty()) {
    const bool denied = problem == kAccessDeniedText;
    return Refuse(denied ? kAccessDenied : kRefused, "server install: " + problem);
  }
  // The installation grants it by the name EVERYONE, which other languages of the system do not have.
  const ServiceDetails details = QueryServiceDetails();
  if (details.everyoneMayControl == false) GrantControlToEveryone();
  WarnOfOthers(details.program);
  Say("installed " + program + "; start it: tamlogctl server start");
  return kDone;
}

int RemoveServer(const ServerOptions& options) {
  DeferInterrupts();
  const ServiceReport report = QueryService();
  if (report.state == ServiceState::Running || report.state == ServiceState::Pending) {
    if (const int stopped = Stop("server remove", options); stopped != kDone) return stopped;
  }
  const std::uint32_t error = DeleteServiceEntry();
  if (error != ERROR_SUCCESS) return RefusedByManager("server remove", error);
  Say("the service is removed; its settings and the log file stay");
  return kDone;
}

int ShowServerState(const ServerOptions& options) {
  const ServiceReport report = QueryService();
  const std::string state = ServiceText(report);
  std::string out = state + "\n";
  if (options.json) {
    out = R"({"state":")" + state + R"(","process":)" +
          (report.processId != 0 ? std::to_string(report.processId) : std::string("null")) + "}\n";
  } else if (report.processId != 0) {
    out = state + ", process " + std::to_string(report.processId) + "\n";
  }
  if (!WriteLines(out)) return kOutputFailed;
  switch (report.state) {
    case ServiceState::Running:
      return report.processGone ? kNegative : kDone;
    case ServiceState::NotInstalled:
      return kNotThere;
    case ServiceState::Denied:
      return kAccessDenied;
    default:
      return kNegative;
  }
}

}  // namespace TamLogCtl
