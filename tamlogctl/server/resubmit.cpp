#include "tamlogctl/server/resubmit.h"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/live/log_reader.h"
#include "client/message/log_message_view.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/server/live_server.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogMessageView;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;
using Counts =
    std::unordered_map<TamLogClient::MessageIdentity, std::size_t, TamLogClient::MessageIdentityHash>;
using Messages = std::vector<const LogMessage*>;

Status ReadLog(LogSnapshot& snapshot) {
  TamLogClient::LogReader reader;
  const Status status = reader.Open();
  return status == Status::Ok ? reader.Snapshot(snapshot) : status;
}

// Equal messages are told apart by how often they occur.
Messages Missing(const LogSnapshot& before, const LogSnapshot& now) {
  Counts there;
  for (const std::uint32_t slot : now.RingOrder()) ++there[TamLogClient::IdentityOf(now.slots[slot].body)];
  Messages missing;
  for (const std::uint32_t slot : OrderMessages(before).oldestFirst) {
    const LogMessage& message = before.slots[slot];
    const auto at = there.find(TamLogClient::IdentityOf(message.body));
    if (at != there.end() && at->second > 0) {
      --at->second;
    } else if (!LogMessageView(message).Damaged()) {
      missing.push_back(&message);
    }
  }
  return missing;
}

}  // namespace

int Resubmit(TamLogClient::LogClient& client, const LogSnapshot& before) {
  LogSnapshot now;
  if (const Status status = ReadLog(now); status != Status::Ok) return Refuse(status, "reading the log");
  Messages missing = Missing(before, now);
  const auto room = static_cast<std::size_t>(std::max(0, now.header.maxMessages - now.header.messageCount));
  const std::size_t wanted = missing.size();
  if (missing.size() > room)
    missing.erase(missing.begin(), missing.end() - static_cast<std::ptrdiff_t>(room));
  const std::size_t atOnce = std::max<std::size_t>(1, static_cast<std::size_t>(now.header.maxMessages) / 2);
  Progress progress("handing in again", missing.size());
  std::size_t sent = 0;
  for (const LogMessage* message : missing) {
    if (sent > 0 && sent % atOnce == 0) WaitForFlush();
    if (Interrupted()) return kInterrupted;
    if (const Status status = client.Submit(message->body); status != Status::Ok) {
      Say(std::to_string(sent) + " of " + std::to_string(missing.size()) + " messages were handed in again");
      return Refuse(status, "handing in again");
    }
    progress.Show(++sent);
  }
  WaitForFlush();
  LogSnapshot after;
  if (const Status status = ReadLog(after); status != Status::Ok) return Refuse(status, "reading the log");
  const std::size_t lost = Missing(before, after).size();
  Say(std::to_string(sent) + " messages handed in again; " + std::to_string(wanted - std::min(wanted, lost)) +
      " of " + std::to_string(wanted) + " that were missing are in the log");
  return kDone;
}

}  // namespace TamLogCtl
