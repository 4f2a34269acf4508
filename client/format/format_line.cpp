// The formats for people: short, full, cat, and the user's template.

#include <array>

#include "client/format/format_parts.h"
#include "client/message/utf8.h"

namespace TamLogClient {

namespace {

constexpr std::string_view kDim = "\x1b[2m";
constexpr std::string_view kPlain = "\x1b[0m";

// The colours of a type's label and of the text after it; empty: the terminal's own.
struct TypeColor {
  std::string_view label;
  std::string_view text;
};

// By the severity that the user's name for the type stands for; a type without one has only a label of its
// own colour, which is not that of an error or a warning.
TypeColor ColorOf(const TypeNames& names, std::uint32_t type) {
  constexpr std::array<std::string_view, kMessageTypes> kUnnamed{"\x1b[34m", "\x1b[32m", "\x1b[36m",
                                                                 "\x1b[35m"};
  constexpr int kCritical = 2;
  constexpr int kError = 3;
  constexpr int kWarning = 4;
  constexpr int kNotice = 5;
  const auto severity = names.Severity(type);
  if (!severity) return {type < kMessageTypes ? kUnnamed[type] : std::string_view(), {}};
  if (*severity <= kCritical) return {"\x1b[1;37;41m", "\x1b[1;31m"};
  if (*severity == kError) return {"\x1b[1;31m", "\x1b[31m"};
  if (*severity == kWarning) return {"\x1b[1;33m", "\x1b[33m"};
  return {*severity == kNotice ? "\x1b[1m" : "\x1b[32m", {}};
}

// A source has the same colour in every run and on every machine: it depends on the name alone. None of the
// colours is that of an error or a warning.
std::string_view ColorOfSource(std::string_view name) {
  constexpr std::array<std::string_view, 8> kColors{"\x1b[36m", "\x1b[32m", "\x1b[35m", "\x1b[34m",
                                                    "\x1b[96m", "\x1b[92m", "\x1b[95m", "\x1b[94m"};
  std::uint32_t hash = 2166136261U;  // FNV-1a
  for (const char letter : name) hash = (hash ^ static_cast<unsigned char>(LowerCase(letter))) * 16777619U;
  return kColors[(hash >> 16U) % kColors.size()];
}

// Appends what `append` appends, in the colour if there is one.
template <typename Append>
void InColor(std::string_view color, std::string& out, const Append& append) {
  out += color;
  append();
  if (!color.empty()) out += kPlain;
}

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
  const TypeColor color = options.color ? ColorOf(options.typeNames, view.Type()) : TypeColor();
  InColor(options.color ? kDim : "", out, [&] {
    AppendStamp(message, options, ' ', out);
    if (full) {
      out += " #";
      AppendNumber(view.Sequence(), out);
    }
  });
  out += ' ';
  InColor(color.label, out, [&] { options.typeNames.Append(view.Type(), out); });
  out += ' ';
  InColor(options.color ? ColorOfSource(view.Source()) : "", out,
          [&] { AppendShown(view.Source(), options.encoding, out); });
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
  InColor(color.text, out, [&] { AppendShown(view.Text(), options.encoding, out); });
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
