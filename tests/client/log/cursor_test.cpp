#include "client/log/cursor.h"

#include <gtest/gtest.h>

#include <string>

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

  // The cursor of the message with this text, the `occurrence`th from the oldest.
  Cursor At(const std::string& text, int occurrence = 1) const {
    const LogSnapshot snapshot = log.Snapshot();
    const auto order = OrderMessages(snapshot).oldestFirst;
    for (std::size_t i = 0; i < order.size(); ++i) {
      if (LogMessageView(snapshot.slots[order[i]]).Text() == text && --occurrence == 0) {
        return CursorOf(snapshot, order, i);
      }
    }
    ADD_FAILURE() << text << " is not in the log";
    return {};
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
  const Cursor largest{UINT64_MAX, {UINT64_MAX, UINT64_MAX}, UINT32_MAX, UINT64_MAX, UINT64_MAX};
  EXPECT_EQ(ParseCursor(FormatCursor(largest)), largest);
  const Cursor smallest{0, {0, 0}, 1, 0, 0};
  EXPECT_EQ(ParseCursor(FormatCursor(smallest)), smallest);
}

TEST_F(CursorTest, EveryChangedCharacterIsNoticed) {
  Add("abc");
  const std::string text = FormatCursor(At("b"));
  for (std::size_t i = 0; i < text.size(); ++i) {
    for (const char other : {'0', '1', 'a', 'A', 'f', '.', ' ', '-', '\0', '\xff'}) {
      std::string changed = text;
      changed[i] = other;
      EXPECT_EQ(ParseCursor(changed).has_value(), changed == text) << changed;
    }
    EXPECT_FALSE(ParseCursor(text.substr(0, i)));
    EXPECT_FALSE(ParseCursor(text.substr(i + 1)));
  }
  EXPECT_FALSE(ParseCursor(text + "0"));
  EXPECT_FALSE(ParseCursor(" " + text));
  EXPECT_FALSE(ParseCursor(std::string(100000, '.')));
}

TEST_F(CursorTest, FindsWhatComesAfterIt) {
  Add("abc");
  const Cursor cursor = At("b");
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
  const Cursor cursor = At("c");
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
  EXPECT_EQ(At("same", 3).occurrence, 3U);
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
