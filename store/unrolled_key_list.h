#pragma once

// An unrolled list of two levels: the time keys of all messages, newest first, each with a number of the
// owner's choice. It does not hold the messages themselves. Plain data without a lock.
//
// Entries are stored in chunks, chunks in groups. A group and a chunk know their size and a lower bound of
// their keys, so the place of a new key is found by comparing with some groups, some chunks of one group and
// the keys of one chunk, also a million entries back; an insertion moves the entries of one chunk. An entry
// takes 12 bytes; chunks fill up while messages arrive in order or in the reverse order, and to half
// otherwise.
//
// A list that was loaded may be out of order (MessageFileServer::Compact explains why). Insert then still
// does what a walk from the newest entry would do.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

// `kChunk` entries in a chunk, `kGroup` chunks in a group; both at least 2.
template <std::size_t kChunk, std::size_t kGroup>
class BasicUnrolledKeyList {
 public:
  std::size_t Size() const { return size; }

  void Clear() { *this = BasicUnrolledKeyList(); }

  void AppendOldest(std::uint64_t key, std::uint32_t number) {
    if (size > 0 && key > OldestChunk().keys[OldestChunk().begin]) inOrder = false;
    if (groups.empty() || OldestChunk().begin == 0) AddOldestChunk();
    Group& group = groups.front();
    Chunk& chunk = group.chunks.front();
    --chunk.begin;
    chunk.keys[chunk.begin] = key;
    chunk.numbers[chunk.begin] = number;
    Count(group, chunk, key);
  }

  // Walks from the newest entry and inserts on the newer side of the first one whose key is not greater:
  // among equal keys the new one counts as the newest. Returns the number of entries newer than it. Changes
  // nothing when memory runs out.
  std::size_t Insert(std::uint64_t key, std::uint32_t number) {
    if (groups.empty()) AddNewestChunk();
    if (Append(key, number)) return 0;
    Place place = Find(key);
    MakeRoom(place);
    Group& group = groups[place.group];
    Chunk& chunk = group.chunks[place.chunk];
    chunk.Insert(place.index, key, number);
    Count(group, chunk, key);
    return place.newer;
  }

  // Removes the oldest entry and returns its number. The list must not be empty.
  std::uint32_t PopOldest() {
    Group& group = groups.front();
    Chunk& chunk = group.chunks.front();
    const std::uint32_t number = chunk.numbers[chunk.begin++];
    --group.size;
    --size;
    if (chunk.begin == chunk.end) {
      spare = std::move(chunk);
      group.chunks.erase(group.chunks.begin());
      if (group.chunks.empty()) groups.erase(groups.begin());
    }
    return number;
  }

  // Calls visit(std::uint32_t& number) for the entries from the newest on, until it returns false.
  template <class Visit>
  void FromNewestWhile(Visit&& visit) {
    for (auto group = groups.rbegin(); group != groups.rend(); ++group) {
      for (auto chunk = group->chunks.rbegin(); chunk != group->chunks.rend(); ++chunk) {
        for (std::size_t i = chunk->end; i-- > chunk->begin;) {
          if (!visit(chunk->numbers[i])) return;
        }
      }
    }
  }

  // Calls visit(std::uint32_t& number) for the newest `count` entries, from the newest on.
  template <class Visit>
  void FromNewest(std::size_t count, Visit&& visit) {
    FromNewestWhile([&](std::uint32_t& number) {
      if (count == 0) return false;
      --count;
      visit(number);
      return true;
    });
  }

 private:
  static constexpr std::uint64_t kHighest = ~std::uint64_t{0};

  // Entries `begin` to `end`, the newest last.
  struct Chunk {
    std::size_t Size() const { return end - begin; }

    // Inserts before entry `index`. There must be room at one of the ends.
    void Insert(std::size_t index, std::uint64_t key, std::uint32_t number) {
      if (end < kChunk && (begin == 0 || end - index <= index - begin)) {
        std::copy_backward(&keys[index], &keys[end], &keys[end] + 1);
        std::copy_backward(&numbers[index], &numbers[end], &numbers[end] + 1);
        ++end;
      } else {
        std::copy(&keys[begin], &keys[index], &keys[begin] - 1);
        std::copy(&numbers[begin], &numbers[index], &numbers[begin] - 1);
        --begin;
        --index;
      }
      keys[index] = key;
      numbers[index] = number;
    }

    // The index after the newest entry whose key is not greater; `begin` when there is none.
    std::size_t IndexFor(std::uint64_t key, bool sorted) const {
      const std::uint64_t* const all = keys.get();
      if (begin < end && all[end - 1] <= key) return end;
      if (sorted) return static_cast<std::size_t>(std::upper_bound(all + begin, all + end, key) - all);
      std::size_t index = end;
      while (index > begin && all[index - 1] > key) --index;
      return index;
    }

    std::uint64_t LowestOf(std::size_t from, std::size_t to) const {
      return *std::min_element(&keys[from], &keys[from] + (to - from));
    }

    std::size_t begin = 0;
    std::size_t end = 0;
    std::uint64_t bound = kHighest;  // not updated when the oldest entry is removed, so it may be too low
    std::unique_ptr<std::uint64_t[]> keys;
    std::unique_ptr<std::uint32_t[]> numbers;
  };

  struct Group {
    std::vector<Chunk> chunks;  // the newest last; capacity kGroup, so that adding one cannot fail
    std::size_t size = 0;
    std::uint64_t bound = kHighest;  // like a chunk's
  };

  struct Place {
    std::size_t group;
    std::size_t chunk;
    std::size_t index;
    std::size_t newer;  // entries on the newer side of it
  };

  const Chunk& OldestChunk() const { return groups.front().chunks.front(); }

  void Count(Group& group, Chunk& chunk, std::uint64_t key) {
    chunk.bound = std::min(chunk.bound, key);
    group.bound = std::min(group.bound, key);
    ++group.size;
    ++size;
  }

  // The usual case: the new entry is the newest, and the newest chunk has room after its last entry.
  bool Append(std::uint64_t key, std::uint32_t number) {
    Group& group = groups.back();
    Chunk& chunk = group.chunks.back();
    if (chunk.end == kChunk || chunk.begin == chunk.end || chunk.keys[chunk.end - 1] > key) return false;
    chunk.keys[chunk.end] = key;
    chunk.numbers[chunk.end] = number;
    ++chunk.end;
    ++group.size;
    ++size;
    return true;
  }

  Place Find(std::uint64_t key) const {
    std::size_t newer = 0;
    for (std::size_t g = groups.size(); g-- > 0;) {
      const Group& group = groups[g];
      if (group.bound > key) {
        newer += group.size;
        continue;
      }
      for (std::size_t c = group.chunks.size(); c-- > 0;) {
        const Chunk& chunk = group.chunks[c];
        const std::size_t index = chunk.bound > key ? chunk.begin : chunk.IndexFor(key, inOrder);
        newer += chunk.end - index;
        if (index > chunk.begin) return {.group = g, .chunk = c, .index = index, .newer = newer};
      }
    }
    return {.group = 0, .chunk = 0, .index = OldestChunk().begin, .newer = newer};
  }

  // Makes room at one end of the chunk at `place`, which may move to another chunk.
  void MakeRoom(Place& place) {
    const Chunk& chunk = groups[place.group].chunks[place.chunk];
    if (place.newer == 0 && chunk.end == kChunk) {
      AddNewestChunk();
      place = {.group = groups.size() - 1, .chunk = groups.back().chunks.size() - 1, .index = 0, .newer = 0};
    } else if (chunk.Size() == kChunk) {
      if (place.index == kChunk && MoveToNextChunk(place)) return;
      if (groups[place.group].chunks.size() == kGroup) SplitGroup(place);
      if (place.index == kChunk) {
        AddChunkAfter(place);
      } else {
        SplitChunk(place);
      }
    }
  }

  // The place after the last entry of a chunk is also the one before the first of the next, which may have
  // room. False when it has none.
  bool MoveToNextChunk(Place& place) const {
    const Group& group = groups[place.group];
    if (place.chunk + 1 == group.chunks.size() || group.chunks[place.chunk + 1].begin == 0) return false;
    ++place.chunk;
    place.index = group.chunks[place.chunk].begin;
    return true;
  }

  // Filled from its end: messages that arrive in the reverse order of their times are inserted before it.
  void AddChunkAfter(Place& place) {
    Chunk chunk = NewChunk(kChunk);
    Group& group = groups[place.group];
    ++place.chunk;
    place.index = kChunk;
    group.chunks.insert(group.chunks.begin() + static_cast<std::ptrdiff_t>(place.chunk), std::move(chunk));
  }

  // The newer half becomes a chunk of its own, with room on both sides.
  void SplitChunk(Place& place) {
    constexpr std::size_t kKept = kChunk / 2;
    Chunk half = NewChunk(kChunk / 4);
    Group& group = groups[place.group];
    Chunk& old = group.chunks[place.chunk];
    std::copy(&old.keys[kKept], old.keys.get() + kChunk, &half.keys[half.begin]);
    std::copy(&old.numbers[kKept], old.numbers.get() + kChunk, &half.numbers[half.begin]);
    half.end = half.begin + kChunk - kKept;
    half.bound = half.LowestOf(half.begin, half.end);
    old.end = kKept;
    old.bound = old.LowestOf(0, kKept);
    if (place.index > kKept) {
      ++place.chunk;
      place.index += half.begin - kKept;
      group.chunks.insert(group.chunks.begin() + static_cast<std::ptrdiff_t>(place.chunk), std::move(half));
    } else {
      group.chunks.insert(group.chunks.begin() + static_cast<std::ptrdiff_t>(place.chunk) + 1,
                          std::move(half));
    }
  }

  void SplitGroup(Place& place) {
    constexpr auto kKept = static_cast<std::ptrdiff_t>(kGroup / 2);
    Group half = NewGroup();
    groups.reserve(groups.size() + 1);
    Group& old = groups[place.group];
    std::move(old.chunks.begin() + kKept, old.chunks.end(), std::back_inserter(half.chunks));
    old.chunks.erase(old.chunks.begin() + kKept, old.chunks.end());
    Measure(old);
    Measure(half);
    groups.insert(groups.begin() + static_cast<std::ptrdiff_t>(place.group) + 1, std::move(half));
    if (place.chunk >= kGroup / 2) {
      ++place.group;
      place.chunk -= kGroup / 2;
    }
  }

  static void Measure(Group& group) {
    group.size = 0;
    group.bound = kHighest;
    for (const Chunk& chunk : group.chunks) {
      group.size += chunk.Size();
      group.bound = std::min(group.bound, chunk.bound);
    }
  }

  // An empty chunk whose first entry goes to index `from`.
  Chunk NewChunk(std::size_t from) {
    Chunk chunk = std::move(spare);
    if (chunk.keys == nullptr) chunk.keys.reset(new std::uint64_t[kChunk]);
    if (chunk.numbers == nullptr) chunk.numbers.reset(new std::uint32_t[kChunk]);
    chunk.begin = from;
    chunk.end = from;
    chunk.bound = kHighest;
    return chunk;
  }

  static Group NewGroup() {
    Group group;
    group.chunks.reserve(kGroup);
    return group;
  }

  void AddNewestChunk() {
    Chunk chunk = NewChunk(0);
    if (groups.empty() || groups.back().chunks.size() == kGroup) groups.push_back(NewGroup());
    groups.back().chunks.push_back(std::move(chunk));
  }

  void AddOldestChunk() {
    Chunk chunk = NewChunk(kChunk);
    if (groups.empty() || groups.front().chunks.size() == kGroup) groups.insert(groups.begin(), NewGroup());
    groups.front().chunks.insert(groups.front().chunks.begin(), std::move(chunk));
  }

  std::vector<Group> groups;  // the newest last
  Chunk spare;                // the chunk that became empty last
  std::size_t size = 0;
  bool inOrder = true;  // from the newest entry on, no key is greater than the one before
};

using UnrolledKeyList = BasicUnrolledKeyList<256, 32>;
