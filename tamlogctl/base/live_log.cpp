#include "tamlogctl/base/live_log.h"

#include "client/file/log_file_image.h"
#include "client/live/log_reader.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"

namespace TamLogCtl {

using TamLogClient::LogSnapshot;
using TamLogClient::Status;

Status ReadLiveLog(std::uint32_t timeoutMs, LogSnapshot& snapshot) {
  DeferInterrupts();
  TamLogClient::LogReader reader;
  const Status status = reader.Open();
  return status == Status::Ok ? reader.Snapshot(snapshot, timeoutMs) : status;
}

int ReadLiveImage(std::uint32_t timeoutMs, std::string& bytes) {
  LogSnapshot snapshot;
  const Status status = ReadLiveLog(timeoutMs, snapshot);
  if (!Readable(status)) return Refuse(status);
  bytes = ImageOf(snapshot);
  return kDone;
}

}  // namespace TamLogCtl
