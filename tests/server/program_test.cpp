#include "server/program.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "server/server_service.h"
#include "tests/server/faults.h"
#include "tests/server/support.h"
#include "util/diagnostic_log.h"
#include "util/exceptions.h"

namespace {

using TamLogUtil::Exceptions::ExceptionBase;

class Program : public testing::Test {
 protected:
  Program() { faults::Reset(); }
  ~Program() override {
    faults::Reset();
    DeleteServiceObject();
    TamLogUtil::SetLogFile("");
  }

  std::string Diagnostics() const { return WithoutCarriageReturns(ReadBytes(folder.File("Diagnostic.txt"))); }

  TempDir folder;
};

int RunWith(std::string argument) {
  char program[] = "TamLogServer";
  char* arguments[] = {program, argument.data(), nullptr};
  return RunProgram(2, arguments);
}

TEST_F(Program, UnknownExecutablePathIsAnErrorOfConstruction) {
  faults::executablePathFails = true;
  testing::internal::CaptureStderr();
  const int exitCode = RunWith("-install");
  EXPECT_EQ(WithoutCarriageReturns(testing::internal::GetCapturedStderr()),
            "Error constructing service object\n");
  EXPECT_EQ(exitCode, 1);
}

TEST_F(Program, UnknownArgumentIsNoErrorExit) {
  for (const char* argument : {"-version", "install", "", "-installed", "--install", "/"}) {
    testing::internal::CaptureStdout();
    const int exitCode = RunWith(argument);
    EXPECT_EQ(WithoutCarriageReturns(testing::internal::GetCapturedStdout()),
              "Unrecognized command line argument\nUse -install or -remove\n");
    EXPECT_EQ(exitCode, 0);
    DeleteServiceObject();
  }
}

TEST_F(Program, DiagnosticLogIsSetBeforeTheArgumentsAreLookedAt) {
  // A relative name: the file appears in the current directory.
  testing::internal::CaptureStdout();
  RunWith("-what");
  testing::internal::GetCapturedStdout();
  TamLogUtil::WriteLog("where");
  const std::string content = ReadBytes("TamLogServiceLog.txt");
  EXPECT_NE(content.find(" - where"), std::string::npos);
  static_cast<void>(std::remove("TamLogServiceLog.txt"));
}

TEST_F(Program, ServiceObjectExistsUntilTheExitHook) {
  EXPECT_TRUE(CreateServiceObject());
  EXPECT_NE(serviceObject, nullptr);
  DeleteServiceObject();
  EXPECT_EQ(serviceObject, nullptr);
  DeleteServiceObject();  // nothing to do
}

class ServiceThatThrows : public ServerService {
 public:
  explicit ServiceThatThrows(bool foreignException) : foreign(foreignException) {}
  // NOLINTNEXTLINE(bugprone-exception-escape): to see what the exit hook does then
  ~ServiceThatThrows() noexcept(false) override {
    if (foreign) throw ForeignException();
    const ExceptionBase cause("inner");
    throw ExceptionBase("outer", &cause);
  }

 private:
  bool foreign;
};

TEST_F(Program, ExitHookLogsWhatTheDeletionThrowsAndKeepsThePointer) {
  TamLogUtil::SetLogFile(folder.File("Diagnostic.txt"));
  serviceObject = new ServiceThatThrows(false);
  DeleteServiceObject();
  EXPECT_EQ(Diagnostics().substr(Diagnostics().find(" - ")),
            " - Service destructor threw an exception : outer\ninner\n");
  EXPECT_NE(serviceObject, nullptr);
  serviceObject = nullptr;
}

TEST_F(Program, ExitHookLogsAnUnknownException) {
  TamLogUtil::SetLogFile(folder.File("Diagnostic.txt"));
  serviceObject = new ServiceThatThrows(true);
  DeleteServiceObject();
  EXPECT_EQ(Diagnostics().substr(Diagnostics().find(" - ")),
            " - Service destructor threw an unknown exception.\n");
  EXPECT_NE(serviceObject, nullptr);
  serviceObject = nullptr;
}

}  // namespace
