// Real processor faults at every access to the mapped view, in every operation: pages that cannot be loaded
// at the first attempt, at nine and at all ten, and a view that cannot be read, or cannot be written.

#include <gtest/gtest.h>

#include <functional>
#include <iostream>
#include <ostream>
#include <string>
#include <vector>

#include "tests/store/faults.h"
#include "tests/store/log_file_fixture.h"
#include "util/win32.h"

namespace StoreTest {
namespace {

using TamLogUtil::Timeout;

constexpr char kNoAccess[] = "Failed to access File Map View";
constexpr std::uint32_t kAccessViolation = 0xC0000005U;
// The time that the stop of a server waits for locks of a thread that has met a fault.
constexpr std::uint32_t kCloseMs = 50;

class PageFaults : public LogFile {
 public:
  // A server with "a" and "c" in its file; nothing pending.
  void OpenFile() {
    server.emplace(&configuration, &configLock);
    DeleteFileA(configuration.logFile.c_str());
    Open();
    Submit("a", At(12, 0));
    Submit("c", At(12, 2));
    Flush();
  }
  void PrepareClosed(std::int32_t capacity, const std::vector<LogMessageBody>& messages) {
    server.emplace(&configuration, &configLock);
    MakeFile(capacity, messages);
  }
  void PrepareNone() {
    server.emplace(&configuration, &configLock);
    DeleteFileA(configuration.logFile.c_str());
  }

  void DoOpen() { Open(); }
  void DoFlush() { Flush(); }
  void DoClear() { Clear(); }
  void DoClose() { Close(kCloseMs); }
  void DoLoad() {
    MessageList list;
    server->LoadToList(list);
  }
  void DoVerify() { server->VerifyIntegrity(); }
  void DoWriteToDisk() { server->WriteToDisk(); }
  void DoWriteAccess() { const MessageFileServer::WriteAccess access(&*server); }
  void SubmitBetween() { Submit("b", At(12, 1)); }
  void SubmitNewest() { Submit("d", At(12, 3)); }
  // A full ring, and a message older than all others: those are read back, and the whole ring is written.
  void OpenFullFileAndSubmitOld() {
    OpenFile();
    for (int minute = 3; minute < 11; ++minute) Submit("e", At(12, minute));
    Flush();
    Submit("b", At(12, 0, 30));
  }
  // The ring was changed after the last flush, so the file's messages are read back before the next one.
  void MoveRingAsAnotherProcess() { static_cast<LogFileHeader*>(LastView())->nextSlot = 5; }

 protected:
  ~PageFaults() override { WorkAgain(); }
};

struct Operation {
  const char* name;
  std::function<void(PageFaults&)> prepare;
  std::function<void(PageFaults&)> run;
};

std::ostream& operator<<(std::ostream& stream, const Operation& operation) {
  return stream << operation.name;
}

const std::vector<Operation>& Operations() {
  static const std::vector<Operation> operations = {
      {"OpenOfANewFile", [](PageFaults& test) { test.PrepareNone(); },
       [](PageFaults& test) { test.DoOpen(); }},
      {"OpenOfASoundFile",
       [](PageFaults& test) {
         test.PrepareClosed(10, {Message("a", At(12, 0)), Message("c", At(12, 2))});
       },
       [](PageFaults& test) { test.DoOpen(); }},
      {"OpenOfADamagedFile",
       [](PageFaults& test) {
         test.PrepareClosed(10, {Message("a", At(12, 2)), Message("c", At(12, 0))});
       },
       [](PageFaults& test) { test.DoOpen(); }},
      {"OpenWithAnotherCapacity",
       [](PageFaults& test) {
         test.PrepareClosed(5, {Message("a", At(12, 0)), Message("c", At(12, 0))});
       },
       [](PageFaults& test) { test.DoOpen(); }},
      {"FlushOfTheNewest",
       [](PageFaults& test) {
         test.OpenFile();
         test.SubmitNewest();
       },
       [](PageFaults& test) { test.DoFlush(); }},
      {"FlushThatMovesMessages",
       [](PageFaults& test) {
         test.OpenFile();
         test.SubmitBetween();
       },
       [](PageFaults& test) { test.DoFlush(); }},
      {"FlushOfTheWholeRing", [](PageFaults& test) { test.OpenFullFileAndSubmitOld(); },
       [](PageFaults& test) { test.DoFlush(); }},
      {"FlushIntoARingThatWasMoved",
       [](PageFaults& test) {
         test.OpenFile();
         test.SubmitNewest();
         test.MoveRingAsAnotherProcess();
       },
       [](PageFaults& test) { test.DoFlush(); }},
      {"Clear", [](PageFaults& test) { test.OpenFile(); }, [](PageFaults& test) { test.DoClear(); }},
      {"Load", [](PageFaults& test) { test.OpenFile(); }, [](PageFaults& test) { test.DoLoad(); }},
      {"Check", [](PageFaults& test) { test.OpenFile(); }, [](PageFaults& test) { test.DoVerify(); }},
      {"WriteToDisk", [](PageFaults& test) { test.OpenFile(); },
       [](PageFaults& test) { test.DoWriteToDisk(); }},
      {"WriteAccess", [](PageFaults& test) { test.OpenFile(); },
       [](PageFaults& test) { test.DoWriteAccess(); }},
      {"Close", [](PageFaults& test) { test.OpenFile(); }, [](PageFaults& test) { test.DoClose(); }},
  };
  return operations;
}

class EveryTouch : public PageFaults, public testing::WithParamInterface<Operation> {
 protected:
  // Runs the operation with the fault at its first, second, third ... access to the view, and `check` with
  // the failure's text or code after each. Returns the number of accesses.
  int Each(int attempts, PageFault fault,
           const std::function<void(const std::string&, std::uint32_t)>& check) {
    for (int n = 1; n < 100; ++n) {
      SCOPED_TRACE("touch " + std::to_string(n));
      GetParam().prepare(*this);
      FaultMappedAccess(n, attempts, fault);
      std::uint32_t code = 0;
      std::string failure;
      try {
        failure = FailureOf([&] { GetParam().run(*this); });
      } catch (const std::uint32_t thrown) {
        code = thrown;
      }
      const bool met = FaultMet();
      WorkAgain();
      if (!met) {
        EXPECT_EQ(failure, "");
        return n - 1;
      }
      check(failure, code);
      StopAndStartAgain();
      if (HasFailure()) return n;
    }
    ADD_FAILURE() << "the operation never succeeds";
    return 0;
  }

  // Stops the server within its bound; the next start accepts the file or recreates it.
  void StopAndStartAgain() {
    try {
      FailureOf([&] { Close(kCloseMs); });
    } catch (const std::uint32_t code) {
      ADD_FAILURE() << "the stop met " << code;
    }
    Restart();
    EXPECT_TRUE(server->VerifyIntegrity());
    Submit("next", At(13, 0));
    Flush();
    EXPECT_EQ(Newest().front(), "next");
    Close(kCloseMs);
  }

  void GetsThroughAfter(int attempts) {
    const int touches =
        Each(attempts, PageFault::InPageError, [&](const std::string& failure, std::uint32_t code) {
          EXPECT_EQ(failure, "");
          EXPECT_EQ(code, 0U);
          EXPECT_EQ(FaultsSeen(), attempts);
        });
    EXPECT_GE(touches, 2);
    // scripts/call-faults.sh adds these up.
    std::cout << "touches: " << touches << '\n';
  }
};

TEST_P(EveryTouch, IsRepeatedAfterOneInPageError) {
  GetsThroughAfter(1);
}

TEST_P(EveryTouch, IsRepeatedAfterNineInPageErrors) {
  GetsThroughAfter(9);
}

TEST_P(EveryTouch, IsGivenUpAndReportedAfterTheTenthInPageError) {
  Each(10, PageFault::InPageError, [](const std::string& failure, std::uint32_t code) {
    EXPECT_EQ(code, 0U);
    EXPECT_EQ(FaultsSeen(), 10);
    const std::string cause = kNoAccess;
    ASSERT_GE(failure.size(), cause.size()) << failure;
    EXPECT_EQ(failure.substr(failure.size() - cause.size()), cause);
  });
}

TEST_P(EveryTouch, IsNotRepeatedWhereTheViewCannotBeReachedAndLetsTheCodeOut) {
  Each(1, PageFault::NoAccess, [](const std::string& failure, std::uint32_t code) {
    EXPECT_EQ(failure, "");
    EXPECT_EQ(code, kAccessViolation);
    EXPECT_EQ(FaultsSeen(), 1);
  });
}

TEST_P(EveryTouch, LetsTheCodeOutWhereItWritesToAViewThatCannotBeWritten) {
  int written = 0;
  const int touches = Each(1, PageFault::NoWriting, [&](const std::string& failure, std::uint32_t code) {
    EXPECT_EQ(failure, "");
    EXPECT_EQ(code, FaultsSeen() == 0 ? 0U : kAccessViolation);
    written += FaultsSeen();
  });
  EXPECT_GT(written, 0);
  EXPECT_LT(written, touches);
}

INSTANTIATE_TEST_SUITE_P(Operations, EveryTouch, testing::ValuesIn(Operations()),
                         [](const testing::TestParamInfo<Operation>& operation) {
                           return operation.param.name;
                         });

// A view that another part of the process has unmapped.
TEST_F(PageFaults, AViewThatIsGoneLetsTheCodeOutAndTheServerCanBeStoppedAndStarted) {
  OpenFile();
  UnmapViewOfFile(LastView());
  Submit("d", At(12, 3));
  EXPECT_THROW(Flush(), std::uint32_t);
  // The running flag cannot be cleared, and the view cannot be closed a second time.
  EXPECT_THROW(Close(kCloseMs), std::uint32_t);
  Restart();
  EXPECT_EQ(Newest(), (Texts{"c", "a"}));
}

}  // namespace
}  // namespace StoreTest
