// Lines of text that begin with a time stamp, as programs write them into files: ISO times, the two forms of
// syslog, and lines that continue the one before.

#include <algorithm>
#include <array>
#include <charconv>

#include "client/message/utf8.h"
#include "tamlogctl/server/import_draft.h"
#include "tamlogctl/server/stamp_text.h"

namespace TamLogCtl {

namespace {

std::string_view TakeWord(std::string_view& text) {
  const std::size_t end = std::min(text.find(' '), text.size());
  const std::string_view word = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return word;
}

// Takes <PRI>; a number from 0 to 191.
std::optional<int> TakePriority(std::string_view& text) {
  constexpr int kMost = 191;
  const std::size_t end = text.find('>');
  if (!text.starts_with('<') || end == std::string_view::npos || end > 4) return std::nullopt;
  int priority = 0;
  const char* const last = text.data() + end;
  const auto [stop, error] = std::from_chars(text.data() + 1, last, priority);
  if (error != std::errc() || stop != last || priority < 0 || priority > kMost) return std::nullopt;
  text.remove_prefix(end + 1);
  return priority;
}

std::string Unescaped(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) ++i;
    plain += text[i];
  }
  return plain;
}

// Takes NAME="VALUE" with an optional blank before it.
bool TakeParam(std::string_view& text, std::string& name, std::string& value) {
  if (text.starts_with(' ')) text.remove_prefix(1);
  const std::size_t equals = text.find("=\"");
  if (equals == std::string_view::npos || text.substr(0, equals).find(']') != std::string_view::npos)
    return false;
  name = std::string(text.substr(0, equals));
  text.remove_prefix(equals + 2);
  std::size_t end = 0;
  while (end < text.size() && text[end] != '"') end += text[end] == '\\' ? 2U : 1U;
  if (end >= text.size()) return false;
  value = Unescaped(text.substr(0, end));
  text.remove_prefix(end + 1);
  return true;
}

// The elements of the structured data: all of them as they stand, and the parameters of our own.
struct StructuredData {
  std::string_view all;
  std::vector<std::pair<std::string, std::string>> ours;
  bool isOurs = false;
};

bool TakeElement(std::string_view& text, StructuredData& data) {
  text.remove_prefix(1);
  const std::size_t end = text.find_first_of(" ]");
  if (end == std::string_view::npos) return false;
  const bool ours = text.substr(0, end) == "tamlog@32473";
  data.isOurs = data.isOurs || ours;
  text.remove_prefix(end);
  std::string name;
  std::string value;
  while (!text.empty() && text.front() != ']') {
    if (!TakeParam(text, name, value)) return false;
    if (ours) data.ours.emplace_back(name, value);
  }
  if (text.empty()) return false;
  text.remove_prefix(1);
  return true;
}

std::optional<StructuredData> TakeStructuredData(std::string_view& text) {
  const std::string_view begin = text;
  StructuredData data;
  if (text.starts_with('-')) {
    text.remove_prefix(1);
  } else {
    if (!text.starts_with('[')) return std::nullopt;
    while (text.starts_with('[')) {
      if (!TakeElement(text, data)) return std::nullopt;
    }
    data.all = begin.substr(0, begin.size() - text.size());
  }
  if (!text.empty() && text.front() != ' ') return std::nullopt;
  if (!text.empty()) text.remove_prefix(1);
  return data;
}

// Sets what a parameter of our own states; returns false when it is not valid.
bool SetParam(const std::string& name, const std::string& value, ImportDraft& draft) {
  const auto field = TamLogClient::FieldFromName(name);
  std::string problem;
  if (!field || !SetDraftField(*field, value, draft, problem)) return !field;
  draft.offset.reset();
  return true;
}

// What our own lines do not have: the process, the kind of message and the structured data are kept in the
// source and the text.
void AppendForeign(std::string_view process, std::string_view kind, const StructuredData& data,
                   ImportDraft& draft) {
  if (process != "-" && draft.source) draft.source->append("[").append(process).append("]");
  std::string before;
  if (kind != "-") before.append(kind).append(" ");
  if (!data.all.empty()) before.append(data.all).append(" ");
  draft.text.insert(0, before);
}

bool IsLevel(std::string_view word) {
  constexpr std::array<std::string_view, 13> kLevels{"trace",   "debug", "info",  "notice", "warn",
                                                     "warning", "err",   "error", "crit",   "critical",
                                                     "alert",   "fatal", "severe"};
  std::string lower(word);
  std::transform(lower.begin(), lower.end(), lower.begin(), TamLogClient::LowerCase);
  return std::find(kLevels.begin(), kLevels.end(), lower) != kLevels.end();
}

bool IsHostName(std::string_view word) {
  const auto isPart = [](char letter) {
    const char lower = TamLogClient::LowerCase(letter);
    return (lower >= 'a' && lower <= 'z') || (lower >= '0' && lower <= '9') ||
           std::string_view(".-_:").find(lower) != std::string_view::npos;
  };
  return !word.empty() && std::all_of(word.begin(), word.end(), isPart) && !IsLevel(word);
}

// "host tag[process]: text". Without a host and a tag all of it is text.
void TakeSyslogHead(std::string_view text, ImportDraft& draft) {
  std::string_view rest = text;
  const std::string_view host = TakeWord(rest);
  const std::size_t end = rest.find_first_of(": ");
  const bool tagged = end != std::string_view::npos && end > 0 && rest[end] == ':' &&
                      (end + 1 == rest.size() || rest[end + 1] == ' ');
  if (!tagged || !IsHostName(host) || rest.substr(0, end).find_first_of("\"'=") != std::string_view::npos) {
    draft.text = std::string(text);
    return;
  }
  draft.host = std::string(host);
  draft.source = std::string(rest.substr(0, end));
  rest.remove_prefix(end + 1);
  if (rest.starts_with(' ')) rest.remove_prefix(1);
  draft.text = std::string(rest);
}

void SetStamp(const Stamp& stamp, ImportDraft& draft) {
  draft.time = stamp.words;
  draft.offset = stamp.offset;
}

// "word 2026-01-02 03:04:05: text": the time may stand after one or two words, which stay in the text.
std::optional<ImportDraft> ParseLineWithLateStamp(std::string_view line) {
  std::size_t begin = 0;
  for (int words = 0; words < 2; ++words) {
    begin = line.find(' ', begin);
    if (begin == std::string_view::npos || ++begin == line.size()) return std::nullopt;
    std::string_view rest = line.substr(begin);
    const auto stamp = TakeIsoStamp(rest);
    if (!stamp) continue;
    ImportDraft draft;
    SetStamp(*stamp, draft);
    draft.text = std::string(line.substr(0, rest.empty() ? begin - 1 : begin)) + std::string(rest);
    return draft;
  }
  return std::nullopt;
}

// Returns whether a line begins as our own do: with milliseconds, and a blank after the date.
bool BeginsLikeOurs(std::string_view line) {
  return line.size() > 23 && line[10] == ' ' && line[19] == '.';
}

std::optional<ImportDraft> ParseStampedLine(std::string_view line, const ImportChoice& choice,
                                            const TamLogClient::TimeWords& newest) {
  ImportDraft draft;
  if (const auto priority = TakePriority(line)) draft.severity = *priority % 8;
  if (const auto stamp = TakeSyslogStamp(line, newest)) {
    SetStamp(*stamp, draft);
    TakeSyslogHead(line, draft);
    return draft;
  }
  if (const auto stamp = TakeCalendarStamp(line)) {
    SetStamp(*stamp, draft);
    draft.text = std::string(line);
    return draft;
  }
  const std::string_view whole = line;
  const auto stamp = TakeIsoStamp(line);
  if (!stamp) return ParseLineWithLateStamp(line);
  SetStamp(*stamp, draft);
  if (BeginsLikeOurs(whole) && TakeShortHead(line, choice.typeNames, draft)) return draft;
  // So does rsyslog write its files: the time with a zone, then host and tag.
  if (whole.size() > 10 && whole[10] == 'T' && stamp->offset) {
    TakeSyslogHead(line, draft);
  } else {
    draft.text = std::string(line);
  }
  return draft;
}

// Returns whether a line has a time and nothing else: some logs have the time on a line of its own.
bool IsBareTime(const ImportDraft& draft) {
  return draft.time && draft.text.empty() && !draft.source && draft.host.empty();
}

}  // namespace

std::optional<ImportDraft> ParseRfc5424Line(std::string_view line) {
  ImportDraft draft;
  const auto priority = TakePriority(line);
  if (!priority || !line.starts_with("1 ")) return std::nullopt;
  draft.severity = *priority % 8;
  line.remove_prefix(2);
  const std::string_view time = TakeWord(line);
  const std::string_view host = TakeWord(line);
  const std::string_view name = TakeWord(line);
  const std::string_view process = TakeWord(line);
  const std::string_view kind = TakeWord(line);
  const auto data = TakeStructuredData(line);
  const auto stamp = ParseStamp(time);
  if (!data || (!stamp && time != "-")) return std::nullopt;
  if (stamp) SetStamp(*stamp, draft);
  if (line.starts_with("\xEF\xBB\xBF")) line.remove_prefix(3);
  if (host != "-") draft.host = std::string(host);
  if (name != "-") draft.source = std::string(name);
  draft.text = std::string(line);
  if (!data->isOurs) {
    AppendForeign(process, kind, *data, draft);
    return draft;
  }
  draft.offset.reset();
  for (const auto& [param, value] : data->ours) {
    if (!SetParam(param, value, draft)) return std::nullopt;
  }
  return draft;
}

void ReadTextDrafts(ImportBytes& bytes, const ImportChoice& choice, const TamLogClient::TimeWords& newest,
                    DraftTaker& drafts) {
  std::optional<ImportDrafts::Entry> bare;  // a bare time, until the line after it
  const auto release = [&] {
    if (bare) drafts.Add(bare->line, std::move(bare->draft));
    bare.reset();
  };
  const auto enough = [&drafts] { return drafts.Enough(); };
  ForEachLine(bytes, enough, [&](std::string_view line, std::size_t number) {
    auto draft = ParseRfc5424Line(line);
    if (!draft) draft = ParseStampedLine(line, choice, newest);
    if (!draft && bare) {
      bare->draft.text = std::string(line.substr(std::min(line.find_first_not_of(" \t"), line.size())));
      if (!IsBareTime(bare->draft)) release();
      return;
    }
    release();
    if (!draft) {
      draft.emplace();
      draft->text = std::string(line);
    }
    if (IsBareTime(*draft)) {
      bare = {number, *std::move(draft)};
    } else {
      drafts.Add(number, *std::move(draft));
    }
  });
  release();
}

}  // namespace TamLogCtl
