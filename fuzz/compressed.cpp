// Fuzzes compressed data: the output is bounded, and depends on the data alone, not on the pieces in which
// the data arrive.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "fuzz/input.h"
#include "tamlogctl/base/decompression.h"

namespace {

using TamLogCtl::Compression;
using TamLogCtl::Decompressed;

constexpr std::size_t kLimit = std::size_t{1} << 18U;

struct Outcome {
  Decompressed end = Decompressed::Whole;
  std::string out;
};

Outcome Run(Compression format, std::string_view data, std::size_t piece) {
  const TamLogCtl::ReadBytes read = [&](char* to, std::size_t most) {
    const std::size_t size = data.copy(to, std::min(piece, most));
    data.remove_prefix(size);
    return std::optional(size);
  };
  Outcome outcome;
  const TamLogCtl::WriteBytes write = [&outcome](std::string_view bytes) {
    outcome.out += bytes;
    return true;
  };
  outcome.end = Decompress(format, read, kLimit, write);
  return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const Compression format = TamLogCtl::CompressionOf(bytes);
  const Outcome whole = Run(format, bytes, size + 1);
  const Outcome pieces = Run(format, bytes, 3);
  Fuzz::Require(whole.out.size() <= kLimit && pieces.out.size() <= kLimit);
  Fuzz::Require(whole.end == pieces.end);
  // Before damage or at the limit, a decoder may have passed on more or less of the same output.
  const bool ended = whole.end == Decompressed::Whole || whole.end == Decompressed::Truncated;
  Fuzz::Require(ended ? whole.out == pieces.out
                      : whole.out.starts_with(pieces.out) || pieces.out.starts_with(whole.out));
  return 0;
}
