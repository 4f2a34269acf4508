#pragma once

// The result of an operation on a file: a status, and for a failure the system's own reason in words.

#include <string>
#include <utility>

#include "client/message/status.h"

namespace TamLogClient {

class FileStatus {
 public:
  FileStatus(Status value = Status::Ok) : status(value) {}  // implicit: most results need no reason
  FileStatus(Status value, std::string systemReason) : status(value), reason(std::move(systemReason)) {}

  operator Status() const { return status; }

  // Returns the system's reason (UTF-8, without a full stop), for example "No space left on device"; the
  // status in words where the system gave none or the status already says the same.
  std::string Reason() const { return reason.empty() ? StatusText(status) : reason; }
  bool HasReason() const { return !reason.empty(); }

 private:
  Status status;
  std::string reason;
};

}  // namespace TamLogClient
