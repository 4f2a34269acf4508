#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "tests/server/server_fixture.h"
#include "util/exceptions.h"
#include "util/win32.h"

namespace {

using TamLogUtil::Exceptions::ExceptionWindows;

using StartStop = ServerTest;

constexpr char kDriverMissing[] = "Failed to get access to the Tamlog device driver, CreateFile() failed.";

// An open handle without sharing, which keeps the file busy like a reader in another process.
class BusyFile {
 public:
  explicit BusyFile(const std::string& path)
      : handle(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                           nullptr, OPEN_EXISTING, 0, nullptr)) {}
  ~BusyFile() { CloseHandle(handle); }
  BusyFile(const BusyFile&) = delete;
  BusyFile& operator=(const BusyFile&) = delete;

 private:
  HANDLE handle;
};

PipeReply ChangeLogFile(ServerService& service, const std::string& path) {
  return Ask(service, MakeRequest(RequestCode::SetLogFile, path));
}

TEST_F(StartStop, ConstructedServiceTouchesNeitherRegistryNorDriverNorFiles) {
  registry::DeleteAll();
  // Tests in other prefixes share this folder, and a server of theirs may have its log there.
  const std::string defaultFile = ExecutableFolder() + "\\Logs.dat";
  const bool wasThere = FileExists(defaultFile);
  ServerService another;
  EXPECT_EQ(FileExists(defaultFile), wasThere);
  EXPECT_FALSE(registry::KeyExists(registry::kMainKey));
  EXPECT_EQ(Starts(), 0U);
  EXPECT_FALSE(FileExists(logFile));
}

TEST_F(StartStop, StartOpensDriverFileAndPipe) {
  service->OnStart();
  EXPECT_TRUE(ServerHasDriverOpen());
  ASSERT_TRUE(ReadHeader(logFile));
  EXPECT_EQ(ReadHeader(logFile)->serverRunning, 1);
  EXPECT_EQ(ReadHeader(logFile)->maxMessages, static_cast<std::int32_t>(kCapacity));
  EXPECT_TRUE(WaitUntil([] { return WaitNamedPipeA(kRequestPipeName, 1) != 0; }, 2000ms));
}

TEST_F(StartStop, StopEndsEverything) {
  service->OnStart();
  service->OnStop();
  EXPECT_TRUE(ServerClosesDriver());
  EXPECT_EQ(ReadHeader(logFile)->serverRunning, 0);
  EXPECT_EQ(WaitNamedPipeA(kRequestPipeName, 1), 0);
  const std::uint32_t polls = driver->Counters().failed;
  Sleep(300);
  EXPECT_EQ(driver->Counters().failed, polls);
  EXPECT_EQ(Diagnostics(), "");
}

TEST_F(StartStop, StartsAgainAfterAStop) {
  service->OnStart();
  Submit(*service, MakeMessage("before"));
  ASSERT_TRUE(Arrives("before"));
  service->OnStop();
  service->OnStart();
  EXPECT_TRUE(IsInLog("before"));
  Submit(*service, MakeMessage("after"));
  EXPECT_TRUE(Arrives("after"));
}

TEST_F(StartStop, StartWithoutDriverFailsAndChangesNothing) {
  driver.reset();
  DriverDouble::Stop();
  registry::DeleteAll();
  try {
    service->OnStart();
    FAIL() << "started without a driver";
  } catch (const ExceptionWindows& failure) {
    EXPECT_EQ(failure.Compose("\n"), kDriverMissing + ErrorSuffix(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(failure.ErrorCode(), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
  }
  EXPECT_FALSE(registry::KeyExists(registry::kMainKey));
  EXPECT_FALSE(FileExists(logFile));
  EXPECT_EQ(WaitNamedPipeA(kRequestPipeName, 1), 0);
}

TEST_F(StartStop, FailedStartLeavesDriverOpenAndTheNextStartUsesThatHandle) {
  registry::Write(registry::kMainKey, "MaxMessage", REG_QWORD, std::string(8, '\1'));
  EXPECT_EQ(FailureOf([&] { service->OnStart(); }), "ReadData() failed" + ErrorSuffix(ERROR_MORE_DATA));
  EXPECT_EQ(Starts(), 1U);
  EXPECT_TRUE(ServerHasDriverOpen());

  registry::SetNumber("MaxMessage", kCapacity);
  service->OnStart();
  EXPECT_EQ(Starts(), 1U) << "the device was opened again";
  Submit(*service, MakeMessage("works"));
  EXPECT_TRUE(Arrives("works"));
}

TEST_F(StartStop, StartThatFailsAtTheLogFileLeavesLocksFree) {
  registry::SetText("LogFile", folder.File("missing\\Test.dat"));
  EXPECT_EQ(FailureOf([&] { service->OnStart(); }),
            "Failed to open log file, CreateFile() failed" + ErrorSuffix(ERROR_PATH_NOT_FOUND));
  // Needs both locks: messageLock for a submit, configLock for a request for the settings.
  EXPECT_TRUE(Is(Submit(*service, MakeMessage("waits")), ReplyCode::Done));
  EXPECT_EQ(Settings(*service).maxMessage, kCapacity);
  EXPECT_EQ(WaitNamedPipeA(kRequestPipeName, 1), 0) << "started in spite of the failure";
}

TEST_F(StartStop, StopAfterAHalfStartWorks) {
  registry::SetText("LogFile", folder.File("missing\\Test.dat"));
  EXPECT_NE(FailureOf([&] { service->OnStart(); }), "");
  service->OnStop();
  EXPECT_TRUE(ServerClosesDriver());
}

TEST_F(StartStop, ChangedPathMovesTheFileAtTheStop) {
  service->OnStart();
  Submit(*service, MakeMessage("moves along"));
  ASSERT_TRUE(Arrives("moves along"));
  const std::string moved = folder.File("Moved.dat");
  EXPECT_TRUE(Is(ChangeLogFile(*service, moved), ReplyCode::Done));
  service->OnStop();
  EXPECT_EQ(faults::moveFileCalls, 1);
  EXPECT_FALSE(FileExists(logFile));
  EXPECT_EQ(RingTexts(moved), std::vector<std::string>{"moves along"});
  EXPECT_EQ(ReadHeader(moved)->serverRunning, 0) << "moved before it was closed";
  EXPECT_EQ(registry::Text("LogFile"), moved);

  service->OnStart();
  EXPECT_EQ(RingTexts(moved), std::vector<std::string>{"moves along"});
}

TEST_F(StartStop, ServerKeepsWritingToTheOldFileUntilTheStop) {
  service->OnStart();
  const std::string moved = folder.File("Moved.dat");
  ChangeLogFile(*service, moved);
  EXPECT_STREQ(Ask(*service, RequestCode::GetLogFile).path, moved.c_str());
  Submit(*service, MakeMessage("still here"));
  EXPECT_TRUE(Arrives("still here"));
  EXPECT_FALSE(FileExists(moved));
}

TEST_F(StartStop, UnchangedPathIssuesNoMove) {
  service->OnStart();
  service->OnStop();
  EXPECT_EQ(faults::moveFileCalls, 0);
  EXPECT_TRUE(FileExists(logFile));
}

TEST_F(StartStop, PathThatDiffersInLetterCaseOnlyIsMoved) {
  service->OnStart();
  ChangeLogFile(*service, folder.File("TEST.DAT"));
  service->OnStop();
  EXPECT_EQ(faults::moveFileCalls, 1);
}

TEST_F(StartStop, FailedMoveIsSilentAndTheNextStartUsesTheNewPath) {
  service->OnStart();
  Submit(*service, MakeMessage("stays behind"));
  ASSERT_TRUE(Arrives("stays behind"));
  const std::string occupied = folder.File("Occupied.dat");
  CloseHandle(CreateFileA(occupied.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
  ChangeLogFile(*service, occupied);
  service->OnStop();
  EXPECT_EQ(faults::moveFileCalls, 1);
  EXPECT_EQ(Diagnostics(), "");
  EXPECT_EQ(RingTexts(logFile), std::vector<std::string>{"stays behind"});
  service->OnStart();
  EXPECT_EQ(ReadHeader(occupied)->serverRunning, 1);
}

TEST_F(StartStop, StopGivesUpWaitingForABusyFileAtItsDeadline) {
  service->OnStart();
  const BusyFile reader(logFile);
  const std::uint64_t begin = NowMs();
  service->OnStop();
  const std::uint64_t taken = NowMs() - begin;
  EXPECT_GE(taken, 14000U);
  EXPECT_LE(taken, 20000U);
  EXPECT_TRUE(ServerClosesDriver()) << "the sequence did not go on";
}

TEST_F(StartStop, StopGoesOnAsSoonAsTheLastReaderLeaves) {
  service->OnStart();
  auto reader = std::make_unique<BusyFile>(logFile);
  const std::uint64_t begin = NowMs();
  std::thread leaving([&] {
    Sleep(1500);
    reader.reset();
  });
  service->OnStop();
  leaving.join();
  const std::uint64_t taken = NowMs() - begin;
  EXPECT_GE(taken, 1400U);
  EXPECT_LE(taken, 6000U);
}

// The service manager waits 30 s for the answer to a stop. A start can wait without end, for a lock that
// another process has taken and keeps.
TEST_F(StartStop, StopEndsAStartThatHangsBeforeTheManagerGivesUp) {
  service->OnStart();
  service->OnStop();
  const HANDLE held = CreateEventA(nullptr, FALSE, FALSE, kHeaderLockName);
  std::thread starting([&] { FailureOf([&] { service->OnStart(); }); });
  Sleep(1000);
  const std::uint64_t begin = NowMs();
  service->OnStop();
  EXPECT_LE(NowMs() - begin, 29000U);
  starting.join();
  CloseHandle(held);
  EXPECT_TRUE(ServerClosesDriver());
}

TEST_F(StartStop, StopReportsAFileThatCannotBeOpenedForAnotherReason) {
  service->OnStart();
  ChangeLogFile(*service, "C:\\windows");
  EXPECT_EQ(FailureOf([&] { service->OnStop(); }),
            "Failed to wait for log file to be free, CreateFile failed()" + ErrorSuffix(ERROR_ACCESS_DENIED));
  EXPECT_EQ(faults::moveFileCalls, 0);
  // The lock was released.
  ChangeLogFile(*service, logFile);
  service->OnStop();
  EXPECT_TRUE(ServerClosesDriver());
}

TEST_F(StartStop, StopWithoutRegistryKeyAccessFailsBeforeItStopsAnything) {
  service->OnStart();
  registry::ReplaceByVolatileParent();
  EXPECT_EQ(FailureOf([&] { service->OnStop(); }),
            "RegCreateKeyEx() failed" + ErrorSuffix(ERROR_CHILD_MUST_BE_VOLATILE));
  Submit(*service, MakeMessage("still running"));
  EXPECT_TRUE(Arrives("still running"));
}

TEST_F(StartStop, MessagesThatHaveNotReachedTheFileAreLostAtAStop) {
  service->OnStart();
  Submit(*service, MakeMessage("in time"));
  ASSERT_TRUE(Arrives("in time"));  // a flush has just been: the next is 200 ms away
  Submit(*service, MakeMessage("too late"));
  service->OnStop();
  EXPECT_EQ(RingTexts(logFile), std::vector<std::string>{"in time"});
  service->OnStart();
  Sleep(500);
  EXPECT_EQ(RingTexts(logFile), std::vector<std::string>{"in time"});
}

TEST_F(StartStop, DestroyingARunningServerStopsIt) {
  service->OnStart();
  SettingsBody wanted = Settings(*service);
  wanted.maxMessage = 33;
  SetSettings(*service, wanted);
  service.reset();
  EXPECT_TRUE(ServerClosesDriver());
  EXPECT_EQ(ReadHeader(logFile)->serverRunning, 0);
  EXPECT_EQ(registry::Number("MaxMessage"), 33U);
  EXPECT_EQ(Diagnostics(), "");
}

TEST_F(StartStop, DestroyingAStoppedServerDoesNotStopItAgain) {
  service->OnStart();
  service->OnStop();
  registry::SetNumber("MaxMessage", 77);  // a stop would write the settings back
  service.reset();
  EXPECT_EQ(registry::Number("MaxMessage"), 77U);
}

TEST_F(StartStop, DestroyingAConstructedServerDoesNotStopIt) {
  registry::DeleteAll();
  service.reset();
  EXPECT_FALSE(registry::KeyExists(registry::kMainKey));
}

TEST_F(StartStop, DestructorLogsAFailedStopAndEndsTheThreads) {
  service->OnStart();
  registry::ReplaceByVolatileParent();
  service.reset();
  const std::string text = "Exception thrown in service destructor : RegCreateKeyEx() failed" +
                           ErrorSuffix(ERROR_CHILD_MUST_BE_VOLATILE);
  EXPECT_NE(Diagnostics().find(" - " + WithoutCarriageReturns(text) + "\n"), std::string::npos)
      << Diagnostics();
  EXPECT_TRUE(ServerClosesDriver());
  EXPECT_EQ(WaitNamedPipeA(kRequestPipeName, 1), 0);
}

TEST_F(StartStop, DestructorLetsOtherExceptionsOutWhenTheMembersAreGone) {
  service->OnStart();
  ChangeLogFile(*service, folder.File("Moved.dat"));
  faults::moveFileThrows = true;
  EXPECT_THROW(delete service.release(), ForeignException);
  EXPECT_TRUE(ServerClosesDriver());
  EXPECT_EQ(Diagnostics(), "");
}

TEST_F(StartStop, DestroyingAfterAHalfStartEndsWhatRuns) {
  // An object of another kind with the name of a shared object makes the open fail.
  HANDLE foreign = CreateEventA(nullptr, TRUE, TRUE, kFileMapName);
  EXPECT_NE(FailureOf([&] { service->OnStart(); }), "");
  CloseHandle(foreign);
  service.reset();
  EXPECT_TRUE(ServerClosesDriver());
}

TEST_F(StartStop, SecondStopRunsAfterTheFirst) {
  service->OnStart();
  std::thread other([&] { service->OnStop(); });
  service->OnStop();
  other.join();
  EXPECT_TRUE(ServerClosesDriver());
  EXPECT_EQ(Diagnostics(), "");
}

// Starts and stops on one thread, requests on others: no crash, no hang, no torn data.
TEST_F(StartStop, RequestsFromManyThreadsDuringStartsAndStops) {
  std::atomic<bool> done{false};
  std::vector<std::thread> clients;
  for (std::uint32_t type = 0; type < 4; ++type) {
    clients.emplace_back([&, type] {
      while (!done) {
        Submit(*service, MakeMessage("load", "source", type));
        AddFilter(*service, "none", 0);
        GetFilter(*service, 0);
        Ask(*service, RequestCode::ClearFilters);
        Settings(*service);
      }
    });
  }
  for (int round = 0; round < 5; ++round) {
    service->OnStart();
    Sleep(100);
    service->OnStop();
  }
  done = true;
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(Starts(), 5U);
  EXPECT_TRUE(ServerClosesDriver());
}

}  // namespace
