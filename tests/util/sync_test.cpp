#include "util/sync.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/expect_failure.h"
#include "tests/support/temp_dir.h"
#include "util/exceptions.h"
#include "util/win32.h"

namespace TamLogUtil {
namespace {

using Exceptions::ExceptionBase;
using Exceptions::ExceptionWindows;
using TestSupport::ExpectFailure;
using TestSupport::WindowsText;

constexpr DWORD kInvalid = ERROR_INVALID_HANDLE;
// The system takes a backslash in the rest of a name for a directory, which does not exist.
constexpr const char* kBadName = "no\\such\\directory";
constexpr DWORD kBadNameError = ERROR_PATH_NOT_FOUND;

// The first exception and the first text make the run-time and the system open handles of their own. Done
// before any test, so that these do not get the value of a handle that a test has closed without its owner.
const bool firstExceptionIsOver = [] {
  try {
    throw ExceptionBase(WindowsText("first", kInvalid));
  } catch (const ExceptionBase& failure) {
    return !failure.Compose("\n").empty();
  }
}();

// A handle that the system refuses to close during the lifetime of this object.
class Unclosable {
 public:
  explicit Unclosable(HANDLE protectedHandle) : handle(protectedHandle) {
    SetHandleInformation(handle, HANDLE_FLAG_PROTECT_FROM_CLOSE, HANDLE_FLAG_PROTECT_FROM_CLOSE);
  }
  ~Unclosable() {
    SetHandleInformation(handle, HANDLE_FLAG_PROTECT_FROM_CLOSE, 0);
    CloseHandle(handle);
  }
  Unclosable(const Unclosable&) = delete;
  Unclosable& operator=(const Unclosable&) = delete;

 private:
  HANDLE handle;
};

std::string OwnName(const std::string& name) {
  return "TamLogTest" + name + TestSupport::ProcessSuffix();
}

// A mutex object of the system whose owner ended without releasing it.
HANDLE AbandonedMutex() {
  const HANDLE mutex = CreateMutexA(nullptr, FALSE, nullptr);
  std::thread([mutex] { WaitForSingleObject(mutex, INFINITE); }).join();
  return mutex;
}

DWORD HandleFlags(HANDLE handle) {
  DWORD flags = 0;
  return GetHandleInformation(handle, &flags) == 0 ? 0xFFFFFFFFU : flags;
}

bool IsOpen(HANDLE handle) {
  return HandleFlags(handle) != 0xFFFFFFFFU;
}

// Checked wrappers --------------------------------------------------------------------------------------

TEST(CheckedCalls, CloseHandle) {
  EXPECT_NE(CheckedCloseHandle(CheckedCreateEvent(nullptr, true, true, nullptr)), 0);
  ExpectFailure<ExceptionWindows>([] { CheckedCloseHandle(nullptr); },
                                  WindowsText("CloseHandle() failed:", kInvalid));
}

TEST(CheckedCalls, CreateEventPassesResetModeAndState) {
  AutoHandle manual(CheckedCreateEvent(nullptr, true, true, nullptr), AutoHandle::From::Take);
  EXPECT_TRUE(CheckedWaitForSingleObject(manual.Get(), 0));
  EXPECT_TRUE(CheckedWaitForSingleObject(manual.Get(), 0));
  AutoHandle automatic(CheckedCreateEvent(nullptr, false, true, nullptr), AutoHandle::From::Take);
  EXPECT_TRUE(CheckedWaitForSingleObject(automatic.Get(), 0));
  EXPECT_FALSE(CheckedWaitForSingleObject(automatic.Get(), 0));
  AutoHandle unset(CheckedCreateEvent(nullptr, true, false, nullptr), AutoHandle::From::Take);
  EXPECT_FALSE(CheckedWaitForSingleObject(unset.Get(), 0));
}

TEST(CheckedCalls, CreateEventFails) {
  ExpectFailure<ExceptionWindows>([] { CheckedCreateEvent(nullptr, true, true, kBadName); },
                                  WindowsText("CreateEvent() failed", kBadNameError));
}

TEST(CheckedCalls, SetAndResetEvent) {
  AutoHandle event(CheckedCreateEvent(nullptr, true, false, nullptr), AutoHandle::From::Take);
  EXPECT_TRUE(CheckedSetEvent(event.Get()));
  EXPECT_TRUE(CheckedWaitForSingleObject(event.Get(), 0));
  CheckedResetEvent(event.Get());
  EXPECT_FALSE(CheckedWaitForSingleObject(event.Get(), 0));
}

TEST(CheckedCalls, SetAndResetEventFail) {
  ExpectFailure<ExceptionWindows>([] { CheckedSetEvent(nullptr); }, WindowsText("SetEvent failed", kInvalid));
  ExpectFailure<ExceptionWindows>([] { CheckedResetEvent(nullptr); },
                                  WindowsText("ResetEvent failed", kInvalid));
}

TEST(CheckedCalls, WaitForOneObjectFails) {
  ExpectFailure<ExceptionWindows>([] { CheckedWaitForSingleObject(nullptr, 0); },
                                  WindowsText("WaitForSingleObject failed", kInvalid));
}

TEST(CheckedCalls, WaitForOneAbandonedObjectFails) {
  const HANDLE mutex = AbandonedMutex();
  try {
    CheckedWaitForSingleObject(mutex, 0);
    ADD_FAILURE();
  } catch (const ExceptionWindows& failure) {
    EXPECT_EQ(failure.Compose("\n").rfind("WaitForSingleObject failed - Error code : ", 0), 0U);
  }
  CloseHandle(mutex);
}

class ThreeEvents : public testing::Test {
 protected:
  ThreeEvents() {
    for (HANDLE& handle : handles) handle = CheckedCreateEvent(nullptr, true, false, nullptr);
  }
  ~ThreeEvents() override {
    for (const HANDLE handle : handles) CloseHandle(handle);
  }

  std::array<HANDLE, 3> handles{};
};

TEST_F(ThreeEvents, TheIndexOfTheSignalledOneIsReturned) {
  CheckedSetEvent(handles[2]);
  EXPECT_EQ(CheckedWaitForMultipleObjects(3, handles.data(), false, 0), 2);
  CheckedSetEvent(handles[1]);
  EXPECT_EQ(CheckedWaitForMultipleObjects(3, handles.data(), false, 0), 1);
}

TEST_F(ThreeEvents, MinusOneMeansThatTheTimeRanOut) {
  EXPECT_EQ(CheckedWaitForMultipleObjects(3, handles.data(), false, 10), -1);
}

TEST_F(ThreeEvents, WaitingForAllNeedsAll) {
  CheckedSetEvent(handles[0]);
  CheckedSetEvent(handles[1]);
  EXPECT_EQ(CheckedWaitForMultipleObjects(3, handles.data(), true, 0), -1);
  CheckedSetEvent(handles[2]);
  EXPECT_EQ(CheckedWaitForMultipleObjects(3, handles.data(), true, 0), 0);
}

TEST_F(ThreeEvents, AnAbandonedOneThrows) {
  const HANDLE event = std::exchange(handles[1], AbandonedMutex());
  // Result 129: the second of three is abandoned.
  ExpectFailure<ExceptionBase>([&] { CheckedWaitForMultipleObjects(3, handles.data(), false, 0); },
                               "WaitForMultipleObjects is waiting for an abandonned mutex");
  CloseHandle(event);
}

TEST_F(ThreeEvents, AFailedWaitThrows) {
  const HANDLE event = std::exchange(handles[1], nullptr);
  ExpectFailure<ExceptionWindows>([&] { CheckedWaitForMultipleObjects(3, handles.data(), false, 0); },
                                  WindowsText("WaitForMultipleObjects failed", kInvalid));
  handles[1] = event;
}

// AutoHandle --------------------------------------------------------------------------------------------

TEST(AutoHandle, HoldsNothingAtFirst) {
  const AutoHandle none;
  EXPECT_TRUE(none.IsInvalid());
  EXPECT_FALSE(none.IsValid());
  EXPECT_EQ(none.Get(), INVALID_HANDLE_VALUE);
}

TEST(AutoHandle, TakeOwnsADuplicateAndClosesTheSource) {
  const HANDLE event = CheckedCreateEvent(nullptr, true, true, nullptr);
  HANDLE held = nullptr;
  {
    const AutoHandle owner(event, AutoHandle::From::Take);
    held = owner.Get();
    ASSERT_TRUE(owner.IsValid());
    EXPECT_TRUE(CheckedWaitForSingleObject(held, 0));
    // The duplicate may get the value of the source that was closed.
    EXPECT_TRUE(held == event || !IsOpen(event));
  }
  EXPECT_FALSE(IsOpen(held));
  EXPECT_FALSE(IsOpen(event));
}

TEST(AutoHandle, CopyLeavesTheSourceOpen) {
  const HANDLE event = CheckedCreateEvent(nullptr, true, true, nullptr);
  HANDLE copy = nullptr;
  {
    const AutoHandle owner(event, AutoHandle::From::Copy);
    copy = owner.Get();
    EXPECT_NE(copy, event);
    CheckedResetEvent(event);
    EXPECT_FALSE(CheckedWaitForSingleObject(copy, 0));
    EXPECT_EQ(HandleFlags(copy) & HANDLE_FLAG_INHERIT, 0U);
  }
  EXPECT_TRUE(IsOpen(event));
  EXPECT_FALSE(IsOpen(copy));
  CloseHandle(event);
}

TEST(AutoHandle, ANullOrInvalidHandleLeavesItEmptyWithoutError) {
  for (const HANDLE none : {HANDLE{nullptr}, INVALID_HANDLE_VALUE}) {
    for (const auto how : {AutoHandle::From::Take, AutoHandle::From::Copy}) {
      const AutoHandle owner(none, how);
      EXPECT_TRUE(owner.IsInvalid());
    }
  }
}

TEST(AutoHandle, TakingNothingClosesWhatWasHeld) {
  AutoHandle owner(CheckedCreateEvent(nullptr, true, true, nullptr), AutoHandle::From::Take);
  const HANDLE held = owner.Get();
  owner.Take(nullptr);
  EXPECT_TRUE(owner.IsInvalid());
  EXPECT_FALSE(IsOpen(held));
}

TEST(AutoHandle, AHandleThatCannotBeDuplicatedLeavesItEmptyWithoutError) {
  const HANDLE closed = CheckedCreateEvent(nullptr, true, true, nullptr);
  CloseHandle(closed);
  AutoHandle owner;
  EXPECT_NO_THROW(owner.Take(closed));
  EXPECT_TRUE(owner.IsInvalid());
  EXPECT_NO_THROW(owner.Copy(closed));
  EXPECT_TRUE(owner.IsInvalid());
}

TEST(AutoHandle, AssigningTheHeldValueDoesNothing) {
  AutoHandle owner(CheckedCreateEvent(nullptr, true, true, nullptr), AutoHandle::From::Take);
  const HANDLE held = owner.Get();
  owner = held;
  EXPECT_EQ(owner.Get(), held);
  EXPECT_TRUE(IsOpen(held));
}

TEST(AutoHandle, AssigningAnotherValueTakesIt) {
  AutoHandle owner(CheckedCreateEvent(nullptr, true, true, nullptr), AutoHandle::From::Take);
  const HANDLE first = owner.Get();
  const HANDLE second = CheckedCreateEvent(nullptr, true, false, nullptr);
  owner = second;
  EXPECT_FALSE(CheckedWaitForSingleObject(owner.Get(), 0));
  EXPECT_TRUE(owner.Get() == first || !IsOpen(first));
  EXPECT_TRUE(owner.Get() == second || !IsOpen(second));
}

TEST(AutoHandle, CloseMayBeRepeated) {
  AutoHandle owner(CheckedCreateEvent(nullptr, true, true, nullptr), AutoHandle::From::Take);
  owner.Close();
  EXPECT_TRUE(owner.IsInvalid());
  owner.Close();
  EXPECT_TRUE(owner.IsInvalid());
}

TEST(AutoHandle, AFailedCloseIsIgnored) {
  AutoHandle owner(CheckedCreateEvent(nullptr, true, true, nullptr), AutoHandle::From::Take);
  CloseHandle(owner.Get());
  EXPECT_NO_THROW(owner.Close());
  EXPECT_TRUE(owner.IsInvalid());
}

// Event -------------------------------------------------------------------------------------------------

TEST(Event, IsCreatedSignalled) {
  Event event(nullptr, nullptr);
  EXPECT_TRUE(event.Wait(0));
  EXPECT_TRUE(event.Wait(0));
  event.RemoveSignal();
  EXPECT_FALSE(event.Wait(0));
  EXPECT_TRUE(event.SetSignal());
  EXPECT_TRUE(event.Wait(0));
}

TEST(Event, AnExistingOneOfThatNameIsOpenedAsItIs) {
  const std::string name = OwnName("Event");
  Event first(name.c_str(), nullptr);
  first.RemoveSignal();
  Event second(name.c_str(), nullptr);
  EXPECT_FALSE(second.Wait(0));
  second.SetSignal();
  EXPECT_TRUE(first.Wait(0));
}

TEST(Event, WaitsUntilAnotherThreadSignals) {
  Event event(nullptr, nullptr);
  event.RemoveSignal();
  std::thread signaller([&] {
    Sleep(50);
    event.SetSignal();
  });
  EXPECT_TRUE(event.Wait(10000));
  signaller.join();
}

TEST(Event, CreationFails) {
  ExpectFailure<ExceptionBase>(
      [] { const Event event(kBadName, nullptr); },
      "Failed to create Event object\n" + WindowsText("CreateEvent() failed", kBadNameError));
}

TEST(Event, CreationFailsWhenTheNameBelongsToAnotherKindOfObject) {
  const std::string name = OwnName("Kind");
  const AutoHandle mutex(CreateMutexA(nullptr, FALSE, name.c_str()), AutoHandle::From::Take);
  ExpectFailure<ExceptionBase>(
      [&] { const Event event(name.c_str(), nullptr); },
      "Failed to create Event object\n" + WindowsText("CreateEvent() failed", kInvalid));
}

TEST(Event, OperationsOnAClosedHandleFail) {
  // Never destroyed: another object may have the value of its handle by then.
  auto& event = *new Event(nullptr, nullptr);
  CloseHandle(event.Handle());
  ExpectFailure<ExceptionBase>(
      [&] { event.Wait(0); },
      "Failed to Wait for Event object\n" + WindowsText("WaitForSingleObject failed", kInvalid));
  ExpectFailure<ExceptionBase>([&] { event.SetSignal(); }, "Failed to SetSignal for Event object\n" +
                                                               WindowsText("SetEvent failed", kInvalid));
  ExpectFailure<ExceptionBase>([&] { event.RemoveSignal(); }, "Failed to RemoveSignal for Event object\n" +
                                                                  WindowsText("ResetEvent failed", kInvalid));
}

TEST(Event, AFailedCloseIsThrownByTheDestructor) {
  // Not a smart pointer: those must not let a destructor's exception out.
  auto* const event = new Event(nullptr, nullptr);
  const Unclosable kept(event->Handle());
  ExpectFailure<ExceptionBase>([&] { delete event; }, "Failed to destroy Event object\n" +
                                                          WindowsText("CloseHandle() failed:", kInvalid));
}

TEST(Event, AFailedDestructionDoesNotReplaceAnExceptionOnItsWay) {
  std::optional<Unclosable> kept;
  ExpectFailure<ExceptionBase>(
      [&] {
        const Event event(nullptr, nullptr);
        kept.emplace(event.Handle());
        throw ExceptionBase("the first failure");
      },
      "the first failure");
}

// Mutex -------------------------------------------------------------------------------------------------

bool IsFree(Mutex& mutex) {
  const bool free = mutex.TryWait(0);
  if (free) mutex.Release();
  return free;
}

TEST(Mutex, StartsFreeAndIsHeldByOne) {
  Mutex mutex;
  EXPECT_TRUE(IsFree(mutex));
  mutex.Wait(0);
  EXPECT_FALSE(IsFree(mutex));
  mutex.Release();
  EXPECT_TRUE(IsFree(mutex));
}

TEST(Mutex, AWaitThatRunsOutOfTimeIsNotReported) {
  Mutex mutex;
  mutex.Wait(0);
  EXPECT_NO_THROW(mutex.Wait(10));
  mutex.Release();
}

TEST(Mutex, AnyThreadMayGiveItBack) {
  Mutex mutex;
  mutex.Wait(0);
  std::thread([&] { mutex.Release(); }).join();
  EXPECT_TRUE(IsFree(mutex));
}

TEST(Mutex, AThreadThatEndsHoldingItAbandonsNothing) {
  Mutex mutex;
  std::thread([&] { mutex.Wait(0); }).join();
  EXPECT_FALSE(IsFree(mutex));
  EXPECT_NO_THROW(mutex.Wait(10));
  mutex.Release();
  EXPECT_TRUE(IsFree(mutex));
}

TEST(Mutex, ANamedOneIsSharedByName) {
  const std::string name = OwnName("Mutex");
  Mutex first(name.c_str(), nullptr);
  first.Wait(0);
  Mutex second(name.c_str(), nullptr);
  EXPECT_FALSE(IsFree(second));
  first.Release();
  EXPECT_TRUE(IsFree(second));
}

TEST(Mutex, CreationFails) {
  ExpectFailure<ExceptionBase>(
      [] { const Mutex mutex(kBadName, nullptr); },
      "Failed to create Mutex object\n" + WindowsText("CreateEvent() failed", kBadNameError));
}

TEST(Mutex, OperationsOnAClosedHandleFailButDestructionDoesNot) {
  Mutex mutex(nullptr, nullptr);
  CloseHandle(mutex.Handle());
  ExpectFailure<ExceptionBase>(
      [&] { mutex.Wait(0); },
      "Failed to Wait for Mutex object\n" + WindowsText("WaitForSingleObject failed", kInvalid));
  // The text says RemoveSignal although the lock is signalled.
  ExpectFailure<ExceptionBase>([&] { mutex.Release(); }, "Failed to RemoveSignal for Mutex object\n" +
                                                             WindowsText("SetEvent failed", kInvalid));
}

TEST(Mutex, AnUnnamedOneUsesItsEventOnlyWhenAThreadWaits) {
  Mutex mutex;
  CloseHandle(mutex.Handle());
  mutex.Wait(Timeout::kForever);
  EXPECT_FALSE(mutex.TryWait(0));
  ExpectFailure<ExceptionBase>(
      [&] { mutex.Wait(1); },
      "Failed to Wait for Mutex object\n" + WindowsText("WaitForSingleObject failed", kInvalid));
  mutex.Release();
  EXPECT_TRUE(IsFree(mutex));
}

TEST(Mutex, GivingBackAFreeOneLeavesItFreeForOne) {
  for (Mutex* const mutex : {new Mutex, new Mutex(nullptr, nullptr)}) {
    const std::unique_ptr<Mutex> owner(mutex);
    mutex->Release();
    mutex->Release();
    EXPECT_TRUE(mutex->TryWait(0));
    EXPECT_FALSE(mutex->TryWait(0));
  }
}

TEST(Mutex, AReleasedOneIsPassedToAWaiterThatMayDestroyIt) {
  for (int round = 0; round < 200; ++round) {
    auto mutex = std::make_unique<Mutex>();
    mutex->Wait(0);
    std::thread heir([&] {
      EXPECT_TRUE(mutex->TryWait(5000));
      mutex.reset();
    });
    if (round % 2 == 0) Sleep(0);
    mutex->Release();
    heir.join();
  }
}

// Mutex::Access -----------------------------------------------------------------------------------------

TEST(MutexAccess, HoldsTheLockForItsScope) {
  Mutex mutex;
  {
    const Mutex::Access access(mutex, Timeout::Infinite);
    EXPECT_FALSE(IsFree(mutex));
  }
  EXPECT_TRUE(IsFree(mutex));
}

TEST(MutexAccess, TakesAPointerToo) {
  Mutex mutex;
  {
    const Mutex::Access access(&mutex, Timeout::Infinite);
    EXPECT_FALSE(IsFree(mutex));
  }
  EXPECT_TRUE(IsFree(mutex));
}

TEST(MutexAccess, ANullPointerThrows) {
  ExpectFailure<ExceptionBase>(
      [] { const Mutex::Access access(static_cast<Mutex*>(nullptr), Timeout::Infinite); },
      "Mutex Access object declared for null pointer");
}

TEST(MutexAccess, AcquiringTwiceThrows) {
  Mutex mutex;
  Mutex::Access access(mutex, Timeout::Infinite);
  ExpectFailure<ExceptionBase>([&] { access.Acquire(Timeout::Infinite); },
                               "Mutex::Access requesting ownership of an owned object");
}

TEST(MutexAccess, ReleasingTwiceThrows) {
  Mutex mutex;
  Mutex::Access access(mutex, Timeout::Infinite);
  access.Release();
  ExpectFailure<ExceptionBase>([&] { access.Release(); },
                               "Mutex::Access releasing ownership of an unowned object");
}

TEST(MutexAccess, DestroyingAReleasedOneDoesNothing) {
  Mutex mutex;
  {
    Mutex::Access access(mutex, Timeout::Infinite);
    access.Release();
    mutex.Wait(0);
  }
  EXPECT_FALSE(IsFree(mutex));
}

TEST(MutexAccess, MayBeAcquiredAgainAfterItsRelease) {
  Mutex mutex;
  Mutex::Access access(mutex, Timeout::Infinite);
  access.Release();
  access.Acquire(Timeout::Infinite);
  EXPECT_FALSE(IsFree(mutex));
}

TEST(MutexAccess, TheSecondThreadWaitsUntilTheFirstIsDone) {
  Mutex mutex;
  std::atomic<bool> entered{false};
  std::thread second;
  {
    const Mutex::Access access(mutex, Timeout::Infinite);
    second = std::thread([&] {
      const Mutex::Access own(mutex, Timeout::Infinite);
      entered = true;
    });
    Sleep(100);
    EXPECT_FALSE(entered);
  }
  second.join();
  EXPECT_TRUE(entered);
}

TEST(MutexAccess, AfterItsTimeRanOutItGoesOnAsOwner) {
  Mutex mutex;
  const Mutex::Access first(mutex, Timeout::Infinite);
  std::thread([&] {
    Timeout timeout(100);
    const auto begin = std::chrono::steady_clock::now();
    Mutex::Access second(mutex, timeout);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(90));
    // An owner must not acquire but may release, and then frees the lock that the first still uses.
    EXPECT_THROW(second.Acquire(timeout), ExceptionBase);
    second.Release();
  }).join();
  EXPECT_TRUE(IsFree(mutex));
}

TEST(MutexAccess, AFailedReleaseIsThrownByTheDestructor) {
  Mutex mutex(nullptr, nullptr);
  ExpectFailure<ExceptionBase>(
      [&] {
        const Mutex::Access access(mutex, Timeout::Infinite);
        CloseHandle(mutex.Handle());
      },
      "Failed to RemoveSignal for Mutex object\n" + WindowsText("SetEvent failed", kInvalid));
}

TEST(MutexAccess, KeepsManyThreadsApart) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 500;
  Mutex mutex;
  int inside = 0;
  int overlaps = 0;
  int total = 0;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        const Mutex::Access access(mutex, Timeout::Infinite);
        if (++inside != 1) ++overlaps;
        ++total;
        --inside;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(overlaps, 0);
  EXPECT_EQ(total, kThreads * kRounds);
}

}  // namespace
}  // namespace TamLogUtil
