#pragma once

// JSON as plain data, for all code that reads or prints it. Only json.cpp includes the library for it, which
// takes longer to compile than a whole room.

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace TamLogCtl {

struct Json;

using JsonArray = std::vector<Json>;
using JsonObject = std::vector<std::pair<std::string, Json>>;  // in the order in which it is written

// One value. An integer that was parsed is signed if it is negative, else unsigned.
struct Json {
  Json() = default;  // null
  Json(bool flag) : value(flag) {}
  template <std::unsigned_integral Number>
  Json(Number number) : value(std::uint64_t{number}) {}
  template <std::signed_integral Number>
  Json(Number number) : value(std::int64_t{number}) {}
  Json(double number) : value(number) {}
  Json(const char* text) : value(std::string(text)) {}
  Json(std::string_view text) : value(std::string(text)) {}
  Json(std::string text) : value(std::move(text)) {}
  Json(JsonArray array) : value(std::move(array)) {}
  Json(JsonObject object) : value(std::move(object)) {}

  // Null when there is none.
  template <typename Value>
  Json(const std::optional<Value>& optional) : Json(optional ? Json(*optional) : Json()) {}

  // Returns the last member called `name`; null when there is none, or when this is no object.
  const Json* Find(std::string_view name) const;
  const std::string* FindString(std::string_view name) const;

  // Return the value if it is of that type; null when it is not.
  const std::string* AsString() const { return std::get_if<std::string>(&value); }
  const JsonArray* AsArray() const { return std::get_if<JsonArray>(&value); }
  const JsonObject* AsObject() const { return std::get_if<JsonObject>(&value); }
  std::optional<std::int64_t> AsInteger() const;
  std::optional<std::uint64_t> AsUnsigned() const;

  std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double, std::string, JsonArray, JsonObject>
      value = nullptr;
};

inline constexpr int kOneLine = -1;

// Returns the text of `json` without a line end after it. `indent` is the number of spaces for each level, or
// kOneLine. Always valid UTF-8: bytes of a string that are not become U+FFFD. Characters of a string that a
// terminal may obey are escaped.
std::string WriteJson(const Json& json, int indent = kOneLine);

// Parses one JSON text. Returns nothing for anything else, and for more than 100 levels.
std::optional<Json> ParseJson(std::string_view text);

}  // namespace TamLogCtl
