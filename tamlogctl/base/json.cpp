#include "tamlogctl/base/json.h"

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>

#include "client/message/utf8.h"

namespace TamLogCtl {

namespace {

using Library = nlohmann::ordered_json;

constexpr std::size_t kMostLevels = 100;  // destructors of what is read are recursive

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

// Builds a value from the parser's events. A handler that returns false ends the parsing.
class Builder {
 public:
  bool null() { return Put(Json()); }
  bool boolean(bool flag) { return Put(flag); }
  bool number_integer(std::int64_t number) { return Put(number); }
  bool number_unsigned(std::uint64_t number) { return Put(number); }
  bool number_float(double number, const std::string& /*text*/) { return Put(number); }
  bool string(std::string& text) { return Put(std::move(text)); }
  bool binary(Library::binary_t& /*bytes*/) { return false; }
  bool start_object(std::size_t /*size*/) { return Open(JsonObject()); }
  bool start_array(std::size_t /*size*/) { return Open(JsonArray()); }
  bool end_object() { return Close(); }
  bool end_array() { return Close(); }
  bool key(std::string& name) {
    std::get<JsonObject>(open.back().value).emplace_back(std::move(name), Json());
    return true;
  }
  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::detail::exception& /*error*/) {
    return false;
  }

  Json&& Take() { return std::move(whole); }

 private:
  bool Put(Json json) {
    if (open.empty()) {
      whole = std::move(json);
    } else if (auto* const array = std::get_if<JsonArray>(&open.back().value)) {
      array->push_back(std::move(json));
    } else {
      std::get<JsonObject>(open.back().value).back().second = std::move(json);
    }
    return true;
  }

  bool Open(Json container) {
    open.push_back(std::move(container));
    return open.size() <= kMostLevels;
  }

  bool Close() {
    Json closed = std::move(open.back());
    open.pop_back();
    return Put(std::move(closed));
  }

  std::vector<Json> open;  // open arrays and objects, the outermost first
  Json whole;
};

}  // namespace

const Json* Json::Find(std::string_view name) const {
  const JsonObject* const object = AsObject();
  if (object == nullptr) return nullptr;
  const auto found = std::find_if(object->rbegin(), object->rend(),
                                  [name](const auto& member) { return member.first == name; });
  return found == object->rend() ? nullptr : &found->second;
}

const std::string* Json::FindString(std::string_view name) const {
  const Json* const member = Find(name);
  return member == nullptr ? nullptr : member->AsString();
}

std::optional<std::int64_t> Json::AsInteger() const {
  constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  if (const auto number = AsUnsigned())
    return *number > kLargest ? std::nullopt : std::optional(static_cast<std::int64_t>(*number));
  const auto* const number = std::get_if<std::int64_t>(&value);
  return number == nullptr ? std::nullopt : std::optional(*number);
}

std::optional<std::uint64_t> Json::AsUnsigned() const {
  const auto* const number = std::get_if<std::uint64_t>(&value);
  return number == nullptr ? std::nullopt : std::optional(*number);
}

// The library escapes only the control characters up to U+001F; line ends outside of strings are its own.
std::string WriteJson(const Json& json, int indent) {
  const std::string whole = ToLibrary(json).dump(indent, ' ', false, Library::error_handler_t::replace);
  std::string out;
  for (std::string_view rest = whole; !rest.empty();) {
    const std::size_t length = rest.front() == '\n' ? 0 : TamLogClient::ControlLength(rest);
    if (length == 0) {
      out += rest.front();
    } else {
      TamLogClient::AppendUnicodeEscape(rest.substr(0, length), out);
    }
    rest.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return out;
}

std::optional<Json> ParseJson(std::string_view text) {
  Builder builder;
  if (!Library::sax_parse(text, &builder)) return std::nullopt;
  return builder.Take();
}

}  // namespace TamLogCtl
