// The memory that an open takes while it brings a full log to another capacity.

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "records/log_file_format.h"
#include "store/message_file_server.h"
#include "store/server_configuration.h"
#include "tests/native/machine.h"
#include "util/sync.h"
#include "util/timeout.h"

namespace {

std::atomic<std::size_t> heapBytes{0};
std::atomic<std::size_t> heapPeak{0};

// The size of a block is stored before it.
constexpr std::size_t kPrefix = alignof(std::max_align_t);

void* Allocate(std::size_t size) {
  char* const block = static_cast<char*>(std::malloc(kPrefix + size));
  if (block == nullptr) throw std::bad_alloc();
  std::memcpy(block, &size, sizeof size);
  const std::size_t now = heapBytes += size;
  std::size_t peak = heapPeak;
  while (peak < now && !heapPeak.compare_exchange_weak(peak, now)) {
  }
  return block + kPrefix;
}

void Free(void* memory) noexcept {
  if (memory == nullptr) return;
  char* const block = static_cast<char*>(memory) - kPrefix;
  std::size_t size = 0;
  std::memcpy(&size, block, sizeof size);
  heapBytes -= size;
  std::free(block);
}

}  // namespace

void* operator new(std::size_t size) {
  return Allocate(size);
}
void* operator new[](std::size_t size) {
  return Allocate(size);
}
void operator delete(void* block) noexcept {
  Free(block);
}
void operator delete[](void* block) noexcept {
  Free(block);
}
void operator delete(void* block, std::size_t /*size*/) noexcept {
  Free(block);
}
void operator delete[](void* block, std::size_t /*size*/) noexcept {
  Free(block);
}

namespace {

constexpr char kPath[] = "C:\\Logs.dat";
constexpr std::uint32_t kMillion = 1000000;
constexpr std::size_t kBytesPerSlot = 12;
constexpr std::size_t kFixedPart = std::size_t{1} << 20;

// A log with `capacity` slots in its header, all of them in use, in a file of `slotsInFile`. All messages are
// zeros, which is sound: they have the same time. The machine's files take no heap, and pages that are only
// read take no memory.
void MakeFullLog(std::uint32_t capacity, std::uint32_t slotsInFile) {
  NativeMachine::Reset();
  LogFileHeader header = {};
  header.maxMessages = static_cast<std::int32_t>(capacity);
  header.messageCount = header.maxMessages;
  header.nextSequence = capacity;
  std::string head(sizeof header, '\0');
  std::memcpy(head.data(), &header, sizeof header);
  NativeMachine::WriteFile(kPath, head, LogFileSize(slotsInFile));
}

// The most bytes on the heap during an open with `capacity`, beyond those before it.
std::size_t HeapPeakOfOpen(std::uint32_t capacity) {
  ServerConfiguration configuration;
  configuration.logFile = kPath;
  configuration.maxMessage = capacity;
  TamLogUtil::Mutex configLock;
  MessageFileServer server(&configuration, &configLock);
  const std::size_t before = heapBytes;
  heapPeak = before;
  server.OpenFile(kFileMapName, kHeaderLockName, kReadWaitEventName, kWriteWaitEventName);
  const std::size_t peak = heapPeak - before;
  server.CloseFile(TamLogUtil::Timeout::Infinite);
  return peak;
}

void ExpectOneMirror(std::uint32_t messages, std::uint32_t capacity) {
  SCOPED_TRACE(capacity);
  const std::size_t peak = HeapPeakOfOpen(capacity);
  std::printf("%u messages, opened with %u slots: %.2f MiB\n", messages, capacity,
              static_cast<double>(peak) / (1 << 20));
  EXPECT_LT(peak, kBytesPerSlot * messages + kFixedPart);
}

TEST(CapacityChange, OfAMillionMessagesHoldsTheirOrderOnly) {
  for (const std::uint32_t capacity : {kMillion, std::uint32_t{50000}, std::uint32_t{1}}) {
    MakeFullLog(kMillion, kMillion);
    ExpectOneMirror(kMillion, capacity);
  }
}

TEST(CapacityChange, ThatKeepsAllMessagesHoldsTheirOrderOnly) {
  constexpr std::uint32_t kKept = 100000;
  MakeFullLog(kKept, kKept + 1);
  ExpectOneMirror(kKept, kKept + 1);
}

}  // namespace
