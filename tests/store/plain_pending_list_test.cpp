// The fast structures against plain reference ones, with random operations.

#include "tests/store/plain_pending_list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include "store/pending_list.h"
#include "store/unrolled_key_list.h"
#include "tests/store/memory_file.h"
#include "tests/store/messages.h"

namespace StoreTest {
namespace {

// Its sequence depends on --gtest_random_seed.
class Random {
 public:
  explicit Random(unsigned seed)
      : generator(seed + 1000U * static_cast<unsigned>(testing::GTEST_FLAG(random_seed))) {}
  int Below(int limit) { return static_cast<int>(generator() % static_cast<unsigned>(limit)); }

 private:
  std::mt19937 generator;
};

// The order of keys -------------------------------------------------------------------------------------

struct PlainKeys {
  std::size_t Insert(std::uint64_t key, std::uint32_t number) {
    auto place = entries.end();  // the newest last
    while (place != entries.begin() && std::prev(place)->first > key) --place;
    const auto newer = static_cast<std::size_t>(entries.end() - place);
    entries.insert(place, {key, number});
    return newer;
  }
  void AppendOldest(std::uint64_t key, std::uint32_t number) {
    entries.insert(entries.begin(), {key, number});
  }
  std::uint32_t PopOldest() {
    const std::uint32_t number = entries.front().second;
    entries.erase(entries.begin());
    return number;
  }
  std::vector<std::uint32_t> Newest(std::size_t count) const {
    std::vector<std::uint32_t> numbers;
    for (auto entry = entries.rbegin(); entry != entries.rend() && count > 0; ++entry, --count) {
      numbers.push_back(entry->second);
    }
    return numbers;
  }

  std::vector<std::pair<std::uint64_t, std::uint32_t>> entries;
};

template <class Keys>
void ExpectSame(Keys& keys, const PlainKeys& plain, std::size_t count) {
  std::vector<std::uint32_t> numbers;
  keys.FromNewest(count, [&](std::uint32_t& number) { numbers.push_back(number); });
  ASSERT_EQ(numbers, plain.Newest(count));
  ASSERT_EQ(keys.Size(), plain.entries.size());
}

// `spread` is the largest distance of a new key from the newest; `jumbled`: with loads in any order in
// between.
template <class Keys>
void Compare(Random& random, int steps, int most, int spread, bool jumbled) {
  Keys keys;
  PlainKeys plain;
  int clock = spread;
  std::uint32_t number = 0;
  for (int step = 0; step < steps; ++step) {
    const int action = random.Below(1000);
    if (action < 2) {
      ASSERT_NO_FATAL_FAILURE(ExpectSame(keys, plain, static_cast<std::size_t>(random.Below(most + 2))));
    } else if (action == 2 && random.Below(10) == 0) {
      keys.Clear();
      plain.entries.clear();
    } else if (action < 20 && (jumbled || plain.entries.empty())) {
      const auto key = static_cast<std::uint64_t>(random.Below(clock));
      ++number;
      keys.AppendOldest(key, number);
      plain.AppendOldest(key, number);
    } else {
      clock += random.Below(3);
      const int back = random.Below(3) == 0 ? random.Below(spread) : 0;
      const auto key = static_cast<std::uint64_t>(clock - back);
      ++number;
      ASSERT_EQ(keys.Insert(key, number), plain.Insert(key, number)) << step;
    }
    while (plain.entries.size() > static_cast<std::size_t>(most)) {
      ASSERT_EQ(keys.PopOldest(), plain.PopOldest());
    }
  }
  ASSERT_NO_FATAL_FAILURE(ExpectSame(keys, plain, plain.entries.size()));
}

TEST(UnrolledKeyListAgainstAPlainOne, RandomOperationsGiveTheSameOrder) {
  for (unsigned seed = 1; seed <= 8; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    const bool jumbled = seed % 3 == 0;
    const int most = 1 + random.Below(150);
    const int spread = 1 + random.Below(200);
    using Small = BasicUnrolledKeyList<2, 2>;
    using Odd = BasicUnrolledKeyList<5, 3>;
    ASSERT_NO_FATAL_FAILURE(Compare<Small>(random, 50000, most, spread, jumbled));
    ASSERT_NO_FATAL_FAILURE(Compare<Odd>(random, 50000, most, spread, jumbled));
  }
}

TEST(UnrolledKeyListAgainstAPlainOne, AlsoWithTheSizesOfTheServer) {
  for (unsigned seed = 1; seed <= 4; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    ASSERT_NO_FATAL_FAILURE(Compare<UnrolledKeyList>(random, 20000, 3000, 2000, seed % 2 == 0));
  }
}

// The pending list --------------------------------------------------------------------------------------

// The same file under both lists.
class Pair {
 public:
  explicit Pair(int ringCapacity) : capacity(ringCapacity), file(ringCapacity), plainFile(ringCapacity) {}

  void Add(const LogMessageBody& body) {
    const auto most = static_cast<std::uint32_t>(capacity);
    list.Add(body, most);
    plain.Add(body, most);
    ASSERT_EQ(list.PendingCount(), plain.PendingCount());
  }

  void Flush() {
    file.Flush(list);
    plainFile.Flush(plain);
  }

  // Lets the flush of the real list fail at its nth access to the file. The plain one then flushes nothing,
  // so that only the last, successful flush of both is compared.
  void FailingFlush(int n) {
    file.FailAtWrite(n);
    try {
      file.Flush(list);
      file.WorkAgain();
      plainFile.Flush(plain);
    } catch (const std::runtime_error&) {
      file.WorkAgain();
      ASSERT_EQ(list.PendingCount(), plain.PendingCount());
    }
  }

  void Clear() {
    list.Clear();
    plain.Clear();
    ClearRing(file.header);
    ClearRing(plainFile.header);
  }

  // Restarts both servers; every slot keeps its message, in any order.
  void Reload() {
    file.Load(list);
    plain.Clear();
    for (const LogMessage& message : plainFile.Messages()) plain.AppendOldest(message);
  }

  // Moves the ring like another process, unless that would expose a slot that never held a message.
  void MoveRing(int nextSlot) {
    if (file.header.messageCount != file.header.maxMessages) return;
    file.header.nextSlot = nextSlot;
    plainFile.header.nextSlot = nextSlot;
  }

  // Compares valid slots only: the others may differ after a failed flush.
  void ExpectSame() const {
    ASSERT_EQ(std::memcmp(&file.header, &plainFile.header, sizeof file.header), 0);
    const std::vector<LogMessage> found = file.Messages();
    const std::vector<LogMessage> expected = plainFile.Messages();
    ASSERT_EQ(found.size(), expected.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
      ASSERT_EQ(std::memcmp(&found[i], &expected[i], sizeof found[i]), 0) << i;
    }
  }

 private:
  int capacity;
  MemoryFile file;
  MemoryFile plainFile;
  PendingList list;
  PlainPendingList plain;
};

class PendingListAgainstPlainOne : public testing::TestWithParam<int> {};

TEST_P(PendingListAgainstPlainOne, RandomOperationsGiveTheSameFile) {
  const int capacity = GetParam();
  const int rounds = 2 + 5000 / (capacity + 40);
  for (int seed = 1; seed <= rounds; ++seed) {
    SCOPED_TRACE(seed);
    Random random(static_cast<unsigned>(seed));
    Pair pair(capacity);
    const int spread = 1 + random.Below(3 * capacity + 20);
    const int flushes = 1 + random.Below(60);  // of a thousand operations
    int clock = spread;
    LogMessageBody body = Message("message", At(0, 0));
    for (int step = 0; step < 1000; ++step) {
      const int action = random.Below(1000);
      if (action < flushes) {
        ASSERT_NO_FATAL_FAILURE(pair.FailingFlush(1 + random.Below(capacity + 1)));
      } else if (action < 3 * flushes) {
        pair.Flush();
        ASSERT_NO_FATAL_FAILURE(pair.ExpectSame());
      } else if (action == 990) {
        pair.Clear();
      } else if (action == 991) {
        pair.Flush();
        pair.Reload();
      } else if (action == 992) {
        pair.Flush();
        pair.MoveRing(random.Below(capacity));
      } else {
        clock += random.Below(3);
        const int second = random.Below(4) == 0 ? clock - random.Below(spread) : clock;
        body.timestamp[4] = static_cast<std::int16_t>(second / 60);
        body.timestamp[5] = static_cast<std::int16_t>(second % 60);
        std::memcpy(body.origin, &step, sizeof step);
        ASSERT_NO_FATAL_FAILURE(pair.Add(body));
      }
    }
    pair.Flush();
    ASSERT_NO_FATAL_FAILURE(pair.ExpectSame());
  }
}

INSTANTIATE_TEST_SUITE_P(Capacities, PendingListAgainstPlainOne, testing::Values(1, 2, 3, 7, 20, 100, 700),
                         [](const auto& capacity) { return "Of" + std::to_string(capacity.param); });

}  // namespace
}  // namespace StoreTest
