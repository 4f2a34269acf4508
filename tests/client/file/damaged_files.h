#pragma once

// Log files as bytes, whether a server accepts them, and ways of damaging them at random.

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "records/log_file_format.h"

namespace TamLogTest {

using Random = std::mt19937;

// A number from 0 to `below` - 1.
std::size_t Pick(Random& random, std::size_t below);

// A log in a state that a server can bring it into: part full, full, wrapped, with late messages, written in
// reverse by a burst, or emptied by a clear. Every message is different from all others.
std::string RandomLogFile(Random& random, std::int32_t capacity);

// Ways of damage; each changes something.
enum class Damage : std::uint8_t {
  Cut,          // bytes are missing at the end
  Grown,        // random bytes were added at the end
  Zeroed,       // a range was overwritten with zeros
  Scribbled,    // a range was overwritten with random bytes
  HeaderBits,   // bits of the header were flipped
  SlotBits,     // bits of slots were flipped
  BytesLost,    // bytes are missing in the middle: what follows has moved
  BytesAdded,   // bytes were inserted in the middle
  SlotsSwapped  // two slots have changed places
};
inline constexpr std::size_t kDamages = 9;
const char* DamageName(Damage damage);
void Inflict(Damage damage, Random& random, std::string& bytes);

// Whether a server that opens these bytes keeps the messages, by the server's own rules.
bool ServerKeeps(const std::string& bytes);

// The 546 bytes of every message that the header's ring holds; of a sound file only.
std::vector<std::string> BodiesInRing(const std::string& bytes);
std::string BodyBytes(const LogMessage& message);

}  // namespace TamLogTest
