#pragma once

// Hands bursts of the load's messages to the driver double, and finds out from the driver's counters when the
// server has taken each of them. Runs on a thread of its own from construction to Stop.

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "driver/driver_double.h"
#include "tests/soak/judge.h"

namespace Soak {

class DriverFeeder {
 public:
  // The driver has to be loaded and unused so far. A burst is handed over when the one before it was taken
  // and at least `pauseMs` have passed; it has as many messages as `burstSize` says then, which has to
  // outlive this.
  DriverFeeder(const std::atomic<std::uint32_t>& burstSize, std::uint32_t pauseMs);
  ~DriverFeeder();
  DriverFeeder(const DriverFeeder&) = delete;
  DriverFeeder& operator=(const DriverFeeder&) = delete;

  // No more bursts; waits until the server has taken everything. False when it does not within a minute, or
  // when the driver failed: then Failure says what.
  bool Stop();
  const std::string& Failure() const { return failure; }

  // After Stop.
  const std::vector<Sent>& Messages() const { return sent; }

 private:
  void Run();
  void PutBurst();
  void Observe();

  DriverDouble driver;
  const std::uint32_t pause;
  const std::atomic<std::uint32_t>& burst;
  std::vector<Sent> sent;
  std::size_t begun = 0;  // so many of them are known to have left the driver
  std::size_t ended = 0;  // and so many to be in the server's hands
  Moment lastObservation = 0;
  std::uint32_t lastServed = 0;
  std::uint32_t lastFailed = 0;
  std::string failure;
  std::atomic<bool> stopping{false};
  std::thread thread;
};

}  // namespace Soak
