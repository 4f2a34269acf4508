#pragma once

// The messages of the load: whoever finds one in the log can tell who sent it, the how-manieth of that sender
// it is, and whether a single byte of it is another than was sent. Standard library only.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "records/log_file_format.h"

namespace Soak {

// Microseconds of the machine's steady clock: the same for all processes.
using Moment = std::int64_t;
Moment Now();

// Who sent a message, and the how-manieth of this sender it is, from 0 on.
struct MessageId {
  std::uint32_t sender = 0;
  std::uint32_t number = 0;
  bool operator==(const MessageId&) const = default;
};

inline constexpr std::uint32_t kMostClients = 1000;
inline constexpr std::uint32_t kDriverSender = kMostClients;
inline constexpr std::uint32_t kMarkSender = kMostClients + 1;  // the conductor's own
inline constexpr std::uint32_t kSenders = kMostClients + 2;

// What the filters look at; both follow from the number.
const char* SourceOf(const MessageId& id);
std::uint32_t TypeOf(const MessageId& id);

// Dated now; some of each sender's messages a little earlier, so that they have to be inserted among others.
LogMessageBody MakeMessage(const MessageId& id);

// Whose message this is. Nothing when it is none of the load's, or when a byte of it was changed.
std::optional<MessageId> Identify(const LogMessageBody& body);

// Of every message, whether it was seen. Numbers may come in any order.
class SeenMessages {
 public:
  SeenMessages() : seen(kSenders) {}
  // False when it was seen before.
  bool Add(const MessageId& id);
  bool Has(const MessageId& id) const;
  std::uint64_t Count() const { return count; }

 private:
  std::vector<std::vector<bool>> seen;
  std::uint64_t count = 0;
};

// The filters that a server has, and what they do, told from the documents alone.
struct FilterState {
  std::vector<std::string> includes;
  std::vector<std::string> excludes;
  std::uint32_t types = 0xF;
  bool Keeps(const MessageId& id) const;
};

}  // namespace Soak
