#include <lzma.h>

#include <array>

#include "tamlogctl/base/decompression.h"

namespace TamLogCtl {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 16U;
constexpr std::uint64_t kMostMemory = std::uint64_t{256} << 20U;  // `xz -9` needs a quarter of it

class Decoder {
 public:
  Decoder(const ReadBytes& from, std::uint64_t limit, const WriteBytes& to) : read(from), output(limit, to) {
    started = lzma_stream_decoder(&stream, kMostMemory, LZMA_CONCATENATED) == LZMA_OK;
  }
  ~Decoder() { lzma_end(&stream); }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  Decompressed Run() {
    if (!started) return Decompressed::NotSupported;
    lzma_action action = LZMA_RUN;
    for (;;) {
      if (stream.avail_in == 0 && action == LZMA_RUN) {
        const auto got = read(reinterpret_cast<char*>(input.data()), input.size());
        if (!got) return Decompressed::ReadFailed;
        if (*got == 0) action = LZMA_FINISH;
        stream.next_in = input.data();
        stream.avail_in = *got;
      }
      const lzma_ret code = Step(action);
      const Decompressed passed = output.Pass({space.data(), space.size() - stream.avail_out});
      if (passed != Decompressed::Whole) return passed;
      if (code == LZMA_STREAM_END) return Decompressed::Whole;
      if (code == LZMA_BUF_ERROR) return Decompressed::Truncated;
      if (code == LZMA_MEMLIMIT_ERROR) return Decompressed::TooLarge;
      if (code != LZMA_OK) return Decompressed::Corrupt;
    }
  }

 private:
  lzma_ret Step(lzma_action action) {
    stream.next_out = reinterpret_cast<std::uint8_t*>(space.data());
    stream.avail_out = space.size();
    return lzma_code(&stream, action);
  }

  const ReadBytes& read;
  BoundedOutput output;
  lzma_stream stream{};  // all zeros: what LZMA_STREAM_INIT is
  bool started = false;
  std::array<std::uint8_t, kPiece> input{};
  std::array<char, kPiece> space{};
};

}  // namespace

Decompressed DecompressXz(const ReadBytes& read, std::uint64_t limit, const WriteBytes& write) {
  return Decoder(read, limit, write).Run();
}

}  // namespace TamLogCtl
