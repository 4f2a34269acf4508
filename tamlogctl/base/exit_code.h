#pragma once

// The exit codes of tamlogctl, for scripts.

#include "client/message/status.h"

namespace TamLogCtl {

inline constexpr int kDone = 0;
inline constexpr int kNothingMatched = 1;
inline constexpr int kUsage = 2;
inline constexpr int kNotThere = 3;
inline constexpr int kAccessDenied = 4;
inline constexpr int kTimedOut = 5;
inline constexpr int kRefused = 6;
inline constexpr int kDamaged = 7;
inline constexpr int kOutputFailed = 8;
inline constexpr int kInterrupted = 130;

constexpr int ExitCodeOf(TamLogClient::Status status) {
  using TamLogClient::Status;
  switch (status) {
    case Status::Ok:
      return kDone;
    case Status::NotRunning:
    case Status::NotFound:
    case Status::NotAFile:
    case Status::NotSupported:
      return kNotThere;
    case Status::AccessDenied:
      return kAccessDenied;
    case Status::TimedOut:
    case Status::Stuck:
      return kTimedOut;
    case Status::Refused:
    case Status::NoSuchFilter:
      return kRefused;
    case Status::BadValue:
    case Status::TooLong:
    case Status::Exists:
      return kUsage;
    case Status::Damaged:
    case Status::InPage:
      return kDamaged;
    case Status::Interrupted:
      return kInterrupted;
    case Status::Disconnected:
    case Status::SystemError:
      return kOutputFailed;
  }
  return kOutputFailed;
}

}  // namespace TamLogCtl
