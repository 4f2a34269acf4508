#include "tests/support/ring_model.h"

#include <algorithm>
#include <cstring>

#include "client/message/message_body.h"
#include "tests/support/log_bytes.h"
#include "tests/support/messages.h"

namespace TamLogTest {

LogMessageBody MakeBody(std::int32_t millisecondOfDay, const std::string& text, const std::string& source,
                        std::uint32_t type) {
  LogMessageBody body{};
  TestSupport::SetTime(body, 2026, 1, 1, TestSupport::AtMillisecond(millisecondOfDay));
  body.type = type;
  TamLogClient::FillTexts(source, text, body);
  return body;
}

RingModel::RingModel(std::int32_t capacity) {
  Reformat(capacity);
}

void RingModel::Reformat(std::int32_t capacity) {
  entries.clear();
  pending = rewind = 0;
  header = {};
  header.serverRunning = 1;
  header.maxMessages = capacity;
  header.changeCount = 2;
  header.rewriteCount = 1;
  slots.assign(static_cast<std::size_t>(capacity), {});
  slotMessages.assign(slots.size(), 0);
}

void RingModel::Submit(const LogMessageBody& body) {
  Entry entry;
  entry.message.body = body;
  entry.number = submitted++;
  wasInFile.push_back(false);
  const auto place = std::find_if(entries.begin(), entries.end(), [&body](const Entry& other) {
    return TimeKey(other.message.body) <= TimeKey(body);
  });
  const auto newer = static_cast<std::int32_t>(place - entries.begin());
  if (newer > pending) {
    rewind += newer - pending;
    pending = newer;
  }
  ++pending;
  entries.insert(place, entry);
  const auto capacity = static_cast<std::size_t>(header.maxMessages);
  if (entries.size() > capacity) {
    if (!wasInFile[entries.back().number]) ++unwritten;
    entries.resize(capacity);
  }
  pending = std::min(pending, static_cast<std::int32_t>(entries.size()));
}

void RingModel::Write(std::int32_t slot, const Entry& entry) {
  slots[static_cast<std::size_t>(slot)] = entry.message;
  slotMessages[static_cast<std::size_t>(slot)] = entry.number;
  if (wasInFile[entry.number]) return;
  wasInFile[entry.number] = true;
  everInFile.push_back(entry.number);
}

void RingModel::RewriteAll() {
  header.messageCount = header.maxMessages;
  header.nextSlot = 0;
  ++header.rewriteCount;
  for (std::size_t i = 0; i < entries.size(); ++i) Write(static_cast<std::int32_t>(i), entries[i]);
}

void RingModel::Append() {
  if (rewind > 0) {
    ++header.rewriteCount;
    header.messageCount -= rewind;
    header.nextSlot = (header.nextSlot - rewind + header.maxMessages) % header.maxMessages;
  }
  for (std::int32_t i = pending - 1; i >= 0; --i) {
    Entry& entry = entries[static_cast<std::size_t>(i)];
    header.messageCount = std::min(header.messageCount + 1, header.maxMessages);
    entry.message.sequence = header.nextSequence++;
    Write(header.nextSlot, entry);
    header.nextSlot = (header.nextSlot + 1) % header.maxMessages;
  }
}

void RingModel::Flush() {
  if (pending == 0) return;
  if (pending >= header.maxMessages) {
    RewriteAll();
  } else {
    Append();
  }
  pending = rewind = 0;
  ++header.changeCount;
}

void RingModel::Clear() {
  entries.clear();
  pending = rewind = 0;
  header.messageCount = 0;
  header.nextSlot = 0;
  ++header.rewriteCount;
  ++header.changeCount;
}

std::vector<std::uint32_t> RingModel::FromNewest() const {
  std::vector<std::uint32_t> walk;
  for (std::int32_t i = 0; i < header.messageCount; ++i) {
    walk.push_back(
        static_cast<std::uint32_t>((header.nextSlot - 1 - i + header.maxMessages) % header.maxMessages));
  }
  return walk;
}

bool RingModel::PassesCheck() const {
  std::uint64_t newer = ~std::uint64_t{0};
  for (const std::uint32_t slot : FromNewest()) {
    const std::uint64_t key = TimeKey(slots[slot].body);
    if (key > newer) return false;
    newer = key;
  }
  return true;
}

void RingModel::Compact(std::int32_t capacity) {
  const std::vector<std::uint32_t> walk = FromNewest();
  const std::vector<LogMessage> oldSlots = slots;
  const std::vector<std::size_t> oldMessages = slotMessages;
  const auto kept = std::min(walk.size(), static_cast<std::size_t>(capacity));
  slots.resize(static_cast<std::size_t>(capacity));
  slotMessages.resize(slots.size());
  for (std::size_t i = 0; i < kept; ++i) {
    slots[i] = oldSlots[walk[i]];
    slotMessages[i] = oldMessages[walk[i]];
  }
  header.maxMessages = capacity;
  header.messageCount = static_cast<std::int32_t>(kept);
  header.nextSlot = header.messageCount < capacity ? header.messageCount : 0;
}

void RingModel::Load() {
  entries.clear();
  for (const std::uint32_t slot : FromNewest()) entries.push_back({slots[slot], slotMessages[slot]});
}

bool RingModel::Restart(std::int32_t capacity) {
  if (pending > 0) ++header.changeCount;
  pending = rewind = 0;
  bool passes = PassesCheck();
  if (passes && capacity != header.maxMessages) {
    Compact(capacity);
    passes = PassesCheck();
  }
  if (!passes) {
    Reformat(capacity);
    return false;
  }
  Load();
  return true;
}

TamLogClient::LogSnapshot RingModel::Snapshot() const {
  return {header, slots};
}

std::string RingModel::FileBytes() const {
  return TestSupport::LogFileBytes(header, slots);
}

}  // namespace TamLogTest
