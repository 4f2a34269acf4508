#include "client/file/slot_chain.h"

#include <algorithm>
#include <array>
#include <deque>
#include <limits>
#include <optional>
#include <string_view>

#include "client/file/message_shape.h"
#include "client/file/seen_slot.h"

namespace TamLogClient {

namespace {

using Score = std::int64_t;
constexpr Score kWhole = 4;
constexpr Score kHollow = 1;
constexpr Score kBreak = 1;
// The shortest distance between the beginnings of two whole messages. Padding, number, origin and the first
// byte of a year may be missing between them, where another byte may be taken for that of the year.
constexpr std::uint64_t kApart = kNeededOfSlot - kTimeOffset - 1;
constexpr std::uint64_t kNone = std::numeric_limits<std::uint64_t>::max();
constexpr Score kNever = std::numeric_limits<Score>::min() / 2;

// After so many slots, or so many possible breaks, the search takes the best chain so far.
constexpr std::uint64_t kMostSlots = 4096;
constexpr std::size_t kMostBreaks = 65536;

class Search {
 public:
  Search(const LogFileImage& searched, std::uint64_t from, std::uint64_t at)
      : image(searched), first(at), place(from), slot(at), last(at), leader(Grid(at)) {
    byGrid.fill({kNever, 0});
    byGrid[Grid(at)] = {0, 0};
  }

  SlotChain Run();

 private:
  struct Reached {
    Score score = 0;
    std::size_t breaks = 0;  // its last break: one more than an index of `made`; 0: none
  };
  struct Made {
    std::uint64_t to = 0;
    std::size_t before = 0;
  };
  struct Taken {
    std::uint64_t offset = 0;
    Reached reached;
  };

  static std::size_t Grid(std::uint64_t offset) { return offset % kSlotSize; }
  void SearchUpTo(std::uint64_t end);
  void Settle(std::uint64_t next);
  void Take(std::uint64_t offset, Score score);
  void Reach(std::uint64_t offset, const Reached& reached);
  bool IsFinal() const;
  SlotChain Result(std::uint64_t end) const;

  const LogFileImage& image;
  const std::uint64_t first;
  std::uint64_t place;                    // that is searched next
  std::uint64_t slot;                     // the next one of the present grid
  std::array<Reached, kSlotSize> byGrid;  // the best chain with its last message on each grid
  std::deque<Taken> recent;               // messages that may overlap the next one
  Reached free;                           // the best chain without those
  std::vector<Made> made;                 // breaks of all chains
  std::optional<std::uint64_t> open;      // a message, until it is known what begins in it
  std::uint64_t last;                     // where the leading chain's last message begins
  std::size_t leader;                     // its grid
  Score second = kNever;                  // the best score on any other grid
};

void Search::Reach(std::uint64_t offset, const Reached& reached) {
  const std::size_t grid = Grid(offset);
  byGrid[grid] = reached;
  recent.push_back({offset, reached});
  if (grid == leader || reached.score > byGrid[leader].score) {
    if (grid != leader) second = std::max(second, byGrid[leader].score);
    leader = grid;
    last = offset;
  } else {
    second = std::max(second, reached.score);
  }
}

void Search::Take(std::uint64_t offset, Score score) {
  for (; !recent.empty() && recent.front().offset + kApart <= offset; recent.pop_front()) {
    if (recent.front().reached.score > free.score) free = recent.front().reached;
  }
  const Reached stays = byGrid[Grid(offset)];
  if (stays.score >= free.score - kBreak) return Reach(offset, {stays.score + score, stays.breaks});
  made.push_back({offset, free.breaks});
  Reach(offset, {free.score - kBreak + score, made.size()});
}

// Takes the open message, now that the beginning of the next one is known.
void Search::Settle(std::uint64_t next) {
  if (open) Take(*open, next < *open + kApart ? kHollow : kWhole);
  open.reset();
}

void Search::SearchUpTo(std::uint64_t end) {
  while (place < end) {
    const std::uint64_t count = end - place;
    const std::size_t found = FindMessage(image.View(place, count + kSlotSize), 0, count);
    if (found == std::string_view::npos) break;
    Settle(place + found);
    open = place + found;
    place += found + 1;
  }
  place = end;
}

bool Search::IsFinal() const {
  return last >= first + kSlotSize && byGrid[leader].score - kWhole - kBreak >= second;
}

SlotChain Search::Result(std::uint64_t end) const {
  SlotChain chain;
  chain.end = end;
  for (std::size_t i = byGrid[leader].breaks; i != 0; i = made[i - 1].before)
    chain.breaks.push_back(made[i - 1].to);
  std::reverse(chain.breaks.begin(), chain.breaks.end());
  return chain;
}

SlotChain Search::Run() {
  SearchUpTo(first);
  const std::uint64_t end = std::min(image.Size(), first + kMostSlots * kSlotSize);
  for (; slot < end && made.size() < kMostBreaks; slot += kSlotSize) {
    SearchUpTo(slot + kSlotSize);
    if (IsFinal()) return Result(last);
  }
  Settle(kNone);
  return Result(slot);
}

}  // namespace

SlotChain BestChain(const LogFileImage& image, std::uint64_t from, std::uint64_t at) {
  return Search(image, from, at).Run();
}

}  // namespace TamLogClient
