// Many clients at once, and clients, stops and starts in random order.

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "pipe/pipe_server.h"
#include "tests/pipe/pipe_server_fixture.h"
#include "tests/support/diagnostic_log_capture.h"
#include "tests/support/watchdog.h"
#include "util/win32.h"

using TestSupport::Clock;
using TestSupport::kAlive;
using TestSupport::kPing;
using TestSupport::MillisecondsSince;
using TestSupport::PipeClient;
using TestSupport::RequestOf;
using TestSupport::SleepMs;
using TestSupport::WaitUntil;

namespace {

class PipeServerLoad : public TestSupport::PipeServerFixture {};

class ClientsAtOnce : public PipeServerLoad, public ::testing::WithParamInterface<int> {};

// Every client's requests are answered with its own bytes while others send theirs.
TEST_P(ClientsAtOnce, AreAllServedWithTheirOwnReplies) {
  TestSupport::SetWatchdogLimit(300);
  handler.behaviour = [](const PipeRequest& request, PipeReply& reply) {
    std::copy(std::begin(request.bytes), std::end(request.bytes), std::begin(reply.bytes));
  };
  server->Start();
  const int count = GetParam();
  std::atomic<int> connected{0};
  std::atomic<int> served{0};
  std::vector<std::thread> threads;
  threads.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    threads.emplace_back([&, i] {
      PipeClient client(name);
      if (!client.Connect(60000)) return;
      ++connected;
      // All are connected before the first request.
      WaitUntil([&] { return connected == count; }, std::chrono::milliseconds(60000));
      PipeRequest request = RequestOf(3);
      for (int round = 0; round < 10; ++round) {
        std::fill(std::begin(request.bytes), std::end(request.bytes),
                  static_cast<std::uint8_t>(i * 10 + round));
        const std::optional<PipeReply> reply = client.Call(request, 60000);
        if (!reply || reply->code != 11 ||
            !std::equal(std::begin(request.bytes), std::end(request.bytes), std::begin(reply->bytes))) {
          return;
        }
      }
      ++served;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(connected, count);
  EXPECT_EQ(served, count);
  EXPECT_EQ(handler.handled, count * 10);
  EXPECT_TRUE(WaitUntil([&] { return handler.ended == count; }));
}

INSTANTIATE_TEST_SUITE_P(Clients, ClientsAtOnce, ::testing::Values(1, 16, 100),
                         [](const auto& value) { return std::to_string(value.param); });

DWORD OpenHandles() {
  DWORD count = 0;
  GetProcessHandleCount(GetCurrentProcess(), &count);
  return count;
}

TEST_F(PipeServerLoad, HundredsOfConnectionsLeaveNoHandleBehind) {
  server->Start();
  EXPECT_TRUE(Serves());
  EXPECT_TRUE(WaitUntil([&] { return handler.ended == 1; }));
  SleepMs(200);
  const DWORD before = OpenHandles();
  for (int i = 0; i < 300; ++i) ASSERT_TRUE(Serves()) << i;
  EXPECT_TRUE(WaitUntil([&] { return handler.ended == 301; }));
  // The last threads may still be closing theirs. The listener may have one more or one less.
  EXPECT_TRUE(WaitUntil([&] { return OpenHandles() <= before + 4; }, std::chrono::milliseconds(5000)))
      << before << " before, " << OpenHandles() << " after";
}

TEST_F(PipeServerLoad, StopsAndStartsLeaveNoHandleBehind) {
  const auto round = [&] {
    server->Start();
    PipeClient client(name);
    EXPECT_TRUE(client.Connect());
    server->Stop();
    EXPECT_TRUE(JoinWithin(10000));
  };
  round();
  SleepMs(200);
  const DWORD before = OpenHandles();
  for (int i = 0; i < 50; ++i) round();
  EXPECT_TRUE(WaitUntil([&] { return OpenHandles() <= before + 4; }, std::chrono::milliseconds(5000)))
      << before << " before, " << OpenHandles() << " after";
}

// Runs one client of a random kind: every kind of mistake, and correct ones.
void BeSomeClient(const std::string& name, std::mt19937& random) {
  PipeClient client(name);
  const unsigned kind = random() % 6;
  if (kind == 0) {  // connects and leaves
    if (client.OpenRequestPipe(50)) client.OpenReplyPipe(50);
    return;
  }
  if (!client.Connect(200)) return;
  const unsigned requests = random() % 8;
  for (unsigned i = 0; i < requests; ++i) {
    if (kind == 1) {  // never reads a reply
      if (!client.Send(RequestOf(kPing), 20)) return;
    } else if (kind == 2) {  // sends bytes that are no request
      static const std::string overlong(3000, '\4');
      if (!client.SendBytes(overlong.data(), 1 + random() % overlong.size(), 20)) return;
      client.Receive(5);
    } else if (kind == 3) {  // makes the handler throw
      client.CallCode(3, 200);
      return;
    } else {
      client.CallCode(kPing, 200);
    }
  }
  if (kind == 4) SleepMs(static_cast<int>(random() % 20));
}

TEST_F(PipeServerLoad, RandomClientsStopsAndStartsEndInAServerThatServes) {
  TestSupport::SetWatchdogLimit(300);
  TestSupport::DiagnosticLogCapture log;
  handler.behaviour = [](const PipeRequest& request, PipeReply& reply) {
    if (request.code == kPing) reply.code = kAlive;
    if (request.code == 3) throw 1;
  };
  server->Start();
  std::atomic<bool> done{false};
  std::vector<std::thread> clients;
  for (unsigned seed = 1; seed <= 8; ++seed) {
    clients.emplace_back([&, seed] {
      std::mt19937 random(seed);
      while (!done) BeSomeClient(name, random);
    });
  }
  std::mt19937 random(4711);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same order in every run
  const Clock::time_point start = Clock::now();
  int rounds = 0;
  while (MillisecondsSince(start) < 6000) {
    SleepMs(static_cast<int>(random() % 120));
    server->Stop();
    // With and without enough time for all clients to leave.
    if (random() % 3 != 0) JoinWithin(random() % 400);
    server->Start();
    ++rounds;
  }
  done = true;
  for (std::thread& client : clients) client.join();
  server->Stop();
  EXPECT_TRUE(JoinWithin(20000));
  EXPECT_EQ(log.Count(), 0U);
  server->Start();
  EXPECT_TRUE(Serves());
  EXPECT_GT(rounds, 10);
  EXPECT_GT(handler.handled, 10);
}

TEST_F(PipeServerLoad, ServersThatAreDestroyedAmongBusyClientsLeaveNothingRunning) {
  TestSupport::SetWatchdogLimit(300);
  std::atomic<bool> done{false};
  std::vector<std::thread> clients;
  for (unsigned seed = 1; seed <= 4; ++seed) {
    clients.emplace_back([&, seed] {
      std::mt19937 random(seed);
      while (!done) BeSomeClient(name, random);
    });
  }
  for (int round = 0; round < 15; ++round) {
    server->Start();
    SleepMs(100);
    server.reset();
    server = std::make_unique<TestSupport::ObservedPipeServer>(name);
    handler.server = server.get();
    server->SetMessageHandler(&handler);
  }
  done = true;
  for (std::thread& client : clients) client.join();
  server->Start();
  EXPECT_TRUE(Serves());
}

}  // namespace
