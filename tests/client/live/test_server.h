#pragma once

// The other end of the pipes, for the client's tests: one pair of pipes at a time, made and served as
// docs/pipe_protocol.md describes them. The test chooses the answer to each request.

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "records/pipe_protocol.h"

namespace TamLogTest {

enum class Answer { Reply, Silence, HangUp };

class TestServer {
 public:
  using Handler = std::function<Answer(const PipeRequest&, PipeReply&)>;

  // Makes the reply pipe of the first pair `pauseMs` after its request pipe. Otherwise a client that gets a
  // request pipe finds the reply pipe at once, and asks nothing of its own to find out whether they are a
  // pair.
  explicit TestServer(Handler answer, std::string pipeName = OwnPipeName(), std::uint32_t pauseMs = 0);
  ~TestServer();
  TestServer(const TestServer&) = delete;
  TestServer& operator=(const TestServer&) = delete;

  static std::string OwnPipeName();
  const std::string& PipeName() const { return name; }

  // Every request so far, in order.
  std::vector<PipeRequest> Requests() const;
  // Whether every request was one message of exactly 1,028 bytes.
  bool AllWhole() const { return allWhole; }
  int Connections() const { return connections; }

 private:
  void Serve(std::uint32_t pauseMs);
  void ServeConnection(void* request, void* reply);

  std::string name;
  Handler handler;
  mutable std::mutex lock;  // guards `requests`
  std::vector<PipeRequest> requests;
  std::atomic<bool> stop{false};
  std::atomic<bool> allWhole{true};
  std::atomic<int> connections{0};
  void* stopEvent;
  std::thread thread;
};

}  // namespace TamLogTest
