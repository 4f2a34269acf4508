#pragma once

// The types that the parts of LogFollower share: log_follower.cpp compares one snapshot with the last one,
// follower_recognition.cpp recognizes the known messages, follower_losses.cpp counts the missing ones, and
// follower_state.cpp keeps the memory from one snapshot to the next.

#include <algorithm>
#include <cstdint>
#include <vector>

#include "client/log/log_follower.h"

namespace TamLogClient {

// A snapshot while it is compared with the known messages.
struct LogFollower::Comparison {
  const LogSnapshot* snapshot = nullptr;
  bool reopened = false;
  Run run = Run::Same;
  KnownMessages known;                // those that have not been recognized in the snapshot yet
  std::vector<Candidate> candidates;  // the messages of the snapshot, oldest first
  std::uint64_t knownInRing = 0;
  std::uint64_t doubtful = 0;
};

// Returns whether appends alone lead from a sound header to the counters and the newest numbers of a sound
// snapshot.
bool AppendsLeadTo(const LogFileHeader& before, const LogSnapshot& now);

// Messages without a number hold 0, so 0 is not compared.
inline std::uint64_t NextNumber(const LogFileHeader& header) {
  return std::max<std::uint64_t>(header.nextSequence, 1);
}

}  // namespace TamLogClient
