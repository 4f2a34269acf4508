#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/diagnostic_log_capture.h"
#include "tests/support/expect_failure.h"
#include "tests/support/wait_until.h"
#include "util/exceptions.h"
#include "util/service.h"
#include "util/win32.h"

// The status reports to the manager while controls are handled, also controls that it never delivers itself.
// A process that the manager did not start gets no status handle, so the two calls that need one are replaced
// here.

namespace {

// A report: state, check point.
using Report = std::pair<DWORD, DWORD>;

std::mutex reportsLock;
std::vector<Report> reports;
SERVICE_STATUS lastStatus;
std::atomic<bool> failReports{false};
SC_HANDLE fakeTarget = nullptr;
const SERVICE_STATUS_HANDLE kStatusHandle = reinterpret_cast<SERVICE_STATUS_HANDLE>(&fakeTarget);
LPHANDLER_FUNCTION registeredHandler = nullptr;
std::string registeredName;

SERVICE_STATUS_HANDLE WINAPI FakeRegister(LPCSTR name, LPHANDLER_FUNCTION handler) {
  registeredName = name;
  registeredHandler = handler;
  return kStatusHandle;
}

// Runs instead of the manager's dispatcher, with the table passed to that.
std::function<WINBOOL(const SERVICE_TABLE_ENTRYA*)> dispatcher;
std::function<void(DWORD)> afterReport;

WINBOOL WINAPI FakeDispatcher(const SERVICE_TABLE_ENTRYA* table) {
  return dispatcher(table);
}

WINBOOL WINAPI FakeSetStatus(SERVICE_STATUS_HANDLE handle, LPSERVICE_STATUS status) {
  if (failReports || handle != kStatusHandle) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  {
    const std::lock_guard<std::mutex> guard(reportsLock);
    reports.emplace_back(status->dwCurrentState, status->dwCheckPoint);
    lastStatus = *status;
  }
  if (afterReport) afterReport(status->dwCurrentState);
  return TRUE;
}

}  // namespace

extern "C" {
decltype(&RegisterServiceCtrlHandlerA) __imp_RegisterServiceCtrlHandlerA = FakeRegister;
decltype(&StartServiceCtrlDispatcherA) __imp_StartServiceCtrlDispatcherA = FakeDispatcher;
decltype(&SetServiceStatus) __imp_SetServiceStatus = FakeSetStatus;
}

namespace TamLogUtil::Services {
namespace {

using Exceptions::ExceptionBase;
using TestSupport::WaitUntil;
using Reports = std::vector<Report>;
using Texts = std::vector<std::string>;

Reports TakeReports() {
  const std::lock_guard<std::mutex> guard(reportsLock);
  return std::exchange(reports, {});
}

// Records the handlers' calls; a test can set the behaviour of each.
class RecordingService : public Service {
 public:
  void OnStart() override { Called("start"); }
  void OnStop() override { Called("stop"); }
  void OnPause() override { Called("pause"); }
  void OnContinue() override { Called("continue"); }

  std::vector<std::string> Calls() const {
    const std::lock_guard<std::mutex> guard(lock);
    return calls;
  }

  std::function<void()> action;

 private:
  void Called(const std::string& name) {
    {
      const std::lock_guard<std::mutex> guard(lock);
      calls.push_back(name);
    }
    if (action) action();
  }

  mutable std::mutex lock;
  std::vector<std::string> calls;
};

class ServiceControl : public testing::Test {
 protected:
  ServiceControl() {
    service.SetServiceName("TamLogTestControl");
    Service::SetActiveInstance(&service);
    TakeReports();
    failReports = false;
  }
  ~ServiceControl() noexcept override { Service::SetActiveInstance(nullptr); }

  void StartService() {
    Service::ServiceMain();
    TakeReports();
  }

  TestSupport::DiagnosticLogCapture log;
  RecordingService service;
};

TEST_F(ServiceControl, TheServiceMainReportsTheStartBeforeAndAfter) {
  Reports during;
  service.action = [&] { during = TakeReports(); };
  Service::ServiceMain();
  EXPECT_EQ(during, (Reports{{SERVICE_START_PENDING, 1}}));
  EXPECT_EQ(TakeReports(), (Reports{{SERVICE_RUNNING, 0}}));
  EXPECT_EQ(service.Calls(), Texts{"start"});
  EXPECT_EQ(registeredName, "TamLogTestControl");
}

TEST_F(ServiceControl, TheStatusOffersStopAndShutDownOnly) {
  StartService();
  EXPECT_EQ(lastStatus.dwServiceType, 0x10U);
  EXPECT_EQ(lastStatus.dwControlsAccepted, 5U);
  EXPECT_EQ(lastStatus.dwWin32ExitCode, 0U);
  EXPECT_EQ(lastStatus.dwServiceSpecificExitCode, 0U);
  EXPECT_EQ(lastStatus.dwWaitHint, 0U);
}

TEST_F(ServiceControl, TheRegisteredHandlerReachesTheActiveInstance) {
  StartService();
  registeredHandler(SERVICE_CONTROL_STOP);
  EXPECT_EQ(service.Calls(), (Texts{"start", "stop"}));
}

struct ControlCase {
  DWORD control;
  DWORD pending;
  DWORD final;
  const char* handler;
};

TEST_F(ServiceControl, EachControlIsReportedBeforeAndAfterItsHandler) {
  const ControlCase cases[] = {
      {SERVICE_CONTROL_PAUSE, SERVICE_PAUSE_PENDING, SERVICE_PAUSED, "pause"},
      {SERVICE_CONTROL_CONTINUE, SERVICE_CONTINUE_PENDING, SERVICE_RUNNING, "continue"},
      {SERVICE_CONTROL_STOP, SERVICE_STOP_PENDING, SERVICE_STOPPED, "stop"},
      {SERVICE_CONTROL_SHUTDOWN, SERVICE_STOP_PENDING, SERVICE_STOPPED, "stop"},
  };
  for (const ControlCase& test : cases) {
    StartService();
    Reports during;
    service.action = [&] { during = TakeReports(); };
    Service::HandleControl(test.control);
    service.action = nullptr;
    EXPECT_EQ(during, (Reports{{test.pending, 1}})) << test.handler;
    // Paused is neither running nor stopped, so the check point rises.
    const DWORD checkPoint = test.final == SERVICE_PAUSED ? 2 : 0;
    EXPECT_EQ(TakeReports(), (Reports{{test.final, checkPoint}})) << test.handler;
    EXPECT_EQ(service.Calls().back(), test.handler);
  }
  EXPECT_EQ(log.Texts(), Texts{});
}

TEST_F(ServiceControl, InterrogateReportsTheStatusAgain) {
  StartService();
  Service::HandleControl(SERVICE_CONTROL_INTERROGATE);
  EXPECT_EQ(TakeReports(), (Reports{{SERVICE_RUNNING, 0}}));
  Service::HandleControl(SERVICE_CONTROL_PAUSE);
  TakeReports();
  // Outside running and stopped every report raises the check point.
  Service::HandleControl(SERVICE_CONTROL_INTERROGATE);
  EXPECT_EQ(TakeReports(), (Reports{{SERVICE_PAUSED, 3}}));
  EXPECT_EQ(service.Calls(), (Texts{"start", "pause"}));
}

TEST_F(ServiceControl, AnUnknownControlDoesNothing) {
  StartService();
  for (const DWORD control : {0U, 6U, 128U, 255U}) Service::HandleControl(control);
  EXPECT_EQ(TakeReports(), Reports{});
  EXPECT_EQ(service.Calls(), Texts{"start"});
  EXPECT_EQ(log.Texts(), Texts{});
}

TEST_F(ServiceControl, AFailingHandlerIsLoggedAndLeavesTheStatePending) {
  StartService();
  service.action = [] { throw ExceptionBase("from the handler"); };
  Service::HandleControl(SERVICE_CONTROL_STOP);
  EXPECT_EQ(log.Texts(),
            Texts{"An exception has occured in the service's control method : from the handler"});
  EXPECT_EQ(TakeReports(), (Reports{{SERVICE_STOP_PENDING, 1}}));
  // The lock is free again.
  service.action = nullptr;
  Service::HandleControl(SERVICE_CONTROL_STOP);
  EXPECT_EQ(service.Calls(), (Texts{"start", "stop", "stop"}));
}

TEST_F(ServiceControl, AFailedReportKeepsTheHandlerFromBeingCalled) {
  StartService();
  failReports = true;
  Service::HandleControl(SERVICE_CONTROL_STOP);
  failReports = false;
  EXPECT_EQ(service.Calls(), Texts{"start"});
  EXPECT_EQ(log.Texts(),
            Texts{"An exception has occured in the service's control method : Failed to report status\n" +
                  TestSupport::WindowsText("SetServiceStatus failed", ERROR_INVALID_HANDLE)});
}

TEST_F(ServiceControl, ASecondStopWaitsForTheFirst) {
  StartService();
  std::atomic<int> inside{0};
  std::atomic<bool> overlapped{false};
  std::atomic<int> finished{0};
  service.action = [&] {
    if (++inside > 1) overlapped = true;
    Sleep(200);
    --inside;
    ++finished;
  };
  std::thread first([] { Service::HandleControl(SERVICE_CONTROL_STOP); });
  EXPECT_TRUE(WaitUntil([&] { return inside == 1; }));
  std::thread second([] { Service::HandleControl(SERVICE_CONTROL_SHUTDOWN); });
  Sleep(50);
  EXPECT_EQ(service.Calls(), (Texts{"start", "stop"}));
  first.join();
  second.join();
  EXPECT_EQ(finished, 2);
  EXPECT_FALSE(overlapped);
  EXPECT_EQ(service.Calls(), (Texts{"start", "stop", "stop"}));
}

TEST_F(ServiceControl, TheDispatcherIsGivenOneServiceAndItsMain) {
  dispatcher = [&](const SERVICE_TABLE_ENTRYA* table) {
    EXPECT_STREQ(table[0].lpServiceName, "TamLogTestControl");
    EXPECT_EQ(table[1].lpServiceName, nullptr);
    EXPECT_EQ(table[1].lpServiceProc, nullptr);
    table[0].lpServiceProc(0, nullptr);
    return TRUE;
  };
  service.RunDispatcher();
  EXPECT_EQ(service.Calls(), Texts{"start"});
}

// The dispatcher may return as soon as "stopped" is reported, and the service is destroyed next.
TEST_F(ServiceControl, RunDispatcherWaitsForAHandlerThatStillRuns) {
  StartService();
  std::atomic<bool> stopped{false};
  std::atomic<bool> finished{false};
  afterReport = [&](DWORD state) {
    if (state != SERVICE_STOPPED) return;
    stopped = true;
    Sleep(200);
    finished = true;
  };
  std::thread handler;
  dispatcher = [&](const SERVICE_TABLE_ENTRYA* /*table*/) {
    handler = std::thread([] { Service::HandleControl(SERVICE_CONTROL_STOP); });
    return WaitUntil([&] { return stopped.load(); }) ? TRUE : FALSE;
  };
  service.RunDispatcher();
  EXPECT_TRUE(finished);
  handler.join();
  afterReport = nullptr;
}

// A start that fails ends the process; only the two entries report it.
TEST(ServiceControlDeathTest, AFailingStartLogsAndAborts) {
  class FailingService : public Service {
   public:
    void OnStart() override { throw ExceptionBase("from OnStart"); }
  };
  const auto run = [] {
    FailingService service;
    SetLogStream(&std::cerr);
    Service::SetActiveInstance(&service);
    Service::ServiceMain();
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(3),
              " - An exception has occured in the service's main : from OnStart\n");
  EXPECT_EXIT(run(), testing::ExitedWithCode(3), "\n - Aborting\n");
}

}  // namespace
}  // namespace TamLogUtil::Services
