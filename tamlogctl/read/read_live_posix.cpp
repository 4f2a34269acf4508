// Reading the log of a running server, on systems that have none.

#include "tamlogctl/base/no_server.h"
#include "tamlogctl/read/export.h"
#include "tamlogctl/read/show.h"
#include "tamlogctl/read/stats.h"

namespace TamLogCtl {

int ShowLive(const ShowOptions& /*options*/) {
  return NoServerHere();
}

int CollectLive(const StatsOptions& /*options*/, StatsCollector& /*collector*/) {
  return NoServerHere();
}

int FollowExport(const ExportOptions& /*options*/) {
  return NoServerHere();
}

}  // namespace TamLogCtl
