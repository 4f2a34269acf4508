#include "tamlogctl/base/decompression.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <string>

#ifndef _WIN32
#include <lzma.h>
#endif

namespace {

using TamLogCtl::Compression;
using TamLogCtl::Decompress;
using TamLogCtl::Decompressed;

constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();

std::string Gzip(const std::string& text) {
  z_stream stream{};
  EXPECT_EQ(deflateInit2(&stream, 9, Z_DEFLATED, MAX_WBITS + 16, 8, Z_DEFAULT_STRATEGY), Z_OK);
  std::string out(text.size() + 100, '\0');
  std::string in = text;
  stream.next_in = reinterpret_cast<Bytef*>(in.data());
  stream.avail_in = static_cast<uInt>(in.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

std::string Xz(const std::string& text) {
#ifdef _WIN32
  return text;
#else
  std::string out(text.size() + 1000, '\0');
  std::size_t size = 0;
  EXPECT_EQ(lzma_easy_buffer_encode(6, LZMA_CHECK_CRC64, nullptr,
                                    reinterpret_cast<const std::uint8_t*>(text.data()), text.size(),
                                    reinterpret_cast<std::uint8_t*>(out.data()), &size, out.size()),
            LZMA_OK);
  out.resize(size);
  return out;
#endif
}

// A megabyte of bytes that do not repeat soon.
std::string Text() {
  std::string text;
  for (unsigned i = 0; text.size() < (1U << 20U); ++i) text += std::to_string(i * 2654435761U);
  return text;
}

struct Outcome {
  Decompressed end = Decompressed::Whole;
  std::string out;
};

// Decompresses `data`, which arrive in pieces of `piece` bytes.
Outcome Unpack(Compression format, const std::string& data, std::uint64_t limit = kNoLimit,
               std::size_t piece = 70000) {
  std::size_t at = 0;
  const TamLogCtl::ReadBytes read = [&](char* to, std::size_t most) {
    const std::size_t size = std::min({piece, most, data.size() - at});
    data.copy(to, size, at);
    at += size;
    return std::optional(size);
  };
  Outcome outcome;
  const TamLogCtl::WriteBytes write = [&outcome](std::string_view bytes) {
    outcome.out += bytes;
    return true;
  };
  outcome.end = Decompress(format, read, limit, write);
  return outcome;
}

struct Format {
  const char* name;
  Compression format;
  std::string (*compress)(const std::string&);
};

class Decompression : public testing::TestWithParam<Format> {};

TEST_P(Decompression, WholeDataComeOutAgainInPiecesOfAnySize) {
  const auto [name, format, compress] = GetParam();
  for (const std::string& text : {std::string(), std::string("x"), Text()}) {
    const std::string data = compress(text);
    EXPECT_EQ(TamLogCtl::CompressionOf(data), format);
    for (const std::size_t piece : {std::size_t{7}, std::size_t{70000}}) {
      const auto outcome = Unpack(format, data, kNoLimit, piece);
      EXPECT_EQ(outcome.end, Decompressed::Whole);
      EXPECT_TRUE(outcome.out == text);
    }
  }
}

TEST_P(Decompression, ConcatenatedDataAreOneOutput) {
  const auto [name, format, compress] = GetParam();
  const auto outcome = Unpack(format, compress("one ") + compress("two"), kNoLimit, 5);
  EXPECT_EQ(outcome.end, Decompressed::Whole);
  EXPECT_EQ(outcome.out, "one two");
}

TEST_P(Decompression, EachTruncationIsReportedAfterWhatCouldBeRead) {
  const auto [name, format, compress] = GetParam();
  const std::string text(3000, 'x');
  const std::string data = compress(text + Text().substr(0, 500));
  for (std::size_t size = TamLogCtl::kCompressionMark; size < data.size(); ++size) {
    const auto outcome = Unpack(format, data.substr(0, size));
    EXPECT_EQ(outcome.end, Decompressed::Truncated) << size;
    EXPECT_EQ((text + Text().substr(0, 500)).rfind(outcome.out, 0), 0U) << size;
  }
  EXPECT_GT(Unpack(format, data.substr(0, data.size() - 1)).out.size(), 3000U);
}

TEST_P(Decompression, NoFlippedBitIsTakenForTheWholeData) {
  const auto [name, format, compress] = GetParam();
  const std::string text = Text().substr(0, 400);
  const std::string data = compress(text);
  std::size_t noticed = 0;
  for (std::size_t bit = 8 * TamLogCtl::kCompressionMark; bit < data.size() * 8; ++bit) {
    std::string damaged = data;
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ static_cast<char>(1U << bit % 8));
    const auto outcome = Unpack(format, damaged, 100000);
    if (outcome.end != Decompressed::Whole) ++noticed;
    // Bits of the header that carry no data may differ; the contents may not.
    EXPECT_TRUE(outcome.end != Decompressed::Whole || outcome.out == text) << bit;
  }
  EXPECT_GT(noticed, data.size() * 7);
}

TEST_P(Decompression, OutputNeverExceedsItsLimit) {
  const auto [name, format, compress] = GetParam();
  const std::string bomb = compress(std::string(20'000'000, '\0'));
  EXPECT_LT(bomb.size(), 100'000U);
  const auto outcome = Unpack(format, bomb, 1'000'000);
  EXPECT_EQ(outcome.end, Decompressed::TooLarge);
  EXPECT_LE(outcome.out.size(), 1'000'000U);
  EXPECT_EQ(Unpack(format, compress("abc"), 3).end, Decompressed::Whole);
  EXPECT_EQ(Unpack(format, compress("abc"), 2).end, Decompressed::TooLarge);
}

TEST_P(Decompression, FailuresOfBothEndsAreToldApart) {
  const auto [name, format, compress] = GetParam();
  const std::string data = compress(Text());
  std::size_t calls = 0;
  const TamLogCtl::ReadBytes read = [&](char* to, std::size_t most) -> std::optional<std::size_t> {
    return calls++ == 0 ? std::optional(data.copy(to, std::min(most, std::size_t{1000}))) : std::nullopt;
  };
  const auto accept = [](std::string_view) { return true; };
  EXPECT_EQ(Decompress(format, read, kNoLimit, accept), Decompressed::ReadFailed);
  std::size_t at = 0;
  const TamLogCtl::ReadBytes readAll = [&](char* to, std::size_t most) {
    const std::size_t size = data.copy(to, most, at);
    at += size;
    return std::optional(size);
  };
  const auto refuse = [](std::string_view) { return false; };
  EXPECT_EQ(Decompress(format, readAll, kNoLimit, refuse), Decompressed::Stopped);
}

std::string NameOf(const testing::TestParamInfo<Format>& info) {
  return info.param.name;
}

#ifdef _WIN32
INSTANTIATE_TEST_SUITE_P(Formats, Decompression, testing::Values(Format{"Gzip", Compression::Gzip, Gzip}),
                         NameOf);

TEST(DecompressionOnWindows, XzIsReportedAsNotSupported) {
  EXPECT_EQ(Unpack(Compression::Xz, Xz("text")).end, Decompressed::NotSupported);
}
#else
INSTANTIATE_TEST_SUITE_P(Formats, Decompression,
                         testing::Values(Format{"Gzip", Compression::Gzip, Gzip},
                                         Format{"Xz", Compression::Xz, Xz}),
                         NameOf);
#endif

TEST(GzipDecompression, PaddingAfterTheLastMemberIsIgnored) {
  const auto outcome = Unpack(Compression::Gzip, Gzip("text") + std::string(1000, '\0'), kNoLimit, 9);
  EXPECT_EQ(outcome.end, Decompressed::Whole);
  EXPECT_EQ(outcome.out, "text");
}

TEST(GzipDecompression, OtherBytesAfterTheLastMemberAreDamage) {
  const auto outcome = Unpack(Compression::Gzip, Gzip("text") + "garbage", kNoLimit, 9);
  EXPECT_EQ(outcome.end, Decompressed::Corrupt);
  EXPECT_EQ(outcome.out, "text");
}

TEST(PlainCopy, PassesEverythingOnWithinItsLimit) {
  EXPECT_EQ(TamLogCtl::CompressionOf("text of a file"), Compression::None);
  EXPECT_EQ(TamLogCtl::CompressionOf(""), Compression::None);
  EXPECT_TRUE(Unpack(Compression::None, Text()).out == Text());
  EXPECT_EQ(Unpack(Compression::None, "abc", 2).end, Decompressed::TooLarge);
}

}  // namespace
