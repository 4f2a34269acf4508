// Read and write access between the server, its own threads and other readers.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/store/log_file_fixture.h"
#include "tests/support/diagnostic_log_capture.h"
#include "tests/support/wait_until.h"
#include "util/helpers.h"
#include "util/win32.h"

namespace StoreTest {
namespace {

using TamLogUtil::MessageFile;
using TamLogUtil::Timeout;
using TestSupport::WaitUntil;
using ReadAccess = MessageFile::ReadAccess;
using WriteAccess = MessageFileServer::WriteAccess;

constexpr char kForced[] = "File access rights timed out, forcing access.";

class Access : public LogFile {
 protected:
  static const ObjectNames& Opened(Access& test) {
    test.Open();
    return test.names;
  }

  // A flush waits for a reader that will not leave, until the reader's event is signalled.
  void ExpectFlushToWaitForTheSignal() {
    Submit("a", At(12, 0));
    std::atomic<bool> done = false;
    std::thread flush([&] {
      Flush();
      done = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(done);
    reader.SignalWriteWait();
    flush.join();
    EXPECT_EQ(Newest(), (Texts{"a"}));
    EXPECT_EQ(reader.Header().readCount, 0);
  }

  TestReader reader{Opened(*this)};
};

// Read access -------------------------------------------------------------------------------------------

TEST_F(Access, TwoReadersInTurnRaiseTheCountToTwoAndTheLastOneLetsWritersIn) {
  auto first = std::make_unique<ReadAccess>(&*server);
  EXPECT_EQ(reader.Header().readCount, 1);
  EXPECT_FALSE(reader.WriteWaitIsSignalled());
  ASSERT_TRUE(reader.Enter(1000));
  EXPECT_EQ(reader.Header().readCount, 2);
  first.reset();
  EXPECT_EQ(reader.Header().readCount, 1);
  EXPECT_FALSE(reader.WriteWaitIsSignalled());
  reader.Leave();
  EXPECT_EQ(reader.Header().readCount, 0);
  EXPECT_TRUE(reader.WriteWaitIsSignalled());
}

TEST_F(Access, AReaderWaitsWhileAWriterIsInside) {
  auto writing = std::make_unique<WriteAccess>(&*server);
  EXPECT_FALSE(reader.Enter(0));
  std::atomic<bool> inside = false;
  std::thread entering([&] {
    const ReadAccess access(&*server);
    inside = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(inside);
  writing.reset();
  entering.join();
  EXPECT_TRUE(inside);
}

TEST_F(Access, AReaderWhoseTimeRunsOutFailsAndLeavesTheCount) {
  const WriteAccess writing(&*server);
  Timeout timeout(50);
  EXPECT_EQ(FailureOf([&] { const ReadAccess access(&*server, timeout); }),
            "Failed to get message file read access");
  EXPECT_EQ(reader.Header().readCount, 0);
}

TEST_F(Access, AReaderThatFindsAWriterAfterTheHeaderLockStartsAgain) {
  // The reader passes read-wait, then waits for the header lock; a writer enters meanwhile.
  ASSERT_TRUE(reader.TakeHeaderLock(1000));
  std::atomic<bool> inside = false;
  std::thread entering([&] {
    const ReadAccess access(&*server);
    inside = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  reader.ResetReadWait();
  reader.GiveHeaderLockBack();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(inside);
  EXPECT_EQ(reader.Header().readCount, 0);
  EXPECT_TRUE(reader.TakeHeaderLock(1000));  // it released the lock
  reader.GiveHeaderLockBack();
  reader.SignalReadWait();
  entering.join();
  EXPECT_TRUE(inside);
}

TEST_F(Access, ReadAccessNeedsAnOpenFile) {
  Close();
  EXPECT_EQ(FailureOf([&] { const ReadAccess access(&*server); }),
            "Failed to grab read access, some handles or pointers are invalid");
}

TEST_F(Access, ReadAccessNeedsAFile) {
  EXPECT_EQ(FailureOf([&] { const ReadAccess access(nullptr); }),
            "MessageFile ReadAccess object created with null pointer");
}

TEST_F(Access, ReadAccessToAFileClosedMeanwhileCannotBeGivenBack) {
  static_assert(!std::is_nothrow_destructible_v<ReadAccess>);
  const auto* const access = new ReadAccess(&*server);  // a smart pointer must not let the exception out
  Close(0);
  EXPECT_EQ(FailureOf([&] { delete access; }),
            "Failed to release message file read access\n"
            "Failed to release read access, some handles or pointers are invalid");
}

TEST_F(Access, AFailingEndOfReadAccessDoesNotDisturbAnExceptionOnItsWay) {
  EXPECT_THROW(
      {
        const ReadAccess access(&*server);
        Close(0);
        throw std::string("the first failure");
      },
      std::string);
}

// Write access ------------------------------------------------------------------------------------------

TEST_F(Access, AWriterWaitsForTheLastReader) {
  ASSERT_TRUE(reader.Enter(1000));
  TestReader second(names);
  ASSERT_TRUE(second.Enter(1000));
  std::atomic<bool> inside = false;
  std::thread writing([&] {
    const WriteAccess access(&*server);
    inside = true;
  });
  ASSERT_TRUE(WaitUntil([&] { return !reader.WaitForReadWait(0); }));
  reader.Leave();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(inside);
  second.Leave();
  writing.join();
  EXPECT_TRUE(inside);
  EXPECT_TRUE(reader.WaitForReadWait(0));
}

TEST_F(Access, AWriterWhoseTimeRunsOutGoesOnAndFreesTheFileFromTheReader) {
  ASSERT_TRUE(reader.Enter(1000));
  const TestSupport::DiagnosticLogCapture log;
  {
    Timeout timeout(50);
    const WriteAccess access(&*server, timeout);
    EXPECT_EQ(reader.Header().readCount, 1);
  }
  EXPECT_EQ(reader.Header().readCount, 0);
  EXPECT_EQ(log.Texts(), Texts{});
}

TEST_F(Access, AWriterThatFindsAnotherOneInsideForcesItsWayAndSaysSo) {
  reader.ResetReadWait();
  const TestSupport::DiagnosticLogCapture log;
  Timeout timeout(50);
  const WriteAccess access(&*server, timeout);
  EXPECT_EQ(log.Texts(), (Texts{kForced}));
}

TEST_F(Access, AWriterReleasesTheHeaderLockOfADeadReader) {
  ASSERT_TRUE(reader.TakeHeaderLock(1000));
  {
    Timeout timeout(50);
    const WriteAccess access(&*server, timeout);
  }
  EXPECT_TRUE(reader.TakeHeaderLock(0));
  reader.GiveHeaderLockBack();
}

TEST_F(Access, WithoutAChangeTheEndOfWriteAccessLeavesChangeCount) {
  const std::uint64_t before = reader.Header().changeCount;
  { const WriteAccess access(&*server); }
  EXPECT_EQ(reader.Header().changeCount, before);
}

TEST_F(Access, WriteAccessesOfOneProcessTakeTurns) {
  auto first = std::make_unique<WriteAccess>(&*server);
  std::atomic<bool> inside = false;
  std::thread writing([&] {
    const WriteAccess access(&*server);
    inside = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(inside);
  first.reset();
  writing.join();
  EXPECT_TRUE(inside);
}

TEST_F(Access, WriteAccessNeedsAServer) {
  EXPECT_EQ(FailureOf([&] { const WriteAccess access(nullptr); }),
            "MessageFileServer WriteAccess object created with null pointer");
}

TEST_F(Access, WriteAccessNeedsAnOpenFile) {
  Close();
  EXPECT_EQ(FailureOf([&] { const WriteAccess access(&*server); }),
            "Failed to grab write access, some handles or pointers are invalid");
}

TEST_F(Access, WriteAccessToAFileClosedMeanwhileCannotBeGivenBack) {
  static_assert(!std::is_nothrow_destructible_v<WriteAccess>);
  const auto* const access = new WriteAccess(&*server);
  std::thread closing([&] { Close(50); });
  closing.join();
  EXPECT_EQ(FailureOf([&] { delete access; }),
            "Failed to release write access, some handles or pointers are invalid");
}

// Closing under waiters ---------------------------------------------------------------------------------

TEST_F(Access, AFlushThatWaitsForADeadReaderEndsWhenTheFileIsClosed) {
  ASSERT_TRUE(reader.Enter(1000));
  Submit("a", At(12, 0));
  std::string failure;
  std::thread flush([&] { failure = FailureOf([&] { Flush(); }); });
  ASSERT_TRUE(WaitUntil([&] { return !reader.WaitForReadWait(0); }));
  const TestSupport::DiagnosticLogCapture log;
  Close(100);
  flush.join();
  EXPECT_EQ(failure, "Failed to grab write access, some handles or pointers are invalid");
  EXPECT_EQ(log.Texts(), (Texts{kForced}));
  EXPECT_TRUE(reader.WaitForReadWait(0));  // readers may enter
  EXPECT_EQ(Header().serverRunning, 0);
}

TEST_F(Access, AfterAForcedCloseTheFileOpensAgainUnderTheSameReaders) {
  ASSERT_TRUE(reader.Enter(1000));
  Submit("lost", At(12, 0));
  std::thread flush([&] { FailureOf([&] { Flush(); }); });
  ASSERT_TRUE(WaitUntil([&] { return !reader.WaitForReadWait(0); }));
  Close(100);
  flush.join();
  reader.SignalWriteWait();  // the dead reader's event, which the next writer would wait for
  Open();
  Submit("a", At(12, 1));
  Flush();
  EXPECT_EQ(Newest(), (Texts{"a"}));
}

TEST_F(Access, AWriterThatWaitsForItsTurnEndsWhenTheFileIsClosed) {
  ASSERT_TRUE(reader.Enter(1000));
  Submit("a", At(12, 0));
  std::string flushFailure;
  std::string turnFailure;
  std::thread flush([&] { flushFailure = FailureOf([&] { Flush(); }); });
  ASSERT_TRUE(WaitUntil([&] { return !reader.WaitForReadWait(0); }));
  std::thread turn([&] { turnFailure = FailureOf([&] { const WriteAccess access(&*server); }); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  Close(100);
  flush.join();
  turn.join();
  EXPECT_EQ(flushFailure, "Failed to grab write access, some handles or pointers are invalid");
  EXPECT_EQ(turnFailure, "Failed to grab write access, some handles or pointers are invalid");
}

// The forced end of write access lets readers in for a moment before the file is closed, and one that leaves
// in time frees the writer too. A waiter that does not get access that way fails; none keeps waiting.
TEST_F(Access, NoThreadKeepsWaitingWhenTheFileIsClosed) {
  ASSERT_TRUE(reader.Enter(1000));
  Submit("a", At(12, 0));
  std::vector<std::string> failures(3);
  std::thread flush([&] { failures[0] = FailureOf([&] { Flush(); }); });
  ASSERT_TRUE(WaitUntil([&] { return !reader.WaitForReadWait(0); }));
  std::thread read([&] { failures[1] = FailureOf([&] { const ReadAccess access(&*server); }); });
  std::thread disk([&] { failures[2] = FailureOf([&] { server->WriteToDisk(); }); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  Close(100);
  flush.join();
  read.join();
  disk.join();
  const auto isTold = [](const std::string& failure) {
    return failure.empty() || failure.ends_with(", some handles or pointers are invalid");
  };
  EXPECT_TRUE(isTold(failures[0])) << failures[0];
  EXPECT_TRUE(isTold(failures[1])) << failures[1];
  // A writer let in for that moment may find the view closed when it writes.
  EXPECT_TRUE(isTold(failures[2]) ||
              failures[2] ==
                  "Failed to force log file changes saved to disk, FlushViewOfFile() failed in WriteToDisk()")
      << failures[2];
  EXPECT_EQ(Header().messageCount, failures[0].empty() ? 1 : 0);
}

TEST_F(Access, AReaderThatWaitsForADeadWriterEndsWhenTheFileIsClosed) {
  ASSERT_TRUE(reader.TakeHeaderLock(1000));
  std::string failure;
  std::thread read([&] { failure = FailureOf([&] { const ReadAccess access(&*server); }); });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  reader.ResetReadWait();
  Close(0);
  read.join();
  // Closing released the header lock and let readers in; in either order the reader does not keep waiting.
  SUCCEED() << failure;
}

TEST_F(Access, ClosingDuringAnOwnReadAccessLetsTheNextWriterIn) {
  const auto* const access = new ReadAccess(&*server);
  Close(0);
  EXPECT_TRUE(reader.WriteWaitIsSignalled());
  EXPECT_NE(FailureOf([&] { delete access; }), "");
  Open();
  Submit("a", At(12, 0));
  Flush();
  EXPECT_EQ(Newest(), (Texts{"a"}));
}

// What the protocol does not prevent --------------------------------------------------------------------

// A reader that passed the read-wait event just before the writer reset it has access together with the
// writer, and its leaving makes readCount negative. The writer after the next one waits until its event is
// signalled.
TEST_F(Access, AReaderThatPassesAWriterLeavesANegativeCountAndAWaitingWriter) {
  ASSERT_TRUE(reader.WaitForReadWait(1000));
  {
    const WriteAccess writing(&*server);
    reader.CountIn();
  }
  EXPECT_EQ(reader.Header().readCount, 0);
  reader.Leave();
  EXPECT_EQ(reader.Header().readCount, -1);
  EXPECT_FALSE(reader.WriteWaitIsSignalled());

  ExpectFlushToWaitForTheSignal();
}

// Other processes ---------------------------------------------------------------------------------------

// The helper program's command line: its action, then the four names.
class ReaderProcess {
 public:
  ReaderProcess(const std::string& action, const ObjectNames& names) {
    std::string command = "\"" + TamLogUtil::PathBesideExecutable("store_reader_helper.exe") + "\" " +
                          action + " " + names.map + " " + names.headerLock + " " + names.readWait + " " +
                          names.writeWait;
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    started = CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                             &process) != 0;
  }
  ~ReaderProcess() {
    if (!started) return;
    TerminateProcess(process.hProcess, 99);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
  }
  ReaderProcess(const ReaderProcess&) = delete;
  ReaderProcess& operator=(const ReaderProcess&) = delete;

  bool Started() const { return started; }
  bool Ended(DWORD milliseconds) const {
    return WaitForSingleObject(process.hProcess, milliseconds) == WAIT_OBJECT_0;
  }
  void Kill() const {
    TerminateProcess(process.hProcess, 99);
    WaitForSingleObject(process.hProcess, 10000);
  }

 private:
  PROCESS_INFORMATION process = {};
  bool started = false;
};

TEST_F(Access, AReaderOfAnotherProcessReadsWhatWasFlushed) {
  Submit("seen", At(12, 0));
  Flush();
  const ReaderProcess other("expect:seen", names);
  ASSERT_TRUE(other.Started());
  ASSERT_TRUE(other.Ended(20000));
}

// The service has no watcher for the file, so a flush waits for a reader that died inside until its event is
// signalled.
TEST_F(Access, AReaderThatDiedInsideKeepsTheNextFlushWaiting) {
  ReaderProcess other("die", names);
  ASSERT_TRUE(other.Started());
  ASSERT_TRUE(other.Ended(20000));
  EXPECT_EQ(reader.Header().readCount, 1);
  EXPECT_FALSE(reader.WriteWaitIsSignalled());

  ExpectFlushToWaitForTheSignal();
}

TEST_F(Access, AReaderThatIsKilledInsideDoesNotOutliveAClose) {
  ReaderProcess other("stay", names);
  ASSERT_TRUE(other.Started());
  ASSERT_TRUE(WaitUntil([&] { return reader.Header().readCount == 1; }));
  other.Kill();
  Close(100);
  EXPECT_EQ(Header().readCount, 0);
  EXPECT_EQ(Header().serverRunning, 0);
}

}  // namespace
}  // namespace StoreTest
