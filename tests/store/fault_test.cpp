// Runs every operation with its first, second, third ... call failing, until it succeeds; after each failure
// the server works normally.

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/store/faults.h"
#include "tests/store/log_file_fixture.h"
#include "tests/support/diagnostic_log_capture.h"
#include "util/win32.h"

namespace StoreTest {
namespace {

using Sentences = std::set<std::string>;
using TamLogUtil::Timeout;

constexpr char kNoAccess[] = "Failed to access File Map View";
constexpr char kNoRelease[] = "Failed to release message file read access";
constexpr std::uint32_t kAccessViolation = 0xC0000005U;

class Faults : public LogFile {
 protected:
  ~Faults() override { WorkAgain(); }

  // Runs `operation` with fault 1, 2, 3 ..., which arm(n) sets, with `prepare` before and `check` after each.
  // Returns the sentences of all failures.
  Sentences Sweep(const std::function<void(int)>& arm, const std::function<void()>& prepare,
                  const std::function<void()>& operation, const std::function<void()>& check) {
    Sentences sentences;
    for (int n = 1; n < 200; ++n) {
      SCOPED_TRACE("fault " + std::to_string(n));
      prepare();
      arm(n);
      const std::string sentence = SentenceOf(operation);
      const bool wasMet = FaultMet();
      WorkAgain();
      if (!wasMet) {
        EXPECT_EQ(sentence, "");
        return sentences;
      }
      sentences.insert(sentence);
      check();
      if (HasFatalFailure()) break;
    }
    ADD_FAILURE() << "the sweep did not end";
    return sentences;
  }

  // Makes the nth guarded access to the view fail permanently.
  static void ArmMappedAccess(int n) { FailMappedAccess(n); }

  Sentences SweepOpen(const std::function<void()>& makeFile, const std::function<void()>& check) {
    return Sweep(
        ArmMappedAccess,
        [&] {
          server.emplace(&configuration, &configLock);
          makeFile();
        },
        [&] { Open(); },
        [&] {
          Restart();
          check();
          EXPECT_EQ(Header().serverRunning, 1);
          EXPECT_TRUE(server->VerifyIntegrity());
        });
  }

  // Each call of `function` in `operation` fails once; returns the sentences.
  Sentences SweepCalls(const std::string& function, const std::function<void()>& prepare,
                       const std::function<void()>& operation, const std::function<void()>& check) {
    return Sweep([&](int n) { FailCall(function, n, 1117); }, prepare, operation, check);
  }

  void FreshServer() {
    server.emplace(&configuration, &configLock);
    MakeFile(10, {Message("a", At(12, 0))});
  }
  void OpenAgain() {
    Restart();
    EXPECT_EQ(Newest(), (Texts{"a"}));
  }

  // Each call of `function` in a close fails once; afterwards nothing is open.
  Sentences SweepClose(const std::string& function) {
    return SweepCalls(
        function,
        [&] {
          FreshServer();
          Open();
        },
        [&] { Close(); },
        [&] {
          EXPECT_NO_THROW(Close());
          OpenAgain();
        });
  }
};

// The mapped view ---------------------------------------------------------------------------------------

TEST_F(Faults, EveryTouchOfTheViewThatFailsWhileASoundFileIsOpenedIsReported) {
  const Sentences sentences = SweepOpen(
      [&] {
        MakeFile(10, {Message("a", At(12, 0)), Message("b", At(12, 1))});
      },
      [&] {
        EXPECT_EQ(Newest(), (Texts{"b", "a"}));
      });
  EXPECT_EQ(sentences,
            (Sentences{"Failed to reset the read count in SetFileView()", kNoAccess, kNoRelease,
                       "Failed to get a copy of the header in VerifyIntegrity()",
                       "Failed to read a message while verifying file integrity",
                       "Failed to get header and lock name copies in InitializeFile()",
                       "Failed to write modified header and lock names to the file in InitializeFile()",
                       "Failed to set server running flag to true in log file during OpenFile()"}));
}

TEST_F(Faults, EveryTouchOfTheViewThatFailsWhileANewFileIsOpenedIsReported) {
  const Sentences sentences = SweepOpen([&] { DeleteFileA(configuration.logFile.c_str()); },
                                        [&] { EXPECT_EQ(Header().messageCount, 0); });
  EXPECT_EQ(sentences,
            (Sentences{"Failed to reset the read count in SetFileView()",
                       "Failed to reformat the log file's header", kNoAccess, kNoRelease,
                       "Failed to get header and lock name copies in InitializeFile()",
                       "Failed to write modified header and lock names to the file in InitializeFile()",
                       "Failed to read log file header in LoadToList()",
                       "Failed to set server running flag to true in log file during OpenFile()"}));
}

TEST_F(Faults, EveryTouchOfTheViewThatFailsWhileAFileIsCompactedIsReported) {
  const Sentences sentences = SweepOpen(
      [&] {
        MakeFile(10, {Message("a"), Message("b")});
        Damage([](LogFileHeader& header) { header.maxMessages = 8; });
      },
      [&] { EXPECT_EQ(Header().messageCount, 2); });
  EXPECT_EQ(sentences.count("Failed to rewrite a message during file compaction in InitializeFile()"), 1U);
  EXPECT_EQ(sentences.count("Failed to read a message in LoadToList()"), 1U);
}

// Another process writes over the ring's numbers in the mapped header before the nth touch of the view.
template <std::int32_t messageCount, std::int32_t maxMessages, std::int32_t nextSlot>
void WriteOverHeader(void* view) {
  auto* const bytes = static_cast<char*>(view);
  const std::int32_t numbers[] = {messageCount, maxMessages, nextSlot};
  std::memcpy(bytes + offsetof(LogFileHeader, messageCount), numbers, sizeof numbers);
}

TEST_F(Faults, AHeaderThatIsWrittenOverAtAnyMomentOfAnOpenNeitherFailsItNorTheNextOne) {
  constexpr std::int32_t kMost = 0x7FFFFFFF;
  void (*const writeOver[])(void*) = {
      WriteOverHeader<3, 10, kMost>, WriteOverHeader<kMost, kMost, 5>,    WriteOverHeader<1, 5000, 0>,
      WriteOverHeader<-1, 10, 2>,    WriteOverHeader<2, 10, -1>,          WriteOverHeader<11, 10, 2>,
      WriteOverHeader<0, 10, 5000>,  WriteOverHeader<2, -kMost - 1, 200>, WriteOverHeader<5000, 8, 5000>,
  };
  const auto bothMessages = [&] { MakeFile(10, {Message("a", At(12, 0)), Message("b", At(12, 1))}); };
  const auto anotherCapacity = [&] {
    bothMessages();
    Damage([](LogFileHeader& header) { header.maxMessages = 8; });
  };
  const auto aNewFile = [&] { DeleteFileA(configuration.logFile.c_str()); };
  const auto aShorterFile = [&] { MakeFile(5, {Message("a", At(12, 0))}); };
  for (const std::function<void()>& makeFile :
       {std::function<void()>(bothMessages), std::function<void()>(anotherCapacity),
        std::function<void()>(aNewFile), std::function<void()>(aShorterFile)}) {
    for (const auto action : writeOver) {
      const Sentences sentences = Sweep([&](int n) { BeforeMappedAccess(n, action); },
                                        [&] {
                                          server.emplace(&configuration, &configLock);
                                          makeFile();
                                        },
                                        [&] { Open(); },
                                        [&] {
                                          EXPECT_EQ(Header().serverRunning, 1);
                                          Restart();
                                          EXPECT_TRUE(server->VerifyIntegrity());
                                          Close();
                                        });
      EXPECT_EQ(sentences, (Sentences{""}));
    }
  }
}

// The touches of an open: readCount is reset (1); the check enters (2, 3), reads header (4) and slots (5) and
// leaves (6, 7); the open enters again (8, 9), reads the header again (10) and the lock names.
TEST_F(Faults, AHeaderThatIsWrittenOverBeforeItsLastReadingCountsAsABrokenRule) {
  for (int n = 1; n <= 11; ++n) {
    SCOPED_TRACE(n);
    FreshServer();
    BeforeMappedAccess(n, WriteOverHeader<1, 10, 11>);
    Open();
    EXPECT_TRUE(FaultMet());
    WorkAgain();
    EXPECT_TRUE(server->VerifyIntegrity());
    EXPECT_EQ(Header().messageCount, n <= 10 ? 0 : 1);
    Close();
  }
}

TEST_F(Faults, AFlushThatFailsAtAnyTouchOfTheViewLosesAndDuplicatesNothing) {
  Open();
  Submit("a", At(12, 0));
  Submit("d", At(12, 3));
  Flush();
  const Sentences sentences = Sweep(
      ArmMappedAccess,
      [&] {
        Clear();
        Submit("a", At(12, 0));
        Submit("d", At(12, 3));
        Flush();
        Submit("b", At(12, 1));
        Submit("c", At(12, 2));
      },
      [&] { Flush(); },
      [&] {
        Flush();
        ASSERT_EQ(Newest(), (Texts{"d", "c", "b", "a"}));
        ASSERT_TRUE(server->VerifyIntegrity());
      });
  EXPECT_EQ(sentences, (Sentences{"Failed to read the header during FlushWrites()",
                                  "Failed to write a message during FlushWrites()",
                                  "Failed to rewrite the modified header in FlushWrites()", kNoAccess}));
}

TEST_F(Faults, AFlushThatOnlyFailsToPublishDoesSoWithTheNextWriteAccess) {
  Open();
  const std::uint64_t before = Header().changeCount;
  Submit("a", At(12, 0));
  FailMappedAccess(4);  // header, slot, header; then changeCount
  EXPECT_EQ(SentenceOf([&] { Flush(); }), kNoAccess);
  WorkAgain();
  EXPECT_EQ(Header().changeCount, before);
  TestReader reader(names);
  EXPECT_TRUE(reader.WaitForReadWait(0));
  { const MessageFileServer::WriteAccess access(&*server); }
  EXPECT_EQ(Header().changeCount, before + 1);
  EXPECT_EQ(Newest(), (Texts{"a"}));
}

TEST_F(Faults, AClearThatFailsAtAnyTouchOfTheViewCanBeRepeated) {
  Open();
  const Sentences sentences = Sweep(
      ArmMappedAccess,
      [&] {
        Submit("a", At(12, 0));
        Flush();
      },
      [&] { Clear(); },
      [&] {
        Clear();
        ASSERT_EQ(Header().messageCount, 0);
      });
  EXPECT_EQ(sentences, (Sentences{"Failed to read the header during ClearMessages()",
                                  "Failed to rewrite the modified header in ClearMessages()", kNoAccess}));
}

TEST_F(Faults, ALoadThatFailsAtAnyTouchOfTheViewCanBeRepeated) {
  Open();
  Submit("a", At(12, 0));
  Flush();
  TestReader helper(names);
  MessageList list;
  const Sentences sentences = Sweep(
      ArmMappedAccess, [] {}, [&] { server->LoadToList(list); },
      [&] {
        // A reader that could not count itself out leaves the same state as a dead one.
        helper.Header().readCount = 0;
        helper.SignalWriteWait();
        server->LoadToList(list);
        ASSERT_EQ(list.Size(), 1U);
      });
  EXPECT_EQ(sentences, (Sentences{kNoAccess, kNoRelease, "Failed to read log file header in LoadToList()",
                                  "Failed to read a message in LoadToList()"}));
}

TEST_F(Faults, AFailedReadAccessLeavesTheCountAsItWas) {
  Open();
  FailCall("ResetEvent", 1, 1117);
  EXPECT_EQ(FailureOf([&] {
              const MessageFileServer::ReadAccess access(&*server);
            }).rfind("Failed to RemoveSignal for Event object\nResetEvent failed - Error code : 1117", 0),
            0U);
  WorkAgain();
  EXPECT_EQ(Header().readCount, 0);
}

TEST_F(Faults, AWriteToDiskThatCannotCountItselfInSaysSo) {
  Open();
  TestReader helper(names);
  const Sentences sentences = Sweep(
      ArmMappedAccess, [] {}, [&] { server->WriteToDisk(); },
      [&] {
        helper.Header().readCount = 0;
        helper.SignalWriteWait();
        EXPECT_NO_THROW(server->WriteToDisk());
      });
  EXPECT_EQ(sentences, (Sentences{"Failed to get file read access in WriteToDisk()", kNoRelease}));
}

TEST_F(Faults, ACloseThatFailsAtAnyTouchOfTheViewLeavesNothingOpen) {
  const Sentences sentences = Sweep(
      ArmMappedAccess,
      [&] {
        FreshServer();
        Open();
      },
      [&] { Close(); },
      [&] {
        EXPECT_EQ(FailureOf([&] {
                    Flush();
                    server->VerifyIntegrity();
                  }),
                  "Failed to verify log file integrity, some handles or pointers are invalid");
        EXPECT_NO_THROW(Close());
        OpenAgain();
      });
  EXPECT_EQ(sentences, (Sentences{"Failed to set server running flag to false in log file during CloseFile()",
                                  kNoAccess}));
}

TEST_F(Faults, ATouchThatSucceedsAtTheTenthAttemptIsNoFailure) {
  Open();
  Submit("a", At(12, 0));
  FailMappedAccess(1, 9);
  EXPECT_NO_THROW(Flush());
  EXPECT_TRUE(FaultMet());
  EXPECT_EQ(Newest(), (Texts{"a"}));
}

TEST_F(Faults, ATouchIsTriedTenTimes) {
  Open();
  Submit("a", At(12, 0));
  FailMappedAccess(1, 10);
  EXPECT_EQ(FailureOf([&] { Flush(); }),
            "Failed to read the header during FlushWrites()\nFailed to access File Map View");
  // Ten attempts on the header, then the release: changeCount read and written, readCount set to 0.
  EXPECT_EQ(MappedAttempts(), 10 + 3);
}

TEST_F(Faults, AnotherFaultIsNotRetriedAndLeavesAsItsCode) {
  Open();
  Submit("a", At(12, 0));
  FailMappedAccess(2, 1, kAccessViolation);
  std::uint32_t code = 0;
  try {
    Flush();
  } catch (const std::uint32_t thrown) {
    code = thrown;
  }
  EXPECT_EQ(code, kAccessViolation);
  WorkAgain();
  Flush();
  EXPECT_EQ(Newest(), (Texts{"a"}));
}

// Genuine faults: the header's page is made inaccessible, and a handler turns the fault into an in-page error
// a given number of times.
int faultsLeft = 0;
int faultsSeen = 0;

LONG CALLBACK ReportInPageError(EXCEPTION_POINTERS* pointers) {
  EXCEPTION_RECORD* const record = pointers->ExceptionRecord;
  if (record->ExceptionCode != kAccessViolation) return EXCEPTION_CONTINUE_SEARCH;
  const auto address = record->ExceptionInformation[1];
  const auto view = reinterpret_cast<std::uintptr_t>(LastView());
  if (address < view || address >= view + 4096) return EXCEPTION_CONTINUE_SEARCH;
  ++faultsSeen;
  if (--faultsLeft == 0) {
    DWORD old = 0;
    VirtualProtect(LastView(), 4096, PAGE_READWRITE, &old);
  }
  record->ExceptionCode = 0xC0000006U;
  return EXCEPTION_CONTINUE_SEARCH;
}

class GenuineFaults : public LogFile {
 protected:
  // The failure of a flush whose first access meets `faults` faults.
  std::string FlushWith(int faults) {
    Submit("a", At(12, 0));
    void* const handler = AddVectoredExceptionHandler(1, ReportInPageError);
    faultsLeft = faults;
    faultsSeen = 0;
    DWORD old = 0;
    VirtualProtect(LastView(), 4096, PAGE_NOACCESS, &old);
    std::string failure = FailureOf([&] { Flush(); });
    VirtualProtect(LastView(), 4096, PAGE_READWRITE, &old);
    RemoveVectoredExceptionHandler(handler);
    return failure;
  }
};

TEST_F(GenuineFaults, NineInPageErrorsAreRepeated) {
  Open();
  EXPECT_EQ(FlushWith(9), "");
  EXPECT_EQ(faultsSeen, 9);
  EXPECT_EQ(Newest(), (Texts{"a"}));
}

TEST_F(GenuineFaults, TheTenthInPageErrorIsTheLast) {
  Open();
  EXPECT_EQ(FlushWith(10), "Failed to read the header during FlushWrites()\nFailed to access File Map View");
  EXPECT_EQ(faultsSeen, 10);
  Flush();
  EXPECT_EQ(Newest(), (Texts{"a"}));
}

// System calls ------------------------------------------------------------------------------------------

TEST_F(Faults, AFileThatCannotBeOpenedIsReportedAndTheOpenCanBeRepeated) {
  EXPECT_EQ(SweepCalls(
                "CreateFileA", [&] { FreshServer(); }, [&] { Open(); }, [&] { OpenAgain(); }),
            (Sentences{"Failed to open log file, CreateFile() failed"}));
}

TEST_F(Faults, AMappingThatCannotBeMadeIsReported) {
  EXPECT_EQ(SweepCalls(
                "CreateFileMappingA", [&] { FreshServer(); }, [&] { Open(); }, [&] { OpenAgain(); }),
            (Sentences{"Failed to open a file mapping, CreateFileMapping() failed"}));
}

TEST_F(Faults, AViewThatCannotBeMappedIsReportedWithItsErrorCode) {
  FreshServer();
  FailCall("MapViewOfFile", 1, 8);
  const std::string failure = FailureOf([&] { Open(); });
  WorkAgain();
  EXPECT_EQ(failure.rfind("Failed to map a file view, MapViewOfFile() failed - Error code : 8 - ", 0), 0U)
      << failure;
  OpenAgain();
}

TEST_F(Faults, AFileThatCannotBeResizedIsReported) {
  const auto smaller = [&] {
    server.emplace(&configuration, &configLock);
    MakeFile(5, {Message("a", At(12, 0))});
  };
  EXPECT_EQ(SweepCalls(
                "SetFilePointerEx", smaller, [&] { Open(); }, [&] { Restart(); }),
            (Sentences{"Failed to resize file, SetFilePointerEx() failed in ResizeFile()"}));
  EXPECT_EQ(SweepCalls(
                "SetEndOfFile", smaller, [&] { Open(); }, [&] { Restart(); }),
            (Sentences{"Failed to resize file, SetEndOfFile() failed in ResizeFile()"}));
}

TEST_F(Faults, AViewThatCannotBeUnmappedIsReportedAndNothingStaysOpen) {
  EXPECT_EQ(SweepClose("UnmapViewOfFile"),
            (Sentences{"Failed to close file view, UnmapViewOfFile() failed"}));
}

// The handles of the named objects and of the file are closed without checking the result.
TEST_F(Faults, AMappingHandleThatCannotBeClosedIsReportedAndNothingStaysOpen) {
  EXPECT_EQ(SweepClose("CloseHandle"), (Sentences{"", "Failed to close file view, CloseHandle() failed"}));
}

TEST_F(Faults, AFlushToDiskThatFailsIsReportedOnCloseAndOnWriteToDisk) {
  FreshServer();
  Open();
  FailCall("FlushViewOfFile", 1, 1117);
  EXPECT_EQ(SentenceOf([&] { server->WriteToDisk(); }),
            "Failed to force log file changes saved to disk, FlushViewOfFile() failed in WriteToDisk()");
  FailCall("FlushViewOfFile", 1, 1117);
  const std::string failure = FailureOf([&] { Close(); });
  EXPECT_EQ(failure.rfind("Failed to force log file changes to be saved to disk, FlushViewOfFile() failed in "
                          "CloseFile() - Error code : 1117 - ",
                          0),
            0U)
      << failure;
  WorkAgain();
  EXPECT_EQ(Header().serverRunning, 0);
  EXPECT_NO_THROW(Close());
}

TEST_F(Faults, BothFlushesToDiskCoverTheWholeFile) {
  FreshServer();
  Open();
  server->WriteToDisk();
  EXPECT_EQ(TakeFlushedSize(), 240U + 560U * 10U);
  Close();
  EXPECT_EQ(TakeFlushedSize(), 240U + 560U * 10U);
}

// The file inherits its access list from its directory. The test machine's system keeps no list that could be
// read back, so the test checks the arguments of the call.
TEST_F(Faults, TheLogFileIsOpenedAndMadeWithoutAnAccessListOfItsOwn) {
  server.emplace(&configuration, &configLock);
  DeleteFileA(configuration.logFile.c_str());
  Open();
  Close();
  Open();
  EXPECT_EQ(FilesWithAccessList(), 0);
}

TEST_F(Faults, NamedObjectsThatCannotBeCreatedAreReported) {
  EXPECT_EQ(SweepCalls(
                "CreateEventA", [&] { FreshServer(); }, [&] { Open(); }, [&] { OpenAgain(); }),
            (Sentences{"Failed to create file access objects in MessageFile::OpenFile()"}));
}

TEST_F(Faults, AnyWaitThatFailsDuringAnOpenIsReportedAndTheOpenCanBeRepeated) {
  const Sentences sentences = SweepCalls(
      "WaitForMultipleObjects", [&] { FreshServer(); }, [&] { Open(); }, [&] { OpenAgain(); });
  EXPECT_EQ(sentences,
            (Sentences{"Failed to Wait for Event object", "Failed to Wait for Mutex object", kNoRelease}));
}

TEST_F(Faults, AFlushWhoseWaitFailsLetsReadersInAndKeepsItsMessages) {
  Open();
  TestReader reader(names);
  Submit("a", At(12, 0));
  const Sentences sentences = Sweep([&](int n) { FailCall("WaitForMultipleObjects", n, 1117); },
                                    [&] {
                                      Clear();
                                      Submit("a", At(12, 0));
                                    },
                                    [&] { Flush(); },
                                    [&] {
                                      ASSERT_TRUE(reader.WaitForReadWait(0));
                                      Flush();
                                      ASSERT_EQ(Newest(), (Texts{"a"}));
                                    });
  EXPECT_EQ(sentences, (Sentences{"Failed to Wait for Event object", "Failed to Wait for Mutex object"}));
}

TEST_F(Faults, TheFreeFileIsReportedWithTheErrorOfItsOwnCall) {
  FreshServer();
  FailCall("CreateFileA", 1, 206);
  Timeout timeout(5000);
  const std::string failure = FailureOf([&] { server->WaitUntilFree(timeout); });
  EXPECT_EQ(
      failure.rfind("Failed to wait for log file to be free, CreateFile failed() - Error code : 206 - ", 0),
      0U)
      << failure;
}

}  // namespace
}  // namespace StoreTest
