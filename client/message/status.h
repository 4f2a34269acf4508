#pragma once

// What became of a call into the client library: one value per cause, so that a caller can tell a server that
// is not there from one that refuses, and refused access is never mistaken for an empty list.

#include <cstdint>

namespace TamLogClient {

enum class Status : std::uint8_t {
  Ok,
  NotRunning,    // no server answers, or nothing is shared
  AccessDenied,  // the system refused access to the pipe, the mapping or the file
  TimedOut,      // no answer within the caller's time-out
  Stuck,         // a lock of the sharing protocol was not given back in time: its holder has probably died
  Refused,       // the server answered that the request failed or is unknown to it
  NoSuchFilter,  // the index lies behind the last filter
  BadValue,      // a value that the server would accept to its own harm; nothing was sent
  TooLong,       // a text does not fit its field; nothing was sent
  Disconnected,  // the connection ended after the request was sent: whether it was carried out is not known
  Damaged,       // bytes that break the rules of the log file were met
  InPage,        // the system could not read the shared file's pages
  NotFound,      // the named file does not exist
  NotSupported,  // this operating system has no live server
  SystemError,   // any other failure of a system call
};

// Whether data were read: all of them, or what is readable of damaged ones.
constexpr bool Readable(Status status) {
  return status == Status::Ok || status == Status::Damaged;
}

// A short English phrase without a full stop, for example "the server is not running".
const char* StatusText(Status status);

}  // namespace TamLogClient
