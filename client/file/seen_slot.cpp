#include "client/file/seen_slot.h"

#include <algorithm>
#include <cstring>

#include "client/file/message_shape.h"

namespace TamLogClient {

namespace {

bool HasName(const LogMessage& message) {
  const std::string_view source(message.body.source);
  return !source.empty() && std::all_of(source.begin(), source.end(),
                                        [](char c) { return static_cast<unsigned char>(c) >= ' '; });
}

}  // namespace

Seen LookAt(const LogFileImage& image, std::uint64_t offset) {
  Seen seen;
  const std::string_view bytes = image.View(offset, kSlotSize);
  seen.complete = bytes.size() >= kNeededOfSlot;
  if (!seen.complete) return seen;
  LogMessage message{};
  std::memcpy(&message, bytes.data(), bytes.size());
  seen.sequence = message.sequence;
  seen.passes = message.body.type < kMessageTypes && HasEnds(message);
  seen.isMessage = seen.passes && LooksLikeMessage(message);
  seen.isNamed = seen.isMessage && HasName(message);
  seen.isBlank = !seen.isMessage && IsBlank(message.body);
  seen.isPadded = bytes.size() == kSlotSize && IsZero(bytes.substr(kNeededOfSlot));
  return seen;
}

bool Continues(const Seen& here, const Seen& next) {
  return here.complete && next.passes && !next.isBlank && next.sequence != 0 &&
         next.sequence == here.sequence + 1;
}

bool IsZero(std::string_view bytes) {
  return !bytes.empty() && bytes[0] == 0 &&
         std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0;
}

}  // namespace TamLogClient
