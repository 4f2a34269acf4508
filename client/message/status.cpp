#include "client/message/status.h"

namespace TamLogClient {

const char* StatusText(Status status) {
  switch (status) {
    case Status::Ok:
      return "done";
    case Status::NotRunning:
      return "the server is not running";
    case Status::AccessDenied:
      return "access denied";
    case Status::TimedOut:
      return "no answer in time";
    case Status::Unsteady:
      return "the log changes faster than it can be copied";
    case Status::Stuck:
      return "the server waits for a reader of its log, which has probably died";
    case Status::Refused:
      return "the server refused the request";
    case Status::NoSuchFilter:
      return "no such filter";
    case Status::BadValue:
      return "the value is not allowed";
    case Status::TooLong:
      return "the text is too long";
    case Status::Disconnected:
      return "the connection ended before the answer came";
    case Status::Damaged:
      return "the log is damaged";
    case Status::InPage:
      return "the system could not read the shared log";
    case Status::NotFound:
      return "no such file";
    case Status::NotALog:
      return "not a log";
    case Status::NotAFile:
      return "not a file";
    case Status::Exists:
      return "already exists";
    case Status::NotSupported:
      return "this operating system has no log server";
    case Status::ForeignEvents:
      return "the shared log names events that are not the server's";
    case Status::Interrupted:
      return "interrupted";
    case Status::SystemError:
      return "a system call failed";
  }
  return "unknown status";
}

}  // namespace TamLogClient
