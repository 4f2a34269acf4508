#include "tamlogctl/server/import.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "client/file/log_file_image.h"
#include "client/file/log_file_verify.h"
#include "client/live/log_client.h"
#include "client/message/log_message_view.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/live_log.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/base/wait.h"
#include "tamlogctl/server/filter_text.h"
#include "tamlogctl/server/import_reader.h"
#include "tamlogctl/server/live_delivery.h"
#include "tamlogctl/server/live_server.h"
#include "tamlogctl/server/message_counts.h"
#include "tamlogctl/server/message_spool.h"

namespace TamLogCtl {

namespace {

using TamLogClient::IdentityOf;
using TamLogClient::LogClient;
using TamLogClient::LogSnapshot;
using TamLogClient::MessageIdentity;
using TamLogClient::Status;

// Takes one copy of a message out of the counts. Returns whether there was one.
bool TakeCopy(MessageCounts& counts, const MessageIdentity& identity) {
  const auto found = counts.find(identity);
  if (found == counts.end() || found->second == 0) return false;
  --found->second;
  return true;
}

// The reasons why messages are not in the log, as far as they can be known.
struct Absent {
  std::size_t filtered = 0;
  std::size_t tooOld = 0;
  std::size_t unknown = 0;

  std::size_t All() const { return filtered + tooOld + unknown; }
  std::string Text() const {
    std::string text;
    const auto add = [&text](std::size_t count, const char* reason) {
      if (count > 0) text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + reason;
    };
    add(filtered, "dropped by a filter or a disabled type");
    add(tooOld, "older than the full log holds");
    add(unknown, "for a reason that is not known (was the log emptied, or were the filters changed?)");
    return text;
  }
};

// Returns whether the next start of the server keeps the log. Its image needs as much memory as the log.
bool IsAccepted(const LogSnapshot& log) {
  const TamLogClient::MessageOrder order = OrderMessages(log);
  if (log.HeaderIsSound() && !order.reordered && order.damaged == 0) return true;
  const std::string bytes = ImageOf(log);
  return VerifyLogFile(TamLogClient::LogFileImage(bytes), {.most = 1, .live = true}).Accepted();
}

class Import {
 public:
  explicit Import(const ImportOptions& chosen)
      : options(chosen),
        client({kRequestPipeName, chosen.timeoutMs}),
        target(client, chosen.timeoutMs, chosen.quiet) {}

  int Run();

 private:
  int ReadAll();
  // Messages of one time, in the order in which they are sent.
  struct Equals {
    std::uint64_t key = 0;
    std::vector<MessageIdentity> identities;
  };

  int LookAtLog();
  void TakeEquals(Equals& equals);
  int Readable() const;
  int SendAll(Delivery& delivery);
  int Finish(const Delivery& delivery);
  bool ReadFilters();
  bool IsFiltered(const LogMessageBody& body) const;
  Absent AbsentOf(const LogSnapshot& log, std::size_t refused);

  const ImportOptions& options;
  LogClient client;
  LiveTarget target;
  SettingsBody settings{};
  std::vector<FilterEntry> filters;
  MessageSpool messages;
  std::vector<std::uint32_t> toSend;  // indices of `messages`
  MessageCounts before;               // the messages of the log at the start
  MessageCounts known;                // those that are going to be sent as well
  std::size_t already = 0;            // of the messages: in the log at the start
  int exitCode = kDone;
};

int Import::ReadAll() {
  ReadingFilesOptions chosen = options;
  if (!CompleteChoice(chosen)) return kUsage;
  chosen.choice.once = !options.again;
  chosen.choice.quiet = options.quiet;
  exitCode = ReadImports(options.files, chosen.choice, messages);
  return HasOutput(exitCode) || exitCode == kNegative ? kDone : exitCode;
}

// Chooses the messages that the log lacks and has room for: of equal ones as many as it has fewer of. A
// message older than all of a full log would not be kept, but make the server write the whole log again.
int Import::LookAtLog() {
  LogSnapshot log;
  Status status = Status::Ok;
  const std::uint64_t patience = options.waitAtStart ? std::uint64_t{options.retrySeconds} * 1000 : 0;
  const int waited = WaitUntil(patience, 200, [&] {
    status = ReadLiveLog(options.timeoutMs, log);
    return status == Status::Ok;
  });
  if (waited != kDone)
    return waited == kTimedOut ? Refuse(status, "the server's log cannot be read") : waited;
  before = CountsOf(log);
  const Oldest oldest = OldestOf(log);
  MessageCounts copies = before;
  Equals equals;
  for (std::uint32_t i = 0; i < messages.Size(); ++i) {
    const LogMessageBody message = messages.At(i);
    const MessageIdentity identity = IdentityOf(message);
    if (!options.again && TakeCopy(copies, identity)) {
      ++already;
      continue;
    }
    if (!oldest.LeavesRoomFor(message)) continue;
    toSend.push_back(i);
    if (const auto there = before.find(identity); there != before.end()) known[identity] = there->second;
    if (equals.key != TimeKey(message)) TakeEquals(equals);
    equals.key = TimeKey(message);
    equals.identities.push_back(identity);
  }
  TakeEquals(equals);
  return Readable();
}

// Equal messages have equal times.
void Import::TakeEquals(Equals& equals) {
  auto& identities = equals.identities;
  const auto isLess = [](const MessageIdentity& a, const MessageIdentity& b) {
    return a.low != b.low ? a.low < b.low : a.high < b.high;
  };
  std::sort(identities.begin(), identities.end(), isLess);
  for (std::size_t i = 1; i < identities.size(); ++i) {
    if (identities[i - 1] == identities[i]) known.try_emplace(identities[i], 0);
  }
  identities.clear();
}

int Import::Readable() const {
  if (messages.Problem().empty()) return kDone;
  return Refuse(kOutputFailed, "the temporary file cannot be read: " + messages.Problem());
}

int Import::SendAll(Delivery& delivery) {
  Progress progress("sending messages", toSend.size());
  for (const std::size_t index : toSend) {
    progress.Show(delivery.Sent());
    if (Interrupted()) return kInterrupted;
    const std::size_t refusals = delivery.Refused();
    const LogMessageBody message = messages.At(index);
    if (const int code = Readable(); code != kDone) return code;
    if (const int code = delivery.Send(message, index + 1); code != kDone) return code;
    if (refusals == 0 && delivery.Refused() > 0)
      Say("message " + std::to_string(index + 1) + ": " + StatusText(delivery.LastRefusal()));
  }
  return delivery.Finish();
}

bool Import::ReadFilters() {
  return client.GetSettings(settings) == Status::Ok && RequestFilters(client, filters) == kDone;
}

bool Import::IsFiltered(const LogMessageBody& body) const {
  LogMessage stored{};
  stored.body = body;
  const TamLogClient::LogMessageView view(stored);
  return !JudgeMessage(filters, settings.typeFilter, view.Source(), view.Type()).kept;
}

Absent Import::AbsentOf(const LogSnapshot& log, std::size_t refused) {
  MessageCounts there = CountsOf(log);
  if (options.again) {
    for (const auto& [identity, count] : before) {
      const auto found = there.find(identity);
      if (found != there.end()) found->second -= std::min(found->second, count);
    }
  }
  const Oldest oldest = OldestOf(log);
  Absent absent;
  for (std::size_t i = 0; i < messages.Size(); ++i) {
    const LogMessageBody body = messages.At(i);
    if (TakeCopy(there, IdentityOf(body))) continue;
    const bool tooOld = !oldest.LeavesRoomFor(body);
    ++(IsFiltered(body) ? absent.filtered : tooOld ? absent.tooOld : absent.unknown);
  }
  absent.unknown -= std::min(absent.unknown, refused);
  return absent;
}

int Import::Finish(const Delivery& delivery) {
  LogSnapshot log;
  if (const Status status = ReadLiveLog(options.timeoutMs, log); status != Status::Ok)
    return Refuse(status, "all messages were sent, but the log cannot be read to count them");
  ReadFilters();
  const Absent absent = AbsentOf(log, delivery.Refused());
  if (const int code = Readable(); code != kDone) return code;
  if (!options.quiet) {
    Say(std::to_string(messages.Size()) +
        " messages: " + std::to_string(messages.Size() - absent.All() - delivery.Refused()) + " in the log" +
        (already > 0 ? " (" + std::to_string(already) + " already were)" : "") + ", " +
        std::to_string(absent.All()) + " not, " + std::to_string(delivery.Refused()) + " refused" +
        (delivery.SentAgain() > 0
             ? "; " + std::to_string(delivery.SentAgain()) + " were sent again after lost connections"
             : ""));
  }
  if (absent.All() > 0) Say("not in the log: " + absent.Text());
  if (!IsAccepted(log))
    Say("the log is now stored newest first; the next restart of the server would empty it: export it first");
  if (delivery.Refused() > 0) return kRefused;
  return absent.All() > 0 ? WorseOf(exitCode, kNegative) : exitCode;
}

int Import::Run() {
  if (const int code = ReadAll(); code != kDone) return code;
  DeferInterrupts();
  const std::uint64_t retryMs = std::uint64_t{options.retrySeconds} * 1000;
  if (const int code = AwaitServer(client, options.waitAtStart ? retryMs : 0, settings); code != kDone)
    return code;
  if (const int code = LookAtLog(); code != kDone) return code;
  Delivery delivery(target, {.retryMs = retryMs, .capacity = settings.maxMessage});
  delivery.SetKnown(known);
  const int code = SendAll(delivery);
  if (code == kDone) return Finish(delivery);
  return Refuse(code, std::to_string(delivery.Sent()) + " of " + std::to_string(toSend.size()) +
                          " messages were sent; the same command sends the rest: messages that are in the "
                          "log are not sent twice");
}

}  // namespace

int ImportFiles(const ImportOptions& options) {
  Import run(options);
  return run.Run();
}

}  // namespace TamLogCtl
