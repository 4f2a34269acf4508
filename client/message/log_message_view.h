#pragma once

// Reads one stored message whose bytes may be damaged: an unterminated text ends with its field. A view does
// not own the message and must not outlive it.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "records/log_file_format.h"

namespace TamLogClient {

class LogMessageView {
 public:
  explicit LogMessageView(const LogMessage& stored) : message(&stored) {}

  // Returns the number that the server assigned. It does not identify the message: numbers repeat, and may
  // stay 0.
  std::uint64_t Sequence() const { return message->sequence; }
  std::uint64_t Key() const { return TimeKey(message->body); }
  std::uint32_t Type() const { return message->body.type; }
  std::string_view Source() const { return Bounded(message->body.source); }
  std::string_view Text() const { return Bounded(message->body.text); }
  const LogMessageBody& Body() const { return message->body; }

  // Returns whether the message breaks a rule of the file format: an unterminated text or an unknown type.
  bool Damaged() const {
    return Type() >= kMessageTypes || Unterminated(message->body.source) || Unterminated(message->body.text);
  }

 private:
  // Zeros follow most texts up to the end of their field, so the last byte usually decides.
  static bool Unterminated(const char (&field)[kTextSize]) {
    return field[kTextSize - 1] != '\0' && Bounded(field).size() == kTextSize;
  }
  static std::string_view Bounded(const char (&field)[kTextSize]) {
    const std::string_view whole(field, kTextSize);
    return whole.substr(0, whole.find('\0'));
  }

  const LogMessage* message;
};

// Identifies a message: a 128-bit digest (BLAKE2b) of the 546 bytes that its sender submitted. Equal messages
// have equal digests, in every process; callers count their occurrences. No sender can construct two messages
// with the same digest.
struct MessageIdentity {
  std::uint64_t low = 0;
  std::uint64_t high = 0;
  bool operator==(const MessageIdentity&) const = default;
};

MessageIdentity IdentityOf(const LogMessageBody& body);

// Where an identity goes in a table. Mixed with a key that each process makes at random: a sender that
// chooses its messages by their digests cannot make them meet in one place.
struct MessageIdentityHash {
  std::size_t operator()(const MessageIdentity& identity) const;
};

}  // namespace TamLogClient
