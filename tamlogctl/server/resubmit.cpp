#include "tamlogctl/server/resubmit.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "client/message/log_message_view.h"
#include "tamlogctl/base/console.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/base/live_log.h"
#include "tamlogctl/base/progress.h"
#include "tamlogctl/server/live_delivery.h"
#include "tamlogctl/server/message_counts.h"

namespace TamLogCtl {

namespace {

using TamLogClient::LogMessageView;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;
using Messages = std::vector<const LogMessage*>;

// Of equal messages as many are missing as there are fewer now.
Messages Missing(const LogSnapshot& before, const LogSnapshot& now) {
  MessageCounts there = CountsOf(now);
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

// `there` has the messages that the log holds now.
int SendAll(TamLogClient::LogClient& client, const Messages& messages, MessageCounts there,
            const DeliveryOptions& options, std::uint32_t timeoutMs) {
  Progress progress("sending again", messages.size());
  LiveTarget target(client, timeoutMs, false);
  Delivery delivery(target, options);
  delivery.SetKnown(std::move(there));
  int code = kDone;
  for (std::size_t i = 0; i < messages.size() && code == kDone; ++i) {
    progress.Show(i);
    code = Interrupted() ? kInterrupted : delivery.Send(messages[i]->body);
  }
  if (code == kDone) code = delivery.Finish();
  if (code != kDone)
    Say(std::to_string(delivery.Sent()) + " of " + std::to_string(messages.size()) +
        " messages were sent again");
  return code;
}

}  // namespace

int Resubmit(TamLogClient::LogClient& client, const LogSnapshot& before, std::uint32_t timeoutMs) {
  constexpr const char* kReading = "reading the log";
  LogSnapshot now;
  if (const Status status = ReadLiveLog(timeoutMs, now); status != Status::Ok)
    return Refuse(status, kReading);
  Messages missing = Missing(before, now);
  if (missing.empty()) return kDone;
  const auto room = static_cast<std::size_t>(std::max(0, now.header.maxMessages - now.header.messageCount));
  const std::size_t wanted = missing.size();
  if (missing.size() > room)
    missing.erase(missing.begin(), missing.end() - static_cast<std::ptrdiff_t>(room));
  const DeliveryOptions chosen{.capacity = static_cast<std::size_t>(std::max(0, now.header.maxMessages))};
  if (const int exitCode = SendAll(client, missing, CountsOf(now), chosen, timeoutMs); exitCode != kDone)
    return exitCode;
  LogSnapshot after;
  if (const Status status = ReadLiveLog(timeoutMs, after); status != Status::Ok)
    return Refuse(status, kReading);
  const std::size_t lost = Missing(before, after).size();
  Say(std::to_string(missing.size()) + " messages sent again; " +
      std::to_string(wanted - std::min(wanted, lost)) + " of " + std::to_string(wanted) +
      " missing ones are in the log");
  return kDone;
}

}  // namespace TamLogCtl
