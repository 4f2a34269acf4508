#pragma once

// Turns messages into lines of text. Every format but `cat` is one line a message; the data formats (json,
// tsv, csv) are valid UTF-8 whatever the bytes of a message are.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "store/log_file_format.h"

namespace TamLogClient {

enum class Format : std::uint8_t { Short, Full, Cat, Json, Tsv, Csv };

// By the name users type: short, full, cat, json (or ndjson), tsv, csv.
std::optional<Format> FormatFromName(std::string_view name);

struct FormatOptions {
  Format format = Format::Short;
  bool terminal = false;  // the output is shown by a terminal: nothing in a message may control it
  bool color = false;     // of short and full
};

// Has no state besides its options: may be used from several threads.
class MessageFormatter {
 public:
  explicit MessageFormatter(FormatOptions chosen) : options(chosen) {}

  // Appends what comes before the first message: csv has a line of column names, the others have nothing.
  void AppendHead(std::string& out) const;

  // Appends one message and its line end. `late` is shown by short, full and json.
  void Append(const LogMessage& message, bool late, std::string& out) const;

 private:
  void AppendShort(const LogMessage& message, bool late, std::string& out) const;
  void AppendCat(const LogMessage& message, std::string& out) const;
  void AppendJson(const LogMessage& message, bool late, std::string& out) const;
  void AppendTsv(const LogMessage& message, std::string& out) const;
  void AppendCsv(const LogMessage& message, std::string& out) const;

  FormatOptions options;
};

}  // namespace TamLogClient
