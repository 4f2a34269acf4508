#pragma once

// A log file in memory, as a target of flushes and a source of checks. Its writes can be made to fail.

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "records/log_file_format.h"
#include "store/integrity.h"
#include "store/pending_list.h"
#include "store/ring.h"
#include "tests/store/messages.h"

namespace StoreTest {

class MemoryFile final : public FlushTarget, public SlotSource {
 public:
  explicit MemoryFile(std::int32_t capacity) : slots(static_cast<std::size_t>(capacity)) {
    header.maxMessages = capacity;
    ReformatRing(header);
  }

  void ReadBack(std::int64_t index, LogMessage& message) override {
    CountDown();
    message = slots.at(static_cast<std::size_t>(index));
  }
  void WriteSlot(std::int64_t index, std::uint64_t sequence, const LogMessage& message) override {
    CountDown();
    LogMessage& slot = slots.at(static_cast<std::size_t>(index));
    slot = message;
    slot.sequence = sequence;
  }
  void WriteHeader(const LogFileHeader& newHeader) override {
    CountDown();
    header = newHeader;
  }
  std::size_t LookAt(std::int64_t newest, std::size_t count, SlotCheck& check) override {
    if (!HasSlot(newest)) return 0;
    check.Look(&slots[static_cast<std::size_t>(newest) + 1 - count], count);
    return count;
  }

  bool HasSlot(std::int64_t index) const {
    return index >= 0 && index < static_cast<std::int64_t>(slots.size());
  }

  // The nth write (or reading back) from now on throws, and those after it.
  void FailAtWrite(int n) { writesLeft = n; }
  void WorkAgain() { writesLeft = -1; }

  // `list`: a PendingList, or one like it.
  template <class List>
  void Flush(List& list) {
    LogFileHeader copy = header;
    list.Flush(copy, *this);
  }
  // Loads the file into `list` as an open does.
  void Load(PendingList& list) const {
    MessageMirror mirror;
    for (std::int32_t i = 0; i < header.messageCount; ++i) {
      const std::int64_t slot = SlotFromNewest(header, i);
      mirror.AppendOldest(TimeKey(slots.at(static_cast<std::size_t>(slot)).body), slot);
    }
    list.Assign(std::move(mirror), header);
  }

  // The texts of the valid messages, newest first as a reader walks the ring.
  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const LogMessage& message : Messages()) texts.push_back(TextOf(message.body));
    return texts;
  }
  std::vector<LogMessage> Messages() const {
    std::vector<LogMessage> messages;
    messages.reserve(static_cast<std::size_t>(std::max(0, header.messageCount)));
    for (std::int32_t i = 0; i < header.messageCount; ++i) {
      messages.push_back(slots.at(static_cast<std::size_t>(SlotFromNewest(header, i))));
    }
    return messages;
  }
  std::vector<std::uint64_t> Sequences() const {
    std::vector<std::uint64_t> sequences;
    for (const LogMessage& message : Messages()) sequences.push_back(message.sequence);
    return sequences;
  }
  // The texts in the order of the slots, whether valid or not.
  std::vector<std::string> Slots() const {
    std::vector<std::string> texts;
    texts.reserve(slots.size());
    for (const LogMessage& message : slots) texts.push_back(TextOf(message.body));
    return texts;
  }

  LogFileHeader header = {};
  std::vector<LogMessage> slots;

 private:
  void CountDown() {
    if (writesLeft > 0) --writesLeft;
    if (writesLeft == 0) throw std::runtime_error("set to fail");
  }

  int writesLeft = -1;
};

}  // namespace StoreTest
