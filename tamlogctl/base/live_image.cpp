#include "tamlogctl/base/live_image.h"

#include "client/file/log_file_image.h"
#include "client/live/log_reader.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"

namespace TamLogCtl {

using TamLogClient::Status;

int ReadLiveImage(std::uint32_t timeoutMs, std::string& bytes) {
  DeferInterrupts();  // read access must be given back whatever happens
  TamLogClient::LogReader reader;
  TamLogClient::LogSnapshot snapshot;
  Status status = reader.Open();
  if (status == Status::Ok) status = reader.Snapshot(snapshot, timeoutMs);
  reader.Close();
  if (!Readable(status)) return Refuse(status);
  bytes = ImageOf(snapshot);
  return kDone;
}

}  // namespace TamLogCtl
