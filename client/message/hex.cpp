#include "client/message/hex.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <system_error>

namespace TamLogClient {

namespace {

constexpr std::string_view kDigits = "0123456789abcdef";

// Returns the value of a digit, or -1.
int ValueOf(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

}  // namespace

void AppendHex(std::string_view bytes, std::string& out) {
  std::size_t at = out.size();
  out.resize(at + 2 * bytes.size());
  for (const char character : bytes) {
    const auto value = static_cast<unsigned char>(character);
    out[at++] = kDigits[value >> 4U];
    out[at++] = kDigits[value & 0xFU];
  }
}

std::optional<std::string> FromHex(std::string_view digits) {
  if (digits.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  bytes.reserve(digits.size() / 2);
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    const int high = ValueOf(digits[i]);
    const int low = ValueOf(digits[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes += static_cast<char>(static_cast<unsigned char>(high * 16 + low));
  }
  return bytes;
}

void AppendHexNumber(std::uint64_t value, std::string& out) {
  std::array<char, 16> digits{};
  char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), value, 16).ptr;
  out.append(digits.data(), end);
}

bool TakeHexNumber(std::string_view& text, std::uint64_t& value) {
  const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  if (error != std::errc()) return false;
  text.remove_prefix(static_cast<std::size_t>(rest - text.data()));
  return true;
}

}  // namespace TamLogClient
