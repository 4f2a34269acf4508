#include "client/log/cursor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "tests/support/ring_model.h"

namespace {

using TamLogClient::Cursor;
using TamLogClient::CursorOf;
using TamLogClient::FindCursor;
using TamLogClient::FormatCursor;
using TamLogClient::LogMessageView;
using TamLogClient::LogSnapshot;
using TamLogClient::ParseCursor;
using TamLogTest::MakeBody;
using TamLogTest::RingModel;

class CursorTest : public testing::Test {
 protected:
  void Add(const std::string& letters) {
    for (const char letter : letters) log.Submit(MakeBody(now += 10, std::string(1, letter)));
    log.Flush();
  }

  // The cursor of the message with this text, the `twin`th from the oldest.
  Cursor At(const std::string& text, int twin = 1) const {
    const LogSnapshot snapshot = log.Snapshot();
    const auto order = OrderMessages(snapshot).oldestFirst;
    for (std::size_t i = 0; i < order.size(); ++i) {
      if (LogMessageView(snapshot.slots[order[i]]).Text() == text && --twin == 0) {
        return CursorOf(snapshot, order, i);
      }
    }
    ADD_FAILURE() << text << " is not in the log";
    return {};
  }

  Cursor Hinted(const std::string& text) const {
    Cursor cursor = At(text);
    cursor.hint = TamLogClient::HintOf(log.Snapshot().header);
    return cursor;
  }

  // The cursors of all messages.
  std::vector<std::string> All() const {
    const LogSnapshot snapshot = log.Snapshot();
    const auto order = OrderMessages(snapshot).oldestFirst;
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < order.size(); ++i)
      texts.push_back(FormatCursor(CursorOf(snapshot, order, i)));
    return texts;
  }
  // How many of these cursors the messages of the log have now.
  std::size_t Kept(const std::vector<std::string>& before) const {
    const auto present = All();
    return static_cast<std::size_t>(std::count_if(before.begin(), before.end(), [&](const std::string& text) {
      return std::count(present.begin(), present.end(), text) == 1;
    }));
  }

  void ExpectEveryChangeIsNoticed(bool hinted) const {
    const std::string text = FormatCursor(hinted ? Hinted("b") : At("b"));
    for (std::size_t i = 0; i < text.size(); ++i) {
      for (const char other : {'0', '1', 'a', 'A', 'f', '.', '+', ' ', '-', '\0', '\xff'}) {
        std::string changed = text;
        changed[i] = other;
        EXPECT_EQ(ParseCursor(changed).has_value(), changed == text) << changed;
      }
      EXPECT_EQ(ParseCursor(text.substr(0, i)).has_value(), hinted && text[i] == '+');
      EXPECT_FALSE(ParseCursor(text.substr(i + 1)));
    }
    EXPECT_FALSE(ParseCursor(text + "0"));
    EXPECT_FALSE(ParseCursor(" " + text));
    EXPECT_FALSE(ParseCursor(std::string(100000, '.')));
  }

  // The texts after the cursor; a question mark in front when its message is gone.
  std::string After(const Cursor& cursor) const {
    const LogSnapshot snapshot = log.Snapshot();
    const auto order = OrderMessages(snapshot).oldestFirst;
    const auto place = FindCursor(snapshot, order, cursor);
    std::string texts = place.found ? "" : "?";
    for (std::size_t i = place.next; i < order.size(); ++i) {
      texts += LogMessageView(snapshot.slots[order[i]]).Text();
    }
    return texts;
  }

  bool WrittenBefore(const Cursor& cursor) const {
    const LogSnapshot snapshot = log.Snapshot();
    return FindCursor(snapshot, OrderMessages(snapshot).oldestFirst, cursor).writtenBefore;
  }

  RingModel log{8};
  int now = 0;
};

TEST_F(CursorTest, TextGoesBothWays) {
  Add("abc");
  const Cursor cursor = At("b");
  EXPECT_EQ(ParseCursor(FormatCursor(cursor)), cursor);
  const Cursor largest{
      UINT64_MAX, {UINT64_MAX, UINT64_MAX}, UINT32_MAX, TamLogClient::CursorHint{UINT64_MAX, UINT64_MAX}};
  EXPECT_EQ(ParseCursor(FormatCursor(largest)), largest);
  EXPECT_LE(FormatCursor(largest).size(), 120U);
  const Cursor smallest{0, {0, 0}, 1};
  EXPECT_EQ(ParseCursor(FormatCursor(smallest)), smallest);
}

TEST_F(CursorTest, EveryChangedCharacterIsNoticed) {
  Add("abc");
  for (const bool hinted : {false, true}) ExpectEveryChangeIsNoticed(hinted);
}

TEST_F(CursorTest, TextsOfEarlierVersionsAreAccepted) {
  const std::string text = "c1.7.2.3.4.5.6.";
  const auto cursor = ParseCursor(text + "91d756da");
  ASSERT_TRUE(cursor);
  EXPECT_EQ(*cursor, (Cursor{7, {2, 3}, 4, TamLogClient::CursorHint{5, 6}}));
  EXPECT_FALSE(ParseCursor(text + "91d756db"));
  EXPECT_FALSE(ParseCursor("c1.7.2.3.4.91d756da"));
}

TEST_F(CursorTest, HintFollowsTheSameTextAfterAPlusSign) {
  Add("abc");
  const std::string text = FormatCursor(At("b"));
  EXPECT_EQ(FormatCursor(Hinted("b")).substr(0, text.size() + 1), text + "+");
}

// Whatever happens to the log, a message that stays in it keeps its cursor.
TEST_F(CursorTest, StaysTheSameTextAsLongAsItsMessageIsThere) {
  Add("abcde");
  log.Submit(MakeBody(40, "d"));  // a twin
  log.Flush();
  const auto before = All();
  EXPECT_EQ(before.size(), 6U);
  log.Submit(MakeBody(25, "late"));
  log.Flush();
  EXPECT_EQ(Kept(before), 6U);
  Add("xyz");  // one is overwritten
  EXPECT_EQ(Kept(before), 4U);
  EXPECT_EQ(All().size(), 8U);
}

TEST_F(CursorTest, EachMessageOfALogHasItsOwn) {
  for (int i = 0; i < 5; ++i) log.Submit(MakeBody(10, "same"));
  Add("ab");
  const auto all = All();
  EXPECT_EQ(std::set<std::string>(all.begin(), all.end()).size(), 7U);
}

TEST_F(CursorTest, TwinsHaveTheSameNumbersWhicheverWayTheyAreCounted) {
  for (const int time : {10, 20, 20, 20, 30}) {
    log.Submit(MakeBody(time, "same"));
    log.Submit(MakeBody(time, "other"));
  }
  log.Flush();
  const LogSnapshot snapshot = log.Snapshot();
  const auto order = OrderMessages(snapshot).oldestFirst;
  TamLogClient::TwinCount count;
  TamLogClient::TwinNumbers numbers;
  numbers.Add(snapshot);
  const auto twins = TamLogClient::TwinsIn(snapshot, order);
  for (std::size_t i = 0; i < order.size(); ++i) {
    const LogMessage& message = snapshot.slots[order[i]];
    const std::uint32_t twin = CursorOf(snapshot, order, i).twin;
    EXPECT_EQ(count.Next(message.body), twin);
    EXPECT_EQ(numbers.Of(&message), twin);
    EXPECT_EQ(twins[i], twin);
  }
}

// The times of one of them fall into one bucket of a hash table that does not mix its keys.
TEST_F(CursorTest, TwinsOfMessagesWithCraftedTimesTakeAboutTheOrdinaryWork) {
  constexpr std::uint64_t kMessages = 30000;
  std::unordered_set<std::uint64_t> table;
  for (std::uint64_t key = 0; key < kMessages; ++key) table.insert(key);
  const auto secondsFor = [](std::uint64_t distance) {
    LogSnapshot snapshot;
    snapshot.slots.resize(kMessages);
    snapshot.header.messageCount = snapshot.header.maxMessages = kMessages;
    std::vector<std::uint32_t> slots;
    for (std::uint32_t i = 0; i < kMessages; ++i) {
      std::uint64_t key = (i + 1) * distance;
      auto& words = snapshot.slots[i].body.timestamp;
      for (const auto& [word, base] : {std::pair(6, 1000), {5, 60}, {4, 60}, {3, 24}, {2, 31}, {1, 12}}) {
        words[word] = static_cast<std::int16_t>(key % static_cast<std::uint64_t>(base));
        key /= static_cast<std::uint64_t>(base);
      }
      words[0] = static_cast<std::int16_t>(key);
      EXPECT_EQ(TimeKey(snapshot.slots[i].body), (i + 1) * distance);
      slots.push_back(i);
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(TamLogClient::TwinsIn(snapshot, slots), std::vector<std::uint32_t>(kMessages, 1));
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  const double ordinary = secondsFor(10);
  EXPECT_LE(secondsFor(table.bucket_count()), 4 * ordinary + 1);
}

TEST_F(CursorTest, FindsWhatComesAfterIt) {
  Add("abc");
  const Cursor cursor = Hinted("b");
  EXPECT_EQ(After(cursor), "c");
  Add("de");
  EXPECT_EQ(After(cursor), "cde");
  EXPECT_FALSE(WrittenBefore(cursor));
}

TEST_F(CursorTest, SurvivesARewriteOfTheWholeRing) {
  Add("abcdefgh");  // a burst of the capacity: backwards in the file
  const Cursor cursor = At("f");
  EXPECT_EQ(After(cursor), "gh");
  log.Submit(MakeBody(0, "old"));
  log.Flush();
  EXPECT_EQ(After(cursor), "gh");
}

TEST_F(CursorTest, LateMessagesAreNotAfterItButAreReported) {
  Add("abc");
  const Cursor cursor = Hinted("c");
  log.Submit(MakeBody(25, "L"));
  log.Flush();
  EXPECT_EQ(After(cursor), "");
  EXPECT_TRUE(WrittenBefore(cursor));
  EXPECT_EQ(After(At("b")), "Lc");
}

TEST_F(CursorTest, EqualMessagesAreDistinguished) {
  for (int i = 0; i < 3; ++i) log.Submit(MakeBody(10, "same"));
  log.Submit(MakeBody(20, "z"));
  log.Flush();
  EXPECT_EQ(After(At("same", 1)), "samesamez");
  EXPECT_EQ(After(At("same", 2)), "samez");
  EXPECT_EQ(After(At("same", 3)), "z");
  EXPECT_EQ(At("same", 3).twin, 3U);
}

TEST_F(CursorTest, CursorOfAGoneMessageGivesWhatIsNewer) {
  Add("abc");
  const Cursor cursor = At("b");
  Add("defghijk");
  EXPECT_EQ(After(cursor), "?defghijk");
  log.Clear();
  EXPECT_EQ(After(cursor), "?");
  Add("x");
  EXPECT_EQ(After(cursor), "?x");
}

TEST_F(CursorTest, FindsItsMessageInAnotherFile) {
  Add("abc");
  const Cursor cursor = At("b");
  RingModel other(100);
  other.Submit(MakeBody(20, "b"));
  other.Submit(MakeBody(99, "y"));
  other.Flush();
  log = other;
  EXPECT_EQ(After(cursor), "y");
}

}  // namespace
