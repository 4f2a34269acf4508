#include "client/format/message_fields.h"

#include <algorithm>
#include <utility>

#include "client/message/utf8.h"

namespace TamLogClient {

namespace {

constexpr std::array<std::pair<std::string_view, Field>, 14> kFields{{{"time", Field::Time},
                                                                      {"seq", Field::Seq},
                                                                      {"type", Field::Type},
                                                                      {"label", Field::Label},
                                                                      {"source", Field::Source},
                                                                      {"text", Field::Text},
                                                                      {"origin", Field::Origin},
                                                                      {"tail", Field::Tail},
                                                                      {"spare", Field::Spare},
                                                                      {"late", Field::Late},
                                                                      {"host", Field::Host},
                                                                      {"source_hex", Field::SourceHex},
                                                                      {"text_hex", Field::TextHex},
                                                                      {"cursor", Field::Cursor}}};

constexpr std::array<std::pair<std::string_view, int>, 19> kSeverities{{{"emerg", 0},
                                                                        {"emergency", 0},
                                                                        {"alert", 1},
                                                                        {"crit", 2},
                                                                        {"critical", 2},
                                                                        {"fatal", 2},
                                                                        {"err", 3},
                                                                        {"error", 3},
                                                                        {"warn", 4},
                                                                        {"warning", 4},
                                                                        {"notice", 5},
                                                                        {"info", 6},
                                                                        {"information", 6},
                                                                        {"informational", 6},
                                                                        {"debug", 7},
                                                                        {"trace", 7},
                                                                        {"verbose", 7},
                                                                        {"dbg", 7},
                                                                        {"panic", 0}}};

std::string_view TakeItem(std::string_view& list) {
  const std::size_t comma = std::min(list.find(','), list.size());
  const std::string_view item = list.substr(0, comma);
  list.remove_prefix(std::min(comma + 1, list.size()));
  return item;
}

// Returns whether a name is a single word that no format has to quote.
bool IsWord(std::string_view name) {
  constexpr std::size_t kMost = 16;
  return !name.empty() && name.size() <= kMost && std::all_of(name.begin(), name.end(), [](char letter) {
    return (letter >= '0' && letter <= '9') || (letter >= 'A' && letter <= 'Z') ||
           (letter >= 'a' && letter <= 'z') || letter == '_' || letter == '-';
  });
}

bool EndsInComma(std::string_view list) {
  return !list.empty() && list.back() == ',';
}

}  // namespace

std::optional<int> SeverityOf(std::string_view name) {
  std::string lower(name);
  std::transform(lower.begin(), lower.end(), lower.begin(), LowerCase);
  for (const auto& [known, severity] : kSeverities) {
    if (known == lower) return severity;
  }
  return std::nullopt;
}

std::optional<Field> FieldFromName(std::string_view name) {
  for (const auto& [known, field] : kFields) {
    if (known == name) return field;
  }
  return std::nullopt;
}

std::string_view NameOf(Field field) {
  return kFields[static_cast<std::size_t>(field)].first;
}

std::optional<std::vector<Field>> ParseFields(std::string_view list, std::string& problem) {
  std::vector<Field> fields;
  if (list.empty() || EndsInComma(list)) {
    problem = "a field is missing; the fields are " + std::string(kFieldNames) + ", or all";
    return std::nullopt;
  }
  if (list == "all") {
    for (const auto& known : kFields) fields.push_back(known.second);
    return fields;
  }
  while (!list.empty()) {
    const std::string_view name = TakeItem(list);
    const auto field = FieldFromName(name);
    if (!field) {
      problem = "unknown field '" + std::string(name) + "'; the fields are " + std::string(kFieldNames);
      return std::nullopt;
    }
    if (std::find(fields.begin(), fields.end(), *field) != fields.end()) {
      problem = "'" + std::string(name) + "' is named twice; name it once";
      return std::nullopt;
    }
    fields.push_back(*field);
  }
  return fields;
}

std::optional<TypeNames> TypeNames::Parse(std::string_view list, std::string& problem) {
  TypeNames names;
  names.given = true;
  std::array<bool, kMessageTypes> named{};
  const bool cut = list.empty() || EndsInComma(list);
  while (!list.empty() && !cut) {
    const std::string_view item = TakeItem(list);
    const bool fits = item.size() > 2 && item[0] >= '0' && item[0] <= '3' && item[1] == '=';
    if (!fits || !IsWord(item.substr(2))) {
      problem =
          "'" + std::string(item) +
          "' is not a type and its name; expected 0=info,1=warn: a type from 0 to 3 and a word of at most 16 "
          "letters, digits, - or _";
      return std::nullopt;
    }
    const auto type = static_cast<std::size_t>(item[0] - '0');
    if (std::exchange(named[type], true)) {
      problem = "type " + std::string(item.substr(0, 1)) + " is named twice; name it once";
      return std::nullopt;
    }
    names.types[type] = {std::string(item.substr(2)), SeverityOf(item.substr(2))};
  }
  if (!cut) return names;
  problem = "a name is missing; expected 0=info,1=warn";
  return std::nullopt;
}

void TypeNames::Append(std::uint32_t type, std::string& out) const {
  if (type < kMessageTypes) {
    out += types[type].name;
    return;
  }
  out += 'T';
  out += std::to_string(type);
}

std::optional<int> TypeNames::Severity(std::uint32_t type) const {
  return type < kMessageTypes ? types[type].severity : std::nullopt;
}

}  // namespace TamLogClient
