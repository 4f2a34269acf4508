// The failures of Overlap, after which it keeps no handle and no operation.

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <string>

#include "pipe/overlap.h"
#include "tests/pipe/call_faults.h"
#include "tests/support/pipe_client.h"
#include "util/exceptions.h"
#include "util/win32.h"

using TamLogUtil::Exceptions::ExceptionBase;
using TamLogUtil::Exceptions::ExceptionWindows;
using TestSupport::CallFault;
using TestSupport::Faults;

namespace {

DWORD OpenHandles() {
  DWORD count = 0;
  GetProcessHandleCount(GetCurrentProcess(), &count);
  return count;
}

class OverlapFaults : public ::testing::Test {
 protected:
  OverlapFaults() { Faults().Clear(); }
  ~OverlapFaults() override { Faults().Clear(); }

  static void ExpectNoOverlap(const std::string& text, std::uint32_t code) {
    // The first exception of a process makes the run-time open handles of its own.
    EXPECT_THROW(throw ExceptionBase("first"), ExceptionBase);
    const DWORD before = OpenHandles();
    try {
      const Overlap overlap;
      FAIL() << "nothing was thrown";
    } catch (const ExceptionWindows& e) {
      EXPECT_EQ(e.ErrorCode(), code);
      const std::string expected = text + " - Error code : " + std::to_string(code) + " - ";
      EXPECT_EQ(e.Compose("|").substr(0, expected.size()), expected);
    }
    EXPECT_EQ(OpenHandles(), before);
  }

  // Overlap's own plain exception, with that of the wrapper as its cause.
  static void ExpectWrapped(const std::function<void()>& action, const std::string& text,
                            const std::string& cause) {
    try {
      action();
      FAIL() << "nothing was thrown";
    } catch (const ExceptionBase& e) {
      EXPECT_EQ(dynamic_cast<const ExceptionWindows*>(&e), nullptr);
      EXPECT_EQ(e.GetMessage(), text);
      const std::string expected = text + "|" + cause + " - Error code : 6 - ";
      EXPECT_EQ(e.Compose("|").substr(0, expected.size()), expected);
    }
  }
};

TEST_F(OverlapFaults, CompletionEventThatCannotBeCreated) {
  Faults().createOverlapEvent.Fail(ERROR_NOT_ENOUGH_MEMORY, CallFault::On::ThisThread);
  ExpectNoOverlap("Failed to create the completion event in Overlap construction", ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(Faults().createOverlapEvent.Calls(), 1);
}

TEST_F(OverlapFaults, CancellationEventThatCannotBeCreated) {
  Faults().createOverlapEvent.Fail(ERROR_NOT_ENOUGH_MEMORY, CallFault::On::ThisThread, 1, 1);
  ExpectNoOverlap("Failed to create the cancellation event in Overlap construction", ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(Faults().createOverlapEvent.Calls(), 2);
}

TEST_F(OverlapFaults, CompletionEventThatCannotBeTakenOver) {
  Faults().duplicateHandle.Fail(ERROR_NOT_ENOUGH_MEMORY, CallFault::On::ThisThread);
  EXPECT_THROW(Overlap(), ExceptionWindows);
}

TEST_F(OverlapFaults, CancellationThatCannotBeSignalled) {
  Overlap overlap;
  Faults().setEvent.Fail(ERROR_INVALID_HANDLE, CallFault::On::ThisThread);
  ExpectWrapped([&] { overlap.Cancel(); }, "Failed to cancel asynchronous operation", "SetEvent failed");
}

TEST_F(OverlapFaults, CancellationThatCannotBeReset) {
  Overlap overlap;
  Faults().resetEvent.Fail(ERROR_INVALID_HANDLE, CallFault::On::ThisThread);
  ExpectWrapped([&] { overlap.Reset(); }, "Failed to reset overlap object", "ResetEvent failed");
}

TEST_F(OverlapFaults, WaitThatFailsThrowsFromTheWrapper) {
  Overlap overlap;
  Faults().waitForMultiple.Fail(ERROR_INVALID_HANDLE, CallFault::On::ThisThread);
  try {
    overlap.Wait(0);
    FAIL() << "nothing was thrown";
  } catch (const ExceptionWindows& e) {
    const std::string expected = "WaitForMultipleObjects failed - Error code : 6 - ";
    EXPECT_EQ(e.GetMessage().substr(0, expected.size()), expected);
  }
}

TEST_F(OverlapFaults, WaitThatFailsLeavesNoOperationUnderWay) {
  const std::string name = TestSupport::PipeNameForThisProcess("TamLogTestOverlapFaults");
  const HANDLE pipe = CreateNamedPipeA(name.c_str(), PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED,
                                       PIPE_TYPE_MESSAGE, 1, 4096, 4096, 0, nullptr);
  Overlap overlap;
  const std::uint32_t error = ConnectNamedPipe(pipe, overlap.Overlapped()) ? 0 : GetLastError();
  ASSERT_EQ(error, static_cast<std::uint32_t>(ERROR_IO_PENDING));
  Faults().waitForMultiple.Fail(ERROR_INVALID_HANDLE, CallFault::On::ThisThread);
  EXPECT_THROW(overlap.Result(pipe, error, 10000), ExceptionWindows);
  EXPECT_TRUE(HasOverlappedIoCompleted(overlap.Overlapped()));
  CloseHandle(pipe);
}

}  // namespace
