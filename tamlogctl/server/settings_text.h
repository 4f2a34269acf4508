#pragma once

// The server's settings as text: for people, and as the JSON object that `settings set -` reads.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "records/pipe_protocol.h"

namespace TamLogCtl {

// A change of the settings. A member without a value leaves its setting unchanged.
struct SettingsChange {
  std::optional<std::uint32_t> capacity;     // messages
  std::optional<std::uint32_t> pollMs;       // pause between two readings of the driver
  std::optional<std::uint32_t> saveSeconds;  // pause between two forced writes to disk
  std::optional<std::uint32_t> types;        // bit i: messages of type i are kept
};

// Returns "0,2,3", or "none".
std::string TypesText(std::uint32_t mask);

// Returns "capacity 200 requested, 100 in effect". In this and the next two, `inEffect` is the capacity of
// the shared log, and nothing when it is unknown.
std::string CapacityText(std::uint32_t requested, std::optional<std::int32_t> inEffect);

// Returns "Empty all 20,000 messages?".
std::string EmptyQuestion(std::int32_t messages);

// Returns one line for each setting that differs, except the capacity: "types 0,1,2,3 -> 0,1".
std::vector<std::string> ChangeLines(const SettingsBody& before, const SettingsBody& after);

std::string SettingsAsText(const SettingsBody& settings, std::optional<std::int32_t> inEffect);
std::string SettingsAsJson(const SettingsBody& settings, std::optional<std::int32_t> inEffect);

// Parses a JSON object with the keys capacity, poll_ms, save_s and types (a list, or a number of bits). The
// key capacity_in_effect, which SettingsAsJson adds, is ignored. Returns nothing, with the reason in
// `problem`, for anything else, for other keys, and for values that would harm the server.
std::optional<SettingsChange> ParseSettings(std::string_view text, std::string& problem);

SettingsBody Changed(SettingsBody settings, const SettingsChange& change);

}  // namespace TamLogCtl
