#include "tests/soak/worker.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <utility>

using namespace std::chrono_literals;

namespace Soak {

namespace {

constexpr auto kBeginLimit = 60s;
constexpr auto kEndLimit = 120s;

}  // namespace

std::uint32_t Setting(const char* name, std::uint32_t otherwise) {
  const char* const text = std::getenv(name);
  return text != nullptr ? static_cast<std::uint32_t>(std::max(1, std::atoi(text))) : otherwise;
}

std::string Diagnosis() {
  return RunTool("doctor").output;
}

Worker::Worker(const std::string& words, std::string journalFile)
    : journal(std::move(journalFile)),
      child("\"" + OwnDirectory() + "\\soak_worker.exe\" " + words + " \"" + journal + "\"") {
  const std::string line = child.ReadLine(kBeginLimit).value_or("nothing");
  if (line != "submitting" && line != "following") throw std::runtime_error("a worker printed: " + line);
}

std::string Worker::Finish() {
  std::string line = child.ReadLine(kEndLimit).value_or("nothing");
  if (child.WaitForEnd(kEndLimit) != 0U) throw std::runtime_error("a worker failed and printed: " + line);
  return line;
}

}  // namespace Soak
