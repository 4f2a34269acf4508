// The journal export format: the fields of a message line by line, then an empty line. A value that is not
// plain text is preceded by its length, so that nothing in it can be taken for its end.

#include <algorithm>

#include "client/format/format_parts.h"

namespace TamLogClient {

namespace {

bool NeedsLength(std::string_view value) {
  if (IsPlainText(value)) return false;
  while (!value.empty()) {
    const std::size_t length = Utf8SequenceLength(value);
    const auto lead = static_cast<unsigned char>(value[0]);
    const bool control = (lead < 0x20 && lead != '\t') || lead == 0x7F || BeginsWithUpperControl(value);
    if (length == 0 || control) return true;
    value.remove_prefix(length);
  }
  return false;
}

// Makes NAME=VALUE, which ends `out`, to NAME, a line end, eight bytes of length, VALUE.
void GiveLength(std::size_t equalSign, std::string& out) {
  std::uint64_t rest = out.size() - equalSign - 1;
  char length[8];
  for (char& byte : length) {
    byte = static_cast<char>(rest & 0xFFU);
    rest >>= 8U;
  }
  out[equalSign] = '\n';
  out.insert(equalSign + 1, length, sizeof(length));
}

// Appends UTF-8 where the text can be read, else its bytes unchanged. For a terminal it appends what can be
// shown.
void AppendTextField(std::string_view name, std::string_view text, const FormatOptions& options,
                     std::string& out) {
  out += name;
  const std::size_t equalSign = out.size();
  out += '=';
  if (options.terminal) {
    AppendShown(text, options.encoding, out);
  } else if (!AppendAsUtf8(text, options.encoding, out)) {
    out.resize(equalSign + 1);
    out += text;
  }
  if (NeedsLength(std::string_view(out).substr(equalSign + 1))) GiveLength(equalSign, out);
  out += '\n';
}

// Appends the bytes in a field of their own when those of the other field are not the same.
void AppendBytesField(std::string_view name, std::string_view text, const FormatOptions& options,
                      std::string& out) {
  std::string written;
  // What cannot be read is appended unchanged; a terminal is not a file to be read back.
  if (!AppendAsUtf8(text, options.encoding, written) || written == text || options.terminal) return;
  out.append(name).append("=");
  AppendHex(text, out);
  out += '\n';
}

void AppendNumberField(std::string_view name, std::uint64_t value, std::string& out) {
  out.append(name).append("=");
  AppendNumber(value, out);
  out += '\n';
}

// Readers refuse a time before 1970 and one that needs more than 55 bits.
std::uint64_t Microseconds(const MessageToFormat& message) {
  constexpr std::int64_t kMost = (std::int64_t{1} << 55U) / 1000 - 1;
  const std::int64_t milliseconds = MillisecondsSince1970(message.words, message.offset.value_or(0));
  const auto whole = static_cast<std::uint64_t>(std::clamp<std::int64_t>(milliseconds, 0, kMost));
  return std::max<std::uint64_t>(whole * 1000, 1);
}

}  // namespace

void AppendExportEntry(const MessageToFormat& message, const FormatOptions& options, std::string& out) {
  const LogMessageView& view = message.view;
  const std::uint64_t time = Microseconds(message);
  out.append("__CURSOR=").append(message.cursor).append("\n");
  AppendNumberField("__REALTIME_TIMESTAMP", time, out);
  out += "__MONOTONIC_TIMESTAMP=0\n_BOOT_ID=00000000000000000000000000000001\n";
  if (message.realTime && time > 1) AppendNumberField("_SOURCE_REALTIME_TIMESTAMP", time, out);
  if (const auto severity = options.typeNames.Severity(view.Type()))
    AppendNumberField("PRIORITY", static_cast<std::uint64_t>(*severity), out);
  if (!message.host.empty()) AppendTextField("_HOSTNAME", message.host, options, out);
  AppendTextField("SYSLOG_IDENTIFIER", view.Source(), options, out);
  AppendTextField("MESSAGE", view.Text(), options, out);
  out += "TAMLOG_TIME=";
  AppendStamp(message, options, ' ', out);
  out += '\n';
  AppendNumberField("TAMLOG_SEQ", view.Sequence(), out);
  AppendNumberField("TAMLOG_TYPE", view.Type(), out);
  out += "TAMLOG_LABEL=";
  options.typeNames.Append(view.Type(), out);
  out += "\nTAMLOG_ORIGIN=";
  AppendHexOf(view.Body().origin, out);
  out += "\nTAMLOG_TAIL=";
  AppendHexOf(view.Body().tail, out);
  out += '\n';
  AppendBytesField("TAMLOG_SOURCE_HEX", view.Source(), options, out);
  AppendBytesField("TAMLOG_TEXT_HEX", view.Text(), options, out);
  if (message.words[7] != 0) {
    out += "TAMLOG_SPARE=";
    AppendNumber(int{message.words[7]}, out);
    out += '\n';
  }
  if (message.late) out += "TAMLOG_LATE=1\n";
  out += '\n';
}

}  // namespace TamLogClient
