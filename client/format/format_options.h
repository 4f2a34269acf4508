#pragma once

// What a user can choose about the way messages are written.

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "client/format/format_template.h"
#include "client/format/message_fields.h"
#include "client/message/text_encoding.h"
#include "client/message/time_zone.h"

namespace TamLogClient {

enum class Format : std::uint8_t {
  Short,
  Full,
  Cat,
  Json,
  Tsv,
  Csv,
  JsonArray,
  Template,
  Export,
  Rfc5424,
  Raw
};

// By the name users type: short, full, cat, json (or ndjson), json-array, csv, tsv, template, export,
// rfc5424, raw.
std::optional<Format> FormatFromName(std::string_view name);

inline constexpr std::string_view kFormatNames =
    "short, full, cat, json, ndjson, json-array, csv, tsv, export, rfc5424, raw, template=TEXT";

struct FormatOptions {
  Format format = Format::Short;
  bool terminal = false;  // the output is shown by a terminal: nothing in a message may control it
  bool color = false;     // of short and full
  TextTemplate layout{};  // of Format::Template
  std::vector<Field>
      fields{};  // of json, json-array, csv and tsv, in this order; empty: what each has usually
  TimeZone zone{};
  TypeNames typeNames{};
  TextEncoding encoding = TextEncoding::Guessed();
};

}  // namespace TamLogClient
