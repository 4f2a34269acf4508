// The verbs that need a running server, on systems that have none.

#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/no_server.h"
#include "tamlogctl/server/clear.h"
#include "tamlogctl/server/doctor.h"
#include "tamlogctl/server/filter.h"
#include "tamlogctl/server/import.h"
#include "tamlogctl/server/import_reader.h"
#include "tamlogctl/server/send.h"
#include "tamlogctl/server/server_control.h"
#include "tamlogctl/server/settings.h"
#include "tamlogctl/server/status.h"

namespace TamLogCtl {

// Files that cannot be read are reported here as well.
int ImportFiles(const ImportOptions& options) {
  ReadingFilesOptions chosen = options;
  if (!CompleteChoice(chosen)) return kUsage;
  MessageSpool messages;
  const int code = ReadImports(options.files, chosen.choice, messages);
  return HasOutput(code) || code == kNegative ? NoServerHere() : code;
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

int InstallServer(const ServerOptions& /*options*/) {
  return NoServerHere();
}

int RemoveServer(const ServerOptions& /*options*/) {
  return NoServerHere();
}

int ShowServerState(const ServerOptions& /*options*/) {
  return NoServerHere();
}

int Doctor(const DoctorOptions& /*options*/) {
  return NoServerHere();
}

}  // namespace TamLogCtl
