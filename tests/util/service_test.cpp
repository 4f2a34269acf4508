#include "util/service.h"

#include <gtest/gtest.h>

#include <iostream>
#include <string>
#include <vector>

#include "tests/support/diagnostic_log_capture.h"
#include "tests/support/expect_failure.h"
#include "tests/support/temp_dir.h"
#include "util/diagnostic_log.h"
#include "util/exceptions.h"
#include "util/service_handle.h"
#include "util/win32.h"

// Tests against the real service control manager.

namespace TamLogUtil::Services {
namespace {

using Exceptions::ExceptionBase;
using Exceptions::ExceptionWindows;
using TestSupport::ExpectFailure;
using TestSupport::WindowsText;
using Texts = std::vector<std::string>;

const std::string kControlPrefix = "An exception has occured in the service's control method : ";

// A service with a name of its own, removed at the end.
class ServiceRegistration : public testing::Test {
 protected:
  ServiceRegistration() {
    service.SetServiceName(name);
    service.SetDisplayName(displayName);
    service.SetDescription("Description of a test");
    service.SetExecutablePath("C:\\no such directory\\service.exe");
  }
  ~ServiceRegistration() noexcept override {
    if (IsInstalled()) service.Remove();
    CloseServiceHandle(manager);
  }

  SC_HANDLE Open() const { return OpenServiceA(manager, name.c_str(), SERVICE_ALL_ACCESS); }
  bool IsInstalled() const { return ServiceHandle(Open()).Get() != nullptr; }

  const std::string name = "TamLogTestService" + TestSupport::ProcessSuffix();
  // Display names must be unique in the system too.
  const std::string displayName = "Display name of " + name;
  const SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
  Service service;
};

TEST_F(ServiceRegistration, InstallRegistersWhatWasSet) {
  service.Install();
  const ServiceHandle installed(Open());
  ASSERT_NE(installed.Get(), nullptr);
  alignas(QUERY_SERVICE_CONFIGA) char buffer[4096] = {};
  DWORD needed = 0;
  auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGA*>(buffer);
  ASSERT_NE(QueryServiceConfigA(static_cast<SC_HANDLE>(installed.Get()), config, sizeof(buffer), &needed), 0);
  EXPECT_EQ(config->dwServiceType, 0x10U);
  EXPECT_EQ(config->dwStartType, 2U);
  EXPECT_EQ(config->dwErrorControl, 1U);
  EXPECT_STREQ(config->lpBinaryPathName, "\"C:\\no such directory\\service.exe\"");
  EXPECT_STREQ(config->lpServiceStartName, "LocalSystem");
  EXPECT_STREQ(config->lpDisplayName, displayName.c_str());
}

TEST_F(ServiceRegistration, InstallSetsTheDescription) {
  service.Install();
  const ServiceHandle installed(Open());
  alignas(SERVICE_DESCRIPTIONA) char buffer[1024] = {};
  DWORD needed = 0;
  ASSERT_NE(QueryServiceConfig2A(static_cast<SC_HANDLE>(installed.Get()), SERVICE_CONFIG_DESCRIPTION,
                                 reinterpret_cast<BYTE*>(buffer), sizeof(buffer), &needed),
            0);
  EXPECT_STREQ(reinterpret_cast<SERVICE_DESCRIPTIONA*>(buffer)->lpDescription, "Description of a test");
}

TEST_F(ServiceRegistration, InstallingANameThatExistsFails) {
  service.Install();
  ExpectFailure<ExceptionWindows>([&] { service.Install(); },
                                  WindowsText("CreateService() failed", ERROR_SERVICE_EXISTS));
}

TEST_F(ServiceRegistration, RemoveTakesTheServiceAway) {
  service.Install();
  service.Remove();
  EXPECT_FALSE(IsInstalled());
  EXPECT_NO_THROW(service.Install());
}

TEST_F(ServiceRegistration, RemovingOneThatIsNotInstalledFails) {
  ExpectFailure<ExceptionWindows>([&] { service.Remove(); },
                                  WindowsText("OpenService() failed", ERROR_SERVICE_DOES_NOT_EXIST));
}

TEST_F(ServiceRegistration, RemovingOneThatIsMarkedForDeletionFails) {
  service.Install();
  // As long as a handle is open the service is only marked.
  ServiceHandle open(Open());
  service.Remove();
  ExpectFailure<ExceptionWindows>([&] { service.Remove(); },
                                  WindowsText("DeleteService() failed", ERROR_SERVICE_MARKED_FOR_DELETE));
  open.Replace(nullptr);
}

TEST(Service, SettersMayBeGivenTheirOwnText) {
  Service service;
  const std::string text = "text";
  service.SetServiceName(text);
  service.SetServiceName(text);
  service.SetDisplayName(text);
  service.SetDescription(text);
  SUCCEED();
}

TEST(Service, TheBaseHandlersDoNothing) {
  Service service;
  EXPECT_NO_THROW(service.OnStart());
  EXPECT_NO_THROW(service.OnStop());
  EXPECT_NO_THROW(service.OnPause());
  EXPECT_NO_THROW(service.OnContinue());
}

TEST(Service, ReportingWithoutAStatusHandleFails) {
  Service service;
  ExpectFailure<ExceptionBase>(
      [&] { service.ReportStatus(); },
      "Failed to report status\n" + WindowsText("SetServiceStatus failed", ERROR_INVALID_HANDLE));
}

TEST(Service, AControlWithoutAnActiveInstanceIsLogged) {
  const TestSupport::DiagnosticLogCapture log;
  Service::SetActiveInstance(nullptr);
  Service::HandleControl(SERVICE_CONTROL_STOP);
  EXPECT_EQ(log.Texts(),
            Texts{kControlPrefix + "Service control message received but no active instance is specified"});
}

TEST(Service, AFailureInAControlIsLoggedAndTheProcessGoesOn) {
  const TestSupport::DiagnosticLogCapture log;
  Service service;
  Service::SetActiveInstance(&service);
  Service::HandleControl(SERVICE_CONTROL_INTERROGATE);
  Service::SetActiveInstance(nullptr);
  EXPECT_EQ(log.Texts(), Texts{kControlPrefix + "Failed to report status\n" +
                               WindowsText("SetServiceStatus failed", ERROR_INVALID_HANDLE)});
}

// The manager waits ten seconds for a process that it did not start.
TEST(ServiceConsole, TheDispatcherFailsOutsideTheManager) {
  Service service;
  service.SetServiceName("TamLogTestConsole");
  Service::SetActiveInstance(&service);
  ExpectFailure<ExceptionWindows>(
      [&] { service.RunDispatcher(); },
      WindowsText("StartServiceCtrlDispatcher() failed", ERROR_FAILED_SERVICE_CONTROLLER_CONNECT));
  Service::SetActiveInstance(nullptr);
}

constexpr int kAbort = 3;
const std::string kMainPrefix = "An exception has occured in the service's main : ";

void RunServiceMainWith(Service* service) {
  SetLogStream(&std::cerr);
  Service::SetActiveInstance(service);
  Service::ServiceMain();
}

TEST(ServiceDeathTest, TheServiceMainWithoutAnActiveInstanceLogsAndAborts) {
  EXPECT_EXIT(
      RunServiceMainWith(nullptr), testing::ExitedWithCode(kAbort),
      " - " + kMainPrefix + "Service started before calling SetActiveInstance\\(\\) on an instance\n");
  EXPECT_EXIT(RunServiceMainWith(nullptr), testing::ExitedWithCode(kAbort), "\n - Aborting\n");
}

TEST(ServiceDeathTest, AControlHandlerThatCannotBeRegisteredLogsAndAborts) {
  // Registering fails in a process that the manager did not start.
  EXPECT_EXIT(
      {
        Service service;
        service.SetServiceName("TamLogTestConsole");
        RunServiceMainWith(&service);
      },
      testing::ExitedWithCode(kAbort),
      " - " + kMainPrefix +
          "Failed to start service\nRegisterServiceCtrlHandler failed - Error code : 1060 - ");
}

}  // namespace
}  // namespace TamLogUtil::Services
