// stats on the log of a running server.

#include "client/live/log_reader.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/read/follow.h"
#include "tamlogctl/read/stats.h"

namespace TamLogCtl {

int CollectLive(const StatsOptions& options, StatsCollector& collector) {
  using TamLogClient::Status;
  DeferInterrupts();  // read access must be given back whatever happens
  TamLogClient::LogReader reader;
  TamLogClient::LogSnapshot snapshot;
  Status status = reader.Open();
  if (status == Status::Ok) status = reader.Snapshot(snapshot, options.timeoutMs);
  reader.Close();
  if (Interrupted()) return kInterrupted;
  if (!Readable(status)) return ExplainStatus(status);
  collector.AddRing(snapshot.header);
  for (const std::uint32_t slot : snapshot.RingOrder()) collector.Add(snapshot.slots[slot]);
  return ExitCodeOf(status);
}

}  // namespace TamLogCtl
