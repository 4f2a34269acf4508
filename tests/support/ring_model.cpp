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
  if (entries.size() > capacity) entries.resize(capacity);
  pending = std::min(pending, static_cast<std::int32_t>(entries.size()));
}

void RingModel::Write(std::int32_t slot, const Entry& entry) {
  slots[static_cast<std::size_t>(slot)] = entry.message;
  slotMessages[static_cast<std::size_t>(slot)] = entry.number;
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
  NoteFile();
}

void RingModel::NoteFile() {
  for (const std::uint32_t slot : Snapshot().RingOrder()) everInFile.insert(slotMessages[slot]);
}

void RingModel::Clear() {
  entries.clear();
  pending = rewind = 0;
  header.messageCount = 0;
  header.nextSlot = 0;
  ++header.rewriteCount;
  ++header.changeCount;
}

TamLogClient::LogSnapshot RingModel::Snapshot() const {
  return {header, slots};
}

std::string RingModel::FileBytes() const {
  return TestSupport::LogFileBytes(header, slots);
}

}  // namespace TamLogTest
