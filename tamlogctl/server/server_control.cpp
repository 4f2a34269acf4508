#include "tamlogctl/server/server_control.h"

#include <functional>
#include <string>

#include "client/live/log_client.h"
#include "client/message/win32.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/server/service.h"

namespace TamLogCtl {

namespace {

using TamLogClient::ServiceState;
using TamLogClient::Status;

constexpr std::uint32_t kAskEveryMs = 200;

int Refused(const char* what, std::uint32_t error) {
  const std::string doing = std::string("server ") + what + ": ";
  switch (error) {
    case ERROR_ACCESS_DENIED:
      return Refuse(kAccessDenied, doing + "access denied; run it as an administrator");
    case ERROR_SERVICE_DOES_NOT_EXIST:
      return Refuse(kNotThere, doing + "the service is not installed; install it: TamLogServer.exe -install");
    case ERROR_SERVICE_DISABLED:
      return Refuse(kRefused, doing + "the service is disabled; enable it in the service manager");
    default:
      return Refuse(kRefused, doing + "the service manager refused (error " + std::to_string(error) + ")");
  }
}

// Looks until `reached` holds; shows the state meanwhile. An exit code.
int WaitFor(const char* what, std::uint32_t waitMs,
            const std::function<bool(const ServiceReport&, std::string&)>& reached) {
  const std::uint64_t end = Ticks() + waitMs;
  Progress progress(std::string("server ") + what + ":");
  for (;;) {
    const ServiceReport report = QueryService();
    std::string state = ServiceText(report);
    if (reached(report, state)) return kDone;
    if (Interrupted()) return kInterrupted;
    if (Ticks() >= end) {
      return Refuse(kTimedOut, std::string("server ") + what + ": not done after " +
                                   std::to_string(waitMs / 1000) + " s, the service is " + state +
                                   "; see: tamlogctl doctor");
    }
    progress.Show(state);
    SleepFor(kAskEveryMs);
  }
}

int Stop(const ServerOptions& options) {
  const std::uint32_t error = RequestServiceStop();
  // The manager is less patient than a stop that waits for readers; and a process may be gone before it has
  // answered. The state tells.
  const bool goesOn = error == ERROR_SUCCESS || error == ERROR_SERVICE_REQUEST_TIMEOUT ||
                      error == ERROR_BROKEN_PIPE || error == ERROR_SERVICE_NOT_ACTIVE ||
                      error == ERROR_SERVICE_CANNOT_ACCEPT_CTRL;
  if (!goesOn) return Refused("stop", error);
  return WaitFor("stop", options.waitMs, [](const ServiceReport& report, std::string& /*state*/) {
    return report.state == ServiceState::Stopped;
  });
}

// Until it answers, which is later than the manager's "running".
int Start(const ServerOptions& options) {
  const std::uint32_t error = RequestServiceStart();
  if (error != ERROR_SUCCESS && error != ERROR_SERVICE_ALREADY_RUNNING) return Refused("start", error);
  TamLogClient::LogClient client({kRequestPipeName, 1000, 200});
  return WaitFor("start", options.waitMs, [&client](const ServiceReport& report, std::string& state) {
    if (report.state != ServiceState::Running) return false;
    if (client.Ping() == Status::Ok) return true;
    state = "running, but does not answer yet";
    return false;
  });
}

}  // namespace

int StartServer(const ServerOptions& options) {
  DeferInterrupts();
  const int exitCode = Start(options);
  if (exitCode == kDone) Say("the server runs");
  return exitCode;
}

int StopServer(const ServerOptions& options) {
  DeferInterrupts();
  const int exitCode = Stop(options);
  if (exitCode == kDone) Say("the server is stopped");
  return exitCode;
}

int RestartServer(const ServerOptions& options) {
  DeferInterrupts();
  int exitCode = Stop(options);
  if (exitCode == kDone) exitCode = Start(options);
  if (exitCode == kDone) Say("the server runs again");
  return exitCode;
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
  if (!WriteOut(out)) return kOutputFailed;
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
