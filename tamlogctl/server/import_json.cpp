// JSON objects as `-o json` and `-o json-array` write them: one on each line, or elements of one array.

#include <cstring>
#include <limits>

#include "client/message/hex.h"
#include "tamlogctl/base/json.h"
#include "tamlogctl/server/import_draft.h"
#include "tamlogctl/server/stamp_text.h"

namespace TamLogCtl {

namespace {

// The text's bytes from its "_hex" field where there is one: the text itself cannot hold all bytes.
std::optional<std::string> TextField(const Json& object, const std::string& name) {
  if (const std::string* const digits = object.FindString(name + "_hex"))
    return TamLogClient::FromHex(*digits);
  const std::string* const text = object.FindString(name);
  return text == nullptr ? std::nullopt : std::optional(*text);
}

std::optional<std::int16_t> WordOf(const Json& number) {
  using Limits = std::numeric_limits<std::int16_t>;
  const auto value = number.AsInteger();
  if (!value || *value < Limits::min() || *value > Limits::max()) return std::nullopt;
  return static_cast<std::int16_t>(*value);
}

bool TakeWords(const JsonArray& list, TamLogClient::TimeWords& words) {
  if (list.size() < 7 || list.size() > words.size()) return false;
  for (std::size_t i = 0; i < list.size(); ++i) {
    const auto word = WordOf(list[i]);
    if (!word) return false;
    words[i] = *word;
  }
  return true;
}

bool TakeTime(const Json& object, ImportDraft& draft, std::string& problem) {
  TamLogClient::TimeWords words{};
  const Json* const list = object.Find("time_words");
  if (list != nullptr && list->AsArray() != nullptr) {
    problem = "expected 7 or 8 numbers from -32768 to 32767 in \"time_words\"";
    if (!TakeWords(*list->AsArray(), words)) return false;
  } else {
    // A zone only says how the digits are to be read: they are those of the message.
    problem = "expected \"time\":\"YYYY-MM-DDTHH:MM:SS.mmm\"";
    const std::string* const text = object.FindString("time");
    const auto stamp = text == nullptr ? std::nullopt : ParseStamp(*text);
    if (!stamp) return false;
    words = stamp->words;
  }
  if (const Json* const spare = object.Find("spare")) {
    problem = "expected \"spare\" from -32768 to 32767";
    const auto word = WordOf(*spare);
    if (!word) return false;
    words[7] = *word;
  }
  draft.time = words;
  return true;
}

template <std::size_t size>
bool TakeBytes(const Json& object, const char* name, std::array<std::uint8_t, size>& field,
               std::string& problem) {
  const Json* const member = object.Find(name);
  if (member == nullptr) return true;
  problem = std::string("expected \"") + name + "\" of " + std::to_string(2 * size) + " hexadecimal digits";
  const std::string* const digits = member->AsString();
  const auto bytes = digits == nullptr ? std::nullopt : TamLogClient::FromHex(*digits);
  if (!bytes || bytes->size() != size) return false;
  std::memcpy(field.data(), bytes->data(), size);
  return true;
}

bool FromJson(const Json& object, ImportDraft& draft, std::string& problem) {
  problem = "expected a JSON object";
  if (object.AsObject() == nullptr || !TakeTime(object, draft, problem)) return false;
  // An export of chosen fields may have no type and no source.
  if (const Json* const member = object.Find("type")) {
    problem = "expected \"type\" from 0 to 3";
    const auto type = member->AsUnsigned();
    if (!type || *type >= kMessageTypes) return false;
    draft.type = static_cast<std::uint32_t>(*type);
  }
  problem = "expected a text in \"source\" (or its bytes in \"source_hex\")";
  draft.source = TextField(object, "source");
  if (!draft.source && (object.Find("source") != nullptr || object.Find("source_hex") != nullptr))
    return false;
  problem = "expected \"text\" (or its bytes in \"text_hex\")";
  auto text = TextField(object, "text");
  if (!text) return false;
  draft.text = std::move(*text);
  if (const std::string* const host = object.FindString("host")) draft.host = *host;
  return TakeBytes(object, "origin", draft.origin, problem) && TakeBytes(object, "tail", draft.tail, problem);
}

void AddObject(const Json& object, std::size_t line, ImportDrafts& drafts) {
  ImportDraft draft;
  std::string problem;
  if (FromJson(object, draft, problem)) {
    drafts.Add(line, std::move(draft));
  } else {
    drafts.Refuse(line, std::move(problem));
  }
}

// Returns whether a line of an array has no object: its brackets.
bool IsBracket(std::string_view line) {
  return line == "[" || line == "]" || line == "[]";
}

}  // namespace

void ReadJsonDrafts(std::string_view bytes, ImportDrafts& drafts) {
  const std::size_t first = bytes.find_first_not_of(" \t\r\n");
  const bool array = first != std::string_view::npos && bytes[first] == '[';
  // An array that another program wrote need not have its objects on lines of their own.
  if (array && bytes.find("\n{") == std::string_view::npos && bytes.find('{') != std::string_view::npos) {
    const auto whole = ParseJson(bytes);
    if (!whole || whole->AsArray() == nullptr) return drafts.Refuse(1, "expected a JSON array of objects");
    for (const Json& object : *whole->AsArray()) AddObject(object, 1, drafts);
    return;
  }
  ForEachLine(bytes, [&](std::string_view line, std::size_t number) {
    if (array && IsBracket(line)) return;
    if (array && line.back() == ',') line.remove_suffix(1);
    AddObject(ParseJson(line).value_or(Json()), number, drafts);
  });
}

}  // namespace TamLogCtl
