#pragma once

// Reads one stored message without trusting it: a text without its terminating zero ends with its field.
// A view does not own the message; it must not outlive it.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "records/log_file_format.h"

namespace TamLogClient {

class LogMessageView {
 public:
  explicit LogMessageView(const LogMessage& stored) : message(&stored) {}

  // As given by the server. Not an identity: numbers are given a second time and may stay 0.
  std::uint64_t Sequence() const { return message->sequence; }
  std::uint64_t Key() const { return TimeKey(message->body); }
  std::uint32_t Type() const { return message->body.type; }
  std::string_view Source() const { return Bounded(message->body.source); }
  std::string_view Text() const { return Bounded(message->body.text); }
  const LogMessageBody& Body() const { return message->body; }

  // The message breaks a rule of the file format: a text without end, or a type that does not exist.
  bool Damaged() const {
    return Type() >= kMessageTypes || Endless(message->body.source) || Endless(message->body.text);
  }

 private:
  // Most texts are followed by zeros up to the end of their field, which is then all that has to be read.
  static bool Endless(const char (&field)[kTextSize]) {
    return field[kTextSize - 1] != '\0' && Bounded(field).size() == kTextSize;
  }
  static std::string_view Bounded(const char (&field)[kTextSize]) {
    const std::string_view whole(field, kTextSize);
    return whole.substr(0, whole.find('\0'));
  }

  const LogMessage* message;
};

// What makes a message the same message: a 128-bit digest of the 546 bytes that the sender handed in. Equal
// messages are told apart by counting occurrences. Not a cryptographic digest.
struct MessageIdentity {
  std::uint64_t low = 0;
  std::uint64_t high = 0;
  bool operator==(const MessageIdentity&) const = default;
};

MessageIdentity IdentityOf(const LogMessageBody& body);

struct MessageIdentityHash {
  std::size_t operator()(const MessageIdentity& identity) const {
    return static_cast<std::size_t>(identity.low);
  }
};

}  // namespace TamLogClient
