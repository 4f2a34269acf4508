#include "tamlogctl/live_image.h"

#include "client/log_file_image.h"
#include "client/log_reader.h"
#include "tamlogctl/console.h"
#include "tamlogctl/exit_code.h"

namespace TamLogCtl {

using TamLogClient::Status;

int ReadLiveImage(std::uint32_t timeoutMs, std::string& bytes) {
  DeferInterrupts();  // read access must be given back whatever happens
  TamLogClient::LogReader reader;
  TamLogClient::LogSnapshot snapshot;
  Status status = reader.Open();
  if (status == Status::Ok) status = reader.Snapshot(snapshot, timeoutMs);
  reader.Close();
  if (status != Status::Ok && status != Status::Damaged) {
    Say(StatusText(status));
    return ExitCodeOf(status);
  }
  bytes = ImageOf(snapshot);
  return kDone;
}

}  // namespace TamLogCtl
