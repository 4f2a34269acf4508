// A program that reads the running server's log through the library, without pause, until a test kills it.
//
//   snapshot  copies the log
//   view      reads all messages in place
//   next      follows the log message by message
//   wait      waits for changes of the log, and copies it after each
//   none      is as busy, and reads nothing
//
// The exit code is 1 for a fault that it prints, 2 for a wrong command line.

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <tamlog.hpp>

#include "tests/support/child_program.h"

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

// Copies memory as a reader copies the log.
[[noreturn]] void CopyNothing() {
  constexpr std::size_t kBytes = 11'200'000;
  const std::vector<char> from(kBytes, 'x');
  std::vector<char> to;
  for (;;) {
    to = from;
    asm volatile("" : : "r"(to.data()) : "memory");  // keeps the copy
  }
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
  if (words.size() == 1 && words[0] == "none") CopyNothing();
  const auto mode = words.size() == 1 ? modes.find(words[0]) : modes.end();
  if (mode == modes.end()) {
    TestSupport::Say("usage: library_reader snapshot | view | next | wait | none");
    return 2;
  }
  Reader reader = Reader::Live();
  for (;;) mode->second(reader);
}

}  // namespace

int main(int argc, char** argv) {
  return TestSupport::RunChildProgram(argc, argv, Run);
}
