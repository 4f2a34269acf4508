#pragma once

// Hexadecimal digits: of bytes, two each, and of numbers. Written in lower case.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace TamLogClient {

// Appends two digits per byte.
void AppendHex(std::string_view bytes, std::string& out);

// Returns the bytes that `digits` stand for, two digits each, in either case; nothing for anything else.
std::optional<std::string> FromHex(std::string_view digits);

// Appends `value` without leading zeros.
void AppendHexNumber(std::uint64_t value, std::string& out);

// Takes a number in either case from the front of `text`. False, with `text` unchanged, when there is none or
// it needs more than 64 bits.
bool TakeHexNumber(std::string_view& text, std::uint64_t& value);

}  // namespace TamLogClient
