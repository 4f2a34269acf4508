#include "store/body_pool.h"

void BodyPool::Grow() {
  const std::size_t first = blocks.size() * kBlock;
  if (free.capacity() < first + kBlock) free.reserve(2 * (first + kBlock));
  // Not set to zero: that would touch pages long before they are needed.
  blocks.emplace_back(new LogMessage[kBlock]);
  for (std::uint32_t i = kBlock; i-- > 0;) free.push_back(static_cast<std::uint32_t>(first) + i);
}

void BodyPool::Shrink() {
  if (blocks.size() <= kKeptBlocks || free.size() < blocks.size() * kBlock) return;
  blocks.resize(kKeptBlocks);
  free.clear();
  free.shrink_to_fit();
  free.reserve(kKeptBlocks * kBlock);
  for (auto i = static_cast<std::uint32_t>(kKeptBlocks * kBlock); i-- > 0;) free.push_back(i);
}
