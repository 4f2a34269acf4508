// The syslog protocol of RFC 5424, one line a message:
//
//   <14>1 2026-01-02T03:04:05.678Z - Camera - T2 [timeQuality tzKnown="0"][tamlog@32473 ...] text
//
// Types have no severity, so every message is informational of facility user unless the types were given the
// names of severities. A time without a known zone is written as if it were UTC, and tzKnown="0" says so, as
// the RFC provides.

#include <algorithm>

#include "client/format/format_parts.h"

namespace TamLogClient {

namespace {

constexpr int kFacilityUser = 1;
constexpr int kDefaultSeverity = 6;  // informational
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t kMostName = 48;  // of APP-NAME

// A name is printable ASCII without spaces; anything else becomes an underscore, an empty one a hyphen.
void AppendName(std::string_view name, std::string& out) {
  if (name.empty()) out += '-';
  for (const char letter : name.substr(0, kMostName)) out += letter > 0x20 && letter < 0x7F ? letter : '_';
}

bool IsName(std::string_view name) {
  return !name.empty() && name.size() <= kMostName &&
         std::all_of(name.begin(), name.end(), [](char letter) { return letter > 0x20 && letter < 0x7F; });
}

// Puts a backslash before each quote, backslash and closing bracket from `from` on.
void Escape(std::size_t from, std::string& out) {
  constexpr std::string_view kSpecial = "\"\\]";
  for (std::size_t at = out.find_first_of(kSpecial, from); at != std::string::npos;
       at = out.find_first_of(kSpecial, at + 2))
    out.insert(at, 1, '\\');
}

void AppendStructuredData(const MessageToFormat& message, const FormatOptions& options, std::string& out) {
  const LogMessageView& view = message.view;
  out += message.offset ? "[timeQuality tzKnown=\"1\"]" : "[timeQuality tzKnown=\"0\"]";
  out += "[tamlog@32473 type=\"";
  AppendNumber(std::uint64_t{view.Type()}, out);
  out += "\" seq=\"";
  AppendNumber(view.Sequence(), out);
  out += "\" origin=\"";
  AppendHexOf(view.Body().origin, out);
  out += "\" tail=\"";
  AppendHexOf(view.Body().tail, out);
  if (!IsName(view.Source())) {
    out += "\" source=\"";
    const std::size_t from = out.size();
    AppendShown(view.Source(), options.encoding, out);
    Escape(from, out);
  }
  if (!message.realTime) {
    out += "\" time=\"";
    AppendTime(message.words, ' ', out);
  }
  if (message.late) out += "\" late=\"1";
  out.append("\" cursor=\"").append(message.cursor);
  out += "\"]";
}

}  // namespace

void AppendSyslogLine(const MessageToFormat& message, const FormatOptions& options, std::string& out) {
  const LogMessageView& view = message.view;
  out += '<';
  AppendNumber(kFacilityUser * 8 + options.typeNames.Severity(view.Type()).value_or(kDefaultSeverity), out);
  out += ">1 ";
  if (message.realTime) {
    AppendStamp(message, options, 'T', out);
    if (!message.offset) out += 'Z';
  } else {
    out += '-';
  }
  out += " - ";
  AppendName(view.Source(), out);
  out += " - ";
  options.typeNames.Append(view.Type(), out);
  out += ' ';
  AppendStructuredData(message, options, out);
  if (!view.Text().empty()) {
    out.append(" ").append(kByteOrderMark);
    AppendShown(view.Text(), options.encoding, out);
  }
  out += '\n';
}

}  // namespace TamLogClient
