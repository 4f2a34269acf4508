#pragma once

// The exit codes of tamlogctl. Scripts rely on them: a code never changes its meaning, and the same situation
// has the same code in every verb.
//
// Usage:
//
//   if (!known) return Refuse(kUsage, "--tz '" + name + "': expected written, local or utc");
//   if (status != Status::Ok) return Refuse(status, "filter add");
//   for (const auto& file : files) exitCode = WorseOf(exitCode, Print(file));

#include <string>
#include <string_view>

#include "client/message/status.h"

namespace TamLogCtl {

inline constexpr int kDone = 0;
inline constexpr int kNegative = 1;  // the answer is no: no match, not stored, a finding, the user declined
inline constexpr int kUsage = 2;     // a wrong option, value or input, or the target exists; nothing was done
inline constexpr int kNotThere = 3;  // no server, no service, or no such file
inline constexpr int kAccessDenied = 4;   // the system refused access
inline constexpr int kTimedOut = 5;       // the server, or a lock of the shared log, was not free in time
inline constexpr int kRefused = 6;        // the server or the service manager refused
inline constexpr int kDamaged = 7;        // damaged data were met; the readable part was output
inline constexpr int kOutputFailed = 8;   // output, or the connection to the server, failed
inline constexpr int kNotALog = 9;        // the file holds something else than a log; nothing was output
inline constexpr int kInterrupted = 130;  // Ctrl-C; everything held was released first

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
    case Status::Unsteady:
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
    case Status::ForeignEvents:
    case Status::InPage:
      return kDamaged;
    case Status::NotALog:
      return kNotALog;
    case Status::Interrupted:
      return kInterrupted;
    case Status::Disconnected:
    case Status::SystemError:
      return kOutputFailed;
  }
  return kOutputFailed;
}

// Returns whether a verb that ends with this code has output its data: it is done, or the data are damaged.
constexpr bool HasOutput(int exitCode) {
  return exitCode == kDone || exitCode == kDamaged;
}

// Returns the code of two steps together. From good to bad: done, a negative answer, damage, every other
// code. Of two codes that are equally bad the one of the first step stays.
constexpr int WorseOf(int first, int second) {
  const auto badness = [](int exitCode) {
    if (exitCode == kDone) return 0;
    if (exitCode == kNegative) return 1;
    return exitCode == kDamaged ? 2 : 3;
  };
  return badness(second) > badness(first) ? second : first;
}

// Writes `line` to stderr, with the program's name in front, and returns `exitCode`.
int Refuse(int exitCode, std::string_view line);

// Returns the status in words, with advice to the user: "no answer in time; see: tamlogctl doctor".
std::string Explain(TamLogClient::Status status);

// Writes Explain(status) to stderr, after `what` and a colon unless `what` is empty. Returns the exit code.
int Refuse(TamLogClient::Status status, const std::string& what = {});

}  // namespace TamLogCtl
