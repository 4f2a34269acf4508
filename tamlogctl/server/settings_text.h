#pragma once

// The server's settings as text: for people, and as the JSON object that `settings set -` reads back.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "records/pipe_protocol.h"

namespace TamLogCtl {

// What is to be changed; what is not set stays as it is.
struct SettingsChange {
  std::optional<std::uint32_t> capacity;     // messages
  std::optional<std::uint32_t> pollMs;       // pause between two readings of the driver
  std::optional<std::uint32_t> saveSeconds;  // pause between two forced writes to disk
  std::optional<std::uint32_t> types;        // bit i: messages of type i are kept
};

// "0,2,3", or "none".
std::string TypesText(std::uint32_t mask);

// `inEffect` is the capacity of the shared log; nothing when it could not be seen.
std::string SettingsAsText(const SettingsBody& settings, std::optional<std::int32_t> inEffect);
std::string SettingsAsJson(const SettingsBody& settings, std::optional<std::int32_t> inEffect);

// Reads of a JSON object the keys capacity, poll_ms, save_s and types (a list, or a number of bits);
// capacity_in_effect, which is printed beside them, is passed over. Nothing, and `problem`, for what is no
// such object, has other keys, or has values that the server could not bear.
std::optional<SettingsChange> ParseSettings(std::string_view text, std::string& problem);

SettingsBody Changed(SettingsBody settings, const SettingsChange& change);

}  // namespace TamLogCtl
