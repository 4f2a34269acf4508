#include "tamlogctl/server/server_control.h"

#include <functional>
#include <string>

#include "client/live/log_client.h"
#include "client/message/win32.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/base/wait.h"
#include "tamlogctl/server/service.h"

namespace TamLogCtl {

namespace {

using TamLogClient::Status;

constexpr std::uint32_t kAskEveryMs = 200;

// Reports why the service manager refused, and returns the exit code. `verb` is "server start" or "server
// stop".
int RefusedByManager(const std::string& verb, std::uint32_t error) {
  switch (error) {
    case ERROR_ACCESS_DENIED:
      return Refuse(kAccessDenied, verb + ": access denied; " + ServiceAdvice(ServiceState::Denied));
    case ERROR_SERVICE_DOES_NOT_EXIST:
      return Refuse(kNotThere,
                    verb + ": the service is not installed; " + ServiceAdvice(ServiceState::NotInstalled));
    case ERROR_SERVICE_DISABLED:
      return Refuse(kRefused, verb + ": the service is disabled; enable it in the service manager");
    default:
      return Refuse(kRefused, verb + ": the service manager refused (error " + std::to_string(error) + ")");
  }
}

// Returns whether the service has reached its state. May replace `state`, the text that is shown while it is
// not.
using Reached = std::function<bool(const ServiceReport&, std::string& state)>;

// Waits until `reached` returns true, and shows the state meanwhile. Returns the exit code.
int WaitFor(const std::string& verb, std::uint32_t waitMs, const Reached& reached) {
  Progress progress(verb + ":");
  std::string state;
  const auto look = [&] {
    const ServiceReport report = QueryService();
    state = ServiceText(report);
    if (reached(report, state)) return true;
    progress.Show(state);
    return false;
  };
  const int waited = WaitUntil(waitMs, kAskEveryMs, look);
  if (waited != kTimedOut) return waited;
  return Refuse(kTimedOut, verb + ": not done after " + std::to_string(waitMs / 1000) +
                               " s, the service is " + state + "; see: tamlogctl doctor");
}

int Stop(const ServerOptions& options) {
  const std::uint32_t error = RequestServiceStop();
  // These are no refusals: the service manager waits less long than a stop that waits for readers, the
  // process may end before it answers, and it may have stopped already. The service's state decides.
  const bool goesOn = error == ERROR_SUCCESS || error == ERROR_SERVICE_REQUEST_TIMEOUT ||
                      error == ERROR_BROKEN_PIPE || error == ERROR_SERVICE_NOT_ACTIVE ||
                      error == ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
  if (!goesOn) return RefusedByManager("server stop", error);
  return WaitFor("server stop", options.waitMs, [](const ServiceReport& report, std::string& /*state*/) {
    return report.state == ServiceState::Stopped;
  });
}

// Waits until the server answers, which is later than the service manager's "running".
int Start(const ServerOptions& options) {
  const std::uint32_t error = RequestServiceStart();
  if (error != ERROR_SUCCESS && error != ERROR_SERVICE_ALREADY_RUNNING)
    return RefusedByManager("server start", error);
  TamLogClient::LogClient client({kRequestPipeName, 1000, 200});
  return WaitFor("server start", options.waitMs, [&client](const ServiceReport& report, std::string& state) {
    if (report.state != ServiceState::Running) return false;
    if (client.Ping() == Status::Ok) return true;
    state = "running, but does not answer yet";
    return false;
  });
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
  return Report(Stop(options), "the server is stopped");
}

int RestartServer(const ServerOptions& options) {
  DeferInterrupts();
  const int stopped = Stop(options);
  return stopped == kDone ? Report(Start(options), "the server is running again") : stopped;
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
      return kDone;
    case ServiceState::NotInstalled:
      return kNotThere;
    case ServiceState::Denied:
      return kAccessDenied;
    default:
      return kNegative;
  }
}

}  // namespace TamLogCtl
