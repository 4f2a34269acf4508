#include <thread>

#include "tests/server/server_fixture.h"
#include "util/win32.h"

namespace {

using PeriodicWork = ServerTest;
using DriverPoll = ServerTest;

TEST_F(PeriodicWork, PendingMessagesReachTheFileAboutFiveTimesASecond) {
  registry::SetNumber("DevicePollRate", 1);
  registry::SetNumber("SaveRate", 1);
  service->OnStart();
  Submit(*service, MakeMessage("first"));
  ASSERT_TRUE(Arrives("first"));
  const std::uint64_t begin = NowMs();
  for (int i = 0; i < 5; ++i) {
    Submit(*service, MakeMessage(std::to_string(i)));
    ASSERT_TRUE(Arrives(std::to_string(i)));
  }
  const std::uint64_t taken = NowMs() - begin;
  EXPECT_GE(taken, 750U) << "200 ms, whatever the registry holds";
  EXPECT_LE(taken, 3000U);
}

TEST_F(PeriodicWork, DriverIsPolledAtTheConfiguredRate) {
  registry::SetNumber("DevicePollRate", 100);
  service->OnStart();
  Sleep(2000);
  const std::uint32_t polls = driver->Counters().failed;
  EXPECT_GE(polls, 5U);
  EXPECT_LE(polls, 20U);
}

TEST_F(PeriodicWork, DriverIsPolledAboutOnceASecondByDefault) {
  registry::DeleteAll();
  registry::SetText("LogFile", logFile);
  registry::SetNumber("MaxMessage", kCapacity);
  service->OnStart();
  Sleep(3500);
  const std::uint32_t polls = driver->Counters().failed;
  EXPECT_GE(polls, 2U);
  EXPECT_LE(polls, 3U);
  EXPECT_EQ(faults::flushViewCalls, 0) << "forced to disk every five minutes only";
}

TEST_F(PeriodicWork, ViewIsForcedToDiskEverySaveRateSeconds) {
  registry::SetNumber("SaveRate", 1);
  service->OnStart();
  const int before = faults::flushViewCalls;
  Sleep(3500);
  EXPECT_GE(faults::flushViewCalls - before, 2);
  EXPECT_LE(faults::flushViewCalls - before, 4);
}

TEST_F(PeriodicWork, FailedWriteToDiskIsLoggedAndTheNextFlushStillRuns) {
  registry::SetNumber("SaveRate", 1);
  service->OnStart();
  faults::flushViewFails = true;
  const std::string entry =
      " - Exception thrown in timer callback : Failed to force log file changes saved to disk, "
      "FlushViewOfFile() failed in WriteToDisk()";
  EXPECT_TRUE(WaitUntil([&] { return Diagnostics().find(entry) != std::string::npos; }, 5000ms))
      << Diagnostics();
  Submit(*service, MakeMessage("after the failure"));
  EXPECT_TRUE(Arrives("after the failure"));
  EXPECT_TRUE(WaitUntil([&] { return Occurrences(Diagnostics(), entry) >= 2; }, 5000ms)) << "the timer ended";
  faults::flushViewFails = false;
}

TEST_F(PeriodicWork, EachNumberDoesItsOwnWork) {
  service->OnStart();
  service->OnTimer(kDriverPollTimer);
  EXPECT_EQ(driver->Counters().failed, 1U);
  const int flushes = faults::flushViewCalls;
  service->OnTimer(kWriteToDiskTimer);
  EXPECT_EQ(faults::flushViewCalls, flushes + 1);
  EXPECT_EQ(driver->Counters().failed, 1U);
  Submit(*service, MakeMessage("flushed by hand"));
  service->OnTimer(kFlushWritesTimer);
  EXPECT_TRUE(IsInLog("flushed by hand"));
}

TEST_F(PeriodicWork, UnknownNumbersDoNothing) {
  service->OnStart();
  const int flushes = faults::flushViewCalls;
  service->OnTimer(3);
  service->OnTimer(0xFFFFFFFF);
  EXPECT_EQ(faults::flushViewCalls, flushes);
  EXPECT_EQ(driver->Counters().failed, 0U);
  EXPECT_EQ(Diagnostics(), "");
}

TEST_F(PeriodicWork, TickWithoutAnOpenFileIsLogged) {
  service->OnTimer(kWriteToDiskTimer);
  EXPECT_NE(Diagnostics().find(
                " - Exception thrown in timer callback : Failed to get file read access in WriteToDisk()"),
            std::string::npos)
      << Diagnostics();
}

TEST_F(PeriodicWork, ExceptionsOfOtherKindsLeaveTheTick) {
  service->OnStart();
  faults::deviceControlThrows = true;
  EXPECT_THROW(service->OnTimer(kDriverPollTimer), ForeignException);
  faults::deviceControlThrows = false;
  // The lock was released.
  EXPECT_TRUE(Is(Submit(*service, MakeMessage("free")), ReplyCode::Done));
  EXPECT_EQ(Diagnostics(), "");
}

TEST_F(PeriodicWork, NoFlushHappensAfterTheStop) {
  service->OnStart();
  service->OnStop();
  Submit(*service, MakeMessage("nobody fetches it"));
  Sleep(500);
  EXPECT_TRUE(RingTexts(logFile).empty());
  EXPECT_EQ(Diagnostics(), "");
}

std::vector<LogMessageBody> Numbered(int count, std::uint32_t type = 0) {
  std::vector<LogMessageBody> messages;
  messages.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i)
    messages.push_back(MakeMessage("number " + std::to_string(i), "driver", type));
  return messages;
}

TEST_F(DriverPoll, MessagesOfTheDriverReachTheFileInItsOrder) {
  registry::SetNumber("DevicePollRate", 50);
  service->OnStart();
  driver->Put(Numbered(3));
  ASSERT_TRUE(Arrives("number 2"));
  EXPECT_EQ(RingTexts(logFile), (std::vector<std::string>{"number 0", "number 1", "number 2"}));
}

TEST_F(DriverPoll, MessageKeepsAllItsBytes) {
  service->OnStart();
  LogMessageBody sent = MakeMessage("bytes");
  for (std::size_t i = 0; i < sizeof sent.origin; ++i) sent.origin[i] = static_cast<std::uint8_t>(0xF0 + i);
  for (std::size_t i = 0; i < sizeof sent.tail; ++i) sent.tail[i] = static_cast<std::uint8_t>(0xE0 + i);
  sent.timestamp[7] = -1;
  driver->Put({&sent, 1});
  service->OnTimer(kDriverPollTimer);
  ASSERT_TRUE(Arrives("bytes"));
  const std::string file = ReadBytes(logFile);
  EXPECT_EQ(file.substr(kSlotsOffset + offsetof(LogMessage, body), sizeof sent),
            std::string(reinterpret_cast<const char*>(&sent), sizeof sent));
}

TEST_F(DriverPoll, TenThousandMessagesAreTakenInOneTick) {
  service->OnStart();
  driver->Put(Numbered(10000));
  service->OnTimer(kDriverPollTimer);
  EXPECT_EQ(driver->Counters().queued, 0U);
  EXPECT_EQ(driver->Counters().served, 10000U);
  EXPECT_EQ(driver->Counters().failed, 1U) << "one failing call ends the tick";
  EXPECT_TRUE(Arrives("number 9999"));
  EXPECT_EQ(ReadHeader(logFile)->messageCount, static_cast<int>(kCapacity));
}

TEST_F(DriverPoll, DriverThatAlwaysFailsYieldsNoMessagesAndNoLogLines) {
  registry::SetNumber("DevicePollRate", 50);
  driver->Put(Numbered(2));
  driver->SetFailure(0xC0000001);
  service->OnStart();
  Sleep(1000);
  EXPECT_GE(driver->Counters().failed, 3U);
  EXPECT_TRUE(RingTexts(logFile).empty());
  EXPECT_EQ(Diagnostics(), "");
  driver->SetFailure(0);
  EXPECT_TRUE(Arrives("number 1"));
}

TEST_F(DriverPoll, MessageOfADisabledTypeIsTakenAndDropped) {
  registry::SetNumber("TypeFilter", 0x4);
  service->OnStart();
  driver->Put(Numbered(2, 1));
  service->OnTimer(kDriverPollTimer);
  EXPECT_EQ(driver->Counters().queued, 0U);
  EXPECT_EQ(driver->Counters().served, 2U);
  EXPECT_TRUE(IsDropped("number 0"));
  EXPECT_FALSE(IsInLog("number 1"));
}

TEST_F(DriverPoll, ClosedDeviceYieldsNoMessages) {
  driver->Put(Numbered(1));
  service->OnTimer(kDriverPollTimer);
  EXPECT_EQ(driver->Counters().queued, 1U);
  EXPECT_EQ(Diagnostics(), "");
}

TEST_F(DriverPoll, UnloadedDriverYieldsNoMessagesAndNoLogLines) {
  service->OnStart();
  DriverDouble::Stop();
  service->OnTimer(kDriverPollTimer);
  EXPECT_EQ(Diagnostics(), "");
}

TEST_F(DriverPoll, FailureOfTheStoreEndsTheDrainAndIsLoggedAndTheRestComesAtTheNextTick) {
  service->OnStart();
  driver->Put(Numbered(3));
  faults::WatchWaits(2);  // the first is messageLock's, the second the store's
  service->OnTimer(kDriverPollTimer);
  faults::WatchWaits(0);
  EXPECT_EQ(Diagnostics().substr(Diagnostics().find(" - ")),
            WithoutCarriageReturns(" - Exception thrown in timer callback : Failed to Wait for Mutex object\n"
                                   "WaitForSingleObject failed" +
                                   ErrorSuffix(ERROR_INVALID_HANDLE) + "\n"));
  EXPECT_EQ(driver->Counters().queued, 2U);
  service->OnTimer(kDriverPollTimer);
  ASSERT_TRUE(Arrives("number 2"));
  EXPECT_EQ(RingTexts(logFile), (std::vector<std::string>{"number 1", "number 2"}));
}

TEST_F(DriverPoll, PollAndSubmitTakeTurns) {
  service->OnStart();
  driver->Put(Numbered(3000));
  std::thread poll([&] { service->OnTimer(kDriverPollTimer); });
  WaitUntil([&] { return driver->Counters().served > 0; }, 5000ms);
  Submit(*service, MakeMessage("afterwards"));
  EXPECT_EQ(driver->Counters().queued, 0U) << "the submit ran in between";
  poll.join();
}

}  // namespace
