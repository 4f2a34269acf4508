#include "client/log/follower_memory.h"

#include <limits>

#include "client/message/hex.h"

namespace TamLogClient {

namespace {

constexpr std::string_view kHeadline = "memory2";

void AppendNumberAfterBlank(std::uint64_t value, std::string& out) {
  out += ' ';
  AppendHexNumber(value, out);
}

bool TakeNumberAfterBlank(std::string_view& text, std::uint64_t& value) {
  if (text.empty() || text.front() != ' ') return false;
  text.remove_prefix(1);
  return TakeHexNumber(text, value);
}

bool TakeLineEnd(std::string_view& text) {
  if (text.empty() || text.front() != '\n') return false;
  text.remove_prefix(1);
  return true;
}

bool TakeCount(std::string_view& text, std::int32_t& count) {
  std::uint64_t value = 0;
  if (!TakeNumberAfterBlank(text, value) || value > std::numeric_limits<std::int32_t>::max()) return false;
  count = static_cast<std::int32_t>(value);
  return true;
}

bool TakeFlag(std::string_view& text, bool& flag) {
  std::uint64_t value = 0;
  if (!TakeNumberAfterBlank(text, value) || value > 1) return false;
  flag = value == 1;
  return true;
}

bool TakeHead(std::string_view& text, FollowerMemory& memory, std::uint64_t& messages) {
  LogFileHeader& header = memory.header;
  return TakeCount(text, header.maxMessages) && TakeCount(text, header.messageCount) &&
         TakeCount(text, header.nextSlot) && TakeNumberAfterBlank(text, header.changeCount) &&
         TakeNumberAfterBlank(text, header.rewriteCount) && TakeNumberAfterBlank(text, header.nextSequence) &&
         TakeNumberAfterBlank(text, memory.completeFrom) && TakeFlag(text, memory.suspect) &&
         TakeNumberAfterBlank(text, memory.suspectUntil) && TakeFlag(text, memory.mayBeOthers) &&
         TakeFlag(text, memory.any) && TakeNumberAfterBlank(text, memory.lastKey) &&
         TakeNumberAfterBlank(text, messages) && TakeLineEnd(text);
}

bool TakeKnown(std::string_view& text, KnownMessage& known) {
  std::uint64_t count = 0;
  std::uint64_t unnumbered = 0;
  if (!TakeNumberAfterBlank(text, known.identity.low) || !TakeNumberAfterBlank(text, known.identity.high) ||
      !TakeNumberAfterBlank(text, known.key) || !TakeNumberAfterBlank(text, count) ||
      !TakeNumberAfterBlank(text, unnumbered) || !TakeNumberAfterBlank(text, known.number) ||
      !TakeFlag(text, known.isFirstCopy) || !TakeLineEnd(text)) {
    return false;
  }
  known.count = static_cast<std::uint32_t>(count);
  known.unnumbered = static_cast<std::uint32_t>(unnumbered);
  return count > 0 && count <= std::numeric_limits<std::uint32_t>::max() && unnumbered <= count;
}

}  // namespace

std::string FormatMemory(const FollowerMemory& memory) {
  const LogFileHeader& header = memory.header;
  std::string text(kHeadline);
  for (const std::int32_t value : {header.maxMessages, header.messageCount, header.nextSlot}) {
    AppendNumberAfterBlank(static_cast<std::uint64_t>(value < 0 ? 0 : value), text);
  }
  for (const std::uint64_t value :
       {std::uint64_t{header.changeCount}, std::uint64_t{header.rewriteCount},
        std::uint64_t{header.nextSequence}, memory.completeFrom, std::uint64_t{memory.suspect ? 1U : 0U},
        memory.suspectUntil, std::uint64_t{memory.mayBeOthers ? 1U : 0U}, std::uint64_t{memory.any ? 1U : 0U},
        memory.lastKey, std::uint64_t{memory.known.size()}}) {
    AppendNumberAfterBlank(value, text);
  }
  text += '\n';
  for (const KnownMessage& known : memory.known) {
    for (const std::uint64_t value :
         {known.identity.low, known.identity.high, known.key, std::uint64_t{known.count},
          std::uint64_t{known.unnumbered}, known.number, std::uint64_t{known.isFirstCopy ? 1U : 0U}}) {
      AppendNumberAfterBlank(value, text);
    }
    text += '\n';
  }
  return text;
}

std::optional<FollowerMemory> ParseMemory(std::string_view text) {
  const std::string_view whole = text;
  if (!text.starts_with(kHeadline)) return std::nullopt;
  text.remove_prefix(kHeadline.size());
  FollowerMemory memory;
  std::uint64_t messages = 0;
  constexpr std::uint64_t kShortestLine = 15;
  if (!TakeHead(text, memory, messages) || messages > text.size() / kShortestLine) return std::nullopt;
  memory.known.resize(messages);
  for (KnownMessage& known : memory.known) {
    if (!TakeKnown(text, known)) return std::nullopt;
  }
  // Each memory has one text: this refuses anything after the last line, capital letters and leading zeros.
  if (!text.empty() || FormatMemory(memory) != whole) return std::nullopt;
  return memory;
}

}  // namespace TamLogClient
