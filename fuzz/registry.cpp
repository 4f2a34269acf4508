// Fuzzes the registry's values: the server's start must read them, report the same to its clients, and load
// what its stop writes unchanged.
//
// Input: each value is a byte that chooses the key and the name, the number of the data's bytes (2), and the
// data; values of the filters' key have the length of their name (1) and the name before these.

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <utility>

#include "fuzz/input.h"
#include "fuzz/server_model.h"
#include "server/configuration.h"
#include "tests/native/machine.h"

namespace {

using Fuzz::Require;
using NativeMachine::RegistryValues;

constexpr int kMostValues = 64;
constexpr std::size_t kMostData = 1500;
const std::string kFiltersKey = std::string(kConfigurationKey) + '\\' + kFiltersSubkey;
constexpr std::array<const char*, 5> kNames = {"LogFile", "MaxMessage", "DevicePollRate", "SaveRate",
                                               "TypeFilter"};

// The system allows no zero in a name, and ends a name at 16,383 characters.
std::string TakeName(Fuzz::Input& input) {
  std::string name = input.TakeText(input.Take<std::uint8_t>() % 80U);
  std::replace(name.begin(), name.end(), '\0', '0');
  return name;
}

void WriteValues(Fuzz::Input& input) {
  for (int i = 0; i < kMostValues && !input.Empty(); ++i) {
    const std::size_t choice = input.Take<std::uint8_t>() % (2 * kNames.size());
    const bool isFilter = choice >= kNames.size();
    const std::string name = isFilter ? TakeName(input) : kNames.at(choice);
    const std::string data = input.TakeText(input.Take<std::uint16_t>() % kMostData);
    NativeMachine::SetValue(isFilter ? kFiltersKey : kConfigurationKey, name, data);
  }
}

void AskForAll(Fuzz::ServerModel& server) {
  PipeRequest request{};
  for (const RequestCode code : {RequestCode::GetSettings, RequestCode::GetLogFile}) {
    request.code = static_cast<std::uint32_t>(code);
    server.Ask(request);
  }
  request.code = static_cast<std::uint32_t>(RequestCode::GetFilter);
  for (request.index = 0; request.index < kMostValues; ++request.index) server.Ask(request);
}

void StartAndStop() {
  Fuzz::ServerModel server;
  const bool started = server.Start();
  AskForAll(server);
  if (!server.Stop() || !started) return;
  const RegistryValues settings = NativeMachine::Values(kConfigurationKey);
  const RegistryValues filters = NativeMachine::Values(kFiltersKey);
  Require(settings.size() == kNames.size());
  Require(server.Start() != server.CannotStartAgain());
  AskForAll(server);
  if (server.CannotStartAgain()) return;
  Require(server.Stop());
  Require(NativeMachine::Values(kConfigurationKey) == settings);
  Require(NativeMachine::Values(kFiltersKey) == filters);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  NativeMachine::Reset();
  NativeMachine::StandStill();
  WriteValues(input);
  StartAndStop();
  NativeMachine::Reset();
  return 0;
}
