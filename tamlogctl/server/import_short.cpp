// Lines as `-o short` and `-o full` print them, after their time.

#include "tamlogctl/server/import_draft.h"

namespace TamLogCtl {

namespace {

using TamLogClient::Field;

constexpr std::string_view kLate = " (late)";

bool Skip(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

// Skips the number that only `full` prints; the server assigns it. Returns whether it was there.
bool SkipSequence(std::string_view& text) {
  if (!text.starts_with('#')) return false;
  const std::size_t end = text.find_first_not_of("0123456789", 1);
  if (end == 1 || end >= text.size() || text[end] != ' ') return false;
  text.remove_prefix(end + 1);
  return true;
}

std::optional<std::uint32_t> TakeLabel(std::string_view& text, const TamLogClient::TypeNames& names) {
  for (std::uint32_t type = 0; type < kMessageTypes; ++type) {
    std::string label;
    names.Append(type, label);
    if (Skip(text, label + " ")) return type;
  }
  return std::nullopt;
}

// Takes NAME=VALUE and the characters after it.
bool TakeValue(std::string_view& text, std::string_view name, std::string_view end, Field field,
               ImportDraft& draft) {
  if (!Skip(text, name)) return false;
  const std::size_t length = text.find(end);
  std::string problem;
  if (length == std::string_view::npos || !SetDraftField(field, text.substr(0, length), draft, problem))
    return false;
  text.remove_prefix(length + end.size());
  return true;
}

// "Camera [origin=... spare=0 tail=...] (late): text"
bool TakeFullHead(std::string_view line, ImportDraft& draft) {
  constexpr std::string_view kDetails = " [origin=";
  const std::size_t details = line.find(kDetails);
  if (details == std::string_view::npos) return false;
  draft.source = std::string(line.substr(0, details));
  line.remove_prefix(details + 2);
  const bool valid = TakeValue(line, "origin=", " ", Field::Origin, draft) &&
                     TakeValue(line, "spare=", " ", Field::Spare, draft) &&
                     TakeValue(line, "tail=", "]", Field::Tail, draft);
  Skip(line, kLate);
  if (!valid || !Skip(line, ": ")) return false;
  draft.text = std::string(line);
  return true;
}

// "Camera (late): text"
bool TakeSourceAndText(std::string_view line, ImportDraft& draft) {
  const std::size_t colon = line.find(": ");
  if (colon == std::string_view::npos) return false;
  std::string_view source = line.substr(0, colon);
  if (source.ends_with(kLate)) source.remove_suffix(kLate.size());
  draft.source = std::string(source);
  draft.text = std::string(line.substr(colon + 2));
  return true;
}

}  // namespace

bool TakeShortHead(std::string_view line, const TamLogClient::TypeNames& names, ImportDraft& draft) {
  ImportDraft whole = draft;
  const bool full = SkipSequence(line);
  whole.type = TakeLabel(line, names);
  if (!whole.type || !(full ? TakeFullHead(line, whole) : TakeSourceAndText(line, whole))) return false;
  whole.offset.reset();  // the digits are those of the message
  draft = std::move(whole);
  return true;
}

}  // namespace TamLogCtl
