// The formats for people: short, full, cat, and the user's template.

#include "client/format/format_parts.h"

namespace TamLogClient {

namespace {

constexpr std::string_view kDim = "\x1b[2m";
constexpr std::string_view kCyan = "\x1b[36m";
constexpr std::string_view kPlain = "\x1b[0m";

void AppendField(Field field, const MessageToFormat& message, const FormatOptions& options,
                 std::string& out) {
  switch (field) {
    case Field::Source:
      return AppendShown(message.view.Source(), options.encoding, out);
    case Field::Text:
      return AppendShown(message.view.Text(), options.encoding, out);
    case Field::Host:
      return AppendShown(message.host, options.encoding, out);
    case Field::Late:
      if (message.late) out += "late";
      return;
    default:
      return AppendSimple(field, message, options, out);
  }
}

}  // namespace

// 2026-01-02 03:04:05.678 T2 Camera: text
// full adds the fields that are rarely needed:
// 2026-01-02 03:04:05.678 #4711 T2 Camera [origin=... spare=0 tail=...]: text
void AppendLine(const MessageToFormat& message, const FormatOptions& options, std::string& out) {
  const LogMessageView& view = message.view;
  const bool full = options.format == Format::Full;
  if (options.color) out += kDim;
  AppendStamp(message, options, ' ', out);
  if (full) {
    out += " #";
    AppendNumber(view.Sequence(), out);
  }
  out += ' ';
  options.typeNames.Append(view.Type(), out);
  if (options.color) out.append(kPlain).append(kCyan);
  out += ' ';
  AppendShown(view.Source(), options.encoding, out);
  if (options.color) out += kPlain;
  if (full) {
    out += " [origin=";
    AppendHexOf(view.Body().origin, out);
    out += " spare=";
    AppendNumber(int{message.words[7]}, out);
    out += " tail=";
    AppendHexOf(view.Body().tail, out);
    out += ']';
  }
  if (message.late) out += " (late)";
  out += ": ";
  AppendShown(view.Text(), options.encoding, out);
  out += '\n';
}

// Appends the stored bytes unchanged unless the output is a terminal or the encoding was stated.
void AppendCat(const LogMessageView& message, const FormatOptions& options, std::string& out) {
  const std::string_view text = message.Text();
  if (options.terminal) {
    AppendShown(text, options.encoding, out);
  } else if (options.encoding.IsGuessed()) {
    out += text;
  } else {
    AppendAsUtf8(text, options.encoding, out);
  }
  out += '\n';
}

void AppendTemplate(const MessageToFormat& message, const FormatOptions& options, std::string& out) {
  for (const TextTemplate::Part& part : options.layout.Parts()) {
    out += part.words;
    if (part.field) AppendField(*part.field, message, options, out);
  }
  out += '\n';
}

}  // namespace TamLogClient
