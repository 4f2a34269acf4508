#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "server/restart_thread.h"
#include "tests/server/server_fixture.h"
#include "tests/support/pipe_client.h"
#include "util/win32.h"

namespace {

class Restart : public ServerTest {
 protected:
  Restart() { service->OnStart(); }

  void ChangeCapacity(std::uint32_t capacity) {
    SettingsBody wanted = Settings(*service);
    wanted.maxMessage = capacity;
    EXPECT_TRUE(Is(SetSettings(*service, wanted), ReplyCode::Done));
  }
  bool Reaches(std::uint32_t starts) {
    return WaitUntil([&] { return Starts() == starts && IsRunningAgain(); }, 8000ms);
  }
  // A start's last step is to start the flushes.
  bool IsRunningAgain() {
    const auto header = ReadHeader(logFile);
    return header && header->serverRunning == 1;
  }
};

TEST_F(Restart, TwoSettingsRequestsWithinASecondCauseOneStopAndOneStart) {
  ChangeCapacity(30);
  Sleep(300);
  ChangeCapacity(31);
  ASSERT_TRUE(Reaches(2));
  Sleep(2000);
  EXPECT_EQ(Starts(), 2U);
  EXPECT_EQ(ReadHeader(logFile)->maxMessages, 31) << "the last settings of the burst count";
  EXPECT_EQ(Diagnostics(), "");
}

TEST_F(Restart, WaitsASecondBeforeItStops) {
  const std::uint64_t begin = NowMs();
  ChangeCapacity(30);
  ASSERT_TRUE(WaitUntil([&] { return !ServerHasDriverOpen() || Starts() == 2; }, 5000ms));
  EXPECT_GE(NowMs() - begin, 950U);
}

TEST_F(Restart, SettingsRequestAfterARestartCausesAnotherOne) {
  ChangeCapacity(30);
  ASSERT_TRUE(Reaches(2));
  Sleep(500);
  ChangeCapacity(31);
  ASSERT_TRUE(Reaches(3));
  EXPECT_EQ(ReadHeader(logFile)->maxMessages, 31);
}

TEST_F(Restart, AppliesTheNewRates) {
  SettingsBody wanted = Settings(*service);
  wanted.devicePollRate = 50;
  SetSettings(*service, wanted);
  ASSERT_TRUE(Reaches(2));
  EXPECT_TRUE(WaitUntil([&] { return driver->Counters().failed >= 3; }, 3000ms));
}

TEST_F(Restart, ClearLogEmptiesTheLogAtOnceAndRestarts) {
  Submit(*service, MakeMessage("old"));
  ASSERT_TRUE(Arrives("old"));
  Submit(*service, MakeMessage("pending"));
  EXPECT_TRUE(Is(Ask(*service, RequestCode::ClearLog), ReplyCode::Done));
  EXPECT_TRUE(RingTexts(logFile).empty());
  ASSERT_TRUE(Reaches(2));
  Submit(*service, MakeMessage("new"));
  ASSERT_TRUE(Arrives("new"));
  EXPECT_EQ(RingTexts(logFile), std::vector<std::string>{"new"});
}

TEST_F(Restart, PathRequestAloneDoesNotRestart) {
  Ask(*service, MakeRequest(RequestCode::SetLogFile, folder.File("Moved.dat")));
  AddFilter(*service, "a", 1);
  Ask(*service, RequestCode::ClearFilters);
  Sleep(1800);
  EXPECT_EQ(Starts(), 1U);
  EXPECT_TRUE(ServerHasDriverOpen());
}

TEST_F(Restart, MovesTheFileToAPathChangedWhileItIsPending) {
  const std::string moved = folder.File("Moved.dat");
  ChangeCapacity(kCapacity);
  Ask(*service, MakeRequest(RequestCode::SetLogFile, moved));
  ASSERT_TRUE(WaitUntil([&] { return Starts() == 2 && FileExists(moved); }, 8000ms));
  EXPECT_FALSE(FileExists(logFile));
}

class CountedRestartThread : public RestartThread {
 public:
  CountedRestartThread(ServerService& restarted, std::atomic<int>& destroyedCount)
      : RestartThread(restarted), destroyed(destroyedCount) {}
  ~CountedRestartThread() override { ++destroyed; }

 private:
  std::atomic<int>& destroyed;
};

TEST_F(Restart, ThreadObjectIsGoneAfterItsRun) {
  std::atomic<int> destroyed{0};
  (new CountedRestartThread(*service, destroyed))->Start();
  (new CountedRestartThread(*service, destroyed))->Start();
  EXPECT_TRUE(WaitUntil([&] { return destroyed == 1; }, 900ms)) << "the second has nothing to do";
  EXPECT_TRUE(WaitUntil([&] { return destroyed == 2; }, 8000ms));
  EXPECT_EQ(Starts(), 2U);
}

TEST_F(Restart, ManagersStopCallsOffAPendingRestart) {
  ChangeCapacity(30);
  Sleep(200);
  service->OnStop();
  Sleep(2000);
  EXPECT_EQ(Starts(), 1U) << "started again although the manager had stopped it";
  EXPECT_TRUE(ServerClosesDriver());
  EXPECT_EQ(registry::Number("MaxMessage"), 30U);

  service->OnStart();
  EXPECT_EQ(ReadHeader(logFile)->maxMessages, 30);
  ChangeCapacity(31);
  EXPECT_TRUE(Reaches(3)) << "the completed start did not free the flag";
}

TEST_F(Restart, ManagersStopDuringARestartLeavesTheServerStopped) {
  ChangeCapacity(30);
  Sleep(RestartThread::kDelay + 30);
  service->OnStop();
  Sleep(1500);
  EXPECT_TRUE(ServerClosesDriver());
  EXPECT_EQ(ReadHeader(logFile)->serverRunning, 0);
}

TEST_F(Restart, DestructionCallsOffAPendingRestart) {
  ChangeCapacity(30);
  const std::uint64_t begin = NowMs();
  service.reset();
  EXPECT_LE(NowMs() - begin, 4000U);
  Sleep(1500);
  EXPECT_TRUE(ServerClosesDriver());
  EXPECT_EQ(Diagnostics(), "");
}

TEST_F(Restart, DestructionWaitsForARestartUnderWay) {
  ChangeCapacity(30);
  Sleep(RestartThread::kDelay + 30);
  service.reset();
  EXPECT_TRUE(ServerClosesDriver());
  EXPECT_EQ(ReadHeader(logFile)->serverRunning, 0);
}

TEST_F(Restart, FailedStartLeavesTheFlagSetAndTheStopWorking) {
  driver.reset();
  DriverDouble::Stop();
  ChangeCapacity(30);
  const std::string entry =
      " - Thread terminated due to unhandled exception : Exception occured during thread Run()\n"
      "Failed to get access to the Tamlog device driver, CreateFile() failed." +
      WithoutCarriageReturns(ErrorSuffix(ERROR_FILE_NOT_FOUND)) + "\n";
  ASSERT_TRUE(WaitUntil([&] { return Diagnostics().find(entry) != std::string::npos; }, 8000ms))
      << Diagnostics();
  EXPECT_EQ(ReadHeader(logFile)->serverRunning, 0) << "the stop was completed";

  DriverDouble::Start();
  driver = std::make_unique<DriverDouble>();
  ChangeCapacity(31);
  Sleep(2000);
  EXPECT_EQ(driver->Counters().opens, 1U) << "restarted although the last restart failed";
  service->OnStop();
  EXPECT_EQ(registry::Number("MaxMessage"), 31U);
  service->OnStart();
  ChangeCapacity(32);
  EXPECT_TRUE(WaitUntil([&] { return driver->Counters().opens == 3; }, 8000ms));
}

TEST_F(Restart, FailedStopIsLoggedByTheThread) {
  registry::ReplaceByVolatileParent();
  ChangeCapacity(30);
  const std::string entry =
      " - Thread terminated due to unhandled exception : Exception occured during thread Run()\n"
      "RegCreateKeyEx() failed" +
      WithoutCarriageReturns(ErrorSuffix(ERROR_CHILD_MUST_BE_VOLATILE)) + "\n";
  EXPECT_TRUE(WaitUntil([&] { return Diagnostics().find(entry) != std::string::npos; }, 8000ms))
      << Diagnostics();
  registry::DeleteAll();
  service->OnStop();
  EXPECT_TRUE(ServerClosesDriver());
}

TEST_F(Restart, ClaimReturnsThePreviousFlagAndLeavesItSet) {
  EXPECT_FALSE(ClaimRestart(*service));
  EXPECT_TRUE(ClaimRestart(*service));
  service->OnStop();
  EXPECT_TRUE(ClaimRestart(*service)) << "only a completed start frees the flag";
  service->OnStart();
  EXPECT_FALSE(ClaimRestart(*service));
}

TEST_F(Restart, ClaimThatCannotTakeItsLockIsLoggedAndLetsTheRestartGoAhead) {
  EXPECT_FALSE(ClaimRestart(*service));
  faults::WatchWaits(1);
  EXPECT_FALSE(ClaimRestart(*service));
  faults::WatchWaits(0);
  EXPECT_NE(Diagnostics().find(
                " - Exception thrown in restarting flag verifier : Failed to Wait for Mutex object\n"),
            std::string::npos)
      << Diagnostics();
}

TEST_F(Restart, PingIsAnsweredWhileARestartIsPending) {
  TestSupport::PipeClient client;
  ASSERT_TRUE(client.Connect());
  PipeRequest settings = TestSupport::RequestOf(RequestCode::SetSettings);
  settings.settings = {30, kNever, 0xF, kNever / 1000};
  const auto reply = client.Call(settings);
  ASSERT_TRUE(reply) << "the reply was cut off by the restart";
  EXPECT_TRUE(Is(*reply, ReplyCode::Done));
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(client.CallCode(static_cast<std::uint32_t>(RequestCode::Ping)),
              static_cast<std::uint32_t>(ReplyCode::Alive));
    Sleep(50);
  }
  EXPECT_EQ(Starts(), 1U);
  ASSERT_TRUE(Reaches(2));
  TestSupport::PipeClient next;
  ASSERT_TRUE(next.Connect()) << "no client can connect after the restart";
  const auto reported = next.Call(TestSupport::RequestOf(RequestCode::GetSettings));
  ASSERT_TRUE(reported);
  EXPECT_EQ(reported->settings.maxMessage, 30U);
}

TEST_F(Restart, BurstFromManyClientsCausesOneRestart) {
  std::vector<std::thread> clients;
  for (std::uint32_t i = 0; i < 8; ++i) {
    clients.emplace_back([&, i] {
      TestSupport::PipeClient client;
      if (!client.Connect()) return;
      PipeRequest settings = TestSupport::RequestOf(RequestCode::SetSettings);
      settings.settings = {30 + i, kNever, 0xF, kNever / 1000};
      client.Call(settings);
    });
  }
  for (std::thread& client : clients) client.join();
  ASSERT_TRUE(Reaches(2));
  Sleep(2000);
  EXPECT_EQ(Starts(), 2U);
}

}  // namespace
