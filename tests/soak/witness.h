#pragma once

// Copies the log of the running server as often as it changes, and records the messages of the load that it
// saw and the data of each copy that the judge needs. Runs on a thread of its own from construction to Stop.

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "client/live/log_client.h"
#include "client/live/log_reader.h"
#include "client/log/log_snapshot.h"
#include "tests/soak/judge.h"
#include "tests/soak/soak_message.h"

namespace Soak {

class Witness {
 public:
  // This load never rewrites a ring of this capacity or more as a whole; in a smaller one that may happen,
  // and then messages can lie in it twice for a while, which is not a fault.
  explicit Witness(std::int32_t calmCapacity);
  ~Witness() { Stop(); }
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;

  // Returns whether it has seen the message by now.
  bool Has(const MessageId& id) const;
  void Stop();

  // The following functions may be called only after Stop.
  const SeenMessages& Seen() const { return seen; }
  const std::vector<Look>& Looks() const { return looks; }
  // The times at which it noticed that the server had closed the log.
  const std::vector<Moment>& Closings() const { return closings; }
  // States that no server may show: changed bytes, messages without a sender, a message twice, times out of
  // order.
  const std::vector<std::string>& Faults() const { return faults; }
  std::uint64_t Twice() const { return twice; }      // in rings where that is not a fault
  std::uint64_t Rescues() const { return rescues; }  // see Rescue
  std::uint64_t Blocked() const { return blocked; }  // copies that were not available in time
  std::uint64_t LongestCopyMicroseconds() const { return longestCopy; }

 private:
  void Run();
  bool Open();
  void Copy();
  void TakeIn(Look look);
  void TakeInSlot(const LogMessage& message, bool calm);
  void Rescue();
  void Fault(const std::string& text);

  const std::int32_t calm;
  TamLogClient::LogClient client{{.timeoutMs = 1000, .absentMs = 100}};
  TamLogClient::LogReader reader;
  TamLogClient::LogSnapshot snapshot;
  std::uint32_t openings = 0;
  std::uint64_t lastChange = 0;
  mutable std::mutex lock;  // guards `seen`
  SeenMessages seen;
  std::vector<std::vector<std::uint32_t>> seenInLook;
  std::vector<Look> looks;
  std::vector<Moment> closings;
  std::vector<std::string> faults;
  std::uint64_t twice = 0;
  std::uint64_t rescues = 0;
  std::uint64_t blocked = 0;
  std::uint64_t longestCopy = 0;
  std::atomic<bool> stopping{false};
  std::thread thread;
};

}  // namespace Soak
