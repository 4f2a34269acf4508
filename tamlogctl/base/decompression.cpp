#include "tamlogctl/base/decompression.h"

#include <vector>

namespace TamLogCtl {

Compression CompressionOf(std::string_view head) {
  if (head.starts_with("\x1F\x8B\x08")) return Compression::Gzip;
  if (head.starts_with(std::string_view("\xFD"
                                        "7zXZ\0",
                                        6)))
    return Compression::Xz;
  return Compression::None;
}

Decompressed Decompress(Compression format, const ReadBytes& read, std::uint64_t limit,
                        const WriteBytes& write) {
  switch (format) {
    case Compression::Gzip:
      return DecompressGzip(read, limit, write);
    case Compression::Xz:
      return DecompressXz(read, limit, write);
    case Compression::None:
      break;
  }
  return CopyBytes(read, limit, write);
}

Decompressed CopyBytes(const ReadBytes& read, std::uint64_t limit, const WriteBytes& write) {
  constexpr std::size_t kPiece = std::size_t{1} << 16U;
  BoundedOutput output(limit, write);
  std::vector<char> piece(kPiece);
  for (;;) {
    const auto got = read(piece.data(), piece.size());
    if (!got) return Decompressed::ReadFailed;
    if (*got == 0) return Decompressed::Whole;
    if (const auto passed = output.Pass({piece.data(), *got}); passed != Decompressed::Whole) return passed;
  }
}

Decompressed BoundedOutput::Pass(std::string_view piece) {
  if (piece.size() > limit) return Decompressed::TooLarge;
  limit -= piece.size();
  return piece.empty() || write(piece) ? Decompressed::Whole : Decompressed::Stopped;
}

}  // namespace TamLogCtl
