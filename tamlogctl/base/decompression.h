#pragma once

// Decompresses gzip and xz data without trusting them: the output is bounded, and damaged or truncated data
// end with a report, after everything before the damage was passed on. May be called from any thread.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace TamLogCtl {

enum class Compression : std::uint8_t { None, Gzip, Xz };

inline constexpr std::size_t kCompressionMark = 6;  // bytes that suffice for CompressionOf

// Returns how data are compressed that begin with these bytes.
Compression CompressionOf(std::string_view head);

enum class Decompressed : std::uint8_t {
  Whole,
  Truncated,     // the data end too early; everything before that was passed on
  Corrupt,       // the data break a rule of their format or fail their check sum; likewise
  TooLarge,      // the limit was reached
  Stopped,       // `write` returned false
  ReadFailed,    // `read` returned nothing
  NotSupported,  // this build cannot decompress the format
};

// Reads up to `most` bytes. Returns their number, 0 at the end, nothing when reading failed.
using ReadBytes = std::function<std::optional<std::size_t>(char* to, std::size_t most)>;
// Takes the next piece of the output. Returns false to stop.
using WriteBytes = std::function<bool(std::string_view piece)>;

// Decompresses what `read` returns, and passes at most `limit` bytes to `write`. Concatenated gzip members
// and xz streams are one output.
Decompressed Decompress(Compression format, const ReadBytes& read, std::uint64_t limit,
                        const WriteBytes& write);

// The same for one format each. Zeros, and anything else that is no further member, are ignored after a gzip
// member.
Decompressed DecompressGzip(const ReadBytes& read, std::uint64_t limit, const WriteBytes& write);
Decompressed DecompressXz(const ReadBytes& read, std::uint64_t limit, const WriteBytes& write);

// Copies what is not compressed. Whole, TooLarge, Stopped or ReadFailed.
Decompressed CopyBytes(const ReadBytes& read, std::uint64_t limit, const WriteBytes& write);

// Passes pieces on as long as their sum stays within the limit.
class BoundedOutput {
 public:
  BoundedOutput(std::uint64_t most, const WriteBytes& to) : limit(most), write(to) {}

  // Returns Whole when the piece was passed on, else TooLarge or Stopped.
  Decompressed Pass(std::string_view piece);

 private:
  std::uint64_t limit;
  const WriteBytes& write;
};

}  // namespace TamLogCtl
