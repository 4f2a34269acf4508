// Tests installing, starting, stopping and removing the service through the executable and the service
// manager.

#include "tests/system/system_test.h"

#include <map>

using namespace std::chrono_literals;

class Install : public SystemTest {};

TEST_F(Install, RegistersTheServiceUnderItsNamesWithAQuotedPath) {
  UseCopyOfServer();  // in a directory whose name contains a space
  InstallService();
  const std::optional<ServiceRegistration> found = ServiceControl::Registration();
  ASSERT_TRUE(found);
  EXPECT_EQ(found->displayName, "Torvane Log Server");
  EXPECT_EQ(found->description, "Collects messages produced by Brenmark VORTA Torvane software components");
  EXPECT_EQ(found->commandLine, "\"" + ServerPath() + "\"");
  EXPECT_EQ(found->account, "LocalSystem");
  EXPECT_EQ(found->type, 0x10U);       // a process of its own
  EXPECT_EQ(found->startType, 2U);     // automatic
  EXPECT_EQ(found->errorControl, 1U);  // normal
  EXPECT_EQ(ServiceControl::State(), ServiceState::Stopped);
  RemoveService();
  EXPECT_FALSE(ServiceControl::Registration());
}

TEST_F(Install, OnAnEmptyMachineTheServiceRunsAndStopsWithItsDefaults) {
  UseCopyOfServer();  // the default log file lies in the directory of the executable
  logFile = ScratchFile("Logs.dat");
  InstallService();
  EXPECT_FALSE(ServerRegistry::Exists());
  StartService();

  EXPECT_EQ(ServerRegistry::Text("LogFile"), LogFile());
  EXPECT_EQ(ServerRegistry::Number("MaxMessage"), 50000U);
  EXPECT_EQ(ServerRegistry::Number("DevicePollRate"), 1000U);
  EXPECT_EQ(ServerRegistry::Number("SaveRate"), 300U);
  EXPECT_EQ(ServerRegistry::Number("TypeFilter"), 0xFFFFFFFFU);
  EXPECT_EQ(ServerRegistry::Filters(), (std::map<std::string, std::string>{}));

  const TestLogFile image = SlotsOfFile();
  EXPECT_EQ(image.slots.size(), 50000U);  // the file size is exact for this number of slots
  EXPECT_STREQ(image.names.name[0], "Global\\TamLogServiceFileHeaderMutex");
  EXPECT_STREQ(image.names.name[1], "Global\\TamLogServiceReadWaitEvent");
  EXPECT_STREQ(image.names.name[2], "Global\\TamLogServiceWriteWaitEvent");
  EXPECT_EQ(image.header.serverRunning, 1);
  EXPECT_EQ(image.header.readCount, 0);
  EXPECT_EQ(image.header.messageCount, 0);
  EXPECT_EQ(image.header.maxMessages, 50000);
  EXPECT_EQ(image.header.nextSlot, 0);
  EXPECT_EQ(image.header.changeCount,
            2U);  // the reformat sets 1, and its release of write access counts a change
  EXPECT_EQ(image.header.rewriteCount, 1U);
  EXPECT_EQ(image.header.nextSequence, 0U);

  StopService();
  EXPECT_EQ(Header().serverRunning, 0);
  EXPECT_EQ(ServerRegistry::Number("TypeFilter"), 0xFU);  // the server writes only the four switches back
  RemoveService();
  EXPECT_EQ(ServiceControl::State(), ServiceState::Absent);
}

TEST_F(Install, SwitchesIgnoreCaseTakeASlashAndIgnoreFurtherArguments) {
  EXPECT_EQ(RunServer("/Install and more").output, "Installing service ... installed\n");
  EXPECT_TRUE(ServiceControl::Registration());
  EXPECT_EQ(RunServer("-REMOVE").output, "Removing service ... removed\n");
  EXPECT_FALSE(ServiceControl::Registration());
}

TEST_F(Install, AWordWithoutDashIsUnrecognizedAndNoErrorExit) {
  const CommandReport report = RunServer("install");
  EXPECT_EQ(report.output, "Unrecognized command line argument\nUse -install or -remove\n");
  EXPECT_EQ(report.exitCode, 0U);
  EXPECT_FALSE(ServiceControl::Registration());
}

TEST_F(Install, ASecondInstallFailsAndSaysWhy) {
  InstallService();
  const CommandReport report = RunServer("-install");
  EXPECT_EQ(report.exitCode, 1U);
  EXPECT_NE(report.output.find("\nAn error has occured : \nCreateService() failed - Error code : 1073 - "),
            std::string::npos)
      << report.output;
  EXPECT_NE(report.output.find("To install : use the -install switch and run as administrator\n"
                               "To remove : use the -remove switch and run as administrator\n"),
            std::string::npos)
      << report.output;
}

TEST_F(Install, RemovingWhatIsNotInstalledFailsAndSaysWhy) {
  const CommandReport report = RunServer("-remove");
  EXPECT_EQ(report.exitCode, 1U);
  EXPECT_NE(report.output.find("OpenService() failed - Error code : 1060 - "), std::string::npos)
      << report.output;
}

TEST_F(Install, RemovingARunningServiceOnlyMarksIt) {
  RunService();
  RemoveService();
  // The server continues to serve, and its name stays taken until it has stopped.
  SubmitOverPipe(Message("still here", 1));
  ExpectTexts({"still here"});
  EXPECT_TRUE(ServiceProcess().Alive());
  const CommandReport second = RunServer("-install");
  EXPECT_EQ(second.exitCode, 1U);
  EXPECT_NE(second.output.find("CreateService() failed"), std::string::npos) << second.output;
}
