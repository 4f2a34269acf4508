// Runs every operation of util with its first, second, third ... system call failing.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "tests/support/call_sweep.h"
#include "tests/support/diagnostic_log_capture.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait_until.h"
#include "tests/util/work_thread.h"
#include "util/diagnostic_log.h"
#include "util/exceptions.h"
#include "util/helpers.h"
#include "util/service.h"
#include "util/sync.h"
#include "util/timeout.h"
#include "util/timer.h"

namespace {

using TamLogUtil::AutoHandle;
using TamLogUtil::Event;
using TamLogUtil::Mutex;
using TamLogUtil::NativeHandle;
using TamLogUtil::Timeout;
using TamLogUtil::Timer;
using TamLogUtil::Exceptions::ExceptionWindows;
using TamLogUtil::Services::Service;
using TamLogUtil::Threading::PlainThread;
using TamLogUtil::Threading::UntilStopped;
using TestSupport::ArmCallFault;
using TestSupport::Beyond;
using TestSupport::DiagnosticLogCapture;
using TestSupport::DisarmCallFault;
using TestSupport::FailedCall;
using TestSupport::Outcomes;
using TestSupport::PlainFailureOf;
using TestSupport::PlainText;
using TestSupport::Sweep;
using TestSupport::WaitUntil;

constexpr int kAborted = 3;
constexpr char kNoLock[] = "Failed to create Mutex object / CreateEvent() failed (8)";
// The failures of a join, and of the lock that it and the ending thread may both want; the thread retries
// itself.
const std::set<std::string> kNoJoin = {"Failed to wait for Thread object in Join() (6)",
                                       "Failed to Wait for Mutex object / WaitForSingleObject failed (6)",
                                       ""};
constexpr char kNoThread[] = "Failed to start Thread object, invalid handle returned by CreateThread() (8)";

// The outcomes of constructing, starting and joining a thread.
Outcomes StartAndJoinOutcomes() {
  return {{"CreateEventA", {kNoLock}},
          {"CreateThread", {kNoThread}},
          {"DuplicateHandle", {"Failed to wait for Thread object in Join() (1450)"}},
          {"WaitForSingleObject", kNoJoin},
          {"SetEvent", {""}},
          {"CloseHandle", {""}}};
}

// Texts, times, handles ---------------------------------------------------------------------------------

TEST(CallSweep, AnEntryWithoutATimeIsLostOrWrittenWithoutIt) {
  std::optional<DiagnosticLogCapture> log;
  const Outcomes outcomes = Sweep({
      .prepare = [&] { log.emplace(); },
      .operation = [] { TamLogUtil::WriteLog("text"); },
      .check =
          [&] {
            log->Clear();
            TamLogUtil::WriteLog("next");
            EXPECT_EQ(log->Texts(), std::vector<std::string>{"next"});
            log.reset();
          },
      .report = [&] { return log->Count() == 0 ? "" : "entry: " + log->Texts().front(); },
  });
  EXPECT_EQ(outcomes, (Outcomes{
                          {"_time64", {""}},
                          {"_localtime64_s", {""}},
                          {"asctime_s", {"entry: not an entry:  - text\n"}},
                          {"", {"entry: text"}},
                      }));
}

TEST(CallSweep, AFailureWithoutASystemTextIsReportedAllTheSame) {
  std::string text;
  const Outcomes outcomes = Sweep({
      .operation = [&] { text = ExceptionWindows("Broken", nullptr, ERROR_ACCESS_DENIED).GetMessage(); },
      .report = [&] { return PlainText(text); },
  });
  EXPECT_EQ(outcomes, (Outcomes{
                          {"FormatMessageA", {"Broken (5)"}},
                          {"LocalFree", {"Broken (5)"}},
                          {"", {"Broken (5)"}},
                      }));
}

TEST(CallSweep, APathNextToAnUnknownExecutableIsReported) {
  const Outcomes outcomes = Sweep({.operation = [] { TamLogUtil::PathBesideExecutable("x"); }});
  EXPECT_EQ(outcomes, (Outcomes{{"GetModuleFileNameA", {"Failed to obtain executable's location"}}}));
}

// The process must end: by abort if TerminateProcess fails.
TEST(CallSweep, ATooLongTextEndsTheProcessEvenIfItCannotBeEndedQuietly) {
  std::array<char, 4> field{};
  EXPECT_EXIT(
      {
        ArmCallFault(1, "TerminateProcess");
        TamLogUtil::CopyBoundedOrEndProcess(field.data(), field.size(), "1234");
      },
      testing::ExitedWithCode(kAborted), "");
}

TEST(CallSweep, AnOwnerOfAHandleIsEmptyAfterAFailedCall) {
  NativeHandle raw = nullptr;
  std::optional<Event> source;
  std::optional<AutoHandle> owner;
  const Outcomes outcomes = Sweep({
      .prepare =
          [&] {
            source.emplace(nullptr, nullptr);
            owner.emplace();
            raw = TamLogUtil::CheckedCreateEvent(nullptr, true, false, nullptr);
          },
      .operation =
          [&] {
            owner->Take(raw);
            owner->Copy(source->Handle());
            owner->Close();
          },
      .check =
          [&] {
            EXPECT_TRUE(owner->IsInvalid());
            owner->Copy(source->Handle());
            EXPECT_TRUE(owner->IsValid());
            owner.reset();
            source.reset();
          },
      .report = [&] { return std::string(owner->IsValid() ? "holds" : ""); },
  });
  EXPECT_EQ(outcomes, (Outcomes{{"DuplicateHandle", {""}}, {"CloseHandle", {""}}}));
}

// Events, locks, waits ----------------------------------------------------------------------------------

TEST(CallSweep, AnEventReportsEachFailedCall) {
  const Outcomes outcomes = Sweep({.operation = [] {
    Event event(nullptr, nullptr);
    event.RemoveSignal();
    event.SetSignal();
    event.Wait(0);
  }});
  EXPECT_EQ(outcomes,
            (Outcomes{
                {"CreateEventA", {"Failed to create Event object / CreateEvent() failed (8)"}},
                {"ResetEvent", {"Failed to RemoveSignal for Event object / ResetEvent failed (6)"}},
                {"SetEvent", {"Failed to SetSignal for Event object / SetEvent failed (6)"}},
                {"WaitForSingleObject", {"Failed to Wait for Event object / WaitForSingleObject failed (6)"}},
                {"CloseHandle", {"Failed to destroy Event object / CloseHandle() failed: (6)"}},
            }));
}

TEST(CallSweep, AWaitForSeveralObjectsReportsItsFailure) {
  std::optional<Event> event;
  const Outcomes outcomes = Sweep({
      .prepare = [&] { event.emplace(nullptr, nullptr); },
      .operation =
          [&] {
            const NativeHandle handle = event->Handle();
            TamLogUtil::CheckedWaitForMultipleObjects(1, &handle, false, 0);
          },
      .check = [&] { event.reset(); },
  });
  EXPECT_EQ(outcomes, (Outcomes{{"WaitForMultipleObjects", {"WaitForMultipleObjects failed (6)"}}}));
}

TEST(CallSweep, ANamedLockReportsEachFailedCallAndCanBeTakenAfterwards) {
  const std::string name = "TamLogCallSweep" + TestSupport::ProcessSuffix();
  std::optional<Mutex> witness;
  const Outcomes outcomes = Sweep({
      .prepare = [&] { witness.emplace(name.c_str(), nullptr); },
      .operation =
          [&] {
            Mutex lock(name.c_str(), nullptr);
            Mutex::Access access(lock, Timeout::Infinite);
            access.Release();
          },
      .check =
          [&] {
            EXPECT_TRUE(witness->TryWait(5000));
            witness.reset();
          },
      .eventsAreSet = true,
  });
  EXPECT_EQ(outcomes,
            (Outcomes{
                {"CreateEventA", {"Failed to create Mutex object / CreateEvent() failed (8)"}},
                {"WaitForSingleObject", {"Failed to Wait for Mutex object / WaitForSingleObject failed (6)"}},
                {"SetEvent", {"Failed to RemoveSignal for Mutex object / SetEvent failed (6)"}},
                {"CloseHandle", {""}},
            }));
}

// One thread has the lock and another waits for it. Whichever call fails, the lock is free in the end and was
// never held by two threads.
TEST(CallSweep, ALockThatIsWaitedForStaysWhole) {
  std::optional<Mutex> lock;
  std::string waiterFailure;
  std::string ownerFailure;
  const Outcomes outcomes = Sweep({
      .prepare =
          [&] {
            lock.emplace();
            waiterFailure.clear();
            ownerFailure.clear();
          },
      .operation =
          [&] {
            lock->Wait(Timeout::kForever);
            std::atomic<bool> released{false};
            std::thread waiter([&] {
              waiterFailure = PlainFailureOf([&] {
                lock->Wait(Timeout::kForever);
                EXPECT_TRUE(released);
                lock->Release();
              });
            });
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            released = true;
            ownerFailure = PlainFailureOf([&] { lock->Release(); });
            waiter.join();
          },
      .check =
          [&] {
            EXPECT_TRUE(lock->TryWait(0));
            lock.reset();
          },
      .report = [&] { return ownerFailure + waiterFailure; },
  });
  EXPECT_EQ(Beyond(outcomes,
                   {
                       {"WaitForSingleObject",
                        {"Failed to Wait for Mutex object / WaitForSingleObject failed (6)"}},
                       {"SetEvent", {""}},
                   }),
            (Outcomes{}));
}

TEST(CallSweep, ALockThatCannotBeMadeIsReported) {
  const Outcomes outcomes = Sweep({.operation = [] { const Mutex lock; }});
  EXPECT_EQ(outcomes, (Outcomes{
                          {"CreateEventA", {"Failed to create Mutex object / CreateEvent() failed (8)"}},
                          {"CloseHandle", {""}},
                      }));
}

// Threads and timers ------------------------------------------------------------------------------------

class ThreadSweep : public testing::Test {
 protected:
  void StartThread() {
    thread = std::make_unique<PlainThread>(UntilStopped);
    thread->Start();
  }

  // Starts a thread that makes no call until WorksAndEnds: one that is suspended or terminated inside a call
  // may hold a lock of the system or of the sweep, which nobody else gets then.
  void StartThreadWithoutCalls() {
    mayCall = false;
    thread = std::make_unique<PlainThread>([this](PlainThread& self) {
      makesNoCall = true;
      while (!mayCall) YieldProcessor();
      return UntilStopped(self);
    });
    makesNoCall = false;
    thread->Start();
    ASSERT_TRUE(WaitUntil([this] { return makesNoCall.load(); }));
  }

  // After any failure the thread can be started, stopped and joined.
  void WorksAndEnds() {
    mayCall = true;
    thread->Stop();
    Timeout timeout(10000);
    EXPECT_TRUE(thread->Join(timeout));
    thread->Start();
    thread->Stop();
    Timeout again(10000);
    EXPECT_TRUE(thread->Join(again));
    EXPECT_TRUE(TestSupport::ThreadsEnd(10000));
    thread.reset();
  }

  std::atomic<bool> makesNoCall{false};
  std::atomic<bool> mayCall{true};
  std::unique_ptr<PlainThread> thread;
  DiagnosticLogCapture log;
};

TEST_F(ThreadSweep, AThreadReportsEachFailedCallAndCanBeStartedAgain) {
  const Outcomes outcomes = Sweep({
      .operation =
          [&] {
            StartThread();
            thread->Stop();
            Timeout timeout(10000);
            EXPECT_TRUE(thread->Join(timeout));
          },
      .check =
          [&] {
            if (thread != nullptr) WorksAndEnds();
          },
  });
  EXPECT_EQ(Beyond(outcomes, StartAndJoinOutcomes()), (Outcomes{}));
}

TEST_F(ThreadSweep, AWaitForAThreadReportsEachFailedCallAndCanBeRepeated) {
  const Outcomes outcomes = Sweep({
      .prepare = [&] { StartThread(); },
      .operation = [&] { EXPECT_FALSE(thread->Join(Timeout::Immediate)); },
      .check = [&] { WorksAndEnds(); },
  });
  EXPECT_EQ(outcomes, (Outcomes{
                          {"DuplicateHandle", {"Failed to wait for Thread object in Join() (1450)"}},
                          {"WaitForSingleObject", {"Failed to wait for Thread object in Join() (6)"}},
                          {"CloseHandle", {""}},
                      }));
}

TEST_F(ThreadSweep, APausedThreadGoesOnAfterAFailedCall) {
  const Outcomes outcomes = Sweep({
      .prepare = [&] { StartThreadWithoutCalls(); },
      .operation =
          [&] {
            thread->Pause();
            const std::string failure = PlainFailureOf([&] { thread->Resume(); });
            if (failure.empty()) return;
            thread->Resume();
            throw TamLogUtil::Exceptions::ExceptionBase(failure);
          },
      .check = [&] { WorksAndEnds(); },
  });
  EXPECT_EQ(outcomes,
            (Outcomes{
                {"SuspendThread", {"Failed to pause Thread object, SuspendThread() failed (5)"}},
                {"ResumeThread", {"Failed to resume paused Thread object, ResumeThread() failed (5)"}},
            }));
}

// The handle is closed even if the thread cannot be terminated.
TEST_F(ThreadSweep, AThreadThatCannotBeEndedByForceIsReported) {
  const Outcomes outcomes = Sweep({
      .prepare = [&] { StartThreadWithoutCalls(); },
      .operation = [&] { thread->Terminate(1); },
      .check = [&] { WorksAndEnds(); },
  });
  EXPECT_EQ(outcomes,
            (Outcomes{
                {"TerminateThread", {"Failed to terminate thread, TerminateThread() did not succeed (5)"}},
                {"CloseHandle", {""}},
            }));
}

TEST_F(ThreadSweep, AThreadThatCannotBeEndedTakesTheProcessWithIt) {
  EXPECT_EXIT(
      {
        std::atomic<bool> running{false};
        thread = std::make_unique<PlainThread>([&](PlainThread& self) {
          running = true;
          return UntilStopped(self);
        });
        thread->Start();
        WaitUntil([&] { return running.load(); });
        ArmCallFault(1, "TerminateThread");
        thread.reset();
      },
      testing::ExitedWithCode(kAborted), "");
}

TEST_F(ThreadSweep, AThreadThatEndsItselfClosesItsHandle) {
  const Outcomes outcomes = Sweep({
      .operation =
          [&] {
            auto own = std::make_unique<PlainThread>([](PlainThread&) { return std::uint32_t{0}; });
            own->SetDeleteOnExit();
            own->Start();
            static_cast<void>(own.release());
            EXPECT_TRUE(TestSupport::ThreadsEnd(10000));
          },
  });
  EXPECT_EQ(Beyond(outcomes, {{"CreateEventA", {kNoLock}},
                              {"CreateThread", {kNoThread}},
                              {"WaitForSingleObject", {""}},
                              {"SetEvent", {""}},
                              {"CloseHandle", {""}}}),
            (Outcomes{}));
}

TEST_F(ThreadSweep, AThreadThatDestroysItsOwnObjectClosesItsHandle) {
  const Outcomes outcomes = Sweep({
      .operation =
          [&] {
            auto own = std::make_unique<PlainThread>([](PlainThread& self) -> std::uint32_t {
              delete &self;
              ExitThread(0);
            });
            own->Start();
            static_cast<void>(own.release());
            EXPECT_TRUE(TestSupport::ThreadsEnd(10000));
          },
  });
  EXPECT_EQ(Beyond(outcomes, {{"CreateEventA", {kNoLock}},
                              {"CreateThread", {kNoThread}},
                              {"WaitForSingleObject", kNoJoin},
                              {"SetEvent", {""}},
                              {"CloseHandle", {""}}}),
            (Outcomes{}));
}

class Ticks : public TamLogUtil::TimerCallback {
 public:
  void OnTimer(std::uint32_t /*timerId*/) override { ++count; }
  std::atomic<int> count{0};
};

class TimerSweep : public testing::Test {
 protected:
  ~TimerSweep() noexcept override {}  // gtest's is noexcept, the timer's is not known to be

  // A timer thread whose own wait for a lock fails ends before the first tick, and says so.
  void Run() {
    ticks.count = 0;
    timer->SetCallback(&ticks);
    timer->SetPeriod(1);
    timer->Start();
    EXPECT_TRUE(WaitUntil([&] { return ticks.count > 0 || log.Count() > 0; }));
    if (ticks.count > 0) return;
    EXPECT_EQ(FailedCall(), "WaitForSingleObject");
    EXPECT_EQ(PlainText(log.Texts().front()),
              "Thread terminated due to unhandled exception : Exception occured during thread Run() / "
              "Failed to Wait for Mutex object / WaitForSingleObject failed (6)");
  }
  void StopIt() {
    timer->Stop();
    Timeout timeout(10000);
    EXPECT_TRUE(timer->Join(timeout));
  }

  Ticks ticks;
  std::unique_ptr<Timer> timer;
  DiagnosticLogCapture log;
};

TEST_F(TimerSweep, ATimerReportsEachFailedCallAndTicksAtTheNextStart) {
  const Outcomes outcomes = Sweep({
      .operation =
          [&] {
            timer = std::make_unique<Timer>(7, "test");
            Run();
            StopIt();
          },
      .check =
          [&] {
            if (timer == nullptr) return;
            StopIt();
            log.Clear();
            Run();
            EXPECT_GT(ticks.count, 0);
            StopIt();
            log.Clear();
            EXPECT_TRUE(TestSupport::ThreadsEnd(10000));
            timer.reset();
          },
  });
  EXPECT_EQ(Beyond(outcomes, StartAndJoinOutcomes()), (Outcomes{}));
}

TEST_F(TimerSweep, ATickingTimerIsDestroyedWhicheverCallFails) {
  const Outcomes outcomes = Sweep({
      .prepare =
          [&] {
            timer = std::make_unique<Timer>(7, "test");
            Run();
          },
      .operation = [&] { timer.reset(); },
  });
  EXPECT_EQ(Beyond(outcomes, {{"DuplicateHandle", {""}},
                              {"WaitForSingleObject", {""}},
                              {"SetEvent", {""}},
                              {"CloseHandle", {""}}}),
            (Outcomes{}));
}

// Services ----------------------------------------------------------------------------------------------

class ServiceSweep : public testing::Test {
 protected:
  ServiceSweep() {
    service.SetServiceName(name);
    service.SetDisplayName(name);
    service.SetDescription("A service of a test");
    service.SetExecutablePath(R"(C:\nowhere\x.exe)");
    Service::SetActiveInstance(&service);
  }
  ~ServiceSweep() noexcept override {
    DisarmCallFault();
    if (IsInstalled()) service.Remove();
    Service::SetActiveInstance(nullptr);
  }

  bool IsInstalled() const {
    const SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
    const SC_HANDLE opened = OpenServiceA(manager, name.c_str(), SERVICE_QUERY_STATUS);
    const bool installed = opened != nullptr;
    if (installed) CloseServiceHandle(opened);
    CloseServiceHandle(manager);
    return installed;
  }

  const std::string name = "TamLogCallSweep" + TestSupport::ProcessSuffix();
  Service service;
  DiagnosticLogCapture log;
};

TEST_F(ServiceSweep, AnInstallationThatFailsIsReportedAndCanBeRepeated) {
  const Outcomes outcomes = Sweep({
      .operation = [&] { service.Install(); },
      .check =
          [&] {
            if (!IsInstalled()) service.Install();
            service.Remove();
            EXPECT_FALSE(IsInstalled());
          },
      .report = [&] { return std::string(IsInstalled() ? "installed" : ""); },
  });
  EXPECT_EQ(outcomes, (Outcomes{
                          {"OpenSCManagerA", {"OpenSCManager() failed (5)"}},
                          {"CreateServiceA", {"CreateService() failed (1073)"}},
                          {"ChangeServiceConfig2A", {"ChangeServiceConfig2() failed (5) | installed"}},
                          // The later calls only open the service to everyone, or release something.
                          {"QueryServiceObjectSecurity", {"installed"}},
                          {"HeapAlloc", {"installed"}},
                          {"GetSecurityDescriptorDacl", {"installed"}},
                          {"SetEntriesInAclA", {"installed"}},
                          {"InitializeSecurityDescriptor", {"installed"}},
                          {"SetSecurityDescriptorDacl", {"installed"}},
                          {"SetServiceObjectSecurity", {"installed"}},
                          {"LocalFree", {"installed"}},
                          {"HeapFree", {"installed"}},
                          {"CloseServiceHandle", {"CloseServiceHandle() failed: (6) | installed"}},
                          {"", {"installed"}},
                      }));
}

TEST_F(ServiceSweep, ARemovalThatFailsIsReportedAndCanBeRepeated) {
  const Outcomes outcomes = Sweep({
      .prepare = [&] { service.Install(); },
      .operation = [&] { service.Remove(); },
      .check =
          [&] {
            if (IsInstalled()) service.Remove();
            EXPECT_FALSE(IsInstalled());
          },
      .report = [&] { return std::string(IsInstalled() ? "installed" : ""); },
  });
  EXPECT_EQ(outcomes, (Outcomes{
                          {"OpenSCManagerA", {"OpenSCManager() failed (5) | installed"}},
                          {"OpenServiceA", {"OpenService() failed (1060) | installed"}},
                          {"DeleteService", {"DeleteService() failed (1072) | installed"}},
                          {"CloseServiceHandle", {"CloseServiceHandle() failed: (6)"}},
                      }));
}

TEST_F(ServiceSweep, AStatusThatTheManagerDoesNotTakeIsReported) {
  ArmCallFault(1);
  EXPECT_EQ(PlainFailureOf([&] { service.ReportStatus(); }),
            "Failed to report status / SetServiceStatus failed (6)");
  EXPECT_EQ(FailedCall(), "SetServiceStatus");
}

TEST_F(ServiceSweep, AControlThatCannotBeAnsweredIsLogged) {
  ArmCallFault(1);
  Service::HandleControl(SERVICE_CONTROL_INTERROGATE);
  EXPECT_EQ(FailedCall(), "SetServiceStatus");
  ASSERT_EQ(log.Count(), 1U);
  EXPECT_EQ(PlainText(log.Texts().front()),
            "An exception has occured in the service's control method : Failed to report status / "
            "SetServiceStatus failed (6)");
}

TEST_F(ServiceSweep, ADispatcherThatDoesNotComeUpIsReported) {
  ArmCallFault(1);
  EXPECT_EQ(PlainFailureOf([&] { service.RunDispatcher(); }), "StartServiceCtrlDispatcher() failed (1063)");
  EXPECT_EQ(FailedCall(), "StartServiceCtrlDispatcherA");
}

TEST_F(ServiceSweep, AServiceThatCannotRegisterItsHandlerEndsTheProcess) {
  EXPECT_EXIT(
      {
        TamLogUtil::SetLogStream(&std::cerr);
        ArmCallFault(1);
        Service::ServiceMain();
      },
      testing::ExitedWithCode(kAborted),
      "An exception has occured in the service's main : Failed to start service");
}

}  // namespace
