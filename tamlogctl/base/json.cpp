#include "tamlogctl/base/json.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace TamLogCtl {

namespace {

using Library = nlohmann::ordered_json;

constexpr int kMostLevels = 100;  // what is read is walked recursively

Library ToLibrary(const Json& json);

struct Converter {
  template <typename Plain>
  Library operator()(const Plain& plain) const {
    return plain;
  }
  Library operator()(const JsonArray& array) const {
    Library list = Library::array();
    for (const Json& element : array) list.push_back(ToLibrary(element));
    return list;
  }
  Library operator()(const JsonObject& object) const {
    Library members = Library::object();
    for (const auto& [name, member] : object) members.push_back({name, ToLibrary(member)});
    return members;
  }
};

Library ToLibrary(const Json& json) {
  return std::visit(Converter(), json.value);
}

Json FromLibrary(const Library& library) {
  switch (library.type()) {
    case Library::value_t::boolean:
      return library.get<bool>();
    case Library::value_t::number_integer:
      return library.get<std::int64_t>();
    case Library::value_t::number_unsigned:
      return library.get<std::uint64_t>();
    case Library::value_t::number_float:
      return library.get<double>();
    case Library::value_t::string:
      return library.get_ref<const std::string&>();
    case Library::value_t::array: {
      JsonArray array;
      for (const Library& element : library) array.push_back(FromLibrary(element));
      return array;
    }
    case Library::value_t::object: {
      JsonObject object;
      for (const auto& [name, member] : library.items()) object.emplace_back(name, FromLibrary(member));
      return object;
    }
    case Library::value_t::null:
    case Library::value_t::binary:
    case Library::value_t::discarded:
      break;
  }
  return {};
}

}  // namespace

const Json* Json::Find(std::string_view name) const {
  const JsonObject* const object = AsObject();
  if (object == nullptr) return nullptr;
  const auto found = std::find_if(object->begin(), object->end(),
                                  [name](const auto& member) { return member.first == name; });
  return found == object->end() ? nullptr : &found->second;
}

const std::string* Json::FindString(std::string_view name) const {
  const Json* const member = Find(name);
  return member == nullptr ? nullptr : member->AsString();
}

std::optional<std::int64_t> Json::AsInteger() const {
  if (const auto number = AsUnsigned()) return static_cast<std::int64_t>(*number);
  const auto* const number = std::get_if<std::int64_t>(&value);
  return number == nullptr ? std::nullopt : std::optional(*number);
}

std::optional<std::uint64_t> Json::AsUnsigned() const {
  const auto* const number = std::get_if<std::uint64_t>(&value);
  return number == nullptr ? std::nullopt : std::optional(*number);
}

std::string WriteJson(const Json& json, int indent) {
  return ToLibrary(json).dump(indent, ' ', false, Library::error_handler_t::replace);
}

std::optional<Json> ParseJson(std::string_view text) {
  bool tooDeep = false;
  const auto notTooDeep = [&tooDeep](int level, Library::parse_event_t, Library&) {
    tooDeep = tooDeep || level > kMostLevels;
    return !tooDeep;
  };
  const Library library = Library::parse(text, notTooDeep, false);
  if (tooDeep || library.is_discarded()) return std::nullopt;
  return FromLibrary(library);
}

}  // namespace TamLogCtl
