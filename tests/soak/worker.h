#pragma once

// A process of the load (soak_worker.exe) as the conductors handle it: clients that submit, or a follower.

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/soak/journal.h"
#include "tests/system/platform.h"

namespace Soak {

// A number from the environment; at least 1.
std::uint32_t Setting(const char* name, std::uint32_t otherwise);

// What `tamlogctl doctor` says of the server, for the report of a failure.
std::string Diagnosis();

class Worker {
 public:
  // `words` as soak_worker.cpp lists them, without the journal's name. Waits until it is at work; throws
  // std::runtime_error when it does not say so in time.
  Worker(const std::string& words, std::string journalFile);

  // It ends its work from here on.
  void Tell() { child.WriteLine("end"); }
  // Waits for its end and gives its last line. Throws std::runtime_error when it does not end well.
  std::string Finish();
  // In the middle of whatever it is doing; there is no journal then.
  void Kill() { child.Kill(); }
  // After Finish.
  template <class Record>
  std::vector<Record> Journal() const {
    return ReadJournal<Record>(journal);
  }

 private:
  std::string journal;
  ChildProcess child;
};

}  // namespace Soak
