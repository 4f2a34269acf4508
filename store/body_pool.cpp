#include "store/body_pool.h"

void BodyPool::Grow() {
  const std::size_t first = blocks.size() * kBlock;
  if (free.capacity() < first + kBlock) free.reserve(2 * (first + kBlock));
  // Not zeroed: that would touch pages long before they are needed.
  blocks.emplace_back(new LogMessage[kBlock]);
  for (std::uint32_t i = kBlock; i-- > 0;) free.push_back(static_cast<std::uint32_t>(first) + i);
}

void BodyPool::Tidy(std::size_t returned) {
  if (free.size() < blocks.size() * kBlock || returned < free.size() / 16) return;
  if (blocks.size() > kKeptBlocks) {
    blocks.resize(kKeptBlocks);
    std::vector<std::uint32_t> fewer;
    fewer.reserve(kKeptBlocks * kBlock);
    free.swap(fewer);
  }
  free.clear();
  for (auto i = static_cast<std::uint32_t>(blocks.size() * kBlock); i-- > 0;) free.push_back(i);
}
