#pragma once

// Readers keep the mapped section of the log file alive until they notice that the server has closed it.
// While they do, a file cannot become smaller, and a new mapping of the same name is the old section. Our own
// readers notice within a quarter of a second. Scanners and backups open the file without sharing, for a
// moment. A start that failed at once would leave the server stopped.

#include <cstdint>
#include <utility>

#include "util/clock.h"
#include "util/exceptions.h"
#include "util/timeout.h"

// The time that one open waits for such programs, shared by its steps. One thread.
class SectionPatience {
 public:
  static constexpr std::uint32_t kMostMs = 2000;
  static constexpr std::uint32_t kPauseMs = 10;
  // The system's errors for an old section: ERROR_ALREADY_EXISTS, ERROR_USER_MAPPED_FILE; for a file that
  // another program does not share: ERROR_SHARING_VIOLATION. This header is also built natively.
  static constexpr std::uint32_t kSharingViolation = 32;
  static constexpr std::uint32_t kAlreadyExists = 183;
  static constexpr std::uint32_t kUserMappedFile = 1224;

  // Calls step(false), again after a pause whenever it throws ExceptionWindows because the file or an
  // old section is held, and step(true) once when the time is over. Rethrows every other exception, and that
  // of the last call.
  template <class Step>
  void Try(Step&& step) {
    TamLogUtil::Timeout timeout(remainingMs);
    while (!timeout.Expired()) {
      try {
        std::forward<Step>(step)(false);
        remainingMs = timeout.Remaining();
        return;
      } catch (const TamLogUtil::Exceptions::ExceptionWindows& failure) {
        if (!IsHeld(failure.ErrorCode())) throw;
      }
      TamLogUtil::SleepFor(kPauseMs);
    }
    remainingMs = 0;
    std::forward<Step>(step)(true);
  }

 private:
  static bool IsHeld(std::uint32_t error) {
    return error == kSharingViolation || error == kAlreadyExists || error == kUserMappedFile;
  }

  std::uint32_t remainingMs = kMostMs;
};
