#include "util/helpers.h"

#include <algorithm>

#include "util/exceptions.h"

namespace TamLogUtil {
namespace {

constexpr std::size_t kFlagsInMask = 32;

// Independent of the C library's locale: bytes above 127 are never letters here.
char Fold(char byte) {
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

bool OneBeginsTheOther(std::string_view left, std::string_view right) {
  const std::size_t common = std::min(left.size(), right.size());
  return std::equal(left.begin(), left.begin() + static_cast<std::ptrdiff_t>(common), right.begin(),
                    [](char a, char b) { return Fold(a) == Fold(b); });
}

}  // namespace

std::string ToString(std::int32_t value) {
  return std::to_string(value);
}

std::string ToString(std::uint64_t value) {
  return std::to_string(value);
}

std::string ToLower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), Fold);
  return lower;
}

bool MatchesAnyPrefix(std::string_view text, const std::vector<std::string>& list) {
  return std::any_of(list.begin(), list.end(),
                     [text](const std::string& element) { return OneBeginsTheOther(text, element); });
}

// Flags from the 33rd on use the low bits again.
std::uint32_t PackFlags(const bool* flags, std::size_t count) {
  std::uint32_t mask = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (flags[i]) mask |= std::uint32_t{1} << (i % kFlagsInMask);
  }
  return mask;
}

void UnpackFlags(std::uint32_t mask, bool* flags, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) flags[i] = ((mask >> (i % kFlagsInMask)) & 1U) != 0;
}

std::string PathBeside(std::string_view executable, const std::string& fileName) {
  const std::size_t backslash = executable.rfind('\\');
  if (backslash == std::string_view::npos) {
    throw Exceptions::ExceptionBase("Failed to obtain executable's location");
  }
  return std::string(executable.substr(0, backslash)) + '\\' + fileName;
}

}  // namespace TamLogUtil
