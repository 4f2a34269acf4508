#pragma once

// The user's choices for the output of messages.

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

// Returns the format with a name that users type: short, full, cat, json (or ndjson), json-array, csv, tsv,
// template, export, rfc5424, raw. Nothing for other names.
std::optional<Format> FormatFromName(std::string_view name);

inline constexpr std::string_view kFormatNames =
    "short, full, cat, json, ndjson, json-array, csv, tsv, export, rfc5424, raw, template=TEXT";

struct FormatOptions {
  Format format = Format::Short;
  bool terminal = false;  // the output is a terminal: no message may control it
  bool color = false;     // of short and full
  TextTemplate layout{};  // of Format::Template
  std::vector<Field>
      fields{};  // of json, json-array, csv and tsv, in this order; empty: the format's usual fields
  bool spreadsheet = false;  // of csv and tsv: no text may be taken for a formula
  TimeZone zone{};
  TypeNames typeNames{};
  TextEncoding encoding = TextEncoding::Guessed();
};

}  // namespace TamLogClient
