// A message as one JSON object on one line; docs/schema/message.schema.json describes it.

#include <array>

#include "client/format/format_parts.h"

namespace TamLogClient {

namespace {

constexpr std::array<Field, 8> kUsual{Field::Time, Field::Seq,    Field::Type, Field::Source,
                                      Field::Text, Field::Origin, Field::Tail, Field::Cursor};

void AppendEscaped(std::string_view character, std::string& out) {
  switch (character[0]) {
    case '"':
    case '\\':
      out += '\\';
      out += character;
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
      AppendUnicodeEscape(character, out);
  }
}

// Characters that a terminal may obey are escaped: a line may be shown by one.
void AppendJsonRun(std::string_view utf8, std::string& out) {
  std::size_t done = 0;
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    const bool special = utf8[i] == '"' || utf8[i] == '\\';
    const std::size_t length = special ? 1 : ControlLength(utf8.substr(i));
    if (length == 0) continue;
    out += utf8.substr(done, i - done);
    AppendEscaped(utf8.substr(i, length), out);
    done = i + length;
    i = done - 1;
  }
  out += utf8.substr(done);
}

// Bytes that cannot be read are replaced by U+FFFD.
void AppendJsonText(std::string_view text, const TextEncoding& encoding, std::string& out) {
  out += '"';
  encoding.Decode(
      text, [&out](std::string_view utf8) { AppendJsonRun(utf8, out); },
      [&](char /*byte*/) { out += kReplacement; });
  out += '"';
}

// Appends the text, and, when its bytes are others than those of the UTF-8, all of them in a separate field.
void AppendJsonTexts(std::string_view name, std::string_view text, const TextEncoding& encoding,
                     std::string& out) {
  AppendJsonText(text, encoding, out);
  if (IsSameAsUtf8(text, encoding)) return;
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
    case Field::Host:
      return AppendJsonText(message.host, TextEncoding::Guessed(), out);
    case Field::Label:
    case Field::Cursor:
    case Field::SourceHex:
    case Field::TextHex:
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
    for (const Field field : options.fields) {
      // Source and text append their bytes themselves.
      if (field != Field::SourceHex && field != Field::TextHex) append(field);
    }
  } else {
    if (!message.host.empty()) append(Field::Host);
    for (const Field field : kUsual) {
      append(field);
      if (field == Field::Type && options.typeNames.Given()) append(Field::Label);
    }
    if (message.realTime && message.words[7] != 0) append(Field::Spare);
    if (message.late) append(Field::Late);
  }
  out += '}';
}

}  // namespace TamLogClient
