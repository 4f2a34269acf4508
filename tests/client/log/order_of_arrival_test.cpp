// All histories of small rings: messages come out in the order of time, and those with equal times in the
// order of their arrival, wherever the ring shows it at all.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "client/log/log_snapshot.h"
#include "client/message/log_message_view.h"
#include "tests/support/ring_model.h"

namespace {

using TamLogClient::LogSnapshot;
using TamLogTest::MakeBody;
using TamLogTest::RingModel;

using Messages = std::vector<std::size_t>;  // by the order of their submission

struct Histories {
  const char* name = "";
  std::int32_t capacity = 1;
  int times = 2;    // different ones
  int flushes = 2;  // of one to capacity + 1 messages each
  bool restarts = false;
};

void PrintTo(const Histories& histories, std::ostream* out) {
  *out << histories.name;
}

// Returns an empty log whose next number is not 0: that is also the number of messages without one.
RingModel UsedLog(std::int32_t capacity) {
  RingModel log(capacity);
  for (int i = 0; i < 6; ++i) {
    log.Submit(MakeBody(i, "before"));
    log.Flush();
    log.Clear();
  }
  return log;
}

// A server may write a message a second time while the first copy stands. The last one counts.
Messages LastCopies(const Messages& messages) {
  Messages last;
  for (auto each = messages.rbegin(); each != messages.rend(); ++each) {
    if (std::find(last.begin(), last.end(), *each) == last.end()) last.push_back(*each);
  }
  std::reverse(last.begin(), last.end());
  return last;
}

class OrderOfArrivals : public testing::TestWithParam<Histories> {
 protected:
  // A ring as a reader sees it: the order of its times, numbers since the last one, equal messages.
  using Image = std::vector<std::uint64_t>;
  struct Orders {
    std::set<Messages> arrivals;  // as positions in the ring; more than one where the ring does not show it
    Messages read;
    std::string story;
  };

  void Continue(const RingModel& log, int flushes, const std::string& story) {
    if (flushes == 0) return;
    const Histories& histories = GetParam();
    for (int length = 1; length <= histories.capacity + 1; ++length) {
      std::vector<int> times(static_cast<std::size_t>(length), 1);
      do {
        RingModel next = log;
        std::string text = story + " |";
        for (const int time : times) {
          next.Submit(MakeBody(time, "m"));
          text += " " + std::to_string(time);
        }
        next.Flush();
        Look(next, text);
        Continue(next, flushes - 1, text);
      } while (Count(times));
    }
    RingModel next = log;
    if (!histories.restarts || !next.Restart()) return;
    Look(next, story + " | restart");
    Continue(next, flushes - 1, story + " | restart");
  }

  static bool Count(std::vector<int>& times) {
    for (int& time : times) {
      if (time++ < GetParam().times) return true;
      time = 1;
    }
    return false;
  }

  void Look(const RingModel& log, const std::string& story) {
    const LogSnapshot snapshot = log.Snapshot();
    const std::vector<std::uint32_t> ring = snapshot.RingOrder();
    const auto keyOf = [&](std::uint32_t slot) { return TimeKey(snapshot.slots[slot].body); };
    Messages messages;
    std::set<std::uint64_t> keys;
    for (const std::uint32_t slot : ring) {
      messages.push_back(log.MessageIn(slot));
      keys.insert(keyOf(slot));
    }
    const auto positionOf = [&](std::uint32_t slot) {
      const auto found = std::find(messages.begin(), messages.end(), log.MessageIn(slot));
      return static_cast<std::size_t>(found - messages.begin());
    };
    Image image = {static_cast<std::uint64_t>(snapshot.header.nextSlot), ring.size()};
    Messages read;
    for (const std::uint32_t slot : ring) {
      const std::uint64_t number = snapshot.slots[slot].sequence;
      image.push_back(static_cast<std::uint64_t>(std::distance(keys.begin(), keys.find(keyOf(slot)))));
      image.push_back(number == 0 ? 0 : snapshot.header.nextSequence - number);
      image.push_back(positionOf(slot));
    }
    for (const std::uint32_t slot : OrderMessages(snapshot).oldestFirst) read.push_back(positionOf(slot));
    std::vector<std::uint32_t> arrival = ring;
    std::stable_sort(arrival.begin(), arrival.end(), [&](std::uint32_t a, std::uint32_t b) {
      return std::pair(keyOf(a), log.MessageIn(a)) < std::pair(keyOf(b), log.MessageIn(b));
    });
    Messages arrived;
    for (const std::uint32_t slot : arrival) arrived.push_back(positionOf(slot));
    Orders& orders = seen[image];
    orders.arrivals.insert(LastCopies(arrived));
    orders.read = LastCopies(read);
    orders.story = story;
  }

  std::map<Image, Orders> seen;
};

TEST_P(OrderOfArrivals, IsReadWhereverTheRingShowsIt) {
  const Histories& histories = GetParam();
  Continue(UsedLog(histories.capacity), histories.flushes, "");
  std::size_t shown = 0;
  for (const auto& [image, orders] : seen) {
    EXPECT_TRUE(orders.arrivals.contains(orders.read)) << orders.story;
    if (orders.arrivals.size() == 1) ++shown;
  }
  // Only a restart in between hides the order of rings that small.
  EXPECT_EQ(shown, seen.size() - (histories.restarts ? 1U : 0U));
  EXPECT_GT(shown, 10U);
}

INSTANTIATE_TEST_SUITE_P(
    Rings, OrderOfArrivals,
    testing::Values(Histories{.name = "Two", .capacity = 2, .times = 3, .flushes = 3},
                    Histories{.name = "Three", .capacity = 3, .times = 2, .flushes = 3},
                    Histories{.name = "ThreeOfThreeTimes", .capacity = 3, .times = 3, .flushes = 2},
                    Histories{
                        .name = "ThreeRestarted", .capacity = 3, .times = 2, .flushes = 3, .restarts = true},
                    Histories{.name = "Four", .capacity = 4, .times = 2, .flushes = 2},
                    Histories{.name = "Five", .capacity = 5, .times = 2, .flushes = 2}),
    [](const testing::TestParamInfo<Histories>& each) { return std::string(each.param.name); });

// Two messages of one time before a newer one: the second one was inserted, or it is the oldest of a full
// rewrite.
TEST(OrderOfArrival, OfAnInsertedMessageCannotBeToldFromThatOfTheOldestOfAFullRewrite) {
  std::vector<std::uint64_t> numbers[2];
  std::vector<std::size_t> messages[2];
  const std::vector<std::vector<int>> histories[] = {{{1}, {2, 1, 1}, {1}}, {{2}, {2, 2, 1}, {3}}};
  for (const int which : {0, 1}) {
    RingModel log = UsedLog(3);
    for (const std::vector<int>& flush : histories[which]) {
      for (const int time : flush) log.Submit(MakeBody(time, "m"));
      log.Flush();
    }
    const LogSnapshot snapshot = log.Snapshot();
    EXPECT_EQ(snapshot.header.nextSlot, 1);
    const auto ring = snapshot.RingOrder();
    EXPECT_EQ(TimeKey(snapshot.slots[ring[0]].body), TimeKey(snapshot.slots[ring[1]].body));
    EXPECT_LT(TimeKey(snapshot.slots[ring[1]].body), TimeKey(snapshot.slots[ring[2]].body));
    for (const std::uint32_t slot : ring) {
      numbers[which].push_back(snapshot.header.nextSequence - snapshot.slots[slot].sequence);
      messages[which].push_back(log.MessageIn(slot));
    }
    EXPECT_EQ(OrderMessages(snapshot).oldestFirst, ring);
  }
  EXPECT_EQ(std::vector(numbers[0].begin() + 1, numbers[0].end()),
            std::vector(numbers[1].begin() + 1, numbers[1].end()));
  EXPECT_LT(messages[0][0], messages[0][1]);
  EXPECT_GT(messages[1][0], messages[1][1]);
}

}  // namespace
