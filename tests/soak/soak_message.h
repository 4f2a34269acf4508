#pragma once

// The messages of the load: each message found in the log identifies its sender and its number among that
// sender's messages, and shows whether any byte of it differs from the one that was sent. Standard library
// only.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "records/log_file_format.h"

namespace Soak {

// Microseconds of the machine's steady clock: the same for all processes.
using Moment = std::int64_t;
Moment Now();

// The sender of a message, and its number among the sender's messages, counted from 0.
struct MessageId {
  std::uint32_t sender = 0;
  std::uint32_t number = 0;
  bool operator==(const MessageId&) const = default;
};

inline constexpr std::uint32_t kMostClients = 1000;
inline constexpr std::uint32_t kDriverSender = kMostClients;
inline constexpr std::uint32_t kMarkSender = kMostClients + 1;  // the conductor's own
inline constexpr std::uint32_t kSenders = kMostClients + 2;

// The fields that the filters examine; both follow from the number.
const char* SourceOf(const MessageId& id);
std::uint32_t TypeOf(const MessageId& id);

// Returns a message dated now; some of each sender's messages are dated a little earlier, so that they have
// to be inserted among others.
LogMessageBody MakeMessage(const MessageId& id);

// Returns the identity of a message; nothing when it is not one of the load's, or when a byte of it was
// changed.
std::optional<MessageId> Identify(const LogMessageBody& body);

// Records for every message whether it was seen. Numbers may come in any order.
class SeenMessages {
 public:
  SeenMessages() : seen(kSenders) {}
  // Returns false when it was seen before.
  bool Add(const MessageId& id);
  bool Has(const MessageId& id) const;
  std::uint64_t Count() const { return count; }

 private:
  std::vector<std::vector<bool>> seen;
  std::uint64_t count = 0;
};

// The filters that a server has and their effect, derived from the documents alone.
struct FilterState {
  std::vector<std::string> includes;
  std::vector<std::string> excludes;
  std::uint32_t types = 0xF;
  bool Keeps(const MessageId& id) const;
};

}  // namespace Soak
