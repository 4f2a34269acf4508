#include "tamlogctl/server/import.h"

#include <algorithm>
#include <deque>
#include <unordered_map>

#include "client/file/log_file_verify.h"
#include "client/live/log_client.h"
#include "client/live/log_reader.h"
#include "client/message/log_message_view.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/live_image.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/server/import_reader.h"

namespace TamLogCtl {

namespace {

using TamLogClient::IdentityOf;
using TamLogClient::LogClient;
using TamLogClient::MessageIdentity;
using TamLogClient::Status;
using Counts = std::unordered_map<MessageIdentity, std::uint64_t, TamLogClient::MessageIdentityHash>;

// What the server takes reaches its file within one flush; a stop before that forgets it.
constexpr std::uint32_t kFlushMs = 200;
constexpr std::uint32_t kSettleMs = 2 * kFlushMs + 100;

class Import {
 public:
  explicit Import(const ImportOptions& chosen)
      : options(chosen), client({kRequestPipeName, chosen.timeoutMs}) {}

  int Run();

 private:
  int ReadAll();
  bool CountLog(Counts& counts) const;
  Counts MissingOf(const Counts& there, std::size_t first, std::size_t end) const;
  int SendAll();
  int Recover();
  int Send(std::size_t index);
  bool Pace();
  int Finish();

  const ImportOptions& options;
  LogClient client;
  std::vector<LogMessageBody> messages;
  Counts before;                  // what the log held at the start
  std::uint64_t connections = 0;  // of the client, as far as losses were looked after
  std::vector<bool> refused;
  std::vector<std::uint64_t> sentAt;  // ticks
  std::size_t next = 0;
  std::size_t tooMany = 1;  // so many within one flush would lay the log down in reverse
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

bool Import::CountLog(Counts& counts) const {
  TamLogClient::LogReader reader;
  TamLogClient::LogSnapshot snapshot;
  if (reader.Open() != Status::Ok || reader.Snapshot(snapshot, options.timeoutMs) != Status::Ok) return false;
  reader.Close();
  for (const std::uint32_t slot : snapshot.RingOrder()) ++counts[IdentityOf(snapshot.slots[slot].body)];
  return true;
}

// A flush of as many messages as the ring holds lays it down newest first, which costs the log at the next
// start. Half of that is sent at most before a flush is waited for.
bool Import::Pace() {
  if (++inFlush < tooMany) return true;
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

// How many copies of the messages from `first` to `end` the log lacks. Equal messages cannot be told apart,
// so all that were handed in are counted.
Counts Import::MissingOf(const Counts& there, std::size_t first, std::size_t end) const {
  Counts missing;
  for (std::size_t i = first; i < end; ++i) missing[IdentityOf(messages[i])] = 0;
  for (std::size_t i = 0; i < end; ++i) {
    const auto entry = missing.find(IdentityOf(messages[i]));
    if (entry != missing.end() && !refused[i]) ++entry->second;
  }
  const auto countIn = [](const Counts& counts, const MessageIdentity& identity) {
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

// The connection is lost. What was sent within the last flushes may be lost with it, and whether the last
// message arrived is not known: the log says what is there, and the rest is sent again.
int Import::Recover() {
  client.Disconnect();
  const std::uint64_t lostAt = Ticks();
  if (!options.quiet)
    Say("the connection is lost after " + std::to_string(next) + " messages; waiting for the server");
  Counts there;
  for (;;) {
    if (!SleepFor(kSettleMs)) return kInterrupted;
    there.clear();
    if (client.Ping() == Status::Ok && CountLog(there)) break;
    client.Disconnect();
    if (Ticks() - lostAt > std::uint64_t{options.retrySeconds} * 1000) {
      return Refuse(kNotThere, "the server did not come back; " + std::to_string(next) + " of " +
                                   std::to_string(messages.size()) + " messages were handed in");
    }
  }
  connections = client.Connections();
  const std::size_t reached = std::min(next + 1, messages.size());
  std::size_t first = next;
  while (first > 0 && lostAt - sentAt[first - 1] < 2 * std::uint64_t{kSettleMs}) --first;
  Counts missing = MissingOf(there, first, reached);
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

int Import::SendAll() {
  Progress progress("handing in messages", messages.size());
  int losses = 0;
  for (;;) {
    // A restart of the server may have been so short that the client was connected again before it was
    // missed, also while lost messages were sent again.
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
  Counts there;
  std::string bytes;
  if (!CountLog(there) || ReadLiveImage(options.timeoutMs, bytes) != kDone) {
    return Refuse(kTimedOut, "handed in, but the log cannot be read, so what was stored is not known");
  }
  std::size_t stored = 0;
  for (std::size_t i = 0; i < messages.size(); ++i) {
    if (refused[i]) continue;
    const auto found = there.find(IdentityOf(messages[i]));
    if (found == there.end() || found->second == 0) continue;
    --found->second;
    ++stored;
  }
  const std::size_t gone = messages.size() - refusals - stored;
  if (!options.quiet) {
    Say(std::to_string(messages.size()) + " messages handed in: " + std::to_string(stored) + " in the log, " +
        std::to_string(gone) + " not, " + std::to_string(refusals) + " refused" +
        (sentAgain > 0 ? "; " + std::to_string(sentAgain) + " were sent twice over lost connections" : ""));
  }
  if (gone > 0)
    Say("what is not in the log was dropped by a filter or a switched-off type, or is older than all that "
        "the log "
        "has room for");
  const auto report = VerifyLogFile(TamLogClient::LogFileImage(bytes), {.most = 1, .live = true});
  if (!report.Accepted())
    Say("the log lies newest first now, and a restart of the server would empty it; export it before that");
  if (refusals > 0) return kRefused;
  return gone > 0 ? WorseOf(exitCode, kNegative) : exitCode;
}

int Import::Run() {
  if (const int code = ReadAll(); code != kDone) return code;
  DeferInterrupts();
  SettingsBody settings{};
  if (const Status status = client.GetSettings(settings); status != Status::Ok) return Refuse(status);
  connections = client.Connections();
  tooMany = std::max<std::size_t>(1, settings.maxMessage / 2);
  if (!CountLog(before)) return Refuse(kTimedOut, "the server's log cannot be read");
  const int code = SendAll();
  if (code == kDone) return Finish();
  return Refuse(code,
                std::to_string(next) + " of " + std::to_string(messages.size()) + " messages were handed in");
}

}  // namespace

int ImportFiles(const ImportOptions& options) {
  Import run(options);
  return run.Run();
}

}  // namespace TamLogCtl
