// The Journal Export Format: fields line by line, a value that is not plain text with its length before it,
// and an empty line after each entry.

#include <algorithm>
#include <charconv>
#include <map>

#include "tamlogctl/base/time_arithmetic.h"
#include "tamlogctl/server/import_draft.h"
#include "tamlogctl/server/stamp_text.h"

namespace TamLogCtl {

namespace {

using TamLogClient::Field;
using Entry = std::map<std::string, std::string, std::less<>>;

class JournalEntries {
 public:
  explicit JournalEntries(ImportBytes& bytes) : rest(bytes) {}

  // Reads the next entry. Returns false at the end, and when the bytes break the format.
  bool Next(Entry& entry) {
    entry.clear();
    begin = line;
    while (!rest.AtEnd()) {
      if (rest.Window(1).front() == '\n') {
        Take(1);
        if (!entry.empty()) return true;
        begin = line;
        continue;
      }
      if (!TakeField(entry)) return false;
    }
    return !entry.empty();
  }
  std::size_t Line() const { return begin; }
  bool Broken() const { return broken; }
  std::size_t BrokenLine() const { return line; }

 private:
  void Take(std::size_t size) {
    const std::string_view taken = rest.Window(size).substr(0, size);
    line += static_cast<std::size_t>(std::count(taken.begin(), taken.end(), '\n'));
    rest.Drop(size);
  }

  bool Break() {
    broken = true;
    return false;
  }

  bool TakeField(Entry& entry) {
    std::string_view text = rest.PeekLine();
    if (!text.ends_with('\n')) return Break();
    text.remove_suffix(1);
    const std::size_t end = text.size();
    const std::size_t equals = text.find('=');
    if (equals != std::string_view::npos) {
      entry[std::string(text.substr(0, equals))] = std::string(text.substr(equals + 1));
      Take(end + 1);
      return true;
    }
    const std::string name(text);
    const std::size_t before = end + 1 + kLength;
    if (rest.Left() < before) return Break();
    const std::string_view digits = rest.Window(before).substr(end + 1, kLength);
    std::uint64_t length = 0;
    for (std::size_t i = kLength; i > 0; --i)
      length = length << 8U | static_cast<unsigned char>(digits[i - 1]);
    if (length >= rest.Left() - before) return Break();
    const std::string_view field = rest.Window(before + length + 1);
    if (field.size() <= before + length || field[before + length] != '\n') return Break();
    entry[name] = std::string(field.substr(before, length));
    line += 1;
    rest.Drop(before);
    Take(length + 1);
    return true;
  }

  static constexpr std::size_t kLength = 8;

  ImportBytes& rest;
  std::size_t line = 1;
  std::size_t begin = 1;
  bool broken = false;
};

const std::string* Find(const Entry& entry, std::string_view name) {
  const auto found = entry.find(name);
  return found == entry.end() ? nullptr : &found->second;
}

std::optional<std::int64_t> NumberIn(const Entry& entry, std::string_view name) {
  const std::string* const text = Find(entry, name);
  std::int64_t number = 0;
  if (text == nullptr) return std::nullopt;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), number);
  return error == std::errc() && end == text->data() + text->size() ? std::optional(number) : std::nullopt;
}

// Our own fields; the time in them is the one that the message has.
bool TakeOurs(const Entry& entry, ImportDraft& draft, std::string& problem) {
  constexpr std::array<std::pair<const char*, Field>, 7> kOurs{{{"TAMLOG_TIME", Field::Time},
                                                                {"TAMLOG_TYPE", Field::Type},
                                                                {"TAMLOG_ORIGIN", Field::Origin},
                                                                {"TAMLOG_TAIL", Field::Tail},
                                                                {"TAMLOG_SPARE", Field::Spare},
                                                                {"TAMLOG_SOURCE_HEX", Field::SourceHex},
                                                                {"TAMLOG_TEXT_HEX", Field::TextHex}}};
  for (const auto& [name, field] : kOurs) {
    const std::string* const value = Find(entry, name);
    if (value == nullptr || SetDraftField(field, *value, draft, problem)) continue;
    problem.insert(0, std::string(name) + ": ");
    return false;
  }
  draft.offset.reset();
  return true;
}

bool FromEntry(const Entry& entry, ImportDraft& draft, std::string& problem) {
  if (const auto priority = NumberIn(entry, "PRIORITY"); priority && *priority >= 0 && *priority < 8)
    draft.severity = static_cast<int>(*priority);
  if (const std::string* const host = Find(entry, "_HOSTNAME")) draft.host = *host;
  if (const std::string* const text = Find(entry, "MESSAGE")) draft.text = *text;
  for (const char* const name : {"_SYSTEMD_UNIT", "_COMM", "SYSLOG_IDENTIFIER"}) {
    if (const std::string* const source = Find(entry, name)) draft.source = *source;
  }
  if (Find(entry, "TAMLOG_TIME") != nullptr) return TakeOurs(entry, draft, problem);
  const std::string* const process = Find(entry, "_PID");
  if (process != nullptr && draft.source) draft.source->append("[").append(*process).append("]");
  auto time = NumberIn(entry, "_SOURCE_REALTIME_TIMESTAMP");
  if (!time) time = NumberIn(entry, "__REALTIME_TIMESTAMP");
  problem = "the entry has no __REALTIME_TIMESTAMP";
  constexpr std::int64_t kMost = 253402300799999999;  // the end of year 9999
  if (!time || *time < 0 || *time > kMost) return false;
  draft.time = WordsSince1970(*time / 1000);
  draft.offset = 0;
  return true;
}

}  // namespace

void ReadJournalDrafts(ImportBytes& bytes, DraftTaker& drafts) {
  JournalEntries entries(bytes);
  Entry entry;
  while (!drafts.Enough() && entries.Next(entry)) {
    ImportDraft draft;
    std::string problem;
    if (FromEntry(entry, draft, problem)) {
      drafts.Add(entries.Line(), std::move(draft));
    } else {
      drafts.Refuse(entries.Line(), std::move(problem));
    }
  }
  if (entries.Broken())
    drafts.Refuse(entries.BrokenLine(), "neither NAME=VALUE nor a name with a length and a value");
}

}  // namespace TamLogCtl
