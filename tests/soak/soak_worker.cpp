// One process of the load, started and controlled by the conductor (soak_test.cpp, kill_server_test.cpp): it
// reports on its standard output and ends at the next line (or the end) of its standard input.
//
//   submit FIRST COUNT PAUSE JOURNAL  clients number FIRST to FIRST + COUNT - 1, each with a connection
//                                     of its own that it keeps open, submit messages with pauses of
//                                     about PAUSE ms; prints "submitting", at the end "submitted N"
//   follow JOURNAL                    follows the log; prints "following", at the end
//                                     "followed N lost L reopened R"
//
// The journals hold Soak::Sent and Soak::MessageId records. The exit code is 0, 1 for a fault that it prints,
// 2 for a wrong command line.

#include <atomic>
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "client/live/log_client.h"
#include "client/live/log_stream.h"
#include "tests/soak/journal.h"
#include "tests/soak/judge.h"
#include "tests/soak/soak_message.h"
#include "tests/support/child_program.h"

namespace {

using TestSupport::Say;

using namespace std::chrono_literals;
using namespace Soak;
using TamLogClient::LogClient;
using TamLogClient::LogItem;
using TamLogClient::LogStream;
using TamLogClient::Status;

constexpr std::uint32_t kCallLimitMs = 20000;
constexpr auto kAbsentPause = 100ms;
// The client library refuses to send each of these messages.
constexpr std::uint32_t kRefusedEach = 50;

std::atomic<bool> stopRequested{false};

Outcome OutcomeOf(Status status) {
  switch (status) {
    case Status::Ok:
      return Outcome::Taken;
    case Status::Disconnected:
    case Status::TimedOut:
      return Outcome::Unanswered;
    default:
      return Outcome::Refused;
  }
}

// A client that lives as long as the process, across restarts of the server.
class Client {
 public:
  Client(std::uint32_t number, std::uint32_t pauseMs)
      : sender(number), pause(pauseMs), client({.timeoutMs = kCallLimitMs}), random(number), thread([this] {
          Run();
        }) {}

  const std::vector<Sent>& Join() {
    thread.join();
    return sent;
  }

 private:
  void Run() {
    while (!stopRequested) {
      // A ping establishes the connection, so that the request of a message is under way only briefly.
      if (!connected && client.Ping() != Status::Ok) {
        std::this_thread::sleep_for(kAbsentPause);
        continue;
      }
      connected = Submit();
      std::uniform_int_distribution<std::uint32_t> milliseconds(pause / 2, pause + pause / 2);
      std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds(random)));
    }
  }

  bool Submit() {
    Sent record;
    record.id = {.sender = sender, .number = static_cast<std::uint32_t>(sent.size())};
    LogMessageBody body = MakeMessage(record.id);
    if (record.id.number % kRefusedEach == kRefusedEach - 1) body.type = kMessageTypes;
    record.key = TimeKey(body);
    record.sent = Now();
    const Status status = client.Submit(body);
    record.answered = Now();
    record.outcome = OutcomeOf(status);
    sent.push_back(record);
    return status == Status::Ok || status == Status::BadValue;
  }

  std::uint32_t sender;
  std::uint32_t pause;
  LogClient client;
  std::mt19937 random;
  bool connected = false;
  std::vector<Sent> sent;
  std::thread thread;
};

void Submit(std::uint32_t first, std::uint32_t count, std::uint32_t pauseMs, const std::string& journal) {
  std::vector<std::unique_ptr<Client>> clients;
  clients.reserve(count);
  for (std::uint32_t i = 0; i < count; ++i) clients.push_back(std::make_unique<Client>(first + i, pauseMs));
  Say("submitting");
  std::string line;
  std::getline(std::cin, line);
  stopRequested = true;
  std::vector<Sent> all;
  for (const auto& client : clients) {
    const std::vector<Sent>& sent = client->Join();
    all.insert(all.end(), sent.begin(), sent.end());
  }
  WriteJournal(journal, all);
  Say("submitted " + std::to_string(all.size()));
}

// The events that a follower met in addition to messages.
struct Events {
  std::uint64_t lost = 0;
  bool lostUnknown = false;  // the number is unknown
  std::uint64_t reopened = 0;
};

void TakeItem(const LogItem& item, std::vector<MessageId>& seen, Events& events) {
  if (item.kind == LogItem::Kind::Message) {
    const std::optional<MessageId> id = Identify(item.message->body);
    if (!id) throw std::runtime_error("a message that no sender submitted");
    seen.push_back(*id);
  } else if (item.kind == LogItem::Kind::Lost) {
    events.lost += item.loss.least;
    if (!item.loss.Exact()) events.lostUnknown = true;
  } else if (item.kind == LogItem::Kind::Reopened) {
    ++events.reopened;
  }
}

void Follow(const std::string& journal) {
  LogStream stream;
  for (Status status = stream.Open(); status != Status::Ok; status = stream.Open()) {
    if (status != Status::NotRunning || stopRequested) throw std::runtime_error("the log cannot be opened");
    std::this_thread::sleep_for(kAbsentPause);
  }
  Say("following");
  std::thread([] {
    std::string line;
    std::getline(std::cin, line);
    stopRequested = true;
  }).detach();  // ends with the process, whatever happens on this thread
  std::vector<MessageId> seen;
  Events events;
  LogItem item;
  Status status = Status::Ok;
  while (status == Status::Ok || !stopRequested) {
    status = stream.Next(item, 200);
    if (status == Status::Ok) {
      TakeItem(item, seen, events);
    } else if (status != Status::TimedOut) {
      throw std::runtime_error(std::string("following ended: ") + TamLogClient::StatusText(status));
    }
  }
  stream.Close();
  WriteJournal(journal, seen);
  Say("followed " + std::to_string(seen.size()) + " lost " + std::to_string(events.lost) +
      (events.lostUnknown ? " or more" : "") + " reopened " + std::to_string(events.reopened));
}

int Run(const std::vector<std::string>& words) {
  if (words.size() == 5 && words[0] == "submit") {
    const auto number = [&](std::size_t i) { return static_cast<std::uint32_t>(std::stoul(words[i])); };
    Submit(number(1), number(2), number(3), words[4]);
  } else if (words.size() == 2 && words[0] == "follow") {
    Follow(words[1]);
  } else {
    Say("usage: soak_worker submit FIRST COUNT PAUSE JOURNAL | follow JOURNAL");
    return 2;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return TestSupport::RunChildProgram(argc, argv, Run);
}
