// Random operations on the pending list and a file in memory, compared after each flush with a plain model,
// and the same operations from several threads at once.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "store/pending_list.h"
#include "tests/store/memory_file.h"
#include "tests/store/messages.h"

namespace StoreTest {
namespace {

// The expected result without slots and positions: every message records whether the file has it, and the
// ring is the sequence of messages that a reader sees.
class Model {
 public:
  explicit Model(std::size_t ringCapacity) : capacity(ringCapacity) {}

  void Add(const LogMessageBody& body) {
    auto place = messages.begin();
    for (; place != messages.end() && TimeKey(place->body) > TimeKey(body); ++place) {
      if (place->written) ++rewritten;
      place->written = false;
    }
    messages.insert(place, {.body = body, .sequence = 0, .written = false});
    if (messages.size() > capacity) messages.pop_back();
  }

  void Flush() {
    const auto unwritten = static_cast<std::size_t>(
        std::count_if(messages.begin(), messages.end(), [](const Known& known) { return !known.written; }));
    if (unwritten == 0) return;
    if (unwritten >= capacity) {
      ++rewrites;
      ring.clear();
      for (Known& known : messages) ring.push_front(Stored(known));
    } else {
      if (rewritten > 0) ++rewrites;
      ring.erase(ring.begin(), ring.begin() + static_cast<std::ptrdiff_t>(rewritten));
      for (std::size_t i = unwritten; i-- > 0;) {
        messages[i].sequence = nextSequence++;
        ring.push_front(Stored(messages[i]));
        if (ring.size() > capacity) ring.pop_back();
      }
    }
    rewritten = 0;
  }

  void Clear() {
    messages.clear();
    ring.clear();
    rewritten = 0;
    ++rewrites;
  }

  void ExpectSame(const MemoryFile& file) const {
    std::vector<std::pair<std::string, std::uint64_t>> found;
    for (const LogMessage& message : file.Messages())
      found.emplace_back(TextOf(message.body), message.sequence);
    const std::vector<std::pair<std::string, std::uint64_t>> expected(ring.begin(), ring.end());
    ASSERT_EQ(found, expected);
    ASSERT_EQ(file.header.nextSequence, nextSequence);
    ASSERT_EQ(file.header.rewriteCount, rewrites);
  }

 private:
  struct Known {
    LogMessageBody body;
    std::uint64_t sequence;
    bool written;
  };

  static std::pair<std::string, std::uint64_t> Stored(Known& known) {
    known.written = true;
    return {TextOf(known.body), known.sequence};
  }

  std::size_t capacity;
  std::deque<Known> messages;  // newest first
  std::deque<std::pair<std::string, std::uint64_t>> ring;
  std::size_t rewritten = 0;
  std::uint64_t rewrites = 1;
  std::uint64_t nextSequence = 0;
};

class PendingListAgainstModel : public testing::TestWithParam<int> {};

TEST_P(PendingListAgainstModel, RandomOperationsGiveTheSameRing) {
  const int capacity = GetParam();
  for (unsigned seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE(seed);
    std::minstd_rand random(seed);
    const auto below = [&random](int limit) {
      return static_cast<int>(random() % static_cast<unsigned>(limit));
    };
    MemoryFile file(capacity);
    PendingList list;
    Model model(static_cast<std::size_t>(capacity));
    int clock = 1000;
    for (int step = 0; step < 400; ++step) {
      const int action = below(100);
      if (action < 65) {
        // Usually in order, sometimes late, often at the same second.
        clock += below(2);
        const int second = below(4) == 0 ? std::max(0, clock - below(20)) : clock;
        const LogMessageBody body =
            Message(std::to_string(step), At(second / 3600, second / 60 % 60, second % 60));
        list.Add(body, static_cast<std::uint32_t>(capacity));
        model.Add(body);
      } else if (action < 75) {
        file.FailAtWrite(1 + below(capacity + 1));
        bool failed = false;
        try {
          file.Flush(list);
        } catch (const std::runtime_error&) {
          failed = true;
        }
        file.WorkAgain();
        if (!failed) model.Flush();
      } else if (action < 97) {
        file.Flush(list);
        model.Flush();
        ASSERT_NO_FATAL_FAILURE(model.ExpectSame(file));
      } else {
        list.Clear();
        ClearRing(file.header);
        model.Clear();
      }
    }
    file.Flush(list);
    model.Flush();
    ASSERT_NO_FATAL_FAILURE(model.ExpectSame(file));
  }
}

// A file that runs other threads between any two steps of a flush.
class BusyFile final : public FlushTarget {
 public:
  BusyFile(MemoryFile& memoryFile, std::function<void()> between)
      : file(memoryFile), others(std::move(between)) {}

  void ReadBack(std::int64_t index, LogMessage& message) override {
    others();
    file.ReadBack(index, message);
  }
  void WriteSlot(std::int64_t index, std::uint64_t sequence, const LogMessage& message) override {
    others();
    file.WriteSlot(index, sequence, message);
  }
  void WriteHeader(const LogFileHeader& header) override {
    file.WriteHeader(header);
    others();
  }

 private:
  MemoryFile& file;
  std::function<void()> others;
};

// Messages added, and clears, while a flush writes; some of the flushes fail.
TEST_P(PendingListAgainstModel, WhatHappensDuringAFlushIsForTheNextOne) {
  const int capacity = GetParam();
  int duringFlushes = 0;
  for (unsigned seed = 1; seed <= 60; ++seed) {
    SCOPED_TRACE(seed);
    std::minstd_rand random(seed);
    const auto below = [&random](int limit) {
      return static_cast<int>(random() % static_cast<unsigned>(limit));
    };
    MemoryFile file(capacity);
    PendingList list;
    Model model(static_cast<std::size_t>(capacity));
    int clock = 1000;
    int serial = 0;
    std::vector<LogMessageBody> added;  // during the flush
    const auto add = [&] {
      clock += below(2);
      const int second = below(3) == 0 ? std::max(0, clock - below(20)) : clock;
      added.push_back(Message(std::to_string(serial++), At(second / 3600, second / 60 % 60, second % 60)));
      list.Add(added.back(), static_cast<std::uint32_t>(capacity));
    };
    for (int step = 0; step < 150; ++step) {
      for (int i = below(std::max(2, capacity / 2)); i >= 0; --i) add();
      for (const LogMessageBody& body : added) model.Add(body);
      added.clear();
      // As many as there are slots are written under the lock.
      const bool alone = list.PendingCount() >= capacity;
      bool cleared = false;
      BusyFile busy(file, [&] {
        if (alone) return;
        if (below(4) == 0) add();
        if (below(100) == 0) {
          list.Clear();
          cleared = true;
        }
      });
      if (below(3) == 0) file.FailAtWrite(1 + below(capacity + 1));
      LogFileHeader header = file.header;
      bool failed = false;
      try {
        list.Flush(header, busy);
        model.Flush();
      } catch (const std::runtime_error&) {
        failed = true;  // the file's state is undefined until the next one
      }
      file.WorkAgain();
      for (const LogMessageBody& body : added) model.Add(body);
      duringFlushes += static_cast<int>(added.size());
      added.clear();
      if (cleared) {
        list.Clear();
        ClearRing(file.header);
        model.Clear();
      }
      if (!failed) {
        ASSERT_NO_FATAL_FAILURE(model.ExpectSame(file)) << step;
      }
    }
    file.Flush(list);
    model.Flush();
    ASSERT_NO_FATAL_FAILURE(model.ExpectSame(file));
  }
  if (capacity > 2) {
    EXPECT_GT(duringFlushes, 500);
  }
}

INSTANTIATE_TEST_SUITE_P(Capacities, PendingListAgainstModel, testing::Values(1, 2, 3, 7, 50),
                         [](const auto& capacity) { return "Of" + std::to_string(capacity.param); });

// The list is emptied before the file; the next flush must ignore the loan of a failed one.
TEST(PendingListDuringAFlush, ListThatIsClearedDuringAFailingFlushMovesNothing) {
  MemoryFile file(10);
  PendingList list;
  for (const int second : {1, 2, 3}) list.Add(Message(std::to_string(second), At(1, 0, second)), 10);
  file.Flush(list);
  list.Add(Message("late", At(1, 0, 2)), 10);  // 3 has to move
  BusyFile busy(file, [&] { list.Clear(); });
  file.FailAtWrite(1);
  LogFileHeader header = file.header;
  EXPECT_THROW(list.Flush(header, busy), std::runtime_error);
  file.WorkAgain();
  EXPECT_EQ(list.PendingCount(), 0);
  list.Add(Message("next", At(1, 0, 4)), 10);
  file.Flush(list);
  EXPECT_EQ(file.Texts(), (std::vector<std::string>{"next", "3", "2", "1"}));
}

// In the end every message is in the file exactly once, although several threads flush and some flushes fail.
TEST(PendingListThreads, NoMessageIsLostOrStoredTwiceWhileOthersFlush) {
  constexpr int kWriters = 4;
  constexpr int kEach = 400;
  MemoryFile file(kWriters * kEach + 1000);
  std::mutex fileLock;
  PendingList list;
  std::atomic<int> writing{kWriters};
  std::vector<std::thread> threads;
  threads.reserve(kWriters + 2);
  for (int writer = 0; writer < kWriters; ++writer) {
    threads.emplace_back([&, writer] {
      std::minstd_rand random(static_cast<unsigned>(writer) + 1);
      for (int i = 0; i < kEach; ++i) {
        const int second = i / 4 + static_cast<int>(random() % 5);
        list.Add(Message(std::to_string(writer * kEach + i), At(1, second / 60, second % 60)),
                 static_cast<std::uint32_t>(file.slots.size()));
      }
      --writing;
    });
  }
  for (int flusher = 0; flusher < 2; ++flusher) {
    threads.emplace_back([&, flusher] {
      int round = 0;
      while (writing > 0) {
        if (list.PendingCount() == 0) continue;
        const std::lock_guard<std::mutex> guard(fileLock);
        if (flusher == 0 && ++round % 3 == 0) file.FailAtWrite(5);
        try {
          file.Flush(list);
        } catch (const std::runtime_error&) {
        }
        file.WorkAgain();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  file.Flush(list);

  std::map<std::string, int> times;
  for (const std::string& text : file.Texts()) ++times[text];
  EXPECT_EQ(times.size(), static_cast<std::size_t>(kWriters * kEach));
  for (const auto& [text, count] : times) EXPECT_EQ(count, 1) << text;
  file.header.readCount = 1;
  EXPECT_EQ(FirstBrokenRule(file.header, file), IntegrityRule::NoneBroken);
}

// A message added while another thread clears is either cleared or stored exactly once.
TEST(PendingListThreads, AMessageAddedDuringAClearIsClearedOrStored) {
  constexpr int kMessages = 2000;
  MemoryFile file(kMessages + 10);
  std::mutex fileLock;
  PendingList list;
  std::atomic<int> handedIn{0};
  std::atomic<bool> done{false};
  int handedInAtLastClear = 0;
  std::thread writer([&] {
    for (int i = 0; i < kMessages; ++i) {
      list.Add(Message(std::to_string(i), At(1, i / 60 % 60, i % 60)), kMessages + 10);
      handedIn = i + 1;
    }
    done = true;
  });
  std::thread flusher([&] {
    while (!done) {
      const std::lock_guard<std::mutex> guard(fileLock);
      file.Flush(list);
    }
  });
  std::thread clearer([&] {
    while (!done) {
      const std::lock_guard<std::mutex> guard(fileLock);
      handedInAtLastClear = handedIn;
      ClearRing(file.header);
      list.Clear();
      std::this_thread::yield();
    }
  });
  writer.join();
  flusher.join();
  clearer.join();
  file.Flush(list);

  std::set<int> stored;
  for (const std::string& text : file.Texts()) EXPECT_TRUE(stored.insert(std::stoi(text)).second) << text;
  for (const int message : stored) EXPECT_GE(message, handedInAtLastClear);
  // The stored messages are consecutive up to the last one: none vanished after the last clear.
  if (!stored.empty()) {
    EXPECT_EQ(*stored.rbegin(), kMessages - 1);
    EXPECT_EQ(static_cast<int>(stored.size()), kMessages - *stored.begin());
  }
}

}  // namespace
}  // namespace StoreTest
