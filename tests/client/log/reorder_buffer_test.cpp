#include "client/log/reorder_buffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "client/message/log_message_view.h"
#include "tests/support/ring_model.h"

namespace {

using TamLogClient::LogMessageView;
using TamLogClient::ReorderBuffer;
using TamLogTest::MakeBody;

class ReorderBufferTest : public testing::Test {
 protected:
  ReorderBufferTest() { buffer.SetHold(100); }

  void Add(std::int32_t time, const std::string& text, std::uint64_t now) {
    LogMessage message{};
    message.body = MakeBody(time, text);
    buffer.Add(message, now);
  }

  // Returns the messages that are due at this time, a late one with a sign in front.
  std::string At(std::uint64_t now) {
    std::vector<ReorderBuffer::Ready> ready;
    buffer.TakeDue(now, ready);
    return TextsOf(ready);
  }

  static std::string TextsOf(const std::vector<ReorderBuffer::Ready>& ready) {
    std::string texts;
    for (const auto& entry : ready) {
      texts += (entry.late ? "!" : "") + std::string(LogMessageView(entry.message).Text());
    }
    return texts;
  }

  ReorderBuffer buffer;
};

TEST_F(ReorderBufferTest, HoldsBackAndGivesInTimeOrder) {
  Add(20, "b", 0);
  Add(10, "a", 50);
  EXPECT_EQ(At(99), "");
  EXPECT_EQ(At(100), "ab");  // b is due, and a belongs before it
  EXPECT_EQ(buffer.Size(), 0U);
}

TEST_F(ReorderBufferTest, WhatIsDatedLaterWaitsOn) {
  Add(10, "a", 0);
  Add(20, "b", 50);
  EXPECT_EQ(At(120), "a");
  EXPECT_EQ(At(150), "b");
}

TEST_F(ReorderBufferTest, EqualTimesKeepTheirOrder) {
  for (const char* const text : {"a", "b", "c"}) Add(10, text, 0);
  EXPECT_EQ(At(100), "abc");
}

TEST_F(ReorderBufferTest, TooLateMessageIsGivenAtOnceAndMarked) {
  Add(20, "b", 0);
  EXPECT_EQ(At(100), "b");
  Add(10, "a", 110);
  Add(30, "c", 110);
  EXPECT_EQ(At(110), "!a");
  EXPECT_EQ(At(210), "c");
}

TEST_F(ReorderBufferTest, MessageOfAWrongClockDoesNotKeepOthersBackNorMakeAllLate) {
  Add(90000, "future", 0);
  Add(10, "a", 10);
  EXPECT_EQ(At(100), "afuture");
  Add(20, "b", 120);
  EXPECT_EQ(At(120), "!b");
  Add(30, "c", 130);
  EXPECT_EQ(At(230), "c");
}

TEST_F(ReorderBufferTest, AllIsGivenAtTheEnd) {
  Add(20, "b", 0);
  Add(10, "a", 0);
  std::vector<ReorderBuffer::Ready> ready;
  buffer.TakeAll(ready);
  EXPECT_EQ(TextsOf(ready), "ab");
}

}  // namespace
