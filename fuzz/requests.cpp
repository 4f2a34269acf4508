// Fuzzes the requests of a client, passed to the server's own handler over its own store, between ticks of
// the timers, messages of the driver, restarts and stops: only a text that does not fit its reply may end the
// process, and such a text always does.
//
// Input: steps of a byte each; a request and a message of the driver are followed by the number of their
// bytes (2) and the bytes.

#include <cstdint>
#include <string>

#include "fuzz/input.h"
#include "fuzz/server_model.h"
#include "server/configuration.h"
#include "tests/native/machine.h"

namespace {

using Fuzz::Require;

constexpr int kMostSteps = 200;

// The log is small, so that the ring wraps.
void WriteSettings() {
  const std::uint32_t capacity = 8;
  NativeMachine::SetValue(kConfigurationKey, "LogFile", std::string("C:\\Logs.dat") + '\0');
  NativeMachine::SetValue(kConfigurationKey, "MaxMessage",
                          {reinterpret_cast<const char*>(&capacity), sizeof capacity});
}

bool PathIsTooLong() {
  for (const auto& [name, data] : NativeMachine::Values(kConfigurationKey)) {
    if (name == "LogFile") return data.size() > RegistryKey::kTextBufferSize;
  }
  return false;
}

void PutIntoDriver(Fuzz::Input& input) {
  const auto size = input.Take<std::uint16_t>() % (sizeof(LogMessageBody) + 1);
  LogMessageBody message{};
  input.TakeInto(&message, size);
  NativeMachine::PutIntoDriver(message);
}

// Returns false when the process has ended.
bool Step(Fuzz::ServerModel& server, Fuzz::Input& input) {
  switch (input.Take<std::uint8_t>() % 12U) {
    case 0:
      PutIntoDriver(input);
      return true;
    case 1:
      server.Tick(kDriverPollTimer);
      return true;
    case 2:
      server.Tick(kFlushWritesTimer);
      return true;
    case 3:
      server.Tick(kWriteToDiskTimer);
      return true;
    case 4:
      server.RunRestarts();
      return true;
    case 5:
      // A path that was too long for the previous start is too long for this stop as well.
      Require(server.Stop() || PathIsTooLong());
      server.Start();
      return true;
    default:
      return server.Ask(input.TakeText(input.Take<std::uint16_t>() % (sizeof(PipeRequest) + 1))).has_value();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  NativeMachine::Reset();
  NativeMachine::StandStill();
  WriteSettings();
  {
    Fuzz::ServerModel server;
    Require(server.Start());
    for (int steps = 0; steps < kMostSteps && !input.Empty(); ++steps) {
      if (!Step(server, input)) break;
    }
    NativeMachine::RunThreads();
  }
  NativeMachine::Reset();
  return 0;
}
