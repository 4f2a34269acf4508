// A message as one JSON object on one line; docs/schema/message.schema.json describes it.

#include <array>

#include "client/format/format_parts.h"

namespace TamLogClient {

namespace {

constexpr std::array<Field, 8> kUsual{Field::Time, Field::Seq,    Field::Type, Field::Source,
                                      Field::Text, Field::Origin, Field::Tail, Field::Cursor};

void AppendEscaped(unsigned value, std::string& out) {
  switch (value) {
    case '"':
    case '\\':
      out += '\\';
      out += static_cast<char>(value);
      return;
    case '\n':
      out += "\\n";
      return;
    case '\t':
      out += "\\t";
      return;
    case '\r':
      out += "\\r";
      return;
    default:
      const char low = static_cast<char>(value);
      out += "\\u00";
      AppendHex({&low, 1}, out);
  }
}

// Control characters are escaped, U+0080 to U+009F included: a line may be shown by a terminal.
void AppendJsonRun(std::string_view utf8, std::string& out) {
  std::size_t done = 0;
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    const auto byte = static_cast<unsigned char>(utf8[i]);
    const bool upperControl = BeginsWithUpperControl(utf8.substr(i));
    if (byte >= 0x20 && byte != '"' && byte != '\\' && byte != 0x7F && !upperControl) continue;
    out += utf8.substr(done, i - done);
    if (upperControl) ++i;
    AppendEscaped(static_cast<unsigned char>(utf8[i]), out);
    done = i + 1;
  }
  out += utf8.substr(done);
}

// Returns false when bytes could not be read and were replaced by U+FFFD.
bool AppendJsonText(std::string_view text, const TextEncoding& encoding, std::string& out) {
  bool complete = true;
  out += '"';
  encoding.Decode(
      text, [&out](std::string_view utf8) { AppendJsonRun(utf8, out); },
      [&](char /*byte*/) {
        out += kReplacement;
        complete = false;
      });
  out += '"';
  return complete;
}

// Appends the text, and, when some of its bytes could not be read, all of them in a separate field.
void AppendJsonTexts(std::string_view name, std::string_view text, const TextEncoding& encoding,
                     std::string& out) {
  if (AppendJsonText(text, encoding, out)) return;
  out.append(",\"").append(name).append("_hex\":\"");
  AppendHex(text, out);
  out += '"';
}

void AppendJsonTime(const MessageToFormat& message, const FormatOptions& options, std::string& out) {
  if (message.realTime) {
    out += '"';
    AppendStamp(message, options, 'T', out);
    out += '"';
    return;
  }
  out += "null,\"time_words\":";
  char before = '[';
  for (const std::int16_t word : message.words) {
    out += before;
    AppendNumber(int{word}, out);
    before = ',';
  }
  out += ']';
}

template <typename Bytes>
void AppendJsonHex(const Bytes& bytes, std::string& out) {
  out += '"';
  AppendHexOf(bytes, out);
  out += '"';
}

void AppendJsonValue(Field field, const MessageToFormat& message, const FormatOptions& options,
                     std::string& out) {
  switch (field) {
    case Field::Time:
      return AppendJsonTime(message, options, out);
    case Field::Label:
    case Field::Cursor:
      out += '"';
      AppendSimple(field, message, options, out);
      out += '"';
      return;
    case Field::Source:
      return AppendJsonTexts("source", message.view.Source(), options.encoding, out);
    case Field::Text:
      return AppendJsonTexts("text", message.view.Text(), options.encoding, out);
    case Field::Origin:
      return AppendJsonHex(message.view.Body().origin, out);
    case Field::Tail:
      return AppendJsonHex(message.view.Body().tail, out);
    case Field::Seq:
    case Field::Type:
    case Field::Spare:
    case Field::Late:
      return AppendSimple(field, message, options, out);
  }
}

}  // namespace

void AppendJsonObject(const MessageToFormat& message, const FormatOptions& options, std::string& out) {
  char before = '{';
  const auto append = [&](Field field) {
    out += before;
    before = ',';
    out.append("\"").append(NameOf(field)).append("\":");
    AppendJsonValue(field, message, options, out);
  };
  if (!options.fields.empty()) {
    for (const Field field : options.fields) append(field);
  } else {
    for (const Field field : kUsual) {
      append(field);
      if (field == Field::Type && options.typeNames.Given()) append(Field::Label);
    }
    if (message.late) append(Field::Late);
  }
  out += '}';
}

}  // namespace TamLogClient
