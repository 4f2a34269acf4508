// Tests of Delivery against a model of a server that stops at any moment, keeps what it has written and loses
// what it has only accepted.

#include "tamlogctl/server/delivery.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <random>
#include <unordered_set>
#include <vector>

#include "client/message/time_text.h"
#include "tamlogctl/base/exit_code.h"
#include "tamlogctl/server/send_lines.h"
#include "tests/support/ring_model.h"

namespace {

using TamLogClient::IdentityOf;
using TamLogClient::LogSnapshot;
using TamLogClient::Status;
using TamLogCtl::Delivery;
using TamLogCtl::DeliveryTarget;
using TamLogCtl::kDone;
using TamLogCtl::kInterrupted;
using TamLogCtl::kNotThere;
using TamLogTest::MakeBody;
using TamLogTest::RingModel;

constexpr std::uint64_t kFlushMs = 200;
constexpr std::uint64_t kNever = UINT64_MAX;

// A server in virtual time, and the client that is connected to it.
class ModelServer : public DeliveryTarget {
 public:
  explicit ModelServer(std::int32_t capacity) : log(capacity) {}

  // The server stops at this time and is back after so long.
  void StopAt(std::uint64_t time, std::uint64_t duration) { stopsAt = time, downFor = duration; }
  void NeverComeBack() { downFor = kNever; }
  // Stops again and again, at random moments.
  void StopOften(unsigned seed) {
    random.seed(seed);
    often = true;
    StopAt(Random(2000), Random(3000));
  }
  // So many of the next messages are answered so late that the client does not wait for it.
  void AnswerLate(int count, std::uint64_t by) { late = count, lateBy = by; }
  void InterruptAt(std::uint64_t time) { interruptAt = time; }
  void DropSource(const std::string& source) { dropped = source; }
  void ClearAt(std::uint64_t time) { clearAt = time; }
  void Hold(const LogMessageBody& body) {
    log.Submit(body);
    log.Flush();
  }
  void Pass(std::uint64_t ms) {
    for (const std::uint64_t end = now + ms; now < end;) Tick();
  }

  Status Submit(const LogMessageBody& message) override {
    Tick();
    if (const Status status = Connect(); status != Status::Ok) return status;
    if (refusals > 0) {
      --refusals;
      return Status::Refused;
    }
    if (late > 0) {
      --late;
      lateUntil = now + lateBy;
      lateMessages.push_back(message);
      connectedTo = 0;
      return Status::TimedOut;
    }
    const bool arrives = !often || Random(40) != 0;
    const bool answered = arrives && (!often || Random(40) != 0);
    if (arrives) Accept(message);
    if (answered) return Status::Ok;
    connectedTo = 0;
    return Status::Disconnected;
  }
  Status Answers() override {
    Tick();
    if (const Status status = Connect(); status != Status::Ok) return status;
    return now < lateUntil ? Status::TimedOut : Status::Ok;
  }
  void Disconnect() override { connectedTo = 0; }
  std::uint64_t Connections() const override { return connections; }
  Status ReadLog(LogSnapshot& snapshot) override {
    Tick();
    if (run == 0) return Status::NotRunning;
    snapshot = log.Snapshot();
    return Status::Ok;
  }
  std::uint64_t Now() const override { return now; }
  bool Sleep(std::uint32_t milliseconds) override {
    Pass(milliseconds);
    return now < interruptAt;
  }
  void Report(const std::string& line) override { reports.push_back(line); }

  // Returns how often each message has ever been written into the log.
  const std::map<std::string, int>& Written() const { return written; }
  int Stops() const { return stops; }
  LogSnapshot Log() const { return log.Snapshot(); }

  int refusals = 0;  // of the next messages
  std::vector<std::string> reports;

 private:
  std::uint64_t Random(std::uint64_t below) { return random() % below; }

  void Accept(const LogMessageBody& message) {
    if (dropped != TextOf(message.source)) accepted.push_back(message);
  }
  static std::string TextOf(const char* field) { return field; }

  void Flush() {
    for (const LogMessageBody& body : accepted) {
      log.Submit(body);
      ++written[body.text];
    }
    accepted.clear();
    log.Flush();
  }

  void Tick() {
    ++now;
    if (now == clearAt) log.Clear();
    if (now == lateUntil) {
      for (const LogMessageBody& body : lateMessages) Accept(body);
      lateMessages.clear();
    }
    if (run != 0 && now % kFlushMs == 0) Flush();
    if (run != 0 && now >= stopsAt) {
      accepted.clear();
      run = 0;
      ++stops;
      backAt = downFor == kNever ? kNever : now + downFor;
      stopsAt = kNever;
    }
    if (run == 0 && now >= backAt) {
      run = ++runs;
      if (often) StopAt(now + 1 + Random(6000), Random(3000));
    }
  }

  // As the client does: waits a second for a server that is gone.
  Status Connect() {
    if (run != 0 && connectedTo == run) return Status::Ok;
    for (int i = 0; i < 1000 && run == 0; ++i) Tick();
    if (run == 0) return Status::NotRunning;
    connectedTo = run;
    ++connections;
    return Status::Ok;
  }

  std::mt19937 random;
  RingModel log;
  std::vector<LogMessageBody> accepted;
  std::vector<LogMessageBody> lateMessages;
  std::map<std::string, int> written;
  std::string dropped = "-";
  std::uint64_t now = 1000;
  std::uint64_t stopsAt = kNever;
  std::uint64_t downFor = 0;
  std::uint64_t backAt = 0;
  std::uint64_t interruptAt = kNever;
  std::uint64_t clearAt = kNever;
  std::uint64_t lateUntil = 0;
  std::uint64_t lateBy = 0;
  std::uint64_t connections = 0;
  int runs = 1;
  int run = 1;
  int connectedTo = 0;
  int late = 0;
  int stops = 0;
  bool often = false;
};

std::vector<LogMessageBody> Messages(int count) {
  std::vector<LogMessageBody> messages;
  for (int i = 0; i < count; ++i) messages.push_back(MakeBody(i * 10, "m" + std::to_string(i)));
  return messages;
}

int SendAll(Delivery& delivery, const std::vector<LogMessageBody>& messages) {
  std::size_t number = 0;
  for (const LogMessageBody& message : messages) {
    if (const int code = delivery.Send(message, ++number); code != kDone) return code;
  }
  return delivery.Finish();
}

void ExpectEachOnce(const ModelServer& server, const std::vector<LogMessageBody>& messages) {
  for (const LogMessageBody& message : messages) {
    const auto found = server.Written().find(message.text);
    ASSERT_NE(found, server.Written().end()) << message.text << " is missing";
    ASSERT_EQ(found->second, 1) << message.text;
  }
}

TEST(Delivery, WithoutATroubleEachMessageIsSentOnce) {
  ModelServer server(1000);
  Delivery delivery(server, {});
  const auto messages = Messages(500);
  EXPECT_EQ(SendAll(delivery, messages), kDone);
  ExpectEachOnce(server, messages);
  EXPECT_EQ(delivery.SentAgain(), 0U);
  EXPECT_EQ(delivery.Losses(), 0U);
  EXPECT_TRUE(server.reports.empty());
}

TEST(Delivery, EachMessageArrivesExactlyOnceOverAnyNumberOfRestarts) {
  int stops = 0;
  std::size_t again = 0;
  for (unsigned seed = 1; seed <= 150; ++seed) {
    SCOPED_TRACE(seed);
    ModelServer server(400);
    server.StopOften(seed);
    Delivery delivery(server, {});
    const auto messages = Messages(300);
    ASSERT_EQ(SendAll(delivery, messages), kDone);
    ASSERT_NO_FATAL_FAILURE(ExpectEachOnce(server, messages));
    EXPECT_EQ(delivery.Sent(), messages.size());
    EXPECT_EQ(delivery.Arrived(), messages.size());
    EXPECT_EQ(delivery.Refused(), 0U);
    stops += server.Stops();
    again += delivery.SentAgain();
  }
  EXPECT_GT(stops, 500);
  EXPECT_GT(again, 500U);
}

TEST(Delivery, OfEqualMessagesAsManyArriveAsWereSent) {
  for (unsigned seed = 1; seed <= 100; ++seed) {
    SCOPED_TRACE(seed);
    ModelServer server(300);
    const LogMessageBody twin = MakeBody(500, "twin");
    server.Hold(twin);
    server.StopOften(seed);
    Delivery delivery(server, {});
    TamLogCtl::MessageCounts known;
    known[IdentityOf(twin)] = 1;
    delivery.SetKnown(known);
    std::vector<LogMessageBody> messages;
    for (int i = 0; i < 200; ++i) messages.push_back(i % 4 == 0 ? twin : MakeBody(i, std::to_string(i)));
    ASSERT_EQ(SendAll(delivery, messages), kDone);
    ASSERT_EQ(server.Written().at("twin"), 50);
  }
}

// What a ring cannot hold is not sent for ever, and what it can hold is there.
TEST(Delivery, AFullRingHoldsTheNewestMessagesAfterAnyNumberOfRestarts) {
  for (unsigned seed = 1; seed <= 50; ++seed) {
    SCOPED_TRACE(seed);
    ModelServer server(50);
    server.StopOften(seed);
    Delivery delivery(server, {.capacity = 50});
    const auto messages = Messages(400);
    ASSERT_EQ(SendAll(delivery, messages), kDone);
    const LogSnapshot log = server.Log();
    std::map<std::string, int> there;
    for (const std::uint32_t slot : log.RingOrder()) ++there[log.slots[slot].body.text];
    ASSERT_EQ(there.size(), 50U);
    for (int i = 350; i < 400; ++i) ASSERT_EQ(there["m" + std::to_string(i)], 1) << i;
  }
}

TEST(Delivery, AMessageThatTheServerWorksOnStillIsNotSentASecondTime) {
  ModelServer server(1000);
  Delivery delivery(server, {});
  const auto messages = Messages(20);
  for (std::size_t i = 0; i < 10; ++i) ASSERT_EQ(delivery.Send(messages[i]), kDone);
  server.AnswerLate(1, 8000);
  for (std::size_t i = 10; i < 20; ++i) ASSERT_EQ(delivery.Send(messages[i]), kDone);
  EXPECT_EQ(delivery.Finish(), kDone);
  ExpectEachOnce(server, messages);
}

TEST(Delivery, AServerThatStaysAwayIsWaitedForAsLongAsChosen) {
  ModelServer server(1000);
  Delivery delivery(server, {.retryMs = 7000});
  const auto messages = Messages(20);
  for (std::size_t i = 0; i < 10; ++i) ASSERT_EQ(delivery.Send(messages[i], i + 1), kDone);
  server.Pass(500);
  server.NeverComeBack();
  server.StopAt(server.Now(), kNever);
  const std::uint64_t start = server.Now();
  EXPECT_EQ(delivery.Send(messages[10], 11), kNotThere);
  EXPECT_GE(server.Now() - start, 7000U);
  EXPECT_LE(server.Now() - start, 10000U);
  ASSERT_EQ(server.reports.size(), 2U);
  EXPECT_EQ(server.reports[0], "the connection was lost after 10 messages; waiting for the server");
  EXPECT_EQ(server.reports[1], "the server did not come back for 7 s");
  // None of them was seen in the log.
  EXPECT_EQ(delivery.FirstUncertain(), 1U);
}

TEST(Delivery, ARefusalOfAServerThatIsStartingIsNotTheLastWord) {
  ModelServer server(1000);
  Delivery delivery(server, {});
  server.refusals = 2;
  EXPECT_EQ(SendAll(delivery, Messages(3)), kDone);
  EXPECT_EQ(delivery.Refused(), 0U);
  server.refusals = 4;
  EXPECT_EQ(delivery.Send(MakeBody(1, "refused")), kDone);
  EXPECT_EQ(delivery.Refused(), 1U);
  EXPECT_EQ(delivery.LastRefusal(), Status::Refused);
  EXPECT_EQ(delivery.FirstUncertain(), 0U);
  EXPECT_EQ(server.Written().count("refused"), 0U);
}

TEST(Delivery, MessagesThatTheFiltersDropDoNotKeepItFromEnding) {
  ModelServer server(1000);
  server.DropSource("Test");
  Delivery delivery(server, {});
  EXPECT_EQ(SendAll(delivery, Messages(50)), kDone);
  EXPECT_EQ(delivery.SentAgain(), 0U);
  EXPECT_TRUE(server.Written().empty());
}

TEST(Delivery, WhatWasSeenInTheLogDoesNotComeBackAfterAClear) {
  ModelServer server(1000);
  Delivery delivery(server, {});
  for (const LogMessageBody& message : Messages(20)) ASSERT_EQ(delivery.Send(message), kDone);
  server.Pass(4000);
  ASSERT_EQ(delivery.Send(MakeBody(900, "seen")), kDone);  // the log is read
  server.ClearAt(server.Now() + 500);
  server.StopAt(server.Now() + 501, 100);
  server.Pass(1000);
  ASSERT_EQ(delivery.Send(MakeBody(901, "after")), kDone);
  ASSERT_EQ(delivery.Finish(), kDone);
  EXPECT_EQ(server.Written().at("m3"), 1);
  EXPECT_EQ(server.Written().at("after"), 1);
}

// A message of a source that the model drops, with this key of its time.
LogMessageBody DroppedAt(std::uint64_t key) {
  LogMessageBody body = MakeBody(0, "m", "Dropped");
  const auto take = [&key](std::uint64_t base) {
    const auto word = static_cast<std::int16_t>(key % base);
    key /= base;
    return word;
  };
  TamLogClient::TimeWords words{};
  words[6] = take(1000);
  words[5] = take(60);
  words[4] = take(60);
  words[3] = take(24);
  words[2] = take(31);
  words[1] = take(12);
  words[0] = static_cast<std::int16_t>(key);
  TamLogClient::SetTime(body, words);
  return body;
}

// Returns how long it takes to look for messages in the log whose keys are so far apart.
std::chrono::milliseconds TimeToReview(std::size_t count, std::uint64_t distance) {
  ModelServer server(10);
  server.DropSource("Dropped");
  Delivery delivery(server, {});
  for (std::size_t i = 1; i <= count; ++i) EXPECT_EQ(delivery.Send(DroppedAt(i * distance)), kDone);
  EXPECT_EQ(delivery.FirstUncertain(), 0U);
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(delivery.Review());
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

// The keys fall into one bucket of a hash table that does not mix them.
TEST(Delivery, CraftedTimesDoNotMakeItSlow) {
  constexpr std::size_t kCount = 20000;
  std::unordered_set<std::uint64_t> table;
  for (std::uint64_t key = 0; key < kCount; ++key) table.insert(key);
  const std::uint64_t buckets = table.bucket_count();
  ASSERT_EQ(TimeKey(DroppedAt(7 * buckets)), 7 * buckets);
  const auto ordinary = TimeToReview(kCount, 10);
  const auto crafted = TimeToReview(kCount, buckets);
  EXPECT_LT(crafted, 3 * ordinary + std::chrono::seconds(1)) << "ordinary " << ordinary.count() << " ms";
}

// Lines that are hard to tell apart: equal ones, controls, broken UTF-8, pieces of long texts.
std::vector<std::string> CraftedLines(unsigned seed) {
  const std::string all[] = {"same",
                             "same",
                             "",
                             " ",
                             "\x1b[2J\a\b",
                             "\xff\xfe",
                             "\xc3",
                             "\xe2\x80\xae",
                             "\t\\n\r",
                             std::string(256, 'x'),
                             std::string(257, 'x'),
                             std::string(3000, 'x'),
                             std::string(255, 'x') + "\xc3\xa4",
                             std::string(700, '\xff'),
                             "same\xcc\x81"};
  std::mt19937 random(seed);
  std::vector<std::string> lines(120);
  for (std::string& line : lines) line = all[random() % std::size(all)];
  return lines;
}

TEST(Delivery, CraftedLinesArriveExactlyOnceOverAnyNumberOfRestarts) {
  std::size_t again = 0;
  for (unsigned seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(seed);
    ModelServer server(3000);
    server.StopOften(seed);
    Delivery delivery(server, {});
    TamLogCtl::SendOptions options;
    options.longText = TamLogCtl::LongText::Split;
    TamLogCtl::MessageMarks marks(seed);
    std::vector<std::string> expected;
    std::vector<LogMessageBody> messages;
    for (const std::string& line : CraftedLines(seed)) {
      std::string problem;
      messages.clear();
      // All of one time, as those of a fast program are.
      ASSERT_TRUE(AppendMessagesOf(line, options, TamLogClient::TimeWords{2026, 1, 2, 3, 4, 5, 6, 0},
                                   messages, problem))
          << problem;
      for (LogMessageBody& message : messages) {
        expected.emplace_back(message.text);
        marks.Mark(message);
        ASSERT_EQ(delivery.Send(message), kDone);
      }
    }
    ASSERT_EQ(delivery.Finish(), kDone);
    std::vector<std::string> found;
    const LogSnapshot log = server.Log();
    for (const std::uint32_t slot : log.RingOrder()) found.emplace_back(log.slots[slot].body.text);
    std::sort(expected.begin(), expected.end());
    std::sort(found.begin(), found.end());
    ASSERT_EQ(found, expected);
    EXPECT_EQ(delivery.Sent(), expected.size());
    EXPECT_EQ(delivery.Arrived(), expected.size());
    again += delivery.SentAgain();
  }
  EXPECT_GT(again, 100U);
}

TEST(Delivery, CtrlCEndsTheWaitForTheServer) {
  ModelServer server(1000);
  Delivery delivery(server, {});
  ASSERT_EQ(delivery.Send(MakeBody(1, "first")), kDone);
  server.NeverComeBack();
  server.StopAt(server.Now(), kNever);
  server.InterruptAt(server.Now() + 3000);
  EXPECT_EQ(delivery.Send(MakeBody(2, "second")), kInterrupted);
}

}  // namespace
