// Runs every operation of the store with its first, second, third ... system call failing. After each round
// the next operation succeeds within a bound, nothing is left open, and the next start accepts the file.

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>

#include "store/message_file_monitor.h"
#include "tests/store/log_file_fixture.h"
#include "tests/support/call_sweep.h"
#include "tests/support/diagnostic_log_capture.h"
#include "util/win32.h"

namespace StoreTest {
namespace {

using TamLogUtil::Timeout;
using TestSupport::ArmCallFault;
using TestSupport::Beyond;
using TestSupport::DiagnosticLogCapture;
using TestSupport::FailedCall;
using TestSupport::Outcomes;
using TestSupport::PlainFailureOf;
using TestSupport::Sweep;

// The longest time that an operation after a failed one may take; there is no other process to wait for.
constexpr std::uint32_t kBoundMs = 10000;

// The sentences of taking and releasing write access.
Outcomes WriteAccessOutcomes() {
  return {
      {"WaitForMultipleObjects",
       {"Failed to Wait for Mutex object / WaitForMultipleObjects failed (6)",
        "Failed to Wait for Event object / WaitForMultipleObjects failed (6)"}},
      {"ResetEvent", {"Failed to RemoveSignal for Event object / ResetEvent failed (6)"}},
      {"SetEvent", {"Failed to SetSignal for Event object / SetEvent failed (6)"}},
      {"SignalObjectAndWait", {""}},
  };
}

// Without the call that releases the header lock and polls read-wait in one.
Outcomes WriteAccessInTwoCallsOutcomes() {
  Outcomes outcomes = WriteAccessOutcomes();
  outcomes.erase("SignalObjectAndWait");
  outcomes["SetEvent"].insert("Failed to RemoveSignal for Mutex object / SetEvent failed (6)");
  return outcomes;
}

// The same for read access; `taking` precedes the failures to take it.
Outcomes ReadAccessOutcomes(const std::string& taking = "") {
  const std::string leaving = "Failed to release message file read access / ";
  return {
      {"WaitForMultipleObjects",
       {taking + "Failed to Wait for Event object / WaitForMultipleObjects failed (6)",
        taking + "Failed to Wait for Mutex object / WaitForMultipleObjects failed (6)",
        leaving + "Failed to Wait for Mutex object / WaitForMultipleObjects failed (6)"}},
      {"WaitForSingleObject", {taking + "Failed to Wait for Event object / WaitForSingleObject failed (6)"}},
      {"ResetEvent", {taking + "Failed to RemoveSignal for Event object / ResetEvent failed (6)"}},
      {"SetEvent",
       {taking + "Failed to RemoveSignal for Mutex object / SetEvent failed (6)",
        leaving + "Failed to SetSignal for Event object / SetEvent failed (6)",
        leaving + "Failed to RemoveSignal for Mutex object / SetEvent failed (6)"}},
  };
}

constexpr bool kResized = true;
constexpr bool kNotResized = false;

Outcomes OpenOutcomes(bool resized) {
  const std::string objects = "Failed to create file access objects in MessageFile::OpenFile() / ";
  Outcomes outcomes = {
      {"AllocateAndInitializeSid", {"AllocateAndInitializeSid() failed (8)"}},
      {"InitializeSecurityDescriptor", {"InitializeSecurityDescriptor() failed (1305)"}},
      {"SetEntriesInAclA", {"SetEntriesInAcl() failed (8)"}},
      {"SetSecurityDescriptorDacl", {"SetSecurityDescriptorDacl() failed (1338)"}},
      {"LocalFree", {""}},
      {"FreeSid", {""}},
      {"CreateEventA",
       {objects + "Failed to create Event object / CreateEvent() failed (8)",
        objects + "Failed to create Mutex object / CreateEvent() failed (8)"}},
      {"ResetEvent", {objects + "Failed to RemoveSignal for Event object / ResetEvent failed (6)"}},
      {"CreateFileA", {"Failed to open log file, CreateFile() failed (5)"}},
      {"DuplicateHandle", {"Failed to open log file, GetFileSizeEx() failed (6)"}},
      // The second one compares the file with the view, which bounds every access itself.
      {"GetFileSizeEx", {"Failed to open log file, GetFileSizeEx() failed (1117)", ""}},
      {"CreateFileMappingA", {"Failed to open a file mapping, CreateFileMapping() failed (1455)"}},
      {"MapViewOfFile", {"Failed to map a file view, MapViewOfFile() failed (8)"}},
      {"VirtualQuery", {"Failed to open a file mapping, CreateFileMapping() failed (87)"}},
  };
  if (resized) {
    outcomes["SetFilePointerEx"] = {
        "Failed to resize file, SetFilePointerEx() failed in ResizeFile() (1117)"};
    outcomes["SetEndOfFile"] = {"Failed to resize file, SetEndOfFile() failed in ResizeFile() (112)"};
  }
  for (const Outcomes& accesses : {WriteAccessOutcomes(), ReadAccessOutcomes()}) {
    for (const auto& [call, texts] : accesses) outcomes[call].insert(texts.begin(), texts.end());
  }
  return outcomes;
}

class StoreCallSweep : public LogFile {
 protected:
  StoreCallSweep() { server.reset(); }

  void FreshServer() { server.emplace(&configuration, &configLock); }
  void OpenWith(const Texts& texts) {
    FreshServer();
    DeleteFileA(configuration.logFile.c_str());
    Open();
    int minute = 0;
    for (const std::string& text : texts) Submit(text, At(12, minute++));
    Flush();
  }

  // Runs within the bound, with `texts` in the file afterwards.
  void CloseAndStartAgain(const Texts& texts) {
    EXPECT_EQ(FailureOf([&] { Close(kBoundMs); }), "");
    server.reset();
    FreshServer();
    EXPECT_EQ(FailureOf([&] { Open(); }), "");
    EXPECT_EQ(Newest(), texts);
    EXPECT_TRUE(server->VerifyIntegrity());
    EXPECT_EQ(Header().serverRunning, 1);
    EXPECT_EQ(Header().readCount, 0);
    Close(kBoundMs);
    server.reset();
  }

  // An open of the file that makeFile() makes; it can be repeated, and the next start finds `kept`.
  TestSupport::SweptOperation Opening(std::function<void()> makeFile, Texts kept) {
    return {.prepare =
                [this, makeFile = std::move(makeFile)] {
                  FreshServer();
                  makeFile();
                },
            .operation = [this] { Open(); },
            .check =
                [this, kept = std::move(kept)] {
                  EXPECT_EQ(FailureOf([&] { Open(); }), "");
                  CloseAndStartAgain(kept);
                },
            .eventsAreSet = true};
  }

  // An operation of a server that has the file open with the message "a" in it.
  TestSupport::SweptOperation OnOpenFile(std::function<void()> operation, std::function<void()> check) {
    return {.prepare = [this] { OpenWith({"a"}); },
            .operation = std::move(operation),
            .check = std::move(check),
            .eventsAreSet = true};
  }
};

TEST_F(StoreCallSweep, AServerObjectThatCannotBeMadeIsReported) {
  const Outcomes outcomes = Sweep({.operation =
                                       [&] {
                                         FreshServer();
                                         server.reset();
                                       },
                                   .check = [&] { server.reset(); }});
  EXPECT_EQ(outcomes,
            (Outcomes{
                {"CreateEventA",
                 {"Failed to create Mutex object / CreateEvent() failed (8)", "CreateEvent() failed (8)"}},
                {"DuplicateHandle", {"CreateEvent() failed (1450)"}},
                {"CloseHandle", {""}},
            }));
}

TEST_F(StoreCallSweep, AFailedOpenOfANewFileCanBeRepeated) {
  EXPECT_EQ(Sweep(Opening([&] { DeleteFileA(configuration.logFile.c_str()); }, {})), OpenOutcomes(kResized));
}

TEST_F(StoreCallSweep, AFailedOpenOfASoundFileKeepsItsMessages) {
  EXPECT_EQ(Sweep(Opening(
                [&] {
                  MakeFile(10, {Message("a", At(12, 0)), Message("b", At(12, 1))});
                },
                {"b", "a"})),
            OpenOutcomes(kNotResized));
}

TEST_F(StoreCallSweep, AFailedOpenWithAnotherCapacityCanBeRepeated) {
  const Outcomes outcomes = Sweep({.prepare =
                                       [&] {
                                         FreshServer();
                                         MakeFile(5, {Message("a", At(12, 0))});
                                       },
                                   .operation = [&] { Open(); },
                                   .check =
                                       [&] {
                                         // A view that does not have its new size yet cannot be forced to the
                                         // disk as a whole; it is closed nevertheless.
                                         FailureOf([&] { Close(kBoundMs); });
                                         EXPECT_EQ(FailureOf([&] { Open(); }), "");
                                         CloseAndStartAgain({"a"});
                                       },
                                   .eventsAreSet = true});
  Outcomes expected = OpenOutcomes(kResized);
  expected["UnmapViewOfFile"] = {"Failed to close file view, UnmapViewOfFile() failed (487)"};
  expected["CloseHandle"] = {"Failed to close file view, CloseHandle() failed (6)"};
  EXPECT_EQ(outcomes, expected);
}

TEST_F(StoreCallSweep, AFailedOpenOfADamagedFileCanBeRepeated) {
  EXPECT_EQ(Sweep(Opening(
                [&] {
                  MakeFile(10, {Message("a", At(12, 1)), Message("b", At(12, 0))});
                },
                {})),
            OpenOutcomes(kNotResized));
}

// The undoing of steps after a failure may fail too.
TEST_F(StoreCallSweep, AMappingThatCannotBeUsedIsClosedWhicheverCallFailsThen) {
  for (const char* const call : {"MapViewOfFile", "VirtualQuery"}) {
    const Outcomes outcomes = Sweep({.prepare =
                                         [&] {
                                           FreshServer();
                                           MakeFile(10, {Message("a", At(12, 0))});
                                         },
                                     .operation = [&] { Open(); },
                                     .check = [&] { CloseAndStartAgain({"a"}); },
                                     .eventsAreSet = true,
                                     .failsAlways = call});
    EXPECT_TRUE(outcomes.contains("CloseHandle")) << call;
  }
}

TEST_F(StoreCallSweep, AFailedFlushLosesAndDuplicatesNothing) {
  const Outcomes outcomes = Sweep(OnOpenFile(
      [&] {
        Submit("b", At(12, 1));
        Flush();
      },
      [&] {
        EXPECT_EQ(FailureOf([&] { Flush(); }), "");
        EXPECT_EQ(Newest(), (Texts{"b", "a"}));
        CloseAndStartAgain({"b", "a"});
      }));
  EXPECT_EQ(outcomes, WriteAccessOutcomes());
}

TEST_F(StoreCallSweep, AFailedFlushInTwoCallsLosesAndDuplicatesNothing) {
  auto flush = OnOpenFile(
      [&] {
        Submit("b", At(13, 0));
        Flush();
      },
      [&] {
        EXPECT_EQ(FailureOf([&] { Flush(); }), "");
        EXPECT_EQ(Newest(), (Texts{"b", "a"}));
        CloseAndStartAgain({"b", "a"});
      });
  flush.failsAlways = "SignalObjectAndWait";
  EXPECT_EQ(Sweep(flush), WriteAccessInTwoCallsOutcomes());
}

TEST_F(StoreCallSweep, AFailedClearCanBeRepeated) {
  const Outcomes outcomes = Sweep(OnOpenFile([&] { Clear(); },
                                             [&] {
                                               EXPECT_EQ(FailureOf([&] { Clear(); }), "");
                                               CloseAndStartAgain({});
                                             }));
  EXPECT_EQ(outcomes, WriteAccessOutcomes());
}

TEST_F(StoreCallSweep, AFailedLoadCanBeRepeated) {
  MessageList list;
  const Outcomes outcomes = Sweep(OnOpenFile([&] { server->LoadToList(list); },
                                             [&] {
                                               EXPECT_EQ(FailureOf([&] { server->LoadToList(list); }), "");
                                               EXPECT_EQ(list.Size(), 1U);
                                               CloseAndStartAgain({"a"});
                                             }));
  EXPECT_EQ(outcomes, ReadAccessOutcomes());
}

TEST_F(StoreCallSweep, AFailedCheckCanBeRepeated) {
  const Outcomes outcomes = Sweep(OnOpenFile([&] { EXPECT_TRUE(server->VerifyIntegrity()); },
                                             [&] {
                                               EXPECT_TRUE(server->VerifyIntegrity());
                                               CloseAndStartAgain({"a"});
                                             }));
  EXPECT_EQ(outcomes, ReadAccessOutcomes());
}

TEST_F(StoreCallSweep, AFailedWriteToDiskIsReportedAndCanBeRepeated) {
  const Outcomes outcomes = Sweep(OnOpenFile([&] { server->WriteToDisk(); },
                                             [&] {
                                               EXPECT_EQ(FailureOf([&] { server->WriteToDisk(); }), "");
                                               CloseAndStartAgain({"a"});
                                             }));
  Outcomes expected = ReadAccessOutcomes("Failed to get file read access in WriteToDisk() / ");
  expected["FlushViewOfFile"] = {
      "Failed to force log file changes saved to disk, FlushViewOfFile() failed in WriteToDisk() (1117)"};
  EXPECT_EQ(outcomes, expected);
}

TEST_F(StoreCallSweep, AFailedReadAccessLeavesTheNextOneFree) {
  const Outcomes outcomes = Sweep(OnOpenFile(
      [&] {
        Timeout timeout(kBoundMs);
        const MessageFileServer::ReadAccess access(&*server, timeout);
      },
      [&] {
        EXPECT_EQ(FailureOf([&] {
                    Timeout timeout(kBoundMs);
                    const MessageFileServer::ReadAccess access(&*server, timeout);
                  }),
                  "");
        CloseAndStartAgain({"a"});
      }));
  EXPECT_EQ(outcomes, ReadAccessOutcomes());
}

TEST_F(StoreCallSweep, AFailedCloseLeavesNothingOpen) {
  const Outcomes outcomes = Sweep(OnOpenFile([&] { Close(kBoundMs); }, [&] { CloseAndStartAgain({"a"}); }));
  Outcomes expected = WriteAccessOutcomes();
  expected["FlushViewOfFile"] = {
      "Failed to force log file changes to be saved to disk, FlushViewOfFile() failed in CloseFile() (1117)"};
  expected["UnmapViewOfFile"] = {"Failed to close file view, UnmapViewOfFile() failed (487)"};
  expected["CloseHandle"] = {"", "Failed to close file view, CloseHandle() failed (6)"};
  EXPECT_EQ(outcomes, expected);
}

TEST_F(StoreCallSweep, AServerThatIsDestroyedOpenLeavesNothingBehind) {
  const Outcomes outcomes = Sweep(OnOpenFile([&] { server.reset(); },
                                             [&] {
                                               FreshServer();
                                               CloseAndStartAgain({"a"});
                                             }));
  EXPECT_EQ(outcomes, (Outcomes{{"CloseHandle", {""}}, {"UnmapViewOfFile", {""}}}));
}

TEST_F(StoreCallSweep, AFailedLookWhetherTheFileIsFreeIsReported) {
  const Outcomes outcomes = Sweep({.prepare =
                                       [&] {
                                         FreshServer();
                                         MakeFile(10, {Message("a", At(12, 0))});
                                       },
                                   .operation =
                                       [&] {
                                         Timeout timeout(kBoundMs);
                                         EXPECT_TRUE(server->WaitUntilFree(timeout));
                                       },
                                   .check = [&] { CloseAndStartAgain({"a"}); }});
  EXPECT_EQ(outcomes,
            (Outcomes{
                {"CreateFileA", {"Failed to wait for log file to be free, CreateFile failed() (5)"}},
                {"CloseHandle", {""}},
            }));
}

// One thread has write access while another waits for it.
TEST_F(StoreCallSweep, AWriterThatWaitsForAnotherGetsAccessOrAFailure) {
  std::string waiting;
  const Outcomes outcomes =
      Sweep({.prepare =
                 [&] {
                   OpenWith({"a"});
                   Submit("b", At(12, 1));
                 },
             .operation =
                 [&] {
                   std::jthread flush;
                   const MessageFileServer::WriteAccess access(&*server);
                   flush = std::jthread([&] { waiting = PlainFailureOf([&] { Flush(); }); });
                   Sleep(20);
                 },
             .check =
                 [&] {
                   waiting.clear();
                   EXPECT_EQ(FailureOf([&] { Flush(); }), "");
                   CloseAndStartAgain({"b", "a"});
                 },
             .report = [&] { return waiting; },
             .eventsAreSet = true});
  Outcomes allowed = WriteAccessOutcomes();
  // The wait for the turn, and the turn's own event, which is set by the retry.
  allowed["WaitForMultipleObjects"].insert("WaitForMultipleObjects failed (6)");
  allowed["SetEvent"].insert("");
  EXPECT_EQ(Beyond(outcomes, allowed), (Outcomes{}));
}

TEST_F(StoreCallSweep, AWriterIsNotLeftWaitingWhenItsTurnIsNotPassedOnAtOnce) {
  OpenWith({"a"});
  Submit("b", At(12, 1));
  {
    std::jthread flush;
    const MessageFileServer::WriteAccess access(&*server);
    flush = std::jthread([&] { Flush(); });
    Sleep(100);
    // The first event lets the readers in, the second one is the turn's.
    ArmCallFault(2, "SetEvent");
  }
  EXPECT_EQ(FailedCall(), "SetEvent");
  TestSupport::DisarmCallFault();
  CloseAndStartAgain({"b", "a"});
}

TEST_F(StoreCallSweep, AFailedPassOfTheMonitorIsLoggedAndTheNextOneWorks) {
  std::optional<DiagnosticLogCapture> log;
  const Outcomes outcomes = Sweep({
      .prepare =
          [&] {
            OpenWith({"a"});
            log.emplace();
          },
      .operation =
          [&] {
            MessageFileMonitor monitor(&*server, 30, 1000);
            monitor.Start();
            Sleep(15);
            monitor.Stop();
            monitor.Join(Timeout::Infinite);
          },
      .check =
          [&] {
            log.reset();
            CloseAndStartAgain({"a"});
          },
      .report =
          [&] {
            std::string texts;
            for (const std::string& text : log->Texts()) texts += TestSupport::PlainText(text);
            return texts;
          },
      .eventsAreSet = true,
  });
  const std::string logged = "Exception was thrown in the MessageFileMonitor thread -";
  Outcomes allowed = WriteAccessOutcomes();
  for (auto& [call, texts] : allowed) {
    std::set<std::string> entries;
    for (const std::string& text : texts) entries.insert(text.empty() ? text : logged + text);
    texts = entries;
  }
  allowed["CreateEventA"] = {"Failed to create Mutex object / CreateEvent() failed (8)"};
  allowed["CreateThread"] = {"Failed to start Thread object, invalid handle returned by CreateThread() (8)"};
  allowed["DuplicateHandle"] = {"Failed to wait for Thread object in Join() (1450)"};
  // Locks that the monitor and the test both want are passed on by a retry; a wait for one may fail on either
  // side.
  const std::string noLock = "Failed to Wait for Mutex object / WaitForSingleObject failed (6)";
  allowed["SetEvent"].insert("");
  allowed["WaitForSingleObject"] = {"Failed to wait for Thread object in Join() (6)", noLock, logged + noLock,
                                    "Thread terminated due to unhandled exception : Exception occured during "
                                    "thread Run() / " +
                                        noLock,
                                    ""};
  allowed["CloseHandle"] = {""};
  EXPECT_EQ(Beyond(outcomes, allowed), (Outcomes{}));
}

}  // namespace
}  // namespace StoreTest
