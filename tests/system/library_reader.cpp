// A program that reads the running server's log through the library, without pause, until a test kills it.
//
//   snapshot  copies the log
//   view      reads all messages in place
//   next      follows the log message by message
//   wait      waits for changes of the log, and copies it after each
//
// The exit code is 1 for a fault that it prints, 2 for a wrong command line.

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <tamlog.hpp>

#include "tests/support/told_program.h"

namespace {

using tamlog::Reader;

constexpr std::uint32_t kTimeoutMs = 200;
constexpr std::uint32_t kBudgetUs = 100000;
constexpr std::size_t kSlotBytes = 560;

void View(Reader& reader) {
  std::uint64_t sum = 0;
  reader.WithView(kBudgetUs, [&sum](const tamlog_view& view) {
    sum = 0;
    for (std::size_t slot = 0; slot < view.capacity; ++slot) sum += view.slots[slot * kSlotBytes];
  });
}

int Run(const std::vector<std::string>& words) {
  const std::map<std::string, std::function<void(Reader&)>> modes{
      {"snapshot", [](Reader& reader) { reader.Snapshot(); }},
      {"view", View},
      {"next", [](Reader& reader) { reader.Next(kTimeoutMs); }},
      {"wait",
       [](Reader& reader) {
         reader.Wait(kTimeoutMs);
         reader.Snapshot();
       }},
  };
  const auto mode = words.size() == 1 ? modes.find(words[0]) : modes.end();
  if (mode == modes.end()) {
    TestSupport::Say("usage: library_reader snapshot | view | next | wait");
    return 2;
  }
  Reader reader = Reader::Live();
  for (;;) mode->second(reader);
}

}  // namespace

int main(int argc, char** argv) {
  return TestSupport::RunToldProgram(argc, argv, Run);
}
