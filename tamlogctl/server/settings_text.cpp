#include "tamlogctl/server/settings_text.h"

#include <algorithm>
#include <array>

#include "tamlogctl/base/json.h"

namespace TamLogCtl {

namespace {

constexpr std::uint32_t kAllTypes = (1U << kMessageTypes) - 1;
constexpr std::uint64_t kMostMessages = 1000000;
constexpr std::uint64_t kMostSaveSeconds = 4294967;  // above, the server's milliseconds wrap around
constexpr std::uint64_t kMostPollMs = 0xFFFFFFFFU;

// The last one is printed with the others, and ignored when read.
constexpr std::array<std::string_view, 5> kKeys{"capacity", "poll_ms", "save_s", "types",
                                                "capacity_in_effect"};

bool Read(const Json& json, const char* key, std::uint64_t most, std::optional<std::uint32_t>& value,
          std::string& problem) {
  const Json* const field = json.Find(key);
  if (field == nullptr) return true;
  if (const auto number = field->AsUnsigned(); number && *number >= 1 && *number <= most) {
    value = static_cast<std::uint32_t>(*number);
    return true;
  }
  problem = std::string(key) + ": expected a number from 1 to " + std::to_string(most);
  return false;
}

std::optional<std::uint32_t> MaskOf(const Json& types) {
  if (const auto bits = types.AsUnsigned()) {
    return *bits <= kAllTypes ? std::optional(static_cast<std::uint32_t>(*bits)) : std::nullopt;
  }
  if (types.AsArray() == nullptr) return std::nullopt;
  std::uint32_t mask = 0;
  for (const Json& type : *types.AsArray()) {
    const auto number = type.AsUnsigned();
    if (!number || *number >= kMessageTypes) return std::nullopt;
    mask |= 1U << *number;
  }
  return mask;
}

std::string RequestedAndInEffect(std::uint32_t requested, std::optional<std::int32_t> inEffect) {
  return std::to_string(requested) + " requested, " +
         (inEffect ? std::to_string(*inEffect) : std::string("unknown")) + " in effect";
}

}  // namespace

std::string TypesText(std::uint32_t mask) {
  std::string list;
  for (std::uint32_t type = 0; type < kMessageTypes; ++type) {
    if (((mask >> type) & 1U) != 0) list += (list.empty() ? "" : ",") + std::to_string(type);
  }
  return list.empty() ? "none" : list;
}

std::string CapacityText(std::uint32_t requested, std::optional<std::int32_t> inEffect) {
  return "capacity " + RequestedAndInEffect(requested, inEffect);
}

std::string EmptyQuestion(std::int32_t messages) {
  std::string count = std::to_string(messages);
  for (std::size_t end = count.size(); end > 3; end -= 3) count.insert(end - 3, ",");
  return messages == 1 ? "Empty the log of its one message?" : "Empty all " + count + " messages?";
}

std::vector<std::string> ChangeLines(const SettingsBody& before, const SettingsBody& after) {
  std::vector<std::string> lines;
  const auto add = [&lines](const char* name, const std::string& from, const std::string& to) {
    if (from != to) lines.push_back(std::string(name) + " " + from + " -> " + to);
  };
  add("poll", std::to_string(before.devicePollRate) + " ms", std::to_string(after.devicePollRate) + " ms");
  add("save", std::to_string(before.saveRate) + " s", std::to_string(after.saveRate) + " s");
  add("types", TypesText(before.typeFilter), TypesText(after.typeFilter));
  return lines;
}

std::string SettingsAsText(const SettingsBody& settings, std::optional<std::int32_t> inEffect) {
  return "capacity  " + RequestedAndInEffect(settings.maxMessage, inEffect) + "\npoll      " +
         std::to_string(settings.devicePollRate) + " ms\nsave      " + std::to_string(settings.saveRate) +
         " s\ntypes     " + TypesText(settings.typeFilter) + "\n";
}

std::string SettingsAsJson(const SettingsBody& settings, std::optional<std::int32_t> inEffect) {
  JsonArray types;
  for (std::uint32_t type = 0; type < kMessageTypes; ++type) {
    if (((settings.typeFilter >> type) & 1U) != 0) types.emplace_back(type);
  }
  const JsonObject json{{"capacity", settings.maxMessage},
                        {"poll_ms", settings.devicePollRate},
                        {"save_s", settings.saveRate},
                        {"types", std::move(types)},
                        {"capacity_in_effect", inEffect}};
  return WriteJson(json, 2) + "\n";
}

std::optional<SettingsChange> ParseSettings(std::string_view text, std::string& problem) {
  const auto json = ParseJson(text);
  if (!json || json->AsObject() == nullptr) {
    problem = "expected a JSON object like the one that 'tamlogctl settings get -o json' prints";
    return std::nullopt;
  }
  for (const auto& [key, value] : *json->AsObject()) {
    if (std::find(kKeys.begin(), kKeys.end(), key) != kKeys.end()) continue;
    problem = "there is no setting '" + key + "'; there are capacity, poll_ms, save_s and types";
    return std::nullopt;
  }
  SettingsChange change;
  if (!Read(*json, "capacity", kMostMessages, change.capacity, problem) ||
      !Read(*json, "poll_ms", kMostPollMs, change.pollMs, problem) ||
      !Read(*json, "save_s", kMostSaveSeconds, change.saveSeconds, problem)) {
    return std::nullopt;
  }
  if (const Json* const types = json->Find("types")) {
    change.types = MaskOf(*types);
    if (!change.types) {
      problem = "types: expected a list of types from 0 to 3, or a number of bits up to 15";
      return std::nullopt;
    }
  }
  return change;
}

SettingsBody Changed(SettingsBody settings, const SettingsChange& change) {
  settings.maxMessage = change.capacity.value_or(settings.maxMessage);
  settings.devicePollRate = change.pollMs.value_or(settings.devicePollRate);
  settings.saveRate = change.saveSeconds.value_or(settings.saveRate);
  settings.typeFilter = change.types.value_or(settings.typeFilter);
  return settings;
}

}  // namespace TamLogCtl
