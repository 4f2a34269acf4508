#include "tamlogctl/server/clear.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "client/live/log_client.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/counted.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/file_problem.h"
#include "tamlogctl/base/live_log.h"
#include "tamlogctl/server/backup.h"
#include "tamlogctl/server/live_server.h"
#include "tamlogctl/server/settings_text.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogClient;
using TamLogClient::Status;

// Asks on the terminal; returns false unless the user says yes.
bool Ask(ClearOptions& options) {
  const auto header = SharedHeader();
  if (!Confirmed(header ? EmptyQuestion(header->messageCount) : "Empty the log, which cannot be read now?"))
    return false;
  if (!options.backup.empty()) return true;
  WriteErr("File to save the messages in first (empty: do not save them): ");
  return ReadLine(options.backup);
}

// Called right before the request: a message that arrives in between is neither in the file nor in the log.
int Save(const ClearOptions& options) {
  TamLogClient::LogSnapshot snapshot;
  const Status status = ReadLiveLog(options.timeoutMs, snapshot);
  const int exitCode = status == Status::Ok ? WriteBackup(options.backup, snapshot, "give another name")
                                            : Refuse(status, "the log cannot be saved");
  if (exitCode != kDone) return Refuse(exitCode, "the log was not emptied");
  const auto count = static_cast<std::uint64_t>(std::max(snapshot.header.messageCount, 0));
  Say(CountedAre(count, "message") + " saved in " + options.backup +
      "; to bring them back: tamlogctl import \"" + options.backup + "\"");
  return kDone;
}

// Empties the log, and waits until the server is back unless the options say otherwise.
int EmptyLog(LogClient& client, bool wait) {
  const Status status = client.ClearLog();
  if (status == Status::TimedOut)
    return Refuse(status, "clear: the server may still do it after its readers have left");
  if (status != Status::Ok) return Refuse(status, "clear");
  if (!wait) {
    Say("emptied; the server restarts within a second");
    return kDone;
  }
  RestartWatch watch(client);
  const Status back = watch.Wait();
  if (Interrupted()) return kInterrupted;
  if (back != Status::Ok)
    return watch.Refuse(back, "emptied, but the server did not come back from its restart");
  Say("emptied");
  return kDone;
}

}  // namespace

int Clear(const ClearOptions& given) {
  ClearOptions options = given;
  if (!options.yes) {
    if (!StdinIsTerminal())
      return Refuse(kUsage, "standard input is not a terminal, so nothing can be asked: add --yes");
    if (!Ask(options)) return Refuse(kNegative, "nothing was done");
  }
  DeferInterrupts();
  LogClient client({kRequestPipeName, options.timeoutMs});
  if (const Status status = client.Ping(); status != Status::Ok) return Refuse(status, "clear");
  if (!WaitForFlush()) return kInterrupted;
  if (!options.backup.empty()) {
    if (const int exitCode = Save(options); exitCode != kDone) return exitCode;
  }
  return EmptyLog(client, options.wait);
}

}  // namespace TamLogCtl
