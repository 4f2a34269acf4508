// The verbs of a running server, on systems that have none.

#include "tamlogctl/clear.h"
#include "tamlogctl/console.h"
#include "tamlogctl/doctor.h"
#include "tamlogctl/exit_code.h"
#include "tamlogctl/filter.h"
#include "tamlogctl/import.h"
#include "tamlogctl/import_reader.h"
#include "tamlogctl/live_image.h"
#include "tamlogctl/merge.h"
#include "tamlogctl/send.h"
#include "tamlogctl/server_control.h"
#include "tamlogctl/settings.h"
#include "tamlogctl/show.h"
#include "tamlogctl/stats.h"
#include "tamlogctl/status.h"

namespace TamLogCtl {

namespace {

int NoServerHere() {
  Say(StatusText(TamLogClient::Status::NotSupported));
  return ExitCodeOf(TamLogClient::Status::NotSupported);
}

}  // namespace

int ShowLive(const ShowOptions& /*options*/) {
  return NoServerHere();
}
int CollectLive(const StatsOptions& /*options*/, StatsCollector& /*collector*/) {
  return NoServerHere();
}
int ReadLiveImage(std::uint32_t /*timeoutMs*/, std::string& /*bytes*/) {
  return NoServerHere();
}
int FollowExport(const ExportOptions& /*options*/) {
  return NoServerHere();
}
// What is wrong with the files is told here as well.
int ImportFiles(const ImportOptions& options) {
  std::vector<LogMessageBody> messages;
  const int code = ReadImports(options.files, options.input, messages);
  return code == kDone || code == kDamaged ? NoServerHere() : code;
}
int Send(const SendOptions& /*options*/) {
  return NoServerHere();
}
int ShowStatus(const StatusOptions& /*options*/) {
  return NoServerHere();
}
int ListFilters(const FilterOptions& /*options*/) {
  return NoServerHere();
}
int AddFilters(const FilterOptions& /*options*/) {
  return NoServerHere();
}
int RemoveFilters(const FilterOptions& /*options*/) {
  return NoServerHere();
}
int ClearFilters(const FilterOptions& /*options*/) {
  return NoServerHere();
}
int SetFilters(const FilterOptions& /*options*/) {
  return NoServerHere();
}
int TestFilters(const FilterOptions& /*options*/) {
  return NoServerHere();
}
int GetSettings(const SettingsOptions& /*options*/) {
  return NoServerHere();
}
int SetSettings(const SettingsOptions& /*options*/) {
  return NoServerHere();
}
int SettingsPath(const SettingsOptions& /*options*/) {
  return NoServerHere();
}
int Clear(const ClearOptions& /*options*/) {
  return NoServerHere();
}
int StartServer(const ServerOptions& /*options*/) {
  return NoServerHere();
}
int StopServer(const ServerOptions& /*options*/) {
  return NoServerHere();
}
int RestartServer(const ServerOptions& /*options*/) {
  return NoServerHere();
}
int ShowServerState(const ServerOptions& /*options*/) {
  return NoServerHere();
}
int Doctor(const DoctorOptions& /*options*/) {
  return NoServerHere();
}

}  // namespace TamLogCtl
