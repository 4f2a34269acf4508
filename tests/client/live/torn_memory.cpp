#include "tests/client/live/torn_memory.h"

#include <algorithm>
#include <cstring>

#include "client/log/header_counters.h"
#include "client/log/ring.h"

namespace TamLogTest {

namespace {

// The server's pause between its start and its first flush, and between two flushes.
constexpr std::uint64_t kPauseMs = 200;
constexpr std::size_t kHalf = sizeof(LogMessage) / 2;

bool Same(const LogMessage& one, const LogMessage& other) {
  return std::memcmp(&one, &other, sizeof(one)) == 0;
}

}  // namespace

void TornMemory::AddSlots(const TamLogClient::LogSnapshot& before, const TamLogClient::LogSnapshot& after) {
  for (std::size_t slot = 0; slot < after.slots.size(); ++slot) {
    if (Same(before.slots[slot], after.slots[slot])) continue;
    const LogMessage message = after.slots[slot];
    for (const std::size_t half : {std::size_t{0}, kHalf}) {
      AddStep([this, slot, message, half] {
        std::memcpy(reinterpret_cast<char*>(&memory.slots[slot]) + half,
                    reinterpret_cast<const char*>(&message) + half, kHalf);
      });
    }
  }
}

void TornMemory::AddHeader(const LogFileHeader& after) {
  AddStep([this, after] {
    memory.header.messageCount = after.messageCount;
    memory.header.maxMessages = after.maxMessages;
    memory.header.nextSlot = after.nextSlot;
  });
  AddStep([this, after] {
    memory.header.rewriteCount = after.rewriteCount;
    memory.header.nextSequence = after.nextSequence;
  });
}

void TornMemory::AddPublication(const TamLogClient::LogSnapshot& after) {
  published.push_back(after);
  AddStep([this, after] { memory.header.changeCount = after.header.changeCount; });
  AddStep([this] { readersMayEnter = true; });
}

void TornMemory::Write(const RingModel& model) {
  const TamLogClient::LogSnapshot after = model.Snapshot();
  AddStep([this] { readersMayEnter = false; });
  AddSlots(published.back(), after);
  AddHeader(after.header);
  AddPublication(after);
}

void TornMemory::Restart(const RingModel& empty, const RingModel& model) {
  AddStep([this] { memory.header.serverRunning = 0; });
  AddStep([this] { readersMayEnter = false; });
  const TamLogClient::LogSnapshot start = empty.Snapshot();
  AddHeader(start.header);
  // The slots keep the messages of the life before.
  TamLogClient::LogSnapshot after = published.back();
  after.header = start.header;
  AddPublication(after);
  AddStep([this] { memory.header.serverRunning = 1; });
  Pause();
  Write(model);
}

void TornMemory::Pause() {
  for (int half = 0; half < 2; ++half) AddStep([this] { now += kPauseMs / 2; });
}

void TornMemory::Step() {
  if (steps.empty()) return;
  const auto step = std::move(steps.front());
  steps.pop_front();
  step();
}

bool TornMemory::WasPublished(const TamLogClient::LogSnapshot& copy) const {
  return std::any_of(published.begin(), published.end(), [&](const TamLogClient::LogSnapshot& state) {
    if (!TamLogClient::SameCounters(state.header, copy.header)) return false;
    const auto occupied = state.RingOrder();
    return std::all_of(occupied.begin(), occupied.end(),
                       [&](std::uint32_t slot) { return Same(state.slots[slot], copy.slots[slot]); });
  });
}

void TornMemory::Access() const {
  now += accessTime;
  if (between) between();
}

bool TornMemory::CopyHeader(LogFileHeader& header) const {
  if (prepared) {
    header = *prepared;
    prepared.reset();
    return true;
  }
  Access();
  header = memory.header;
  first = header;
  if (mistake == Mistake::FirstCounterIsNotCompared && firstCounter != nullptr)
    *firstCounter = header.changeCount;
  firstCounter = nullptr;
  return true;
}

bool TornMemory::CopyChangeCount(std::uint64_t& count) const {
  prepared.reset();
  Access();
  count = memory.header.changeCount;
  firstCounter = &count;
  if (loadsEarly) early = memory;
  return true;
}

bool TornMemory::CopySlots(std::size_t from, std::size_t count, LogMessage* to) const {
  for (std::size_t i = 0; i < count; ++i) {
    for (const std::size_t half : {std::size_t{0}, kHalf}) {
      Access();
      std::memcpy(reinterpret_cast<char*>(to + i) + half,
                  reinterpret_cast<const char*>(&Slots().slots[from + i]) + half, kHalf);
    }
  }
  return true;
}

bool TornMemory::CopySlotStart(std::size_t slot, std::size_t bytes, LogMessage* to) const {
  Access();
  std::memcpy(to, &Slots().slots[slot], bytes);
  return true;
}

bool TornMemory::CopyNumbers(std::size_t from, std::size_t count, std::uint64_t* to) const {
  for (std::size_t i = 0; i < count; ++i) {
    Access();
    to[i] = Slots().slots[from + i].sequence;
  }
  return true;
}

bool TornMemory::WaitForWriter(std::uint32_t timeoutMs) const {
  if (timeoutMs > 0) {
    auto* const self = const_cast<TornMemory*>(this);
    while (!readersMayEnter) self->Step();
    return true;
  }
  if (mistake == Mistake::HeaderIsCopiedBeforeEvent) prepared = memory.header;
  if (mistake == Mistake::CountersAreNotCompared) prepared = first;
  Access();
  return readersMayEnter || mistake == Mistake::EventIsNotTestedAfterwards;
}

}  // namespace TamLogTest
