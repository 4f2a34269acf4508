#pragma once

// Passes bursts of the load's messages to the driver double, and determines from the driver's counters when
// the server has taken each of them. Runs on a thread of its own from construction to Stop.

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
  // The driver has to be loaded and unused so far. Each burst follows when the previous one has been taken
  // and at least `pauseMs` have passed; its length is the present value of `burstSize`, which has to outlive
  // this object.
  DriverFeeder(const std::atomic<std::uint32_t>& burstSize, std::uint32_t pauseMs);
  ~DriverFeeder();
  DriverFeeder(const DriverFeeder&) = delete;
  DriverFeeder& operator=(const DriverFeeder&) = delete;

  // Sends no more bursts and waits until the server has taken everything. Returns false when that takes more
  // than a minute or the driver failed: then Failure returns the reason.
  bool Stop();
  const std::string& Failure() const { return failure; }

  // May be called only after Stop.
  const std::vector<Sent>& Messages() const { return sent; }

 private:
  void Run();
  void PutBurst();
  void Observe();

  DriverDouble driver;
  const std::uint32_t pause;
  const std::atomic<std::uint32_t>& burst;
  std::vector<Sent> sent;
  std::size_t begun = 0;  // the number that is known to have left the driver
  std::size_t ended = 0;  // the number that is known to be in the server's list
  Moment lastObservation = 0;
  std::uint32_t lastServed = 0;
  std::uint32_t lastFailed = 0;
  std::string failure;
  std::atomic<bool> stopping{false};
  std::thread thread;
};

}  // namespace Soak
