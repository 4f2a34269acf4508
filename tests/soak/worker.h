#pragma once

// Controls a process of the load (soak_worker.exe) for the conductors: clients that submit, or a follower.

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/soak/journal.h"
#include "tests/system/platform.h"

namespace Soak {

// Returns a number from the environment, at least 1.
std::uint32_t Setting(const char* name, std::uint32_t otherwise);

// Returns the output of `tamlogctl doctor` about the server, for the report of a failure.
std::string Diagnosis();

class Worker {
 public:
  // `words` is as soak_worker.cpp lists them, without the journal's name. Waits until the process is at work;
  // throws std::runtime_error when it does not report that in time.
  Worker(const std::string& words, std::string journalFile);

  // Asks it to end its work.
  void Tell() { child.WriteLine("end"); }
  // Waits for its end and returns its last line. Throws std::runtime_error when its exit code is not 0.
  std::string Finish();
  // Kills it in the middle of its work; there is no journal then.
  void Kill() { child.Kill(); }
  // May be called only after Finish.
  template <class Record>
  std::vector<Record> Journal() const {
    return ReadJournal<Record>(journal);
  }

 private:
  std::string journal;
  ChildProcess child;
};

}  // namespace Soak
