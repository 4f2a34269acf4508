#include "client/live/consistent_read.h"

#include <algorithm>
#include <atomic>

#include "client/log/header_counters.h"

namespace TamLogClient {

namespace {

constexpr std::uint32_t kSliceMs = 100;

}  // namespace

std::optional<Status> ConsistentRead::Begin(std::uint32_t timeoutMs) {
  if (const Status status = WaitForWriter(timeoutMs); status != Status::Ok) return status;
  begun = log->Now();
  std::uint64_t changeCount = 0;
  if (!log->CopyChangeCount(changeCount)) return Status::InPage;
  std::atomic_thread_fence(std::memory_order_acquire);
  if (!log->CopyHeader(header)) return Status::InPage;
  if (header.serverRunning == 0) return Status::NotRunning;
  if (header.changeCount != changeCount) return std::nullopt;
  return Status::Ok;
}

// A server that stops waits for the processes that have its file open, so a long wait looks after it.
Status ConsistentRead::WaitForWriter(std::uint32_t timeoutMs) {
  if (log->WaitForWriter(0)) return Status::Ok;
  for (std::uint32_t left = timeoutMs;;) {
    const std::uint32_t slice = std::min(left, kSliceMs);
    if (log->WaitForWriter(slice)) return Status::Ok;
    left -= slice;
    if (!log->CopyHeader(header)) return Status::InPage;
    if (header.serverRunning == 0) return Status::NotRunning;
    if (left == 0) return header.readCount > 0 ? Status::Stuck : Status::TimedOut;
  }
}

bool ConsistentRead::IsInvalidated() {
  LogFileHeader now{};
  // Kept: a server that starts again sets `serverRunning` again, and the rest was not copied.
  invalidated =
      invalidated || log->Now() - begun > kLongestMs || !log->CopyHeader(now) || now.serverRunning == 0;
  return invalidated;
}

std::optional<Status> ConsistentRead::End() {
  if (invalidated) return std::nullopt;
  std::atomic_thread_fence(std::memory_order_acquire);
  if (!log->WaitForWriter(0)) return std::nullopt;
  std::atomic_thread_fence(std::memory_order_acquire);
  // The header is copied after the event was tested. In the other order a writer could publish in between.
  LogFileHeader now{};
  if (!log->CopyHeader(now)) return Status::InPage;
  if (now.serverRunning == 0) return Status::NotRunning;
  if (!SameCounters(header, now)) return std::nullopt;
  if (log->Now() - begun > kLongestMs) return std::nullopt;
  return Status::Ok;
}

}  // namespace TamLogClient
