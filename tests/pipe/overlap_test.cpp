#include "pipe/overlap.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>

#include "tests/pipe/pipe_server_fixture.h"
#include "util/win32.h"

using TestSupport::Clock;
using TestSupport::MillisecondsSince;

namespace {

// The server's end of one message pipe and, after Connect, a client's end.
class OverlapOnPipe : public ::testing::Test {
 protected:
  OverlapOnPipe() {
    name = TestSupport::PipeNameForThisProcess("TamLogTestOverlap");
    pipe = CreateNamedPipeA(name.c_str(), PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED,
                            PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE, PIPE_UNLIMITED_INSTANCES, 4096, 4096,
                            0, nullptr);
  }
  ~OverlapOnPipe() override {
    overlap.Settle();
    CloseHandle(client);
    CloseHandle(pipe);
  }

  void Connect() {
    client = CreateFileA(name.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(client, INVALID_HANDLE_VALUE);
  }
  void Write(std::size_t size) {
    const std::string bytes(size, 'x');
    DWORD written = 0;
    ASSERT_TRUE(WriteFile(client, bytes.data(), static_cast<DWORD>(size), &written, nullptr));
  }
  std::uint32_t StartRead() {
    return ReadFile(pipe, buffer.data(), static_cast<DWORD>(buffer.size()), nullptr, overlap.Overlapped())
               ? 0
               : GetLastError();
  }
  std::uint32_t Read(std::uint32_t milliseconds) { return overlap.Result(pipe, StartRead(), milliseconds); }

  std::string name;
  std::array<char, 16> buffer{};
  HANDLE pipe = INVALID_HANDLE_VALUE;
  HANDLE client = INVALID_HANDLE_VALUE;
  Overlap overlap;
};

TEST(Overlap, OverlappedIsZeroExceptForItsEvent) {
  Overlap overlap;
  EXPECT_EQ(overlap.Overlapped()->Internal, 0U);
  EXPECT_EQ(overlap.Overlapped()->Offset, 0U);
  EXPECT_EQ(overlap.Overlapped()->OffsetHigh, 0U);
  EXPECT_NE(overlap.Overlapped()->hEvent, nullptr);
}

TEST(Overlap, CompletionEventIsManualResetAndStartsUnsignalled) {
  Overlap overlap;
  const HANDLE event = overlap.Overlapped()->hEvent;
  EXPECT_EQ(WaitForSingleObject(event, 0), static_cast<DWORD>(WAIT_TIMEOUT));
  SetEvent(event);
  EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
}

TEST(Overlap, WaitReturns258WhenTheTimeRunsOut) {
  Overlap overlap;
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(overlap.Wait(100), 258U);
  EXPECT_GE(MillisecondsSince(start), 80);
}

TEST(Overlap, WaitReturnsTheStatusThatTheSystemLeft) {
  Overlap overlap;
  overlap.Overlapped()->Internal = 0x1234567890ABCDEFU;
  SetEvent(overlap.Overlapped()->hEvent);
  EXPECT_EQ(overlap.Wait(0), 0x90ABCDEFU);
}

TEST(Overlap, CancelEndsAWaitInAnotherThread) {
  Overlap overlap;
  std::thread canceller([&overlap] {
    TestSupport::SleepMs(50);
    overlap.Cancel();
  });
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(overlap.Wait(20000), 258U);
  EXPECT_LT(MillisecondsSince(start), 10000);
  canceller.join();
}

TEST(Overlap, CancellationStaysUntilReset) {
  Overlap overlap;
  overlap.Cancel();
  EXPECT_EQ(overlap.Wait(20000), 258U);
  EXPECT_EQ(overlap.Wait(20000), 258U);
  overlap.Reset();
  const Clock::time_point start = Clock::now();
  EXPECT_EQ(overlap.Wait(100), 258U);
  EXPECT_GE(MillisecondsSince(start), 80);
}

TEST(Overlap, CompletionWinsOverCancellation) {
  Overlap overlap;
  overlap.Overlapped()->Internal = 0;
  overlap.Cancel();
  SetEvent(overlap.Overlapped()->hEvent);
  EXPECT_EQ(overlap.Wait(0), 0U);
}

TEST_F(OverlapOnPipe, PendingReadSucceedsWhenAMessageArrives) {
  Connect();
  std::thread writer([this] {
    TestSupport::SleepMs(50);
    Write(5);
  });
  EXPECT_EQ(Read(10000), 0U);
  EXPECT_EQ(std::string(buffer.data(), 5), "xxxxx");
  writer.join();
}

TEST_F(OverlapOnPipe, ImmediateSuccessIsZero) {
  Connect();
  Write(5);
  EXPECT_EQ(Read(10000), 0U);
}

TEST_F(OverlapOnPipe, ImmediateFailureIsTheErrorCode) {
  // No client is connected: the call fails at once and leaves the OVERLAPPED unchanged.
  EXPECT_EQ(Read(10000), static_cast<std::uint32_t>(ERROR_PIPE_LISTENING));
}

TEST_F(OverlapOnPipe, TooLongMessageIsTheErrorCodeWhenTheReadFindsIt) {
  Connect();
  Write(17);
  EXPECT_EQ(Read(10000), static_cast<std::uint32_t>(ERROR_MORE_DATA));
}

TEST_F(OverlapOnPipe, TooLongMessageIsAKernelStatusWhenTheReadWaitsForIt) {
  Connect();
  const std::uint32_t error = StartRead();
  ASSERT_EQ(error, static_cast<std::uint32_t>(ERROR_IO_PENDING));
  Write(17);
  EXPECT_EQ(overlap.Result(pipe, error, 10000), 0x80000005U);
}

TEST_F(OverlapOnPipe, ClientThatLeavesDuringAReadIsAKernelStatus) {
  Connect();
  const std::uint32_t error = StartRead();
  ASSERT_EQ(error, static_cast<std::uint32_t>(ERROR_IO_PENDING));
  CloseHandle(client);
  client = INVALID_HANDLE_VALUE;
  EXPECT_EQ(overlap.Result(pipe, error, 10000), 0xC000014BU);
}

TEST_F(OverlapOnPipe, SettleEndsWhatATimedOutWaitLeftUnderWay) {
  Connect();
  EXPECT_EQ(Read(10), 258U);
  EXPECT_FALSE(HasOverlappedIoCompleted(overlap.Overlapped()));
  overlap.Settle();
  EXPECT_TRUE(HasOverlappedIoCompleted(overlap.Overlapped()));
  // The buffer is free again: a message that arrives now stays in the pipe for the next read.
  buffer.fill('-');
  Write(5);
  TestSupport::SleepMs(20);
  EXPECT_EQ(buffer[0], '-');
  EXPECT_EQ(Read(10000), 0U);
}

TEST_F(OverlapOnPipe, SettleReachesAnOperationThatAnotherThreadStarted) {
  Connect();
  std::thread starter([this] {
    EXPECT_EQ(Read(10), 258U);
    // The thread lives until the test has called Settle, because a thread's end cancels its operations.
    TestSupport::SleepMs(200);
  });
  EXPECT_TRUE(TestSupport::WaitUntil([this] { return overlap.Overlapped()->Internal == 0x103; }));
  TestSupport::SleepMs(50);
  const Clock::time_point start = Clock::now();
  overlap.Settle();
  EXPECT_LT(MillisecondsSince(start), 5000);
  EXPECT_TRUE(HasOverlappedIoCompleted(overlap.Overlapped()));
  starter.join();
}

TEST_F(OverlapOnPipe, SettleWithoutAnOperationDoesNothing) {
  overlap.Settle();
  overlap.Settle();
  Connect();
  Write(3);
  EXPECT_EQ(Read(10000), 0U);
  overlap.Settle();
}

TEST_F(OverlapOnPipe, DestructionEndsAnOperationUnderWay) {
  Connect();
  std::array<char, 16> bytes{};
  {
    Overlap local;
    const std::uint32_t error =
        ReadFile(pipe, bytes.data(), static_cast<DWORD>(bytes.size()), nullptr, local.Overlapped())
            ? 0
            : GetLastError();
    EXPECT_EQ(local.Result(pipe, error, 0), 258U);
  }
  Write(5);
  TestSupport::SleepMs(20);
  EXPECT_EQ(bytes[0], '\0');
}

}  // namespace
