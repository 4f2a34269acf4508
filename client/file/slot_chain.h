#pragma once

// Finds where the slots of a file continue after bytes were lost or added.
//
// Bytes that look like a message (a date, a type that exists, two terminated texts) are evidence of a slot,
// wherever they begin. A chain is a sequence of such messages that do not overlap. A break lies between two
// of them that do not stand on one grid of slots. The search finds the chain of the highest score:
//
//   +4  a message in which no other one begins
//   +1  a message in which another one begins: it lost bytes, or its sender stored a message in it
//   -1  a break
//
// Two breaks cost less than one message scores, so a single message between two changes of the file is found.
// Replacing a message by one that begins in it, with a break before and after, gains 4 - 1 - 2: where a
// message lost bytes, the next one is found. In a run of messages that each contain another one, the inner
// messages contain the next of the run, so both grids score the same, and the search stays on the present
// one.
//
// The search reads forward, once, and keeps the best chain for each of the 560 grids: how a chain continues
// does not depend on how it began. As soon as one grid leads by more than any other can catch up, its chain
// is final. After 4096 slots without that, the best chain so far is.

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
