#pragma once

// Decides where the slots of a file go on after bytes were lost or added.
//
// A message that looks like one (a date, a type that exists, two terminated texts) is evidence of a slot,
// wherever it begins. A chain is a sequence of such messages that do not overlap; its messages stand on one
// grid of slots, or a break lies between them. Each message scores, and each break costs less than half of
// that. The search finds the chain of the highest score, so every run of messages that lies between two
// changes of the file is found, were it one message long:
//
//   kWhole  +4  a message in which no other one begins
//   kHollow +1  a message in which another one begins: it lost bytes, or its sender stored a message in it.
//               At the end of a run it loses against the message that begins in it. In the middle of a run
//               each of the two grids is hollow, and the present one goes on.
//   kBreak  -1
//
// It reads forward, once, and remembers the best chain for each of the 560 grids: what ends a grid's chain
// does not depend on how it began. As soon as one grid leads by more than any other could make good, its
// chain is final.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "client/file/log_file_image.h"

namespace TamLogClient {

struct SlotChain {
  std::vector<std::uint64_t> breaks;  // the first slot after each, ascending
  std::uint64_t end = 0;              // the chain is final for slots that begin before it
};

// Returns the best chain of the messages that begin at `from` or later. Its slots stand on the grid of the
// slot at `at`, from there to the first break. `at` is not before `from`. `end` is after `at`.
SlotChain BestChain(const LogFileImage& image, std::uint64_t from, std::uint64_t at);

}  // namespace TamLogClient
