#include "client/file/server_traces.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <vector>

#include "client/file/message_shape.h"
#include "client/log/ring.h"

namespace TamLogClient {

namespace {

// The largest capacity that the pipe sets. A larger one comes from a registry value set by hand.
constexpr std::int32_t kMostConfigurable = 1000000;

// Returns whether the parts of a slot that senders do not choose are a server's: the number, the padding, a
// type that exists, and texts that end. A slot of zeros alone is not a trace.
bool HasServerTraces(const LogMessage& slot, const LogFileHeader& header) {
  constexpr std::uint8_t kPadding[sizeof(slot.padding)]{};
  if (slot.sequence == 0 && IsBlank(slot.body)) return false;
  return (slot.sequence == 0 || slot.sequence < header.nextSequence) &&
         std::memcmp(slot.padding, kPadding, sizeof(kPadding)) == 0 && slot.body.type < kMessageTypes &&
         HasEnds(slot);
}

}  // namespace

bool HeaderIsGenuine(const LogFileHeader& header) {
  const auto isZero = [](const auto& padding) {
    return std::all_of(std::begin(padding), std::end(padding), [](std::uint8_t byte) { return byte == 0; });
  };
  const bool isRing = RingIsSound(header) &&
                      (header.messageCount == header.maxMessages || header.messageCount == header.nextSlot);
  return isRing && header.maxMessages <= kMostConfigurable && header.serverRunning <= 1 &&
         header.readCount >= 0 && isZero(header.padding1) && isZero(header.padding2);
}

LogFileHeader HeaderAt(const LogFileImage& image, std::uint64_t offset) {
  LogFileHeader header{};
  const std::string_view bytes = image.View(offset, sizeof(header));
  if (bytes.size() == sizeof(header)) std::memcpy(&header, bytes.data(), sizeof(header));
  return header;
}

bool HeadIsGenuine(const LogFileImage& image, std::uint64_t offset) {
  const std::string_view names = image.View(offset + kLockNamesOffset, sizeof(LockNames));
  return HeaderIsGenuine(HeaderAt(image, offset)) &&
         (names.starts_with(kNamesBegin) || names.find_first_not_of('\0') == std::string_view::npos);
}

bool LogBeginsAt(const LogFileImage& image, std::uint64_t offset) {
  if (!HeadIsGenuine(image, offset)) return false;
  const auto capacity = static_cast<std::uint64_t>(HeaderAt(image, offset).maxMessages);
  return image.View(offset + kLockNamesOffset, 1) != std::string_view("\0", 1) ||
         offset + LogFileSize(capacity) == image.Size();
}

bool RingIsPlain(const LogFileImage& image) {
  if (!image.SizeFits()) return false;
  bool allDated = true;
  std::size_t unnumbered = 0;
  std::vector<std::uint64_t> keys;
  for (const std::uint32_t slot : image.RingSlots()) {
    const LogMessage message = image.Slot(slot);
    const bool isDated = LooksLikeMessage(message);
    if (!isDated && !HasServerTraces(message, image.Header())) return false;
    allDated = allDated && isDated;
    unnumbered += message.sequence == 0 ? 1 : 0;
    keys.push_back(TimeKey(message.body));
  }
  if (allDated) return true;
  // Only a full rewrite stores messages without a number, and newest first.
  const bool wasRewritten = image.Header().rewriteCount > 1;
  const std::size_t falling = wasRewritten ? FallingStretch(keys) : 0;
  std::reverse(keys.begin(), keys.begin() + static_cast<std::ptrdiff_t>(falling));
  return (unnumbered <= 1 || wasRewritten) && std::is_sorted(keys.begin(), keys.end());
}

}  // namespace TamLogClient
