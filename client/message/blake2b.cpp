#include "client/message/blake2b.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace TamLogClient {

namespace {

using Words = std::array<std::uint64_t, 8>;
using Block = std::array<std::uint64_t, 16>;

static_assert(std::endian::native == std::endian::little, "blocks are copied as they are");

constexpr std::size_t kBlockSize = sizeof(Block);
constexpr std::uint64_t kDigestSize = 16;
constexpr int kRounds = 12;

constexpr Words kInitial = {0x6A09E667F3BCC908U, 0xBB67AE8584CAA73BU, 0x3C6EF372FE94F82BU,
                            0xA54FF53A5F1D36F1U, 0x510E527FADE682D1U, 0x9B05688C2B3E6C1FU,
                            0x1F83D9ABFB41BD6BU, 0x5BE0CD19137E2179U};

constexpr std::uint8_t kOrder[10][16] = {{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15},
                                         {14, 10, 4, 8, 9, 15, 13, 6, 1, 12, 0, 2, 11, 7, 5, 3},
                                         {11, 8, 12, 0, 5, 2, 15, 13, 10, 14, 3, 6, 7, 1, 9, 4},
                                         {7, 9, 3, 1, 13, 12, 11, 14, 2, 6, 5, 10, 4, 0, 15, 8},
                                         {9, 0, 5, 7, 2, 4, 10, 15, 14, 1, 11, 12, 6, 8, 3, 13},
                                         {2, 12, 6, 10, 0, 11, 8, 3, 4, 13, 7, 5, 15, 14, 1, 9},
                                         {12, 5, 1, 15, 14, 13, 4, 10, 0, 7, 6, 3, 9, 2, 8, 11},
                                         {13, 11, 7, 14, 12, 1, 3, 9, 5, 0, 15, 4, 8, 6, 2, 10},
                                         {6, 15, 14, 9, 11, 3, 0, 8, 12, 2, 13, 7, 1, 4, 10, 5},
                                         {10, 2, 8, 4, 7, 6, 1, 5, 15, 11, 9, 14, 3, 12, 13, 0}};

// Mixes two words of the block into a column or a diagonal of the state.
void Mix(Block& state, std::size_t a, std::size_t b, std::size_t c, std::size_t d, std::uint64_t x,
         std::uint64_t y) {
  state[a] += state[b] + x;
  state[d] = std::rotr(state[d] ^ state[a], 32);
  state[c] += state[d];
  state[b] = std::rotr(state[b] ^ state[c], 24);
  state[a] += state[b] + y;
  state[d] = std::rotr(state[d] ^ state[a], 16);
  state[c] += state[d];
  state[b] = std::rotr(state[b] ^ state[c], 63);
}

// `end`: the number of bytes up to the end of this block.
void Compress(Words& hash, const Block& block, std::uint64_t end, bool last) {
  Block state;
  std::copy(hash.begin(), hash.end(), state.begin());
  std::copy(kInitial.begin(), kInitial.end(), state.begin() + 8);
  state[12] ^= end;
  if (last) state[14] = ~state[14];
  for (int round = 0; round < kRounds; ++round) {
    const std::uint8_t(&order)[16] = kOrder[round % 10];
    for (std::size_t i = 0; i < 4; ++i) {
      Mix(state, i, i + 4, i + 8, i + 12, block[order[2 * i]], block[order[2 * i + 1]]);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      Mix(state, i, (i + 1) % 4 + 4, (i + 2) % 4 + 8, (i + 3) % 4 + 12, block[order[2 * i + 8]],
          block[order[2 * i + 9]]);
    }
  }
  for (std::size_t i = 0; i < 8; ++i) hash[i] ^= state[i] ^ state[i + 8];
}

}  // namespace

std::array<std::uint64_t, 2> Blake2b128(const void* bytes, std::size_t size) {
  const auto* const from = static_cast<const unsigned char*>(bytes);
  Words hash = kInitial;
  hash[0] ^= 0x01010000U ^ kDigestSize;
  std::size_t at = 0;
  do {
    const std::size_t part = std::min(kBlockSize, size - at);
    Block block{};
    if (part > 0) std::memcpy(block.data(), from + at, part);
    at += part;
    Compress(hash, block, at, at == size);
  } while (at < size);
  return {hash[0], hash[1]};
}

}  // namespace TamLogClient
