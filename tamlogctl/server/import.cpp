#include "tamlogctl/server/import.h"

#include <algorithm>
#include <string>
#include <vector>

#include "client/file/log_file_image.h"
#include "client/file/log_file_verify.h"
#include "client/live/log_client.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/live_log.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/base/wait.h"
#include "tamlogctl/server/import_reader.h"
#include "tamlogctl/server/message_counts.h"

namespace TamLogCtl {

namespace {

using TamLogClient::IdentityOf;
using TamLogClient::LogClient;
using TamLogClient::MessageIdentity;
using TamLogClient::Status;

// A message reaches the server's file within one flush; a stop before that loses it.
constexpr std::uint32_t kFlushMs = 200;
constexpr std::uint32_t kSettleMs = 2 * kFlushMs + 100;

class Import {
 public:
  explicit Import(const ImportOptions& chosen)
      : options(chosen), client({kRequestPipeName, chosen.timeoutMs}) {}

  int Run();

 private:
  int ReadAll();
  bool CountLog(MessageCounts& counts) const;
  MessageCounts MissingOf(const MessageCounts& there, std::size_t first, std::size_t end) const;
  int SendAll();
  int Recover();
  int WaitForServer(MessageCounts& there);
  int Send(std::size_t index);
  bool Pace();
  int Finish();
  std::size_t StoredOf(MessageCounts there) const;

  const ImportOptions& options;
  LogClient client;
  std::vector<LogMessageBody> messages;
  MessageCounts before;           // the messages of the log at the start
  std::uint64_t connections = 0;  // of the client, up to the last loss that was handled
  std::vector<bool> refused;
  std::vector<std::uint64_t> sentAt;  // ticks
  std::size_t next = 0;
  std::size_t mostInFlush = 1;  // half of the number of messages that a flush would write in reverse
  std::size_t inFlush = 0;
  std::size_t refusals = 0;
  std::size_t sentAgain = 0;
  int exitCode = kDone;
};

int Import::ReadAll() {
  exitCode = ReadImports(options.files, options.input, messages);
  refused.resize(messages.size());
  sentAt.resize(messages.size());
  return HasOutput(exitCode) ? kDone : exitCode;
}

bool Import::CountLog(MessageCounts& counts) const {
  TamLogClient::LogSnapshot snapshot;
  if (ReadLiveLog(options.timeoutMs, snapshot) != Status::Ok) return false;
  counts = CountsOf(snapshot);
  return true;
}

// A flush of as many messages as the ring holds writes them newest first, and the next start of the server
// would empty such a log. So at most half as many are sent before a flush is waited for. Returns false when
// interrupted.
bool Import::Pace() {
  if (++inFlush < mostInFlush) return true;
  inFlush = 0;
  return SleepFor(kFlushMs + kFlushMs / 2);
}

int Import::Send(std::size_t index) {
  const Status status = client.Submit(messages[index]);
  sentAt[index] = Ticks();
  if (status == Status::Ok) return kDone;
  if (status == Status::Refused || status == Status::BadValue || status == Status::TooLong) {
    refused[index] = true;
    if (refusals++ == 0) Say("message " + std::to_string(index + 1) + ": " + StatusText(status));
    return kDone;
  }
  return ExitCodeOf(status);
}

// Returns how many copies of the messages from `first` to `end` the log lacks. Equal messages cannot be
// distinguished, so all copies that were sent up to `end` are counted.
MessageCounts Import::MissingOf(const MessageCounts& there, std::size_t first, std::size_t end) const {
  MessageCounts missing;
  for (std::size_t i = first; i < end; ++i) missing[IdentityOf(messages[i])] = 0;
  for (std::size_t i = 0; i < end; ++i) {
    const auto entry = missing.find(IdentityOf(messages[i]));
    if (entry != missing.end() && !refused[i]) ++entry->second;
  }
  const auto countIn = [](const MessageCounts& counts, const MessageIdentity& identity) {
    const auto entry = counts.find(identity);
    return entry == counts.end() ? std::uint64_t{0} : entry->second;
  };
  for (auto& [identity, count] : missing) {
    const std::uint64_t now = countIn(there, identity);
    const std::uint64_t arrived = now - std::min(now, countIn(before, identity));
    count -= std::min(count, arrived);
  }
  return missing;
}

// After a lost connection. What was sent within the last flushes may be lost with it, and whether the last
// message arrived is unknown: the log is read to see what is there, and the rest is sent again.
int Import::Recover() {
  client.Disconnect();
  const std::uint64_t lostAt = Ticks();
  if (!options.quiet)
    Say("the connection was lost after " + std::to_string(next) + " messages; waiting for the server");
  MessageCounts there;
  if (const int code = WaitForServer(there); code != kDone) return code;
  connections = client.Connections();
  const std::size_t reached = std::min(next + 1, messages.size());
  std::size_t first = next;
  while (first > 0 && lostAt - sentAt[first - 1] < 2 * std::uint64_t{kSettleMs}) --first;
  MessageCounts missing = MissingOf(there, first, reached);
  for (std::size_t i = first; i < reached; ++i) {
    std::uint64_t& copies = missing[IdentityOf(messages[i])];
    if (refused[i] || copies == 0) continue;
    --copies;
    if (const int code = Send(i); code != kDone) return code;
    ++sentAgain;
    if (!Pace()) return kInterrupted;
  }
  next = reached;
  return kDone;
}

// Waits until the server answers and its log, which is counted into `there`, can be read.
int Import::WaitForServer(MessageCounts& there) {
  if (!SleepFor(kSettleMs)) return kInterrupted;
  const auto isBack = [this, &there] {
    if (client.Ping() == Status::Ok && CountLog(there)) return true;
    client.Disconnect();
    return false;
  };
  const int waited = WaitUntil(std::uint64_t{options.retrySeconds} * 1000, kSettleMs, isBack);
  return waited == kTimedOut ? Refuse(kNotThere, "the server did not come back") : waited;
}

int Import::SendAll() {
  Progress progress("sending messages", messages.size());
  int losses = 0;
  for (;;) {
    // A short restart of the server may be over, and the client connected again, before a message fails. That
    // can also happen while lost messages are sent again.
    const bool reconnected = client.Connections() != connections;
    if (!reconnected && next == messages.size()) return kDone;
    progress.Show(next);
    if (Interrupted()) return kInterrupted;
    int code = kDone;
    if (!reconnected) {
      code = Send(next);
      if (code == kDone) {
        ++next;
        if (!Pace()) return kInterrupted;
        continue;
      }
    }
    constexpr int kMostLosses = 100;
    if (code == kAccessDenied || ++losses > kMostLosses) {
      return Refuse(code == kDone ? kTimedOut : code,
                    "message " + std::to_string(next + 1) + ": the server cannot be reached");
    }
    if (const int recovered = Recover(); recovered == kInterrupted || recovered == kNotThere)
      return recovered;
  }
}

int Import::Finish() {
  if (!SleepFor(kSettleMs)) return kInterrupted;
  TamLogClient::LogSnapshot log;
  if (ReadLiveLog(options.timeoutMs, log) != Status::Ok)
    return Refuse(kTimedOut,
                  "all messages were sent, but the log cannot be read, so what was stored is unknown");
  const std::size_t stored = StoredOf(CountsOf(log));
  const std::size_t gone = messages.size() - refusals - stored;
  if (!options.quiet) {
    Say(std::to_string(messages.size()) + " messages sent: " + std::to_string(stored) + " in the log, " +
        std::to_string(gone) + " not, " + std::to_string(refusals) + " refused" +
        (sentAgain > 0 ? "; " + std::to_string(sentAgain) + " were sent again after lost connections" : ""));
  }
  if (gone > 0)
    Say("the missing messages were dropped by a filter or a disabled type, or are older than the log can "
        "hold");
  const std::string bytes = ImageOf(log);
  const auto report = VerifyLogFile(TamLogClient::LogFileImage(bytes), {.most = 1, .live = true});
  if (!report.Accepted())
    Say("the log is now stored newest first; the next restart of the server would empty it: export it first");
  if (refusals > 0) return kRefused;
  return gone > 0 ? WorseOf(exitCode, kNegative) : exitCode;
}

// Returns how many of the messages are among `there`.
std::size_t Import::StoredOf(MessageCounts there) const {
  std::size_t stored = 0;
  for (std::size_t i = 0; i < messages.size(); ++i) {
    if (refused[i]) continue;
    const auto found = there.find(IdentityOf(messages[i]));
    if (found == there.end() || found->second == 0) continue;
    --found->second;
    ++stored;
  }
  return stored;
}

int Import::Run() {
  if (const int code = ReadAll(); code != kDone) return code;
  DeferInterrupts();
  SettingsBody settings{};
  if (const Status status = client.GetSettings(settings); status != Status::Ok) return Refuse(status);
  connections = client.Connections();
  mostInFlush = std::max<std::size_t>(1, settings.maxMessage / 2);
  if (!CountLog(before)) return Refuse(kTimedOut, "the server's log cannot be read");
  const int code = SendAll();
  if (code == kDone) return Finish();
  return Refuse(code,
                std::to_string(next) + " of " + std::to_string(messages.size()) + " messages were sent");
}

}  // namespace

int ImportFiles(const ImportOptions& options) {
  Import run(options);
  return run.Run();
}

}  // namespace TamLogCtl
