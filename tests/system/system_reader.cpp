// A reader of the shared log in a process of its own, driven by the system tests: it reports on its standard
// output and waits for a line (or the end) of its standard input where stated.
//
//   count          enters once and prints "count M changes C rewrites R next N readers K"
//   snapshot FILE  enters once, writes the header and the messages, newest first, to FILE,
//                  prints "snapshot M"
//   hold FILE      the same, prints "holding", stays inside until the next line, then leaves
//                  and prints "released"
//   attach         only maps the file, prints "attached", unmaps it at the next line and prints "detached"
//   die            enters, prints "holding", and at the next line ends without leaving
//   hurry          prints "hurrying", then enters, reads the header and leaves without pause
//   follow FILE    prints "following", adds every new message to FILE until the next line,
//                  prints "followed N visits V"
//
// The exit code is 0, 1 for a fault that it prints, 2 for a wrong command line.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/child_program.h"
#include "tests/system/shared_log.h"
#include "util/win32.h"

namespace {

using TestSupport::Say;
using TestSupport::WaitForLine;

using namespace std::chrono_literals;
constexpr auto kPatience = 20s;
constexpr auto kVisitInterval = 40ms;

std::unique_ptr<SharedLog> Attach() {
  std::unique_ptr<SharedLog> log;
  if (!Eventually(kPatience, [&log] { return (log = SharedLog::TryOpen()) != nullptr; })) {
    throw std::runtime_error("no server shares a log file");
  }
  return log;
}

std::unique_ptr<SharedLog> AttachAndEnter() {
  std::unique_ptr<SharedLog> log = Attach();
  if (!log->Enter(kPatience)) throw std::runtime_error("the writer lets no reader in");
  return log;
}

void WriteBytes(std::ofstream& file, const void* bytes, std::size_t count) {
  file.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(count));
}

std::size_t WriteSnapshot(const SharedLog& log, const std::string& path) {
  const LogFileHeader header = log.Header();
  const std::vector<LogMessage> messages = log.NewestFirst(header, 0);
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  WriteBytes(file, &header, sizeof(header));
  for (const LogMessage& message : messages) WriteBytes(file, &message, sizeof(message));
  if (!file.flush()) throw std::runtime_error("writing " + path + " failed");
  return messages.size();
}

void Count() {
  const std::unique_ptr<SharedLog> log = AttachAndEnter();
  const LogFileHeader header = log->Header();
  log->Leave();
  Say("count " + std::to_string(header.messageCount) + " changes " + std::to_string(header.changeCount) +
      " rewrites " + std::to_string(header.rewriteCount) + " next " + std::to_string(header.nextSequence) +
      " readers " + std::to_string(header.readCount));
}

void Snapshot(const std::string& path) {
  const std::unique_ptr<SharedLog> log = AttachAndEnter();
  const std::size_t messages = WriteSnapshot(*log, path);
  log->Leave();
  Say("snapshot " + std::to_string(messages));
}

void Hold(const std::string& path) {
  const std::unique_ptr<SharedLog> log = AttachAndEnter();
  WriteSnapshot(*log, path);
  Say("holding");
  WaitForLine();
  log->Leave();
  Say("released");
}

void AttachOnly() {
  std::unique_ptr<SharedLog> log = Attach();
  Say("attached");
  WaitForLine();
  log.reset();
  Say("detached");
}

void Die() {
  const std::unique_ptr<SharedLog> log = AttachAndEnter();
  Say("holding");
  WaitForLine();
  TerminateProcess(GetCurrentProcess(), 9);
}

void Hurry() {
  const std::unique_ptr<SharedLog> log = Attach();
  Say("hurrying");
  for (;;) {
    if (!log->Enter(kPatience)) throw std::runtime_error("the writer lets no reader in");
    log->Header();
    log->Leave();
  }
}

// Makes one visit: appends the messages that are new since the last one to the file, oldest first. Returns
// false when the server stops.
bool Visit(SharedLog& log, std::uint64_t& nextSequence, std::ofstream& file, std::size_t& total) {
  if (!log.ServerRunning()) return false;
  if (!log.Enter(200ms)) return true;
  const LogFileHeader header = log.Header();
  if (header.nextSequence < nextSequence) nextSequence = 0;  // the file was recreated
  std::vector<LogMessage> messages;
  if (header.nextSequence != nextSequence) messages = log.NewestFirst(header, nextSequence);
  log.Leave();
  nextSequence = header.nextSequence;
  std::ranges::reverse(messages);
  for (const LogMessage& message : messages) WriteBytes(file, &message, sizeof(message));
  total += messages.size();
  return true;
}

void Follow(const std::string& path) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  std::atomic<bool> stopRequested{false};
  std::thread listener([&stopRequested] {
    WaitForLine();
    stopRequested = true;
  });
  std::unique_ptr<SharedLog> log;
  std::uint64_t nextSequence = 0;
  std::size_t total = 0;
  std::size_t visits = 0;
  Say("following");
  for (bool last = false; !last;) {
    last = stopRequested;  // makes one more visit after the line that ends it
    if (!log) log = SharedLog::TryOpen();
    if (log && !Visit(*log, nextSequence, file, total)) log.reset();
    ++visits;
    if (!last) std::this_thread::sleep_for(kVisitInterval);
  }
  log.reset();
  listener.join();
  if (!file.flush()) throw std::runtime_error("writing " + path + " failed");
  Say("followed " + std::to_string(total) + " visits " + std::to_string(visits));
}

int Run(const std::vector<std::string>& words) {
  const std::string mode = words.empty() ? "" : words[0];
  const bool hasFile = words.size() == 2;
  if (mode == "count" && !hasFile) {
    Count();
  } else if (mode == "attach" && !hasFile) {
    AttachOnly();
  } else if (mode == "die" && !hasFile) {
    Die();
  } else if (mode == "hurry" && !hasFile) {
    Hurry();
  } else if (mode == "snapshot" && hasFile) {
    Snapshot(words[1]);
  } else if (mode == "hold" && hasFile) {
    Hold(words[1]);
  } else if (mode == "follow" && hasFile) {
    Follow(words[1]);
  } else {
    Say("usage: system_reader count | attach | die | hurry | snapshot FILE | hold FILE | follow FILE");
    return 2;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return TestSupport::RunChildProgram(argc, argv, Run);
}
