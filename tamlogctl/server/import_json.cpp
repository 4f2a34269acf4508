// JSON objects as `-o json` and `-o json-array` write them: one on each line, or elements of one array.

#include <cstring>
#include <limits>
#include <optional>
#include <string>

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

void AddObject(const Json& object, std::size_t line, DraftTaker& drafts) {
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

bool IsBlankCharacter(char letter) {
  return letter == ' ' || letter == '\t' || letter == '\r' || letter == '\n';
}

// Reads the elements of an array one after the other.
class ArrayElements {
 public:
  explicit ArrayElements(ImportBytes& text) : bytes(text) {}

  // Reads the next element. Returns false at the end, and when the text is no array.
  bool Next(std::optional<Json>& element) {
    if (!begun && !Begin()) return false;
    if (ended) return false;
    std::string text;
    const char after = TakeElement(text);
    ended = after == ']';
    element = ParseJson(text);
    isArray = (after == ',' || after == ']') && element.has_value() && (!ended || IsRestBlank());
    return isArray;
  }
  // Returns whether all of the text was an array. Call it after the last element.
  bool IsArray() const { return isArray; }

 private:
  void SkipBlanks() {
    while (!bytes.AtEnd() && IsBlankCharacter(bytes.Window(1).front())) bytes.Drop(1);
  }

  bool IsRestBlank() {
    SkipBlanks();
    return bytes.AtEnd();
  }

  bool Begin() {
    begun = true;
    SkipBlanks();
    if (!bytes.Window(1).starts_with('[')) return false;
    bytes.Drop(1);
    SkipBlanks();
    if (!bytes.Window(1).starts_with(']')) return true;
    bytes.Drop(1);
    isArray = IsRestBlank();
    return false;
  }

  // Takes the text up to the comma or bracket after it, and returns that; 0 at the end of the file.
  char TakeElement(std::string& text) {
    std::size_t depth = 0;
    bool isString = false;
    for (; !bytes.AtEnd(); bytes.Drop(1)) {
      const char letter = bytes.Window(1).front();
      if (isString && letter == '\\') {
        text += letter;
        bytes.Drop(1);
        if (bytes.AtEnd()) return 0;
        text += bytes.Window(1).front();
        continue;
      }
      if (letter == '"') isString = !isString;
      const bool ends = letter == ']' || letter == '}';
      if (!isString && depth == 0 && (letter == ',' || ends)) {
        bytes.Drop(1);
        return letter;
      }
      if (!isString && (letter == '[' || letter == '{')) ++depth;
      if (!isString && ends) --depth;
      text += letter;
    }
    return 0;
  }

  ImportBytes& bytes;
  bool begun = false;
  bool ended = false;
  bool isArray = false;
};

// An array that another program wrote need not have its objects on lines of their own.
bool HasObjectsWithinLines(ImportBytes& bytes) {
  bool found = false;
  bool atLineBegin = false;
  for (std::string_view there = bytes.Window(1); !there.empty(); there = bytes.Window(1)) {
    if (atLineBegin && there.front() == '{') return false;
    if (there.find("\n{") != std::string_view::npos) return false;
    found = found || there.find('{') != std::string_view::npos;
    atLineBegin = there.back() == '\n';
    bytes.Drop(there.size());
  }
  return found;
}

void ReadArray(ImportBytes& bytes, DraftTaker& drafts) {
  std::optional<Json> element;
  ArrayElements examined(bytes);
  while (examined.Next(element)) {
  }
  if (!examined.IsArray()) return drafts.Refuse(1, "expected a JSON array of objects");
  bytes.Restart();
  ArrayElements elements(bytes);
  while (!drafts.Enough() && elements.Next(element)) AddObject(*element, 1, drafts);
}

}  // namespace

void ReadJsonDrafts(ImportBytes& bytes, DraftTaker& drafts) {
  while (!bytes.AtEnd() && IsBlankCharacter(bytes.Window(1).front())) bytes.Drop(1);
  const bool array = bytes.Window(1).starts_with('[');
  bytes.Restart();
  if (array) {
    const bool isWhole = HasObjectsWithinLines(bytes);
    bytes.Restart();
    if (isWhole) return ReadArray(bytes, drafts);
  }
  const auto enough = [&drafts] { return drafts.Enough(); };
  ForEachLine(bytes, enough, [&](std::string_view line, std::size_t number) {
    if (array && IsBracket(line)) return;
    if (array && line.back() == ',') line.remove_suffix(1);
    AddObject(ParseJson(line).value_or(Json()), number, drafts);
  });
}

}  // namespace TamLogCtl
