#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/files.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait_until.h"
#include "util/helpers.h"
#include "util/service.h"
#include "util/win32.h"

// Runs service_program.cpp, copied under the test's own name, under the real service control manager.

namespace TamLogUtil::Services {
namespace {

using TestSupport::ReadBytes;
using TestSupport::WaitUntil;

class ServiceRun : public testing::Test {
 protected:
  ServiceRun() {
    std::filesystem::copy_file(PathBesideExecutable("util_service_program.exe"), executable);
    service.SetServiceName(name);
    service.SetDisplayName(name);
    service.SetExecutablePath(executable);
    service.Install();
    manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    installed = OpenServiceA(manager, name.c_str(), SERVICE_ALL_ACCESS);
  }
  ~ServiceRun() noexcept override {
    if (State() != SERVICE_STOPPED) Control(SERVICE_CONTROL_STOP);
    CloseServiceHandle(installed);
    CloseServiceHandle(manager);
    service.Remove();
    // The process still exists for a moment and keeps its file.
    WaitUntil([&] { return DeleteFileA(executable.c_str()) != 0; });
  }

  SERVICE_STATUS Status() const {
    SERVICE_STATUS status{};
    QueryServiceStatus(installed, &status);
    return status;
  }
  DWORD State() const { return Status().dwCurrentState; }
  // Returns the error of the control, 0 for none.
  DWORD Control(DWORD control) const {
    SERVICE_STATUS status{};
    return ControlService(installed, control, &status) != 0 ? 0 : GetLastError();
  }
  void StartAndAwait() const {
    ASSERT_NE(StartServiceA(installed, 0, nullptr), 0);
    ASSERT_TRUE(WaitUntil([&] { return State() == SERVICE_RUNNING; }));
  }

  std::vector<std::string> Notes() const {
    std::istringstream text(ReadBytes(directory.File(name + ".notes")));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      lines.push_back(line);
    }
    return lines;
  }

  const TestSupport::TempDir directory;
  const std::string name = "TamLogTestRun" + TestSupport::ProcessSuffix();
  const std::string executable = directory.File(name + ".exe");
  Service service;
  SC_HANDLE manager = nullptr;
  SC_HANDLE installed = nullptr;
};

TEST_F(ServiceRun, StartsRunsAndStops) {
  StartAndAwait();
  EXPECT_EQ(Status().dwControlsAccepted, 5U);
  EXPECT_EQ(Status().dwServiceType, 0x10U);
  EXPECT_EQ(Status().dwCheckPoint, 0U);
  EXPECT_EQ(Notes(), std::vector<std::string>{"start"});
  const DWORD error = Control(SERVICE_CONTROL_STOP);
  // The process may have ended before the manager has its answer.
  EXPECT_TRUE(error == 0 || error == ERROR_BROKEN_PIPE) << error;
  EXPECT_TRUE(WaitUntil([&] { return State() == SERVICE_STOPPED; }));
  const std::vector<std::string> all{"start", "stop begins", "stop ends", "dispatcher returned"};
  EXPECT_TRUE(WaitUntil([&] { return Notes() == all; }));
  EXPECT_EQ(ReadBytes(directory.File(name + ".log")), "");
}

TEST_F(ServiceRun, AnswersAnInterrogation) {
  StartAndAwait();
  EXPECT_EQ(Control(SERVICE_CONTROL_INTERROGATE), 0U);
  EXPECT_EQ(State(), static_cast<DWORD>(SERVICE_RUNNING));
}

TEST_F(ServiceRun, PauseAndContinueAreNotOffered) {
  StartAndAwait();
  EXPECT_EQ(Control(SERVICE_CONTROL_PAUSE), static_cast<DWORD>(ERROR_INVALID_SERVICE_CONTROL));
  EXPECT_EQ(Control(SERVICE_CONTROL_CONTINUE), static_cast<DWORD>(ERROR_INVALID_SERVICE_CONTROL));
}

TEST_F(ServiceRun, RemovingARunningServiceDoesNotStopIt) {
  StartAndAwait();
  service.Remove();
  EXPECT_EQ(State(), static_cast<DWORD>(SERVICE_RUNNING));
  // Only marked: the name is free once the service has stopped and the last handle is closed.
  EXPECT_EQ(Control(SERVICE_CONTROL_INTERROGATE), 0U);
  Control(SERVICE_CONTROL_STOP);
  EXPECT_TRUE(WaitUntil([&] { return State() == SERVICE_STOPPED; }));
  CloseServiceHandle(installed);
  installed = nullptr;
  EXPECT_TRUE(WaitUntil([&] {
    try {
      service.Install();
      return true;
    } catch (const std::exception&) {
      return false;
    }
  }));
  installed = OpenServiceA(manager, name.c_str(), SERVICE_ALL_ACCESS);
}

}  // namespace
}  // namespace TamLogUtil::Services
