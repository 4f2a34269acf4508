#pragma once

// A shared log without a server: a model of the writer, whose steps run between the reader's accesses. Half a
// slot, one field of the header, the event: whatever the processor can show separately is a step. The reader
// is the product's own.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "client/live/log_memory.h"
#include "client/log/log_snapshot.h"
#include "tests/support/ring_model.h"

namespace TamLogTest {

class TornMemory final : public TamLogClient::LogMemory {
 public:
  // Mistakes of a reader, made for it.
  enum class Mistake : std::uint8_t {
    None,
    EventIsNotTestedAfterwards,  // the event counts as signalled
    HeaderIsCopiedBeforeEvent,   // the header that is compared was copied before the event was tested
    CountersAreNotCompared,      // the header that is compared is the one copied first
    NoLimit,                     // the clock stands still
    FirstCounterIsNotCompared,   // the change count that is read first is the one of the header
  };

  explicit TornMemory(const RingModel& model) : published{model.Snapshot()}, memory(published.front()) {}

  // Adds the steps of one write access that brings the log to the state of `model`.
  void Write(const RingModel& model);
  // Adds the steps of a restart that empties the log, up to the state of `model`, with a pause before its
  // first flush.
  void Restart(const RingModel& empty, const RingModel& model);

  // Adds the pause of a server between two flushes: the clock advances.
  void Pause();

  // Is called before each access of the reader; runs steps of the writer with Step.
  std::function<void()> between;
  // Does the next step; does nothing without one.
  void Step();
  std::size_t StepsLeft() const { return steps.size(); }

  Mistake mistake = Mistake::None;
  // The processor loads slots as early as the reader's fences allow it, before the header. x64 does not.
  bool loadsEarly = false;
  // Milliseconds that each access of the reader takes.
  std::uint64_t accessTime = 0;

  // Returns whether the log was ever published like this.
  bool WasPublished(const TamLogClient::LogSnapshot& copy) const;

  // Of TamLogClient::LogMemory. A reader that waits for the writer lets it finish.
  bool CopyHeader(LogFileHeader& header) const override;
  bool CopyChangeCount(std::uint64_t& count) const override;
  bool CopySlots(std::size_t first, std::size_t count, LogMessage* to) const override;
  bool CopySlotStart(std::size_t slot, std::size_t bytes, LogMessage* to) const override;
  bool CopyNumbers(std::size_t first, std::size_t count, std::uint64_t* to) const override;
  std::size_t SlotCount() const override { return memory.slots.size(); }
  bool WaitForWriter(std::uint32_t timeoutMs) const override;
  bool ServerRuns() const { return memory.header.serverRunning != 0; }
  std::uint64_t Now() const override { return mistake == Mistake::NoLimit ? 1 : now; }

 private:
  void Access() const;
  const TamLogClient::LogSnapshot& Slots() const { return early ? *early : memory; }
  void AddStep(std::function<void()> step) { steps.push_back(std::move(step)); }
  void AddSlots(const TamLogClient::LogSnapshot& before, const TamLogClient::LogSnapshot& after);
  void AddHeader(const LogFileHeader& after);
  void AddPublication(const TamLogClient::LogSnapshot& after);

  std::deque<TamLogClient::LogSnapshot> published;
  TamLogClient::LogSnapshot memory;
  std::deque<std::function<void()>> steps;
  bool readersMayEnter = true;
  mutable std::uint64_t now = 1;
  mutable std::optional<TamLogClient::LogSnapshot> early;  // as it was at the last fence
  mutable std::uint64_t* firstCounter = nullptr;           // of the reader; until it copies the header
  mutable LogFileHeader first{};                           // as the reader copied it first
  mutable std::optional<LogFileHeader> prepared;           // returned by the next copy of the header
};

}  // namespace TamLogTest
