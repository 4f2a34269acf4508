#pragma once

// A transport to a server that the test plays: it can hold calls back, answers them as the test chooses, and
// keeps the messages that it accepted.

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "client/live/sender_transport.h"

namespace TamLogTest {

class ScriptedServer {
 public:
  using Status = TamLogClient::Status;
  using Answer = std::function<Status(const LogMessageBody&)>;

  // Sets the answer to every further message.
  void AnswerWith(Status status) {
    AnswerBy([status](const LogMessageBody&) { return status; });
  }
  // Sets whether further messages leave the sender's process.
  void KeepThemInside(bool keep) {
    const std::lock_guard guard(lock);
    leaves = !keep;
  }
  void AnswerBy(Answer how) {
    const std::lock_guard guard(lock);
    answer = std::move(how);
  }

  // Calls wait inside until Release.
  void Hold() {
    const std::lock_guard guard(lock);
    held = true;
  }
  void Release() {
    const std::lock_guard guard(lock);
    held = false;
    changed.notify_all();
  }
  // Waits until a call waits inside; returns false after 10 s.
  bool WaitForCaller() {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, std::chrono::seconds(10), [this] { return inside; });
  }

  // The messages answered with Ok, in their order.
  std::vector<LogMessageBody> Taken() const {
    const std::lock_guard guard(lock);
    return taken;
  }
  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const LogMessageBody& body : Taken()) texts.emplace_back(body.text);
    return texts;
  }
  int Calls() const {
    const std::lock_guard guard(lock);
    return calls;
  }
  int Pings() const {
    const std::lock_guard guard(lock);
    return pings;
  }
  int Disconnects() const {
    const std::lock_guard guard(lock);
    return disconnects;
  }

  // Returns a transport to this server, which has to outlive it.
  std::unique_ptr<TamLogClient::SenderTransport> Connect() { return std::make_unique<Way>(*this); }

 private:
  class Way : public TamLogClient::SenderTransport {
   public:
    explicit Way(ScriptedServer& other) : server(other) {}
    Status Submit(const LogMessageBody& message, bool& left) override { return server.Take(message, left); }
    Status Ping() override {
      const std::lock_guard guard(server.lock);
      ++server.pings;
      return Status::Ok;
    }
    void Disconnect() override {
      const std::lock_guard guard(server.lock);
      ++server.disconnects;
    }

   private:
    ScriptedServer& server;
  };

  Status Take(const LogMessageBody& message, bool& left) {
    std::unique_lock guard(lock);
    ++calls;
    inside = true;
    changed.notify_all();
    changed.wait(guard, [this] { return !held; });
    inside = false;
    left = leaves;
    const Status status = answer(message);
    if (status == Status::Ok) taken.push_back(message);
    return status;
  }

  mutable std::mutex lock;
  std::condition_variable changed;
  Answer answer = [](const LogMessageBody&) { return Status::Ok; };
  std::vector<LogMessageBody> taken;
  bool leaves = true;
  bool held = false;
  bool inside = false;
  int calls = 0;
  int pings = 0;
  int disconnects = 0;
};

}  // namespace TamLogTest
