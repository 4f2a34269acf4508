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
std::atomic<std::uint32_t> holdMs{0};
std::atomic<bool> held{false};
thread_local TamLogTest::CopyCalls calls;

void NoteCall(std::size_t bytes, std::size_t stride) {
  if (stride != 0) {
    ++calls.compared;
  } else if (bytes == sizeof(std::uint64_t)) {
    ++calls.begun;
  } else if (bytes == sizeof(std::int32_t)) {
    ++calls.counted;
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
  const std::uint32_t hold = bytes >= sizeof(LogMessage) ? holdMs.exchange(0) : 0;
  const int oneIn = disturbedOneIn;
  const bool disturbed = oneIn != 0 && bytes > 8 && random() % static_cast<unsigned>(oneIn) == 0;
  if (hold == 0 && !disturbed) return __real_TamLogClientGuardedCopy(to, from, bytes, stride);
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
  held = held || hold != 0;
  Sleep(hold != 0 ? hold : (random() % 16 == 0 ? 160 : random() % 3));
  const std::uint32_t second = backwards ? copy(0, cut) : copy(cut, bytes);
  return first != 0 ? first : second;
}

namespace TamLogTest {

void DisturbCopies(int oneIn) {
  disturbedOneIn = oneIn;
}

void HoldNextCopy(std::uint32_t milliseconds) {
  held = false;
  holdMs = milliseconds;
}

bool CopyIsHeld() {
  return held;
}

CopyCalls TakeCopyCalls() {
  return std::exchange(calls, {});
}

}  // namespace TamLogTest
