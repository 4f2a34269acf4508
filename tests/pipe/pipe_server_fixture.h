#pragma once

// A running PipeServer on a pipe of this process, with a handler whose behaviour the test supplies.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "pipe/connection.h"
#include "pipe/pipe_server.h"
#include "tests/support/pipe_client.h"
#include "tests/support/wait_until.h"
#include "util/timeout.h"

namespace TestSupport {

constexpr std::uint32_t kPing = 4;
constexpr std::uint32_t kAlive = 13;

using Clock = std::chrono::steady_clock;

inline std::int64_t MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

inline void SleepMs(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// A gate at which a handler waits until the test opens it; opens by itself after 20 seconds.
class Gate {
 public:
  void Open() {
    {
      const std::lock_guard<std::mutex> guard(lock);
      open = true;
    }
    changed.notify_all();
  }
  void Pass() {
    ++arrivals;
    std::unique_lock<std::mutex> guard(lock);
    changed.wait_for(guard, std::chrono::seconds(20), [this] { return open; });
  }
  bool SomebodyArrived() const { return arrivals > 0; }

 private:
  std::mutex lock;
  std::condition_variable changed;
  bool open = false;
  std::atomic<int> arrivals{0};
};

// Answers Ping with Alive and leaves the reply of any other request as the transport made it, unless the test
// sets another behaviour before the server starts.
class TestHandler : public PipeServerMessageHandler {
 public:
  using Behaviour = std::function<void(const PipeRequest&, PipeReply&)>;

  virtual ~TestHandler() = default;

  void HandleMessage(const PipeRequest& request, PipeReply& reply) override {
    ++handled;
    lastCode = request.code;
    if (behaviour) {
      behaviour(request, reply);
    } else if (request.code == kPing) {
      reply.code = kAlive;
    }
  }
  void ConnectionEnded(PipeServerHandleThread* connection) override {
    if (beforeRelease) beforeRelease();
    ++ended;
    // The last access to this object: once the connection is off the list, Join returns and the test ends.
    if (PipeServer* const owner = server.load()) owner->ReleaseConnection(connection);
  }

  Behaviour behaviour;
  std::function<void()> beforeRelease;
  std::atomic<PipeServer*> server{nullptr};
  std::atomic<int> handled{0};
  std::atomic<int> ended{0};
  std::atomic<std::uint32_t> lastCode{0};
};

// Records what Run returned.
class ObservedPipeServer : public PipeServer {
 public:
  using PipeServer::PipeServer;
  std::uint32_t Run() override {
    const std::uint32_t returned = PipeServer::Run();
    result = static_cast<std::int64_t>(returned);
    return returned;
  }
  // -1 until Run has returned.
  std::atomic<std::int64_t> result{-1};
};

class PipeServerFixture : public ::testing::Test {
 protected:
  PipeServerFixture() {
    const ::testing::TestInfo* const info = ::testing::UnitTest::GetInstance()->current_test_info();
    name = PipeNameForThisProcess(std::string("TamLogTest") + info->test_suite_name() + info->name());
    server = std::make_unique<ObservedPipeServer>(name);
    handler.server = server.get();
    server->SetMessageHandler(&handler);
  }

  ~PipeServerFixture() override {
    if (server == nullptr) return;
    server->Stop();
    EXPECT_TRUE(JoinWithin(10000)) << "the server did not end";
  }

  bool JoinWithin(std::uint32_t milliseconds) {
    TamLogUtil::Timeout timeout(milliseconds);
    return server->Join(timeout);
  }
  // Whether a client that connects now is accepted and then disconnected, perhaps while it still opens its
  // pipes.
  static bool IsTakenAndSentAway(PipeClient& client) {
    if (client.Connect()) return client.WaitUntilDisconnected();
    constexpr std::uint32_t kNoInstance = 2;
    constexpr std::uint32_t kBusy = 231;
    return client.LastError() != kNoInstance && client.LastError() != kBusy;
  }
  // Whether a client that connects now is served.
  bool Serves() {
    PipeClient client(name);
    return client.Connect() && client.CallCode(kPing) == kAlive;
  }

  // Handlers may still be running when a test's body ends.
  Gate gate;
  TestHandler handler;
  std::string name;
  std::unique_ptr<ObservedPipeServer> server;
};

}  // namespace TestSupport
