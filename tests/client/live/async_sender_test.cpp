#include "client/live/async_sender.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/client/live/scripted_transport.h"

namespace {

using namespace std::chrono_literals;
using TamLogClient::AsyncSender;
using TamLogClient::AsyncSenderOptions;
using TamLogClient::LongText;
using TamLogClient::Overflow;
using TamLogClient::SenderCounters;
using TamLogClient::SenderEntry;
using TamLogClient::SendResult;
using TamLogClient::Status;
using TamLogClient::TimeWords;
using TamLogTest::ScriptedServer;

using Texts = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kPlenty = 20000;  // ms: long enough for a busy machine

std::uint64_t Settled(const SenderCounters& counters) {
  return counters.sent + counters.dropped + counters.refused + counters.doubtful;
}

bool Eventually(const std::function<bool()>& condition) {
  const auto end = Clock::now() + std::chrono::milliseconds(kPlenty);
  while (!condition()) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(2ms);
  }
  return true;
}

class AsyncSenderTest : public testing::Test {
 protected:
  AsyncSenderTest() {
    options.now = [] { return TimeWords{2026, 11, 21, 8, 0, 2, 125, 0}; };
    options.retryMs = 5;
    options.mostRetryMs = 20;
    options.closeMs = 100;
  }
  void Open() { sender = std::make_unique<AsyncSender>(server.Connect(), options); }
  SendResult Send(std::string_view text) {
    return sender->Submit({.type = 2, .source = "Test", .text = text});
  }
  // A message that waits inside the server, so that all later ones stay in the queue.
  void Block() {
    server.Hold();
    Send("first");
    ASSERT_TRUE(server.WaitForCaller());
  }
  SenderCounters CloseAndCount(std::uint32_t timeoutMs = kPlenty) {
    sender->Close(timeoutMs);
    return sender->Counters();
  }

  ScriptedServer server;
  AsyncSenderOptions options;
  std::unique_ptr<AsyncSender> sender;
};

TEST_F(AsyncSenderTest, MessagesArriveInOrderWithAllTheirFields) {
  Open();
  SenderEntry entry{.type = 3, .source = "Stage", .text = "one"};
  entry.tail[3] = 9;
  EXPECT_EQ(sender->Submit(entry), SendResult::Queued);
  entry.text = "two";
  entry.time = {2001, 2, 3, 4, 5, 6, 7, 8};
  entry.origin[0] = 77;
  EXPECT_EQ(sender->Submit(entry), SendResult::Queued);
  ASSERT_TRUE(sender->Flush(kPlenty));
  const auto taken = server.Taken();
  ASSERT_EQ(taken.size(), 2U);
  EXPECT_EQ(taken[0].type, 3U);
  EXPECT_STREQ(taken[0].source, "Stage");
  EXPECT_STREQ(taken[0].text, "one");
  EXPECT_EQ(taken[0].tail[3], 9);
  EXPECT_EQ(TamLogClient::WordsOf(taken[0]), (TimeWords{2026, 11, 21, 8, 0, 2, 125, 0}));
  EXPECT_STREQ(taken[1].text, "two");
  EXPECT_EQ(TamLogClient::WordsOf(taken[1]), (TimeWords{2001, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(taken[1].origin[0], 77);
  const SenderCounters counters = sender->Counters();
  EXPECT_EQ(counters.submitted, 2U);
  EXPECT_EQ(counters.sent, 2U);
  EXPECT_EQ(counters.waiting, 0U);
  EXPECT_EQ(counters.connects, 1U);
  EXPECT_FALSE(counters.away);
}

TEST_F(AsyncSenderTest, EqualMessagesHaveDifferentOrigins) {
  Open();
  for (int i = 0; i < 20; ++i) Send("same");
  ASSERT_TRUE(sender->Flush(kPlenty));
  std::set<std::string> origins;
  for (const auto& body : server.Taken()) origins.emplace(reinterpret_cast<const char*>(body.origin), 8);
  EXPECT_EQ(origins.size(), 20U);
}

TEST_F(AsyncSenderTest, LongTextIsSplitAndEveryPieceCounts) {
  Open();
  const std::string text = std::string(300, 'a') + std::string(300, 'b');
  EXPECT_EQ(Send(text), SendResult::Queued);
  ASSERT_TRUE(sender->Flush(kPlenty));
  const Texts texts = server.Texts();
  ASSERT_EQ(texts.size(), 3U);
  EXPECT_EQ(texts[0], std::string(253, 'a') + "...");
  EXPECT_EQ(texts[2].substr(0, 4), "...b");
  EXPECT_EQ(sender->Counters().submitted, 3U);
  EXPECT_EQ(sender->Counters().sent, 3U);
}

TEST_F(AsyncSenderTest, LongTextIsTruncatedOnRequest) {
  options.longText = LongText::Truncate;
  Open();
  Send(std::string(300, 'a'));
  ASSERT_TRUE(sender->Flush(kPlenty));
  EXPECT_EQ(server.Texts(), Texts{std::string(253, 'a') + "..."});
}

TEST_F(AsyncSenderTest, WhatCannotBeAMessageIsRefusedAndCounted) {
  options.longText = LongText::Refuse;
  Open();
  EXPECT_EQ(Send(std::string(257, 'a')), SendResult::TooLong);
  EXPECT_EQ(Send(std::string(256, 'a')), SendResult::Queued);
  EXPECT_EQ(sender->Submit({.source = std::string(257, 's')}), SendResult::TooLong);
  EXPECT_EQ(sender->Submit({.type = 4}), SendResult::BadValue);
  EXPECT_EQ(Send(std::string_view("a\0b", 3)), SendResult::BadValue);
  const SenderCounters counters = CloseAndCount();
  EXPECT_EQ(counters.refused, 4U);
  EXPECT_EQ(counters.sent, 1U);
  EXPECT_EQ(counters.submitted, 5U);
}

TEST_F(AsyncSenderTest, FullQueueDropsTheNewestAndReportsItWhenThereIsRoom) {
  options.queueCapacity = 2;
  options.overflow = Overflow::DropNewest;
  options.noticeSource = "Sender";
  options.noticeType = 1;
  Open();
  Block();
  EXPECT_EQ(Send("a"), SendResult::Queued);
  EXPECT_EQ(Send("b"), SendResult::Queued);
  EXPECT_EQ(Send("c"), SendResult::Dropped);
  EXPECT_EQ(Send(std::string(300, 'd')), SendResult::Dropped);
  server.Release();
  const SenderCounters counters = CloseAndCount();
  EXPECT_EQ(server.Texts(), (Texts{"first", "a", "3 messages dropped", "b"}));
  EXPECT_STREQ(server.Taken()[2].source, "Sender");
  EXPECT_EQ(server.Taken()[2].type, 1U);
  EXPECT_EQ(counters.submitted, 6U);
  EXPECT_EQ(counters.sent, 3U);
  EXPECT_EQ(counters.dropped, 3U);
  EXPECT_EQ(counters.notices, 1U);
  EXPECT_EQ(counters.mostWaiting, 2U);
}

TEST_F(AsyncSenderTest, FullQueueDropsTheOldest) {
  options.queueCapacity = 2;
  options.overflow = Overflow::DropOldest;
  Open();
  Block();
  for (const char* text : {"a", "b", "c", "d"}) EXPECT_EQ(Send(text), SendResult::Queued);
  server.Release();
  const SenderCounters counters = CloseAndCount();
  EXPECT_EQ(server.Texts(), (Texts{"first", "c", "2 messages dropped", "d"}));
  EXPECT_EQ(counters.dropped, 2U);
  EXPECT_EQ(counters.sent, 3U);
}

TEST_F(AsyncSenderTest, FullQueueMakesTheCallerWaitAndLosesNothing) {
  options.queueCapacity = 2;
  Open();
  Block();
  std::atomic<int> done{0};
  std::thread caller([&] {
    for (const char* text : {"a", "b", "c", "d"}) {
      EXPECT_EQ(Send(text), SendResult::Queued);
      ++done;
    }
  });
  ASSERT_TRUE(Eventually([&] { return done == 2; }));
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(done, 2);
  server.Release();
  caller.join();
  const SenderCounters counters = CloseAndCount();
  EXPECT_EQ(server.Texts(), (Texts{"first", "a", "b", "c", "d"}));
  EXPECT_EQ(counters.dropped, 0U);
}

TEST_F(AsyncSenderTest, TextOfMorePiecesThanTheQueueHoldsIsSentAllTheSame) {
  options.queueCapacity = 2;
  Open();
  EXPECT_EQ(Send(std::string(2000, 'a')), SendResult::Queued);
  EXPECT_EQ(CloseAndCount().sent, 8U);
}

TEST_F(AsyncSenderTest, CallerDoesNotWaitForAServerThatIsAway) {
  options.queueCapacity = 2;
  options.fallbackCapacity = 3;
  server.AnswerWith(Status::NotRunning);
  Open();
  Send("0");
  ASSERT_TRUE(Eventually([&] { return sender->Counters().away; }));
  for (const char* text : {"1", "2", "3", "4"}) EXPECT_EQ(Send(text), SendResult::Queued);
  EXPECT_EQ(Send("5"), SendResult::Dropped);
  EXPECT_EQ(sender->Counters().lastFailure, Status::NotRunning);
  server.AnswerWith(Status::Ok);
  const SenderCounters counters = CloseAndCount();
  EXPECT_EQ(server.Texts(), (Texts{"0", "1", "2", "3", "1 messages dropped", "4"}));
  EXPECT_EQ(counters.sent, 5U);
  EXPECT_EQ(counters.dropped, 1U);
  EXPECT_FALSE(counters.away);
}

TEST_F(AsyncSenderTest, MessagesOfTheTimeWithoutServerKeepTheirTimes) {
  server.AnswerWith(Status::NotRunning);
  std::atomic<std::int16_t> second{0};
  options.now = [&second] { return TimeWords{2026, 11, 21, 8, 0, second++, 0, 0}; };
  Open();
  for (int i = 0; i < 30; ++i) Send(std::to_string(i));
  ASSERT_TRUE(Eventually([&] { return sender->Counters().failures >= 3; }));
  server.AnswerWith(Status::Ok);
  ASSERT_TRUE(sender->Flush(kPlenty));
  const auto taken = server.Taken();
  ASSERT_EQ(taken.size(), 30U);
  for (std::size_t i = 0; i < taken.size(); ++i) {
    EXPECT_EQ(taken[i].timestamp[5], static_cast<std::int16_t>(i));
    EXPECT_EQ(taken[i].text, std::to_string(i));
  }
}

TEST_F(AsyncSenderTest, MessageWithoutAnswerIsSentAgainWithTheSameOrigin) {
  std::vector<LogMessageBody> seen;
  server.AnswerBy([&seen](const LogMessageBody& body) {
    seen.push_back(body);
    return seen.size() <= 2 ? Status::Disconnected : Status::Ok;
  });
  Open();
  Send("a");
  const SenderCounters counters = CloseAndCount();
  ASSERT_EQ(seen.size(), 3U);
  EXPECT_EQ(std::memcmp(&seen[0], &seen[2], sizeof(seen[0])), 0);
  EXPECT_EQ(counters.sent, 1U);
  EXPECT_EQ(counters.resent, 2U);
  EXPECT_EQ(counters.doubtful, 0U);
}

TEST_F(AsyncSenderTest, MessageWithoutAnswerIsOnlyCountedOnRequest) {
  options.resendDoubtful = false;
  server.AnswerBy([](const LogMessageBody& body) {
    return std::strcmp(body.text, "b") == 0 ? Status::TimedOut : Status::Ok;
  });
  Open();
  for (const char* text : {"a", "b", "c"}) Send(text);
  const SenderCounters counters = CloseAndCount();
  EXPECT_EQ(server.Texts(), (Texts{"a", "c"}));
  EXPECT_EQ(counters.doubtful, 1U);
  EXPECT_EQ(counters.sent, 2U);
  EXPECT_EQ(counters.resent, 0U);
}

// A pipe that stays busy times out as well, but such a message cannot have been stored.
TEST_F(AsyncSenderTest, MessageThatNeverLeftIsNotDoubtful) {
  options.resendDoubtful = false;
  server.KeepThemInside(true);
  int calls = 0;
  server.AnswerBy([&calls](const LogMessageBody&) {
    ++calls;
    return calls == 1 ? Status::TimedOut : calls == 2 ? Status::Disconnected : Status::Ok;
  });
  Open();
  Send("a");
  const SenderCounters counters = CloseAndCount();
  EXPECT_EQ(server.Texts(), (Texts{"a"}));
  EXPECT_EQ(counters.sent, 1U);
  EXPECT_EQ(counters.doubtful, 0U);
  EXPECT_EQ(counters.resent, 0U);
}

TEST_F(AsyncSenderTest, RefusalOfTheServerIsCountedAndNotRepeated) {
  server.AnswerBy([](const LogMessageBody& body) {
    return std::strcmp(body.text, "b") == 0 ? Status::Refused : Status::Ok;
  });
  Open();
  for (const char* text : {"a", "b", "c"}) Send(text);
  const SenderCounters counters = CloseAndCount();
  EXPECT_EQ(server.Calls(), 3);
  EXPECT_EQ(counters.refused, 1U);
  EXPECT_EQ(counters.sent, 2U);
}

TEST_F(AsyncSenderTest, SilentConnectionIsPingedWhileActiveAndThenClosed) {
  options.pingMs = 10;
  options.activeMs = 1500;
  Open();
  Send("a");
  ASSERT_TRUE(Eventually([&] { return server.Pings() >= 2; }));
  ASSERT_TRUE(Eventually([&] { return server.Disconnects() == 1; }));
  const int pings = server.Pings();
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(server.Pings(), pings);
  Send("b");
  ASSERT_TRUE(sender->Flush(kPlenty));
  EXPECT_EQ(sender->Counters().connects, 2U);
}

TEST_F(AsyncSenderTest, FlushEndsAtItsDeadline) {
  Open();
  Block();
  const auto start = Clock::now();
  EXPECT_FALSE(sender->Flush(50));
  EXPECT_GE(Clock::now() - start, 50ms);
  EXPECT_LT(Clock::now() - start, 10s);
  server.Release();
  EXPECT_TRUE(sender->Flush(kPlenty));
}

TEST_F(AsyncSenderTest, CloseEndsAtItsDeadlineAndCountsTheRestAsDropped) {
  server.AnswerWith(Status::NotRunning);
  Open();
  for (int i = 0; i < 10; ++i) Send("x");
  const auto start = Clock::now();
  const SenderCounters counters = CloseAndCount(50);
  EXPECT_LT(Clock::now() - start, 10s);
  EXPECT_EQ(counters.submitted, 10U);
  EXPECT_EQ(counters.dropped, 10U);
  EXPECT_EQ(counters.waiting, 0U);
  EXPECT_EQ(Send("late"), SendResult::Closed);
  EXPECT_EQ(sender->Counters().refused, 1U);
}

TEST_F(AsyncSenderTest, CloseFreesCallersThatWaitForRoom) {
  options.queueCapacity = 1;
  Open();
  Block();
  Send("a");
  std::thread caller([&] { EXPECT_EQ(Send("b"), SendResult::Closed); });
  std::thread opener([&] {
    std::this_thread::sleep_for(50ms);
    server.Release();
  });
  const SenderCounters counters = CloseAndCount();
  caller.join();
  opener.join();
  EXPECT_EQ(counters.submitted, Settled(counters));
}

TEST_F(AsyncSenderTest, SenderWithoutClockIsAMistake) {
  options.now = nullptr;
  EXPECT_THROW(Open(), std::invalid_argument);
}

// With a server of changing answers, several threads and small queues, each message ends in exactly one
// counter, and the messages counted as sent are those that the server accepted.
class AsyncSenderProperty : public testing::TestWithParam<Overflow> {};

TEST_P(AsyncSenderProperty, EveryMessageIsAccountedFor) {
  const Status moods[] = {Status::Ok,           Status::Ok,       Status::Ok,      Status::NotRunning,
                          Status::Disconnected, Status::TimedOut, Status::Refused, Status::Ok};
  constexpr std::uint32_t types[] = {0, 1, 2, 3, 4};  // the last one does not exist
  for (unsigned round = 0; round < 24; ++round) {
    std::mt19937 random(round);
    AsyncSenderOptions options;
    options.now = [] { return TimeWords{2026, 1, 1, 0, 0, 0, 0, 0}; };
    options.overflow = GetParam();
    options.longText = static_cast<LongText>(round % 3);
    options.queueCapacity = 1 + random() % 20;
    options.fallbackCapacity = random() % 20;
    options.resendDoubtful = round % 2 == 0;
    options.retryMs = 1;
    options.mostRetryMs = 2;
    ScriptedServer server;
    server.AnswerBy([&](const LogMessageBody&) { return moods[random() % std::size(moods)]; });
    AsyncSender sender(server.Connect(), options);
    std::vector<std::thread> callers;
    for (unsigned t = 0; t < 4; ++t) {
      callers.emplace_back([&sender, &types, seed = round * 4 + t] {
        std::mt19937 choice(seed);
        for (int i = 0; i < 60; ++i) {
          const std::string text(choice() % 700, 'x');
          sender.Submit({.type = types[choice() % std::size(types)], .source = "T", .text = text});
          if (choice() % 20 == 0) sender.Flush(1);
          const SenderCounters now = sender.Counters();
          EXPECT_EQ(now.submitted, Settled(now) + now.waiting);
        }
      });
    }
    for (auto& caller : callers) caller.join();
    sender.Close(round % 4 == 0 ? 0 : kPlenty);
    const SenderCounters counters = sender.Counters();
    EXPECT_EQ(counters.waiting, 0U);
    EXPECT_EQ(counters.submitted, Settled(counters)) << "round " << round;
    EXPECT_GE(counters.submitted, 240U);
    EXPECT_EQ(server.Taken().size(), counters.sent + counters.notices) << "round " << round;
    EXPECT_LE(counters.notices, counters.dropped);
  }
}

INSTANTIATE_TEST_SUITE_P(Policies, AsyncSenderProperty,
                         testing::Values(Overflow::Block, Overflow::DropNewest, Overflow::DropOldest));

}  // namespace
