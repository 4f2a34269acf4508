#include "server/lifecycle.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "tests/server/support.h"
#include "util/timeout.h"
#include "util/win32.h"

namespace {

using TamLogUtil::Timeout;
using Ticket = Lifecycle::RestartTicket;

TEST(LifecycleTurn, SequencesNeverOverlap) {
  Lifecycle lifecycle;
  std::atomic<int> inside{0};
  std::atomic<int> most{0};
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 20; ++round) {
        const Lifecycle::Turn turn(lifecycle, Timeout::kForever);
        const int now = ++inside;
        if (now > most) most = now;
        Sleep(1);
        --inside;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(most, 1);
}

TEST(LifecycleTurn, GoesOnWithoutTheTurnWhenTheTimeIsOver) {
  Lifecycle lifecycle;
  auto stuck = std::make_unique<Lifecycle::Turn>(lifecycle, Timeout::kForever);
  EXPECT_TRUE(stuck->Taken());
  EXPECT_FALSE(Lifecycle::Turn(lifecycle, 50).Taken());
  // The thread that went on without the turn did not release it.
  std::atomic<bool> got{false};
  std::thread next([&] {
    const Lifecycle::Turn turn(lifecycle, Timeout::kForever);
    got = true;
  });
  Sleep(100);
  EXPECT_FALSE(got);
  stuck.reset();
  next.join();
  EXPECT_TRUE(got);
}

TEST(RestartTicket, SleepsItsTimeWithoutAStop) {
  Lifecycle lifecycle;
  Ticket ticket(lifecycle);
  const std::uint64_t begin = NowMs();
  EXPECT_TRUE(ticket.Delay(200));
  EXPECT_GE(NowMs() - begin, 180U);
  EXPECT_FALSE(ticket.IsCancelled());
}

TEST(RestartTicket, StopEndsItsSleep) {
  Lifecycle lifecycle;
  Ticket ticket(lifecycle);
  std::thread stopping([&] {
    Sleep(100);
    lifecycle.WantStopped();
  });
  const std::uint64_t begin = NowMs();
  EXPECT_FALSE(ticket.Delay(10000));
  EXPECT_LE(NowMs() - begin, 5000U);
  stopping.join();
}

TEST(RestartTicket, IsCancelledByAStopBeforeItsSleep) {
  Lifecycle lifecycle;
  lifecycle.WantStopped();
  Ticket ticket(lifecycle);
  EXPECT_FALSE(ticket.Delay(10000));
}

TEST(RestartTicket, IsCancelledByAStopThatANewStartFollowed) {
  Lifecycle lifecycle;
  Ticket ticket(lifecycle);
  EXPECT_TRUE(ticket.Delay(0));
  lifecycle.WantStopped();
  lifecycle.WantRunning();
  EXPECT_TRUE(ticket.IsCancelled());
}

TEST(RestartTicket, GoesAheadAfterANewStart) {
  Lifecycle lifecycle;
  lifecycle.WantStopped();
  lifecycle.WantRunning();
  Ticket ticket(lifecycle);
  EXPECT_TRUE(ticket.Delay(0));
}

TEST(RestartTicket, IsWaitedForUntilItIsGivenBack) {
  Lifecycle lifecycle;
  EXPECT_TRUE(lifecycle.WaitForRestarts(0));
  auto first = std::make_unique<Ticket>(lifecycle);
  auto second = std::make_unique<Ticket>(lifecycle);
  EXPECT_FALSE(lifecycle.WaitForRestarts(20));
  first.reset();
  EXPECT_FALSE(lifecycle.WaitForRestarts(20));
  {
    const Ticket moved(std::move(*second));
    second.reset();
    EXPECT_FALSE(lifecycle.WaitForRestarts(20));
  }
  EXPECT_TRUE(lifecycle.WaitForRestarts(0));
}

TEST(RestartTicket, LifecycleMayGoAsSoonAsTheWaitIsOver) {
  for (int round = 0; round < 200; ++round) {
    auto lifecycle = std::make_unique<Lifecycle>();
    auto ticket = std::make_unique<Ticket>(*lifecycle);
    std::thread giving([&] { ticket.reset(); });
    EXPECT_TRUE(lifecycle->WaitForRestarts(5000));
    lifecycle.reset();
    giving.join();
  }
}

}  // namespace
