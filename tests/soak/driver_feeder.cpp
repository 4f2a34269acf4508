#include "tests/soak/driver_feeder.h"

#include <chrono>
#include <exception>

using namespace std::chrono_literals;

namespace Soak {

namespace {

constexpr auto kObserveEvery = 20ms;
constexpr Moment kStopLimit = 60'000'000;

}  // namespace

DriverFeeder::DriverFeeder(const std::atomic<std::uint32_t>& burstSize, std::uint32_t pauseMs)
    : pause(pauseMs), burst(burstSize), thread([this] { Run(); }) {}

DriverFeeder::~DriverFeeder() {
  stopping = true;
  if (thread.joinable()) thread.join();
}

bool DriverFeeder::Stop() {
  stopping = true;
  if (thread.joinable()) thread.join();
  return failure.empty() && ended == sent.size();
}

void DriverFeeder::Run() {
  try {
    Moment lastPut = 0;
    Moment lastRunning = Now();
    while (!stopping || (ended < sent.size() && Now() - lastRunning < kStopLimit)) {
      if (!stopping) lastRunning = Now();
      Observe();
      if (!stopping && ended == sent.size() && Now() - lastPut >= Moment{pause} * 1000) {
        PutBurst();
        lastPut = Now();
      }
      std::this_thread::sleep_for(kObserveEvery);
    }
  } catch (const std::exception& fault) {
    failure = fault.what();
  }
}

void DriverFeeder::PutBurst() {
  std::vector<LogMessageBody> bodies(burst);
  for (LogMessageBody& body : bodies) {
    Sent record;
    record.id = {.sender = kDriverSender, .number = static_cast<std::uint32_t>(sent.size())};
    body = MakeMessage(record.id);
    record.key = TimeKey(body);
    record.sent = record.answered = Now();
    sent.push_back(record);
  }
  driver.Put(bodies);
}

// The server takes one message after the other and adds each to its list before it requests the next: once
// the driver has served another request, successful or not, the last message is in the list.
void DriverFeeder::Observe() {
  const Moment before = Now();
  const TamLogDriverCounters counters = driver.Counters();
  const Moment after = Now();
  for (; begun < counters.served && begun < sent.size(); ++begun) {
    if (lastObservation > sent[begun].sent) sent[begun].sent = lastObservation;
  }
  std::size_t listed = counters.served == 0 ? 0 : counters.served - 1;
  if (counters.served == lastServed && counters.failed != lastFailed) listed = counters.served;
  for (; ended < listed && ended < sent.size(); ++ended) sent[ended].answered = after;
  lastObservation = before;
  lastServed = counters.served;
  lastFailed = counters.failed;
}

}  // namespace Soak
