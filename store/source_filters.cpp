#include "store/source_filters.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "util/helpers.h"

namespace {

constexpr std::size_t kWord = sizeof(std::uint64_t);
constexpr std::uint64_t kEach = 0x0101010101010101U;
constexpr std::uint64_t kHighBits = kEach * 0x80;

std::uint64_t LoadWord(const char* bytes) {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, kWord);
  return word;
}

// Folds eight bytes at once: computes for each byte a high bit that says whether it is a letter from A to Z,
// and shifts it to the bit in which small letters differ.
std::uint64_t FoldWord(std::uint64_t word) {
  const std::uint64_t low = word & ~kHighBits;
  const std::uint64_t fromA = low + kEach * (0x80 - 'A');
  const std::uint64_t afterZ = low + kEach * (0x7F - 'Z');
  const std::uint64_t capital = (fromA ^ afterZ) & ~word & kHighBits;
  return word | (capital >> 2);
}

// Selects the first `length` of eight bytes.
std::uint64_t MaskOf(std::size_t length) {
  return length >= kWord ? ~std::uint64_t{0} : (std::uint64_t{1} << (8 * length)) - 1;
}

}  // namespace

FoldedSource::FoldedSource(const char (&source)[kTextSize]) {
  static_assert(kTextSize % kWord == 1);
  for (std::size_t i = 0; i < kTextSize - 1; i += kWord) {
    const std::uint64_t word = LoadWord(source + i);
    const std::uint64_t folded = FoldWord(word);
    std::memcpy(bytes + i, &folded, kWord);
    const std::uint64_t zeros = (word - kEach) & ~word & kHighBits;
    if (zeros != 0) {
      length = i + static_cast<std::size_t>(std::countr_zero(zeros)) / 8;
      return;
    }
  }
  const char last = source[kTextSize - 1];
  bytes[kTextSize - 1] = static_cast<char>(FoldWord(static_cast<unsigned char>(last)));
  length = last == '\0' ? kTextSize - 1 : kTextSize;
}

SourceFilters::SourceFilters(std::initializer_list<std::string> list) {
  for (const std::string& name : list) push_back(name);
}

// Everything that may fail comes first.
void SourceFilters::push_back(std::string name) {
  std::string small = TamLogUtil::ToLower(name);
  if (names.size() == names.capacity()) {
    const std::size_t room = 2 * names.size() + 4;
    folded.reserve(room);
    heads.reserve(room);
    names.reserve(room);
  }
  char first[kWord] = {};
  std::copy_n(small.begin(), std::min(small.size(), kWord), first);
  heads.push_back({.bytes = LoadWord(first), .mask = MaskOf(small.size())});
  folded.push_back(std::move(small));
  names.push_back(std::move(name));
}

void SourceFilters::clear() {
  names.clear();
  heads.clear();
  folded.clear();
}

bool SourceFilters::MatchAny(const FoldedSource& source) const {
  const std::uint64_t mask = MaskOf(source.length);
  const std::uint64_t first = LoadWord(source.bytes);
  for (std::size_t i = 0; i < heads.size(); ++i) {
    if (((heads[i].bytes ^ first) & heads[i].mask & mask) != 0) continue;
    const std::size_t common = std::min(folded[i].size(), source.length);
    if (common <= kWord || std::memcmp(folded[i].data() + kWord, source.bytes + kWord, common - kWord) == 0) {
      return true;
    }
  }
  return false;
}
