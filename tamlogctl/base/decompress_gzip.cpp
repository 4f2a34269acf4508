#include <zlib.h>

#include <array>

#include "tamlogctl/base/decompression.h"

namespace TamLogCtl {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 16U;

class Inflater {
 public:
  Inflater(const ReadBytes& from, std::uint64_t limit, const WriteBytes& to) : read(from), output(limit, to) {
    constexpr int kGzipOnly = 16;
    started = inflateInit2(&stream, MAX_WBITS + kGzipOnly) == Z_OK;
  }
  ~Inflater() { inflateEnd(&stream); }
  Inflater(const Inflater&) = delete;
  Inflater& operator=(const Inflater&) = delete;

  Decompressed Run() {
    if (!started) return Decompressed::NotSupported;
    bool within = true;  // a member, not the end of one
    for (;;) {
      if (stream.avail_in == 0) {
        const auto got = read(reinterpret_cast<char*>(input.data()), input.size());
        if (!got) return Decompressed::ReadFailed;
        if (*got == 0) return within ? Decompressed::Truncated : Decompressed::Whole;
        stream.next_in = input.data();
        stream.avail_in = static_cast<uInt>(*got);
      }
      if (!within) {
        constexpr Bytef kFirstOfMember = 0x1F;
        if (*stream.next_in == 0) return Decompressed::Whole;  // padding up to the end of a tape's block
        if (*stream.next_in != kFirstOfMember) return Decompressed::Corrupt;
        inflateReset(&stream);
        within = true;
      }
      const int code = Step();
      const Decompressed passed = output.Pass({space.data(), space.size() - stream.avail_out});
      if (passed != Decompressed::Whole) return passed;
      if (code == Z_STREAM_END) within = false;
      if (code != Z_OK && code != Z_STREAM_END && code != Z_BUF_ERROR) return Decompressed::Corrupt;
    }
  }

 private:
  int Step() {
    stream.next_out = reinterpret_cast<Bytef*>(space.data());
    stream.avail_out = static_cast<uInt>(space.size());
    return inflate(&stream, Z_NO_FLUSH);
  }

  const ReadBytes& read;
  BoundedOutput output;
  z_stream stream{};
  bool started = false;
  std::array<Bytef, kPiece> input{};
  std::array<char, kPiece> space{};
};

}  // namespace

Decompressed DecompressGzip(const ReadBytes& read, std::uint64_t limit, const WriteBytes& write) {
  return Inflater(read, limit, write).Run();
}

}  // namespace TamLogCtl
