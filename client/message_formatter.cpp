#include "client/message_formatter.h"

#include <array>
#include <string>
#include <utility>

#include "client/log_message_view.h"
#include "client/time_text.h"
#include "client/tsv_text.h"
#include "client/utf8.h"

namespace TamLogClient {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD
constexpr std::string_view kDim = "\x1b[2m";
constexpr std::string_view kCyan = "\x1b[36m";
constexpr std::string_view kPlain = "\x1b[0m";

template <typename Bytes>
std::string_view BytesOf(const Bytes& bytes) {
  return {reinterpret_cast<const char*>(&bytes[0]), sizeof(bytes)};
}

void AppendAsUtf8(std::string_view text, std::string& out) {
  while (!text.empty()) {
    const std::size_t length = Utf8SequenceLength(text);
    out.append(length == 0 ? kReplacement : text.substr(0, length));
    text.remove_prefix(length == 0 ? 1 : length);
  }
}

void AppendUnicodeEscape(unsigned value, std::string& out) {
  const char low = static_cast<char>(value);
  out += "\\u00";
  AppendHex({&low, 1}, out);
}

// Control characters are escaped, U+0080 to U+009F included: a line may be shown by a terminal.
void AppendJsonText(std::string_view text, std::string& out) {
  out += '"';
  while (!text.empty()) {
    const std::size_t length = Utf8SequenceLength(text);
    const auto lead = static_cast<unsigned char>(text.front());
    if (length == 0) {
      out += kReplacement;
    } else if (lead == '"' || lead == '\\') {
      out += '\\';
      out += text.front();
    } else if (lead == '\n') {
      out += "\\n";
    } else if (lead == '\t') {
      out += "\\t";
    } else if (lead == '\r') {
      out += "\\r";
    } else if (lead < 0x20 || lead == 0x7F) {
      AppendUnicodeEscape(lead, out);
    } else if (length == 2 && lead == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0) {
      AppendUnicodeEscape(static_cast<unsigned char>(text[1]), out);
    } else {
      out.append(text.substr(0, length));
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  out += '"';
}

// The text, and beside it its bytes where they are no UTF-8.
void AppendJsonField(std::string_view name, std::string_view text, std::string& out) {
  out.append(",\"").append(name).append("\":");
  AppendJsonText(text, out);
  if (IsValidUtf8(text)) return;
  out.append(",\"").append(name).append("_hex\":\"");
  AppendHex(text, out);
  out += '"';
}

void AppendJsonTime(const TimeWords& words, std::string& out) {
  if (IsRealTime(words)) {
    out += "\"time\":\"";
    AppendTime(words, 'T', out);
    out += '"';
    return;
  }
  out += "\"time\":null,\"time_words\":[";
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i > 0) out += ',';
    out += std::to_string(words[i]);
  }
  out += ']';
}

void AppendCsvText(std::string_view text, std::string& out) {
  out += '"';
  for (const char character : text) {
    if (character == '"') out += '"';
    out += character;
  }
  out += '"';
}

}  // namespace

std::optional<Format> FormatFromName(std::string_view name) {
  static constexpr std::array<std::pair<std::string_view, Format>, 7> kNames{{{"short", Format::Short},
                                                                              {"full", Format::Full},
                                                                              {"cat", Format::Cat},
                                                                              {"json", Format::Json},
                                                                              {"ndjson", Format::Json},
                                                                              {"tsv", Format::Tsv},
                                                                              {"csv", Format::Csv}}};
  for (const auto& [known, format] : kNames) {
    if (known == name) return format;
  }
  return std::nullopt;
}

void MessageFormatter::AppendHead(std::string& out) const {
  if (options.format == Format::Csv) out += "time,seq,type,source,text\n";
}

void MessageFormatter::Append(const LogMessage& message, bool late, std::string& out) const {
  switch (options.format) {
    case Format::Short:
    case Format::Full:
      return AppendShort(message, late, out);
    case Format::Cat:
      return AppendCat(message, out);
    case Format::Json:
      return AppendJson(message, late, out);
    case Format::Tsv:
      return AppendTsv(message, out);
    case Format::Csv:
      return AppendCsv(message, out);
  }
}

// 2026-01-02 03:04:05.678 T2 Camera: text
// full adds what is rarely asked for: 2026-01-02 03:04:05.678 #4711 T2 Camera [origin=... spare=0 tail=...]:
// text
void MessageFormatter::AppendShort(const LogMessage& message, bool late, std::string& out) const {
  const LogMessageView view(message);
  if (options.color) out += kDim;
  AppendTime(WordsOf(view.Body()), ' ', out);
  if (options.format == Format::Full) out.append(" #").append(std::to_string(view.Sequence()));
  out.append(" T").append(std::to_string(view.Type()));
  if (options.color) out.append(kPlain).append(kCyan);
  out += ' ';
  AppendVisible(view.Source(), out);
  if (options.color) out += kPlain;
  if (options.format == Format::Full) {
    out += " [origin=";
    AppendHex(BytesOf(view.Body().origin), out);
    out.append(" spare=").append(std::to_string(view.Body().timestamp[7])).append(" tail=");
    AppendHex(BytesOf(view.Body().tail), out);
    out += ']';
  }
  if (late) out += " (late)";
  out += ": ";
  AppendVisible(view.Text(), out);
  out += '\n';
}

void MessageFormatter::AppendCat(const LogMessage& message, std::string& out) const {
  const std::string_view text = LogMessageView(message).Text();
  if (options.terminal) {
    AppendVisible(text, out);
  } else {
    out += text;
  }
  out += '\n';
}

void MessageFormatter::AppendJson(const LogMessage& message, bool late, std::string& out) const {
  const LogMessageView view(message);
  out += '{';
  AppendJsonTime(WordsOf(view.Body()), out);
  out.append(",\"seq\":").append(std::to_string(view.Sequence()));
  out.append(",\"type\":").append(std::to_string(view.Type()));
  AppendJsonField("source", view.Source(), out);
  AppendJsonField("text", view.Text(), out);
  out += ",\"origin\":\"";
  AppendHex(BytesOf(view.Body().origin), out);
  out += "\",\"tail\":\"";
  AppendHex(BytesOf(view.Body().tail), out);
  out += '"';
  if (late) out += ",\"late\":true";
  out += "}\n";
}

void MessageFormatter::AppendTsv(const LogMessage& message, std::string& out) const {
  const LogMessageView view(message);
  AppendTime(WordsOf(view.Body()), ' ', out);
  out.append("\t").append(std::to_string(view.Type())).append("\t");
  AppendTsvText(view.Source(), out);
  out += '\t';
  AppendTsvText(view.Text(), out);
  out += '\n';
}

void MessageFormatter::AppendCsv(const LogMessage& message, std::string& out) const {
  const LogMessageView view(message);
  const auto append = [&](std::string_view text) {
    std::string clean;
    if (options.terminal) {
      AppendVisible(text, clean);
    } else {
      AppendAsUtf8(text, clean);
    }
    AppendCsvText(clean, out);
  };
  std::string time;
  AppendTime(WordsOf(view.Body()), ' ', time);
  AppendCsvText(time, out);
  out.append(",")
      .append(std::to_string(view.Sequence()))
      .append(",")
      .append(std::to_string(view.Type()))
      .append(",");
  append(view.Source());
  out += ',';
  append(view.Text());
  out += '\n';
}

}  // namespace TamLogClient
