#include "tamlogctl/server/clear.h"

#include "client/live/log_client.h"
#include "client/live/log_reader.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/server/backup.h"
#include "tamlogctl/server/live_server.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogClient;
using TamLogClient::LogReader;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;

Status ReadLog(const ClearOptions& options, LogSnapshot& snapshot) {
  LogReader reader;
  const Status status = reader.Open();
  return status == Status::Ok ? reader.Snapshot(snapshot, options.timeoutMs) : status;
}

// Asks on the terminal; false when the user does not say yes.
bool Ask(ClearOptions& options) {
  std::string line;
  if (options.backup.empty()) {
    WriteErr("Save the messages in which file first? (empty: nowhere) ");
    if (!ReadLine(line)) return false;
    options.backup = line;
  }
  const auto capacity = CapacityInEffect();
  WriteErr(capacity ? "Empty the log, all of it? [y/N] " : "Empty the log, which cannot be seen now? [y/N] ");
  return ReadLine(line) && (line == "y" || line == "Y" || line == "yes");
}

// Right before the request: what comes in between is in neither place.
int Save(const ClearOptions& options) {
  LogSnapshot snapshot;
  if (const Status status = ReadLog(options, snapshot); status != Status::Ok) {
    return Refuse(status, "the log cannot be saved, and was not emptied");
  }
  if (const Status status = WriteBackup(options.backup, snapshot); status != Status::Ok) {
    return Refuse(TargetExitCode(status),
                  TargetProblem(options.backup, status) + "; the log was not emptied");
  }
  Say(std::to_string(snapshot.header.messageCount) + " messages are saved in " + options.backup);
  return kDone;
}

}  // namespace

int Clear(const ClearOptions& given) {
  ClearOptions options = given;
  if (!options.yes) {
    if (!StdinIsTerminal())
      return Refuse(kUsage, "nobody can be asked whether the log is to be emptied: add --yes");
    if (!Ask(options)) return Refuse(kNegative, "nothing was done");
  }
  DeferInterrupts();
  LogClient client({kRequestPipeName, options.timeoutMs});
  if (const Status status = client.Ping(); status != Status::Ok) return Refuse(status, "clear");
  if (!WaitForFlush()) return kInterrupted;
  if (!options.backup.empty()) {
    if (const int exitCode = Save(options); exitCode != kDone) return exitCode;
  }
  const Status status = client.ClearLog();
  if (status != Status::Ok) {
    return Refuse(status, status == Status::TimedOut
                              ? "clear: the server may still do it when its readers let it"
                              : "clear");
  }
  if (!options.wait) {
    Say("emptied; the server restarts in a second");
    return kDone;
  }
  const Status back = RestartWatch(client).Wait();
  if (Interrupted()) return kInterrupted;
  if (back != Status::Ok) return Refuse(back, "emptied, but the server did not come back from its restart");
  Say("emptied");
  return kDone;
}

}  // namespace TamLogCtl
