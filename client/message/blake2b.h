#pragma once

// The BLAKE2b hash function (RFC 7693) with a digest of 128 bits and without a key. Nobody can construct two
// inputs with the same digest, so it also identifies what strangers have written. One processor core digests
// some hundred megabytes a second.
//
// The function has no state and may be called from any thread.

#include <array>
#include <cstddef>
#include <cstdint>

namespace TamLogClient {

// Returns the digest's bytes as two little-endian numbers, the first eight bytes first.
std::array<std::uint64_t, 2> Blake2b128(const void* bytes, std::size_t size);

}  // namespace TamLogClient
