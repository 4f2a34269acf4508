#pragma once

// The result of a call into the client library. Each cause has a value of its own, so that a caller can
// distinguish an absent server from one that refuses, and refused access is never mistaken for an empty list.

#include <cstdint>

namespace TamLogClient {

enum class Status : std::uint8_t {
  Ok,
  NotRunning,     // no server answers, or nothing is shared
  AccessDenied,   // the system refused access to the pipe, the mapping or the file
  TimedOut,       // no answer within the caller's time-out
  Unsteady,       // the log changed faster than it could be copied within the caller's time-out
  Stuck,          // the server waits for a reader of another program, which has probably died
  Refused,        // the server answered that the request failed or is unknown to it
  NoSuchFilter,   // the index is after the last filter
  BadValue,       // a value that the server or the file format does not allow; nothing was sent or written
  TooLong,        // a text does not fit its field; nothing was sent
  Disconnected,   // the connection ended after the request was sent: whether it was carried out is not known
  Damaged,        // some bytes break the rules of the log file; what could be read was read
  InPage,         // the system could not read the shared file's pages
  NotFound,       // the named file, or the directory of a file to be written, does not exist
  NotALog,        // the file holds something else than a log
  NotAFile,       // the name is that of a directory, or to be written, of a device
  Exists,         // the file to be written already exists, and was not to be replaced
  NotSupported,   // this operating system has no live server
  ForeignEvents,  // the shared log names events that are not the server's; none of them was touched
  Interrupted,    // the caller ended the work before it was complete
  SystemError,    // any other failure of a system call
};

// Returns a short English phrase without a full stop, for example "the server is not running". It states the
// fact only; advice belongs to the program that shows it.
const char* StatusText(Status status);

// Messages were read: all of them (Ok), or what a damaged log still has (Damaged).
constexpr bool Readable(Status status) {
  return status == Status::Ok || status == Status::Damaged;
}

}  // namespace TamLogClient
