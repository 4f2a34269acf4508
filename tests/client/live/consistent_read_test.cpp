// Reading without access against every order of the writer's and the reader's steps (for one read of a small
// log), and against millions of random orders (for copies in parts).

#include "client/live/consistent_read.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "client/live/partwise_copy.h"
#include "client/log/ring.h"
#include "tests/client/live/torn_memory.h"

namespace {

using TamLogClient::ConsistentRead;
using TamLogClient::LogSnapshot;
using TamLogClient::PartwiseCopy;
using TamLogClient::Status;
using TamLogTest::MakeBody;
using TamLogTest::RingModel;
using TamLogTest::TornMemory;
using Mistake = TornMemory::Mistake;

struct Outcome {
  long copies = 0;    // attempts
  long accepted = 0;  // counted as one state of the log
  long wrong = 0;     // of those: no state that ever was
};

// Copies the occupied slots in one consistent read. Returns whether the copy counts.
bool CopyOnce(const TornMemory& memory, LogSnapshot& copy) {
  ConsistentRead read(memory);
  if (read.Begin(1000) != Status::Ok) return false;
  copy.header = read.Header();
  copy.slots.assign(memory.SlotCount(), {});
  for (const auto& run : TamLogClient::OccupiedRuns(copy.header, memory.SlotCount())) {
    const auto slot = static_cast<std::size_t>(run.begin);
    memory.CopySlots(slot, static_cast<std::size_t>(run.end - run.begin), copy.slots.data() + slot);
  }
  return read.End() == Status::Ok;
}

void Judge(const TornMemory& memory, bool counts, const LogSnapshot& copy, Outcome& outcome) {
  ++outcome.copies;
  if (!counts) return;
  ++outcome.accepted;
  if (!memory.WasPublished(copy)) ++outcome.wrong;
}

// Runs `copyOnce(memory)` with every way to put the writer's steps before the reader's accesses.
template <typename Prepare>
Outcome EveryOrder(Mistake mistake, Prepare prepare, bool loadsEarly = false) {
  Outcome outcome;
  std::vector<std::size_t> chosen;  // steps before each access; what is missing counts as 0
  for (;;) {
    TornMemory memory = prepare();
    memory.mistake = mistake;
    memory.loadsEarly = loadsEarly;
    std::size_t access = 0;
    std::vector<std::size_t> most;
    memory.between = [&] {
      if (access == chosen.size()) chosen.push_back(0);
      most.push_back(memory.StepsLeft());
      for (std::size_t i = 0; i < chosen[access]; ++i) memory.Step();
      ++access;
    };
    LogSnapshot copy;
    const bool counts = CopyOnce(memory, copy);
    Judge(memory, counts, copy, outcome);
    // The next choice, as an odometer counts.
    chosen.resize(access);
    while (!chosen.empty() && chosen.back() == most[chosen.size() - 1]) chosen.pop_back();
    if (chosen.empty()) return outcome;
    ++chosen.back();
  }
}

TornMemory TwoAppends() {
  RingModel log(2);
  log.Submit(MakeBody(1, "a"));
  log.Flush();
  TornMemory memory(log);
  for (int i = 0; i < 2; ++i) {
    log.Submit(MakeBody(2 + i, "b"));
    log.Flush();
    memory.Write(log);
  }
  return memory;
}

TornMemory Insertion() {
  RingModel log(2);
  log.Submit(MakeBody(5, "a"));
  log.Flush();
  TornMemory memory(log);
  log.Submit(MakeBody(1, "b"));
  log.Flush();
  memory.Write(log);
  return memory;
}

// After the restart the counters are the same as before, the message is another.
TornMemory RestartWithTheSameCounters() {
  RingModel log(1);
  const RingModel empty(1);
  RingModel again(1);
  log.Submit(MakeBody(1, "a"));
  log.Flush();
  again.Submit(MakeBody(2, "b"));
  again.Flush();
  TornMemory memory(log);
  memory.Restart(empty, again);
  return memory;
}

TEST(ConsistentRead, NeverAcceptsATornCopyInAnyOrderOfSteps) {
  for (const auto& prepare : {TwoAppends, Insertion, RestartWithTheSameCounters}) {
    const Outcome outcome = EveryOrder(Mistake::None, prepare);
    std::printf("%ld orders, %ld accepted\n", outcome.copies, outcome.accepted);
    EXPECT_GT(outcome.copies, 1000);
    EXPECT_GT(outcome.accepted, 0);
    EXPECT_EQ(outcome.wrong, 0);
  }
}

TEST(ConsistentRead, EachOfItsChecksIsNeeded) {
  EXPECT_GT(EveryOrder(Mistake::EventIsNotTestedAfterwards, Insertion).wrong, 0);
  EXPECT_GT(EveryOrder(Mistake::HeaderIsCopiedBeforeEvent, Insertion).wrong, 0);
  EXPECT_GT(EveryOrder(Mistake::CountersAreNotCompared, Insertion).wrong, 0);
  EXPECT_GT(EveryOrder(Mistake::NoLimit, RestartWithTheSameCounters).wrong, 0);
}

// On processors that load early the copied header may be from after a write, and the slots from before it.
TEST(ConsistentRead, ItsFirstCheckIsNeededWhereLoadsComeEarly) {
  for (const auto& prepare : {TwoAppends, Insertion, RestartWithTheSameCounters}) {
    const Outcome outcome = EveryOrder(Mistake::None, prepare, true);
    EXPECT_GT(outcome.accepted, 0);
    EXPECT_EQ(outcome.wrong, 0);
  }
  EXPECT_GT(EveryOrder(Mistake::FirstCounterIsNotCompared, Insertion, true).wrong, 0);
}

TEST(ConsistentRead, AReadThatTakesTooLongDoesNotCount) {
  RingModel log(4);
  log.Submit(MakeBody(1, "a"));
  log.Flush();
  TornMemory memory(log);
  LogSnapshot copy;
  EXPECT_TRUE(CopyOnce(memory, copy));
  memory.accessTime = ConsistentRead::kLongestMs;
  EXPECT_FALSE(CopyOnce(memory, copy));
}

TEST(ConsistentRead, ReportsAServerThatHasClosedTheLog) {
  RingModel log(1);
  TornMemory memory(log);
  memory.Restart(RingModel(1), log);
  memory.Step();
  EXPECT_EQ(ConsistentRead(memory).Begin(10), Status::NotRunning);
}

// --- Copies in parts.

class Writer {
 public:
  Writer(std::int32_t slots, std::uint32_t seed) : capacity(slots), log(slots), random(seed) {
    Burst(Pick(2 * capacity));
    log.Flush();
    for (int flushes = Pick(40); flushes > 0; --flushes) {
      log.Submit(MakeBody(++time, std::to_string(serial++)));
      log.Flush();
    }
    memory.emplace(log);
    memory->accessTime = static_cast<std::uint64_t>(Pick(4));
    memory->between = [this] { Go(); };
  }

  std::optional<TornMemory> memory;
  int Pick(int most) { return std::uniform_int_distribution<int>(0, most)(random); }

 private:
  void Burst(int messages) {
    for (int i = 0; i < messages; ++i) {
      time += Pick(5) == 0 ? -Pick(std::min(time, 200)) : Pick(3);
      log.Submit(MakeBody(time, std::to_string(serial++)));
    }
  }

  // Between two accesses of the reader mostly nothing happens, now and then a few steps, seldom a new write.
  void Go() {
    if (Pick(30) == 0) {
      for (int steps = Pick(12); steps > 0; --steps) memory->Step();
    }
    if (memory->StepsLeft() == 0 && Pick(60) == 0) Begin();
  }

  void Begin() {
    const int kind = Pick(19);
    if (kind == 0) {
      log.Clear();
    } else if (kind == 1) {
      log.Reformat(capacity);
      const RingModel empty = log;
      Burst(1 + Pick(capacity));
      log.Flush();
      memory->Restart(empty, log);
      return;
    } else {
      Burst(kind < 5 ? capacity + Pick(3) : 1 + Pick(2));
      log.Flush();
      if (IsYoung()) memory->Pause();
    }
    memory->Write(log);
  }

  // A reader distinguishes a log that was just emptied from an older one by its number of flushes. So flushes
  // come at the server's pace in a young log, and as fast as possible in an older one.
  bool IsYoung() const {
    const LogFileHeader header = log.Snapshot().header;
    return header.changeCount - header.rewriteCount < 12;
  }

  std::int32_t capacity;
  RingModel log;
  std::mt19937 random;
  int time = 1000;
  int serial = 0;
};

// Each read of the copy is consistent, and each is soon after the one before; but the first part is of the
// log before the restart. The slots of the new log have the same numbers.
TEST(PartwiseCopy, BeginsAnewAfterARestartThatItDidNotSee) {
  RingModel before(2);
  for (const int time : {1, 2}) before.Submit(MakeBody(time, "before"));
  before.Flush();
  RingModel after(2);
  for (const int time : {1, 2}) after.Submit(MakeBody(time, "after"));
  after.Flush();
  TornMemory memory(before);
  memory.Restart(RingModel(2), after);
  LogSnapshot copy;
  copy.slots.resize(memory.SlotCount());
  constexpr int kOfFirstPart = 8;   // event, changeCount, header, number, two halves; event, header
  constexpr int kOfSecondPart = 5;  // the log is empty
  int accesses = 0;
  memory.between = [&] {
    ++accesses;
    if (accesses == kOfFirstPart + 1) {
      while (memory.ServerRuns()) memory.Step();
      while (!memory.ServerRuns()) memory.Step();
      memory.Step();  // half of the time until the first flush
    }
    if (accesses == kOfFirstPart + kOfSecondPart + 1) {
      while (memory.StepsLeft() > 0) memory.Step();
    }
  };
  EXPECT_EQ(PartwiseCopy(memory, copy, 1).Run(100000), std::nullopt);
}

// A log of four slots that has had that many flushes since it was emptied, and a copy of it in parts of a
// slot each, which is stopped for `pause` milliseconds before its second part.
struct Paused {
  Paused(int flushes, std::uint64_t pause) : log(4) {
    for (int i = 0; i < flushes; ++i) Append();
    memory.emplace(log);
    copy.slots.resize(memory->SlotCount());
    memory->between = [this, pause] {
      if (++accesses == kOfFirstPart + 1) memory->accessTime = pause;
      if (accesses == kOfFirstPart + 2) memory->accessTime = 0;
    };
  }

  void Append() {
    log.Submit(MakeBody(++time, "a"));
    log.Flush();
  }

  std::optional<Status> Copy() { return PartwiseCopy(*memory, copy, 1).Run(100000); }

  static constexpr int kOfFirstPart = 8;  // event, changeCount, header, number, two halves; event, header
  RingModel log;
  std::optional<TornMemory> memory;
  LogSnapshot copy;
  int time = 0;
  int accesses = 0;
};

TEST(PartwiseCopy, ContinuesAfterAPauseInWhichTheLogCannotHaveBeenEmptied) {
  Paused old(10, 900);
  EXPECT_EQ(old.Copy(), Status::Ok);
  EXPECT_TRUE(old.memory->WasPublished(old.copy));
  EXPECT_EQ(Paused(10, 1100).Copy(), std::nullopt);
  EXPECT_EQ(Paused(4, 900).Copy(), std::nullopt);
  EXPECT_EQ(Paused(4, 100).Copy(), Status::Ok);
}

// One rewrite leaves all slots without numbers, so each is copied again, but not in one read.
TEST(PartwiseCopy, CopiesAFullRewriteThatComesInItsMiddlePartByPart) {
  constexpr int kSlots = 40;
  RingModel log(kSlots);
  for (int i = 0; i < kSlots; ++i) {
    log.Submit(MakeBody(100 + i, "a"));
    log.Flush();
  }
  TornMemory memory(log);
  log.Submit(MakeBody(1, "too old"));
  log.Flush();
  memory.Write(log);
  memory.accessTime = 2;  // a read of the whole log takes longer than a read may
  int accesses = 0;
  memory.between = [&] {
    if (++accesses == 100) {
      while (memory.StepsLeft() > 0) memory.Step();
    }
  };
  LogSnapshot copy;
  copy.slots.resize(memory.SlotCount());
  EXPECT_EQ(PartwiseCopy(memory, copy, 4).Run(100000), Status::Ok);
  EXPECT_TRUE(memory.WasPublished(copy));
}

// A program that only counts changes makes every copy fail: the time-out ends it.
TEST(PartwiseCopy, EndsAtItsTimeoutWhenTheLogNeverRests) {
  Paused restless(10, 0);
  restless.memory->accessTime = 1;
  restless.memory->between = [&] {
    if (restless.memory->StepsLeft() == 0) {
      restless.Append();
      restless.memory->Write(restless.log);
    }
    restless.memory->Step();
  };
  EXPECT_EQ(PartwiseCopy(*restless.memory, restless.copy, 1).Run(5000), Status::Unsteady);
}

Outcome CopiesInParts(int histories, Mistake mistake) {
  Outcome outcome;
  for (int history = 0; history < histories; ++history) {
    Writer writer(1 + history % 24, static_cast<std::uint32_t>(history));
    writer.memory->mistake = mistake;
    for (int i = 0; i < 20; ++i) {
      LogSnapshot copy;
      copy.slots.resize(writer.memory->SlotCount());
      PartwiseCopy parts(*writer.memory, copy, static_cast<std::size_t>(1 + writer.Pick(7)));
      Judge(*writer.memory, parts.Run(100000) == Status::Ok, copy, outcome);
    }
  }
  return outcome;
}

TEST(PartwiseCopy, NeverAcceptsAMixtureOfStates) {
  const Outcome outcome = CopiesInParts(3000, Mistake::None);
  std::printf("%ld copies, %ld accepted\n", outcome.copies, outcome.accepted);
  EXPECT_GT(outcome.accepted, outcome.copies / 4);
  EXPECT_EQ(outcome.wrong, 0);
}

TEST(PartwiseCopy, EachCheckOfItsReadsIsNeeded) {
  for (const Mistake mistake : {Mistake::EventIsNotTestedAfterwards, Mistake::HeaderIsCopiedBeforeEvent,
                                Mistake::CountersAreNotCompared}) {
    EXPECT_GT(CopiesInParts(300, mistake).wrong, 0) << static_cast<int>(mistake);
  }
}

}  // namespace
