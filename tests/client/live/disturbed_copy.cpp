#include "tests/client/live/disturbed_copy.h"

#include <atomic>
#include <cstddef>
#include <random>
#include <utility>

#include "client/live/guarded_copy.h"
#include "client/message/win32.h"
#include "records/log_file_format.h"

namespace {

std::atomic<int> disturbedOneIn{0};
std::atomic<std::uint32_t> delayMs{0};
std::atomic<bool> delayed{false};
std::atomic<void (*)()> beforeCopies{nullptr};
thread_local TamLogTest::CopyCalls calls;

void NoteCall(std::size_t bytes, std::size_t stride) {
  if (stride != 0) {
    ++calls.compared;
  } else if (bytes == sizeof(std::uint64_t)) {
    ++calls.begun;
  }
}

}  // namespace

extern "C" std::uint32_t __real_TamLogClientGuardedCopy(void*, const void*, std::size_t, std::size_t);
extern "C" std::uint32_t __wrap_TamLogClientGuardedCopy(void* to, const void* from, std::size_t bytes,
                                                        std::size_t stride);

extern "C" std::uint32_t __wrap_TamLogClientGuardedCopy(void* to, const void* from, std::size_t bytes,
                                                        std::size_t stride) {
  thread_local std::minstd_rand random(GetCurrentThreadId());
  NoteCall(bytes, stride);
  if (void (*const call)() = beforeCopies; call != nullptr && (stride != 0 || bytes >= sizeof(LogMessage)))
    call();
  const std::uint32_t delay = bytes >= sizeof(LogMessage) ? delayMs.exchange(0) : 0;
  const int oneIn = disturbedOneIn;
  const bool disturbed = oneIn != 0 && bytes > 8 && random() % static_cast<unsigned>(oneIn) == 0;
  if (delay == 0 && !disturbed) return __real_TamLogClientGuardedCopy(to, from, bytes, stride);
  const std::size_t words = bytes / 8;
  const std::size_t cut = random() % words * 8;
  auto* const target = static_cast<char*>(to);
  const auto* const source = static_cast<const char*>(from);
  const auto copy = [&](std::size_t begin, std::size_t end) {
    const std::size_t at = stride == 0 ? begin : begin / 8 * stride;
    return __real_TamLogClientGuardedCopy(target + begin, source + at, end - begin, stride);
  };
  const bool backwards = random() % 2 == 0;
  const std::uint32_t first = backwards ? copy(cut, bytes) : copy(0, cut);
  delayed = delayed || delay != 0;
  Sleep(delay != 0 ? delay : (random() % 16 == 0 ? 160 : random() % 3));
  const std::uint32_t second = backwards ? copy(0, cut) : copy(cut, bytes);
  return first != 0 ? first : second;
}

namespace TamLogTest {

void DisturbCopies(int oneIn) {
  disturbedOneIn = oneIn;
}

void DelayNextCopy(std::uint32_t milliseconds) {
  delayed = false;
  delayMs = milliseconds;
}

bool CopyIsDelayed() {
  return delayed;
}

void CallBeforeCopies(void (*call)()) {
  beforeCopies = call;
}

CopyCalls TakeCopyCalls() {
  return std::exchange(calls, {});
}

}  // namespace TamLogTest
