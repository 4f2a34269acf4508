// The syslog protocol of RFC 5424, one line a message:
//
//   <14>1 2026-01-02T03:04:05.678Z east Camera - T2 [timeQuality tzKnown="0"][tamlog@32473 ...] text
//
// The host is a hyphen where it is not known. Types have no severity, so every message is informational of
// facility user unless the types were given the names of severities. A time without a known zone is written
// as if it were UTC, and tzKnown="0" says so, as the RFC provides.

#include <algorithm>

#include "client/format/format_parts.h"

namespace TamLogClient {

namespace {

constexpr int kFacilityUser = 1;
constexpr int kDefaultSeverity = 6;  // informational
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t kMostName = 48;   // of APP-NAME
constexpr std::size_t kMostHost = 255;  // of HOSTNAME

// A name is printable ASCII without spaces; anything else becomes an underscore, an empty one a hyphen.
void AppendName(std::string_view name, std::size_t most, std::string& out) {
  if (name.empty()) out += '-';
  for (const char letter : name.substr(0, most)) out += letter > 0x20 && letter < 0x7F ? letter : '_';
}

// Returns whether AppendName appends exactly this name. A hyphen alone means that there is none.
bool IsName(std::string_view name, std::size_t most) {
  return !name.empty() && name != "-" && name.size() <= most &&
         std::all_of(name.begin(), name.end(), [](char letter) { return letter > 0x20 && letter < 0x7F; });
}

// Puts a backslash before each quote, backslash and closing bracket from `from` on.
void Escape(std::size_t from, std::string& out) {
  constexpr std::string_view kSpecial = "\"\\]";
  for (std::size_t at = out.find_first_of(kSpecial, from); at != std::string::npos;
       at = out.find_first_of(kSpecial, at + 2))
    out.insert(at, 1, '\\');
}

// Appends a parameter with the text as shown; the other function one with its bytes when these cannot be
// restored from that.
void AppendTextParam(std::string_view name, std::string_view text, const TextEncoding& encoding,
                     std::string& out) {
  out.append("\" ").append(name).append("=\"");
  const std::size_t from = out.size();
  AppendShown(text, encoding, out);
  Escape(from, out);
}

void AppendBytesParam(std::string_view name, std::string_view text, const TextEncoding& encoding,
                      std::string& out) {
  if (IsSameShown(text, encoding)) return;
  out.append("\" ").append(name).append("_hex=\"");
  AppendHex(text, out);
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
  out.append("\" cursor=\"").append(message.cursor);
  if (!IsName(view.Source(), kMostName)) {
    AppendTextParam("source", view.Source(), options.encoding, out);
    AppendBytesParam("source", view.Source(), options.encoding, out);
  }
  AppendBytesParam("text", view.Text(), options.encoding, out);
  if (!message.host.empty() && !IsName(message.host, kMostHost))
    AppendTextParam("host", message.host, TextEncoding::Guessed(), out);
  if (message.words[7] != 0) {
    out += "\" spare=\"";
    AppendNumber(int{message.words[7]}, out);
  }
  if (!message.realTime) {
    out += "\" time=\"";
    AppendTime(message.words, ' ', out);
  }
  if (message.late) out += "\" late=\"1";
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
  out += ' ';
  AppendName(message.host, kMostHost, out);
  out += ' ';
  AppendName(view.Source(), kMostName, out);
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
