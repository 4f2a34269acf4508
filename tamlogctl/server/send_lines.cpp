#include "tamlogctl/server/send_lines.h"

#include <cstring>

#include "client/format/tsv_text.h"
#include "client/message/local_time.h"
#include "client/message/message_body.h"
#include "client/message/text_split.h"
#include "tamlogctl/server/import_draft.h"

namespace TamLogCtl {

namespace {

using TamLogClient::MessageDraft;

constexpr std::size_t kLongestField = kTextSize - 1;

std::vector<std::string> PiecesOf(const std::string& text, LongText longText) {
  if (longText == LongText::Split) return TamLogClient::SplitText(text, kLongestField);
  return {longText == LongText::Truncate ? TamLogClient::TruncateText(text, kLongestField) : text};
}

// Returns why a draft cannot be sent; empty when it can.
std::string ProblemOf(const MessageDraft& draft, LongText longText) {
  if (draft.source.size() > kLongestField)
    return "the source has " + std::to_string(draft.source.size()) + " bytes, 256 are allowed; shorten it";
  if (draft.text.find('\0') != std::string::npos || draft.source.find('\0') != std::string::npos)
    return "a message cannot contain a zero byte; remove it, for example with: tr -d '\\0'";
  if (draft.text.size() > kLongestField && longText == LongText::Refuse)
    return "the text has " + std::to_string(draft.text.size()) +
           " bytes, 256 are allowed; add --truncate or --split";
  return "";
}

}  // namespace

bool AppendMessagesOf(const std::string& line, const SendOptions& options,
                      const std::optional<TamLogClient::TimeWords>& time,
                      std::vector<LogMessageBody>& messages, std::string& problem) {
  MessageDraft draft;
  if (options.input == "tsv") {
    ImportDrafts drafts;
    ReadTsvLine(line.empty() ? "-" : line, 1, {}, drafts);
    if (!drafts.problems.empty()) problem = drafts.problems.front().text;
    if (drafts.entries.empty()) return false;
    const ImportDraft& parsed = drafts.entries.front().draft;
    TamLogClient::SetTime(draft.body, *parsed.time);
    draft.body.type = parsed.type.value_or(0);
    draft.source = *parsed.source;
    draft.text = parsed.text;
  } else {
    TamLogClient::SetTime(draft.body, time ? *time : TamLogClient::LocalNow());
    draft.body.type = options.type;
    draft.source = options.source;
    draft.text = line;
  }
  problem = ProblemOf(draft, options.longText);
  if (!problem.empty()) return false;
  for (const std::string& piece : PiecesOf(draft.text, options.longText)) {
    messages.push_back(draft.body);
    TamLogClient::FillTexts(draft.source, piece, messages.back());
  }
  return true;
}

void MessageMarks::Mark(LogMessageBody& message) {
  std::memcpy(&message.origin[0], &run, sizeof(run));
  std::memcpy(&message.origin[4], &marked, sizeof(marked));
  ++marked;
}

void LineNumbers::Add(std::size_t number) {
  ++count;
  if (!ranges.empty() && omitted == 0 && ranges.back().last + 1 == number) {
    ranges.back().last = number;
  } else if (ranges.size() < kMostRanges) {
    ranges.push_back({number, number});
  } else {
    ++omitted;
  }
}

std::string LineNumbers::Text() const {
  std::string text;
  for (std::size_t i = 0; i < ranges.size(); ++i) {
    const bool last = i + 1 == ranges.size() && omitted == 0;
    if (i > 0) text += last ? " and " : ", ";
    text += std::to_string(ranges[i].first);
    if (ranges[i].last > ranges[i].first) text += " to " + std::to_string(ranges[i].last);
  }
  return omitted == 0 ? text : text + " and " + std::to_string(omitted) + " more";
}

}  // namespace TamLogCtl
