// The client library as other programs use it, through the DLL, against the real server.

#include <tamlog.h>

#include <atomic>
#include <set>
#include <stdexcept>
#include <string>
#include <tamlog.hpp>
#include <tamlog/ostream.hpp>
#include <thread>
#include <vector>

#include "tests/system/system_test.h"

#define SPDLOG_HEADER_ONLY
#define FMT_HEADER_ONLY
#include <spdlog/logger.h>
#include <spdlog/spdlog.h>
#include <tamlog/spdlog_sink.hpp>

// It brings windows.h, whose macro would rename the fixture's function.
#undef StartService

using namespace std::chrono_literals;

namespace {

bool Holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class Library : public SystemTest {
 protected:
  // Calls Next until an item of this kind comes; returns false after some time.
  static bool WaitFor(tamlog::Reader& reader, tamlog::ItemKind kind, tamlog::Item& item) {
    return Eventually(30s, [&] {
      for (auto next = reader.Next(50); next; next = reader.Next(0)) {
        if (next->kind != kind) continue;
        item = *next;
        return true;
      }
      return false;
    });
  }
  static CommandReport Run(const std::string& name, const std::string& arguments) {
    return RunOwnProgram("example_" + name + ".exe", arguments);
  }
};

TEST_F(Library, ClientAsksAndSets) {
  tamlog::Client nobody;
  EXPECT_FALSE(nobody.Ping());
  try {
    nobody.Submit({.source = "x"});
    FAIL();
  } catch (const tamlog::Error& error) {
    EXPECT_EQ(error.Code(), TAMLOG_NOT_RUNNING);
  }
  RunService({.maxMessage = 50});
  tamlog::Client client;
  EXPECT_TRUE(client.Ping());
  auto settings = client.Settings();
  EXPECT_EQ(settings.capacity, 50U);
  EXPECT_EQ(settings.types, 15U);
  settings.save_rate_s = 0;
  EXPECT_THROW(client.SetSettings(settings), tamlog::Error);
  EXPECT_TRUE(client.Filters().empty());
  client.AddFilter("Camera", true);
  client.AddFilter("Laser", false);
  const auto filters = client.Filters();
  ASSERT_EQ(filters.size(), 2U);
  EXPECT_STREQ(filters[0].text, "Camera");
  EXPECT_EQ(filters[0].include, 1U);
  EXPECT_STREQ(filters[1].text, "Laser");
  EXPECT_EQ(filters[1].include, 0U);
  EXPECT_THROW(client.AddFilter(std::string(128, 'x'), true), tamlog::Error);
  client.ClearFilters();
  EXPECT_TRUE(client.Filters().empty());
  EXPECT_EQ(client.LogFile(), logFile);
  EXPECT_TRUE(Holds(client.DefaultLogFile(), "Logs.dat"));
  EXPECT_THROW(client.SetLogFile(std::string(256, 'p')), tamlog::Error);
  tamlog_filter filter = tamlog::Make<tamlog_filter>();
  tamlog_client* raw = nullptr;
  ASSERT_EQ(tamlog_client_open(nullptr, &raw), TAMLOG_OK);
  EXPECT_EQ(tamlog_client_get_filter(raw, 0, &filter), TAMLOG_NO_SUCH_FILTER);
  char small[2];
  std::uint64_t length = 0;
  EXPECT_EQ(tamlog_client_get_log_file(raw, small, sizeof(small), &length), TAMLOG_TOO_SMALL);
  EXPECT_EQ(length, logFile.size());
  tamlog_client_close(raw);
}

TEST_F(Library, SubmittedMessageIsReadBackWithAllItsFields) {
  RunService();
  auto reader = tamlog::Reader::Live();
  EXPECT_EQ(reader.Count(), 0U);
  tamlog::Client client;
  client.Submit({.type = 3,
                 .source = "Stage",
                 .text = "homed",
                 .time = tamlog::Time{2026, 1, 2, 8, 0, 2, 125, 0},
                 .origin = {1, 2, 3, 4, 5, 6, 7, 8},
                 .tail = {9, 10, 11, 12}});
  tamlog::Item item;
  ASSERT_TRUE(WaitFor(reader, tamlog::ItemKind::Message, item));
  EXPECT_EQ(item.message.Text(), "homed");
  EXPECT_EQ(item.message.Source(), "Stage");
  EXPECT_EQ(item.message.Type(), 3U);
  EXPECT_EQ(item.message.When().millisecond, 125);
  EXPECT_EQ(item.message.Origin()[7], 8);
  EXPECT_EQ(item.message.Tail()[3], 12);
  EXPECT_EQ(item.message.ToLine(), "2026-01-02 08:00:02.125 T3 Stage: homed\n");
  EXPECT_THROW(client.Submit({.type = 4}), tamlog::Error);
  const std::string longText(257, 'x');
  EXPECT_THROW(client.Submit({.text = longText}), tamlog::Error);
  const std::string cursor = reader.LastCursor();
  reader.Snapshot();
  ASSERT_EQ(reader.Count(), 1U);
  EXPECT_EQ(reader.CursorAt(0), cursor);
  client.Submit({.source = "Stage", .text = "second"});
  EXPECT_EQ(reader.Wait(20000), tamlog::Change::Append);
  EXPECT_TRUE(reader.Seek(cursor));
  ASSERT_TRUE(WaitFor(reader, tamlog::ItemKind::Message, item));
  EXPECT_EQ(item.message.Text(), "second");
}

TEST_F(Library, ReaderThatOnlyTakesSnapshotsDoesNotHoldUpAStop) {
  RunService();
  auto reader = tamlog::Reader::Live();
  reader.Snapshot();
  EXPECT_LT(StopService().duration, 10s);
  try {
    reader.Snapshot();
    FAIL();
  } catch (const tamlog::Error& error) {
    EXPECT_EQ(error.Code(), TAMLOG_NOT_RUNNING);
  }
}

TEST_F(Library, FollowerGoesOnOverAStop) {
  RunService();
  auto reader = tamlog::Reader::Live();
  EXPECT_EQ(reader.Wait(1), tamlog::Change::Nothing);
  std::atomic<bool> stopped{false};
  std::thread stopper([&] {
    StopService();
    stopped = true;
  });
  tamlog::Item item;
  EXPECT_TRUE(WaitFor(reader, tamlog::ItemKind::Stopped, item));
  stopper.join();
  StartService();
  EXPECT_TRUE(WaitFor(reader, tamlog::ItemKind::Reopened, item));
  SubmitOverPipe(Message("after", 0));
  ASSERT_TRUE(WaitFor(reader, tamlog::ItemKind::Message, item));
  EXPECT_EQ(item.message.Text(), "after");
}

TEST_F(Library, ViewShowsTheLogInPlaceAndPassesExceptionsOn) {
  RunService({.maxMessage = 20});
  SubmitOverPipe(Message("in place", 0));
  ASSERT_TRUE(WaitForMessageCount(1, 10s));
  auto reader = tamlog::Reader::Live();
  std::uint32_t capacity = 0;
  char text[9] = {};
  EXPECT_TRUE(reader.WithView(1000000, [&](const tamlog_view& view) {
    capacity = view.capacity;
    const std::uint32_t slot = (view.next_slot + view.capacity - 1) % view.capacity;
    std::memcpy(text, view.slots + 560 * slot + 293, 8);
    if (tamlog_view_is_spent(&view) != 0) capacity = 0;
  }));
  EXPECT_EQ(capacity, 20U);
  EXPECT_STREQ(text, "in place");
  EXPECT_THROW(reader.WithView(1000000, [](const tamlog_view&) { throw std::logic_error("no"); }),
               std::logic_error);
  EXPECT_EQ(Header().readCount, 0);
}

// Messages submitted while the server is stopped are sorted in by their own times when it is back.
TEST_F(Library, SenderKeepsMessagesWhileTheServerIsAway) {
  RunService();
  tamlog::Sender sender;
  EXPECT_TRUE(
      sender.Submit({.source = "Sender", .text = "before", .time = tamlog::Time{2026, 1, 1, 0, 0, 1, 0, 0}}));
  EXPECT_TRUE(sender.Flush(20000));
  ASSERT_TRUE(WaitForMessageCount(1, 10s));
  StopService();
  EXPECT_TRUE(
      sender.Submit({.source = "Sender", .text = "away", .time = tamlog::Time{2026, 1, 1, 0, 0, 2, 0, 0}}));
  EXPECT_FALSE(sender.Flush(500));
  EXPECT_EQ(sender.Counters().away, 1U);
  EXPECT_EQ(sender.Counters().waiting, 1U);
  StartService();
  SubmitOverPipe(Message("later than both", 0));
  EXPECT_TRUE(sender.Finish(20000));
  const auto counters = sender.Counters();
  EXPECT_EQ(counters.submitted, 2U);
  EXPECT_EQ(counters.sent, 2U);
  EXPECT_EQ(counters.connects, 2U);
  EXPECT_EQ(counters.dropped + counters.refused + counters.doubtful, 0U);
  ExpectTexts({"later than both", "away", "before"});
  EXPECT_FALSE(sender.Submit({.source = "Sender", .text = "too late"}));
}

// The server ends a connection after ten silent seconds. The sender pings, so it stays the same one.
TEST_F(Library, SenderKeepsItsConnectionOverSilence) {
  RunService();
  tamlog::Sender sender;
  sender.Submit({.source = "Sender", .text = "a"});
  ASSERT_TRUE(sender.Flush(20000));
  std::this_thread::sleep_for(12s);
  sender.Submit({.source = "Sender", .text = "b"});
  ASSERT_TRUE(sender.Flush(20000));
  EXPECT_EQ(sender.Counters().connects, 1U);
  EXPECT_EQ(sender.Counters().failures, 0U);
}

TEST_F(Library, ThreadsShareASenderAndNothingIsLost) {
  RunService({.maxMessage = 2000});
  auto options = tamlog::Make<tamlog_sender_options>();
  options.queue_capacity = 16;
  tamlog::Sender sender(options);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&sender, t] {
      for (int i = 0; i < 100; ++i) {
        const std::string text = std::to_string(t) + "/" + std::to_string(i);
        EXPECT_TRUE(sender.Submit({.source = "Threads", .text = text}));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  ASSERT_TRUE(sender.Finish(30000));
  EXPECT_EQ(sender.Counters().sent, 400U);
  ASSERT_TRUE(WaitForMessageCount(400, 10s));
  auto reader = tamlog::Reader::Live();
  std::set<std::string> texts;
  for (const auto& message : reader.Messages()) texts.emplace(message.Text());
  EXPECT_EQ(texts.size(), 400U);
}

TEST_F(Library, StreamAndSpdlogReachTheLog) {
  RunService();
  tamlog::Sender sender;
  {
    tamlog::Stream stream(sender, "Stream", 2);
    stream << "line " << 1 << "\nline 2\r\n"
           << "unfinished" << std::flush;
  }
  spdlog::logger logger("Logger", std::make_shared<tamlog::SpdlogSink>(sender));
  logger.set_level(spdlog::level::trace);
  logger.debug("debug {}", 1);
  logger.info("info");
  logger.warn("warn");
  logger.error("error");
  logger.critical("critical");
  logger.flush();
  ASSERT_TRUE(sender.Finish(20000));
  ASSERT_TRUE(WaitForMessageCount(8, 10s));
  auto reader = tamlog::Reader::Live();
  std::multiset<std::string> seen;
  for (const auto& message : reader.Messages()) {
    EXPECT_TRUE(message.TimeIsReal());
    seen.insert(std::string(message.Source()) + " " + std::to_string(message.Type()) + " " +
                std::string(message.Text()));
  }
  EXPECT_EQ(seen, (std::multiset<std::string>{"Logger 0 debug 1", "Logger 1 info", "Logger 2 warn",
                                              "Logger 3 critical", "Logger 3 error", "Stream 2 line 1",
                                              "Stream 2 line 2", "Stream 2 unfinished"}));
}

TEST_F(Library, ExamplesRun) {
  const CommandReport without = Run("submit_and_read", "");
  EXPECT_EQ(without.exitCode, 1U);
  const CommandReport lost = Run("async_logging", "3");
  EXPECT_TRUE(Holds(lost.output, "submitted 7, sent 0, dropped 7, refused 0, doubtful 0")) << lost.output;
  RunService({.maxMessage = 500});
  ChildProcess follow("\"" + OwnDirectory() + "\\example_follow.exe\" 60");
  ASSERT_EQ(follow.ReadLine(20s), "-- following after 0 messages");
  const CommandReport submitted = Run("submit_and_read", "");
  EXPECT_EQ(submitted.exitCode, 0U) << submitted.output;
  EXPECT_TRUE(Holds(submitted.output, " T1 Example.C: submitted by the example in C")) << submitted.output;
  const auto followed = follow.ReadLine(20s);
  ASSERT_TRUE(followed);
  EXPECT_TRUE(Holds(*followed, "Example.C: submitted by the example in C")) << *followed;
  const CommandReport logged = Run("async_logging", "20");
  EXPECT_TRUE(Holds(logged.output, "submitted 41, sent 41, dropped 0, refused 0, doubtful 0"))
      << logged.output;
  ASSERT_TRUE(WaitForMessageCount(42, 10s));  // a stop loses what is not written yet
  std::thread stopper([this] { StopService(); });
  std::string all;
  while (!Holds(all, "-- the server has stopped")) {
    const auto line = follow.ReadLine(20s);
    if (!line) break;
    all += *line + "\n";
  }
  stopper.join();
  EXPECT_TRUE(Holds(all, "Example.Stream: all 20 moves of both axes are done")) << all;
  EXPECT_TRUE(Holds(all, "-- the server has stopped")) << all;
  follow.Kill();
  const CommandReport file = Run("submit_and_read", "\"" + logFile + "\"");
  EXPECT_EQ(file.exitCode, 0U);
  EXPECT_TRUE(Holds(file.output, "Example.Stream: all 20 moves of both axes are done")) << file.output;
}

}  // namespace
