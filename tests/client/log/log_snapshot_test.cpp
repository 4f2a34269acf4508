#include "client/log/log_snapshot.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "client/log/header_counters.h"
#include "client/message/log_message_view.h"
#include "tests/support/ring_model.h"

namespace {

using TamLogClient::LogMessageView;
using TamLogClient::LogSnapshot;
using TamLogTest::MakeBody;
using TamLogTest::RingModel;

std::vector<std::string> Texts(const LogSnapshot& snapshot) {
  std::vector<std::string> texts;
  for (const std::uint32_t slot : OrderMessages(snapshot).oldestFirst) {
    texts.emplace_back(LogMessageView(snapshot.slots[slot]).Text());
  }
  return texts;
}

void SubmitAll(RingModel& log, const std::string& letters, std::int32_t from = 0) {
  for (const char letter : letters) log.Submit(MakeBody(from++, std::string(1, letter)));
}

using Strings = std::vector<std::string>;

TEST(LogSnapshot, EmptyLogHasNoMessages) {
  EXPECT_TRUE(Texts(RingModel(4).Snapshot()).empty());
}

TEST(LogSnapshot, MessagesComeOldestFirstAfterTheRingWrapped) {
  RingModel log(4);
  SubmitAll(log, "abc");
  log.Flush();
  SubmitAll(log, "de", 10);
  log.Flush();
  EXPECT_EQ(Texts(log.Snapshot()), (Strings{"b", "c", "d", "e"}));
  EXPECT_FALSE(OrderMessages(log.Snapshot()).reordered);
}

TEST(LogSnapshot, BackDatedMessageStandsAtItsTime) {
  RingModel log(8);
  SubmitAll(log, "ac");
  log.Flush();
  log.Submit(MakeBody(0, "b"));
  log.Flush();
  EXPECT_EQ(Texts(log.Snapshot()), (Strings{"a", "b", "c"}));
}

TEST(LogSnapshot, RewrittenRingIsTurnedRound) {
  RingModel log(4);
  SubmitAll(log, "abcde");
  log.Flush();
  EXPECT_EQ(Texts(log.Snapshot()), (Strings{"b", "c", "d", "e"}));
  EXPECT_TRUE(OrderMessages(log.Snapshot()).reordered);
}

TEST(LogSnapshot, MessagesAppendedAfterARewriteComeAfterTheBackwardStretch) {
  RingModel log(5);
  SubmitAll(log, "abcde");
  log.Flush();
  SubmitAll(log, "fg", 100);
  log.Flush();
  // f and g overwrite the two newest of the stretch.
  EXPECT_EQ(Texts(log.Snapshot()), (Strings{"a", "b", "c", "f", "g"}));
}

TEST(LogSnapshot, EqualTimesKeepTheOrderOfArrivalInABackwardStretchToo) {
  RingModel log(4);
  log.Submit(MakeBody(1, "a"));
  log.Submit(MakeBody(5, "b"));
  log.Submit(MakeBody(5, "c"));
  log.Submit(MakeBody(9, "d"));
  log.Flush();
  EXPECT_EQ(Texts(log.Snapshot()), (Strings{"a", "b", "c", "d"}));
}

TEST(LogSnapshot, NegativeTimeWordsSortLast) {
  RingModel log(4);
  LogMessageBody odd = MakeBody(5, "odd");
  odd.timestamp[0] = -1;
  log.Submit(odd);
  log.Submit(MakeBody(9, "a"));
  log.Flush();
  EXPECT_EQ(Texts(log.Snapshot()), (Strings{"a", "odd"}));
}

TEST(LogSnapshot, DamagedHeaderIsBoundedByTheSlotsThatAreThere) {
  RingModel log(4);
  SubmitAll(log, "abc");
  log.Flush();
  for (const std::int32_t value : {-1, -2147483647, 4, 5, 1000, 2147483647}) {
    for (const int field : {0, 1, 2}) {
      LogSnapshot snapshot = log.Snapshot();
      std::int32_t* const fields[] = {&snapshot.header.messageCount, &snapshot.header.maxMessages,
                                      &snapshot.header.nextSlot};
      *fields[field] = value;
      for (const std::uint32_t slot : snapshot.RingOrder()) EXPECT_LT(slot, snapshot.slots.size());
      EXPECT_LE(snapshot.RingOrder().size(), snapshot.slots.size());
    }
  }
}

TEST(LogSnapshot, HeaderIsSoundOnlyWithinItsBounds) {
  LogSnapshot snapshot = RingModel(4).Snapshot();
  EXPECT_TRUE(snapshot.HeaderIsSound());
  snapshot.header.messageCount = 5;
  EXPECT_FALSE(snapshot.HeaderIsSound());
  snapshot.header.messageCount = 4;
  snapshot.header.nextSlot = 4;
  EXPECT_FALSE(snapshot.HeaderIsSound());
  snapshot.header.nextSlot = 3;
  snapshot.header.maxMessages = 5;
  EXPECT_FALSE(snapshot.HeaderIsSound());
  snapshot.header.maxMessages = 0;
  EXPECT_FALSE(snapshot.HeaderIsSound());
}

TEST(LogSnapshot, DamagedMessagesAreCountedAndTheirTextsEndWithTheirFields) {
  RingModel log(4);
  SubmitAll(log, "abc");
  log.Flush();
  LogSnapshot snapshot = log.Snapshot();
  for (char& letter : snapshot.slots[0].body.text) letter = 'x';
  snapshot.slots[1].body.type = 4;
  EXPECT_EQ(OrderMessages(snapshot).damaged, 2U);
  EXPECT_EQ(LogMessageView(snapshot.slots[0]).Text().size(), kTextSize);
}

TEST(MessageIdentity, EveryByteOfTheSendersFormCounts) {
  const LogMessageBody body = MakeBody(1, "text");
  for (std::size_t at = 0; at < sizeof(body); ++at) {
    LogMessageBody other = body;
    auto* const bytes = reinterpret_cast<unsigned char*>(&other);
    bytes[at] = static_cast<unsigned char>(bytes[at] ^ 1U);
    EXPECT_FALSE(TamLogClient::IdentityOf(other) == TamLogClient::IdentityOf(body)) << at;
  }
  EXPECT_TRUE(TamLogClient::IdentityOf(LogMessageBody(body)) == TamLogClient::IdentityOf(body));
}

TEST(HeaderCounters, SayHowManyWereAppendedAndNothingWhenMoreThanThatHappened) {
  LogFileHeader before{};
  before.maxMessages = 8;
  before.changeCount = 5;
  before.rewriteCount = 2;
  before.nextSequence = 10;
  LogFileHeader now = before;
  EXPECT_EQ(TamLogClient::AppendedSince(before, now), 0U);
  now.changeCount = 6;
  now.nextSequence = 13;
  EXPECT_EQ(TamLogClient::AppendedSince(before, now), 3U);
  EXPECT_FALSE(TamLogClient::AppendedSince(now, before));
  for (const auto change : {+[](LogFileHeader& header) { header.maxMessages = 9; },
                            +[](LogFileHeader& header) { header.changeCount = 4; },
                            +[](LogFileHeader& header) { header.rewriteCount = 3; },
                            +[](LogFileHeader& header) { header.nextSequence = 9; }}) {
    LogFileHeader other = now;
    change(other);
    EXPECT_FALSE(TamLogClient::AppendedSince(before, other));
  }
}

}  // namespace
