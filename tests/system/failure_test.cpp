// Tests of failures around the server: no driver, a failing driver, a killed server, texts that end the
// process.

#include "tests/system/system_test.h"

#include <cstring>

using namespace std::chrono_literals;

class Failure : public SystemTest {
 protected:
  // Expects that the process ends by itself and reports the reason.
  void StartThatAborts(const std::string& why) {
    ServiceControl::Start();
    std::string diagnostics;
    ASSERT_TRUE(Eventually(15s, [&] {
      diagnostics += TakeDiagnostics();
      return diagnostics.find(" - Aborting\n") != std::string::npos;
    })) << diagnostics;
    EXPECT_NE(diagnostics.find(" - An exception has occured in the service's main : " + why),
              std::string::npos)
        << diagnostics;
    ProcessById aborted(ServiceControl::ProcessId());
    EXPECT_TRUE(Eventually(20s, [&aborted] { return !aborted.Runs("TamLogServer.exe"); }));
  }

  // Sends a request during which the server ends: no reply comes.
  void AskForTheEnd(const PipeRequest& request) {
    std::optional<ServerConnection> connection = ServerConnection::Connect(20s);
    ASSERT_TRUE(connection);
    EXPECT_FALSE(connection->Ask(request));
    const std::optional<std::uint32_t> exitCode = ServiceProcess().WaitForEnd(20s);
    ASSERT_TRUE(exitCode);
    EXPECT_NE(*exitCode, 0U);
    if (IsWine()) {
      EXPECT_EQ(ServiceControl::State(), ServiceState::Running);  // its manager does not notice the end
    }
  }
};

TEST_F(Failure, WithoutTheDriverTheServiceDoesNotStart) {
  Settings({});
  InstallService();
  UnloadDriver();
  StartThatAborts(
      "Failed to get access to the Tamlog device driver, CreateFile() failed. - Error code : 2 - ");
  EXPECT_FALSE(FileExists(LogFile()));
  EXPECT_FALSE(ServerConnection::Connect(200ms));

  LoadDriver();
  StartService();
  SubmitOverPipe(Message("with a driver it runs", 1));
  ExpectTexts({"with a driver it runs"});
}

TEST_F(Failure, WithSettingsThatCannotBeReadOrAFileThatCannotBeMadeTheServiceDoesNotStart) {
  Settings({});
  InstallService();
  ServerRegistry::Write("LogFile", "C:\\" + std::string(300, 'p'));
  StartThatAborts("ReadData() failed - Error code : 234 - ");
  ServerRegistry::Write("LogFile", R"(C:\no such folder\Logs.dat)");
  StartThatAborts("Failed to open log file, CreateFile() failed - Error code : 3 - ");
  ServerRegistry::Write("LogFile", LogFile());
  ServerRegistry::Write("SaveRate", std::string("more than four bytes"));
  StartThatAborts("ReadData() failed - Error code : 234 - ");
  ServerRegistry::Write("SaveRate", 300);
  StartService();
  SubmitOverPipe(Message("with these it runs", 1));
  ExpectTexts({"with these it runs"});
}

TEST_F(Failure, ADriverThatFailsEveryCallYieldsNoMessagesAndNoEntries) {
  RunService();
  Driver().SetFailure(0xC0000001U);
  PutIntoDriver({Message("kept back", 1)});
  const std::uint32_t failed = Driver().Counters().failed;
  EXPECT_TRUE(Eventually(20s, [&] { return Driver().Counters().failed >= failed + 5; }));  // five polls
  EXPECT_EQ(Driver().Counters().queued, 1U);
  EXPECT_EQ(Header().messageCount, 0);
  EXPECT_EQ(TakeDiagnostics(), "");
  SubmitOverPipe(Message("by the pipe", 2));
  ExpectTexts({"by the pipe"});
  Driver().SetFailure(0);
  ExpectTexts({"by the pipe", "kept back"});
}

TEST_F(Failure, ADriverThatGoesAwayYieldsNoMessagesAndNoEntries) {
  RunService();
  UnloadDriver();
  std::this_thread::sleep_for(500ms);  // some polls
  SubmitOverPipe(Message("by the pipe", 2));
  ExpectTexts({"by the pipe"});
  EXPECT_EQ(TakeDiagnostics(), "");
  StopService();
  LoadDriver();
}

TEST_F(Failure, AKilledServerStartsAgainAndKeepsItsFile) {
  RunService();
  SubmitOverPipe(Message("one", 1));
  SubmitOverPipe(Message("two", 2));
  ExpectTexts({"two", "one"});
  KillService();
  EXPECT_EQ(Header().serverRunning, 1);  // no stop has cleared it
  StartService();
  EXPECT_EQ(TextsOfFile(), (std::vector<std::string>{"two", "one"}));
  SubmitOverPipe(Message("three", 3));
  ExpectTexts({"three", "two", "one"});
  StopService();
}

TEST_F(Failure, AStopKeepsWhatWasFlushedAndLosesAtMostWhatWasPending) {
  constexpr int kMessages = 120;
  RunService({.maxMessage = 200});
  std::optional<ServerConnection> client = ServerConnection::Connect(20s);
  ASSERT_TRUE(client);
  for (int i = 0; i < kMessages; ++i) {
    ASSERT_EQ(client->AskForCode(SubmitRequest(Message(std::to_string(i), i))), ReplyCode::Done);
    if (i == kMessages / 2) {
      ASSERT_TRUE(WaitForMessageCount(i + 1, 20s));
    }
  }
  StopService();
  // The file holds an unbroken, sound sequence from the first message on; only the newest may be missing.
  const std::vector<LogMessage> messages = SlotsOfFile().NewestFirst();
  ASSERT_GT(messages.size(), static_cast<std::size_t>(kMessages / 2));
  for (std::size_t i = 0; i < messages.size(); ++i) {
    EXPECT_EQ(std::string(messages[messages.size() - 1 - i].body.text), std::to_string(i));
  }
  StartService();
  EXPECT_EQ(Header().messageCount, static_cast<std::int32_t>(messages.size()));
}

TEST_F(Failure, AnOverlongPathEndsTheProcessWhenItIsAskedFor) {
  RunService();
  SubmitOverPipe(Message("before", 1));
  ExpectTexts({"before"});
  EXPECT_EQ(AskForCode(PathRequest(std::string(kPipeBodySize, 'p'))), ReplyCode::Done);  // stored unchanged
  AskForTheEnd(RequestOf(RequestCode::GetLogFile));
  StartService();  // the ended process saved nothing of it
  EXPECT_STREQ(Ask(RequestOf(RequestCode::GetLogFile)).path, LogFile().c_str());
  EXPECT_EQ(TextsOfFile(), std::vector<std::string>{"before"});
}

TEST_F(Failure, APathThatJustFitsIsAnswered) {
  RunService();
  const std::string longest(kPipeBodySize - 1, 'p');
  EXPECT_EQ(AskForCode(PathRequest(longest)), ReplyCode::Done);
  EXPECT_EQ(std::string(Ask(RequestOf(RequestCode::GetLogFile)).path), longest);
  EXPECT_EQ(AskForCode(PathRequest(LogFile())), ReplyCode::Done);
}

TEST_F(Failure, AnOverlongFilterEndsTheProcessWhenItIsAskedFor) {
  RunService();
  PipeRequest request = RequestOf(RequestCode::AddFilter);
  std::memset(request.path, 'f', kFilterTextSize + 2);  // the text ends in `kind`, so it is an include filter
  EXPECT_EQ(AskForCode(request), ReplyCode::Done);
  AskForTheEnd(IndexRequest(0));
  StartService();
  EXPECT_EQ(AskForCode(IndexRequest(0)), ReplyCode::NoSuchFilter);
}

TEST_F(Failure, AnOverlongFilterOfTheRegistryEndsTheProcessWhenItIsAskedFor) {
  Settings({});
  ServerRegistry::WriteFilter("Filters0", "e" + std::string(kFilterTextSize, 'f'));
  InstallService();
  StartService();
  AskForTheEnd(IndexRequest(0));
}
